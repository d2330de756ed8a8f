// nbctl as a user runs it: the real binary in a child process, on a preferences folder of the test's own.
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TempDir.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/UserDefaults.h"
#include "nbbase/updater/SUSignatureVerifier.h"

namespace {

using testing::HasSubstr;

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
        FILE* pipe = popen(command.c_str(), "r");
        Outcome outcome;
        if (pipe == nullptr) return outcome;
        std::array<char, 4096> buf{};
        for (std::size_t n; (n = fread(buf.data(), 1, buf.size(), pipe)) > 0;) outcome.out.append(buf.data(), n);
        const int status = pclose(pipe);
        outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        std::ifstream err(errFile);
        outcome.err.assign(std::istreambuf_iterator<char>(err), {});
        return outcome;
    }
    nb::Value readJson(const std::string& args) const {
        const Outcome o = nbctl("defaults read " + args + " --json");
        EXPECT_EQ(o.exitCode, 0) << o.err;
        return nb::Json::decode(o.out, {.allowFragments = true}).value_or(nb::Value());
    }
    // A file of the test's own holding `text`; answers its path.
    std::string file(const char* name, const std::string& text) const {
        std::ofstream(folder_ / name) << text;
        return (folder_ / name).string();
    }

    nbtest::TempDir dir_{"nbctl-test"};
    const std::filesystem::path folder_ = dir_.path();
};

bool oneLine(const std::string& text) { return !text.empty() && text.find('\n') == text.size() - 1; }

// The cells of the table row whose first cell is `first`: columns are two or more spaces apart, and an
// empty cell merges into its neighbours' gap. Empty when no line starts with that cell.
std::vector<std::string> row(const std::string& out, const std::string& first) {
    static const std::regex gap(" {2,}");
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
        std::vector<std::string> cells(std::sregex_token_iterator(line.begin(), line.end(), gap, -1), {});
        if (!cells.empty() && cells.front() == first) return cells;
    }
    return {};
}

using Cells = std::vector<std::string>;

TEST_F(NbctlTest, WrittenValuesReadBackWithTheirTypes) {
    const std::pair<const char*, nb::Value> cases[] = {
        {"name -string 'Lantern Quest'", "Lantern Quest"}, {"plain hello", "hello"}, {"count -int -42", -42},
        {"ratio -float 0.25", 0.25}, {"flag -bool YES", true}, {"off -boolean false", false},
        {"list -array a 'b c'", nb::Value::array({"a", "b c"})},
        {"map -dict k1 v1 k2 v2", nb::Value::dictionary({{"k1", "v1"}, {"k2", "v2"}})}};
    for (const auto& [args, expected] : cases) {
        SCOPED_TRACE(args);
        const Outcome w = nbctl(std::string("defaults write com.example.app ") + args);
        ASSERT_EQ(w.exitCode, 0) << w.err;
        const nb::Value read = readJson("com.example.app " + std::string(args).substr(0, std::string(args).find(' ')));
        EXPECT_EQ(read, expected);
        EXPECT_EQ(read.kind(), expected.kind());
    }
    // The whole suite, as the library itself reads it.
    nb::UserDefaults defaults("com.example.app", folder_);
    EXPECT_EQ(defaults.persistentDomain(), readJson("com.example.app"));
    EXPECT_EQ(defaults.integerForKey("count"), -42);
}

