#include "nbbase/foundation/SerialQueue.h"

// First of the Asio headers: it configures them.
#include "platform/foundation/DispatchInternal.h"

#include <asio/post.hpp>
#include <asio/strand.hpp>


namespace nb {

struct SerialQueue::Impl {
    Impl(ThreadPool& pool, const std::string& label)
        : pool(pool), strand(asio::make_strand(pool.native())), label(std::make_shared<const std::string>(label)) {}

    ThreadPool& pool;
    // The strand is what keeps order; its state is shared with every handler posted through it, so pending
    // handlers keep it alive after the queue object is gone.
    asio::strand<asio::thread_pool::executor_type> strand;
    std::shared_ptr<const std::string> label;
};

SerialQueue::SerialQueue(std::string label, ThreadPool& pool)
    : DispatchQueue(std::move(label)), impl_(std::make_unique<Impl>(pool, this->label())) {}

SerialQueue::~SerialQueue() = default;

void SerialQueue::async(Task task) {
    if (!task) {
        return;
    }
    asio::post(impl_->strand, [task = std::move(task), label = impl_->label] {
        dispatch_internal::runTask(task, *label);
    });
}

Cancellable SerialQueue::asyncAfter(Duration delay, Task task) {
    if (!task) {
        return {};
    }
    auto control = std::make_shared<Cancellable::Control>(std::move(task));
    dispatch_internal::deliverAfter(impl_->pool.native(), delay, dispatch_internal::HandledRun(control, impl_->label),
                                    [strand = impl_->strand](dispatch_internal::HandledRun run) {
                                        asio::post(strand, [run = std::move(run)]() mutable { run(); });
                                    });
    return Cancellable(std::move(control));
}

bool SerialQueue::isCurrent() const noexcept { return impl_->strand.running_in_this_thread(); }

}  // namespace nb
