// TriableInterest: an interest offered to the user to try or take (an element of "available_present").
//
// expireTime is kept for the client and not interpreted here; userData is the client's own field, which no
// parse sets. An end time of 0 or less means the expiry timer has nothing to watch.
//
// Records are immutable once built; see StableInterest for the rules shared by every record.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <optional>
#include <string>

#include "nbbase/entitlements/InterestFields.h"
#include "nbbase/entitlements/StableInterest.h"
#include "nbbase/foundation/Value.h"

namespace nb {

class TriableInterest : public StableInterest {
public:
    // The full interests reply stores "product_id" as text (a number becomes its decimal text); the unlocked
    // text parser keeps it as the JSON gave it.
    enum class ProductIdForm { Text, AsSent };

    TriableInterest() = default;

    // From one element of "available_present": "type", "end_time", "product_id", "product_name", "property"
    // (a 32-bit integer widened with its sign) and "expire_time", each only when present. Only when
    // "extra_data" is present: type 4 frameAttr from its "frame", 7 fpsAttr from its "fps", 5 hangup 1 (an
    // offered right carries no idle limits).
    static std::shared_ptr<const TriableInterest> fromDictionary(const Value& element,
                                                                 ProductIdForm form = ProductIdForm::Text);
    // The same from the element's fields alone (what a streaming reader captured).
    static std::shared_ptr<const TriableInterest> fromFields(const InterestFields& fields,
                                                             ProductIdForm form = ProductIdForm::Text);

    bool hasEndTime() const noexcept { return endTime_ > 0; }

    std::int32_t expireTime() const noexcept { return expireTime_; }
    void setExpireTime(std::int32_t expireTime) noexcept { expireTime_ = expireTime; }
    std::int32_t userData() const noexcept { return userData_; }
    void setUserData(std::int32_t userData) noexcept { userData_ = userData; }
    // Absent when the offer had none; a string, or with ProductIdForm::AsSent whatever kind the JSON held.
    const Value& productId() const noexcept { return productId_; }
    void setProductId(Value productId) { productId_ = std::move(productId); }
    const std::optional<std::string>& productName() const noexcept { return productName_; }
    void setProductName(std::optional<std::string> productName) { productName_ = std::move(productName); }
    std::int64_t endTime() const noexcept { return endTime_; }
    void setEndTime(std::int64_t endTime) noexcept { endTime_ = endTime; }
    std::int64_t property() const noexcept { return property_; }
    void setProperty(std::int64_t property) noexcept { property_ = property; }

private:
    std::int32_t expireTime_ = 0;
    std::int32_t userData_ = 0;
    Value productId_;
    std::optional<std::string> productName_;
    std::int64_t endTime_ = 0;
    std::int64_t property_ = 0;
};

}  // namespace nb
