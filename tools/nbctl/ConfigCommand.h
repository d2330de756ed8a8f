// `nbctl config`: what the library's settings store answers right now: the debug switches and the
// environment from the hand-edited configuration file in the home folder, the server bases derived from
// them, and the identity and client settings stored in the application's suite.
//
//   config [--json]
//
// It only reads: no setting is written and the file is never touched (opening the suite creates its empty
// database when there is none).
#pragma once

#include <filesystem>

#include <CLI/CLI.hpp>

#include "nbbase/foundation/Value.h"

namespace nb {
class NBConfiguration;
}

namespace nb::nbctl {

class ConfigCommand {
public:
    ConfigCommand(CLI::App& app, const std::filesystem::path& preferencesFolder);

    bool selected() const { return command_->parsed(); }
    int run() const;

    // The report as one dictionary; the reference host prints it too.
    static Value report(const NBConfiguration& configuration);

private:
    const std::filesystem::path& folder_;
    CLI::App* command_ = nullptr;
    bool json_ = false;
};

}  // namespace nb::nbctl
