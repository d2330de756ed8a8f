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
    const auto [place, inserted] = index_.try_emplace(gameId, entries_.size());
    if (inserted) {
        entries_.emplace_back(std::move(gameId), std::move(seconds));
    } else {
        entries_[place->second].second = std::move(seconds);
    }
}

const Value* OnHookTimeMap::find(const Value& gameId) const noexcept {
    const auto place = index_.find(gameId);
    return place == index_.end() ? nullptr : &entries_[place->second].second;
}

}  // namespace nb
