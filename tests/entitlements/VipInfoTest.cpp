#include "nbbase/entitlements/VipInfo.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <thread>

#include "nbbase/foundation/Json.h"

namespace nb {
namespace {

constexpr float kInf = std::numeric_limits<float>::infinity();

Data bytes(const std::string& text) { return Data(text.begin(), text.end()); }

Data recordedReply() {
    std::ifstream in(std::string(NBBASE_SOURCE_DIR) + "/examples/replies/vipInfo.json", std::ios::binary);
    return Data(std::istreambuf_iterator<char>(in), {});
}

TEST(VipInfoTest, RecordedReply) {
    VipInfo vip;
    const Data reply = recordedReply();
    ASSERT_FALSE(reply.empty());
    EXPECT_TRUE(vip.parse(reply));
    EXPECT_TRUE(vip.isVip());
    EXPECT_FALSE(vip.isSvip());
    EXPECT_EQ(vip.propertyLevel(), 1);
    EXPECT_EQ(vip.strFactor(), "1.5");
    EXPECT_EQ(vip.strDiscountFactor(), "0");
    EXPECT_TRUE(vip.isPermissionMode());
    EXPECT_FALSE(vip.gameWithoutPermission());
    EXPECT_FALSE(vip.newUserRightExist());
    EXPECT_EQ(vip.testGameDuration(), std::nullopt);
    EXPECT_EQ(vip.referenceTS(), 1795000000);
    EXPECT_EQ(vip.vipTimeLeft(), 1797592000);  // the end itself
    const auto tags = vip.interestMaps();
    ASSERT_TRUE(tags);
    EXPECT_EQ(tags->size(), 3u);
    EXPECT_EQ(tags->at("limited-free"), InterestDuration(1794960000, 1795046400));
    EXPECT_EQ(vip.dict(), Json::decode(reply).value());
}

TEST(VipInfoTest, FactorsAndTheirText) {
    struct Case {
        const char* consumption;
        float factor, discount;
        const char* factorText;
        const char* discountText;
    };
    const Case cases[] = {
        {R"({"factor": 1.5, "discount_factor": 0.8})", 1.5f, 0, "1.5", "0"},
        {R"({"factor": 2, "discount_factor": 2})", 2, 2, "2", "2"},
        {R"({"factor": "0.3", "discount_factor": "1.9"})", 0.3f, 1, "0.3", "1"},
        {R"({"factor": -2.5, "discount_factor": -0.8})", -2.5f, 0, "-2.5", "0"},
        {R"({"factor": 1e300, "discount_factor": 1e300})", kInf, 2147483647.0f, "2147483647", "2147483647"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.consumption);
        VipInfo vip;
        vip.parse(bytes(std::string(R"({"consumption": )") + c.consumption + "}"));
        EXPECT_EQ(vip.consumptionFactor(), c.factor);
        EXPECT_EQ(vip.discountFactor(), c.discount);
        EXPECT_EQ(vip.strFactor(), c.factorText);
        EXPECT_EQ(vip.strDiscountFactor(), c.discountText);
    }
}

TEST(VipInfoTest, TagWindowsAgainstTheReplyTime) {
    struct Case {
        std::int64_t ts, open, close;
        bool valid;
    };
    const Case cases[] = {
        {0, 0, 0, true},       {100, 0, 0, true},    {100, 100, 200, true}, {99, 100, 200, false},  // both ends
        {200, 100, 200, true}, {201, 100, 200, false}, {100, 100, 0, true}, {99, 100, 0, false},   // included
        {99, 0, 99, true},     {100, 0, 99, false},    {100, -1, 200, false}, {-5, 0, -1, false},
    };
    for (const auto& c : cases) {
        VipInfo vip;
        vip.parse(bytes(R"({"ts": )" + std::to_string(c.ts) + "}"));
        EXPECT_EQ(vip.isTagTimeValid(c.open, c.close), c.valid) << c.ts << " in (" << c.open << ", " << c.close << ")";
    }
}

TEST(VipInfoTest, MissingKeysKeepFieldsAndPresentOnesConvert) {
    VipInfo vip;
    vip.parse(recordedReply());
    vip.parseDictionaryData(*Json::decode(R"({"vip": "gone", "svip": {"vip_flag": "2"}, "time_info": null,
        "permission": {"permission_value": null}, "ownership": {"is_game_owner": true}})"));
    EXPECT_TRUE(vip.isVip());  // a section of the wrong kind is missing
    EXPECT_EQ(vip.vipCloseTS(), 1797592000);
    EXPECT_TRUE(vip.isSvip());
    EXPECT_EQ(vip.propertyLevel(), 2);
    EXPECT_EQ(vip.leftMinute(), 120);
    EXPECT_TRUE(vip.gameWithoutPermission());  // null reads as 0
    EXPECT_EQ(vip.gameOwner(), 1);
    EXPECT_EQ(vip.interestMaps()->size(), 3u);  // no tag map: the windows stay
    EXPECT_EQ(vip.dict()["ts"].longLongValue(), 1795000000);  // only parse() replaces the reply
}

TEST(VipInfoTest, TagMapRules) {
    VipInfo vip;
    vip.parse(bytes(R"({"interests_map": {"pid-new-user-unlimitplay": {"open_ts": 10, "close_ts": 20},
        "testing": {"open_ts": 5}}})"));
    EXPECT_TRUE(vip.newUserRightExist());
    EXPECT_EQ(vip.testGameDuration(), InterestDuration(5, 0));
    vip.parse(bytes(R"({"interests_map": {"pid-new-user-unlimitplay": {"close_ts": 30}, "idle-time": {}}})"));
    EXPECT_EQ(vip.newUserOpenTS(), 10);  // a missing bound keeps the earlier one
    const auto tags = vip.interestMaps();
    ASSERT_TRUE(tags);
    EXPECT_EQ(*tags, (VipInfo::InterestMap{{"pid-new-user-unlimitplay", {10, 30}}, {"idle-time", {0, 0}}}));
    vip.parse(bytes(R"({"interests_map": null})"));
    EXPECT_FALSE(vip.newUserRightExist());
    EXPECT_EQ(vip.interestMaps(), tags);
    EXPECT_EQ(vip.newUserCloseTS(), 30);
    vip.parse(bytes(R"({"interests_map": "x"})"));
    EXPECT_EQ(vip.interestMaps(), VipInfo::InterestMap{});
}

TEST(VipInfoTest, BytesThatAreNotJsonClearOnlyTheNewUserRight) {
    VipInfo vip;
    vip.parse(recordedReply());
    vip.parseDictionaryData(*Json::decode(R"({"interests_map": {"pid-new-user-unlimitplay": {"close_ts": 9}}})"));
    ASSERT_TRUE(vip.newUserRightExist());
    const auto tags = vip.interestMaps();
    for (const char* junk : {"", "not json", "{\"vip\": {\"vip_flag\": 0}", "\xff\xfe"}) {
        EXPECT_TRUE(vip.parse(bytes(junk)));
        EXPECT_FALSE(vip.newUserRightExist()) << junk;
        EXPECT_TRUE(vip.dict().isAbsent()) << junk;
        EXPECT_TRUE(vip.isVip() && vip.newUserCloseTS() == 9 && vip.referenceTS() == 1795000000) << junk;
        EXPECT_EQ(vip.strFactor(), "1.5");
        EXPECT_EQ(vip.interestMaps(), tags);
    }
}

TEST(VipInfoTest, ReadsWhileAnotherThreadParses) {
    VipInfo vip;
    const Data vipReply = bytes(R"({"vip": {"vip_flag": 1, "close_ts": 100}, "svip": {"vip_flag": 0},
        "interests_map": {"pid-new-user-unlimitplay": {}, "testing": {"open_ts": 1}}})");
    const Data svipReply = bytes(R"({"vip": {"vip_flag": 1, "close_ts": 200}, "svip": {"vip_flag": 1},
        "interests_map": {}})");
    vip.parse(vipReply);
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (int i = 0; i < 500; ++i) vip.parse(i % 2 ? svipReply : vipReply);
        done = true;
    });
    int reads = 0;
    while (!done || reads == 0) {
        // Each getter sees one reply or the other, never a blend of the two within one field.
        const auto level = vip.propertyLevel();
        EXPECT_TRUE(level == 1 || level == 2);
        const auto close = vip.vipTimeLeft();
        EXPECT_TRUE(close == 100 || close == 200);
        const auto tags = vip.interestMaps();
        EXPECT_TRUE(tags && (tags->empty() || tags->size() == 2));
        (void)vip.newUserRightExist();
        (void)vip.dict().size();
        ++reads;
    }
    writer.join();
}

}  // namespace
}  // namespace nb
