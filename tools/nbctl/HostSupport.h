// The reference host's messaging part, after the images: the popups of the pre-launch and game-playing
// scenes with the pictures they queue and a button press reported back, a scene task with its QR code,
// and the feedback page's address.
//
// The popup reply is the recorded one with its picture addresses rewritten to the local image server, so
// the pictures the images step prefetched are in the memory cache and the popups queue their refresh. The
// feedback page is opened in the browser only with openFeedback; otherwise its address is only printed.
//
// Threads: run() on the main queue's thread; it runs the main queue while it waits.
#pragma once

#include "nbbase/catalog/NBImageCache.h"
#include "nbbase/core/NBConfiguration.h"
#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/foundation/MainQueue.h"
#include "nbbase/foundation/Value.h"
#include "nbbase/sdk/ReplaySdk.h"

namespace nb::nbctl {

class LocalImageServer;

class HostSupport {
public:
    struct Parts {
        NBConfiguration& configuration;
        NimboSdkManager& bridge;
        ReplaySdk& replay;
        NBImageCache& images;
        const LocalImageServer& server;
        MainQueue& main;
    };

    HostSupport(Parts parts, Value localPopupReply, bool openFeedback)
        : parts_(parts), popupReply_(std::move(localPopupReply)), openFeedback_(openFeedback) {}

    // False, with a line on standard error, when an answer did not come in 10 seconds.
    bool run() const;

private:
    bool playPopups() const;
    bool playSceneTask() const;
    bool playFeedback() const;

    Parts parts_;
    Value popupReply_;
    bool openFeedback_;
};

}  // namespace nb::nbctl
