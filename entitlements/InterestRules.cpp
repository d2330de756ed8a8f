#include "nbbase/entitlements/InterestRules.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <utility>

namespace nb {
namespace {

bool lists(const Value& array, std::int32_t value) {
    const auto* elements = array.asArray();
    return elements && std::any_of(elements->begin(), elements->end(),
                                   [value](const Value& element) { return element.intValue() == value; });
}

template <typename List>
const List& orEmpty(const std::shared_ptr<const List>& list) {
    static const List empty;
    return list ? *list : empty;
}

Value triability(bool isTry, std::int32_t frame) {
    return Value::dictionary({{"isTry", isTry}, {"frame", frame}});
}

// end - now, held at the int64 limits: only server times absurdly far apart reach them.
std::int64_t secondsUntil(std::int64_t end, std::int64_t now) {
    std::int64_t elapse = 0;
    if (!__builtin_sub_overflow(end, now, &elapse)) return elapse;
    return now < 0 ? std::numeric_limits<std::int64_t>::max() : std::numeric_limits<std::int64_t>::min();
}

constexpr std::int64_t kLevels[] = {StableInterest::kPropertyOrdinary, StableInterest::kPropertyVip,
                                    StableInterest::kPropertySvip};

}  // namespace

InterestRules::InterestRules(std::shared_ptr<const InterestsSnapshot> snapshot, std::int64_t level)
    : snapshot_(snapshot ? std::move(snapshot) : std::make_shared<const InterestsSnapshot>()),
      level_(level),
      base_(snapshot_->stableInterest(level)) {}

// ---- Values and levels -----------------------------------------------------------------------------------

std::int32_t InterestRules::maxValueOfArray(const Value& values) {
    std::int32_t largest = 0;
    if (const auto* elements = values.asArray()) {
        for (const auto& element : *elements) largest = std::max(largest, element.intValue());
    }
    return largest;
}

Value InterestRules::orderByDesending(const Value& values) {
    Value::Array sorted = values.isArray() ? *values.asArray() : Value::Array{};
    std::sort(sorted.begin(), sorted.end(),
              [](const Value& a, const Value& b) { return a.intValue() > b.intValue(); });
    return Value(std::move(sorted));
}

bool InterestRules::containsKey(const Value& key, const Value& array) { return lists(array, key.intValue()); }

bool InterestRules::belongStableInterest(const StableInterest* base, std::int32_t fps) {
    return base && lists(base->fpsAttr(), fps);
}

std::string InterestRules::userProperty(std::int64_t level) { return std::to_string(level); }

bool InterestRules::needMonitorInterest(std::int32_t type) noexcept { return StableInterest::isMonitoredType(type); }

std::int64_t InterestRules::propertyListing(std::int32_t value, Attribute attribute) const {
    for (const auto level : kLevels) {
        const auto base = snapshot_->stableInterest(level);
        if (base && lists(((*base).*attribute)(), value)) return level;
    }
    return StableInterest::kPropertyOrdinary;
}

std::int64_t InterestRules::getPropertyByFps(std::int32_t fps) const {
    return propertyListing(fps, &StableInterest::fpsAttr);
}

std::int64_t InterestRules::getPropertyByFrame(std::int32_t frame) const {
    return propertyListing(frame, &StableInterest::frameAttr);
}

std::int64_t InterestRules::getPropertyByInterest(const StableInterest& interest) const {
    switch (interest.type()) {
        case StableInterest::kTypeFrame: return getPropertyByFrame(maxValueOfArray(interest.frameAttr()));
        case StableInterest::kTypeFps: return getPropertyByFps(maxValueOfArray(interest.fpsAttr()));
        case StableInterest::kTypeHangup:
            // Highest level first: every level above the ordinary one includes idle play, so the lowest
            // match would always answer 1.
            for (const auto level : {StableInterest::kPropertySvip, StableInterest::kPropertyVip}) {
                const auto base = snapshot_->stableInterest(level);
                if ((base ? base->hangup() : 0) == interest.hangup()) return level;
            }
            return StableInterest::kPropertyOrdinary;
        default: return StableInterest::kPropertyOrdinary;
    }
}

// ---- Records ---------------------------------------------------------------------------------------------

const InterestsSnapshot::HavingList& InterestRules::having() const { return orEmpty(snapshot_->havingInterests); }

const InterestsSnapshot::TriableList& InterestRules::offered() const {
    return orEmpty(snapshot_->availableIntrests);
}

std::shared_ptr<const HavingInterest> InterestRules::getHavingInterest(std::int32_t type) const {
    const auto& list = having();
    const auto found = std::find_if(list.begin(), list.end(), [type](const auto& r) { return r->type() == type; });
    return found == list.end() ? nullptr : *found;
}

std::shared_ptr<const TriableInterest> InterestRules::getTriableInterest(std::int32_t type) const {
    const auto& list = offered();
    const auto found = std::find_if(list.begin(), list.end(), [type](const auto& r) { return r->type() == type; });
    return found == list.end() ? nullptr : *found;
}

bool InterestRules::haveHavingInterests(std::int32_t type) const { return getHavingInterest(type) != nullptr; }

bool InterestRules::haveTriableInterests(std::int32_t type) const { return getTriableInterest(type) != nullptr; }

bool InterestRules::haveInterests(std::int32_t type) const {
    return haveHavingInterests(type) || haveTriableInterests(type);
}

// ---- Picture quality and frame rate ----------------------------------------------------------------------

bool InterestRules::hasInterest(std::int32_t type, std::int32_t value, Attribute attribute) const {
    if (base_ && lists(((*base_).*attribute)(), value)) return true;
    const auto held = getHavingInterest(type);
    if (!held || !held->isLiveAt(snapshot_->currentTS)) return false;
    const auto* values = ((*held).*attribute)().asArray();
    return values && std::any_of(values->begin(), values->end(),
                                 [value](const Value& v) { return v.intValue() >= value; });
}

bool InterestRules::hasPictureQualityFrameInterest(std::int32_t frame) const {
    return hasInterest(StableInterest::kTypeFrame, frame, &StableInterest::frameAttr);
}

bool InterestRules::hasFpsInterest(std::int32_t fps) const {
    return hasInterest(StableInterest::kTypeFps, fps, &StableInterest::fpsAttr);
}

std::int32_t InterestRules::liveHeldMaximum(std::int32_t type) const {
    const auto held = getHavingInterest(type);
    if (!held || !held->isLiveAt(snapshot_->currentTS)) return -1;
    return maxValueOfArray(type == StableInterest::kTypeFps ? held->fpsAttr() : held->frameAttr());
}

InterestsSnapshot::TriableList InterestRules::pictureQualityAvailableInterests() const {
    const std::int32_t heldMaximum = liveHeldMaximum(StableInterest::kTypeFrame);
    const Value& given = base_ ? base_->frameAttr() : Value();
    InterestsSnapshot::TriableList raising;
    for (const auto& offer : offered()) {
        const auto* values = offer->frameAttr().asArray();
        if (offer->type() != StableInterest::kTypeFrame || !values) continue;
        const bool raises = std::any_of(values->begin(), values->end(), [&](const Value& v) {
            return !lists(given, v.intValue()) && v.intValue() > heldMaximum;
        });
        if (raises) raising.push_back(offer);
    }
    return raising;
}

Value InterestRules::fpsAvailableInterests(const Value& rates) const {
    const std::int32_t heldMaximum = liveHeldMaximum(StableInterest::kTypeFps);
    Value unlocked{Value::Array{}};
    const auto* candidates = rates.asArray();
    if (!candidates) return unlocked;
    for (const auto& rate : *candidates) {
        const std::int32_t fps = rate.intValue();
        if (fps <= heldMaximum || belongStableInterest(base_.get(), fps)) continue;
        const std::int64_t property = getPropertyByFps(fps);
        for (const auto& offer : offered()) {
            if (offer->type() == StableInterest::kTypeFps && offer->property() == property &&
                fps <= offer->fpsAttr()[0].intValue()) {
                unlocked.append(rate);
            }
        }
    }
    return unlocked;
}

std::shared_ptr<const TriableInterest> InterestRules::getTriableInterestByFps(std::int32_t fps) const {
    const std::int64_t property = getPropertyByFps(fps);
    for (const auto& offer : offered()) {
        if (offer->type() == StableInterest::kTypeFps && offer->property() == property &&
            offer->fpsAttr()[0].intValue() >= fps) {
            return offer;
        }
    }
    return nullptr;
}

std::optional<std::int32_t> InterestRules::firstTrialValue(const Value& held,
                                                           const InterestsSnapshot::TriableFlags& flags) {
    const Value ordered = orderByDesending(held);
    for (const auto& value : *ordered.asArray()) {
        const auto flag = flags.find(value.intValue());
        if (flag != flags.end() && !flag->second) return flag->first;
    }
    return std::nullopt;
}

Value InterestRules::pictureQualityAndFpsInterestExpiredTime() const {
    const auto frame = getHavingInterest(StableInterest::kTypeFrame);
    const auto fps = getHavingInterest(StableInterest::kTypeFps);
    if (!frame && !fps) return {};
    std::int64_t endTime = 0;
    bool svip = false;
    if (frame && firstTrialValue(frame->frameAttr(), snapshot_->frameTriableFlag)) {
        endTime = frame->endTime();
        svip = getPropertyByFrame(maxValueOfArray(frame->frameAttr())) == StableInterest::kPropertySvip;
    }
    if (fps && firstTrialValue(fps->fpsAttr(), snapshot_->fpsTriableFlag) && fps->endTime() > endTime) {
        endTime = fps->endTime();
        svip = getPropertyByFps(maxValueOfArray(fps->fpsAttr())) == StableInterest::kPropertySvip;
    }
    return Value::dictionary({{"endTime", endTime}, {"svip", svip}});
}

bool InterestRules::pictureQualityTriableInterestEnd() const {
    const auto frame = getHavingInterest(StableInterest::kTypeFrame);
    return frame && !frame->isLiveAt(snapshot_->currentTS);
}

// ---- Expiry, idle play and trials ------------------------------------------------------------------------

Value InterestRules::getNextCheckInterestsInfoTimerElapse() const {
    std::int64_t end = 0;
    const StableInterest* chosen = nullptr;
    bool isHaving = false;
    bool isTry = false;
    // Strictly earlier wins, so on a tie the first record seen stays, and held records are seen first.
    const auto consider = [&](const StableInterest& record, std::int64_t recordEnd, bool held) {
        if (recordEnd <= 0 || !needMonitorInterest(record.type())) return;
        if (end != 0 && recordEnd >= end) return;
        end = recordEnd;
        chosen = &record;
        isHaving = held;
        isTry = held ? isInterestsTriable(record)["isTry"].boolValue() : true;
    };
    for (const auto& record : having()) consider(*record, record->endTime(), true);
    for (const auto& record : offered()) consider(*record, record->endTime(), false);
    return Value::dictionary({
        {"elapse", secondsUntil(end, snapshot_->currentTS)},
        {"property", static_cast<std::int32_t>(chosen ? getPropertyByInterest(*chosen) : 0)},
        {"type", chosen ? chosen->type() : 0},
        {"isHaving", isHaving},
        {"isTry", isTry},
        {"endTime", end},
    });
}

std::int64_t InterestRules::maxHangupTimeInSec(const Value& gameId, bool haveInterest) const {
    const auto limitIn = [&gameId](const auto& list) -> const Value* {
        for (const auto& record : list) {
            if (record->type() != StableInterest::kTypeHangup || !record->maxOnHookInfo()) continue;
            if (const Value* seconds = record->maxOnHookInfo()->find(gameId)) return seconds;
        }
        return nullptr;
    };
    const Value* seconds = haveInterest ? limitIn(having()) : limitIn(orEmpty(snapshot_->noHavingInterests));
    return seconds ? seconds->longLongValue() : 0;
}

Value InterestRules::isInterestsTriable(const StableInterest& interest) const {
    switch (interest.type()) {
        case StableInterest::kTypeFrame: {
            const auto trial = firstTrialValue(interest.frameAttr(), snapshot_->frameTriableFlag);
            return triability(trial.has_value(), trial.value_or(0));
        }
        case StableInterest::kTypeFps:  // the rate found is not reported
            return triability(firstTrialValue(interest.fpsAttr(), snapshot_->fpsTriableFlag).has_value(), 0);
        case StableInterest::kTypeHangup: return triability(snapshot_->hangTriableFlag, 0);
        default: return triability(false, 0);
    }
}

bool InterestRules::isCurrentHangupInterestTriable() const {
    return haveHavingInterests(StableInterest::kTypeHangup) && snapshot_->hangTriableFlag;
}

}  // namespace nb
