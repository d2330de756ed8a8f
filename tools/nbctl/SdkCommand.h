// `nbctl sdk OPERATION [--replies DIR]`: plays one SDK operation the library calls through the bridge,
// against recorded replies (ReplaySdk), and prints what the library asked, what came back, in which form,
// and on which thread. The reference host uses play() for its own SDK steps.
//
// Exit codes: 0 an answer came (success or recorded failure), 1 no answer or an unusable replies
// folder, 2 an operation the library does not call.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "nbbase/foundation/Value.h"

namespace nb {
class NimboSdkManager;
}

namespace nb::nbctl {

class SdkCommand {
public:
    struct Outcome {
        bool answered = false;        // false: no answer within the wait
        bool blocking = false;        // answered by the call itself rather than a callback
        bool onCallerThread = false;  // the thread the answer arrived on
        bool failed = false;
        std::array<std::int32_t, 3> failure{};  // the failure callback's three parts
        Value reply;                            // the success reply (text, dictionary, data, number)
    };

    SdkCommand(CLI::App& app, std::filesystem::path defaultReplies);

    bool selected() const { return command_->parsed(); }
    int run() const;

    // The operations play() knows, sorted.
    static std::vector<std::string> operations();
    // Calls the operation through an initialised bridge and waits up to 10 seconds for its answer;
    // nullopt for an operation the library does not call.
    static std::optional<Outcome> play(NimboSdkManager& bridge, const std::string& operation);
    // Human-readable lines for an outcome.
    static std::string describe(const Outcome& outcome);

private:
    CLI::App* command_ = nullptr;
    std::string operation_;
    std::filesystem::path replies_;
};

}  // namespace nb::nbctl
