// nbctl as a user runs it: the real binary in a child process, on a preferences folder of the test's own.
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "TempDir.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/UserDefaults.h"

namespace {

struct Outcome {
    int exitCode = -1;
    std::string out;
    std::string err;
};

class NbctlTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_FALSE(folder_.empty()); }

    // Runs nbctl with the test's preferences folder; arguments are single-quoted for the shell.
    Outcome nbctl(const std::string& args, const std::string& environment = "") const {
        const std::string errFile = (folder_ / "stderr.txt").string();
        const std::string command = environment + " " + NBBASE_NBCTL_PATH + " --preferences '" + folder_.string() +
                                    "' " + args + " 2>'" + errFile + "'";
        Outcome outcome;
        FILE* pipe = popen(command.c_str(), "r");
        if (pipe == nullptr) return outcome;
        std::array<char, 4096> buf{};
        std::size_t n = 0;
        while ((n = fread(buf.data(), 1, buf.size(), pipe)) > 0) outcome.out.append(buf.data(), n);
        const int status = pclose(pipe);
        outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        if (FILE* f = fopen(errFile.c_str(), "r")) {
            while ((n = fread(buf.data(), 1, buf.size(), f)) > 0) outcome.err.append(buf.data(), n);
            fclose(f);
        }
        return outcome;
    }

    nb::Value readJson(const std::string& args) const {
        const Outcome o = nbctl("defaults read " + args + " --json");
        EXPECT_EQ(o.exitCode, 0) << o.err;
        return nb::Json::decode(o.out, {.allowFragments = true}).value_or(nb::Value());
    }

    nbtest::TempDir dir_{"nbctl-test"};
    const std::filesystem::path folder_ = dir_.path();
};

bool oneLine(const std::string& text) {
    return !text.empty() && text.find('\n') == text.size() - 1;
}

TEST_F(NbctlTest, WrittenValuesReadBackWithTheirTypes) {
    struct Case {
        const char* args;
        nb::Value expected;
    } cases[] = {
        {"name -string 'Lantern Quest'", "Lantern Quest"},
        {"plain hello", "hello"},
        {"count -int -42", -42},
        {"ratio -float 0.25", 0.25},
        {"flag -bool YES", true},
        {"off -boolean false", false},
        {"list -array a 'b c'", nb::Value::array({"a", "b c"})},
        {"map -dict k1 v1 k2 v2", nb::Value::dictionary({{"k1", "v1"}, {"k2", "v2"}})},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        const Outcome w = nbctl(std::string("defaults write com.example.app ") + c.args);
        ASSERT_EQ(w.exitCode, 0) << w.err;
        const std::string key = std::string(c.args).substr(0, std::string(c.args).find(' '));
        const nb::Value read = readJson("com.example.app " + key);
        EXPECT_EQ(read, c.expected);
        EXPECT_EQ(read.kind(), c.expected.kind());
    }
    // The whole suite, as the library itself reads it.
    nb::UserDefaults defaults("com.example.app", folder_);
    EXPECT_EQ(defaults.persistentDomain(), readJson("com.example.app"));
    EXPECT_EQ(defaults.integerForKey("count"), -42);
}

TEST_F(NbctlTest, ReadablePlistOutput) {
    ASSERT_EQ(nbctl("defaults write demo list -array one 'two words'").exitCode, 0);
    ASSERT_EQ(nbctl("defaults write demo n -int 7").exitCode, 0);
    const Outcome o = nbctl("defaults read demo");
    EXPECT_EQ(o.exitCode, 0);
    EXPECT_EQ(o.out, "{\n    list = (\n        one,\n        \"two words\"\n    );\n    n = 7;\n}\n");
    EXPECT_EQ(nbctl("defaults read demo n").out, "7\n");
}

TEST_F(NbctlTest, DomainsAndDelete) {
    ASSERT_EQ(nbctl("defaults write b.suite k v").exitCode, 0);
    ASSERT_EQ(nbctl("defaults write a.suite k v").exitCode, 0);
    ASSERT_EQ(nbctl("defaults write a.suite other v").exitCode, 0);
    EXPECT_EQ(nbctl("defaults domains").out, "a.suite\nb.suite\n");

    EXPECT_EQ(nbctl("defaults delete a.suite k").exitCode, 0);
    EXPECT_EQ(nbctl("defaults read a.suite k").exitCode, 1);
    EXPECT_EQ(nbctl("defaults read a.suite other").out, "v\n");
    EXPECT_EQ(nbctl("defaults delete a.suite").exitCode, 0);
    EXPECT_EQ(nbctl("defaults read a.suite other").exitCode, 1);
}

