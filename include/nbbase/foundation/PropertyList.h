// nb::PropertyList: property lists (XML or binary) to and from nb::Value, through libplist.
//
// Kinds map one to one: dict, array, string, bool, integer, real, data and date. Dates are converted
// between the property-list epoch (2001-01-01) and nb::Date's 1970 one. Binary dates keep microseconds;
// XML dates are written and read in whole seconds, as that format has no fraction.
//
// Integers: libplist keeps every integer as 64 unsigned bits, so we read them back as signed 64-bit
// (negative integers round-trip in both formats). An unsigned Value above INT64_MAX cannot be told
// apart from a negative number on the way back and is therefore refused by write().
//
// Input is untrusted (the SDK configuration file is hand-edited): before libplist sees the bytes we
// check that nesting stays within kMaxDepth and that a binary list's shared references cannot expand
// past kMaxNodes values, since libplist recurses on nesting and copies shared objects.
//
// Threads: every function is static, keeps no state and may be called on any thread at once.
// Failure: read functions answer an absent Value; write answers std::nullopt. Nothing throws, nothing logs.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string_view>

#include "nbbase/foundation/Value.h"

namespace nb {

class PropertyList {
public:
    enum class Format { Xml, Binary };

    static constexpr std::size_t kMaxDepth = 512;
    static constexpr std::size_t kMaxNodes = std::size_t{1} << 21;
    static constexpr std::size_t kMaxFileSize = std::size_t{64} << 20;

    // Parses XML or binary, detected from the first bytes. The root may be of any kind. Strings come
    // out as UTF-8, any malformed byte replaced by U+FFFD. Absent when the bytes are not a property
    // list (empty, truncated, another XML document, too deep, ...).
    static Value read(std::string_view bytes);
    static Value read(const Data& bytes);

    // Reads the whole file afresh; absent when it is missing, unreadable, larger than kMaxFileSize or
    // not a property list.
    static Value readFile(const std::filesystem::path& path);

    // nullopt when the value, or anything inside it, cannot be a property list: absent, null, an
    // unsigned integer above INT64_MAX, a string or key holding a NUL character or invalid UTF-8, a
    // date before 1933 or after 2069 (libplist keeps seconds in 32 bits), or nesting deeper than
    // kMaxDepth.
    [[nodiscard]] static std::optional<Data> write(const Value& value, Format format);
};

}  // namespace nb
