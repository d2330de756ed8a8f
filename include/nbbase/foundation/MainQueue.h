// MainQueue: the serial FIFO queue of the host's main thread, where the library delivers results to the UI.
//
// Binding: a queue is bound to one thread. sharedInstance() is bound to the process's main thread whichever
// thread first asks for it; a queue built with the public constructor is bound to the thread that builds
// it (tests build one per test, on the test's thread). isMainThread() answers for the bound thread.
//
// Driving: the host runs the queue on the bound thread, either with run() until stop(), or from its own
// event loop: setWakeUpHandler() tells it when work arrives, and it answers by calling drain() on its main
// thread. Drive functions called on any other thread log an error and do nothing. None of them may be
// called from inside one of the queue's own tasks.
//
// Order: tasks submitted with async() from one thread run in that order. A task never runs inside the
// call that submitted it, even on the main thread: it waits for the next drive call to take it. A delayed
// task waits on a timer of the ThreadPool and joins the end of the queue when its delay has passed; drain()
// does not wait for delayed tasks that are not yet due.
//
// Threads: async(), asyncAfter(), stop(), setWakeUpHandler(), pendingCount() and isMainThread() may be
// called on any thread. Every task runs on the bound thread, inside a drive call.
//
// Lifetime: the timer pool must outlive the queue. Destroying the queue (not while a drive call is in
// progress, nor while another thread submits to it) destroys pending tasks without running them, on the
// destroying thread; delayed tasks that come due later are dropped (their handles answer Cancelled).
// sharedInstance() is never destroyed.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "nbbase/foundation/DispatchQueue.h"
#include "nbbase/foundation/ThreadPool.h"

namespace nb {

class MainQueue final : public DispatchQueue {
public:
    using WakeUpHandler = std::function<void()>;

    static MainQueue& sharedInstance();

    explicit MainQueue(ThreadPool& timerPool = ThreadPool::sharedInstance(), std::string label = "nb.main");
    ~MainQueue() override;

    void async(Task task) override;
    Cancellable asyncAfter(Duration delay, Task task) override;

    [[nodiscard]] bool isMainThread() const noexcept;

    // Called on the submitting thread, after the task is queued, each time the queue goes from empty to
    // non-empty (a delayed task coming due counts as a submission from a pool thread). It must be quick and
    // must not drive the queue itself: it should ask the host's loop to call drain() on the main thread.
    // A task is uncounted as it starts, so work submitted while a drive call is running can wake the host
    // for work that call then takes itself; the host's extra drain() finds nothing, which is harmless.
    // An empty handler removes it. Replacing it while another thread submits is safe.
    void setWakeUpHandler(WakeUpHandler handler);

    // Runs tasks, waiting for more when the queue is empty, until stop(). Answers how many ran.
    std::size_t run();
    // As run(), but returns after `duration` at the latest.
    std::size_t runFor(Duration duration);
    // Runs tasks until done() answers true (checked before the first task and after each) or `timeout`
    // passes or stop() is called; answers done(). For tests waiting on results delivered to this queue.
    bool runUntil(const std::function<bool()>& done, Duration timeout);
    // Runs what is queued, including what those tasks queue in turn, and returns as soon as the queue is
    // empty, without waiting. Answers how many ran. A task that always requeues itself keeps it running.
    std::size_t drain();

    // Ends the run(), runFor() or runUntil() in progress after its current task, or the next one to start
    // if none is in progress. Any thread.
    void stop();

    // Tasks submitted and not yet started, delayed tasks not counted until they come due.
    [[nodiscard]] std::size_t pendingCount() const noexcept;

private:
    struct ProcessMainThread {};
    MainQueue(ProcessMainThread, ThreadPool& timerPool);

    bool mayDrive(const char* what) const;
    void afterBlockingDrive();
    // run() without a limit, runFor() with one.
    std::size_t drive(const char* what, std::optional<Duration> limit);

    struct Core;
    std::shared_ptr<Core> core_;
    ThreadPool& timerPool_;
    const std::optional<std::thread::id> boundThread_;  // empty: the process's main thread
};

}  // namespace nb
