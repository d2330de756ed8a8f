#include "nbbase/core/NBConfiguration.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "ErrorLog.h"
#include "TempDir.h"
#include "nbbase/foundation/ManualClock.h"
#include "nbbase/foundation/PropertyList.h"
#include "tests/foundation/ChildProcess.h"

namespace nb {
namespace {

namespace fs = std::filesystem;
using Opt = std::optional<std::string>;

class NBConfigurationTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(dir_.path().empty());
        fs::create_directories(home_);
    }

    std::shared_ptr<UserDefaults> suite() const {
        return std::make_shared<UserDefaults>(std::string(NBConfiguration::kSuiteName), dir_.path() / "prefs");
    }
    std::unique_ptr<NBConfiguration> make(std::shared_ptr<UserDefaults> defaults) {
        return std::make_unique<NBConfiguration>(
            std::move(defaults), home_, [this] { return bundle_; }, [this] { return preferred_; });
    }
    void setBundle(Value info) { bundle_ = std::make_shared<MainBundle>(std::move(info), home_); }
    void writeFile(const std::string& bytes) const {
        std::ofstream(home_ / NBConfiguration::kSdkConfigFileName, std::ios::binary | std::ios::trunc) << bytes;
    }
    void writeConfig(const Value& root, PropertyList::Format format = PropertyList::Format::Xml) const {
        const auto bytes = PropertyList::write(root, format);
        ASSERT_TRUE(bytes);
        writeFile(std::string(bytes->begin(), bytes->end()));
    }

    // Runs `race` on a fresh suite `rounds` times. Each time the channel that stays must be one of
    // `channels`, and every channel the racers read back (one per entry of `channels`) must be that one.
    void expectEveryReaderAgrees(int rounds, const std::vector<std::string>& channels,
                                 const std::function<std::vector<std::string>()>& race) {
        const auto defaults = suite();
        int disagreeing = 0;
        std::string first;
        for (int round = 0; round < rounds; ++round) {
            ASSERT_TRUE(defaults->removePersistentDomain());
            const std::vector<std::string> readings = race();
            const Opt stays = defaults->stringForKey("supplyId");
            ASSERT_TRUE(stays && std::count(channels.begin(), channels.end(), *stays) == 1) << stays.value_or("(nil)");
            ASSERT_EQ(readings.size(), channels.size());
            for (const std::string& reading : readings) {
                if (reading == *stays) continue;
                if (disagreeing++ == 0) first = "round " + std::to_string(round) + ": read " + reading;
            }
        }
        EXPECT_EQ(disagreeing, 0) << first << ", not the channel that stays";
    }

    nbtest::TempDir dir_{"nbconfig"};
    const fs::path home_ = dir_.path() / "home";
    std::shared_ptr<const MainBundle> bundle_;
    std::vector<std::string> preferred_{"fr_FR", "en"};
    std::unique_ptr<NBConfiguration> config_ = make(suite());
};

// Registered defaults answer but are never written; without a suite every getter answers NO or 0, even
// those whose default is YES.
TEST_F(NBConfigurationTest, FreshSuiteAnswersRegisteredDefaultsAndNoSuiteAnswersNothing) {
    const auto detached = make(nullptr);
    detached->setFps(30);
    detached->checkSupplyId();
    EXPECT_EQ(config_->fps(), 60);
    EXPECT_EQ(config_->frameSize(), (Size{1920, 1080}));
    EXPECT_TRUE(config_->isFullScreen() && config_->checkNetworkStable() && config_->firstLaunchGame());
    EXPECT_FALSE(config_->menuTipsShown());
    EXPECT_EQ(config_->userDefaults()->persistentDomain().size(), 0u);
    EXPECT_EQ(detached->fps(), 0);
    EXPECT_FALSE(detached->isFullScreen() || detached->checkNetworkStable() || detached->firstLaunchGame());
    EXPECT_EQ(detached->supplyId(), std::nullopt);
}

