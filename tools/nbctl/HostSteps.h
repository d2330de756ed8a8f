// What every part of the reference host uses to print its section and to wait for an answer while the main
// queue runs (some answers post nothing there, so the condition is asked every few milliseconds).
#pragma once

#include <chrono>
#include <functional>

#include <fmt/format.h>

#include "nbbase/foundation/MainQueue.h"

namespace nb::nbctl {

inline void section(const char* title) { fmt::print("\n== {} ==\n", title); }

// False when `done` did not hold within `timeout`. Call on the main queue's thread.
inline bool waitOnMain(MainQueue& main, const std::function<bool()>& done, std::chrono::seconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        main.runFor(std::chrono::milliseconds(5));
    }
    return true;
}

}  // namespace nb::nbctl
