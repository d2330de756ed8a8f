// RecordingWorkspace: the Workspace of tests and tools that must not start a browser. It records every
// address it is given, in order, and answers as it was told (true unless setFails(true)).
//
// Threads: every function may be called on any thread.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "nbbase/foundation/Workspace.h"

namespace nb {

class RecordingWorkspace final : public Workspace {
public:
    RecordingWorkspace() = default;

    // A copy of the addresses opened so far, failed ones included.
    [[nodiscard]] std::vector<std::string> openedURLs() const;
    // Later openURL calls answer false with the reason "recording workspace set to fail".
    void setFails(bool fails);

private:
    bool open(const std::string& url, std::string* error) override;

    mutable std::mutex mutex_;
    std::vector<std::string> urls_;  // guarded by mutex_
    bool fails_ = false;             // guarded by mutex_
};

}  // namespace nb
