#include "nbbase/foundation/Value.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
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

// intValue, longLongValue, boolValue, doubleValue, stringValue; a string's stringValue is itself.
struct Conv {
    Value v;
    std::int32_t i;
    std::int64_t ll;
    bool b;
    double d;
    std::string s = {};
};

void expectConversions(const Conv& c) {
    SCOPED_TRACE(c.v.description());
    EXPECT_EQ(c.v.intValue(), c.i);
    EXPECT_EQ(c.v.longLongValue(), c.ll);
    EXPECT_EQ(c.v.boolValue(), c.b);
    if (std::isnan(c.d)) {
        EXPECT_TRUE(std::isnan(c.v.doubleValue()));
    } else {
        EXPECT_EQ(c.v.doubleValue(), c.d);
        EXPECT_EQ(std::signbit(c.v.doubleValue()), std::signbit(c.d));  // -0 must still print as -0
    }
    EXPECT_EQ(c.v.stringValue(), c.v.isString() ? *c.v.asString() : c.s);
}

// Leading white space, an optional sign, digits up to the first other character; saturating.
TEST(ValueConversion, Strings) {
    const std::string zeros(400, '0');
    const Conv cases[] = {
        {"  +12x", 12, 12, true, 12}, {"-0", 0, 0, false, -0.0}, {"1e3", 1, 1, true, 1000}, {"0x10", 0, 0, false, 0},
        {"1.9", 1, 1, true, 1.9}, {"-1.9", -1, -1, true, -1.9}, {"abc", 0, 0, false, 0}, {"", 0, 0, false, 0},
        {"YES", 0, 0, true, 0}, {"no", 0, 0, false, 0}, {"0", 0, 0, false, 0}, {"\t\n 42", 42, 42, true, 42},
        {" -00y", 0, 0, true, -0.0}, {"+-5", 0, 0, false, 0}, {" .5", 0, 0, false, 0.5}, {"inf", 0, 0, false, 0},
        {"nan", 0, 0, false, 0},
        {"2147483648", i32::max(), 2147483648LL, true, 2147483648.0},
        {"-2147483649", i32::min(), -2147483649LL, true, -2147483649.0},
        {"9223372036854775807", i32::max(), i64::max(), true, 9223372036854775807.0},
        {"-9223372036854775808", i32::min(), i64::min(), true, -9223372036854775808.0},
        {"9223372036854775808", i32::max(), i64::max(), true, 9223372036854775808.0},
        {"-9223372036854775809", i32::min(), i64::min(), true, -9223372036854775808.0},
        {"123456789012345678901234567890", i32::max(), i64::max(), true, 1.2345678901234568e29},
        {"-123456789012345678901234567890", i32::min(), i64::min(), true, -1.2345678901234568e29},
        {"1e400", 1, 1, true, kInf}, {"-1e400", -1, -1, true, -kInf}, {"1e-400", 1, 1, true, 0},
        // Long mantissas move the magnitude: 400 digits times 1e-10 is still far beyond a double.
        {"1" + zeros + "e-10", i32::max(), i64::max(), true, kInf}, {"0." + zeros + "1e10", 0, 0, false, 0},
    };
    for (const Conv& c : cases) expectConversions(c);
}

// Integers narrow as C casts, reals truncate toward zero and saturate, bools are 0 or 1; reals print in
// the shortest digits that read back. Other kinds convert to nothing.
TEST(ValueConversion, NumbersAndOtherKinds) {
    const Conv cases[] = {
        {true, 1, 1, true, 1, "1"}, {false, 0, 0, false, 0, "0"}, {-7, -7, -7, true, -7, "-7"},
        {Value(4294967297LL), 1, 4294967297LL, true, 4294967297.0, "4294967297"},
        {Value(2147483648LL), i32::min(), 2147483648LL, true, 2147483648.0, "2147483648"},
        {Value(i64::min()), 0, i64::min(), true, -9223372036854775808.0, "-9223372036854775808"},
        {Value(u64::max()), -1, -1, true, 18446744073709551616.0, "18446744073709551615"},
        {Value(9223372036854775808ULL), 0, i64::min(), true, 9223372036854775808.0, "9223372036854775808"},
        {1.9, 1, 1, true, 1.9, "1.9"}, {-1.9, -1, -1, true, -1.9, "-1.9"},
        {3e9, i32::max(), 3000000000LL, true, 3e9, "3000000000"},
        {1e300, i32::max(), i64::max(), true, 1e300, "1e+300"}, {-1e300, i32::min(), i64::min(), true, -1e300, "-1e+300"},
        {9223372036854775808.0, i32::max(), i64::max(), true, 9223372036854775808.0, "9.223372036854776e+18"},
        {kInf, i32::max(), i64::max(), true, kInf, "inf"}, {-kInf, i32::min(), i64::min(), true, -kInf, "-inf"},
        {kNaN, 0, 0, true, kNaN, "nan"}, {-0.0, 0, 0, false, -0.0, "-0"}, {0.1, 0, 0, true, 0.1, "0.1"},
        {0.1 + 0.2, 0, 0, true, 0.1 + 0.2, "0.30000000000000004"}, {100.0, 100, 100, true, 100, "100"},
        {1e14, i32::max(), 100000000000000LL, true, 1e14, "100000000000000"},
        {1e15, i32::max(), 1000000000000000LL, true, 1e15, "1e+15"}, {1e21, i32::max(), i64::max(), true, 1e21, "1e+21"},
        {0.0001, 0, 0, true, 0.0001, "0.0001"}, {1.5e-5, 0, 0, true, 1.5e-5, "1.5e-05"},
        {5e-324, 0, 0, true, 5e-324, "5e-324"},
        {Value(), 0, 0, false, 0}, {Value::null(), 0, 0, false, 0}, {Value(Data{'1', '2'}), 0, 0, false, 0},
        {Value(Date{12.5}), 0, 0, false, 0}, {Value::array({7}), 0, 0, false, 0},
        {Value::dictionary({{"a", 7}}), 0, 0, false, 0},
    };
    for (const Conv& c : cases) expectConversions(c);
}

