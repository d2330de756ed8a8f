#include "LocalImageServer.h"

#include <httplib.h>

#include <fstream>
#include <iterator>
#include <system_error>

#include <fmt/format.h>

#include "nbbase/foundation/Url.h"

namespace nb::nbctl {

namespace {

// A weak validator from what stat() says; enough for a file that only ever changes by being replaced.
std::string etagOf(const std::filesystem::path& file) {
    std::error_code ec;
    const auto size = std::filesystem::file_size(file, ec);
    const auto time = std::filesystem::last_write_time(file, ec).time_since_epoch().count();
    return fmt::format("W/\"{:x}-{:x}\"", size, time);
}

}  // namespace

LocalImageServer::LocalImageServer(std::filesystem::path folder)
    : folder_(std::move(folder)), server_(std::make_unique<httplib::Server>()) {
    server_->Get(R"(/(.+))", [this](const httplib::Request& request, httplib::Response& response) {
        ++requests_;
        const std::filesystem::path relative = std::filesystem::path(request.matches[1].str()).lexically_normal();
        if (relative.empty() || relative.is_absolute() || *relative.begin() == "..") {
            response.status = 404;
            return;
        }
        const auto file = folder_ / relative;
        std::ifstream in(file, std::ios::binary);
        if (!in || !std::filesystem::is_regular_file(file)) {
            response.status = 404;
            return;
        }
        const std::string etag = etagOf(file);
        response.set_header("ETag", etag);
        if (request.get_header_value("If-None-Match") == etag) {
            response.status = 304;
            ++notModified_;
            return;
        }
        std::string body((std::istreambuf_iterator<char>(in)), {});
        response.set_content(std::move(body), file.extension() == ".png" ? "image/png" : "application/octet-stream");
    });
    // Kept connections hold stop() back for as long as this, should a client outlive the server.
    server_->set_keep_alive_timeout(1);
    port_ = server_->bind_to_any_port("127.0.0.1");
    if (port_ > 0) {
        thread_ = std::thread([this] { server_->listen_after_bind(); });
    }
}

LocalImageServer::~LocalImageServer() {
    server_->stop();
    if (thread_.joinable()) thread_.join();
}

std::string LocalImageServer::localUrl(const std::string& recordedUrl) const {
    const auto url = Url::parse(recordedUrl);
    if (!url || !listening()) return recordedUrl;
    std::string local = fmt::format("http://127.0.0.1:{}{}", port_, url->path());
    if (url->query()) local += "?" + *url->query();
    return local;
}

}  // namespace nb::nbctl
