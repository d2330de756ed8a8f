#include "SdkCommand.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include <fmt/format.h>

#include "PlistText.h"
#include "nbbase/common/NBNetworkCheck.h"
#include "nbbase/core/NBConfiguration.h"
#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/foundation/Folders.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/NBLog.h"
#include "nbbase/sdk/ReplaySdk.h"

namespace nb::nbctl {

namespace {

// The recorded session's identity: the arguments a signed-in client passes.
constexpr const char* kToken = "nbt-3f9c2a7d";
constexpr const char* kGameId = "1234";
constexpr const char* kInstanceId = "inst-7781";

// Where an answer lands; shared with the callbacks, which may outlive a wait that timed out.
struct Answer {
    std::mutex mutex;
    std::condition_variable cv;
    SdkCommand::Outcome outcome;  // guarded by mutex
    const std::thread::id caller = std::this_thread::get_id();

    void settle(bool failed, Value reply, std::array<std::int32_t, 3> failure = {}) {
        std::lock_guard lock(mutex);
        if (outcome.answered) return;
        outcome.answered = true;
        outcome.failed = failed;
        outcome.reply = std::move(reply);
        outcome.failure = failure;
        outcome.onCallerThread = std::this_thread::get_id() == caller;
        cv.notify_all();
    }
    void answerNow(Value reply) {
        outcome.blocking = true;
        settle(reply.isAbsent(), std::move(reply));
    }
};

using AnswerPtr = std::shared_ptr<Answer>;
using Play = std::function<void(NimboSdkManager&, const AnswerPtr&)>;

NimboSDKInterface::SuccessBlock onSuccess(const AnswerPtr& a) {
    return [a](const Value& reply) { a->settle(false, reply); };
}
NimboSDKInterface::FailureBlock onFailure(const AnswerPtr& a) {
    return [a](std::int32_t x, std::int32_t y, std::int32_t z) { a->settle(true, Value(), {x, y, z}); };
}

// Requests the models send on the instance itself rather than through a forwarder.
template <typename F>
void onInstance(NimboSdkManager& bridge, const AnswerPtr& a, F&& call) {
    if (auto sdk = bridge.sdkInstance()) {
        call(*sdk);
    } else {
        a->answerNow(Value());
    }
}

const std::map<std::string, Play>& table() {
    static const auto* const plays = new std::map<std::string, Play>{
        {"getUserFullInterests",
         [](NimboSdkManager& b, const AnswerPtr& a) {
             b.getUserFullInterests(kToken, "[]", kInstanceId, "[1,2,3,4,5,6,7]", onSuccess(a), onFailure(a));
         }},
        {"takeUserTriableInterests",
         [](NimboSdkManager& b, const AnswerPtr& a) {
             b.takeUserTriableInterests(kToken, Value::array({"fps_120_trial"}), onSuccess(a), onFailure(a));
         }},
        {"checkGameHangUpStatus",
         [](NimboSdkManager& b, const AnswerPtr& a) {
             b.checkGameHangUpStatus(Value::dictionary({{"instance_id", kInstanceId}}), onSuccess(a), onFailure(a));
         }},
        {"startHangUp",
         [](NimboSdkManager& b, const AnswerPtr& a) {
             b.startHangUp(kToken, kGameId, kInstanceId, 1800, onSuccess(a), onFailure(a));
         }},
        {"stopHangUp",
         [](NimboSdkManager& b, const AnswerPtr& a) {
             b.stopHangUp(kToken, kGameId, kInstanceId, onSuccess(a), onFailure(a));
         }},
        {"kickUserInstance",
         [](NimboSdkManager& b, const AnswerPtr& a) {
             b.kickUserInstance(kToken, kInstanceId, Value("switch_device"), onSuccess(a), onFailure(a));
         }},
        {"getSceneTasks",
         [](NimboSdkManager& b, const AnswerPtr& a) {
             b.getSceneTasks(kToken, "svip", Value("game_playing"), "watch_ads", onSuccess(a), onFailure(a));
         }},
        {"getCommonMiniProgramQRCode",
         [](NimboSdkManager& b, const AnswerPtr& a) {
             b.getCommonMiniProgramQRCode("nimbo_tasks", "pages/ads/watch", kToken, "mac_client", onSuccess(a),
                                          onFailure(a));
         }},
        {"getUserDialogList",
         [](NimboSdkManager& b, const AnswerPtr& a) {
             b.getUserDialogList(Value::dictionary({{"scene", "launch"}}), {onSuccess(a), onFailure(a)});
         }},
        {"getInternalMessageStatisticInfo",
         [](NimboSdkManager& b, const AnswerPtr& a) {
             b.getInternalMessageStatisticInfo(Value::dictionary({}), Value(0), {onSuccess(a), onFailure(a)});
         }},
        {"getTimeStamp", [](NimboSdkManager& b, const AnswerPtr& a) { a->answerNow(Value(b.getTimeStamp())); }},
        {"getReportCommonParams", [](NimboSdkManager& b, const AnswerPtr& a) { a->answerNow(b.getReportCommonParams()); }},
        {"getNimboCommonHeaderEncryptText",
         [](NimboSdkManager& b, const AnswerPtr& a) {
             const auto text = b.getNimboCommonHeaderEncryptText();
             a->answerNow(text ? Value(*text) : Value());
         }},
        {"getHttpUserAgent",
         [](NimboSdkManager& b, const AnswerPtr& a) {
             const auto text = b.getHttpUserAgent();
             a->answerNow(text ? Value(*text) : Value());
         }},
        {"startPersistentConnectionService",
         [](NimboSdkManager& b, const AnswerPtr& a) {
             a->answerNow(b.startPersistentConnectionService(Value::dictionary({{"token", kToken}})));
         }},
        {"queryUserPropertyInterests",
         [](NimboSdkManager& b, const AnswerPtr& a) {
             onInstance(b, a, [&](NimboSDKInterface& sdk) { sdk.queryUserPropertyInterests(onSuccess(a), onFailure(a)); });
         }},
        {"queryCoupons",
         [](NimboSdkManager& b, const AnswerPtr& a) {
             onInstance(b, a, [&](NimboSDKInterface& sdk) {
                 sdk.queryCoupons(Value::dictionary({{"status", 0}}), onSuccess(a),
                                  [a](std::int32_t code) { a->settle(true, Value(), {code, 0, 0}); });
             });
         }},
        {"requestPopupWindowInfo",
         [](NimboSdkManager& b, const AnswerPtr& a) {
             onInstance(b, a, [&](NimboSDKInterface& sdk) {
                 sdk.requestPopupWindowInfo(kToken, Value::array({"game_detail_page", "pre_launch_game"}), kGameId,
                                            std::nullopt, [a](std::int32_t code, const Value&, const Value& reply) {
                                                a->settle(code != 0, reply, {code, 0, 0});
                                            });
             });
         }},
        {"requestClickButtonCallback",
         [](NimboSdkManager& b, const AnswerPtr& a) {
             onInstance(b, a, [&](NimboSDKInterface& sdk) {
                 sdk.requestClickButtonCallback(
                     Value::dictionary({{"popup_id", 1}}), "ticket-1", 0,
                     [a](std::int32_t code, const std::optional<std::string>& message) {
                         a->settle(code != 0, Value::dictionary({{"code", code}, {"message", message ? Value(*message) : Value()}}),
                                   {code, 0, 0});
                     });
             });
         }},
        {"getGameGlobalConfig",
         [](NimboSdkManager& b, const AnswerPtr& a) {
             onInstance(b, a, [&](NimboSDKInterface& sdk) {
                 a->answerNow(sdk.getGameGlobalConfig(Value::dictionary({{"game_id", kGameId}})));
             });
         }},
        {"getMaintainPageConfig",
         [](NimboSdkManager& b, const AnswerPtr& a) {
             onInstance(b, a, [&](NimboSDKInterface& sdk) { a->answerNow(sdk.getMaintainPageConfig()); });
         }},
        {"getUpdateInformation",
         [](NimboSdkManager& b, const AnswerPtr& a) {
             onInstance(b, a, [&](NimboSDKInterface& sdk) {
                 a->answerNow(sdk.getUpdateInformation("10086", 1, "nimbo_official"));
             });
         }},
        {"getTipsButtonInfo",
         [](NimboSdkManager& b, const AnswerPtr& a) {
             onInstance(b, a, [&](NimboSDKInterface& sdk) { a->answerNow(sdk.getTipsButtonInfo()); });
         }},
        {"getGameTipsConfig",
         [](NimboSdkManager& b, const AnswerPtr& a) {
             onInstance(b, a, [&](NimboSDKInterface& sdk) { a->answerNow(sdk.getGameTipsConfig()); });
         }},
        {"getGameListExtraInfo",
         [](NimboSdkManager& b, const AnswerPtr& a) {
             onInstance(b, a, [&](NimboSDKInterface& sdk) { a->answerNow(sdk.getGameListExtraInfo()); });
         }},
        {"connectAccelerateRouter",
         [](NimboSdkManager& b, const AnswerPtr& a) {
             onInstance(b, a, [&](NimboSDKInterface& sdk) { a->answerNow(Value(sdk.connectAccelerateRouter())); });
         }},
    };
    return *plays;
}

std::string formOf(const Value& reply) {
    if (const auto* text = reply.asString()) {
        return Json::decode(*text, {.allowFragments = true}) ? fmt::format("JSON text, {} bytes", text->size())
                                                             : fmt::format("text, {} bytes", text->size());
    }
    if (const auto* data = reply.asData()) return fmt::format("data, {} bytes", data->size());
    return reply.kindName();
}

}  // namespace

SdkCommand::SdkCommand(CLI::App& app, std::filesystem::path defaultReplies) : replies_(std::move(defaultReplies)) {
    command_ = app.add_subcommand("sdk", "Play one SDK operation through the bridge against recorded replies");
    command_->add_option("operation", operation_, "Operation, e.g. getUserFullInterests")->required();
    command_->add_option("--replies", replies_, "Folder of recorded replies")->capture_default_str();
}

std::vector<std::string> SdkCommand::operations() {
    std::vector<std::string> names;
    for (const auto& [name, play] : table()) names.push_back(name);
    return names;
}

std::optional<SdkCommand::Outcome> SdkCommand::play(NimboSdkManager& bridge, const std::string& operation) {
    const auto it = table().find(operation);
    if (it == table().end()) return std::nullopt;
    auto answer = std::make_shared<Answer>();
    it->second(bridge, answer);
    std::unique_lock lock(answer->mutex);
    answer->cv.wait_for(lock, std::chrono::seconds(10), [&] { return answer->outcome.answered; });
    return answer->outcome;
}

std::string SdkCommand::describe(const Outcome& o) {
    if (!o.answered) return "no answer within 10 seconds";
    const std::string where = o.blocking ? "returned by the blocking call"
                                         : (o.onCallerThread ? "called back on the calling thread"
                                                             : "called back on the SDK's own thread");
    if (o.failed) {
        return o.blocking ? fmt::format("{}: nil (failed)", where)
                          : fmt::format("{}: failure {}-{}-{}", where, o.failure[0], o.failure[1], o.failure[2]);
    }
    std::string body;
    if (const auto* text = o.reply.asString()) {
        const auto decoded = Json::decode(*text, {.allowFragments = true});
        body = decoded && (decoded->isDictionary() || decoded->isArray()) ? PlistText::format(*decoded) : *text;
    } else if (o.reply.isData()) {
        body = fmt::format("<{} bytes>", o.reply.asData()->size());
    } else {
        body = PlistText::format(o.reply);
    }
    return fmt::format("{}: success ({})\n{}", where, formOf(o.reply), body);
}

int SdkCommand::run() const {
    if (table().find(operation_) == table().end()) {
        std::fprintf(stderr, "nbctl: '%s' is not an SDK operation the library calls; known: %s\n", operation_.c_str(),
                     fmt::format("{}", fmt::join(operations(), ", ")).c_str());
        return 2;
    }
    std::string error;
    if (!ReplaySdk::validateFolder(replies_, &error)) {
        std::fprintf(stderr, "nbctl: %s\n", error.c_str());
        return 1;
    }
    auto replay = std::make_shared<ReplaySdk>(replies_);
    NimboSDKInterface::setClassObject(replay);
    // The switches come from the user's configuration file; no suite, so nothing is written.
    NBConfiguration configuration(nullptr, Folders::fromProcessEnvironment().homeFolder());
    NBNetworkCheck network;
    NimboSdkManager bridge([replay] { return replay; }, {}, configuration, network, NBLog::sharedInstance());
    bridge.initializeSDK(nullptr, "10086", "open-5521", false);
    replay->clearCalls();

    const Outcome outcome = *play(bridge, operation_);
    for (const ReplaySdk::Call& call : replay->calls()) {
        fmt::print("asked the SDK: {} {}\n", call.operation, PlistText::format(call.arguments));
    }
    fmt::print("{}\n", describe(outcome));
    bridge.uninitializeSDK();
    NimboSDKInterface::setClassObject(nullptr);
    return outcome.answered ? 0 : 1;
}

}  // namespace nb::nbctl
