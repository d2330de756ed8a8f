#include "nbbase/catalog/TipsButtonInfo.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "ReplayBridge.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/SerialQueue.h"

namespace nb {
namespace {

using Titles = std::vector<std::optional<std::string>>;

Value json(const char* text) { return Json::decode(std::string_view(text)).value(); }

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
        ASSERT_TRUE(nbtest::drain(background_));
    }

    nbtest::ReplayBridge replay_;
    nbtest::LogLines log_;
    SerialQueue background_{"nbtest.tips"};
    TipsButtonInfo tips_{replay_.bridge(), log_.log(), background_};
};

TEST_F(TipsButtonInfoTest, RecordedReplies) {
    EXPECT_EQ(tips_.btnDict(), nullptr);
    fetchBoth();
    EXPECT_EQ(titlesOf(tips_.getButtonInfo(1)), (Titles{"Later", "Upgrade to SVIP"}));
    EXPECT_EQ(titlesOf(tips_.getButtonInfo(2)), (Titles{"Keep idle play on"}));  // the right button alone
    ASSERT_EQ(titlesOf(tips_.getButtonInfo(3)).size(), 2u);
    EXPECT_FALSE(tips_.getButtonInfo(3)->at(1).show());
    EXPECT_EQ(tips_.getButtonInfo(4), nullptr);

    const auto menu = tips_.getTipsByGameId("1234");
    ASSERT_TRUE(menu && menu->btnArray());
    EXPECT_EQ(menu->videoUrl(), "https://video.korvane-nimbo.com/tips/1234/menu.mp4");
    EXPECT_EQ(std::vector<std::int64_t>({menu->dismissDelay(), menu->timeout(), menu->maxTime()}),
              std::vector<std::int64_t>({8, 15, 3}));
    EXPECT_EQ(menu->btnArray()->at(1).title(), "Watch the video");
    GameTipsEntry checkpoints;
    checkpoints.setContent("This game saves only at checkpoints.");
    checkpoints.setTimeout(10);
    EXPECT_EQ(*tips_.getTipsByGameId("5678"), checkpoints);
    EXPECT_EQ(tips_.gameTips()->size(), 2u);  // "version" is logged, not stored
    EXPECT_EQ(log_.lines(), std::vector<std::string>{"2 key=version,value=20261118.2"});
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
    EXPECT_EQ(log_.lines(), std::vector<std::string>{"2 key=version,value=3"});
    for (const auto& id : {std::optional<std::string>(), std::optional<std::string>(""),
                           std::optional<std::string>("124")}) {
        EXPECT_EQ(tips_.getTipsByGameId(id), nullptr) << id.value_or("(nil)");
    }
}

// A failed fetch, or one without an SDK, keeps the panels and clears the tips.
TEST_F(TipsButtonInfoTest, NilRepliesKeepPanelsAndClearTips) {
    fetchBoth();
    replay_.sdk().setFailure("getTipsButtonInfo", 1, 2, 3);
    replay_.sdk().setFailure("getGameTipsConfig", 1, 2, 3);
    fetchBoth();
    EXPECT_EQ(tips_.btnDict()->size(), 3u);
    EXPECT_TRUE(tips_.gameTips()->empty());

    replay_.sdk().reset("getGameTipsConfig");
    fetchBoth();
    ASSERT_TRUE(tips_.getTipsByGameId("1234"));
    replay_.bridge().uninitializeSDK();
    fetchBoth();
    EXPECT_EQ(tips_.btnDict()->size(), 3u);
    EXPECT_TRUE(tips_.gameTips()->empty());
}

// A reader on another thread sees one whole reply or the other, never a mix.
TEST_F(TipsButtonInfoTest, ReadsWhileFetching) {
    const Value one = json(R"({"button_types": [{"type_id": 1, "left_button": {"title": "a"}}]})");
    const Value two = json(R"({"button_types": [{"type_id": 1, "left_button": {"title": "b"},
        "right_button": {"title": "b"}}, {"type_id": 2, "left_button": {}}]})");
    tips_.parse(one);
    std::atomic<bool> done{false};
    std::thread reader([&] {
        while (!done) {
            const Titles titles = titlesOf(tips_.getButtonInfo(1));
            EXPECT_TRUE(titles == Titles{"a"} || titles == Titles(2, "b"));
            (void)tips_.getTipsByGameId("1234");
        }
    });
    for (int i = 0; i < 200; ++i) {
        replay_.sdk().setReply("getTipsButtonInfo", i % 2 ? one : two);
        tips_.fetchTipsButtonInfo();
        tips_.fetchGameTips();
    }
    EXPECT_TRUE(nbtest::drain(background_));
    done = true;
    reader.join();
}

}  // namespace
}  // namespace nb
