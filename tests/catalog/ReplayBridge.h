// What the catalogue models' tests stand on: a real SDK bridge whose instance is a ReplaySdk on the recorded
// replies (settings in a temporary folder, a fixed wired network), a log the test reads and a serial queue
// for the models' background work; drain() waits for a queue's earlier work without sleeping, tornReads()
// looks for a reader that meets half of a write. bridge().uninitializeSDK() takes the SDK away.
#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "LogLines.h"
#include "TempDir.h"
#include "foundation/DispatchTestSupport.h"
#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/foundation/DispatchQueue.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/SerialQueue.h"
#include "nbbase/foundation/UserDefaults.h"
#include "nbbase/sdk/ReplaySdk.h"

namespace nbtest {

inline nb::Data bytes(std::string_view text) { return nb::Data(text.begin(), text.end()); }
inline nb::Value json(std::string_view text) { return nb::Json::decode(text).value(); }

// Waits until everything posted to `queue` before the call has run (the queue must run tasks in order).
inline bool drain(nb::DispatchQueue& queue) {
    const auto done = std::make_shared<nb::test::EventLog>();
    queue.async([done] { done->add(0); });
    return done->waitForSize(1);
}

class ReplayBridge {
public:
    ReplayBridge() { bridge_.initializeSDK(nullptr); }
    ~ReplayBridge() {
        drain();  // no background task outlives the log and the bridge it uses
        bridge_.uninitializeSDK();
    }

    nb::NimboSdkManager& bridge() { return bridge_; }
    nb::ReplaySdk& sdk() { return *sdk_; }
    nb::NBConfiguration& configuration() { return config_; }
    nb::NBLog& log() { return log_.log(); }
    std::vector<std::string> logged() { return log_.take(); }
    nb::SerialQueue& background() { return background_; }
    bool drain() { return nbtest::drain(background_); }

private:
    TempDir dir_{"nbcatalog"};
    nb::NBConfiguration config_{
        std::make_shared<nb::UserDefaults>(std::string(nb::NBConfiguration::kSuiteName), dir_.path()), dir_.path()};
    nb::NBNetworkCheck network_{[] { return nb::NBNetworkCheck::kWired; }};
    nb::NBLog sdkLog_;  // initializeSDK points it at the SDK
    std::shared_ptr<nb::ReplaySdk> sdk_ =
        std::make_shared<nb::ReplaySdk>(std::filesystem::path(NBBASE_SOURCE_DIR) / "examples" / "replies");
    nb::NimboSdkManager bridge_{[this] { return sdk_; }, {}, config_, network_, sdkLog_};
    LogLines log_;
    nb::SerialQueue background_{"nbtest.catalog"};
};

// Runs `write` on this thread while another thread reads again and again, at least once; answers how many
// reads found a state that no whole write leaves (`whole` false). ThreadSanitizer checks the rest.
inline int tornReads(const std::function<void()>& write, const std::function<bool()>& whole) {
    std::atomic<bool> done{false};
    std::atomic<int> torn{0};
    std::thread reader([&] {
        do torn += whole() ? 0 : 1;
        while (!done);
    });
    write();
    done = true;
    reader.join();
    return torn;
}

}  // namespace nbtest
