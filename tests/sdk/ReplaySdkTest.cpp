#include "nbbase/sdk/ReplaySdk.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <thread>

#include "../TempDir.h"
#include "nbbase/common/NBLog.h"
#include "nbbase/foundation/Json.h"

namespace {

using namespace std::chrono_literals;
using nb::ReplaySdk;
using nb::Value;
using Clock = std::chrono::steady_clock;

// What a callback saw. Held by shared_ptr so callbacks that outlive a test touch nothing dead.
struct Inbox {
    struct Answer {
        std::string tag;
        bool ok = false;
        Value reply;
        std::array<std::int32_t, 3> error{};
        bool onAnswerQueue = false;
        std::thread::id thread;
        Clock::time_point at;
    };
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<Answer> answers;

    void push(std::string tag, bool ok = false, Value reply = {}, std::array<std::int32_t, 3> error = {},
              bool onAnswerQueue = false) {
        Answer a;
        a.tag = std::move(tag);
        a.ok = ok;
        a.reply = std::move(reply);
        a.error = error;
        a.onAnswerQueue = onAnswerQueue;
        a.thread = std::this_thread::get_id();
        a.at = Clock::now();
        std::lock_guard lock(mutex);
        answers.push_back(std::move(a));
        changed.notify_all();
    }
    bool waitFor(std::size_t n) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, 20s, [&] { return answers.size() >= n; });
    }
    Answer get(const std::string& tag) {
        std::lock_guard lock(mutex);
        for (auto& a : answers)
            if (a.tag == tag) return a;
        return {};
    }
    // Success and failure blocks that note which queue they ran on (the ReplaySdk must then be alive).
    auto success(const std::string& tag, ReplaySdk* sdk) {
        return [self = this, tag, sdk](const Value& reply) {
            self->push(tag, true, reply, {}, sdk && sdk->isAnswerQueueCurrent());
        };
    }
    auto failure(const std::string& tag) {
        return [self = this, tag](std::int32_t a, std::int32_t b, std::int32_t c) { self->push(tag, false, {}, {a, b, c}); };
    }
};

class ReplaySdkTest : public ::testing::Test {
protected:
    void SetUp() override {
        nb::NBLog::sharedInstance().setLogHandler([log = log_](std::int32_t level, const std::string& text) {
            std::lock_guard lock(log->mutex);
            log->lines.emplace_back(level, text);
        });
    }
    void TearDown() override { nb::NBLog::sharedInstance().setLogHandler({}); }

    void write(const std::string& name, const std::string& content) {
        std::ofstream(dir_.path() / name, std::ios::binary) << content;
    }
    // How many level-4 lines contain `needle`.
    int errorsMentioning(const std::string& needle) {
        std::lock_guard lock(log_->mutex);
        int n = 0;
        for (auto& [level, text] : log_->lines) n += (level == 4 && text.find(needle) != std::string::npos);
        return n;
    }

    struct Log {
        std::mutex mutex;
        std::vector<std::pair<int, std::string>> lines;
    };
    std::shared_ptr<Log> log_ = std::make_shared<Log>();
    nbtest::TempDir dir_{"replaysdk"};
    std::shared_ptr<Inbox> inbox_ = std::make_shared<Inbox>();
};

