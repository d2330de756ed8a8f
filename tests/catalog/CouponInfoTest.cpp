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
    std::int32_t query(const Value& request) {
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

TEST_F(CouponInfoTest, RecordedReply) {
    EXPECT_FALSE(coupons_.hasCoupons());
    const Value request = Value::dictionary({{"page", 1}});
    EXPECT_EQ(query(request), 0);
    EXPECT_EQ(coupons_.couponCount(), 4);  // two groups and two usable codes
    EXPECT_EQ(coupons_.svipCouponCount(), 2);
    EXPECT_TRUE(coupons_.hasCoupons());
    const auto calls = replay_.sdk().calls("queryCoupons");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].arguments["request"], request);
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(CouponInfoTest, CountingRule) {
    struct Case {
        const char* data;
        std::int32_t count, svip;
    };
    const Case cases[] = {
        {R"({"coupons": [{"code_infos": [{"status": 1}, {"status": 2}, {"status": 9}, {"status": 0}]}]})", 3, 0},
        {R"({"coupons": [], "svip_coupons": null})", 0, 0},
        {R"({"coupons": [{"code_infos": [{"status": 8}, {"status": 17}, {"status": -1}, {}]}, {}, "junk"]})", 3, 0},
        {R"({"svip_coupons": [{"code_infos": [{"status": "9"}, {"status": 1.7}, {"status": true}, {"status": 4294967297}]}]})",
         0, 4},
        {R"({"coupons": {"code_infos": [{"status": 1}]}, "svip_coupons": [{"code_infos": {"status": 1}}]})", 0, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.data);
        coupons_.setCouponCount(-5);
        coupons_.setSvipCouponCount(-5);
        coupons_.parseCouponCount(Value::dictionary({{"data", *Json::decode(std::string_view(c.data))}}));
        EXPECT_EQ(coupons_.couponCount(), c.count);
        EXPECT_EQ(coupons_.svipCouponCount(), c.svip);
        EXPECT_EQ(coupons_.hasCoupons(), c.count > 0 || c.svip > 0);
    }
}

TEST_F(CouponInfoTest, RepliesWithoutDataKeepTheCounts) {
    coupons_.setCouponCount(2);
    coupons_.setSvipCouponCount(1);
    for (const char* reply : {R"({"code": 0})", R"({"data": null})", R"({"data": [1]})", R"([1])"}) {
        coupons_.parseCouponCount(*Json::decode(std::string_view(reply)));
        EXPECT_EQ(coupons_.couponCount(), 2) << reply;
        EXPECT_EQ(coupons_.svipCouponCount(), 1) << reply;
    }
    coupons_.parseCouponCount(Value());
    replay_.sdk().setReply("queryCoupons", Value("not json"));
    EXPECT_EQ(query(Value()), 0);
    EXPECT_TRUE(coupons_.hasCoupons() && coupons_.couponCount() == 2);
}

TEST_F(CouponInfoTest, FailuresAreLoggedAndAnsweredWithOne) {
    EXPECT_EQ(query(Value()), 0);
    replay_.sdk().setFailure("queryCoupons", 42, 0, 0);
    EXPECT_EQ(query(Value()), 1);
    EXPECT_EQ(log_.lines(), std::vector<std::string>{"4 failed to querycoupons,code=42"});
    EXPECT_EQ(coupons_.couponCount(), 4);

    // Without a completion the failure is still logged.
    coupons_.queryCoupons(Value());
    EventLog answered;  // the SDK answers in order: ours is done once this one is
    ASSERT_TRUE(nbtest::drain(background_));
    replay_.sdk().queryCoupons(Value(), {}, [&answered](std::int32_t) { answered.add(0); });
    ASSERT_TRUE(answered.waitForSize(1));
    EXPECT_EQ(log_.lines().size(), 2u);
}

TEST_F(CouponInfoTest, NothingIsSentWithoutAnSdkOrAfterTheModelIsGone) {
    replay_.bridge().uninitializeSDK();
    coupons_.queryCoupons(Value(), [](std::int32_t) { ADD_FAILURE() << "no SDK, no answer"; });
    ASSERT_TRUE(nbtest::drain(background_));
    replay_.bridge().initializeSDK(nullptr);

    // A reply that arrives after the model is destroyed touches nothing and calls nothing. The SDK answers
    // in order, so holding its first answer holds the model's behind it.
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
            EXPECT_TRUE(count == 0 || count == 1);
            EXPECT_TRUE(count == 0 || coupons_.hasCoupons());
        }
    });
    EventLog results;
    for (int i = 0; i < 50; ++i) coupons_.queryCoupons(Value(), [&results](std::int32_t r) { results.add(r); });
    EXPECT_TRUE(results.waitForSize(50));
    done = true;
    reader.join();
    EXPECT_EQ(results.events(), std::vector<int>(50, 0));
}

}  // namespace
}  // namespace nb
