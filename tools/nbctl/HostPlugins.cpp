#include "HostPlugins.h"

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "HostSteps.h"
#include "nbbase/NBConstants.h"

namespace nb::nbctl {

HostPlugins::HostPlugins(std::filesystem::path folder, MainQueue& main)
    : platform_(std::move(folder), NBEventCenter::sharedInstance(), NBLog::sharedInstance()), main_(main) {}

bool HostPlugins::start() {
    section("plug-ins");
    fmt::print("folder {}\n", platform_.plugInsFolder().string());
    NBEventCenter& events = NBEventCenter::sharedInstance();
    auto returned = std::make_shared<std::atomic<bool>>(false);
    auto heard = std::make_shared<std::atomic<bool>>(false);
    const ObserverToken token = events.addEventListenerForName(
        NIMBO_EVENT_APP_STARTED, nullptr, nullptr, [this, returned, heard](const Notification& event) {
            fmt::print("{} delivered on the main queue: {}; start had returned: {}\n", event.name,
                       main_.isMainThread() ? "yes" : "no", returned->load() ? "yes" : "no");
            heard->store(true);
        });
    const bool answer = platform_.start();
    returned->store(true);
    std::vector<std::string> names;
    for (const auto& plugin : platform_.pluginInstances()) names.push_back(plugin->name());
    fmt::print("start answered {}; plug-ins in load order: {}\n", answer ? "YES" : "NO",
               names.empty() ? std::string("none") : fmt::format("{}", fmt::join(names, ", ")));
    const bool ok = waitOnMain(main_, [&heard] { return heard->load(); }, std::chrono::seconds(10));
    events.removeListener(token);
    if (!ok) fmt::print(stderr, "nbctl: {} did not arrive in 10 seconds\n", NIMBO_EVENT_APP_STARTED);
    return ok;
}

void HostPlugins::stop() {
    section("exit");
    platform_.stop();
    fmt::print("plug-ins stopped and uninitialised, first loaded first\n");
}

}  // namespace nb::nbctl
