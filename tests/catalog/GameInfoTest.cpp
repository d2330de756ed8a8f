#include "nbbase/catalog/GameInfo.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "InterestsCollaborators.h"
#include "TempDir.h"
#include "foundation/ChildProcess.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/sdk/ReplaySdk.h"

namespace nb {
namespace {

using Texts = std::optional<std::vector<std::string>>;

Data bytes(const std::string& text) { return Data(text.begin(), text.end()); }

// A reply of "game_infos" elements; the member that carries `extInfo` as its text; an element of it alone.
Data reply(const std::string& infos) { return bytes(R"({"data": {"game_infos": [)" + infos + "]}}"); }
std::string extFields(const Value& extInfo) {
    return R"("ext_fields": {"ext_info": )" + *Json::encode(Value(*Json::encode(extInfo))) + "}";
}
std::string withExtInfo(const Value& extInfo) { return "{" + extFields(extInfo) + "}"; }

// The model on a real bridge whose SDK answers the time stamp the test sets, and a log the test reads.
class GameInfoTest : public testing::Test {
protected:
    void SetUp() override {
        bridge_.initializeSDK(nullptr);
        log_.setLogHandler([this](std::int32_t level, const std::string& text) {
            lines_.push_back(std::to_string(level) + " " + text);
        });
    }
    void setNow(std::int64_t now) { sdk_->setReply("getTimeStamp", Value(now)); }

