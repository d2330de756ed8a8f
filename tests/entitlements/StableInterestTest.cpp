#include "nbbase/entitlements/StableInterest.h"

#include <gtest/gtest.h>

#include <string>

#include "nbbase/foundation/Json.h"

namespace nb {
namespace {

Value json(const std::string& text) { return Json::decode(text, {.allowFragments = true}).value_or(Value()); }

TEST(StableInterestTest, BaseInterestFollowsKeyPresenceAndConverts) {
    struct Case {
        const char* reply;
        Value fps, frame;
        std::int32_t hangup;
    };
    const Value none;
    const Value empty(Value::Array{});
    const Case cases[] = {
        {R"({})", none, none, 0},
        {R"({"fps": [30, 60], "frame": [], "hang_up": 1})", json("[30, 60]"), empty, 1},
        {R"({"fps": "60", "frame": {"a": 1}, "hang_up": "1x"})", empty, empty, 1},  // wrong kinds convert
        {R"({"fps": null, "hang_up": {"n": 1}})", empty, none, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.reply);
        const auto interest = StableInterest::fromDictionary(json(c.reply));
        EXPECT_EQ(interest->fpsAttr(), c.fps);
        EXPECT_EQ(interest->fpsAttr().kind(), c.fps.kind());
        EXPECT_EQ(interest->frameAttr().kind(), c.frame.kind());
        EXPECT_EQ(interest->hangup(), c.hangup);
        EXPECT_EQ(interest->type(), 0);
    }
    EXPECT_EQ(StableInterest::fromDictionary(json("[1, 2]"))->fpsAttr().kind(), Value::Kind::Absent);
    for (std::int32_t type = -1; type <= 8; ++type) {
        EXPECT_EQ(StableInterest::isMonitoredType(type), type == 4 || type == 5 || type == 7) << type;
    }
}

TEST(StableInterestTest, AttributeFromExtraData) {
    struct Case {
        const char* text;
        const char* key;
        Value expected;
    };
    const Case cases[] = {
        {"", "fps", Value()},
        {"not json", "fps", Value()},
        {R"({})", "fps", Value(Value::Array{})},
        {R"({"fps": 60})", "fps", json("[60]")},
        {R"({"fps": [30, 60.5]})", "fps", json("[30, 60.5]")},
        {R"({"fps": "60"})", "fps", Value(Value::Array{})},  {R"({"frame": [3]})", "fps", Value(Value::Array{})},
        {R"([{"fps": 60}])", "fps", Value(Value::Array{})}, {"60", "fps", Value(Value::Array{})},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const Value attr = StableInterest::arrayFromExtraData(c.text, c.key);
        EXPECT_EQ(attr.kind(), c.expected.kind());
        EXPECT_EQ(attr, c.expected);
    }
}

TEST(StableInterestTest, IdleLimitsFromExtraData) {
    EXPECT_TRUE(StableInterest::maxOnHookInfoFromExtraData("").isAbsent());
    EXPECT_TRUE(StableInterest::maxOnHookInfoFromExtraData("[").isAbsent());
    EXPECT_EQ(StableInterest::maxOnHookInfoFromExtraData(R"({"game_id": 1})"), Value(Value::Dictionary{}));
    const Value limits = StableInterest::maxOnHookInfoFromExtraData(
        R"([{"game_id": "1234", "max_on_hook_time": 600}, {"game_id": 77}, 5,
            {"game_id": 1234, "max_on_hook_time": 1800}, {"game_id": "9", "max_on_hook_time": "60"}])");
    EXPECT_EQ(limits, json(R"({"1234": 1800, "9": "60"})"));  // the later 1234 wins, values as sent
}

}  // namespace
}  // namespace nb
