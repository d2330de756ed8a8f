#include "nbbase/foundation/Value.h"

#include <algorithm>
#include <atomic>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>

namespace nb {

namespace {

const Value& absentValue() noexcept {
    static const Value* const absent = new Value();
    return *absent;
}

bool isSpace(char c) noexcept {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }

// Reals convert to integers by truncation toward zero, clamped to the target's range; NaN is 0.
template <typename Int>
Int saturatingFromReal(double d) noexcept {
    if (std::isnan(d)) return 0;
    const double t = std::trunc(d);
    // 2^63 and 2^64 are exact as doubles, while INT64_MAX is not: compare against the powers of two.
    constexpr double upper = static_cast<double>(std::numeric_limits<Int>::max() / 2 + 1) * 2.0;
    if (t >= upper) return std::numeric_limits<Int>::max();
    if (t < static_cast<double>(std::numeric_limits<Int>::min())) return std::numeric_limits<Int>::min();
    return static_cast<Int>(t);
}

// Leading integer of a string: white space, an optional sign, digits; clamped to [lo, hi].
std::int64_t leadingInteger(std::string_view s, std::int64_t lo, std::int64_t hi) noexcept {
    std::size_t i = 0;
    while (i < s.size() && isSpace(s[i])) ++i;
    bool negative = false;
    if (i < s.size() && (s[i] == '+' || s[i] == '-')) negative = s[i++] == '-';
    // Accumulate toward the sign so that the most negative value is representable.
    std::int64_t acc = 0;
    for (; i < s.size() && isDigit(s[i]); ++i) {
        const int digit = s[i] - '0';
        if (negative) {
            if (acc < (lo + digit) / 10) return lo;
            acc = acc * 10 - digit;
            if (acc < lo) return lo;
        } else {
            if (acc > (hi - digit) / 10) return hi;
            acc = acc * 10 + digit;
            if (acc > hi) return hi;
        }
    }
    return acc;
}

// Decimal order of magnitude of a non-zero number written as digits, an optional fraction and an optional
// exponent: the number lies in [10^(m-1), 10^m). Only its sign matters to the caller, which asks after a
// range error, so the exponent may saturate. A mantissa of many digits moves it as much as the exponent does.
long decimalMagnitude(std::string_view number) noexcept {
    std::size_t i = 0;
    while (i < number.size() && number[i] == '0') ++i;
    long magnitude = 0;
    if (i < number.size() && isDigit(number[i])) {
        for (; i < number.size() && isDigit(number[i]); ++i) ++magnitude;
        while (i < number.size() && (number[i] == '.' || isDigit(number[i]))) ++i;
    } else if (i < number.size() && number[i] == '.') {
        ++i;
        for (; i < number.size() && number[i] == '0'; ++i) --magnitude;
        while (i < number.size() && isDigit(number[i])) ++i;
    }
    if (i < number.size() && (number[i] == 'e' || number[i] == 'E')) {
        ++i;
        bool negative = false;
        if (i < number.size() && (number[i] == '+' || number[i] == '-')) negative = number[i++] == '-';
        long exponent = 0;
        for (; i < number.size() && isDigit(number[i]); ++i) {
            exponent = std::min(exponent * 10 + (number[i] - '0'), 1L << 40);
        }
        magnitude += negative ? -exponent : exponent;
    }
    return magnitude;
}

// Leading decimal number of a string, locale-independent; 0 when there is none.
double leadingReal(std::string_view s) noexcept {
    std::size_t i = 0;
    while (i < s.size() && isSpace(s[i])) ++i;
    bool negative = false;
    if (i < s.size() && (s[i] == '+' || s[i] == '-')) negative = s[i++] == '-';
    // Only a decimal number: from_chars would also take "inf", "nan" and, with a sign already eaten,
    // a second sign.
    if (i >= s.size() || !(isDigit(s[i]) || (s[i] == '.' && i + 1 < s.size() && isDigit(s[i + 1])))) return 0;
    double d = 0;
    const auto [ptr, ec] = std::from_chars(s.data() + i, s.data() + s.size(), d, std::chars_format::general);
    if (ec == std::errc::result_out_of_range) {
        // from_chars leaves d untouched; Foundation answers the overflowed value, infinity or zero.
        d = decimalMagnitude(std::string_view(s.data() + i, static_cast<std::size_t>(ptr - (s.data() + i)))) > 0
                ? std::numeric_limits<double>::infinity()
                : 0.0;
    } else if (ec != std::errc()) {
        return 0;
    }
    return negative ? -d : d;
}

bool leadingBool(std::string_view s) noexcept {
    std::size_t i = 0;
    while (i < s.size() && isSpace(s[i])) ++i;
    if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
    while (i < s.size() && s[i] == '0') ++i;
    if (i >= s.size()) return false;
    const char c = s[i];
    return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

// The shortest digits that read back the same, laid out as Foundation's "%.15g, else %.17g" lays them out:
// positional from 1e-4 up to 1e15 (1e17 when more than 15 digits are needed), scientific beyond, so that a
// million prints as 1000000 and not 1e+06.
std::string realToString(double d) {
    std::array<char, 64> buf{};
    const auto sci = std::to_chars(buf.data(), buf.data() + buf.size(), d, std::chars_format::scientific);
    if (sci.ec != std::errc()) return "0";
    const std::string_view text(buf.data(), static_cast<std::size_t>(sci.ptr - buf.data()));
    const auto e = text.find('e');
    if (e == std::string_view::npos) return std::string(text);  // inf, nan
    int exponent = 0;
    std::from_chars(text.data() + e + 1 + (text[e + 1] == '+' ? 1 : 0), text.data() + text.size(), exponent);
    std::size_t digits = 0;
    for (std::size_t i = 0; i < e; ++i) digits += isDigit(text[i]) ? 1 : 0;
    const int limit = digits <= 15 ? 15 : 17;
    if (exponent < -4 || exponent >= limit) return std::string(text);
    const auto fixed = std::to_chars(buf.data(), buf.data() + buf.size(), d, std::chars_format::fixed);
    return fixed.ec == std::errc() ? std::string(buf.data(), fixed.ptr) : std::string(text);
}

// Exact comparison of an integer with a real: equal only when the real is that very integer.
bool integerEqualsReal(std::int64_t i, double d) noexcept {
    if (std::trunc(d) != d || d < -9223372036854775808.0 || d >= 9223372036854775808.0) return false;
    return static_cast<std::int64_t>(d) == i;
}

bool unsignedEqualsReal(std::uint64_t u, double d) noexcept {
    if (std::trunc(d) != d || d < 0 || d >= 18446744073709551616.0) return false;
    return static_cast<std::uint64_t>(d) == u;
}

}  // namespace

// --- construction ---------------------------------------------------------------------------------

Value Value::null() {
    Value v;
    v.storage_ = Null{};
    return v;
}

Value::Value(bool b) noexcept : storage_(b) {}
Value::Value(int i) noexcept : storage_(static_cast<std::int64_t>(i)) {}
Value::Value(long i) noexcept : storage_(static_cast<std::int64_t>(i)) {}
Value::Value(long long i) noexcept : storage_(static_cast<std::int64_t>(i)) {}
Value::Value(unsigned i) noexcept : storage_(static_cast<std::int64_t>(i)) {}
Value::Value(unsigned long u) noexcept : Value(static_cast<unsigned long long>(u)) {}
Value::Value(unsigned long long u) noexcept {
    if (u > static_cast<unsigned long long>(std::numeric_limits<std::int64_t>::max())) {
        storage_ = static_cast<std::uint64_t>(u);
    } else {
        storage_ = static_cast<std::int64_t>(u);
    }
}
Value::Value(double d) noexcept : storage_(d) {}
Value::Value(const char* s) {
    if (s != nullptr) storage_ = std::string(s);
}
Value::Value(std::string_view s) : storage_(std::string(s)) {}
Value::Value(std::string s) : storage_(std::move(s)) {}
Value::Value(nb::Data d) : storage_(std::move(d)) {}
Value::Value(nb::Date d) noexcept : storage_(d) {}
Value::Value(Array a) : storage_(std::make_shared<Array>(std::move(a))) {}
Value::Value(Dictionary d) : storage_(std::make_shared<Dictionary>(std::move(d))) {}

Value Value::array(std::initializer_list<Value> items) {
    Array a;
    a.reserve(items.size());
    for (const Value& v : items) {
        if (!v.isAbsent()) a.push_back(v);
    }
    return Value(std::move(a));
}

Value Value::dictionary(std::initializer_list<std::pair<std::string, Value>> entries) {
    return Value(Dictionary(entries));
}

// --- kind -----------------------------------------------------------------------------------------

Value::Kind Value::kind() const noexcept {
    switch (storage_.index()) {
        case 0: return Kind::Absent;
        case 1: return Kind::Null;
        case 2: return Kind::Bool;
        case 3:
        case 4: return Kind::Integer;
        case 5: return Kind::Real;
        case 6: return Kind::String;
        case 7: return Kind::Data;
        case 8: return Kind::Date;
        case 9: return Kind::Array;
        default: return Kind::Dictionary;
    }
}

const char* Value::kindName() const noexcept {
    switch (kind()) {
        case Kind::Absent: return "absent";
        case Kind::Null: return "null";
        case Kind::Bool: return "bool";
        case Kind::Integer: return "integer";
        case Kind::Real: return "real";
        case Kind::String: return "string";
        case Kind::Data: return "data";
        case Kind::Date: return "date";
        case Kind::Array: return "array";
        case Kind::Dictionary: return "dictionary";
    }
    return "unknown";
}

bool Value::isNumber() const noexcept {
    const Kind k = kind();
    return k == Kind::Bool || k == Kind::Integer || k == Kind::Real;
}

bool Value::isUnsigned() const noexcept { return std::holds_alternative<std::uint64_t>(storage_); }

const std::string* Value::asString() const noexcept { return std::get_if<std::string>(&storage_); }
const nb::Data* Value::asData() const noexcept { return std::get_if<nb::Data>(&storage_); }
const nb::Date* Value::asDate() const noexcept { return std::get_if<nb::Date>(&storage_); }

const Value::Array* Value::asArray() const noexcept {
    const auto* p = std::get_if<std::shared_ptr<Array>>(&storage_);
    return p ? p->get() : nullptr;
}

const Value::Dictionary* Value::asDictionary() const noexcept {
    const auto* p = std::get_if<std::shared_ptr<Dictionary>>(&storage_);
    return p ? p->get() : nullptr;
}

// --- conversions ----------------------------------------------------------------------------------

std::int32_t Value::intValue() const noexcept {
    if (const auto* s = asString()) {
        return static_cast<std::int32_t>(
            leadingInteger(*s, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
    }
    if (const auto* d = std::get_if<double>(&storage_)) return saturatingFromReal<std::int32_t>(*d);
    // Integers narrow as a C cast does.
    return static_cast<std::int32_t>(longLongValue());
}

std::int64_t Value::longLongValue() const noexcept {
    return std::visit(
        [](const auto& v) -> std::int64_t {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, bool>) {
                return v ? 1 : 0;
            } else if constexpr (std::is_same_v<T, std::int64_t>) {
                return v;
            } else if constexpr (std::is_same_v<T, std::uint64_t>) {
                return static_cast<std::int64_t>(v);
            } else if constexpr (std::is_same_v<T, double>) {
                return saturatingFromReal<std::int64_t>(v);
            } else if constexpr (std::is_same_v<T, std::string>) {
                return leadingInteger(v, std::numeric_limits<std::int64_t>::min(),
                                      std::numeric_limits<std::int64_t>::max());
            } else {
                return 0;
            }
        },
        storage_);
}

std::uint64_t Value::unsignedLongLongValue() const noexcept {
    if (const auto* u = std::get_if<std::uint64_t>(&storage_)) return *u;
    if (const auto* d = std::get_if<double>(&storage_)) {
        return *d < 0 ? static_cast<std::uint64_t>(saturatingFromReal<std::int64_t>(*d))
                      : saturatingFromReal<std::uint64_t>(*d);
    }
    return static_cast<std::uint64_t>(longLongValue());
}

bool Value::boolValue() const noexcept {
    return std::visit(
        [](const auto& v) -> bool {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, bool>) {
                return v;
            } else if constexpr (std::is_same_v<T, std::int64_t> || std::is_same_v<T, std::uint64_t>) {
                return v != 0;
            } else if constexpr (std::is_same_v<T, double>) {
                return v != 0.0;  // NaN is non-zero, as in C
            } else if constexpr (std::is_same_v<T, std::string>) {
                return leadingBool(v);
            } else {
                return false;
            }
        },
        storage_);
}

double Value::doubleValue() const noexcept {
    return std::visit(
        [](const auto& v) -> double {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, bool>) {
                return v ? 1.0 : 0.0;
            } else if constexpr (std::is_same_v<T, std::int64_t> || std::is_same_v<T, std::uint64_t> ||
                                 std::is_same_v<T, double>) {
                return static_cast<double>(v);
            } else if constexpr (std::is_same_v<T, std::string>) {
                return leadingReal(v);
            } else {
                return 0.0;
            }
        },
        storage_);
}

std::optional<std::string> Value::textValue() const {
    if (const std::string* text = asString()) return *text;
    if (isNumber()) return stringValue();
    return std::nullopt;
}

std::string Value::stringValue() const {
    return std::visit(
        [](const auto& v) -> std::string {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, bool>) {
                return v ? "1" : "0";
            } else if constexpr (std::is_same_v<T, std::int64_t> || std::is_same_v<T, std::uint64_t>) {
                return std::to_string(v);
            } else if constexpr (std::is_same_v<T, double>) {
                return realToString(v);
            } else if constexpr (std::is_same_v<T, std::string>) {
                return v;
            } else {
                return std::string();
            }
        },
        storage_);
}

