// nb::Clock: where the library reads the time, so that expiry, scheduling and cache ages can be tested
// with a clock the test moves (ManualClock.h) instead of waiting for real time to pass.
//
// Two readings: wall time (may jump when the user or NTP changes the system time; use it for dates that
// are stored or compared with server times) and monotonic time (never goes backwards; use it to measure
// intervals and to schedule).
//
// Threads: every reading may be taken on any thread, concurrently. Implementations must keep that true.
#pragma once

#include <chrono>

#include "nbbase/foundation/Value.h"

namespace nb {

class Clock {
public:
    using WallTime = std::chrono::system_clock::time_point;
    using MonotonicTime = std::chrono::steady_clock::time_point;

    virtual ~Clock() = default;

    virtual WallTime now() const = 0;
    virtual MonotonicTime monotonicNow() const = 0;

    // Wall time as Foundation counts it, with sub-second precision.
    double secondsSince1970() const;
    Date date() const { return Date{secondsSince1970()}; }

    // The operating system's clocks. Process-wide, created on first use and never destroyed, so it may be
    // read from any thread at any time, including during static destruction.
    static const Clock& system();

    static double toSecondsSince1970(WallTime t);
    static WallTime fromSecondsSince1970(double seconds);

protected:
    Clock() = default;
    Clock(const Clock&) = default;
    Clock& operator=(const Clock&) = default;
};

}  // namespace nb
