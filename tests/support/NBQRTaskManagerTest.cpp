#include "nbbase/support/NBQRTaskManager.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "catalog/ReplayBridge.h"

namespace nb {
namespace {

using test::EventLog;
using Lines = std::vector<std::string>;

const std::filesystem::path kReplies = std::filesystem::path(NBBASE_SOURCE_DIR) / "examples" / "replies";

Data fileBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return Data(std::istreambuf_iterator<char>(in), {});
}

// What one request answered: how many times, with what, on which thread, and what was logged before the
// (first) completion and after it.
struct Outcome {
    int calls = 0;
    std::shared_ptr<NBSceneTask> task;
    bool onSdkThread = false;
    Lines loggedBefore;
    Lines loggedAfter;
};

Outcome run(nbtest::ReplayBridge& replay, const std::function<void(NBQRTaskManager::Completion)>& start) {
    struct Seen {
        std::mutex mutex;
        Outcome outcome;  // guarded by mutex
        EventLog calls;
    };
    const auto seen = std::make_shared<Seen>();
    start([seen, &replay](std::shared_ptr<NBSceneTask> task) {
        Lines lines = replay.logged();
        {
            std::lock_guard lock(seen->mutex);
            if (seen->outcome.calls++ == 0) {
                seen->outcome.task = std::move(task);
                seen->outcome.onSdkThread = replay.sdk().isAnswerQueueCurrent();
                seen->outcome.loggedBefore = std::move(lines);
            }
        }
        seen->calls.add(0);
    });
    EXPECT_TRUE(seen->calls.waitForSize(1));
    // Whatever else the request left queued has run once the background queue and then the SDK, which
    // answers in order, have answered something sent after it.
    EXPECT_TRUE(replay.drain());
    EventLog flushed;
    replay.sdk().queryUserPropertyInterests([&flushed](const Value&) { flushed.add(0); },
                                            [&flushed](std::int32_t, std::int32_t, std::int32_t) { flushed.add(0); });
    EXPECT_TRUE(flushed.waitForSize(1));
    std::lock_guard lock(seen->mutex);
    Outcome outcome = seen->outcome;
    outcome.loggedAfter = replay.logged();
    return outcome;
}

class NBQRTaskManagerTest : public testing::Test {
protected:
    NBQRTaskManagerTest() { replay_.configuration().setNimboToken("tok"); }

