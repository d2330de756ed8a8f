#include "nbbase/catalog/NBImageCache.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <vector>

#include "HttpTestServer.h"
#include "ReplayBridge.h"
#include "nbbase/foundation/MainQueue.h"
#include "nbbase/foundation/SerialQueue.h"

namespace nb {
namespace {

using namespace std::chrono_literals;
using nbtest::HttpTestServer;
using Resource = HttpTestServer::Resource;
using Mode = HttpTestServer::Mode;
using nbtest::bytes;

Folders foldersIn(const std::filesystem::path& home) {
    Folders::Environment environment;
    environment.home = home.string();
    return Folders(environment);
}

// Records what it is shown; a picture set off the main thread is recorded as "(off main)".
class RecordingView final : public NBImageView {
public:
    explicit RecordingView(const MainQueue& main) : main_(main) {}
    void setImageData(const Data& data) override {
        std::lock_guard lock(mutex_);
        shown_.push_back(main_.isMainThread() ? std::string(data.begin(), data.end()) : "(off main)");
    }
    std::vector<std::string> shown() const {
        std::lock_guard lock(mutex_);
        return shown_;
    }

private:
    const MainQueue& main_;
    mutable std::mutex mutex_;
    std::vector<std::string> shown_;  // guarded by mutex_
};

class NBImageCacheTest : public ::testing::Test {
protected:
    NBImageCacheTest() { std::filesystem::create_directories(folders_.documentsFolder()); }

    // Runs the main queue until `done`; what is awaited may not post to the main queue, so it is asked often.
    bool waitFor(const std::function<bool()>& done) {
        const auto deadline = std::chrono::steady_clock::now() + test::kPatience;
        while (!done()) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            main_.runFor(2ms);
        }
        return true;
    }
    bool waitForShown(const RecordingView& view, std::size_t count) {
        return waitFor([&] { return view.shown().size() >= count; });
    }
    static bool waitForPrefetches(NBImageCache& cache) {
        return cache.waitForPrefetches(std::chrono::duration_cast<std::chrono::milliseconds>(test::kPatience));
    }
    // The cached bytes as text, "(none)" when nothing is cached under `url`.
    static std::string cached(const NBImageCache& cache, const std::string& url) {
        const auto data = cache.imgByUrl(url);
        return data ? std::string(data->begin(), data->end()) : "(none)";
    }

