// Takes over the shared NBLog while it lives: error lines (level 4 and up) are kept for the test, the others
// dropped. The lines live in state shared with the handler, so a line logged on another thread while the
// object goes away touches nothing dead.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "nbbase/foundation/NBLog.h"

namespace nbtest {

class ErrorLog {
public:
    ErrorLog() {
        nb::NBLog::sharedInstance().setLogHandler([lines = lines_](std::int32_t level, const std::string& text) {
            std::lock_guard lock(lines->mutex);
            if (level >= 4) lines->errors.push_back(text);
        });
    }
    ~ErrorLog() { nb::NBLog::sharedInstance().setLogHandler({}); }
    ErrorLog(const ErrorLog&) = delete;
    ErrorLog& operator=(const ErrorLog&) = delete;

    // How many error lines contain `needle`.
    int count(const std::string& needle) const {
        std::lock_guard lock(lines_->mutex);
        int n = 0;
        for (const std::string& line : lines_->errors) n += line.find(needle) != std::string::npos;
        return n;
    }

private:
    struct Lines {
        std::mutex mutex;
        std::vector<std::string> errors;
    };
    std::shared_ptr<Lines> lines_ = std::make_shared<Lines>();
};

}  // namespace nbtest
