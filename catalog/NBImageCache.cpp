#include "nbbase/catalog/NBImageCache.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "nbbase/foundation/AtomicFile.h"
#include "nbbase/foundation/Url.h"

namespace nb {

namespace {

constexpr const char* kGamesFolder = "Games";
constexpr const char* kImagesFolder = "PopupWindowImage";

std::optional<std::string> storePath(const std::string& documents, const std::string& url) {
    if (url.empty() || documents.empty()) return std::nullopt;
    const std::string games = documents + "/" + kGamesFolder;
    NBImageCache::ensureFolderExists(games);
    const std::string images = games + "/" + kImagesFolder;
    NBImageCache::ensureFolderExists(images);
    return images + "/" + std::to_string(NBImageCache::urlHash(url));
}

}  // namespace

class NBImageCache::Core final : public DownloadListener {
public:
    explicit Core(DispatchQueue& mainQueue) : mainQueue_(mainQueue) {}

    std::shared_ptr<const Data> lookup(const std::string& url) const {
        std::lock_guard lock(cacheMutex_);
        const auto it = entries_.find(url);
        return it == entries_.end() ? nullptr : it->second.bytes;
    }

    // The validators of a cached picture, for a conditional request; none when nothing is cached.
    std::pair<std::optional<std::string>, std::optional<std::string>> validators(const std::string& url) const {
        std::lock_guard lock(cacheMutex_);
        const auto it = entries_.find(url);
        if (it == entries_.end()) return {};
        return {it->second.etag, it->second.lastModified};
    }

    void store(const std::string& url, std::shared_ptr<const Data> bytes, std::optional<std::string> etag = {},
               std::optional<std::string> lastModified = {}) {
        Entry entry{std::move(bytes), std::move(etag), std::move(lastModified)};
        {
            std::lock_guard lock(cacheMutex_);
            std::swap(entries_[url], entry);
        }
        // `entry` now holds what it replaced: the bytes are released here, not under the lock, since
        // returning a large block to the system may take a system call.
    }

    void onFinish(const std::string& url, Data data) override {
        store(url, std::make_shared<const Data>(std::move(data)));
    }

    // Sets the view on the main queue, unless the cache has been destroyed.
    void deliver(std::weak_ptr<NBImageView> view, std::shared_ptr<const Data> bytes) {
        std::lock_guard lock(deliveryMutex_);
        if (closed_) return;
        mainQueue_.async([view = std::move(view), bytes = std::move(bytes)] {
            if (const auto target = view.lock()) target->setImageData(*bytes);
        });
    }

    // After this no download reaches the main queue, which may then go away with the cache.
    void close() {
        std::lock_guard lock(deliveryMutex_);
        closed_ = true;
    }

private:
    struct Entry {
        std::shared_ptr<const Data> bytes;
        std::optional<std::string> etag;
        std::optional<std::string> lastModified;
    };

    mutable std::mutex cacheMutex_;
    std::unordered_map<std::string, Entry> entries_;  // guarded by cacheMutex_

    DispatchQueue& mainQueue_;
    std::mutex deliveryMutex_;
    bool closed_ = false;  // guarded by deliveryMutex_
};

NBImageCache& NBImageCache::sharedInstance() {
    static NBImageCache* const instance = new NBImageCache();
    return *instance;
}

NBImageCache::NBImageCache(URLSession& session, const Folders& folders, DispatchQueue& mainQueue,
                           DispatchQueue& diskQueue, ThreadPool& pool)
    : session_(session),
      documentsFolder_(folders.documentsFolder()),
      diskQueue_(diskQueue),
      core_(std::make_shared<Core>(mainQueue)),
      downloadQueue_("nb.image-download", kMaxConcurrentDownloads, pool) {}

NBImageCache::~NBImageCache() {
    downloadQueue_.cancelAllOperations();
    core_->close();
}

std::shared_ptr<const Data> NBImageCache::imgByUrl(const std::string& url) const {
    if (url.empty()) return nullptr;
    return core_->lookup(url);
}

void NBImageCache::updateImage(const std::string& url, const std::shared_ptr<NBImageView>& imageView) {
    if (imageView) {
        if (const auto cached = imgByUrl(url)) imageView->setImageData(*cached);
    }
    downloadImage(url, imageView);
}

void NBImageCache::downloadImage(const std::string& url, const std::shared_ptr<NBImageView>& imgView) {
    if (url.empty()) return;
    URLSession::Request request{Url::encodeQuery(url), {}};
    auto [etag, lastModified] = core_->validators(url);
    if (etag) request.headers.emplace_back("If-None-Match", *etag);
    if (lastModified) request.headers.emplace_back("If-Modified-Since", *lastModified);

    const bool hasView = imgView != nullptr;
    session_.dataTask(std::move(request), [weakCore = std::weak_ptr<Core>(core_), url, hasView,
                                           view = std::weak_ptr<NBImageView>(imgView)](URLSession::Response reply) {
        const auto core = weakCore.lock();
        if (!core || !reply.succeeded()) return;
        std::shared_ptr<const Data> bytes;
        if (reply.notModified()) {
            bytes = core->lookup(url);
            if (!bytes) return;
        } else {
            bytes = std::make_shared<const Data>(std::move(reply.body));
            // Stored before the view is set, so a host that reads the cache once it sees the picture finds it.
            core->store(url, bytes, std::move(reply.etag), std::move(reply.lastModified));
        }
        if (hasView) core->deliver(view, std::move(bytes));
    });
}

void NBImageCache::addImageDownloadTask(const std::string& url) {
    if (url.empty()) return;
    addDownloadTask(std::make_shared<NBDownloadOperation>(url, session_));
}

void NBImageCache::concurentDownloadImage(const std::vector<std::optional<std::string>>& urls) {
    for (const auto& url : urls) {
        if (!url) break;
        addImageDownloadTask(*url);
    }
}

void NBImageCache::addDownloadTask(const std::shared_ptr<NBDownloadOperation>& operation) {
    if (!operation) return;
    operation->setListener(core_);
    downloadQueue_.addOperation([operation] { operation->main(); });
}

void NBImageCache::saveImage(const Data& data, const std::string& imgUrl) {
    diskQueue_.async([documents = documentsFolder_, imgUrl, data] {
        if (const auto path = storePath(documents, imgUrl)) {
            (void)AtomicFile::write(*path, {reinterpret_cast<const char*>(data.data()), data.size()});
        }
    });
}

std::optional<std::string> NBImageCache::storePathByUrl(const std::string& url) const {
    return storePath(documentsFolder_, url);
}

void NBImageCache::ensureFolderExists(const std::string& path) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) == 0) return;
    ::mkdir(path.c_str(), 0755);
}

std::uint64_t NBImageCache::urlHash(const std::string& url) noexcept {
    std::uint64_t hash = 14695981039346656037ull;
    for (const char c : url) {
        hash ^= static_cast<unsigned char>(c);
        hash *= 1099511628211ull;
    }
    return hash;
}

void NBImageCache::updateMemoreyCache(const std::string& url, const Data& data) { core_->onFinish(url, data); }

void NBImageCache::onFinish(const std::string& url, const Data& data) { core_->onFinish(url, data); }

std::size_t NBImageCache::pendingDownloadCount() const { return downloadQueue_.operationCount(); }

bool NBImageCache::waitForPrefetches(std::chrono::milliseconds timeout) {
    return downloadQueue_.waitUntilAllOperationsAreFinishedFor(timeout);
}

}  // namespace nb