std::string Value::description() const {
    switch (kind()) {
        case Kind::Absent: return "(null)";
        case Kind::Null: return "<null>";
        case Kind::Bool:
        case Kind::Integer:
        case Kind::Real:
        case Kind::String: return stringValue();
        case Kind::Data: {
            static constexpr char hex[] = "0123456789abcdef";
            std::string out = "<";
            for (std::size_t i = 0; i < asData()->size(); ++i) {
                if (i > 0 && i % 4 == 0) out += ' ';
                const auto byte = (*asData())[i];
                out += hex[byte >> 4];
                out += hex[byte & 0xf];
            }
            return out + ">";
        }
        case Kind::Date: return "@" + realToString(asDate()->secondsSince1970);
        case Kind::Array: {
            std::string out = "(";
            bool first = true;
            for (const Value& v : *asArray()) {
                out += first ? "" : ", ";
                out += v.isString() ? "\"" + *v.asString() + "\"" : v.description();
                first = false;
            }
            return out + ")";
        }
        case Kind::Dictionary: {
            std::string out = "{";
            bool first = true;
            for (const auto& [k, v] : *asDictionary()) {
                out += first ? "" : "; ";
                out += k + " = " + (v.isString() ? "\"" + *v.asString() + "\"" : v.description());
                first = false;
            }
            return out + "}";
        }
    }
    return std::string();
}