    nbtest::ReplayBridge replay_;
    NBQRTaskManager manager_{replay_.bridge(), replay_.configuration(), replay_.log(), replay_.background()};
};

TEST_F(NBQRTaskManagerTest, RecordedReplyEndToEnd) {
    const Outcome got = run(replay_, [&](auto complete) {
        manager_.requestSceneTask(3, std::nullopt, "svip-watch-ads-60m", std::move(complete));
    });
    ASSERT_EQ(got.calls, 1);
    ASSERT_NE(got.task, nullptr);
    EXPECT_TRUE(got.onSdkThread);
    const NBSceneTask& task = *got.task;
    EXPECT_EQ(task.taskId(), "svip-watch-ads-60m");
    EXPECT_EQ(task.name(), "Watch two ads, play an hour more");
    EXPECT_EQ(task.type(), "watch_ads");
    EXPECT_EQ(task.gotoURL(), "nimbo://miniprogram/open?xcx_name=nimbo_tasks&xcx_page=pages/ads/watch_twice");
    EXPECT_EQ(task.tips(), "Watch two short ads on your phone for an hour more");
    EXPECT_EQ(task.fromScene(), 3);
    EXPECT_EQ(task.qrCodeImageData(), Value(fileBytes(kReplies / "getCommonMiniProgramQRCode.png")));
    EXPECT_TRUE(task.isValid());
    EXPECT_EQ(replay_.sdk().calls("getSceneTasks").at(0).arguments,
              Value::dictionary({{"token", "tok"},
                                 {"act", "svip"},
                                 {"filter", "scene_task_less_five_minutes"},
                                 {"taskType", "watch_ads"}}));
    EXPECT_EQ(replay_.sdk().calls("getCommonMiniProgramQRCode").at(0).arguments,
              Value::dictionary({{"xcxName", "nimbo_tasks"},
                                 {"xcxPage", "pages/ads/watch_twice"},
                                 {"token", "tok"},
                                 {"adTag", "ADTAG=mac.39"}}));
    EXPECT_EQ(got.loggedBefore, Lines{"2 requestSceneTask, filter: (null), scene: 3"});
    EXPECT_EQ(got.loggedAfter, Lines{});

    // A filter with text is sent as given; an empty one gives way to the scene's name but is logged as given.
    for (const auto& [filter, sent] : {std::pair{"", "all-scene"}, std::pair{"vip_only", "vip_only"}}) {
        replay_.sdk().clearCalls();
        const Outcome other = run(replay_, [&](auto complete) {
            manager_.requestSceneTask(7, filter, std::nullopt, std::move(complete));
        });
        EXPECT_EQ(replay_.sdk().calls("getSceneTasks").at(0).arguments["filter"], Value(sent));
        EXPECT_EQ(other.loggedBefore, Lines{fmt::format("2 requestSceneTask, filter: {}, scene: 7", filter)});
    }

    // Asked directly, the QR code fills in the very task given.
    replay_.sdk().clearCalls();
    const auto given = std::make_shared<NBSceneTask>(task);
    given->setQrCodeImageData(Value());
    EXPECT_EQ(run(replay_, [&](auto complete) { manager_.requesTaskQRCode(given, 2, std::move(complete)); }).task,
              given);
    EXPECT_TRUE(given->isValid());
    EXPECT_EQ(replay_.sdk().calls("getCommonMiniProgramQRCode").at(0).arguments["adTag"], Value("ADTAG=mac.36"));
}

TEST(NBQRTaskManagerScenes, NamesSourcesAndTags) {
    struct Case {
        std::int64_t scene;
        const char* name;
        std::int64_t source;
        const char* tag;
    };
    const Case cases[] = {
        {1, "scene_task_center", 85, "ADTAG=mac.85"},
        {2, "scene_task_login_game", 36, "ADTAG=mac.36"},
        {3, "scene_task_less_five_minutes", 39, "ADTAG=mac.39"},
        {4, "scene_task_ingame_notime", 41, "ADTAG=mac.41"},
        {0, "all-scene", 0, "ADTAG=mac.0"},
        {5, "all-scene", 0, "ADTAG=mac.0"},
        {(1LL << 32) + 1, "all-scene", 0, "ADTAG=mac.0"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.scene);
        EXPECT_EQ(NBQRTaskManager::getSceneName(c.scene), c.name);
        EXPECT_EQ(NBSceneTask::actionSourceForScene(c.scene), c.source);
        EXPECT_EQ(NBSceneTask::getAdTag(c.scene), c.tag);
    }
}

TEST(NBSceneTaskTest, TaskChoiceAndTips) {
    const Data bytes = fileBytes(kReplies / "getSceneTasks.json");
    const std::string recorded(bytes.begin(), bytes.end());
    const std::optional<std::string> kDefault{std::string(NBSceneTask::kDefaultTips)};
    const std::string first = "Watch a short ad on your phone for 30 more minutes";
    struct Case {
        std::optional<std::string> json;
        std::optional<std::string> findTaskId;
        std::optional<std::string> taskId;
        std::optional<std::string> tips;
    };
    const Case cases[] = {
        // The first element unless one carries the id asked for; ids compare as text.
        {recorded, std::nullopt, "svip-watch-ads-30m", first},
        {recorded, "", "svip-watch-ads-30m", first},
        {recorded, "svip-watch-ads-60m", "svip-watch-ads-60m", "Watch two short ads on your phone for an hour more"},
        {recorded, "nobody", "svip-watch-ads-30m", first},
        {R"({"data": [{"task_id": 1}, {"task_id": 7}, {"task_id": "7"}]})", "7", "7", kDefault},
        // tips: the default unless "description" is the JSON text of an object; then its "scene_desc".
        {R"({"data": [{"task_id": "a", "description": "{\"scene_desc\": \"go\"}"}]})", std::nullopt, "a", "go"},
        {R"({"data": [{"task_id": "a", "description": "{\"other\": 1}"}]})", std::nullopt, "a", std::nullopt},
        {R"({"data": [{"task_id": "a", "description": "[\"scene_desc\"]"}]})", std::nullopt, "a", kDefault},
        {R"({"data": [{"task_id": "a", "description": {"scene_desc": "object"}}]})", std::nullopt, "a", kDefault},
        // Nothing to choose from.
        {R"({"data": []})", "a", std::nullopt, kDefault},
        {R"({"data": {"task_id": "a"}})", std::nullopt, std::nullopt, kDefault},
        {R"([{"task_id": "a"}])", std::nullopt, std::nullopt, kDefault},
        {std::nullopt, std::nullopt, std::nullopt, kDefault},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.json.value_or("(nil)") + " / " + c.findTaskId.value_or("(nil)"));
        const NBSceneTask task(c.json, c.findTaskId);
        EXPECT_EQ(task.taskId(), c.taskId);
        EXPECT_EQ(task.tips(), c.tips);
    }
}

