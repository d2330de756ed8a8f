// Any bytes as a URL text: strict parsing never crashes, never accepts a text with a blank, a control
// character or no scheme, and what it accepts parses again to the same parts (an empty query, "?" alone,
// is not written back); query encoding leaves only
// the allowed set and %XX escapes, and decodes back to the input.
//
// Seed: none recorded; the addresses in examples/replies (img_url, maintain_page) make good ones.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "nbbase/foundation/Url.h"

namespace {

void check(bool condition) {
    if (!condition) std::abort();
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);

    if (const auto url = nb::Url::parse(text)) {
        check(!url->scheme().empty());
        check(text.find(' ') == std::string_view::npos && text.find('\0') == std::string_view::npos);
        const auto again = nb::Url::parse(url->text());
        check(again && again->text() == url->text() && again->scheme() == url->scheme() &&
              again->host() == url->host() && again->path() == url->path() &&
              again->query().value_or("") == url->query().value_or(""));
    }

    const std::string encoded = nb::Url::encodeQuery(text);
    std::string decoded;
    for (std::size_t i = 0; i < encoded.size(); ++i) {
        if (encoded[i] == '%') {
            check(i + 2 < encoded.size());
            const int high = hexValue(encoded[i + 1]);
            const int low = hexValue(encoded[i + 2]);
            check(high >= 0 && low >= 0);
            decoded.push_back(static_cast<char>(high * 16 + low));
            i += 2;
        } else {
            check(nb::Url::isQueryAllowed(static_cast<unsigned char>(encoded[i])));
            decoded.push_back(encoded[i]);
        }
    }
    check(decoded == text);
    return 0;
}
