// Where nbctl finds what it plays and loads: the recorded replies, the images its host serves and the
// sample plug-ins.
//
// An installed nbctl (cmake --install into any prefix, or the nbctl Debian package) finds them where they
// were installed relative to its own executable: <prefix>/share/nbctl/{replies,images} and
// <libdir>/nbctl/PlugIns. Run from the build tree, it uses the source tree's examples/ and the PlugIns
// folder the build puts beside it (the main bundle's plug-in folder). Options such as --replies and
// --plugins still override each default.
//
// Threads: forExecutable() only reads the file system; call it from main() before anything else runs.
#pragma once

#include <filesystem>

namespace nb::nbctl {

struct DataFolders {
    std::filesystem::path replies;
    std::filesystem::path images;
    std::filesystem::path plugIns;

    // The folders for the running executable: the installed ones when the replies are installed beside
    // it, else the build tree's.
    static DataFolders forExecutable();
};

}  // namespace nb::nbctl
