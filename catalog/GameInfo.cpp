#include "nbbase/catalog/GameInfo.h"

#include <array>

#include "nbbase/foundation/Json.h"

namespace nb {
namespace {

void readInt32(const Value& section, std::string_view key, std::int32_t& field) {
    if (section.contains(key)) field = section[key].intValue();
}

void readInt64(const Value& section, std::string_view key, std::int64_t& field) {
    if (section.contains(key)) field = section[key].longLongValue();
}

// A text field's value: strings as they are, numbers as their string value, anything else nil.
std::optional<std::string> textOf(const Value& value) {
    if (const std::string* text = value.asString()) return *text;
    if (value.isNumber()) return value.stringValue();
    return std::nullopt;
}

// An ext-info flag: only a non-empty numeric string changes it.
void readFlag(const Value& extInfo, std::string_view key, bool& field) {
    const std::string* text = extInfo[key].asString();
    if (text && !text->empty() && GameInfo::isNumeric(*text)) field = Value(*text).intValue() != 0;
}

// Length in bytes of the white space or line break that starts `text`, 0 when it starts with anything
// else: ASCII tab to carriage return and blank, NEL, and the Unicode space and separator characters.
std::size_t whiteSpaceLength(std::string_view text) {
    if (text.empty()) return 0;
    const unsigned char first = static_cast<unsigned char>(text[0]);
    if (first == ' ' || (first >= '\t' && first <= '\r')) return 1;
    static constexpr std::array<std::string_view, 19> kWide = {
        "\u0085", "\u00A0", "\u1680", "\u2000", "\u2001", "\u2002", "\u2003", "\u2004", "\u2005", "\u2006",
        "\u2007", "\u2008", "\u2009", "\u200A", "\u2028", "\u2029", "\u202F", "\u205F", "\u3000"};
    if (first < 0xC2) return 0;  // every wide one is a multi-byte sequence
    for (const std::string_view space : kWide) {
        if (text.starts_with(space)) return space.size();
    }
    return 0;
}

std::string_view skipWhiteSpace(std::string_view text) {
    while (const std::size_t n = whiteSpaceLength(text)) text.remove_prefix(n);
    return text;
}

std::size_t digitCount(std::string_view text) {
    std::size_t n = 0;
    while (n < text.size() && text[n] >= '0' && text[n] <= '9') ++n;
    return n;
}

}  // namespace

GameInfo& GameInfo::sharedInstance() {
    static GameInfo* const instance = new GameInfo();
    return *instance;
}

GameInfo::GameInfo(NimboSdkManager& sdkManager, const Localization& localization, NBLog& log)
    : sdkManager_(sdkManager), localization_(localization), log_(log) {}

bool GameInfo::isNumeric(std::string_view string) {
    std::string_view rest = skipWhiteSpace(string);
    if (!rest.empty() && (rest[0] == '+' || rest[0] == '-')) rest.remove_prefix(1);
    const std::size_t whole = digitCount(rest);
    rest.remove_prefix(whole);
    std::size_t fraction = 0;
    if (!rest.empty() && rest[0] == '.') {
        rest.remove_prefix(1);
        fraction = digitCount(rest);
        rest.remove_prefix(fraction);
    }
    if (whole == 0 && fraction == 0) return false;
    if (!rest.empty() && (rest[0] == 'e' || rest[0] == 'E')) {
        std::string_view exponent = rest.substr(1);
        if (!exponent.empty() && (exponent[0] == '+' || exponent[0] == '-')) exponent.remove_prefix(1);
        const std::size_t digits = digitCount(exponent);
        // Without digits the scanner stops before the "e", which then stands in the way of the end.
        if (digits == 0) return false;
        rest = exponent.substr(digits);
    }
    return skipWhiteSpace(rest).empty();
}

bool GameInfo::parse(const Data& data) {
    const Value decoded = Json::decode(data).value_or(Value());
    const Value& reply = decoded["data"];
    const Value& infos = reply["game_infos"];
    // Nested ext-info texts are decoded here too, so that the lock below covers no decoding.
    std::vector<std::optional<Value>> extInfos(infos.isArray() ? infos.size() : 0);
    for (std::size_t i = 0; i < extInfos.size(); ++i) {
        const Value& fields = infos[i]["ext_fields"];
        if (!fields.contains("ext_info")) continue;
        if (const std::string* text = fields["ext_info"].asString()) {
            auto extInfo = Json::decode(*text);
            if (extInfo && extInfo->isDictionary()) extInfos[i] = std::move(extInfo);
        }
    }

    std::lock_guard lock(mutex_);
    fields_.changed = true;
    fields_.dict = decoded;
    if (!reply.isDictionary()) return false;
    for (std::size_t i = 0; i < extInfos.size(); ++i) applyGameInfo(fields_, infos[i], extInfos[i]);
    return true;
}

void GameInfo::applyGameInfo(Fields& f, const Value& info, const std::optional<Value>& extInfo) {
    if (info.contains("game_id")) f.gameId = info["game_id"];
    if (info.contains("name")) f.name = info["name"];
    readInt32(info, "type", f.type);
    readInt32(info, "skip_payment", f.skipPayment);
    readInt64(info, "gaming_enable", f.enableGamingType);
    readInt32(info, "show_tag_bit", f.showTagBit);
    readInt64(info, "free_tag_start_ts", f.freeTagStartTS);
    readInt64(info, "free_tag_end_ts", f.freeTagEndTS);
    readInt32(info, "subscribe_mode", f.subscribeMode);
    if (const Value& mine = info["my_game_info"]; mine.isDictionary()) {
        f.myGame = mine["is_my_game"].boolValue();
        if (mine.contains("play_time_left")) f.timeLeft = mine["play_time_left"].intValue();
    }
    readInt32(info, "permission_type", f.permissionType);
    readInt32(info, "permission_value", f.permissionValue);
    readInt32(info, "try_time", f.tryTime);
    readInt64(info, "paid_time_left", f.paidTime);
    if (info.contains("extension_type")) {
        const std::string extension = info["extension_type"].stringValue();
        f.waitFirstScene = extension.find("wait_first_scene") != std::string::npos ||
                           extension.find("wait_first_msg_or_scene") != std::string::npos;
    }
    if (extInfo) applyExtInfo(f, *extInfo);
}

void GameInfo::applyExtInfo(Fields& f, const Value& extInfo) {
    f.playGetBtnText = textOf(extInfo["play_get_btn_text"]);
    f.playGetBtnTarget = textOf(extInfo["play_get_btn_target"]);
    f.playVipGameQuitText = textOf(extInfo["play_vip_game_quit_text"]);
    f.playVipGameExpireText = textOf(extInfo["play_vip_game_expire_text"]);
    readFlag(extInfo, "hide_queue_vip_btn", f.hideVipQueueBtn);
    readFlag(extInfo, "archive_if_can_skip", f.skipArchive);
    f.obtainGameTitle = textOf(extInfo["obtain_game_title"]);
    f.obtainGameEvent = textOf(extInfo["obtain_game_event"]);
    f.obtainGameUrl = textOf(extInfo["obtain_game_url"]);
    if (f.obtainGameUrl) f.lastValidObtainGameUrl = f.obtainGameUrl;
}

void GameInfo::parseDict(const Value& dictionary) {
    std::lock_guard lock(mutex_);
    if (fields_.subscribeMode == 2 && !fields_.myGame) {
        const Value& timeInfo = dictionary["time_info"];
        if (timeInfo.contains("left_minute")) fields_.timeLeft = timeInfo["left_minute"].intValue();
    }
    const Value& permission = dictionary["permission"];
    readInt32(permission, "permission_type", fields_.permissionType);
    readInt32(permission, "permission_value", fields_.permissionValue);
}

void GameInfo::reset() {
    std::lock_guard lock(mutex_);
    fields_.showTagBit = 0;
    fields_.skipPayment = 0;
    fields_.type = 0;
    fields_.gameId = Value();
    fields_.name = Value();
    fields_.freeTagStartTS = 0;
    fields_.freeTagEndTS = 0;
}

void GameInfo::updateTimeLeft(std::int32_t minutes) { write(&Fields::timeLeft, std::int64_t{minutes}); }

bool GameInfo::isTagTimeValid(std::int64_t start, std::int64_t end) const {
    if (start == 0 && end == 0) return true;
    if (start < 0) return false;
    if (start > 0) {
        if (end < 0) return false;
        const std::int64_t now = sdkManager_.getTimeStamp();
        return end == 0 ? now >= start : start <= now && now <= end;
    }
    if (end < 0) return false;
    return sdkManager_.getTimeStamp() <= start;
}

bool GameInfo::isTagTimeValid() const {
    std::unique_lock lock(mutex_);
    const std::int64_t start = fields_.freeTagStartTS, end = fields_.freeTagEndTS;
    lock.unlock();
    return isTagTimeValid(start, end);
}

bool GameInfo::isTestGame() const {
    std::unique_lock lock(mutex_);
    const Fields& f = fields_;
    const bool tagged = (f.showTagBit & 1) != 0;
    const std::int64_t start = f.freeTagStartTS, end = f.freeTagEndTS;
    lock.unlock();
    return tagged && isTagTimeValid(start, end);
}

bool GameInfo::isLimitedGame() const {
    std::unique_lock lock(mutex_);
    const Fields& f = fields_;
    const bool tagged = (f.showTagBit & 2) != 0;
    const std::int64_t start = f.freeTagStartTS, end = f.freeTagEndTS;
    lock.unlock();
    return tagged && isTagTimeValid(start, end);
}

bool GameInfo::isLimitedTimeValid() const {
    std::unique_lock lock(mutex_);
    const std::int64_t start = fields_.freeTagStartTS, end = fields_.freeTagEndTS;
    lock.unlock();
    return isTagTimeValid(start, end) && end >= 1;
}

std::int32_t GameInfo::gameType() const { return read(&Fields::type); }
std::int32_t GameInfo::showTagBit() const { return read(&Fields::showTagBit); }
bool GameInfo::isChanged() const { return read(&Fields::changed); }

bool GameInfo::isCopyGameMode() const {
    std::lock_guard lock(mutex_);
    return fields_.subscribeMode == 2 && !fields_.myGame;
}

bool GameInfo::isPossessCopyGame() const {
    std::lock_guard lock(mutex_);
    return fields_.subscribeMode == 2 && fields_.myGame;
}

bool GameInfo::copyGame() const { return read(&Fields::subscribeMode) == 2; }
bool GameInfo::subscribeCopyGame() const { return copyGame(); }
bool GameInfo::myGame() const { return read(&Fields::myGame); }
std::int64_t GameInfo::freeStartTS() const { return read(&Fields::freeTagStartTS); }
std::int64_t GameInfo::freeEndTS() const { return read(&Fields::freeTagEndTS); }
std::int64_t GameInfo::copyGameTimeLeft() const { return read(&Fields::timeLeft); }
bool GameInfo::isNeedHideVipQueueBtn() const { return read(&Fields::hideVipQueueBtn); }
std::int64_t GameInfo::gtEnableGamingType() const { return read(&Fields::enableGamingType); }
std::int32_t GameInfo::skipPayment() const { return read(&Fields::skipPayment); }
bool GameInfo::isSupportSkipArchive() const { return read(&Fields::skipArchive); }
std::int32_t GameInfo::permissionValue() const { return read(&Fields::permissionValue); }
std::int32_t GameInfo::permissionTryTime() const { return read(&Fields::tryTime); }
bool GameInfo::isPermissionMode() const { return read(&Fields::permissionType) > 0; }

bool GameInfo::gameWithoutPermission() const {
    std::lock_guard lock(mutex_);
    return fields_.permissionType > 0 && fields_.permissionValue == 0;
}

std::int64_t GameInfo::paidTimeLeft() const { return read(&Fields::paidTime); }
bool GameInfo::waitFirstScene() const { return read(&Fields::waitFirstScene); }
std::optional<std::string> GameInfo::obtainGameButtonTitle() const { return read(&Fields::obtainGameTitle); }

std::optional<std::string> GameInfo::obtainGameWebUrl() const {
    auto url = read(&Fields::obtainGameUrl);
    if (!url) log_.log(4, "failed to get obtain game webpage url");
    return url;
}

std::optional<std::vector<std::string>> GameInfo::obtainGameEvents() const {
    std::unique_lock lock(mutex_);
    if (!fields_.obtainGameUrl || fields_.obtainGameUrl->empty()) return std::nullopt;
    std::optional<std::string> title = fields_.obtainGameTitle;
    std::string event = fields_.obtainGameEvent.value_or(std::string(kDefaultObtainGameEvent));
    std::string url = *fields_.obtainGameUrl;
    lock.unlock();
    if (!title) title = localization_.localizedString("Obtain game");
    return std::vector<std::string>{std::move(*title), std::move(event), std::move(url)};
}

Value GameInfo::dict() const { return read(&Fields::dict); }
Value GameInfo::gameId() const { return read(&Fields::gameId); }
Value GameInfo::name() const { return read(&Fields::name); }
std::optional<std::string> GameInfo::lastValidObtainGameUrl() const { return read(&Fields::lastValidObtainGameUrl); }

std::optional<std::string> GameInfo::playGetBtnText() const { return read(&Fields::playGetBtnText); }
void GameInfo::setPlayGetBtnText(std::optional<std::string> text) { write(&Fields::playGetBtnText, std::move(text)); }
std::optional<std::string> GameInfo::playGetBtnTarget() const { return read(&Fields::playGetBtnTarget); }
void GameInfo::setPlayGetBtnTarget(std::optional<std::string> target) {
    write(&Fields::playGetBtnTarget, std::move(target));
}
std::optional<std::string> GameInfo::playVipGameQuitText() const { return read(&Fields::playVipGameQuitText); }
void GameInfo::setPlayVipGameQuitText(std::optional<std::string> text) {
    write(&Fields::playVipGameQuitText, std::move(text));
}
std::optional<std::string> GameInfo::playVipGameExpireText() const { return read(&Fields::playVipGameExpireText); }
void GameInfo::setPlayVipGameExpireText(std::optional<std::string> text) {
    write(&Fields::playVipGameExpireText, std::move(text));
}

}  // namespace nb
