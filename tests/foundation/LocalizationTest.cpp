#include "TempDir.h"
#include "nbbase/foundation/Localization.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/foundation/ChildProcess.h"

namespace {

namespace fs = std::filesystem;
using nb::Localization;

const char* const kUnknown = "Unknown error occurred";
const char* const kFormat = "Error Code:%ld-%ld-%ld";
const char* const kUntranslated = "A text no catalogue translates";
const std::vector<std::string> kEnglish = {kUnknown, kFormat, kUntranslated, ""};
const std::vector<std::string> kChinese = {"发生未知错误", "错误码:%ld-%ld-%ld", kUntranslated, ""};

// The folder rule is pure file-system inspection, so every branch is checked in process.
TEST(LocalizationDirectory, ChoosesOverrideThenInstalledCatalogueThenBuildTree) {
    nbtest::TempDir temp;
    ASSERT_FALSE(temp.path().empty());
    const std::string installed = (temp.path() / "installed").string(), other = (temp.path() / "other").string(),
                      empty = (temp.path() / "empty").string(), missing = (temp.path() / "missing").string(),
                      build = (temp.path() / "build").string();
    for (const auto& [dir, domain] : {std::pair{installed, "NBBase"}, {other, "SomethingElse"}}) {
        fs::create_directories(fs::path(dir) / "zh_CN" / "LC_MESSAGES");
        std::ofstream(fs::path(dir) / "zh_CN" / "LC_MESSAGES" / (std::string(domain) + ".mo")) << "x";
    }
    fs::create_directories(empty);

    // An explicit choice wins even if absent; an empty one is none; with no build tree, bind the installed one.
    const struct {
        std::optional<std::string> override;
        std::string installed, build, expected;
    } cases[] = {{"/explicit", installed, build, "/explicit"}, {"", installed, build, installed},
                 {std::nullopt, installed, build, installed},  {std::nullopt, other, build, build},
                 {std::nullopt, empty, build, build},          {std::nullopt, missing, build, build},
                 {std::nullopt, missing, "", missing}};
    for (const auto& c : cases) {
        EXPECT_EQ(Localization::chooseDirectory({c.override, c.installed, c.build}, "NBBase"), c.expected)
            << "override=" << c.override.value_or("(unset)") << " installed=" << c.installed;
    }
}

TEST(LocalizationDirectory, LookupsFallBackToTheIdAndRaceSafelyWithRebinding) {
    // A domain of its own, so the library's binding for the rest of the suite is untouched.
    Localization localization("NBBaseLocalizationThreads", {std::nullopt, "/nowhere/installed", "/nowhere/build"});
    EXPECT_EQ(localization.localeDirectory(), "/nowhere/build");
    EXPECT_EQ(localization.localizedString(""), "");
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                if (localization.localizedString(kUnknown) != kUnknown) wrong.fetch_add(1);
            }
        });
    }
    threads.emplace_back([&] {
        for (int i = 0; i < 50; ++i) localization.setLocaleDirectory(i % 2 ? "/nowhere/a" : "/nowhere/b");
    });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(localization.localeDirectory(), "/nowhere/a");
}

// nbtest_localization's translations of kEnglish in this environment minus every locale variable, plus `extra`.
std::vector<std::string> translated(const std::vector<std::string>& extra, bool callSetlocale = true) {
    std::vector<std::string> arguments = kEnglish;
    if (!callSetlocale) arguments.insert(arguments.begin(), "--no-setlocale");
    return nb::test::ChildProcess::runInLocale("nbtest_localization", arguments, extra);
}

// The zh_CN locale is seldom generated on build machines; C.UTF-8 is built into glibc and, unlike "C",
// lets gettext honour LANGUAGE, so it is how a real process reaches the Chinese catalogue here.
TEST(LocalizationInChild, FollowsTheProcessLocale) {
    const std::vector<std::string> chinese = {"LC_ALL=C.UTF-8", "LANGUAGE=zh_CN"};
    EXPECT_EQ(translated({"LC_ALL=C.UTF-8"}), kEnglish);
    EXPECT_EQ(translated(chinese), kChinese);
    EXPECT_EQ(translated({"LANG=C.UTF-8", "LANGUAGE=zh_CN:en"}), kChinese);
    EXPECT_EQ(translated(chinese, false), kEnglish) << "the library must leave the locale to its host";

    nbtest::TempDir withCatalogue, withoutCatalogue;
    ASSERT_FALSE(withCatalogue.path().empty() || withoutCatalogue.path().empty());
    const fs::path built = fs::path(NBBASE_BUILD_LOCALEDIR) / "zh_CN" / "LC_MESSAGES" / "NBBase.mo";
    ASSERT_TRUE(fs::exists(built)) << "the nbbase_translations target did not produce " << built;
    fs::create_directories(withCatalogue.path() / "zh_CN" / "LC_MESSAGES");
    fs::copy_file(built, withCatalogue.path() / "zh_CN" / "LC_MESSAGES" / "NBBase.mo");
    for (const auto& [folder, expected] : {std::pair{&withCatalogue, kChinese}, {&withoutCatalogue, kEnglish}}) {
        std::vector<std::string> environment = chinese;
        environment.push_back("NBBASE_LOCALEDIR=" + folder->path().string());
        EXPECT_EQ(translated(environment), expected);
    }
}

}  // namespace
