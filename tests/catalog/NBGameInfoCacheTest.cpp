#include "nbbase/catalog/NBGameInfoCache.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace nb {
namespace {

TEST(NBGameInfoCacheTest, PutGetRemoveAndSnapshots) {
    NBGameInfoCache cache;
    EXPECT_EQ(cache.allCache(), Value(Value::Dictionary()));
    EXPECT_TRUE(cache.getValueOfKey("1234_mode").isAbsent());

    cache.putValue(Value::array({1, "two"}), "1234_mode");
    cache.putValue(Value::null(), "a.b");  // null is a value; the dot is part of the key
    const Value before = cache.allCache();
    cache.putValue(7, "1234_mode");
    cache.putValue(Value(), "a.b");
    cache.putValue(Value(), "never put");

    EXPECT_EQ(before, Value::dictionary({{"1234_mode", Value::array({1, "two"})}, {"a.b", Value::null()}}));
    EXPECT_EQ(cache.getValueOfKey("1234_mode"), Value(7));
    EXPECT_TRUE(cache.getValueOfKey("a.b").isAbsent());
    EXPECT_TRUE(cache.getValueOfKey("a")["b"].isAbsent());
    EXPECT_EQ(cache.allCache(), Value::dictionary({{"1234_mode", 7}}));
}

// Puts, gets and snapshots from several threads at once: every put lands, and no reader sees a torn store.
TEST(NBGameInfoCacheTest, SharedAcrossThreads) {
    NBGameInfoCache cache;
    constexpr int kThreads = 4;
    constexpr int kKeys = 200;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&cache, t] {
            for (int i = 0; i < kKeys; ++i) {
                const std::string key = std::to_string(t) + "_" + std::to_string(i);
                cache.putValue(i, key);
                EXPECT_EQ(cache.getValueOfKey(key), Value(i));
                const Value all = cache.allCache();
                EXPECT_EQ(all[key], Value(i));
                if (i % 2) cache.putValue(Value(), key);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(cache.allCache().size(), std::size_t{kThreads * kKeys / 2});
}

}  // namespace
}  // namespace nb