// --- lookup and mutation --------------------------------------------------------------------------

const Value& Value::operator[](std::string_view key) const noexcept {
    const Dictionary* d = asDictionary();
    return d ? d->get(key) : absentValue();
}

const Value& Value::operator[](std::size_t index) const noexcept {
    const Array* a = asArray();
    return a && index < a->size() ? (*a)[index] : absentValue();
}

bool Value::contains(std::string_view key) const noexcept {
    const Dictionary* d = asDictionary();
    return d && d->contains(key);
}

std::size_t Value::size() const noexcept {
    if (const Array* a = asArray()) return a->size();
    if (const Dictionary* d = asDictionary()) return d->size();
    return 0;
}

namespace {

// A count of one read with use_count() is a relaxed load: it says that every other holder has let go,
// but not that their last reads of the container happened before our writes to it. The holders let go
// with a release decrement, so an acquire fence after the load orders those reads first.
// ThreadSanitizer does not model fences (and GCC refuses them under it); its builds copy a container
// before every change instead, which is always safe and only slower.
#if defined(__SANITIZE_THREAD__)
constexpr bool kCopyEveryChange = true;
void ownedAlone() noexcept {}
#else
constexpr bool kCopyEveryChange = false;
void ownedAlone() noexcept { std::atomic_thread_fence(std::memory_order_acquire); }
#endif

}  // namespace

