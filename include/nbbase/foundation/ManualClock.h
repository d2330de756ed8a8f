// nb::ManualClock: a Clock that moves only when told, the test double for nb::Clock.
//
// set() moves the wall time alone, as a user changing the system time would; the monotonic reading is not
// affected. advance() moves both by the same amount, as real time passing would. A new clock reads the
// given wall time and a monotonic time of zero.
//
// Threads: every member may be called on any thread; one thread may set or advance the clock while others
// read it. A reading never observes a torn value. Nothing waits on the clock: code under test that sleeps
// until a time must be woken by the test after it moves the clock.
#pragma once

#include <chrono>
#include <mutex>

#include "nbbase/foundation/Clock.h"

namespace nb {

class ManualClock final : public Clock {
public:
    explicit ManualClock(WallTime start = WallTime{});
    static ManualClock atSecondsSince1970(double seconds) { return ManualClock(fromSecondsSince1970(seconds)); }

    ManualClock(const ManualClock&) = delete;
    ManualClock& operator=(const ManualClock&) = delete;

    WallTime now() const override;
    MonotonicTime monotonicNow() const override;

    void set(WallTime t);
    void setSecondsSince1970(double seconds) { set(fromSecondsSince1970(seconds)); }

    // Moves both readings forward. Time does not run backwards: a negative step is a programmer error,
    // asserted in debug builds and ignored otherwise (use set() to move the wall time back).
    void advance(std::chrono::nanoseconds by);
    void advanceSeconds(double seconds);

private:
    mutable std::mutex mutex_;
    WallTime wall_;            // guarded by mutex_
    MonotonicTime monotonic_;  // guarded by mutex_
};

}  // namespace nb
