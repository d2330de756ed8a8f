#include "nbbase/entitlements/TriableInterest.h"

#include <string>

namespace nb {

std::shared_ptr<const TriableInterest> TriableInterest::fromDictionary(const Value& element, ProductIdForm form) {
    return fromFields(InterestFields::of(element), form);
}

std::shared_ptr<const TriableInterest> TriableInterest::fromFields(const InterestFields& fields, ProductIdForm form) {
    auto interest = std::make_shared<TriableInterest>();
    interest->setType(InterestFields::value(fields.type).intValue());
    interest->setEndTime(InterestFields::value(fields.endTime).longLongValue());
    if (fields.productId != nullptr) {
        const Value& productId = *fields.productId;
        interest->setProductId(form == ProductIdForm::Text ? Value(productId.stringValue()) : productId);
    }
    if (fields.productName != nullptr) interest->setProductName(fields.productName->stringValue());
    interest->setProperty(InterestFields::value(fields.property).intValue());
    interest->setExpireTime(InterestFields::value(fields.expireTime).intValue());
    if (fields.extraData != nullptr) {
        std::string holder;
        interest->setAttrsFromExtraData(fields.extraDataText(holder));
        if (interest->type() == kTypeHangup) interest->setHangup(1);
    }
    return interest;
}

}  // namespace nb
