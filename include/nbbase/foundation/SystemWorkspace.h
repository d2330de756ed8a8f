// SystemWorkspace: opens addresses with the desktop's opener program: xdg-open on Linux (from xdg-utils),
// open on macOS. The program is started as a child process with the address as its only argument, found
// on PATH unless a path is given; nothing passes through a shell, so no address is ever read as a command.
//
// openURL returns once the child has started; the child is reaped on a thread of its own, so the caller
// never waits for a browser. false, with the reason, when the program cannot be started (not installed,
// not executable) or the address is empty. What the opener then does (no browser configured, say) is its
// own business: it reports on standard error, which the child shares with this process.
//
// Threads: openURL may be called on any thread.
#pragma once

#include <string>
#include <utility>

#include "nbbase/foundation/Workspace.h"

namespace nb {

class SystemWorkspace final : public Workspace {
public:
    // The platform's opener program, by name.
    static const char* defaultOpener() noexcept;

    explicit SystemWorkspace(std::string opener = defaultOpener()) : opener_(std::move(opener)) {}

private:
    bool open(const std::string& url, std::string* error) override;

    const std::string opener_;
};

}  // namespace nb
