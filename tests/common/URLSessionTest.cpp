#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>
#include <set>
#include <thread>

#include <gtest/gtest.h>

#include "HttpTestServer.h"
#include "TempDir.h"
#include "foundation/DispatchTestSupport.h"
#include "nbbase/common/URLSession.h"

namespace {

using namespace std::chrono_literals;
using nb::URLSession;
using nb::test::kPatience;
using nbtest::HttpTestServer;
using Mode = HttpTestServer::Mode;

struct Outcome {
    URLSession::Response response;
    std::thread::id thread;
};

// The two ways in: a dataTask waited for (its completion's thread kept, so tests can tell where it ran),
// and contentsOf, which transfers on the calling thread.
enum class Path { DataTask, ContentsOf };

std::optional<Outcome> fetch(URLSession& session, URLSession::Request request, Path path = Path::DataTask) {
    if (path == Path::ContentsOf) return Outcome{session.contentsOf(std::move(request)), std::this_thread::get_id()};
    auto promise = std::make_shared<std::promise<Outcome>>();
    auto future = promise->get_future();
    session.dataTask(std::move(request), [promise](URLSession::Response response) {
        promise->set_value({std::move(response), std::this_thread::get_id()});
    });
    if (future.wait_for(kPatience) != std::future_status::ready) return std::nullopt;
    return future.get();
}

const char* name(Path path) { return path == Path::DataTask ? "dataTask" : "contentsOf"; }

// dataTask completes on the session thread, contentsOf on the caller's.
void expectThread(const Outcome& outcome, Path path) {
    if (path == Path::DataTask) {
        EXPECT_NE(outcome.thread, std::this_thread::get_id());
    } else {
        EXPECT_EQ(outcome.thread, std::this_thread::get_id());
    }
}

std::string text(const nb::Data& bytes) { return {bytes.begin(), bytes.end()}; }

URLSession::Options quick(std::chrono::milliseconds idle = 10s, long maxRedirects = 5, std::size_t cap = 1 << 20) {
    URLSession::Options options;
    options.idleTimeout = idle;
    options.maxRedirects = maxRedirects;
    options.maxBodyBytes = cap;
    return options;
}

const std::string kEtag = "\"v1\"";
const std::string kDate = "Wed, 21 Oct 2015 07:28:00 GMT";

TEST(URLSession, AnswersEachKindOfReplyAlikeOnBothPaths) {
    struct Case {
        const char* name;
        HttpTestServer::Resource resource;
        URLSession::Options options;
        std::vector<std::pair<std::string, std::string>> headers;
        std::string error;  // the start of the expected error; empty for success
        long status;
        std::string body;
        std::optional<std::string> etag, lastModified;
        int requests = 1;
    };
    const std::string big(4096, 'b');
    const Case cases[] = {
        {"body and validators", {"hello", kEtag, kDate}, quick(), {}, "", 200, "hello", kEtag, kDate},
        {"matching If-None-Match", {"hello", kEtag, kDate}, quick(), {{"If-None-Match", kEtag}}, "", 304, "", kEtag,
         kDate},
        {"matching If-Modified-Since", {"hello", kEtag, kDate}, quick(), {{"If-Modified-Since", kDate}}, "", 304, "",
         kEtag, kDate},
        {"stale If-None-Match", {"hello", kEtag}, quick(), {{"If-None-Match", "\"v0\""}}, "", 200, "hello", kEtag, {}},
        // The 302 carries validators of its own; only the last reply's count.
        {"redirect", {"/target", "\"hop\"", kDate, Mode::Redirect}, quick(), {}, "", 200, "target body", {}, {}},
        {"not found", {"", {}, {}, Mode::NotFound}, quick(), {}, "HTTP 404", 404, "", {}, {}},
        {"stall after headers", {"x", {}, {}, Mode::StallAfterHeaders}, quick(300ms), {}, "timed out", 200, "", {}, {}},
        {"stall before headers", {"x", {}, {}, Mode::StallBeforeHeaders}, quick(300ms), {}, "timed out", 0, "", {}, {}},
        {"closed mid-body", {big, {}, {}, Mode::CloseMidBody}, quick(), {}, "transfer closed", 200, "", {}, {}},
        {"redirect loop", {"", {}, {}, Mode::RedirectLoop}, quick(10s, 3), {}, "Maximum (3) redirects", 302, "", {}, {},
         4},
        {"announced body over the cap", {big}, quick(10s, 5, 1024), {}, "body over 1024 bytes", 200, "", {}, {}},
        {"endless body over the cap", {"", {}, {}, Mode::Endless}, quick(10s, 5, 1024), {}, "body over 1024 bytes", 200,
         "", {}, {}},
    };
    for (const auto path : {Path::DataTask, Path::ContentsOf}) {
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(name(path)) + ": " + c.name);
            HttpTestServer server;
            ASSERT_TRUE(server.listening());
            server.serve("/r", c.resource);
            server.serve("/target", "target body");
            URLSession session(c.options);

            auto outcome = fetch(session, {server.url("/r"), c.headers}, path);
            ASSERT_TRUE(outcome);
            const auto& response = outcome->response;
            EXPECT_EQ(response.error.substr(0, c.error.size()), c.error) << response.error;
            EXPECT_EQ(response.succeeded(), c.error.empty());
            EXPECT_EQ(response.notModified(), c.status == 304 && c.error.empty());
            EXPECT_EQ(response.statusCode, c.status);
            EXPECT_EQ(text(response.body), c.body);
            EXPECT_EQ(response.etag, c.etag);
            EXPECT_EQ(response.lastModified, c.lastModified);
            EXPECT_EQ(server.requestCount("/r"), c.requests);
            expectThread(*outcome, path);
        }
    }
}

