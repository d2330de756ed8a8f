// NBPluginBundle: one plug-in folder, opened and, when asked, its code loaded.
//
// Layout of a plug-in (examples/plugins/README.md walks through it):
//
//     Greeter.nbp/                 the folder; its extension must be exactly "nbp"
//         Info.plist               a property list (XML or binary) with a dictionary root:
//                                    "NSPrincipalClass"    the principal class's name, a C identifier
//                                    "CFBundleExecutable"  the shared library, a path inside the folder
//                                    "CFBundleIdentifier"  optional, shown by tools
//         Greeter.so               the shared library (any file name; the one Info.plist names)
//
// Loading: principalClass() opens the library with dlopen (RTLD_NOW | RTLD_LOCAL) and calls the entry point
// NBPluginClass_<NSPrincipalClass> (see NBPluginProtocol.h). A loaded library is never unloaded, as bundle
// code never is: objects of its classes may live as long as the process, and their code must stay mapped.
// Loading runs the library's static initialisers, so it trusts the plug-in as much as starting it would.
//
// Failure: bundleWithPath() answers null when the path is not a folder. principalClass() answers null when
// the class cannot be had, and loadError() then says why, in English, for a log line: Info.plist missing or
// not a dictionary, a key missing or malformed, a library outside the folder, dlopen's or dlsym's own text
// (dlerror), or an entry point that answered nothing. The class itself is not checked here: that is
// NBCorePlatform::validatePluginClass.
//
// Threads: any thread. principalClass() loads once; concurrent callers wait for that one load.
#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>

#include "nbbase/core/NBPluginProtocol.h"
#include "nbbase/foundation/Value.h"

namespace nb {

class NBPluginBundle {
public:
    static constexpr char kInfoFileName[] = "Info.plist";

    // Reads Info.plist when there is one (a missing or bad one is reported by principalClass()).
    static std::shared_ptr<NBPluginBundle> bundleWithPath(const std::filesystem::path& path);

    const std::filesystem::path& bundlePath() const noexcept { return path_; }
    // An empty dictionary when Info.plist is missing or not a dictionary property list.
    const Value& infoDictionary() const noexcept { return info_; }

    // The principal class, loading the library on the first call; null on failure (see loadError()).
    const NBPluginClass* principalClass();
    // "" until a load has failed.
    std::string loadError() const;

    NBPluginBundle(std::filesystem::path path, Value info, std::string infoError);

private:
    const NBPluginClass* load();

    const std::filesystem::path path_;
    const Value info_;
    const std::string infoError_;  // why Info.plist is unusable; "" when it was read

    mutable std::mutex mutex_;
    bool loaded_ = false;                       // guarded by mutex_
    const NBPluginClass* class_ = nullptr;      // guarded by mutex_
    std::string error_;                         // guarded by mutex_
};

}  // namespace nb
