#include "nbbase/catalog/GameGlobalConfig.h"

#include <gtest/gtest.h>

#include <climits>
#include <tuple>

#include "ReplayBridge.h"

namespace nb {
namespace {

using nbtest::json;
using Fps = std::vector<Value>;

// A bundle and a user id of the test's; queries run on the bridge's background queue.
class GameGlobalConfigTest : public testing::Test {
protected:
    void SetUp() override { replay_.configuration().setUserId("10086"); }
    // Runs queryConfig and waits for its completion: the code it got and whether it ran on the model's queue.
    // Reads while the reply is parsed, for ThreadSanitizer.
    std::pair<std::int32_t, bool> query() {
        test::EventLog done;
        std::atomic<bool> onQueue{false};
        model_.queryConfig([&](std::int32_t code) {
            onQueue = replay_.background().isCurrent();
            done.add(code);
        });
        (void)(model_.enableSVip() && model_.getBitRate("1234", 1));
        EXPECT_TRUE(done.waitForSize(1));
        return {done.events().at(0), onQueue};
    }

    nbtest::ReplayBridge replay_;
    std::shared_ptr<const MainBundle> bundle_ = std::make_shared<MainBundle>(
        Value::dictionary({{"CFBundleShortVersionString", "3.2.0"}, {"NIMBOPayChannel", "nimbo_official"}}), "");
    GameGlobalConfig model_{replay_.bridge(), replay_.configuration(), [this] { return bundle_; }, replay_.log(),
                            replay_.background()};
};

TEST_F(GameGlobalConfigTest, QueriesAndLearnsTheRecordedConfiguration) {
    EXPECT_EQ(query(), std::pair(0, true));
    EXPECT_EQ(replay_.sdk().calls("getGameGlobalConfig").at(0).arguments["request"],
              Value::dictionary({{"appversion", "3.2.0"}, {"userid", "10086"}, {"paychannel", "nimbo_official"}}));
    EXPECT_EQ(replay_.logged(), std::vector<std::string>{"2 syncEnableSvip:1,set feature_version 10"});
    EXPECT_TRUE(model_.enableSVip() && !model_.disableHangup());
    EXPECT_TRUE(model_.againstMenuTouchByGameId("5678") && !model_.mouseLockByGameId("5678"));
    EXPECT_EQ(model_.getSupportFps("1234"), (Fps{30, 60, 90, 120}));
    EXPECT_EQ(model_.getBitRate("1234", 1), 12);                     // sent as text
    EXPECT_EQ(model_.getResolution("1234", 4), (Size{3840, 2160}));  // from "default"

    // A failed request, a reply that is no dictionary and no SDK at all: SVIP on, hang-up off, tables kept.
    for (int variant = 0; variant < 3; ++variant) {
        if (variant == 0) replay_.sdk().setFailure("getGameGlobalConfig", 1, 2, 3);
        if (variant == 1) replay_.sdk().setReply("getGameGlobalConfig", Value("a text is no configuration"));
        if (variant == 2) replay_.bridge().uninitializeSDK();
        model_.parse(json(R"({"enable_svip": false, "disable_hangup": 1, "fps": {"default": [1]}})"));
        EXPECT_EQ(replay_.logged(), std::vector<std::string>{"2 syncEnableSvip:0,set feature_version 3"});
        EXPECT_EQ(query(), std::pair(-1, true)) << variant;
        EXPECT_TRUE(model_.enableSVip() && !model_.disableHangup());
        EXPECT_EQ(replay_.logged(), std::vector<std::string>{"2 syncEnableSvip:1,set feature_version 10"});
        EXPECT_EQ(model_.getSupportFps("x"), Fps{1});
    }
    std::vector<Value> sent;
    for (const auto& call : replay_.sdk().calls("enableSvipFeatureVersion")) sent.push_back(call.arguments["enable"]);
    EXPECT_EQ(sent, (Fps{1, 0, 1, 0, 1}));  // nothing reaches an SDK that is gone
}

// Game entry, else "default"; level entry, else the "default" entry's; else the built-in values.
TEST_F(GameGlobalConfigTest, TwoStageLookups) {
    for (const std::int32_t level : {0, 1, 2, 3, 4, -1, INT_MIN, INT_MAX}) {
        EXPECT_EQ(model_.getBitRate("1234", level), level == 0 || level == 1 ? 8 : level == 2 ? 20 : 40) << level;
        EXPECT_EQ(model_.getResolution(std::nullopt, level), (level ? Size{1920, 1080} : Size{1280, 720})) << level;
    }
    EXPECT_TRUE(model_.mouseLockByGameId("1234") && model_.mouseLockByGameId(std::nullopt));
    EXPECT_FALSE(model_.againstMenuTouchByGameId("1234"));
    EXPECT_EQ(model_.getSupportFps("1234"), (Fps{30, 60}));

    model_.parse(json(R"({"picuture_quality": {
        "default": {"0": {"bitrate": 5}, "2": {"bitrate": 22, "resolution": "2560_1440"}, "-1": {"bitrate": 9}},
        "g": {"0": {"bitrate": 3, "resolution": "2560_1440_x"}, "1": {"resolution": "_720"}, "01": {"bitrate": 7},
              "3": {"bitrate": "4x", "resolution": 1920}, "4": null, "5": {"resolution": " 800_ 600"}},
        "n": null, "": {"0": {"bitrate": 1}}},
        "fps": {"g": [60, "30", 29.97, 120, 30], "n": 5, "default": [24]}})"));
    const std::tuple<std::optional<std::string>, std::int32_t, std::int32_t, Size> cases[] = {
        {"g", 0, 3, {1280, 720}},   {"g", 1, 0, {0, 720}},      {"g", 2, 22, {2560, 1440}},
        {"g", 3, 4, {1920, 1080}},  {"g", 4, 0, {1920, 1080}},  {"g", 5, 0, {800, 600}},
        {"g", -1, 9, {1920, 1080}}, {"g", 6, 40, {1920, 1080}}, {"other", 0, 5, {1280, 720}},
        {"n", 2, 22, {2560, 1440}}, {"", 0, 1, {1280, 720}},    {std::nullopt, -1, 9, {1920, 1080}},
        {"g", INT_MIN, 40, {1920, 1080}},
    };
    for (const auto& [game, level, bitRate, resolution] : cases) {
        SCOPED_TRACE(testing::Message() << game.value_or("nil") << " " << level);
        EXPECT_EQ(model_.getBitRate(game, level), bitRate);
        EXPECT_EQ(model_.getResolution(game, level), resolution);
    }
    EXPECT_EQ(model_.getSupportFps("g"), (Fps{29.97, "30", 30, 60, 120}));  // by integer value, ties as sent
    EXPECT_EQ(model_.getSupportFps("n"), Fps{24});
    EXPECT_EQ(model_.getSupportFps(std::nullopt), Fps{24});
}

TEST_F(GameGlobalConfigTest, EachReplyReplacesTheTables) {
    model_.parse(json(R"({"game_list": {"a": {"mouselocked": false, "menutouchban": "YES"}, "b": {"mouselocked": 0}},
        "picuture_quality": {"a": {"1": {"bitrate": 1}}}})"));
    EXPECT_TRUE(!model_.mouseLockByGameId("a") && model_.againstMenuTouchByGameId("a"));
    EXPECT_FALSE(model_.mouseLockByGameId("b"));
    model_.parse(json(R"({"game_list": {"b": {"menutouchban": true}, "c": 1}, "enable_svip": 0})"));
    EXPECT_TRUE(model_.mouseLockByGameId("a") && !model_.againstMenuTouchByGameId("a"));
    EXPECT_TRUE(model_.mouseLockByGameId("b") && model_.againstMenuTouchByGameId("b") && model_.mouseLockByGameId("c"));
    EXPECT_EQ(model_.getBitRate("a", 1), 8);
    EXPECT_FALSE(model_.enableSVip());
}

TEST_F(GameGlobalConfigTest, ReadersSeeOneWholeConfigurationOrTheOther) {
    const Value first = json(R"({"game_list": {"g": {"mouselocked": false}}, "fps": {"g": [1, 2]},
        "picuture_quality": {"default": {"1": {"bitrate": 10}}, "g": {"1": {"bitrate": 11, "resolution": "1_1"}}}})");
    const Value second = json(R"({"game_list": {"g": {"mouselocked": false}}, "fps": {"g": [3]},
        "picuture_quality": {"default": {"1": {"bitrate": 20}}, "g": {"1": {"bitrate": 21, "resolution": "2_2"}}}})");
    model_.parse(first);
    const auto whole = [&] {
        const std::int32_t rate = model_.getBitRate("g", 1);
        const Size size = model_.getResolution("g", 1);
        const auto fps = model_.getSupportFps("g");
        return (rate == 11 || rate == 21) && (size == Size{1, 1} || size == Size{2, 2}) &&
               (fps == Fps{1, 2} || fps == Fps{3}) && !model_.mouseLockByGameId("g");
    };
    const auto write = [&] {
        for (int i = 0; i < 1000; ++i) model_.parse(i % 2 ? first : second);
    };
    EXPECT_EQ(nbtest::tornReads(write, whole), 0);
}

}  // namespace
}  // namespace nb
