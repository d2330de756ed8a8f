#include "nbbase/support/NBErrorCode.h"

#include <atomic>
#include <climits>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>

#include "TempDir.h"
#include "tests/foundation/ChildProcess.h"

namespace {

using nb::NBErrorCode;

const std::string kNoInit = "Failed to initialize NIMBO", kNetwork = "Startup failed, please check your network connection",
                  kStatus = "Failed to query NIMBO service status", kLaunch = "Failed to launch the game",
                  kSpeed = "Failed to test speed, please check your network connection", kLogin = "Failed to login NIMBO",
                  kQualified = "Sorry, you haven't got the qualification", kMaintenance = "The game is in maintenance",
                  kOutdated = "The appliction is outdated, please update to the latest version",
                  kArchiving = "Your last game is being archived, please try again later",
                  kEnded = "Unexpected error occurred, game ended", kNetworkEnded = "Network error, game ended",
                  kUnknown = "Unknown error occurred";

// The test process never calls setlocale, so it runs in the "C" locale and every text is English.
const struct Case {
    std::int64_t code, subCode;
    const std::string& message;
} kCases[] = {
    {101, 0, kNetwork}, {150, 0, kStatus}, {350, 0, kLaunch}, {2050, 0, kUnknown},  // "2**" is three digits only
    {20003, 21008, kQualified}, {20003, 7, kLogin}, {20003, 22005, kOutdated}, {20001, 21008, kNetwork},
    {20405, 0, kLaunch}, {30150, 0, kEnded}, {10305, 0, kUnknown}, {10105, 0, kSpeed}, {30050, 0, kLaunch},
    {0, 0, kNoInit}, {9, 4, kNoInit}, {-9, 0, kNoInit}, {-10, 0, kUnknown}, {15, 0, kUnknown}, {-101, 0, kUnknown},
    {30202, 20, kArchiving}, {30202, 0, kEnded}, {30202, 21, kEnded}, {30202, -20, kEnded}, {-30202, 20, kUnknown},
    {20403, 22017, kMaintenance}, {20403, 0, kLaunch}, {30503, 9, kArchiving}, {30503, 90, kEnded},
    {30106, 0, kNetworkEnded}, {20203, 5, kOutdated}, {INT64_MIN, INT64_MIN, kUnknown}, {INT64_MAX, 0, kUnknown},
};

TEST(NBErrorCode, MostSpecificPatternWins) {
    const NBErrorCode catalogue;
    EXPECT_EQ(catalogue.errorCodeTable().size(), 39u);
    for (const Case& c : kCases) {
        EXPECT_EQ(catalogue.queryErrorMessage(c.code, c.subCode), c.message) << c.code << " / " << c.subCode;
    }
}

TEST(NBErrorCode, FormatsModuleFirstAndRefusesUnsafeFormats) {
    const NBErrorCode catalogue;
    EXPECT_EQ(catalogue.formatErrorCode(1, 2, 3), "Error Code:3-1-2");
    EXPECT_EQ(catalogue.formatErrorCode(20403, 22005, 3), "Error Code:3-20403-22005");
    EXPECT_EQ(catalogue.formatErrorCode(-1, INT64_MIN, 0), "Error Code:0--1--9223372036854775808");

    for (const char* safe : {"Error Code:%ld-%ld-%ld", "错误码:%ld-%ld-%ld", "100%% %ld%ld%ld%%"})
        EXPECT_TRUE(NBErrorCode::isSafeCodeFormat(safe)) << safe;
    for (const char* unsafe : {"", "%s-%ld-%ld", "%ld-%ld", "%ld-%ld-%ld-%ld", "%ld-%ld-%ld%", "%lld-%ld-%ld",
                               "%d-%ld-%ld", "%n%ld%ld%ld", "%1$ld-%2$ld-%3$ld", "%%ld-%ld-%ld", "%l-%ld-%ld-%ld"})
        EXPECT_FALSE(NBErrorCode::isSafeCodeFormat(unsafe)) << unsafe;
}

// Lookups racing rebuilds always see one whole table (run under ThreadSanitizer to catch a torn swap).
TEST(NBErrorCode, RebuildWhileOtherThreadsLookUp) {
    NBErrorCode catalogue;
    std::atomic<bool> done{false};
    std::atomic<int> mismatches{0};
    std::vector<std::thread> readers;
    for (int r = 0; r < 3; ++r) {
        readers.emplace_back([&] {
            // At least one pass even if the rebuilds finish first.
            do {
                for (const Case& c : kCases) {
                    if (catalogue.queryErrorMessage(c.code, c.subCode) != c.message) ++mismatches;
                }
                if (catalogue.errorCodeTable().size() != 39u) ++mismatches;
            } while (!done.load());
        });
    }
    for (int i = 0; i < 200; ++i) catalogue.initializeErrorCodeTable();
    done = true;
    for (auto& reader : readers) reader.join();
    EXPECT_EQ(mismatches.load(), 0);
}

// Runs nbtest_errorcode in C.UTF-8 plus `extra`, answering its output lines.
std::vector<std::string> runTool(const std::vector<std::string>& arguments, std::vector<std::string> environment) {
    environment.insert(environment.begin(), "LC_ALL=C.UTF-8");
    return nb::test::ChildProcess::runInLocale("nbtest_errorcode", arguments, environment);
}

TEST(NBErrorCodeInChild, EveryMessageIsTranslatedToChinese) {
    const auto table = NBErrorCode::englishErrorCodeTable();
    const auto lines = runTool({"--table", "20403", "22017", "3", "99999", "0", "1"}, {"LANGUAGE=zh_CN"});
    ASSERT_EQ(lines.size(), table.size() + 4);
    for (std::size_t i = 0; i < table.size(); ++i) EXPECT_NE(lines[i], table[i].message) << table[i].pattern;
    EXPECT_EQ(std::vector(lines.end() - 4, lines.end()),
              (std::vector<std::string>{"游戏正在维护中", "错误码:3-20403-22017", "发生未知错误", "错误码:1-99999-0"}));
    EXPECT_EQ(runTool({"20403", "22017", "3"}, {}),
              (std::vector<std::string>{kMaintenance, "Error Code:3-20403-22017"}));
}

// A language change reaches the per-call texts at once and the table only once the host refreshes it.
TEST(NBErrorCodeInChild, RefreshFollowsLanguageChange) {
    const auto table = NBErrorCode::englishErrorCodeTable();
    const auto lines = runTool({"20403", "22017", "3", "--language", "zh_CN", "20403", "22017", "3", "99999", "0", "1",
                                "--refresh", "20403", "22017", "3", "--table"},
                               {});
    ASSERT_EQ(lines.size(), 8 + table.size());
    EXPECT_EQ(std::vector(lines.begin(), lines.begin() + 8),
              (std::vector<std::string>{kMaintenance, "Error Code:3-20403-22017", kMaintenance, "错误码:3-20403-22017",
                                        "发生未知错误", "错误码:1-99999-0", "游戏正在维护中", "错误码:3-20403-22017"}));
    for (std::size_t i = 0; i < table.size(); ++i) EXPECT_NE(lines[8 + i], table[i].message) << table[i].pattern;
}

TEST(NBErrorCodeInChild, UnsafeTranslatedFormatFallsBackToEnglish) {
    nbtest::TempDir temp;
    ASSERT_FALSE(temp.path().empty());
    const auto folder = temp.path() / "zh_CN" / "LC_MESSAGES";
    std::filesystem::create_directories(folder);
    // Without the c-format mark msgfmt lets the mismatched conversion through, as a careless catalogue would.
    std::ofstream(temp.path() / "bad.po") << "msgid \"\"\nmsgstr \"Content-Type: text/plain; charset=UTF-8\\n\"\n"
                                             "msgid \"Error Code:%ld-%ld-%ld\"\nmsgstr \"错误码:%s-%ld-%ld\"\n"
                                             "msgid \"Failed to launch the game\"\nmsgstr \"启动游戏失败\"\n";
    const auto compiled = nb::test::ChildProcess::run(
        {"/usr/bin/env", "msgfmt", "-o", (folder / "NBBase.mo").string(), (temp.path() / "bad.po").string()});
    ASSERT_EQ(compiled.status, 0) << compiled.output;
    EXPECT_EQ(runTool({"20405", "0", "3"}, {"LANGUAGE=zh_CN", "NBBASE_LOCALEDIR=" + temp.path().string()}),
              (std::vector<std::string>{"启动游戏失败", "Error Code:3-20405-0"}));
}

}  // namespace
