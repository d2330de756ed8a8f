#include "DataFolders.h"

#include <system_error>

#include "nbbase/foundation/MainBundle.h"

namespace nb::nbctl {

DataFolders DataFolders::forExecutable() {
    namespace fs = std::filesystem;
    const fs::path executableFolder = MainBundle::main()->bundlePath();
    const fs::path installedData = (executableFolder / NBCTL_BINDIR_TO_DATA).lexically_normal();
    std::error_code error;
    if (fs::is_directory(installedData / "replies", error)) {
        // A build tree's own PlugIns folder wins, so that a build-tree nbctl never loads an install's plug-ins.
        fs::path plugIns = MainBundle::main()->builtInPlugInsPath();
        if (!fs::is_directory(plugIns, error)) plugIns = (executableFolder / NBCTL_BINDIR_TO_PLUGINS).lexically_normal();
        return {installedData / "replies", installedData / "images", plugIns};
    }
    return {NBCTL_SOURCE_REPLIES, NBCTL_SOURCE_IMAGES, MainBundle::main()->builtInPlugInsPath()};
}

}  // namespace nb::nbctl
