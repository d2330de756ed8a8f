// AtomicFile: replaces a file's content so that a reader (in this process or another, or after a crash)
// finds the old content or the new one, never a part.
//
// The bytes go to a temporary file beside the target (same folder, so the rename stays on one file
// system), are flushed to disk, and the temporary file is renamed over the target. On any failure the
// temporary file is removed and the target is left as it was; the reason is returned.
//
// The new file gets mode 0600 (mkstemp's): these are the user's private caches.
//
// Threads: any thread. Two writers racing on one target both succeed; the later rename wins whole.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace nb {

class AtomicFile {
public:
    // nullopt on success, else why the target was left unchanged.
    [[nodiscard]] static std::optional<std::string> write(const std::filesystem::path& target, std::string_view bytes);
};

}  // namespace nb