TEST_F(NbctlTest, ReadablePlistOutputDomainsAndDelete) {
    ASSERT_EQ(nbctl("defaults write b.suite list -array one 'two words'").exitCode, 0);
    ASSERT_EQ(nbctl("defaults write b.suite n -int 7").exitCode, 0);
    EXPECT_EQ(nbctl("defaults read b.suite").out,
              "{\n    list = (\n        one,\n        \"two words\"\n    );\n    n = 7;\n}\n");
    EXPECT_EQ(nbctl("defaults read b.suite n").out, "7\n");

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
    // Exit status 1 for what is missing or cannot be done, 2 for a wrong command line.
    const std::pair<const char*, int> cases[] = {
        {"defaults read missing.suite", 1}, {"defaults read present nokey", 1}, {"defaults delete present nokey", 1},
        {"defaults write present k -int abc", 2}, {"defaults write present k -int", 2},
        {"defaults write present k -bool maybe", 2}, {"defaults write present k -dict a", 2},
        {"defaults write present k -colour red", 2}, {"defaults write present k", 2}, {"defaults", 2},
        {"defaults frobnicate", 2}, {"nosuchcommand", 2}, {"error", 2}, {"error twelve", 2},
        {"sdk noSuchOperation", 2}, {"sdk getTimeStamp --replies /nonexistent/replies", 1},
        {"entitlements --interests", 2}, {"entitlements surplus", 2}, {"catalog --coupons /nonexistent.json", 1},
        {"catalog --now soon", 2}};
    for (const auto& [args, exitCode] : cases) {
        SCOPED_TRACE(args);
        const Outcome o = nbctl(args);
        EXPECT_EQ(o.exitCode, exitCode);
        EXPECT_TRUE(oneLine(o.err)) << o.err;
        EXPECT_EQ(o.err.rfind("nbctl: ", 0), 0u) << o.err;
    }
    // A failed write leaves the stored value alone.
    EXPECT_EQ(nbctl("defaults read present k").out, "v\n");
}

TEST_F(NbctlTest, DefaultsVerbsAndNumbersOutOfRange) {
    {
        nb::UserDefaults s("s", folder_);
        for (const auto& [key, value] : std::initializer_list<std::pair<const char*, nb::Value>>{
                 {"name", "Lantern Quest"}, {"count", 7}, {"ratio", 0.5}, {"flag", true},
                 {"list", nb::Value::array({"a"})}, {"map", nb::Value::dictionary({{"Colour", "red"}})},
                 {"blob", nb::Data{1, 2}}, {"when", nb::Date{1795000000}}}) {
            ASSERT_TRUE(s.setObject(value, key));
        }
    }
    const std::string notPlist = file("notes.txt", "not a property list");
    const std::string arrayRoot = file("array.plist", "<plist><array/></plist>");
    const std::string int64Range = "out of range: an integer from -9223372036854775808 to 9223372036854775807";
    // In order, as later rows read what earlier ones wrote. The fragment is looked for in standard output
    // on success and in the one line of standard error on failure.
    const struct {
        std::string args;
        int exitCode;
        std::string fragment;
    } rows[] = {
        {"defaults read-type s name", 0, "Type is string\n"}, {"defaults read-type s count", 0, "Type is integer\n"},
        {"defaults read-type s ratio", 0, "Type is float\n"}, {"defaults read-type s flag", 0, "Type is boolean\n"},
        {"defaults read-type s list", 0, "Type is array\n"}, {"defaults read-type s map", 0, "Type is dictionary\n"},
        {"defaults read-type s blob", 0, "Type is data\n"}, {"defaults read-type s when", 0, "Type is date\n"},
        {"defaults read-type s nokey", 1, "(s, nokey) does not exist"},
        {"defaults write s list -array-add b 'c d'", 0, ""},
        {"defaults read s list", 0, "(\n    a,\n    b,\n    \"c d\"\n)\n"},
        {"defaults write s fresh -array-add x", 0, ""}, {"defaults read-type s fresh", 0, "Type is array\n"},
        {"defaults write s name -array-add x", 1, "name in s holds a string, not an array: nothing changed"},
        {"defaults write s map -dict-add size big", 0, ""},
        {"defaults read s map", 0, "{\n    Colour = red;\n    size = big;\n}\n"},
        {"defaults write s map -dict-add odd", 2, "pairs"},
        {"defaults write s list -dict-add k v", 1, "holds an array, not a dictionary"},
        {"defaults rename s name title", 0, ""}, {"defaults read s title", 0, "\"Lantern Quest\"\n"},
        {"defaults read s name", 1, "(s, name) does not exist"},
        {"defaults rename s name again", 1, "(s, name) does not exist"},
        {"defaults find QUEST", 0, "Found 1 keys in domain 's': {\n    title = \"Lantern Quest\";\n}\n"},
        {"defaults find colour", 0, "Found 1 keys in domain 's': {\n    map = {\n"},  // a nested key
        {"defaults find 0.5", 0, "ratio = 0.5;"},
        {"defaults find nowhere", 1, "No key or value containing 'nowhere'"},
        {"defaults import t '" + notPlist + "'", 1, "notes.txt: not a property list"},
        {"defaults import t '" + arrayRoot + "'", 1, "holds an array, not a dictionary"},
        {"defaults import t /nonexistent.plist", 1, "/nonexistent.plist: no such file"},
        {"defaults read t", 1, "Domain t does not exist"},  // the refused imports stored nothing
        {"defaults export nosuite -", 1, "Domain nosuite does not exist"},
        {"defaults write s n -int 9223372036854775807", 0, ""},
        {"defaults write s n -int 9223372036854775808", 2, "-int: '9223372036854775808' is " + int64Range},
        {"defaults write s n -int -9223372036854775809", 2, int64Range},
        {"defaults write s n -float 1e999", 2, "-float: '1e999' is out of range"},
        {"defaults write s n -float 1e-400", 2, "out of range"},
        {"defaults read s n", 0, "9223372036854775807\n"},
        {"error 99999999999999999999 0", 2, "code: '99999999999999999999' is " + int64Range},
        {"error 1 -99999999999999999999", 2, "subcode: "},
        {"error 1 2 --module 1e3", 2, "--module: '1e3' is not an integer"},
        {"error 010 0", 0, "0-10-0"},  // decimal, not octal
        {"catalog --now 99999999999999999999", 2, "--now: "},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.args);
        const Outcome o = nbctl(row.args);
        EXPECT_EQ(o.exitCode, row.exitCode) << o.err;
        if (row.exitCode == 0) {
            EXPECT_THAT(o.out, HasSubstr(row.fragment));
        } else {
            EXPECT_EQ(o.out, "");
            EXPECT_TRUE(oneLine(o.err)) << o.err;
            EXPECT_THAT(o.err, HasSubstr(row.fragment));
        }
    }
}

