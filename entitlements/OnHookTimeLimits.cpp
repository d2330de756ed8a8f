#include "nbbase/entitlements/OnHookTimeLimits.h"

#include "nbbase/entitlements/StableInterest.h"

namespace nb {

const std::optional<OnHookTimeMap>& OnHookTimeLimits::get() const {
    std::call_once(read_, [this] {
        limits_ = StableInterest::maxOnHookInfoFromExtraData(extraData_);
        // The text is not needed again.
        std::string().swap(extraData_);
    });
    return limits_;
}

const std::optional<OnHookTimeMap>& OnHookTimeLimits::of(const std::shared_ptr<const OnHookTimeLimits>& limits) {
    static const std::optional<OnHookTimeMap> none;
    return limits ? limits->get() : none;
}

}  // namespace nb