TEST(URLSession, FailsWhatItCannotFetchWithoutAnHttpStatus) {
    nbtest::TempDir dir;
    const auto file = dir.path() / "blob.bin";
    std::string content(100 * 1024, '\0');
    for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 7);
    std::ofstream(file, std::ios::binary) << content;

    HttpTestServer untrusted(HttpTestServer::Transport::Https);
    untrusted.serve("/a", "secret");

    struct Case {
        const char* name;
        std::string url;
        std::string error;
        std::string body;
    };
    const Case cases[] = {
        {"file read whole", "file://" + file.string(), "", content},
        {"missing file", "file://" + (dir.path() / "none").string(), "Couldn't open file", ""},
        {"a blank in the URL", "http://127.0.0.1:1/a b", "unparsable URL", ""},
        {"no scheme", "127.0.0.1/a", "unparsable URL", ""},
        {"refused scheme", "gopher://127.0.0.1:1/", "Protocol \"gopher\" not supported", ""},
        {"nothing listening", "http://127.0.0.1:1/a", "Failed to connect", ""},
        {"self-signed certificate", untrusted.url("/a"), "SSL certificate problem", ""},
    };
    URLSession session(quick());
    for (const auto path : {Path::DataTask, Path::ContentsOf}) {
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(name(path)) + ": " + c.name);
            auto outcome = fetch(session, {c.url, {}}, path);
            ASSERT_TRUE(outcome);
            EXPECT_EQ(outcome->response.error.substr(0, c.error.size()), c.error) << outcome->response.error;
            EXPECT_EQ(outcome->response.succeeded(), c.error.empty());
            EXPECT_EQ(outcome->response.statusCode, 0);
            EXPECT_EQ(text(outcome->response.body), c.body);
            expectThread(*outcome, path);
        }
    }
}

TEST(URLSession, SendsTheUserAgentAskedForWhenTheTaskIsCreated) {
    HttpTestServer server;
    server.serve("/ua", "ok");
    std::mutex mutex;
    std::optional<std::string> agent = "NBTest/1.0";
    std::set<std::thread::id> askedOn;
    URLSession::Options options = quick();
    options.userAgent = [&]() -> std::optional<std::string> {
        std::lock_guard lock(mutex);
        askedOn.insert(std::this_thread::get_id());
        return agent;
    };
    URLSession session(options);

    ASSERT_TRUE(session.contentsOf({server.url("/ua"), {}}).succeeded());
    EXPECT_EQ(server.requestHeader("/ua", "user-agent"), "NBTest/1.0");

    {
        std::lock_guard lock(mutex);
        agent.reset();
    }
    ASSERT_TRUE(session.contentsOf({server.url("/ua"), {}}).succeeded());
    EXPECT_EQ(server.requestHeader("/ua", "User-Agent"), std::nullopt);
    EXPECT_EQ(askedOn, std::set{std::this_thread::get_id()});
}

