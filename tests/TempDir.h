// A unique folder of the test's own under the system's temporary folder, removed with everything in it
// when the object goes away, so no test sees another's files.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

namespace nbtest {

class TempDir {
public:
    explicit TempDir(std::string_view prefix = "nbbase") {
        std::string pattern = (std::filesystem::temp_directory_path() / (std::string(prefix) + "-XXXXXX")).string();
        if (::mkdtemp(pattern.data()) != nullptr) path_ = pattern;
    }
    ~TempDir() {
        std::error_code ignored;
        if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    // Empty when the folder could not be made.
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

}  // namespace nbtest