// Other processes and nbctl read the suite, so the stored keys and forms matter, and nothing may be kept
// back in this object: another instance on the suite sees every write at once.
TEST_F(NBConfigurationTest, StoredFormsKeysAndLanguageAreSharedThroughTheSuite) {
    const auto other = make(suite());
    config_->setFrameSize({1280.9, -720.5});
    config_->setSysMouseAcceleration(0.1);
    config_->setStepCost(12, 2.5);
    config_->setPictureQualityInterestExpiredTime(true, 1700000000);
    config_->setCheckNetworkStable(false);
    config_->setNimboToken("token");
    const Value stored = config_->userDefaults()->persistentDomain();
    EXPECT_EQ(stored["videoDisplayWidth"], Value(1280));
    EXPECT_EQ(stored["videoDisplayHeight"], Value(-720));
    EXPECT_EQ(stored["step_12"], Value(2.5));
    EXPECT_EQ(stored["svip_pqendtime"], Value(1700000000));
    EXPECT_EQ(other->sysMouseAcceleration(), static_cast<double>(0.1f));
    EXPECT_EQ(other->getPictureQualityInterestExpiredTime(false), 0);
    EXPECT_FALSE(other->checkNetworkStable());
    EXPECT_EQ(other->nimboToken(), "token");
    other->setNimboToken(std::nullopt);
    EXPECT_EQ(config_->nimboToken(), std::nullopt);

    EXPECT_EQ(config_->language(), "fr_FR");
    config_->userDefaults()->setObject(Value::array({}), "AppleLanguages");
    EXPECT_EQ(config_->language(), "fr_FR");
    config_->setLanguage("ja");
    config_->setLanguage(std::nullopt);
    EXPECT_EQ(config_->userDefaults()->objectForKey("AppleLanguages"), Value::array({"ja"}));
    EXPECT_EQ(other->language(), "ja");
}

TEST_F(NBConfigurationTest, ConfigurationFileStates) {
    const auto game = [](Value section) { return Value::dictionary({{"game", std::move(section)}}); };
    const auto env = [&](Value v) { writeConfig(game(Value::dictionary({{"envType", std::move(v)}}))); };
    const fs::path file = home_ / NBConfiguration::kSdkConfigFileName;
    const Opt nil;
    const struct {
        const char* name;
        std::function<void()> prepare;
        Value found;  // getSdkConfigValue("envType", "game")
        std::int64_t envType;
        Opt logLevel;
        bool nimboLog;
    } cases[] = {
        {"missing", [] {}, Value(""), 1, "", false},
        {"folder", [&] { fs::create_directory(home_ / NBConfiguration::kSdkConfigFileName); }, Value(""), 1, "", false},
        // Opening a FIFO for reading would wait for a writer forever.
        {"fifo", [&] { ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0); }, Value(""), 1, "", false},
        {"larger than the limit",
         [&] {
             writeFile("");
             fs::resize_file(file, PropertyList::kMaxFileSize + 1);  // sparse: costs no disk
         },
         Value(""), 1, "", false},
        {"link to a list",
         [&] {
             env("0");
             fs::rename(file, home_ / "target.plist");
             fs::create_symlink(home_ / "target.plist", file);
         },
         Value("0"), 0, nil, false},
        {"empty", [&] { writeFile(""); }, Value(), 1, nil, false},
        {"garbage", [&] { writeFile("bplist00\xff\x01\x02<dict>"); }, Value(), 1, nil, false},
        {"array root", [&] { writeConfig(Value::array({game(Value::dictionary({{"envType", "0"}}))})); }, Value(), 1,
         nil, false},
        {"section not a dictionary", [&] { writeConfig(game(Value("envType"))); }, Value(), 1, nil, false},
        {"no key", [&] { writeConfig(game(Value::dictionary({}))); }, Value(), 1, nil, false},
        {"envType 0", [&] { env("0"); }, Value("0"), 0, nil, false},
        {"envType empty", [&] { env(""); }, Value(""), 1, nil, false},
        {"binary, numbers",
         [&] {
             const Value debug = Value::dictionary({{"log_level", 3}, {"enable_nimbo_log", "YES"}});
             writeConfig(Value::dictionary({{"game", Value::dictionary({{"envType", 0}})}, {"debug", debug}}),
                         PropertyList::Format::Binary);
         },
         Value(0), 0, "3", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        fs::remove_all(home_ / NBConfiguration::kSdkConfigFileName);
        c.prepare();
        const Value found = config_->getSdkConfigValue("envType", "game");
        EXPECT_TRUE(found.kind() == c.found.kind() && found == c.found) << found.description();
        EXPECT_EQ(config_->envType(), c.envType);
        EXPECT_EQ(config_->logLevel(), c.logLevel);
        EXPECT_EQ(config_->enableNimboLog(), c.nimboLog);
        const std::string test = c.envType == 0 ? "-test" : "";
        EXPECT_EQ(config_->authApiBase(), "https://auth" + test + ".korvane-nimbo.com");
        EXPECT_EQ(config_->gameApiBase(), "https://api" + test + ".korvane-nimbo.com");
        EXPECT_EQ(config_->webApiBase(), "https://www" + test + ".korvane-nimbo.com");
    }
}

