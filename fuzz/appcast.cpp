// Any bytes as an appcast feed: a refusal always says why; every item read has a non-empty version with
// no white space around it and a non-empty display version, a length only above zero, and the dictionary it
// came from; reading the same bytes again gives the same versions in the same order.
//
// Seed: examples/appcast/appcast.xml.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "nbbase/foundation/NBLog.h"
#include "nbbase/updater/SUAppcast.h"

namespace {

void check(bool condition) {
    if (!condition) std::abort();
}

nb::NBLog& quietLog() {
    static nb::NBLog* const log = [] {
        auto* created = new nb::NBLog();
        created->setLogHandler([](std::int32_t, const std::string&) {});
        return created;
    }();
    return *log;
}

std::vector<std::string> versions(const nb::SUAppcast& appcast) {
    std::vector<std::string> result;
    for (const auto& item : appcast.items()) result.push_back(item->versionString());
    return result;
}

bool isXmlSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view xml(reinterpret_cast<const char*>(data), size);
    std::string error;
    const auto appcast = nb::SUAppcast::parseAppcastData(xml, &error, quietLog());
    if (!appcast) {
        check(!error.empty() && error.find('\n') == std::string::npos);
        check(!nb::SUAppcast::parseAppcastData(xml, nullptr, quietLog()));
        return 0;
    }
    for (const auto& item : appcast->items()) {
        check(item != nullptr);
        const std::string& version = item->versionString();
        check(!version.empty() && !isXmlSpace(version.front()) && !isXmlSpace(version.back()));
        check(!item->displayVersionString().empty());
        check(!item->contentLength() || *item->contentLength() > 0);
        check(item->propertiesDictionary().isDictionary());
    }
    const auto again = nb::SUAppcast::parseAppcastData(xml, nullptr, quietLog());
    check(again && versions(*again) == versions(*appcast));
    return 0;
}
