// Any bytes as two versions (split at the first NUL; the second is empty when there is none), in both
// modes: the answers are -1, 0 or 1, a version equals itself, and its runs, joined,
// are the version up to where reading stopped (the first dash after the first character). In the normal
// mode the answer is also the one the rules give when applied run by run to the split versions, which
// checks the comparator's shortcuts (the shared prefix it skips) against the plain reading.
//
// Seed: none recorded; "3.2.0\03.3.0" is a start.
#include <cstddef>
#include <cstdint>
#include <algorithm>
#include <climits>
#include <cstdlib>
#include <string>
#include <string_view>

#include "nbbase/update/NBCustomizedVersionComparator.h"

namespace {

void check(bool condition) {
    if (!condition) std::abort();
}

void checkRuns(std::string_view version) {
    std::string joined;
    for (const std::string& run : nb::NBCustomizedVersionComparator::splitVersionString(version)) {
        check(!run.empty());
        joined += run;
    }
    check(version.substr(0, joined.size()) == joined);
    const std::size_t dash = version.find('-', 1);
    check(joined.size() == (dash == std::string_view::npos ? version.size() : dash) ||
          (version.size() > 1 && version[0] == '-' && version[1] == '-' && joined == "-"));
}

// The rules, applied to whole lists of runs.
std::int64_t byTheRules(std::string_view a, std::string_view b) {
    using C = nb::NBCustomizedVersionComparator;
    const auto left = C::splitVersionString(a);
    const auto right = C::splitVersionString(b);
    const auto value = [](const std::string& run) {
        // Digits of any script; the same saturation as the comparator's.
        std::int64_t v = 0;
        for (std::size_t at = 0; at < run.size();) {
            const auto byte = static_cast<unsigned char>(run[at]);
            if (byte >= 0x80) return std::int64_t{-1};  // non-ASCII digits: not compared here
            const std::int64_t digit = byte - '0';
            v = v > (INT64_MAX - digit) / 10 ? INT64_MAX : v * 10 + digit;
            ++at;
        }
        return v;
    };
    const std::size_t n = std::min(left.size(), right.size());
    for (std::size_t i = 0; i < n; ++i) {
        const std::int64_t l = C::typeOfCharacter(left[i]);
        const std::int64_t r = C::typeOfCharacter(right[i]);
        if (l == r) {
            if (l == C::kString && left[i] != right[i]) return left[i] < right[i] ? -1 : 1;
            if (l == C::kNumber) {
                const std::int64_t x = value(left[i]);
                const std::int64_t y = value(right[i]);
                if (x < 0 || y < 0) return 2;
                if (x != y) return x < y ? -1 : 1;
            }
        } else if (l != C::kString && r == C::kString) {
            return 1;
        } else if (l == C::kString && r != C::kString) {
            return -1;
        } else {
            return l == C::kNumber ? 1 : -1;
        }
    }
    if (left.size() == right.size()) return 0;
    const bool leftLonger = left.size() > right.size();
    const bool preRelease = C::typeOfCharacter((leftLonger ? left : right)[n]) == C::kString;
    return leftLonger == preRelease ? -1 : 1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t nul = input.find('\0');
    const std::string_view a = input.substr(0, nul);
    const std::string_view b = nul == std::string_view::npos ? std::string_view() : input.substr(nul + 1);
    checkRuns(a);
    checkRuns(b);
    for (const bool buildNumbers : {false, true}) {
        nb::NBCustomizedVersionComparator comparator;
        comparator.setCompareNimboBuildNum(buildNumbers);
        const std::int64_t forward = comparator.compareVersion(a, b);
        check(forward >= -1 && forward <= 1);
        check(comparator.compareVersion(a, a) == 0);
        if (buildNumbers) {
            check(comparator.compareVersion(b, a) == -forward);
        } else {
            // Not antisymmetric in general: a separator against a dash is older either way round.
            const std::int64_t expected = byTheRules(a, b);
            check(expected == 2 || expected == forward);  // 2: non-ASCII digits, left to the tests
        }
    }
    return 0;
}
