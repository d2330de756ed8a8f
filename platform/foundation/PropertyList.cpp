#include "nbbase/foundation/PropertyList.h"

#include <plist/plist.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>
#include <vector>

namespace nb {
namespace {

// Seconds from 1970-01-01 to 2001-01-01, the property-list epoch.
constexpr double kEpochOffset = 978307200.0;

struct PlistFree {
    void operator()(void* node) const noexcept { plist_free(static_cast<plist_t>(node)); }
};
using PlistPtr = std::unique_ptr<void, PlistFree>;

// Iterators from libplist are plain malloc'd blocks.
struct MallocFree {
    void operator()(void* p) const noexcept { std::free(p); }
};

bool startsWith(std::string_view s, std::size_t at, std::string_view prefix) {
    return s.size() - at >= prefix.size() && s.compare(at, prefix.size(), prefix) == 0;
}

// libplist's XML reader recurses once per <array> or <dict>, so a deep document would overflow the
// stack. This scan is deliberately coarse: it only needs to bound the nesting libplist will see.
bool xmlNestingWithinLimit(std::string_view xml) {
    std::size_t depth = 0;
    std::size_t i = 0;
    while ((i = xml.find('<', i)) != std::string_view::npos) {
        if (startsWith(xml, i, "<!--")) {
            std::size_t end = xml.find("-->", i + 4);
            if (end == std::string_view::npos) return true;  // libplist rejects it
            i = end + 3;
            continue;
        }
        if (startsWith(xml, i, "<![CDATA[")) {
            std::size_t end = xml.find("]]>", i + 9);
            if (end == std::string_view::npos) return true;
            i = end + 3;
            continue;
        }
        bool closing = startsWith(xml, i, "</");
        std::size_t nameAt = i + (closing ? 2 : 1);
        std::size_t nameLength = startsWith(xml, nameAt, "array") ? 5 : startsWith(xml, nameAt, "dict") ? 4 : 0;
        std::size_t close = xml.find('>', nameAt);
        if (close == std::string_view::npos) return true;
        if (nameLength != 0) {
            char after = xml[nameAt + nameLength];  // nameAt + nameLength <= close
            bool isName = after == '>' || after == '/' || after == ' ' || after == '\t' || after == '\n' || after == '\r';
            if (isName) {
                if (closing) {
                    depth = depth > 0 ? depth - 1 : 0;
                } else if (xml[close - 1] != '/' && ++depth > PropertyList::kMaxDepth) {
                    return false;
                }
            }
        }
        i = close + 1;
    }
    return true;
}

std::uint64_t readBigEndian(const unsigned char* p, std::size_t size) {
    std::uint64_t v = 0;
    for (std::size_t i = 0; i < size; ++i) v = (v << 8) | p[i];
    return v;
}

// Binary lists refer to objects by index, so one small object can be referenced many times (libplist
// copies it each time) or sit at the bottom of a long chain (libplist recurses). Walk the object graph
// once, iteratively and with memoised results, and refuse cycles, excessive depth and excessive
// expanded size. Anything malformed is refused too: libplist would refuse it anyway.
bool binaryShapeWithinLimits(std::string_view bytes) {
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    const std::size_t length = bytes.size();
    constexpr std::size_t kHeader = 8, kTrailer = 32;
    if (length < kHeader + kTrailer) return false;
    const unsigned char* trailer = data + length - kTrailer;
    const std::size_t offsetSize = trailer[6];
    const std::size_t refSize = trailer[7];
    const std::uint64_t objectCount = readBigEndian(trailer + 8, 8);
    const std::uint64_t topObject = readBigEndian(trailer + 16, 8);
    const std::uint64_t tableOffset = readBigEndian(trailer + 24, 8);
    const std::size_t tableEnd = length - kTrailer;
    if (offsetSize < 1 || offsetSize > 8 || refSize < 1 || refSize > 8) return false;
    if (objectCount == 0 || objectCount > tableEnd || topObject >= objectCount) return false;
    if (tableOffset < kHeader || tableOffset > tableEnd || (tableEnd - tableOffset) / offsetSize < objectCount) {
        return false;
    }
    const std::size_t count = static_cast<std::size_t>(objectCount);

    auto offsetOf = [&](std::size_t object) {
        return readBigEndian(data + tableOffset + object * offsetSize, offsetSize);
    };
    // An object's type, element count and where its elements start; false when malformed.
    auto header = [&](std::size_t object, unsigned& type, std::uint64_t& n, std::size_t& first) {
        std::uint64_t at = offsetOf(object);
        if (at < kHeader || at >= tableOffset) return false;
        const unsigned char marker = data[at];
        type = marker >> 4;
        n = marker & 0x0F;
        first = static_cast<std::size_t>(at) + 1;
        if (n == 0x0F && (type == 0x5 || type == 0x6 || type == 0xA || type == 0xC || type == 0xD)) {
            if (first >= tableOffset) return false;
            const unsigned char intMarker = data[first];
            if ((intMarker >> 4) != 0x1 || (intMarker & 0x0F) > 3) return false;
            const std::size_t intSize = std::size_t{1} << (intMarker & 0x0F);
            if (tableOffset - first - 1 < intSize) return false;
            n = readBigEndian(data + first + 1, intSize);
            first += 1 + intSize;
        }
        return true;
    };
    // libplist (as Debian builds it) asserts that a dictionary key holds no NUL character, which
    // would abort the whole process; such keys, and keys that are not strings, are refused here.
    auto isSafeKey = [&](std::size_t object) {
        unsigned type = 0;
        std::uint64_t n = 0;
        std::size_t first = 0;
        if (!header(object, type, n, first)) return false;
        const std::uint64_t unit = type == 0x5 ? 1 : type == 0x6 ? 2 : 0;
        if (unit == 0 || n > length || (tableOffset - first) / unit < n) return false;
        for (std::size_t i = 0; i < n; ++i) {
            const unsigned char* c = data + first + i * unit;
            if (c[0] == 0 && (unit == 1 || c[1] == 0)) return false;
        }
        return true;
    };
    // Where an object's references start and how many it has; false when malformed.
    auto references = [&](std::size_t object, std::size_t& first, std::size_t& refs, std::size_t& keys) {
        unsigned type = 0;
        std::uint64_t n = 0;
        refs = 0;
        if (!header(object, type, n, first)) return false;
        if (type != 0xA && type != 0xC && type != 0xD) return true;  // a leaf
        if (type == 0xD) {
            if (n > length) return false;
            n *= 2;
        }
        if (n > length || (tableOffset - first) / refSize < n) return false;
        refs = static_cast<std::size_t>(n);
        keys = type == 0xD ? refs / 2 : 0;
        return true;
    };

    enum : std::uint8_t { kUnseen, kOpen, kDone };
    std::vector<std::uint8_t> state(count, kUnseen);
    std::vector<std::uint32_t> height(count, 0);
    std::vector<std::uint64_t> nodes(count, 0);
    struct Frame {
        std::size_t object, first, refs, keys, next;
    };
    std::vector<Frame> stack;
    auto open = [&](std::size_t object) {
        Frame frame{object, 0, 0, 0, 0};
        if (!references(object, frame.first, frame.refs, frame.keys)) return false;
        state[object] = kOpen;
        stack.push_back(frame);
        return true;
    };
    if (!open(static_cast<std::size_t>(topObject))) return false;
    while (!stack.empty()) {
        Frame& frame = stack.back();
        if (frame.next < frame.refs) {
            std::uint64_t child = readBigEndian(data + frame.first + frame.next * refSize, refSize);
            const bool isKey = frame.next < frame.keys;
            ++frame.next;
            if (child >= count) return false;
            if (isKey && !isSafeKey(static_cast<std::size_t>(child))) return false;
            if (state[child] == kOpen) return false;  // a cycle
            if (state[child] == kUnseen && !open(static_cast<std::size_t>(child))) return false;
            continue;
        }
        std::uint32_t h = 1;
        std::uint64_t n = 1;
        for (std::size_t k = 0; k < frame.refs; ++k) {
            std::size_t child = static_cast<std::size_t>(readBigEndian(data + frame.first + k * refSize, refSize));
            h = std::max(h, height[child] + 1);
            n = std::min<std::uint64_t>(n + nodes[child], PropertyList::kMaxNodes + 1);
        }
        if (h > PropertyList::kMaxDepth || n > PropertyList::kMaxNodes) return false;
        height[frame.object] = h;
        nodes[frame.object] = n;
        state[frame.object] = kDone;
        stack.pop_back();
    }
    return true;
}

// Length of the well-formed UTF-8 sequence at the start of s, or 0 when it is not one (overlong forms,
// surrogates and code points above U+10FFFF included).
std::size_t utf8SequenceLength(std::string_view s) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(s[i]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80) return 1;
    std::size_t length = lead >= 0xC2 && lead <= 0xDF ? 2 : lead >= 0xE0 && lead <= 0xEF ? 3 : lead >= 0xF0 && lead <= 0xF4 ? 4 : 0;
    if (length == 0 || s.size() < length) return 0;
    for (std::size_t i = 1; i < length; ++i)
        if ((byte(i) & 0xC0) != 0x80) return 0;
    if ((lead == 0xE0 && byte(1) < 0xA0) || (lead == 0xED && byte(1) > 0x9F) || (lead == 0xF0 && byte(1) < 0x90) ||
        (lead == 0xF4 && byte(1) > 0x8F)) {
        return 0;
    }
    return length;
}

bool isUtf8(std::string_view s) {
    while (!s.empty()) {
        std::size_t n = utf8SequenceLength(s);
        if (n == 0) return false;
        s.remove_prefix(n);
    }
    return true;
}

// Value strings are UTF-8 throughout the library. A binary list's one-byte strings may carry bytes
// above 0x7F; each byte that is not part of a well-formed sequence becomes U+FFFD.
std::string utf8String(std::string_view s) {
    if (isUtf8(s)) return std::string(s);
    std::string out;
    while (!s.empty()) {
        std::size_t n = utf8SequenceLength(s);
        if (n == 0) {
            out += "\xEF\xBF\xBD";
            n = 1;
        } else {
            out.append(s.data(), n);
        }
        s.remove_prefix(n);
    }
    return out;
}

Value fromNode(plist_t node, std::size_t depth) {
    if (node == nullptr || depth > PropertyList::kMaxDepth) return {};
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        std::uint8_t b = 0;
        plist_get_bool_val(node, &b);
        return Value(b != 0);
    }
    case PLIST_UINT: {
        std::uint64_t u = 0;
        plist_get_uint_val(node, &u);
        return Value(static_cast<long long>(static_cast<std::int64_t>(u)));
    }
    case PLIST_UID: {
        std::uint64_t u = 0;
        plist_get_uid_val(node, &u);
        return Value(static_cast<long long>(static_cast<std::int64_t>(u)));
    }
    case PLIST_REAL: {
        double d = 0;
        plist_get_real_val(node, &d);
        return Value(d);
    }
    case PLIST_STRING:
    case PLIST_KEY: {
        std::uint64_t size = 0;
        const char* s = plist_get_string_ptr(node, &size);
        return Value(s ? utf8String(std::string_view(s, static_cast<std::size_t>(size))) : std::string());
    }
    case PLIST_DATA: {
        std::uint64_t size = 0;
        const char* p = plist_get_data_ptr(node, &size);
        const auto* b = reinterpret_cast<const std::uint8_t*>(p);
        return Value(p ? Data(b, b + size) : Data());
    }
    case PLIST_DATE: {
        std::int32_t sec = 0, usec = 0;
        plist_get_date_val(node, &sec, &usec);
        // libplist 2.2 answers the microseconds of a negative time without their sign.
        double fraction = std::abs(usec) / 1e6;
        double since2001 = sec < 0 ? sec - fraction : sec + (sec == 0 ? usec / 1e6 : fraction);
        return Value(Date{since2001 + kEpochOffset});
    }
    case PLIST_ARRAY: {
        Value::Array items;
        items.reserve(plist_array_get_size(node));
        plist_array_iter raw = nullptr;
        plist_array_new_iter(node, &raw);
        std::unique_ptr<void, MallocFree> iter(raw);
        for (;;) {
            plist_t item = nullptr;
            plist_array_next_item(node, raw, &item);
            if (item == nullptr) break;
            Value v = fromNode(item, depth + 1);
            if (v.isAbsent()) return {};
            items.push_back(std::move(v));
        }
        return Value(std::move(items));
    }
    case PLIST_DICT: {
        std::vector<Value::Dictionary::Entry> entries;
        entries.reserve(plist_dict_get_size(node));
        plist_dict_iter raw = nullptr;
        plist_dict_new_iter(node, &raw);
        std::unique_ptr<void, MallocFree> iter(raw);
        for (;;) {
            char* key = nullptr;
            plist_t item = nullptr;
            plist_dict_next_item(node, raw, &key, &item);
            std::unique_ptr<char, MallocFree> ownedKey(key);
            if (item == nullptr) break;
            Value v = fromNode(item, depth + 1);
            if (v.isAbsent() || key == nullptr) return {};
            entries.emplace_back(utf8String(key), std::move(v));
        }
        return Value(Value::Dictionary::fromEntries(std::move(entries)));
    }
    default:
        return {};
    }
}

