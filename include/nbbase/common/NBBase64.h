// NBBase64: the standard base64 of RFC 4648 section 4 (alphabet A-Z a-z 0-9 + /, "=" padding), the form
// in which the feedback page carries its sealed "data" value.
//
// Encoding writes no line breaks and always pads to a multiple of four characters; empty data is "".
//
// Decoding is strict, so that a text decodes only if encoding its result gives the same text back. It
// answers nullopt for:
// - any character outside the alphabet, white space and line breaks included (strip them first if a
//   text may be wrapped), and the URL-safe "-" and "_";
// - a length that is not a multiple of four (missing padding);
// - "=" anywhere but as the last one or two characters;
// - non-zero bits in the unused low bits of the last character before the padding ("Zh==" for "Zg==").
// The empty text decodes to empty data.
//
// Stateless: every function may be called on any thread, concurrently. Nothing throws.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "nbbase/foundation/Value.h"

namespace nb {

class NBBase64 {
public:
    [[nodiscard]] static std::string base64StringFromData(const Data& data);
    [[nodiscard]] static std::optional<Data> dataFromBase64String(std::string_view text);
};

}  // namespace nb
