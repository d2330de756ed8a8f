#include <atomic>
#include <fstream>
#include <mutex>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "TempDir.h"
#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/PropertyList.h"
#include "nbbase/sdk/ReplaySdk.h"

namespace {

using namespace nb;

class NimboSdkManagerTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(dir_.path().empty());
        std::filesystem::create_directories(dir_.path() / "home");
        const Value root = Value::dictionary({
            {"game", Value::dictionary({{"envType", Value(4294967301LL)}})},  // 2^32 + 5
            {"debug", Value::dictionary({{"enable_sdk_log", true}, {"log_level", "3"}, {"enable_report_log", true}})},
        });
        const auto bytes = PropertyList::write(root, PropertyList::Format::Xml);
        ASSERT_TRUE(bytes);
        std::ofstream(dir_.path() / "home" / NBConfiguration::kSdkConfigFileName, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes->data()), static_cast<std::streamsize>(bytes->size()));
        log_.setLogHandler([](std::int32_t, const std::string&) {});  // quiet until initializeSDK replaces it
        config_.setVipFlags(3);
        config_.setSVipFlags(7);
    }

    // Every instance the bridge asked for, newest last.
    std::shared_ptr<ReplaySdk> made(std::size_t index) {
        std::lock_guard lock(mutex_);
        return index < made_.size() ? made_[index] : nullptr;
    }
    std::vector<Value> argumentsOf(std::size_t instance, const std::string& operation) {
        std::vector<Value> result;
        for (const auto& call : made(instance)->calls(operation)) result.push_back(call.arguments);
        return result;
    }

    nbtest::TempDir dir_{"nbsdkmanager"};
    NBConfiguration config_{std::make_shared<UserDefaults>(std::string(NBConfiguration::kSuiteName), dir_.path()),
                            dir_.path() / "home"};
    std::atomic<std::int32_t> networkType_{NBNetworkCheck::kWired};
    NBNetworkCheck network_{[this] { return networkType_.load(); }};
    NBLog log_;
    std::mutex mutex_;
    std::vector<std::shared_ptr<ReplaySdk>> made_;  // guarded by mutex_
    NimboSdkManager bridge_{[this] {
                                auto sdk = std::make_shared<ReplaySdk>();
                                std::lock_guard lock(mutex_);
                                made_.push_back(sdk);
                                return sdk;
                            },
                            [] { return std::make_shared<MainBundle>(Value::dictionary({{"CFBundleVersion", "2.7"}}),
                                                                     std::filesystem::path()); },
                            config_, network_, log_};
};

TEST_F(NimboSdkManagerTest, EveryForwarderIsSilentWithoutAnInstance) {
    std::atomic<int> callbacks{0};
    NimboSdkManager::SuccessBlock success = [&](const Value&) { ++callbacks; };
    NimboSdkManager::FailureBlock failure = [&](std::int32_t, std::int32_t, std::int32_t) { ++callbacks; };
    NimboSdkManager& b = bridge_;
    const std::uint8_t bytes[] = {1, 2};
    const std::vector<std::function<bool()>> forwarders = {
        [&] { return b.startPersistentConnectionService(Value(1)).isAbsent(); },
        [&] { return b.getTimeStamp() == 0; },
        [&] { return b.getReportCommonParams().isAbsent(); },
        [&] { return b.getNimboCommonHeaderEncryptText() == std::nullopt; },
        [&] { b.stopPersistentConnectionService(), b.syncUserLoginInfo(Value(1)), b.logout(); return true; },
        [&] { b.sendStrategyCenterCmdRequest(Value(1), bytes, 2), b.checkInstanceStatus(Value(1), 1); return true; },
        [&] { b.getUserDialogList(Value(1), {success, failure}); return true; },
        [&] { b.getInternalMessageStatisticInfo(Value(1), Value(2), {success, failure}); return true; },
        [&] { b.reportUserDialogExecute(1, 2, 3, 4), b.reportError(1, 2, 3, "m"), b.recordGameId("g"); return true; },
        [&] { b.updateUserId("u"), b.updateOpenId("o"), b.updateVipFlag(1, 2), b.setNetMaxBitrate(5); return true; },
        [&] { b.enableSilenceDetect(1), b.enableSvipFeatureVersion(1), b.interfaceTypeDidChange(1); return true; },
        [&] { b.beaconCommonReport(1, 2, "d", "e"), b.dataReportEventId(1, "g", "u"); return true; },
        [&] { b.dataReportEventId(1, 2, 3); return true; },
        [&] { b.getUserFullInterests("t", "[]", "i", "[1]", success, failure); return true; },
        [&] { b.takeUserTriableInterests("t", Value(1), success, failure); return true; },
        [&] { b.checkGameHangUpStatus(Value(1), success, failure); return true; },
        [&] { b.startHangUp("t", "g", "i", 60, success, failure), b.stopHangUp("t", "g", "i", success, failure); return true; },
        [&] { b.kickUserInstance("t", "i", Value(1), success, failure); return true; },
        [&] { b.getSceneTasks("t", "svip", Value(1), "watch_ads", success, failure); return true; },
        [&] { b.getCommonMiniProgramQRCode("n", "p", "t", "a", success, failure); return true; },
    };
    for (std::size_t i = 0; i < forwarders.size(); ++i) EXPECT_TRUE(forwarders[i]()) << "before, #" << i;
    EXPECT_EQ(made(0), nullptr);

    bridge_.initializeSDK(nullptr);
    bridge_.uninitializeSDK();
    auto sdk = made(0);
    ASSERT_TRUE(sdk);
    sdk->clearCalls();
    for (const auto& call : {"getTimeStamp", "getReportCommonParams", "getNimboCommonHeaderEncryptText"}) {
        sdk->setReply(call, Value("answered"));
    }
    for (std::size_t i = 0; i < forwarders.size(); ++i) EXPECT_TRUE(forwarders[i]()) << "after, #" << i;
    EXPECT_TRUE(sdk->calls().empty());  // a callback could only come from a call the SDK received
    EXPECT_EQ(callbacks.load(), 0);
}

