#include "TempDir.h"
#include "nbbase/core/NBFileManager.h"

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using nb::Data;
using nb::NBFileManager;

// Moves the process into a folder for one test and back out however the test ends, so tests that rely on
// relative paths elsewhere in this binary are not disturbed.
class CurrentFolder {
public:
    explicit CurrentFolder(const fs::path& folder) : previous_(fs::current_path()) { fs::current_path(folder); }
    ~CurrentFolder() {
        std::error_code ignored;
        fs::current_path(previous_, ignored);
    }
    CurrentFolder(const CurrentFolder&) = delete;
    CurrentFolder& operator=(const CurrentFolder&) = delete;

private:
    fs::path previous_;
};

bool isEmptyFolder(const fs::path& folder) { return fs::is_directory(folder) && fs::is_empty(folder); }

class NBFileManagerTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_FALSE(root_.empty()); }

    nbtest::TempDir dir_{"nbbase-files"};
    const fs::path root_ = dir_.path();
    const fs::path documents_ = root_ / "Documents";
};

TEST_F(NBFileManagerTest, CreationMakesDocumentsThenGamesAndLogsButNeverMissingParents) {
    const NBFileManager manager(documents_.string());
    EXPECT_EQ(manager.gamesFolderPath(), (documents_ / "Games").string());
    EXPECT_EQ(manager.getLogFolder(), (documents_ / "Logs").string());
    EXPECT_TRUE(fs::is_directory(documents_ / "Games"));
    EXPECT_TRUE(fs::is_directory(documents_ / "Logs"));

    // An existing layout is left as it is.
    std::ofstream(documents_ / "Games" / "keep") << "x";
    const NBFileManager again(documents_.string());
    EXPECT_TRUE(fs::exists(documents_ / "Games" / "keep"));

    const fs::path orphan = root_ / "missing" / "Documents";
    const NBFileManager withoutParent(orphan.string());
    EXPECT_FALSE(fs::exists(root_ / "missing"));
    EXPECT_EQ(withoutParent.logFolderPath(), (orphan / "Logs").string());
}

TEST_F(NBFileManagerTest, GameIdsAreJoinedAsOneComponentBelowGamesAndTheirFoldersMade) {
    const NBFileManager manager(documents_.string());
    const fs::path games = documents_ / "Games";
    const struct {
        std::string gameId;
        fs::path folder;
    } cases[] = {
        {"123", games / "123"},
        {"456/", games / "456"},
        {"/789", games / "789"},  // an absolute id must not escape the games folder
        {"", games},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE("game id \"" + c.gameId + "\"");
        EXPECT_EQ(manager.getGameFolderPathById(c.gameId), c.folder.string());
        EXPECT_TRUE(fs::is_directory(c.folder));
    }
}

TEST_F(NBFileManagerTest, IconsLiveAtTheVersionPathRelativeToTheCurrentFolderWhateverTheGame) {
    const fs::path work = root_ / "work";
    fs::create_directories(work / "2.1");
    fs::create_directories(work / "dir" / "dir.png");  // a folder where the icon file would be
    const CurrentFolder inside(work);
    const NBFileManager manager(documents_.string());
    const Data bytes{0x89, 'P', 'N', 'G', 0, 0xff};
    const Data newer{'n', 'e', 'w'};

    // Reading makes the icon folder even though no icon is there.
    EXPECT_EQ(manager.readGameIconFileData("7", "2.1"), std::nullopt);
    EXPECT_TRUE(isEmptyFolder(documents_ / "Games" / "7" / "icon"));

    ASSERT_TRUE(manager.writeGameIconFileData("7", "2.1", bytes));
    EXPECT_TRUE(fs::is_regular_file(work / "2.1" / "2.1.png"));
    EXPECT_TRUE(isEmptyFolder(documents_ / "Games" / "7" / "icon"));
    EXPECT_EQ(manager.readGameIconFileData("8", "2.1/"), bytes);
    EXPECT_TRUE(fs::is_directory(documents_ / "Games" / "8" / "icon"));

    ASSERT_TRUE(manager.writeGameIconFileData("9", "2.1", newer));
    EXPECT_EQ(manager.readGameIconFileData("7", "2.1"), newer);
    EXPECT_EQ(std::distance(fs::directory_iterator(work / "2.1"), fs::directory_iterator()), 1)
        << "the write left its temporary file behind";

    // No icon path, or nothing readable at it: a read answers nullopt and a write false, making no folder.
    for (const std::string version : {"", "/", "3.0", "dir"}) {
        SCOPED_TRACE("version \"" + version + "\"");
        EXPECT_EQ(manager.readGameIconFileData("7", version), std::nullopt);
        EXPECT_FALSE(manager.writeGameIconFileData("7", version, bytes));
    }
    EXPECT_FALSE(fs::exists(work / "3.0"));
    EXPECT_TRUE(fs::is_directory(work / "dir" / "dir.png"));
}

TEST_F(NBFileManagerTest, AnUnknownDocumentsFolderGivesRelativePathsAndCreatesNothing) {
    const fs::path work = root_ / "work";
    fs::create_directories(work / "1.0");
    const CurrentFolder inside(work);
    const NBFileManager manager("");
    EXPECT_EQ(manager.gamesFolderPath(), "Games");
    EXPECT_EQ(manager.getLogFolder(), "Logs");
    EXPECT_EQ(manager.getGameFolderPathById("5"), "Games/5");

    const Data bytes{1, 2, 3};
    ASSERT_TRUE(manager.writeGameIconFileData("5", "1.0", bytes));
    EXPECT_EQ(manager.readGameIconFileData("5", "1.0"), bytes);
    EXPECT_FALSE(fs::exists(work / "Games"));
    EXPECT_FALSE(fs::exists(work / "Logs"));
}

}  // namespace
