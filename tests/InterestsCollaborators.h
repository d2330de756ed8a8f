// What an interests store needs around it, built once per program for the fuzz targets and benchmarks that
// drive InterestsInfo without a session: settings in a temporary folder (never the user's home), a network
// monitor with a fixed answer, an SDK bridge that makes no instance (so nothing is ever fetched or sent), a
// log that drops its lines (a fuzzer logs on every broken reply) and a queue of its own. The VIP record
// starts empty, property level 0; parse a reply into vip() for another level.
//
// Stores are cheap: makeStore() gives a fresh, empty one, so runs never see each other's replies.
//
// Threads: build and destroy it on one thread; makeStore() and vip() may be used from any thread.
// Needs NBBASE_SOURCE_DIR for recordedReply().
#pragma once

#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>

#include "TempDir.h"
#include "nbbase/common/NBNetworkCheck.h"
#include "nbbase/core/NBConfiguration.h"
#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/entitlements/InterestsInfo.h"
#include "nbbase/entitlements/VipInfo.h"
#include "nbbase/foundation/NBLog.h"
#include "nbbase/foundation/SerialQueue.h"
#include "nbbase/foundation/ThreadPool.h"
#include "nbbase/foundation/UserDefaults.h"

namespace nbtest {

class InterestsCollaborators {
public:
    InterestsCollaborators() { log_.setLogHandler([](std::int32_t, const std::string&) {}); }
    InterestsCollaborators(const InterestsCollaborators&) = delete;
    InterestsCollaborators& operator=(const InterestsCollaborators&) = delete;

    std::shared_ptr<nb::InterestsInfo> makeStore() {
        return nb::InterestsInfo::create(bridge_, config_, vip_, log_, background_);
    }
    nb::VipInfo& vip() { return vip_; }

private:
    // The folder comes first so that it is removed last, after the suite that lives in it.
    TempDir dir_{"nbinterests"};
    nb::NBLog log_;
    nb::NBConfiguration config_{
        std::make_shared<nb::UserDefaults>(std::string(nb::NBConfiguration::kSuiteName), dir_.path()),
        dir_.path(), {}, {}};
    nb::NBNetworkCheck network_{[] { return nb::NBNetworkCheck::kWired; }};
    nb::NimboSdkManager bridge_{[] { return nullptr; }, {}, config_, network_, log_};
    nb::VipInfo vip_;
    nb::ThreadPool pool_{1};
    nb::SerialQueue background_{"nbtest.interests", pool_};
};

// A file of examples/replies as it stands; empty when it cannot be read.
inline std::string recordedReply(std::string_view file) {
    std::ifstream in(std::string(NBBASE_SOURCE_DIR) + "/examples/replies/" + std::string(file), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace nbtest
