#include "nbbase/entitlements/InterestsInfo.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "TempDir.h"
#include "foundation/DispatchTestSupport.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/MainQueue.h"
#include "nbbase/sdk/ReplaySdk.h"

namespace nb {
namespace {

using test::EventLog;

const std::filesystem::path kReplies = std::filesystem::path(NBBASE_SOURCE_DIR) / "examples" / "replies";

std::string recorded(const std::string& name) {
    std::ifstream in(kReplies / name, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

Data bytesOf(const std::string& text) { return Data(text.begin(), text.end()); }

// The store on a real bridge whose SDK is a ReplaySdk on the recorded replies, a settings suite in a
// temporary home and a log the test reads.
class InterestsInfoTest : public testing::Test {
protected:
    void SetUp() override {
        log_.setLogHandler([this](std::int32_t level, const std::string& text) {
            std::lock_guard lock(mutex_);
            lines_.push_back(std::to_string(level) + " " + text);
        });
        config_.setNimboToken("token-10086");
        bridge_.initializeSDK(nullptr);
    }
    void TearDown() override { bridge_.uninitializeSDK(); }

    // Sends what the store queued in the background and waits until the SDK has answered it: the SDK
    // answers in call order, so once a later request of ours is answered, the store's have been too.
    void settle() {
        background_.drain();
        EventLog answered;
        sdk_->checkGameHangUpStatus(Value(), [&](const Value&) { answered.add(0); },
                                    [&](std::int32_t, std::int32_t, std::int32_t) { answered.add(1); });
        ASSERT_TRUE(answered.waitForSize(1));
    }
    std::vector<std::string> lines() {
        std::lock_guard lock(mutex_);
        return lines_;
    }
    // The recording's VIP user with the base interests of every level, before the interests reply.
    void signInVip() {
        vip_.parse(bytesOf(recorded("vipInfo.json")));
        ASSERT_TRUE(store_->parseUserPropertyInterests(recorded("queryUserPropertyInterests.json")));
    }

    nbtest::TempDir dir_{"nbinterests"};
    NBConfiguration config_{std::make_shared<UserDefaults>(std::string(NBConfiguration::kSuiteName), dir_.path()),
                            dir_.path()};
    NBNetworkCheck network_{[] { return NBNetworkCheck::kWired; }};
    NBLog bridgeLog_;  // initializeSDK points this one at the SDK
    NBLog log_;
    std::mutex mutex_;
    std::vector<std::string> lines_;  // guarded by mutex_
    std::shared_ptr<ReplaySdk> sdk_ = std::make_shared<ReplaySdk>(kReplies);
    NimboSdkManager bridge_{[this] { return sdk_; }, {}, config_, network_, bridgeLog_};
    VipInfo vip_;
    MainQueue background_;  // the test's thread sends the store's requests when it drains this
    std::shared_ptr<InterestsInfo> store_ = InterestsInfo::create(bridge_, config_, vip_, log_, background_);
};

TEST_F(InterestsInfoTest, RecordedRepliesTeachWhatTheClientShows) {
    signInVip();
    ASSERT_TRUE(store_->parse(recorded("getUserFullInterests.json")));
    EXPECT_EQ(store_->currentTS(), 1795000000);
    EXPECT_TRUE(store_->hasPictureQualityFrameInterest(2));  // given by the VIP level
    EXPECT_TRUE(store_->hasPictureQualityFrameInterest(3));  // only by the live trial
    EXPECT_FALSE(store_->frameTriableFlag().at(3));
    EXPECT_TRUE(store_->hasFpsInterest(60));
    EXPECT_FALSE(store_->hasFpsInterest(90));  // that right ended before the server time
    EXPECT_EQ(store_->pictureQualityAndFpsInterestExpiredTime(),
              Value::dictionary({{"endTime", 1795259200}, {"svip", true}}));
    EXPECT_EQ(store_->getNextCheckInterestsInfoTimerElapse(),
              Value::dictionary({{"elapse", -86400}, {"property", 2}, {"type", 7}, {"isHaving", true},
                                 {"isTry", true}, {"endTime", 1794913600}}));
    EXPECT_EQ(store_->fpsAvailableInterests(Value::array({30, 60, 90, 120})), Value::array({90, 120}));
    EXPECT_EQ(store_->maxHangupTimeInSec(Value("1234"), true), 1800);
    EXPECT_EQ(store_->maxHangupTimeInSec(Value("1234"), false), 600);
    EXPECT_EQ(store_->maxHangupTimeInSec(Value(1234), true), 0);  // the server sent text ids
    EXPECT_EQ(store_->getTriableInterest(StableInterest::kTypeHangup)->productId(), Value("30017"));
    EXPECT_TRUE(store_->isCurrentHangupInterestTriable() == false);  // VIP includes idle play
}

TEST_F(InterestsInfoTest, ErrorRepliesChangeNothing) {
    signInVip();
    ASSERT_TRUE(store_->parse(recorded("getUserFullInterests.json")));
    const auto before = store_->snapshot();

    EXPECT_TRUE(store_->parse(R"({"code": 7, "message": "busy", "data": {"timestamp": 5, "having": []}})"));
    EXPECT_EQ(lines(), std::vector<std::string>{"4 parseUserInterests error[7,busy]"});
    EXPECT_FALSE(store_->parse("not json"));
    EXPECT_FALSE(store_->parse(std::nullopt));
    EXPECT_TRUE(store_->parse(R"({"code": 0, "data": "later"})"));  // a "data" that is no object is missing
    EXPECT_FALSE(store_->parseUserPropertyInterests(R"({"code": 3, "message": "no"})"));
    EXPECT_FALSE(store_->parseUserPropertyInterests(R"({"code": 0})"));

    const auto after = store_->snapshot();
    EXPECT_EQ(after->currentTS, before->currentTS);
    EXPECT_EQ(after->havingInterests, before->havingInterests);
    EXPECT_EQ(after->availableIntrests, before->availableIntrests);
    EXPECT_EQ(after->noHavingInterests, before->noHavingInterests);
    EXPECT_EQ(after->stableInterestDict, before->stableInterestDict);
    EXPECT_EQ(after->frameTriableFlag, before->frameTriableFlag);
    EXPECT_EQ(lines().back(), "4 parseUserPropertyInterests error[3,no]");
}

TEST_F(InterestsInfoTest, MissingSectionsKeepTheirListsPresentOnesReplaceThem) {
    ASSERT_TRUE(store_->parse(recorded("getUserFullInterests.json")));
    const auto before = store_->snapshot();
    ASSERT_TRUE(store_->parse(R"({"code": 0, "data": {"timestamp": 9,
        "available_present": [{"type": 7, "product_id": "p", "extra_data": "{\"fps\": 60}"}]}})"));
    auto now = store_->snapshot();
    EXPECT_EQ(now->currentTS, 9);
    EXPECT_EQ(now->havingInterests, before->havingInterests);
    EXPECT_EQ(now->noHavingInterests, before->noHavingInterests);
    ASSERT_EQ(now->availableIntrests->size(), 1U);
    EXPECT_EQ(now->availableIntrests->front()->fpsAttr(), Value::array({60}));

    ASSERT_TRUE(store_->parse(R"({"data": {"having": [], "no_having": "none"}})"));
    now = store_->snapshot();
    EXPECT_EQ(now->currentTS, 0);  // a reply without a timestamp reads 0
    EXPECT_TRUE(now->havingInterests->empty());
    EXPECT_TRUE(now->noHavingInterests->empty());  // present, though not an array
    EXPECT_EQ(now->availableIntrests->size(), 1U);
}

TEST_F(InterestsInfoTest, TextParseKeepsItsThreeDifferences) {
    signInVip();
    const std::string reply = R"({"code": 0, "data": {"timestamp": 100,
        "having": [{"type": 5, "end_time": 200,
                    "extra_data": "[{\"game_id\": 1234, \"max_on_hook_time\": 60}]"}],
        "available_present": [{"type": 7, "product_id": 123, "property": 2, "extra_data": "{\"fps\": [120]}"}],
        "no_having": [{"type": 5, "extra_data": "[{\"game_id\": 1234, \"max_on_hook_time\": 30}]"}]}})";

