#include "nbbase/foundation/SystemWorkspace.h"

#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstring>
#include <thread>

extern char** environ;

namespace nb {

const char* SystemWorkspace::defaultOpener() noexcept {
#if defined(__APPLE__)
    return "open";
#else
    return "xdg-open";
#endif
}

bool SystemWorkspace::open(const std::string& url, std::string* error) {
    if (url.empty()) {
        if (error != nullptr) *error = "no address to open";
        return false;
    }
    std::string program = opener_;
    std::string argument = url;
    char* argv[] = {program.data(), argument.data(), nullptr};
    pid_t pid = 0;
    const int result = ::posix_spawnp(&pid, program.c_str(), nullptr, nullptr, argv, environ);
    if (result != 0) {
        if (error != nullptr) {
            *error = "cannot start " + opener_ + ": " + std::strerror(result);
            if (result == ENOENT && opener_ == "xdg-open") *error += " (it comes with the xdg-utils package)";
        }
        return false;
    }
    // Reaped apart, so that an opener that stays in the foreground with its browser never blocks the caller.
    std::thread([pid] {
        int status = 0;
        while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
    }).detach();
    return true;
}

}  // namespace nb
