// NimboSDKInterface: the seam between NBBase and the closed cloud-gaming SDK.
//
// The SDK's vendor adapts its library to this class; ReplaySdk (ReplaySdk.h) implements it offline for
// tests and the reference host. NimboSdkManager owns the one live instance and forwards to it; a few
// models send their own requests on that instance (the second half of the class).
//
// Threads: every operation may be called on any thread. An implementation must be thread-safe.
// - "Blocks": the operation answers on the caller's thread and may take as long as a network round trip.
//   Callers run these on a background queue, never on the main thread.
// - "Answers through callbacks": the operation returns at once; exactly one of its callbacks is called
//   later, on a thread of the SDK's own (never the caller's thread, never inside the call). Callers move
//   work to the main queue themselves where they need to. An empty std::function is a nil block and is
//   simply not called.
// - "Fire and forget": returns at once, nothing comes back.
//
// Absent results: a blocking request that fails answers std::nullopt, an absent nb::Value, false or 0.
// Failures of callback requests reach the caller only through the failure callback; no operation throws.
//
// Arguments that the SDK defines and NBBase only passes through are nb::Value. Strings that may be nil are
// std::optional<std::string>.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "nbbase/foundation/Value.h"

namespace nb {

class NimboSDKInterface {
public:
    // The reply of a callback request. Its form is fixed per operation (see each one): a string Value
    // holding the JSON text, a data Value (image or raw reply bytes), or a decoded dictionary.
    using SuccessBlock = std::function<void(const Value& reply)>;
    // The three parts of the error code, which callers log as "%d-%d-%d".
    using FailureBlock = std::function<void(std::int32_t, std::int32_t, std::int32_t)>;
    // queryCoupons reports a failure as one code.
    using CodeFailureBlock = std::function<void(std::int32_t code)>;
    // requestPopupWindowInfo: retCode 0 is success; `extra` is the SDK's own second value (NBBase ignores
    // it); `reply` is the reply bytes as a data Value, absent on failure.
    using PopupWindowBlock = std::function<void(std::int32_t retCode, const Value& extra, const Value& reply)>;
    // requestClickButtonCallback: the SDK's code (0 success) and message (nil when it sent none).
    using ClickButtonBlock = std::function<void(std::int32_t code, const std::optional<std::string>& message)>;

    // What the SDK calls back through on the requests that take a "listener" (getUserDialogList,
    // getInternalMessageStatisticInfo). Same threads and forms as the blocks above; the reply is a
    // decoded dictionary.
    struct Listener {
        SuccessBlock onSuccess;
        FailureBlock onFailure;
    };

    virtual ~NimboSDKInterface() = default;

    // ---- Class operations -------------------------------------------------------------------------------
    //
    // The SDK has one class operation, getHttpUserAgent, which needs no initialised instance. C++ has no
    // virtual statics, so the vendor adapter (or the host, or a test) registers a "class object" here at
    // start-up: an instance on which only class operations are called, never initWithListener. The bridge
    // answers getHttpUserAgent through classObject() and thus works before any session exists. Without a
    // registered object the bridge answers nil. Thread-safe; the object is shared, never destroyed while
    // a caller holds it.
    static void setClassObject(std::shared_ptr<NimboSDKInterface> object);
    [[nodiscard]] static std::shared_ptr<NimboSDKInterface> classObject();

    // Blocks. The SDK's HTTP user agent; nil when it has none.
    virtual std::optional<std::string> getHttpUserAgent() = 0;

    // ---- Lifetime -----------------------------------------------------------------------------------------

    // Blocks briefly. Starts the session. `listener` is the host application's object, opaque to NBBase;
    // the SDK keeps it for its own calls. `extra` is the five-key dictionary NimboSdkManager builds.
    virtual void initWithListener(std::shared_ptr<void> listener, std::int32_t envType,
                                  const std::optional<std::string>& userId, const std::optional<std::string>& openId,
                                  const Value& extra) = 0;
    // Blocks briefly. Ends the session; requests still in flight may still answer afterwards.
    virtual void uninit() = 0;

    // ---- Fire and forget ------------------------------------------------------------------------------------

    virtual void setNetworkInterfaceType(std::int32_t type) = 0;
    virtual void enableBuiltinGamepadManager(bool enable) = 0;
    // `level` is the SDK's level (NimboSdkManager maps NBLog levels onto it). Called on whatever thread
    // logs, so it must not log through NBLog itself.
    virtual void reportLog(std::int32_t level, const std::string& file, const std::string& function,
                           std::int32_t line, const std::string& content) = 0;
    virtual void stopPersistentConnectionService() = 0;
    virtual void syncUserLoginInfo(const Value& loginInfo) = 0;
    // The bytes are read before the call returns; the SDK keeps no pointer to them.
    virtual void sendStrategyCenterCmdRequest(const Value& cmd, const std::uint8_t* data, std::size_t len) = 0;
    virtual void reportUserDialogExecute(const Value& dialog, const Value& ticket, const Value& index,
                                         const Value& dialogId) = 0;
    virtual void checkInstanceStatus(const Value& request, std::int32_t keepDevice) = 0;
    virtual void reportError(std::int32_t error, std::int32_t code, std::int32_t subCode,
                             const std::optional<std::string>& msg) = 0;
    virtual void setUserId(const std::optional<std::string>& userId) = 0;
    virtual void setOpenId(const std::optional<std::string>& openId) = 0;
    virtual void setVipFlag(std::int64_t vipFlag, std::int64_t svipFlag) = 0;
    virtual void logout() = 0;
    virtual void recordGameId(const std::optional<std::string>& gameId) = 0;
    virtual void enableSilenceDetect(std::int32_t enable) = 0;
    virtual void enableSvipFeatureVersion(std::int32_t enable) = 0;
    // Bits per second; NimboSdkManager sends only the first, the others 0.
    virtual void sendBandwidthConfig(std::uint32_t netMaxBitrate, std::uint32_t netUpload,
                                     std::uint32_t netLatency) = 0;
    virtual void beaconCommonReport(std::int32_t eventId, std::int32_t eventCode,
                                    const std::optional<std::string>& eventData,
                                    const std::optional<std::string>& eventExt) = 0;

