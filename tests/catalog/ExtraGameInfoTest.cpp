#include "nbbase/catalog/ExtraGameInfo.h"

#include <gtest/gtest.h>

#include "ReplayBridge.h"

namespace nb {
namespace {

using ClickEvent = ExtraGameInfo::ClickEvent;

class ExtraGameInfoTest : public testing::Test {
protected:
    void fetch() {
        info_.fetchGameExraInfo();
        ASSERT_TRUE(replay_.drain());
    }

    nbtest::ReplayBridge replay_;
    ExtraGameInfo info_{replay_.bridge(), replay_.background()};
};

TEST_F(ExtraGameInfoTest, RecordedReplyAndFailedFetch) {
    EXPECT_EQ(info_.getClickEventByGameId("1234"), std::nullopt);
    fetch();
    EXPECT_EQ(info_.getClickEventByGameId("1234"), (ClickEvent{"Get more time", "openVipPurchasePage"}));
    EXPECT_EQ(info_.getClickEventByGameId(std::nullopt), std::nullopt);

    replay_.sdk().setFailure("getGameListExtraInfo", 1, 2, 3);  // a failed fetch clears the list
    fetch();
    EXPECT_TRUE(info_.extra().isAbsent());
}

TEST_F(ExtraGameInfoTest, WhichElementAnswers) {
    const std::pair<const char*, std::optional<ClickEvent>> cases[] = {
        {R"([{"id": 1001, "time_end_exit_btn_title": "t", "time_end_exit_btn_click_event": "e"}])", std::nullopt},
        {R"([{"id": "1001", "time_end_exit_btn_title": "t"},
             {"id": "1001", "time_end_exit_btn_title": "u", "time_end_exit_btn_click_event": "f"}])",
         ClickEvent{"u", "f"}},
        {R"([{"id": "1001", "time_end_exit_btn_title": "t", "time_end_exit_btn_click_event": ""},
             {"id": "1001", "time_end_exit_btn_title": null, "time_end_exit_btn_click_event": "e"},
             {"id": "1001", "time_end_exit_btn_title": 5, "time_end_exit_btn_click_event": "e"},
             {"id": "1001", "time_end_exit_btn_title": "x", "time_end_exit_btn_click_event": "y"}])",
         ClickEvent{"5", "e"}},
        {R"([{"id": "10010", "time_end_exit_btn_title": "t", "time_end_exit_btn_click_event": "e"}, "junk"])",
         std::nullopt},
        {R"({"id": "1001", "time_end_exit_btn_title": "t", "time_end_exit_btn_click_event": "e"})", std::nullopt},
    };
    for (const auto& [list, answer] : cases) {
        info_.setExtra(Value::dictionary({{"game_extra_list", nbtest::json(list)}}));
        EXPECT_EQ(info_.getClickEventByGameId("1001"), answer) << list;
    }
}

TEST_F(ExtraGameInfoTest, LooksUpWhileFetching) {
    const Value other = nbtest::json(R"({"game_extra_list": [{"id": "1234",
        "time_end_exit_btn_title": "Other", "time_end_exit_btn_click_event": "other"}]})");
    fetch();
    const auto write = [&] {
        for (int i = 0; i < 200; ++i) {
            i % 2 ? replay_.sdk().setReply("getGameListExtraInfo", other) : replay_.sdk().reset("getGameListExtraInfo");
            fetch();
        }
    };
    const auto whole = [&] {
        const auto answer = info_.getClickEventByGameId("1234");
        return answer == ClickEvent{"Get more time", "openVipPurchasePage"} || answer == ClickEvent{"Other", "other"};
    };
    EXPECT_EQ(nbtest::tornReads(write, whole), 0);
}

}  // namespace
}  // namespace nb
