#include "nbbase/foundation/AtomicFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace nb {

std::optional<std::string> AtomicFile::write(const std::filesystem::path& target, std::string_view bytes) {
    std::string temporary = target.string() + ".XXXXXX";
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0) return "cannot create a file beside " + target.string() + ": " + std::strerror(errno);
    const char* failedStep = nullptr;
    for (std::size_t done = 0; failedStep == nullptr && done < bytes.size();) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) failedStep = "write";
        else done += static_cast<std::size_t>(n);
    }
    if (failedStep == nullptr && ::fsync(fd) != 0) failedStep = "flush";
    if (::close(fd) != 0 && failedStep == nullptr) failedStep = "close";
    if (failedStep == nullptr && std::rename(temporary.c_str(), target.c_str()) != 0) failedStep = "replace";
    if (failedStep == nullptr) return std::nullopt;
    const std::string reason = std::string("cannot ") + failedStep + " " + target.string() + ": " + std::strerror(errno);
    ::unlink(temporary.c_str());
    return reason;
}

}  // namespace nb
