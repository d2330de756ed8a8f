// nb::Url: the one place the library turns text into an address, and percent-encodes text for a URL.
//
// Parsing is strict, with libcurl's URL parser: the text must carry a scheme ("https:", "file:", any
// other scheme too). nullopt answers a text with a byte no URL may hold unencoded (a blank, a control
// character, a non-ASCII byte, or one of " < > \ ^ ` { | }), an unbalanced "[" in the host, a bad port,
// anything else the parser refuses, and a text whose written-back form (text()) would not parse again to
// the same parts (libcurl reads "file:name" as the file "name" but writes "file://name", a host). So
// text() always parses again to the same parts; only an empty query ("?" alone) is not written back.
// Nothing is percent-encoded or guessed on the way: a caller that has a text which may hold such
// characters encodes it first (encodeQuery), as the display downloads do, or lets it fail, as the
// prefetches do.
//
// encodeQuery keeps the characters a URL's query may hold unencoded (ASCII letters and digits and
// !$&'()*+,-./:;=?@_~) and writes every other byte as %XX with upper-case hex digits. "%" itself is not
// in the set, so an already encoded text is encoded a second time ("%20" becomes "%2520"): callers that
// rely on that (the avatar download) get exactly what they asked for.
//
// encodeComponent keeps only the unreserved characters (ASCII letters and digits and -._~) and encodes every
// other byte the same way. Its output reads back as exactly the input under any decoder: a URL's own, and an
// HTML form's too, which turns a bare "+" into a blank and splits at "&" and "=". Use it for a value that
// must survive whoever reads the query (the SDK's header text, the feedback page's values).
//
// Threads: stateless functions and an immutable value type; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace nb {

class Url {
public:
    [[nodiscard]] static std::optional<Url> parse(std::string_view text);

    [[nodiscard]] static std::string encodeQuery(std::string_view text);
    [[nodiscard]] static bool isQueryAllowed(unsigned char c) noexcept;
    [[nodiscard]] static std::string encodeComponent(std::string_view text);

    // The whole URL as the parser wrote it back (the scheme in lower case; otherwise as given).
    [[nodiscard]] const std::string& text() const noexcept { return text_; }
    [[nodiscard]] const std::string& scheme() const noexcept { return scheme_; }
    // "" when the URL has none ("file:///tmp/a", "mailto:x").
    [[nodiscard]] const std::string& host() const noexcept { return host_; }
    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    // Without the "?"; nullopt when there is no "?".
    [[nodiscard]] const std::optional<std::string>& query() const noexcept { return query_; }
    [[nodiscard]] bool isFile() const noexcept { return scheme_ == "file"; }

private:
    Url() = default;
    // The character check and libcurl's reading, without the write-back check.
    static std::optional<Url> parseOnce(std::string_view text);

    std::string text_;
    std::string scheme_;
    std::string host_;
    std::string path_;
    std::optional<std::string> query_;
};

}  // namespace nb
