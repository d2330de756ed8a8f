#include "nbbase/entitlements/HavingInterest.h"

#include <string>

namespace nb {

std::shared_ptr<const HavingInterest> HavingInterest::fromDictionary(const Value& element,
                                                                     HangupMarking marking) {
    auto interest = std::make_shared<HavingInterest>();
    interest->setType(element["type"].intValue());
    interest->setEndTime(element["end_time"].longLongValue());
    const std::string extraData = element["extra_data"].stringValue();
    interest->setAttrsFromExtraData(extraData);
    if (interest->type() == kTypeHangup) {
        if (marking == HangupMarking::Mark) interest->setHangup(1);
        interest->setMaxOnHookInfo(maxOnHookInfoFromExtraData(extraData));
    }
    return interest;
}

}  // namespace nb
