// NoHavingInterest: a right the user does not hold whose limits still apply to him (an element of
// "no_having"); in practice the idle limits of type 5 for a user without idle play.
//
// Records are immutable once built; see StableInterest for the rules shared by every record.
#pragma once

#include <memory>
#include <optional>
#include <utility>

#include "nbbase/entitlements/InterestFields.h"
#include "nbbase/entitlements/OnHookTimeLimits.h"
#include "nbbase/entitlements/StableInterest.h"
#include "nbbase/foundation/Value.h"

namespace nb {

class NoHavingInterest : public StableInterest {
public:
    NoHavingInterest() = default;

    // From one element of "no_having": "type" (0 when missing); for type 5 the idle limits of "extra_data".
    static std::shared_ptr<const NoHavingInterest> fromDictionary(const Value& element);
    // The same from the element's fields alone (what a streaming reader captured).
    static std::shared_ptr<const NoHavingInterest> fromFields(const InterestFields& fields);

    // Game id to the longest idle time in seconds; nullopt unless type 5. Read from "extra_data" on
    // the first call, not by the parse: see OnHookTimeLimits.
    const std::optional<OnHookTimeMap>& maxOnHookInfo() const { return OnHookTimeLimits::of(maxOnHookInfo_); }

private:
    std::shared_ptr<const OnHookTimeLimits> maxOnHookInfo_;  // null unless type 5
};

}  // namespace nb