    ASSERT_TRUE(store_->parseUserInterests(reply));
    auto now = store_->snapshot();
    EXPECT_EQ(now->havingInterests->front()->hangup(), 0);
    EXPECT_EQ(store_->maxHangupTimeInSec(Value(1234), true), 60);
    EXPECT_EQ(now->availableIntrests->front()->productId(), Value(123));
    EXPECT_FALSE(now->noHavingInterests);
    EXPECT_FALSE(now->hangTriableFlag);
    EXPECT_TRUE(now->fpsTriableFlag.empty());  // flags are left for the caller

    ASSERT_TRUE(store_->parse(reply));
    now = store_->snapshot();
    EXPECT_EQ(now->havingInterests->front()->hangup(), 1);
    EXPECT_EQ(now->availableIntrests->front()->productId(), Value("123"));
    EXPECT_EQ(store_->maxHangupTimeInSec(Value(1234), false), 30);

    EXPECT_FALSE(store_->parseUserInterests(R"({"code": 1, "message": "m", "data": {}})"));
    EXPECT_FALSE(store_->parseUserInterests(R"({"code": 0})"));
    EXPECT_FALSE(store_->parseUserInterests("{"));
}

TEST_F(InterestsInfoTest, TrialFlagsFollowTheLevelAtEachParse) {
    ASSERT_TRUE(store_->parse(recorded("getUserFullInterests.json")));
    EXPECT_TRUE(store_->fpsTriableFlag().empty());  // no base interests yet
    EXPECT_EQ(store_->isInterestsTriable(*store_->getHavingInterest(StableInterest::kTypeFps))["isTry"], Value(false));

    signInVip();
    ASSERT_TRUE(store_->parse(recorded("getUserFullInterests.json")));
    EXPECT_EQ(store_->fpsTriableFlag(), (InterestsSnapshot::TriableFlags{{30, true}, {60, true}, {90, false}}));

    EXPECT_TRUE(store_->checkUserInterestsTriableInfo(false, true));  // as SVIP every held value is given
    EXPECT_EQ(store_->fpsTriableFlag(), (InterestsSnapshot::TriableFlags{{30, true}, {60, true}, {90, true}}));
    EXPECT_EQ(store_->pictureQualityAndFpsInterestExpiredTime(),
              Value::dictionary({{"endTime", 0}, {"svip", false}}));

    ASSERT_TRUE(store_->parseUserPropertyInterests(R"({"code": 0, "data": {"0": {"fps": [30]}}})"));
    EXPECT_FALSE(store_->checkUserInterestsTriableInfo(true, false));  // no base interest for VIP now
    EXPECT_TRUE(store_->fpsTriableFlag().empty() && store_->frameTriableFlag().empty());
}

