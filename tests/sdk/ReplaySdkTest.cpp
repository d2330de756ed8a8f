#include "nbbase/sdk/ReplaySdk.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <map>
#include <mutex>
#include <thread>

#include "ErrorLog.h"
#include "TempDir.h"
#include "nbbase/foundation/Json.h"

namespace {

using namespace std::chrono_literals;
using nb::ReplaySdk;
using nb::Value;
using Clock = std::chrono::steady_clock;

// What the callbacks saw, by tag: a success's reply, or a failure's codes as an array. Held by shared_ptr
// so that callbacks outliving a test touch nothing dead.
struct Inbox {
    std::mutex mutex;
    std::condition_variable changed;
    std::map<std::string, Value> answers;
    int offQueue = 0;  // answers delivered anywhere but on the ReplaySdk's own queue

    void add(const std::string& tag, Value answer, bool onQueue = true) {
        std::lock_guard lock(mutex);
        answers[tag] = std::move(answer);
        offQueue += !onQueue;
        changed.notify_all();
    }
    bool waitFor(std::size_t n) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, 20s, [&] { return answers.size() >= n; });
    }
    Value operator[](const std::string& tag) {
        std::lock_guard lock(mutex);
        return answers[tag];
    }
    // The ReplaySdk must be alive when these are called.
    auto success(const std::string& tag, ReplaySdk& sdk) {
        return [this, tag, &sdk](const Value& reply) { add(tag, reply, sdk.isAnswerQueueCurrent()); };
    }
    auto failure(const std::string& tag) {
        return [this, tag](std::int32_t a, std::int32_t b, std::int32_t c) { add(tag, Value::array({a, b, c})); };
    }
};

class ReplaySdkTest : public ::testing::Test {
protected:
    void write(const std::string& name, const std::string& content) {
        std::ofstream(dir_.path() / name, std::ios::binary) << content;
    }

    nbtest::ErrorLog errors_;
    nbtest::TempDir dir_{"replaysdk"};
    std::shared_ptr<Inbox> inbox_ = std::make_shared<Inbox>();
    Inbox& in_ = *inbox_;
};

TEST_F(ReplaySdkTest, DeliversEachOperationInItsOwnForm) {
    const std::string interests = "{ \"code\" : 0,\n  \"list\": [1, 2] }", coupons = R"({"count": 3})";
    write("getUserFullInterests.json", interests);
    write("getGameGlobalConfig.json", R"({"enable_svip": true, "fps": {"60": 1}})");
    write("getTimeStamp.json", "1700000000");
    write("connectAccelerateRouter.json", "true");
    write("getHttpUserAgent.json", "\"Agent/1.0\"");
    write("getCommonMiniProgramQRCode.png", std::string("\x89PNG\0\r\n", 7));
    write("queryCoupons.json", coupons);
    write("requestClickButtonCallback.json", R"({"code": 7, "message": "done"})");
    ReplaySdk sdk(dir_.path());

    EXPECT_EQ(sdk.getGameGlobalConfig(Value::dictionary({{"userid", "u"}}))["fps"]["60"], Value(1));
    EXPECT_EQ(sdk.getTimeStamp(), 1700000000);
    EXPECT_TRUE(sdk.connectAccelerateRouter());
    EXPECT_EQ(sdk.getHttpUserAgent(), "Agent/1.0");

    sdk.getUserFullInterests("tok", "[]", std::nullopt, "[1,2,3,4,5,6,7]", in_.success("interests", sdk),
                             in_.failure("interests"));
    sdk.getCommonMiniProgramQRCode("x", "p", "tok", "ad", in_.success("qr", sdk), in_.failure("qr"));
    sdk.queryCoupons(Value(), in_.success("coupons", sdk), [](std::int32_t) {});
    sdk.requestClickButtonCallback(Value("ctx"), "ticket", 1, [this, &sdk](std::int32_t code, const auto& message) {
        in_.add("click", Value(code == 7 && message == "done"), sdk.isAnswerQueueCurrent());
    });
    ASSERT_TRUE(in_.waitFor(4));
    EXPECT_EQ(in_["interests"], Value(interests));  // the file's own text, not re-encoded
    EXPECT_EQ(in_["qr"], Value(nb::Data{0x89, 'P', 'N', 'G', 0, '\r', '\n'}));
    EXPECT_EQ(in_["coupons"], Value(nb::Data(coupons.begin(), coupons.end())));
    EXPECT_EQ(in_["click"], Value(true));
    EXPECT_EQ(in_.offQueue, 0);
}

