// URLSession: downloads over HTTP(S) and from file: URLs, on libcurl. The library's shared URL session
// (shared()) serves the avatar and the display downloads of images; contentsOf() is the synchronous read
// of a URL's whole content that the image prefetches make; downloadTask() streams a large body (an update
// package) into a file and resumes it after an interruption.
//
// How it works: the first dataTask() or downloadTask() starts one session thread, which runs libcurl's
// multi interface for every such transfer of this session and calls every completion. contentsOf() instead runs its
// transfer on the calling thread, so a synchronous read wakes no other thread and no completion holds it
// up. It needs nothing else: no configuration file, no server of its own. Connections are kept and reused
// between transfers to the same host: the session thread keeps its own, and each contentsOf() call borrows
// a set that the next call gets back (a few such sets are kept, for calls running at once).
//
// Each transfer:
// - verifies TLS certificates and host names against the system's trust store (never switched off);
// - follows redirects, at most Options::maxRedirects of them; one more fails the transfer;
// - fails when connecting takes longer than Options::connectTimeout, or when nothing at all arrives for
//   Options::idleTimeout once connected (a stalled server), so no completion waits longer than that; the
//   idle clock restarts with every byte received and every connection made ready (after a redirect too);
// - fails when the body grows past Options::maxBodyBytes, as soon as it does (the bytes are dropped);
// - sends the user agent that Options::userAgent answers when the task is created, when it answers one;
// - sends Request::headers as given (a conditional refresh sets If-None-Match or If-Modified-Since).
//
// What counts as success: a transfer that completed with an HTTP status of 200 to 299, or 304 (Not
// Modified, with an empty body; the caller keeps what it has), or a file: URL that could be read whole.
// Any other status (404, 500, ...), a transfer error, a timeout, a body over the cap, a redirect loop or
// a URL that does not parse strictly (Url::parse) is a failure: Response::error says what, and the body
// is empty. Failures are not logged here; callers decide. (A completion that throws is logged, level 4, and
// the session carries on.)
//
// Threads: every function may be called on any thread. dataTask() returns at once; its completion runs
// later on the session thread, exactly once, never inside the call, and never under a lock of the session's,
// so it may start further tasks. Options::userAgent runs inside dataTask()/contentsOf() on the caller's
// thread, possibly on several threads at once. contentsOf() performs its transfer on the calling thread
// and returns when it ends (no longer than the timeouts allow); many threads may call it at once. It must
// not be called from a completion, where it would hold up every other transfer of the session: there it
// answers a failure at once.
//
// Downloads (downloadTask()) follow the rules above with these differences:
// - The body goes to DownloadRequest::destination as it arrives, never into memory, so
//   Options::maxBodyBytes does not apply: DownloadRequest::maxBytes caps the whole file instead, as soon as
//   a reply announces more or the file grows past it. The body is asked for without content encoding, so
//   that byte ranges and sizes are the file's own. Response::body stays empty.
// - The file is opened, and created with mode 0600 when missing, on the session thread when the transfer
//   starts. A file that already holds N > 0 bytes is taken for the start of the same resource, cut short by
//   an earlier attempt: the request asks for the rest (a Range header "bytes=N-"; a file: URL is read from
//   offset N) and appends it. A 206 reply must start at byte N. Any other 2xx reply (a server that ignores
//   ranges) carries the whole resource again, and the file is emptied before it is written. Nothing checks
//   that the N bytes kept still belong to the resource: a caller that cares checks the finished file
//   (digest, signature) and removes it to start clean. One download at a time per file.
// - Success (2xx, or a file: URL read to its end): the file holds the whole resource and was fsync'd before
//   the completion runs. A 304 (to conditional headers the caller sent) leaves the file as it was.
// - Failure keeps the bytes that arrived, for the next call to resume from, when the transfer was merely
//   cut: connection lost, timeout, TLS or name failure, a write error (disk full), or the session destroyed
//   (the file is closed as it stands). The file is REMOVED when its bytes are wrong or of no use: any HTTP
//   status that is not success (404, 500, ... and 416, so a file that was already whole, or longer than
//   the resource, is fetched whole on the next call), a 206 that does not start at byte N, a file: URL
//   shorter than N, or a file over maxBytes. A URL that does not parse or a destination that cannot be
//   opened fails without touching the file.
// - Progress runs on the session thread with the file's totals: `received` counts the bytes in the file,
//   resumed ones included, and `expected` is the final size when the reply announced one (the total of
//   Content-Range, or the bytes kept plus Content-Length). Reports start once the reply is known to fill
//   the file (after a restart from zero, from zero), come at most once per 64 KiB written, and once more
//   on success with `received` and `expected` both the file's final size; so within one task `received`
//   never goes down. None comes after the
//   completion, nor after a failure. A progress callback that throws is logged like a completion and the
//   transfer goes on. It runs inside the session's transfer loop: it should return quickly.
//
// Lifetime: destroying a session stops and joins its thread; transfers still running are abandoned and
// their completions destroyed without being called, on the destroying thread. contentsOf() calls still
// running give up at once and answer a failure; the destructor waits until they have let go of the
// session. A completion must not destroy its own session. shared() is created on first use and never
// destroyed.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "nbbase/foundation/Value.h"