TEST_F(NimboSdkManagerTest, InitializesWithTheSettingsAndReplacesWithoutUninit) {
    bridge_.initializeSDK(std::make_shared<int>(1), "u1", "o1", true);
    ASSERT_TRUE(made(0));
    EXPECT_EQ(bridge_.sdkInstance(), made(0));
    std::vector<std::string> order;
    for (const auto& call : made(0)->calls()) order.push_back(call.operation);
    EXPECT_EQ(order, (std::vector<std::string>{"initWithListener", "setNetworkInterfaceType", "enableBuiltinGamepadManager"}));
    const Value init = argumentsOf(0, "initWithListener").at(0);
    EXPECT_EQ(init["envType"].longLongValue(), 5);
    EXPECT_EQ(init["userId"].stringValue() + init["openId"].stringValue(), "u1o1");
    EXPECT_EQ(Json::encode(init["extra"]),
              R"({"enableSdkLog":true,"logLevel":"3","disableBeanconReport":false,"vipFlag":3,"svipFlag":7})");
    EXPECT_EQ(argumentsOf(0, "setNetworkInterfaceType").at(0)["type"], Value(NBNetworkCheck::kWired));
    EXPECT_EQ(argumentsOf(0, "enableBuiltinGamepadManager").at(0)["enable"], Value(true));

    const auto held = bridge_.sdkInstance();  // a model holding the instance keeps it through re-initialising
    bridge_.initializeSDK(nullptr);
    EXPECT_EQ(bridge_.sdkInstance(), made(1));
    EXPECT_TRUE(made(0)->calls("uninit").empty());
    EXPECT_FALSE(argumentsOf(1, "initWithListener").at(0).contains("userId"));
    EXPECT_EQ(argumentsOf(1, "enableBuiltinGamepadManager").at(0)["enable"], Value(false));
    EXPECT_EQ(held, made(0));

    bridge_.uninitializeSDK();
    EXPECT_EQ(made(1)->calls("uninit").size(), 1u);
    EXPECT_EQ(bridge_.sdkInstance(), nullptr);
    EXPECT_EQ(bridge_.sdkVersion(), "2.7");
}

TEST_F(NimboSdkManagerTest, LogLinesReachTheInstanceAtTheSdkLevel) {
    bridge_.initializeSDK(nullptr);
    log_.log(4, "error {}", 1);
    log_.log(7, "odd");
    log_.log(0, "zero");
    const auto lines = argumentsOf(0, "reportLog");
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(Json::encode(lines[0]), R"({"level":8,"file":"","function":"","line":0,"content":"error 1"})");
    EXPECT_EQ(lines[1]["level"], Value(0));
    EXPECT_EQ(lines[2]["level"], Value(1));

    bridge_.uninitializeSDK();
    log_.log(4, "dropped");
    EXPECT_EQ(argumentsOf(0, "reportLog").size(), 3u);
}

