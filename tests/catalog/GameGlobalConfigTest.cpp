#include "nbbase/catalog/GameGlobalConfig.h"

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <mutex>
#include <thread>

#include "InterestsCollaborators.h"
#include "TempDir.h"
#include "foundation/DispatchTestSupport.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/SerialQueue.h"
#include "nbbase/sdk/ReplaySdk.h"

namespace nb {
namespace {

using Fps = std::vector<Value>;

Value config(const char* json) { return *Json::decode(json); }

// The model on a real bridge whose SDK plays the recorded replies, a bundle of the test's, a log the test
// reads and a serial queue of its own for the fetches.
class GameGlobalConfigTest : public testing::Test {
protected:
    void SetUp() override {
        config_.setUserId("10086");
        bridge_.initializeSDK(nullptr);
        log_.setLogHandler([this](std::int32_t level, const std::string& text) {
            std::lock_guard lock(mutex_);
            lines_.push_back(std::to_string(level) + " " + text);
        });
    }
    std::vector<std::string> lines() {
        std::lock_guard lock(mutex_);
        return std::exchange(lines_, {});
    }
    // Runs queryConfig and waits for its completion, answering the code it got and whether it ran on the
    // model's queue.
    std::pair<std::int32_t, bool> query() {
        test::EventLog done;
        std::atomic<bool> onQueue{false};
        model_.queryConfig([&](std::int32_t code) {
            onQueue = background_.isCurrent();
            done.add(code);
        });
        EXPECT_TRUE(done.waitForSize(1));
        return {done.events().at(0), onQueue};
    }

