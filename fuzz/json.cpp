// Any bytes: decoding must fail cleanly or give a Value that encodes, compact and pretty, to text that
// decodes to an equal Value and encodes to the very same text again (so kinds survive, not only values).
// decodeMember must give exactly what the whole decode holds under a key, and fail where it fails.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "nbbase/foundation/Json.h"

namespace {

void check(bool condition) {
    if (!condition) std::abort();
}

void roundTrip(const nb::Value& value, bool allowFragments) {
    std::optional<std::string> first;
    for (const auto style : {nb::Json::Style::Compact, nb::Json::Style::Pretty}) {
        nb::Json::Error error;
        const auto text = nb::Json::encode(value, style, &error);
        check(text.has_value());  // whatever decoding produced, JSON can hold
        const auto back = nb::Json::decode(*text, {.allowFragments = allowFragments});
        check(back.has_value());
        check(*back == value);
        const auto again = nb::Json::encode(*back);
        check(again.has_value());
        if (first) {
            check(*again == *first);
        } else {
            first = again;
        }
    }
}

// Every key of the top object, and one it lacks.
void checkMembers(std::string_view text, const std::optional<nb::Value>& whole, bool allowFragments) {
    std::vector<std::string> keys{"\x01"};
    if (whole && whole->isDictionary()) {
        for (const auto& entry : *whole->asDictionary()) keys.push_back(entry.first);
    }
    for (const auto& key : keys) {
        const auto member = nb::Json::decodeMember(text, key, {.allowFragments = allowFragments});
        check(member.has_value() == whole.has_value());
        if (member) check(member->kind() == (*whole)[key].kind() && *member == (*whole)[key]);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    std::optional<nb::Value> strict;
    for (const bool allowFragments : {false, true}) {
        nb::Json::Error error;
        const auto value = nb::Json::decode(text, {.allowFragments = allowFragments}, &error);
        checkMembers(text, value, allowFragments);
        if (!value) {
            check(!error.message.empty());
            check(error.offset <= size);
            // What the strict mode accepts, the lenient one accepts too.
            check(!allowFragments || !strict.has_value());
            continue;
        }
        check(value->isArray() || value->isDictionary() || allowFragments);
        if (allowFragments && strict) check(*strict == *value);
        roundTrip(*value, allowFragments);
        if (!allowFragments) strict = value;
    }
    return 0;
}