TEST_F(ReplaySdkTest, DeliversEachOperationInItsOwnForm) {
    const std::string interests = "{ \"code\" : 0,\n  \"list\": [1, 2] }";
    write("getUserFullInterests.json", interests);
    write("getGameGlobalConfig.json", R"({"enable_svip": true, "fps": {"60": 1}})");
    write("getTimeStamp.json", "1700000000");
    write("connectAccelerateRouter.json", "true");
    write("getHttpUserAgent.json", "\"Agent/1.0\"");
    write("getCommonMiniProgramQRCode.png", std::string("\x89PNG\0\r\n", 7));
    write("queryCoupons.json", R"({"count": 3})");
    write("requestClickButtonCallback.json", R"({"code": 7, "message": "done"})");
    ReplaySdk sdk(dir_.path());

    EXPECT_EQ(sdk.getGameGlobalConfig(Value::dictionary({{"userid", "u"}}))["fps"]["60"], Value(1));
    EXPECT_EQ(sdk.getTimeStamp(), 1700000000);
    EXPECT_TRUE(sdk.connectAccelerateRouter());
    EXPECT_EQ(sdk.getHttpUserAgent(), "Agent/1.0");

    Inbox& in = *inbox_;
    const auto caller = std::this_thread::get_id();
    sdk.getUserFullInterests("tok", "[]", std::nullopt, "[1,2,3,4,5,6,7]", in.success("interests", &sdk), in.failure("interests"));
    sdk.getCommonMiniProgramQRCode("x", "p", "tok", "ad", in.success("qr", &sdk), in.failure("qr"));
    sdk.queryCoupons(Value(), in.success("coupons", &sdk), [](std::int32_t) {});
    sdk.requestClickButtonCallback(Value("ctx"), "ticket", 1, [&in, &sdk](std::int32_t code, const std::optional<std::string>& msg) {
        in.push("click", code == 7 && msg == "done", {}, {}, sdk.isAnswerQueueCurrent());
    });
    ASSERT_TRUE(in.waitFor(4));

    EXPECT_EQ(in.get("interests").reply, Value(interests));  // the file's own text, not re-encoded
    EXPECT_EQ(in.get("qr").reply, Value(nb::Data{0x89, 'P', 'N', 'G', 0, '\r', '\n'}));
    const std::string couponText = R"({"count": 3})";
    EXPECT_EQ(in.get("coupons").reply, Value(nb::Data(couponText.begin(), couponText.end())));
    EXPECT_TRUE(in.get("click").ok);
    for (auto& a : in.answers) {
        EXPECT_TRUE(a.onAnswerQueue) << a.tag;
        EXPECT_NE(a.thread, caller) << a.tag;
    }
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
            sdk.queryUserPropertyInterests([&insideCall, inbox](const Value&) { inbox->push("inner", !insideCall); }, {});
            insideCall = false;
        },
        {});
    ASSERT_TRUE(inbox->waitFor(1));
    EXPECT_TRUE(inbox->get("inner").ok);
}

TEST_F(ReplaySdkTest, FailuresMissingAndInvalidRecordings) {
    write("getSceneTasks.fail", " 7 -8\n9\n");
    write("getSceneTasks.json", "{}");  // the failure wins
    write("getGameTipsConfig.fail", "1 2 3");
    write("queryCoupons.fail", "5 0 0");
    write("getMaintainPageConfig.json", "{oops");
    write("startHangUp.fail", "1 2");  // not three integers
    ReplaySdk sdk(dir_.path());
    Inbox& in = *inbox_;

    EXPECT_TRUE(sdk.getGameTipsConfig().isAbsent());
    EXPECT_TRUE(sdk.getMaintainPageConfig().isAbsent());
    EXPECT_EQ(errorsMentioning("getMaintainPageConfig.json"), 1);
    EXPECT_TRUE(sdk.getTipsButtonInfo().isAbsent());
    EXPECT_TRUE(sdk.getTipsButtonInfo().isAbsent());
    EXPECT_EQ(errorsMentioning("getTipsButtonInfo.json"), 1);  // a missing file is reported once
    EXPECT_EQ(sdk.getTimeStamp(), 0);
    EXPECT_EQ(sdk.getNimboCommonHeaderEncryptText(), std::nullopt);

    sdk.getSceneTasks("t", "svip", Value(), "watch_ads", in.success("scene", nullptr), in.failure("scene"));
    sdk.stopHangUp("t", "g", "i", in.success("stop", nullptr), in.failure("stop"));
    sdk.startHangUp("t", "g", "i", 60, in.success("start", nullptr), in.failure("start"));
    sdk.queryCoupons(Value(), {}, [&in](std::int32_t code) { in.push("coupons", false, {}, {code, 0, 0}); });
    sdk.requestPopupWindowInfo("t", Value::array({"s"}), "g", std::nullopt,
                               [&in](std::int32_t code, const Value&, const Value& reply) {
                                   in.push("popup", !reply.isAbsent(), {}, {code, 0, 0});
                               });
    ASSERT_TRUE(in.waitFor(5));
    using E = std::array<std::int32_t, 3>;
    EXPECT_EQ(in.get("scene").error, (E{7, -8, 9}));
    EXPECT_EQ(in.get("stop").error, (E{-1, -1, -1}));
    EXPECT_EQ(in.get("start").error, (E{-1, -1, -1}));
    EXPECT_EQ(in.get("coupons").error, (E{5, 0, 0}));
    EXPECT_EQ(in.get("popup").error, (E{-1, 0, 0}));
    for (auto& a : in.answers) EXPECT_FALSE(a.ok) << a.tag;
    EXPECT_EQ(errorsMentioning("stopHangUp.json"), 1);
    EXPECT_EQ(errorsMentioning("startHangUp.fail"), 1);
}

