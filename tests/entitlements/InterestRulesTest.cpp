#include "nbbase/entitlements/InterestRules.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "nbbase/foundation/Json.h"

namespace nb {
namespace {

// Base interests: level 1 gives 30 and 60 fps and quality up to 2, level 2 adds 60..120 fps and quality 4.
const char* const kLevels = R"({
    "0": {"fps": [30], "frame": [0, 1], "hang_up": 0},
    "1": {"fps": [30, 60], "frame": [0, 1, 2], "hang_up": 1},
    "2": {"fps": [30, 60, 90, 120], "frame": [0, 1, 2, 3, 4], "hang_up": 1}})";

Value json(const std::string& text) {
    auto value = Json::decode(text);
    EXPECT_TRUE(value) << text;
    return value.value_or(Value());
}

// Rules on the "data" of an interests reply, at a level, with the base interests above and the trial
// flags computed as a parse would.
InterestRules rulesFor(const std::string& data, std::int64_t level = 1, const char* levels = kLevels) {
    InterestsSnapshot snapshot;
    snapshot.applyStableInterests(json(levels));
    snapshot.applyInterests(json(data), InterestsSnapshot::ReplyForm::Full);
    snapshot.applyTriableFlags(level);
    return InterestRules(std::make_shared<const InterestsSnapshot>(std::move(snapshot)), level);
}

std::string held(int type, long long endTime, const std::string& extra) {
    return R"({"type": )" + std::to_string(type) + R"(, "end_time": )" + std::to_string(endTime) +
           R"(, "extra_data": ")" + extra + R"("})";
}

std::string offer(int type, long long endTime, int property, const std::string& extra, const std::string& id = "p") {
    return R"({"type": )" + std::to_string(type) + R"(, "end_time": )" + std::to_string(endTime) +
           R"(, "property": )" + std::to_string(property) + R"(, "product_id": ")" + id + R"(", "extra_data": ")" +
           extra + R"("})";
}

std::string reply(long long ts, const std::string& having, const std::string& offered = "") {
    return R"({"timestamp": )" + std::to_string(ts) + R"(, "having": [)" + having + R"(], "available_present": [)" +
           offered + "]}";
}

const std::string kFps30and60 = R"({\"fps\": [30, 60]})";

TEST(InterestRulesTest, ValuesAndLevels) {
    EXPECT_EQ(InterestRules::maxValueOfArray(json("[-5]")), 0);
    EXPECT_EQ(InterestRules::maxValueOfArray(json(R"([3, "7", 5.9])")), 7);
    EXPECT_EQ(InterestRules::maxValueOfArray(json(R"({"a": 9})")), 0);
    EXPECT_EQ(InterestRules::orderByDesending(json(R"([30, 120, "60"])")), json(R"([120, "60", 30])"));
    EXPECT_TRUE(InterestRules::containsKey(Value(60.0), json("[30, 60]")));
    EXPECT_FALSE(InterestRules::containsKey(Value(60), json(R"({"60": 60})")));

    const auto rules = rulesFor(reply(100, ""));
    EXPECT_EQ(rules.getPropertyByFps(60), 1);  // listed by levels 1 and 2: the lowest wins
    EXPECT_EQ(rules.getPropertyByFps(120), 2);
    EXPECT_EQ(rules.getPropertyByFps(144), 0);
    EXPECT_EQ(rules.getPropertyByFrame(4), 2);

    // Idle play is searched from the top: both paid levels include it, so a held right is an SVIP one.
    HavingInterest idle;
    idle.setType(StableInterest::kTypeHangup);
    idle.setHangup(1);
    EXPECT_EQ(rules.getPropertyByInterest(idle), 2);
    idle.setHangup(0);
    EXPECT_EQ(rules.getPropertyByInterest(idle), 0);
    idle.setType(3);
    EXPECT_EQ(rules.getPropertyByInterest(idle), 0);
}

TEST(InterestRulesTest, WhatTheUserMayUseNow) {
    // A VIP's level gives 60 whatever he holds; a live held [30, 60] reaches 45, until the server time
    // reaches its end.
    EXPECT_TRUE(rulesFor(reply(100, ""), 1).hasFpsInterest(60));
    EXPECT_FALSE(rulesFor(reply(100, ""), 0).hasFpsInterest(60));
    EXPECT_TRUE(rulesFor(reply(100, held(7, 101, kFps30and60)), 0).hasFpsInterest(45));
    EXPECT_FALSE(rulesFor(reply(100, held(7, 100, kFps30and60)), 0).hasFpsInterest(45));
    EXPECT_FALSE(rulesFor(reply(100, held(7, 101, kFps30and60)), 0).hasFpsInterest(90));
    // Only the first held record of a type counts.
    const auto twoQuality = rulesFor(reply(100, held(4, 50, R"({\"frame\": [4]})") + "," +
                                                    held(4, 500, R"({\"frame\": [4]})")),
                                      0);
    EXPECT_FALSE(twoQuality.hasPictureQualityFrameInterest(3));
    EXPECT_TRUE(twoQuality.pictureQualityTriableInterestEnd());
    EXPECT_FALSE(rulesFor(reply(100, ""), 0).pictureQualityTriableInterestEnd());
}

