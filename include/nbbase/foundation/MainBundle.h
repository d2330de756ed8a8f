// MainBundle: the host application's identity (identifier, versions, information dictionary) and where
// its plug-ins live.
//
// The process-wide bundle is, in order: the one the host set with setMain(); else the Info.plist beside
// the executable (a property list, XML or binary); else an empty bundle rooted at the executable's
// folder. Tests build their own bundles and pass them to the classes they test.
//
// Threads: every function may be called on any thread. A MainBundle is immutable once built.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "nbbase/foundation/Value.h"

namespace nb {

class MainBundle {
public:
    // infoDictionary that is not a dictionary is treated as an empty one.
    MainBundle(Value infoDictionary, std::filesystem::path bundlePath);

    // Reads folder/Info.plist. nullptr when the file is missing or is not a dictionary property list.
    static std::shared_ptr<const MainBundle> fromFolder(const std::filesystem::path& folder);

    static std::shared_ptr<const MainBundle> main();
    // Replaces the process-wide bundle; nullptr goes back to the one found beside the executable.
    static void setMain(std::shared_ptr<const MainBundle> bundle);

    const Value& infoDictionary() const noexcept { return info_; }
    // Absent when the key is missing.
    const Value& objectForInfoDictionaryKey(std::string_view key) const noexcept { return info_[key]; }

    // "CFBundleIdentifier", "CFBundleShortVersionString" and "CFBundleVersion"; "" when missing.
    std::string bundleIdentifier() const;
    std::string shortVersionString() const;
    std::string bundleVersion() const;

    // "CFBundleExecutable", else the name of the running executable.
    std::string executableName() const;

    const std::filesystem::path& bundlePath() const noexcept { return path_; }
    std::filesystem::path builtInPlugInsPath() const { return path_ / "PlugIns"; }

private:
    Value info_;
    std::filesystem::path path_;
};

}  // namespace nb
