#include "nbbase/foundation/OperationQueue.h"

// First of the Asio headers: it configures them.
#include "platform/foundation/DispatchInternal.h"

#include <condition_variable>
#include <deque>
#include <mutex>

#include <asio/defer.hpp>
#include <asio/post.hpp>


namespace nb {

namespace {
// The queue whose operation the current thread is running, to refuse waits that would wait for themselves.
thread_local const void* currentOperationQueue = nullptr;
}  // namespace

struct OperationQueue::State : std::enable_shared_from_this<State> {
    State(std::string queueLabel, std::int64_t maxCount, ThreadPool& threadPool)
        : pool(threadPool), label(std::make_shared<const std::string>(std::move(queueLabel))), cap(maxCount) {}

    bool capAllows() const { return cap < 1 || static_cast<std::int64_t>(running) < cap; }
    bool idleLocked() const { return waiting.empty() && running == 0; }

    // Starts waiting operations while the cap allows; operations cancelled while waiting are skipped here.
    // `afterOperation` is set on the pool thread of an operation of this queue that has just ended: the first
    // operation started then is deferred to that same thread, which runs it once the tasks queued on the pool
    // before it have run, instead of being posted and waking another thread. A queue kept busy then costs no
    // thread hand-off per operation.
    void pumpLocked(bool afterOperation = false) {
        while (capAllows() && !waiting.empty()) {
            auto control = std::move(waiting.front());
            waiting.pop_front();
            if (!control->isPending()) {
                continue;
            }
            ++running;
            auto task = [self = shared_from_this(),
                         run = dispatch_internal::HandledRun(std::move(control), label)]() mutable {
                currentOperationQueue = self.get();
                run();
                currentOperationQueue = nullptr;
                self->operationEnded();
            };
            if (afterOperation) {
                afterOperation = false;
                asio::defer(pool.native(), std::move(task));
            } else {
                asio::post(pool.native(), std::move(task));
            }
        }
        if (idleLocked()) {
            idle.notify_all();
        }
    }

    void operationEnded() {
        std::lock_guard lock(mutex);
        --running;
        pumpLocked(true);
    }

    bool mayWait() const {
        if (currentOperationQueue != this) {
            return true;
        }
        NBLog::sharedInstance().log(4, "OperationQueue {}: waiting from one of its own operations; ignored", *label);
        return false;
    }

    ThreadPool& pool;
    const std::shared_ptr<const std::string> label;

    mutable std::mutex mutex;
    std::condition_variable idle;  // signalled when waiting and running are both empty
    std::deque<std::shared_ptr<Cancellable::Control>> waiting;  // guarded by mutex
    std::size_t running = 0;                                    // guarded by mutex: posted, not yet returned
    std::int64_t cap;                                           // guarded by mutex
};

OperationQueue::OperationQueue(std::string label, std::int64_t maxConcurrentOperationCount, ThreadPool& pool)
    : state_(std::make_shared<State>(std::move(label), maxConcurrentOperationCount, pool)) {}

OperationQueue::~OperationQueue() { cancelAllOperations(); }

const std::string& OperationQueue::label() const noexcept { return *state_->label; }

Cancellable OperationQueue::addOperation(Operation operation) {
    if (!operation) {
        return {};
    }
    auto control = std::make_shared<Cancellable::Control>(std::move(operation));
    std::lock_guard lock(state_->mutex);
    state_->waiting.push_back(control);
    state_->pumpLocked();
    return Cancellable(std::move(control));
}

void OperationQueue::setMaxConcurrentOperationCount(std::int64_t count) {
    std::lock_guard lock(state_->mutex);
    state_->cap = count;
    state_->pumpLocked();
}

std::int64_t OperationQueue::maxConcurrentOperationCount() const {
    std::lock_guard lock(state_->mutex);
    return state_->cap;
}

std::size_t OperationQueue::operationCount() const {
    std::lock_guard lock(state_->mutex);
    std::size_t count = state_->running;
    for (const auto& control : state_->waiting) {
        count += control->isPending() ? 1 : 0;
    }
    return count;
}

void OperationQueue::cancelAllOperations() {
    std::deque<std::shared_ptr<Cancellable::Control>> doomed;
    {
        std::lock_guard lock(state_->mutex);
        doomed.swap(state_->waiting);
        if (state_->idleLocked()) {
            state_->idle.notify_all();
        }
    }
    // Outside the lock: releasing an operation's captures may add operations to this very queue.
    for (const auto& control : doomed) {
        control->cancel();
    }
}

void OperationQueue::waitUntilAllOperationsAreFinished() {
    if (!state_->mayWait()) {
        return;
    }
    std::unique_lock lock(state_->mutex);
    state_->idle.wait(lock, [this] { return state_->idleLocked(); });
}

bool OperationQueue::waitUntilAllOperationsAreFinishedFor(Duration timeout) {
    if (!state_->mayWait()) {
        return false;
    }
    std::unique_lock lock(state_->mutex);
    return state_->idle.wait_for(lock, timeout, [this] { return state_->idleLocked(); });
}

}  // namespace nb