TEST(URLSession, ReusesConnectionsOnBothPaths) {
    for (const auto path : {Path::DataTask, Path::ContentsOf}) {
        SCOPED_TRACE(name(path));
        HttpTestServer server;
        server.serve("/a", std::string(100 * 1024, 'a'));
        URLSession session(quick());
        std::set<std::thread::id> completionThreads;
        for (int i = 0; i < 20; ++i) {
            auto outcome = fetch(session, {server.url("/a"), {}}, path);
            ASSERT_TRUE(outcome);
            ASSERT_TRUE(outcome->response.succeeded()) << outcome->response.error;
            EXPECT_EQ(outcome->response.body.size(), 100u * 1024);
            completionThreads.insert(outcome->thread);
        }
        EXPECT_EQ(completionThreads.size(), 1u);
        // One kept connection serves them all; a server that dropped an idle one now and then may cost another.
        EXPECT_LE(server.connectionCount(), 3u);
    }
}

TEST(URLSession, ContentsOfIsNotHeldUpByACompletion) {
    HttpTestServer server;
    server.serve("/a", "a");
    std::promise<void> entered;
    std::promise<void> release;
    std::promise<bool> heldUntilReleased;
    URLSession session(quick());
    // The completion holds the session thread until contentsOf has returned (or the test gives up).
    session.dataTask({server.url("/a"), {}}, [&entered, &heldUntilReleased,
                                              held = release.get_future().share()](URLSession::Response) {
        entered.set_value();
        heldUntilReleased.set_value(held.wait_for(kPatience) == std::future_status::ready);
    });
    ASSERT_EQ(entered.get_future().wait_for(kPatience), std::future_status::ready);

    const auto response = session.contentsOf({server.url("/a"), {}});
    release.set_value();
    EXPECT_TRUE(response.succeeded()) << response.error;
    EXPECT_EQ(text(response.body), "a");
    EXPECT_TRUE(heldUntilReleased.get_future().get());
}

TEST(URLSession, ContentsOfWaitsOnManyThreadsAtOnce) {
    HttpTestServer server;
    constexpr int kThreads = 8;
    for (int i = 0; i < kThreads; ++i) server.serve("/p" + std::to_string(i), "body " + std::to_string(i));
    URLSession session(quick());
    server.closeGate();  // all of them in flight together before any answers

    std::vector<std::future<URLSession::Response>> answers;
    for (int i = 0; i < kThreads; ++i) {
        answers.push_back(std::async(std::launch::async, [&, i] {
            return session.contentsOf({server.url("/p" + std::to_string(i)), {}});
        }));
    }
    ASSERT_TRUE(server.waitForInFlight(kThreads));
    server.openGate();
    for (int i = 0; i < kThreads; ++i) {
        ASSERT_EQ(answers[i].wait_for(kPatience), std::future_status::ready);
        auto response = answers[i].get();
        EXPECT_TRUE(response.succeeded()) << response.error;
        EXPECT_EQ(text(response.body), "body " + std::to_string(i));
    }
    EXPECT_EQ(server.maxInFlight(), kThreads);
}

TEST(URLSession, ContentsOfFromACompletionFailsAtOnce) {
    HttpTestServer server;
    server.serve("/a", "a");
    URLSession session(quick());
    std::promise<URLSession::Response> inner;
    session.dataTask({server.url("/a"), {}}, [&](URLSession::Response) {
        inner.set_value(session.contentsOf({server.url("/a"), {}}));
    });
    auto answer = inner.get_future();
    ASSERT_EQ(answer.wait_for(kPatience), std::future_status::ready);
    EXPECT_FALSE(answer.get().succeeded());
    EXPECT_EQ(server.requestCount("/a"), 1);
}

TEST(URLSession, DestructionAbandonsTransfersInFlight) {
    nbtest::TempDir dir;
    HttpTestServer server;
    server.serve("/held", "never delivered");
    server.closeGate();
    auto called = std::make_shared<std::atomic<int>>(0);
    std::future<URLSession::Response> waiting;
    {
        URLSession session(quick());
        for (int i = 0; i < 2; ++i) {
            session.dataTask({server.url("/held"), {}}, [called](URLSession::Response) { ++*called; });
        }
        session.downloadTask({server.url("/held"), {}, dir.path() / "held.bin", {}},
                             [called](std::uint64_t, std::optional<std::uint64_t>) { ++*called; },
                             [called](URLSession::Response) { ++*called; });
        waiting = std::async(std::launch::async, [&] { return session.contentsOf({server.url("/held"), {}}); });
        ASSERT_TRUE(server.waitForInFlight(4));
    }
    EXPECT_TRUE(std::filesystem::exists(dir.path() / "held.bin")) << "an abandoned download keeps its file";
    EXPECT_EQ(*called, 0);
    EXPECT_EQ(called.use_count(), 1) << "the completions were destroyed with the session";
    ASSERT_EQ(waiting.wait_for(kPatience), std::future_status::ready);
    EXPECT_FALSE(waiting.get().succeeded());
}

