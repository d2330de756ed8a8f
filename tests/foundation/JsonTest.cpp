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
using Kind = Value::Kind;

std::optional<Value> decodeFragment(std::string_view text) { return Json::decode(text, {.allowFragments = true}); }

std::string nested(std::size_t depth, std::string_view open, std::string_view inner, std::string_view close) {
    std::string s;
    for (std::size_t i = 0; i < depth; ++i) s += open;
    s += inner;
    for (std::size_t i = 0; i < depth; ++i) s += close;
    return s;
}

void expectSameReal(double actual, double expected) {
    EXPECT_EQ(actual, expected);
    EXPECT_EQ(std::signbit(actual), std::signbit(expected));
}

TEST(JsonDecode, BareValuesOnlyWithFragments) {
    const std::pair<const char*, Value> cases[] = {{"12", 12}, {"\"text\"", "text"}, {" null ", Value::null()},
                                                   {"true", true}, {"-1.5", -1.5}, {"{}", Value(Value::Dictionary{})},
                                                   {" [ ] ", Value(Value::Array{})}};
    for (const auto& [text, expected] : cases) {
        SCOPED_TRACE(text);
        const bool container = expected.isArray() || expected.isDictionary();
        Json::Error error;
        EXPECT_EQ(Json::decode(text, {}, &error).has_value(), container);
        EXPECT_TRUE(container || error.message.find("bare value") != std::string::npos) << error.message;
        const auto lenient = decodeFragment(text);
        ASSERT_TRUE(lenient.has_value());
        EXPECT_EQ(lenient->kind(), expected.kind());
        EXPECT_EQ(*lenient, expected);
    }
}

TEST(JsonDecode, NestingLimit) {
    const std::pair<std::string, bool> cases[] = {
        {nested(512, "[", "", "]"), true}, {nested(513, "[", "", "]"), false},
        {nested(511, "{\"a\":", "{}", "}"), true}, {nested(512, "{\"a\":", "{}", "}"), false},
        {nested(256, "[{\"k\":", "[1]", "}]"), false}, {nested(100000, "[", "", "]"), false},
        {nested(100000, "{\"a\":", "1", "}"), false}, {std::string(100000, '['), false}};
    for (const auto& [text, accepted] : cases) {
        SCOPED_TRACE(text.substr(0, 8) + " of " + std::to_string(text.size()));
        Json::Error error;
        EXPECT_EQ(Json::decode(text, {}, &error).has_value(), accepted) << error.message;
        EXPECT_TRUE(accepted || error.message.find("deeper than 512") != std::string::npos) << error.message;
    }
    const auto deepest = Json::decode(nested(512, "[", "7", "]"));
    ASSERT_TRUE(deepest.has_value());
    const Value* v = &*deepest;
    for (int i = 0; i < 512; ++i) v = &(*v)[0];
    EXPECT_EQ(*v, Value(7));
}

TEST(JsonDecode, InvalidUtf8Fails) {
    // Missing continuation, overlong, encoded surrogate, above U+10FFFF, truncated, lone continuation, in a
    // key; then escaped surrogates that do not pair, in strings and keys.
    const char* invalid[] = {"[\"\xC3\x28\"]", "[\"\xC0\xAF\"]", "[\"\xED\xA0\x80\"]", "[\"\xF4\x90\x80\x80\"]",
                             "[\"\xE2\x82\"]", "[\"\x80\"]", "{\"\xFF\":1}", "[\"\\ud800\"]", "[\"\\udc00\\ud800\"]",
                             "[\"a\\ude3db\"]", "{\"\\udfff\":1}"};
    for (const char* text : invalid) {
        Json::Error error;
        EXPECT_FALSE(Json::decode(text, {}, &error).has_value()) << text;
        EXPECT_FALSE(error.message.empty());
    }
}

TEST(JsonDecode, RepeatedKeyKeepsLastValueAtFirstPlace) {
    const auto v = Json::decode(R"({"a":1,"b":2,"a":{"x":3},"c":4,"a":[5]})");
    ASSERT_TRUE(v.has_value());
    EXPECT_EQ(Json::encode(*v), R"({"a":[5],"b":2,"c":4})");
}

