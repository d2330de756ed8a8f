// NBLog: the library's one log. Levels: 1 verbose dumps, 2 information, 4 errors (others pass through
// unchanged). Formats use {fmt} syntax; a Value argument prints as "%@" would (see ValueFormat.h).
//
// Threads: log() may be called on any thread, and the handler runs on the thread that logs, so a handler
// must be thread-safe. setLogHandler() may be called on any thread, even while others log; a line being
// logged when the handler is replaced goes to the old or the new one, never to neither.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "nbbase/foundation/ValueFormat.h"

namespace nb {

class NBLog {
public:
    using Handler = std::function<void(std::int32_t level, const std::string& text)>;

    // The process-wide log, created on first use and never destroyed.
    static NBLog& sharedInstance();

    NBLog() = default;

    // Replaces where lines go. An empty handler restores the default sink, standard error.
    void setLogHandler(Handler handler);

    template <typename... Args>
    void log(std::int32_t level, fmt::format_string<Args...> format, Args&&... args) {
        write(level, fmt::format(format, std::forward<Args>(args)...));
    }

    // A line that is already formatted.
    void write(std::int32_t level, std::string text);

private:
    mutable std::mutex mutex_;
    std::shared_ptr<const Handler> handler_;  // guarded by mutex_; null means standard error
};

}  // namespace nb
