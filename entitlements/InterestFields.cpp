#include "nbbase/entitlements/InterestFields.h"

namespace nb {

InterestFields InterestFields::of(const Value& element) noexcept {
    InterestFields fields;
    if (const auto* dictionary = element.asDictionary()) {
        fields.type = dictionary->find("type");
        fields.endTime = dictionary->find("end_time");
        fields.extraData = dictionary->find("extra_data");
        fields.productId = dictionary->find("product_id");
        fields.productName = dictionary->find("product_name");
        fields.property = dictionary->find("property");
        fields.expireTime = dictionary->find("expire_time");
    }
    return fields;
}

const Value& InterestFields::value(const Value* field) noexcept {
    static const Value absent;
    return field != nullptr ? *field : absent;
}

std::string_view InterestFields::extraDataText(std::string& holder) const {
    if (extraData == nullptr) return {};
    if (const auto* text = extraData->asString()) return *text;
    holder = extraData->stringValue();
    return holder;
}

}  // namespace nb
