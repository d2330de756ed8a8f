#include "nbbase/update/NBCustomizedVersionComparator.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <array>
#include <limits>
#include <optional>

#include "nbbase/foundation/Value.h"

namespace nb {

namespace {

using Type = std::int64_t;
constexpr Type kNumber = NBCustomizedVersionComparator::kNumber;
constexpr Type kString = NBCustomizedVersionComparator::kString;
constexpr Type kSeparator = NBCustomizedVersionComparator::kSeparator;
constexpr Type kDash = NBCustomizedVersionComparator::kDash;
constexpr std::int64_t kMaxValue = std::numeric_limits<std::int64_t>::max();

Type unicodeClass(UChar32 c) {
    const auto type = u_charType(c);
    if (type == U_DECIMAL_DIGIT_NUMBER) return kNumber;
    if (type == U_SPACE_SEPARATOR || type == U_LINE_SEPARATOR || type == U_PARAGRAPH_SEPARATOR ||
        (c >= 0x09 && c <= 0x0D) || c == 0x85 || u_ispunct(c)) {
        return kSeparator;
    }
    return kString;
}

// Versions are ASCII almost always, so ASCII classes come from a table: digits, the white space and the
// characters Unicode files under punctuation (the test checks the table against ICU). "-" standing alone
// is the dash; "$+<=>^`|~" are symbols, strings like letters.
constexpr std::array<std::int8_t, 128> kAsciiClasses = [] {
    std::array<std::int8_t, 128> classes{};
    classes.fill(static_cast<std::int8_t>(kString));
    for (char c = '0'; c <= '9'; ++c) classes[static_cast<std::size_t>(c)] = kNumber;
    for (const char c : std::string_view("\t\n\v\f\r !\"#%&'()*,./:;?@[\\]_{}")) {
        classes[static_cast<std::size_t>(c)] = kSeparator;
    }
    classes['-'] = kDash;
    return classes;
}();

struct Character {
    UChar32 value;
    std::size_t size;  // in bytes
};

// The character at `at`; a byte that is not UTF-8 is one character, U+FFFD.
inline Character characterAt(std::string_view text, std::size_t at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    if (byte < 0x80) return {byte, 1};
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    const auto length = static_cast<std::int32_t>(
        std::min<std::size_t>(text.size(), static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())));
    auto i = static_cast<std::int32_t>(at);
    UChar32 c = 0;
    U8_NEXT(bytes, i, length, c);
    return {c < 0 ? 0xFFFD : c, static_cast<std::size_t>(i) - at};
}

// The class of one character standing alone: "-" is the dash, "." a separator, the rest by their class.
inline Type classOf(UChar32 c) { return c < 128 ? kAsciiClasses[static_cast<std::size_t>(c)] : unicodeClass(c); }

inline std::int64_t addDigit(std::int64_t value, UChar32 c) {
    const std::int64_t digit = c < 128 ? c - '0' : u_charDigitValue(c);
    std::int64_t result = 0;
    if (__builtin_mul_overflow(value, 10, &result) || __builtin_add_overflow(result, digit, &result)) return kMaxValue;
    return result;
}

struct Run {
    Type type;
    std::string_view text;
    std::int64_t value;  // numbers only
};

// Reads a version's runs one at a time, without copying: a number or string run is the longest stretch of
// characters of its class, every separator is a run of its own, a dash in first place too, and a dash
// anywhere else ends the version.
class RunReader {
public:
    // `at` must be where a run starts; a dash there ends the version unless `at` is 0.
    explicit RunReader(std::string_view version, std::size_t at = 0) : text_(version), at_(at) {}

