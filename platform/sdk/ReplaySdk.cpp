#include "nbbase/sdk/ReplaySdk.h"

#include <array>
#include <fstream>
#include <iterator>
#include <mutex>
#include <set>
#include <sstream>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <utility>

#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/NBLog.h"

namespace nb {

namespace fs = std::filesystem;

struct ReplaySdk::Outcome {
    bool ok = false;
    Value reply;
    std::int32_t a = -1, b = -1, c = -1;
};

namespace {

using Outcome = ReplaySdk::Outcome;
using Form = ReplaySdk::Form;

Outcome failed(std::int32_t a = -1, std::int32_t b = -1, std::int32_t c = -1) {
    Outcome o;
    o.a = a;
    o.b = b;
    o.c = c;
    return o;
}

Outcome succeeded(Value reply) {
    Outcome o;
    o.ok = true;
    o.reply = std::move(reply);
    return o;
}

Value opt(const std::optional<std::string>& s) { return s ? Value(*s) : Value(); }

std::optional<std::string> optString(const Value& v) {
    if (v.isAbsent() || v.isNull()) return std::nullopt;
    return v.stringValue();
}

// Whole file, or nullopt when it is missing or unreadable (both mean "no recording").
std::optional<std::string> readFile(const fs::path& path) {
    std::error_code ec;
    if (!fs::is_regular_file(path, ec)) return std::nullopt;
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::optional<std::array<std::int32_t, 3>> parseFailure(const std::string& text) {
    std::istringstream in(text);
    std::array<std::int32_t, 3> parts{};
    if (!(in >> parts[0] >> parts[1] >> parts[2])) return std::nullopt;
    std::string rest;
    if (in >> rest) return std::nullopt;
    return parts;
}

std::optional<std::int64_t> parseLatency(const std::string& text) {
    std::istringstream in(text);
    std::int64_t ms = -1;
    if (!(in >> ms) || ms < 0) return std::nullopt;
    std::string rest;
    if (in >> rest) return std::nullopt;
    return ms;
}

Data bytesOf(const std::string& s) { return Data(s.begin(), s.end()); }

// A programmed reply in the operation's form, as the same content would come from a file.
Outcome shapeProgrammed(const std::string& operation, const Value& reply, Form form) {
    if (form == Form::Decoded || reply.isAbsent()) return succeeded(reply);
    if (reply.isData()) return succeeded(reply);
    if (reply.isString()) return succeeded(form == Form::Text ? reply : Value(bytesOf(*reply.asString())));
    Json::Error error;
    auto text = Json::encode(reply, Json::Style::Compact, &error);
    if (!text) {
        NBLog::sharedInstance().log(4, "ReplaySdk: the reply set for {} cannot be written as JSON: {}", operation,
                                    error.message);
        return failed();
    }
    return succeeded(form == Form::Text ? Value(std::move(*text)) : Value(bytesOf(*text)));
}

}  // namespace

struct ReplaySdk::State {
    struct Programmed {
        std::optional<Value> reply;
        std::optional<std::array<std::int32_t, 3>> failure;
        std::optional<std::chrono::milliseconds> latency;
    };

    explicit State(fs::path f) : folder(std::move(f)) {}

    const fs::path folder;
    mutable std::mutex mutex;
    std::unordered_map<std::string, Programmed> programmed;  // guarded by mutex
    std::set<std::string> reportedMissing;                    // guarded by mutex
    std::vector<Call> calls;                                  // guarded by mutex

    Outcome missing(const std::string& operation, const fs::path& file) {
        bool first = false;
        {
            std::lock_guard lock(mutex);
            first = reportedMissing.insert(operation).second;
        }
        if (first) {
            if (folder.empty())
                NBLog::sharedInstance().log(4, "ReplaySdk: no reply set for {} and no folder of recordings", operation);
            else
                NBLog::sharedInstance().log(4, "ReplaySdk: no recording {}", file.string());
        }
        return failed();
    }

