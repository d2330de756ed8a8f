// NBConfiguration: the process-wide settings store.
//
// Three sources behind one class:
//   - the settings suite kSuiteName (nb::UserDefaults): the session's identity, the user's client settings,
//     settings per game (flat keys "<gameId><suffix>") and a few per-user values;
//   - the SDK configuration file, kSdkConfigFileName in the home folder: a property list (XML or binary)
//     edited by hand by developers and testers, holding the environment choice (section "game") and the
//     debug switches (section "debug"). It is never written. Every file-backed getter stats the file and
//     answers from the parse kept for it while the file is unchanged (nb::PropertyListFile); an edit, a
//     replacement or a removal is seen at the next read, however soon after the previous one;
//   - the main bundle (version, distribution and pay channel) and the user's preferred languages, through
//     the providers given to the constructor.
//
// Nil versus empty: string getters answer nullopt where the store has nothing (key missing), and "" where
// the SDK configuration file cannot be read at all, as callers tell the two apart. String setters take
// nullopt to remove the key. Dictionary and array getters answer an absent Value when the key is missing or
// holds another kind; their setters store the Value unchanged, and an absent Value removes the key.
//
// Game ids: the guarded operations refuse both a nil and an empty id (NO or 0, the write is ignored). The
// unguarded ones form the key from whatever they are given: with nullopt there is no key, so a read answers
// NO or 0 and a write does nothing; with "" the key is the bare suffix ("bd_alert").
//
// The property setters of the file-backed getters (setEnvType, setEnableNimboLog, ..., setConfigType) and
// setSvipFlags only store into fields of this object, which the getters never read: the file (or for
// svipFlags the suite) is the one source of truth. configType() is the only reader of its field.
//
// Failure: nothing is reported and nothing throws. Without a suite (userDefaults() null) every suite getter
// answers 0, false, nullopt or an absent Value and every suite setter does nothing. A suite that refuses a
// write logs it (see UserDefaults). A configuration file that cannot be read (missing, a folder, not a
// regular file, unreadable, larger than PropertyList::kMaxFileSize) behaves as "missing": "" from
// getSdkConfigValue and the string getters, NO from the booleans; one that is read but is not a property
// list with a dictionary root behaves as a missing section: absent / nullopt / NO.
//
// Threads: every function may be called on any thread at once. The suite is thread-safe itself; the suite
// handle and the setter-only fields are guarded here, and the configuration file's parse is an immutable
// snapshot that concurrent getters share. sharedInstance() is created once, thread-safely, on
// first use and never destroyed.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "nbbase/foundation/Clock.h"
#include "nbbase/foundation/MainBundle.h"
#include "nbbase/foundation/PreferredLanguages.h"
#include "nbbase/foundation/PropertyListFile.h"
#include "nbbase/foundation/Size.h"
#include "nbbase/foundation/UserDefaults.h"
#include "nbbase/foundation/Value.h"

namespace nb {

class NBConfiguration {
public:
    static constexpr std::string_view kSuiteName = "com.korvane.nimbo.mac";
    static constexpr std::string_view kSdkConfigFileName = "com.korvane.nimbo.cgsysconfig.plist";

    // May answer nullptr (then the bundle counts as empty: no version, no channels).
    using MainBundleProvider = std::function<std::shared_ptr<const MainBundle>()>;
    using PreferredLanguagesProvider = std::function<std::vector<std::string>()>;

    // userDefaults may be null. The configuration file is homeFolder / kSdkConfigFileName. The providers are
    // called on whichever thread asks (gameTags, checkSupplyId, language), on every call, so they must be
    // thread-safe; an empty provider counts as no bundle or no languages. The clock tells a recently edited
    // configuration file, whose parse is not kept yet, from a settled one; it must outlive the object.
    // Registers the suite's defaults.
    NBConfiguration(std::shared_ptr<UserDefaults> userDefaults, std::filesystem::path homeFolder,
                    MainBundleProvider mainBundle = &MainBundle::main,
                    PreferredLanguagesProvider preferredLanguages = &PreferredLanguages::current,
                    const Clock& clock = Clock::system());
    NBConfiguration(const NBConfiguration&) = delete;
    NBConfiguration& operator=(const NBConfiguration&) = delete;