// libplist takes C strings, and its binary writer turns non-ASCII text into UTF-16: a string it
// cannot carry faithfully is refused rather than written damaged.
bool writable(const std::string& s) { return s.find('\0') == std::string::npos && isUtf8(s); }

PlistPtr toNode(const Value& value, std::size_t depth) {
    if (depth > PropertyList::kMaxDepth) return nullptr;
    switch (value.kind()) {
    case Value::Kind::Bool:
        return PlistPtr(plist_new_bool(value.boolValue() ? 1 : 0));
    case Value::Kind::Integer:
        if (value.isUnsigned()) return nullptr;
        return PlistPtr(plist_new_uint(static_cast<std::uint64_t>(value.longLongValue())));
    case Value::Kind::Real:
        return PlistPtr(plist_new_real(value.doubleValue()));
    case Value::Kind::String: {
        const std::string& s = *value.asString();
        if (!writable(s)) return nullptr;
        return PlistPtr(plist_new_string(s.c_str()));
    }
    case Value::Kind::Data: {
        const Data& d = *value.asData();
        return PlistPtr(plist_new_data(reinterpret_cast<const char*>(d.data()), d.size()));
    }
    case Value::Kind::Date: {
        double since2001 = value.asDate()->secondsSince1970 - kEpochOffset;
        if (!std::isfinite(since2001)) return nullptr;
        double whole = std::trunc(since2001);
        if (whole < std::numeric_limits<std::int32_t>::min() || whole > std::numeric_limits<std::int32_t>::max()) {
            return nullptr;
        }
        auto sec = static_cast<std::int32_t>(whole);
        auto usec = static_cast<std::int32_t>(std::lround((since2001 - whole) * 1e6));
        if (usec >= 1000000 || usec <= -1000000) {  // rounding carried into the next second
            if ((usec > 0 && sec == std::numeric_limits<std::int32_t>::max()) ||
                (usec < 0 && sec == std::numeric_limits<std::int32_t>::min())) {
                return nullptr;
            }
            sec += usec > 0 ? 1 : -1;
            usec = 0;
        }
        return PlistPtr(plist_new_date(sec, usec));
    }
    case Value::Kind::Array: {
        PlistPtr array(plist_new_array());
        for (const Value& item : *value.asArray()) {
            PlistPtr child = toNode(item, depth + 1);
            if (!child) return nullptr;
            plist_array_append_item(array.get(), child.release());
        }
        return array;
    }
    case Value::Kind::Dictionary: {
        PlistPtr dict(plist_new_dict());
        for (const auto& [key, item] : *value.asDictionary()) {
            if (!writable(key)) return nullptr;
            PlistPtr child = toNode(item, depth + 1);
            if (!child) return nullptr;
            plist_dict_set_item(dict.get(), key.c_str(), child.release());
        }
        return dict;
    }
    default:  // absent, null
        return nullptr;
    }
}

}  // namespace