TEST(InterestRulesTest, OffersThatWouldUnlockMore) {
    // Two SVIP offers both reach 90: a client shows both, so 90 is listed twice. An offer reaches up to its
    // first rate only, so the second does not unlock 120.
    const std::string offers =
        offer(7, 900, 2, R"({\"fps\": [120]})", "a") + "," + offer(7, 900, 2, R"({\"fps\": [90, 120]})", "b") + "," +
        offer(7, 900, 1, R"({\"fps\": [120]})", "c") + "," + offer(4, 900, 2, R"({\"frame\": [2, 3]})", "q") + "," +
        offer(4, 900, 2, R"({\"frame\": [1, 2]})", "r");
    const auto rules = rulesFor(reply(100, held(7, 200, kFps30and60), offers));
    EXPECT_EQ(rules.fpsAvailableInterests(json("[30, 60, 90, 120, 144]")), json("[90, 90, 120]"));
    EXPECT_EQ(rules.getTriableInterestByFps(90)->productId(), Value("a"));
    EXPECT_EQ(rules.getTriableInterestByFps(144), nullptr);
    // Quality 2 is the VIP level's own, so only the offer reaching 3 raises it.
    const auto quality = rules.pictureQualityAvailableInterests();
    ASSERT_EQ(quality.size(), 1U);
    EXPECT_EQ(quality[0]->productId(), Value("q"));
    // A live held quality of 3 leaves nothing to gain.
    EXPECT_TRUE(rulesFor(reply(100, held(4, 200, R"({\"frame\": [3]})"), offers))
                    .pictureQualityAvailableInterests()
                    .empty());
}

TEST(InterestRulesTest, WhenTheHeldTrialEnds) {
    const std::string quality3 = held(4, 300, R"({\"frame\": [1, 3]})");  // 3 is beyond a VIP's level
    const std::string fps120 = held(7, 300, R"({\"fps\": [120]})");
    const auto expiry = [](const InterestRules& rules) { return rules.pictureQualityAndFpsInterestExpiredTime(); };
    EXPECT_TRUE(expiry(rulesFor(reply(100, ""))).isAbsent());
    EXPECT_EQ(expiry(rulesFor(reply(100, held(7, 300, kFps30and60)))), json(R"({"endTime": 0, "svip": false})"));
    EXPECT_EQ(expiry(rulesFor(reply(100, quality3))), json(R"({"endTime": 300, "svip": true})"));
    // The later end wins; on a tie the quality right's answer stays.
    EXPECT_EQ(expiry(rulesFor(reply(100, quality3 + "," + held(7, 400, R"({\"fps\": [90]})")))),
              json(R"({"endTime": 400, "svip": true})"));
    EXPECT_EQ(expiry(rulesFor(reply(100, held(4, 300, R"({\"frame\": [3]})") + "," + fps120))),
              json(R"({"endTime": 300, "svip": true})"));

    const auto trial = rulesFor(reply(100, quality3));
    EXPECT_EQ(trial.isInterestsTriable(*trial.getHavingInterest(4)), json(R"({"isTry": true, "frame": 3})"));
    // Without a base interest for the level nothing counts as a trial.
    const auto noBase = rulesFor(reply(100, quality3 + "," + fps120), 1, R"({"0": {}})");
    EXPECT_EQ(noBase.isInterestsTriable(*noBase.getHavingInterest(4)), json(R"({"isTry": false, "frame": 0})"));
    EXPECT_EQ(noBase.isInterestsTriable(*noBase.getHavingInterest(7)), json(R"({"isTry": false, "frame": 0})"));
}

