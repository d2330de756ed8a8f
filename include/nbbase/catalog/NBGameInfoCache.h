// NBGameInfoCache: a process-wide key-value store that the application fills with per-game values and
// reads back. It holds what it is given and interprets nothing.
//
// Keys are plain string keys (a "." is part of the key, not a path). Putting an absent Value removes the
// key; any other value, null included, is stored as given. Lookups of a key never put answer an absent
// Value. allCache() answers a dictionary snapshot that later puts do not change (always a dictionary, empty
// when nothing is stored).
//
// Threads: every function may be called on any thread. The cache serialises its own access with a mutex,
// so callers that share it across threads need no lock of their own; each call is atomic on its own, a
// sequence of calls is not. Values are shared copy-on-write, so what a lookup answers is the caller's.
//
// sharedInstance() is created once, thread-safely, and never destroyed.
#pragma once

#include <mutex>
#include <string>

#include "nbbase/foundation/Value.h"

namespace nb {

class NBGameInfoCache {
public:
    static NBGameInfoCache& sharedInstance();

    NBGameInfoCache() = default;
    NBGameInfoCache(const NBGameInfoCache&) = delete;
    NBGameInfoCache& operator=(const NBGameInfoCache&) = delete;

    void putValue(Value value, std::string key);
    [[nodiscard]] Value getValueOfKey(const std::string& key) const;
    [[nodiscard]] Value allCache() const;

private:
    mutable std::mutex mutex_;
    // Guarded by mutex_. Never shared: allCache() copies it, because Value's copy-on-write tells a shared
    // container from an unshared one without ordering the other holder's reads before a change in place.
    Value::Dictionary store_;
};

}  // namespace nb
