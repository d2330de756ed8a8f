#include "HostSupport.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <fmt/format.h>

#include "HostSteps.h"
#include "LocalImageServer.h"
#include "nbbase/common/NBDeviceInfo.h"
#include "nbbase/foundation/NBLog.h"
#include "nbbase/foundation/RecordingWorkspace.h"
#include "nbbase/foundation/SystemWorkspace.h"
#include "nbbase/support/NBFeedbackSession.h"
#include "nbbase/support/NBQRTaskManager.h"
#include "nbbase/support/PopupWindowInfo.h"

namespace nb::nbctl {

namespace {

constexpr auto kPatience = std::chrono::seconds(10);

bool waitOnMain(MainQueue& main, const std::function<bool()>& done) { return nbctl::waitOnMain(main, done, kPatience); }

bool late(const char* what) {
    fmt::print(stderr, "nbctl: {} did not come in 10 seconds\n", what);
    return false;
}

std::string orNil(const std::optional<std::string>& text) { return text ? "\"" + *text + "\"" : "nil"; }

// A PNG's pixel size from its header; nullopt for anything else.
std::optional<std::pair<std::uint32_t, std::uint32_t>> pngSize(const Data& bytes) {
    static constexpr std::uint8_t kSignature[] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    if (bytes.size() < 24 || !std::equal(std::begin(kSignature), std::end(kSignature), bytes.begin())) {
        return std::nullopt;
    }
    const auto word = [&](std::size_t at) {
        return std::uint32_t{bytes[at]} << 24 | std::uint32_t{bytes[at + 1]} << 16 | std::uint32_t{bytes[at + 2]} << 8 |
               bytes[at + 3];
    };
    return std::pair{word(16), word(20)};
}

// A popup's picture is queued again when the memory cache already holds it.
void printScene(const PopupWindowInfo& popups, const NBImageCache& images, const std::string& scene) {
    const auto list = popups.popupWindowArrayByScene(scene);
    if (!list) {
        fmt::print("  {}: none\n", scene);
        return;
    }
    for (const auto& popup : *list) {
        std::string buttons;
        for (const NBButtonModel& button : popup->btnArray().value_or(std::vector<NBButtonModel>{})) {
            buttons += fmt::format("{}[{}{}]", buttons.empty() ? "" : " ", button.name().value_or(""),
                                   button.isHighLight() ? ", highlighted" : "");
        }
        fmt::print("  {}: {} \"{}\"{}; buttons {}\n", scene, popup->type().value_or("?"), popup->title().value_or(""),
                   popup->hasX() ? " with a close cross" : "", buttons.empty() ? "nil" : buttons);
        const std::string picture = (popup->isTextWindow() ? popup->bgImgUrl() : popup->imgUrl()).value_or("");
        if (!picture.empty() && images.imgByUrl(picture)) fmt::print("    queued {}\n", picture);
    }
}

}  // namespace

bool HostSupport::run() const { return playPopups() && playSceneTask() && playFeedback(); }

bool HostSupport::playPopups() const {
    section("popups");
    auto& [configuration, bridge, replay, images, server, main] = parts_;
    PopupWindowInfo popups(bridge, images);
    const std::string gameId = configuration.gameId().value_or("");

    // The server answers the scenes asked for; the recording holds all four.
    const auto request = [&](const std::vector<std::string>& scenes) -> std::optional<std::int32_t> {
        Value reply = popupReply_;
        Value asked;
        for (const std::string& scene : scenes) asked.set(scene, popupReply_["data"]["scenes"][scene]);
        Value data = reply["data"];
        data.set("scenes", asked);
        reply.set("data", data);
        replay.setReply("requestPopupWindowInfo", reply);
        auto result = std::make_shared<std::optional<std::int32_t>>();
        popups.requestWindowInfo(configuration.nimboToken(), scenes, gameId, [&main, result](std::int32_t answer) {
            main.async([result, answer] { *result = answer; });
        });
        waitOnMain(main, [&] { return result->has_value(); });
        return *result;
    };

    const int before = server.requestCount();
    const auto prelaunch = request(PopupWindowInfo::allPrelaunchScenes());
    if (!prelaunch) return late("the pre-launch popups");
    if (!images.waitForPrefetches(kPatience)) return late("the popup pictures");
    fmt::print("requestWindowInfo, pre-launch scenes: result {}\n", *prelaunch);
    for (const std::string& scene : PopupWindowInfo::allPrelaunchScenes()) printScene(popups, images, scene);
    fmt::print("pictures the image server was asked for again: {}\n", server.requestCount() - before);

    const auto playing = request(PopupWindowInfo::allGamePlayingScenes());
    if (!playing) return late("the game-playing popups");
    fmt::print("requestWindowInfo, game-playing scene: result {}\n", *playing);
    printScene(popups, images, "game_playing");
    fmt::print("pre_launch_game afterwards: {}\n",
               popups.popupWindowArrayByScene("pre_launch_game") ? "still filed" : "none (each reply replaces every scene)");

    // The press goes out on a global queue and is only logged; ReplaySdk answers in call order, so once a
    // marker request sent after it is answered, the model's answer has been delivered and logged.
    const auto popup = popups.popupWindowArrayByScene("game_playing")->front();
    popups.requestClickButtonCallback(Value(popup->wId().value_or("")), popup->confirmTicket(), 0);
    if (!waitOnMain(main, [&] { return !replay.calls("requestClickButtonCallback").empty(); })) {
        return late("the button press");
    }
    auto answered = std::make_shared<std::atomic<bool>>(false);
    replay.requestClickButtonCallback(Value(), std::nullopt, -1, [answered](std::int32_t, const auto&) { *answered = true; });
    if (!waitOnMain(main, [&] { return answered->load(); })) return late("the button press's answer");
    const Value pressed = replay.calls("requestClickButtonCallback").front().arguments;
    fmt::print("button 0 of \"{}\" reported with ticket {}\n", popup->title().value_or(""), pressed["confirmTicket"]);
    return true;
}

bool HostSupport::playSceneTask() const {
    section("scene task");
    auto& [configuration, bridge, replay, images, server, main] = parts_;
    NBQRTaskManager tasks(bridge, configuration);
    auto done = std::make_shared<std::atomic<bool>>(false);
    auto task = std::make_shared<std::shared_ptr<NBSceneTask>>();
    constexpr std::int64_t kScene = 3;
    tasks.requestSceneTask(kScene, std::nullopt, "svip-watch-ads-60m", [&main, done, task](std::shared_ptr<NBSceneTask> t) {
        main.async([done, task, t = std::move(t)] {
            *task = t;
            *done = true;
        });
    });
    if (!waitOnMain(main, [&] { return done->load(); })) return late("the scene task");
    if (!*task) {
        fmt::print("requestSceneTask, scene {}: no task\n", kScene);
        return true;
    }
    const NBSceneTask& t = **task;
    fmt::print("requestSceneTask, scene {} ({}, {}): task {} {}\n  tips {}\n  link {}\n", kScene,
               NBQRTaskManager::getSceneName(kScene), NBSceneTask::getAdTag(kScene), orNil(t.taskId()), orNil(t.name()),
               orNil(t.tips()), orNil(t.gotoURL()));
    const Data* qr = t.qrCodeImageData().asData();
    const auto size = qr ? pngSize(*qr) : std::nullopt;
    if (size) {
        fmt::print("  QR code: PNG image, {} x {} pixels, {} bytes; valid {}\n", size->first, size->second, qr->size(),
                   t.isValid());
    } else {
        fmt::print("  QR code: {}; valid {}\n", qr ? fmt::format("{} bytes, not a PNG image", qr->size()) : "none",
                   t.isValid());
    }
    return true;
}

bool HostSupport::playFeedback() const {
    section("feedback");
    auto& configuration = parts_.configuration;
    RecordingWorkspace recorder;
    SystemWorkspace desktop;
    NBFeedbackSession feedback(configuration, parts_.bridge,
                               openFeedback_ ? static_cast<Workspace&>(desktop) : recorder);
    feedback.navigateToFeedbackPage();
    if (openFeedback_) {
        fmt::print("feedback page for user {} handed to {}\n", configuration.userId().value_or(""),
                   SystemWorkspace::defaultOpener());
    } else {
        fmt::print("feedback page for user {} (not opened; `nbctl host --open-feedback` opens it):\n{}\n",
                   configuration.userId().value_or(""), recorder.openedURLs().at(0));
    }
    return true;
}

}  // namespace nb::nbctl
