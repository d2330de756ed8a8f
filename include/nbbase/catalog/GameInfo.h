// GameInfo: the game the client is about to launch or is playing, as the last game-information reply
// described it: identity, tag flags and free-tag period, copy-game ownership, permission fields, and the
// button texts and flags the server passes through the nested "ext_info" JSON text.
//
// The client hands the raw reply bytes to parse() and later small decoded dictionaries (time left,
// permission) to parseDict(); this class fetches nothing. The only request it makes is isTagTimeValid()
// asking the SDK bridge for the server's time stamp (0 without an SDK instance).
//
// Replies: a key is tested for presence before it is converted; an absent key leaves its field as it was,
// a present one converts by Value's Foundation rules whatever its kind. Fields are never cleared between
// replies, except the ext-info texts (a present "ext_info" assigns all of them, nil for a missing key) and
// what reset() clears. Of several "game_infos" elements the last one carrying a key wins. Sections of the
// wrong kind count as missing: a "data", "my_game_info", "ext_fields" or decoded "ext_info" that is not an
// object, a "game_infos" that is not an array, an "ext_info" that is not a string (or not JSON). Texts take
// a string as it is and a number as its string value; any other kind is nil. The two ext-info flags
// ("hide_queue_vip_btn", "archive_if_can_skip") change only for a non-empty string that isNumeric()
// accepts, and then to (int value != 0).
//
// parse() sets isChanged() and replaces dict() on every call, whatever the bytes hold (dict() is absent
// after bytes that are not JSON); it answers false when the reply has no "data" object, and then changes
// nothing else.
//
// Threads: any function may be called on any thread, a parse racing reads included. One mutex guards every
// field; a parse applies a whole reply under it (the JSON, nested ext-info texts included, is decoded before
// the lock is taken), so a reader sees the state before or after a reply, never half of one. Questions that
// combine fields read them under one lock. isTagTimeValid() and the questions built on it call the SDK
// bridge (a blocking call) outside the lock. obtainGameWebUrl() logs outside the lock.
//
// Lifetime: the SDK bridge, localization and log given to the constructor must outlive the instance.
// sharedInstance() is created once, thread-safely, on first use and never destroyed.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/foundation/Localization.h"
#include "nbbase/foundation/NBLog.h"
#include "nbbase/foundation/Value.h"

namespace nb {

class GameInfo {
public:
    static constexpr std::string_view kDefaultObtainGameEvent = "openObtainGameWebPage";

    static GameInfo& sharedInstance();

    explicit GameInfo(NimboSdkManager& sdkManager = NimboSdkManager::sharedInstance(),
                      const Localization& localization = Localization::sharedInstance(),
                      NBLog& log = NBLog::sharedInstance());
    GameInfo(const GameInfo&) = delete;
    GameInfo& operator=(const GameInfo&) = delete;

    // ---- Updating ----
    // The UTF-8 JSON reply of the game-information request. See above for what it changes.
    bool parse(const Data& data);
    // A partial update: "time_info"."left_minute" sets the time left, only while isCopyGameMode() held
    // before this call; "permission"."permission_type" and ."permission_value" set the permission.
    void parseDict(const Value& dictionary);
    // Clears the identity, tag bits, type, skip-payment flag and tag period; everything else stays.
    void reset();
    void updateTimeLeft(std::int32_t minutes);

    // True when the whole text is one decimal number, as a string scanner reads a double: leading white
    // space (Unicode white space and line breaks) skipped, an optional sign ("+" or "-"), digits with an
    // optional fraction (".5" and "1." count), an optional exponent ("1e5", "2E-3"), then nothing but white
    // space to the end. Locale-independent. Not numeric: "", blanks only, "1a", "1e", "inf", "nan", "0x1A".
    static bool isNumeric(std::string_view string);