    HttpTestServer server_;
    nbtest::TempDir home_;
    const Folders folders_ = foldersIn(home_.path());
    MainQueue main_;
    URLSession session_{URLSession::Options{1000ms, 300ms, 3, 64 * 1024, {}}};
    SerialQueue disk_{"test.image-disk"};
};

TEST_F(NBImageCacheTest, DisplayDownloadsEncodeTheUrlAndPrefetchesDoNot) {
    server_.serve("/a b.png", "spaced");  // the server decodes the request path
    server_.serve("/plain.png", "plain");
    NBImageCache cache(session_, folders_, main_, disk_);
    const std::string spaced = server_.url("/a b.png");
    auto view = std::make_shared<RecordingView>(main_);

    cache.downloadImage(spaced, view);
    ASSERT_TRUE(waitForShown(*view, 1));
    EXPECT_EQ(view->shown(), std::vector<std::string>{"spaced"});
    EXPECT_EQ(cached(cache, spaced), "spaced");  // under the text as given, not the encoded one
    EXPECT_EQ(cached(cache, server_.url("/a%20b.png")), "(none)");

    NBImageCache prefetching(session_, folders_, main_, disk_);
    prefetching.concurentDownloadImage({spaced, server_.url("/plain.png"), std::nullopt, server_.url("/never.png")});
    ASSERT_TRUE(waitForPrefetches(prefetching));
    EXPECT_EQ(cached(prefetching, spaced), "(none)");
    EXPECT_EQ(cached(prefetching, server_.url("/plain.png")), "plain");
    EXPECT_EQ(server_.requestCount("/a b.png"), 1);    // only the display download reached the server
    EXPECT_EQ(server_.requestCount("/never.png"), 0);  // the list ends at the first nil
    EXPECT_EQ(cached(prefetching, ""), "(none)");
}

TEST_F(NBImageCacheTest, AtMostTwoPrefetchesRunAtOnce) {
    std::vector<std::optional<std::string>> urls;
    for (int i = 0; i < 5; ++i) {
        const std::string path = "/p" + std::to_string(i) + ".png";
        server_.serve(path, "image " + std::to_string(i));
        urls.push_back(server_.url(path));
    }
    server_.closeGate();
    NBImageCache cache(session_, folders_, main_, disk_);
    cache.concurentDownloadImage(urls);
    ASSERT_TRUE(server_.waitForInFlight(2));
    EXPECT_EQ(cache.pendingDownloadCount(), 5u);
    EXPECT_FALSE(cache.waitForPrefetches(20ms));  // meant to time out: all five are still pending
    server_.openGate();
    ASSERT_TRUE(waitForPrefetches(cache));
    EXPECT_EQ(server_.maxInFlight(), 2);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(cached(cache, *urls[i]), "image " + std::to_string(i));
}

TEST_F(NBImageCacheTest, RefreshShowsTheCachedPictureThenAsksConditionally) {
    server_.serve("/logo.png", Resource("v1", "\"e1\""));
    server_.serve("/dated.png", Resource("d1", {}, "Wed, 18 Nov 2026 11:00:00 GMT"));
    NBImageCache cache(session_, folders_, main_, disk_);
    for (const char* path : {"/logo.png", "/dated.png"}) {
        SCOPED_TRACE(path);
        const std::string url = server_.url(path);
        auto view = std::make_shared<RecordingView>(main_);
        cache.updateImage(url, view);  // nothing cached yet: only the download shows
        ASSERT_TRUE(waitForShown(*view, 1));
        cache.updateImage(url, view);  // at once from the cache, and again when the 304 arrives
        EXPECT_EQ(view->shown().size(), 2u);
        ASSERT_TRUE(waitForShown(*view, 3));
        EXPECT_EQ(view->shown()[1], view->shown()[0]);
        EXPECT_EQ(view->shown()[2], view->shown()[0]);
        EXPECT_EQ(server_.requestCount(path), 2);
    }
    EXPECT_EQ(server_.requestHeader("/logo.png", "If-None-Match"), "\"e1\"");
    EXPECT_EQ(server_.requestHeader("/dated.png", "If-Modified-Since"), "Wed, 18 Nov 2026 11:00:00 GMT");

    // A changed picture comes down in full and replaces the cached one.
    server_.serve("/logo.png", Resource("v2", "\"e2\""));
    auto view = std::make_shared<RecordingView>(main_);
    cache.updateImage(server_.url("/logo.png"), view);
    ASSERT_TRUE(waitForShown(*view, 2));
    EXPECT_EQ(view->shown(), (std::vector<std::string>{"v1", "v2"}));
    EXPECT_EQ(cached(cache, server_.url("/logo.png")), "v2");
}

TEST_F(NBImageCacheTest, AFailedDownloadLeavesEverythingAsItWas) {
    const std::string big(64 * 1024 + 1, 'x');
    const std::pair<const char*, Resource> failures[] = {
        {"/missing.png", Resource("", {}, {}, Mode::NotFound)},
        {"/stall.png", Resource("abc", {}, {}, Mode::StallAfterHeaders)},
        {"/silent.png", Resource("", {}, {}, Mode::StallBeforeHeaders)},
        {"/cut.png", Resource("partial", {}, {}, Mode::CloseMidBody)},
        {"/loop.png", Resource("", {}, {}, Mode::RedirectLoop)},
        {"/big.png", Resource(big)},
        {"/endless.png", Resource("", {}, {}, Mode::Endless)},
    };
    NBImageCache cache(session_, folders_, main_, disk_);
    auto view = std::make_shared<RecordingView>(main_);
    for (const auto& [path, resource] : failures) {
        server_.serve(path, resource);
        cache.updateMemoreyCache(server_.url(path), bytes("old"));
        cache.downloadImage(server_.url(path), view);
        cache.addImageDownloadTask(server_.url(path));
    }
    ASSERT_TRUE(waitForPrefetches(cache));
    // Display downloads have no completion to wait for; a marker download queued last on the same session
    // arrives after the failures have been handled (the session completes each failure within its timeouts).
    server_.serve("/marker.png", "marker");
    cache.downloadImage(server_.url("/marker.png"), view);
    ASSERT_TRUE(waitForShown(*view, 1));
    EXPECT_EQ(view->shown(), std::vector<std::string>{"marker"});
    for (const auto& [path, resource] : failures) {
        SCOPED_TRACE(path);
        EXPECT_GE(server_.requestCount(path), 2);
        EXPECT_EQ(cached(cache, server_.url(path)), "old");
    }
}

TEST_F(NBImageCacheTest, FilesAreNamedByTheUrlHashAndWrittenWhole) {
    NBImageCache cache(session_, folders_, main_, disk_);
    const std::string folder = folders_.documentsFolder() + "/Games/PopupWindowImage";
    EXPECT_EQ(cache.storePathByUrl(""), std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(folders_.documentsFolder() + "/Games"));

    const std::string url = "https://img.example.com/popup/1.png";
    EXPECT_EQ(NBImageCache::urlHash(""), 14695981039346656037ull);  // FNV-1a: the same in every run
    EXPECT_EQ(cache.storePathByUrl(url), folder + "/" + std::to_string(NBImageCache::urlHash(url)));
    EXPECT_NE(cache.storePathByUrl(url), cache.storePathByUrl(url + "?"));
    EXPECT_TRUE(std::filesystem::is_directory(folder));

    cache.saveImage(bytes("picture"), url);
    cache.saveImage(bytes("picture, second"), url);
    ASSERT_TRUE(nbtest::drain(disk_));
    std::ifstream in(*cache.storePathByUrl(url), std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "picture, second");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 1);  // no temporary left

    // Without a documents folder the path is still answered, and no folder is made on the way.
    const Folders missing = foldersIn(home_.path() / "nobody");
    NBImageCache homeless(session_, missing, main_, disk_);
    ASSERT_TRUE(homeless.storePathByUrl(url));
    EXPECT_FALSE(std::filesystem::exists(missing.documentsFolder()));
}

TEST_F(NBImageCacheTest, ADestroyedCacheIgnoresDownloadsStillInFlight) {
    server_.serve("/late.png", "late");
    server_.closeGate();
    auto view = std::make_shared<RecordingView>(main_);
    {
        NBImageCache cache(session_, folders_, main_, disk_);
        cache.downloadImage(server_.url("/late.png"), view);
        cache.concurentDownloadImage({server_.url("/late.png"), server_.url("/late.png"), server_.url("/late.png")});
        ASSERT_TRUE(server_.waitForInFlight(3));  // one display download and two prefetches
    }
    server_.openGate();
    // Every request the cache made is answered; the display download lands nowhere.
    server_.serve("/marker.png", "marker");
    std::atomic<bool> marker{false};
    session_.dataTask({server_.url("/marker.png"), {}}, [&marker](URLSession::Response) { marker = true; });
    ASSERT_TRUE(waitFor([&] { return marker.load(); }));
    main_.drain();
    EXPECT_TRUE(view->shown().empty());
    EXPECT_LE(server_.requestCount("/late.png"), 3);  // the third prefetch never started
}

}  // namespace
}  // namespace nb
