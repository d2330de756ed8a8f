#include "nbbase/common/URLSession.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cassert>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdint>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <unordered_map>

#include "nbbase/foundation/NBLog.h"
#include "nbbase/foundation/Url.h"
#include "nbbase/sdk/NimboSDKInterface.h"

namespace nb {

namespace {

using Clock = std::chrono::steady_clock;

// libcurl asks for one global initialisation before the first handle, and it is not safe to race.
bool curlReady() {
    static std::once_flag once;
    static bool ready = false;
    std::call_once(once, [] { ready = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK; });
    return ready;
}

// Which session's thread the current thread is, if any: contentsOf() refuses to wait for itself.
thread_local const void* currentSessionEngine = nullptr;

URLSession::Response failure(std::string error, long statusCode = 0) {
    URLSession::Response response;
    response.error = std::move(error);
    response.statusCode = statusCode;
    return response;
}

bool startsWithNoCase(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() &&
           std::equal(prefix.begin(), prefix.end(), text.begin(), [](char a, char b) {
               return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
           });
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n";
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// Runs a callback of the caller's on the session thread: an exception must not unwind through it, where it
// would end the process.
template <typename Call>
void callGuarded(const char* what, Call&& call) {
    try {
        call();
    } catch (const std::exception& e) {
        NBLog::sharedInstance().log(4, "URL session {} threw: {}", what, e.what());
    } catch (...) {
        NBLog::sharedInstance().log(4, "URL session {} threw a non-standard exception", what);
    }
}

std::string errnoText(int error) { return std::generic_category().message(error); }

// "bytes 100-199/200" or "bytes */200": where the range starts and the resource's total, when given.
struct ContentRange {
    std::optional<std::uint64_t> start;
    std::optional<std::uint64_t> total;
};

ContentRange parseContentRange(std::string_view text) {
    ContentRange range;
    text = trimmed(text);
    if (!startsWithNoCase(text, "bytes ")) return range;
    text = trimmed(text.substr(6));
    auto number = [](std::string_view digits) -> std::optional<std::uint64_t> {
        std::uint64_t value = 0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
        if (error != std::errc() || end != digits.data() + digits.size() || digits.empty()) return std::nullopt;
        return value;
    };
    const auto slash = text.find('/');
    if (slash == std::string_view::npos) return range;
    range.total = number(text.substr(slash + 1));
    const auto dash = text.find('-');
    if (dash < slash) range.start = number(text.substr(0, dash));
    return range;
}

// Where a download's body goes: the destination file, and what the reply filling it has said. Owned by its
// Transfer, used by the thread that drives it.
struct FileSink {
    // Reports come no closer together than this many bytes written.
    static constexpr std::uint64_t kProgressStep = 64 * 1024;

    enum class State { Waiting, Writing, Discarding };
    // Why the transfer was stopped from our side.
    enum class Fault { None, OverCap, RangeMismatch, WriteFailed };

    FileSink(std::filesystem::path destination, std::optional<std::uint64_t> maxBytes, URLSession::Progress progress)
        : destination(std::move(destination)), maxBytes(maxBytes), progress(std::move(progress)) {}
    ~FileSink() { close(); }
    FileSink(const FileSink&) = delete;
    FileSink& operator=(const FileSink&) = delete;

    // Empty on success, else why the file could not be used (it is then left as it was).
    std::string open() {
        fd = ::open(destination.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        if (fd < 0) return "could not open " + destination.string() + ": " + errnoText(errno);
        struct stat status {};
        if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
            close();
            return destination.string() + " is not a regular file";
        }
        offset = size = static_cast<std::uint64_t>(status.st_size);
        if (offset > 0) rangeText = std::to_string(offset) + "-";
        return {};
    }

    // Decides, from the reply that is about to fill the file (or, with an empty body, that has ended),
    // whether its bytes continue the file, replace it, or are not the file's at all.
    void settle(bool isFile, long status, curl_off_t contentLength) {
        const auto length =
            contentLength >= 0 ? std::optional(static_cast<std::uint64_t>(contentLength)) : std::nullopt;
        if (isFile) {
            expected = length ? std::optional(offset + *length) : std::nullopt;
        } else if (status < 200 || status > 299) {
            // An error page or an unfollowed redirect: the transfer fails on its status, the bytes go nowhere.
            state = State::Discarding;
            return;
        } else if (status == 206) {
            const auto range = parseContentRange(contentRange.value_or(""));
            if (range.start != offset) {
                fault = Fault::RangeMismatch;
                return;
            }
            expected = range.total ? range.total : length ? std::optional(offset + *length) : std::nullopt;
        } else {
            // The whole resource again: what the file held goes.
            if (size > 0 && ::ftruncate(fd, 0) != 0) {
                writeFailed(errno);
                return;
            }
            offset = size = 0;
            expected = length;
        }
        if (maxBytes && expected && *expected > *maxBytes) {
            fault = Fault::OverCap;
            return;
        }
        reported = size;
        state = State::Writing;
    }

    // False stops the transfer (fault says why).
    bool write(const char* bytes, std::size_t count) {
        if (maxBytes && (count > *maxBytes || size > *maxBytes - count)) {
            fault = Fault::OverCap;
            return false;
        }
        while (count > 0) {
            const ssize_t written = ::pwrite(fd, bytes, count, static_cast<off_t>(size));
            if (written < 0) {
                if (errno == EINTR) continue;
                writeFailed(errno);
                return false;
            }
            bytes += written;
            count -= static_cast<std::size_t>(written);
            size += static_cast<std::uint64_t>(written);
        }
        if (size - reported >= kProgressStep) report();
        return true;
    }

    // The file is whole: on disk before anyone is told. False when it could not be made durable.
    bool commit() {
        if (::fsync(fd) != 0) {
            writeFailed(errno);
            return false;
        }
        const int closing = fd;
        fd = -1;
        if (::close(closing) != 0 && errno != EINTR) {
            writeFailed(errno);
            return false;
        }
        // Whatever was announced (nothing for a chunked body; for a file: URL read from the end, libcurl's
        // whole length), the file is now whole. A 304 left it as it was: nothing was written to report on.
        expected = size;
        if (state == State::Writing && (!reportedAny || reported != size)) report();
        return true;
    }

    void discard() {
        close();
        std::error_code ignored;
        std::filesystem::remove(destination, ignored);
    }

    void close() {
        if (fd >= 0) ::close(fd);
        fd = -1;
    }

    void report() {
        reported = size;
        reportedAny = true;
        if (progress) callGuarded("progress", [&] { progress(size, expected); });
    }

    void writeFailed(int error) {
        fault = Fault::WriteFailed;
        writeError = "could not write " + destination.string() + ": " + errnoText(error);
    }

    const std::filesystem::path destination;
    const std::optional<std::uint64_t> maxBytes;
    const URLSession::Progress progress;

    int fd = -1;
    std::uint64_t offset = 0;  // where the reply's bytes go: the file's size at the start, 0 after a restart
    std::uint64_t size = 0;    // bytes in the file
    std::string rangeText;     // CURLOPT_RANGE's text, which libcurl does not copy
    std::optional<std::uint64_t> expected;
    std::optional<std::string> contentRange;  // of the latest reply
    State state = State::Waiting;
    Fault fault = Fault::None;
    std::string writeError;
    std::uint64_t reported = 0;
    bool reportedAny = false;
};

// One transfer, from the call that creates it to its completion. Everything below `completion` belongs to
// the thread that drives its Driver once the transfer has begun.
struct Transfer {
    Transfer(std::string url, bool isFile, URLSession::Request request, std::optional<std::string> userAgent,
             URLSession::Completion completion)
        : url(std::move(url)),
          isFile(isFile),
          headers(std::move(request.headers)),
          userAgent(std::move(userAgent)),
          completion(std::move(completion)) {}

    // A transfer that fails before it starts (its URL did not parse).
    Transfer(std::string error, URLSession::Completion completion)
        : earlyError(std::move(error)), completion(std::move(completion)) {}

    ~Transfer() {
        if (easy != nullptr) curl_easy_cleanup(easy);
        if (headerList != nullptr) curl_slist_free_all(headerList);
    }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    const std::string url;
    const bool isFile = false;
    const std::vector<std::pair<std::string, std::string>> headers;
    const std::optional<std::string> userAgent;
    const std::optional<std::string> earlyError;
    URLSession::Completion completion;
    // Set for a download: the body goes here instead of response.body.
    std::unique_ptr<FileSink> sink;

    CURL* easy = nullptr;
    curl_slist* headerList = nullptr;
    char errorBuffer[CURL_ERROR_SIZE] = {};
    std::size_t maxBodyBytes = 0;
    URLSession::Response response;
    bool bodyOverCap = false;
    // Set once a connection is ready for the request; from then on silence longer than the idle timeout
    // ends the transfer.
    bool connected = false;
    Clock::time_point lastActivity;
};

using Transfers = std::vector<std::unique_ptr<Transfer>>;

// A transfer as dataTask() and contentsOf() make it, on the caller's thread: the URL parsed strictly and
// the user agent asked for.
std::unique_ptr<Transfer> makeTransfer(const URLSession::Options& options, URLSession::Request request,
                                       URLSession::Completion completion) {
    auto url = Url::parse(request.url);
    if (!url) return std::make_unique<Transfer>("unparsable URL: " + request.url, std::move(completion));
    std::optional<std::string> userAgent;
    try {
        if (options.userAgent) userAgent = options.userAgent();
    } catch (...) {
        // A provider that fails sends no user agent; the transfer itself is unaffected.
    }
    return std::make_unique<Transfer>(url->text(), url->isFile(), std::move(request), std::move(userAgent),
                                      std::move(completion));
}

// One libcurl multi handle, the transfers it runs, and the connections and TLS sessions it keeps between
// them. One thread at a time drives it (begin, perform, wait); wakeUp() and abandon() may be called from any
// thread. Without libcurl it is unusable: begin() fails every transfer.
class Driver {
public:
    explicit Driver(const URLSession::Options& options) : options_(options) {
        if (!curlReady()) return;
        multi_ = curl_multi_init();
        share_ = curl_share_init();
        if (share_ != nullptr) curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    }

    // Transfers still running are dropped with their completions uncalled. Reads nothing of the options,
    // so a driver may outlive its session's destruction by the time it takes to destroy it.
    ~Driver() {
        for (auto& [easy, transfer] : active_) curl_multi_remove_handle(multi_, easy);
        active_.clear();
        if (multi_ != nullptr) curl_multi_cleanup(multi_);
        if (share_ != nullptr) curl_share_cleanup(share_);
    }
    Driver(const Driver&) = delete;
    Driver& operator=(const Driver&) = delete;

    [[nodiscard]] bool usable() const noexcept { return multi_ != nullptr; }
    [[nodiscard]] bool idle() const noexcept { return active_.empty(); }

    // A transfer that cannot start goes straight to `finished`, failed.
    void begin(std::unique_ptr<Transfer> transfer, Transfers& finished) {
        if (transfer->earlyError) {
            transfer->response = failure(*transfer->earlyError);
            retire(std::move(transfer), finished);
            return;
        }
        if (transfer->sink) {
            if (auto error = transfer->sink->open(); !error.empty()) {
                transfer->response = failure(std::move(error));
                retire(std::move(transfer), finished);
                return;
            }
        }
        if (multi_ == nullptr || !configure(*transfer) ||
            curl_multi_add_handle(multi_, transfer->easy) != CURLM_OK) {
            transfer->response = failure("libcurl could not start the transfer");
            retire(std::move(transfer), finished);
            return;
        }
        CURL* easy = transfer->easy;
        active_.emplace(easy, std::move(transfer));
    }

    // Moves every transfer on as far as it can go without waiting; those that ended go to `finished`.
    void perform(Transfers& finished) {
        if (multi_ == nullptr) return;
        int running = 0;
        curl_multi_perform(multi_, &running);
        collectDone(finished);
        expireIdle(finished);
    }

    // Waits until a transfer can move on, an idle deadline passes, or wakeUp() is called.
    void wait() {
        if (multi_ == nullptr) return;
        long curlTimeout = -1;
        curl_multi_timeout(multi_, &curlTimeout);
        // New work and destruction interrupt the wait through wakeUp(), so an idle driver needs no timeout;
        // the cap only bounds what a clock jump could do.
        long waitMs = curlTimeout >= 0 ? curlTimeout : 60'000;
        const auto now = Clock::now();
        for (const auto& [easy, transfer] : active_) {
            if (!transfer->connected) continue;
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(transfer->lastActivity +
                                                                           options_.idleTimeout - now);
            waitMs = std::min<long>(waitMs, std::max<long>(0, static_cast<long>(left.count())));
        }
        curl_multi_poll(multi_, nullptr, 0, static_cast<int>(std::min<long>(waitMs, INT_MAX)), nullptr);
    }

    void wakeUp() {
        if (multi_ != nullptr) curl_multi_wakeup(multi_);
    }

    // Tells the thread driving it to give up its transfers, and wakes it.
    void abandon() {
        abandoned_.store(true);
        wakeUp();
    }
    [[nodiscard]] bool abandoned() const noexcept { return abandoned_.load(); }

private:
    bool configure(Transfer& t) {
        t.easy = curl_easy_init();
        if (t.easy == nullptr) return false;
        t.maxBodyBytes = options_.maxBodyBytes;
        for (const auto& [name, value] : t.headers) {
            // "Name;" is libcurl's way to send a header with an empty value ("Name:" would remove it).
            const std::string line = value.empty() ? name + ";" : name + ": " + value;
            curl_slist* grown = curl_slist_append(t.headerList, line.c_str());
            if (grown == nullptr) return false;
            t.headerList = grown;
        }
        CURL* e = t.easy;
        bool ok = true;
        auto set = [&](CURLoption option, auto value) { ok = ok && curl_easy_setopt(e, option, value) == CURLE_OK; };
        set(CURLOPT_URL, t.url.c_str());
        set(CURLOPT_PROTOCOLS_STR, "http,https,file");
        set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
        set(CURLOPT_NOSIGNAL, 1L);
        set(CURLOPT_SSL_VERIFYPEER, 1L);
        set(CURLOPT_SSL_VERIFYHOST, 2L);
        set(CURLOPT_FOLLOWLOCATION, 1L);
        set(CURLOPT_MAXREDIRS, options_.maxRedirects);
        set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(options_.connectTimeout.count()));
        set(CURLOPT_FAILONERROR, 1L);
        set(CURLOPT_ERRORBUFFER, t.errorBuffer);
        set(CURLOPT_WRITEDATA, static_cast<void*>(&t));
        if (t.sink) {
            // CURLOPT_RANGE rather than CURLOPT_RESUME_FROM_LARGE: the latter makes libcurl fail a reply that
            // ignores the range, which we take as a fresh start instead. For file: URLs both read from the
            // offset.
            if (!t.sink->rangeText.empty()) set(CURLOPT_RANGE, t.sink->rangeText.c_str());
            set(CURLOPT_WRITEFUNCTION, &Driver::onFileBody);
        } else {
            set(CURLOPT_ACCEPT_ENCODING, "");
            set(CURLOPT_MAXFILESIZE_LARGE,
                static_cast<curl_off_t>(std::min<std::size_t>(t.maxBodyBytes, INT64_MAX)));
            set(CURLOPT_WRITEFUNCTION, &Driver::onBody);
        }
        set(CURLOPT_HEADERFUNCTION, &Driver::onHeader);
        set(CURLOPT_HEADERDATA, static_cast<void*>(&t));
        set(CURLOPT_PREREQFUNCTION, &Driver::onConnected);
        set(CURLOPT_PREREQDATA, static_cast<void*>(&t));
        if (t.userAgent) set(CURLOPT_USERAGENT, t.userAgent->c_str());
        if (t.headerList != nullptr) set(CURLOPT_HTTPHEADER, t.headerList);
        if (share_ != nullptr) set(CURLOPT_SHARE, share_);
        return ok;
    }

    // Called for each request, on a new connection or a reused one. A redirect's new connection is made
    // while the clock still runs from the previous reply's last byte, so with an idle timeout shorter than
    // the connect timeout a slow redirect target meets the idle limit first.
    static int onConnected(void* data, char*, char*, int, int) {
        auto& t = *static_cast<Transfer*>(data);
        t.connected = true;
        t.lastActivity = Clock::now();
        return CURL_PREREQFUNC_OK;
    }

    static std::size_t onHeader(char* bytes, std::size_t, std::size_t count, void* data) {
        auto& t = *static_cast<Transfer*>(data);
        t.lastActivity = Clock::now();
        const std::string_view line(bytes, count);
        if (startsWithNoCase(line, "HTTP/")) {
            // A new response (after a redirect, or past a 1xx): only the last one's validators count.
            t.response.etag.reset();
            t.response.lastModified.reset();
            if (t.sink) t.sink->contentRange.reset();
        } else if (t.sink && startsWithNoCase(line, "content-range:")) {
            t.sink->contentRange = std::string(trimmed(line.substr(14)));
        } else if (startsWithNoCase(line, "etag:")) {
            t.response.etag = std::string(trimmed(line.substr(5)));
        } else if (startsWithNoCase(line, "last-modified:")) {
            t.response.lastModified = std::string(trimmed(line.substr(14)));
        }
        return count;
    }

    static std::size_t onBody(char* bytes, std::size_t, std::size_t count, void* data) {
        auto& t = *static_cast<Transfer*>(data);
        t.lastActivity = Clock::now();
        Data& body = t.response.body;
        if (count > t.maxBodyBytes - body.size()) {
            t.bodyOverCap = true;
            return 0;  // anything but `count` makes libcurl abort the transfer
        }
        if (body.empty()) {
            curl_off_t announced = -1;
            curl_easy_getinfo(t.easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &announced);
            if (announced > 0) body.reserve(std::min(static_cast<std::size_t>(announced), t.maxBodyBytes));
        }
        // As bytes of Data's own type, so the copy is one memmove rather than a loop converting each char.
        const auto* first = reinterpret_cast<const std::uint8_t*>(bytes);
        body.insert(body.end(), first, first + count);
        return count;
    }

    static std::size_t onFileBody(char* bytes, std::size_t, std::size_t count, void* data) {
        auto& t = *static_cast<Transfer*>(data);
        t.lastActivity = Clock::now();
        FileSink& sink = *t.sink;
        if (sink.state == FileSink::State::Waiting) settle(t);
        if (sink.fault != FileSink::Fault::None) return 0;
        if (sink.state == FileSink::State::Discarding) return count;
        return sink.write(bytes, count) ? count : 0;
    }

    static void settle(Transfer& t) {
        long status = 0;
        curl_off_t length = -1;
        curl_easy_getinfo(t.easy, CURLINFO_RESPONSE_CODE, &status);
        curl_easy_getinfo(t.easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
        t.sink->settle(t.isFile, status, length);
    }

    // Every transfer leaves the driver through here, its file closed: a completion that retries at once
    // finds it as it will stay.
    static void retire(std::unique_ptr<Transfer> transfer, Transfers& finished) {
        if (transfer->sink) transfer->sink->close();
        finished.push_back(std::move(transfer));
    }

    void collectDone(Transfers& finished) {
        int queued = 0;
        while (CURLMsg* message = curl_multi_info_read(multi_, &queued)) {
            if (message->msg != CURLMSG_DONE) continue;
            auto transfer = detach(message->easy_handle);
            if (!transfer) continue;
            if (transfer->sink) {
                concludeDownload(*transfer, message->data.result);
            } else {
                conclude(*transfer, message->data.result);
            }
            retire(std::move(transfer), finished);
        }
    }

    void expireIdle(Transfers& finished) {
        const auto now = Clock::now();
        std::vector<CURL*> expired;
        for (const auto& [easy, transfer] : active_) {
            if (transfer->connected && now - transfer->lastActivity >= options_.idleTimeout) expired.push_back(easy);
        }
        for (CURL* easy : expired) {
            auto transfer = detach(easy);
            long status = 0;
            curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
            transfer->response = failure(
                "timed out: nothing received for " + std::to_string(options_.idleTimeout.count()) + " ms", status);
            retire(std::move(transfer), finished);
        }
    }

    std::unique_ptr<Transfer> detach(CURL* easy) {
        auto it = active_.find(easy);
        if (it == active_.end()) return nullptr;
        auto transfer = std::move(it->second);
        active_.erase(it);
        curl_multi_remove_handle(multi_, easy);
        return transfer;
    }

    static void conclude(Transfer& t, CURLcode result) {
        long status = 0;
        curl_easy_getinfo(t.easy, CURLINFO_RESPONSE_CODE, &status);
        auto fail = [&](std::string error) { t.response = failure(std::move(error), status); };
        t.response.statusCode = status;
        if (t.bodyOverCap || result == CURLE_FILESIZE_EXCEEDED) {
            fail("body over " + std::to_string(t.maxBodyBytes) + " bytes");
        } else if (result == CURLE_HTTP_RETURNED_ERROR) {
            fail("HTTP " + std::to_string(status));
        } else if (result != CURLE_OK) {
            fail(t.errorBuffer[0] != '\0' ? std::string(t.errorBuffer) : std::string(curl_easy_strerror(result)));
        } else if (t.isFile) {
            t.response.statusCode = 0;
        } else if (status == 304) {
            t.response.body.clear();
        } else if (status < 200 || status > 299) {
            fail("HTTP " + std::to_string(status));
        }
    }

    // As conclude(), and decides what becomes of the file: committed, kept for a resume, or removed.
    static void concludeDownload(Transfer& t, CURLcode result) {
        FileSink& sink = *t.sink;
        long status = 0;
        curl_easy_getinfo(t.easy, CURLINFO_RESPONSE_CODE, &status);
        if (t.isFile) status = 0;
        // An empty body never reached onFileBody.
        if (result == CURLE_OK && sink.state == FileSink::State::Waiting) settle(t);

        std::string error;
        bool wrongBytes = true;
        if (sink.fault == FileSink::Fault::OverCap) {
            error = "download over " + std::to_string(*sink.maxBytes) + " bytes";
        } else if (sink.fault == FileSink::Fault::RangeMismatch) {
            error = "the reply's range does not start at byte " + std::to_string(sink.offset) +
                    " (Content-Range: " + sink.contentRange.value_or("none") + ")";
        } else if (result == CURLE_HTTP_RETURNED_ERROR ||
                   (result == CURLE_OK && !t.isFile && status != 304 && (status < 200 || status > 299))) {
            error = "HTTP " + std::to_string(status);
        } else if (result == CURLE_BAD_DOWNLOAD_RESUME || result == CURLE_RANGE_ERROR) {
            // The source is shorter than the file already is.
            error = t.errorBuffer[0] != '\0' ? std::string(t.errorBuffer) : std::string(curl_easy_strerror(result));
        } else {
            wrongBytes = false;
            if (sink.fault == FileSink::Fault::WriteFailed) {
                error = sink.writeError;
            } else if (result != CURLE_OK) {
                error = t.errorBuffer[0] != '\0' ? std::string(t.errorBuffer) : std::string(curl_easy_strerror(result));
            } else if (!sink.commit()) {
                error = sink.writeError;
            }
        }
        if (!error.empty()) {
            if (wrongBytes) sink.discard();
            t.response = failure(std::move(error), status);
            return;
        }
        t.response.statusCode = status;
    }

    const URLSession::Options& options_;
    CURLM* multi_ = nullptr;
    CURLSH* share_ = nullptr;  // TLS sessions shared by this driver's easy handles
    std::unordered_map<CURL*, std::unique_ptr<Transfer>> active_;
    std::atomic<bool> abandoned_{false};
};

}  // namespace

// dataTask() transfers run on the session thread's driver. contentsOf() transfers run on the calling thread,
// each on a driver lent to that call alone (a lane), so a synchronous read wakes no other thread of ours;
// lanes come back to a small pool and keep their connections for the next call.
struct URLSession::Engine {
    // Idle lanes kept, with their connections; a lane coming back beyond that is closed. The image cache
    // reads two at a time.
    static constexpr std::size_t kKeptLanes = 4;

