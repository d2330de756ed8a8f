// The reference host's plug-ins: loaded and started through NBCorePlatform right after the settings, as a
// client does when it has finished launching, and stopped at exit.
//
// The folder is the "PlugIns" folder beside nbctl by default, where the build puts the samples (Greeter,
// which listens for the start event, and Reluctant, whose initialize answers NO). The platform posts on the
// process-wide event centre, which the samples listen on; the host listens there too and prints when
// NIMBO_EVENT_APP_STARTED arrives, which is on the main queue and after start() returned. A folder that is
// missing loads nothing and the event still arrives.
//
// Threads: start() and stop() on the main queue's thread; start() runs the main queue while it waits.
#pragma once

#include <filesystem>

#include "nbbase/core/NBCorePlatform.h"
#include "nbbase/foundation/MainQueue.h"

namespace nb::nbctl {

class HostPlugins {
public:
    // The main queue must be the one NBEventCenter::sharedInstance() delivers on.
    HostPlugins(std::filesystem::path folder, MainQueue& main);

    // False when the start event did not arrive.
    bool start();
    void stop();

private:
    NBCorePlatform platform_;
    MainQueue& main_;
};

}  // namespace nb::nbctl
