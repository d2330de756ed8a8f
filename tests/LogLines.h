// What tests read of a log: the lines logged to log() from any thread, as "<level> <text>".
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "nbbase/common/NBLog.h"

namespace nbtest {

class LogLines {
public:
    LogLines() {
        log_.setLogHandler([this](std::int32_t level, const std::string& text) {
            std::lock_guard lock(mutex_);
            lines_.push_back(std::to_string(level) + " " + text);
        });
    }
    nb::NBLog& log() { return log_; }
    // The lines logged since the previous call.
    std::vector<std::string> take() {
        std::lock_guard lock(mutex_);
        return std::exchange(lines_, {});
    }

private:
    std::mutex mutex_;
    std::vector<std::string> lines_;  // guarded by mutex_
    nb::NBLog log_;
};

}  // namespace nbtest
