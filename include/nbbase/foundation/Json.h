// nb::Json: JSON text to nb::Value and back.
//
// Stateless: every function may be called on any thread, concurrently. Nothing throws; a failure is an
// empty optional, with the reason in *error when the caller passes one.
//
// Decoding reads UTF-8 (a leading byte-order mark is skipped) and builds the Value directly, without an
// intermediate document (read() gives the same walk to a JsonEvents handler of the caller's):
// - objects and arrays are always accepted at the top; a bare scalar ("12", "\"text\"", "null") only
//   with DecodeOptions::allowFragments;
// - nesting deeper than kMaxDepth containers fails; input never makes the decoder recurse, however deep;
// - invalid UTF-8 inside strings fails, as does anything but white space after the value;
// - of a repeated key the last value wins, at the place where the key first appeared;
// - true and false become Bool, null becomes Value::null();
// - an integer is an int64 when it fits, an unsigned 64-bit integer above INT64_MAX, and a real beyond
//   either (so 18446744073709551616 is the real 1.8446744073709552e19); -0 is the integer 0 and -0.0 the
//   real -0.0; reals are read with correct rounding, so encoding and decoding again gives the same double;
// - a number too large for a double (1e309) fails rather than becoming infinity, because JSON cannot
//   write infinity back.
// On failure Error::offset is the byte offset in the input at which decoding stopped, and
// Error::message names the reason and repeats the offset, ready for a log line.
//
// Encoding writes UTF-8 JSON, compact or pretty (two-space indent, one member per line). It refuses a
// value that JSON cannot hold: absent, data, date, a NaN or infinite real, a string that is not valid
// UTF-8, or nesting deeper than kMaxDepth, anywhere in the tree; Error::message then says what and where
// ("a date at items[3].created"). Bools are written as true and false, unsigned integers as unsigned,
// reals in the shortest form that reads back the same, always with a fraction or exponent ("1.0"), so
// that a decoded real stays a real. Dictionaries keep their order.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "nbbase/foundation/JsonEvents.h"
#include "nbbase/foundation/Value.h"

namespace nb {

// Outside Json so that "DecodeOptions options = {}" compiles as a default argument.
struct JsonDecodeOptions {
    bool allowFragments = false;
};

class Json {
public:
    static constexpr std::size_t kMaxDepth = 512;

    using DecodeOptions = JsonDecodeOptions;

    enum class Style { Compact, Pretty };

    struct Error {
        std::size_t offset = 0;  // decoding only: byte offset in the input
        std::string message;
    };

    Json() = delete;

    [[nodiscard]] static std::optional<Value> decode(std::string_view text, DecodeOptions options = {},
                                                     Error* error = nullptr);
    // Server replies arrive as bytes; same rules as above.
    [[nodiscard]] static std::optional<Value> decode(const nb::Data& bytes, DecodeOptions options = {},
                                                     Error* error = nullptr);
    // Walks the text with the same checks as decode and reports it to `events` as it goes, for readers
    // that need no Value tree of the whole text. True when the whole text was read; false on the first
    // failure, including a handler answering false, after some events may already have been reported.
    static bool read(std::string_view text, DecodeOptions options, JsonEvents& events, Error* error = nullptr);
    // What decode(text, options) would give under `key` of its top-level object (the last of a repeated
    // key), without building the rest: nullopt when decode would fail, an absent Value when the top is not
    // an object or lacks the key. For small texts read many times, where the discarded rest is the cost.
    [[nodiscard]] static std::optional<Value> decodeMember(std::string_view text, std::string_view key,
                                                           DecodeOptions options = {}, Error* error = nullptr);

    [[nodiscard]] static std::optional<std::string> encode(const Value& value, Style style = Style::Compact,
                                                           Error* error = nullptr);
};

}  // namespace nb
