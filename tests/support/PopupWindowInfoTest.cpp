#include "nbbase/support/PopupWindowInfo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <thread>

#include "HttpTestServer.h"
#include "catalog/ReplayBridge.h"
#include "nbbase/NBConstants.h"
#include "nbbase/foundation/MainQueue.h"
#include "nbbase/foundation/ManualClock.h"
#include "nbbase/foundation/SerialQueue.h"

namespace nb {
namespace {

using namespace std::chrono_literals;
using test::EventLog;
using Lines = std::vector<std::string>;

constexpr char kOperation[] = "requestPopupWindowInfo";
const Lines kAllScenes = {kSceneGameDetailPage, kScenePreLaunchGame, kSceneGamePlaying,
                          kSceneActivityGameNeedPermission};

Value recordedReply() {
    std::ifstream in(std::filesystem::path(NBBASE_SOURCE_DIR) / "examples/replies/requestPopupWindowInfo.json");
    return nbtest::json(std::string(std::istreambuf_iterator<char>(in), {}));
}

class PopupWindowInfoTest : public testing::Test {
protected:
    // Sends on this thread; the callback's result, or nullopt when nothing was sent.
    std::optional<std::int32_t> request(const std::optional<std::string>& token, const Lines& scenes) {
        const auto results = std::make_shared<EventLog>();
        replay_.sdk().clearCalls();
        popups_.requestPopupWindowInfo(token, scenes, "g", std::nullopt, [results](auto r) { results->add(r); });
        if (replay_.sdk().calls(kOperation).empty()) {
            EXPECT_EQ(results->size(), 0u);
            return std::nullopt;
        }
        EXPECT_TRUE(results->waitForSize(1));
        return results->events().at(0);
    }

    // Waits until the SDK has answered everything sent so far, background work included: it answers in order.
    void settle() {
        ASSERT_TRUE(replay_.drain());
        const auto marker = std::make_shared<EventLog>();
        replay_.sdk().requestClickButtonCallback(Value(), std::nullopt, 0,
                                                 [marker](auto, const auto&) { marker->add(0); });
        ASSERT_TRUE(marker->waitForSize(1));
    }

    // "scene:id,id" for each scene holding popups, in the fixed order; a nil id shows as "(nil)".
    Lines filed() const {
        Lines result;
        for (const std::string& scene : kAllScenes) {
            const auto list = popups_.popupWindowArrayByScene(scene);
            if (!list) continue;
            std::string line = scene + ":";
            for (const auto& popup : *list) {
                EXPECT_EQ(popup->scene(), scene);
                line += (line.back() == ':' ? "" : ",") + popup->wId().value_or("(nil)");
            }
            result.push_back(line);
        }
        return result;
    }

