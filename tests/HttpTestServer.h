// A real HTTP server on 127.0.0.1 (cpp-httplib, any free port) for download tests.
//
// It serves named resources (path → body, with optional ETag and Last-Modified validators; a matching
// If-None-Match or If-Modified-Since gets 304; a Range "bytes=N-" gets 206 with Content-Range, or 416 past
// the end), answers 404 for any other path, and can misbehave per path (see Mode). It records what tests
// ask about: requests per path, the request headers of the last request to each path, the Range header of
// every request, the most requests in flight at once, and how many distinct connections were made. A gate,
// when closed, holds every request until the test opens it. Transport::Https serves the same over TLS with
// a self-signed certificate, for clients that must refuse it.
//
// Nothing it holds waits longer than the test: destruction releases the gate and every stall, then stops
// the server and joins its thread, so a test ends promptly whatever its clients still expect. Declare it
// before the clients that talk to it, so they go first: an idle kept-alive connection of a client that
// outlives the server (URLSession::shared()) delays its destruction by up to a second.
//
// Threads: every function may be called on any thread; handlers run on the server's own pool.
#pragma once

#include <httplib.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "foundation/DispatchTestSupport.h"

namespace nbtest {

class HttpTestServer {
public:
    enum class Mode {
        Serve,               // the body, or 304 to a matching conditional request
        NotFound,            // 404
        StallAfterHeaders,   // status and headers, then silence until the server goes away
        StallBeforeHeaders,  // silence from the start
        CloseMidBody,        // announces twice the body's length, sends the body, closes the connection
        RedirectLoop,        // 302 back to the same path, forever
        Redirect,            // 302 to the path in `body`, with the resource's validators on the 302
        Endless,             // a chunked body that never ends while the client reads
        IgnoreRange,         // 200 and the whole body, whatever range was asked for
        WrongRange,          // 206 and the whole body as "bytes 0-...", whatever range was asked for
        CutFirst,            // the first request: the full length announced, half of it sent, the connection
                             // closed; later requests are served as Serve
    };
    struct Resource {
        Resource(std::string body = {}, std::optional<std::string> etag = {},
                 std::optional<std::string> lastModified = {}, Mode mode = Mode::Serve)
            : body(std::move(body)), etag(std::move(etag)), lastModified(std::move(lastModified)), mode(mode) {}

        std::string body;
        std::optional<std::string> etag;
        std::optional<std::string> lastModified;
        Mode mode = Mode::Serve;
    };

    // Https serves TLS with a freshly made self-signed certificate, which no client should trust.
    enum class Transport { Http, Https };

    explicit HttpTestServer(Transport transport = Transport::Http)
        : server_(transport == Transport::Http ? std::make_unique<httplib::Server>() : selfSignedServer()),
          scheme_(transport == Transport::Http ? "http" : "https") {
        httplib::Server& server = *server_;
        server.new_task_queue = [] { return new httplib::ThreadPool(32); };
        server.set_keep_alive_max_count(1000);
        server.set_keep_alive_timeout(1);  // bounds how long an idle kept connection delays stop()
        server.set_tcp_nodelay(true);      // headers and body leave as separate writes
        server.Get(".*", [this](const httplib::Request& request, httplib::Response& response) {
            handle(request, response);
        });
        port_ = server.bind_to_any_port("127.0.0.1");
        // cpp-httplib listens with a backlog of 5: a burst of parallel connects overflows it, and the
        // client's SYN retransmission then delays the test by a second. Listening again widens it.
        if (port_ > 0) ::listen(ListeningSocket::of(server), 128);
        thread_ = std::thread([&server] { server.listen_after_bind(); });
        // stop() does nothing before the loop runs; wait for it so that destruction cannot miss it.
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        while (port_ > 0 && !server.is_running() && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::yield();
        }
    }

    ~HttpTestServer() {
        {
            std::lock_guard lock(mutex_);
            closing_ = true;
            changed_.notify_all();
        }
        server_->stop();
        if (thread_.joinable()) thread_.join();
    }
    HttpTestServer(const HttpTestServer&) = delete;
    HttpTestServer& operator=(const HttpTestServer&) = delete;