    bool next(Run& run) {
        if (at_ >= text_.size()) return false;
        const std::size_t start = at_;
        const Character first = characterAt(text_, at_);
        const Type type = classOf(first.value);
        if (type == kDash && start > 0) {
            at_ = text_.size();
            return false;
        }
        at_ += first.size;
        std::int64_t value = type == kNumber ? addDigit(0, first.value) : 0;
        if (type == kNumber || type == kString) {
            while (at_ < text_.size()) {
                const auto byte = static_cast<unsigned char>(text_[at_]);
                // ASCII stays in this loop; only other characters are decoded and looked up in Unicode.
                if (byte < 0x80) {
                    if (kAsciiClasses[byte] != type) break;
                    if (type == kNumber) value = addDigit(value, byte);
                    ++at_;
                    continue;
                }
                const Character c = characterAt(text_, at_);
                if (unicodeClass(c.value) != type) break;
                if (type == kNumber) value = addDigit(value, c.value);
                at_ += c.size;
            }
        }
        run = {type, text_.substr(start, at_ - start), value};
        return true;
    }

private:
    std::string_view text_;
    std::size_t at_ = 0;
};

std::int64_t order(std::int64_t a, std::int64_t b) { return a < b ? -1 : a > b ? 1 : 0; }

// Where two versions' runs may first differ: the start of the run holding their first differing byte.
// Every run before it is the same text in both, so it compares equal. Only an ASCII prefix is skipped,
// where runs can be told apart byte by byte. nullopt when a dash in the shared prefix ends both versions
// there, so that they are the same.
std::optional<std::size_t> firstRunThatMayDiffer(std::string_view a, std::string_view b) {
    const std::size_t shared = std::min(a.size(), b.size());
    std::size_t m = 0;
    while (m < shared && a[m] == b[m] && static_cast<unsigned char>(a[m]) < 0x80) ++m;
    if (m > 1 && a.substr(1, m - 1).find('-') != std::string_view::npos) return std::nullopt;
    if (m == 0) return 0;
    const Type type = kAsciiClasses[static_cast<unsigned char>(a[m - 1])];
    if (type != kNumber && type != kString) return m;  // a separator or a leading dash is a run of its own
    std::size_t k = m - 1;
    while (k > 0 && kAsciiClasses[static_cast<unsigned char>(a[k - 1])] == type) --k;
    return k;
}

std::int64_t compareBuildNumbers(std::string_view a, std::string_view b) {
    const auto component = [](std::string_view text, bool last) {
        const std::size_t dot = last ? text.rfind('.') : text.find('.');
        if (dot == std::string_view::npos) return Value(text).longLongValue();
        return Value(last ? text.substr(dot + 1) : text.substr(0, dot)).longLongValue();
    };
    if (const std::int64_t first = order(component(a, false), component(b, false)); first != 0) return first;
    return order(component(a, true), component(b, true));
}

}  // namespace

NBCustomizedVersionComparator& NBCustomizedVersionComparator::defaultComparator() {
    static NBCustomizedVersionComparator* const instance = new NBCustomizedVersionComparator();
    return *instance;
}

std::int64_t NBCustomizedVersionComparator::typeOfCharacter(std::string_view text) {
    if (text == ".") return kSeparator;
    if (text == "-") return kDash;
    if (text.empty()) return kString;
    // "-" leads a longer text only as punctuation.
    const Character first = characterAt(text, 0);
    return first.value == '-' ? kSeparator : classOf(first.value);
}

std::vector<std::string> NBCustomizedVersionComparator::splitVersionString(std::string_view version) {
    std::vector<std::string> runs;
    RunReader reader(version);
    for (Run run{}; reader.next(run);) runs.emplace_back(run.text);
    return runs;
}

std::int64_t NBCustomizedVersionComparator::compareVersion(std::string_view a, std::string_view toVersion) const {
    if (a == toVersion) return 0;
    if (compareNimboBuildNum()) return compareBuildNumbers(a, toVersion);
    const std::optional<std::size_t> start = firstRunThatMayDiffer(a, toVersion);
    if (!start) return 0;
    RunReader left(a, *start);
    RunReader right(toVersion, *start);
    Run l{};
    Run r{};
    while (true) {
        const bool hasLeft = left.next(l);
        const bool hasRight = right.next(r);
        if (!hasLeft && !hasRight) return 0;
        // The longer version's next run decides: a string makes it a pre-release, anything else newer.
        if (!hasRight) return l.type == kString ? -1 : 1;
        if (!hasLeft) return r.type == kString ? 1 : -1;
        if (l.type != r.type) {
            if (l.type == kString) return -1;
            if (r.type == kString) return 1;
            return l.type == kNumber ? 1 : -1;
        }
        if (l.type == kString) {
            if (const int c = l.text.compare(r.text); c != 0) return c < 0 ? -1 : 1;
        } else if (l.type == kNumber) {
            if (const std::int64_t c = order(l.value, r.value); c != 0) return c;
        }
    }
}

}  // namespace nb