TEST_F(NbctlTest, DefaultsExportAndImportRoundTrip) {
    const nb::Value suite = nb::Value::dictionary(
        {{"name", "Lantern Quest"}, {"count", -42}, {"ratio", 0.25}, {"flag", false}, {"blob", nb::Data{0, 255}},
         {"when", nb::Date{1795000000}}, {"nested", nb::Value::dictionary({{"list", nb::Value::array({1, "two"})}})}});
    {
        nb::UserDefaults from("from", folder_);
        for (const auto& [key, value] : *suite.asDictionary()) ASSERT_TRUE(from.setObject(value, key));
    }
    // Through a file.
    const std::string exported = (folder_ / "from.plist").string();
    ASSERT_EQ(nbctl("defaults export from '" + exported + "'").exitCode, 0);
    ASSERT_EQ(nbctl("defaults write viaFile kept yes").exitCode, 0);
    const Outcome imported = nbctl("defaults import viaFile '" + exported + "'");
    ASSERT_EQ(imported.exitCode, 0) << imported.err;
    nb::Value expected = suite;
    expected.set("kept", "yes");  // a key the file does not hold stays
    EXPECT_EQ(nb::UserDefaults("viaFile", folder_).persistentDomain(), expected);

    // Through standard output and standard input.
    const Outcome out = nbctl("defaults export from -");
    ASSERT_EQ(out.exitCode, 0) << out.err;
    EXPECT_THAT(out.out, HasSubstr("<plist version=\"1.0\">"));
    const Outcome in = nbctl("defaults import viaPipe - < '" + file("piped.plist", out.out) + "'");
    ASSERT_EQ(in.exitCode, 0) << in.err;
    EXPECT_EQ(nb::UserDefaults("viaPipe", folder_).persistentDomain(), suite);
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
    EXPECT_THAT(error.out, HasSubstr("Error Code:3-20403-22005"));
    const Outcome stamp = nbctl("sdk getTimeStamp");
    EXPECT_EQ(stamp.exitCode, 0) << stamp.err;
    EXPECT_THAT(stamp.out, HasSubstr("1795000000"));
    EXPECT_THAT(nbctl("sdk getCommonMiniProgramQRCode").out,
                HasSubstr("called back on the SDK's own thread: success (data,"));
}

// Each expected row is found by its first cell.
void expectRows(const std::string& out, std::initializer_list<Cells> rows) {
    for (const Cells& expected : rows) EXPECT_EQ(row(out, expected[0]), expected) << out;
}

