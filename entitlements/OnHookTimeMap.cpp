#include "nbbase/entitlements/OnHookTimeMap.h"

#include <functional>
#include <string>

namespace nb {

std::size_t OnHookTimeMap::KeyHash::operator()(const Value& key) const noexcept {
    // 2, 2.0 and true are equal Values, so every number hashes through its double. Integers beyond 2^53
    // may share a hash; that only costs a comparison. 0.0 and -0.0 are equal and must hash alike.
    if (key.isNumber()) {
        const double number = key.doubleValue();
        return std::hash<double>{}(number == 0 ? 0.0 : number);
    }
    if (const auto* text = key.asString()) return std::hash<std::string>{}(*text);
    return static_cast<std::size_t>(key.kind());
}

void OnHookTimeMap::set(Value gameId, Value seconds) {
    if (const Entry* entry = findEntry(gameId)) {
        entries_[static_cast<std::size_t>(entry - entries_.data())].second = std::move(seconds);
        return;
    }
    entries_.emplace_back(std::move(gameId), std::move(seconds));
    if (entries_.size() == kIndexThreshold + 1) {
        for (std::size_t i = 0; i < entries_.size(); ++i) index_.try_emplace(entries_[i].first, i);
    } else if (entries_.size() > kIndexThreshold) {
        index_.try_emplace(entries_.back().first, entries_.size() - 1);
    }
}

const Value* OnHookTimeMap::find(const Value& gameId) const noexcept {
    const Entry* entry = findEntry(gameId);
    return entry == nullptr ? nullptr : &entry->second;
}

const OnHookTimeMap::Entry* OnHookTimeMap::findEntry(const Value& gameId) const noexcept {
    if (entries_.size() <= kIndexThreshold) {
        for (const Entry& entry : entries_) {
            if (entry.first == gameId) return &entry;
        }
        return nullptr;
    }
    const auto place = index_.find(gameId);
    return place == index_.end() ? nullptr : &entries_[place->second];
}

}  // namespace nb
