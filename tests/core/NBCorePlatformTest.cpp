#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "nbbase/NBConstants.h"
#include "nbbase/core/NBCorePlatform.h"
#include "tests/LogLines.h"
#include "tests/TempDir.h"

namespace nb {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

// The tests' plug-ins (tests/plugins) write every call to the process-wide log, so the platform logs there
// too and one handler sees both, in order.
class NBCorePlatformTest : public testing::Test {
protected:
    void SetUp() override {
        token_ = events_.addEventListenerForName(NIMBO_EVENT_APP_STARTED, nullptr, nullptr,
                                                 [this](const Notification& event) {
                                                     EXPECT_EQ(event.object, nullptr);
                                                     ++started_;
                                                 });
    }
    void TearDown() override { events_.removeListener(token_); }
    Lines take() { return log_.take(); }
    static Lines names(const NBCorePlatform& platform) {
        Lines result;
        for (const auto& plugin : platform.pluginInstances()) result.push_back(plugin->name());
        return result;
    }

    nbtest::LogLines log_{&NBLog::sharedInstance()};
    MainQueue queue_;
    NBEventCenter events_{queue_};
    ObserverToken token_;
    int started_ = 0;  // main queue (this thread)
};

TEST_F(NBCorePlatformTest, LoadsTheValidPluginsAndRunsThemInLoadOrder) {
    const fs::path folder = NBBASE_TEST_PLUGINS_DIR;
    NBCorePlatform platform(folder, events_, NBLog::sharedInstance());
    EXPECT_TRUE(platform.start());
    EXPECT_EQ(started_, 0) << "the start event arrives after start returned";
    queue_.drain();
    EXPECT_EQ(started_, 1);

    // The listing order is the file system's, so the expectations follow the order the plug-ins got.
    const Lines loaded = names(platform);
    ASSERT_EQ(loaded.size(), 2u);
    EXPECT_TRUE(std::is_permutation(loaded.begin(), loaded.end(), Lines{"AlphaPlugin", "BetaPlugin"}.begin()));

    // Each refused bundle: its reason, then the fixed line. The ".bundle" folder is never mentioned.
    const std::map<std::string, std::string> reasons = {
        {"NoLibrary.nbp", "cannot load the library: " + (folder / "NoLibrary.nbp/NoLibrary.so").string() +
                              ": cannot open shared object file"},
        {"NotShared.nbp", "cannot load the library: " + (folder / "NotShared.nbp/NotShared.so").string()},
        {"NoEntry.nbp", "no entry point NBPluginClass_NoEntryPlugin: "},
        {"OtherProtocol.nbp", "the class does not declare NBPluginProtocol"},
        {"OldHeader.nbp", "the class was built for NBPluginProtocol version 0, this library speaks version 1"},
    };
    Lines calls;
    std::size_t refused = 0;
    const Lines lines = take();
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i].find("Ignored"), std::string::npos) << lines[i];
        if (lines[i].rfind("4 plugin ", 0) != 0) {
            calls.push_back(lines[i]);
            continue;
        }
        const std::string bundle = fs::path(lines[i].substr(9, lines[i].find(": ") - 9)).filename().string();
        ASSERT_TRUE(reasons.count(bundle)) << lines[i];
        EXPECT_NE(lines[i].find(": " + reasons.at(bundle)), std::string::npos) << lines[i];
        ASSERT_LT(i + 1, lines.size());
        EXPECT_EQ(lines[++i], "4 invalid plugin class");
        ++refused;
    }
    EXPECT_EQ(refused, reasons.size());

    // Beta answers NO to both steps: started all the same, one line per failed step.
    Lines expected;
    for (const std::string& name : loaded) {
        const bool fails = name == "BetaPlugin";
        expected.push_back("2 " + name + " initialize");
        if (fails) expected.push_back("4 failed to initialize plugin: BetaPlugin");
        expected.push_back("2 " + name + " start");
        if (fails) expected.push_back("4 failed to initialize plugin: BetaPlugin");
    }
    EXPECT_EQ(calls, expected);

    platform.stop();
    expected.clear();
    for (const std::string& name : loaded) {
        expected.push_back("2 " + name + " stop");
        expected.push_back("2 " + name + " uninitialize");
    }
    EXPECT_EQ(take(), expected) << "stop before uninitialize, first loaded first";

    // Stopped plug-ins stay listed; a second start appends second instances.
    EXPECT_TRUE(platform.start());
    queue_.drain();
    EXPECT_EQ(started_, 2);
    const Lines twice = names(platform);
    EXPECT_EQ(Lines(twice.begin(), twice.begin() + 2), loaded);
    EXPECT_EQ(Lines(twice.begin() + 2, twice.end()), loaded);
}

TEST_F(NBCorePlatformTest, WithoutAPlugInsFolderStartStillAnnouncesTheStart) {
    nbtest::TempDir home;
    NBCorePlatform platform(home.path() / "PlugIns", events_, NBLog::sharedInstance());
    EXPECT_TRUE(platform.allPluginPaths().empty());
    EXPECT_TRUE(platform.start());
    queue_.drain();
    EXPECT_EQ(started_, 1);
    EXPECT_TRUE(platform.pluginInstances().empty());
    EXPECT_EQ(take(), Lines{});
}

TEST_F(NBCorePlatformTest, ACrowdedFolderWithOddNamesLoadsWhatIsValidAndLogsTheRest) {
    nbtest::TempDir home;
    const fs::path folder = home.path() / "PlugIns";
    fs::create_directories(folder);
    const fs::path alpha = fs::path(NBBASE_TEST_PLUGINS_DIR) / "Alpha.nbp";
    fs::copy(alpha, folder / "Al\xff\x01pha.nbp");
    fs::copy(alpha, folder / "Copy.nbp");
    fs::copy(alpha, folder / "Alpha.NBP");  // the extension is case-sensitive
    std::size_t emptyFolders = 0;
    for (int i = 0; i < 1000; ++i) {
        const std::string name = (i % 2 ? "\xfe\xc0 " : "plain") + std::to_string(i);
        switch (i % 4) {
            case 0: std::ofstream(folder / (name + ".nbp")) << "a file, not a folder"; break;
            case 1: fs::create_directory(folder / (name + ".nbp")), ++emptyFolders; break;
            case 2: fs::create_directory(folder / name); break;
            default: std::ofstream(folder / (name + ".nbp.txt")) << "another kind"; break;
        }
    }

    NBCorePlatform platform(folder, events_, NBLog::sharedInstance());
    EXPECT_EQ(platform.allPluginPaths().size(), 2 + 250 + 250u);
    platform.loadAllPlugins();
    EXPECT_EQ(names(platform), (Lines{"AlphaPlugin", "AlphaPlugin"}));
    const Lines lines = take();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "4 invalid plugin class"), static_cast<long>(emptyFolders));
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& line) { return line.ends_with(": no Info.plist"); }),
              static_cast<long>(emptyFolders));
}

}  // namespace
}  // namespace nb
