#include "nbbase/foundation/Folders.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using nb::Folders;
using Env = Folders::Environment;
using Location = Folders::Location;

struct ResolutionCase {
    const char* name;
    Env environment;
    Folders::Layout layout;
    std::optional<std::string> accountHome;  // what the password database answers
    std::string home, documents, caches, preferences;
};

class FoldersResolution : public testing::TestWithParam<ResolutionCase> {};

TEST_P(FoldersResolution, ResolvesEachFolder) {
    const ResolutionCase& c = GetParam();
    const auto account = c.accountHome;
    Folders folders(c.environment, c.layout, [account] { return account; });
    EXPECT_EQ(folders.homeFolder(), c.home);
    EXPECT_EQ(folders.documentsFolder(), c.documents);
    EXPECT_EQ(folders.cachesFolder(), c.caches);
    EXPECT_EQ(folders.preferencesFolder(), c.preferences);
}

constexpr auto kXdg = Folders::Layout::Xdg;
constexpr auto kMac = Folders::Layout::MacOS;
const std::optional<std::string> kUnset;

INSTANTIATE_TEST_SUITE_P(
    Table, FoldersResolution,
    testing::Values(
        ResolutionCase{"XdgUnset", Env{"/home/u", kUnset, kUnset, kUnset}, kXdg, "/passwd",
                       "/home/u", "/home/u/Documents", "/home/u/.cache", "/home/u/.config"},
        ResolutionCase{"XdgEmptyMeansUnset", Env{"/home/u", "", "", ""}, kXdg, "/passwd",
                       "/home/u", "/home/u/Documents", "/home/u/.cache", "/home/u/.config"},
        ResolutionCase{"XdgRelativeIgnored", Env{"/home/u", "cfg", "./cache", "~/Docs"}, kXdg, "/passwd",
                       "/home/u", "/home/u/Documents", "/home/u/.cache", "/home/u/.config"},
        ResolutionCase{"XdgAbsoluteWins", Env{"/home/u", "/x/cfg", "/x/cache", "/x/docs"}, kXdg, "/passwd",
                       "/home/u", "/x/docs", "/x/cache", "/x/cfg"},
        ResolutionCase{"PathsNormalised", Env{"/home//u/", "/x/./cfg/", "/x//cache//", "/x/a/../docs"}, kXdg,
                       "/passwd", "/home/u", "/x/docs", "/x/cache", "/x/cfg"},
        ResolutionCase{"HomeIsRoot", Env{"/", kUnset, kUnset, kUnset}, kXdg, "/passwd",
                       "/", "/Documents", "/.cache", "/.config"},
        ResolutionCase{"HomeUnsetUsesPasswd", Env{kUnset, kUnset, kUnset, kUnset}, kXdg, "/var/lib/svc",
                       "/var/lib/svc", "/var/lib/svc/Documents", "/var/lib/svc/.cache", "/var/lib/svc/.config"},
        ResolutionCase{"HomeEmptyUsesPasswd", Env{"", kUnset, kUnset, kUnset}, kXdg, "/var/lib/svc",
                       "/var/lib/svc", "/var/lib/svc/Documents", "/var/lib/svc/.cache", "/var/lib/svc/.config"},
        ResolutionCase{"HomeRelativeUsesPasswd", Env{"home/u", kUnset, kUnset, kUnset}, kXdg, "/var/lib/svc",
                       "/var/lib/svc", "/var/lib/svc/Documents", "/var/lib/svc/.cache", "/var/lib/svc/.config"},
        ResolutionCase{"NoHomeAnywhere", Env{kUnset, kUnset, "/x/cache", kUnset}, kXdg, kUnset,
                       "", "", "/x/cache", ""},
        ResolutionCase{"PasswdRelativeIgnored", Env{kUnset, kUnset, kUnset, kUnset}, kXdg, "relative",
                       "", "", "", ""},
        ResolutionCase{"MacLibraryFolders", Env{"/Users/u", kUnset, "", "rel"}, kMac, "/passwd",
                       "/Users/u", "/Users/u/Documents", "/Users/u/Library/Caches", "/Users/u/Library/Preferences"},
        ResolutionCase{"MacHonoursXdg", Env{"/Users/u", "/x/cfg", kUnset, kUnset}, kMac, "/passwd",
                       "/Users/u", "/Users/u/Documents", "/Users/u/Library/Caches", "/x/cfg"}),
    [](const testing::TestParamInfo<ResolutionCase>& info) { return std::string(info.param.name); });

