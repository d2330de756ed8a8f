#include "nbbase/core/NBZoneCache.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "ErrorLog.h"
#include "TempDir.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/ManualClock.h"

namespace nb {
namespace {

namespace fs = std::filesystem;

struct Network {
    std::optional<WiFiInterface> wifi;
    std::optional<std::vector<std::string>> addresses;
};

class FakeNetwork final : public NetworkInterfaces {
public:
    std::optional<std::vector<std::string>> ipv4Addresses() const override { return now.addresses; }
    std::optional<WiFiInterface> wifiInterface() const override { return now.wifi; }
    Network now;
};

// On Wi-Fi (ssid null: an interface that has joined nothing) or on a cable.
Network wifi(const char* ssid, std::vector<std::string> addresses = {"10.0.0.1"}) {
    return {WiFiInterface{"wlan0", ssid ? std::optional<std::string>(ssid) : std::nullopt}, std::move(addresses)};
}
Network cable(std::vector<std::string> addresses = {"10.0.0.1"}) { return {std::nullopt, std::move(addresses)}; }

Value json(const char* text) { return Json::decode(text).value_or(Value()); }

class NBZoneCacheTest : public testing::Test {
protected:
    void SetUp() override { fs::create_directories(home_); }

    fs::path configFile() const { return home_ / NBConfiguration::kSdkConfigFileName; }
    void writeConfig() const { std::ofstream(configFile()) << "<plist/>"; }
    void setConfigTime(double seconds) const {
        const auto whole = static_cast<time_t>(seconds);
        const timespec times[2] = {{0, UTIME_OMIT},
                                   {whole, static_cast<long>((seconds - static_cast<double>(whole)) * 1e9)}};
        ASSERT_EQ(::utimensat(AT_FDCWD, configFile().c_str(), times, 0), 0);
    }
    Value record() const { return config_.speedTestDict(); }