TEST_F(InterestsInfoTest, FetchAsksWithTheSessionAndAnswersOnTheSdkThread) {
    EventLog results;
    std::atomic<bool> onCallerThread{false};
    const auto caller = std::this_thread::get_id();
    store_->fetchInterests(Value::array({1234, "5678"}), std::nullopt, [&](std::int32_t result) {
        onCallerThread = std::this_thread::get_id() == caller;
        results.add(result);
    });
    settle();
    EXPECT_EQ(results.events(), std::vector<int>{0});
    EXPECT_FALSE(onCallerThread);
    EXPECT_EQ(store_->currentTS(), 1795000000);

    const auto calls = sdk_->calls("getUserFullInterests");
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].arguments,
              Value::dictionary({{"token", "token-10086"}, {"gameId", R"([1234,"5678"])"}, {"instanceId", ""},
                                 {"filters", "[1,2,3,4,5,6,7]"}}));
    // The base interests were missing, so the fetch asked for them too.
    EXPECT_EQ(sdk_->calls("queryUserPropertyInterests").size(), 1U);
}

TEST_F(InterestsInfoTest, FailedFetchReportsOnceAndKeepsTheLists) {
    ASSERT_TRUE(store_->parse(recorded("getUserFullInterests.json")));
    const auto before = store_->snapshot()->havingInterests;
    sdk_->setFailure("getUserFullInterests", 1, 2, 3);
    EventLog results;
    store_->fetchInterests(Value(), "instance-1", [&](std::int32_t result) { results.add(result); });
    store_->fetchInterests(Value(), "instance-1", nullptr);  // a missing callback is skipped
    settle();
    EXPECT_EQ(results.events(), std::vector<int>{-1});
    EXPECT_EQ(store_->snapshot()->havingInterests, before);
    const auto log = lines();
    EXPECT_EQ(std::count(log.begin(), log.end(), "4 [interests] getUserFullInterests failed. 1-2-3"), 2);
    EXPECT_EQ(sdk_->calls("getUserFullInterests").front().arguments["gameId"], Value("[]"));
}

