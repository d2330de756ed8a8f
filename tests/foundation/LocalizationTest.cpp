#include "nbbase/foundation/Localization.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

namespace fs = std::filesystem;
using nb::Localization;

const char* const kUnknown = "Unknown error occurred";
const char* const kFormat = "Error Code:%ld-%ld-%ld";
const char* const kUntranslated = "Obtain game";

class TempFolder {
public:
    TempFolder() {
        std::string pattern = testing::TempDir() + "nbbase-locale-XXXXXX";
        if (::mkdtemp(pattern.data()) != nullptr) path_ = pattern;
    }
    ~TempFolder() {
        std::error_code ignored;
        if (!path_.empty()) fs::remove_all(path_, ignored);
    }
    const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

void touchCatalogue(const fs::path& dir, const std::string& language, const std::string& domain) {
    fs::create_directories(dir / language / "LC_MESSAGES");
    std::ofstream(dir / language / "LC_MESSAGES" / (domain + ".mo")) << "x";
}

// The folder rule is pure file-system inspection, so every branch is checked in process.
TEST(LocalizationDirectory, ChoosesOverrideThenInstalledCatalogueThenBuildTree) {
    TempFolder temp;
    ASSERT_FALSE(temp.path().empty());
    const std::string withCatalogue = (temp.path() / "installed").string();
    const std::string otherDomainOnly = (temp.path() / "other").string();
    const std::string emptyFolder = (temp.path() / "empty").string();
    const std::string missing = (temp.path() / "missing").string();
    const std::string build = (temp.path() / "build").string();
    touchCatalogue(withCatalogue, "zh_CN", "NBBase");
    touchCatalogue(otherDomainOnly, "zh_CN", "SomethingElse");
    fs::create_directories(emptyFolder);

    struct Case {
        std::optional<std::string> override;
        std::string installed, build, expected;
    };
    const Case cases[] = {
        {"/explicit", withCatalogue, build, "/explicit"},  // an explicit choice wins even if absent
        {"", withCatalogue, build, withCatalogue},         // an empty override is no override
        {std::nullopt, withCatalogue, build, withCatalogue},
        {std::nullopt, otherDomainOnly, build, build},
        {std::nullopt, emptyFolder, build, build},
        {std::nullopt, missing, build, build},
        {std::nullopt, missing, "", missing},  // no build tree: bind the installed folder anyway
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Localization::chooseDirectory({c.override, c.installed, c.build}, "NBBase"), c.expected)
            << "override=" << c.override.value_or("(unset)") << " installed=" << c.installed;
    }
}

TEST(LocalizationDirectory, SetterOverridesAndRebinds) {
    // A domain of its own, so the library's binding for the rest of the suite is untouched.
    Localization localization("NBBaseLocalizationTest", {std::nullopt, "/nowhere/installed", "/nowhere/build"});
    EXPECT_EQ(localization.localeDirectory(), "/nowhere/build");
    EXPECT_EQ(localization.localizedString(kUntranslated), kUntranslated);
    localization.setLocaleDirectory("/elsewhere");
    EXPECT_EQ(localization.localeDirectory(), "/elsewhere");
    EXPECT_EQ(localization.localizedString(kUnknown), kUnknown);
    EXPECT_EQ(localization.localizedString(""), "");
}

