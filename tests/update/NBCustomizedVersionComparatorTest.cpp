#include "nbbase/update/NBCustomizedVersionComparator.h"

#include <gtest/gtest.h>
#include <unicode/uchar.h>

#include <string>
#include <vector>

namespace nb {
namespace {

using Comparator = NBCustomizedVersionComparator;
using Runs = std::vector<std::string>;

TEST(NBCustomizedVersionComparator, CharacterClasses) {
    const std::pair<const char*, std::int64_t> cases[] = {
        {"7", Comparator::kNumber},      {"\u0663", Comparator::kNumber},  // Arabic-Indic three
        {"\uFF13", Comparator::kNumber},  // full-width three
        {"b", Comparator::kString},      {"\u00E9", Comparator::kString},  {"+", Comparator::kString},
        {"~", Comparator::kString},      {"", Comparator::kString},        {"\xff", Comparator::kString},
        {".", Comparator::kSeparator},   {",", Comparator::kSeparator},    {"_", Comparator::kSeparator},
        {" ", Comparator::kSeparator},   {"\t", Comparator::kSeparator},   {"\u00A0", Comparator::kSeparator},
        {"\u3000", Comparator::kSeparator}, {"\u3001", Comparator::kSeparator},  // ideographic space, comma
        {"-", Comparator::kDash},        {"--", Comparator::kSeparator},   // only "-" alone is the dash
        {"12ab", Comparator::kNumber},   {"ab12", Comparator::kString},
    };
    for (const auto& [text, type] : cases) EXPECT_EQ(Comparator::typeOfCharacter(text), type) << text;

    // ASCII is read from a table of its own; it must agree with Unicode's classes.
    for (char c = 0; c >= 0; ++c) {
        const bool digit = u_charType(c) == U_DECIMAL_DIGIT_NUMBER;
        const bool separator = u_isUWhiteSpace(c) || u_ispunct(c);
        const std::int64_t expected = c == '-' ? Comparator::kDash
                                      : digit  ? Comparator::kNumber
                                      : separator ? Comparator::kSeparator
                                                  : Comparator::kString;
        EXPECT_EQ(Comparator::typeOfCharacter(std::string(1, c)), expected) << int(c);
    }
}

TEST(NBCustomizedVersionComparator, Splitting) {
    const std::pair<const char*, Runs> cases[] = {
        {"", {}},
        {"7", {"7"}},
        {"1.10b3", {"1", ".", "10", "b", "3"}},
        {"1..2", {"1", ".", ".", "2"}},
        {"2.1-beta", {"2", ".", "1"}},
        {"-1", {"-", "1"}},
        {"--1", {"-"}},
        {"1.2 (345)", {"1", ".", "2", " ", "(", "345", ")"}},
        {"v\u0661\u0662.\u00E9t\u00E9", {"v", "\u0661\u0662", ".", "\u00E9t\u00E9"}},
        {"1\xff\xfe", {"1", "\xff\xfe"}},
    };
    for (const auto& [version, runs] : cases) EXPECT_EQ(Comparator::splitVersionString(version), runs) << version;
}

// Versions as projects publish them, with what these rules answer (and, by symmetry, the reverse).
// Where the usual comparator of desktop updaters answers otherwise, the comment says so: it reads "-" as a
// separator, so a suffix after a dash is a pre-release there, while here the dash ends the version.
TEST(NBCustomizedVersionComparator, VersionsFromPractice) {
    struct Case {
        const char* a;
        const char* b;
        std::int64_t answer;
    };
    const Case cases[] = {
        {"1.0", "1.0", 0},
        {"1.0", "1.0.1", -1},
        {"1.0", "1.0b1", 1},              // a trailing string is a pre-release
        {"1.0b1", "1.0b2", -1},
        {"1.0a1", "1.0b1", -1},
        {"1.0b5", "1.0rc1", -1},          // "b" sorts before "rc"
        {"1.0rc1", "1.0", -1},
        {"2.0b10", "2.0b9", 1},
        {"1.0beta", "1.0alpha", 1},
        {"1.0b", "1.0B", 1},              // case-sensitive: "B" sorts before "b"
        {"10", "9", 1},                   // numbers by value
        {"1.10", "1.9", 1},
        {"1.0.9", "1.0.10", -1},
        {"1.05", "1.5", 0},
        {"2.0", "10.0", -1},
        {"3.2.0", "3.3.0", -1},
        {"3.3.0", "3.2.10", 1},
        {"4.0.0.1", "4.0.0.0", 1},
        {"1.0.0", "1.0", 1},              // a further number makes a newer version
        {"1.0", "1.0.0.0", -1},
        {"0.10.9999.0", "0.10.9999.1", -1},
        {"2024.1", "2023.12", 1},
        {"20240105", "20231231", 1},
        {"1.2", "1 2", 0},                // white space separates like the dot
        {"1.0", "1,0", 0},
        {"1.0_1", "1.0_2", -1},
        {"1.2.3 (456)", "1.2.3 (457)", -1},
        {"1.2.3 (456)", "1.2.3", 1},
        {"1.a", "1.1", -1},               // a string loses to a number
        {"1.0.1", "1.0a", 1},
        {"v1.0", "v1.1", -1},
        {"1.0", "v1.0", 1},
        {"2.1-beta", "2.1", 0},           // differs: the dash ends the version here; a pre-release there
        {"1.0-SNAPSHOT", "1.0", 0},       // differs, as above
        {"1.0.0-alpha", "1.0.0-beta", 0}, // differs: there alpha is older than beta
        {"3.2.0", "3.2.0-nimbo_official", 0},
        {"1.0.0+build.1", "1.0.0", -1},   // "+" is a symbol, so "+build" is a string: a pre-release
        {"1.0", "1.0.", -1},              // a trailing separator counts as more version
        {"", "1", -1},
        {"", "", 0},
        {"-1", "1", -1},                  // a leading dash is a run of its own, and loses to a number
        {"\u0661.\u0662", "1.2", 0},      // digits of any script, by value
        {"99999999999999999999", "99999999999999999998", 0},  // both saturate at INT64_MAX
    };
    const Comparator comparator;
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.a) + " vs " + c.b);
        EXPECT_EQ(comparator.compareVersion(c.a, c.b), c.answer);
        EXPECT_EQ(comparator.compareVersion(c.b, c.a), -c.answer);
    }
    // A separator against a dash: the first version is the older either way round.
    EXPECT_EQ(comparator.compareVersion(".2", "-"), -1);
    EXPECT_EQ(comparator.compareVersion("-", ".2"), -1);
}

// Only the first and the last dotted components count, each as a long long value.
TEST(NBCustomizedVersionComparator, BuildNumberMode) {
    struct Case {
        const char* a;
        const char* b;
        std::int64_t answer;
    };
    const Case cases[] = {
        {"0.10.9999.5", "0.11.0.4", 1}, {"1.2.3", "1.9.3", 0},  {"2.0", "1.99", 1},
        {"1", "1.5", -1},               {"", "0", 0},           {"abc", "0", 0},
        {"x.7", "0.6", 1},              {" 3.1", "3.1", 0},     {"-1.0", "0.0", -1},
        {"99999999999999999999.1", "9223372036854775807.1", 0},
    };
    Comparator comparator;
    comparator.setCompareNimboBuildNum(true);
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.a) + " vs " + c.b);
        EXPECT_EQ(comparator.compareVersion(c.a, c.b), c.answer);
        EXPECT_EQ(comparator.compareVersion(c.b, c.a), -c.answer);
    }
    EXPECT_FALSE(Comparator::defaultComparator().compareNimboBuildNum());
}

}  // namespace
}  // namespace nb
