// Cancellable: the handle to one task submitted with a delay (DispatchQueue::asyncAfter) or as an
// operation (OperationQueue::addOperation).
//
// A handle is a cheap, copyable reference to state shared with the queue; copies answer alike. A default
// constructed handle refers to nothing: cancel() answers false and status() answers Finished.
//
// Threads: every function may be called on any thread, concurrently with the task starting. Exactly one of
// "the task starts" and "cancel() answers true" happens.
//
// Lifetime: the handle may outlive its queue, its thread pool and the task; it never touches them, only the
// shared state. When a queue is destroyed, or its pool shuts down, before a task started, the task is
// dropped and its handle answers Cancelled.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

namespace nb {

class Cancellable {
public:
    enum class Status : std::uint8_t {
        Pending,    // waiting for its delay or for its turn
        Running,    // started, not yet returned
        Finished,   // returned (or threw, which the queue logged)
        Cancelled,  // will never run: cancelled, or dropped with its queue
    };

    class Control;

    Cancellable() noexcept = default;
    explicit Cancellable(std::shared_ptr<Control> control) noexcept : control_(std::move(control)) {}

    // True when the task has not started and now never will: cancelled by this call or earlier. The task
    // (with whatever it captured) is destroyed before cancel() returns, on the calling thread. False when
    // the task has already started (it may still be running) or the handle is empty.
    bool cancel();

    [[nodiscard]] Status status() const;

    explicit operator bool() const noexcept { return control_ != nullptr; }

private:
    std::shared_ptr<Control> control_;
};

// The state a handle shares with its task. Only queue implementations use it directly: a queue calls
// take() when the task's turn comes, and runs what it answers, then finish().
class Cancellable::Control {
public:
    using Task = std::function<void()>;

    explicit Control(Task task) : task_(std::move(task)) {}

    // Pending -> Running, handing over the task; an empty function when it was cancelled or dropped.
    [[nodiscard]] Task take();
    // Running -> Finished.
    void finish();
    // Pending -> Cancelled without running: the queue gave up on the task. Harmless in any other state.
    void drop();
    // Pending -> Cancelled on request; see Cancellable::cancel().
    bool cancel();

    [[nodiscard]] Status status() const;
    [[nodiscard]] bool isPending() const { return status() == Status::Pending; }

private:
    bool cancelPending();

    mutable std::mutex mutex_;
    Status status_ = Status::Pending;  // guarded by mutex_
    Task task_;                        // guarded by mutex_; empty once taken or cancelled
};

}  // namespace nb