// The setters of file-backed values (and setSvipFlags) only fill fields nobody reads back. A rewrite of the
// same size shows at once, and a removed file gives the missing-file answers even where a parse was kept.
TEST_F(NBConfigurationTest, FileIsTheOnlySourceAndEveryChangeShowsAtTheNextRead) {
    const auto withEnv = [](const char* env) {
        return Value::dictionary({{"game", Value::dictionary({{"envType", env}})},
                                  {"debug", Value::dictionary({{"enable_sdk_log", true}})}});
    };
    writeConfig(withEnv("0"));
    EXPECT_EQ(config_->envType(), 0);
    writeConfig(withEnv("1"));
    config_->setEnvType(0);
    config_->setEnableSdkLog(false);
    EXPECT_EQ(config_->envType(), 1);
    EXPECT_TRUE(config_->enableSdkLog());
    // An hour on, the file is settled and its parse kept.
    const ManualClock later(Clock::system().now() + std::chrono::hours(1));
    const NBConfiguration settled(nullptr, home_, nullptr, nullptr, later);
    EXPECT_TRUE(settled.enableSdkLog());
    fs::remove(home_ / NBConfiguration::kSdkConfigFileName);
    const NBConfiguration* const readers[] = {config_.get(), &settled};
    for (const NBConfiguration* c : readers) {
        EXPECT_EQ(c->getSdkConfigValue("enable_sdk_log", "debug"), Value(""));
        EXPECT_FALSE(c->enableSdkLog());
        EXPECT_EQ(c->logLevel(), "");
        EXPECT_EQ(c->envType(), 1);
    }

    config_->setSvipFlags(3);
    EXPECT_EQ(config_->svipFlags(), 0);
    config_->setSVipFlags(2);
    config_->setSvipFlags(5);
    EXPECT_EQ(config_->svipFlags(), 2);
}

TEST_F(NBConfigurationTest, GameTags) {
    const struct {
        std::optional<Value> tags;  // nullopt: no file at all
        const char* version;
        const char* payChannel;
        Opt expected;
    } cases[] = {
        {Value("beta"), "0.0.1", "korvane", "beta"},        {Value(), "0.0.1", "", "mac_release"},
        {Value(), "3.9999.1", "", "mac_release"},           {Value(), "3.2.0", "korvane", "mac_release"},
        {Value(), "3.2.0", "other", std::nullopt},          {Value(""), "3.2.0", "other", ""},
        {std::nullopt, "3.2.0", "other", ""},               {std::nullopt, "39999.1", "other", ""}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.version) + " " + c.payChannel);
        fs::remove(home_ / NBConfiguration::kSdkConfigFileName);
        if (c.tags) writeConfig(Value::dictionary({{"game", Value::dictionary({{"game_tags", *c.tags}})}}));
        setBundle(Value::dictionary({{"CFBundleShortVersionString", c.version}, {"NIMBOPayChannel", c.payChannel}}));
        EXPECT_EQ(config_->gameTags(), c.expected);
    }
}

