// SerialQueue: a labelled queue that runs its tasks one at a time, in the order they were submitted, on
// the threads of a ThreadPool. Successive tasks may run on different pool threads, but each one sees
// everything its predecessors wrote, so state touched only from one serial queue needs no lock.
//
// Order: tasks submitted with async() from one thread run in that order. A delayed task joins the queue
// when its delay has passed.
//
// Threads: every function may be called on any thread (see DispatchQueue).
//
// Lifetime: the queue object may be destroyed with work pending; what was submitted still runs, in order,
// as long as the pool lives (the tasks, not the object, hold the queue's order). A task must therefore not
// capture a raw pointer to the SerialQueue object or to an owner that may die first: capture a weak_ptr.
// The pool must outlive the SerialQueue object.
#pragma once

#include <memory>
#include <string>

#include "nbbase/foundation/DispatchQueue.h"
#include "nbbase/foundation/ThreadPool.h"

namespace nb {

class SerialQueue final : public DispatchQueue {
public:
    explicit SerialQueue(std::string label, ThreadPool& pool = ThreadPool::sharedInstance());
    ~SerialQueue() override;

    void async(Task task) override;
    Cancellable asyncAfter(Duration delay, Task task) override;

    // True while the calling thread is running one of this queue's tasks: for checking that state bound
    // to the queue is touched only from it.
    [[nodiscard]] bool isCurrent() const noexcept;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace nb