// An answer to a request made from inside a callback waits until that callback has returned.
TEST_F(ReplaySdkTest, NeverAnswersInsideTheCall) {
    ReplaySdk sdk;
    sdk.setReply("queryUserPropertyInterests", Value("{}"));
    std::atomic<bool> insideCall{false};
    auto inbox = inbox_;
    sdk.queryUserPropertyInterests(
        [&sdk, &insideCall, inbox](const Value&) {
            insideCall = true;
            sdk.queryUserPropertyInterests([&insideCall, inbox](const Value&) { inbox->add("inner", !insideCall); },
                                           {});
            insideCall = false;
        },
        {});
    ASSERT_TRUE(inbox->waitFor(1));
    EXPECT_EQ((*inbox)["inner"], Value(true));
}

TEST_F(ReplaySdkTest, FailuresMissingAndInvalidRecordings) {
    write("getSceneTasks.fail", " 7 -8\n9\n");
    write("getSceneTasks.json", "{}");  // the failure wins
    write("getGameTipsConfig.fail", "1 2 3");
    write("queryCoupons.fail", "5 0 0");
    write("getMaintainPageConfig.json", "{oops");
    write("startHangUp.fail", "1 2");  // not three integers
    ReplaySdk sdk(dir_.path());

    EXPECT_TRUE(sdk.getGameTipsConfig().isAbsent());
    EXPECT_TRUE(sdk.getMaintainPageConfig().isAbsent());
    EXPECT_TRUE(sdk.getTipsButtonInfo().isAbsent());
    EXPECT_TRUE(sdk.getTipsButtonInfo().isAbsent());
    EXPECT_EQ(errors_.count("getMaintainPageConfig.json"), 1);
    EXPECT_EQ(errors_.count("getTipsButtonInfo.json"), 1);  // a missing file is reported once
    EXPECT_EQ(sdk.getTimeStamp(), 0);
    EXPECT_EQ(sdk.getNimboCommonHeaderEncryptText(), std::nullopt);

    sdk.getSceneTasks("t", "svip", Value(), "watch_ads", in_.success("scene", sdk), in_.failure("scene"));
    sdk.stopHangUp("t", "g", "i", in_.success("stop", sdk), in_.failure("stop"));
    sdk.startHangUp("t", "g", "i", 60, in_.success("start", sdk), in_.failure("start"));
    sdk.queryCoupons(Value(), {}, [this](std::int32_t code) { in_.add("coupons", Value::array({code})); });
    sdk.requestPopupWindowInfo("t", Value::array({"s"}), "g", std::nullopt,
                               [this](std::int32_t code, const Value&, const Value& reply) {
                                   in_.add("popup", Value::array({code, reply.isAbsent()}));
                               });
    ASSERT_TRUE(in_.waitFor(5));
    EXPECT_EQ(in_["scene"], Value::array({7, -8, 9}));
    EXPECT_EQ(in_["stop"], Value::array({-1, -1, -1}));
    EXPECT_EQ(in_["start"], Value::array({-1, -1, -1}));
    EXPECT_EQ(in_["coupons"], Value::array({5}));
    EXPECT_EQ(in_["popup"], Value::array({-1, true}));
    EXPECT_EQ(errors_.count("stopHangUp.json"), 1);
    EXPECT_EQ(errors_.count("startHangUp.fail"), 1);
}

TEST_F(ReplaySdkTest, LatencyDelaysTheAnswer) {
    write("getTimeStamp.json", "5");
    write("getTimeStamp.latency", "60");
    ReplaySdk sdk(dir_.path());
    sdk.setReply("checkGameHangUpStatus", Value("{}"));
    sdk.setLatency("checkGameHangUpStatus", 60ms);

    const auto start = Clock::now();
    EXPECT_EQ(sdk.getTimeStamp(), 5);
    EXPECT_GE(Clock::now() - start, 60ms);
    const auto asked = Clock::now();
    sdk.checkGameHangUpStatus(
        Value(), [this, asked](const Value&) { in_.add("hang", Clock::now() - asked >= 60ms); }, {});
    ASSERT_TRUE(in_.waitFor(1));
    EXPECT_EQ(in_["hang"], Value(true));
}