namespace nb {

class URLSession {
public:
    // Answers the User-Agent header for a new task; nullopt sends none. Must be thread-safe (see Threads).
    using UserAgentProvider = std::function<std::optional<std::string>()>;

    struct Options {
        std::chrono::milliseconds connectTimeout{10'000};
        std::chrono::milliseconds idleTimeout{30'000};
        long maxRedirects = 5;
        std::size_t maxBodyBytes = 32u << 20;
        UserAgentProvider userAgent;
    };

    struct Request {
        std::string url;  // parsed strictly; encode it first when it may hold a blank
        std::vector<std::pair<std::string, std::string>> headers;
    };

    struct Response {
        // Empty on success; otherwise why it failed ("HTTP 404", "timed out", "body over 33554432 bytes", ...).
        std::string error;
        long statusCode = 0;  // the last HTTP status; 0 for file: URLs and transfers that got none
        Data body;
        // The validators of a 200 reply, for a later conditional request.
        std::optional<std::string> etag;
        std::optional<std::string> lastModified;

        [[nodiscard]] bool succeeded() const noexcept { return error.empty(); }
        [[nodiscard]] bool notModified() const noexcept { return succeeded() && statusCode == 304; }
    };

    using Completion = std::function<void(Response response)>;

    // The process-wide session: default options, and the user agent of the SDK's class object
    // (NimboSDKInterface::classObject()->getHttpUserAgent()) when one is registered.
    static URLSession& shared();

    // Default options. (Not a default argument: Options is incomplete until the class is.)
    URLSession();
    explicit URLSession(Options options);
    ~URLSession();
    URLSession(const URLSession&) = delete;
    URLSession& operator=(const URLSession&) = delete;

    [[nodiscard]] const Options& options() const noexcept { return options_; }

    // An empty completion still runs the transfer (its result is dropped).
    void dataTask(Request request, Completion completion);

    // The transfer of dataTask, performed on the calling thread.
    [[nodiscard]] Response contentsOf(Request request);

    struct DownloadRequest {
        std::string url;  // parsed strictly, as Request::url
        std::vector<std::pair<std::string, std::string>> headers;
        std::filesystem::path destination;  // written as described under Downloads above
        // The file may not grow past this many bytes; nullopt: no limit.
        std::optional<std::uint64_t> maxBytes;
    };

    // received: bytes in the file so far; expected: its final size, when the reply announced one.
    using Progress = std::function<void(std::uint64_t received, std::optional<std::uint64_t> expected)>;

    // A dataTask whose body goes to a file (see Downloads above). Returns at once; an empty progress
    // reports nothing, an empty completion still runs the download.
    void downloadTask(DownloadRequest request, Progress progress, Completion completion);

private:
    const Options options_;
    struct Engine;
    std::unique_ptr<Engine> engine_;
};

}  // namespace nb
