#include "nbbase/foundation/ConcurrentQueue.h"

// First of the Asio headers: it configures them.
#include "platform/foundation/DispatchInternal.h"

#include <asio/post.hpp>


namespace nb {

ConcurrentQueue& ConcurrentQueue::global(Priority priority) {
    static ConcurrentQueue* const high = new ConcurrentQueue("nb.global.high");
    static ConcurrentQueue* const normal = new ConcurrentQueue("nb.global.default");
    static ConcurrentQueue* const low = new ConcurrentQueue("nb.global.low");
    static ConcurrentQueue* const background = new ConcurrentQueue("nb.global.background");
    switch (priority) {
        case Priority::High:
            return *high;
        case Priority::Low:
            return *low;
        case Priority::Background:
            return *background;
        case Priority::Default:
            break;
    }
    return *normal;
}

ConcurrentQueue::ConcurrentQueue(std::string label, ThreadPool& pool)
    : DispatchQueue(std::move(label)), pool_(pool), sharedLabel_(std::make_shared<const std::string>(this->label())) {}

ConcurrentQueue::~ConcurrentQueue() = default;

void ConcurrentQueue::async(Task task) {
    if (!task) {
        return;
    }
    asio::post(pool_.native(), [task = std::move(task), label = sharedLabel_] {
        dispatch_internal::runTask(task, *label);
    });
}

Cancellable ConcurrentQueue::asyncAfter(Duration delay, Task task) {
    if (!task) {
        return {};
    }
    auto control = std::make_shared<Cancellable::Control>(std::move(task));
    // The timer's completion already runs on a pool thread, which is where the task belongs.
    dispatch_internal::deliverAfter(pool_.native(), delay, dispatch_internal::HandledRun(control, sharedLabel_),
                                    [](dispatch_internal::HandledRun run) { run(); });
    return Cancellable(std::move(control));
}

}  // namespace nb
