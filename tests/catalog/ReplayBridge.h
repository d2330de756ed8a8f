// What the catalogue models' tests run against: a real SDK bridge whose instance is a ReplaySdk on the
// recorded replies, with its settings in a temporary folder and a fixed wired network; a log whose lines
// the test reads; and helpers to wait for work on other threads without sleeping.
//
// The bridge holds an instance from construction; bridge().uninitializeSDK() takes it away.
#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "TempDir.h"
#include "foundation/DispatchTestSupport.h"
#include "nbbase/common/NBLog.h"
#include "nbbase/common/NBNetworkCheck.h"
#include "nbbase/core/NBConfiguration.h"
#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/foundation/DispatchQueue.h"
#include "nbbase/foundation/UserDefaults.h"
#include "nbbase/sdk/ReplaySdk.h"

namespace nbtest {

inline const std::filesystem::path kRecordedReplies =
    std::filesystem::path(NBBASE_SOURCE_DIR) / "examples" / "replies";

class ReplayBridge {
public:
    ReplayBridge() {
        quiet_.setLogHandler([](std::int32_t, const std::string&) {});
        bridge_.initializeSDK(nullptr);
    }
    ~ReplayBridge() { bridge_.uninitializeSDK(); }
    ReplayBridge(const ReplayBridge&) = delete;
    ReplayBridge& operator=(const ReplayBridge&) = delete;

    nb::NimboSdkManager& bridge() { return bridge_; }
    nb::ReplaySdk& sdk() { return *sdk_; }

private:
    TempDir dir_{"nbcatalog"};
    nb::NBConfiguration config_{
        std::make_shared<nb::UserDefaults>(std::string(nb::NBConfiguration::kSuiteName), dir_.path()), dir_.path()};
    nb::NBNetworkCheck network_{[] { return nb::NBNetworkCheck::kWired; }};
    nb::NBLog quiet_;  // initializeSDK points it at the SDK
    std::shared_ptr<nb::ReplaySdk> sdk_ = std::make_shared<nb::ReplaySdk>(kRecordedReplies);
    nb::NimboSdkManager bridge_{[this] { return sdk_; }, {}, config_, network_, quiet_};
};

// Every line logged, as "<level> <text>".
class LogLines {
public:
    LogLines() {
        log_.setLogHandler([lines = lines_](std::int32_t level, const std::string& text) {
            std::lock_guard lock(lines->mutex);
            lines->all.push_back(std::to_string(level) + " " + text);
        });
    }
    nb::NBLog& log() { return log_; }
    std::vector<std::string> lines() const {
        std::lock_guard lock(lines_->mutex);
        return lines_->all;
    }

private:
    struct Lines {
        std::mutex mutex;
        std::vector<std::string> all;
    };
    std::shared_ptr<Lines> lines_ = std::make_shared<Lines>();
    nb::NBLog log_;
};

// Waits until everything posted to `queue` before the call has run (the queue must run tasks in order).
inline bool drain(nb::DispatchQueue& queue) {
    const auto done = std::make_shared<nb::test::EventLog>();
    queue.async([done] { done->add(0); });
    return done->waitForSize(1);
}

}  // namespace nbtest