    // ---- Questions ----
    // Against the SDK's time stamp `now`, with start and end the free-tag period (signed):
    // both 0 → true; start < 0 → false; start > 0: end > 0 → start <= now <= end, end == 0 → now >= start,
    // end < 0 → false; start == 0: end < 0 → false, end > 0 → now <= 0 (the start is compared, not the end,
    // so a period with only an end never holds at a positive time).
    bool isTagTimeValid() const;
    bool isTestGame() const;          // tag bit 1 and a valid tag period
    bool isLimitedGame() const;       // tag bit 2 and a valid tag period
    bool isLimitedTimeValid() const;  // a valid tag period with an end (>= 1)
    std::int32_t gameType() const;
    std::int32_t showTagBit() const;
    bool isChanged() const;
    bool isCopyGameMode() const;     // subscribe mode 2, copy not owned
    bool isPossessCopyGame() const;  // subscribe mode 2, copy owned
    bool copyGame() const;           // subscribe mode 2
    bool subscribeCopyGame() const;  // the same test as copyGame()
    bool myGame() const;
    std::int64_t freeStartTS() const;
    std::int64_t freeEndTS() const;
    std::int64_t copyGameTimeLeft() const;  // minutes
    bool isNeedHideVipQueueBtn() const;
    std::int64_t gtEnableGamingType() const;
    std::int32_t skipPayment() const;
    bool isSupportSkipArchive() const;
    std::int32_t permissionValue() const;
    std::int32_t permissionTryTime() const;
    bool isPermissionMode() const;       // permission type > 0
    bool gameWithoutPermission() const;  // permission mode and permission value 0
    std::int64_t paidTimeLeft() const;
    bool waitFirstScene() const;
    std::optional<std::string> obtainGameButtonTitle() const;
    // Logs "failed to get obtain game webpage url" (level 4) and answers nil when there is no URL.
    std::optional<std::string> obtainGameWebUrl() const;
    // Nil without a non-empty URL; else {title, event, URL}: the title defaults to the localised
    // "Obtain game", the event to kDefaultObtainGameEvent.
    std::optional<std::vector<std::string>> obtainGameEvents() const;

    // ---- Read-only views for the host ----
    Value dict() const;    // the last reply parse() decoded
    Value gameId() const;  // as sent, any kind; absent until a reply carried it
    Value name() const;
    // The last URL any ext info carried; a later ext info without one does not clear it.
    std::optional<std::string> lastValidObtainGameUrl() const;

    // ---- Texts set by ext info and by the client ----
    std::optional<std::string> playGetBtnText() const;
    void setPlayGetBtnText(std::optional<std::string> text);
    std::optional<std::string> playGetBtnTarget() const;
    void setPlayGetBtnTarget(std::optional<std::string> target);
    std::optional<std::string> playVipGameQuitText() const;
    void setPlayVipGameQuitText(std::optional<std::string> text);
    std::optional<std::string> playVipGameExpireText() const;
    void setPlayVipGameExpireText(std::optional<std::string> text);

private:
    struct Fields {
        Value dict;
        std::int32_t showTagBit = 0;
        std::int32_t skipPayment = 0;
        std::int32_t type = 0;
        Value gameId;
        Value name;
        std::int64_t freeTagStartTS = 0;
        std::int64_t freeTagEndTS = 0;
        bool changed = false;
        std::int32_t subscribeMode = 0;
        bool myGame = false;
        std::int64_t timeLeft = 0;
        std::optional<std::string> obtainGameTitle;
        std::optional<std::string> obtainGameEvent;
        std::optional<std::string> obtainGameUrl;
        std::optional<std::string> lastValidObtainGameUrl;
        bool hideVipQueueBtn = false;
        std::int64_t enableGamingType = 0;
        bool skipArchive = false;
        std::int32_t permissionType = 0;
        std::int32_t permissionValue = 0;
        std::int32_t tryTime = 0;
        std::int64_t paidTime = 0;
        bool waitFirstScene = false;
        std::optional<std::string> playGetBtnText;
        std::optional<std::string> playGetBtnTarget;
        std::optional<std::string> playVipGameQuitText;
        std::optional<std::string> playVipGameExpireText;
    };

    static void applyGameInfo(Fields& fields, const Value& info, const std::optional<Value>& extInfo);
    static void applyExtInfo(Fields& fields, const Value& extInfo);
    bool isTagTimeValid(std::int64_t start, std::int64_t end) const;

    template <typename T>
    T read(T Fields::*field) const {
        std::lock_guard lock(mutex_);
        return fields_.*field;
    }
    template <typename T>
    void write(T Fields::*field, T value) {
        std::lock_guard lock(mutex_);
        fields_.*field = std::move(value);
    }

    NimboSdkManager& sdkManager_;
    const Localization& localization_;
    NBLog& log_;

    mutable std::mutex mutex_;
    Fields fields_;  // guarded by mutex_
};

}  // namespace nb