TEST(JsonDecode, MemberIsWhatTheWholeDecodeHoldsThere) {
    // decodeMember skips building the rest, not checking it: any text decode refuses gives nothing.
    const char* texts[] = {R"({"a":[1,{"b":[null,true,"x"]}],"c":2})", R"({"a":1,"a":{"x":[2]},"c":[3],"a":"last"})",
                           R"({"c":{"a":1},"a":{}})", R"([{"a":1}])", R"("a")", "7", R"({"a":1} x)",
                           R"({"a":[1],"c":[)", R"({"a":1,"c":"\udc00"})", R"({"a":1e999})"};
    for (const char* text : texts) {
        for (const char* key : {"a", "c", "x"}) {
            SCOPED_TRACE(std::string(text) + " / " + key);
            const auto whole = decodeFragment(text);
            const auto member = Json::decodeMember(text, key, {.allowFragments = true});
            ASSERT_EQ(member.has_value(), whole.has_value());
            if (!member) continue;
            EXPECT_EQ(member->kind(), (*whole)[key].kind());
            EXPECT_EQ(*member, (*whole)[key]);
        }
    }
    EXPECT_FALSE(Json::decodeMember("7", "a").has_value());  // fragments follow the options as in decode
}

TEST(JsonDecode, NumberBoundaries) {
    const struct {
        const char* text;
        std::optional<Value> expected;  // nullopt: refused
        Kind kind = Kind::Real;
        bool isUnsigned = false;
    } cases[] = {
        {"-9223372036854775808", Value(i64::min()), Kind::Integer}, {"9223372036854775807", Value(i64::max()), Kind::Integer},
        {"9223372036854775808", Value(9223372036854775808ULL), Kind::Integer, true},
        {"18446744073709551615", Value(u64::max()), Kind::Integer, true},
        {"18446744073709551616", Value(18446744073709551616.0)}, {"-9223372036854775809", Value(-9223372036854775808.0)},
        {"123456789012345678901234567890", Value(1.2345678901234568e29)}, {"-0", Value(0), Kind::Integer},
        {"-0.0", Value(-0.0)}, {"1.0", Value(1.0)}, {"0.1", Value(0.1)},
        {"2.2250738585072014e-308", Value(2.2250738585072014e-308)}, {"5e-324", Value(5e-324)},
        {"1e-400", Value(0.0)}, {"-1e-400", Value(-0.0)}, {"0e300", Value(0.0)},
        {"0.000000000000000000000000000000000000001e39", Value(1.0)}, {"1e308", Value(1e308)},
        {"1.7976931348623157e308", Value(1.7976931348623157e308)}, {"1e309", std::nullopt}, {"-1e309", std::nullopt},
        {"01", std::nullopt}, {"+1", std::nullopt}, {".5", std::nullopt}, {"1.", std::nullopt},
        {"NaN", std::nullopt}, {"Infinity", std::nullopt}, {"0x10", std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const auto v = decodeFragment(c.text);
        ASSERT_EQ(v.has_value(), c.expected.has_value());
        if (!v) continue;
        EXPECT_EQ(v->kind(), c.kind);
        EXPECT_EQ(v->isUnsigned(), c.isUnsigned);
        EXPECT_EQ(*v, *c.expected);
        if (v->isReal()) expectSameReal(v->doubleValue(), c.expected->doubleValue());
    }
}

TEST(JsonDecode, ErrorsCarryTheOffset) {
    // Offsets count the byte-order mark.
    const std::pair<std::string, std::size_t> cases[] = {
        {"[1,]", 3}, {"{\"a\" 1}", 5}, {"{} x", 3}, {"{}{}", 2}, {std::string("{}\0", 3), 2},
        {std::string("[1\0]", 4), 2}, {"", 0}, {"   ", 3}, {"\xEF\xBB\xBF[", 4}};
    for (const auto& [text, offset] : cases) {
        Json::Error error;
        EXPECT_FALSE(Json::decode(text, {.allowFragments = true}, &error).has_value()) << text;
        EXPECT_EQ(error.offset, offset) << text;
        EXPECT_NE(error.message.find("offset " + std::to_string(offset)), std::string::npos) << error.message;
    }
    const std::string text = "\xEF\xBB\xBF {\"k\": [true, null]} \n";
    EXPECT_EQ(Json::decode(Data(text.begin(), text.end())),
              Value::dictionary({{"k", Value::array({true, Value::null()})}}));
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
}

TEST(JsonEncode, CompactAndPrettyRoundTrip) {
    const Value v = Value::dictionary({
        {"name", "nb"}, {"n", 1}, {"big", Value(u64::max())}, {"min", Value(i64::min())}, {"pi", 3.14},
        {"whole", 2.0}, {"tiny", 1e-7}, {"on", true}, {"off", false}, {"nil", Value::null()},
        {"list", Value::array({1, "two", Value(Value::Array{}), Value(Value::Dictionary{})})},
        {"nested", Value::dictionary({{"k", Value::array({Value::dictionary({{"x", -0.5}})})}})},
    });
    const auto compact = Json::encode(v);
    ASSERT_TRUE(compact.has_value());
    EXPECT_EQ(*compact,
              R"({"name":"nb","n":1,"big":18446744073709551615,"min":-9223372036854775808,"pi":3.14,"whole":2.0,)"
              R"("tiny":1e-7,"on":true,"off":false,"nil":null,"list":[1,"two",[],{}],"nested":{"k":[{"x":-0.5}]}})");
    const auto pretty = Json::encode(v, Json::Style::Pretty);
    ASSERT_TRUE(pretty.has_value());
    EXPECT_NE(pretty->find("\n  \"list\": [\n    1,\n    \"two\",\n    [],\n    {}\n  ],\n"), std::string::npos);
    EXPECT_NE(pretty->find("\n  \"nested\": {\n    \"k\": [\n      {\n        \"x\": -0.5\n      }\n    ]\n  }\n}"),
              std::string::npos) << *pretty;
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
    for (const double d : {0.1, 0.1 + 0.2, 1.0 / 3, 5e-324, 2.2250738585072014e-308, 1.7976931348623157e308, -0.0,
                           123456789.123456789, 9007199254740993.0, 1e21, 1e-7}) {
        const auto back = Json::decode(*Json::encode(Value::array({d})));
        ASSERT_TRUE(back.has_value() && (*back)[0].isReal()) << d;
        expectSameReal((*back)[0].doubleValue(), d);
    }
}

TEST(JsonEncode, RefusesWhatJsonCannotHold) {
    Value withDate = Value::dictionary({{"items", Value::array({1, 2, 3, Value::dictionary({{"created", Value(Date{1.5})}})})}});
    Value withAbsent, badKey, deep = Value::array({"leaf"});
    withAbsent.mutableArray().push_back(Value());
    badKey.set("\xC3\x28", 1);
    for (int i = 1; i < 512; ++i) deep = Value::array({deep});
    ASSERT_TRUE(Json::encode(deep).has_value());

    const std::pair<Value, const char*> cases[] = {
        {Value(), "an absent"}, {Value(Data{1}), "a data"}, {Value(Date{0}), "a date"},
        {std::numeric_limits<double>::quiet_NaN(), "non-finite"}, {std::numeric_limits<double>::infinity(), "non-finite"},
        {-std::numeric_limits<double>::infinity(), "non-finite"}, {Value("\xED\xA0\x80"), "not UTF-8"},
        {badKey, "key that is not UTF-8"}, {withAbsent, "an absent at [0]"}, {withDate, "a date at items[3].created"},
        {Value::array({deep}), "deeper than 512"}};
    for (const auto& [value, message] : cases) {
        for (const auto style : {Json::Style::Compact, Json::Style::Pretty}) {
            Json::Error error;
            EXPECT_FALSE(Json::encode(value, style, &error).has_value()) << message;
            EXPECT_NE(error.message.find(message), std::string::npos) << error.message;
        }
    }
}

}  // namespace
}  // namespace nb
