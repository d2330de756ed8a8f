#include "nbbase/catalog/GameInfo.h"

#include <gtest/gtest.h>

#include <tuple>

#include "InterestsCollaborators.h"
#include "ReplayBridge.h"
#include "foundation/ChildProcess.h"

namespace nb {
namespace {

using nbtest::bytes;
using Texts = std::optional<std::vector<std::string>>;

// A reply of "game_infos" elements; the member that carries `extInfo` as its text; an element of it alone.
Data reply(const std::string& infos) { return bytes(R"({"data": {"game_infos": [)" + infos + "]}}"); }
std::string extFields(const Value& extInfo) {
    return R"("ext_fields": {"ext_info": )" + *Json::encode(Value(*Json::encode(extInfo))) + "}";
}
Data extReply(const Value& extInfo) { return reply("{" + extFields(extInfo) + "}"); }

// The SDK answers the time stamp the test sets.
class GameInfoTest : public testing::Test {
protected:
    void setNow(std::int64_t now) { replay_.sdk().setReply("getTimeStamp", Value(now)); }

    nbtest::ReplayBridge replay_;
    GameInfo game_{replay_.bridge(), Localization::sharedInstance(), replay_.log()};
};

TEST_F(GameInfoTest, RecordedReply) {
    const std::string recorded = nbtest::recordedReply("gameInfo.json");
    ASSERT_TRUE(game_.parse(bytes(recorded)));
    EXPECT_TRUE(game_.isLimitedGame() && game_.isLimitedTimeValid() && !game_.isTestGame());
    EXPECT_TRUE(game_.waitFirstScene() && game_.isNeedHideVipQueueBtn() && game_.isSupportSkipArchive());
    EXPECT_EQ(game_.obtainGameEvents(),
              (Texts{{"Buy on the store", "openObtainGameWebPage", "https://store.korvane-nimbo.com/games/1234"}}));
    EXPECT_EQ(game_.playGetBtnTarget(), "nimbo://store/game?game_id=1234");
    EXPECT_EQ(game_.dict(), *Json::decode(recorded));
}

TEST_F(GameInfoTest, TagPeriodRules) {
    const std::tuple<std::int64_t, std::int64_t, std::int64_t, bool> cases[] = {
        {0, 0, 5, true},       {-1, 100, 50, false},   {100, 200, 100, true}, {100, 200, 200, true},
        {100, 200, 99, false}, {100, 200, 201, false}, {100, 0, 100, true},   {100, 0, 99, false},
        {100, -1, 150, false}, {0, -1, -5, false},     {0, 200, 1, false},    {0, 200, 0, true},
        {0, 200, -3, true},
    };
    for (const auto& [start, end, now, valid] : cases) {
        game_.parse(reply(R"({"show_tag_bit": 3, "free_tag_start_ts": )" + std::to_string(start) +
                          R"(, "free_tag_end_ts": )" + std::to_string(end) + "}"));
        setNow(now);
        SCOPED_TRACE(testing::Message() << now << " in (" << start << ", " << end << ")");
        EXPECT_EQ(game_.isTagTimeValid(), valid);
        EXPECT_EQ(game_.isTestGame() && game_.isLimitedGame(), valid);
        EXPECT_EQ(game_.isLimitedTimeValid(), valid && end >= 1);
    }
    replay_.bridge().uninitializeSDK();  // without an SDK the time is 0
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
    EXPECT_TRUE(game_.gameId().isAbsent() && game_.gameType() == 0 && game_.skipPayment() == 0 && game_.myGame());
}

TEST_F(GameInfoTest, ExtInfo) {
    // Both flags take a string that reads whole as a number; anything else leaves them as they were.
    const std::pair<Value, bool> flags[] = {{"1", true},           {"", true},   {"abc", true}, {0, true},
                                            {Value::null(), true}, {"0", false}, {" 7", true},  {"0.5", false}};
    for (const auto& [flag, set] : flags) {
        game_.parse(extReply(Value::dictionary({{"hide_queue_vip_btn", flag}, {"archive_if_can_skip", flag}})));
        EXPECT_EQ(game_.isNeedHideVipQueueBtn(), set) << flag.description();
        EXPECT_EQ(game_.isSupportSkipArchive(), set) << flag.description();
    }

    // Every text is assigned, nil when missing; the last valid URL survives replies without one.
    game_.parse(extReply(Value::dictionary({{"obtain_game_title", "t"}, {"obtain_game_event", "e"},
                                            {"play_get_btn_text", "g"}, {"obtain_game_url", "u0"}})));
    EXPECT_EQ(game_.obtainGameEvents(), (Texts{{"t", "e", "u0"}}));
    game_.parse(extReply(Value::dictionary({{"obtain_game_url", "u1"}})));
    EXPECT_EQ(game_.obtainGameEvents(), (Texts{{"Obtain game", "openObtainGameWebPage", "u1"}}));
    EXPECT_EQ(game_.playGetBtnText(), std::nullopt);
    game_.parse(extReply(Value::dictionary({{"obtain_game_url", ""}})));
    EXPECT_EQ(game_.obtainGameEvents(), std::nullopt);
    EXPECT_EQ(game_.lastValidObtainGameUrl(), "");

    game_.setPlayGetBtnText("kept");
    game_.parse(reply(R"({"ext_fields": {"ext_info": "[1]"}}, {"ext_fields": {"ext_info": "{"}})"));
    EXPECT_EQ(game_.playGetBtnText(), "kept");  // ext info that is no JSON object is skipped
    game_.parse(extReply(Value::dictionary({{"obtain_game_url", 1}})));
    EXPECT_EQ(game_.obtainGameWebUrl(), "1");
    game_.parse(extReply(Value::dictionary({{"play_get_btn_text", "x"}})));
    EXPECT_EQ(game_.playGetBtnText(), "x");
    EXPECT_EQ(game_.obtainGameWebUrl(), std::nullopt);
    EXPECT_EQ(replay_.logged(), std::vector<std::string>{"4 failed to get obtain game webpage url"});
    EXPECT_EQ(game_.lastValidObtainGameUrl(), "1");
}

TEST(GameInfoNumeric, ReadsOneDecimalNumberAndWhiteSpace) {
    for (const char* yes : {"1", "-2", "+3", ".5", "1.", "7 \n", "\u00a0\u30001e5\u2028", "2E-3", "1e400"})
        EXPECT_TRUE(GameInfo::isNumeric(yes)) << yes;
    for (const char* no : {"", " ", "1a", "1e", "1e+", ".", "+", "+-1", "inf", "nan", "0x1A", "1 2", "\xc2"})
        EXPECT_FALSE(GameInfo::isNumeric(no)) << no;
}

TEST_F(GameInfoTest, ReadersSeeOneReplyOrTheOther) {
    const auto element = [](const char* fields, const char* text) {
        return reply(std::string(fields) + extFields(Value::dictionary({{"obtain_game_title", text},
                                                                         {"obtain_game_url", text}})) + "}");
    };
    const Data owned = element(R"({"subscribe_mode": 2, "my_game_info": {"is_my_game": true},
        "permission_type": 1, "permission_value": 1, )", "a");
    const Data other = element(R"({"subscribe_mode": 1, "my_game_info": {"is_my_game": false},
        "permission_type": 0, "permission_value": 0, )", "b");
    game_.parse(owned);
    // Torn: mode 2 of one reply with the ownership of the other, the permission type of one with the value of
    // the other, or one reply's title with the other's URL.
    const auto whole = [&] {
        const auto events = game_.obtainGameEvents();
        return !game_.isCopyGameMode() && !game_.gameWithoutPermission() && events && events->front() == events->back();
    };
    const auto write = [&] {
        for (int i = 0; i < 2000; ++i) game_.parse(i % 2 ? owned : other);
    };
    EXPECT_EQ(nbtest::tornReads(write, whole), 0);
}

TEST(GameInfoLocalization, ObtainGameIsTranslated) {
    const auto lines = test::ChildProcess::runInLocale("nbtest_localization", {"Obtain game"},
                                                       {"LC_ALL=C.UTF-8", "LANGUAGE=zh_CN"});
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.front(), "获取游戏");
}

}  // namespace
}  // namespace nb
