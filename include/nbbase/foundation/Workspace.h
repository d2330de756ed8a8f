// Workspace: hands an address to the desktop, which opens it in the user's default application (a web
// address in the default browser). The library opens pages through this interface only, so tests and
// hosts with their own browser replace it: SystemWorkspace is the desktop's opener, RecordingWorkspace the
// test double that only records.
//
// Threads: openURL may be called on any thread; implementations must allow that.
//
// Failure: openURL answers false, with the reason in *error when the caller passes one, when the address
// could not be handed over. What the opened application does afterwards is not reported.
#pragma once

#include <string>

namespace nb {

class Workspace {
public:
    virtual ~Workspace() = default;

    // The process-wide SystemWorkspace, created on first use and never destroyed.
    static Workspace& sharedInstance();

    [[nodiscard]] bool openURL(const std::string& url, std::string* error = nullptr) { return open(url, error); }

protected:
    Workspace() = default;
    Workspace(const Workspace&) = default;
    Workspace& operator=(const Workspace&) = default;

    virtual bool open(const std::string& url, std::string* error) = 0;
};

}  // namespace nb
