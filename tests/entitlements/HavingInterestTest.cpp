#include "nbbase/entitlements/HavingInterest.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "nbbase/entitlements/NoHavingInterest.h"
#include "nbbase/foundation/Json.h"

namespace nb {
namespace {

Value json(const std::string& text) { return Json::decode(text).value_or(Value()); }

TEST(HavingInterestTest, AttributesFollowTheType) {
    const Value frame = json(R"({"type": 4, "end_time": 1795259200, "extra_data": "{\"frame\": [2, 3]}"})");
    const auto h4 = HavingInterest::fromDictionary(frame);
    EXPECT_EQ(h4->endTime(), 1795259200);
    EXPECT_EQ(h4->frameAttr(), json("[2, 3]"));
    EXPECT_TRUE(h4->fpsAttr().isAbsent());

    const Value idle = json(R"({"type": 5, "extra_data": "[{\"game_id\": \"1234\", \"max_on_hook_time\": 1800}]"})");
    EXPECT_EQ(HavingInterest::fromDictionary(idle)->hangup(), 1);
    EXPECT_EQ(HavingInterest::fromDictionary(idle, HavingInterest::HangupMarking::Keep)->hangup(), 0);
    EXPECT_EQ(HavingInterest::fromDictionary(idle)->maxOnHookInfo()->find(Value("1234"))->longLongValue(), 1800);

    for (const char* other : {R"({"type": 1, "extra_data": "{\"fps\": [60]}"})", R"({"type": 6})", R"({})"}) {
        const auto h = HavingInterest::fromDictionary(json(other));
        EXPECT_EQ(h->hangup(), 0) << other;
        EXPECT_TRUE(h->fpsAttr().isAbsent() && h->frameAttr().isAbsent() && !h->maxOnHookInfo()) << other;
    }
}

TEST(HavingInterestTest, WrongKindsConvertWithoutFailing) {
    const auto h = HavingInterest::fromDictionary(json(R"({"type": "7", "end_time": {"a": 1}, "extra_data": 60})"));
    EXPECT_EQ(h->type(), 7);
    EXPECT_EQ(h->endTime(), 0);
    EXPECT_EQ(h->fpsAttr(), Value(Value::Array{}));  // "60" decodes to a bare number, not an object
    const auto idle = HavingInterest::fromDictionary(json(R"({"type": 5, "extra_data": ["x"]})"));
    EXPECT_FALSE(idle->maxOnHookInfo());
}

TEST(HavingInterestTest, LiveOnlyBeforeTheServerTime) {
    struct Case {
        std::int64_t endTime, serverTS;
        bool live, hasEnd;
    };
    for (const auto& c : {Case{101, 100, true, true}, Case{100, 100, false, true}, Case{99, 100, false, true},
                          Case{0, -1, true, false}, Case{-5, 0, false, false}}) {
        HavingInterest h;
        h.setEndTime(c.endTime);
        EXPECT_EQ(h.isLiveAt(c.serverTS), c.live) << c.endTime << " at " << c.serverTS;
        EXPECT_EQ(h.hasEndTime(), c.hasEnd) << c.endTime;
    }
}

TEST(HavingInterestTest, LimitsAreReadOnceWhicheverThreadAsksFirst) {
    // The limits are read on first use, not by the parse; readers racing for the first read must all get
    // the one map (ThreadSanitizer watches the race).
    const auto idle = HavingInterest::fromDictionary(
        json(R"({"type": 5, "extra_data": "[{\"game_id\": 7, \"max_on_hook_time\": 60}, {\"game_id\": 7}]"})"));
    std::vector<const std::optional<OnHookTimeMap>*> seen(4);
    {
        std::vector<std::jthread> readers;
        for (auto& slot : seen) readers.emplace_back([&idle, &slot] { slot = &idle->maxOnHookInfo(); });
    }
    for (const auto* limits : seen) EXPECT_EQ(limits, seen[0]);
    ASSERT_TRUE(*seen[0]);
    EXPECT_EQ((*seen[0])->size(), 1U);
    EXPECT_EQ(*(*seen[0])->find(Value(7.0)), Value(60));
}

TEST(NoHavingInterestTest, OnlyIdlePlayCarriesLimits) {
    const std::string extra = R"(, "extra_data": "[{\"game_id\": \"1234\", \"max_on_hook_time\": 600}]"})";
    const auto idle = NoHavingInterest::fromDictionary(json(R"({"type": 5)" + extra));
    ASSERT_TRUE(idle->maxOnHookInfo());
    EXPECT_EQ(idle->maxOnHookInfo()->size(), 1U);
    EXPECT_EQ(*idle->maxOnHookInfo()->find(Value("1234")), Value(600));
    EXPECT_EQ(idle->hangup(), 0);
    const auto other = NoHavingInterest::fromDictionary(json(R"({"type": 4)" + extra));
    EXPECT_FALSE(other->maxOnHookInfo());
    EXPECT_FALSE(NoHavingInterest::fromDictionary(json(R"({"type": 5})"))->maxOnHookInfo());
}

}  // namespace
}  // namespace nb