TEST_F(ReplaySdkTest, LatencyDelaysTheAnswer) {
    write("getTimeStamp.json", "5");
    write("getTimeStamp.latency", "60");
    ReplaySdk sdk(dir_.path());
    sdk.setReply("checkGameHangUpStatus", Value("{}"));
    sdk.setLatency("checkGameHangUpStatus", 60ms);

    auto start = Clock::now();
    EXPECT_EQ(sdk.getTimeStamp(), 5);
    EXPECT_GE(Clock::now() - start, 60ms);

    start = Clock::now();
    sdk.checkGameHangUpStatus(Value(), inbox_->success("hang", &sdk), inbox_->failure("hang"));
    ASSERT_TRUE(inbox_->waitFor(1));
    EXPECT_GE(inbox_->get("hang").at - start, 60ms);
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
    sdk.kickUserInstance("t", "i", Value(1), inbox_->success("kick", &sdk), inbox_->failure("kick"));
    ASSERT_TRUE(inbox_->waitFor(1));
    const Value reply = inbox_->get("kick").reply;
    ASSERT_TRUE(reply.isString());
    EXPECT_EQ(nb::Json::decode(*reply.asString()), Value::dictionary({{"code", 0}}));

    ReplaySdk bare;  // no folder: programmed answers only
    bare.setReply("getReportCommonParams", Value::dictionary({{"k", "v"}}));
    EXPECT_EQ(bare.getReportCommonParams()["k"], Value("v"));
    EXPECT_TRUE(bare.getGameListExtraInfo().isAbsent());
    EXPECT_EQ(errorsMentioning("getGameListExtraInfo"), 1);
}

TEST_F(ReplaySdkTest, MissingFolderFailsEverythingAndValidationNamesTheProblem) {
    const auto missing = dir_.path() / "nowhere";
    ReplaySdk sdk(missing);
    EXPECT_FALSE(sdk.connectAccelerateRouter());
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
    const auto beacon = sdk.calls("beaconCommonReport").front().arguments;
    EXPECT_EQ(beacon["eventData"], Value("data"));
    EXPECT_FALSE(beacon.contains("eventExt"));  // nil is left out
    EXPECT_EQ(sdk.calls("sendStrategyCenterCmdRequest").front().arguments["data"], Value(nb::Data{1, 2, 3}));
    sdk.clearCalls();
    EXPECT_TRUE(sdk.calls().empty());
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
            for (int i = 0; i < 300; ++i) {
                auto cb = [inbox](const Value&) { inbox->push("late"); };
                sdk.stopHangUp("t", "g", "i", cb, {});
                sdk.startHangUp("t", "g", "i", 1, cb, {});
            }
        }
        // The pool outlives the ReplaySdk and runs what was left; its destruction joins its threads.
    }
    std::lock_guard lock(inbox->mutex);
    EXPECT_LT(inbox->answers.size(), 600u);
}

}  // namespace
