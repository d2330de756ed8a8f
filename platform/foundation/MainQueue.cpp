#include "nbbase/foundation/MainQueue.h"

// First of the Asio headers: it configures them.
#include "platform/foundation/DispatchInternal.h"

#include <atomic>
#include <mutex>

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>

#if defined(__APPLE__)
#include <pthread.h>
#else
#include <unistd.h>
#endif


namespace nb {

namespace {

bool onProcessMainThread() noexcept {
#if defined(__APPLE__)
    return pthread_main_np() != 0;
#else
    return gettid() == getpid();
#endif
}

}  // namespace

struct MainQueue::Core {
    explicit Core(const std::string& queueLabel)
        : label(std::make_shared<const std::string>(queueLabel)),
          io(std::make_unique<asio::io_context>(1)),
          work(asio::make_work_guard(*io)) {}

    // Queues a handler and answers the wake-up handler to call (outside any lock) when the queue was empty.
    template <typename Handler>
    std::shared_ptr<const WakeUpHandler> enqueue(Handler&& handler) {
        // Counted before posting so that the main thread, which uncounts before running, never goes below zero.
        const bool wasEmpty = pending.fetch_add(1, std::memory_order_acq_rel) == 0;
        asio::post(*io, std::forward<Handler>(handler));
        if (!wasEmpty) {
            return nullptr;
        }
        std::lock_guard lock(mutex);
        return wakeUp;
    }

    const std::shared_ptr<const std::string> label;
    // Reset only by the destructor of MainQueue. Submitters read it without the lock: submitting while the
    // queue is destroyed is outside the contract, except for timers, which take the lock and check closed.
    std::unique_ptr<asio::io_context> io;
    std::optional<asio::executor_work_guard<asio::io_context::executor_type>> work;  // keeps run() waiting

    std::atomic<std::size_t> pending{0};
    std::atomic<bool> stopRequested{false};
    std::size_t ran = 0;  // bound thread only

    std::mutex mutex;
    bool closed = false;                         // guarded by mutex
    std::shared_ptr<const WakeUpHandler> wakeUp;  // guarded by mutex
};

MainQueue& MainQueue::sharedInstance() {
    static MainQueue* const instance = new MainQueue(ProcessMainThread{}, ThreadPool::sharedInstance());
    return *instance;
}

MainQueue::MainQueue(ThreadPool& timerPool, std::string label)
    : DispatchQueue(std::move(label)),
      core_(std::make_shared<Core>(this->label())),
      timerPool_(timerPool),
      boundThread_(std::this_thread::get_id()) {}

MainQueue::MainQueue(ProcessMainThread, ThreadPool& timerPool)
    : DispatchQueue("nb.main"), core_(std::make_shared<Core>(this->label())), timerPool_(timerPool) {}

MainQueue::~MainQueue() {
    std::unique_ptr<asio::io_context> io;
    std::shared_ptr<const WakeUpHandler> wakeUp;
    {
        std::lock_guard lock(core_->mutex);
        core_->closed = true;
        core_->work.reset();
        io = std::move(core_->io);
        wakeUp = std::move(core_->wakeUp);
    }
    // Pending tasks are destroyed here, outside the lock: their captures may submit again, which finds the
    // queue closed and drops the new task.
    io.reset();
}

void MainQueue::async(Task task) {
    if (!task || !core_->io) {
        return;
    }
    Core* core = core_.get();
    auto wake = core->enqueue([core, task = std::move(task)] {
        core->pending.fetch_sub(1, std::memory_order_acq_rel);
        dispatch_internal::runTask(task, *core->label);
        ++core->ran;
    });
    if (wake) {
        (*wake)();
    }
}

Cancellable MainQueue::asyncAfter(Duration delay, Task task) {
    if (!task || !core_->io) {
        return {};
    }
    auto control = std::make_shared<Cancellable::Control>(std::move(task));
    dispatch_internal::deliverAfter(
        timerPool_.native(), delay, dispatch_internal::HandledRun(control, core_->label),
        [weakCore = std::weak_ptr<Core>(core_)](dispatch_internal::HandledRun run) {
            auto core = weakCore.lock();
            if (!core) {
                return;
            }
            std::shared_ptr<const WakeUpHandler> wake;
            {
                std::lock_guard lock(core->mutex);
                if (core->closed) {
                    return;
                }
                Core* raw = core.get();
                const bool wasEmpty = raw->pending.fetch_add(1, std::memory_order_acq_rel) == 0;
                asio::post(*raw->io, [raw, run = std::move(run)]() mutable {
                    raw->pending.fetch_sub(1, std::memory_order_acq_rel);
                    if (run()) {
                        ++raw->ran;
                    }
                });
                if (wasEmpty) {
                    wake = raw->wakeUp;
                }
            }
            if (wake) {
                (*wake)();
            }
        });
    return Cancellable(std::move(control));
}

bool MainQueue::isMainThread() const noexcept {
    return boundThread_ ? std::this_thread::get_id() == *boundThread_ : onProcessMainThread();
}

void MainQueue::setWakeUpHandler(WakeUpHandler handler) {
    auto next = handler ? std::make_shared<const WakeUpHandler>(std::move(handler)) : nullptr;
    std::lock_guard lock(core_->mutex);
    if (!core_->closed) {
        core_->wakeUp = std::move(next);
    }
}

bool MainQueue::mayDrive(const char* what) const {
    if (isMainThread()) {
        return true;
    }
    NBLog::sharedInstance().log(4, "MainQueue {}: {}() called off its main thread; ignored", label(), what);
    return false;
}

void MainQueue::afterBlockingDrive() {
    // The stop() that ended this drive is used up; one that arrives later is kept for the next drive.
    if (core_->io->stopped()) {
        core_->stopRequested.store(false);
    }
}

std::size_t MainQueue::drive(const char* what, std::optional<Duration> limit) {
    if (!mayDrive(what)) {
        return 0;
    }
    auto& io = *core_->io;
    io.restart();
    if (core_->stopRequested.exchange(false)) {
        return 0;
    }
    const auto before = core_->ran;
    if (limit) {
        io.run_for(*limit);
    } else {
        io.run();
    }
    afterBlockingDrive();
    return core_->ran - before;
}

std::size_t MainQueue::run() { return drive("run", std::nullopt); }

std::size_t MainQueue::runFor(Duration duration) { return drive("runFor", duration); }

bool MainQueue::runUntil(const std::function<bool()>& done, Duration timeout) {
    if (!mayDrive("runUntil")) {
        return false;
    }
    auto& io = *core_->io;
    io.restart();
    if (core_->stopRequested.exchange(false)) {
        return done();
    }
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    bool finished = done();
    while (!finished && !io.stopped() && std::chrono::steady_clock::now() < deadline) {
        if (io.run_one_until(deadline) > 0) {
            finished = done();
        }
    }
    afterBlockingDrive();
    return finished;
}

std::size_t MainQueue::drain() {
    if (!mayDrive("drain")) {
        return 0;
    }
    auto& io = *core_->io;
    io.restart();
    const auto before = core_->ran;
    io.poll();
    return core_->ran - before;
}

void MainQueue::stop() {
    core_->stopRequested.store(true);
    if (auto* io = core_->io.get()) {
        io->stop();
    }
}

std::size_t MainQueue::pendingCount() const noexcept { return core_->pending.load(std::memory_order_acquire); }

}  // namespace nb
