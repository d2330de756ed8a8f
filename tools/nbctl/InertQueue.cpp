#include "InertQueue.h"

#include <memory>
#include <utility>

namespace nb::nbctl {

InertQueue::InertQueue(NBLog& log, std::string label) : DispatchQueue(std::move(label)), log_(log) {}

void InertQueue::async(Task task) {
    if (task) log_.log(4, "queue {} runs no work: a task was dropped", label());
}

Cancellable InertQueue::asyncAfter(Duration, Task task) {
    if (!task) return {};
    log_.log(4, "queue {} runs no work: a delayed task was dropped", label());
    Cancellable handle(std::make_shared<Cancellable::Control>(std::move(task)));
    handle.cancel();
    return handle;
}

}  // namespace nb::nbctl
