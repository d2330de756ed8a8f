// What every answer of InterestRules must keep whatever reply its snapshot came from, shared by the interests
// fuzz targets. The checks compare the rules with each other and with the records they read rather than
// with expected values, so they hold for any input; a broken one aborts and libFuzzer keeps the input.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <limits>
#include <memory>
#include <string_view>
#include <utility>

#include "nbbase/entitlements/InterestRules.h"
#include "nbbase/entitlements/InterestsSnapshot.h"
#include "nbbase/entitlements/OnHookTimeMap.h"
#include "nbbase/foundation/Value.h"

namespace nbfuzz {

inline void check(bool condition) {
    if (!condition) std::abort();
}

// The values clients ask about, with the edges of the 32-bit comparison.
constexpr std::int32_t kAsked[] = {std::numeric_limits<std::int32_t>::min(), -1, 0, 1, 2, 3, 4, 30, 60, 90, 120,
                                   std::numeric_limits<std::int32_t>::max()};

inline bool listsValue(const nb::Value& array, std::int32_t value) {
    const auto* elements = array.asArray();
    return elements && std::any_of(elements->begin(), elements->end(),
                                   [value](const nb::Value& element) { return element.intValue() == value; });
}

// A dictionary with exactly these keys, each of the kind given.
using Keys = std::initializer_list<std::pair<std::string_view, nb::Value::Kind>>;
inline bool hasExactly(const nb::Value& value, Keys keys) {
    if (!value.isDictionary() || value.size() != keys.size()) return false;
    return std::all_of(keys.begin(), keys.end(), [&](const auto& key) {
        return value.contains(key.first) && value[key.first].kind() == key.second;
    });
}

// A list the snapshot has not received yet reads as empty, as the rules read it.
template <typename List>
const List& orEmpty(const std::shared_ptr<const List>& list) {
    static const List empty;
    return list ? *list : empty;
}

template <typename List, typename Record>
bool holds(const List& list, const Record& record) {
    return std::any_of(list.begin(), list.end(), [&](const auto& r) { return r == record; });
}

// A hashed lookup must find every entry where the entry list has it, and no two entries may be equal keys:
// Value's equality (1234 == 1234.0) and the map's hash have to agree.
inline void checkLimits(const nb::OnHookTimeMap& limits) {
    const auto& entries = limits.entries();
    for (std::size_t i = 0; i < entries.size(); ++i) {
        check(limits.find(entries[i].first) == &entries[i].second);
        if (entries.size() > 64) continue;  // the pairs of a long map would dominate the run
        for (std::size_t j = 0; j < i; ++j) check(!(entries[j].first == entries[i].first));
    }
}

// The idle limit the first type-5 record of `list` naming the game gives, found by walking the entries.
template <typename List>
std::int64_t firstLimit(const List& list, const nb::Value& gameId) {
    for (const auto& record : list) {
        if (record->type() != nb::StableInterest::kTypeHangup || !record->maxOnHookInfo()) continue;
        for (const auto& [id, seconds] : record->maxOnHookInfo()->entries()) {
            if (id == gameId) return seconds.longLongValue();
        }
    }
    return 0;
}

template <typename List>
void checkIdleLimits(const nb::InterestRules& rules, const List& list, bool haveInterest) {
    const auto ask = [&](const nb::Value& id) {
        check(rules.maxHangupTimeInSec(id, haveInterest) == firstLimit(list, id));
    };
    for (const auto& record : list) {
        if (!record->maxOnHookInfo()) continue;
        checkLimits(*record->maxOnHookInfo());
        for (const auto& entry : record->maxOnHookInfo()->entries()) ask(entry.first);
    }
    for (const nb::Value& id : {nb::Value("1234"), nb::Value(1234), nb::Value(1234.0), nb::Value(true)}) ask(id);
}

inline void checkTriability(const nb::InterestRules& rules, const nb::StableInterest& record) {
    const auto& snapshot = rules.snapshot();
    const nb::Value answer = rules.isInterestsTriable(record);
    check(hasExactly(answer, {{"isTry", nb::Value::Kind::Bool}, {"frame", nb::Value::Kind::Integer}}));
    const bool isTry = answer["isTry"].boolValue();
    const std::int32_t frame = answer["frame"].intValue();
    check(frame == 0 || (record.type() == nb::StableInterest::kTypeFrame && isTry));
    switch (record.type()) {
        case nb::StableInterest::kTypeFrame:
            if (isTry) {
                const auto flag = snapshot.frameTriableFlag.find(frame);
                check(flag != snapshot.frameTriableFlag.end() && !flag->second);
                check(listsValue(record.frameAttr(), frame));
            }
            break;
        case nb::StableInterest::kTypeFps:
            if (isTry) {
                const auto* values = record.fpsAttr().asArray();
                check(values && std::any_of(values->begin(), values->end(), [&](const nb::Value& v) {
                          const auto flag = snapshot.fpsTriableFlag.find(v.intValue());
                          return flag != snapshot.fpsTriableFlag.end() && !flag->second;
                      }));
            }
            break;
        case nb::StableInterest::kTypeHangup: check(isTry == snapshot.hangTriableFlag); break;
        default: check(!isTry); break;
    }
}

// The timer: the six keys always, elapse measured from the snapshot's server time, and the record named is
// the monitored one that ends first, held records winning a tie.
inline void checkTimer(const nb::InterestRules& rules) {
    using Kind = nb::Value::Kind;
    const auto& snapshot = rules.snapshot();
    const nb::Value timer = rules.getNextCheckInterestsInfoTimerElapse();
    check(hasExactly(timer, {{"elapse", Kind::Integer},
                             {"property", Kind::Integer},
                             {"type", Kind::Integer},
                             {"isHaving", Kind::Bool},
                             {"isTry", Kind::Bool},
                             {"endTime", Kind::Integer}}));
    const std::int64_t endTime = timer["endTime"].longLongValue();
    // The difference itself, or the nearest int64 limit when it does not fit.
    std::int64_t elapse = 0;
    if (__builtin_sub_overflow(endTime, snapshot.currentTS, &elapse)) {
        elapse = snapshot.currentTS < 0 ? std::numeric_limits<std::int64_t>::max()
                                        : std::numeric_limits<std::int64_t>::min();
    }
    check(timer["elapse"].longLongValue() == elapse);
    const bool isHaving = timer["isHaving"].boolValue();
    const std::int32_t type = timer["type"].intValue();

    const auto monitored = [](const auto& record) {
        return record->endTime() > 0 && nb::StableInterest::isMonitoredType(record->type());
    };
    const nb::StableInterest* firstHeld = nullptr;
    const nb::StableInterest* firstOffered = nullptr;
    for (const auto& record : orEmpty(snapshot.havingInterests)) {
        if (!monitored(record)) continue;
        check(endTime != 0 && endTime <= record->endTime());
        if (!firstHeld && record->endTime() == endTime) firstHeld = record.get();
    }
    for (const auto& record : orEmpty(snapshot.availableIntrests)) {
        if (!monitored(record)) continue;
        check(endTime != 0 && endTime <= record->endTime());
        if (!firstOffered && record->endTime() == endTime) firstOffered = record.get();
    }
    if (endTime == 0) {
        check(type == 0 && timer["property"].intValue() == 0 && !isHaving && !timer["isTry"].boolValue());
        return;
    }
    const nb::StableInterest* chosen = firstHeld ? firstHeld : firstOffered;
    check(chosen && isHaving == (firstHeld != nullptr) && type == chosen->type());
    check(timer["property"].longLongValue() == rules.getPropertyByInterest(*chosen));
    check(timer["isTry"].boolValue() == (isHaving ? rules.isInterestsTriable(*chosen)["isTry"].boolValue() : true));
}

// Every rule of one InterestRules, against the others and the records of its snapshot.
inline void checkRules(const nb::InterestRules& rules) {
    const auto& snapshot = rules.snapshot();
    const auto base = snapshot.stableInterest(rules.level());
    const auto& held = orEmpty(snapshot.havingInterests);
    const auto& offered = orEmpty(snapshot.availableIntrests);
    const auto& notHeld = orEmpty(snapshot.noHavingInterests);

    // What the level gives, the user has.
    for (const std::int32_t value : kAsked) {
        const bool fps = rules.hasFpsInterest(value);
        const bool frame = rules.hasPictureQualityFrameInterest(value);
        if (base && listsValue(base->fpsAttr(), value)) check(fps);
        if (base && listsValue(base->frameAttr(), value)) check(frame);
        const auto offer = rules.getTriableInterestByFps(value);
        if (offer) {
            check(offer->type() == nb::StableInterest::kTypeFps && holds(offered, offer));
            check(offer->property() == rules.getPropertyByFps(value) && offer->fpsAttr()[0].intValue() >= value);
        }
    }

    // An offer is listed only when it raises the quality past what the user has, in list order.
    auto next = offered.begin();
    for (const auto& offer : rules.pictureQualityAvailableInterests()) {
        next = std::find(next, offered.end(), offer);
        check(next != offered.end() && offer->type() == nb::StableInterest::kTypeFrame);
        const auto* values = offer->frameAttr().asArray();
        check(values && std::any_of(values->begin(), values->end(), [&](const nb::Value& v) {
                  return !rules.hasPictureQualityFrameInterest(v.intValue());
              }));
    }

    // Only rates that were asked about and that the user does not have, at most once per frame-rate offer.
    const nb::Value rates = nb::Value::array({30, 60, 90, 120});
    const nb::Value unlocked = rules.fpsAvailableInterests(rates);
    check(unlocked.isArray());
    const auto fpsOffers = std::count_if(offered.begin(), offered.end(),
                                         [](const auto& o) { return o->type() == nb::StableInterest::kTypeFps; });
    for (const auto& rate : *unlocked.asArray()) {
        check(std::find(rates.asArray()->begin(), rates.asArray()->end(), rate) != rates.asArray()->end());
        check(!rules.hasFpsInterest(rate.intValue()));
        check(std::count(unlocked.asArray()->begin(), unlocked.asArray()->end(), rate) <= fpsOffers);
    }

    const auto frameHeld = rules.getHavingInterest(nb::StableInterest::kTypeFrame);
    const auto fpsHeld = rules.getHavingInterest(nb::StableInterest::kTypeFps);
    const nb::Value expiry = rules.pictureQualityAndFpsInterestExpiredTime();
    if (!frameHeld && !fpsHeld) {
        check(expiry.isAbsent());
    } else {
        check(hasExactly(expiry, {{"endTime", nb::Value::Kind::Integer}, {"svip", nb::Value::Kind::Bool}}));
        const std::int64_t end = expiry["endTime"].longLongValue();
        check(end == 0 || (frameHeld && end == frameHeld->endTime()) || (fpsHeld && end == fpsHeld->endTime()));
    }
    check(rules.pictureQualityTriableInterestEnd() == (frameHeld && !frameHeld->isLiveAt(snapshot.currentTS)));
    check(rules.isCurrentHangupInterestTriable() ==
          (rules.haveHavingInterests(nb::StableInterest::kTypeHangup) && snapshot.hangTriableFlag));

    checkTimer(rules);
    checkIdleLimits(rules, held, true);
    checkIdleLimits(rules, notHeld, false);
    for (const auto& record : held) checkTriability(rules, *record);
    for (const auto& record : offered) checkTriability(rules, *record);
}

// The trial flags as a parse or checkUserInterestsTriableInfo left them for `level`: a value is a trial
// exactly when the level's base interest does not list it, and only held values are flagged.
inline void checkFlags(const nb::InterestsSnapshot& snapshot, std::int64_t level) {
    const auto base = snapshot.stableInterest(level);
    if (!base) {
        check(snapshot.fpsTriableFlag.empty() && snapshot.frameTriableFlag.empty() && !snapshot.hangTriableFlag);
        return;
    }
    const auto& held = orEmpty(snapshot.havingInterests);
    const auto heldValue = [&](std::int32_t type, std::int32_t value) {
        return std::any_of(held.begin(), held.end(), [&](const auto& r) {
            return r->type() == type && listsValue(type == nb::StableInterest::kTypeFps ? r->fpsAttr() : r->frameAttr(),
                                                   value);
        });
    };
    for (const auto& [value, given] : snapshot.fpsTriableFlag) {
        check(given == listsValue(base->fpsAttr(), value) && heldValue(nb::StableInterest::kTypeFps, value));
    }
    for (const auto& [value, given] : snapshot.frameTriableFlag) {
        check(given == listsValue(base->frameAttr(), value) && heldValue(nb::StableInterest::kTypeFrame, value));
    }
    const bool heldIdle = std::any_of(held.begin(), held.end(), [](const auto& r) {
        return r->type() == nb::StableInterest::kTypeHangup && r->hangup() == 1;
    });
    check(snapshot.hangTriableFlag == (heldIdle && base->hangup() == 0));
}

}  // namespace nbfuzz
