#include "nbbase/catalog/CouponInfo.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "ReplayBridge.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/SerialQueue.h"

namespace nb {
namespace {

using test::EventLog;

class CouponInfoTest : public testing::Test {
protected:
    // Queries and waits for the completion's result.
    std::int32_t query(const Value& request = Value()) {
        EventLog results;
        coupons_.queryCoupons(request, [&results](std::int32_t result) { results.add(result); });
        EXPECT_TRUE(results.waitForSize(1));
        return results.events().at(0);
    }

    nbtest::ReplayBridge replay_;
    nbtest::LogLines log_;
    SerialQueue background_{"nbtest.coupons"};
    CouponInfo coupons_{replay_.bridge(), log_.log(), background_};
};

TEST_F(CouponInfoTest, RecordedReplyAndFailures) {
    const Value request = Value::dictionary({{"page", 1}});
    EXPECT_EQ(query(request), 0);
    EXPECT_EQ(coupons_.couponCount(), 4);  // two groups and two usable codes
    EXPECT_EQ(coupons_.svipCouponCount(), 2);
    EXPECT_TRUE(coupons_.hasCoupons());
    EXPECT_EQ(replay_.sdk().calls("queryCoupons").at(0).arguments["request"], request);

    replay_.sdk().setReply("queryCoupons", Value("not json"));
    EXPECT_EQ(query(), 0);
    replay_.sdk().setFailure("queryCoupons", 42, 0, 0);
    EXPECT_EQ(query(), 1);
    EXPECT_EQ(coupons_.couponCount(), 4);
    EXPECT_EQ(log_.lines(), std::vector<std::string>{"4 failed to querycoupons,code=42"});
}

TEST_F(CouponInfoTest, CountingRule) {
    constexpr std::int32_t kKept = -5;
    struct Case {
        const char* reply;
        std::int32_t count, svip;
    };
    const Case cases[] = {
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
    for (const auto& c : cases) {
        SCOPED_TRACE(c.reply);
        coupons_.setCouponCount(kKept);
        coupons_.setSvipCouponCount(kKept);
        coupons_.parseCouponCount(*Json::decode(std::string_view(c.reply)));
        EXPECT_EQ(coupons_.couponCount(), c.count);
        EXPECT_EQ(coupons_.svipCouponCount(), c.svip);
        EXPECT_EQ(coupons_.hasCoupons(), c.count > 0 || c.svip > 0);
    }
}

// The SDK answers in order, so holding its first answer holds the model's behind it.
TEST_F(CouponInfoTest, RepliesAfterTheModelIsGoneAreDropped) {
    test::Gate gate;
    EventLog answered;
    replay_.sdk().queryCoupons(Value(), [&gate](const Value&) { gate.pass(); }, {});
    auto gone = std::make_unique<CouponInfo>(replay_.bridge(), log_.log(), background_);
    gone->queryCoupons(Value(), [](std::int32_t) { ADD_FAILURE() << "answered a destroyed model"; });
    ASSERT_TRUE(nbtest::drain(background_));
    gone.reset();
    gate.open();
    replay_.sdk().queryCoupons(Value(), [&answered](const Value&) { answered.add(0); }, {});
    ASSERT_TRUE(answered.waitForSize(1));
}

TEST_F(CouponInfoTest, ReadsWhileQuerying) {
    replay_.sdk().setReply("queryCoupons", Value(R"({"data": {"coupons": [{}], "svip_coupons": [{}]}})"));
    std::atomic<bool> done{false};
    std::thread reader([&] {
        while (!done) {
            const std::int32_t count = coupons_.couponCount();  // only ever goes from 0 to 1
            EXPECT_TRUE(count == 0 || (count == 1 && coupons_.hasCoupons()));
        }
    });
    EventLog results;
    for (int i = 0; i < 50; ++i) coupons_.queryCoupons(Value(), [&results](std::int32_t r) { results.add(r); });
    EXPECT_TRUE(results.waitForSize(50));
    done = true;
    reader.join();
}

}  // namespace
}  // namespace nb
