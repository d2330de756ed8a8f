// NimboSdkManager: the one owner of the cloud-gaming SDK instance, and the layer the rest of NBBase and the
// host talk to it through.
//
// Two states: without an instance (after construction and after uninitializeSDK) and with one (after
// initializeSDK). Every forwarder is safe in both; without an instance it does nothing and answers nil, an
// absent Value or 0, and calls no callback. Re-initialising replaces the instance; the one replaced is not
// sent uninit, only released.
//
// Where instances come from: the bridge cannot construct the vendor's class, so it is given a factory. The
// factory answers a fresh, not yet initialised instance (nullptr when it cannot; the bridge then stays
// without one); the bridge sends it initWithListener itself. sharedInstance() uses the factory registered
// with setSdkFactory(), read afresh at each initializeSDK, so the host registers it once at start-up
// (before the first initializeSDK): the vendor's adapter, or a ReplaySdk on a folder of recorded replies.
// Without a registered factory initializeSDK logs an error and the bridge stays without an instance.
//
// Construction registers the bridge with the network monitor as its delegate and starts the monitor; the
// bridge never stops it. Each initializeSDK installs the log handler on the NBLog given: every line then
// goes to the current instance's reportLog (levels 0..5 become 1, 32, 2, 4, 8, 16; anything else 0), and
// is dropped while there is no instance. The handler holds the bridge's state weakly: once the bridge is
// destroyed the handler it installed drops every line until someone installs another.
//
// Threads: initializeSDK and uninitializeSDK are meant for the main thread (start-up and sign-out); every
// other function may be called on any thread, also while another thread re-initialises. The instance is
// held in a shared_ptr copied under a lock, so a caller (or a model that took sdkInstance()) keeps the
// instance it got alive even if the bridge replaces it meanwhile; no call into the SDK is made under the
// lock. Callbacks arrive on the SDK's threads, as NimboSDKInterface describes. Blocking forwarders block as
// long as the SDK's operation does.
//
// Failure: nothing throws. The data reports catch and log every failure (level 4).
//
// Lifetime: the configuration, network monitor and log given to the constructor must outlive the bridge.
// sharedInstance() is never destroyed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "nbbase/common/NBNetworkCheck.h"
#include "nbbase/core/NBConfiguration.h"
#include "nbbase/foundation/MainBundle.h"
#include "nbbase/foundation/NBLog.h"
#include "nbbase/foundation/Value.h"
#include "nbbase/sdk/NimboSDKInterface.h"

namespace nb {

class NimboSdkManager {
public:
    using SdkFactory = std::function<std::shared_ptr<NimboSDKInterface>()>;
    // The bundle that holds the SDK's library (sdkVersion reads its "CFBundleVersion"); may answer nullptr.
    using SdkBundleProvider = std::function<std::shared_ptr<const MainBundle>()>;
    using SuccessBlock = NimboSDKInterface::SuccessBlock;
    using FailureBlock = NimboSDKInterface::FailureBlock;
    using Listener = NimboSDKInterface::Listener;

    // The process-wide bridge over the shared configuration, network monitor and log, created on first use
    // (thread-safely) and never destroyed.
    static NimboSdkManager& sharedInstance();
    // What sharedInstance() creates instances with, and the SDK's bundle; any thread. Replaces an earlier
    // registration; an instance already made is kept.
    static void setSdkFactory(SdkFactory factory, std::shared_ptr<const MainBundle> sdkBundle = nullptr);

    explicit NimboSdkManager(SdkFactory factory, SdkBundleProvider sdkBundle = {},
                             NBConfiguration& configuration = NBConfiguration::sharedInstance(),
                             NBNetworkCheck& networkCheck = NBNetworkCheck::sharedInstance(),
                             NBLog& log = NBLog::sharedInstance());
    // Releases the instance without uninit, as re-initialising does.
    ~NimboSdkManager();
    NimboSdkManager(const NimboSdkManager&) = delete;
    NimboSdkManager& operator=(const NimboSdkManager&) = delete;

    // ---- Lifetime ----
    void initializeSDK(std::shared_ptr<void> listener);
    // Builds the extra dictionary from the configuration, creates and initialises the instance (envType
    // truncated to 32 bits), replaces the earlier one, tells it the network interface type and the gamepad
    // switch, and installs the log handler.
    void initializeSDK(std::shared_ptr<void> listener, const std::optional<std::string>& userId,
                       const std::optional<std::string>& openId, bool useContoller);
    // Sends uninit to the instance (outside the lock) and drops it; nothing without one.
    void uninitializeSDK();
    [[nodiscard]] std::shared_ptr<NimboSDKInterface> sdkInstance() const;
    // The SDK bundle's "CFBundleVersion" as a string; nil without a bundle or that key.
    [[nodiscard]] std::optional<std::string> sdkVersion() const;

    // The network monitor's callback (also callable directly): passes the type on to the instance.
    void interfaceTypeDidChange(std::int32_t interfaceType);

    // Plain properties that the bridge itself never reads.
    std::int64_t envType() const;
    void setEnvType(std::int64_t value);
    std::optional<std::string> userId() const;
    void setUserId(std::optional<std::string> value);

