#include "nbbase/foundation/ManualClock.h"

#include <algorithm>
#include <cassert>
#include <cmath>

namespace nb {

ManualClock::ManualClock(WallTime start) : wall_(start), monotonic_() {}

Clock::WallTime ManualClock::now() const {
    std::lock_guard lock(mutex_);
    return wall_;
}

Clock::MonotonicTime ManualClock::monotonicNow() const {
    std::lock_guard lock(mutex_);
    return monotonic_;
}

void ManualClock::set(WallTime t) {
    std::lock_guard lock(mutex_);
    wall_ = t;
}

void ManualClock::advance(std::chrono::nanoseconds by) {
    assert(by.count() >= 0 && "ManualClock::advance: time does not run backwards");
    if (by.count() < 0) return;
    // The system clock is only microsecond-grained on some platforms; a finer step is lost there.
    const auto wallStep = std::chrono::duration_cast<WallTime::duration>(by);
    const auto monotonicStep = std::chrono::duration_cast<MonotonicTime::duration>(by);
    std::lock_guard lock(mutex_);
    wall_ += wallStep;
    monotonic_ += monotonicStep;
}

void ManualClock::advanceSeconds(double seconds) {
    assert(!(seconds < 0) && "ManualClock::advanceSeconds: time does not run backwards");
    if (!(seconds > 0)) return;
    // Saturate instead of overflowing the cast for absurd steps.
    constexpr double kMaxSeconds = 9.2e9;  // about 290 years: far below int64 nanoseconds' limit
    const double clamped = std::min(seconds, kMaxSeconds);
    advance(std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(clamped)));
}

}  // namespace nb
