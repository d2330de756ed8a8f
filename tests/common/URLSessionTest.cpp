#include <fstream>
#include <future>
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
        waiting = std::async(std::launch::async, [&] { return session.contentsOf({server.url("/held"), {}}); });
        ASSERT_TRUE(server.waitForInFlight(3));
    }
    EXPECT_EQ(*called, 0);
    EXPECT_EQ(called.use_count(), 1) << "the completions were destroyed with the session";
    ASSERT_EQ(waiting.wait_for(kPatience), std::future_status::ready);
    EXPECT_FALSE(waiting.get().succeeded());
}

}  // namespace
