#include "nbbase/entitlements/VipInfo.h"

#include <cmath>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "nbbase/foundation/Json.h"

namespace nb {
namespace {

constexpr std::string_view kNewUserTag = "pid-new-user-unlimitplay";
constexpr std::string_view kWindowTags[] = {"unlimited-play", "idle-time", "limited-free", "testing"};

void readInt64(const Value& section, std::string_view key, std::int64_t& field) {
    if (section.contains(key)) field = section[key].longLongValue();
}

void readInt32(const Value& section, std::string_view key, std::int32_t& field) {
    if (section.contains(key)) field = section[key].intValue();
}

// Whole values print without a fraction ("2"), others with one digit ("1.5").
std::string factorText(float factor) {
    if (std::round(factor) == factor) {
        // Through Value so that an infinite or huge factor saturates instead of overflowing the cast.
        return fmt::format("{}", Value(static_cast<double>(factor)).intValue());
    }
    return fmt::format("{:.1f}", static_cast<double>(factor));
}

}  // namespace

VipInfo& VipInfo::sharedInstance() {
    static VipInfo* const instance = new VipInfo();
    return *instance;
}

bool VipInfo::parse(const Data& bytes) {
    Value decoded = Json::decode(bytes).value_or(Value());
    std::lock_guard lock(mutex_);
    fields_.dict = decoded;
    apply(fields_, decoded);
    return true;
}

bool VipInfo::parseDictionaryData(const Value& dictionary) {
    std::lock_guard lock(mutex_);
    apply(fields_, dictionary);
    return true;
}

void VipInfo::apply(Fields& f, const Value& reply) {
    readInt64(reply, "ts", f.baseTS);

    const Value& vip = reply["vip"];
    readInt64(vip, "close_ts", f.vipCloseTS);
    readInt64(vip, "open_ts", f.vipOpenTS);
    readInt32(vip, "expire_days", f.expireDays);
    readInt32(vip, "vip_flag", f.vipFlag);

    const Value& svip = reply["svip"];
    readInt64(svip, "close_ts", f.svipCloseTS);
    readInt64(svip, "open_ts", f.svipOpenTS);
    readInt32(svip, "expire_days", f.svipExpireDays);
    readInt32(svip, "vip_flag", f.svipFlag);

    const Value& play = reply["play_interests"];
    readInt64(play, "close_ts", f.playInterestsCloseTS);
    readInt64(play, "open_ts", f.playInterestsOpenTS);
    readInt32(play, "expire_day", f.playInterestsExpireDay);
    readInt32(play, "vip_flag", f.playInterestsVipFlag);
    readInt32(play, "is_auto_pay", f.playInterestsIsAutoPay);

    const Value& timeInfo = reply["time_info"];
    readInt64(timeInfo, "expires_ts", f.expireTS);
    readInt32(timeInfo, "left_minute", f.leftMinute);
    readInt32(timeInfo, "origin_left_minute", f.originalLeftMinute);

    const Value& permission = reply["permission"];
    readInt32(permission, "permission_type", f.permissionType);
    readInt32(permission, "permission_value", f.permissionValue);
    readInt32(permission, "permission_end_time", f.permissionEndTime);

    const Value& consumption = reply["consumption"];
    if (consumption.contains("factor")) f.consumptionFactor = consumption["factor"].floatValue();
    readInt32(consumption, "consuming_time", f.consumptionTime);
    if (consumption.contains("discount_factor")) {
        f.discountFactor = static_cast<float>(consumption["discount_factor"].intValue());
    }
    readInt64(consumption, "discount_end_time", f.discountEndTime);

    const Value& ownership = reply["ownership"];
    readInt32(ownership, "in_subscribe_mode", f.subscibeMode);
    readInt32(ownership, "is_game_owner", f.gameOwner);

    const Value& tags = reply["interests_map"];
    if (tags.isAbsent() || tags.isNull()) {
        f.hasNewUserRight = false;
        return;
    }
    InterestMap windows;
    f.hasNewUserRight = tags.contains(kNewUserTag);
    if (f.hasNewUserRight) {
        const Value& newUser = tags[kNewUserTag];
        readInt64(newUser, "open_ts", f.newUserOpenTS);
        readInt64(newUser, "close_ts", f.newUserCloseTS);
        windows.insert_or_assign(std::string(kNewUserTag), InterestDuration(f.newUserOpenTS, f.newUserCloseTS));
    }
    for (const auto tag : kWindowTags) {
        if (!tags.contains(tag)) continue;
        const Value& window = tags[tag];
        const InterestDuration duration(window["open_ts"].longLongValue(), window["close_ts"].longLongValue());
        windows.insert_or_assign(std::string(tag), duration);
    }
    f.interestDict = std::move(windows);
}

bool VipInfo::isVip() const { return vipFlag() > 0; }
bool VipInfo::isSvip() const { return svipFlag() > 0; }

std::int64_t VipInfo::propertyLevel() const {
    std::lock_guard lock(mutex_);
    if (fields_.svipFlag > 0) return 2;
    return fields_.vipFlag > 0 ? 1 : 0;
}

bool VipInfo::isTagTimeValid(std::int64_t openTS, std::int64_t closeTS) const {
    return InterestDuration(openTS, closeTS).isValidAt(baseTS());
}

std::optional<InterestDuration> VipInfo::testGameDuration() const {
    std::lock_guard lock(mutex_);
    if (!fields_.interestDict) return std::nullopt;
    const auto found = fields_.interestDict->find("testing");
    if (found == fields_.interestDict->end()) return std::nullopt;
    return found->second;
}

bool VipInfo::isPermissionMode() const { return permissionType() > 0; }

bool VipInfo::gameWithoutPermission() const {
    std::lock_guard lock(mutex_);
    return fields_.permissionType > 0 && fields_.permissionValue == 0;
}

std::int64_t VipInfo::vipTimeLeft() const { return vipCloseTS(); }
std::int64_t VipInfo::freeTimeLeft() const { return leftMinute(); }
std::int64_t VipInfo::origLeftMinute() const { return originalLeftMinute(); }
bool VipInfo::newUserRightExist() const { return hasNewUserRight(); }
std::string VipInfo::strFactor() const { return factorText(consumptionFactor()); }
std::string VipInfo::strDiscountFactor() const { return factorText(discountFactor()); }
std::optional<VipInfo::InterestMap> VipInfo::interestMaps() const { return interestDict(); }
std::int64_t VipInfo::referenceTS() const { return baseTS(); }
std::int32_t VipInfo::permissionTryTime() const { return permissionEndTime(); }

Value VipInfo::dict() const { return read(&Fields::dict); }
std::int64_t VipInfo::vipOpenTS() const { return read(&Fields::vipOpenTS); }
std::int64_t VipInfo::vipCloseTS() const { return read(&Fields::vipCloseTS); }
std::int32_t VipInfo::expireDays() const { return read(&Fields::expireDays); }
std::int32_t VipInfo::vipFlag() const { return read(&Fields::vipFlag); }
std::int64_t VipInfo::expireTS() const { return read(&Fields::expireTS); }
std::int32_t VipInfo::leftMinute() const { return read(&Fields::leftMinute); }
std::int32_t VipInfo::originalLeftMinute() const { return read(&Fields::originalLeftMinute); }
std::int64_t VipInfo::newUserCloseTS() const { return read(&Fields::newUserCloseTS); }
std::int64_t VipInfo::newUserOpenTS() const { return read(&Fields::newUserOpenTS); }
bool VipInfo::hasNewUserRight() const { return read(&Fields::hasNewUserRight); }
std::int64_t VipInfo::svipOpenTS() const { return read(&Fields::svipOpenTS); }
std::int64_t VipInfo::svipCloseTS() const { return read(&Fields::svipCloseTS); }
std::int32_t VipInfo::svipExpireDays() const { return read(&Fields::svipExpireDays); }
std::int32_t VipInfo::svipFlag() const { return read(&Fields::svipFlag); }
std::int64_t VipInfo::playInterestsOpenTS() const { return read(&Fields::playInterestsOpenTS); }
std::int64_t VipInfo::playInterestsCloseTS() const { return read(&Fields::playInterestsCloseTS); }
std::int32_t VipInfo::playInterestsExpireDay() const { return read(&Fields::playInterestsExpireDay); }
std::int32_t VipInfo::playInterestsVipFlag() const { return read(&Fields::playInterestsVipFlag); }
std::int32_t VipInfo::playInterestsIsAutoPay() const { return read(&Fields::playInterestsIsAutoPay); }
std::int32_t VipInfo::permissionType() const { return read(&Fields::permissionType); }
std::int32_t VipInfo::permissionValue() const { return read(&Fields::permissionValue); }
std::int32_t VipInfo::permissionEndTime() const { return read(&Fields::permissionEndTime); }
float VipInfo::consumptionFactor() const { return read(&Fields::consumptionFactor); }
std::int32_t VipInfo::consumptionTime() const { return read(&Fields::consumptionTime); }
float VipInfo::discountFactor() const { return read(&Fields::discountFactor); }
std::int64_t VipInfo::discountEndTime() const { return read(&Fields::discountEndTime); }
std::optional<VipInfo::InterestMap> VipInfo::interestDict() const { return read(&Fields::interestDict); }
std::int32_t VipInfo::subscibeMode() const { return read(&Fields::subscibeMode); }
std::int32_t VipInfo::gameOwner() const { return read(&Fields::gameOwner); }
std::int64_t VipInfo::baseTS() const { return read(&Fields::baseTS); }

std::optional<std::string> VipInfo::userId() const { return read(&Fields::userId); }
std::optional<std::string> VipInfo::gameId() const { return read(&Fields::gameId); }

void VipInfo::setUserId(std::optional<std::string> userId) {
    std::lock_guard lock(mutex_);
    fields_.userId = std::move(userId);
}

void VipInfo::setGameId(std::optional<std::string> gameId) {
    std::lock_guard lock(mutex_);
    fields_.gameId = std::move(gameId);
}

}  // namespace nb
