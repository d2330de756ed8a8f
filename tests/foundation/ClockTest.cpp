#include "nbbase/foundation/Clock.h"
#include "nbbase/foundation/ManualClock.h"

#include <atomic>
#include <chrono>
#include <limits>
#include <thread>
#include <vector>

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

// Setting the wall time back must not move the monotonic time, and readers must never see either go back.
TEST(ManualClock, ReadersOnOtherThreadsSeeTimeOnlyMoveForward) {
    ManualClock clock(Clock::fromSecondsSince1970(100.0));
    const auto monotonicStart = clock.monotonicNow();
    std::atomic<bool> done{false};
    std::atomic<int> regressions{0};
    std::vector<std::thread> readers;
    for (int r = 0; r < 2; ++r) {
        readers.emplace_back([&] {
            auto lastWall = clock.now();
            auto lastMonotonic = clock.monotonicNow();
            for (bool finished = false; !finished;) {  // reads once more after the writer finished
                finished = done.load();
                const auto wall = clock.now();
                const auto monotonic = clock.monotonicNow();
                if (wall < lastWall || monotonic < lastMonotonic) regressions.fetch_add(1);
                lastWall = wall;
                lastMonotonic = monotonic;
            }
            if (lastMonotonic - monotonicStart != 2000ms) regressions.fetch_add(1);
        });
    }
    for (int i = 0; i < 2000; ++i) clock.advance(1ms);
    done.store(true);
    for (auto& reader : readers) reader.join();
    EXPECT_EQ(regressions.load(), 0);
    EXPECT_DOUBLE_EQ(clock.secondsSince1970(), 102.0);
    clock.setSecondsSince1970(10.0);
    EXPECT_EQ(clock.monotonicNow() - monotonicStart, 2000ms);
}

}  // namespace