    [[nodiscard]] bool listening() const { return port_ > 0 && server_->is_running(); }
    [[nodiscard]] std::string url(std::string_view path) const {
        return scheme_ + "://127.0.0.1:" + std::to_string(port_) + std::string(path);
    }

    void serve(const std::string& path, Resource resource) {
        std::lock_guard lock(mutex_);
        resources_[path] = std::move(resource);
    }
    void serve(const std::string& path, std::string body) { serve(path, Resource{std::move(body)}); }

    void closeGate() {
        std::lock_guard lock(mutex_);
        gateOpen_ = false;
    }
    void openGate() {
        std::lock_guard lock(mutex_);
        gateOpen_ = true;
        changed_.notify_all();
    }

    [[nodiscard]] int requestCount(const std::string& path) const {
        std::lock_guard lock(mutex_);
        auto it = counts_.find(path);
        return it == counts_.end() ? 0 : it->second;
    }
    [[nodiscard]] int maxInFlight() const {
        std::lock_guard lock(mutex_);
        return maxInFlight_;
    }
    [[nodiscard]] std::size_t connectionCount() const {
        std::lock_guard lock(mutex_);
        return clientPorts_.size();
    }
    // A header of the last request to `path`; names compare without case.
    [[nodiscard]] std::optional<std::string> requestHeader(const std::string& path, const std::string& name) const {
        std::lock_guard lock(mutex_);
        auto it = lastHeaders_.find(path);
        if (it == lastHeaders_.end() || it->second.count(name) == 0) return std::nullopt;
        return it->second.find(name)->second;
    }
    // The Range header of each request to `path`, in order; "" for a request without one.
    [[nodiscard]] std::vector<std::string> rangeHeaders(const std::string& path) const {
        std::lock_guard lock(mutex_);
        auto it = ranges_.find(path);
        return it == ranges_.end() ? std::vector<std::string>{} : it->second;
    }
    // Waits until `count` requests are inside the server at once (held at the gate, or stalling).
    bool waitForInFlight(int count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kPatience, [&] { return inFlight_ >= count; });
    }

private:
    using Clock = std::chrono::steady_clock;

    void handle(const httplib::Request& request, httplib::Response& response) {
        Resource resource({}, {}, {}, Mode::NotFound);
        bool first = false;
        {
            std::unique_lock lock(mutex_);
            first = ++counts_[request.path] == 1;
            lastHeaders_[request.path] = request.headers;
            ranges_[request.path].push_back(request.get_header_value("Range"));
            clientPorts_.insert(request.remote_port);
            maxInFlight_ = std::max(maxInFlight_, ++inFlight_);
            changed_.notify_all();
            changed_.wait_for(lock, kPatience, [&] { return gateOpen_ || closing_; });
            if (auto it = resources_.find(request.path); it != resources_.end()) resource = it->second;
        }
        respond(request, response, resource, first);
        std::lock_guard lock(mutex_);
        --inFlight_;
    }