TEST_F(NBConfigurationTest, SupplyIdIsDecidedOnceFromTheBundle) {
    const std::pair<Value, const char*> cases[] = {
        {Value(), "nimbo"}, {Value(""), "nimbo"}, {Value(7), "nimbo"}, {Value("store"), "store"}};
    for (const auto& [channel, expected] : cases) {
        config_->userDefaults()->removePersistentDomain();
        setBundle(Value::dictionary({{"NIMBODistributionChannel", channel}}));
        config_->checkSupplyId();
        setBundle(Value::dictionary({{"NIMBODistributionChannel", "later"}}));
        config_->checkSupplyId();
        EXPECT_EQ(config_->supplyId(), expected);
    }
}

// The application, its plug-ins and nbctl each hold their own handle on the suite, with bundles that may
// name different channels; a first launch they race must still decide one channel for good.
TEST_F(NBConfigurationTest, HandlesRacingOnAFreshSuiteAllReadTheSupplyIdThatStays) {
    const std::vector<std::string> channels = {"c0", "c1", "c2", "c3", "c4", "c5"};
    std::vector<std::unique_ptr<NBConfiguration>> handles;
    for (const std::string& channel : channels) {
        auto bundle =
            std::make_shared<const MainBundle>(Value::dictionary({{"NIMBODistributionChannel", channel}}), home_);
        handles.push_back(std::make_unique<NBConfiguration>(
            suite(), home_, [bundle] { return bundle; }, [] { return std::vector<std::string>{}; }));
    }
    expectEveryReaderAgrees(100, channels, [&] {
        std::vector<std::string> readings(handles.size());
        std::latch start(static_cast<std::ptrdiff_t>(handles.size()));
        std::vector<std::thread> threads;
        for (std::size_t i = 0; i < handles.size(); ++i) {
            threads.emplace_back([&, i] {
                start.arrive_and_wait();
                handles[i]->checkSupplyId();
                readings[i] = handles[i]->supplyId().value_or("(nil)");
            });
        }
        for (std::thread& thread : threads) thread.join();
        return readings;
    });
}

// The same race between processes. Each child opens the suite, says "ready" and blocks on a pipe; closing
// the pipe's write end releases all of them at once.
TEST_F(NBConfigurationTest, ProcessesRacingOnAFreshSuiteAllReadTheSupplyIdThatStays) {
    const std::vector<std::string> channels = {"p0", "p1", "p2", "p3"};
    const std::string tool = std::string(NBBASE_TEST_TOOLS_DIR) + "/nbtest_supply_child";
    expectEveryReaderAgrees(12, channels, [&] {
        std::vector<std::string> readings;
        int gate[2];
        if (::pipe2(gate, O_CLOEXEC) != 0) return readings;
        // Only the read end is inherited, so the children see end of file once the test closes its end.
        (void)::fcntl(gate[0], F_SETFD, 0);
        std::vector<test::ChildProcess> children;
        for (const std::string& channel : channels) {
            children.push_back(test::ChildProcess::start(
                {tool, (dir_.path() / "prefs").string(), home_.string(), channel, std::to_string(gate[0])}));
        }
        ::close(gate[0]);
        for (test::ChildProcess& child : children) {
            for (std::string line; (line = child.readLine()) != "ready" && !line.empty();) {
            }
        }
        ::close(gate[1]);
        for (test::ChildProcess& child : children) {
            const std::string output = child.readAll();
            const int status = child.wait();
            const auto at = output.find("supplyId=");
            const auto start = at + std::string_view("supplyId=").size();
            readings.push_back(status == 0 && at != std::string::npos
                                   ? output.substr(start, output.find('\n', start) - start)
                                   : "exit status " + std::to_string(status) + ": " + output);
        }
        return readings;
    });
}

TEST_F(NBConfigurationTest, UserProfileDropsTopLevelNullsOnly) {
    const nbtest::ErrorLog quiet;
    config_->setUserProfile(Value::dictionary({{"name", "ann"}, {"avatar", Value::null()}}));
    EXPECT_EQ(config_->userProfile(), Value::dictionary({{"name", "ann"}}));
    // The suite refuses a nested null and a non-dictionary is refused here: the stored profile stays.
    config_->setUserProfile(Value::dictionary({{"name", "bob"}, {"extra", Value::array({Value::null()})}}));
    config_->setUserProfile(Value("ann"));
    EXPECT_EQ(config_->userProfile(), Value::dictionary({{"name", "ann"}}));
    config_->setUserProfile(Value());
    EXPECT_TRUE(config_->userProfile().isAbsent());
}