Value::Array& Value::mutableArray() {
    auto* p = std::get_if<std::shared_ptr<Array>>(&storage_);
    if (p == nullptr) {
        storage_ = std::make_shared<Array>();
        p = std::get_if<std::shared_ptr<Array>>(&storage_);
    } else if (kCopyEveryChange || p->use_count() > 1) {
        *p = std::make_shared<Array>(**p);
    } else {
        ownedAlone();
    }
    return **p;
}

Value::Dictionary& Value::mutableDictionary() {
    auto* p = std::get_if<std::shared_ptr<Dictionary>>(&storage_);
    if (p == nullptr) {
        storage_ = std::make_shared<Dictionary>();
        p = std::get_if<std::shared_ptr<Dictionary>>(&storage_);
    } else if (kCopyEveryChange || p->use_count() > 1) {
        *p = std::make_shared<Dictionary>(**p);
    } else {
        ownedAlone();
    }
    return **p;
}

void Value::set(std::string key, Value value) { mutableDictionary().set(std::move(key), std::move(value)); }

bool Value::remove(std::string_view key) {
    if (!contains(key)) return false;
    return mutableDictionary().erase(key);
}

void Value::append(Value value) {
    Array& a = mutableArray();
    if (!value.isAbsent()) a.push_back(std::move(value));
}