TEST_F(NbctlTest, ReferenceHostFinishes) {
    const Outcome o = nbctl("host");
    EXPECT_EQ(o.exitCode, 0) << o.err;
    EXPECT_THAT(o.out, HasSubstr("delivered nimbo-event-login-success on the main thread: yes"));
    EXPECT_THAT(o.out, HasSubstr("log line forwarded to the SDK at level 8"));
    EXPECT_THAT(o.out, HasSubstr("start-up finished"));
    // The table from the store's own fetch on the recording, base interests included.
    EXPECT_THAT(o.out, HasSubstr("== entitlements ==\n"));
    // The catalogue fetched through the bridge; the table now has the rows this game is configured with.
    expectRows(o.out, {{"quality 3", "yes", "yes"}, {"quality 4", "no", "svip-quality-4k-month \"SVIP 4K picture, one month\""},
                       {"\"1234\"", "1800", "600"}, {"4", "60", "3840x2160"}});
    for (const char* line : {"[log 4] failed to initialize plugin: Reluctant\n", "[log 2] Greeter: heard nimbo-event-app-started\n",
                             "nimbo-event-app-started delivered on the main queue: yes; start had returned: yes\n",
                             "\n== exit ==\n[log 2] Greeter: stopped\n",
                             "a later result with a backup zone refused\nnetwork now: ",
                             "queryConfig: 0\n", "queryCoupons: 0\n", "reqeustAccelerateRouter: connected true\n",
                             "Accelerating router: connected\n", "forecast end 1795001200 (2026-11-18 11:26:40 UTC), 1200 s left\n",
                             "avatar of Lantern: 136 bytes", "prefetched 4 popup images", "with 304 Not Modified\n",
                             "  pre_launch_game: txt \"Your picture quality trial\" with a close cross; buttons [Later] "
                             "[Upgrade, highlighted]\n",
                             "pictures the image server was asked for again: 3\n", "pre_launch_game afterwards: none",
                             "reported with ticket ct-3001-c7d2\n", "QR code: PNG image, 21 x 21 pixels",
                             "\nhttps://www.korvane-nimbo.com/page/feedback/mac.html?data=",
                             "decision: optional update to 3.3.0\n",
                             "download link: https://dl.korvane-nimbo.com/mac/nimbo_official/Nimbo_3.3.0-nimbo_official.dmg\n",
                             "(4194304 bytes, Ed25519 signature good)\n",
                             "download failed: update refused: the signature does not match\n"}) {
        EXPECT_THAT(o.out, HasSubstr(line));
    }
}

TEST_F(NbctlTest, PluginsSaysWhichWouldLoadAndWhyNot) {
    const std::string folder = NBBASE_TEST_PLUGINS_DIR;
    const Outcome o = nbctl("plugins '" + folder + "'");
    EXPECT_EQ(o.exitCode, 0) << o.err;
    for (const std::string& line : std::vector<std::string>{"  Alpha.nbp: would load AlphaPlugin (plugin.Alpha)\n",
                                   "  Ignored.bundle: ignored, the extension is not \"nbp\"\n",
                                   "  NoLibrary.nbp: would not load: cannot load the library: " + folder +
                                       "/NoLibrary.nbp/NoLibrary.so: cannot open shared object file",
                                   "  OtherProtocol.nbp: would not load: the class does not declare NBPluginProtocol\n"}) {
        EXPECT_THAT(o.out, HasSubstr(line));
    }
    EXPECT_EQ(nbctl("plugins '" + (folder_ / "none").string() + "'").exitCode, 1);
}

TEST_F(NbctlTest, ZoneStoresATestAndReadsTheZonesBack) {
    // The verdict depends on this machine's network; the zone ids follow it.
    const auto zonesFollowTheVerdict = [](const std::string& out, const std::string& zones) {
        if (out.find("network changed: no (") != std::string::npos) {
            EXPECT_THAT(out, HasSubstr("zone ids: \"" + zones + "\"\n"));
        } else {
            EXPECT_THAT(out, HasSubstr("zone ids: \"\" (the record was removed: test again)\n"));
        }
    };
    Outcome o = nbctl("zone --store '" + file("test.json", R"([{"zoneId": 3, "delay": 21}, 7, "x", [1], {"zoneId": ""},
                                                                {"zoneId": "17", "backup": "no"}, {"name": "probe"}])") + "'");
    EXPECT_EQ(o.exitCode, 0) << o.err;
    EXPECT_THAT(o.out, HasSubstr("stored the speed test\n"));
    zonesFollowTheVerdict(o.out, "3,17");

    o = nbctl("zone --store '" + file("backup.json", R"([{"zoneId": 4}, {"zoneId": 5, "backup": "YES"}])") + "'");
    EXPECT_THAT(o.out, HasSubstr("stored nothing: the result is empty or used a backup zone\n"));
    EXPECT_EQ(nbctl("zone --store '" + file("object.json", R"({"zoneId": 4})") + "'").exitCode, 1);
}