    // The suite kSuiteName in Folders::sharedInstance().preferencesFolder(), the file in its homeFolder().
    static NBConfiguration& sharedInstance();

    // A copy of the handle: a concurrent setUserDefaults() never pulls the suite from under a caller.
    std::shared_ptr<UserDefaults> userDefaults() const;
    // Registered defaults belong to a UserDefaults instance: call registerDefaults() to give them to a
    // replacement that lacks them.
    void setUserDefaults(std::shared_ptr<UserDefaults> userDefaults);
    // The eight defaults of a fresh suite (video 1920 by 1080 at 60 fps, full screen, ...). Never written.
    void registerDefaults();

    const std::filesystem::path& sdkConfigFilePath() const noexcept { return sdkConfigFile_.path(); }

    // ---- Session identity ----
    std::optional<std::string> nimboToken() const;
    void setNimboToken(std::optional<std::string> value);
    std::optional<std::string> openId() const;
    void setOpenId(std::optional<std::string> value);
    std::optional<std::string> userId() const;
    void setUserId(std::optional<std::string> value);
    // The game currently being played.
    std::optional<std::string> gameId() const;
    void setGameId(std::optional<std::string> value);
    std::int64_t vipFlags() const;
    void setVipFlags(std::int64_t value);
    // Always read from the suite. setSVipFlags persists; setSvipFlags only fills a field nobody reads.
    std::int64_t svipFlags() const;
    void setSVipFlags(std::int64_t value);
    void setSvipFlags(std::int64_t value);
    // Dictionary. The setter drops top-level null values (the suite holds no nulls); nested values are kept
    // as they are, so a null nested deeper makes the suite refuse the whole write (logged, old value kept).
    // A Value that is neither a dictionary nor absent is refused with a logged error.
    Value userProfile() const;
    void setUserProfile(const Value& profile);

    // ---- Client settings ----
    bool firstLaunchGame() const;
    void setFirstLaunchGame(bool value);
    bool showGameGuide() const;
    void setShowGameGuide(bool value);
    Value speedTestDict() const;  // key "speedTest"
    void setSpeedTestDict(const Value& value);
    Value speedTestLimitDict() const;
    void setSpeedTestLimitDict(const Value& value);
    bool checkNetworkStable() const;  // YES while unset
    void setCheckNetworkStable(bool value);
    Value showTipsGameIdArray() const;
    void setShowTipsGameIdArray(const Value& value);
    bool disableGameExitShortcutKey() const;
    void setDisableGameExitShortcutKey(bool value);
    bool enableSpaceSwitch() const;
    void setEnableSpaceSwitch(bool value);
    // Stored as a double; read back through its single-precision value (0.1 comes back as 0.1f).
    double sysMouseAcceleration() const;
    void setSysMouseAcceleration(double value);
    bool disableMouseAcceleration() const;
    void setDisableMouseAcceleration(bool value);
    bool sysFNSwitchEnable() const;
    void setSysFNSwitchEnable(bool value);
    bool enableFNSwitch() const;
    void setEnableFNSwitch(bool value);
    bool showStatisticWidget() const;
    void setShowStatisticWidget(bool value);
    bool isFullScreen() const;  // key "videoFullScreen"
    void setIsFullScreen(bool value);
    // Stored as two integers: fractions are dropped (toward zero, saturating; NaN is 0).
    Size frameSize() const;
    void setFrameSize(Size size);
    std::int64_t fps() const;  // key "videoFps"
    void setFps(std::int64_t value);
    bool autoGameAdaptive() const;
    void setAutoGameAdaptive(bool value);
    bool enableMenuShortCutTips() const;  // YES while unset
    void setEnableMenuShortCutTips(bool value);
    bool menuTipsShown() const;
    void setMenuTipsShown(bool value);
    bool hangupNewFeatureShow() const;
    void setHangupNewFeatureShow(bool value);
    bool svipNewFeatureShow() const;
    void setSvipNewFeatureShow(bool value);
    bool enableUnlockMoueShortcutTips() const;
    void setEnableUnlockMoueShortcutTips(bool value);
    bool enableDisplayDelayTips() const;  // YES while unset
    void setEnableDisplayDelayTips(bool value);
    std::optional<std::string> videoDefinition() const;
    void setVideoDefinition(std::optional<std::string> value);
    // The first entry of the suite's "AppleLanguages" array when it has one, else the first preferred
    // language. setLanguage stores a one-element array; nullopt does nothing.
    std::optional<std::string> language() const;
    void setLanguage(const std::optional<std::string>& value);
    // The distribution channel, decided by the first checkSupplyId() on this suite in any process: the
    // bundle's "NIMBODistributionChannel" when it is a non-empty string, else "nimbo". A stored value is
    // never replaced, so a later bundle does not change it. The decision is one atomic set-if-absent on
    // the suite (UserDefaults::setObjectIfAbsent): when handles or processes with different bundles race
    // on a fresh suite, one channel is stored, and once a checkSupplyId() has returned every supplyId()
    // answers that channel.
    std::optional<std::string> supplyId() const;
    void checkSupplyId();

