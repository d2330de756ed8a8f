#include "nbbase/foundation/Url.h"

#include <curl/curl.h>

#include <memory>

namespace nb {

namespace {

struct UrlHandleDeleter {
    void operator()(CURLU* handle) const noexcept { curl_url_cleanup(handle); }
};
using UrlHandle = std::unique_ptr<CURLU, UrlHandleDeleter>;

// One part of a parsed URL; nullopt when the URL has none.
std::optional<std::string> part(CURLU* handle, CURLUPart which) {
    char* text = nullptr;
    if (curl_url_get(handle, which, &text, 0) != CURLUE_OK || text == nullptr) return std::nullopt;
    std::string result(text);
    curl_free(text);
    return result;
}

// What may stand in a URL text at all: printable ASCII less the characters no URL may hold unencoded.
// libcurl refuses blanks and control characters but lets non-ASCII bytes and these through.
bool mayAppear(unsigned char c) noexcept {
    if (c <= 0x20 || c >= 0x7F) return false;
    switch (c) {
        case '"': case '<': case '>': case '\\': case '^': case '`': case '{': case '|': case '}':
            return false;
        default:
            return true;
    }
}

}  // namespace

std::optional<Url> Url::parse(std::string_view text) {
    auto url = parseOnce(text);
    if (!url || url->text_ == text) return url;
    // libcurl writes some texts it accepts back as texts it refuses or reads otherwise ("file:name" becomes
    // "file://name", a host named "name"; "file:///" becomes "file://(nil)"; "%ec" in a host comes back as
    // the raw byte). Such a text is refused, so text() always parses again to itself.
    const auto again = parseOnce(url->text_);
    if (!again || again->text_ != url->text_ || again->scheme_ != url->scheme_ || again->host_ != url->host_ ||
        again->path_ != url->path_ || again->query_.value_or("") != url->query_.value_or("")) {
        return std::nullopt;
    }
    return url;
}

std::optional<Url> Url::parseOnce(std::string_view text) {
    for (const char c : text) {
        if (!mayAppear(static_cast<unsigned char>(c))) return std::nullopt;
    }
    const UrlHandle handle(curl_url());
    if (!handle) return std::nullopt;
    // Any scheme, not only those libcurl can fetch; no blank, no guessed scheme, no added encoding.
    const std::string input(text);
    if (curl_url_set(handle.get(), CURLUPART_URL, input.c_str(), CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK) {
        return std::nullopt;
    }
    Url url;
    url.text_ = part(handle.get(), CURLUPART_URL).value_or(input);
    url.scheme_ = part(handle.get(), CURLUPART_SCHEME).value_or("");
    url.host_ = part(handle.get(), CURLUPART_HOST).value_or("");
    url.path_ = part(handle.get(), CURLUPART_PATH).value_or("");
    url.query_ = part(handle.get(), CURLUPART_QUERY);
    if (url.scheme_.empty()) return std::nullopt;
    return url;
}

bool Url::isQueryAllowed(unsigned char c) noexcept {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
    switch (c) {
        case '!': case '$': case '&': case '\'': case '(': case ')': case '*': case '+': case ',': case '-':
        case '.': case '/': case ':': case ';': case '=': case '?': case '@': case '_': case '~':
            return true;
        default:
            return false;
    }
}

namespace {

template <typename Keep>
std::string percentEncode(std::string_view text, Keep keep) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(text.size());
    for (const char ch : text) {
        const auto c = static_cast<unsigned char>(ch);
        if (keep(c)) {
            out.push_back(ch);
        } else {
            out.push_back('%');
            out.push_back(kHex[c >> 4]);
            out.push_back(kHex[c & 0x0F]);
        }
    }
    return out;
}

bool isUnreserved(unsigned char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
           c == '_' || c == '~';
}

}  // namespace

std::string Url::encodeQuery(std::string_view text) { return percentEncode(text, &Url::isQueryAllowed); }

std::string Url::encodeComponent(std::string_view text) { return percentEncode(text, &isUnreserved); }

}  // namespace nb