    // ---- Forwarders ----
    Value startPersistentConnectionService(const Value& parameters);
    void stopPersistentConnectionService();
    void syncUserLoginInfo(const Value& loginInfo);
    void sendStrategyCenterCmdRequest(const Value& cmd, const std::uint8_t* data, std::size_t len);
    void getUserDialogList(const Value& request, Listener listener);
    void reportUserDialogExecute(const Value& dialog, const Value& ticket, const Value& index, const Value& dialogId);
    std::int64_t getTimeStamp();
    void checkInstanceStatus(const Value& request, std::int32_t keepDevice);
    void reportError(std::int32_t error, std::int32_t code, std::int32_t subCode,
                     const std::optional<std::string>& msg);
    void updateUserId(const std::optional<std::string>& userId);
    void updateOpenId(const std::optional<std::string>& openId);
    void updateVipFlag(std::int64_t vipFlag, std::int64_t svipFlag);
    void logout();
    Value getReportCommonParams();
    // Answered by NimboSDKInterface::classObject(), so it needs no instance; nil without a class object.
    std::optional<std::string> getHttpUserAgent();
    void getInternalMessageStatisticInfo(const Value& request, const Value& latestMailIdx, Listener listener);
    void recordGameId(const std::optional<std::string>& gameId);
    void getUserFullInterests(const std::optional<std::string>& token, const std::string& gameId,
                              const std::optional<std::string>& instanceId, const std::string& filters,
                              SuccessBlock success, FailureBlock failure);
    void takeUserTriableInterests(const std::optional<std::string>& token, const Value& productIds,
                                  SuccessBlock success, FailureBlock failure);
    void checkGameHangUpStatus(const Value& request, SuccessBlock success, FailureBlock failure);
    void startHangUp(const std::optional<std::string>& token, const std::optional<std::string>& gameId,
                     const std::optional<std::string>& instanceId, std::int32_t timeSeconds, SuccessBlock success,
                     FailureBlock failure);
    void stopHangUp(const std::optional<std::string>& token, const std::optional<std::string>& gameId,
                    const std::optional<std::string>& instanceId, SuccessBlock success, FailureBlock failure);
    void kickUserInstance(const std::optional<std::string>& token, const std::optional<std::string>& instanceId,
                          const Value& reason, SuccessBlock success, FailureBlock failure);
    void getSceneTasks(const std::optional<std::string>& token, const std::optional<std::string>& act,
                       const Value& filter, const std::optional<std::string>& taskType, SuccessBlock success,
                       FailureBlock failure);
    void getCommonMiniProgramQRCode(const std::optional<std::string>& xcxName,
                                    const std::optional<std::string>& xcxPage, const std::optional<std::string>& token,
                                    const std::optional<std::string>& adTag, SuccessBlock success,
                                    FailureBlock failure);
    void enableSilenceDetect(std::int32_t enable);
    void enableSvipFeatureVersion(std::int32_t enable);

    // ---- With behaviour of their own ----
    // Megabits per second, sent as bits per second multiplied in 32-bit unsigned arithmetic: values above
    // 4294 wrap, as the SDK has always been told.
    void setNetMaxBitrate(std::uint32_t netMaxBitrate);
    // The SDK's enciphered header, percent-encoded: ASCII letters, digits and "~.-_" stay, every other
    // byte becomes %XX. Nil without an instance or when the SDK answers nil.
    std::optional<std::string> getNimboCommonHeaderEncryptText();
    // Logs "beaconCommonReport:[id,code,data]" at level 2 when the configuration's enableReportLog is on,
    // then forwards.
    void beaconCommonReport(std::int32_t eventId, std::int32_t eventCode, const std::optional<std::string>& eventData,
                            const std::optional<std::string>& eventExt);
    // Report {"result": 1, "code": "", "data": {"game_id", "jump_url" when given}} as pretty JSON through
    // beaconCommonReport on this bridge (code 0, extension ""). Failures are logged, never raised.
    void dataReportEventId(std::int32_t eventId, const std::optional<std::string>& GameId,
                           const std::optional<std::string>& JumpUrl);
    // The same with {"result": Result, "code": Code, "data": ""}.
    void dataReportEventId(std::int32_t eventId, std::int32_t Result, std::int64_t Code);

    // What the log handler does with a line; public so the mapping can be checked without a log.
    static std::int32_t sdkLogLevel(std::int32_t nbLogLevel) noexcept;

    // Shared with the log handler and the network monitor, which hold it (weakly, for the handler) so that
    // neither ever touches a destroyed bridge.
    class State;

private:
    void sendDataReport(std::int32_t eventId, Value body);

    const SdkFactory factory_;
    const SdkBundleProvider sdkBundle_;
    NBConfiguration& configuration_;
    NBNetworkCheck& networkCheck_;
    NBLog& log_;
    const std::shared_ptr<State> state_;  // holds the instance, guarded by its own lock

    mutable std::mutex fieldsMutex_;
    std::int64_t envType_ = 0;           // guarded by fieldsMutex_
    std::optional<std::string> userId_;  // guarded by fieldsMutex_
};

}  // namespace nb