Value PropertyList::read(std::string_view bytes) {
    if (bytes.empty() || bytes.size() > std::numeric_limits<std::uint32_t>::max()) return {};
    const auto length = static_cast<std::uint32_t>(bytes.size());
    const bool binary = plist_is_binary(bytes.data(), length) != 0;
    if (binary ? !binaryShapeWithinLimits(bytes) : !xmlNestingWithinLimit(bytes)) return {};
    plist_t raw = nullptr;
    if (binary) {
        plist_from_bin(bytes.data(), length, &raw);
    } else {
        plist_from_xml(bytes.data(), length, &raw);
    }
    PlistPtr root(raw);
    return fromNode(root.get(), 0);
}

Value PropertyList::read(const Data& bytes) {
    return read(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

Value PropertyList::readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return {};
    std::string bytes;
    char buffer[16384];
    while (in.read(buffer, sizeof buffer) || in.gcount() > 0) {
        bytes.append(buffer, static_cast<std::size_t>(in.gcount()));
        if (bytes.size() > kMaxFileSize) return {};
    }
    if (in.bad()) return {};
    return read(std::string_view(bytes));
}

std::optional<Data> PropertyList::write(const Value& value, Format format) {
    PlistPtr root = toNode(value, 0);
    if (!root) return std::nullopt;
    char* out = nullptr;
    std::uint32_t length = 0;
    if (format == Format::Binary) {
        plist_to_bin(root.get(), &out, &length);
    } else {
        plist_to_xml(root.get(), &out, &length);
    }
    if (out == nullptr) return std::nullopt;
    const auto* b = reinterpret_cast<const std::uint8_t*>(out);
    Data result(b, b + length);
    if (format == Format::Binary) {
        plist_to_bin_free(out);
    } else {
        plist_to_xml_free(out);
    }
    return result;
}

}  // namespace nb
