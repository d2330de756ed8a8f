// NBCorePlatform: loads the application's plug-ins, starts them, announces that the application has
// started, and stops them at the end. A host creates one (it is not a singleton), calls start() when it has
// finished launching and stop() when it terminates.
//
// Where plug-ins come from: the folder given to the constructor, by default the main bundle's "PlugIns"
// folder (MainBundle::builtInPlugInsPath(), beside the executable unless the host set another bundle).
// allPluginPaths() lists it once per call, not recursively, in the order the file system returns, and keeps
// the entries whose extension is exactly "nbp"; a folder that cannot be listed gives none. The layout of a
// plug-in is in NBPluginBundle.h.
//
// Loading (loadAllPlugins): each path is opened as a bundle; one that is not a folder is skipped without a
// word. Otherwise its principal class is loaded; when there is none, or validatePluginClass() refuses it,
// two lines are logged at level 4, the reason ("plugin <path>: <why>", with dlerror's text when the library
// would not load) and then "invalid plugin class", and the bundle is skipped. A valid class is instantiated
// with its create function and the object appended to pluginInstances(). A second load appends second
// instances: nothing prevents loading the same plug-ins twice.
//
// Starting (startAllPlugins), in load order: initialize(), then start() whatever initialize() answered; each
// NO logs "failed to initialize plugin: <name>" at level 4 (the same words for both steps). Stopping
// (stopAllPlugins), in load order, not reversed: stop() then uninitialize(). Nothing is ever removed from
// the list. start() posts NIMBO_EVENT_APP_STARTED (no sender, no context) through the event centre after
// the plug-ins have started; the event centre delivers on the main queue, so listeners hear it after start()
// has returned. start() always answers true; failures are only logged.
//
// Plug-in code is foreign: an exception escaping one of its operations is caught, logged at level 4
// ("plugin <name> threw from <operation>: <what>") and counts as NO.
//
// Threads: load, start and stop from one thread at a time, the main thread of a client; plug-ins are called
// on that thread. pluginInstances() may be read from any thread. Nothing is called back later.
//
// Lifetime: the plug-in objects live as long as someone holds them (the platform, or a caller of
// pluginInstances()); their libraries stay loaded for the life of the process. The event centre and the
// log must outlive the platform.
#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "nbbase/core/NBEventCenter.h"
#include "nbbase/core/NBPluginProtocol.h"
#include "nbbase/foundation/MainBundle.h"
#include "nbbase/foundation/NBLog.h"

namespace nb {

class NBCorePlatform {
public:
    static constexpr char kPluginExtension[] = ".nbp";

    explicit NBCorePlatform(std::filesystem::path plugInsFolder = MainBundle::main()->builtInPlugInsPath(),
                            NBEventCenter& eventCenter = NBEventCenter::sharedInstance(),
                            NBLog& log = NBLog::sharedInstance());
    NBCorePlatform(const NBCorePlatform&) = delete;
    NBCorePlatform& operator=(const NBCorePlatform&) = delete;

    // loadAllPlugins, startAllPlugins, then the start event. Always true.
    bool start();
    // stopAllPlugins.
    void stop();

    void loadAllPlugins();
    void startAllPlugins();
    void stopAllPlugins();

    // True when the class declares NBPluginProtocol at this library's version and can be instantiated.
    bool validatePluginClass(const NBPluginClass* pluginClass) const;
    // Why validatePluginClass() refuses the class; "" when it accepts it.
    static std::string pluginClassProblem(const NBPluginClass* pluginClass);

    std::vector<std::filesystem::path> allPluginPaths() const;
    // What allPluginPaths() answers for any folder; for tools that inspect one.
    static std::vector<std::filesystem::path> pluginPathsInFolder(const std::filesystem::path& folder);

    // A snapshot of the plug-in objects created so far, in load order.
    std::vector<std::shared_ptr<NBPluginProtocol>> pluginInstances() const;
    const std::filesystem::path& plugInsFolder() const noexcept { return folder_; }

private:
    // Runs one plug-in operation; an exception counts as false and is logged.
    template <typename Operation>
    bool guarded(NBPluginProtocol& plugin, const char* operation, Operation&& call);
    std::string nameOf(NBPluginProtocol& plugin);

    const std::filesystem::path folder_;
    NBEventCenter& eventCenter_;
    NBLog& log_;

    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<NBPluginProtocol>> plugins_;  // guarded by mutex_
};

}  // namespace nb
