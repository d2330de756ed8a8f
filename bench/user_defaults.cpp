// UserDefaults against bare SQLite on the very same table and file: a get versus a prepared point
// SELECT, a set versus a prepared INSERT OR REPLACE in its own transaction with the same settings
// (WAL, synchronous=FULL). The difference is what the property-list coding, the lock and the cache cost.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <stdlib.h>

#include <filesystem>
#include <memory>
#include <string>

#include "nbbase/foundation/PropertyList.h"
#include "nbbase/foundation/UserDefaults.h"

namespace {

namespace fs = std::filesystem;

struct Suite {
    fs::path folder;
    std::unique_ptr<nb::UserDefaults> defaults;
    sqlite3* db = nullptr;
    sqlite3_stmt* select = nullptr;
    sqlite3_stmt* upsert = nullptr;

    Suite() {
        std::string pattern = (fs::temp_directory_path() / "nbbench-XXXXXX").string();
        folder = ::mkdtemp(pattern.data());
        defaults = std::make_unique<nb::UserDefaults>("Bench", folder);
        (void)defaults->setString("a typical settings value", "key");
        sqlite3_open_v2(defaults->databasePath().c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
        sqlite3_busy_timeout(db, 10000);
        sqlite3_exec(db, "PRAGMA journal_mode=WAL", nullptr, nullptr, nullptr);
        sqlite3_exec(db, "PRAGMA synchronous=FULL", nullptr, nullptr, nullptr);
        sqlite3_prepare_v2(db, "SELECT value FROM preferences WHERE key = ?1", -1, &select, nullptr);
        sqlite3_prepare_v2(db, "INSERT OR REPLACE INTO preferences (key, value) VALUES (?1, ?2)", -1, &upsert,
                           nullptr);
    }
    ~Suite() {
        sqlite3_finalize(select);
        sqlite3_finalize(upsert);
        sqlite3_close(db);
        defaults.reset();
        fs::remove_all(folder);
    }
};

Suite& suite() {
    static Suite* s = new Suite();  // lives for the whole run, like the settings of an application
    return *s;
}

void BM_UserDefaultsGet(benchmark::State& state) {
    auto& s = suite();
    for (auto _ : state) benchmark::DoNotOptimize(s.defaults->stringForKey("key"));
}
BENCHMARK(BM_UserDefaultsGet);

void BM_SqlitePointSelect(benchmark::State& state) {
    auto& s = suite();
    for (auto _ : state) {
        sqlite3_bind_text(s.select, 1, "key", 3, SQLITE_STATIC);
        if (sqlite3_step(s.select) == SQLITE_ROW) {
            const void* blob = sqlite3_column_blob(s.select, 0);
            std::string bytes(static_cast<const char*>(blob), static_cast<std::size_t>(sqlite3_column_bytes(s.select, 0)));
            benchmark::DoNotOptimize(bytes);
        }
        sqlite3_reset(s.select);
    }
}
BENCHMARK(BM_SqlitePointSelect);

void BM_UserDefaultsSet(benchmark::State& state) {
    auto& s = suite();
    std::int64_t n = 0;
    for (auto _ : state) benchmark::DoNotOptimize(s.defaults->setInteger(++n, "counter"));
}
BENCHMARK(BM_UserDefaultsSet);

void BM_SqliteInsertOrReplace(benchmark::State& state) {
    auto& s = suite();
    // The bare write stores bytes prepared beforehand; UserDefaults encodes its value on every set.
    auto bytes = nb::PropertyList::write(nb::Value(123456789LL), nb::PropertyList::Format::Binary);
    for (auto _ : state) {
        sqlite3_bind_text(s.upsert, 1, "counter", 7, SQLITE_STATIC);
        sqlite3_bind_blob(s.upsert, 2, bytes->data(), static_cast<int>(bytes->size()), SQLITE_STATIC);
        benchmark::DoNotOptimize(sqlite3_step(s.upsert));
        sqlite3_reset(s.upsert);
    }
}
BENCHMARK(BM_SqliteInsertOrReplace);

}  // namespace

BENCHMARK_MAIN();
