#include "nbbase/foundation/Clock.h"
#include "nbbase/foundation/ManualClock.h"

#include <atomic>
#include <chrono>
#include <cmath>
#include <limits>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using nb::Clock;
using nb::ManualClock;

TEST(Clock, SecondsSince1970RoundTrip) {
    for (double seconds : {0.0, 1.5, -86400.25, 1700000000.125, 4102444800.5}) {
        EXPECT_DOUBLE_EQ(Clock::toSecondsSince1970(Clock::fromSecondsSince1970(seconds)), seconds) << seconds;
    }
}

TEST(Clock, OutOfRangeSecondsSaturateInsteadOfOverflowing) {
    EXPECT_EQ(Clock::fromSecondsSince1970(1e300), Clock::WallTime::max());
    EXPECT_EQ(Clock::fromSecondsSince1970(-1e300), Clock::WallTime::min());
    EXPECT_EQ(Clock::fromSecondsSince1970(std::numeric_limits<double>::infinity()), Clock::WallTime::max());
    EXPECT_EQ(Clock::fromSecondsSince1970(std::numeric_limits<double>::quiet_NaN()), Clock::WallTime{});
}

TEST(Clock, SystemClockCountsFrom1970AndNeverRunsBackwards) {
    const Clock& clock = Clock::system();
    EXPECT_EQ(&clock, &Clock::system());
    EXPECT_GT(clock.secondsSince1970(), 1577836800.0);  // 2020-01-01: catches a wrong epoch or unit
    EXPECT_NEAR(clock.date().secondsSince1970, clock.secondsSince1970(), 3600.0);
    const auto first = clock.monotonicNow();
    EXPECT_GE(clock.monotonicNow(), first);
}

TEST(ManualClock, SetMovesWallTimeOnlyAdvanceMovesBoth) {
    ManualClock clock = ManualClock::atSecondsSince1970(1000.0);
    EXPECT_DOUBLE_EQ(clock.secondsSince1970(), 1000.0);
    EXPECT_DOUBLE_EQ(clock.date().secondsSince1970, 1000.0);
    const auto monotonicStart = clock.monotonicNow();

    clock.setSecondsSince1970(10.0);  // the user turns the system time back
    EXPECT_DOUBLE_EQ(clock.secondsSince1970(), 10.0);
    EXPECT_EQ(clock.monotonicNow(), monotonicStart);

    clock.advance(1500ms);
    clock.advanceSeconds(0.5);
    EXPECT_DOUBLE_EQ(clock.secondsSince1970(), 12.0);
    EXPECT_EQ(clock.monotonicNow() - monotonicStart, 2s);
}

TEST(ManualClock, ReadersOnOtherThreadsSeeTimeOnlyMoveForward) {
    constexpr int kSteps = 2000;
    constexpr int kReaders = 3;
    ManualClock clock(Clock::fromSecondsSince1970(100.0));
    const auto monotonicStart = clock.monotonicNow();
    std::atomic<bool> done{false};
    std::atomic<int> regressions{0};

    std::vector<std::thread> readers;
    for (int r = 0; r < kReaders; ++r) {
        readers.emplace_back([&] {
            auto lastWall = clock.now();
            auto lastMonotonic = clock.monotonicNow();
            // Read at least once after the writer finished, so every reader sees the final time too.
            for (bool finished = false; !finished;) {
                finished = done.load();
                const auto wall = clock.now();
                const auto monotonic = clock.monotonicNow();
                if (wall < lastWall || monotonic < lastMonotonic) regressions.fetch_add(1);
                lastWall = wall;
                lastMonotonic = monotonic;
            }
            if (lastMonotonic - monotonicStart != kSteps * 1ms) regressions.fetch_add(1);
        });
    }
    std::thread writer([&] {
        for (int i = 0; i < kSteps; ++i) clock.advance(1ms);
        done.store(true);
    });
    writer.join();
    for (auto& reader : readers) reader.join();

    EXPECT_EQ(regressions.load(), 0);
    EXPECT_DOUBLE_EQ(clock.secondsSince1970(), 102.0);
}

}  // namespace