    Outcome resolve(const std::string& operation, Form form) {
        {
            std::lock_guard lock(mutex);
            auto it = programmed.find(operation);
            if (it != programmed.end() && it->second.failure) {
                const auto& f = *it->second.failure;
                return failed(f[0], f[1], f[2]);
            }
            if (it != programmed.end() && it->second.reply) {
                Value reply = *it->second.reply;
                return shapeProgrammed(operation, reply, form);
            }
        }
        if (folder.empty()) return missing(operation, {});

        const fs::path failPath = folder / (operation + ".fail");
        if (auto text = readFile(failPath)) {
            if (auto parts = parseFailure(*text)) return failed((*parts)[0], (*parts)[1], (*parts)[2]);
            NBLog::sharedInstance().log(4, "ReplaySdk: {} does not hold three integers", failPath.string());
            return failed();
        }
        if (form == Form::Image) {
            const fs::path pngPath = folder / (operation + ".png");
            if (auto bytes = readFile(pngPath)) return succeeded(Value(bytesOf(*bytes)));
            return missing(operation, pngPath);
        }
        const fs::path jsonPath = folder / (operation + ".json");
        auto text = readFile(jsonPath);
        if (!text) return missing(operation, jsonPath);
        Json::Error error;
        auto decoded = Json::decode(*text, Json::DecodeOptions{.allowFragments = true}, &error);
        if (!decoded) {
            NBLog::sharedInstance().log(4, "ReplaySdk: {} is not valid JSON: {}", jsonPath.string(), error.message);
            return failed();
        }
        switch (form) {
            case Form::Text: return succeeded(Value(std::move(*text)));
            case Form::Bytes: return succeeded(Value(bytesOf(*text)));
            case Form::Decoded:
            case Form::Image: break;
        }
        return succeeded(std::move(*decoded));
    }

