#include "nbbase/catalog/CouponInfo.h"

#include <gtest/gtest.h>

#include <tuple>

#include "ReplayBridge.h"

namespace nb {
namespace {

using test::EventLog;

class CouponInfoTest : public testing::Test {
protected:
    // Queries and waits for the completion's result, reading while the answer is counted (for ThreadSanitizer).
    std::int32_t query(const Value& request = Value()) {
        EventLog results;
        coupons_.queryCoupons(request, [&results](std::int32_t result) { results.add(result); });
        (void)coupons_.hasCoupons();
        EXPECT_TRUE(results.waitForSize(1));
        return results.events().at(0);
    }

    nbtest::ReplayBridge replay_;
    CouponInfo coupons_{replay_.bridge(), replay_.log(), replay_.background()};
};

TEST_F(CouponInfoTest, RecordedReplyAndFailures) {
    const Value request = Value::dictionary({{"page", 1}});
    EXPECT_EQ(query(request), 0);
    EXPECT_EQ(coupons_.couponCount(), 4);  // two groups and two usable codes
    EXPECT_EQ(coupons_.svipCouponCount(), 2);
    EXPECT_EQ(replay_.sdk().calls("queryCoupons").at(0).arguments["request"], request);

    replay_.sdk().setReply("queryCoupons", Value("not json"));
    EXPECT_EQ(query(), 0);
    replay_.sdk().setFailure("queryCoupons", 42, 0, 0);
    EXPECT_EQ(query(), 1);
    EXPECT_EQ(coupons_.couponCount(), 4);
    EXPECT_EQ(replay_.logged(), std::vector<std::string>{"4 failed to querycoupons,code=42"});

    // A success without bytes never answers. The SDK answers in order, so a marker query sent after the
    // model's is answered after it, with the same empty success.
    replay_.sdk().setReply("queryCoupons", Value());
    EventLog silent, marker;
    coupons_.queryCoupons(Value(), [&silent](std::int32_t result) { silent.add(result); });
    ASSERT_TRUE(replay_.drain());
    replay_.sdk().queryCoupons(Value(), [&marker](const Value& reply) { marker.add(reply.isAbsent()); }, {});
    ASSERT_TRUE(marker.waitForSize(1));
    EXPECT_EQ(marker.events(), std::vector<int>{1});
    EXPECT_EQ(silent.size(), 0u);
}

TEST_F(CouponInfoTest, CountingRule) {
    constexpr std::int32_t kKept = -5;
    const std::tuple<const char*, std::int32_t, std::int32_t> cases[] = {
        {R"({"data": {"coupons": [{"code_infos": [{"status": 1}, {"status": 2}, {"status": 9}, {"status": 0}]}]}})",
         3, 0},
        {R"({"data": {"coupons": [], "svip_coupons": null}})", 0, 0},
        {R"({"data": {"coupons": [{"code_infos": [{"status": 8}, {"status": 17}, {}]}, {}, "junk"]}})", 3, 0},
        {R"({"data": {"svip_coupons": [{"code_infos": [{"status": "9"}, {"status": 1.7}, {"status": true},
             {"status": 4294967297}]}]}})", 0, 4},
        {R"({"data": {"coupons": {"code_infos": [{"status": 1}]}, "svip_coupons": [{"code_infos": {}}]}})", 0, 1},
        {R"({"code": 0})", kKept, kKept},
        {R"({"data": null})", kKept, kKept},
        {R"({"data": [1]})", kKept, kKept},
    };
    for (const auto& [reply, count, svip] : cases) {
        SCOPED_TRACE(reply);
        coupons_.setCouponCount(kKept);
        coupons_.setSvipCouponCount(kKept);
        coupons_.parseCouponCount(nbtest::json(reply));
        EXPECT_EQ(coupons_.couponCount(), count);
        EXPECT_EQ(coupons_.svipCouponCount(), svip);
        EXPECT_EQ(coupons_.hasCoupons(), count > 0 || svip > 0);
    }
}

// The SDK answers in order, so holding its first answer holds the model's behind it.
TEST_F(CouponInfoTest, RepliesAfterTheModelIsGoneAreDropped) {
    test::Gate gate;
    EventLog answered;
    replay_.sdk().queryCoupons(Value(), [&gate](const Value&) { gate.pass(); }, {});
    auto gone = std::make_unique<CouponInfo>(replay_.bridge(), replay_.log(), replay_.background());
    gone->queryCoupons(Value(), [](std::int32_t) { ADD_FAILURE() << "answered a destroyed model"; });
    ASSERT_TRUE(replay_.drain());
    gone.reset();
    gate.open();
    replay_.sdk().queryCoupons(Value(), [&answered](const Value&) { answered.add(0); }, {});
    ASSERT_TRUE(answered.waitForSize(1));
}

// Both counts come from one reply: a reader never finds the ordinary count of one and the SVIP count of the other.
TEST_F(CouponInfoTest, ReadersSeeOneReplyOrTheOther) {
    const Value ordinary = nbtest::json(R"({"data": {"coupons": [{}]}})");
    const Value svip = nbtest::json(R"({"data": {"svip_coupons": [{}]}})");
    coupons_.parseCouponCount(ordinary);
    const auto write = [&] {
        for (int i = 0; i < 2000; ++i) coupons_.parseCouponCount(i % 2 ? ordinary : svip);
    };
    EXPECT_EQ(nbtest::tornReads(write, [&] { return coupons_.hasCoupons(); }), 0);
}

}  // namespace
}  // namespace nb
