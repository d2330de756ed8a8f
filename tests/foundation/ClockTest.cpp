#include "nbbase/foundation/Clock.h"
#include "nbbase/foundation/ManualClock.h"

#include <chrono>
#include <limits>

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using nb::Clock;
using nb::ManualClock;

TEST(Clock, OutOfRangeSecondsSaturateInsteadOfOverflowing) {
    EXPECT_EQ(Clock::fromSecondsSince1970(1e300), Clock::WallTime::max());
    EXPECT_EQ(Clock::fromSecondsSince1970(-1e300), Clock::WallTime::min());
    EXPECT_EQ(Clock::fromSecondsSince1970(std::numeric_limits<double>::quiet_NaN()), Clock::WallTime{});
}

// Tests move time by hand; setting the wall time back must leave the monotonic time where it was.
TEST(ManualClock, SettingTheWallTimeBackLeavesTheMonotonicTime) {
    ManualClock clock(Clock::fromSecondsSince1970(100.0));
    const auto monotonicStart = clock.monotonicNow();
    clock.advance(2000ms);
    EXPECT_DOUBLE_EQ(clock.secondsSince1970(), 102.0);
    clock.setSecondsSince1970(10.0);
    EXPECT_DOUBLE_EQ(clock.secondsSince1970(), 10.0);
    EXPECT_EQ(clock.monotonicNow() - monotonicStart, 2000ms);
}

}  // namespace
