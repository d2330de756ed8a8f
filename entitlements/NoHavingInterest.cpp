#include "nbbase/entitlements/NoHavingInterest.h"

#include <string>

namespace nb {

std::shared_ptr<const NoHavingInterest> NoHavingInterest::fromDictionary(const Value& element) {
    auto interest = std::make_shared<NoHavingInterest>();
    interest->setType(element["type"].intValue());
    if (interest->type() == kTypeHangup) {
        interest->setMaxOnHookInfo(maxOnHookInfoFromExtraData(element["extra_data"].stringValue()));
    }
    return interest;
}

}  // namespace nb