TEST_F(NimboSdkManagerTest, DataReportsSendPrettyJsonBodies) {
    bridge_.initializeSDK(nullptr);
    bridge_.dataReportEventId(9, std::string("g1"), std::nullopt);
    bridge_.dataReportEventId(10, -3, 1099511627776LL);
    bridge_.dataReportEventId(11, std::string("\xff"), std::string("u"));  // not UTF-8: logged, not sent
    const auto reports = argumentsOf(0, "beaconCommonReport");
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[0]["eventId"], Value(9));
    EXPECT_EQ(reports[0]["eventCode"], Value(0));
    EXPECT_EQ(reports[0]["eventExt"], Value(""));
    EXPECT_NE(reports[0]["eventData"].stringValue().find('\n'), std::string::npos);
    EXPECT_EQ(Json::encode(*Json::decode(reports[0]["eventData"].stringValue())),
              R"({"result":1,"code":"","data":{"game_id":"g1"}})");
    EXPECT_EQ(Json::encode(*Json::decode(reports[1]["eventData"].stringValue())),
              R"({"result":-3,"code":1099511627776,"data":""})");

    // With enableReportLog on, each report is logged at level 2, which the handler passes to the SDK as 2.
    std::vector<std::string> logged;
    for (const auto& line : argumentsOf(0, "reportLog")) logged.push_back(line["content"].stringValue());
    ASSERT_EQ(logged.size(), 3u);
    EXPECT_EQ(logged[0], "beaconCommonReport:[9,0," + reports[0]["eventData"].stringValue() + "]");
    EXPECT_EQ(logged[2].rfind("jsonError: ", 0), 0u) << logged[2];
}

TEST_F(NimboSdkManagerTest, BitrateHeaderTextAndNetworkChanges) {
    bridge_.initializeSDK(nullptr);
    auto sdk = made(0);
    bridge_.setNetMaxBitrate(20);
    bridge_.setNetMaxBitrate(5000);  // 5e9 wraps to 5e9 - 2^32
    const auto sent = argumentsOf(0, "sendBandwidthConfig");
    ASSERT_EQ(sent.size(), 2u);
    EXPECT_EQ(Json::encode(sent[0]), R"({"netMaxBitrate":20000000,"netUpload":0,"netLatency":0})");
    EXPECT_EQ(sent[1]["netMaxBitrate"], Value(705032704));

    sdk->setReply("getNimboCommonHeaderEncryptText", Value("a b/c~.-_Az09+=\xc3\xa9"));
    EXPECT_EQ(bridge_.getNimboCommonHeaderEncryptText(), "a%20b%2Fc~.-_Az09%2B%3D%C3%A9");

    sdk->clearCalls();
    networkType_ = NBNetworkCheck::kWiFi;
    network_.recheck();
    EXPECT_EQ(argumentsOf(0, "setNetworkInterfaceType").at(0)["type"], Value(NBNetworkCheck::kWiFi));
}

// Re-initialising on one thread while others log and forward: no race, and the log handler of a destroyed
// bridge neither crashes nor reaches an instance.
TEST_F(NimboSdkManagerTest, ForwardersAndLoggingRaceReinitialisation) {
    bridge_.initializeSDK(nullptr);  // from here on, lines go to the handler, not to standard error
    std::atomic<bool> stop{false};
    std::vector<std::thread> users;
    for (int t = 0; t < 2; ++t) {
        users.emplace_back([&] {
            while (!stop) log_.log(2, "line"), bridge_.setNetMaxBitrate(1), bridge_.recordGameId("g");
        });
    }
    for (int i = 0; i < 50; ++i) i % 3 ? bridge_.initializeSDK(nullptr) : bridge_.uninitializeSDK();
    stop = true;
    for (auto& user : users) user.join();

    auto orphan = std::make_unique<NimboSdkManager>([] { return std::make_shared<ReplaySdk>(); },
                                                    NimboSdkManager::SdkBundleProvider(), config_, network_, log_);
    orphan->initializeSDK(nullptr);
    const auto orphanSdk = std::dynamic_pointer_cast<ReplaySdk>(orphan->sdkInstance());
    orphan.reset();
    log_.log(4, "after");
    network_.recheck();
    EXPECT_TRUE(orphanSdk->calls("reportLog").empty());
}

}  // namespace
