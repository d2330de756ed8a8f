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
    cache.putValue(Value::array({1, "two"}), "1234_mode");
    cache.putValue(Value::null(), "a.b");  // null is a value; the dot is part of the key
    const Value before = cache.allCache();
    cache.putValue(7, "1234_mode");
    cache.putValue(Value(), "a.b");
    cache.putValue(Value(), "never put");

    EXPECT_EQ(before, Value::dictionary({{"1234_mode", Value::array({1, "two"})}, {"a.b", Value::null()}}));
    EXPECT_EQ(cache.getValueOfKey("1234_mode"), Value(7));
    EXPECT_TRUE(cache.getValueOfKey("a.b").isAbsent());
    EXPECT_EQ(cache.allCache(), Value::dictionary({{"1234_mode", 7}}));
}

// Every put lands, and snapshots read on their own threads never meet a change in place.
TEST(NBGameInfoCacheTest, SharedAcrossThreads) {
    NBGameInfoCache cache;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&cache, t] {
            for (int i = 0; i < 200; ++i) {
                const std::string key = std::to_string(t) + "_" + std::to_string(i);
                cache.putValue(i, key);
                EXPECT_EQ(cache.allCache()[key], Value(i));
                if (i % 2) cache.putValue(Value(), key);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(cache.allCache().size(), 400u);
}

}  // namespace
}  // namespace nb
