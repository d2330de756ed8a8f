#include "nbbase/core/NimboSdkManager.h"

#include <exception>
#include <utility>

#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/Url.h"

namespace nb {

class NimboSdkManager::State final : public NBNetworkCheckDelegate {
public:
    std::shared_ptr<NimboSDKInterface> sdk() const {
        std::lock_guard lock(mutex_);
        return sdk_;
    }
    // The caller releases the answer outside the lock: an instance's destructor is the vendor's code.
    std::shared_ptr<NimboSDKInterface> exchange(std::shared_ptr<NimboSDKInterface> next) {
        std::lock_guard lock(mutex_);
        return std::exchange(sdk_, std::move(next));
    }
    void interfaceTypeDidChange(std::int32_t interfaceType) override {
        if (auto sdk = this->sdk()) sdk->setNetworkInterfaceType(interfaceType);
    }

private:
    mutable std::mutex mutex_;
    std::shared_ptr<NimboSDKInterface> sdk_;  // guarded by mutex_
};

namespace {

struct Registration {
    std::mutex mutex;
    NimboSdkManager::SdkFactory factory;          // guarded by mutex
    std::shared_ptr<const MainBundle> sdkBundle;  // guarded by mutex
};

Registration& registration() {
    static Registration* const instance = new Registration;
    return *instance;
}

}  // namespace

NimboSdkManager& NimboSdkManager::sharedInstance() {
    static NimboSdkManager* const instance = new NimboSdkManager(
        []() -> std::shared_ptr<NimboSDKInterface> {
            SdkFactory factory;
            {
                std::lock_guard lock(registration().mutex);
                factory = registration().factory;
            }
            if (!factory) {
                NBLog::sharedInstance().log(4, "no SDK factory registered: the SDK is not created");
                return nullptr;
            }
            return factory();
        },
        [] {
            std::lock_guard lock(registration().mutex);
            return registration().sdkBundle;
        });
    return *instance;
}

void NimboSdkManager::setSdkFactory(SdkFactory factory, std::shared_ptr<const MainBundle> sdkBundle) {
    auto& slot = registration();
    std::lock_guard lock(slot.mutex);
    slot.factory = std::move(factory);
    slot.sdkBundle = std::move(sdkBundle);
}

NimboSdkManager::NimboSdkManager(SdkFactory factory, SdkBundleProvider sdkBundle, NBConfiguration& configuration,
                                 NBNetworkCheck& networkCheck, NBLog& log)
    : factory_(std::move(factory)),
      sdkBundle_(std::move(sdkBundle)),
      configuration_(configuration),
      networkCheck_(networkCheck),
      log_(log),
      state_(std::make_shared<State>()) {
    networkCheck_.addDelegate(state_);
    networkCheck_.startMonitor();
}

NimboSdkManager::~NimboSdkManager() {
    networkCheck_.removeDelegate(state_);
    state_->exchange(nullptr);
}

// ---- Lifetime ----

void NimboSdkManager::initializeSDK(std::shared_ptr<void> listener) {
    initializeSDK(std::move(listener), std::nullopt, std::nullopt, false);
}

void NimboSdkManager::initializeSDK(std::shared_ptr<void> listener, const std::optional<std::string>& userId,
                                    const std::optional<std::string>& openId, bool useContoller) {
    const Value extra = Value::dictionary({
        {"enableSdkLog", Value(configuration_.enableSdkLog())},
        {"logLevel", Value(configuration_.logLevel().value_or(""))},
        {"disableBeanconReport", Value(configuration_.disableBeanconReport())},
        {"vipFlag", Value(static_cast<long long>(configuration_.vipFlags()))},
        {"svipFlag", Value(static_cast<long long>(configuration_.svipFlags()))},
    });
    std::shared_ptr<NimboSDKInterface> sdk = factory_ ? factory_() : nullptr;
    // Initialised before it is published, so no other thread forwards to an instance that has not started.
    if (sdk) {
        sdk->initWithListener(std::move(listener), static_cast<std::int32_t>(configuration_.envType()), userId,
                              openId, extra);
    }
    // The previous instance, if any, is released here without uninit.
    state_->exchange(sdk);
    if (!sdk) return;
    sdk->setNetworkInterfaceType(networkCheck_.interfaceType());
    sdk->enableBuiltinGamepadManager(useContoller);

    std::weak_ptr<State> weakState = state_;
    log_.setLogHandler([weakState](std::int32_t level, const std::string& text) {
        auto state = weakState.lock();
        auto current = state ? state->sdk() : nullptr;
        if (current) current->reportLog(sdkLogLevel(level), "", "", 0, text);
    });
}

void NimboSdkManager::uninitializeSDK() {
    if (auto sdk = state_->exchange(nullptr)) sdk->uninit();
}

std::shared_ptr<NimboSDKInterface> NimboSdkManager::sdkInstance() const {
    return state_->sdk();
}

std::optional<std::string> NimboSdkManager::sdkVersion() const {
    auto bundle = sdkBundle_ ? sdkBundle_() : nullptr;
    if (!bundle) return std::nullopt;
    const Value& version = bundle->objectForInfoDictionaryKey("CFBundleVersion");
    if (const std::string* text = version.asString()) return *text;
    return std::nullopt;
}

void NimboSdkManager::interfaceTypeDidChange(std::int32_t interfaceType) {
    state_->interfaceTypeDidChange(interfaceType);
}

std::int64_t NimboSdkManager::envType() const {
    std::lock_guard lock(fieldsMutex_);
    return envType_;
}

void NimboSdkManager::setEnvType(std::int64_t value) {
    std::lock_guard lock(fieldsMutex_);
    envType_ = value;
}

std::optional<std::string> NimboSdkManager::userId() const {
    std::lock_guard lock(fieldsMutex_);
    return userId_;
}

void NimboSdkManager::setUserId(std::optional<std::string> value) {
    std::lock_guard lock(fieldsMutex_);
    userId_ = std::move(value);
}

std::int32_t NimboSdkManager::sdkLogLevel(std::int32_t nbLogLevel) noexcept {
    static constexpr std::int32_t kLevels[] = {1, 32, 2, 4, 8, 16};
    return nbLogLevel >= 0 && nbLogLevel < 6 ? kLevels[nbLogLevel] : 0;
}

// ---- Forwarders ----

Value NimboSdkManager::startPersistentConnectionService(const Value& parameters) {
    auto sdk = sdkInstance();
    return sdk ? sdk->startPersistentConnectionService(parameters) : Value();
}

void NimboSdkManager::stopPersistentConnectionService() {
    if (auto sdk = sdkInstance()) sdk->stopPersistentConnectionService();
}

void NimboSdkManager::syncUserLoginInfo(const Value& loginInfo) {
    if (auto sdk = sdkInstance()) sdk->syncUserLoginInfo(loginInfo);
}

void NimboSdkManager::sendStrategyCenterCmdRequest(const Value& cmd, const std::uint8_t* data, std::size_t len) {
    if (auto sdk = sdkInstance()) sdk->sendStrategyCenterCmdRequest(cmd, data, len);
}

void NimboSdkManager::getUserDialogList(const Value& request, Listener listener) {
    if (auto sdk = sdkInstance()) sdk->getUserDialogList(request, std::move(listener));
}

void NimboSdkManager::reportUserDialogExecute(const Value& dialog, const Value& ticket, const Value& index,
                                              const Value& dialogId) {
    if (auto sdk = sdkInstance()) sdk->reportUserDialogExecute(dialog, ticket, index, dialogId);
}

std::int64_t NimboSdkManager::getTimeStamp() {
    auto sdk = sdkInstance();
    return sdk ? sdk->getTimeStamp() : 0;
}

void NimboSdkManager::checkInstanceStatus(const Value& request, std::int32_t keepDevice) {
    if (auto sdk = sdkInstance()) sdk->checkInstanceStatus(request, keepDevice);
}

void NimboSdkManager::reportError(std::int32_t error, std::int32_t code, std::int32_t subCode,
                                  const std::optional<std::string>& msg) {
    if (auto sdk = sdkInstance()) sdk->reportError(error, code, subCode, msg);
}

void NimboSdkManager::updateUserId(const std::optional<std::string>& userId) {
    if (auto sdk = sdkInstance()) sdk->setUserId(userId);
}

void NimboSdkManager::updateOpenId(const std::optional<std::string>& openId) {
    if (auto sdk = sdkInstance()) sdk->setOpenId(openId);
}

void NimboSdkManager::updateVipFlag(std::int64_t vipFlag, std::int64_t svipFlag) {
    if (auto sdk = sdkInstance()) sdk->setVipFlag(vipFlag, svipFlag);
}

void NimboSdkManager::logout() {
    if (auto sdk = sdkInstance()) sdk->logout();
}

Value NimboSdkManager::getReportCommonParams() {
    auto sdk = sdkInstance();
    return sdk ? sdk->getReportCommonParams() : Value();
}

std::optional<std::string> NimboSdkManager::getHttpUserAgent() {
    auto classObject = NimboSDKInterface::classObject();
    return classObject ? classObject->getHttpUserAgent() : std::nullopt;
}

void NimboSdkManager::getInternalMessageStatisticInfo(const Value& request, const Value& latestMailIdx,
                                                      Listener listener) {
    if (auto sdk = sdkInstance()) sdk->getInternalMessageStatisticInfo(request, latestMailIdx, std::move(listener));
}

void NimboSdkManager::recordGameId(const std::optional<std::string>& gameId) {
    if (auto sdk = sdkInstance()) sdk->recordGameId(gameId);
}

void NimboSdkManager::getUserFullInterests(const std::optional<std::string>& token, const std::string& gameId,
                                           const std::optional<std::string>& instanceId, const std::string& filters,
                                           SuccessBlock success, FailureBlock failure) {
    if (auto sdk = sdkInstance()) {
        sdk->getUserFullInterests(token, gameId, instanceId, filters, std::move(success), std::move(failure));
    }
}

void NimboSdkManager::takeUserTriableInterests(const std::optional<std::string>& token, const Value& productIds,
                                               SuccessBlock success, FailureBlock failure) {
    if (auto sdk = sdkInstance()) sdk->takeUserTriableInterests(token, productIds, std::move(success), std::move(failure));
}

void NimboSdkManager::checkGameHangUpStatus(const Value& request, SuccessBlock success, FailureBlock failure) {
    if (auto sdk = sdkInstance()) sdk->checkGameHangUpStatus(request, std::move(success), std::move(failure));
}

void NimboSdkManager::startHangUp(const std::optional<std::string>& token, const std::optional<std::string>& gameId,
                                  const std::optional<std::string>& instanceId, std::int32_t timeSeconds,
                                  SuccessBlock success, FailureBlock failure) {
    if (auto sdk = sdkInstance()) {
        sdk->startHangUp(token, gameId, instanceId, timeSeconds, std::move(success), std::move(failure));
    }
}

void NimboSdkManager::stopHangUp(const std::optional<std::string>& token, const std::optional<std::string>& gameId,
                                 const std::optional<std::string>& instanceId, SuccessBlock success,
                                 FailureBlock failure) {
    if (auto sdk = sdkInstance()) sdk->stopHangUp(token, gameId, instanceId, std::move(success), std::move(failure));
}

void NimboSdkManager::kickUserInstance(const std::optional<std::string>& token,
                                       const std::optional<std::string>& instanceId, const Value& reason,
                                       SuccessBlock success, FailureBlock failure) {
    if (auto sdk = sdkInstance()) {
        sdk->kickUserInstance(token, instanceId, reason, std::move(success), std::move(failure));
    }
}

void NimboSdkManager::getSceneTasks(const std::optional<std::string>& token, const std::optional<std::string>& act,
                                    const Value& filter, const std::optional<std::string>& taskType,
                                    SuccessBlock success, FailureBlock failure) {
    if (auto sdk = sdkInstance()) {
        sdk->getSceneTasks(token, act, filter, taskType, std::move(success), std::move(failure));
    }
}

void NimboSdkManager::getCommonMiniProgramQRCode(const std::optional<std::string>& xcxName,
                                                 const std::optional<std::string>& xcxPage,
                                                 const std::optional<std::string>& token,
                                                 const std::optional<std::string>& adTag, SuccessBlock success,
                                                 FailureBlock failure) {
    if (auto sdk = sdkInstance()) {
        sdk->getCommonMiniProgramQRCode(xcxName, xcxPage, token, adTag, std::move(success), std::move(failure));
    }
}

void NimboSdkManager::enableSilenceDetect(std::int32_t enable) {
    if (auto sdk = sdkInstance()) sdk->enableSilenceDetect(enable);
}

void NimboSdkManager::enableSvipFeatureVersion(std::int32_t enable) {
    if (auto sdk = sdkInstance()) sdk->enableSvipFeatureVersion(enable);
}

// ---- With behaviour of their own ----

void NimboSdkManager::setNetMaxBitrate(std::uint32_t netMaxBitrate) {
    const std::uint32_t bitsPerSecond = netMaxBitrate * static_cast<std::uint32_t>(1000000);
    if (auto sdk = sdkInstance()) sdk->sendBandwidthConfig(bitsPerSecond, 0, 0);
}

std::optional<std::string> NimboSdkManager::getNimboCommonHeaderEncryptText() {
    auto sdk = sdkInstance();
    if (!sdk) return std::nullopt;
    auto text = sdk->getNimboCommonHeaderEncryptText();
    if (!text) return std::nullopt;
    return Url::encodeComponent(*text);
}

void NimboSdkManager::beaconCommonReport(std::int32_t eventId, std::int32_t eventCode,
                                         const std::optional<std::string>& eventData,
                                         const std::optional<std::string>& eventExt) {
    if (configuration_.enableReportLog()) {
        log_.log(2, "beaconCommonReport:[{},{},{}]", eventId, eventCode, eventData ? Value(*eventData) : Value());
    }
    if (auto sdk = sdkInstance()) sdk->beaconCommonReport(eventId, eventCode, eventData, eventExt);
}

void NimboSdkManager::dataReportEventId(std::int32_t eventId, const std::optional<std::string>& GameId,
                                        const std::optional<std::string>& JumpUrl) {
    try {
        Value data = Value::dictionary({});
        if (GameId) data.set("game_id", Value(*GameId));
        if (JumpUrl) data.set("jump_url", Value(*JumpUrl));
        sendDataReport(eventId, Value::dictionary({{"result", Value(1)}, {"code", Value("")}, {"data", data}}));
    } catch (const std::exception& error) {
        log_.log(4, "failed to report error:{}", error.what());
    } catch (...) {
        log_.log(4, "failed to report error:{}", "unknown exception");
    }
}

void NimboSdkManager::dataReportEventId(std::int32_t eventId, std::int32_t Result, std::int64_t Code) {
    try {
        sendDataReport(eventId, Value::dictionary({{"result", Value(static_cast<long long>(Result))},
                                                   {"code", Value(static_cast<long long>(Code))},
                                                   {"data", Value("")}}));
    } catch (const std::exception& error) {
        log_.log(4, "failed to report error:{}", error.what());
    } catch (...) {
        log_.log(4, "failed to report error:{}", "unknown exception");
    }
}

// Throws only what building strings throws (allocation); the callers catch it.
void NimboSdkManager::sendDataReport(std::int32_t eventId, Value body) {
    Json::Error error;
    auto text = Json::encode(body, Json::Style::Pretty, &error);
    if (!text) {
        log_.log(4, "jsonError: {}", error.message);
        return;
    }
    beaconCommonReport(eventId, 0, *text, std::string());
}

}  // namespace nb