    // ---- Per game ----
    // Guarded: nil or empty game id answers NO and ignores the write.
    bool existMouseLock(const std::optional<std::string>& gameId) const;
    bool mouseLockByGameId(const std::optional<std::string>& gameId) const;
    void setMouseLock(const std::optional<std::string>& gameId, bool locked);
    // Guarded.
    bool hasFrameByGameId(const std::optional<std::string>& gameId) const;
    std::int32_t getFrameByGameId(const std::optional<std::string>& gameId) const;
    void setFrameByGameId(const std::optional<std::string>& gameId, std::int32_t frame);
    // hasEnableVideoQuality and the setter guarded; enableVideoQuality unguarded.
    bool hasEnableVideoQuality(const std::optional<std::string>& gameId) const;
    bool enableVideoQuality(const std::optional<std::string>& gameId) const;
    void setEnableVideoQuality(const std::optional<std::string>& gameId, bool enable);
    // hasFpsByGameId and the setter guarded; getFpsByGameId unguarded.
    bool hasFpsByGameId(const std::optional<std::string>& gameId) const;
    std::int32_t getFpsByGameId(const std::optional<std::string>& gameId) const;
    void setFpsByGameId(const std::optional<std::string>& gameId, std::int32_t fps);
    // Guarded.
    bool getEnableAgainstMenuTouch(const std::optional<std::string>& gameId) const;
    void setEnableAgainstMenuTouch(const std::optional<std::string>& gameId, bool enable);
    // Unguarded, key "<gameId>bd_alert" (no underscore).
    bool showSvipFrameAlert(const std::optional<std::string>& gameId) const;
    void setSvipFrameAlert(const std::optional<std::string>& gameId, bool show);

    // ---- Per user ----
    // "svip_pqendtime" when isSvip, else "vip_pqendtime"; 0 while unset.
    void setPictureQualityInterestExpiredTime(bool isSvip, std::int64_t endTime);
    std::int64_t getPictureQualityInterestExpiredTime(bool isSvip) const;
    // Key strStepKey(step); 0.0 while unset.
    void setStepCost(std::int64_t step, double cost);
    double stepCost(std::int64_t step) const;
    // "step_<step>".
    static std::string strStepKey(std::int64_t step);

    // ---- SDK configuration file ----
    // root[ofSeciont][key]: "" (a string Value) when the file cannot be read; absent when it does not parse,
    // its root is not a dictionary, or the section or key is missing. Any kind the file holds is answered.
    Value getSdkConfigValue(std::string_view key, std::string_view ofSeciont) const;
    // The found value's bool value; NO for a missing file, section or key.
    bool getBoolConfigValue(std::string_view key, std::string_view ofSeciont) const;

