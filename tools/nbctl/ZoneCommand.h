// `nbctl zone`: the zone cache as the library sees it now, in the application's settings suite.
//
//   zone [--store FILE]
//
// Prints the network now (the Wi-Fi interface and the network it joined, the IPv4 address the cache would
// record), the SDK configuration file's modification time, the stored speed-test record, whether the
// network counts as changed and why, and then the zone ids. Asking for the zone ids removes a record that is
// no longer valid, as it does in a client, and the line says so. --store first stores the JSON array in FILE
// as a finished speed test ('-' reads standard input); a result that used a backup zone is refused, and
// the line says that too.
//
// Exit codes: 0 shown; 1 FILE is unreadable or not a JSON array; 2 bad arguments.
#pragma once

#include <filesystem>
#include <string>

#include <CLI/CLI.hpp>

#include "nbbase/common/NetworkInterfaces.h"
#include "nbbase/core/NBZoneCache.h"

namespace nb::nbctl {

class ZoneCommand {
public:
    ZoneCommand(CLI::App& app, const std::filesystem::path& preferencesFolder);

    bool selected() const { return command_->parsed(); }
    int run() const;

    // The lines described above, from "network now" to "zone ids"; the reference host prints them too.
    static std::string report(NBZoneCache& cache, const NBConfiguration& configuration,
                              const NetworkInterfaces& network);

private:
    const std::filesystem::path& folder_;
    CLI::App* command_ = nullptr;
    std::string store_;
};

}  // namespace nb::nbctl
