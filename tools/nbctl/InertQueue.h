// InertQueue: the background queue for collaborators that a command builds but never asks to work, such
// as the interests store of `nbctl entitlements`, which only parses recorded replies. Handing them a global
// queue would start the shared thread pool for nothing; this queue starts no thread.
//
// It never runs a task: each one is dropped, with a level 4 line in the log given, so that work reaching it
// by mistake shows instead of vanishing. A delayed task's handle answers Cancelled.
//
// Threads: async() and asyncAfter() may be called on any thread; the task is destroyed on the caller's.
#pragma once

#include "nbbase/common/NBLog.h"
#include "nbbase/foundation/DispatchQueue.h"

namespace nb::nbctl {

class InertQueue final : public DispatchQueue {
public:
    explicit InertQueue(NBLog& log, std::string label = "nbctl.inert");

    void async(Task task) override;
    Cancellable asyncAfter(Duration delay, Task task) override;

private:
    NBLog& log_;
};

}  // namespace nb::nbctl
