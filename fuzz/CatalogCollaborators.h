// What the catalogue models need around them in a fuzz target, built once per program: settings in a
// temporary folder (never the user's home), a network monitor with a fixed answer, an SDK bridge that makes
// no instance (so nothing is ever fetched), a log that drops its lines and a queue of its own. Models built
// on it are cheap, so each input gets fresh ones.
//
// Also the decoding every target starts with, and check(), which aborts so that libFuzzer keeps the input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "nbbase/common/NBNetworkCheck.h"
#include "nbbase/core/NBConfiguration.h"
#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/NBLog.h"
#include "nbbase/foundation/SerialQueue.h"
#include "nbbase/foundation/ThreadPool.h"
#include "nbbase/foundation/UserDefaults.h"
#include "nbbase/foundation/Value.h"
#include "tests/TempDir.h"

namespace nbfuzz {

inline void check(bool condition) {
    if (!condition) std::abort();
}

// The input as the SDK would hand it over decoded; a bare value too, so that every kind reaches the parse.
// Absent when it is not JSON, as a failed request answers.
inline nb::Value decodeInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    return nb::Json::decode(text, nb::Json::DecodeOptions{.allowFragments = true}).value_or(nb::Value());
}

class CatalogCollaborators {
public:
    static CatalogCollaborators& shared() {
        static CatalogCollaborators collaborators;  // destroyed at exit, which removes its temporary folder
        return collaborators;
    }

    nb::NimboSdkManager& bridge() { return bridge_; }
    nb::NBConfiguration& configuration() { return config_; }
    nb::NBLog& log() { return log_; }
    nb::DispatchQueue& background() { return background_; }

private:
    CatalogCollaborators() { log_.setLogHandler([](std::int32_t, const std::string&) {}); }

    // The folder comes first so that it is removed last, after the suite that lives in it.
    nbtest::TempDir dir_{"nbfuzzcatalog"};
    nb::NBLog log_;
    nb::NBConfiguration config_{
        std::make_shared<nb::UserDefaults>(std::string(nb::NBConfiguration::kSuiteName), dir_.path()), dir_.path()};
    nb::NBNetworkCheck network_{[] { return nb::NBNetworkCheck::kWired; }};
    nb::NimboSdkManager bridge_{[] { return nullptr; }, {}, config_, network_, log_};
    nb::ThreadPool pool_{1};
    nb::SerialQueue background_{"nbfuzz.catalog", pool_};
};

}  // namespace nbfuzz