    explicit Engine(const Options& options) : options(options) {}

    ~Engine() {
        assert(currentSessionEngine != this && "a session must not be destroyed from its own completion");
        {
            std::lock_guard lock(mutex);
            stopping = true;
            for (Driver* lane : lent) lane->abandon();
        }
        wake();
        if (thread.joinable()) thread.join();
        {
            // A contentsOf() call still running gives up at once and hands its lane back, after which it no
            // longer touches the session.
            std::unique_lock lock(mutex);
            laneReturned.wait(lock, [&] { return lent.empty(); });
        }
        // The thread has ended: its transfers are ours now. Their completions go uncalled.
        driver.reset();
        pending.clear();
        idleLanes.clear();
    }

    // ---- dataTask(): the session thread ---------------------------------------------------------------

    void enqueue(std::unique_ptr<Transfer> transfer) {
        // Transfers that will never run are destroyed uncalled, outside the lock: their completions'
        // captures may have destructors that call back into the session.
        Transfers dropped;
        {
            std::lock_guard lock(mutex);
            if (stopping) {
                dropped.push_back(std::move(transfer));
            } else {
                pending.push_back(std::move(transfer));
                if (!started && !start()) dropped.swap(pending);
            }
        }
        wake();
    }

    // Called with mutex held. Without libcurl the thread still runs and fails every transfer, so that
    // completions keep their promise of arriving on the session thread. False when no thread could be
    // made; the next task tries again.
    bool start() {
        if (!driver) driver = std::make_unique<Driver>(options);
        try {
            thread = std::thread([this] { run(); });
        } catch (const std::system_error&) {
            return false;
        }
        started = true;
        return true;
    }

