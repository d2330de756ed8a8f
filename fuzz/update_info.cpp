// Any bytes as the SDK's update information, converted into the updater's feed item, for any distribution
// channel. The input is "<channel>\0<JSON>"; without a NUL the whole input is the JSON and the channel is
// "web". Checks: only a non-empty dictionary with a version makes an item; the item carries the version,
// the release notes and the flag as given and the link as the channel rewrite makes it; the rewrite leaves
// the link alone for "", "0" and "nimbo" and otherwise grows it by exactly what the replacements add; and
// the cache's round trip through a property list gives the same item.
//
// Seed: examples/replies/getUpdateInformation.json (prefix it with a channel and a NUL byte, or not).
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "fuzz/CatalogCollaborators.h"
#include "nbbase/core/NBEventCenter.h"
#include "nbbase/foundation/Folders.h"
#include "nbbase/foundation/MainQueue.h"
#include "nbbase/foundation/PropertyList.h"
#include "nbbase/update/NBUpdateManager.h"

namespace {

using nbfuzz::check;

struct Rig {
    nb::MainQueue main;
    nb::NBEventCenter events{main};
    nbtest::TempDir dir{"nbfuzzupdate"};
    nb::UserDefaults defaults{"org.nimbo.fuzz", dir.path()};
    nb::Folders folders{nb::Folders::Environment{dir.path().string(), {}, {}, {}}};
    nb::URLSession session;
    nb::SUUpdater updater{nullptr, defaults, session, folders, main, nbfuzz::CatalogCollaborators::shared().background(),
                          nbfuzz::CatalogCollaborators::shared().log(), ""};
};

// Items read their identifiers (version, link) as feeds write them: XML white space around them is not part.
std::string trimmed(std::string_view text) {
    constexpr std::string_view kSpace = " \t\r\n";
    const auto first = text.find_first_not_of(kSpace);
    if (first == std::string_view::npos) return {};
    return std::string(text.substr(first, text.find_last_not_of(kSpace) - first + 1));
}

std::size_t occurrences(std::string_view text, std::string_view part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); !part.empty() && at != std::string_view::npos;
         at = text.find(part, at + part.size())) {
        ++count;
    }
    return count;
}

std::string packageOf(std::string_view link) {
    while (link.size() > 1 && link.back() == '/') link.remove_suffix(1);
    std::string_view last = link.substr(link.find_last_of('/') + 1);
    if (const auto dot = last.find_last_of('.'); dot != std::string_view::npos && dot > 0) last = last.substr(0, dot);
    return std::string(last);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Rig* const rig = new Rig();
    std::string_view input(reinterpret_cast<const char*>(data), size);
    std::string channel = "web";
    if (const auto nul = input.find('\0'); nul != std::string_view::npos) {
        channel = std::string(input.substr(0, nul));
        input.remove_prefix(nul + 1);
    }
    const auto bundle = std::make_shared<const nb::MainBundle>(
        nb::Value::dictionary({{"CFBundleIdentifier", "org.nimbo.fuzz"}, {"NIMBODistributionChannel", channel}}),
        rig->dir.path());
    auto& shared = nbfuzz::CatalogCollaborators::shared();
    const auto manager = nb::NBUpdateManager::create({.updater = rig->updater,
                                                      .sdkManager = shared.bridge(),
                                                      .configuration = shared.configuration(),
                                                      .eventCenter = rig->events,
                                                      .standardDefaults = rig->defaults,
                                                      .bundle = bundle,
                                                      .cachesFolder = "",
                                                      .mainQueue = rig->main,
                                                      .background = shared.background(),
                                                      .log = shared.log(),
                                                      .terminate = [] { check(false); }});

    const nb::Value info = nbfuzz::decodeInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
    const auto item = manager->covertUpdateItem(info);
    const auto* dictionary = info.asDictionary();
    const std::string version = info["latestversion"].textValue().value_or("");
    const std::string link = info["downloadurl"].textValue().value_or("");
    if (dictionary == nullptr || dictionary->empty() || trimmed(version).empty()) {
        check(item == nullptr);
        return 0;
    }
    check(item != nullptr);
    check(item->versionString() == trimmed(version) && item->title() == version);
    check(item->showFeatures() == info["showfeatures"].boolValue());

    const std::string rewritten = nb::NBUpdateManager::channelDownloadURL(link, channel);
    check(item->fileURL() == trimmed(rewritten));
    const std::string package = packageOf(link);
    if (channel.empty() || channel == "0" || channel == "nimbo" || package.empty()) {
        check(rewritten == link);
    } else {
        const std::size_t added = channel.size() * 2 + 2;  // "<channel>/" before and "-<channel>" after
        check(rewritten.size() == link.size() + occurrences(link, package) * added);
    }

    // The cache keeps what the next start converts: the same item again.
    if (const auto bytes = nb::PropertyList::write(info, nb::PropertyList::Format::Xml)) {
        const auto again = manager->covertUpdateItem(nb::PropertyList::read(*bytes));
        check(again && again->fileURL() == item->fileURL() && again->versionString() == item->versionString());
    }
    return 0;
}
