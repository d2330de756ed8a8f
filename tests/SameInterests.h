// Strict equality of two interests snapshots, record by record, for checks that two ways of parsing a reply
// build the same store. Values must agree in kind as well as by Value's equality (which takes 1 for true),
// map entries in order, and the lists by content rather than by pointer.
//
// Threads: reads published snapshots only; any thread.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "nbbase/entitlements/InterestsSnapshot.h"
#include "nbbase/foundation/Value.h"

namespace nbtest {

inline bool sameValue(const nb::Value& a, const nb::Value& b) {
    if (a.kind() != b.kind() || !(a == b)) return false;
    if (const auto* items = a.asArray()) {
        for (std::size_t i = 0; i < items->size(); ++i) {
            if (!sameValue((*items)[i], b[i])) return false;
        }
    }
    if (const auto* entries = a.asDictionary()) {
        auto other = b.asDictionary()->begin();
        for (const auto& [key, value] : *entries) {
            if (key != other->first || !sameValue(value, other->second)) return false;
            ++other;
        }
    }
    return true;
}

inline bool sameLimits(const std::optional<nb::OnHookTimeMap>& a, const std::optional<nb::OnHookTimeMap>& b) {
    if (a.has_value() != b.has_value()) return false;
    if (!a) return true;
    if (a->size() != b->size()) return false;
    for (std::size_t i = 0; i < a->size(); ++i) {
        const auto& [gameA, secondsA] = a->entries()[i];
        const auto& [gameB, secondsB] = b->entries()[i];
        if (!sameValue(gameA, gameB) || !sameValue(secondsA, secondsB)) return false;
    }
    return true;
}

inline bool sameBase(const nb::StableInterest& a, const nb::StableInterest& b) {
    return a.type() == b.type() && a.hangup() == b.hangup() && sameValue(a.fpsAttr(), b.fpsAttr()) &&
           sameValue(a.frameAttr(), b.frameAttr());
}

inline bool sameRecord(const nb::HavingInterest& a, const nb::HavingInterest& b) {
    return sameBase(a, b) && a.endTime() == b.endTime() && sameLimits(a.maxOnHookInfo(), b.maxOnHookInfo());
}

inline bool sameRecord(const nb::TriableInterest& a, const nb::TriableInterest& b) {
    return sameBase(a, b) && a.expireTime() == b.expireTime() && a.userData() == b.userData() &&
           sameValue(a.productId(), b.productId()) && a.productName() == b.productName() &&
           a.endTime() == b.endTime() && a.property() == b.property();
}

inline bool sameRecord(const nb::NoHavingInterest& a, const nb::NoHavingInterest& b) {
    return sameBase(a, b) && sameLimits(a.maxOnHookInfo(), b.maxOnHookInfo());
}

template <typename Record>
bool sameList(const std::shared_ptr<const std::vector<std::shared_ptr<const Record>>>& a,
              const std::shared_ptr<const std::vector<std::shared_ptr<const Record>>>& b) {
    if (!a || !b) return a == b;
    if (a->size() != b->size()) return false;
    for (std::size_t i = 0; i < a->size(); ++i) {
        if (!sameRecord(*(*a)[i], *(*b)[i])) return false;
    }
    return true;
}

inline bool sameSnapshot(const nb::InterestsSnapshot& a, const nb::InterestsSnapshot& b) {
    return sameList(a.havingInterests, b.havingInterests) && sameList(a.availableIntrests, b.availableIntrests) &&
           sameList(a.noHavingInterests, b.noHavingInterests) && a.currentTS == b.currentTS &&
           a.stableInterestDict == b.stableInterestDict && a.fpsTriableFlag == b.fpsTriableFlag &&
           a.frameTriableFlag == b.frameTriableFlag && a.hangTriableFlag == b.hangTriableFlag;
}

}  // namespace nbtest
