#include "nbbase/support/NBFeedbackSession.h"

#include <cmath>
#include <utility>

#include "FeedbackPublicKey.h"
#include "nbbase/common/NBBase64.h"
#include "nbbase/common/NBCryptor.h"
#include "nbbase/common/NBKeyLoader.h"
#include "nbbase/common/NBUtils.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/Url.h"

namespace nb {

namespace {

std::shared_ptr<const NBPublicKey> loadKey(std::string_view pem, NBLog& log) {
    std::string error;
    auto key = NBKeyLoader::loadX509PEMPublicKey(pem, &error);
    if (!key) log.log(4, "feedback page public key not loaded: {}", error);
    return key;
}

}  // namespace

NBFeedbackSession& NBFeedbackSession::sharedInstance() {
    static NBFeedbackSession* const instance = new NBFeedbackSession();
    return *instance;
}

std::string_view NBFeedbackSession::builtInPublicKeyPem() noexcept { return generated::kFeedbackPublicKeyPem; }

NBFeedbackSession::NBFeedbackSession(NBConfiguration& configuration, NimboSdkManager& sdkManager,
                                     Workspace& workspace, DeviceInfoProvider deviceInfo,
                                     MainBundleProvider mainBundle, const Clock& clock, NBLog& log,
                                     std::string_view publicKeyPem)
    : configuration_(configuration),
      sdkManager_(sdkManager),
      workspace_(workspace),
      deviceInfo_(std::move(deviceInfo)),
      mainBundle_(std::move(mainBundle)),
      clock_(clock),
      log_(log),
      rootUrl_(NBConfiguration::productionWebApiBase() + "/page/feedback/mac.html"),
      rsaPubKey_(loadKey(publicKeyPem, log)) {}

void NBFeedbackSession::navigateToFeedbackPage() { navigateToFeedbackPageWithErrorCode(Value()); }

void NBFeedbackSession::navigateToFeedbackPageWithErrorCode(const Value& /*errorCode: never sent*/) {
    const std::string url = feedbackPageUrl();
    std::string error;
    if (!workspace_.openURL(url, &error)) log_.log(4, "feedback page not opened: {}", error);
}

std::string NBFeedbackSession::feedbackPageUrl() {
    const std::string userId = configuration_.userId().value_or("");
    if (userId.empty()) return rootUrl_;

    const NBDeviceInfo device = deviceInfo_ ? deviceInfo_() : NBDeviceInfo("", "");
    const auto bundle = mainBundle_ ? mainBundle_() : nullptr;
    const auto milliseconds = static_cast<long long>(std::floor(clock_.secondsSince1970() * 1000));
    const Value pairs = Value::dictionary({
        {"userid", Value(userId)},
        {"version", Value(bundle ? NBUtils::appVersion(*bundle) : std::string())},
        {"os", Value(device.systemVerison())},
        {"net", Value(device.networkType())},
        {"t", Value(std::to_string(milliseconds))},
    });
    Value parameters = sdkManager_.getReportCommonParams();
    ensureGameIdExist(parameters);
    return rootUrl_ + "?data=" + Url::encodeComponent(buildDataValue(pairs)) +
           "&custom=" + Url::encodeComponent(buildCustomValue(parameters));
}

std::string NBFeedbackSession::buildDataValue(const Value& dictionary) const {
    if (dictionary.isAbsent()) return "";
    std::string text;
    if (const Value::Dictionary* entries = dictionary.asDictionary()) {
        for (const auto& [key, value] : *entries) {
            if (value.isNull()) {
                log_.log(4, "value of key {{{}}} is nil", key);
                continue;
            }
            text += key + "=" + value.description() + "&";
        }
    }
    if (!text.empty()) text.pop_back();
    if (!rsaPubKey_) return "";
    const std::string encoded = Url::encodeQuery(text);
    const auto sealed = NBCryptor::encryptData(Data(encoded.begin(), encoded.end()), *rsaPubKey_);
    return sealed ? NBBase64::base64StringFromData(*sealed) : "";
}

std::string NBFeedbackSession::buildCustomValue(const Value& dictionary) {
    if (!dictionary.isDictionary()) return "{}";
    return Json::encode(dictionary).value_or("");
}

void NBFeedbackSession::ensureGameIdExist(Value& parameters) const {
    if (!parameters.isDictionary() || !parameters["nimbo_game_id"].stringValue().empty()) return;
    const std::string gameId = configuration_.gameId().value_or("");
    if (!gameId.empty()) parameters.set("nimbo_game_id", Value(gameId));
}

}  // namespace nb
