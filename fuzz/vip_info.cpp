// Any bytes as a VIP reply, on a fresh record: the parse must answer true, and every reading afterwards must
// hold together (the property level follows the flags, the tag map agrees with the new-user right, and
// bytes that are not a JSON object leave the tag map as it was).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "nbbase/entitlements/VipInfo.h"

namespace {

void check(bool condition) {
    if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    nb::VipInfo vip;
    check(vip.parse(nb::Data(data, data + size)));

    const auto level = vip.propertyLevel();
    check(level == (vip.isSvip() ? 2 : vip.isVip() ? 1 : 0));
    check(vip.isVip() == (vip.vipFlag() > 0) && vip.isSvip() == (vip.svipFlag() > 0));
    check(vip.vipTimeLeft() == vip.vipCloseTS());
    check(vip.freeTimeLeft() == vip.leftMinute() && vip.origLeftMinute() == vip.originalLeftMinute());
    check(vip.referenceTS() == vip.baseTS() && vip.permissionTryTime() == vip.permissionEndTime());
    check(vip.gameWithoutPermission() == (vip.isPermissionMode() && vip.permissionValue() == 0));
    check(!vip.strFactor().empty() && !vip.strDiscountFactor().empty());
    check(vip.discountFactor() == static_cast<float>(static_cast<std::int64_t>(vip.discountFactor())));

    const auto tags = vip.interestMaps();
    check(tags == vip.interestDict());
    if (!vip.dict().isDictionary()) check(!tags.has_value());
    check(!vip.newUserRightExist() || (tags && tags->contains("pid-new-user-unlimitplay")));
    if (const auto testing = vip.testGameDuration()) check(tags && tags->at("testing") == *testing);
    (void)vip.isTagTimeValid(vip.vipOpenTS(), vip.vipCloseTS());
    (void)vip.isTagTimeValid(vip.newUserOpenTS(), vip.newUserCloseTS());

    // Everything else is read once so that a fault in any conversion shows up here.
    (void)vip.expireDays(), (void)vip.expireTS(), (void)vip.hasNewUserRight(), (void)vip.svipOpenTS();
    (void)vip.svipCloseTS(), (void)vip.svipExpireDays(), (void)vip.playInterestsOpenTS();
    (void)vip.playInterestsCloseTS(), (void)vip.playInterestsExpireDay(), (void)vip.playInterestsVipFlag();
    (void)vip.playInterestsIsAutoPay(), (void)vip.permissionType(), (void)vip.consumptionFactor();
    (void)vip.consumptionTime(), (void)vip.discountEndTime(), (void)vip.subscibeMode(), (void)vip.gameOwner();
    (void)vip.userId(), (void)vip.gameId();
    return 0;
}
