// ReplaySdk: the offline NimboSDKInterface. It answers from a folder of recorded replies, can be told in
// code what to answer, to fail or to be slow, and records every call, so tests and the reference host run
// the whole library without the closed SDK and can show what the library asked of it.
//
// Folder layout: one file per operation, named after the operation's C++ name.
//   <operation>.json     a JSON document (any top-level value), delivered in the operation's own form:
//                        - JSON text (a string Value holding the file's text): the callback requests whose
//                          success gets JSON text (getUserFullInterests, getSceneTasks, ...);
//                        - the decoded value: getGameGlobalConfig, getMaintainPageConfig, getTipsButtonInfo,
//                          getGameTipsConfig, getGameListExtraInfo, getUpdateInformation,
//                          getReportCommonParams, startPersistentConnectionService, the listener requests;
//                        - a plain result converted from the decoded value: getTimeStamp (a number),
//                          connectAccelerateRouter (true/false), getHttpUserAgent and
//                          getNimboCommonHeaderEncryptText (a string);
//                        - the file's bytes as a data Value: queryCoupons, and requestPopupWindowInfo
//                          (answered with retCode 0);
//                        - requestClickButtonCallback: a dictionary {"code": n, "message": "..."}.
//   <operation>.png      image replies (getCommonMiniProgramQRCode): the raw bytes, as a data Value.
//   <operation>.fail     three integers separated by white space: the operation fails with them (failure
//                        callback; queryCoupons gets the first; requestPopupWindowInfo and
//                        requestClickButtonCallback get the first as their code; blocking operations
//                        answer nil, absent, 0 or false). Takes precedence over a reply file.
//   <operation>.latency  optional: milliseconds to wait before answering.
// An operation without a recording, or whose recording is not valid JSON (or a .fail file without three
// integers), fails as a failed request does, with (-1, -1, -1), and logs at level 4 a line naming the file
// (a missing file once per operation and instance). Fire-and-forget operations only record the call.
//
// Programmed answers (setReply, setFailure, setLatency) take precedence over the folder for their
// operation; a programmed reply is delivered in the operation's form as a file would be (a string reply
// given to a JSON-text operation is taken as the JSON text; other values are encoded). An absent reply is
// a success that carries nothing, as when the SDK had no reply bytes. An empty folder
// path makes a ReplaySdk that answers only what it is programmed with.
//
// Threads: every function may be called on any thread. Blocking operations read the folder and sleep
// their latency on the caller's thread. Callback operations return at once (having looked up only their
// latency); their reply is read and delivered later on ReplaySdk's own serial queue, never on the
// caller's thread and never inside the call, in order of submission (a latency delays its answer
// without holding back later ones).
//
// Lifetime: the ReplaySdk may be destroyed with answers still queued: those are dropped, their callbacks
// destroyed uncalled on the queue's thread. An answer already being delivered finishes; it touches only
// its own callbacks, never the destroyed ReplaySdk. The pool must outlive the ReplaySdk.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "nbbase/foundation/SerialQueue.h"
#include "nbbase/foundation/ThreadPool.h"
#include "nbbase/sdk/NimboSDKInterface.h"

namespace nb {

class ReplaySdk final : public NimboSDKInterface {
public:
    // `arguments` is a dictionary keyed by the parameter names; a nil argument is left out, callbacks are
    // not recorded, bytes are a data Value.
    struct Call {
        std::string operation;
        Value arguments;
    };

    // A folder that does not exist is not an error here: every operation then fails as unrecorded (logged
    // once at construction). Tools call validateFolder first to report a clear error.
    explicit ReplaySdk(std::filesystem::path folder = {}, ThreadPool& pool = ThreadPool::sharedInstance());
    ~ReplaySdk() override;
    ReplaySdk(const ReplaySdk&) = delete;
    ReplaySdk& operator=(const ReplaySdk&) = delete;

    // True when `folder` is a readable folder whose .json files decode, whose .fail files hold three
    // integers and whose .latency files a non-negative integer; otherwise false with the first problem,
    // naming the file, in *error.
    [[nodiscard]] static bool validateFolder(const std::filesystem::path& folder, std::string* error = nullptr);

    [[nodiscard]] const std::filesystem::path& folder() const noexcept { return folder_; }

    // Each overrides the folder for that operation until reset(). setReply and setFailure replace each other.
    void setReply(const std::string& operation, Value reply);
    void setFailure(const std::string& operation, std::int32_t a, std::int32_t b, std::int32_t c);
    void setLatency(const std::string& operation, std::chrono::milliseconds latency);
    // Back to the folder for that operation.
    void reset(const std::string& operation);

    // A copy, in the order the calls were made.
    [[nodiscard]] std::vector<Call> calls() const;
    // The calls of one operation, for assertions.
    [[nodiscard]] std::vector<Call> calls(const std::string& operation) const;
    void clearCalls();

    // True on the thread delivering a callback answer.
    [[nodiscard]] bool isAnswerQueueCurrent() const noexcept { return queue_.isCurrent(); }

