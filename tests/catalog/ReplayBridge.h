// The catalogue models' tests run against a real SDK bridge whose instance is a ReplaySdk on the recorded
// replies (settings in a temporary folder, a fixed wired network), a log the test reads, and drain(),
// which waits for a queue's earlier work without sleeping. bridge().uninitializeSDK() takes the SDK away.
#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "TempDir.h"
#include "foundation/DispatchTestSupport.h"
#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/foundation/DispatchQueue.h"
#include "nbbase/foundation/UserDefaults.h"
#include "nbbase/sdk/ReplaySdk.h"

namespace nbtest {

class ReplayBridge {
public:
    ReplayBridge() { bridge_.initializeSDK(nullptr); }
    ~ReplayBridge() { bridge_.uninitializeSDK(); }

    nb::NimboSdkManager& bridge() { return bridge_; }
    nb::ReplaySdk& sdk() { return *sdk_; }

private:
    TempDir dir_{"nbcatalog"};
    nb::NBConfiguration config_{
        std::make_shared<nb::UserDefaults>(std::string(nb::NBConfiguration::kSuiteName), dir_.path()), dir_.path()};
    nb::NBNetworkCheck network_{[] { return nb::NBNetworkCheck::kWired; }};
    nb::NBLog sdkLog_;  // initializeSDK points it at the SDK
    std::shared_ptr<nb::ReplaySdk> sdk_ =
        std::make_shared<nb::ReplaySdk>(std::filesystem::path(NBBASE_SOURCE_DIR) / "examples" / "replies");
    nb::NimboSdkManager bridge_{[this] { return sdk_; }, {}, config_, network_, sdkLog_};
};

// Every line logged to log(), as "<level> <text>".
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