// nil and "" differ for a reply's text fields: only strings and numbers have a text.
TEST(ValueConversion, TextValueTellsNilFromEmpty) {
    EXPECT_EQ(Value("").textValue(), "");
    EXPECT_EQ(Value(1.5).textValue(), "1.5");
    EXPECT_EQ(Value(true).textValue(), "1");
    for (const Value& nil : {Value(), Value::null(), Value::array({"a"}), Value(nb::Data{1})}) {
        EXPECT_EQ(nil.textValue(), std::nullopt) << nil.description();
    }
}

TEST(ValueConversion, UnsignedLongLongValueAndUnsignedKind) {
    // -1 and -1.5 (truncated to -1 first) wrap as a C cast would.
    const std::pair<Value, std::uint64_t> cases[] = {
        {Value(u64::max()), u64::max()}, {Value(-1), u64::max()}, {Value(1.8e19), 18000000000000000000ULL},
        {Value(1e300), u64::max()}, {Value(-1.5), u64::max()}, {Value(kNaN), 0}, {Value("123"), 123}};
    for (const auto& [value, expected] : cases) EXPECT_EQ(value.unsignedLongLongValue(), expected) << value.description();
    EXPECT_FALSE(Value(static_cast<unsigned long long>(i64::max())).isUnsigned());
    EXPECT_TRUE(Value(static_cast<unsigned long long>(i64::max()) + 1).isUnsigned());
    EXPECT_FALSE(Value(4294967295U).isUnsigned());
}

TEST(ValueDescription, PrintsAsFormatWouldPrintAnObject) {
    const std::pair<Value, const char*> cases[] = {
        {Value(), "(null)"}, {Value::null(), "<null>"}, {Value(true), "1"}, {Value(2.5), "2.5"}, {Value("text"), "text"},
        {Value(Data{1, 2, 3, 4, 0xab}), "<01020304 ab>"}, {Value::array({1, "a"}), "(1, \"a\")"},
        {Value::dictionary({{"a", 1}, {"b", "x"}}), "{a = 1; b = \"x\"}"}};
    for (const auto& [value, expected] : cases) EXPECT_EQ(value.description(), expected);
}

TEST(ValueEquality, ComparesByValueAcrossKinds) {
    const auto nested = [](Value leaf) { return Value::dictionary({{"x", Value::array({Value::dictionary({{"y", leaf}})})}}); };
    const struct {
        Value a, b;
        bool equal;
    } cases[] = {
        {true, 1, true}, {true, 2, false}, {2, 2.0, true}, {2, 2.5, false}, {1, "1", false}, {true, "YES", false},
        {"a", "a", true}, {"a", "b", false}, {Value::null(), Value::null(), true}, {Value(), Value(), true},
        {Value::null(), Value(), false}, {Value::null(), 0, false}, {Value(), "", false},
        {-1, Value(u64::max()), false}, {Value(9223372036854775808ULL), 9223372036854775808.0, true},
        {Value(i64::max()), 9223372036854775808.0, false}, {Value(9007199254740993LL), 9007199254740992.0, false},
        {Value(i64::min()), -9223372036854775808.0, true}, {0, -0.0, true}, {kNaN, kNaN, false},
        {Value(Data{1, 2}), Value(Data{1, 2}), true}, {Value(Data{1, 2}), Value(Data{1}), false},
        {Value(Data{'a'}), "a", false}, {Value(Date{5}), Value(Date{5}), true}, {Value(Date{5}), 5, false},
        {Value::array({1, "a", true}), Value::array({1.0, "a", 1}), true}, {Value::array({1, 2}), Value::array({2, 1}), false},
        {Value::array({1}), Value::array({1, 1}), false}, {Value(Value::Array{}), Value(Value::Dictionary{}), false},
        {Value::dictionary({{"a", 1}, {"b", 2}}), Value::dictionary({{"b", 2.0}, {"a", true}}), true},
        {Value::dictionary({{"a", 1}, {"b", 2}}), Value::dictionary({{"a", 1}, {"c", 2}}), false},
        {Value::dictionary({{"a", 1}}), Value::dictionary({{"a", 1}, {"b", 2}}), false},
        {nested(true), nested(1), true}, {nested(true), nested("1"), false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.a.description() + " vs " + c.b.description());
        EXPECT_EQ(c.a == c.b, c.equal);
        EXPECT_EQ(c.b == c.a, c.equal);
    }
    // Large enough for the dictionary's index to take part.
    Value forward, backward;
    for (int i = 0; i < 100; ++i) forward.set("k" + std::to_string(i), i);
    for (int i = 99; i >= 0; --i) backward.set("k" + std::to_string(i), static_cast<double>(i));
    EXPECT_EQ(forward, backward);
    backward.set("k42", 43);
    EXPECT_NE(forward, backward);
}