TEST(LocalizationDirectory, FirstLookupsAndRebindingRaceSafely) {
    Localization localization("NBBaseLocalizationThreads", {std::nullopt, "/nowhere/installed", "/nowhere/build"});
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

struct ChildResult {
    int exitCode = -1;
    std::vector<std::string> lines;
};

// Runs nbtest_localization with this process's environment minus every locale variable, plus `extra`.
// posix_spawn with an explicit environment leaves our own environment untouched.
ChildResult runLocalizationTool(const std::map<std::string, std::string>& extra, bool callSetlocale = true) {
    std::vector<std::string> environment;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string variable = *entry;
        const std::string name = variable.substr(0, variable.find('='));
        if (name == "LANG" || name == "LANGUAGE" || name.rfind("LC_", 0) == 0 || name == "NBBASE_LOCALEDIR") continue;
        environment.push_back(variable);
    }
    for (const auto& [name, value] : extra) environment.push_back(name + "=" + value);

    std::vector<std::string> arguments = {std::string(NBBASE_TEST_TOOLS_DIR) + "/nbtest_localization"};
    if (!callSetlocale) arguments.emplace_back("--no-setlocale");
    for (const char* text : {kUnknown, kFormat, kUntranslated, ""}) arguments.emplace_back(text);

    auto pointers = [](std::vector<std::string>& strings) {
        std::vector<char*> result;
        for (auto& s : strings) result.push_back(s.data());
        result.push_back(nullptr);
        return result;
    };
    std::vector<char*> argv = pointers(arguments);
    std::vector<char*> envp = pointers(environment);

    ChildResult result;
    int pipeFds[2];
    if (::pipe(pipeFds) != 0) return result;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, pipeFds[0]);
    posix_spawn_file_actions_addclose(&actions, pipeFds[1]);
    pid_t pid = 0;
    const int spawnError = ::posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipeFds[1]);
    std::string output;
    if (spawnError == 0) {
        char buffer[4096];
        for (ssize_t n; (n = ::read(pipeFds[0], buffer, sizeof buffer)) != 0;) {
            if (n < 0) {
                if (errno == EINTR) continue;
                break;
            }
            output.append(buffer, static_cast<std::size_t>(n));
        }
        int status = 0;
        while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    ::close(pipeFds[0]);
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);) result.lines.push_back(line);
    return result;
}

const std::vector<std::string> kEnglish = {kUnknown, kFormat, kUntranslated, ""};
const std::vector<std::string> kChinese = {"发生未知错误", "错误码:%ld-%ld-%ld", kUntranslated, ""};

struct LanguageCase {
    const char* name;
    std::map<std::string, std::string> environment;
    bool callSetlocale;
    const std::vector<std::string>* expected;
};

class LocalizationInChild : public testing::TestWithParam<LanguageCase> {};

// The zh_CN locale is seldom generated on build machines; C.UTF-8 is built into glibc and, unlike "C",
// lets gettext honour LANGUAGE, so it is how a real process reaches the Chinese catalogue here.
TEST_P(LocalizationInChild, FollowsTheProcessLocale) {
    const LanguageCase& c = GetParam();
    const ChildResult result = runLocalizationTool(c.environment, c.callSetlocale);
    ASSERT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.lines, *c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Languages, LocalizationInChild,
    testing::Values(
        LanguageCase{"English", {{"LC_ALL", "C.UTF-8"}}, true, &kEnglish},
        LanguageCase{"ChineseByLanguage", {{"LC_ALL", "C.UTF-8"}, {"LANGUAGE", "zh_CN"}}, true, &kChinese},
        LanguageCase{"ChineseByLanguageWithLang", {{"LANG", "C.UTF-8"}, {"LANGUAGE", "zh_CN:en"}}, true, &kChinese},
        LanguageCase{"LibraryLeavesLocaleToHost", {{"LC_ALL", "C.UTF-8"}, {"LANGUAGE", "zh_CN"}}, false,
                     &kEnglish}),
    [](const testing::TestParamInfo<LanguageCase>& info) { return std::string(info.param.name); });

TEST(LocalizationOverride, EnvironmentVariableChoosesTheCatalogueFolder) {
    TempFolder withCatalogue;
    TempFolder withoutCatalogue;
    ASSERT_FALSE(withCatalogue.path().empty());
    ASSERT_FALSE(withoutCatalogue.path().empty());
    const fs::path built = fs::path(NBBASE_BUILD_LOCALEDIR) / "zh_CN" / "LC_MESSAGES" / "NBBase.mo";
    ASSERT_TRUE(fs::exists(built)) << "the nbbase_translations target did not produce " << built;
    fs::create_directories(withCatalogue.path() / "zh_CN" / "LC_MESSAGES");
    fs::copy_file(built, withCatalogue.path() / "zh_CN" / "LC_MESSAGES" / "NBBase.mo");

    const std::map<std::string, std::string> chinese = {{"LC_ALL", "C.UTF-8"}, {"LANGUAGE", "zh_CN"}};
    auto environment = chinese;
    environment["NBBASE_LOCALEDIR"] = withCatalogue.path().string();
    EXPECT_EQ(runLocalizationTool(environment).lines, kChinese);

    environment["NBBASE_LOCALEDIR"] = withoutCatalogue.path().string();
    EXPECT_EQ(runLocalizationTool(environment).lines, kEnglish);
}

}  // namespace
