// ConcurrentQueue: a labelled queue whose tasks go straight to a ThreadPool and may run at the same time,
// in any order. The global queues are the shared pool's concurrent queues.
//
// Threads: every function may be called on any thread (see DispatchQueue).
//
// Lifetime: work submitted before the queue object is destroyed still runs while the pool lives; tasks
// never refer to the queue object. The pool must outlive the ConcurrentQueue object.
#pragma once

#include <memory>
#include <string>

#include "nbbase/foundation/DispatchQueue.h"
#include "nbbase/foundation/ThreadPool.h"

namespace nb {

class ConcurrentQueue final : public DispatchQueue {
public:
    // Priorities are names only: every global queue feeds the same shared pool, which is large enough that
    // ordering by priority has not been needed.
    enum class Priority { High, Default, Low, Background };

    // The process-wide queue for a priority, on ThreadPool::sharedInstance(); never destroyed.
    static ConcurrentQueue& global(Priority priority = Priority::Default);

    explicit ConcurrentQueue(std::string label, ThreadPool& pool = ThreadPool::sharedInstance());
    ~ConcurrentQueue() override;

    void async(Task task) override;
    Cancellable asyncAfter(Duration delay, Task task) override;

private:
    ThreadPool& pool_;
    std::shared_ptr<const std::string> sharedLabel_;  // for log lines of tasks that outlive the queue
};

}  // namespace nb