TEST(ValueLookup, MissingIsAbsentNullIsNullAndAbsentNeverEntersContainers) {
    const Value reply = Value::dictionary({{"n", Value::null()}, {"data", Value::dictionary({{"list", Value::array({"first"})}})}});
    EXPECT_TRUE(reply["n"].isNull() && reply.contains("n"));
    EXPECT_TRUE(reply["missing"].isAbsent() && !reply.contains("missing"));
    EXPECT_EQ(reply["data"]["list"][0], Value("first"));
    // Chains through missing keys, wrong kinds and out-of-range indexes stay absent.
    for (const Value& v : {reply["missing"]["x"][0]["y"], reply["n"]["x"], reply["data"]["list"][1],
                           reply["data"]["list"]["key"], reply[0], Value(5)["x"]})
        EXPECT_TRUE(v.isAbsent());

    Value d = Value::dictionary({{"a", 1}, {"gone", Value()}});
    EXPECT_EQ(d.size(), 1U);
    d.set("a", Value());
    EXPECT_TRUE(d.isDictionary() && !d.contains("a"));
    Value a = Value::array({1, Value(), 2});
    a.append(Value());
    a.append(Value::null());
    EXPECT_EQ(a, Value::array({1, 2, Value::null()}));
    // set and append turn a value of another kind into the container; remove leaves it alone.
    Value v = 5, w = "text", x = 3;
    v.set("k", "x");
    w.append(1);
    EXPECT_FALSE(x.remove("k"));
    EXPECT_EQ(v, Value::dictionary({{"k", "x"}}));
    EXPECT_EQ(w, Value::array({1}));
    EXPECT_EQ(x, Value(3));
}

TEST(ValueCopyOnWrite, CopiesAreIndependent) {
    const Value original = Value::dictionary({{"list", Value::array({1, 2})}, {"name", "a"}});
    Value copy = original;
    copy.set("name", "b");
    copy.set("extra", true);
    Value list = copy["list"];  // a nested container changes through a copy of its own
    list.append(3);
    copy.set("list", list);
    Value arrayCopy = original["list"];
    arrayCopy.mutableArray()[0] = "changed";
    Value dictCopy = original;
    dictCopy.mutableDictionary().set("name", 9);
    EXPECT_TRUE(copy.remove("name"));
    EXPECT_EQ(original, Value::dictionary({{"list", Value::array({1, 2})}, {"name", "a"}}));
    EXPECT_EQ(copy, Value::dictionary({{"list", Value::array({1, 2, 3})}, {"extra", true}}));
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
    for (const Value& r : results) EXPECT_EQ(r, shared);
}

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
}

// Above a size threshold lookups go through an index that erase, repeats and shrinking must keep right.
TEST(ValueDictionary, LargeDictionaryKeepsLookupsRightThroughRepeatsEraseAndShrink) {
    std::vector<Value::Dictionary::Entry> entries;
    for (int round = 0; round < 3; ++round)
        for (int i = 0; i < 100; ++i) entries.emplace_back("k" + std::to_string(i), round * 100 + i);
    auto d = Value::Dictionary::fromEntries(std::move(entries));
    ASSERT_EQ(d.size(), 100U);
    for (int i = 0; i < 100; ++i) ASSERT_EQ(d.get("k" + std::to_string(i)), Value(200 + i));

    EXPECT_TRUE(d.erase("k50"));
    EXPECT_FALSE(d.erase("k50"));
    for (int i = 51; i < 100; ++i) ASSERT_EQ(d.get("k" + std::to_string(i)), Value(200 + i));  // moved up
    d.set("k50", "back");
    EXPECT_EQ(keysOf(d).back(), "k50");
    d.set("k10", Value());
    EXPECT_FALSE(d.contains("k10"));

    for (int i = 0; i < 95; ++i) d.erase("k" + std::to_string(i));
    EXPECT_EQ(keysOf(d), (std::vector<std::string>{"k95", "k96", "k97", "k98", "k99"}));
    for (int i = 0; i < 30; ++i) d.set("n" + std::to_string(i), i);
    EXPECT_EQ(d.get("k97"), Value(297));
    Value* entry = d.findMutable("n29");
    ASSERT_NE(entry, nullptr);
    *entry = "changed";
    EXPECT_EQ(d.get("n29"), Value("changed"));
}

}  // namespace
}  // namespace nb
