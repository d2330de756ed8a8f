#include "nbbase/catalog/HangupInfo.h"

#include <gtest/gtest.h>

#include <limits>
#include <tuple>

#include "InterestsCollaborators.h"
#include "ReplayBridge.h"
#include "nbbase/foundation/ManualClock.h"

namespace nb {
namespace {

constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max(), kMin = std::numeric_limits<std::int64_t>::min();

std::string reply(std::int32_t status, std::int64_t serverTime, std::int64_t forecastEnd) {
    return R"({"game_status": )" + std::to_string(status) + R"(, "server_time": )" + std::to_string(serverTime) +
           R"(, "forecast_end_time": )" + std::to_string(forecastEnd) + "}";
}

class HangupInfoTest : public testing::Test {
protected:
    ManualClock clock_{ManualClock::fromSecondsSince1970(1795000000)};
    nbtest::LogLines log_;
    HangupInfo info_{clock_, log_.log()};
};

TEST_F(HangupInfoTest, RecordedReplies) {
    ASSERT_TRUE(info_.parse(nbtest::recordedReply("checkGameHangUpStatus.json")));
    EXPECT_TRUE(info_.isHangingUp() && !info_.isHangUpEnd());
    EXPECT_EQ(info_.instanceId(), Value("ins-sh2-0417-88f1"));
    EXPECT_EQ(info_.hangupRemainTimeInSec(), 1200);
    clock_.advanceSeconds(0.75);
    EXPECT_EQ(info_.hangupRemainTimeInSec(), 1199);

    const std::string stopped = nbtest::recordedReply("stopHangUp.json");
    EXPECT_TRUE(info_.parseHangUpResult(Value(), stopped));
    ASSERT_TRUE(info_.parse(stopped));
    EXPECT_TRUE(info_.isHangUpEnd() && !info_.isHangingUp());
    EXPECT_EQ(info_.totalHangUpSeconds(), 600);
    EXPECT_EQ(info_.hangupRemainTimeInSec(), 0);
    EXPECT_EQ(info_.hangupEndTimeExpected(), 1795001200);  // not in that reply: kept
    EXPECT_TRUE(log_.take().empty());
}

TEST_F(HangupInfoTest, RemainingTime) {
    const std::tuple<std::int32_t, std::int64_t, std::int64_t, std::int64_t> cases[] = {
        {2, 1000, 5000, 5000 - 1795000000}, {2, 5001, 5000, 0},  {2, 0, 5000, 0}, {2, 1000, 0, 0},
        {3, 1000, 5000, 0},                 {2, 5000, 5000, 5000 - 1795000000}, {2, kMin, kMin + 1, kMin},
    };
    for (const auto& [status, serverTime, forecastEnd, remaining] : cases) {
        ASSERT_TRUE(info_.parse(reply(status, serverTime, forecastEnd)));
        EXPECT_EQ(info_.hangupRemainTimeInSec(), remaining) << status << " " << serverTime << " " << forecastEnd;
    }
    clock_.setSecondsSince1970(-1e9);
    ASSERT_TRUE(info_.parse(reply(2, 1, kMax)));
    EXPECT_EQ(info_.hangupRemainTimeInSec(), kMax);
}

TEST_F(HangupInfoTest, TotalWrapsIn32Bits) {
    const std::tuple<std::int64_t, std::int64_t, std::int32_t> cases[] = {
        {100, 700, 600}, {0, 0x100000005, 5}, {5, 0, -5}, {0, 0x80000000, INT32_MIN}, {kMax, kMin, 1}};
    for (const auto& [begin, end, total] : cases) {
        info_.parse(R"({"game_status": 3, "onhook_begin_time": )" + std::to_string(begin) +
                    R"(, "onhook_end_time": )" + std::to_string(end) + "}");
        EXPECT_EQ(info_.totalHangUpSeconds(), total) << begin << " " << end;
    }
    info_.parse(R"({"game_status": "2"})");
    EXPECT_EQ(info_.totalHangUpSeconds(), 0);
}

TEST_F(HangupInfoTest, FailuresChangeNothing) {
    ASSERT_TRUE(info_.parse(reply(2, 1000, 5000)));
    EXPECT_FALSE(info_.parse(R"({"code": 1001, "message": "x", "game_status": 3})"));
    EXPECT_FALSE(info_.parse(R"({"code": "7abc"})"));
    const std::optional<std::string> notReplies[] = {std::nullopt, "not json", "5", "[]"};
    for (const auto& text : notReplies) {
        EXPECT_FALSE(info_.parse(text));
        EXPECT_FALSE(info_.parseHangUpResult(Value(), text));
    }
    EXPECT_EQ(log_.take(),
              (std::vector<std::string>{"4 parse hangup info error[1001,x]", "4 parse hangup info error[7,(null)]"}));
    EXPECT_TRUE(info_.isHangingUp());
    EXPECT_EQ(info_.currentTS(), 1000);

    ASSERT_TRUE(info_.parse(R"({"code": 0, "game_id": 12})"));  // no status: the kept one decides
    EXPECT_TRUE(info_.isHangingUp());
    EXPECT_EQ(info_.gameId(), Value(12));
    EXPECT_EQ(info_.hangupEndTimeExpected(), 5000);

    EXPECT_FALSE(info_.parseHangUpResult(Value("anything"), R"({"code": 7, "message": "busy"})"));
    EXPECT_TRUE(info_.parseHangUpResult(Value(), R"({"message": "no code"})"));
    EXPECT_TRUE(info_.parseHangUpResult(Value(), R"({"code": "0"})"));
    EXPECT_EQ(log_.take(), std::vector<std::string>{"4 parseHangUpResult error[7,busy]"});
}

TEST_F(HangupInfoTest, ReadersSeeOneReplyOrTheOther) {
    const std::string first = R"({"game_status": 3, "onhook_begin_time": 0, "onhook_end_time": 600})";
    const std::string second = R"({"game_status": 3, "onhook_begin_time": 1000, "onhook_end_time": 1300})";
    info_.parse(first);
    const auto write = [&] {
        for (int i = 0; i < 2000; ++i) info_.parse(i % 2 ? first : second);
    };
    const auto whole = [&] {  // else the begin of one reply with the end of the other
        const std::int32_t total = info_.totalHangUpSeconds();
        return total == 600 || total == 300;
    };
    EXPECT_EQ(nbtest::tornReads(write, whole), 0);
}

}  // namespace
}  // namespace nb
