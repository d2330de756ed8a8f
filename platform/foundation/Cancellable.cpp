#include "nbbase/foundation/Cancellable.h"

#include <utility>

namespace nb {

bool Cancellable::cancel() { return control_ ? control_->cancel() : false; }

Cancellable::Status Cancellable::status() const { return control_ ? control_->status() : Status::Finished; }

Cancellable::Control::Task Cancellable::Control::take() {
    std::lock_guard lock(mutex_);
    if (status_ != Status::Pending) {
        return {};
    }
    status_ = Status::Running;
    return std::exchange(task_, {});
}

void Cancellable::Control::finish() {
    std::lock_guard lock(mutex_);
    if (status_ == Status::Running) {
        status_ = Status::Finished;
    }
}

void Cancellable::Control::drop() { cancelPending(); }

bool Cancellable::Control::cancel() {
    if (cancelPending()) {
        return true;
    }
    std::lock_guard lock(mutex_);
    return status_ == Status::Cancelled;
}

bool Cancellable::Control::cancelPending() {
    Task doomed;
    {
        std::lock_guard lock(mutex_);
        if (status_ != Status::Pending) {
            return false;
        }
        status_ = Status::Cancelled;
        doomed = std::exchange(task_, {});
    }
    // Destroyed outside the lock: what the task captured may own objects whose destructors post more work
    // or query this very handle.
    doomed = nullptr;
    return true;
}

Cancellable::Status Cancellable::Control::status() const {
    std::lock_guard lock(mutex_);
    return status_;
}

}  // namespace nb
