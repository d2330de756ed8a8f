// Pieces shared by the queue implementations. Private to the library: it needs the Asio headers.
#pragma once

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <asio/steady_timer.hpp>
#include <asio/thread_pool.hpp>

#include "nbbase/foundation/Cancellable.h"
#include "nbbase/foundation/NBLog.h"

namespace nb::dispatch_internal {

// Runs one task; an exception must not unwind through Asio (it would stop the loop or the pool thread),
// so it is logged and the queue carries on with the next task.
inline void runTask(const std::function<void()>& task, const std::string& label) noexcept {
    try {
        task();
    } catch (const std::exception& e) {
        NBLog::sharedInstance().log(4, "task on queue {} threw: {}", label, e.what());
    } catch (...) {
        NBLog::sharedInstance().log(4, "task on queue {} threw a non-standard exception", label);
    }
}

// A task with a handle, travelling through timers and executors. Move-only, so that destroying a moved-from
// copy never counts as dropping the task; destroying the last holder before it ran marks it Cancelled.
class HandledRun {
public:
    HandledRun(std::shared_ptr<Cancellable::Control> control, std::shared_ptr<const std::string> label)
        : control_(std::move(control)), label_(std::move(label)) {}
    HandledRun(HandledRun&&) noexcept = default;
    HandledRun& operator=(HandledRun&&) = delete;
    HandledRun(const HandledRun&) = delete;
    HandledRun& operator=(const HandledRun&) = delete;
    ~HandledRun() {
        if (control_) {
            control_->drop();
        }
    }

    [[nodiscard]] bool pending() const { return control_ && control_->isPending(); }

    // Runs the task unless it was cancelled; answers whether it ran.
    bool operator()() {
        auto task = control_ ? control_->take() : std::function<void()>{};
        if (!task) {
            return false;
        }
        runTask(task, *label_);
        control_->finish();
        return true;
    }

private:
    std::shared_ptr<Cancellable::Control> control_;
    std::shared_ptr<const std::string> label_;
};

// Waits `delay` on a timer of `pool`, then hands the run to `deliver` (on a pool thread) unless it was
// cancelled meanwhile. A cancelled timer is not stopped early: cancel() already released the task, and
// stopping an Asio timer from an arbitrary thread would need a strand for every delayed task.
template <typename Deliver>
void deliverAfter(asio::thread_pool& pool, std::chrono::steady_clock::duration delay, HandledRun run,
                  Deliver deliver) {
    auto timer = std::make_shared<asio::steady_timer>(pool.get_executor(), delay);
    timer->async_wait([timer, run = std::move(run), deliver = std::move(deliver)](const std::error_code&) mutable {
        if (run.pending()) {
            deliver(std::move(run));
        }
    });
}

}  // namespace nb::dispatch_internal