    void wake() {
        if (driver && driver->usable()) {
            driver->wakeUp();
        } else {
            std::lock_guard lock(mutex);
            changed.notify_all();
        }
    }

    void run() {
        currentSessionEngine = this;
        for (;;) {
            Transfers incoming;
            {
                std::lock_guard lock(mutex);
                if (stopping) return;
                incoming.swap(pending);
            }
            Transfers finished;
            for (auto& transfer : incoming) driver->begin(std::move(transfer), finished);
            driver->perform(finished);
            for (auto& transfer : finished) complete(*transfer);
            finished.clear();
            if (driver->usable()) {
                driver->wait();
            } else {
                std::unique_lock lock(mutex);
                changed.wait(lock, [&] { return stopping || !pending.empty(); });
            }
        }
    }

    static void complete(Transfer& t) {
        auto completion = std::move(t.completion);
        if (completion) callGuarded("completion", [&] { completion(std::move(t.response)); });
    }

    // ---- contentsOf(): the calling thread -------------------------------------------------------------

    Response transferHere(std::unique_ptr<Transfer> transfer) {
        auto lane = borrowLane();
        if (!lane) return failure("the URL session was destroyed");
        Transfers finished;
        lane->begin(std::move(transfer), finished);
        for (;;) {
            lane->perform(finished);
            if (!finished.empty() || lane->abandoned()) break;
            lane->wait();
        }
        Response response =
            finished.empty() ? failure("the URL session was destroyed") : std::move(finished.front()->response);
        // The easy handle goes before the lane is handed on: its cleanup touches the lane's share handle.
        finished.clear();
        returnLane(std::move(lane));  // the session may be gone from here on
        return response;
    }