// --- equality -------------------------------------------------------------------------------------

bool operator==(const Value& a, const Value& b) noexcept {
    using Kind = Value::Kind;
    if (a.isNumber() && b.isNumber()) {
        const bool aReal = a.kind() == Kind::Real;
        const bool bReal = b.kind() == Kind::Real;
        if (aReal && bReal) return a.doubleValue() == b.doubleValue();
        if (aReal || bReal) {
            const Value& real = aReal ? a : b;
            const Value& integer = aReal ? b : a;
            return integer.isUnsigned() ? unsignedEqualsReal(integer.unsignedLongLongValue(), real.doubleValue())
                                        : integerEqualsReal(integer.longLongValue(), real.doubleValue());
        }
        // Both integral (bools count as 0 and 1): equal only when signedness agrees on the value.
        if (a.isUnsigned() != b.isUnsigned()) return false;
        return a.unsignedLongLongValue() == b.unsignedLongLongValue();
    }
    if (a.kind() != b.kind()) return false;
    switch (a.kind()) {
        case Kind::Absent:
        case Kind::Null: return true;
        case Kind::String: return *a.asString() == *b.asString();
        case Kind::Data: return *a.asData() == *b.asData();
        case Kind::Date: return *a.asDate() == *b.asDate();
        case Kind::Array: return a.asArray() == b.asArray() || *a.asArray() == *b.asArray();
        case Kind::Dictionary: return a.asDictionary() == b.asDictionary() || *a.asDictionary() == *b.asDictionary();
        default: return false;
    }
}