    // NimboSDKInterface
    std::optional<std::string> getHttpUserAgent() override;
    void initWithListener(std::shared_ptr<void> listener, std::int32_t envType,
                          const std::optional<std::string>& userId, const std::optional<std::string>& openId,
                          const Value& extra) override;
    void uninit() override;
    void setNetworkInterfaceType(std::int32_t type) override;
    void enableBuiltinGamepadManager(bool enable) override;
    void reportLog(std::int32_t level, const std::string& file, const std::string& function, std::int32_t line,
                   const std::string& content) override;
    void stopPersistentConnectionService() override;
    void syncUserLoginInfo(const Value& loginInfo) override;
    void sendStrategyCenterCmdRequest(const Value& cmd, const std::uint8_t* data, std::size_t len) override;
    void reportUserDialogExecute(const Value& dialog, const Value& ticket, const Value& index,
                                 const Value& dialogId) override;
    void checkInstanceStatus(const Value& request, std::int32_t keepDevice) override;
    void reportError(std::int32_t error, std::int32_t code, std::int32_t subCode,
                     const std::optional<std::string>& msg) override;
    void setUserId(const std::optional<std::string>& userId) override;
    void setOpenId(const std::optional<std::string>& openId) override;
    void setVipFlag(std::int64_t vipFlag, std::int64_t svipFlag) override;
    void logout() override;
    void recordGameId(const std::optional<std::string>& gameId) override;
    void enableSilenceDetect(std::int32_t enable) override;
    void enableSvipFeatureVersion(std::int32_t enable) override;
    void sendBandwidthConfig(std::uint32_t netMaxBitrate, std::uint32_t netUpload, std::uint32_t netLatency) override;
    void beaconCommonReport(std::int32_t eventId, std::int32_t eventCode, const std::optional<std::string>& eventData,
                            const std::optional<std::string>& eventExt) override;

    Value startPersistentConnectionService(const Value& parameters) override;
    std::int64_t getTimeStamp() override;
    Value getReportCommonParams() override;
    std::optional<std::string> getNimboCommonHeaderEncryptText() override;
    Value getGameGlobalConfig(const Value& request) override;
    Value getMaintainPageConfig() override;
    Value getUpdateInformation(const std::optional<std::string>& userId, std::int64_t vipFlag,
                               const std::optional<std::string>& supplyId) override;
    Value getTipsButtonInfo() override;
    Value getGameTipsConfig() override;
    Value getGameListExtraInfo() override;
    bool connectAccelerateRouter() override;

    void getUserDialogList(const Value& request, Listener listener) override;
    void getInternalMessageStatisticInfo(const Value& request, const Value& latestMailIdx, Listener listener) override;
    void getUserFullInterests(const std::optional<std::string>& token, const std::string& gameId,
                              const std::optional<std::string>& instanceId, const std::string& filters,
                              SuccessBlock success, FailureBlock failure) override;
    void takeUserTriableInterests(const std::optional<std::string>& token, const Value& productIds,
                                  SuccessBlock success, FailureBlock failure) override;
    void checkGameHangUpStatus(const Value& request, SuccessBlock success, FailureBlock failure) override;
    void startHangUp(const std::optional<std::string>& token, const std::optional<std::string>& gameId,
                     const std::optional<std::string>& instanceId, std::int32_t timeSeconds, SuccessBlock success,
                     FailureBlock failure) override;
    void stopHangUp(const std::optional<std::string>& token, const std::optional<std::string>& gameId,
                    const std::optional<std::string>& instanceId, SuccessBlock success,
                    FailureBlock failure) override;
    void kickUserInstance(const std::optional<std::string>& token, const std::optional<std::string>& instanceId,
                          const Value& reason, SuccessBlock success, FailureBlock failure) override;
    void getSceneTasks(const std::optional<std::string>& token, const std::optional<std::string>& act,
                       const Value& filter, const std::optional<std::string>& taskType, SuccessBlock success,
                       FailureBlock failure) override;
    void getCommonMiniProgramQRCode(const std::optional<std::string>& xcxName,
                                    const std::optional<std::string>& xcxPage, const std::optional<std::string>& token,
                                    const std::optional<std::string>& adTag, SuccessBlock success,
                                    FailureBlock failure) override;
    void queryUserPropertyInterests(SuccessBlock success, FailureBlock failure) override;
    void queryCoupons(const Value& request, SuccessBlock success, CodeFailureBlock failure) override;
    void requestPopupWindowInfo(const std::optional<std::string>& token, const Value& scenes,
                                const std::optional<std::string>& gameId, const std::optional<std::string>& zoneId,
                                PopupWindowBlock block) override;
    void requestClickButtonCallback(const Value& context, const std::optional<std::string>& confirmTicket,
                                    std::int32_t buttonIndex, ClickButtonBlock block) override;

    // How an operation's reply is shaped; public only so the source file's helpers can name it.
    enum class Form { Text, Decoded, Bytes, Image };
    struct Outcome;
    struct State;

private:
    void record(const char* operation, Value arguments);
    // Records, then reads and waits on the caller's thread. The reply in `form`, or absent on failure.
    Value answerNow(const char* operation, Value arguments, Form form);
    // Records, then answers on the queue after the operation's latency.
    void answerLater(const char* operation, Value arguments, Form form,
                     std::function<void(const Outcome&)> deliver);

    const std::filesystem::path folder_;
    std::shared_ptr<State> state_;  // queued answers hold it weakly
    SerialQueue queue_;
};

}  // namespace nb