// Every way requestSceneTask ends short of a QR code answers exactly once, on the thread it says, with the
// lines it says before the answer and none after.
TEST(NBQRTaskManagerFailures, EachPathAnswersOnce) {
    const Value foreign(R"({"data": [{"goto_complete": "https://example.com/open?xcx_name=n&xcx_page=p"}]})");
    const Value noName(R"({"data": [{"goto_complete": "nimbo://open?xcx_page=p"}]})");
    const std::string asked = "2 requestSceneTask, filter: (null), scene: 1";
    const std::string noToken = "2 requestSceneTask token is nil, filter: (null), scene: 1";
    struct Case {
        const char* name;
        std::function<void(nbtest::ReplayBridge&)> setUp;
        bool answersTask;  // (without a QR code) else nil
        bool onSdkThread;  // else on the background queue
        std::size_t qrRequests;
        Lines before;
        Lines after;
    };
    const Case cases[] = {
        {"no token", [](auto& r) { r.configuration().setNimboToken(std::nullopt); }, false, false, 0, {}, {noToken}},
        {"empty token", [](auto& r) { r.configuration().setNimboToken(""); }, false, false, 0, {}, {noToken}},
        {"SDK failure", [](auto& r) { r.sdk().setFailure("getSceneTasks", 1, 2, -3); }, false, true, 0,
         {asked, "4 [task] requestSceneTask failed. 1-2--3"}, {}},
        {"empty reply", [](auto& r) { r.sdk().setReply("getSceneTasks", Value("")); }, false, true, 0, {asked}, {}},
        {"no reply", [](auto& r) { r.sdk().setReply("getSceneTasks", Value()); }, false, true, 0, {asked}, {}},
        {"foreign link", [&](auto& r) { r.sdk().setReply("getSceneTasks", foreign); }, false, true, 0, {asked}, {}},
        {"QR failure", [](auto& r) { r.sdk().setFailure("getCommonMiniProgramQRCode", 5, 6, 7); }, false, true, 1,
         {asked, "4 [task] getCommonMiniProgramQRCode failed. 5-6-7"}, {}},
        {"no xcx_name", [&](auto& r) { r.sdk().setReply("getSceneTasks", noName); }, true, true, 0, {asked}, {}},
        {"no SDK", [](auto& r) { r.bridge().uninitializeSDK(); }, false, false, 0, {asked}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        nbtest::ReplayBridge replay;
        replay.configuration().setNimboToken("tok");
        NBQRTaskManager manager(replay.bridge(), replay.configuration(), replay.log(), replay.background());
        c.setUp(replay);
        const Outcome got = run(replay, [&](auto complete) { manager.requestSceneTask(1, std::move(complete)); });
        EXPECT_EQ(got.calls, 1);
        EXPECT_EQ(got.task != nullptr, c.answersTask);
        EXPECT_FALSE(got.task && got.task->isValid());
        EXPECT_EQ(got.onSdkThread, c.onSdkThread);
        EXPECT_EQ(replay.sdk().calls("getCommonMiniProgramQRCode").size(), c.qrRequests);
        EXPECT_EQ(got.loggedBefore, c.before);
        EXPECT_EQ(got.loggedAfter, c.after);
    }
}

// A request whose manager, or whose SDK, goes away before it is answered still answers, once, with nil.
TEST_F(NBQRTaskManagerTest, AnswersNilWhenTheManagerOrTheSdkGoesAway) {
    EventLog answers;
    const auto record = [&answers](std::shared_ptr<NBSceneTask> task) { answers.add(task ? 1 : 0); };
    {
        test::Gate gate;
        replay_.background().async([&gate] { gate.pass(); });
        auto gone = std::make_unique<NBQRTaskManager>(replay_.bridge(), replay_.configuration(), replay_.log(),
                                                      replay_.background());
        gone->requestSceneTask(1, record);
        gone.reset();
        gate.open();
        ASSERT_TRUE(answers.waitForSize(1));
        EXPECT_TRUE(replay_.sdk().calls("getSceneTasks").empty());
    }
    {
        // An SDK of its own, whose answers wait behind a first one until the SDK has been released.
        auto sdk = std::make_shared<ReplaySdk>(kReplies);
        NBNetworkCheck network([] { return NBNetworkCheck::kWired; });
        NBLog sdkLog;
        NimboSdkManager bridge([&sdk] { return sdk; }, {}, replay_.configuration(), network, sdkLog);
        bridge.initializeSDK(nullptr);
        NBQRTaskManager manager(bridge, replay_.configuration(), replay_.log(), replay_.background());
        test::Gate gate;
        sdk->queryUserPropertyInterests([&gate](const Value&) { gate.pass(); }, {});
        manager.requestSceneTask(1, record);
        ASSERT_TRUE(replay_.drain());
        ASSERT_EQ(sdk->calls("getSceneTasks").size(), 1u);
        bridge.uninitializeSDK();
        sdk.reset();
        gate.open();
        ASSERT_TRUE(answers.waitForSize(2));
    }
    EXPECT_EQ(answers.events(), (std::vector<int>{0, 0}));
}

}  // namespace
}  // namespace nb