// --- Dictionary -----------------------------------------------------------------------------------

Value::Dictionary::Dictionary(std::initializer_list<Entry> entries) {
    for (const Entry& e : entries) set(e.first, e.second);
}

Value::Dictionary Value::Dictionary::fromEntries(std::vector<Entry> entries) {
    Dictionary d;
    // Decoders build every object through here: when keys are distinct and no value is absent (the usual
    // case), adopt the vector as it is instead of inserting entry by entry.
    bool adoptable = true;
    const std::size_t n = entries.size();
    if (n <= kIndexThreshold) {
        // Small objects are the common case in server replies: a linear scan beats hashing there.
        for (std::size_t i = 0; i < n && adoptable; ++i) {
            adoptable = !entries[i].second.isAbsent();
            for (std::size_t j = 0; j < i && adoptable; ++j) adoptable = entries[j].first != entries[i].first;
        }
    } else {
        d.index_.reserve(n);
        for (std::size_t i = 0; i < n && adoptable; ++i) {
            adoptable = !entries[i].second.isAbsent() && d.index_.emplace(entries[i].first, i).second;
        }
    }
    if (adoptable) {
        d.entries_ = std::move(entries);
        return d;
    }
    d.index_.clear();
    d.entries_.reserve(n);
    for (Entry& e : entries) d.set(std::move(e.first), std::move(e.second));
    return d;
}

std::ptrdiff_t Value::Dictionary::indexOf(std::string_view key) const noexcept {
    if (!index_.empty()) {
        const auto it = index_.find(key);
        return it == index_.end() ? -1 : static_cast<std::ptrdiff_t>(it->second);
    }
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        if (entries_[i].first == key) return static_cast<std::ptrdiff_t>(i);
    }
    return -1;
}

void Value::Dictionary::rebuildIndex() {
    index_.clear();
    if (entries_.size() <= kIndexThreshold) return;
    index_.reserve(entries_.size());
    for (std::size_t i = 0; i < entries_.size(); ++i) index_.emplace(entries_[i].first, i);
}

const Value* Value::Dictionary::find(std::string_view key) const noexcept {
    const auto i = indexOf(key);
    return i < 0 ? nullptr : &entries_[static_cast<std::size_t>(i)].second;
}

Value* Value::Dictionary::findMutable(std::string_view key) noexcept {
    const auto i = indexOf(key);
    return i < 0 ? nullptr : &entries_[static_cast<std::size_t>(i)].second;
}

const Value& Value::Dictionary::get(std::string_view key) const noexcept {
    const Value* v = find(key);
    return v ? *v : absentValue();
}

void Value::Dictionary::set(std::string key, Value value) {
    if (value.isAbsent()) {
        erase(key);
        return;
    }
    if (Value* existing = findMutable(key)) {
        *existing = std::move(value);
        return;
    }
    entries_.emplace_back(std::move(key), std::move(value));
    if (!index_.empty()) {
        index_.emplace(entries_.back().first, entries_.size() - 1);
    } else if (entries_.size() > kIndexThreshold) {
        rebuildIndex();
    }
}

bool Value::Dictionary::erase(std::string_view key) {
    const auto i = indexOf(key);
    if (i < 0) return false;
    entries_.erase(entries_.begin() + i);
    rebuildIndex();
    return true;
}

bool operator==(const Value::Dictionary& a, const Value::Dictionary& b) noexcept {
    if (a.size() != b.size()) return false;
    for (const auto& [key, value] : a) {
        const Value* other = b.find(key);
        if (other == nullptr || !(*other == value)) return false;
    }
    return true;
}

}  // namespace nb
