#include "HostCommand.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <system_error>

#include <fmt/format.h>

#include "PlistText.h"
#include "nbbase/common/NBLog.h"
#include "nbbase/foundation/ConcurrentQueue.h"
#include "nbbase/foundation/Folders.h"
#include "nbbase/foundation/MainQueue.h"
#include "nbbase/foundation/UserDefaults.h"

namespace nb::nbctl {

namespace {

constexpr const char* kDemoSuite = "nbctl.demo";

void section(const char* title) { fmt::print("\n== {} ==\n", title); }

// The settings step: what a client stores at first launch, read back as the library answers it.
bool playSettings(const Folders& folders) {
    section("settings");
    fmt::print("preferences folder: {}\n", folders.preferencesFolder());
    UserDefaults defaults(kDemoSuite, folders.preferencesFolder());
    defaults.registerDefaults(Value::Dictionary{{"language", "en"}, {"launchCount", 0}});

    bool ok = defaults.setString("demo-user", "userName");
    ok = defaults.setInteger(defaults.integerForKey("launchCount") + 1, "launchCount") && ok;
    ok = defaults.setDouble(0.8, "volume") && ok;
    ok = defaults.setBool(true, "fullScreen") && ok;
    ok = defaults.setObject(Value::array({"Lantern Quest", "Harbor Run"}), "recentGames") && ok;
    ok = defaults.setObject(Value::dictionary({{"width", 1280}, {"height", 720}}), "window") && ok;
    if (!ok) {
        fmt::print(stderr, "nbctl: could not write the demo suite\n");
        return false;
    }

    fmt::print("suite {} ({}):\n{}\n", kDemoSuite, UserDefaults::fileNameForSuite(kDemoSuite),
               PlistText::format(defaults.persistentDomain()));
    fmt::print("registered default language = {} (stored: {})\n", *defaults.stringForKey("language"),
               defaults.persistentDomain().contains("language") ? "yes" : "no");
    fmt::print("integerForKey(launchCount) = {}, boolForKey(fullScreen) = {}, stringForKey(volume) = {}\n",
               defaults.integerForKey("launchCount"), defaults.boolForKey("fullScreen"),
               defaults.stringForKey("volume").value_or("(null)"));
    return true;
}

// The queues step: work done on a global queue hands its result to the main queue, where a client's
// interface would show it.
bool playQueues() {
    section("queues");
    MainQueue& main = MainQueue::sharedInstance();
    // Shared with the tasks: they may still run after a timeout has ended this function.
    auto delivered = std::make_shared<std::atomic<bool>>(false);
    ConcurrentQueue::global().async([&main, delivered] {
        NBLog::sharedInstance().log(2, "background work done, handing the result to the main queue");
        main.async([&main, delivered] {
            fmt::print("result delivered on the main thread: {}\n", main.isMainThread() ? "yes" : "no");
            delivered->store(true);
        });
    });
    if (!main.runUntil([&delivered] { return delivered->load(); }, std::chrono::seconds(10))) {
        fmt::print(stderr, "nbctl: the main queue received nothing in 10 seconds\n");
        return false;
    }
    return true;
}

}  // namespace

HostCommand::HostCommand(CLI::App& app) {
    command_ = app.add_subcommand("host", "Run the reference start-up session");
    command_->add_option("--home", home_, "Home folder to run in (default: a new temporary one)");
    command_->add_flag("--keep", keep_, "Keep the temporary home afterwards");
}

int HostCommand::run() const {
    std::string home = home_;
    if (home.empty()) {
        std::string pattern = (std::filesystem::temp_directory_path() / "nbctl-home-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            fmt::print(stderr, "nbctl: cannot create a temporary home in {}\n", pattern);
            return 1;
        }
        home = pattern;
    }
    NBLog::sharedInstance().setLogHandler([](std::int32_t level, const std::string& text) {
        fmt::print("[log {}] {}\n", level, text);
    });

    fmt::print("NBBase reference host\nhome: {}\n", home);
    Folders::Environment environment;
    environment.home = home;
    const Folders folders(environment);
    const bool ok = playSettings(folders) && playQueues();

    NBLog::sharedInstance().setLogHandler(nullptr);
    if (home_.empty() && !keep_) {
        std::error_code ec;
        std::filesystem::remove_all(home, ec);
    }
    fmt::print("\n{}\n", ok ? "start-up finished" : "start-up failed");
    return ok ? 0 : 1;
}

}  // namespace nb::nbctl