TEST(InterestRulesTest, NextCheckTimerPicksTheFirstEnd) {
    struct Case {
        const char* name;
        std::string having, offered;
        long long endTime;
        int type;
        bool isHaving, isTry;
    };
    const std::string fps = R"({\"fps\": [120]})";
    const Case cases[] = {
        {"an offer ends first", held(7, 200, fps) + "," + held(7, 100, fps), offer(7, 50, 2, fps), 50, 7, false, true},
        {"held tie: first in list", held(7, 100, fps) + "," + held(4, 100, R"({\"frame\": [1]})"), "", 100, 7, true,
         true},
        {"held beats offered on a tie", held(4, 100, R"({\"frame\": [1]})"), offer(7, 100, 2, fps), 100, 4, true,
         false},
        {"unmonitored and endless ignored", held(2, 10, "") + "," + held(7, 0, fps), offer(3, 20, 0, ""), 0, 0, false,
         false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const Value timer = rulesFor(reply(1000, c.having, c.offered)).getNextCheckInterestsInfoTimerElapse();
        EXPECT_EQ(timer["endTime"], Value(c.endTime));
        EXPECT_EQ(timer["elapse"], Value(c.endTime - 1000));  // -currentTS when nothing is monitored
        EXPECT_EQ(timer["type"], Value(c.type));
        EXPECT_EQ(timer["isHaving"], Value(c.isHaving));
        EXPECT_EQ(timer["isTry"], Value(c.isTry));
        EXPECT_EQ(timer.size(), 6U);
    }
    // A server time near the int64 limit makes no overflow: elapse stops at the limit.
    const Value extreme = rulesFor(R"({"timestamp": -9223372036854775808})").getNextCheckInterestsInfoTimerElapse();
    EXPECT_EQ(extreme["elapse"], Value(std::numeric_limits<long long>::max()));
}

TEST(InterestRulesTest, IdleLimitsPerGame) {
    const std::string limits =
        R"([{\"game_id\": \"1234\", \"max_on_hook_time\": 1800}, {\"game_id\": 77, \"max_on_hook_time\": \"60\"}])";
    const std::string notHeld = R"({"type": 5, "extra_data": "[{\"game_id\": \"1234\", \"max_on_hook_time\": 600}]"})";
    const auto rules = rulesFor(R"({"having": [)" +
                                held(5, 900, R"([{\"game_id\": \"9\", \"max_on_hook_time\": 5}])") + "," +
                                held(5, 900, limits) + R"(], "no_having": [)" + notHeld + "]}");
    EXPECT_EQ(rules.maxHangupTimeInSec(Value("1234"), true), 1800);  // the first record naming the game
    EXPECT_EQ(rules.maxHangupTimeInSec(Value("1234"), false), 600);
    EXPECT_EQ(rules.maxHangupTimeInSec(Value(77), true), 60);
    EXPECT_EQ(rules.maxHangupTimeInSec(Value("77"), true), 0);
    EXPECT_EQ(rules.maxHangupTimeInSec(Value("9"), false), 0);  // not read from the held list
    EXPECT_TRUE(rules.isCurrentHangupInterestTriable() == false);  // VIP includes idle play
    EXPECT_TRUE(rulesFor(R"({"having": [)" + held(5, 900, "") + "]}", 0).isCurrentHangupInterestTriable());
}

// Servers have sent every kind where another was expected; the rules read them by Value's conversions.
TEST(InterestRulesTest, WrongKindsNeverFail) {
    const auto rules = rulesFor(R"({"timestamp": "100", "having": [7, {"type": 7, "end_time": "300",
        "extra_data": {"fps": [60]}}, {"type": 4, "extra_data": "{\"frame\": \"3\"}"}],
        "available_present": {"type": 7}, "no_having": [{"type": 5, "extra_data": 5}]})", 2,
                                R"({"2": {"fps": "120", "frame": {"a": 1}, "hang_up": [1]}})");
    const auto& s = rules.snapshot();
    EXPECT_EQ(s.currentTS, 100);
    ASSERT_EQ(s.havingInterests->size(), 3U);
    EXPECT_EQ(s.havingInterests->at(0)->type(), 0);  // a number is no record, but still takes its place
    EXPECT_TRUE(s.havingInterests->at(1)->fpsAttr().isAbsent());  // "extra_data" must be text
    EXPECT_EQ(s.havingInterests->at(2)->frameAttr(), Value(Value::Array{}));
    EXPECT_TRUE(s.availableIntrests->empty());
    EXPECT_FALSE(rules.hasFpsInterest(120));
    EXPECT_EQ(rules.fpsAvailableInterests(Value("60")), Value(Value::Array{}));
    EXPECT_EQ(rules.getNextCheckInterestsInfoTimerElapse()["endTime"], Value(300));
    EXPECT_EQ(rules.maxHangupTimeInSec(Value("1"), false), 0);
}

}  // namespace
}  // namespace nb
