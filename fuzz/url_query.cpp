// Any bytes as a URL text for the query reader: it answers a dictionary whose keys and values are text
// JSON can carry, without NUL bytes. Then the same bytes as name/value pairs (fields split at '\n', taken
// two by two; an odd last field is a name without "=", skipped when empty), every byte but letters and digits escaped, joined
// into a query: the reader gives the pairs back, the last of a repeated name winning, and a name or
// value that is not UTF-8 without NUL comes back as it was written.
//
// Seed: none needed; "a\nb\nc" style inputs grow quickly.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "nbbase/common/NBJsonUtils.h"
#include "nbbase/foundation/Json.h"

namespace {

void check(bool condition) {
    if (!condition) std::abort();
}

bool isCarriedText(const std::string& s) {
    return s.find('\0') == std::string::npos && nb::Json::encode(nb::Value(s)).has_value();
}

std::string escapeAll(std::string_view s) {
    std::string out;
    for (const char c : s) {
        const auto u = static_cast<unsigned char>(c);
        if ((u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || (u >= '0' && u <= '9')) {
            out.push_back(c);
        } else {
            out += fmt::format("%{:02X}", u);
        }
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);

    const nb::Value any = nb::NBJsonUtils::dictionaryWithURL(std::string(input));
    check(any.isDictionary() && nb::Json::encode(any).has_value());
    for (const auto& [name, value] : *any.asDictionary()) {
        check(value.isString() && isCarriedText(name) && isCarriedText(*value.asString()));
    }

    std::vector<std::string_view> fields;
    for (std::size_t start = 0; start <= input.size();) {
        std::size_t end = input.find('\n', start);
        if (end == std::string_view::npos) end = input.size();
        fields.push_back(input.substr(start, end - start));
        start = end + 1;
    }
    std::string url = "nimbo://open/task?";
    nb::Value expected = nb::Value(nb::Value::Dictionary());
    for (std::size_t i = 0; i < fields.size(); i += 2) {
        const std::string name(fields[i]);
        const bool hasValue = i + 1 < fields.size();
        const std::string value = hasValue ? std::string(fields[i + 1]) : std::string();
        if (i > 0) url += '&';
        url += escapeAll(name);
        if (hasValue) url += '=' + escapeAll(value);
        // An empty piece carries nothing.
        if (name.empty() && !hasValue) continue;
        expected.set(isCarriedText(name) ? name : escapeAll(name),
                     nb::Value(isCarriedText(value) ? value : escapeAll(value)));
    }
    check(nb::NBJsonUtils::dictionaryWithURL(url) == expected);
    return 0;
}