TEST_F(ReplaySdkTest, ProgrammedAnswersOverrideTheFolder) {
    write("getGameGlobalConfig.json", R"({"from": "file"})");
    write("kickUserInstance.json", R"({"from": "file"})");
    ReplaySdk sdk(dir_.path());
    sdk.setReply("getGameGlobalConfig", Value::dictionary({{"from", "code"}}));
    EXPECT_EQ(sdk.getGameGlobalConfig(Value())["from"], Value("code"));
    sdk.setFailure("getGameGlobalConfig", 1, 2, 3);
    EXPECT_TRUE(sdk.getGameGlobalConfig(Value()).isAbsent());
    sdk.reset("getGameGlobalConfig");
    EXPECT_EQ(sdk.getGameGlobalConfig(Value())["from"], Value("file"));

    // A dictionary set for a JSON-text operation arrives as its JSON text.
    sdk.setReply("kickUserInstance", Value::dictionary({{"code", 0}}));
    sdk.kickUserInstance("t", "i", Value(1), in_.success("kick", sdk), in_.failure("kick"));
    ASSERT_TRUE(in_.waitFor(1));
    const Value reply = in_["kick"];
    ASSERT_TRUE(reply.isString());
    EXPECT_EQ(nb::Json::decode(*reply.asString()), Value::dictionary({{"code", 0}}));

}

TEST_F(ReplaySdkTest, MissingFolderFailsEverythingAndValidationNamesTheProblem) {
    const auto missing = dir_.path() / "nowhere";
    EXPECT_FALSE(ReplaySdk(missing).connectAccelerateRouter());
    std::string error;
    EXPECT_FALSE(ReplaySdk::validateFolder(missing, &error));
    EXPECT_NE(error.find("nowhere"), std::string::npos);

    write("getTimeStamp.json", "1");
    write("getTimeStamp.latency", "10");
    EXPECT_TRUE(ReplaySdk::validateFolder(dir_.path(), &error)) << error;
    for (auto [name, content] : {std::pair{"a.json", "[1,"}, std::pair{"b.fail", "x"}, std::pair{"c.latency", "-3"}}) {
        write(name, content);
        EXPECT_FALSE(ReplaySdk::validateFolder(dir_.path(), &error));
        EXPECT_NE(error.find(name), std::string::npos) << error;
        std::filesystem::remove(dir_.path() / name);
    }
}

TEST_F(ReplaySdkTest, RecordsCallsFromManyThreads) {
    ReplaySdk sdk;
    constexpr int kThreads = 4, kCalls = 200;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&sdk, t] {
            for (int i = 0; i < kCalls; ++i) {
                sdk.beaconCommonReport(t, i, "data", std::nullopt);
                if (i % 50 == 0) (void)sdk.calls();
            }
        });
    }
    const std::uint8_t bytes[] = {1, 2, 3};
    sdk.sendStrategyCenterCmdRequest(Value("cmd"), bytes, sizeof bytes);
    for (auto& t : threads) t.join();

    EXPECT_EQ(sdk.calls().size(), std::size_t{kThreads * kCalls + 1});
    EXPECT_FALSE(sdk.calls("beaconCommonReport").front().arguments.contains("eventExt"));  // nil is left out
    EXPECT_EQ(sdk.calls("sendStrategyCenterCmdRequest").front().arguments["data"], Value(nb::Data{1, 2, 3}));
}

// Queued and delayed answers of a destroyed ReplaySdk are dropped without touching it.
TEST_F(ReplaySdkTest, DestroyedWithAnswersQueued) {
    auto inbox = inbox_;
    {
        nb::ThreadPool pool(2);
        {
            ReplaySdk sdk({}, pool);
            sdk.setReply("stopHangUp", Value("{}"));
            sdk.setReply("startHangUp", Value("{}"));
            sdk.setLatency("startHangUp", 200ms);
            const auto answer = [inbox](std::string tag) { return [inbox, tag](const Value&) { inbox->add(tag, 1); }; };
            for (int i = 0; i < 300; ++i) {
                sdk.stopHangUp("t", "g", "i", answer("stop " + std::to_string(i)), {});
                sdk.startHangUp("t", "g", "i", 1, answer("start " + std::to_string(i)), {});
            }
        }
        // The pool outlives the ReplaySdk and runs what was left; its destruction joins its threads.
    }
    std::lock_guard lock(inbox->mutex);
    EXPECT_LT(inbox->answers.size(), 600u);
}

}  // namespace
