// The reference host's update step, last: the client's update check against the recorded update
// information, then the download of that update from a local server, verified before the installer sees it.
//
// 1. The update manager asks the SDK (ReplaySdk: getUpdateInformation.json) on the client's own updater,
//    and the host prints the decision (up to date, optional or mandatory) and the download link after the
//    channel rewrite (the client's channel is "nimbo_official").
// 2. The host plays the publisher: it writes a package at that link's path in a folder of its home, signs
//    it with a key pair made for the run, publishes a feed for it, and serves the folder with a
//    LocalImageServer on 127.0.0.1. The updater reads that feed, downloads the package into the caches
//    folder, checks its length and Ed25519 signature against the key in the client's "SUPublicEDKey", and
//    hands it to an installer hook that only prints it. A tampered copy under a second feed is refused.
//
// Threads: run() on the main queue's thread; it runs the main queue while it waits.
#pragma once

#include <filesystem>
#include <memory>

#include "nbbase/core/NBConfiguration.h"
#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/foundation/Folders.h"
#include "nbbase/foundation/MainBundle.h"
#include "nbbase/foundation/MainQueue.h"

namespace nb::nbctl {

class HostUpdate {
public:
    struct Parts {
        NBConfiguration& configuration;
        NimboSdkManager& bridge;
        const Folders& folders;
        std::shared_ptr<const MainBundle> bundle;
        MainQueue& main;
    };

    explicit HostUpdate(Parts parts) : parts_(std::move(parts)) {}

    // False, with a line saying why, when a step did not end as the recording says it should.
    bool run() const;

private:
    Parts parts_;
};

}  // namespace nb::nbctl
