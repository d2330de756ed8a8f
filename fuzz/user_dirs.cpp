// Any bytes as the user's user-dirs.dirs: the documents folder is always an absolute, normalised path,
// either the file's choice or home/Documents, never empty while the home is known.
#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "nbbase/foundation/Folders.h"

namespace {

namespace fs = std::filesystem;

void check(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "broken: %s\n", what);
        std::abort();
    }
}

// One configuration folder for the whole run, removed at exit.
const fs::path& configFolder() {
    static const fs::path folder = [] {
        std::string pattern = (fs::temp_directory_path() / "fuzz-user-dirs-XXXXXX").string();
        check(::mkdtemp(pattern.data()) != nullptr, "a temporary folder");
        std::atexit([] {
            std::error_code ignored;
            fs::remove_all(configFolder(), ignored);
        });
        return fs::path(pattern);
    }();
    return folder;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    {
        std::ofstream out(configFolder() / "user-dirs.dirs", std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }
    nb::Folders::Environment environment;
    environment.home = "/home/fuzz";
    environment.xdgConfigHome = configFolder().string();
    const nb::Folders folders(environment, nb::Folders::Layout::Xdg);
    const std::string& documents = folders.documentsFolder();
    check(!documents.empty() && documents.front() == '/', "an absolute documents folder");
    check(documents == fs::path(documents).lexically_normal().string(), "a normalised documents folder");
    return 0;
}
