// `nbctl version-compare`: which of two versions the updater takes for newer.
//
//   version-compare [--build-number] [--] A B
//
// Prints -1 when A is older than B, 0 when they are the same, 1 when A is newer, by the library's version
// comparator (NBCustomizedVersionComparator.h); --build-number compares as its build-number mode does.
// A version may be empty ('') or begin with a dash: put "--" before the versions then.
//
// Exit codes: 0 the answer was printed; 2 bad arguments.
#pragma once

#include <string>

#include <CLI/CLI.hpp>

namespace nb::nbctl {

class VersionCompareCommand {
public:
    explicit VersionCompareCommand(CLI::App& app);

    bool selected() const { return command_->parsed(); }
    int run() const;

private:
    CLI::App* command_ = nullptr;
    bool buildNumber_ = false;
    std::string a_;
    std::string b_;
};

}  // namespace nb::nbctl
