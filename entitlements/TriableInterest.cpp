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
        const std::string extraData = element["extra_data"].stringValue();
        switch (interest->type()) {
            case kTypeFrame:
                interest->setFrameAttr(arrayFromExtraData(extraData, "frame"));
                break;
            case kTypeFps:
                interest->setFpsAttr(arrayFromExtraData(extraData, "fps"));
                break;
            case kTypeHangup:
                interest->setHangup(1);
                break;
            default:
                break;
        }
    }
    return interest;
}

}  // namespace nb
