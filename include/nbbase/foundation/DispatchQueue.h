// DispatchQueue: where a piece of work runs. Code that delivers results takes a DispatchQueue& so that the
// host passes MainQueue::sharedInstance() and a test passes a queue it drives itself.
//
// Implementations: MainQueue (the host's main thread), SerialQueue (one task at a time on the pool, FIFO),
// ConcurrentQueue (straight onto the pool; ConcurrentQueue::global() are the global queues). Each says
// where its tasks run and what its destruction does to pending work.
//
// Threads: async() and asyncAfter() may be called on any thread, from inside a task too. A task never runs
// inside the call that submitted it, even when submitted from the thread that will run it.
//
// Failure: an empty task is ignored. A task that throws is logged (level 4); the queue goes on.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <utility>

#include "nbbase/foundation/Cancellable.h"

namespace nb {

class DispatchQueue {
public:
    using Task = std::function<void()>;
    using Duration = std::chrono::steady_clock::duration;

    explicit DispatchQueue(std::string label) : label_(std::move(label)) {}
    virtual ~DispatchQueue() = default;
    DispatchQueue(const DispatchQueue&) = delete;
    DispatchQueue& operator=(const DispatchQueue&) = delete;

    // Names the queue in log lines; fixed at construction, so readable on any thread.
    [[nodiscard]] const std::string& label() const noexcept { return label_; }

    virtual void async(Task task) = 0;

    // Runs the task on this queue once `delay` has passed on the steady clock (never earlier; later when
    // the queue is busy). The handle cancels it; an empty task answers an empty handle.
    virtual Cancellable asyncAfter(Duration delay, Task task) = 0;

private:
    const std::string label_;
};

}  // namespace nb