    nbtest::TempDir dir_{"nbzone"};
    const fs::path home_ = dir_.path() / "home";
    const std::shared_ptr<UserDefaults> suite_ =
        std::make_shared<UserDefaults>(std::string(NBConfiguration::kSuiteName), dir_.path() / "prefs");
    NBConfiguration config_{suite_, home_, [] { return nullptr; }, [] { return std::vector<std::string>{}; }};
    ManualClock clock_{Clock::fromSecondsSince1970(1'700'000'000.5)};
    const std::shared_ptr<FakeNetwork> network_ = std::make_shared<FakeNetwork>();
    NBZoneCache cache_{config_, network_, clock_};
};

TEST_F(NBZoneCacheTest, RecordHoldsTheNetworkTimeAndConfigurationOfTheTest) {
    writeConfig();
    setConfigTime(1'600'000'000.25);
    network_->now = wifi("home", {"127.0.0.1", "192.168.1.4"});
    const Value entries = json(R"([{"zoneId": 3, "rtt": 12}, "kept as it is"])");
    cache_.speedTestEnd(entries);
    EXPECT_EQ(record(), Value::dictionary({{"testResult", entries}, {"ssid", "home"}, {"ipAddress", "192.168.1.4"},
                                           {"testTime", Date{1'700'000'000.5}},
                                           {"configModifyTime", 1'600'000'000.25}}));

    // Without Wi-Fi, addresses or the file, the keys are left out and the time is 0.
    fs::remove(configFile());
    network_->now = cable({});
    cache_.speedTestEnd(entries);
    EXPECT_EQ(record(), Value::dictionary({{"testResult", entries}, {"testTime", Date{1'700'000'000.5}},
                                           {"configModifyTime", 0.0}}));
}

TEST_F(NBZoneCacheTest, VerdictRules) {
    enum class Config { Missing, Unchanged, CreatedAfter, EditedAfter };
    struct Case {
        const char* name;
        Network atTest;
        Network now;
        NetworkVerdict verdict;
        double ageSeconds = 0;
        Config config = Config::Missing;
        std::function<void(Value&)> tamper = {};  // rewrites the stored record; absent removes it
    };
    using enum NetworkVerdict;
    const auto time = [](Value& r) { r.set("testTime", 1'700'000'000.5); };
    const Case cases[] = {
        {"no record", cable(), cable(), NoRecord, 0, Config::Missing, [](Value& r) { r = Value(); }},
        {"record not a dictionary", cable(), cable(), NoRecord, 0, Config::Missing, [](Value& r) { r = "x"; }},
        {"configuration untouched", wifi("home"), wifi("home"), SameSsid, 0, Config::Unchanged},
        {"configuration created", wifi("home"), wifi("home"), ConfigurationEdited, 0, Config::CreatedAfter},
        {"configuration edited", wifi("home"), wifi("home"), ConfigurationEdited, 0, Config::EditedAfter},
        {"unreadable stored time, no file", cable(), cable(), SameSsid, 0, Config::Missing,
         [](Value& r) { r.set("configModifyTime", "soon"); }},
        {"24 hours old", wifi("home"), wifi("home"), SameSsid, 86400},
        {"25 hours old", wifi("home"), wifi("home"), Expired, 25 * 3600},
        {"test time not a date", wifi("home"), wifi("home"), NoTestTime, 0, Config::Missing, time},
        {"Wi-Fi not joined", wifi("home"), wifi(nullptr), WiFiNotJoined},
        {"same SSID, new address", wifi("home"), wifi("home", {"10.0.0.9"}), SameSsid},
        {"no Wi-Fi then or now", cable(), cable({"10.0.0.9"}), SameSsid},
        {"stored SSID not a string", cable(), cable({"10.0.0.9"}), SameSsid, 0, Config::Missing,
         [](Value& r) { r.set("ssid", 5); }},
        {"other SSID, same address", wifi("home"), wifi("work"), SameAddress},
        {"Wi-Fi gone, same address", wifi("home"), cable(), SameAddress},
        {"other SSID, other address", wifi("home"), wifi("work", {"10.0.0.2"}), AddressChanged},
        {"the last address counts, loopback too", wifi("home", {"10.0.0.1", "127.0.0.1"}),
         wifi("work", {"192.168.0.7", "127.0.0.1"}), SameAddress},
        {"other SSID, no address", wifi("home"), wifi("work", {}), NoAddress},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        fs::remove(configFile());
        if (c.config == Config::Unchanged || c.config == Config::EditedAfter) writeConfig();
        network_->now = c.atTest;
        cache_.speedTestEnd(json(R"([{"zoneId": 3}, {"zoneId": "17"}])"));
        if (c.tamper) {
            Value stored = record();
            c.tamper(stored);
            ASSERT_TRUE(suite_->setObject(stored, "speedTest"));
        }
        if (c.config == Config::CreatedAfter) writeConfig();
        if (c.config == Config::EditedAfter) setConfigTime(cache_.configModifiyTime() + 0.5);
        clock_.advanceSeconds(c.ageSeconds);
        network_->now = c.now;

        EXPECT_EQ(cache_.networkVerdict(), c.verdict) << NBZoneCache::describe(cache_.networkVerdict());
        const bool valid = c.verdict == SameSsid || c.verdict == SameAddress;
        EXPECT_EQ(cache_.checkNetworkChange(), !valid);
        EXPECT_EQ(cache_.zoneId(), valid ? "3,17" : "");
        // An invalid record is gone from the suite, whatever kind it was.
        EXPECT_EQ(suite_->objectForKey("speedTest").isAbsent(), !valid);
        clock_.setSecondsSince1970(1'700'000'000.5);
    }
}

TEST_F(NBZoneCacheTest, SpeedTestEndStoresOrKeepsTheEarlierRecord) {
    const struct {
        const char* name;
        Value entries;
        const char* zones;  // zoneId() afterwards; "9" is the earlier record's
    } cases[] = {
        {"backup true", json(R"([{"zoneId": 1}, {"zoneId": 2, "backup": true}])"), "9"},
        {"backup YES", json(R"([{"zoneId": 1, "backup": "YES"}])"), "9"},
        {"backup no", json(R"([{"zoneId": 1, "backup": "no"}, {"zoneId": 2, "backup": 0}])"), "1,2"},
        {"entries of every kind", json(R"([5, "backup", [{"backup": true}], {"zoneId": 4}])"), "4"},
        {"empty", json("[]"), "9"},
        {"not an array", json(R"({"zoneId": 1})"), "9"},
        {"absent", Value(), "9"},
        {"a null the suite cannot hold", json(R"([{"zoneId": 1, "note": null}])"), "9"},
    };
    nbtest::ErrorLog errors;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        cache_.speedTestEnd(Value::array({Value::dictionary({{"zoneId", "9"}})}));
        cache_.speedTestEnd(c.entries);
        EXPECT_EQ(cache_.zoneId(), c.zones);
    }
    EXPECT_EQ(errors.count("speedTest"), 1);
}

TEST_F(NBZoneCacheTest, ZoneIdsJoinWithoutEmptyItems) {
    const struct {
        const char* entries;
        const char* zones;
    } cases[] = {
        {R"([{"zoneId": 3}, {"zoneId": "17"}, {"zoneId": 2.5}])", "3,17,2.5"},
        {R"([{"rtt": 1}, {"zoneId": ""}, {"zoneId": [1]}, {"zoneId": {}}, {"zoneId": "a"}, 7, [{"zoneId": 8}]])",
         "a"},
        {R"([{"zoneId": ""}, {"name": "x"}])", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.entries);
        cache_.speedTestEnd(json(c.entries));
        EXPECT_EQ(cache_.zoneId(), c.zones);
        EXPECT_TRUE(record().isDictionary()) << "a valid record without zone ids is kept";
    }

    // A record whose entries are not a list is removed.
    Value broken = record();
    broken.set("testResult", "3,17");
    ASSERT_TRUE(suite_->setObject(broken, "speedTest"));
    EXPECT_EQ(cache_.zoneId(), "");
    EXPECT_TRUE(suite_->objectForKey("speedTest").isAbsent());
}

}  // namespace
}  // namespace nb
