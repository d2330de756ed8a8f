#include "nbbase/entitlements/HavingInterest.h"

#include <string>

namespace nb {

std::shared_ptr<const HavingInterest> HavingInterest::fromDictionary(const Value& element,
                                                                     HangupMarking marking) {
    return fromFields(InterestFields::of(element), marking);
}

std::shared_ptr<const HavingInterest> HavingInterest::fromFields(const InterestFields& fields,
                                                                 HangupMarking marking) {
    auto interest = std::make_shared<HavingInterest>();
    interest->setType(InterestFields::value(fields.type).intValue());
    interest->setEndTime(InterestFields::value(fields.endTime).longLongValue());
    std::string holder;
    const std::string_view extraData = fields.extraDataText(holder);
    interest->setAttrsFromExtraData(extraData);
    if (interest->type() == kTypeHangup) {
        if (marking == HangupMarking::Mark) interest->setHangup(1);
        interest->maxOnHookInfo_ = std::make_shared<const OnHookTimeLimits>(std::string(extraData));
    }
    return interest;
}

}  // namespace nb