    nbtest::TempDir dir_{"nbglobalconfig"};
    NBConfiguration config_{std::make_shared<UserDefaults>(std::string(NBConfiguration::kSuiteName), dir_.path()),
                            dir_.path(), {}, {}};
    NBNetworkCheck network_{[] { return NBNetworkCheck::kWired; }};
    NBLog bridgeLog_, log_;
    std::mutex mutex_;
    std::vector<std::string> lines_;  // guarded by mutex_
    std::shared_ptr<ReplaySdk> sdk_ = std::make_shared<ReplaySdk>(NBBASE_SOURCE_DIR "/examples/replies");
    NimboSdkManager bridge_{[this] { return sdk_; }, {}, config_, network_, bridgeLog_};
    std::shared_ptr<const MainBundle> bundle_ = std::make_shared<MainBundle>(
        Value::dictionary({{"CFBundleShortVersionString", "3.2.0"}, {"NIMBOPayChannel", "nimbo_official"}}), "");
    SerialQueue background_{"nbtest.globalconfig"};
    GameGlobalConfig model_{bridge_, config_, [this] { return bundle_; }, log_, background_};
};

TEST_F(GameGlobalConfigTest, QueriesAndLearnsTheRecordedConfiguration) {
    EXPECT_EQ(query(), std::pair(0, true));
    EXPECT_EQ(sdk_->calls("getGameGlobalConfig").at(0).arguments["request"],
              Value::dictionary({{"appversion", "3.2.0"}, {"userid", "10086"}, {"paychannel", "nimbo_official"}}));
    EXPECT_EQ(lines(), std::vector<std::string>{"2 syncEnableSvip:1,set feature_version 10"});
    EXPECT_TRUE(model_.enableSVip() && !model_.disableHangup());
    EXPECT_TRUE(model_.mouseLockByGameId("1234") && !model_.againstMenuTouchByGameId("1234"));
    EXPECT_TRUE(model_.againstMenuTouchByGameId("5678") && !model_.mouseLockByGameId("5678"));
    EXPECT_EQ(model_.getSupportFps("1234"), (Fps{30, 60, 90, 120}));
    EXPECT_EQ(model_.getSupportFps("9999"), (Fps{30, 60}));
    EXPECT_EQ(model_.getBitRate("1234", 1), 12);  // sent as text
    EXPECT_EQ(model_.getBitRate("1234", 2), 20);  // from "default"
    EXPECT_EQ(model_.getBitRate("1234", 4), 60);
    EXPECT_EQ(model_.getResolution("1234", 4), (Size{3840, 2160}));

    // A failed request, a reply that is no dictionary and no SDK at all: SVIP on, hang-up off, tables kept.
    for (int variant = 0; variant < 3; ++variant) {
        if (variant == 0) sdk_->setFailure("getGameGlobalConfig", 1, 2, 3);
        if (variant == 1) sdk_->setReply("getGameGlobalConfig", Value("a text is no configuration"));
        if (variant == 2) bridge_.uninitializeSDK();
        model_.parse(config(R"({"enable_svip": false, "disable_hangup": 1, "fps": {"default": [1]}})"));
        EXPECT_TRUE(!model_.enableSVip() && model_.disableHangup());
        lines();
        EXPECT_EQ(query(), std::pair(-1, true)) << variant;
        EXPECT_TRUE(model_.enableSVip() && !model_.disableHangup());
        EXPECT_EQ(lines(), std::vector<std::string>{"2 syncEnableSvip:1,set feature_version 10"});
        EXPECT_EQ(model_.getSupportFps("x"), Fps{1});
    }
    std::vector<Value> sent;
    for (const auto& call : sdk_->calls("enableSvipFeatureVersion")) sent.push_back(call.arguments["enable"]);
    EXPECT_EQ(sent, (Fps{1, 0, 1, 0, 1}));  // nothing reaches an SDK that is gone
}

TEST_F(GameGlobalConfigTest, FallbacksBeforeAnyConfiguration) {
    for (const std::int32_t level : {0, 1, 2, 3, 4, -1, INT_MIN, INT_MAX}) {
        EXPECT_EQ(model_.getBitRate("1234", level), level == 0 || level == 1 ? 8 : level == 2 ? 20 : 40) << level;
        EXPECT_EQ(model_.getResolution(std::nullopt, level), (level ? Size{1920, 1080} : Size{1280, 720})) << level;
    }
    EXPECT_TRUE(model_.mouseLockByGameId("1234") && model_.mouseLockByGameId(std::nullopt));
    EXPECT_FALSE(model_.againstMenuTouchByGameId("1234"));
    EXPECT_EQ(model_.getSupportFps("1234"), (Fps{30, 60}));
}

TEST_F(GameGlobalConfigTest, TwoStageLookups) {
    model_.parse(config(R"({"picuture_quality": {
        "default": {"0": {"bitrate": 5}, "2": {"bitrate": 22, "resolution": "2560_1440"}, "-1": {"bitrate": 9}},
        "g": {"0": {"bitrate": 3, "resolution": "2560_1440_x"}, "1": {"resolution": "_720"}, "01": {"bitrate": 7},
              "3": {"bitrate": "4x", "resolution": 1920}, "4": null, "5": {"resolution": " 800_ 600"}},
        "n": null, "": {"0": {"bitrate": 1}}},
        "fps": {"g": [60, "30", 29.97, 120, 30], "n": 5, "default": [24]}})"));
    struct Case {
        std::optional<std::string> game;
        std::int32_t level, bitRate;
        Size resolution;
    } const cases[] = {
        {"g", 0, 3, {1280, 720}},     {"g", 1, 0, {0, 720}},        {"g", 2, 22, {2560, 1440}},
        {"g", 3, 4, {1920, 1080}},    {"g", 4, 0, {1920, 1080}},    {"g", 5, 0, {800, 600}},
        {"g", -1, 9, {1920, 1080}},   {"g", 6, 40, {1920, 1080}},   {"other", 0, 5, {1280, 720}},
        {"n", 2, 22, {2560, 1440}},   {std::nullopt, -1, 9, {1920, 1080}}, {"", 0, 1, {1280, 720}},
        {"", 2, 22, {2560, 1440}},    {"g", INT_MIN, 40, {1920, 1080}},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(model_.getBitRate(c.game, c.level), c.bitRate) << c.game.value_or("nil") << " " << c.level;
        EXPECT_EQ(model_.getResolution(c.game, c.level), c.resolution) << c.game.value_or("nil") << " " << c.level;
    }
    EXPECT_EQ(model_.getSupportFps("g"), (Fps{29.97, "30", 30, 60, 120}));  // by integer value, ties as sent
    EXPECT_EQ(model_.getSupportFps("n"), Fps{24});
    EXPECT_EQ(model_.getSupportFps(std::nullopt), Fps{24});
}

TEST_F(GameGlobalConfigTest, EachReplyReplacesTheTables) {
    model_.parse(config(R"({"game_list": {"a": {"mouselocked": false, "menutouchban": "YES"}, "b": {"mouselocked": 0}},
        "picuture_quality": {"a": {"1": {"bitrate": 1}}}})"));
    EXPECT_TRUE(!model_.mouseLockByGameId("a") && model_.againstMenuTouchByGameId("a"));
    EXPECT_FALSE(model_.mouseLockByGameId("b"));
    model_.parse(config(R"({"game_list": {"b": {"menutouchban": true}, "c": 1}, "enable_svip": 0})"));
    EXPECT_TRUE(model_.mouseLockByGameId("a") && !model_.againstMenuTouchByGameId("a"));
    EXPECT_TRUE(model_.mouseLockByGameId("b") && model_.againstMenuTouchByGameId("b") && model_.mouseLockByGameId("c"));
    EXPECT_EQ(model_.getBitRate("a", 1), 8);
    EXPECT_FALSE(model_.enableSVip());
}

TEST_F(GameGlobalConfigTest, ReadersSeeOneWholeConfigurationOrTheOther) {
    const Value first = config(R"({"game_list": {"g": {"mouselocked": false}}, "fps": {"g": [1, 2]},
        "picuture_quality": {"default": {"1": {"bitrate": 10}}, "g": {"1": {"bitrate": 11, "resolution": "1_1"}}}})");
    const Value second = config(R"({"game_list": {"g": {"mouselocked": false}}, "fps": {"g": [3]},
        "picuture_quality": {"default": {"1": {"bitrate": 20}}, "g": {"1": {"bitrate": 21, "resolution": "2_2"}}}})");
    model_.parse(first);
    std::atomic<bool> done{false};
    std::atomic<int> torn{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&] {
            while (!done) {
                const std::int32_t rate = model_.getBitRate("g", 1);
                const Size size = model_.getResolution("g", 1);
                const auto fps = model_.getSupportFps("g");
                torn += (rate != 11 && rate != 21) || !(size == Size{1, 1} || size == Size{2, 2}) ||
                        !(fps == Fps{1, 2} || fps == Fps{3}) || model_.mouseLockByGameId("g");
            }
        });
    }
    for (int i = 0; i < 1000; ++i) model_.parse(i % 2 ? first : second);
    done = true;
    for (auto& reader : readers) reader.join();
    EXPECT_EQ(torn, 0);
}

}  // namespace
}  // namespace nb