TEST_F(NBConfigurationTest, PerGameKeys) {
    const Opt nil;
    const struct {
        std::function<void(NBConfiguration&)> write;
        const char* key;  // nullptr: nothing may be written
    } cases[] = {
        {[](auto& c) { c.setSvipFrameAlert("7", true); }, "7bd_alert"},
        {[](auto& c) { c.setSvipFrameAlert("", true); }, "bd_alert"},
        {[&](auto& c) { c.setSvipFrameAlert(nil, true); }, nullptr},
        {[](auto& c) { c.setFrameByGameId("1234", 0); }, "1234_frame"},
        {[](auto& c) { c.setFrameByGameId("", 90); }, nullptr},
        {[&](auto& c) { c.setFrameByGameId(nil, 90); }, nullptr},
        {[](auto& c) { c.setMouseLock("9", false); }, "9_mouselock"}, {[](auto& c) { c.setMouseLock("", 1); }, nullptr},
        {[](auto& c) { c.setFpsByGameId("9", 30); }, "9_fps"}, {[](auto& c) { c.setFpsByGameId("", 30); }, nullptr},
        {[](auto& c) { c.setEnableVideoQuality("9", true); }, "9_enhance"},
        {[](auto& c) { c.setEnableVideoQuality("", true); }, nullptr},
        {[](auto& c) { c.setEnableAgainstMenuTouch("9", true); }, "9_againstMenuTouch"},
        {[](auto& c) { c.setEnableAgainstMenuTouch("", true); }, nullptr},
    };
    const auto defaults = config_->userDefaults();
    for (const auto& c : cases) {
        defaults->removePersistentDomain();
        c.write(*config_);
        const Value stored = defaults->persistentDomain();
        EXPECT_EQ(stored.size(), c.key ? 1u : 0u) << (c.key ? c.key : "nothing");
        EXPECT_TRUE(c.key == nullptr || stored.contains(c.key)) << c.key;
    }
    // A value set to NO or 0 is told apart from one never set.
    defaults->removePersistentDomain();
    config_->setFrameByGameId("1234", 0);
    config_->setMouseLock("1234", false);
    EXPECT_TRUE(config_->hasFrameByGameId("1234"));
    EXPECT_TRUE(config_->existMouseLock("1234"));
    EXPECT_FALSE(config_->hasFpsByGameId("1234"));
    // Unguarded reads form a key from the empty id; guarded ones and nil never do.
    ASSERT_TRUE(defaults->setBool(true, "_enhance") && defaults->setInteger(45, "_fps") &&
                defaults->setBool(true, "bd_alert") && defaults->setInteger(5, "_frame"));
    EXPECT_TRUE(config_->enableVideoQuality(""));
    EXPECT_EQ(config_->getFpsByGameId(""), 45);
    EXPECT_TRUE(config_->showSvipFrameAlert(""));
    EXPECT_FALSE(config_->hasEnableVideoQuality("") || config_->hasFpsByGameId("") || config_->hasFrameByGameId(""));
    EXPECT_EQ(config_->getFrameByGameId(""), 0);
    EXPECT_FALSE(config_->enableVideoQuality(nil) || config_->showSvipFrameAlert(nil));
    EXPECT_EQ(config_->getFpsByGameId(nil), 0);
}

TEST_F(NBConfigurationTest, SuiteCanBeSwappedWhileOtherThreadsRead) {
    const auto first = config_->userDefaults();
    const auto second = suite();
    make(second);  // registers its defaults
    std::atomic<bool> stop{false};
    std::atomic<int> reads{0};
    std::thread reader([&] {
        while (!stop.load()) {
            if (config_->fps() != 60) ADD_FAILURE() << "read a suite without its defaults";
            ++reads;
        }
    });
    for (int i = 0; i < 200 || reads.load() < 50; ++i) config_->setUserDefaults(i % 2 ? first : second);
    stop = true;
    reader.join();
}

}  // namespace
}  // namespace nb