TEST_F(NbctlTest, FeedbackAddressAndWhatThePageReadsFromIt) {
    const Outcome bare = nbctl("feedback");
    EXPECT_EQ(bare.exitCode, 0) << bare.err;
    EXPECT_EQ(bare.out, "https://www.korvane-nimbo.com/page/feedback/mac.html\n");
    EXPECT_THAT(bare.err, HasSubstr("no user is signed in"));

    ASSERT_EQ(nbctl("defaults write com.korvane.nimbo.mac userId 10086").exitCode, 0);
    ASSERT_EQ(nbctl("defaults write com.korvane.nimbo.mac gameId 77").exitCode, 0);
    const Outcome o = nbctl("feedback --decrypt " NBBASE_SOURCE_DIR "/tests/support/feedback-private-key.pem");
    EXPECT_EQ(o.exitCode, 0) << o.err;
    for (const char* line : {"?data=", "data:\n  userid = 10086\n  version = ", "\n  net = ", "\"nimbo_game_id\": \"77\"",
                             "\"report_ts\": \"1795000000\""}) {
        EXPECT_THAT(o.out, HasSubstr(line));
    }

    const Outcome junk = nbctl("feedback --decrypt " + file("junk.pem", "not a key"));
    EXPECT_EQ(junk.exitCode, 1);
    EXPECT_TRUE(oneLine(junk.err)) << junk.err;
    EXPECT_THAT(junk.err, HasSubstr("junk.pem: "));
}

TEST_F(NbctlTest, CatalogOfTheRecordingAndOfHandWrittenReplies) {
    const Outcome o = nbctl("catalog");
    ASSERT_EQ(o.exitCode, 0) << o.err;
    expectRows(o.out, {{"tags", "test game no, limited game yes"}, {"client", "wait for first scene yes, hide VIP queue "
                       "button yes, skip archive yes"}, {"1", "12", "1920x1080"}, {"2", "20", "1920x1080"},
                       {"obtain game", "\"Buy on the store\" fires openObtainGameWebPage with "
                                       "https://store.korvane-nimbo.com/games/1234"}});
    for (const char* line : {"Frame rates: 30, 60, 90, 120\n", "\"Get more time\" fires openVipPurchasePage\n",
                             "1200 s left\n", "Coupons: 4 ordinary, 2 SVIP: badge shown\n", "?platform=mac (valid)\n"}) {
        EXPECT_THAT(o.out, HasSubstr(line));
    }

    // A game with a broken resolution and its own frame rates, a finished hang-up, a maintenance page
    // without a host, and a clock before the tag period.
    const std::string config = file("config.json", R"({"picuture_quality": {"7": {"3": {"bitrate": "15",
        "resolution": "2560_1440_x"}}}, "fps": {"7": [120, 30]}, "game_list": {"7": {"mouselocked": 0}}})");
    const std::string hangup = file("hangup.json", R"({"code": 0, "game_status": 3, "onhook_begin_time": 100,
        "onhook_end_time": 700})");
    const std::string page = file("page.json", R"({"maintain_page": "file:///maintain.html"})");
    const Outcome h = nbctl("catalog --game-id 7 --now 150 --config '" + config + "' --hangup '" + hangup +
                            "' --maintain '" + page + "'");
    ASSERT_EQ(h.exitCode, 0) << h.err;
    expectRows(h.out, {{"3", "15", "1920x1080"}});
    for (const char* line : {"mouse lock no", "Frame rates: 30, 120\n", "Idle play: ended after 600 s\n",
                             "(not valid)\n", ": not valid now\n", "Tips for game 7: none\n"}) {
        EXPECT_THAT(h.out, HasSubstr(line));
    }
}

