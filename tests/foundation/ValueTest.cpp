#include "nbbase/foundation/Value.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

namespace nb {
namespace {

using i32 = std::numeric_limits<std::int32_t>;
using i64 = std::numeric_limits<std::int64_t>;
using u64 = std::numeric_limits<std::uint64_t>;
constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// --- conversions ------------------------------------------------------------------------------------

struct ConversionCase {
    std::string label;
    Value value;
    std::int32_t intValue;
    std::int64_t longLongValue;
    bool boolValue;
    double doubleValue;
    std::string stringValue;
};

void PrintTo(const ConversionCase& c, std::ostream* os) { *os << c.label; }

class ValueConversion : public ::testing::TestWithParam<ConversionCase> {};

TEST_P(ValueConversion, FollowsFoundationRules) {
    const ConversionCase& c = GetParam();
    EXPECT_EQ(c.value.intValue(), c.intValue);
    EXPECT_EQ(c.value.longLongValue(), c.longLongValue);
    EXPECT_EQ(c.value.boolValue(), c.boolValue);
    if (std::isnan(c.doubleValue)) {
        EXPECT_TRUE(std::isnan(c.value.doubleValue()));
    } else {
        EXPECT_EQ(c.value.doubleValue(), c.doubleValue);
        // -0 and +0 compare equal; the sign still matters to whoever prints it.
        EXPECT_EQ(std::signbit(c.value.doubleValue()), std::signbit(c.doubleValue));
    }
    EXPECT_EQ(c.value.stringValue(), c.stringValue);
}

// Strings: leading white space, an optional sign, digits up to the first other character; saturating.
INSTANTIATE_TEST_SUITE_P(
    Strings, ValueConversion,
    ::testing::Values(
        ConversionCase{"padded_sign_suffix", "  +12x", 12, 12, true, 12, "  +12x"},
        ConversionCase{"negative_zero", "-0", 0, 0, false, -0.0, "-0"},
        ConversionCase{"exponent", "1e3", 1, 1, true, 1000, "1e3"},
        ConversionCase{"hex_is_not_read", "0x10", 0, 0, false, 0, "0x10"},
        ConversionCase{"digits_then_letters", "12abc", 12, 12, true, 12, "12abc"},
        ConversionCase{"fraction", "1.9", 1, 1, true, 1.9, "1.9"},
        ConversionCase{"negative_fraction", "-1.9", -1, -1, true, -1.9, "-1.9"},
        ConversionCase{"letters", "abc", 0, 0, false, 0, "abc"},
        ConversionCase{"yes", "YES", 0, 0, true, 0, "YES"},
        ConversionCase{"true_word", "true", 0, 0, true, 0, "true"},
        ConversionCase{"leading_zeros", "0001", 1, 1, true, 1, "0001"},
        ConversionCase{"no", "no", 0, 0, false, 0, "no"},
        ConversionCase{"zero", "0", 0, 0, false, 0, "0"},
        ConversionCase{"empty", "", 0, 0, false, 0, ""},
        ConversionCase{"tabs_and_newlines", "\t\n 42", 42, 42, true, 42, "\t\n 42"},
        ConversionCase{"signed_zeros_then_yes", " -00y", 0, 0, true, -0.0, " -00y"},
        ConversionCase{"two_signs", "+-5", 0, 0, false, 0, "+-5"},
        ConversionCase{"point_first", " .5", 0, 0, false, 0.5, " .5"},
        ConversionCase{"inf_word", "inf", 0, 0, false, 0, "inf"},
        ConversionCase{"nan_word", "nan", 0, 0, false, 0, "nan"},
        ConversionCase{"above_int32", "2147483648", i32::max(), 2147483648LL, true, 2147483648.0, "2147483648"},
        ConversionCase{"below_int32", "-2147483649", i32::min(), -2147483649LL, true, -2147483649.0,
                       "-2147483649"},
        ConversionCase{"int64_max", "9223372036854775807", i32::max(), i64::max(), true, 9223372036854775807.0,
                       "9223372036854775807"},
        ConversionCase{"int64_min", "-9223372036854775808", i32::min(), i64::min(), true, -9223372036854775808.0,
                       "-9223372036854775808"},
        ConversionCase{"above_int64", "9223372036854775808", i32::max(), i64::max(), true, 9223372036854775808.0,
                       "9223372036854775808"},
        ConversionCase{"below_int64", "-9223372036854775809", i32::min(), i64::min(), true, -9223372036854775808.0,
                       "-9223372036854775809"},
        ConversionCase{"many_digits", "123456789012345678901234567890", i32::max(), i64::max(), true,
                       1.2345678901234568e29, "123456789012345678901234567890"},
        ConversionCase{"many_negative_digits", "-123456789012345678901234567890", i32::min(), i64::min(), true,
                       -1.2345678901234568e29, "-123456789012345678901234567890"},
        ConversionCase{"real_overflow", "1e400", 1, 1, true, kInf, "1e400"},
        ConversionCase{"negative_real_overflow", "-1e400", -1, -1, true, -kInf, "-1e400"},
        ConversionCase{"real_underflow", "1e-400", 1, 1, true, 0, "1e-400"},
        // Long mantissas move the magnitude: 400 digits times 1e-10 is still far beyond a double.
        ConversionCase{"long_mantissa_overflow", "1" + std::string(400, '0') + "e-10", i32::max(), i64::max(), true,
                       kInf, "1" + std::string(400, '0') + "e-10"},
        ConversionCase{"long_fraction_underflow", "0." + std::string(400, '0') + "1e10", 0, 0, false, 0,
                       "0." + std::string(400, '0') + "1e10"}),
    [](const auto& info) { return info.param.label; });

// Numbers: integers narrow as C casts, reals truncate toward zero and saturate, bools are 0 or 1.
INSTANTIATE_TEST_SUITE_P(
    Numbers, ValueConversion,
    ::testing::Values(
        ConversionCase{"true_", true, 1, 1, true, 1, "1"}, ConversionCase{"false_", false, 0, 0, false, 0, "0"},
        ConversionCase{"int", 42, 42, 42, true, 42, "42"},
        ConversionCase{"negative_int", -7, -7, -7, true, -7, "-7"},
        ConversionCase{"narrowing_keeps_low_bits", Value(4294967297LL), 1, 4294967297LL, true, 4294967297.0,
                       "4294967297"},
        ConversionCase{"narrowing_wraps_sign", Value(2147483648LL), i32::min(), 2147483648LL, true, 2147483648.0,
                       "2147483648"},
        ConversionCase{"int64_min", Value(i64::min()), 0, i64::min(), true, -9223372036854775808.0,
                       "-9223372036854775808"},
        ConversionCase{"uint64_max", Value(u64::max()), -1, -1, true, 18446744073709551616.0, "18446744073709551615"},
        ConversionCase{"uint64_just_above_int64", Value(9223372036854775808ULL), 0, i64::min(), true,
                       9223372036854775808.0, "9223372036854775808"},
        ConversionCase{"real_truncates", 1.9, 1, 1, true, 1.9, "1.9"},
        ConversionCase{"negative_real_truncates", -1.9, -1, -1, true, -1.9, "-1.9"},
        ConversionCase{"real_beyond_int32", 3e9, i32::max(), 3000000000LL, true, 3e9, "3000000000"},
        ConversionCase{"huge_real", 1e300, i32::max(), i64::max(), true, 1e300, "1e+300"},
        ConversionCase{"huge_negative_real", -1e300, i32::min(), i64::min(), true, -1e300, "-1e+300"},
        ConversionCase{"two_to_the_63", 9223372036854775808.0, i32::max(), i64::max(), true, 9223372036854775808.0,
                       "9.223372036854776e+18"},
        ConversionCase{"infinity", kInf, i32::max(), i64::max(), true, kInf, "inf"},
        ConversionCase{"negative_infinity", -kInf, i32::min(), i64::min(), true, -kInf, "-inf"},
        ConversionCase{"nan", kNaN, 0, 0, true, kNaN, "nan"},
        ConversionCase{"negative_zero", -0.0, 0, 0, false, -0.0, "-0"},
        // Shortest digits that read back, laid out as Foundation prints numbers.
        ConversionCase{"one_and_a_half", 1.5, 1, 1, true, 1.5, "1.5"},
        ConversionCase{"one_tenth", 0.1, 0, 0, true, 0.1, "0.1"},
        ConversionCase{"sum_needing_17_digits", 0.1 + 0.2, 0, 0, true, 0.1 + 0.2, "0.30000000000000004"},
        ConversionCase{"whole_real", 100.0, 100, 100, true, 100, "100"},
        ConversionCase{"million", 1e6, 1000000, 1000000, true, 1e6, "1000000"},
        ConversionCase{"fifteen_million", 1.5e7, 15000000, 15000000, true, 1.5e7, "15000000"},
        ConversionCase{"ten_to_the_14", 1e14, i32::max(), 100000000000000LL, true, 1e14, "100000000000000"},
        ConversionCase{"ten_to_the_15", 1e15, i32::max(), 1000000000000000LL, true, 1e15, "1e+15"},
        ConversionCase{"sixteen_digits", 1234567890123456.0, i32::max(), 1234567890123456LL, true,
                       1234567890123456.0, "1234567890123456"},
        ConversionCase{"ten_to_the_21", 1e21, i32::max(), i64::max(), true, 1e21, "1e+21"},
        ConversionCase{"ten_thousandth", 0.0001, 0, 0, true, 0.0001, "0.0001"},
        ConversionCase{"hundred_thousandth", 1.5e-5, 0, 0, true, 1.5e-5, "1.5e-05"},
        ConversionCase{"smallest_denormal", 5e-324, 0, 0, true, 5e-324, "5e-324"}),
    [](const auto& info) { return info.param.label; });

// Kinds that are not numbers or strings convert to nothing.
INSTANTIATE_TEST_SUITE_P(Others, ValueConversion,
                         ::testing::Values(ConversionCase{"absent", Value(), 0, 0, false, 0, ""},
                                           ConversionCase{"null", Value::null(), 0, 0, false, 0, ""},
                                           ConversionCase{"data", Value(Data{'1', '2'}), 0, 0, false, 0, ""},
                                           ConversionCase{"date", Value(Date{12.5}), 0, 0, false, 0, ""},
                                           ConversionCase{"array", Value::array({7}), 0, 0, false, 0, ""},
                                           ConversionCase{"dictionary", Value::dictionary({{"a", 7}}), 0, 0, false,
                                                          0, ""}),
                         [](const auto& info) { return info.param.label; });

TEST(ValueConversion, UnsignedLongLongValue) {
    const struct {
        Value value;
        std::uint64_t expected;
    } cases[] = {
        {Value(u64::max()), u64::max()},
        {Value(-1), u64::max()},  // a C cast
        {Value(1.8e19), 18000000000000000000ULL},
        {Value(1e300), u64::max()},
        {Value(-1.5), u64::max()},  // truncated to -1 first, then cast
        {Value(kNaN), 0},
        {Value("123"), 123},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value.description());
        EXPECT_EQ(c.value.unsignedLongLongValue(), c.expected);
    }
}

TEST(ValueKind, UnsignedOnlyAboveInt64Max) {
    EXPECT_FALSE(Value(static_cast<unsigned long long>(i64::max())).isUnsigned());
    EXPECT_TRUE(Value(static_cast<unsigned long long>(i64::max()) + 1).isUnsigned());
    EXPECT_TRUE(Value(u64::max()).isInteger());
    EXPECT_FALSE(Value(4294967295U).isUnsigned());
    EXPECT_EQ(Value(4294967295U).longLongValue(), 4294967295LL);
}

TEST(ValueDescription, PrintsAsFormatWouldPrintAnObject) {
    const struct {
        Value value;
        const char* expected;
    } cases[] = {
        {Value(), "(null)"},
        {Value::null(), "<null>"},
        {Value(true), "1"},
        {Value(2.5), "2.5"},
        {Value("text"), "text"},
        {Value(Data{1, 2, 3, 4, 0xab}), "<01020304 ab>"},
        {Value::array({1, "a"}), "(1, \"a\")"},
        {Value::dictionary({{"a", 1}, {"b", "x"}}), "{a = 1; b = \"x\"}"},
    };
    for (const auto& c : cases) EXPECT_EQ(c.value.description(), c.expected);
}

// --- equality ---------------------------------------------------------------------------------------

TEST(ValueEquality, ComparesByValueAcrossKinds) {
    const struct {
        const char* label;
        Value a;
        Value b;
        bool equal;
    } cases[] = {
        {"true is one", true, 1, true},
        {"false is zero", false, 0, true},
        {"true is not two", true, 2, false},
        {"true is one point zero", true, 1.0, true},
        {"int and real", 2, 2.0, true},
        {"int and fraction", 2, 2.5, false},
        {"number is never a string", 1, "1", false},
        {"bool is never a string", true, "YES", false},
        {"strings", "1", "1", true},
        {"different strings", "a", "b", false},
        {"null", Value::null(), Value::null(), true},
        {"absent", Value(), Value(), true},
        {"null is not absent", Value::null(), Value(), false},
        {"null is not zero", Value::null(), 0, false},
        {"absent is not empty string", Value(), "", false},
        {"signed minus one is not uint64 max", -1, Value(u64::max()), false},
        {"uint64 and real two to the 63", Value(9223372036854775808ULL), 9223372036854775808.0, true},
        {"int64 max is not its rounded real", Value(i64::max()), 9223372036854775808.0, false},
        {"2^53+1 is not 2^53 as real", Value(9007199254740993LL), 9007199254740992.0, false},
        {"int64 min and its real", Value(i64::min()), -9223372036854775808.0, true},
        {"negative zero", 0, -0.0, true},
        {"nan is unequal to itself", kNaN, kNaN, false},
        {"data", Value(Data{1, 2}), Value(Data{1, 2}), true},
        {"different data", Value(Data{1, 2}), Value(Data{1}), false},
        {"data is not string", Value(Data{'a'}), "a", false},
        {"dates", Value(Date{5}), Value(Date{5}), true},
        {"date is not number", Value(Date{5}), 5, false},
        {"arrays deeply", Value::array({1, "a", true}), Value::array({1.0, "a", 1}), true},
        {"arrays in order", Value::array({1, 2}), Value::array({2, 1}), false},
        {"arrays by length", Value::array({1}), Value::array({1, 1}), false},
        {"empty array is not empty dictionary", Value(Value::Array{}), Value(Value::Dictionary{}), false},
        {"dictionaries regardless of order", Value::dictionary({{"a", 1}, {"b", 2}}),
         Value::dictionary({{"b", 2.0}, {"a", true}}), true},
        {"dictionaries by keys", Value::dictionary({{"a", 1}, {"b", 2}}), Value::dictionary({{"a", 1}, {"c", 2}}),
         false},
        {"dictionaries by size", Value::dictionary({{"a", 1}}), Value::dictionary({{"a", 1}, {"b", 2}}), false},
        {"nested containers", Value::dictionary({{"x", Value::array({Value::dictionary({{"y", true}})})}}),
         Value::dictionary({{"x", Value::array({Value::dictionary({{"y", 1}})})}}), true},
        {"nested difference", Value::dictionary({{"x", Value::array({Value::dictionary({{"y", true}})})}}),
         Value::dictionary({{"x", Value::array({Value::dictionary({{"y", "1"}})})}}), false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        EXPECT_EQ(c.a == c.b, c.equal);
        EXPECT_EQ(c.b == c.a, c.equal);
    }
}

TEST(ValueEquality, LargeDictionariesInDifferentOrder) {
    Value forward;
    Value backward;
    for (int i = 0; i < 100; ++i) forward.set("k" + std::to_string(i), i);
    for (int i = 99; i >= 0; --i) backward.set("k" + std::to_string(i), static_cast<double>(i));
    EXPECT_EQ(forward, backward);
    backward.set("k42", 43);
    EXPECT_NE(forward, backward);
}

// --- absent, null and lookups -----------------------------------------------------------------------

TEST(ValueLookup, MissingIsAbsentAndNullIsNull) {
    const Value reply = Value::dictionary({{"n", Value::null()}, {"data", Value::dictionary({{"list", Value::array({
                                                                                          "first"})}})}});
    EXPECT_TRUE(reply["n"].isNull());
    EXPECT_TRUE(reply.contains("n"));
    EXPECT_TRUE(reply["missing"].isAbsent());
    EXPECT_FALSE(reply.contains("missing"));
    EXPECT_EQ(reply["data"]["list"][0], Value("first"));
    // Chains through missing keys, wrong kinds and out-of-range indexes stay absent.
    EXPECT_TRUE(reply["missing"]["x"][0]["y"].isAbsent());
    EXPECT_TRUE(reply["n"]["x"].isAbsent());
    EXPECT_TRUE(reply["data"]["list"][1].isAbsent());
    EXPECT_TRUE(reply["data"]["list"]["key"].isAbsent());
    EXPECT_TRUE(reply[0].isAbsent());
    EXPECT_TRUE(Value(5)["x"].isAbsent());
    EXPECT_EQ(Value("abc").size(), 0U);
}

TEST(ValueLookup, AbsentNeverEntersContainers) {
    Value d = Value::dictionary({{"a", 1}, {"gone", Value()}});
    EXPECT_EQ(d.size(), 1U);
    d.set("a", Value());
    EXPECT_FALSE(d.contains("a"));
    EXPECT_TRUE(d.isDictionary());

    Value a = Value::array({1, Value(), 2});
    EXPECT_EQ(a.size(), 2U);
    a.append(Value());
    EXPECT_EQ(a.size(), 2U);
    a.append(Value::null());
    EXPECT_EQ(a.size(), 3U);
}

TEST(ValueMutation, SetAndAppendTurnOtherKindsIntoContainers) {
    Value v = 5;
    v.set("k", "x");
    EXPECT_EQ(v, Value::dictionary({{"k", "x"}}));
    Value w = "text";
    w.append(1);
    EXPECT_EQ(w, Value::array({1}));
    Value x = 3;
    EXPECT_FALSE(x.remove("k"));
    EXPECT_EQ(x, Value(3));  // removing from a non-dictionary leaves it alone
}

// --- copy on write ----------------------------------------------------------------------------------

TEST(ValueCopyOnWrite, CopiesAreIndependent) {
    Value original = Value::dictionary({{"list", Value::array({1, 2})}, {"name", "a"}});
    Value copy = original;
    copy.set("name", "b");
    copy.set("extra", true);
    EXPECT_EQ(original["name"], Value("a"));
    EXPECT_FALSE(original.contains("extra"));

    // Changing a nested container goes through a copy of it, so the original's stays put.
    Value list = copy["list"];
    list.append(3);
    copy.set("list", list);
    EXPECT_EQ(original["list"].size(), 2U);
    EXPECT_EQ(copy["list"].size(), 3U);

    Value arrayCopy = original["list"];
    arrayCopy.mutableArray()[0] = "changed";
    EXPECT_EQ(original["list"][0], Value(1));

    EXPECT_TRUE(copy.remove("name"));
    EXPECT_EQ(original["name"], Value("a"));
    Value dictCopy = original;
    dictCopy.mutableDictionary().set("name", 9);
    EXPECT_EQ(original["name"], Value("a"));
}

TEST(ValueCopyOnWrite, CopiesSharingAContainerMayChangeOnTheirOwnThreads) {
    Value shared = Value::dictionary({{"list", Value::array({1, 2, 3})}});
    for (int k = 0; k < 40; ++k) shared.set("key" + std::to_string(k), k);
    std::vector<std::thread> threads;
    std::vector<Value> results(4);
    for (std::size_t t = 0; t < results.size(); ++t) {
        threads.emplace_back([&results, shared, t]() mutable {
            for (int i = 0; i < 200; ++i) {
                Value mine = shared;
                mine.set("key" + std::to_string(i % 40), static_cast<int>(t));
                mine.append(i);  // turns it into an array: the shared dictionary must survive
                results[t] = shared;
            }
        });
    }
    for (auto& th : threads) th.join();
    for (const Value& r : results) {
        EXPECT_EQ(r, shared);
        EXPECT_EQ(r["key7"], Value(7));
    }
}

// --- Dictionary -------------------------------------------------------------------------------------

std::vector<std::string> keysOf(const Value::Dictionary& d) {
    std::vector<std::string> keys;
    for (const auto& [k, v] : d) keys.push_back(k);
    return keys;
}

TEST(ValueDictionary, KeepsInsertionOrderAndLastValueWins) {
    const auto d = Value::Dictionary::fromEntries({{"b", 1}, {"a", 2}, {"b", 3}, {"c", 4}, {"a", Value::null()}});
    EXPECT_EQ(keysOf(d), (std::vector<std::string>{"b", "a", "c"}));
    EXPECT_EQ(d.get("b"), Value(3));
    EXPECT_TRUE(d.get("a").isNull());

    Value::Dictionary e{{"z", 1}, {"y", 2}};
    e.set("z", 5);  // replacing keeps the place
    e.set("x", 3);
    EXPECT_EQ(keysOf(e), (std::vector<std::string>{"z", "y", "x"}));
    EXPECT_EQ(e.get("z"), Value(5));
}

TEST(ValueDictionary, LargeDictionaryKeepsLookupsRightThroughEraseAndReset) {
    Value::Dictionary d;
    std::vector<std::string> expectedOrder;
    for (int i = 0; i < 100; ++i) {
        d.set("k" + std::to_string(i), i);
        expectedOrder.push_back("k" + std::to_string(i));
    }
    ASSERT_EQ(d.size(), 100U);
    for (int i = 0; i < 100; ++i) ASSERT_EQ(d.get("k" + std::to_string(i)), Value(i));

    EXPECT_TRUE(d.erase("k50"));
    EXPECT_FALSE(d.erase("k50"));
    EXPECT_FALSE(d.contains("k50"));
    // Entries after the erased one moved up: their lookups must follow.
    for (int i = 51; i < 100; ++i) ASSERT_EQ(d.get("k" + std::to_string(i)), Value(i));
    d.set("k50", "back");
    expectedOrder.erase(expectedOrder.begin() + 50);
    expectedOrder.push_back("k50");
    EXPECT_EQ(keysOf(d), expectedOrder);
    EXPECT_EQ(d.get("k50"), Value("back"));

    d.set("k10", Value());  // absent removes
    EXPECT_FALSE(d.contains("k10"));
    d.set("k11", "replaced");
    EXPECT_EQ(d.get("k11"), Value("replaced"));

    // Shrink below the index threshold and grow again.
    for (int i = 0; i < 95; ++i) d.erase("k" + std::to_string(i));
    EXPECT_EQ(keysOf(d), (std::vector<std::string>{"k95", "k96", "k97", "k98", "k99"}));
    for (int i = 0; i < 30; ++i) d.set("n" + std::to_string(i), i);
    EXPECT_EQ(d.size(), 35U);
    EXPECT_EQ(d.get("k97"), Value(97));
    EXPECT_EQ(d.get("n29"), Value(29));
    Value* mutableEntry = d.findMutable("n3");
    ASSERT_NE(mutableEntry, nullptr);
    *mutableEntry = "three";
    EXPECT_EQ(d.get("n3"), Value("three"));
}

TEST(ValueDictionary, FromEntriesWithManyRepeatedKeys) {
    std::vector<Value::Dictionary::Entry> entries;
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 30; ++i) entries.emplace_back("k" + std::to_string(i), round * 100 + i);
    }
    const auto d = Value::Dictionary::fromEntries(std::move(entries));
    ASSERT_EQ(d.size(), 30U);
    EXPECT_EQ(d.begin()->first, "k0");
    for (int i = 0; i < 30; ++i) EXPECT_EQ(d.get("k" + std::to_string(i)), Value(200 + i));
}

}  // namespace
}  // namespace nb
