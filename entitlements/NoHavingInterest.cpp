#include "nbbase/entitlements/NoHavingInterest.h"

#include <string>

namespace nb {

std::shared_ptr<const NoHavingInterest> NoHavingInterest::fromDictionary(const Value& element) {
    return fromFields(InterestFields::of(element));
}

std::shared_ptr<const NoHavingInterest> NoHavingInterest::fromFields(const InterestFields& fields) {
    auto interest = std::make_shared<NoHavingInterest>();
    interest->setType(InterestFields::value(fields.type).intValue());
    if (interest->type() == kTypeHangup) {
        std::string holder;
        interest->maxOnHookInfo_ = std::make_shared<const OnHookTimeLimits>(std::string(fields.extraDataText(holder)));
    }
    return interest;
}

}  // namespace nb