TEST_F(NbctlTest, EntitlementsOfTheRecording) {
    const Outcome o = nbctl("entitlements");
    ASSERT_EQ(o.exitCode, 0) << o.err;
    EXPECT_EQ(o.err, "");
    EXPECT_THAT(o.out,
                HasSubstr("User level: 1 (VIP)\nServer time (currentTS): 1795000000 (2026-11-18 11:06:40 UTC)\n"));
    const std::string offer = "svip-fps-120-month \"SVIP 120 FPS, one month\"";
    expectRows(o.out, {{"quality 0", "yes", "no"}, {"quality 1", "yes", "no"}, {"quality 2", "yes", "no"},
                       {"quality 3", "yes", "yes"}, {"30 fps", "yes", "no"}, {"60 fps", "yes", "no"},
                       {"90 fps", "no", offer}, {"120 fps", "no", offer},
                       {"quality [0,1,2,3]", "1795259200 (2026-11-21 11:06:40 UTC)", "live"},
                       {"frame rate [90]", "1794913600 (2026-11-17 11:06:40 UTC)", "ended"},
                       {"\"1234\"", "1800", "600"}, {"\"5678\"", "900", "300"}});
    EXPECT_THAT(o.out, HasSubstr("Quality and frame-rate trial ends 1795259200 (2026-11-21 11:06:40 UTC), svip yes\n"));
    EXPECT_THAT(o.out, HasSubstr("Next check: elapse -86400 s (due: fetch now), endTime 1794913600 (2026-11-17 "
                                 "11:06:40 UTC)\n            for type 7, property 2, isHaving yes, isTry yes\n"));
}

TEST_F(NbctlTest, EntitlementsOfHandWrittenReplies) {
    const auto write = [this](const char* name, const std::string& text) { return "'" + file(name, text) + "'"; };
    const std::string ordinary = write("ordinary.json", R"({"code": 0, "ts": 1795000000})");
    const std::string svip = write("svip.json", R"({"code": 0, "svip": {"vip_flag": 1}})");
    // Idle limits under the number 1234 and the text "1234": two games to the store.
    const std::string idle = write("idle.json", R"({"code": 0, "data": {"timestamp": 1795000000,
        "having": [{"type": 5, "extra_data":
            "[{\"game_id\":1234,\"max_on_hook_time\":1200},{\"game_id\":\"1234\",\"max_on_hook_time\":60}]"}],
        "available_present": [{"type": 4, "product_id": 777, "product_name": "VIP picture", "property": 1,
                               "extra_data": "{\"frame\":[2]}"}],
        "no_having": [{"type": 5, "extra_data": "[{\"game_id\":1234,\"max_on_hook_time\":300}]"}]}})");

    const Outcome o = nbctl("entitlements --vip " + ordinary + " --interests " + idle);
    ASSERT_EQ(o.exitCode, 0) << o.err;
    EXPECT_THAT(o.out, HasSubstr("User level: 0 (ordinary)\n"));
    expectRows(o.out, {{"quality 1", "yes", "no"}, {"quality 2", "no", "777 \"VIP picture\""}, {"quality 3", "no", "-"},
                       {"60 fps", "no", "-"}, {"1234", "1200", "300"}, {"\"1234\"", "60", "0"}});
    EXPECT_THAT(o.out, HasSubstr("Quality and frame-rate trial: no held quality or frame-rate right\n"));
    EXPECT_THAT(o.out, HasSubstr("Next check: elapse -1795000000 s (due: fetch now), endTime 0\n"
                                 "            for type 0, property 0, isHaving no, isTry no\n"));

    // The same recorded interests for an SVIP: his level gives every held value, so nothing is a trial.
    const Outcome s = nbctl("entitlements --vip " + svip);
    ASSERT_EQ(s.exitCode, 0) << s.err;
    expectRows(s.out, {{"quality 3", "yes", "no"}, {"90 fps", "yes", "no"}});
    EXPECT_THAT(s.out, HasSubstr("Quality and frame-rate trial: none held (endTime 0, svip no)\n"));
    EXPECT_THAT(s.out, HasSubstr("isHaving yes, isTry no"));
}

