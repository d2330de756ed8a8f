// VipInfo: the user's membership state for the current game, as the last VIP reply described it.
//
// The client hands the reply to parse() (raw JSON bytes) or parseDictionaryData() (already decoded); this
// class fetches nothing. Every key is tested for presence before it is converted: a missing key (or a
// section that is not an object) leaves its field as it was, a present one converts by Value's Foundation
// rules whatever its kind. Nothing is cleared between replies except through the tag map rules:
// - "interests_map" missing or null: hasNewUserRight becomes false, the tag windows stay;
// - otherwise the tag windows are replaced by those of this reply, and hasNewUserRight says whether
//   "pid-new-user-unlimitplay" was among them.
// Bytes that are not JSON leave dict absent and change nothing else but hasNewUserRight (false), as a
// reply without a tag map would. Both parses always answer true.
//
// "discount_factor" is read as an integer before it becomes a float, so 0.8 gives 0, while "factor" keeps
// its fraction; clients show the two through strFactor() and strDiscountFactor() and rely on that reading.
//
// Tag windows and the right to play are judged against the reply's own server time ("ts", referenceTS()),
// never the local clock.
//
// Threads: any function may be called on any thread, a parse racing reads included. Every field is guarded
// by one mutex, and a parse applies a whole reply under it, so a reader sees the state before or after a
// reply, never half of one. Decoding runs outside the lock. sharedInstance() is created once, thread-safely,
// on first use and never destroyed; the public constructor gives tests a fresh record.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "nbbase/entitlements/InterestDuration.h"
#include "nbbase/foundation/Value.h"

namespace nb {

class VipInfo {
public:
    // Tag ("unlimited-play", "idle-time", "limited-free", "testing", "pid-new-user-unlimitplay") to window.
    using InterestMap = std::map<std::string, InterestDuration, std::less<>>;

    static VipInfo& sharedInstance();

    VipInfo() = default;
    VipInfo(const VipInfo&) = delete;
    VipInfo& operator=(const VipInfo&) = delete;

    bool parse(const Data& bytes);
    bool parseDictionaryData(const Value& dictionary);

    bool isVip() const;
    bool isSvip() const;
    // 2 for SVIP, else 1 for VIP, else 0: the level base interests are filed under.
    std::int64_t propertyLevel() const;
    bool isTagTimeValid(std::int64_t openTS, std::int64_t closeTS) const;  // rules of InterestDuration
    std::optional<InterestDuration> testGameDuration() const;              // the "testing" window
    bool isPermissionMode() const;
    bool gameWithoutPermission() const;  // permission mode without any permission held

    std::int64_t vipTimeLeft() const;  // the end of VIP itself, not a difference
    std::int64_t freeTimeLeft() const;  // minutes
    std::int64_t origLeftMinute() const;
    bool newUserRightExist() const;
    std::string strFactor() const;
    std::string strDiscountFactor() const;
    std::optional<InterestMap> interestMaps() const;  // nullopt until a reply carried a tag map
    std::int64_t referenceTS() const;
    std::int32_t permissionTryTime() const;

    Value dict() const;  // the last reply parse() decoded, absent after bytes that were not JSON
    std::int64_t vipOpenTS() const;
    std::int64_t vipCloseTS() const;
    std::int32_t expireDays() const;
    std::int32_t vipFlag() const;
    std::int64_t expireTS() const;
    std::int32_t leftMinute() const;
    std::int32_t originalLeftMinute() const;
    std::int64_t newUserCloseTS() const;
    std::int64_t newUserOpenTS() const;
    bool hasNewUserRight() const;
    std::int64_t svipOpenTS() const;
    std::int64_t svipCloseTS() const;
    std::int32_t svipExpireDays() const;
    std::int32_t svipFlag() const;
    std::int64_t playInterestsOpenTS() const;
    std::int64_t playInterestsCloseTS() const;
    std::int32_t playInterestsExpireDay() const;
    std::int32_t playInterestsVipFlag() const;
    std::int32_t playInterestsIsAutoPay() const;
    std::int32_t permissionType() const;
    std::int32_t permissionValue() const;
    std::int32_t permissionEndTime() const;
    float consumptionFactor() const;
    std::int32_t consumptionTime() const;
    float discountFactor() const;
    std::int64_t discountEndTime() const;
    std::optional<InterestMap> interestDict() const;
    std::int32_t subscibeMode() const;
    std::int32_t gameOwner() const;
    std::int64_t baseTS() const;

    // Set by the client; no reply touches them.
    std::optional<std::string> userId() const;
    void setUserId(std::optional<std::string> userId);
    std::optional<std::string> gameId() const;
    void setGameId(std::optional<std::string> gameId);

private:
    struct Fields {
        Value dict;
        std::int64_t vipOpenTS = 0;
        std::int64_t vipCloseTS = 0;
        std::int32_t expireDays = 0;
        std::int32_t vipFlag = 0;
        std::int64_t expireTS = 0;
        std::int32_t leftMinute = 0;
        std::int32_t originalLeftMinute = 0;
        std::int64_t newUserCloseTS = 0;
        std::int64_t newUserOpenTS = 0;
        bool hasNewUserRight = false;
        std::int64_t svipOpenTS = 0;
        std::int64_t svipCloseTS = 0;
        std::int32_t svipExpireDays = 0;
        std::int32_t svipFlag = 0;
        std::int64_t playInterestsOpenTS = 0;
        std::int64_t playInterestsCloseTS = 0;
        std::int32_t playInterestsExpireDay = 0;
        std::int32_t playInterestsVipFlag = 0;
        std::int32_t playInterestsIsAutoPay = 0;
        std::int32_t permissionType = 0;
        std::int32_t permissionValue = 0;
        std::int32_t permissionEndTime = 0;
        float consumptionFactor = 0;
        std::int32_t consumptionTime = 0;
        float discountFactor = 0;
        std::int64_t discountEndTime = 0;
        std::optional<InterestMap> interestDict;
        std::int32_t subscibeMode = 0;
        std::int32_t gameOwner = 0;
        std::int64_t baseTS = 0;
        std::optional<std::string> userId;
        std::optional<std::string> gameId;
    };

    static void apply(Fields& fields, const Value& reply);

    template <typename T>
    T read(T Fields::*field) const {
        std::lock_guard lock(mutex_);
        return fields_.*field;
    }

    mutable std::mutex mutex_;
    Fields fields_;  // guarded by mutex_
};

}  // namespace nb