    void respond(const httplib::Request& request, httplib::Response& response, const Resource& resource,
                 bool first) {
        switch (resource.mode) {
        case Mode::CutFirst:
            if (first) {
                // cpp-httplib asks for the requested range's bytes from `offset` on.
                response.set_content_provider(
                    resource.body.size(), "application/octet-stream",
                    [body = resource.body](std::size_t offset, std::size_t, httplib::DataSink& sink) {
                        const std::size_t half = body.size() / 2;
                        if (offset < half) sink.write(body.data() + offset, half - offset);
                        return false;  // the connection is closed short of the announced length
                    });
                return;
            }
            [[fallthrough]];
        case Mode::Serve: {
            if (resource.etag) response.set_header("ETag", *resource.etag);
            if (resource.lastModified) response.set_header("Last-Modified", *resource.lastModified);
            const bool etagMatches = resource.etag && request.get_header_value("If-None-Match") == *resource.etag;
            const bool dateMatches =
                resource.lastModified && request.get_header_value("If-Modified-Since") == *resource.lastModified;
            if (etagMatches || dateMatches) {
                response.status = 304;
            } else {
                response.set_content(resource.body, "application/octet-stream");
            }
            return;
        }
        case Mode::NotFound:
            response.status = 404;
            response.set_content("no such resource", "text/plain");
            return;
        case Mode::StallAfterHeaders:
            response.set_content_provider(resource.body.size() + 1, "application/octet-stream",
                                          [this](std::size_t, std::size_t, httplib::DataSink&) {
                                              waitForClosing();
                                              return false;
                                          });
            return;
        case Mode::StallBeforeHeaders:
            waitForClosing();
            response.status = 503;
            return;
        case Mode::CloseMidBody:
            response.set_content_provider(
                resource.body.size() * 2 + 1, "application/octet-stream",
                [body = resource.body](std::size_t offset, std::size_t, httplib::DataSink& sink) {
                    if (offset == 0 && !body.empty()) sink.write(body.data(), body.size());
                    return false;  // the connection is closed short of the announced length
                });
            return;
        case Mode::RedirectLoop:
            response.set_redirect(request.path);
            return;
        case Mode::Redirect:
            if (resource.etag) response.set_header("ETag", *resource.etag);
            if (resource.lastModified) response.set_header("Last-Modified", *resource.lastModified);
            response.set_redirect(resource.body);
            return;
        case Mode::IgnoreRange:
        case Mode::WrongRange:
            // cpp-httplib cuts the body to the requested range after the handler; with the range forgotten it
            // sends the body as set here. The request object is the server's own, not const.
            const_cast<httplib::Request&>(request).ranges.clear();
            if (resource.mode == Mode::WrongRange) {
                response.status = 206;
                response.set_header("Content-Range", "bytes 0-" + std::to_string(resource.body.size() - 1) + "/" +
                                                         std::to_string(resource.body.size()));
            }
            response.set_content(resource.body, "application/octet-stream");
            return;
        case Mode::Endless:
            response.set_chunked_content_provider(
                "application/octet-stream", [this, chunk = std::string(16 * 1024, 'x')](std::size_t, httplib::DataSink& sink) {
                    return !isClosing() && sink.write(chunk.data(), chunk.size());
                });
            return;
        }
    }

    bool isClosing() {
        std::lock_guard lock(mutex_);
        return closing_;
    }
    void waitForClosing() {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, kPatience, [&] { return closing_; });
    }

    static constexpr auto kPatience = nb::test::kPatience;

    // The server's listening socket, which cpp-httplib keeps to itself.
    struct ListeningSocket : httplib::Server {
        static int of(httplib::Server& server) { return (server.*&ListeningSocket::svr_sock_).load(); }
    };

    static std::unique_ptr<httplib::Server> selfSignedServer() {
        EVP_PKEY* key = EVP_EC_gen("P-256");
        X509* cert = X509_new();
        ASN1_INTEGER_set(X509_get_serialNumber(cert), 1);
        X509_gmtime_adj(X509_getm_notBefore(cert), 0);
        X509_gmtime_adj(X509_getm_notAfter(cert), 24 * 3600);
        X509_set_pubkey(cert, key);
        X509_NAME_add_entry_by_txt(X509_get_subject_name(cert), "CN", MBSTRING_ASC,
                                   reinterpret_cast<const unsigned char*>("127.0.0.1"), -1, -1, 0);
        X509_set_issuer_name(cert, X509_get_subject_name(cert));
        X509_sign(cert, key, EVP_sha256());
        auto server = std::make_unique<httplib::SSLServer>(cert, key);  // takes references of its own
        X509_free(cert);
        EVP_PKEY_free(key);
        return server;
    }

    std::unique_ptr<httplib::Server> server_;
    std::string scheme_;
    int port_ = -1;
    std::thread thread_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::map<std::string, Resource> resources_;       // guarded by mutex_
    std::map<std::string, int> counts_;               // guarded by mutex_
    std::map<std::string, httplib::Headers> lastHeaders_;  // guarded by mutex_
    std::map<std::string, std::vector<std::string>> ranges_;  // guarded by mutex_
    std::set<int> clientPorts_;                       // guarded by mutex_
    int inFlight_ = 0;                                // guarded by mutex_
    int maxInFlight_ = 0;                             // guarded by mutex_
    bool gateOpen_ = true;                            // guarded by mutex_
    bool closing_ = false;                            // guarded by mutex_
};

}  // namespace nbtest
