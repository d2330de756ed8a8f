#include "nbbase/foundation/RecordingWorkspace.h"

namespace nb {

std::vector<std::string> RecordingWorkspace::openedURLs() const {
    std::lock_guard lock(mutex_);
    return urls_;
}

void RecordingWorkspace::setFails(bool fails) {
    std::lock_guard lock(mutex_);
    fails_ = fails;
}

bool RecordingWorkspace::open(const std::string& url, std::string* error) {
    std::lock_guard lock(mutex_);
    urls_.push_back(url);
    if (fails_ && error != nullptr) *error = "recording workspace set to fail";
    return !fails_;
}

}  // namespace nb