    std::chrono::milliseconds latency(const std::string& operation) {
        {
            std::lock_guard lock(mutex);
            auto it = programmed.find(operation);
            if (it != programmed.end() && it->second.latency) return *it->second.latency;
        }
        if (folder.empty()) return {};
        const fs::path path = folder / (operation + ".latency");
        auto text = readFile(path);
        if (!text) return {};
        if (auto ms = parseLatency(*text)) return std::chrono::milliseconds(*ms);
        NBLog::sharedInstance().log(4, "ReplaySdk: {} does not hold a number of milliseconds", path.string());
        return {};
    }
};

ReplaySdk::ReplaySdk(fs::path folder, ThreadPool& pool)
    : folder_(std::move(folder)), state_(std::make_shared<State>(folder_)), queue_("ReplaySdk", pool) {
    std::error_code ec;
    if (!folder_.empty() && !fs::is_directory(folder_, ec))
        NBLog::sharedInstance().log(4, "ReplaySdk: {} is not a folder; every request will fail", folder_.string());
}

// Members go in reverse order: the queue first (its pending tasks stay on the pool), then the state,
// after which those tasks find their weak reference expired and drop their answers.
ReplaySdk::~ReplaySdk() = default;

bool ReplaySdk::validateFolder(const fs::path& folder, std::string* error) {
    auto fail = [&](std::string message) {
        if (error) *error = std::move(message);
        return false;
    };
    std::error_code ec;
    if (folder.empty()) return fail("no folder of replies given");
    if (!fs::exists(folder, ec)) return fail(folder.string() + " does not exist");
    if (!fs::is_directory(folder, ec)) return fail(folder.string() + " is not a folder");
    fs::directory_iterator it(folder, ec);
    if (ec) return fail(folder.string() + " cannot be read: " + ec.message());
    for (const auto& entry : it) {
        const fs::path& path = entry.path();
        const std::string ext = path.extension().string();
        if (ext != ".json" && ext != ".fail" && ext != ".latency") continue;
        auto text = readFile(path);
        if (!text) return fail(path.string() + " cannot be read");
        if (ext == ".json") {
            Json::Error jsonError;
            if (!Json::decode(*text, Json::DecodeOptions{.allowFragments = true}, &jsonError))
                return fail(path.string() + " is not valid JSON: " + jsonError.message);
        } else if (ext == ".fail" && !parseFailure(*text)) {
            return fail(path.string() + " does not hold three integers");
        } else if (ext == ".latency" && !parseLatency(*text)) {
            return fail(path.string() + " does not hold a number of milliseconds");
        }
    }
    return true;
}

void ReplaySdk::setReply(const std::string& operation, Value reply) {
    std::lock_guard lock(state_->mutex);
    auto& p = state_->programmed[operation];
    p.reply = std::move(reply);
    p.failure.reset();
}

void ReplaySdk::setFailure(const std::string& operation, std::int32_t a, std::int32_t b, std::int32_t c) {
    std::lock_guard lock(state_->mutex);
    auto& p = state_->programmed[operation];
    p.failure = {a, b, c};
    p.reply.reset();
}

void ReplaySdk::setLatency(const std::string& operation, std::chrono::milliseconds latency) {
    std::lock_guard lock(state_->mutex);
    state_->programmed[operation].latency = latency;
}

void ReplaySdk::reset(const std::string& operation) {
    std::lock_guard lock(state_->mutex);
    state_->programmed.erase(operation);
}

std::vector<ReplaySdk::Call> ReplaySdk::calls() const {
    std::lock_guard lock(state_->mutex);
    return state_->calls;
}

std::vector<ReplaySdk::Call> ReplaySdk::calls(const std::string& operation) const {
    std::vector<Call> out;
    std::lock_guard lock(state_->mutex);
    for (const Call& call : state_->calls)
        if (call.operation == operation) out.push_back(call);
    return out;
}

void ReplaySdk::clearCalls() {
    std::lock_guard lock(state_->mutex);
    state_->calls.clear();
}

void ReplaySdk::record(const char* operation, Value arguments) {
    if (!arguments.isDictionary()) arguments = Value(Value::Dictionary{});
    std::lock_guard lock(state_->mutex);
    state_->calls.push_back(Call{operation, std::move(arguments)});
}

Value ReplaySdk::answerNow(const char* operation, Value arguments, Form form) {
    record(operation, std::move(arguments));
    const auto latency = state_->latency(operation);
    if (latency.count() > 0) std::this_thread::sleep_for(latency);
    Outcome outcome = state_->resolve(operation, form);
    return outcome.ok ? std::move(outcome.reply) : Value();
}

void ReplaySdk::answerLater(const char* operation, Value arguments, Form form,
                            std::function<void(const Outcome&)> deliver) {
    record(operation, std::move(arguments));
    const auto latency = state_->latency(operation);
    auto task = [weak = std::weak_ptr<State>(state_), op = std::string(operation), form,
                 deliver = std::move(deliver)] {
        Outcome outcome;
        {
            auto state = weak.lock();
            if (!state) return;  // the ReplaySdk is gone: drop the answer
            outcome = state->resolve(op, form);
        }
        deliver(outcome);
    };
    if (latency.count() > 0)
        (void)queue_.asyncAfter(latency, std::move(task));
    else
        queue_.async(std::move(task));
}

namespace {

std::function<void(const Outcome&)> toBlocks(NimboSDKInterface::SuccessBlock success,
                                             NimboSDKInterface::FailureBlock failure) {
    return [success = std::move(success), failure = std::move(failure)](const Outcome& o) {
        if (o.ok) {
            if (success) success(o.reply);
        } else if (failure) {
            failure(o.a, o.b, o.c);
        }
    };
}

}  // namespace

// ---- Class operation and lifetime ------------------------------------------------------------------------

std::optional<std::string> ReplaySdk::getHttpUserAgent() {
    return optString(answerNow("getHttpUserAgent", Value::dictionary({}), Form::Decoded));
}

void ReplaySdk::initWithListener(std::shared_ptr<void> listener, std::int32_t envType,
                                 const std::optional<std::string>& userId, const std::optional<std::string>& openId,
                                 const Value& extra) {
    record("initWithListener", Value::dictionary({{"listener", listener != nullptr},
                                                  {"envType", envType},
                                                  {"userId", opt(userId)},
                                                  {"openId", opt(openId)},
                                                  {"extra", extra}}));
}

void ReplaySdk::uninit() { record("uninit", {}); }

// ---- Fire and forget ---------------------------------------------------------------------------------------

void ReplaySdk::setNetworkInterfaceType(std::int32_t type) {
    record("setNetworkInterfaceType", Value::dictionary({{"type", type}}));
}

void ReplaySdk::enableBuiltinGamepadManager(bool enable) {
    record("enableBuiltinGamepadManager", Value::dictionary({{"enable", enable}}));
}

void ReplaySdk::reportLog(std::int32_t level, const std::string& file, const std::string& function, std::int32_t line,
                          const std::string& content) {
    record("reportLog", Value::dictionary({{"level", level},
                                           {"file", file},
                                           {"function", function},
                                           {"line", line},
                                           {"content", content}}));
}

void ReplaySdk::stopPersistentConnectionService() { record("stopPersistentConnectionService", {}); }

void ReplaySdk::syncUserLoginInfo(const Value& loginInfo) {
    record("syncUserLoginInfo", Value::dictionary({{"loginInfo", loginInfo}}));
}

void ReplaySdk::sendStrategyCenterCmdRequest(const Value& cmd, const std::uint8_t* data, std::size_t len) {
    Data bytes = data ? Data(data, data + len) : Data();
    record("sendStrategyCenterCmdRequest",
           Value::dictionary({{"cmd", cmd}, {"data", Value(std::move(bytes))}, {"len", static_cast<std::uint64_t>(len)}}));
}

void ReplaySdk::reportUserDialogExecute(const Value& dialog, const Value& ticket, const Value& index,
                                        const Value& dialogId) {
    record("reportUserDialogExecute",
           Value::dictionary({{"dialog", dialog}, {"ticket", ticket}, {"index", index}, {"dialogId", dialogId}}));
}

void ReplaySdk::checkInstanceStatus(const Value& request, std::int32_t keepDevice) {
    record("checkInstanceStatus", Value::dictionary({{"request", request}, {"keepDevice", keepDevice}}));
}

void ReplaySdk::reportError(std::int32_t error, std::int32_t code, std::int32_t subCode,
                            const std::optional<std::string>& msg) {
    record("reportError", Value::dictionary({{"error", error}, {"code", code}, {"subCode", subCode}, {"msg", opt(msg)}}));
}

void ReplaySdk::setUserId(const std::optional<std::string>& userId) {
    record("setUserId", Value::dictionary({{"userId", opt(userId)}}));
}

void ReplaySdk::setOpenId(const std::optional<std::string>& openId) {
    record("setOpenId", Value::dictionary({{"openId", opt(openId)}}));
}

void ReplaySdk::setVipFlag(std::int64_t vipFlag, std::int64_t svipFlag) {
    record("setVipFlag", Value::dictionary({{"vipFlag", static_cast<long long>(vipFlag)},
                                            {"svipFlag", static_cast<long long>(svipFlag)}}));
}

void ReplaySdk::logout() { record("logout", {}); }

void ReplaySdk::recordGameId(const std::optional<std::string>& gameId) {
    record("recordGameId", Value::dictionary({{"gameId", opt(gameId)}}));
}

void ReplaySdk::enableSilenceDetect(std::int32_t enable) {
    record("enableSilenceDetect", Value::dictionary({{"enable", enable}}));
}

void ReplaySdk::enableSvipFeatureVersion(std::int32_t enable) {
    record("enableSvipFeatureVersion", Value::dictionary({{"enable", enable}}));
}

void ReplaySdk::sendBandwidthConfig(std::uint32_t netMaxBitrate, std::uint32_t netUpload, std::uint32_t netLatency) {
    record("sendBandwidthConfig",
           Value::dictionary({{"netMaxBitrate", netMaxBitrate}, {"netUpload", netUpload}, {"netLatency", netLatency}}));
}

void ReplaySdk::beaconCommonReport(std::int32_t eventId, std::int32_t eventCode,
                                   const std::optional<std::string>& eventData,
                                   const std::optional<std::string>& eventExt) {
    record("beaconCommonReport", Value::dictionary({{"eventId", eventId},
                                                    {"eventCode", eventCode},
                                                    {"eventData", opt(eventData)},
                                                    {"eventExt", opt(eventExt)}}));
}

// ---- Blocking requests ---------------------------------------------------------------------------------------

Value ReplaySdk::startPersistentConnectionService(const Value& parameters) {
    return answerNow("startPersistentConnectionService", Value::dictionary({{"parameters", parameters}}),
                     Form::Decoded);
}

std::int64_t ReplaySdk::getTimeStamp() { return answerNow("getTimeStamp", {}, Form::Decoded).longLongValue(); }

Value ReplaySdk::getReportCommonParams() { return answerNow("getReportCommonParams", {}, Form::Decoded); }

std::optional<std::string> ReplaySdk::getNimboCommonHeaderEncryptText() {
    return optString(answerNow("getNimboCommonHeaderEncryptText", {}, Form::Decoded));
}

Value ReplaySdk::getGameGlobalConfig(const Value& request) {
    return answerNow("getGameGlobalConfig", Value::dictionary({{"request", request}}), Form::Decoded);
}

Value ReplaySdk::getMaintainPageConfig() { return answerNow("getMaintainPageConfig", {}, Form::Decoded); }

Value ReplaySdk::getUpdateInformation(const std::optional<std::string>& userId, std::int64_t vipFlag,
                                      const std::optional<std::string>& supplyId) {
    return answerNow("getUpdateInformation",
                     Value::dictionary({{"userId", opt(userId)},
                                        {"vipFlag", static_cast<long long>(vipFlag)},
                                        {"supplyId", opt(supplyId)}}),
                     Form::Decoded);
}

Value ReplaySdk::getTipsButtonInfo() { return answerNow("getTipsButtonInfo", {}, Form::Decoded); }

Value ReplaySdk::getGameTipsConfig() { return answerNow("getGameTipsConfig", {}, Form::Decoded); }

Value ReplaySdk::getGameListExtraInfo() { return answerNow("getGameListExtraInfo", {}, Form::Decoded); }

bool ReplaySdk::connectAccelerateRouter() {
    return answerNow("connectAccelerateRouter", {}, Form::Decoded).boolValue();
}

// ---- Requests answered through callbacks ------------------------------------------------------------------

void ReplaySdk::getUserDialogList(const Value& request, Listener listener) {
    answerLater("getUserDialogList", Value::dictionary({{"request", request}}), Form::Decoded,
                toBlocks(std::move(listener.onSuccess), std::move(listener.onFailure)));
}

void ReplaySdk::getInternalMessageStatisticInfo(const Value& request, const Value& latestMailIdx, Listener listener) {
    answerLater("getInternalMessageStatisticInfo",
                Value::dictionary({{"request", request}, {"latestMailIdx", latestMailIdx}}), Form::Decoded,
                toBlocks(std::move(listener.onSuccess), std::move(listener.onFailure)));
}

void ReplaySdk::getUserFullInterests(const std::optional<std::string>& token, const std::string& gameId,
                                     const std::optional<std::string>& instanceId, const std::string& filters,
                                     SuccessBlock success, FailureBlock failure) {
    answerLater("getUserFullInterests",
                Value::dictionary(
                    {{"token", opt(token)}, {"gameId", gameId}, {"instanceId", opt(instanceId)}, {"filters", filters}}),
                Form::Text, toBlocks(std::move(success), std::move(failure)));
}

void ReplaySdk::takeUserTriableInterests(const std::optional<std::string>& token, const Value& productIds,
                                         SuccessBlock success, FailureBlock failure) {
    answerLater("takeUserTriableInterests", Value::dictionary({{"token", opt(token)}, {"productIds", productIds}}),
                Form::Text, toBlocks(std::move(success), std::move(failure)));
}

void ReplaySdk::checkGameHangUpStatus(const Value& request, SuccessBlock success, FailureBlock failure) {
    answerLater("checkGameHangUpStatus", Value::dictionary({{"request", request}}), Form::Text,
                toBlocks(std::move(success), std::move(failure)));
}

void ReplaySdk::startHangUp(const std::optional<std::string>& token, const std::optional<std::string>& gameId,
                            const std::optional<std::string>& instanceId, std::int32_t timeSeconds,
                            SuccessBlock success, FailureBlock failure) {
    answerLater("startHangUp",
                Value::dictionary({{"token", opt(token)},
                                   {"gameId", opt(gameId)},
                                   {"instanceId", opt(instanceId)},
                                   {"timeSeconds", timeSeconds}}),
                Form::Text, toBlocks(std::move(success), std::move(failure)));
}

void ReplaySdk::stopHangUp(const std::optional<std::string>& token, const std::optional<std::string>& gameId,
                           const std::optional<std::string>& instanceId, SuccessBlock success, FailureBlock failure) {
    answerLater("stopHangUp",
                Value::dictionary({{"token", opt(token)}, {"gameId", opt(gameId)}, {"instanceId", opt(instanceId)}}),
                Form::Text, toBlocks(std::move(success), std::move(failure)));
}

void ReplaySdk::kickUserInstance(const std::optional<std::string>& token, const std::optional<std::string>& instanceId,
                                 const Value& reason, SuccessBlock success, FailureBlock failure) {
    answerLater("kickUserInstance",
                Value::dictionary({{"token", opt(token)}, {"instanceId", opt(instanceId)}, {"reason", reason}}),
                Form::Text, toBlocks(std::move(success), std::move(failure)));
}

void ReplaySdk::getSceneTasks(const std::optional<std::string>& token, const std::optional<std::string>& act,
                              const Value& filter, const std::optional<std::string>& taskType, SuccessBlock success,
                              FailureBlock failure) {
    answerLater("getSceneTasks",
                Value::dictionary(
                    {{"token", opt(token)}, {"act", opt(act)}, {"filter", filter}, {"taskType", opt(taskType)}}),
                Form::Text, toBlocks(std::move(success), std::move(failure)));
}

void ReplaySdk::getCommonMiniProgramQRCode(const std::optional<std::string>& xcxName,
                                           const std::optional<std::string>& xcxPage,
                                           const std::optional<std::string>& token,
                                           const std::optional<std::string>& adTag, SuccessBlock success,
                                           FailureBlock failure) {
    answerLater("getCommonMiniProgramQRCode",
                Value::dictionary({{"xcxName", opt(xcxName)},
                                   {"xcxPage", opt(xcxPage)},
                                   {"token", opt(token)},
                                   {"adTag", opt(adTag)}}),
                Form::Image, toBlocks(std::move(success), std::move(failure)));
}

void ReplaySdk::queryUserPropertyInterests(SuccessBlock success, FailureBlock failure) {
    answerLater("queryUserPropertyInterests", {}, Form::Text, toBlocks(std::move(success), std::move(failure)));
}

void ReplaySdk::queryCoupons(const Value& request, SuccessBlock success, CodeFailureBlock failure) {
    answerLater("queryCoupons", Value::dictionary({{"request", request}}), Form::Bytes,
                [success = std::move(success), failure = std::move(failure)](const Outcome& o) {
                    if (o.ok) {
                        if (success) success(o.reply);
                    } else if (failure) {
                        failure(o.a);
                    }
                });
}

void ReplaySdk::requestPopupWindowInfo(const std::optional<std::string>& token, const Value& scenes,
                                       const std::optional<std::string>& gameId,
                                       const std::optional<std::string>& zoneId, PopupWindowBlock block) {
    answerLater("requestPopupWindowInfo",
                Value::dictionary(
                    {{"token", opt(token)}, {"scenes", scenes}, {"gameId", opt(gameId)}, {"zoneId", opt(zoneId)}}),
                Form::Bytes, [block = std::move(block)](const Outcome& o) {
                    if (!block) return;
                    if (o.ok)
                        block(0, Value(), o.reply);
                    else
                        block(o.a, Value(), Value());
                });
}

void ReplaySdk::requestClickButtonCallback(const Value& context, const std::optional<std::string>& confirmTicket,
                                           std::int32_t buttonIndex, ClickButtonBlock block) {
    answerLater("requestClickButtonCallback",
                Value::dictionary(
                    {{"context", context}, {"confirmTicket", opt(confirmTicket)}, {"buttonIndex", buttonIndex}}),
                Form::Decoded, [block = std::move(block)](const Outcome& o) {
                    if (!block) return;
                    if (o.ok)
                        block(o.reply["code"].intValue(), optString(o.reply["message"]));
                    else
                        block(o.a, std::nullopt);
                });
}

}  // namespace nb
