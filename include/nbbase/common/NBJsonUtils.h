// NBJsonUtils: the companion library's two small readers of outside text, a JSON object and a URL's query.
//
// dictionaryWithJsonString: the decoded dictionary (nb::Json rules), or an absent Value when the text is
// nil, empty, not JSON, or JSON whose top level is not an object (an array, a bare value).
//
// dictionaryWithURL: the query parameters of a URL text, by name, as a dictionary Value whose values are
// all strings. The text must parse with nb::Url (strict: a scheme, no blank, no raw non-ASCII byte); a nil
// text, one that does not parse, or one without a query answers an empty dictionary, never an absent one.
// The query (up to any "#") is split at every "&", each piece at its first "=":
// - a piece without "=" is a name whose value is "" ("a&b=1" gives a = "", b = "1"); an empty piece
//   ("a=1&&b=2", a trailing "&") is skipped; an empty name ("=v") is kept, under the key "";
// - of a repeated name the last value wins, at the place where the name first appeared;
// - "%XX" escapes are decoded (libcurl's decoder); a "%" not followed by two hex digits ("%zz", "%4")
//   stays as written; "+" stays "+" (this is a URL's query, not an HTML form's body);
// - a name or value whose decoding would not be valid UTF-8, or would hold a NUL byte, is kept exactly as
//   written in the URL, escapes and all, so every key and value can be encoded to JSON and passed on as a
//   C string. Since nb::Url refuses raw non-ASCII bytes, what is kept as written is plain ASCII.
//
// Threads: stateless; any thread, concurrently. Nothing throws; there is no error result beyond the absent
// or empty dictionary.
#pragma once

#include <optional>
#include <string>

#include "nbbase/foundation/Value.h"

namespace nb {

class NBJsonUtils {
public:
    NBJsonUtils() = delete;

    [[nodiscard]] static Value dictionaryWithJsonString(const std::optional<std::string>& json);
    [[nodiscard]] static Value dictionaryWithURL(const std::optional<std::string>& url);
};

}  // namespace nb
