// `nbctl defaults`: reads and writes settings suites as the `defaults` command does, so a developer can
// look at or change what the library and its host stored.
//
//   defaults domains                         the suites in the preferences folder, one a line
//   defaults read DOMAIN [KEY] [--json]      a whole suite or one value
//   defaults write DOMAIN KEY [-TYPE] VALUE  TYPE: string (the default), int, float, bool; or
//                                            -array V..., -dict K V ...
//   defaults delete DOMAIN [KEY]             one key, or the whole suite
//
// Exit codes: 0 success, 1 a missing domain or key or a failed write, 2 bad arguments. Every failure
// prints one line on standard error.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace nb::nbctl {

class DefaultsCommand {
public:
    // Adds the subcommand and its own subcommands to app. The preferences folder is read when the
    // command runs, so a --preferences option parsed later still applies.
    DefaultsCommand(CLI::App& app, const std::filesystem::path& preferencesFolder);

    bool selected() const { return command_->parsed(); }
    int run() const;

private:
    int read() const;
    int write() const;
    int remove() const;
    int domains() const;
    bool domainExists(const std::string& domain) const;

    const std::filesystem::path& folder_;
    CLI::App* command_ = nullptr;
    CLI::App* read_ = nullptr;
    CLI::App* write_ = nullptr;
    CLI::App* delete_ = nullptr;
    CLI::App* domains_ = nullptr;
    std::string domain_;
    std::string key_;
    bool json_ = false;
};

}  // namespace nb::nbctl
