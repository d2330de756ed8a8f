#include "nbbase/entitlements/InterestsSnapshot.h"

#include <utility>

#include "nbbase/entitlements/InterestRules.h"

namespace nb {
namespace {

// A present section replaces its list; one that is not an array has no elements to read.
template <typename Record, typename Build>
std::shared_ptr<const std::vector<std::shared_ptr<const Record>>> readSection(const Value& section, Build build) {
    auto records = std::make_shared<std::vector<std::shared_ptr<const Record>>>();
    if (const auto* elements = section.asArray()) {
        records->reserve(elements->size());
        for (const auto& element : *elements) records->push_back(build(element));
    }
    return records;
}

}  // namespace

std::shared_ptr<const HavingInterest> InterestsSnapshot::havingRecord(const InterestFields& fields, ReplyForm form) {
    return HavingInterest::fromFields(
        fields, form == ReplyForm::Full ? HavingInterest::HangupMarking::Mark : HavingInterest::HangupMarking::Keep);
}

std::shared_ptr<const TriableInterest> InterestsSnapshot::availableRecord(const InterestFields& fields,
                                                                          ReplyForm form) {
    return TriableInterest::fromFields(
        fields, form == ReplyForm::Full ? TriableInterest::ProductIdForm::Text : TriableInterest::ProductIdForm::AsSent);
}

void InterestsSnapshot::applyInterests(const Value& data, ReplyForm form) {
    currentTS = data["timestamp"].longLongValue();
    if (data.contains("having")) {
        havingInterests = readSection<HavingInterest>(
            data["having"], [form](const Value& element) { return havingRecord(InterestFields::of(element), form); });
    }
    if (data.contains("available_present")) {
        availableIntrests = readSection<TriableInterest>(data["available_present"], [form](const Value& element) {
            return availableRecord(InterestFields::of(element), form);
        });
    }
    if (form == ReplyForm::Full && data.contains("no_having")) {
        noHavingInterests = readSection<NoHavingInterest>(data["no_having"], &NoHavingInterest::fromDictionary);
    }
}

void InterestsSnapshot::applyStableInterests(const Value& data) {
    auto levels = std::make_shared<StableInterestMap>();
    for (const std::int64_t level :
         {StableInterest::kPropertyOrdinary, StableInterest::kPropertyVip, StableInterest::kPropertySvip}) {
        std::string key = InterestRules::userProperty(level);
        if (data.contains(key)) {
            auto base = StableInterest::fromDictionary(data[key]);
            levels->emplace(std::move(key), std::move(base));
        }
    }
    stableInterestDict = std::move(levels);
}

bool InterestsSnapshot::applyTriableFlags(std::int64_t level) {
    hangTriableFlag = false;
    fpsTriableFlag.clear();
    frameTriableFlag.clear();
    const auto base = stableInterest(level);
    if (!base || !havingInterests) return base != nullptr;
    // A value held by two records gets the same answer twice: it depends on the value alone.
    const auto flag = [](TriableFlags& flags, const Value& held, const Value& given) {
        if (const auto* values = held.asArray()) {
            for (const auto& value : *values) flags[value.intValue()] = InterestRules::containsKey(value, given);
        }
    };
    for (const auto& record : *havingInterests) {
        switch (record->type()) {
            case StableInterest::kTypeFps: flag(fpsTriableFlag, record->fpsAttr(), base->fpsAttr()); break;
            case StableInterest::kTypeFrame: flag(frameTriableFlag, record->frameAttr(), base->frameAttr()); break;
            case StableInterest::kTypeHangup:
                if (record->hangup() == 1 && base->hangup() == 0) hangTriableFlag = true;
                break;
            default: break;
        }
    }
    return true;
}

std::shared_ptr<const StableInterest> InterestsSnapshot::stableInterest(std::int64_t level) const {
    if (!stableInterestDict) return nullptr;
    const auto found = stableInterestDict->find(InterestRules::userProperty(level));
    return found == stableInterestDict->end() ? nullptr : found->second;
}

}  // namespace nb
