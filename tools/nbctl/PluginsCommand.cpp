#include "PluginsCommand.h"

#include <algorithm>
#include <system_error>
#include <vector>

#include <fmt/format.h>

#include "nbbase/core/NBCorePlatform.h"
#include "nbbase/core/NBPluginBundle.h"

namespace nb::nbctl {

namespace fs = std::filesystem;

PluginsCommand::PluginsCommand(CLI::App& app, std::filesystem::path defaultFolder) : folder_(std::move(defaultFolder)) {
    command_ = app.add_subcommand("plugins", "List a plug-in folder and say whether each plug-in would load");
    command_->add_option("FOLDER", folder_, "The plug-in folder")->capture_default_str();
}

std::string PluginsCommand::describe(const fs::path& entry) {
    const std::string name = entry.filename().string();
    if (entry.extension() != NBCorePlatform::kPluginExtension) {
        return fmt::format("{}: ignored, the extension is not \"nbp\"", name);
    }
    const auto bundle = NBPluginBundle::bundleWithPath(entry);
    if (!bundle) return fmt::format("{}: would not load: not a folder", name);
    const NBPluginClass* pluginClass = bundle->principalClass();
    const std::string problem =
        pluginClass != nullptr ? NBCorePlatform::pluginClassProblem(pluginClass) : bundle->loadError();
    if (!problem.empty()) return fmt::format("{}: would not load: {}", name, problem);
    const Value& identifier = bundle->infoDictionary()["CFBundleIdentifier"];
    return fmt::format("{}: would load {} ({})", name, pluginClass->className ? pluginClass->className : "",
                       identifier.isString() ? identifier.stringValue() : "no identifier");
}

int PluginsCommand::run() const {
    std::error_code ec;
    std::vector<fs::path> entries;
    for (fs::directory_iterator it(folder_, ec), end; !ec && it != end; it.increment(ec)) entries.push_back(it->path());
    if (ec) {
        fmt::print(stderr, "nbctl: cannot list {}: {}\n", folder_.string(), ec.message());
        return 1;
    }
    std::sort(entries.begin(), entries.end());
    fmt::print("plug-ins in {}: {} entries\n", folder_.string(), entries.size());
    for (const fs::path& entry : entries) fmt::print("  {}\n", describe(entry));
    return 0;
}

}  // namespace nb::nbctl