// ---- downloads -------------------------------------------------------------------------------------------

struct DownloadLog {
    std::mutex mutex;
    std::vector<std::pair<std::uint64_t, std::optional<std::uint64_t>>> progress;  // guarded by mutex
    std::set<std::thread::id> threads;                                            // guarded by mutex
    std::optional<URLSession::Response> response;                                 // guarded by mutex
};

std::shared_ptr<DownloadLog> download(URLSession& session, URLSession::DownloadRequest request) {
    auto log = std::make_shared<DownloadLog>();
    auto done = std::make_shared<std::promise<void>>();
    auto future = done->get_future();
    session.downloadTask(
        std::move(request),
        [log](std::uint64_t received, std::optional<std::uint64_t> expected) {
            std::lock_guard lock(log->mutex);
            EXPECT_FALSE(log->response) << "progress after the completion";
            log->progress.emplace_back(received, expected);
            log->threads.insert(std::this_thread::get_id());
        },
        [log, done](URLSession::Response response) {
            {
                std::lock_guard lock(log->mutex);
                log->threads.insert(std::this_thread::get_id());
                log->response = std::move(response);
            }
            done->set_value();
        });
    if (future.wait_for(kPatience) != std::future_status::ready) return nullptr;
    return log;
}

std::optional<std::string> readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

void writeFile(const std::filesystem::path& path, const std::string& content) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

// Bytes that differ from offset to offset, so a misplaced range shows.
std::string patterned(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 131 + i / 251) & 0xff);
    return bytes;
}

// Progress only grows, on the session thread, and after a success ends at the whole file.
void expectProgress(DownloadLog& log, const std::optional<std::string>& whole) {
    std::lock_guard lock(log.mutex);
    const auto& reports = log.progress;
    for (std::size_t i = 1; i < reports.size(); ++i) EXPECT_GE(reports[i].first, reports[i - 1].first) << i;
    if (whole) {
        ASSERT_FALSE(reports.empty());
        EXPECT_EQ(reports.back(), std::pair(std::uint64_t{whole->size()}, std::optional(std::uint64_t{whole->size()})));
    }
    EXPECT_EQ(log.threads.size(), 1u);
    EXPECT_EQ(log.threads.count(std::this_thread::get_id()), 0u);
}

