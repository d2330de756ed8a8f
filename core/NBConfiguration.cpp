#include "nbbase/core/NBConfiguration.h"

#include <utility>

#include "nbbase/foundation/NBLog.h"
#include "nbbase/common/NBUtils.h"
#include "nbbase/foundation/Folders.h"

namespace nb {
namespace {

constexpr const char* kProductionAuthBase = "https://auth.korvane-nimbo.com";
constexpr const char* kProductionGameApiBase = "https://api.korvane-nimbo.com";
constexpr const char* kProductionWebBase = "https://www.korvane-nimbo.com";
constexpr const char* kTestAuthBase = "https://auth-test.korvane-nimbo.com";
constexpr const char* kTestGameApiBase = "https://api-test.korvane-nimbo.com";
constexpr const char* kTestWebBase = "https://www-test.korvane-nimbo.com";

constexpr const char* kReleaseTags = "mac_release";

// The key of a per-game setting, or nullopt when there is none to read or write: a nil game id never
// forms one; an empty one does unless the operation refuses it.
enum class Guard { RefuseEmpty, AcceptEmpty };
std::optional<std::string> gameKey(const std::optional<std::string>& gameId, std::string_view suffix,
                                   Guard guard = Guard::RefuseEmpty) {
    if (!gameId || (guard == Guard::RefuseEmpty && gameId->empty())) return std::nullopt;
    return *gameId + std::string(suffix);
}

// Saturating truncation toward zero, NaN 0: a frame size comes from window geometry we do not control.
std::int64_t truncated(double value) { return Value(value).longLongValue(); }

}  // namespace

NBConfiguration::NBConfiguration(std::shared_ptr<UserDefaults> userDefaults, std::filesystem::path homeFolder,
                                 MainBundleProvider mainBundle, PreferredLanguagesProvider preferredLanguages,
                                 const Clock& clock)
    : sdkConfigFile_(std::move(homeFolder) / kSdkConfigFileName, clock),
      mainBundle_(std::move(mainBundle)),
      preferredLanguages_(std::move(preferredLanguages)),
      userDefaults_(std::move(userDefaults)) {
    registerDefaults();
}

NBConfiguration& NBConfiguration::sharedInstance() {
    // Never destroyed: plug-ins and late callbacks may still read settings while statics are torn down.
    static NBConfiguration* const instance = [] {
        const Folders& folders = Folders::sharedInstance();
        return new NBConfiguration(
            std::make_shared<UserDefaults>(std::string(kSuiteName), folders.preferencesFolder()),
            folders.homeFolder());
    }();
    return *instance;
}

std::shared_ptr<UserDefaults> NBConfiguration::userDefaults() const {
    std::lock_guard lock(defaultsMutex_);
    return userDefaults_;
}

void NBConfiguration::setUserDefaults(std::shared_ptr<UserDefaults> userDefaults) {
    std::lock_guard lock(defaultsMutex_);
    userDefaults_ = std::move(userDefaults);
}

void NBConfiguration::registerDefaults() {
    const auto defaults = userDefaults();
    if (!defaults) return;
    defaults->registerDefaults(Value::dictionary({
        {"showStatisticWidget", true},
        {"videoFps", 60},
        {"videoDisplayWidth", 1920},
        {"videoDisplayHeight", 1080},
        {"autoGameAdaptive", true},
        {"videoFullScreen", true},
        {"firstLaunchGame", true},
        {"showGameGuide", true},
    }));
}

// ---- Suite helpers ----

std::optional<std::string> NBConfiguration::stringOf(std::string_view key) const {
    const auto defaults = userDefaults();
    return defaults ? defaults->stringForKey(key) : std::nullopt;
}

bool NBConfiguration::boolOf(std::string_view key) const {
    const auto defaults = userDefaults();
    return defaults && defaults->boolForKey(key);
}

bool NBConfiguration::boolOf(std::string_view key, bool whenUnset) const {
    const auto defaults = userDefaults();
    if (!defaults) return false;
    const Value value = defaults->objectForKey(key);
    return value.isAbsent() ? whenUnset : value.boolValue();
}

bool NBConfiguration::hasKey(std::string_view key) const {
    const auto defaults = userDefaults();
    return defaults && !defaults->objectForKey(key).isAbsent();
}

void NBConfiguration::setString(std::string_view key, std::optional<std::string> value) {
    const auto defaults = userDefaults();
    if (!defaults) return;
    if (value) {
        (void)defaults->setString(std::move(*value), key);
    } else {
        (void)defaults->removeObjectForKey(key);
    }
}

void NBConfiguration::setBool(std::string_view key, bool value) {
    if (const auto defaults = userDefaults()) (void)defaults->setBool(value, key);
}

void NBConfiguration::setObject(std::string_view key, const Value& value) {
    if (const auto defaults = userDefaults()) (void)defaults->setObject(value, key);
}

std::shared_ptr<const MainBundle> NBConfiguration::mainBundle() const {
    return mainBundle_ ? mainBundle_() : nullptr;
}

template <typename F>
void NBConfiguration::setField(F&& assign) {
    std::lock_guard lock(fieldsMutex_);
    assign(fields_);
}

// ---- Session identity ----

std::optional<std::string> NBConfiguration::nimboToken() const { return stringOf("nimboToken"); }
void NBConfiguration::setNimboToken(std::optional<std::string> value) { setString("nimboToken", std::move(value)); }
std::optional<std::string> NBConfiguration::openId() const { return stringOf("openId"); }
void NBConfiguration::setOpenId(std::optional<std::string> value) { setString("openId", std::move(value)); }
std::optional<std::string> NBConfiguration::userId() const { return stringOf("userId"); }
void NBConfiguration::setUserId(std::optional<std::string> value) { setString("userId", std::move(value)); }
std::optional<std::string> NBConfiguration::gameId() const { return stringOf("gameId"); }
void NBConfiguration::setGameId(std::optional<std::string> value) { setString("gameId", std::move(value)); }

std::int64_t NBConfiguration::vipFlags() const {
    const auto defaults = userDefaults();
    return defaults ? defaults->integerForKey("vipFlags") : 0;
}
void NBConfiguration::setVipFlags(std::int64_t value) {
    if (const auto defaults = userDefaults()) (void)defaults->setInteger(value, "vipFlags");
}

std::int64_t NBConfiguration::svipFlags() const {
    const auto defaults = userDefaults();
    return defaults ? defaults->integerForKey("svipFlags") : 0;
}
void NBConfiguration::setSVipFlags(std::int64_t value) {
    if (const auto defaults = userDefaults()) (void)defaults->setInteger(value, "svipFlags");
}
void NBConfiguration::setSvipFlags(std::int64_t value) {
    setField([value](Fields& f) { f.svipFlags = value; });
}

Value NBConfiguration::userProfile() const {
    const auto defaults = userDefaults();
    return defaults ? defaults->dictionaryForKey("userProfile") : Value();
}

void NBConfiguration::setUserProfile(const Value& profile) {
    if (!profile.isAbsent() && !profile.isDictionary()) {
        NBLog::sharedInstance().log(4, "NBConfiguration: user profile must be a dictionary, not {}",
                                    profile.kindName());
        return;
    }
    Value cleaned = profile;
    if (const auto* entries = profile.asDictionary()) {
        for (const auto& [key, value] : *entries) {
            if (value.isNull()) cleaned.remove(key);
        }
    }
    setObject("userProfile", cleaned);
}

// ---- Client settings ----

bool NBConfiguration::firstLaunchGame() const { return boolOf("firstLaunchGame"); }
void NBConfiguration::setFirstLaunchGame(bool value) { setBool("firstLaunchGame", value); }
bool NBConfiguration::showGameGuide() const { return boolOf("showGameGuide"); }
void NBConfiguration::setShowGameGuide(bool value) { setBool("showGameGuide", value); }

Value NBConfiguration::speedTestDict() const {
    const auto defaults = userDefaults();
    return defaults ? defaults->dictionaryForKey("speedTest") : Value();
}
void NBConfiguration::setSpeedTestDict(const Value& value) { setObject("speedTest", value); }
Value NBConfiguration::speedTestLimitDict() const {
    const auto defaults = userDefaults();
    return defaults ? defaults->dictionaryForKey("speedTestLimitDict") : Value();
}
void NBConfiguration::setSpeedTestLimitDict(const Value& value) { setObject("speedTestLimitDict", value); }

bool NBConfiguration::checkNetworkStable() const { return boolOf("checkNetworkStable", true); }
void NBConfiguration::setCheckNetworkStable(bool value) { setBool("checkNetworkStable", value); }

Value NBConfiguration::showTipsGameIdArray() const {
    const auto defaults = userDefaults();
    return defaults ? defaults->arrayForKey("showTipsGameIdArray") : Value();
}
void NBConfiguration::setShowTipsGameIdArray(const Value& value) { setObject("showTipsGameIdArray", value); }

bool NBConfiguration::disableGameExitShortcutKey() const { return boolOf("disableGameExitShortcutKey"); }
void NBConfiguration::setDisableGameExitShortcutKey(bool value) { setBool("disableGameExitShortcutKey", value); }
bool NBConfiguration::enableSpaceSwitch() const { return boolOf("enableSpaceSwitch"); }
void NBConfiguration::setEnableSpaceSwitch(bool value) { setBool("enableSpaceSwitch", value); }

double NBConfiguration::sysMouseAcceleration() const {
    const auto defaults = userDefaults();
    return defaults ? static_cast<double>(defaults->floatForKey("sysMouseAcceleration")) : 0.0;
}
void NBConfiguration::setSysMouseAcceleration(double value) {
    if (const auto defaults = userDefaults()) (void)defaults->setDouble(value, "sysMouseAcceleration");
}

bool NBConfiguration::disableMouseAcceleration() const { return boolOf("disableMouseAcceleration"); }
void NBConfiguration::setDisableMouseAcceleration(bool value) { setBool("disableMouseAcceleration", value); }
bool NBConfiguration::sysFNSwitchEnable() const { return boolOf("sysFNSwitchEnable"); }
void NBConfiguration::setSysFNSwitchEnable(bool value) { setBool("sysFNSwitchEnable", value); }
bool NBConfiguration::enableFNSwitch() const { return boolOf("enableFNSwitch"); }
void NBConfiguration::setEnableFNSwitch(bool value) { setBool("enableFNSwitch", value); }
bool NBConfiguration::showStatisticWidget() const { return boolOf("showStatisticWidget"); }
void NBConfiguration::setShowStatisticWidget(bool value) { setBool("showStatisticWidget", value); }
bool NBConfiguration::isFullScreen() const { return boolOf("videoFullScreen"); }
void NBConfiguration::setIsFullScreen(bool value) { setBool("videoFullScreen", value); }

Size NBConfiguration::frameSize() const {
    const auto defaults = userDefaults();
    if (!defaults) return {};
    return {static_cast<double>(defaults->integerForKey("videoDisplayWidth")),
            static_cast<double>(defaults->integerForKey("videoDisplayHeight"))};
}
void NBConfiguration::setFrameSize(Size size) {
    const auto defaults = userDefaults();
    if (!defaults) return;
    (void)defaults->setInteger(truncated(size.width), "videoDisplayWidth");
    (void)defaults->setInteger(truncated(size.height), "videoDisplayHeight");
}

std::int64_t NBConfiguration::fps() const {
    const auto defaults = userDefaults();
    return defaults ? defaults->integerForKey("videoFps") : 0;
}
void NBConfiguration::setFps(std::int64_t value) {
    if (const auto defaults = userDefaults()) (void)defaults->setInteger(value, "videoFps");
}

bool NBConfiguration::autoGameAdaptive() const { return boolOf("autoGameAdaptive"); }
void NBConfiguration::setAutoGameAdaptive(bool value) { setBool("autoGameAdaptive", value); }
bool NBConfiguration::enableMenuShortCutTips() const { return boolOf("enableMenuShortCutTips", true); }
void NBConfiguration::setEnableMenuShortCutTips(bool value) { setBool("enableMenuShortCutTips", value); }
bool NBConfiguration::menuTipsShown() const { return boolOf("menuTipsShown"); }
void NBConfiguration::setMenuTipsShown(bool value) { setBool("menuTipsShown", value); }
bool NBConfiguration::hangupNewFeatureShow() const { return boolOf("hangupNewFeatureShow"); }
void NBConfiguration::setHangupNewFeatureShow(bool value) { setBool("hangupNewFeatureShow", value); }
bool NBConfiguration::svipNewFeatureShow() const { return boolOf("svipNewFeatureShow"); }
void NBConfiguration::setSvipNewFeatureShow(bool value) { setBool("svipNewFeatureShow", value); }
bool NBConfiguration::enableUnlockMoueShortcutTips() const { return boolOf("enableUnlockMoueShortcutTips"); }
void NBConfiguration::setEnableUnlockMoueShortcutTips(bool value) { setBool("enableUnlockMoueShortcutTips", value); }
bool NBConfiguration::enableDisplayDelayTips() const { return boolOf("enableDisplayDelayTips", true); }
void NBConfiguration::setEnableDisplayDelayTips(bool value) { setBool("enableDisplayDelayTips", value); }

std::optional<std::string> NBConfiguration::videoDefinition() const { return stringOf("videoDefinition"); }
void NBConfiguration::setVideoDefinition(std::optional<std::string> value) {
    setString("videoDefinition", std::move(value));
}

std::optional<std::string> NBConfiguration::language() const {
    if (const auto defaults = userDefaults()) {
        const Value languages = defaults->arrayForKey("AppleLanguages");
        if (languages.size() > 0) return languages[0].stringValue();
    }
    if (preferredLanguages_) {
        const auto preferred = preferredLanguages_();
        if (!preferred.empty()) return preferred.front();
    }
    return std::nullopt;
}

void NBConfiguration::setLanguage(const std::optional<std::string>& value) {
    if (!value) return;
    setObject("AppleLanguages", Value::array({Value(*value)}));
}

std::optional<std::string> NBConfiguration::supplyId() const { return stringOf("supplyId"); }

void NBConfiguration::checkSupplyId() {
    const auto defaults = userDefaults();
    if (!defaults) return;
    // Once decided the key is always there: answer without opening a write transaction.
    if (!defaults->objectForKey("supplyId").isAbsent()) return;
    std::string channel = "nimbo";
    if (const auto bundle = mainBundle()) {
        const std::string* named = bundle->objectForInfoDictionaryKey("NIMBODistributionChannel").asString();
        if (named != nullptr && !named->empty()) channel = *named;
    }
    // Another handle or process may have decided meanwhile; its channel then stays.
    (void)defaults->setObjectIfAbsent(Value(std::move(channel)), "supplyId");
}

// ---- Per game ----

bool NBConfiguration::existMouseLock(const std::optional<std::string>& gameId) const {
    const auto key = gameKey(gameId, "_mouselock");
    return key && hasKey(*key);
}
bool NBConfiguration::mouseLockByGameId(const std::optional<std::string>& gameId) const {
    const auto key = gameKey(gameId, "_mouselock");
    return key && boolOf(*key);
}
void NBConfiguration::setMouseLock(const std::optional<std::string>& gameId, bool locked) {
    if (const auto key = gameKey(gameId, "_mouselock")) setBool(*key, locked);
}

bool NBConfiguration::hasFrameByGameId(const std::optional<std::string>& gameId) const {
    const auto key = gameKey(gameId, "_frame");
    return key && hasKey(*key);
}
std::int32_t NBConfiguration::getFrameByGameId(const std::optional<std::string>& gameId) const {
    const auto key = gameKey(gameId, "_frame");
    const auto defaults = userDefaults();
    return key && defaults ? defaults->objectForKey(*key).intValue() : 0;
}
void NBConfiguration::setFrameByGameId(const std::optional<std::string>& gameId, std::int32_t frame) {
    if (const auto key = gameKey(gameId, "_frame")) setObject(*key, Value(frame));
}

bool NBConfiguration::hasEnableVideoQuality(const std::optional<std::string>& gameId) const {
    const auto key = gameKey(gameId, "_enhance");
    return key && hasKey(*key);
}
bool NBConfiguration::enableVideoQuality(const std::optional<std::string>& gameId) const {
    const auto key = gameKey(gameId, "_enhance", Guard::AcceptEmpty);
    return key && boolOf(*key);
}
void NBConfiguration::setEnableVideoQuality(const std::optional<std::string>& gameId, bool enable) {
    if (const auto key = gameKey(gameId, "_enhance")) setBool(*key, enable);
}

bool NBConfiguration::hasFpsByGameId(const std::optional<std::string>& gameId) const {
    const auto key = gameKey(gameId, "_fps");
    return key && hasKey(*key);
}
std::int32_t NBConfiguration::getFpsByGameId(const std::optional<std::string>& gameId) const {
    const auto key = gameKey(gameId, "_fps", Guard::AcceptEmpty);
    const auto defaults = userDefaults();
    return key && defaults ? defaults->objectForKey(*key).intValue() : 0;
}
void NBConfiguration::setFpsByGameId(const std::optional<std::string>& gameId, std::int32_t fps) {
    if (const auto key = gameKey(gameId, "_fps")) setObject(*key, Value(fps));
}

bool NBConfiguration::getEnableAgainstMenuTouch(const std::optional<std::string>& gameId) const {
    const auto key = gameKey(gameId, "_againstMenuTouch");
    return key && boolOf(*key);
}
void NBConfiguration::setEnableAgainstMenuTouch(const std::optional<std::string>& gameId, bool enable) {
    if (const auto key = gameKey(gameId, "_againstMenuTouch")) setBool(*key, enable);
}

bool NBConfiguration::showSvipFrameAlert(const std::optional<std::string>& gameId) const {
    const auto key = gameKey(gameId, "bd_alert", Guard::AcceptEmpty);
    return key && boolOf(*key);
}
void NBConfiguration::setSvipFrameAlert(const std::optional<std::string>& gameId, bool show) {
    if (const auto key = gameKey(gameId, "bd_alert", Guard::AcceptEmpty)) setBool(*key, show);
}

// ---- Per user ----

void NBConfiguration::setPictureQualityInterestExpiredTime(bool isSvip, std::int64_t endTime) {
    if (const auto defaults = userDefaults())
        (void)defaults->setInteger(endTime, isSvip ? "svip_pqendtime" : "vip_pqendtime");
}
std::int64_t NBConfiguration::getPictureQualityInterestExpiredTime(bool isSvip) const {
    const auto defaults = userDefaults();
    return defaults ? defaults->integerForKey(isSvip ? "svip_pqendtime" : "vip_pqendtime") : 0;
}

void NBConfiguration::setStepCost(std::int64_t step, double cost) {
    if (const auto defaults = userDefaults()) (void)defaults->setDouble(cost, strStepKey(step));
}
double NBConfiguration::stepCost(std::int64_t step) const {
    const auto defaults = userDefaults();
    return defaults ? defaults->doubleForKey(strStepKey(step)) : 0.0;
}
std::string NBConfiguration::strStepKey(std::int64_t step) { return "step_" + std::to_string(step); }

// ---- SDK configuration file ----

Value NBConfiguration::getSdkConfigValue(std::string_view key, std::string_view ofSeciont) const {
    const std::shared_ptr<const Value> root = sdkConfigFile_.read();
    if (!root) return Value("");
    if (!root->isDictionary()) return {};
    const Value& section = (*root)[ofSeciont];
    return section.isDictionary() ? section[key] : Value();
}

bool NBConfiguration::getBoolConfigValue(std::string_view key, std::string_view ofSeciont) const {
    return getSdkConfigValue(key, ofSeciont).boolValue();
}

std::optional<std::string> NBConfiguration::configString(std::string_view key, std::string_view section) const {
    const Value value = getSdkConfigValue(key, section);
    if (value.isString() || value.isNumber()) return value.stringValue();
    return std::nullopt;
}

std::int64_t NBConfiguration::envType() const {
    const Value value = getSdkConfigValue("envType", "game");
    if (value.isNumber() || (value.isString() && !value.asString()->empty())) return value.integerValue();
    return 1;
}

std::optional<std::string> NBConfiguration::gameTags() const {
    std::optional<std::string> tags = configString("game_tags", "game");
    if (tags && !tags->empty()) return tags;
    const auto bundle = mainBundle();
    const std::string version = bundle ? bundle->shortVersionString() : std::string();
    if (version == "0.0.1" || version.find(".9999.") != std::string::npos) return kReleaseTags;
    const std::string channel = NBUtils::getPayChannel(bundle ? *bundle : MainBundle(Value(), {}));
    if (channel == "korvane") return kReleaseTags;
    return tags;
}

bool NBConfiguration::enableNimboLog() const { return getBoolConfigValue("enable_nimbo_log", "debug"); }
bool NBConfiguration::enableNbgameLog() const { return getBoolConfigValue("enable_nbgame_log", "debug"); }
bool NBConfiguration::enableCefDebug() const { return getBoolConfigValue("enable_cef_debug", "debug"); }
bool NBConfiguration::enableSdkLog() const { return getBoolConfigValue("enable_sdk_log", "debug"); }
bool NBConfiguration::enableReportLog() const { return getBoolConfigValue("enable_report_log", "debug"); }
bool NBConfiguration::enableShowBitRate() const { return getBoolConfigValue("enable_show_bitrate", "debug"); }
bool NBConfiguration::disableBeanconReport() const { return getBoolConfigValue("disable_beancon_report", "debug"); }
bool NBConfiguration::printMouseEvent() const { return getBoolConfigValue("print_mouse_event", "debug"); }
std::optional<std::string> NBConfiguration::logLevel() const { return configString("log_level", "debug"); }
std::optional<std::string> NBConfiguration::feLogLevel() const { return configString("fe_log_level", "debug"); }
std::optional<std::string> NBConfiguration::fullscreenLevel() const {
    return configString("fullscreen_level", "debug");
}
std::optional<std::string> NBConfiguration::debugResolution() const { return configString("resolution", "debug"); }

void NBConfiguration::setEnvType(std::int64_t value) {
    setField([value](Fields& f) { f.envType = value; });
}
void NBConfiguration::setGameTags(std::optional<std::string> value) {
    setField([&value](Fields& f) { f.gameTags = std::move(value); });
}
void NBConfiguration::setEnableNimboLog(bool value) {
    setField([value](Fields& f) { f.enableNimboLog = value; });
}
void NBConfiguration::setEnableNbgameLog(bool value) {
    setField([value](Fields& f) { f.enableNbgameLog = value; });
}
void NBConfiguration::setEnableCefDebug(bool value) {
    setField([value](Fields& f) { f.enableCefDebug = value; });
}
void NBConfiguration::setEnableSdkLog(bool value) {
    setField([value](Fields& f) { f.enableSdkLog = value; });
}
void NBConfiguration::setEnableReportLog(bool value) {
    setField([value](Fields& f) { f.enableReportLog = value; });
}
void NBConfiguration::setEnableShowBitRate(bool value) {
    setField([value](Fields& f) { f.enableShowBitRate = value; });
}
void NBConfiguration::setDisableBeanconReport(bool value) {
    setField([value](Fields& f) { f.disableBeanconReport = value; });
}
void NBConfiguration::setPrintMouseEvent(bool value) {
    setField([value](Fields& f) { f.printMouseEvent = value; });
}
void NBConfiguration::setLogLevel(std::optional<std::string> value) {
    setField([&value](Fields& f) { f.logLevel = std::move(value); });
}
void NBConfiguration::setFeLogLevel(std::optional<std::string> value) {
    setField([&value](Fields& f) { f.feLogLevel = std::move(value); });
}
void NBConfiguration::setFullscreenLevel(std::optional<std::string> value) {
    setField([&value](Fields& f) { f.fullscreenLevel = std::move(value); });
}
void NBConfiguration::setDebugResolution(std::optional<std::string> value) {
    setField([&value](Fields& f) { f.debugResolution = std::move(value); });
}
std::int64_t NBConfiguration::configType() const {
    std::lock_guard lock(fieldsMutex_);
    return fields_.configType;
}
void NBConfiguration::setConfigType(std::int64_t value) {
    setField([value](Fields& f) { f.configType = value; });
}

// ---- Derived ----

std::string NBConfiguration::authApiBase() const { return isProduction() ? kProductionAuthBase : kTestAuthBase; }
std::string NBConfiguration::gameApiBase() const {
    return isProduction() ? kProductionGameApiBase : kTestGameApiBase;
}
std::string NBConfiguration::webApiBase() const { return isProduction() ? kProductionWebBase : kTestWebBase; }
std::string NBConfiguration::productionWebApiBase() { return kProductionWebBase; }
std::string NBConfiguration::hostVersion() { return std::to_string(1); }

}  // namespace nb
