#include "nbbase/catalog/ExtraGameInfo.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "ReplayBridge.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/SerialQueue.h"

namespace nb {
namespace {

using ClickEvent = ExtraGameInfo::ClickEvent;

class ExtraGameInfoTest : public testing::Test {
protected:
    void fetch() {
        info_.fetchGameExraInfo();
        ASSERT_TRUE(nbtest::drain(background_));
    }

    nbtest::ReplayBridge replay_;
    SerialQueue background_{"nbtest.extra"};
    ExtraGameInfo info_{replay_.bridge(), background_};
};

TEST_F(ExtraGameInfoTest, RecordedReplyAndFailedFetch) {
    EXPECT_EQ(info_.getClickEventByGameId("1234"), std::nullopt);
    fetch();
    EXPECT_EQ(info_.getClickEventByGameId("1234"), (ClickEvent{"Get more time", "openVipPurchasePage"}));
    EXPECT_EQ(info_.getClickEventByGameId("5678"), (ClickEvent{"Earn time with tasks", "openTaskCenter"}));
    EXPECT_EQ(info_.getClickEventByGameId(std::nullopt), std::nullopt);

    replay_.sdk().setFailure("getGameListExtraInfo", 1, 2, 3);  // a failed fetch clears the list
    fetch();
    EXPECT_TRUE(info_.extra().isAbsent());
}

TEST_F(ExtraGameInfoTest, WhichElementAnswers) {
    struct Case {
        const char* list;
        std::optional<ClickEvent> answer;
    };
    const Case cases[] = {
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
    for (const auto& c : cases) {
        SCOPED_TRACE(c.list);
        info_.setExtra(Value::dictionary({{"game_extra_list", *Json::decode(std::string_view(c.list))}}));
        EXPECT_EQ(info_.getClickEventByGameId("1001"), c.answer);
    }
}

TEST_F(ExtraGameInfoTest, LooksUpWhileFetching) {
    const Value other = *Json::decode(std::string_view(R"({"game_extra_list": [{"id": "1234",
        "time_end_exit_btn_title": "Other", "time_end_exit_btn_click_event": "other"}]})"));
    fetch();
    std::atomic<bool> done{false};
    std::thread reader([&] {
        while (!done) {
            const auto answer = info_.getClickEventByGameId("1234");
            EXPECT_TRUE(answer && (answer->title == "Get more time" || answer->title == "Other"));
        }
    });
    for (int i = 0; i < 200; ++i) {
        i % 2 ? replay_.sdk().setReply("getGameListExtraInfo", other) : replay_.sdk().reset("getGameListExtraInfo");
        info_.fetchGameExraInfo();
    }
    EXPECT_TRUE(nbtest::drain(background_));
    done = true;
    reader.join();
}

}  // namespace
}  // namespace nb
