// OperationQueue: runs operations on a ThreadPool, at most maxConcurrentOperationCount at once, starting
// them in the order they were added. Used where work must be throttled (downloads, image decoding) or
// cancelled as a batch.
//
// Threads: every function may be called on any thread. Operations run on pool threads; when one ends, the
// next waiting operation runs on the same thread (after the tasks already queued on the pool), so a busy
// queue does not wake another thread for each operation. The wait functions must not be called from one
// of this queue's own operations (they would wait for themselves): there they log an error and return at
// once.
//
// Cancellation: an operation cancelled before it starts never runs, and its captures are released at
// once; an operation that has started is not interrupted (cancel() answers false).
//
// Lifetime: destroying the queue cancels the operations that have not started; those already running
// finish on the pool without touching the queue object. The pool must outlive the queue object.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "nbbase/foundation/Cancellable.h"
#include "nbbase/foundation/ThreadPool.h"

namespace nb {

class OperationQueue {
public:
    using Operation = std::function<void()>;
    using Duration = std::chrono::steady_clock::duration;

    // No limit of the queue's own: only the pool's thread count bounds it.
    static constexpr std::int64_t kDefaultMaxConcurrentOperationCount = -1;

    explicit OperationQueue(std::string label,
                            std::int64_t maxConcurrentOperationCount = kDefaultMaxConcurrentOperationCount,
                            ThreadPool& pool = ThreadPool::sharedInstance());
    ~OperationQueue();
    OperationQueue(const OperationQueue&) = delete;
    OperationQueue& operator=(const OperationQueue&) = delete;

    [[nodiscard]] const std::string& label() const noexcept;

    // An empty operation answers an empty handle. An operation that throws is logged and counts as finished.
    Cancellable addOperation(Operation operation);

    // A count of 1 or more caps the operations running at once; any other count lifts the cap. Raising it
    // starts waiting operations at once; lowering it lets running ones finish.
    void setMaxConcurrentOperationCount(std::int64_t count);
    [[nodiscard]] std::int64_t maxConcurrentOperationCount() const;

    // Operations added and neither finished nor cancelled.
    [[nodiscard]] std::size_t operationCount() const;

    // Cancels every operation that has not started; running ones go on.
    void cancelAllOperations();

    // Blocks until no operation is waiting or running, including ones added meanwhile.
    void waitUntilAllOperationsAreFinished();
    // As above, giving up after `timeout`; answers whether the queue became idle.
    [[nodiscard]] bool waitUntilAllOperationsAreFinishedFor(Duration timeout);

private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace nb