    std::unique_ptr<Driver> borrowLane() {
        std::lock_guard lock(mutex);
        if (stopping) return nullptr;
        std::unique_ptr<Driver> lane;
        if (idleLanes.empty()) {
            lane = std::make_unique<Driver>(options);
        } else {
            lane = std::move(idleLanes.back());
            idleLanes.pop_back();
        }
        lent.push_back(lane.get());
        return lane;
    }

    void returnLane(std::unique_ptr<Driver> lane) {
        std::unique_ptr<Driver> closed;  // destroyed outside the lock, once the session may be gone
        std::lock_guard lock(mutex);
        lent.erase(std::find(lent.begin(), lent.end(), lane.get()));
        if (!stopping && lane->idle() && idleLanes.size() < kKeptLanes) {
            idleLanes.push_back(std::move(lane));
        } else {
            closed = std::move(lane);
        }
        // Under the lock: once it is released the destructor may go on and free this object.
        laneReturned.notify_all();
    }

    const Options& options;

    std::mutex mutex;
    std::condition_variable changed;       // only without libcurl; guarded by mutex
    std::condition_variable laneReturned;  // guarded by mutex
    Transfers pending;                     // guarded by mutex
    bool stopping = false;                 // guarded by mutex
    bool started = false;                  // guarded by mutex
    std::thread thread;                    // set under mutex, joined by the destructor
    // Made under mutex before the thread starts and destroyed after it is joined; wakeUp() is the one call
    // other threads make on it.
    std::unique_ptr<Driver> driver;
    std::vector<std::unique_ptr<Driver>> idleLanes;  // guarded by mutex
    std::vector<Driver*> lent;                       // guarded by mutex: lanes held by contentsOf() calls
};

URLSession& URLSession::shared() {
    static URLSession* const instance = [] {
        Options options;
        options.userAgent = []() -> std::optional<std::string> {
            auto sdk = NimboSDKInterface::classObject();
            return sdk ? sdk->getHttpUserAgent() : std::nullopt;
        };
        return new URLSession(std::move(options));
    }();
    return *instance;
}

URLSession::URLSession() : URLSession(Options{}) {}

URLSession::URLSession(Options options) : options_(std::move(options)), engine_(std::make_unique<Engine>(options_)) {}

URLSession::~URLSession() = default;

void URLSession::dataTask(Request request, Completion completion) {
    engine_->enqueue(makeTransfer(options_, std::move(request), std::move(completion)));
}

void URLSession::downloadTask(DownloadRequest request, Progress progress, Completion completion) {
    auto transfer = makeTransfer(options_, {std::move(request.url), std::move(request.headers)}, std::move(completion));
    transfer->sink = std::make_unique<FileSink>(std::move(request.destination), request.maxBytes, std::move(progress));
    engine_->enqueue(std::move(transfer));
}

URLSession::Response URLSession::contentsOf(Request request) {
    if (currentSessionEngine == engine_.get()) {
        return failure("contentsOf called on the session thread, which would hold up every other transfer");
    }
    return engine_->transferHere(makeTransfer(options_, std::move(request), {}));
}

}  // namespace nb