    nbtest::HttpTestServer server_;
    nbtest::ReplayBridge replay_;
    nbtest::TempDir home_{"nbpopups"};
    const Folders folders_{Folders::Environment{home_.path().string(), {}, {}, {}}};
    MainQueue main_;
    URLSession session_{URLSession::Options{1000ms, 300ms, 3, 64 * 1024, {}}};
    SerialQueue disk_{"test.popup-images"};
    NBImageCache cache_{session_, folders_, main_, disk_};
    ManualClock clock_;
    PopupWindowInfo popups_{replay_.bridge(), cache_, replay_.log(), replay_.background(), ThreadPool::sharedInstance(),
                            clock_};
};

TEST_F(PopupWindowInfoTest, RecordedReplyEndToEnd) {
    // The SDK answers in order: holding its first answer lets the clock move while the request is out.
    test::Gate gate;
    replay_.sdk().requestClickButtonCallback(Value(), std::nullopt, 0, [&gate](auto, const auto&) { gate.pass(); });
    const auto done = std::make_shared<EventLog>();
    popups_.requestPopupWindowInfo("tok", kAllScenes, "1234", "zone-9", [done](std::int32_t r) { done->add(r); });
    clock_.advanceSeconds(1.5);
    gate.open();
    ASSERT_TRUE(done->waitForSize(1));
    EXPECT_EQ(done->events(), std::vector<int>{0});
    EXPECT_EQ(replay_.logged(), Lines{"2 requestWindowInfo callback gameId=1234,retCode=0,cost=1.500000"});
    EXPECT_EQ(replay_.sdk().calls(kOperation).at(0).arguments,
              Value::dictionary({{"token", "tok"},
                                 {"scenes", Value::array({kAllScenes[0], kAllScenes[1], kAllScenes[2], kAllScenes[3]})},
                                 {"gameId", "1234"},
                                 {"zoneId", "zone-9"}}));
    EXPECT_EQ(filed(), (Lines{"game_detail_page:pw-1001", "pre_launch_game:pw-2001", "game_playing:pw-3001",
                              "activity_game_need_permission:pw-4001,pw-4002"}));

    const NBPopupModel& text = *popups_.popupWindowArrayByScene(kScenePreLaunchGame)->at(0);
    EXPECT_TRUE(text.isTextWindow() && text.isUrlTypeNimboProtocol() && text.hasX() && !text.isImageWindow() &&
                !text.isBigImageWindow() && !text.isUrlTypeClick());
    EXPECT_EQ(Lines({*text.title(), *text.imgUrl(), *text.bgImgUrl(), *text.url(), *text.confirmTicket(),
                     *text.param(), *text.userData(), text.gameId()}),
              (Lines{"Your picture quality trial", "", "https://img.korvane-nimbo.com/popup/bg/blue.png",
                     "nimbo://pay/svip?from=prelaunch", "ct-2001-41aa", R"({"product_id":"svip-quality-4k-month"})",
                     "tok", "1234"}));
    ASSERT_EQ(text.btnArray().value_or(std::vector<NBButtonModel>()).size(), 2u);
    const NBButtonModel& later = text.btnArray()->at(0);
    const NBButtonModel& upgrade = text.btnArray()->at(1);
    EXPECT_TRUE(later.isTypeClick() && !later.isHighLight() && later.name() == "Later" && later.target() == "");
    EXPECT_TRUE(upgrade.isTypeNimboProtocol() && upgrade.isHighLight() && upgrade.index() == 1 &&
                upgrade.target() == "nimbo://pay/svip?from=prelaunch");
    EXPECT_EQ(popups_.popupWindowArrayByScene(kSceneGameDetailPage)->at(0)->btnArray(), std::nullopt);  // []
    EXPECT_FALSE(popups_.popupWindowArrayByScene(kSceneGamePlaying)->at(0)->hasX());                    // 0
    EXPECT_TRUE(popups_.popupWindowArrayByScene(kSceneActivityGameNeedPermission)->at(0)->hasX());      // "1"
    EXPECT_EQ(popups_.popupWindowArrayByScene(""), nullptr);
}

TEST_F(PopupWindowInfoTest, RequestRules) {
    const std::string answered = "2 requestWindowInfo callback gameId=g,retCode=0,cost=0.000000";
    const std::string noToken = "4 requestPopupWindowInfo param error,nimboToken is null";
    const auto reply = [](Value v) { return [v](ReplaySdk& sdk) { sdk.setReply(kOperation, v); }; };
    const struct {
        std::optional<std::string> token;
        Lines scenes;
        std::function<void(ReplaySdk&)> program;
        std::optional<std::int32_t> result;
        Lines logged;
        const char* storedGameId;  // of the game_playing popup afterwards
    } cases[] = {
        {"t", {}, {}, std::nullopt, {"4 requestPopupWindowInfo param error,sceneArray is null"}, "earlier"},
        {std::nullopt, {kSceneGamePlaying}, {}, 0, {noToken, answered}, "g"},
        {"t", {kSceneGamePlaying}, [](ReplaySdk& sdk) { sdk.setFailure(kOperation, 7, 8, 9); }, 1,
         {"2 requestWindowInfo callback gameId=g,retCode=7,cost=0.000000"}, "earlier"},
        {"t", {kSceneGamePlaying}, reply(Value()), 1, {answered}, "earlier"},        // no bytes
        {"t", {kSceneGamePlaying}, reply(Value("{data")), 0, {answered}, "(none)"},  // bytes that are not JSON
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        replay_.sdk().reset(kOperation);
        if (c.program) c.program(replay_.sdk());
        popups_.parse(recordedReply(), "earlier");
        const auto tokenBefore = popups_.token();

        EXPECT_EQ(request(c.token, c.scenes), c.result);
        EXPECT_EQ(replay_.logged(), c.logged);
        const auto playing = popups_.popupWindowArrayByScene(kSceneGamePlaying);
        EXPECT_EQ(playing ? playing->at(0)->gameId() : "(none)", c.storedGameId);
        EXPECT_EQ(popups_.token(), c.scenes.empty() ? tokenBefore : c.token.value_or(""));
        if (!c.scenes.empty()) {
            EXPECT_EQ(replay_.sdk().calls(kOperation).at(0).arguments["token"], c.token.value_or(""));
            EXPECT_EQ(replay_.sdk().calls(kOperation).at(0).arguments["zoneId"], "");
        }
        if (!c.token) {
            EXPECT_EQ(playing->at(0)->userData(), "");
        }
    }
}

TEST_F(PopupWindowInfoTest, ParseRules) {
    const std::string refused = "4 parse popup reply error,reply is not an object";
    const struct {
        Value reply;
        Lines filed;
        Lines logged;
    } cases[] = {
        {nbtest::json(R"({"data": {"scenes": {"game_playing": [{"id": "a"}, {"id": "b"}], "lobby": [{"id": "x"}]}}})"),
         {"game_playing:a,b"}, {}},
        {nbtest::json(R"({"data": {"scenes": {"game_detail_page": [], "pre_launch_game": {"id": "x"},
             "activity_game_need_permission": [1, {"id": 2}]}}})"),
         {"activity_game_need_permission:(nil),2"}, {}},
        {nbtest::json(R"({"data": {"scenes": [{"game_playing": [{"id": "a"}]}]}})"), {}, {}},
        {nbtest::json(R"({"code": 0})"), {}, {}},
        {Value(), {}, {}},
        {nbtest::json(R"([{"data": {"scenes": {"game_playing": [{"id": "a"}]}}}])"), {}, {refused}},
        {Value("text"), {}, {refused}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.reply.description());
        popups_.parse(recordedReply(), "g");
        popups_.parse(c.reply, "g");
        EXPECT_EQ(filed(), c.filed);
        EXPECT_EQ(replay_.logged(), c.logged);
    }
}

