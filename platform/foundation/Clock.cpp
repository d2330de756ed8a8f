#include "nbbase/foundation/Clock.h"

#include <cmath>
#include <limits>

namespace nb {

namespace {

class SystemClock final : public Clock {
public:
    WallTime now() const override { return std::chrono::system_clock::now(); }
    MonotonicTime monotonicNow() const override { return std::chrono::steady_clock::now(); }
};

}  // namespace

double Clock::secondsSince1970() const { return toSecondsSince1970(now()); }

const Clock& Clock::system() {
    static const SystemClock* const instance = new SystemClock();
    return *instance;
}

double Clock::toSecondsSince1970(WallTime t) {
    return std::chrono::duration<double>(t.time_since_epoch()).count();
}

Clock::WallTime Clock::fromSecondsSince1970(double seconds) {
    using Duration = WallTime::duration;
    // Casting a double beyond the duration's range is undefined behaviour, so saturate first. NaN has no
    // sensible place in time; it becomes the epoch.
    if (std::isnan(seconds)) return WallTime{};
    const double limit = std::chrono::duration<double>(Duration::max()).count();
    if (seconds >= limit) return WallTime::max();
    if (seconds <= -limit) return WallTime::min();
    return WallTime{std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds))};
}

}  // namespace nb
