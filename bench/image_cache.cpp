// The image cache: lookups from four threads while two threads store, beside a mutex-guarded
// unordered_map doing the same; and 200 prefetches of 100 KB from a local HTTP server, beside libcurl's own
// multi interface fetching the same URLs two at a time over kept-alive connections (target: at most 1.2
// times its time), and the same reads made on the URL session from two threads.
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <httplib.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "nbbase/catalog/NBImageCache.h"
#include "nbbase/foundation/Folders.h"
#include "nbbase/foundation/MainQueue.h"

namespace {

constexpr int kKeys = 256;
constexpr int kPrefetches = 200;
constexpr std::size_t kImageBytes = 100 * 1024;

const std::vector<std::string>& keys() {
    static const auto* const list = [] {
        auto* v = new std::vector<std::string>();
        for (int i = 0; i < kKeys; ++i) v->push_back("https://img.example.com/popup/" + std::to_string(i) + ".png");
        return v;
    }();
    return *list;
}

// ---- Lookups under contention ----

// The loop both sides run, so that they measure the same work: threads 0-3 look up, threads 4 and 5 store
// (->Threads(6)), each over the same keys.
template <typename Store, typename Lookup>
void readWhileStoring(benchmark::State& state, Store store, Lookup lookup) {
    const bool writer = state.thread_index() >= 4;
    const nb::Data bytes(1024, 9);
    std::size_t i = static_cast<std::size_t>(state.thread_index()) * 31;
    for (auto _ : state) {
        const std::string& key = keys()[i++ % kKeys];
        if (writer) {
            store(key, bytes);
        } else {
            benchmark::DoNotOptimize(lookup(key));
        }
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_ImgByUrlWhileStoring(benchmark::State& state) {
    static nb::NBImageCache* cache = nullptr;
    static nb::MainQueue* main = nullptr;
    if (state.thread_index() == 0) {
        main = new nb::MainQueue();
        cache = new nb::NBImageCache(nb::URLSession::shared(), nb::Folders::sharedInstance(), *main);
        for (const auto& key : keys()) cache->updateMemoreyCache(key, nb::Data(1024, 7));
    }
    readWhileStoring(
        state, [](const std::string& key, const nb::Data& bytes) { cache->updateMemoreyCache(key, bytes); },
        [](const std::string& key) { return cache->imgByUrl(key); });
    if (state.thread_index() == 0) {
        delete cache;
        delete main;
    }
}
BENCHMARK(BM_ImgByUrlWhileStoring)->Threads(6)->UseRealTime();

void BM_MutexMapWhileStoring(benchmark::State& state) {
    static std::mutex* mutex = nullptr;
    static std::unordered_map<std::string, std::shared_ptr<const nb::Data>>* map = nullptr;
    if (state.thread_index() == 0) {
        mutex = new std::mutex();
        map = new std::unordered_map<std::string, std::shared_ptr<const nb::Data>>();
        for (const auto& key : keys()) (*map)[key] = std::make_shared<const nb::Data>(1024, 7);
    }
    readWhileStoring(
        state,
        [](const std::string& key, const nb::Data& bytes) {
            auto stored = std::make_shared<const nb::Data>(bytes);
            std::lock_guard lock(*mutex);
            (*map)[key] = std::move(stored);
        },
        [](const std::string& key) {
            std::lock_guard lock(*mutex);
            const auto it = map->find(key);
            return it == map->end() ? nullptr : it->second;
        });
    if (state.thread_index() == 0) {
        delete map;
        delete mutex;
    }
}
BENCHMARK(BM_MutexMapWhileStoring)->Threads(6)->UseRealTime();

// ---- Prefetches from 127.0.0.1 ----

class ImageServer {
public:
    ImageServer() : body_(kImageBytes, 'x') {
        server_.Get(R"(/img/(\d+)\.png)", [this](const httplib::Request&, httplib::Response& res) {
            res.set_content(body_, "image/png");
        });
        server_.set_keep_alive_max_count(1000);
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
    }
    ~ImageServer() {
        server_.stop();
        thread_.join();
    }
    std::vector<std::string> urls() const {
        std::vector<std::string> list;
        for (int i = 0; i < kPrefetches; ++i) {
            list.push_back("http://127.0.0.1:" + std::to_string(port_) + "/img/" + std::to_string(i) + ".png");
        }
        return list;
    }

private:
    std::string body_;
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
};

ImageServer& server() {
    static ImageServer* const instance = new ImageServer();
    return *instance;
}

void BM_Prefetch200(benchmark::State& state) {
    const auto urls = server().urls();
    const std::vector<std::optional<std::string>> list(urls.begin(), urls.end());
    nb::MainQueue main;
    nb::URLSession session;
    nb::NBImageCache cache(session, nb::Folders::sharedInstance(), main);
    for (auto _ : state) {
        cache.concurentDownloadImage(list);
        if (!cache.waitForPrefetches(std::chrono::minutes(1))) {
            state.SkipWithError("the prefetches did not end");
            break;
        }
    }
    if (!cache.imgByUrl(urls.back()) || cache.imgByUrl(urls.back())->size() != kImageBytes) {
        state.SkipWithError("the prefetches did not arrive");
    }
    state.SetBytesProcessed(state.iterations() * kPrefetches * static_cast<std::int64_t>(kImageBytes));
}
BENCHMARK(BM_Prefetch200)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same reads made straight on the session from two threads, without the cache and its queue: what the
// session itself costs of BM_Prefetch200.
void BM_ContentsOfTwoThreads(benchmark::State& state) {
    const auto urls = server().urls();
    nb::URLSession session;
    std::atomic<bool> failed{false};
    for (auto _ : state) {
        std::atomic<std::size_t> next{0};
        auto lane = [&] {
            for (std::size_t i = next++; i < urls.size(); i = next++) {
                const auto reply = session.contentsOf({urls[i], {}});
                if (reply.body.size() != kImageBytes) failed = true;
            }
        };
        std::thread other(lane);
        lane();
        other.join();
    }
    if (failed) state.SkipWithError("a read did not arrive whole");
    state.SetBytesProcessed(state.iterations() * kPrefetches * static_cast<std::int64_t>(kImageBytes));
}
BENCHMARK(BM_ContentsOfTwoThreads)->Unit(benchmark::kMillisecond)->UseRealTime();

std::size_t collect(char* data, std::size_t size, std::size_t count, void* user) {
    auto* body = static_cast<std::string*>(user);
    body->append(data, size * count);
    return size * count;
}

void BM_CurlMultiTwoAtATime(benchmark::State& state) {
    const auto urls = server().urls();
    CURLM* multi = curl_multi_init();
    CURL* easy[2] = {curl_easy_init(), curl_easy_init()};
    std::string bodies[2];
    for (auto _ : state) {
        std::size_t next = 0;
        int running = 0;
        auto start = [&](int slot) {
            bodies[slot].clear();
            curl_easy_setopt(easy[slot], CURLOPT_URL, urls[next++].c_str());
            curl_easy_setopt(easy[slot], CURLOPT_WRITEFUNCTION, collect);
            curl_easy_setopt(easy[slot], CURLOPT_WRITEDATA, &bodies[slot]);
            curl_multi_add_handle(multi, easy[slot]);
        };
        start(0);
        start(1);
        do {
            curl_multi_perform(multi, &running);
            int queued = 0;
            while (CURLMsg* message = curl_multi_info_read(multi, &queued)) {
                if (message->msg != CURLMSG_DONE) continue;
                const int slot = message->easy_handle == easy[0] ? 0 : 1;
                benchmark::DoNotOptimize(bodies[slot].size());
                curl_multi_remove_handle(multi, easy[slot]);
                if (next < urls.size()) start(slot);
            }
            curl_multi_perform(multi, &running);
            if (running > 0) curl_multi_poll(multi, nullptr, 0, 100, nullptr);
        } while (running > 0 || next < urls.size());
    }
    curl_easy_cleanup(easy[0]);
    curl_easy_cleanup(easy[1]);
    curl_multi_cleanup(multi);
    state.SetBytesProcessed(state.iterations() * kPrefetches * static_cast<std::int64_t>(kImageBytes));
}
BENCHMARK(BM_CurlMultiTwoAtATime)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
