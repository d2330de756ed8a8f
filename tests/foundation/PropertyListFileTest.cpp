#include "nbbase/foundation/PropertyListFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "TempDir.h"
#include "nbbase/foundation/ManualClock.h"
#include "nbbase/foundation/PropertyList.h"

namespace nb {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// Two roots whose XML has the same length, so swapping one for the other keeps the size.
const Value kFirst = Value::dictionary({{"debug", Value::dictionary({{"enable_sdk_log", "0"}})}});
const Value kSecond = Value::dictionary({{"debug", Value::dictionary({{"enable_sdk_log", "1"}})}});

std::string xml(const Value& root) {
    const auto bytes = PropertyList::write(root, PropertyList::Format::Xml);
    return bytes ? std::string(bytes->begin(), bytes->end()) : std::string();
}

Clock::WallTime wallTime(const timespec& t) {
    return Clock::WallTime(std::chrono::duration_cast<Clock::WallTime::duration>(
        std::chrono::seconds(t.tv_sec) + std::chrono::nanoseconds(t.tv_nsec)));
}

class PropertyListFileTest : public testing::Test {
protected:
    void write(const fs::path& path, const Value& root) const {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << xml(root);
    }
    struct stat statOf(const fs::path& path) const {
        struct stat info {};
        EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
        return info;
    }
    // Sets the access and modification times, as a coarse filesystem would show them after a quick edit.
    static void setTimes(const fs::path& path, timespec accessed, timespec modified) {
        const timespec times[2] = {accessed, modified};
        ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    }
    // Makes the file settled: waits until the filesystem's clock (the kernel's coarse one on Linux) has
    // ticked past its change time, so any later change stamps another, then lets an hour pass.
    void settle() {
        const auto changed = wallTime(statOf(path_).st_ctim);
#ifdef CLOCK_REALTIME_COARSE
        const clockid_t filesystemClock = CLOCK_REALTIME_COARSE;
#else
        const clockid_t filesystemClock = CLOCK_REALTIME;
#endif
        const auto giveUp = std::chrono::steady_clock::now() + 30s;
        for (timespec now{}; clock_gettime(filesystemClock, &now) == 0 && wallTime(now) <= changed;) {
            ASSERT_LT(std::chrono::steady_clock::now(), giveUp) << "the filesystem's clock does not move";
            std::this_thread::yield();
        }
        clock_.set(changed + 1h);
    }

    nbtest::TempDir dir_{"nbplistfile"};
    const fs::path path_ = dir_.path() / "config.plist";
    ManualClock clock_;
    PropertyListFile file_{path_, clock_};
};

// Each change keeps the size and the modification time, and the edit in place the inode too. Whether the
// previous parse was kept (settled) or not (racily clean), the change shows at the next read.
TEST_F(PropertyListFileTest, ChangesThatKeepSizeAndModificationTimeAreSeen) {
    ASSERT_EQ(xml(kFirst).size(), xml(kSecond).size());
    for (const bool inPlace : {true, false}) {
        for (const bool settled : {false, true}) {
            SCOPED_TRACE(std::string(inPlace ? "edit in place" : "rename over") + (settled ? ", settled" : ""));
            write(path_, kFirst);
            clock_.set(wallTime(statOf(path_).st_ctim));
            if (settled) settle();
            const auto first = file_.read();
            ASSERT_TRUE(first && *first == kFirst);
            const struct stat before = statOf(path_);
            const fs::path next = inPlace ? path_ : dir_.path() / "next.plist";
            write(next, kSecond);
            setTimes(next, before.st_atim, before.st_mtim);
            if (!inPlace) fs::rename(next, path_);
            EXPECT_EQ(statOf(path_).st_ino == before.st_ino, inPlace);
            const auto second = file_.read();
            EXPECT_TRUE(second && *second == kSecond);
        }
    }
}

// A parse is kept, and the very same snapshot answered, only once both of the file's times are more than
// the racy window older than the clock when the read began. Changing the bytes always moves the change
// time, so a file that is not parsed again shows as the same snapshot rather than as stale bytes.
TEST_F(PropertyListFileTest, OnlySettledParsesAreKept) {
    write(path_, kFirst);
    const auto written = wallTime(statOf(path_).st_ctim);
    const struct {
        const char* name;
        std::chrono::microseconds clock;     // from the change time
        std::chrono::microseconds modified;  // from the write
        bool kept;
    } cases[] = {
        {"just changed", 0s, 0s, false},
        {"at the window's end", PropertyListFile::kRacyWindow, 0s, false},
        {"past the window", PropertyListFile::kRacyWindow + 1us, 0s, true},  // some wall clocks count in µs
        {"modified in the future", 1h, 2h, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const timespec modified{std::chrono::system_clock::to_time_t(written + c.modified), 0};
        setTimes(path_, modified, modified);  // moves the change time to now
        clock_.set(wallTime(statOf(path_).st_ctim) + c.clock);
        const auto first = file_.read();
        const auto second = file_.read();
        ASSERT_TRUE(first && second);
        EXPECT_EQ(*first, kFirst);
        EXPECT_EQ(first == second, c.kept);
    }
}

}  // namespace
}  // namespace nb
