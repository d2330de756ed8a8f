#include "nbbase/core/NBCorePlatform.h"

#include <cstring>
#include <exception>
#include <system_error>
#include <utility>

#include "nbbase/NBConstants.h"
#include "nbbase/core/NBPluginBundle.h"

namespace nb {

namespace fs = std::filesystem;

NBCorePlatform::NBCorePlatform(fs::path plugInsFolder, NBEventCenter& eventCenter, NBLog& log)
    : folder_(std::move(plugInsFolder)), eventCenter_(eventCenter), log_(log) {}

bool NBCorePlatform::start() {
    loadAllPlugins();
    startAllPlugins();
    eventCenter_.postEventName(NIMBO_EVENT_APP_STARTED, nullptr);
    return true;
}

void NBCorePlatform::stop() { stopAllPlugins(); }

std::vector<fs::path> NBCorePlatform::pluginPathsInFolder(const fs::path& folder) {
    std::vector<fs::path> paths;
    std::error_code ec;
    fs::directory_iterator entries(folder, ec);
    // An entry that cannot be read ends the listing with what was found so far.
    for (const fs::directory_iterator end; !ec && entries != end; entries.increment(ec)) {
        const fs::path& path = entries->path();
        if (path.extension() == kPluginExtension) paths.push_back(path);
    }
    return paths;
}

std::vector<fs::path> NBCorePlatform::allPluginPaths() const { return pluginPathsInFolder(folder_); }

std::string NBCorePlatform::pluginClassProblem(const NBPluginClass* pluginClass) {
    if (pluginClass == nullptr) return "no class";
    if (pluginClass->protocolName == nullptr || std::strcmp(pluginClass->protocolName, kNBPluginProtocolName) != 0) {
        return fmt::format("the class does not declare {}", kNBPluginProtocolName);
    }
    if (pluginClass->protocolVersion != kNBPluginProtocolVersion) {
        return fmt::format("the class was built for {} version {}, this library speaks version {}",
                           kNBPluginProtocolName, pluginClass->protocolVersion, kNBPluginProtocolVersion);
    }
    if (pluginClass->create == nullptr || pluginClass->destroy == nullptr) {
        return "the class has no create or destroy function";
    }
    return {};
}

bool NBCorePlatform::validatePluginClass(const NBPluginClass* pluginClass) const {
    return pluginClassProblem(pluginClass).empty();
}

void NBCorePlatform::loadAllPlugins() {
    for (const fs::path& path : allPluginPaths()) {
        const auto bundle = NBPluginBundle::bundleWithPath(path);
        if (!bundle) continue;
        const NBPluginClass* pluginClass = bundle->principalClass();
        const std::string problem = pluginClass != nullptr ? pluginClassProblem(pluginClass) : bundle->loadError();
        if (!problem.empty()) {
            log_.log(4, "plugin {}: {}", path.string(), problem);
            log_.write(4, "invalid plugin class");
            continue;
        }
        NBPluginProtocol* object = pluginClass->create();
        if (object == nullptr) continue;
        // The object goes back to the code that made it.
        std::shared_ptr<NBPluginProtocol> plugin(object, pluginClass->destroy);
        std::lock_guard lock(mutex_);
        plugins_.push_back(std::move(plugin));
    }
}

template <typename Operation>
bool NBCorePlatform::guarded(NBPluginProtocol& plugin, const char* operation, Operation&& call) {
    try {
        return call();
    } catch (const std::exception& e) {
        log_.log(4, "plugin {} threw from {}: {}", nameOf(plugin), operation, e.what());
    } catch (...) {
        log_.log(4, "plugin {} threw from {}: an unknown exception", nameOf(plugin), operation);
    }
    return false;
}

std::string NBCorePlatform::nameOf(NBPluginProtocol& plugin) {
    try {
        return plugin.name();
    } catch (...) {
        return "(null)";
    }
}

void NBCorePlatform::startAllPlugins() {
    for (const auto& plugin : pluginInstances()) {
        if (!guarded(*plugin, "initialize", [&] { return plugin->initialize(); })) {
            log_.log(4, "failed to initialize plugin: {}", nameOf(*plugin));
        }
        if (!guarded(*plugin, "start", [&] { return plugin->start(); })) {
            log_.log(4, "failed to initialize plugin: {}", nameOf(*plugin));
        }
    }
}

void NBCorePlatform::stopAllPlugins() {
    for (const auto& plugin : pluginInstances()) {
        guarded(*plugin, "stop", [&] {
            plugin->stop();
            return true;
        });
        guarded(*plugin, "uninitialize", [&] {
            plugin->uninitialize();
            return true;
        });
    }
}

std::vector<std::shared_ptr<NBPluginProtocol>> NBCorePlatform::pluginInstances() const {
    std::lock_guard lock(mutex_);
    return plugins_;
}

}  // namespace nb