    // "game"/"envType": its integer value when it is a non-empty string or a number, else 1 (production).
    std::int64_t envType() const;
    // "game"/"game_tags" when non-empty; else "mac_release" for a version "0.0.1", one containing ".9999."
    // or the pay channel "korvane"; else the empty value as read ("" without a file, nullopt without a key).
    std::optional<std::string> gameTags() const;
    // "debug" section switches.
    bool enableNimboLog() const;
    bool enableNbgameLog() const;
    bool enableCefDebug() const;
    bool enableSdkLog() const;
    bool enableReportLog() const;
    bool enableShowBitRate() const;
    bool disableBeanconReport() const;
    bool printMouseEvent() const;
    // "debug" section strings: "" without a file, nullopt without the key (or for a value that is neither a
    // string nor a number); a number answers its string value.
    std::optional<std::string> logLevel() const;
    std::optional<std::string> feLogLevel() const;
    std::optional<std::string> fullscreenLevel() const;
    std::optional<std::string> debugResolution() const;

    // Fields only; the getters above keep reading the file.
    void setEnvType(std::int64_t value);
    void setGameTags(std::optional<std::string> value);
    void setEnableNimboLog(bool value);
    void setEnableNbgameLog(bool value);
    void setEnableCefDebug(bool value);
    void setEnableSdkLog(bool value);
    void setEnableReportLog(bool value);
    void setEnableShowBitRate(bool value);
    void setDisableBeanconReport(bool value);
    void setPrintMouseEvent(bool value);
    void setLogLevel(std::optional<std::string> value);
    void setFeLogLevel(std::optional<std::string> value);
    void setFullscreenLevel(std::optional<std::string> value);
    void setDebugResolution(std::optional<std::string> value);
    std::int64_t configType() const;
    void setConfigType(std::int64_t value);

    // ---- Derived ----
    // Production origins unless envType() is 0, then the test ones. No trailing slash.
    std::string authApiBase() const;
    std::string gameApiBase() const;
    std::string webApiBase() const;
    // The production web-page base whatever the environment, for pages that exist only there.
    static std::string productionWebApiBase();
    // Always "1".
    static std::string hostVersion();

private:
    // What the setter-only properties were last given; nothing in this class reads them back but configType().
    struct Fields {
        std::int64_t envType = 0;
        std::optional<std::string> gameTags;
        bool enableNimboLog = false;
        bool enableNbgameLog = false;
        bool enableCefDebug = false;
        bool enableSdkLog = false;
        bool enableReportLog = false;
        bool enableShowBitRate = false;
        bool disableBeanconReport = false;
        bool printMouseEvent = false;
        std::optional<std::string> logLevel;
        std::optional<std::string> feLogLevel;
        std::optional<std::string> fullscreenLevel;
        std::optional<std::string> debugResolution;
        std::int64_t configType = 0;
        std::int64_t svipFlags = 0;
    };

    std::optional<std::string> stringOf(std::string_view key) const;
    bool boolOf(std::string_view key) const;
    bool boolOf(std::string_view key, bool whenUnset) const;
    bool hasKey(std::string_view key) const;
    void setString(std::string_view key, std::optional<std::string> value);
    void setBool(std::string_view key, bool value);
    void setObject(std::string_view key, const Value& value);
    std::optional<std::string> configString(std::string_view key, std::string_view section) const;
    bool isProduction() const { return envType() != 0; }
    std::shared_ptr<const MainBundle> mainBundle() const;
    template <typename F>
    void setField(F&& assign);

    const PropertyListFile sdkConfigFile_;
    const MainBundleProvider mainBundle_;
    const PreferredLanguagesProvider preferredLanguages_;

    mutable std::mutex defaultsMutex_;
    std::shared_ptr<UserDefaults> userDefaults_;  // guarded by defaultsMutex_

    mutable std::mutex fieldsMutex_;
    Fields fields_;  // guarded by fieldsMutex_
};

}  // namespace nb
