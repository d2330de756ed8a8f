#include "TempDir.h"
#include "nbbase/foundation/Folders.h"

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
constexpr auto kXdg = Folders::Layout::Xdg, kMac = Folders::Layout::MacOS;
const std::optional<std::string> kUnset;

TEST(Folders, ResolvesFromHomeXdgAndThePasswordDatabase) {
    // Environment is HOME, XDG_CONFIG_HOME, XDG_CACHE_HOME, XDG_DOCUMENTS_DIR; `account` is what the
    // password database answers. Expected: home, documents, caches, preferences.
    const struct {
        Env env;
        Folders::Layout layout;
        std::optional<std::string> account;
        std::string home, documents, caches, preferences;
    } cases[] = {
        {{"/h", kUnset, kUnset, kUnset}, kXdg, "/pw", "/h", "/h/Documents", "/h/.cache", "/h/.config"},
        {{"/h", "", "", ""}, kXdg, "/pw", "/h", "/h/Documents", "/h/.cache", "/h/.config"},
        {{"/h", "cfg", "./cache", "~/Docs"}, kXdg, "/pw", "/h", "/h/Documents", "/h/.cache", "/h/.config"},
        {{"/h", "/x/cfg", "/x/cache", "/x/docs"}, kXdg, "/pw", "/h", "/x/docs", "/x/cache", "/x/cfg"},
        {{"/h//u/", "/x/./cfg/", "/x//cache//", "/x/a/../docs"}, kXdg, "/pw", "/h/u", "/x/docs", "/x/cache", "/x/cfg"},
        {{"/", kUnset, kUnset, kUnset}, kXdg, "/pw", "/", "/Documents", "/.cache", "/.config"},
        {{kUnset, kUnset, kUnset, kUnset}, kXdg, "/s", "/s", "/s/Documents", "/s/.cache", "/s/.config"},
        {{"", kUnset, kUnset, kUnset}, kXdg, "/s", "/s", "/s/Documents", "/s/.cache", "/s/.config"},
        {{"home/u", kUnset, kUnset, kUnset}, kXdg, "/s", "/s", "/s/Documents", "/s/.cache", "/s/.config"},
        {{kUnset, kUnset, "/x/cache", kUnset}, kXdg, kUnset, "", "", "/x/cache", ""},
        {{kUnset, kUnset, kUnset, kUnset}, kXdg, "relative", "", "", "", ""},
        {{"/U", kUnset, "", "rel"}, kMac, "/pw", "/U", "/U/Documents", "/U/Library/Caches", "/U/Library/Preferences"},
        {{"/U", "/x/cfg", kUnset, kUnset}, kMac, "/pw", "/U", "/U/Documents", "/U/Library/Caches", "/x/cfg"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("HOME=" + c.env.home.value_or("(unset)") + " account=" + c.account.value_or("(none)"));
        const auto account = c.account;
        const Folders folders(c.env, c.layout, [account] { return account; });
        EXPECT_EQ(folders.homeFolder(), c.home);
        EXPECT_EQ(folders.documentsFolder(), c.documents);
        EXPECT_EQ(folders.cachesFolder(), c.caches);
        EXPECT_EQ(folders.preferencesFolder(), c.preferences);
    }
}

class FoldersOnDisk : public testing::Test {
protected:
    void SetUp() override { ASSERT_FALSE(root_.empty()); }
    static unsigned modeOf(const fs::path& path) {
        struct stat info {};
        EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
        return info.st_mode & 07777;
    }
    Folders foldersWithHome(std::optional<std::string> config = std::nullopt) const {
        return Folders(Env{(root_ / "home").string(), std::move(config), kUnset, kUnset}, kXdg, [] { return kUnset; });
    }

    nbtest::TempDir dir_{"nbbase-folders"};
    const fs::path root_ = dir_.path();
};

TEST_F(FoldersOnDisk, DocumentsComeFromTheUserDirsFileWhenTheEnvironmentDoesNotSay) {
    // `file` is the content of user-dirs.dirs in the preferences folder (nullopt: no file); a leading "~" in
    // `documents` stands for the home folder.
    const std::string home = (root_ / "home").string();
    const std::string config = (root_ / "cfg").string();
    fs::create_directories(config);
    const struct {
        std::optional<std::string> file;
        std::optional<std::string> xdgDocumentsDir;
        Folders::Layout layout = kXdg;
        bool homeKnown = true;
        std::string documents;
    } cases[] = {
        {kUnset, kUnset, kXdg, true, "~/Documents"},
        {"# written by the tool\nXDG_DESKTOP_DIR=\"$HOME/Desktop\"\nXDG_DOCUMENTS_DIR=\"$HOME/Dokumente\"\n",
         kUnset, kXdg, true, "~/Dokumente"},
        {"XDG_DOCUMENTS_DIR=\"/srv//docs/\"", kUnset, kXdg, true, "/srv/docs"},
        {"XDG_DOCUMENTS_DIR=\"$HOME/\"", kUnset, kXdg, true, "~"},
        {"  XDG_DOCUMENTS_DIR =\t\"$HOME/a b\" # trailing words\r\n", kUnset, kXdg, true, "~/a b"},
        {R"(XDG_DOCUMENTS_DIR="$HOME/q\"\\\$\`\n")", kUnset, kXdg, true, R"(~/q"\$`\n)"},
        // The last well-formed line wins; malformed ones after it do not reset it.
        {"XDG_DOCUMENTS_DIR=\"$HOME/first\"\nXDG_DOCUMENTS_DIR=\"$HOME/second\"\n"
         "XDG_DOCUMENTS_DIR=\"relative\"\nXDG_DOCUMENTS_DIR=$HOME/unquoted\nXDG_DOCUMENTS_DIR=\"$HOMEX/x\"\n"
         "XDG_DOCUMENTS_DIR=\"$HOME/unterminated\nXDG_DOCUMENTS_DIRS=\"/other\"\n#XDG_DOCUMENTS_DIR=\"/c\"\n",
         kUnset, kXdg, true, "~/second"},
        {"XDG_DOCUMENTS_DIR=\"/from/file\"", "/from/env", kXdg, true, "/from/env"},
        {"XDG_DOCUMENTS_DIR=\"/from/file\"", "relative/env", kXdg, true, "/from/file"},
        {"XDG_DOCUMENTS_DIR=\"/from/file\"", kUnset, kMac, true, "~/Documents"},
        {"XDG_DOCUMENTS_DIR=\"$HOME/Docs\"", kUnset, kXdg, false, ""},
        {"XDG_DOCUMENTS_DIR=\"/from/file\"", kUnset, kXdg, false, "/from/file"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("file: " + c.file.value_or("(none)"));
        fs::remove(fs::path(config) / "user-dirs.dirs");
        if (c.file) std::ofstream(fs::path(config) / "user-dirs.dirs") << *c.file;
        const Folders folders(Env{c.homeKnown ? std::optional(home) : kUnset, config, kUnset, c.xdgDocumentsDir},
                              c.layout, [] { return kUnset; });
        const std::string expected = c.documents.starts_with("~") ? home + c.documents.substr(1) : c.documents;
        EXPECT_EQ(folders.documentsFolder(), expected);
    }
}

TEST_F(FoldersOnDisk, OnlyEnsureCreatesAndItCreatesEveryMissingLevelPrivately) {
    const fs::path config = root_ / "a" / "b" / "config";
    const Folders folders = foldersWithHome(config.string());
    EXPECT_EQ(folders.preferencesFolder(), config.string());
    EXPECT_FALSE(fs::exists(root_ / "a"));
    ASSERT_TRUE(folders.ensure(Location::Preferences));
    // The umask can only take bits away, so nothing beyond the owner's may appear on any created level.
    for (const fs::path& level : {root_ / "a", root_ / "a" / "b", config}) {
        EXPECT_TRUE(fs::is_directory(level)) << level;
        EXPECT_EQ(modeOf(level) & 0777u, 0700u) << level;
    }
    ASSERT_TRUE(folders.ensure(Location::Caches));
    EXPECT_EQ(modeOf(root_ / "home" / ".cache") & 077u, 0u);
}

TEST_F(FoldersOnDisk, EnsureKeepsAnExistingFolderAndFailsOnAFileOrWithoutAnAbsolutePath) {
    const fs::path config = root_ / "home" / ".config";
    fs::create_directories(config);
    ASSERT_EQ(::chmod(config.c_str(), 0750), 0);
    std::ofstream(config / "keep") << "x";
    ASSERT_TRUE(foldersWithHome().ensure(Location::Preferences));
    EXPECT_EQ(modeOf(config), 0750u);
    EXPECT_TRUE(fs::exists(config / "keep"));

    std::ofstream(root_ / "home" / "Documents") << "not a folder";
    EXPECT_FALSE(foldersWithHome().ensure(Location::Documents));
    EXPECT_FALSE(Folders::createFolder((root_ / "home" / "Documents" / "below").string(), 0700));
    EXPECT_FALSE(Folders(Env{}, kXdg, [] { return kUnset; }).ensure(Location::Documents));
    EXPECT_FALSE(Folders::createFolder("", 0700));
    EXPECT_FALSE(Folders::createFolder("relative/folder", 0700));
    EXPECT_FALSE(fs::exists("relative"));
}

}  // namespace
