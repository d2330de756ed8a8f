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
    EXPECT_FALSE(StableInterest::maxOnHookInfoFromExtraData(""));
    EXPECT_FALSE(StableInterest::maxOnHookInfoFromExtraData("["));
    EXPECT_TRUE(StableInterest::maxOnHookInfoFromExtraData(R"({"game_id": 1})")->empty());
    const auto limits = StableInterest::maxOnHookInfoFromExtraData(
        R"([{"game_id": "1234", "max_on_hook_time": 600}, {"game_id": 77}, 5,
            {"game_id": 1234, "max_on_hook_time": 1800}, {"game_id": "9", "max_on_hook_time": "60"},
            {"game_id": "1234", "max_on_hook_time": 900}, {"game_id": 9.0, "max_on_hook_time": 30}])");
    ASSERT_TRUE(limits);
    // A game id keeps its JSON kind: the text "1234" and the number 1234 are two games. Within one kind the
    // later element wins, and numbers match by value.
    EXPECT_EQ(limits->size(), 4U);
    EXPECT_EQ(*limits->find(Value("1234")), Value(900));
    EXPECT_EQ(*limits->find(Value(1234)), Value(1800));
    EXPECT_EQ(*limits->find(Value(1234.0)), Value(1800));
    EXPECT_EQ(*limits->find(Value("9")), Value("60"));  // values as sent
    EXPECT_EQ(*limits->find(Value(9)), Value(30));
    EXPECT_EQ(limits->find(Value(77)), nullptr);
    EXPECT_EQ(limits->find(Value(true)), nullptr);
    EXPECT_EQ(limits->entries().front().first, Value("1234"));  // first-seen order
}

}  // namespace
}  // namespace nb
