// OnHookTimeMap: game id to the longest idle (on-hook) time in seconds that an idle-play record allows there.
//
// Game ids keep the JSON kind the server gave them, so the map is keyed by Value rather than by text: a
// number key never matches a string key ("1234" and 1234 are different games to a lookup), while numbers
// match by value (1234 and 1234.0 are the same key), as Value's equality says. Clients look a game up with
// an id of the kind the server sends.
//
// Setting an existing key replaces its value and keeps its place; entries() lists keys in first-seen
// order. Lookups are constant-time.
//
// Threads: not synchronised. The interests store builds each map in one parse and never changes it
// afterwards, so a finished map may be read from any number of threads at once.
#pragma once

#include <cstddef>
#include <unordered_map>
#include <utility>
#include <vector>

#include "nbbase/foundation/Value.h"

namespace nb {

class OnHookTimeMap {
public:
    using Entry = std::pair<Value, Value>;  // game id, seconds as the JSON gave them

    void set(Value gameId, Value seconds);
    // The seconds stored for the game, or nullptr.
    [[nodiscard]] const Value* find(const Value& gameId) const noexcept;

    [[nodiscard]] const std::vector<Entry>& entries() const noexcept { return entries_; }
    [[nodiscard]] std::size_t size() const noexcept { return entries_.size(); }
    [[nodiscard]] bool empty() const noexcept { return entries_.empty(); }

private:
    // Consistent with Value's equality: equal numbers hash alike whatever their kind.
    struct KeyHash {
        std::size_t operator()(const Value& key) const noexcept;
    };

    std::vector<Entry> entries_;
    std::unordered_map<Value, std::size_t, KeyHash> index_;  // game id to its place in entries_
};

}  // namespace nb
