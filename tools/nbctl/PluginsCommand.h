// `nbctl plugins`: what a plug-in folder holds and whether the host would load each entry.
//
//   plugins [FOLDER]
//
// FOLDER defaults to the sample plug-ins' folder (DataFolders.h: beside nbctl in the build tree). One line
// per entry, sorted by name: "<entry>: would load <class> (<identifier>)", "<entry>: would not load: <why>"
// (the reason the host would log, dlerror's text included), or "<entry>: ignored, ..." for entries without
// the "nbp" extension. Checking loads each library's code, as the host would, but creates no plug-in object.
//
// Exit codes: 0 the folder was listed; 1 it cannot be listed; 2 bad arguments.
#pragma once

#include <filesystem>
#include <string>

#include <CLI/CLI.hpp>

namespace nb::nbctl {

class PluginsCommand {
public:
    PluginsCommand(CLI::App& app, std::filesystem::path defaultFolder);

    bool selected() const { return command_->parsed(); }
    int run() const;

    // The line for one entry of a plug-in folder, without a trailing newline.
    static std::string describe(const std::filesystem::path& entry);

private:
    CLI::App* command_ = nullptr;
    std::filesystem::path folder_;
};

}  // namespace nb::nbctl