TEST_F(InterestsInfoTest, BaseInterestsAreAskedForUntilAQuerySucceeds) {
    const auto queries = [this] { return sdk_->calls("queryUserPropertyInterests").size(); };
    sdk_->setFailure("queryUserPropertyInterests", 9, 8, 7);
    store_->checkStableInterest();
    settle();
    EXPECT_EQ(lines(), std::vector<std::string>{"4 queryUserProperty failed:[9-8-7]"});

    sdk_->reset("queryUserPropertyInterests");
    store_->checkStableInterest();  // asks again after the failure
    settle();
    ASSERT_TRUE(store_->stableInterestDict());
    EXPECT_EQ(store_->stableInterestDict()->size(), 3U);
    store_->checkStableInterest();
    store_->fetchInterests(Value(), std::nullopt, nullptr);
    settle();
    EXPECT_EQ(queries(), 2U);
}

TEST_F(InterestsInfoTest, RepliesForADestroyedStoreAreDropped) {
    test::Gate gate;  // holds the SDK's answers back until the store is gone
    sdk_->checkGameHangUpStatus(Value(), [&](const Value&) { gate.pass(); }, nullptr);
    std::atomic<int> called{0};
    store_->fetchInterests(Value(), std::nullopt, [&](std::int32_t) { ++called; });
    background_.drain();
    store_.reset();
    gate.open();
    settle();
    EXPECT_EQ(called, 0);
    EXPECT_EQ(sdk_->calls("getUserFullInterests").size(), 1U);
}

// Readers on other threads see either reply whole: the server time, the held rates and their trial flags
// always belong to the same reply.
TEST_F(InterestsInfoTest, ReadersNeverSeeHalfAParse) {
    signInVip();
    const auto reply = [](int ts, int fps) {
        return fmt::format(R"({{"code": 0, "data": {{"timestamp": {}, "having": [{{"type": 7, "end_time": {},
            "extra_data": "{{\"fps\": [{}]}}"}}]}}}})",
                           ts, ts + 100, fps);
    };
    const std::string slow = reply(1000, 30);  // 30 is given by the VIP level
    const std::string trial = reply(2000, 120);
    std::atomic<bool> done{false};
    std::atomic<int> inconsistent{0};
    std::vector<std::thread> readers;
    for (int r = 0; r < 3; ++r) {
        readers.emplace_back([&] {
            while (!done) {
                const InterestRules rules(store_->snapshot(), 1);
                const auto& s = rules.snapshot();
                if (s.currentTS == 0) continue;
                const bool isTrial = s.currentTS == 2000;
                const int fps = isTrial ? 120 : 30;
                if (!rules.hasFpsInterest(fps) || s.fpsTriableFlag.size() != 1 ||
                    s.fpsTriableFlag.begin()->first != fps || s.fpsTriableFlag.begin()->second == isTrial ||
                    rules.getNextCheckInterestsInfoTimerElapse()["elapse"] != Value(100)) {
                    ++inconsistent;
                }
            }
        });
    }
    for (int i = 0; i < 1000; ++i) ASSERT_TRUE(store_->parse(i % 2 ? slow : trial));
    done = true;
    for (auto& reader : readers) reader.join();
    EXPECT_EQ(inconsistent, 0);
}

}  // namespace
}  // namespace nb
