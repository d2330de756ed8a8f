#include "nbbase/catalog/NBGameInfoCache.h"

#include <utility>

namespace nb {

NBGameInfoCache& NBGameInfoCache::sharedInstance() {
    static NBGameInfoCache* const instance = new NBGameInfoCache();
    return *instance;
}

void NBGameInfoCache::putValue(Value value, std::string key) {
    std::lock_guard lock(mutex_);
    store_.set(std::move(key), std::move(value));
}

Value NBGameInfoCache::getValueOfKey(const std::string& key) const {
    std::lock_guard lock(mutex_);
    return store_.get(key);
}

Value NBGameInfoCache::allCache() const {
    std::lock_guard lock(mutex_);
    return Value(store_);
}

}  // namespace nb