class FoldersOnDisk : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern = testing::TempDir() + "nbbase-folders-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        root_ = pattern;
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(root_, ignored);
    }
    static unsigned modeOf(const fs::path& path) {
        struct stat info {};
        EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
        return info.st_mode & 07777;
    }
    Folders foldersWithHome(const fs::path& home, std::optional<std::string> config = std::nullopt) const {
        return Folders(Env{home.string(), std::move(config), std::nullopt, std::nullopt}, Folders::Layout::Xdg,
                       [] { return std::optional<std::string>(); });
    }

    fs::path root_;
};

TEST_F(FoldersOnDisk, GettersCreateNothing) {
    const Folders folders = foldersWithHome(root_ / "home");
    EXPECT_EQ(folders.preferencesFolder(), (root_ / "home" / ".config").string());
    EXPECT_FALSE(fs::exists(root_ / "home"));
}

TEST_F(FoldersOnDisk, EnsureCreatesEveryMissingLevelPrivately) {
    const fs::path config = root_ / "a" / "b" / "config";
    const Folders folders = foldersWithHome(root_ / "home", config.string());
    ASSERT_TRUE(folders.ensure(Location::Preferences));
    // The umask can only take bits away, so nothing beyond the owner's may appear on any created level.
    for (const fs::path& level : {root_ / "a", root_ / "a" / "b", config}) {
        EXPECT_TRUE(fs::is_directory(level)) << level;
        EXPECT_EQ(modeOf(level) & 077u, 0u) << level;
        EXPECT_EQ(modeOf(level) & 0700u, 0700u) << level;
    }
    ASSERT_TRUE(folders.ensure(Location::Caches));
    EXPECT_EQ(modeOf(root_ / "home" / ".cache") & 077u, 0u);
    ASSERT_TRUE(folders.ensure(Location::Documents));
    EXPECT_EQ(modeOf(root_ / "home" / "Documents") & 0755u, modeOf(root_ / "home" / "Documents") & 0777u);
}

TEST_F(FoldersOnDisk, EnsureKeepsExistingFolderAndItsMode) {
    const fs::path config = root_ / "home" / ".config";
    fs::create_directories(config);
    ASSERT_EQ(::chmod(config.c_str(), 0750), 0);
    std::ofstream(config / "keep") << "x";
    ASSERT_TRUE(foldersWithHome(root_ / "home").ensure(Location::Preferences));
    EXPECT_EQ(modeOf(config), 0750u);
    EXPECT_TRUE(fs::exists(config / "keep"));
}

TEST_F(FoldersOnDisk, EnsureFailsWhenAFileIsInTheWay) {
    fs::create_directories(root_ / "home");
    std::ofstream(root_ / "home" / ".config") << "not a folder";
    EXPECT_FALSE(foldersWithHome(root_ / "home").ensure(Location::Preferences));

    std::ofstream(root_ / "blocker") << "file";
    EXPECT_FALSE(Folders::createFolder((root_ / "blocker" / "below").string(), 0700));
    EXPECT_FALSE(fs::exists(root_ / "blocker" / "below"));
}

TEST_F(FoldersOnDisk, EnsureFailsWithoutAnAbsolutePath) {
    const Folders homeless(Env{}, Folders::Layout::Xdg, [] { return std::optional<std::string>(); });
    EXPECT_FALSE(homeless.ensure(Location::Documents));
    EXPECT_FALSE(Folders::createFolder("", 0700));
    EXPECT_FALSE(Folders::createFolder("relative/folder", 0700));
    EXPECT_FALSE(fs::exists("relative"));
}

}  // namespace
