// InterestRules: the questions a client asks of the interests store, answered from one snapshot and the
// user's property level: may the user have a picture-quality level or frame rate now, which offers would
// raise them, when the held rights end, when to fetch again, how long he may stay idle in a game, and which
// held rights are only trials.
//
// Every answer comes from the snapshot given, so a client that asks several questions of one InterestRules
// gets answers that agree with each other even while a new reply is being parsed. InterestsInfo builds one
// for each question it forwards, with the level VipInfo reports at that moment.
//
// Conventions the rules share:
// - "Live": a held record is live while its endTime is greater than the snapshot's currentTS, the server's
//   time; equal means ended. The local clock is never consulted.
// - Attribute values compare as 32-bit integers (a server that sends 60.0 or "60" means 60).
// - The base interest of a level that has none, like a missing record, has no values and reads 0.
// - Searches for the level that gives a value run 0, 1, 2 and answer the lowest; the idle-play search
//   (getPropertyByInterest on type 5) runs 2, 1, 0, and clients rely on that order.
//
// Threads: an InterestRules is immutable; any function may be called on any thread.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "nbbase/entitlements/InterestsSnapshot.h"
#include "nbbase/foundation/Value.h"

namespace nb {

class InterestRules {
public:
    // `level`: 0 ordinary, 1 VIP, 2 SVIP. A null snapshot reads as an empty store.
    InterestRules(std::shared_ptr<const InterestsSnapshot> snapshot, std::int64_t level);

    // ---- Values and levels -------------------------------------------------------------------------------

    // The largest value, starting from 0: an empty array, a non-array or only negative values give 0.
    static std::int32_t maxValueOfArray(const Value& values);
    // A new array of the same elements, largest first; equal values in no particular order.
    static Value orderByDesending(const Value& values);
    // Whether an element of `array` has the same 32-bit value as `key`.
    static bool containsKey(const Value& key, const Value& array);
    // Whether the base interest lists the rate; a null base lists nothing.
    static bool belongStableInterest(const StableInterest* base, std::int32_t fps);
    // The text a level's base interest is filed under: its decimal form.
    static std::string userProperty(std::int64_t level);
    static bool needMonitorInterest(std::int32_t type) noexcept;

    // The lowest level whose base interest lists the value; 0 when none does.
    std::int64_t getPropertyByFps(std::int32_t fps) const;
    std::int64_t getPropertyByFrame(std::int32_t frame) const;
    // The level a record corresponds to: by its highest quality level (type 4) or frame rate (type 7), by
    // the first of levels 2, 1 whose base hangup equals its own (type 5, else 0); 0 for other types.
    std::int64_t getPropertyByInterest(const StableInterest& interest) const;

    // ---- Records ---------------------------------------------------------------------------------------

    // The first record of the type in list order, or nullptr.
    std::shared_ptr<const HavingInterest> getHavingInterest(std::int32_t type) const;
    std::shared_ptr<const TriableInterest> getTriableInterest(std::int32_t type) const;
    bool haveHavingInterests(std::int32_t type) const;
    bool haveTriableInterests(std::int32_t type) const;
    bool haveInterests(std::int32_t type) const;

    // ---- Picture quality and frame rate ------------------------------------------------------------------

    // True when the user's level gives the value, or the first held record of its type is live and holds
    // a value at least as high.
    bool hasPictureQualityFrameInterest(std::int32_t frame) const;
    bool hasFpsInterest(std::int32_t fps) const;
    // Offered quality records that would give a level neither the user's level nor a live held record
    // already gives, in list order.
    InterestsSnapshot::TriableList pictureQualityAvailableInterests() const;
    // The rates of `rates` that an offer would unlock: each rate above the live held maximum and not given
    // by the user's level, once for every frame-rate offer of the rate's level that reaches it. A rate two
    // offers unlock appears twice.
    Value fpsAvailableInterests(const Value& rates) const;
    // The first frame-rate offer of the rate's level whose first rate reaches it, or nullptr.
    std::shared_ptr<const TriableInterest> getTriableInterestByFps(std::int32_t fps) const;
    // When the held quality or frame-rate trial ends: {"endTime": int64, "svip": bool}, the later of the two
    // (quality wins a tie), {"endTime": 0, "svip": false} when neither holds a trial value, and absent when
    // the user holds neither kind of record.
    Value pictureQualityAndFpsInterestExpiredTime() const;
    // Whether the first held quality record has ended by server time; false without one.
    bool pictureQualityTriableInterestEnd() const;

    // ---- Expiry, idle play and trials --------------------------------------------------------------------

    // The monitored record (types 4, 5, 7, with an end time above 0) that ends first, held records before
    // offered ones and earlier before later on a tie, as {"elapse": end - currentTS, "property", "type",
    // "isHaving", "isTry", "endTime"}. With nothing to monitor "endTime" is 0 and "elapse" is -currentTS:
    // the caller sees a negative elapse as "fetch now", so it is not clamped, except that a difference
    // beyond 64 bits (server times near the limits) stops at the nearest limit.
    Value getNextCheckInterestsInfoTimerElapse() const;
    // The idle limit in seconds for the game in the first idle-play record that names it: held records when
    // haveInterest, else the limits for users without the right; 0 when none names it. The id must be of
    // the kind the server sent (see OnHookTimeMap).
    std::int64_t maxHangupTimeInSec(const Value& gameId, bool haveInterest) const;
    // {"isTry": bool, "frame": int32}: whether the record's highest trial value exists, and for quality
    // records which level it is. Never absent.
    Value isInterestsTriable(const StableInterest& interest) const;
    bool isCurrentHangupInterestTriable() const;

    const InterestsSnapshot& snapshot() const noexcept { return *snapshot_; }
    std::int64_t level() const noexcept { return level_; }

private:
    const InterestsSnapshot::HavingList& having() const;
    const InterestsSnapshot::TriableList& offered() const;
    // The largest value of `held` whose flag is false: a trial value.
    static std::optional<std::int32_t> firstTrialValue(const Value& held, const InterestsSnapshot::TriableFlags& flags);
    // Highest value of the first held record of the type while it is live, else -1.
    std::int32_t liveHeldMaximum(std::int32_t type) const;
    using Attribute = const Value& (StableInterest::*)() const noexcept;  // fpsAttr or frameAttr
    std::int64_t propertyListing(std::int32_t value, Attribute attribute) const;
    bool hasInterest(std::int32_t type, std::int32_t value, Attribute attribute) const;

    std::shared_ptr<const InterestsSnapshot> snapshot_;
    std::int64_t level_;
    std::shared_ptr<const StableInterest> base_;  // of level_, or nullptr
};

}  // namespace nb