// A picture is fetched again only when the memory cache already holds it.
TEST_F(PopupWindowInfoTest, PrefetchRule) {
    const struct {
        const char* type;  // nullptr: no "type"
        const char* img;
        const char* bg;
        Lines cached;
        std::string fetched;
    } cases[] = {
        {"txt", "/i", "", {"/i"}, ""},  // an empty background is not replaced by the image
        {"txt", "/i", "/b", {"/i", "/b"}, "/b"},
        {"txt", "", "/b", {}, ""},
        {"img", "/i", "/b", {"/i", "/b"}, "/i"},
        {"big-img", "/i", "", {}, ""},
        {nullptr, "/i", "/b", {"/i", "/b"}, "/i"},
    };
    int n = 0;
    for (const auto& c : cases) {
        const std::string prefix = "/case" + std::to_string(n++);
        SCOPED_TRACE(prefix);
        const auto url = [&](const std::string& path) { return path.empty() ? path : server_.url(prefix + path); };
        Value popup = Value::dictionary({{"img_url", url(c.img)}, {"bg_img_url", url(c.bg)}});
        if (c.type) popup.set("type", c.type);
        for (const char* path : {"/i", "/b"}) server_.serve(prefix + path, "new");
        for (const auto& path : c.cached) cache_.updateMemoreyCache(url(path), nbtest::bytes("old"));

        popups_.addPopupModels(Value::array({popup}), kSceneGamePlaying, "g");
        ASSERT_TRUE(cache_.waitForPrefetches(std::chrono::duration_cast<std::chrono::milliseconds>(test::kPatience)));
        for (const char* path : {"/i", "/b"}) {
            EXPECT_EQ(server_.requestCount(prefix + path), c.fetched == path ? 1 : 0) << path;
        }
    }
}

