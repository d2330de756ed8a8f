// HavingInterest: an interest the user holds now (an element of "having").
//
// endTime is the server's "end_time" as sent. Whether the right still runs is judged against the server
// time of the last reply, never the local clock: it is live while endTime > that time, so a right whose end
// equals the server time has ended. An endTime of 0 or less means the expiry timer has nothing to watch.
//
// Records are immutable once built; see StableInterest for the rules shared by every record.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "nbbase/entitlements/InterestFields.h"
#include "nbbase/entitlements/OnHookTimeLimits.h"
#include "nbbase/entitlements/StableInterest.h"
#include "nbbase/foundation/Value.h"

namespace nb {

class HavingInterest : public StableInterest {
public:
    // The full interests reply marks a held idle-play right with hangup 1; the unlocked text parser keeps
    // hangup 0 and only fills the limits.
    enum class HangupMarking { Mark, Keep };

    HavingInterest() = default;

    // From one element of "having": "type" and "end_time" (0 when missing), then by type the attribute of
    // "extra_data": 4 frameAttr from its "frame", 7 fpsAttr from its "fps", 5 maxOnHookInfo from its idle
    // limits (and hangup 1 with HangupMarking::Mark). "extra_data" is read as text; see StableInterest for
    // what an empty or broken text gives.
    static std::shared_ptr<const HavingInterest> fromDictionary(const Value& element,
                                                                HangupMarking marking = HangupMarking::Mark);
    // The same from the element's fields alone (what a streaming reader captured).
    static std::shared_ptr<const HavingInterest> fromFields(const InterestFields& fields,
                                                            HangupMarking marking = HangupMarking::Mark);

    bool isLiveAt(std::int64_t serverTS) const noexcept { return endTime_ > serverTS; }
    bool hasEndTime() const noexcept { return endTime_ > 0; }

    std::int64_t endTime() const noexcept { return endTime_; }
    void setEndTime(std::int64_t endTime) noexcept { endTime_ = endTime; }
    // Game id to the longest idle time in seconds in that game; nullopt unless type 5. Read from "extra_data" on
    // the first call, not by the parse: see OnHookTimeLimits.
    const std::optional<OnHookTimeMap>& maxOnHookInfo() const { return OnHookTimeLimits::of(maxOnHookInfo_); }

private:
    std::int64_t endTime_ = 0;
    std::shared_ptr<const OnHookTimeLimits> maxOnHookInfo_;  // null unless type 5
};

}  // namespace nb