    // ---- Blocking requests ----------------------------------------------------------------------------------

    // The SDK's result, whatever it defines (an object or a status number); absent on failure.
    virtual Value startPersistentConnectionService(const Value& parameters) = 0;
    // The server's time, Unix seconds; 0 on failure.
    virtual std::int64_t getTimeStamp() = 0;
    // A dictionary of common report parameters; absent on failure.
    virtual Value getReportCommonParams() = 0;
    // The enciphered common request header, not yet percent-encoded; nil on failure.
    virtual std::optional<std::string> getNimboCommonHeaderEncryptText() = 0;
    // `request` is a dictionary of strings ("appversion", "userid", "paychannel"). Decoded reply
    // dictionary; absent on failure.
    virtual Value getGameGlobalConfig(const Value& request) = 0;
    // Decoded reply dictionary; absent on failure.
    virtual Value getMaintainPageConfig() = 0;
    virtual Value getUpdateInformation(const std::optional<std::string>& userId, std::int64_t vipFlag,
                                       const std::optional<std::string>& supplyId) = 0;
    virtual Value getTipsButtonInfo() = 0;
    virtual Value getGameTipsConfig() = 0;
    virtual Value getGameListExtraInfo() = 0;
    // True when the accelerating router is connected; false on failure.
    virtual bool connectAccelerateRouter() = 0;

    // ---- Requests answered through callbacks ------------------------------------------------------------
    //
    // Success gets the reply's JSON text as a string Value unless stated otherwise.

    virtual void getUserDialogList(const Value& request, Listener listener) = 0;
    virtual void getInternalMessageStatisticInfo(const Value& request, const Value& latestMailIdx,
                                                 Listener listener) = 0;
    // `gameId` and `filters` are JSON array texts ("[]" when the caller has no game ids).
    virtual void getUserFullInterests(const std::optional<std::string>& token, const std::string& gameId,
                                      const std::optional<std::string>& instanceId, const std::string& filters,
                                      SuccessBlock success, FailureBlock failure) = 0;
    virtual void takeUserTriableInterests(const std::optional<std::string>& token, const Value& productIds,
                                          SuccessBlock success, FailureBlock failure) = 0;
    virtual void checkGameHangUpStatus(const Value& request, SuccessBlock success, FailureBlock failure) = 0;
    virtual void startHangUp(const std::optional<std::string>& token, const std::optional<std::string>& gameId,
                             const std::optional<std::string>& instanceId, std::int32_t timeSeconds,
                             SuccessBlock success, FailureBlock failure) = 0;
    virtual void stopHangUp(const std::optional<std::string>& token, const std::optional<std::string>& gameId,
                            const std::optional<std::string>& instanceId, SuccessBlock success,
                            FailureBlock failure) = 0;
    virtual void kickUserInstance(const std::optional<std::string>& token,
                                  const std::optional<std::string>& instanceId, const Value& reason,
                                  SuccessBlock success, FailureBlock failure) = 0;
    virtual void getSceneTasks(const std::optional<std::string>& token, const std::optional<std::string>& act,
                               const Value& filter, const std::optional<std::string>& taskType,
                               SuccessBlock success, FailureBlock failure) = 0;
    // Success gets the QR code image bytes as a data Value.
    virtual void getCommonMiniProgramQRCode(const std::optional<std::string>& xcxName,
                                            const std::optional<std::string>& xcxPage,
                                            const std::optional<std::string>& token,
                                            const std::optional<std::string>& adTag, SuccessBlock success,
                                            FailureBlock failure) = 0;
    virtual void queryUserPropertyInterests(SuccessBlock success, FailureBlock failure) = 0;
    // Success gets the reply bytes as a data Value (absent when the SDK had none); failure one code.
    virtual void queryCoupons(const Value& request, SuccessBlock success, CodeFailureBlock failure) = 0;
    // `scenes` is an array of scene strings.
    virtual void requestPopupWindowInfo(const std::optional<std::string>& token, const Value& scenes,
                                        const std::optional<std::string>& gameId,
                                        const std::optional<std::string>& zoneId, PopupWindowBlock block) = 0;
    // `context` is the popup's own value, passed through unchanged.
    virtual void requestClickButtonCallback(const Value& context, const std::optional<std::string>& confirmTicket,
                                            std::int32_t buttonIndex, ClickButtonBlock block) = 0;
};

}  // namespace nb
