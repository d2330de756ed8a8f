#include "nbbase/entitlements/TriableInterest.h"

#include <string>

namespace nb {

std::shared_ptr<const TriableInterest> TriableInterest::fromDictionary(const Value& element, ProductIdForm form) {
    auto interest = std::make_shared<TriableInterest>();
    interest->setType(element["type"].intValue());
    interest->setEndTime(element["end_time"].longLongValue());
    if (element.contains("product_id")) {
        const Value& productId = element["product_id"];
        interest->setProductId(form == ProductIdForm::Text ? Value(productId.stringValue()) : productId);
    }
    if (element.contains("product_name")) interest->setProductName(element["product_name"].stringValue());
    interest->setProperty(element["property"].intValue());
    interest->setExpireTime(element["expire_time"].intValue());
    if (element.contains("extra_data")) {
        interest->setAttrsFromExtraData(element["extra_data"].stringValue());
        if (interest->type() == kTypeHangup) interest->setHangup(1);
    }
    return interest;
}

}  // namespace nb