TEST_F(NbctlTest, EntitlementsRefuseUnusableReplies) {
    struct Case {
        const char* option;
        std::string file;
        const char* reason;
    } cases[] = {
        {"--interests", (folder_ / "missing.json").string(), "no such file"},
        {"--property", folder_.string(), "not a regular file"},
        {"--vip", file("text.json", "vip: yes"), "not JSON"},
        {"--vip", file("array.json", "[]"), "not an object"},
        {"--property", file("busy.json", R"({"code": 3, "message": "busy\nlater"})"), "code 3: busy later"},
        {"--interests", file("nodata.json", R"({"code": "0", "data": []})"), "no \"data\" object"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        const Outcome o = nbctl(std::string("entitlements ") + c.option + " '" + c.file + "'");
        EXPECT_EQ(o.exitCode, 1);
        EXPECT_EQ(o.out, "");
        EXPECT_TRUE(oneLine(o.err)) << o.err;
        EXPECT_EQ(o.err.rfind("nbctl: " + c.file + ": ", 0), 0u) << o.err;
        EXPECT_NE(o.err.find(c.reason), std::string::npos) << o.err;
    }
}

TEST_F(NbctlTest, VersionCompareAnswersAsTheUpdater) {
    const std::pair<const char*, const char*> cases[] = {
        {"1.0 1.0.1", "-1\n"}, {"-- -1 1", "-1\n"}, {"'' 1", "-1\n"}, {"-- 2.1-beta 2.1", "0\n"},
        {"--build-number 0.10.9999.5 0.11.0.4", "1\n"},
    };
    for (const auto& [args, answer] : cases) {
        const Outcome o = nbctl(std::string("version-compare ") + args);
        EXPECT_EQ(o.exitCode, 0) << args << ": " << o.err;
        EXPECT_EQ(o.out, answer) << args;
    }
    const Outcome missing = nbctl("version-compare 1.0");
    EXPECT_EQ(missing.exitCode, 2);
    EXPECT_TRUE(oneLine(missing.err)) << missing.err;
}

TEST_F(NbctlTest, UpdateCheckSaysWhatTheUpdaterWouldDo) {
    const std::string home = "HOME='" + folder_.string() + "' XDG_CONFIG_HOME='" + folder_.string() + "' XDG_CACHE_HOME='" +
                             (folder_ / "caches").string() + "'";
    struct Case {
        std::string args;
        int exitCode;
        const char* line;
    } cases[] = {
        {"--running 3.2.0", 0, "decision: optional update to 3.3.0\ndownload link: "
                               "https://dl.korvane-nimbo.com/mac/Nimbo_3.3.0.dmg\npackage: length not stated, not signed\n"},
        {"--running 3.3.0", 0, "decision: up to date\n"},
        {"--running 3.2.0 --appcast file://" NBBASE_SOURCE_DIR "/examples/appcast/appcast.xml", 0, "feed: 3 items\n"},
        {"--appcast http://127.0.0.1:1/appcast.xml", 1, "check failed: the feed http://127.0.0.1:1/appcast.xml"},
    };
    for (const auto& c : cases) {
        const Outcome o = nbctl("update check " + c.args, home);
        EXPECT_EQ(o.exitCode, c.exitCode) << c.args << ": " << o.err;
        EXPECT_THAT(o.out, HasSubstr(c.line)) << c.args;
    }

    // A key pair from keygen signs a package so that the updater's verifier accepts it.
    const Outcome keys = nbctl("update keygen");
    ASSERT_EQ(keys.exitCode, 0) << keys.err;
    std::smatch pair;
    ASSERT_TRUE(std::regex_search(keys.out, pair, std::regex(": (\\S+)\n.*: (\\S+)\n")));
    const std::string package = file("package.dmg", "the package");
    const Outcome signature = nbctl("update sign --key " + file("key", pair[1].str() + "\n") + " " + package);
    ASSERT_EQ(signature.exitCode, 0) << signature.err;
    std::smatch attribute;
    ASSERT_TRUE(std::regex_search(signature.out, attribute, std::regex("edSignature=\"([^\"]+)\" length=\"11\"")));
    EXPECT_TRUE(nb::SUSignatureVerifier(pair[2].str()).verifyFile(package, attribute[1].str()));

    const Outcome bad = nbctl("update sign --key " + file("bad", "not a key") + " " + package);
    EXPECT_EQ(bad.exitCode, 1);
    EXPECT_TRUE(oneLine(bad.err)) << bad.err;
}

}  // namespace
