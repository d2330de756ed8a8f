// What tests read of a log: the lines logged from any thread, as "<level> <text>". By default the log is one
// of its own (log()); given the process-wide one, it takes that over while it lives, for code that logs
// there itself, such as plug-ins, and gives it back to standard error afterwards. The lines live in state
// shared with the handler, so a line logged on another thread while the object goes away touches nothing dead.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "nbbase/foundation/NBLog.h"

namespace nbtest {

class LogLines {
public:
    explicit LogLines(nb::NBLog* takeOver = nullptr) : log_(takeOver != nullptr ? takeOver : &own_) {
        log_->setLogHandler([state = state_](std::int32_t level, const std::string& text) {
            std::lock_guard lock(state->mutex);
            state->lines.push_back(std::to_string(level) + " " + text);
        });
    }
    ~LogLines() { log_->setLogHandler(nullptr); }
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

    nb::NBLog& log() { return *log_; }
    // The lines logged since the previous call.
    std::vector<std::string> take() {
        std::lock_guard lock(state_->mutex);
        return std::exchange(state_->lines, {});
    }

private:
    struct State {
        std::mutex mutex;
        std::vector<std::string> lines;
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
    nb::NBLog own_;
    nb::NBLog* log_;
};

}  // namespace nbtest