    nbtest::TempDir dir_{"nbgameinfo"};
    NBConfiguration config_{std::make_shared<UserDefaults>(std::string(NBConfiguration::kSuiteName), dir_.path()),
                            dir_.path(), {}, {}};
    NBNetworkCheck network_{[] { return NBNetworkCheck::kWired; }};
    NBLog bridgeLog_;
    std::shared_ptr<ReplaySdk> sdk_ = std::make_shared<ReplaySdk>(NBBASE_SOURCE_DIR "/examples/replies");
    NimboSdkManager bridge_{[this] { return sdk_; }, {}, config_, network_, bridgeLog_};
    NBLog log_;
    std::vector<std::string> lines_;  // written by the test's own thread only
    GameInfo game_{bridge_, Localization::sharedInstance(), log_};
};

TEST_F(GameInfoTest, RecordedReply) {
    const std::string recorded = nbtest::recordedReply("gameInfo.json");
    ASSERT_TRUE(game_.parse(bytes(recorded)));
    EXPECT_TRUE(game_.isLimitedGame() && game_.isLimitedTimeValid());
    EXPECT_FALSE(game_.isTestGame());
    EXPECT_TRUE(game_.waitFirstScene() && game_.isNeedHideVipQueueBtn() && game_.isSupportSkipArchive());
    EXPECT_EQ(game_.obtainGameEvents(), (Texts{{"Buy on the store", "openObtainGameWebPage",
                                                "https://store.korvane-nimbo.com/games/1234"}}));
    EXPECT_TRUE(game_.isPermissionMode() && !game_.gameWithoutPermission() && !game_.isCopyGameMode());
    EXPECT_EQ(game_.gameId(), Value("1234"));
    EXPECT_EQ(game_.playGetBtnTarget(), "nimbo://store/game?game_id=1234");
    EXPECT_EQ(game_.dict(), *Json::decode(recorded));
}

TEST_F(GameInfoTest, TagPeriodRules) {
    struct Case {
        std::int64_t start, end, now;
        bool valid;
    } const cases[] = {
        {0, 0, 5, true},       {-1, 100, 50, false}, {100, 200, 100, true}, {100, 200, 200, true},
        {100, 200, 99, false}, {100, 200, 201, false}, {100, 0, 100, true},  {100, 0, 99, false},
        {100, -1, 150, false}, {0, -1, -5, false},    {0, 200, 1, false},    {0, 200, 0, true},
        {0, 200, -3, true},
    };
    for (const Case& c : cases) {
        game_.parse(reply(R"({"show_tag_bit": 3, "free_tag_start_ts": )" + std::to_string(c.start) +
                          R"(, "free_tag_end_ts": )" + std::to_string(c.end) + "}"));
        setNow(c.now);
        SCOPED_TRACE(testing::Message() << c.now << " in (" << c.start << ", " << c.end << ")");
        EXPECT_EQ(game_.isTagTimeValid(), c.valid);
        EXPECT_EQ(game_.isTestGame() && game_.isLimitedGame(), c.valid);
        EXPECT_EQ(game_.isLimitedTimeValid(), c.valid && c.end >= 1);
    }
    bridge_.uninitializeSDK();  // without an SDK the time is 0
    EXPECT_TRUE(game_.isTagTimeValid());
}

TEST_F(GameInfoTest, AbsentKeysKeepFieldsAndTheLastElementWins) {
    ASSERT_TRUE(game_.parse(reply(R"({"game_id": "1", "type": "12abc", "subscribe_mode": 2, "my_game_info":
        {"play_time_left": 30}, "permission_type": 1, "permission_value": 0}, {"game_id": 2, "skip_payment": 1})")));
    EXPECT_EQ(game_.gameId(), Value(2));  // as sent
    EXPECT_EQ(game_.gameType(), 12);
    EXPECT_TRUE(game_.isCopyGameMode() && game_.gameWithoutPermission());
    EXPECT_EQ(game_.copyGameTimeLeft(), 30);

    EXPECT_TRUE(game_.parse(bytes(R"({"data": {}})")));
    EXPECT_FALSE(game_.parse(bytes(R"({"data": [1]})")));
    EXPECT_FALSE(game_.parse(bytes("not json")));
    EXPECT_TRUE(game_.dict().isAbsent() && game_.isChanged());
    EXPECT_EQ(game_.skipPayment(), 1);
    EXPECT_EQ(game_.copyGameTimeLeft(), 30);

    game_.parseDict(*Json::decode(R"({"time_info": {"left_minute": "45"}, "permission": {"permission_value": 1}})"));
    EXPECT_EQ(game_.copyGameTimeLeft(), 45);
    EXPECT_FALSE(game_.gameWithoutPermission());
    game_.parse(reply(R"({"my_game_info": {"is_my_game": true}})"));
    game_.parseDict(*Json::decode(R"({"time_info": {"left_minute": 5}})"));
    EXPECT_EQ(game_.copyGameTimeLeft(), 45);  // a copy the user owns has no time left to count
    EXPECT_TRUE(game_.isPossessCopyGame());

    game_.reset();
    EXPECT_TRUE(game_.gameId().isAbsent());
    EXPECT_EQ(game_.gameType(), 0);
    EXPECT_EQ(game_.skipPayment(), 0);
    EXPECT_TRUE(game_.myGame());
}

TEST_F(GameInfoTest, ExtInfoTextsAndFlags) {
    game_.parse(reply(withExtInfo(Value::dictionary({{"play_get_btn_text", "Get"}, {"obtain_game_url", "u1"},
                                                     {"hide_queue_vip_btn", "1"}, {"archive_if_can_skip", " 7 "}}))));
    EXPECT_EQ(game_.playGetBtnText(), "Get");
    EXPECT_EQ(game_.obtainGameEvents(), (Texts{{"Obtain game", "openObtainGameWebPage", "u1"}}));
    EXPECT_TRUE(game_.isNeedHideVipQueueBtn() && game_.isSupportSkipArchive());
    for (const Value& flag : {Value(""), Value("abc"), Value(0), Value("1e"), Value::null()}) {
        game_.parse(reply(withExtInfo(Value::dictionary({{"hide_queue_vip_btn", flag}}))));
        EXPECT_TRUE(game_.isNeedHideVipQueueBtn()) << flag.description();
    }
    game_.parse(reply(withExtInfo(Value::dictionary({{"hide_queue_vip_btn", "0.5"}, {"obtain_game_url", ""}}))));
    EXPECT_FALSE(game_.isNeedHideVipQueueBtn());
    EXPECT_EQ(game_.playGetBtnText(), std::nullopt);
    EXPECT_EQ(game_.obtainGameEvents(), std::nullopt);
    EXPECT_EQ(game_.lastValidObtainGameUrl(), "");

    game_.setPlayGetBtnText("kept");
    game_.parse(reply(R"({"ext_fields": {"ext_info": "[1]"}}, {"ext_fields": {"ext_info": "{"}})"));
    EXPECT_EQ(game_.playGetBtnText(), "kept");  // ext info that is no JSON object is skipped
    game_.parse(reply(withExtInfo(Value::dictionary({{"obtain_game_url", 1}}))));
    EXPECT_EQ(game_.playGetBtnText(), std::nullopt);
    EXPECT_EQ(game_.obtainGameWebUrl(), "1");
    game_.parse(reply(withExtInfo(Value::dictionary({{"play_get_btn_text", "x"}}))));
    EXPECT_EQ(game_.obtainGameWebUrl(), std::nullopt);
    EXPECT_EQ(lines_, std::vector<std::string>{"4 failed to get obtain game webpage url"});
    EXPECT_EQ(game_.lastValidObtainGameUrl(), "1");
}

TEST(GameInfoNumeric, ReadsOneDecimalNumberAndWhiteSpace) {
    for (const char* yes : {"1", "0", "-2", "+3", "1.5", ".5", "1.", " 7", "7 \n", "\u00a0\u30001e5\u2028", "2E-3",
                            "1e400"})
        EXPECT_TRUE(GameInfo::isNumeric(yes)) << yes;
    for (const char* no : {"", " ", "1a", "yes", "1e", "1e+", ".", "+", "+-1", "inf", "nan", "0x1A", "1 2", "\xc2"})
        EXPECT_FALSE(GameInfo::isNumeric(no)) << no;
}

TEST_F(GameInfoTest, ReadersSeeOneReplyOrTheOther) {
    const auto obtain = [](const char* text) {
        return extFields(Value::dictionary({{"obtain_game_title", text}, {"obtain_game_url", text}})) + "}";
    };
    const Data owned = reply(R"({"subscribe_mode": 2, "my_game_info": {"is_my_game": true}, "permission_type": 1,
        "permission_value": 1, )" + obtain("a"));
    const Data other = reply(R"({"subscribe_mode": 1, "my_game_info": {"is_my_game": false}, "permission_type": 0,
        "permission_value": 0, )" + obtain("b"));
    game_.parse(owned);
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (int i = 0; i < 2000; ++i) game_.parse(i % 2 ? owned : other);
        done = true;
    });
    bool torn = false;
    while (!done && !torn) {
        const auto events = game_.obtainGameEvents();
        // Mode 2 of one reply with the ownership of the other, or the permission type of one with the value
        // of the other, or one reply's title with the other's URL.
        torn = game_.isCopyGameMode() || game_.gameWithoutPermission() || !events || events->front() != events->back();
    }
    writer.join();
    EXPECT_FALSE(torn);
}

TEST(GameInfoLocalization, ObtainGameIsTranslated) {
    const auto lines = test::ChildProcess::runInLocale("nbtest_localization", {"Obtain game"},
                                                       {"LC_ALL=C.UTF-8", "LANGUAGE=zh_CN"});
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.front(), "获取游戏");
}

}  // namespace
}  // namespace nb
