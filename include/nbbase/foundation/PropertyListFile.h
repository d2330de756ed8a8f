// nb::PropertyListFile: a property-list file (XML or binary) that is read often and edited rarely, by hand.
// Each read() costs a stat() of the path; the file is read and parsed again only when what stat() says
// about it differs from what it said about the bytes last parsed, so an edit is seen at the next read.
//
// The file's identity is its device, inode, size, and modification and change times to the nanosecond.
// Any write, rename over the path, chmod or utimensat gives a new inode or a new change time, which a
// user cannot set back. Timestamps are coarse on many filesystems though (a jiffy, a second, two on FAT),
// so two edits close together may share them: a parse is therefore only kept when both times were at
// least kRacyWindow older than the clock when the read began. Until then every read parses the file
// again (the "racily clean" rule of version-control indexes).
//
// What counts as readable: a regular file, reached through symbolic links as open() does, of at most
// PropertyList::kMaxFileSize bytes, which this process may open. A FIFO, a socket or a device left at the
// path is refused without blocking. Anything else (missing, a folder, too large, no permission, a read
// error) is "cannot be read".
//
// Threads: read() may be called on any thread at once. The kept parse is an immutable snapshot swapped
// under a lock; a caller holding one keeps it alive and unchanged however the file changes afterwards.
// Two threads that both find the file changed may both parse it; the snapshot they keep is always one
// whose identity matches the bytes parsed, so a stale one is replaced at the next read.
//
// Failure: nothing throws, nothing logs. Lifetime: the clock must outlive the object.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>

#include "nbbase/foundation/Clock.h"
#include "nbbase/foundation/Value.h"

struct stat;

namespace nb {

class PropertyListFile {
public:
    // Covers FAT's two-second modification times; finer filesystems only lose the cache for that long
    // after an edit.
    static constexpr std::chrono::seconds kRacyWindow{2};

    // The clock gives the wall time a read began, to tell a racily clean parse from one that may be kept;
    // it should be the clock the filesystem stamps files with.
    explicit PropertyListFile(std::filesystem::path path, const Clock& clock = Clock::system());
    PropertyListFile(const PropertyListFile&) = delete;
    PropertyListFile& operator=(const PropertyListFile&) = delete;

    const std::filesystem::path& path() const noexcept { return path_; }

    // nullptr when the file cannot be read. Otherwise its root as parsed, of any kind, and absent when the
    // bytes are not a property list. While the file is unchanged and not racily clean, every call answers
    // the very same snapshot.
    [[nodiscard]] std::shared_ptr<const Value> read() const;

private:
    struct Identity {
        std::uint64_t device = 0;
        std::uint64_t inode = 0;
        std::int64_t size = 0;
        std::chrono::nanoseconds modified{0};
        std::chrono::nanoseconds changed{0};
        bool operator==(const Identity&) const = default;
    };
    struct Entry {
        Identity identity;
        std::shared_ptr<const Value> root;
    };

    static Identity identityOf(const struct ::stat& info);
    // The identity of what open() would read, or nullopt when that is not a readable file.
    std::optional<Identity> identityAtPath() const;
    // Reads and parses; nullptr when the file cannot be read. Keeps the parse when it is not racily clean.
    std::shared_ptr<const Value> readAndParse() const;

    const std::filesystem::path path_;
    const Clock& clock_;

    mutable std::mutex mutex_;
    mutable std::optional<Entry> entry_;  // guarded by mutex_; only parses that may be trusted
};

}  // namespace nb
