// NBDownloadOperation: one image prefetch. NBImageCache queues it on its download queue, where main() reads
// the whole content of downloadUrl and hands the bytes to the listener.
//
// The URL is used as given, without percent-encoding: a text that does not parse strictly (a blank in it,
// no scheme) ends the operation without a result, as does any failed read (see URLSession for what
// fails). Nothing is logged.
//
// Threads: main() performs the transfer on the thread it runs on (a worker of the cache's queue; see
// URLSession::contentsOf), blocking it no longer than the session's timeouts allow, then calls
// listener->onFinish there. cancel() and the getters may be called on any thread; a cancelled operation
// that has not begun reading returns at once.
//
// Lifetime: the listener is held weakly, so a cache destroyed meanwhile is simply not told. The session
// must outlive the operation.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "nbbase/common/URLSession.h"
#include "nbbase/foundation/Value.h"

namespace nb {

class DownloadListener {
public:
    virtual ~DownloadListener() = default;
    // The bytes of a completed prefetch, keyed by the URL text as it was queued; handed over, so a listener
    // that keeps them need not copy them.
    virtual void onFinish(const std::string& url, Data data) = 0;
};

class NBDownloadOperation {
public:
    explicit NBDownloadOperation(std::string downloadUrl, URLSession& session = URLSession::shared());

    void main();
    void cancel() noexcept { cancelled_.store(true); }
    [[nodiscard]] bool isCancelled() const noexcept { return cancelled_.load(); }

    [[nodiscard]] const std::string& downloadUrl() const noexcept { return downloadUrl_; }
    [[nodiscard]] std::shared_ptr<DownloadListener> listener() const;
    void setListener(std::weak_ptr<DownloadListener> listener);

private:
    const std::string downloadUrl_;
    URLSession& session_;
    std::atomic<bool> cancelled_{false};
    mutable std::mutex mutex_;
    std::weak_ptr<DownloadListener> listener_;  // guarded by mutex_
};

}  // namespace nb
