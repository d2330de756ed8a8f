#include "nbbase/foundation/Json.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>

namespace nb {
namespace {

using i64 = std::numeric_limits<std::int64_t>;
using u64 = std::numeric_limits<std::uint64_t>;

std::optional<Value> decodeFragment(std::string_view text) { return Json::decode(text, {.allowFragments = true}); }

std::string nested(std::size_t depth, std::string_view open, std::string_view inner, std::string_view close) {
    std::string s;
    for (std::size_t i = 0; i < depth; ++i) s += open;
    s += inner;
    for (std::size_t i = 0; i < depth; ++i) s += close;
    return s;
}

// --- what is accepted -------------------------------------------------------------------------------

TEST(JsonDecode, BareValuesOnlyWithFragments) {
    const struct {
        const char* text;
        Value expected;
        bool container;
    } cases[] = {
        {"12", 12, false},
        {"\"text\"", "text", false},
        {" null ", Value::null(), false},
        {"true", true, false},
        {"-1.5", -1.5, false},
        {"{}", Value(Value::Dictionary{}), true},
        {" [ ] ", Value(Value::Array{}), true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        Json::Error error;
        const auto strict = Json::decode(c.text, {}, &error);
        EXPECT_EQ(strict.has_value(), c.container);
        if (!c.container) {
            EXPECT_NE(error.message.find("bare value"), std::string::npos) << error.message;
        }
        const auto lenient = decodeFragment(c.text);
        ASSERT_TRUE(lenient.has_value());
        EXPECT_EQ(lenient->kind(), c.expected.kind());
        EXPECT_EQ(*lenient, c.expected);
    }
}

TEST(JsonDecode, NestingLimit) {
    const struct {
        const char* label;
        std::string text;
        bool accepted;
    } cases[] = {
        {"512 arrays", nested(512, "[", "", "]"), true},
        {"513 arrays", nested(513, "[", "", "]"), false},
        {"512 objects", nested(511, "{\"a\":", "{}", "}"), true},
        {"513 objects", nested(512, "{\"a\":", "{}", "}"), false},
        {"513 mixed", nested(256, "[{\"k\":", "[1]", "}]"), false},
        {"100000 arrays", nested(100000, "[", "", "]"), false},
        {"100000 objects", nested(100000, "{\"a\":", "1", "}"), false},
        {"100000 unclosed", std::string(100000, '['), false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        Json::Error error;
        const auto v = Json::decode(c.text, {}, &error);
        EXPECT_EQ(v.has_value(), c.accepted) << error.message;
        if (!c.accepted) {
            EXPECT_NE(error.message.find("deeper than 512"), std::string::npos) << error.message;
        }
    }
    const auto deepest = Json::decode(nested(512, "[", "7", "]"));
    ASSERT_TRUE(deepest.has_value());
    const Value* v = &*deepest;
    for (int i = 0; i < 512; ++i) v = &(*v)[0];
    EXPECT_EQ(*v, Value(7));
}

TEST(JsonDecode, InvalidUtf8Fails) {
    const char* invalid[] = {
        "[\"\xC3\x28\"]",          // lead byte without continuation
        "[\"\xC0\xAF\"]",          // overlong '/'
        "[\"\xED\xA0\x80\"]",      // UTF-16 surrogate encoded in UTF-8
        "[\"\xF4\x90\x80\x80\"]",  // above U+10FFFF
        "[\"\xE2\x82\"]",          // truncated sequence
        "[\"\x80\"]",              // lone continuation byte
        "{\"\xFF\":1}",            // in a key
        "[\"\\ud800\"]",           // escaped lone surrogate
        "[\"\\udc00\\ud800\"]",    // escaped surrogates in the wrong order
        "[\"a\\ude3db\"]",         // escaped lone low surrogate
        "{\"\\udfff\":1}",         // the same in a key
    };
    for (const char* text : invalid) {
        SCOPED_TRACE(text);
        Json::Error error;
        EXPECT_FALSE(Json::decode(text, {}, &error).has_value());
        EXPECT_FALSE(error.message.empty());
    }
}

TEST(JsonDecode, RepeatedKeyKeepsLastValueAtFirstPlace) {
    const auto v = Json::decode(R"({"a":1,"b":2,"a":{"x":3},"c":4,"a":[5]})");
    ASSERT_TRUE(v.has_value());
    ASSERT_EQ(v->size(), 3U);
    EXPECT_EQ(v->asDictionary()->begin()->first, "a");
    EXPECT_EQ((*v)["a"], Value::array({5}));
    EXPECT_EQ(Json::encode(*v), R"({"a":[5],"b":2,"c":4})");
}

TEST(JsonDecode, NumberBoundaries) {
    const struct {
        const char* text;
        std::optional<Value> expected;  // nullopt: refused
        Value::Kind kind = Value::Kind::Integer;
        bool isUnsigned = false;
    } cases[] = {
        {"-9223372036854775808", Value(i64::min())},
        {"9223372036854775807", Value(i64::max())},
        {"9223372036854775808", Value(9223372036854775808ULL), Value::Kind::Integer, true},
        {"18446744073709551615", Value(u64::max()), Value::Kind::Integer, true},
        {"18446744073709551616", Value(18446744073709551616.0), Value::Kind::Real},
        {"-9223372036854775809", Value(-9223372036854775808.0), Value::Kind::Real},
        {"123456789012345678901234567890", Value(1.2345678901234568e29), Value::Kind::Real},
        {"-0", Value(0)},
        {"-0.0", Value(-0.0), Value::Kind::Real},
        {"1.0", Value(1.0), Value::Kind::Real},
        {"0.1", Value(0.1), Value::Kind::Real},
        {"2.2250738585072014e-308", Value(2.2250738585072014e-308), Value::Kind::Real},
        {"5e-324", Value(5e-324), Value::Kind::Real},
        {"1e-400", Value(0.0), Value::Kind::Real},
        {"-1e-400", Value(-0.0), Value::Kind::Real},
        {"0e300", Value(0.0), Value::Kind::Real},
        {"0.000000000000000000000000000000000000001e39", Value(1.0), Value::Kind::Real},
        {"1e308", Value(1e308), Value::Kind::Real},
        {"1.7976931348623157e308", Value(1.7976931348623157e308), Value::Kind::Real},
        {"1e309", std::nullopt},
        {"-1e309", std::nullopt},
        {"01", std::nullopt},
        {"+1", std::nullopt},
        {".5", std::nullopt},
        {"1.", std::nullopt},
        {"NaN", std::nullopt},
        {"Infinity", std::nullopt},
        {"0x10", std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const auto v = decodeFragment(c.text);
        ASSERT_EQ(v.has_value(), c.expected.has_value());
        if (!v) continue;
        EXPECT_EQ(v->kind(), c.kind);
        EXPECT_EQ(v->isUnsigned(), c.isUnsigned);
        EXPECT_EQ(*v, *c.expected);
        if (v->isReal()) {
            // Bit-exact, sign of zero included.
            EXPECT_EQ(v->doubleValue(), c.expected->doubleValue());
            EXPECT_EQ(std::signbit(v->doubleValue()), std::signbit(c.expected->doubleValue()));
        }
    }
}

TEST(JsonDecode, ErrorsCarryTheOffset) {
    const struct {
        std::string text;
        std::size_t offset;
    } cases[] = {
        {"[1,]", 3},
        {"{\"a\" 1}", 5},
        {"{} x", 3},
        {"{}{}", 2},
        {std::string("{}\0", 3), 2},
        {std::string("[1\0]", 4), 2},
        {"", 0},
        {"   ", 3},
        {"\xEF\xBB\xBF[", 4},  // offsets count the byte-order mark
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        Json::Error error;
        EXPECT_FALSE(Json::decode(c.text, {.allowFragments = true}, &error).has_value());
        EXPECT_EQ(error.offset, c.offset);
        EXPECT_NE(error.message.find("offset " + std::to_string(c.offset)), std::string::npos) << error.message;
    }
}

TEST(JsonDecode, BytesAndByteOrderMark) {
    const std::string text = "\xEF\xBB\xBF {\"k\": [true, null]} \n";
    const Data bytes(text.begin(), text.end());
    const auto v = Json::decode(bytes);
    ASSERT_TRUE(v.has_value());
    EXPECT_EQ(*v, Value::dictionary({{"k", Value::array({true, Value::null()})}}));
    EXPECT_TRUE((*v)["k"][1].isNull());
    EXPECT_TRUE((*v)["k"][2].isAbsent());
    EXPECT_FALSE(Json::decode(Data{}).has_value());
}

TEST(JsonStrings, EscapesAndNonAsciiText) {
    const auto v = Json::decode(R"(["a\"b\\c\/d\b\f\n\r\t\u0001\u00e9\u4e2d\ud83d\ude00", "é中😀", "a\u0000b"])");
    ASSERT_TRUE(v.has_value());
    EXPECT_EQ((*v)[0], Value("a\"b\\c/d\b\f\n\r\t\x01\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80"));
    EXPECT_EQ((*v)[1], Value("\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80"));
    EXPECT_EQ((*v)[2], Value(std::string("a\0b", 3)));
    // Control characters and quotes are escaped; other text is written as UTF-8 as it is.
    EXPECT_EQ(Json::encode(*v),
              "[\"a\\\"b\\\\c/d\\b\\f\\n\\r\\t\\u0001\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80\","
              "\"\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80\",\"a\\u0000b\"]");
    EXPECT_EQ(Json::decode(*Json::encode(*v)), v);
}

// --- encoding ---------------------------------------------------------------------------------------

Value sample() {
    return Value::dictionary({
        {"name", "nb"},
        {"n", 1},
        {"big", Value(u64::max())},
        {"min", Value(i64::min())},
        {"pi", 3.14},
        {"whole", 2.0},
        {"tiny", 1e-7},
        {"on", true},
        {"off", false},
        {"nil", Value::null()},
        {"list", Value::array({1, "two", Value(Value::Array{}), Value(Value::Dictionary{})})},
        {"nested", Value::dictionary({{"k", Value::array({Value::dictionary({{"x", -0.5}})})}})},
    });
}

TEST(JsonEncode, CompactAndPrettyRoundTrip) {
    const Value v = sample();
    const auto compact = Json::encode(v);
    ASSERT_TRUE(compact.has_value());
    EXPECT_EQ(*compact,
              R"({"name":"nb","n":1,"big":18446744073709551615,"min":-9223372036854775808,"pi":3.14,"whole":2.0,)"
              R"("tiny":1e-7,"on":true,"off":false,"nil":null,"list":[1,"two",[],{}],"nested":{"k":[{"x":-0.5}]}})");

    const auto pretty = Json::encode(v, Json::Style::Pretty);
    ASSERT_TRUE(pretty.has_value());
    EXPECT_EQ(*pretty, R"({
  "name": "nb",
  "n": 1,
  "big": 18446744073709551615,
  "min": -9223372036854775808,
  "pi": 3.14,
  "whole": 2.0,
  "tiny": 1e-7,
  "on": true,
  "off": false,
  "nil": null,
  "list": [
    1,
    "two",
    [],
    {}
  ],
  "nested": {
    "k": [
      {
        "x": -0.5
      }
    ]
  }
})");

    for (const std::string& text : {*compact, *pretty}) {
        const auto back = Json::decode(text);
        ASSERT_TRUE(back.has_value());
        EXPECT_EQ(*back, v);
        // Kinds survive, not just values: 2.0 stays a real, true stays a bool, the big one unsigned.
        EXPECT_TRUE((*back)["whole"].isReal());
        EXPECT_TRUE((*back)["on"].isBool());
        EXPECT_TRUE((*back)["big"].isUnsigned());
        EXPECT_EQ(Json::encode(*back), compact);
    }
}

TEST(JsonEncode, RealsReadBackBitExact) {
    const double reals[] = {0.1, 0.1 + 0.2, 1.0 / 3, 5e-324, 2.2250738585072014e-308, 1.7976931348623157e308,
                            -0.0, 123456789.123456789, 9007199254740993.0, 1e21, 1e-7};
    for (const double d : reals) {
        SCOPED_TRACE(d);
        const auto text = Json::encode(Value::array({d}));
        ASSERT_TRUE(text.has_value());
        const auto back = Json::decode(*text);
        ASSERT_TRUE(back.has_value());
        ASSERT_TRUE((*back)[0].isReal()) << *text;
        EXPECT_EQ((*back)[0].doubleValue(), d);
        EXPECT_EQ(std::signbit((*back)[0].doubleValue()), std::signbit(d));
    }
}

TEST(JsonEncode, RefusesWhatJsonCannotHold) {
    Value withDate = sample();
    Value items = Value::array({1, 2, 3, Value::dictionary({{"created", Value(Date{1.5})}})});
    withDate.set("items", items);
    Value withAbsent;
    withAbsent.mutableArray().push_back(Value());
    Value badKey;
    badKey.set("\xC3\x28", 1);

    const struct {
        const char* label;
        Value value;
        const char* message;
    } cases[] = {
        {"absent", Value(), "an absent"},
        {"data", Value(Data{1}), "a data"},
        {"date", Value(Date{0}), "a date"},
        {"nan", std::numeric_limits<double>::quiet_NaN(), "non-finite"},
        {"infinity", std::numeric_limits<double>::infinity(), "non-finite"},
        {"negative infinity", -std::numeric_limits<double>::infinity(), "non-finite"},
        {"invalid utf-8", Value("\xED\xA0\x80"), "not UTF-8"},
        {"invalid key", badKey, "key that is not UTF-8"},
        {"absent inside array", withAbsent, "an absent at [0]"},
        {"deep date", withDate, "a date at items[3].created"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        for (const auto style : {Json::Style::Compact, Json::Style::Pretty}) {
            Json::Error error;
            EXPECT_FALSE(Json::encode(c.value, style, &error).has_value());
            EXPECT_NE(error.message.find(c.message), std::string::npos) << error.message;
        }
    }
}

TEST(JsonEncode, DepthLimitMatchesDecoding) {
    Value v = Value::array({"leaf"});
    for (int i = 1; i < 512; ++i) v = Value::array({v});
    ASSERT_TRUE(Json::encode(v).has_value());
    Json::Error error;
    EXPECT_FALSE(Json::encode(Value::array({v}), Json::Style::Compact, &error).has_value());
    EXPECT_NE(error.message.find("deeper than 512"), std::string::npos) << error.message;
}

}  // namespace
}  // namespace nb
