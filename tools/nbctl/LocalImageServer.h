// LocalImageServer: the reference host's stand-in for the image servers. It serves the files of one folder
// (examples/images in the source tree) over HTTP on 127.0.0.1, on a port the system picks, so the host can
// play its downloads without the network. A recorded address such as https://img.example.com/a/1.png is
// served as http://127.0.0.1:<port>/a/1.png: the path is kept, the scheme and host are replaced.
//
// How it starts: the constructor binds and starts one listening thread; the destructor stops and joins it.
// It needs only the folder; a folder that does not exist serves 404 for everything. Replies carry an ETag
// (cpp-httplib's file serving does not, so it is computed from the file's size and modification time),
// which lets the host show a conditional refresh.
//
// Threads: construct and destroy on one thread; localUrl() may be called on any thread.
#pragma once

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

namespace httplib {
class Server;
}

namespace nb::nbctl {

class LocalImageServer {
public:
    explicit LocalImageServer(std::filesystem::path folder);
    ~LocalImageServer();
    LocalImageServer(const LocalImageServer&) = delete;
    LocalImageServer& operator=(const LocalImageServer&) = delete;

    // False when no port could be bound; localUrl then answers the address unchanged.
    [[nodiscard]] bool listening() const noexcept { return port_ > 0; }
    [[nodiscard]] int port() const noexcept { return port_; }
    [[nodiscard]] std::string localUrl(const std::string& recordedUrl) const;

    // Requests answered so far, and how many of them with 304 Not Modified.
    [[nodiscard]] int requestCount() const noexcept { return requests_.load(); }
    [[nodiscard]] int notModifiedCount() const noexcept { return notModified_.load(); }

private:
    const std::filesystem::path folder_;
    std::unique_ptr<httplib::Server> server_;
    int port_ = 0;
    std::atomic<int> requests_{0};
    std::atomic<int> notModified_{0};
    std::thread thread_;
};

}  // namespace nb::nbctl
