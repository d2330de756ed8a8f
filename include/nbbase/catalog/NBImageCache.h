// NBImageCache: the images that server-driven content (popups above all) refers to: downloaded, kept in
// memory by URL for the life of the process, put into image views, and written to disk when asked.
//
// Two ways in:
// - display downloads (downloadImage, updateImage) percent-encode the URL text with the URL-query set
//   (Url::encodeQuery), so a URL with a blank in it still loads, and run on the URL session;
// - prefetches (addImageDownloadTask, concurentDownloadImage, addDownloadTask) run as NBDownloadOperation
//   on the cache's own queue, at most two at a time, with the URL text as given: one that does not parse
//   strictly yields nothing.
// Either way the bytes are stored under the URL text exactly as the caller gave it.
//
// Conditional refresh: when a display download's reply carried an ETag or a Last-Modified date, the next
// display download of that URL asks with If-None-Match / If-Modified-Since; a 304 answer counts as a
// completed download of the bytes already cached (the view is set again with them), so refreshing an
// unchanged picture moves no image bytes. Prefetches and updateMemoreyCache store bytes without
// validators, so the first refresh after them downloads in full.
//
// Files: <documents>/Games/PopupWindowImage/<hash>, where <hash> is the unsigned decimal of the 64-bit
// FNV-1a hash of the URL text's UTF-8 bytes: stable across runs and builds. The two folders are made one
// level at a time (mode 0755) and only when documents exists. saveImage writes through a temporary file in
// the same folder renamed over the target, on the background-priority queue.
//
// Failures are silent, as callers of an image cache expect: an empty URL, a URL that cannot be made, a
// network error, an HTTP error status, a timeout, a body over the session's cap, a folder or file that
// cannot be written: the memory cache, the view and the files stay as they were, and nothing is logged.
//
// Threads: every function may be called on any thread. The memory cache is guarded by one mutex, held only
// to find or swap an entry (bytes are shared, never copied under it, and replaced ones are released after
// it); a reader-writer lock measured slower here, with lookups this short. Display downloads complete on the
// session's thread and prefetches on the queue's workers; views are set on the main queue given to the
// constructor (and, for updateImage's cached picture, on the calling thread).
//
// Lifetime: destroying the cache cancels the prefetches not yet started; downloads still in flight then
// complete without touching the cache or any view. The session, the folders and the queues must outlive
// it. sharedInstance() is created on first use and never destroyed.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "nbbase/catalog/NBDownloadOperation.h"
#include "nbbase/catalog/NBImageView.h"
#include "nbbase/common/URLSession.h"
#include "nbbase/foundation/ConcurrentQueue.h"
#include "nbbase/foundation/DispatchQueue.h"
#include "nbbase/foundation/Folders.h"
#include "nbbase/foundation/MainQueue.h"
#include "nbbase/foundation/OperationQueue.h"
#include "nbbase/foundation/ThreadPool.h"
#include "nbbase/foundation/Value.h"

namespace nb {

class NBImageCache {
public:
    // Prefetches that run at once.
    static constexpr std::int64_t kMaxConcurrentDownloads = 2;

    static NBImageCache& sharedInstance();

    explicit NBImageCache(URLSession& session = URLSession::shared(), const Folders& folders = Folders::sharedInstance(),
                          DispatchQueue& mainQueue = MainQueue::sharedInstance(),
                          DispatchQueue& diskQueue = ConcurrentQueue::global(ConcurrentQueue::Priority::Background),
                          ThreadPool& pool = ThreadPool::sharedInstance());
    ~NBImageCache();
    NBImageCache(const NBImageCache&) = delete;
    NBImageCache& operator=(const NBImageCache&) = delete;

    // The cached bytes, shared and never changed; nullptr for an empty URL or one not cached.
    [[nodiscard]] std::shared_ptr<const Data> imgByUrl(const std::string& url) const;

    // Shows the cached picture at once (on this thread), then downloads again as downloadImage does.
    void updateImage(const std::string& url, const std::shared_ptr<NBImageView>& imageView);
    void downloadImage(const std::string& url, const std::shared_ptr<NBImageView>& imgView);

    void addImageDownloadTask(const std::string& url);
    // Queues a prefetch for each URL in order, up to the first nullopt (the end of the list).
    void concurentDownloadImage(const std::vector<std::optional<std::string>>& urls);
    // Makes the cache the operation's listener and queues it; a null operation is ignored.
    void addDownloadTask(const std::shared_ptr<NBDownloadOperation>& operation);

    void saveImage(const Data& data, const std::string& imgUrl);
    // The file for the URL, its two folders ensured; nullopt for an empty URL or an unknown documents folder.
    [[nodiscard]] std::optional<std::string> storePathByUrl(const std::string& url) const;
    // Makes the one folder when nothing is at the path; its parent must exist. Errors are ignored.
    static void ensureFolderExists(const std::string& path);
    [[nodiscard]] static std::uint64_t urlHash(const std::string& url) noexcept;

    void updateMemoreyCache(const std::string& url, const Data& data);
    // The listener side of the prefetches: the same as updateMemoreyCache.
    void onFinish(const std::string& url, const Data& data);

    // Prefetches queued or running, for hosts that show progress and for tests.
    [[nodiscard]] std::size_t pendingDownloadCount() const;
    // Blocks until no prefetch is queued or running, including ones queued meanwhile, or until `timeout`
    // has passed; answers whether they had all ended. Prefetches that fail count as ended.
    [[nodiscard]] bool waitForPrefetches(std::chrono::milliseconds timeout);

    class Core;  // the memory cache and the listener, shared with downloads in flight

private:
    URLSession& session_;
    const std::string documentsFolder_;
    DispatchQueue& diskQueue_;
    std::shared_ptr<Core> core_;
    OperationQueue downloadQueue_;  // destroyed first: cancels what has not started
};

}  // namespace nb