TEST(URLSessionDownload, WritesResumesRestartsOrRemovesTheFile) {
    const std::string body = patterned(200 * 1024);
    struct Case {
        const char* name;
        HttpTestServer::Resource resource;
        std::optional<std::string> before;  // the file's content before the download; nullopt: no file
        std::optional<std::uint64_t> maxBytes;
        std::string error;  // the start of the expected error; empty for success
        long status;
        std::optional<std::string> after;  // nullopt: no file
        std::string range;                 // the Range header the server saw
    };
    const Case cases[] = {
        {"fresh", {body}, {}, {}, "", 200, body, ""},
        {"resumed with a 206", {body}, body.substr(0, 70'000), {}, "", 206, body, "bytes=70000-"},
        {"range ignored: restarted", {body, {}, {}, Mode::IgnoreRange}, "stale bytes", {}, "", 200, body, "bytes=11-"},
        {"206 from the wrong byte", {body, {}, {}, Mode::WrongRange}, body.substr(0, 1000), {},
         "the reply's range does not start at byte 1000", 206, {}, "bytes=1000-"},
        {"already whole: 416", {body}, body, {}, "HTTP 416", 416, {}, "bytes=204800-"},
        {"not found", {"", {}, {}, Mode::NotFound}, {}, {}, "HTTP 404", 404, {}, ""},
        {"exactly at maxBytes", {body}, {}, body.size(), "", 200, body, ""},
        {"announced over maxBytes", {body}, {}, body.size() - 1, "download over 204799 bytes", 200, {}, ""},
        {"resumed over maxBytes", {body}, body.substr(0, 1000), body.size() - 1, "download over", 206, {},
         "bytes=1000-"},
        {"unannounced over maxBytes", {"", {}, {}, Mode::Endless}, {}, 100'000, "download over 100000", 200, {}, ""},
        {"cut mid-body: kept", {body, {}, {}, Mode::CloseMidBody}, {}, {}, "transfer closed", 200, body, ""},
    };
    nbtest::TempDir dir;
    const auto file = dir.path() / "download.bin";
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        HttpTestServer server;
        server.serve("/r", c.resource);
        std::filesystem::remove(file);
        if (c.before) writeFile(file, *c.before);
        auto log = [&] {
            URLSession session(quick());
            return download(session, {server.url("/r"), {}, file, c.maxBytes});
        }();  // the session is gone: a late progress report would have shown by now
        ASSERT_TRUE(log);
        const auto& response = *log->response;
        EXPECT_EQ(response.error.substr(0, c.error.size()), c.error) << response.error;
        EXPECT_EQ(response.succeeded(), c.error.empty());
        EXPECT_EQ(response.statusCode, c.status);
        EXPECT_TRUE(response.body.empty());
        EXPECT_EQ(readFile(file), c.after);
        EXPECT_EQ(server.rangeHeaders("/r"), std::vector{c.range});
        expectProgress(*log, c.error.empty() ? c.after : std::nullopt);
    }
    ASSERT_TRUE(std::filesystem::exists(file));  // made by the last case
    EXPECT_EQ(std::filesystem::status(file).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST(URLSessionDownload, ResumesACutDownloadWhereItStopped) {
    const std::string body = patterned(300 * 1024);
    const std::size_t half = body.size() / 2;
    HttpTestServer server;
    server.serve("/pkg", {body, {}, {}, Mode::CutFirst});
    nbtest::TempDir dir;
    const auto file = dir.path() / "pkg.bin";
    URLSession session(quick());

    auto first = download(session, {server.url("/pkg"), {}, file, {}});
    ASSERT_TRUE(first);
    EXPECT_FALSE(first->response->succeeded());
    EXPECT_EQ(std::filesystem::file_size(file), half) << "every byte that arrived was kept";

    auto second = download(session, {server.url("/pkg"), {}, file, {}});
    ASSERT_TRUE(second);
    EXPECT_TRUE(second->response->succeeded()) << second->response->error;
    EXPECT_EQ(readFile(file), body);
    EXPECT_EQ(server.rangeHeaders("/pkg"), (std::vector<std::string>{"", "bytes=" + std::to_string(half) + "-"}));
    expectProgress(*second, body);
    EXPECT_GE(second->progress.size(), 2u) << "reported as it arrived, not only at the end";
    EXPECT_GT(second->progress.front().first, half) << "the kept bytes count";
}

// A file: URL is read from the offset where the destination stops; nothing checks the kept bytes.
TEST(URLSessionDownload, ReadsFileUrlsFromWhereTheFileStops) {
    nbtest::TempDir dir;
    const std::string content = patterned(100 * 1024);
    const auto source = dir.path() / "source.bin";
    writeFile(source, content);
    struct Case {
        const char* name;
        std::string before;
        std::string error;
        std::optional<std::string> after;
    };
    const Case cases[] = {
        {"resumed at an offset", content.substr(0, 5000), "", content},
        {"already whole", content, "", content},
        {"longer than the source", content + "tail", "failed to resume", {}},
    };
    URLSession session(quick());
    const auto file = dir.path() / "copy.bin";
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        writeFile(file, c.before);
        auto log = download(session, {"file://" + source.string(), {}, file, {}});
        ASSERT_TRUE(log);
        EXPECT_EQ(log->response->error.substr(0, c.error.size()), c.error) << log->response->error;
        EXPECT_EQ(readFile(file), c.after);
        if (c.error.empty()) expectProgress(*log, c.after);
    }
}

TEST(URLSessionDownload, FailsWithoutTouchingADestinationItCannotUse) {
    nbtest::TempDir dir;
    HttpTestServer server;
    server.serve("/r", "body");
    URLSession session(quick());
    writeFile(dir.path() / "kept.bin", "kept");

    auto unparsable = download(session, {"http://127.0.0.1:1/a b", {}, dir.path() / "kept.bin", {}});
    ASSERT_TRUE(unparsable);
    EXPECT_TRUE(unparsable->response->error.starts_with("unparsable URL")) << unparsable->response->error;
    EXPECT_EQ(readFile(dir.path() / "kept.bin"), "kept");

    auto folder = download(session, {server.url("/r"), {}, dir.path(), {}});
    ASSERT_TRUE(folder);
    EXPECT_TRUE(folder->response->error.starts_with("could not open")) << folder->response->error;
    EXPECT_TRUE(std::filesystem::is_directory(dir.path()));
    EXPECT_EQ(server.requestCount("/r"), 0);
}

}  // namespace
