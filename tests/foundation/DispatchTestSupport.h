// Helpers for the dispatch tests: an event log that other threads append to and the test waits on.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

namespace nb::test {

using namespace std::chrono_literals;

// Long enough never to be reached on a loaded machine; a test only waits this long when it is failing.
inline constexpr auto kPatience = 20s;

class EventLog {
public:
    void add(int event) {
        std::lock_guard lock(mutex_);
        events_.push_back(event);
        changed_.notify_all();
    }
    std::vector<int> events() const {
        std::lock_guard lock(mutex_);
        return events_;
    }
    std::size_t size() const { return events().size(); }
    bool waitForSize(std::size_t count, std::chrono::steady_clock::duration timeout = kPatience) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return events_.size() >= count; });
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<int> events_;
};

// A gate that tasks block on until the test opens it; blocked tasks give up after kPatience so that a
// failing test ends instead of hanging.
class Gate {
public:
    void open() {
        std::lock_guard lock(mutex_);
        open_ = true;
        changed_.notify_all();
    }
    bool pass() {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kPatience, [&] { return open_; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool open_ = false;
};

}  // namespace nb::test
