#include "nbbase/catalog/TipsButtonInfo.h"

#include <gtest/gtest.h>

#include "ReplayBridge.h"

namespace nb {
namespace {

using nbtest::json;
using Titles = std::vector<std::optional<std::string>>;

Titles titlesOf(const TipsButtonInfo::Buttons& buttons) {
    Titles titles;
    for (const TipsButton& button : buttons ? *buttons : std::vector<TipsButton>()) titles.push_back(button.title());
    return titles;
}

class TipsButtonInfoTest : public testing::Test {
protected:
    void fetchBoth() {
        tips_.fetchTipsButtonInfo();
        tips_.fetchGameTips();
        ASSERT_TRUE(replay_.drain());
    }

    nbtest::ReplayBridge replay_;
    TipsButtonInfo tips_{replay_.bridge(), replay_.log(), replay_.background()};
};

// The recorded replies, then failed fetches and fetches without an SDK: those keep the panels and clear the tips.
TEST_F(TipsButtonInfoTest, RecordedRepliesThenNilReplies) {
    fetchBoth();
    EXPECT_EQ(titlesOf(tips_.getButtonInfo(1)), (Titles{"Later", "Upgrade to SVIP"}));
    EXPECT_EQ(titlesOf(tips_.getButtonInfo(2)), (Titles{"Keep idle play on"}));  // the right button alone
    const auto menu = tips_.getTipsByGameId("1234");
    ASSERT_TRUE(menu);
    EXPECT_EQ(menu->videoUrl(), "https://video.korvane-nimbo.com/tips/1234/menu.mp4");
    EXPECT_EQ(tips_.getTipsByGameId("5678")->content(), "This game saves only at checkpoints.");
    EXPECT_EQ(tips_.gameTips()->size(), 2u);  // "version" is logged, not stored
    EXPECT_EQ(replay_.logged(), std::vector<std::string>{"2 key=version,value=20261118.2"});

    for (const bool withoutSdk : {false, true}) {
        replay_.sdk().reset("getGameTipsConfig");
        fetchBoth();
        ASSERT_TRUE(tips_.getTipsByGameId("1234"));
        replay_.sdk().setFailure("getTipsButtonInfo", 1, 2, 3);
        replay_.sdk().setFailure("getGameTipsConfig", 1, 2, 3);
        if (withoutSdk) replay_.bridge().uninitializeSDK();
        fetchBoth();
        EXPECT_EQ(tips_.btnDict()->size(), 3u);
        EXPECT_TRUE(tips_.gameTips()->empty());
    }
}

TEST_F(TipsButtonInfoTest, PanelsByButtonType) {
    tips_.parse(json(R"({"button_types": [
        {"type_id": 7, "left_button": {"title": "first"}},
        {"type_id": "7", "right_button": {"title": "second", "enable": "YES", "highlight": 1, "jump_url": 5}},
        {"type_id": 8, "left_button": {"title": "gone"}}, {"type_id": 8.0},
        {"type_id": 9, "left_button": {"title": null}, "right_button": "not a button"}, "not a panel"]})"));
    const auto seven = tips_.getButtonInfo(7);  // the later panel wins, whatever the kind of its id
    ASSERT_EQ(titlesOf(seven), (Titles{"second"}));
    EXPECT_TRUE((*seven)[0].show() && (*seven)[0].highLight());
    EXPECT_EQ((*seven)[0].startUrl(), "5");
    EXPECT_EQ(tips_.getButtonInfo(8), nullptr);  // a panel without buttons removes its type
    EXPECT_EQ(*tips_.getButtonInfo(9), std::vector<TipsButton>(2));  // missing and null read as false and nil

    // A new reply replaces every panel; a panel already handed out stays as it was.
    tips_.parse(json(R"({"button_types": [{"type_id": 1, "right_button": {}}]})"));
    EXPECT_EQ(tips_.getButtonInfo(7), nullptr);
    EXPECT_EQ((*seven)[0].title(), "second");
}

TEST_F(TipsButtonInfoTest, GameTipsEntries) {
    tips_.parseGameTips(json(R"({"version": 3, "123": {"en": "Hi", "timeout": 5},
        "77": {"dismiss_delay": "12abc", "max_time": 1e30, "right_button": {"title": "only"}}, "88": null})"));
    GameTipsEntry hi;
    hi.setContent("Hi");
    hi.setTimeout(5);
    EXPECT_EQ(*tips_.getTipsByGameId("123"), hi);
    const auto other = tips_.getTipsByGameId("77");
    ASSERT_TRUE(other && other->btnArray() && other->btnArray()->size() == 1);
    EXPECT_EQ(other->btnArray()->front().title(), "only");
    EXPECT_EQ(other->dismissDelay(), 12);
    EXPECT_EQ(other->maxTime(), INT64_MAX);
    EXPECT_EQ(*tips_.getTipsByGameId("88"), GameTipsEntry());
    EXPECT_EQ(replay_.logged(), std::vector<std::string>{"2 key=version,value=3"});
    EXPECT_FALSE(tips_.getTipsByGameId(std::nullopt) || tips_.getTipsByGameId("") || tips_.getTipsByGameId("124"));
}

TEST_F(TipsButtonInfoTest, ReadersSeeOneReplyOrTheOther) {
    const Value one = json(R"({"button_types": [{"type_id": 1, "left_button": {"title": "a"}}]})");
    const Value two = json(R"({"button_types": [{"type_id": 1, "left_button": {"title": "b"},
        "right_button": {"title": "b"}}, {"type_id": 2, "left_button": {}}]})");
    fetchBoth();
    tips_.parse(one);
    const auto write = [&] {
        for (int i = 0; i < 200; ++i) {
            replay_.sdk().setReply("getTipsButtonInfo", i % 2 ? one : two);
            fetchBoth();
        }
    };
    const auto whole = [&] {
        const Titles titles = titlesOf(tips_.getButtonInfo(1));
        return tips_.getTipsByGameId("1234") && (titles == Titles{"a"} || titles == Titles(2, "b"));
    };
    EXPECT_EQ(nbtest::tornReads(write, whole), 0);
}

}  // namespace
}  // namespace nb
