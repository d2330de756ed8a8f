// UserDefaults against bare SQLite on the very same table and file: a get versus a prepared point
// SELECT, a set versus a prepared INSERT OR REPLACE in its own transaction with the same settings
// (WAL, synchronous=FULL). The difference is what the property-list coding, the lock and the cache cost.
//
// Opening a 200-key suite: with the last good copy taken (the suite was modified since the copy) beside
// without (it was not), and the quick check every open runs, alone on a bare connection.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <stdlib.h>

#include <ctime>
#include <system_error>

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

// A suite of 200 typical settings in a folder of its own, closed, with its last good copy taken.
struct ClosedSuite {
    fs::path folder;
    fs::path database;

    ClosedSuite() {
        std::string pattern = (fs::temp_directory_path() / "nbbench-XXXXXX").string();
        folder = ::mkdtemp(pattern.data());
        nb::UserDefaults defaults("Open", folder);
        for (int k = 0; k < 200; ++k) (void)defaults.setString("value of setting " + std::to_string(k), "setting" + std::to_string(k));
        database = defaults.databasePath();
    }
    ~ClosedSuite() { fs::remove_all(folder); }

    // Either side of the copy's stamp: an hour ago is before it, now is after it.
    void setModified(std::time_t when) const {
        const timespec times[2] = {{0, UTIME_OMIT}, {when, 0}};
        ::utimensat(AT_FDCWD, database.c_str(), times, 0);
    }
    // Every copy is stamped with the time its snapshot began.
    long long copyStamp() const {
        std::error_code ec;
        return fs::last_write_time(database.string() + ".last-good", ec).time_since_epoch().count();
    }
};

void openSuite(benchmark::State& state, bool modified) {
    ClosedSuite suite;
    { nb::UserDefaults settle("Open", suite.folder); }  // the copy now holds all 200 keys
    const long long before = suite.copyStamp();
    for (auto _ : state) {
        suite.setModified(modified ? std::time(nullptr) : std::time(nullptr) - 3600);
        nb::UserDefaults defaults("Open", suite.folder);
        benchmark::DoNotOptimize(defaults.databasePath());
    }
    if ((suite.copyStamp() != before) != modified) state.SkipWithError("the copy was not taken as expected");
}

void BM_UserDefaultsOpenTakingCopy(benchmark::State& state) { openSuite(state, true); }
BENCHMARK(BM_UserDefaultsOpenTakingCopy);

void BM_UserDefaultsOpenUnchanged(benchmark::State& state) { openSuite(state, false); }
BENCHMARK(BM_UserDefaultsOpenUnchanged);

void BM_SqliteQuickCheck(benchmark::State& state) {
    ClosedSuite suite;
    sqlite3* db = nullptr;
    sqlite3_open_v2(suite.database.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
    sqlite3_stmt* check = nullptr;
    sqlite3_prepare_v2(db, "PRAGMA quick_check", -1, &check, nullptr);
    for (auto _ : state) {
        while (sqlite3_step(check) == SQLITE_ROW) benchmark::DoNotOptimize(sqlite3_column_text(check, 0));
        sqlite3_reset(check);
    }
    sqlite3_finalize(check);
    sqlite3_close(db);
}
BENCHMARK(BM_SqliteQuickCheck);

}  // namespace

BENCHMARK_MAIN();