TEST_F(PopupWindowInfoTest, ClickReportIsLoggedAndGoesNoFurther) {
    const Value context = Value::dictionary({{"popup", "pw-2001"}});
    popups_.requestClickButtonCallback(context, "ct-2001-41aa", 1);
    settle();
    replay_.sdk().setReply("requestClickButtonCallback", nbtest::json(R"({"code": 3})"));
    popups_.requestClickButtonCallback(Value("plain"), std::nullopt, -2);
    settle();
    const auto calls = replay_.sdk().calls("requestClickButtonCallback");  // each followed by settle()'s
    EXPECT_EQ(calls.at(0).arguments,
              Value::dictionary({{"context", context}, {"confirmTicket", "ct-2001-41aa"}, {"buttonIndex", 1}}));
    EXPECT_EQ(calls.at(2).arguments, Value::dictionary({{"context", "plain"}, {"buttonIndex", -2}}));
    EXPECT_EQ(replay_.logged(), (Lines{"2 requestClickCallback:index=1,code=0,message=ok",
                                       "2 requestClickCallback:index=-2,code=3,message=(null)"}));
}

TEST_F(PopupWindowInfoTest, AnswersAfterTheObjectIsGoneAreDropped) {
    test::Gate gate;
    replay_.sdk().requestClickButtonCallback(Value(), std::nullopt, 0, [&gate](auto, const auto&) { gate.pass(); });
    auto gone = std::make_unique<PopupWindowInfo>(replay_.bridge(), cache_, replay_.log(), replay_.background(),
                                                  ThreadPool::sharedInstance(), clock_);
    gone->requestPopupWindowInfo("t", kAllScenes, "g", std::nullopt, [](auto) { ADD_FAILURE() << "answered"; });
    gone->requestClickButtonCallback(Value(), std::nullopt, 0);
    ASSERT_TRUE(replay_.drain());
    gone.reset();
    gate.open();
    settle();
    EXPECT_EQ(replay_.logged(), Lines{});
}

// Readers never meet a list that mixes two replies while parses, filings of one scene and clears run; two
// threads that request at once share one lazily made queue. ThreadSanitizer checks the rest.
TEST_F(PopupWindowInfoTest, ConcurrentUse) {
    const auto list = [](int count) {
        Value popups;
        for (int i = 0; i < count; ++i) popups.append(Value::dictionary({{"id", i}}));
        return popups;
    };
    const Value two = Value::dictionary(
        {{"data", Value::dictionary({{"scenes", Value::dictionary({{kSceneActivityGameNeedPermission, list(2)}})}})}});
    const auto write = [&] {
        for (int i = 0; i < 300; ++i) {
            popups_.parse(two, "two");
            popups_.addPopupModels(list(3), kSceneActivityGameNeedPermission, "three");
            if (i % 3 == 0) popups_.clear();
        }
    };
    const auto whole = [&] {
        const auto popups = popups_.popupWindowArrayByScene(kSceneActivityGameNeedPermission);
        if (!popups) return true;
        const std::string& id = popups->front()->gameId();
        const auto same = std::count_if(popups->begin(), popups->end(), [&](auto& p) { return p->gameId() == id; });
        return same == std::ssize(*popups) && popups->size() == (id == "two" ? 2u : 3u);
    };
    EXPECT_EQ(nbtest::tornReads(write, whole), 0);

    const auto results = std::make_shared<EventLog>();
    const auto send = [&](const char* token) {
        popups_.requestWindowInfo(token, {kSceneGamePlaying}, std::nullopt, [results](auto r) { results->add(r); });
    };
    std::thread other(send, "t1");
    send("t2");
    other.join();
    ASSERT_TRUE(results->waitForSize(2));
    EXPECT_EQ(results->events(), (std::vector<int>{0, 0}));
    ASSERT_NE(popups_.requestQueue(), nullptr);
    EXPECT_EQ(popups_.requestQueue()->label(), "com.popupwindow.request");
    for (const auto& call : replay_.sdk().calls(kOperation)) EXPECT_EQ(call.arguments["zoneId"], "");
    EXPECT_TRUE(popups_.token() == "t1" || popups_.token() == "t2");
    popups_.clear();
    EXPECT_EQ(filed(), Lines{});
}

}  // namespace
}  // namespace nb
