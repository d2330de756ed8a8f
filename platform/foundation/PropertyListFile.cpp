#include "nbbase/foundation/PropertyListFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <string_view>
#include <utility>

#include "nbbase/foundation/PropertyList.h"

namespace nb {
namespace {

std::chrono::nanoseconds sinceEpoch(const timespec& t) {
    return std::chrono::seconds(t.tv_sec) + std::chrono::nanoseconds(t.tv_nsec);
}

bool isReadable(const struct stat& info) {
    return S_ISREG(info.st_mode) && info.st_size >= 0 &&
           static_cast<std::uintmax_t>(info.st_size) <= PropertyList::kMaxFileSize;
}

// Closes on every path out of readAndParse.
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

// nullopt on a read error or when the file grew past the limit while we read it.
std::optional<std::string> readAll(int fd) {
    std::string bytes;
    char buffer[16384];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n > 0) {
            bytes.append(buffer, static_cast<std::size_t>(n));
            if (bytes.size() > PropertyList::kMaxFileSize) return std::nullopt;
        } else if (n == 0) {
            return bytes;
        } else if (errno != EINTR) {
            return std::nullopt;
        }
    }
}

}  // namespace

PropertyListFile::PropertyListFile(std::filesystem::path path, const Clock& clock)
    : path_(std::move(path)), clock_(clock) {}

PropertyListFile::Identity PropertyListFile::identityOf(const struct ::stat& info) {
#ifdef __APPLE__
    const timespec& modified = info.st_mtimespec;
    const timespec& changed = info.st_ctimespec;
#else
    const timespec& modified = info.st_mtim;
    const timespec& changed = info.st_ctim;
#endif
    return Identity{static_cast<std::uint64_t>(info.st_dev), static_cast<std::uint64_t>(info.st_ino),
                    static_cast<std::int64_t>(info.st_size), sinceEpoch(modified), sinceEpoch(changed)};
}

std::optional<PropertyListFile::Identity> PropertyListFile::identityAtPath() const {
    // stat, not lstat: open() follows links, and a link's own times say nothing about its target's bytes.
    struct stat info {};
    if (::stat(path_.c_str(), &info) != 0 || !isReadable(info)) return std::nullopt;
    return identityOf(info);
}

std::shared_ptr<const Value> PropertyListFile::read() const {
    const std::optional<Identity> now = identityAtPath();
    {
        std::lock_guard lock(mutex_);
        if (now && entry_ && entry_->identity == *now) return entry_->root;
        // A file that is gone or changed will not come back as it was: its change time moved on.
        entry_.reset();
    }
    return now ? readAndParse() : nullptr;
}

std::shared_ptr<const Value> PropertyListFile::readAndParse() const {
    // Taken before the open, so that any later write to the file is stamped at or after this moment.
    const Clock::WallTime began = clock_.now();
    // O_NONBLOCK: a FIFO swapped in after the stat must not hold the open either.
    const Descriptor fd(::open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (fd.get() < 0) return nullptr;
    // The identity of the bytes about to be read, from the descriptor: the path may already name another
    // file. A write after this fstat moves the change time, so the next read() parses again.
    struct stat info {};
    if (::fstat(fd.get(), &info) != 0 || !isReadable(info)) return nullptr;
    const Identity identity = identityOf(info);
    const std::optional<std::string> bytes = readAll(fd.get());
    if (!bytes) return nullptr;
    auto root = std::make_shared<const Value>(PropertyList::read(std::string_view(*bytes)));

    const auto newest = std::max(identity.modified, identity.changed);
    const auto trustedBefore = std::chrono::duration_cast<std::chrono::nanoseconds>(
        (began - kRacyWindow).time_since_epoch());
    if (newest < trustedBefore) {
        std::lock_guard lock(mutex_);
        entry_ = Entry{identity, root};
    }
    return root;
}

}  // namespace nb
