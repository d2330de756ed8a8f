#include "nbbase/foundation/NBLog.h"

#include <cstdio>

namespace nb {

NBLog& NBLog::sharedInstance() {
    static NBLog* const instance = new NBLog();
    return *instance;
}

void NBLog::setLogHandler(Handler handler) {
    auto next = handler ? std::make_shared<const Handler>(std::move(handler)) : nullptr;
    std::lock_guard lock(mutex_);
    handler_ = std::move(next);
}

void NBLog::write(std::int32_t level, std::string text) {
    std::shared_ptr<const Handler> handler;
    {
        std::lock_guard lock(mutex_);
        handler = handler_;
    }
    // The handler runs outside the lock so that it may log or replace itself.
    if (handler) {
        (*handler)(level, text);
        return;
    }
    std::fprintf(stderr, "[NBBase %d] %s\n", static_cast<int>(level), text.c_str());
}

}  // namespace nb