TEST_F(NbctlTest, FailuresAreOneLineWithAnExitCode) {
    ASSERT_EQ(nbctl("defaults write present k v").exitCode, 0);
    struct Case {
        const char* args;
        int exitCode;
    } cases[] = {
        {"defaults read missing.suite", 1},
        {"defaults read present nokey", 1},
        {"defaults delete present nokey", 1},
        {"defaults write present k -int abc", 2},
        {"defaults write present k -int", 2},
        {"defaults write present k -bool maybe", 2},
        {"defaults write present k -dict a", 2},
        {"defaults write present k -colour red", 2},
        {"defaults write present k", 2},
        {"defaults", 2},
        {"defaults frobnicate", 2},
        {"nosuchcommand", 2},
        {"error", 2},
        {"error twelve", 2},
        {"sdk noSuchOperation", 2},
        {"sdk getTimeStamp --replies /nonexistent/replies", 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        const Outcome o = nbctl(c.args);
        EXPECT_EQ(o.exitCode, c.exitCode);
        EXPECT_TRUE(oneLine(o.err)) << o.err;
        EXPECT_EQ(o.err.rfind("nbctl: ", 0), 0u) << o.err;
    }
    // A failed write leaves the stored value alone.
    EXPECT_EQ(nbctl("defaults read present k").out, "v\n");
}

TEST_F(NbctlTest, ConfigShowsTheFileSwitchesAndTheStoredIdentity) {
    const auto home = folder_ / "home";
    std::filesystem::create_directories(home);
    std::ofstream(home / "com.korvane.nimbo.cgsysconfig.plist")
        << "<plist><dict><key>game</key><dict><key>envType</key><string>0</string></dict>"
           "<key>debug</key><dict><key>enable_sdk_log</key><true/></dict></dict></plist>";
    ASSERT_EQ(nbctl("defaults write com.korvane.nimbo.mac userId u-42").exitCode, 0);

    const Outcome o = nbctl("config --json", "HOME='" + home.string() + "'");
    ASSERT_EQ(o.exitCode, 0) << o.err;
    const nb::Value report = nb::Json::decode(o.out).value_or(nb::Value());
    EXPECT_EQ(report["environment"]["authApiBase"], nb::Value("https://auth-test.korvane-nimbo.com"));
    EXPECT_EQ(report["switches"]["enableSdkLog"], nb::Value(true));
    EXPECT_EQ(report["identity"]["userId"], nb::Value("u-42"));
    EXPECT_EQ(report["client"]["fps"], nb::Value(60));
}

TEST_F(NbctlTest, ErrorAndSdkAnswerFromTheCatalogueAndTheRecording) {
    const Outcome error = nbctl("error 20403 22005 --module 3");
    EXPECT_EQ(error.exitCode, 0) << error.err;
    EXPECT_NE(error.out.find("Error Code:3-20403-22005"), std::string::npos) << error.out;

    const Outcome stamp = nbctl("sdk getTimeStamp");
    EXPECT_EQ(stamp.exitCode, 0) << stamp.err;
    EXPECT_NE(stamp.out.find("1795000000"), std::string::npos) << stamp.out;
    const Outcome qr = nbctl("sdk getCommonMiniProgramQRCode");
    EXPECT_NE(qr.out.find("called back on the SDK's own thread: success (data,"), std::string::npos) << qr.out;
}

TEST_F(NbctlTest, ReferenceHostFinishes) {
    const Outcome o = nbctl("host");
    EXPECT_EQ(o.exitCode, 0) << o.err;
    EXPECT_NE(o.out.find("delivered nimbo-event-login-success on the main thread: yes"), std::string::npos) << o.out;
    EXPECT_NE(o.out.find("log line forwarded to the SDK at level 8"), std::string::npos) << o.out;
    EXPECT_NE(o.out.find("start-up finished"), std::string::npos) << o.out;
}

}  // namespace
