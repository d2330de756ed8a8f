#include "nbbase/foundation/UserDefaults.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "ErrorLog.h"
#include "LogLines.h"
#include "TempDir.h"
#include "nbbase/foundation/NBLog.h"
#include "nbbase/foundation/PropertyList.h"
#include "nbbase/foundation/SuitePageReader.h"
#include "tests/foundation/ChildProcess.h"

namespace nb {
namespace {

namespace fs = std::filesystem;
using test::ChildProcess;

// nbtest_defaults_child with `args`; see tests/tools/defaults_child.cpp for its modes.
std::vector<std::string> child(std::vector<std::string> args) {
    args.insert(args.begin(), std::string(NBBASE_TEST_TOOLS_DIR) + "/nbtest_defaults_child");
    return args;
}

// The first column of every row, read with SQLite alone; empty when the file does not open.
std::vector<std::string> query(const fs::path& path, const char* sql) {
    std::vector<std::string> rows;
    sqlite3* db = nullptr;
    sqlite3_stmt* s = nullptr;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK &&
        sqlite3_prepare_v2(db, sql, -1, &s, nullptr) == SQLITE_OK) {
        while (sqlite3_step(s) == SQLITE_ROW) rows.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(s, 0)));
    }
    sqlite3_finalize(s);
    sqlite3_close(db);
    return rows;
}

std::string contents(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

class UserDefaultsTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_FALSE(root_.empty()); }
    fs::path database(const std::string& suite) const { return folder_ / UserDefaults::fileNameForSuite(suite); }
    std::vector<std::string> storedKeys(const std::string& suite) const {
        return query(database(suite), "SELECT key FROM preferences ORDER BY key");
    }

    nbtest::TempDir dir_{"nbdefaults"};
    const fs::path root_ = dir_.path();
    const fs::path folder_ = root_ / "Preferences";
};

TEST_F(UserDefaultsTest, RegisteredDefaultsAnswerUntilAValueIsStoredAndAreNeverWritten) {
    UserDefaults defaults("Suite", folder_);
    defaults.registerDefaults(Value::dictionary({{"volume", 5}, {"name", "guest"}}));
    EXPECT_EQ(defaults.integerForKey("volume"), 5);
    EXPECT_TRUE(storedKeys("Suite").empty());

    ASSERT_TRUE(defaults.setInteger(7, "volume"));
    EXPECT_EQ(storedKeys("Suite"), std::vector<std::string>{"volume"});
    EXPECT_EQ(defaults.dictionaryRepresentation(), Value::dictionary({{"volume", 7}, {"name", "guest"}}));
    EXPECT_EQ(defaults.persistentDomain(), Value::dictionary({{"volume", 7}}));

    ASSERT_TRUE(defaults.removeObjectForKey("volume"));
    EXPECT_EQ(defaults.integerForKey("volume"), 5);
    // Registration is per instance: another one on the same suite sees only what is stored.
    ASSERT_TRUE(defaults.setString("host", "name"));
    UserDefaults other("Suite", folder_);
    EXPECT_TRUE(other.objectForKey("volume").isAbsent());
    EXPECT_EQ(other.stringForKey("name"), "host");
}

TEST_F(UserDefaultsTest, GettersConvertAsTheFoundationDoes) {
    const struct {
        Value stored;
        std::optional<std::string> string;
        std::int64_t integer;
        bool flag;
        double real;
    } cases[] = {
        {" 12abc", " 12abc", 12, true, 12}, {"YES", "YES", 0, true, 0}, {3.75, "3.75", 3, true, 3.75},
        {Value::array({1}), std::nullopt, 0, false, 0}, {Value::dictionary({{"a", 1}}), std::nullopt, 0, false, 0},
        {Value(Data{1, 2}), std::nullopt, 0, false, 0}};
    UserDefaults defaults("Suite", folder_);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.stored.description());
        ASSERT_TRUE(defaults.setObject(c.stored, "key"));
        EXPECT_EQ(defaults.objectForKey("key"), c.stored);
        EXPECT_EQ(defaults.stringForKey("key"), c.string);
        EXPECT_EQ(defaults.integerForKey("key"), c.integer);
        EXPECT_EQ(defaults.boolForKey("key"), c.flag);
        EXPECT_DOUBLE_EQ(defaults.doubleForKey("key"), c.real);
        EXPECT_FLOAT_EQ(defaults.floatForKey("key"), static_cast<float>(c.real));
        EXPECT_EQ(defaults.arrayForKey("key").isArray(), c.stored.isArray());
        EXPECT_EQ(defaults.dictionaryForKey("key").isDictionary(), c.stored.isDictionary());
        EXPECT_EQ(defaults.dataForKey("key").has_value(), c.stored.isData());
    }
}

TEST_F(UserDefaultsTest, NullIsRefusedAbsentRemovesAndSuitesAreListed) {
    nbtest::ErrorLog errors;
    UserDefaults defaults("com.example.a", folder_), b("com.example.b", folder_);
    ASSERT_TRUE(defaults.setString("kept", "key"));
    EXPECT_FALSE(defaults.setObject(Value::null(), "key"));
    EXPECT_FALSE(defaults.setObject(Value::array({Value::null()}), "key"));
    EXPECT_EQ(errors.count("refused"), 2);
    EXPECT_EQ(defaults.stringForKey("key"), "kept");
    EXPECT_TRUE(defaults.setObject(Value(), "key"));
    EXPECT_FALSE(defaults.stringForKey("key"));

    ASSERT_TRUE(defaults.setBool(true, "x"));
    ASSERT_TRUE(b.setDouble(1.5, "y"));
    EXPECT_EQ(UserDefaults::persistentDomainNames(folder_), (std::vector<std::string>{"com.example.a", "com.example.b"}));
    ASSERT_TRUE(defaults.removePersistentDomain());
    EXPECT_EQ(defaults.persistentDomain(), Value(Value::Dictionary{}));
    EXPECT_DOUBLE_EQ(b.doubleForKey("y"), 1.5);
    EXPECT_TRUE(UserDefaults::persistentDomainNames(root_ / "missing").empty());
}

// Only a stored value blocks a set-if-absent: a registered default does not, and a refused value or a
// suite that is not open stores nothing.
TEST_F(UserDefaultsTest, SetIfAbsentStoresOnlyIntoAKeyWithNoStoredValue) {
    nbtest::ErrorLog errors;
    UserDefaults defaults("Suite", folder_), unopened("", folder_);
    defaults.registerDefaults(Value::dictionary({{"registered", "default"}}));
    ASSERT_TRUE(defaults.setString("first", "stored"));
    const struct {
        UserDefaults* suite;
        const char* key;
        Value value;
        bool stores;
        Value after;
    } cases[] = {{&defaults, "unset", "mine", true, "mine"},      {&defaults, "stored", "mine", false, "first"},
                 {&defaults, "registered", 7, true, 7},           {&defaults, "null", Value::null(), false, Value()},
                 {&defaults, "absent", Value(), false, Value()}, {&unopened, "unset", "mine", false, Value()}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.key);
        EXPECT_EQ(c.suite->setObjectIfAbsent(c.value, c.key), c.stores);
        EXPECT_EQ(c.suite->objectForKey(c.key), c.after);
    }
    EXPECT_EQ(errors.count("refused"), 2);
    EXPECT_EQ(errors.count("not open"), 1);
}

TEST_F(UserDefaultsTest, FilesArePrivateWhateverTheUmask) {
    const mode_t old = ::umask(0);
    UserDefaults defaults("Suite", folder_);
    EXPECT_TRUE(defaults.setString("token", "session"));
    ::umask(old);
    for (const char* suffix : {"", "-wal", "-shm"}) {
        struct stat st {};
        const fs::path path = defaults.databasePath().string() + suffix;
        ASSERT_EQ(::stat(path.c_str(), &st), 0) << path;
        EXPECT_EQ(st.st_mode & 0777, 0600u) << path;
    }
}

TEST_F(UserDefaultsTest, NoAcknowledgedWriteIsLostWhenTheWriterIsKilled) {
    std::mt19937 random(std::random_device{}());
    std::vector<long long> acknowledged;
    for (int kill = 0; kill < 50; ++kill) {
        ChildProcess writer =
            ChildProcess::start(child({"loop", folder_.string(), "Crash", std::to_string(kill * 100000)}));
        ASSERT_GT(writer.pid, 0);
        // Let it get a random distance into its work, then kill it in the middle of a set.
        for (int acks = std::uniform_int_distribution<int>(1, 25)(random); acks > 0; --acks) {
            const std::string line = writer.readLine();
            ASSERT_FALSE(line.empty()) << "writer stopped early at kill " << kill;
            acknowledged.push_back(std::stoll(line));
        }
        ::kill(writer.pid, SIGKILL);
        // Acknowledgements already in the pipe count too: the writer returned from those sets.
        std::istringstream tail(writer.readAll());
        for (std::string line; std::getline(tail, line);) acknowledged.push_back(std::stoll(line));
        ASSERT_EQ(writer.wait(), -SIGKILL);
        ASSERT_EQ(query(database("Crash"), "PRAGMA integrity_check"), std::vector<std::string>{"ok"}) << kill;
    }
    UserDefaults defaults("Crash", folder_);
    for (long long n : acknowledged) ASSERT_EQ(defaults.integerForKey("k" + std::to_string(n)), n) << n;
}

// The instance here is open before the writers start and has read a value they replace, so an answer
// cached past another process's write would show.
TEST_F(UserDefaultsTest, ConcurrentProcessesWritingDisjointKeysLoseNoneAndAreSeenAtOnce) {
    constexpr int kProcesses = 4, kKeys = 100;
    UserDefaults defaults("Busy", folder_);
    ASSERT_TRUE(defaults.setInteger(-1, "p0-0"));
    EXPECT_EQ(defaults.integerForKey("p0-0"), -1);
    std::vector<ChildProcess> writers;
    for (int p = 0; p < kProcesses; ++p)
        writers.push_back(ChildProcess::start(child({"range", folder_.string(), "Busy", "p" + std::to_string(p) + "-",
                                                     std::to_string(kKeys)})));
    for (ChildProcess& writer : writers) {
        const std::string output = writer.readAll();
        EXPECT_EQ(writer.wait(), 0) << output;
    }
    EXPECT_EQ(defaults.persistentDomain().size(), std::size_t{kProcesses * kKeys});
    for (int p = 0; p < kProcesses; ++p)
        for (int k = 0; k < kKeys; ++k)
            EXPECT_EQ(defaults.integerForKey("p" + std::to_string(p) + "-" + std::to_string(k)), k);
}

TEST_F(UserDefaultsTest, ManyThreadsReadAndWriteOneInstance) {
    UserDefaults defaults("Threads", folder_);
    constexpr int kThreads = 8, kKeys = 40;
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int k = 0; k < kKeys; ++k) {
                std::string key = "t" + std::to_string(t) + "-" + std::to_string(k);
                if (!defaults.setInteger(t * 1000 + k, key) || defaults.integerForKey(key) != t * 1000 + k) ++mismatches;
                if (!defaults.setString(key, "shared") || !defaults.stringForKey("shared")) ++mismatches;
                if (k % 10 == 0) {
                    defaults.registerDefaults(Value::dictionary({{"registered" + std::to_string(t), t}}));
                    (void)defaults.dictionaryRepresentation();
                }
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(mismatches.load(), 0);
    EXPECT_EQ(defaults.persistentDomain().size(), std::size_t{kThreads * kKeys + 1});
    EXPECT_EQ(defaults.dictionaryRepresentation().size(), std::size_t{kThreads * kKeys + 1 + kThreads});
}

TEST_F(UserDefaultsTest, GarbageDatabaseIsMovedAsideAndAFreshSuiteStarts) {
    fs::create_directories(folder_);
    std::string garbage(8192, '\0');
    std::mt19937 random(7);
    for (char& c : garbage) c = static_cast<char>(random());
    std::ofstream(database("Broken"), std::ios::binary) << garbage;

    nbtest::ErrorLog errors;
    UserDefaults defaults("Broken", folder_);
    EXPECT_EQ(errors.count("moved it to"), 1);
    EXPECT_TRUE(defaults.objectForKey("anything").isAbsent());
    ASSERT_TRUE(defaults.setString("works", "again"));
    EXPECT_EQ(defaults.stringForKey("again"), "works");

    std::vector<fs::path> aside;
    for (const auto& entry : fs::directory_iterator(folder_))
        if (entry.path().filename().string().find(".corrupt-") != std::string::npos) aside.push_back(entry.path());
    ASSERT_EQ(aside.size(), 1u);
    EXPECT_EQ(contents(aside.front()), garbage);
    EXPECT_EQ(UserDefaults::persistentDomainNames(folder_), std::vector<std::string>{"Broken"});
}

// Tests run as root, for whom permissions do not bind; the child drops to nobody before touching the
// suite, so the read-only folder below is read-only for it as it would be for a user. The child reading
// what another child wrote also shows that a write reaches other processes.
TEST_F(UserDefaultsTest, ReadOnlyFolderKeepsAnsweringAndRefusesWrites) {
    fs::create_directories(folder_);
    if (::geteuid() == 0) {
        ASSERT_EQ(::chmod(root_.c_str(), 0755), 0);
        ASSERT_EQ(::chown(folder_.c_str(), 65534, 65534), 0);
    }
    auto asUser = [&](const char* mode, const char* suite, std::vector<std::string> rest) {
        rest.insert(rest.begin(), {"--as-nobody", mode, folder_.string(), suite});
        return ChildProcess::run(child(std::move(rest)));
    };
    auto files = [&] {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder_)) names.insert(entry.path().filename());
        return names;
    };
    ASSERT_EQ(asUser("set", "Locked", {"token", "secret"}).status, 0);
    ASSERT_EQ(::chmod(folder_.c_str(), 0555), 0);
    const std::string before = contents(database("Locked"));
    const auto filesBefore = files();

    auto set = asUser("set", "Locked", {"token", "changed"});
    EXPECT_EQ(set.status, 1) << set.output;
    EXPECT_NE(set.output.find("cannot store token"), std::string::npos) << set.output;
    auto get = asUser("get", "Locked", {"token"});
    EXPECT_NE(get.output.find("value=secret\n"), std::string::npos) << get.output;
    // A suite that does not exist yet cannot be created, and still answers.
    EXPECT_EQ(asUser("set", "New", {"key", "v"}).status, 1);
    EXPECT_NE(asUser("get", "New", {"key"}).output.find("value=(nil)\n"), std::string::npos);

    EXPECT_EQ(contents(database("Locked")), before);
    EXPECT_EQ(files(), filesBefore);
}

// ---- Damaged suites ----

using Rows = std::map<std::string, std::string>;

std::string key(int k) {
    char name[8];
    std::snprintf(name, sizeof name, "k%03d", k);
    return name;
}
// Long enough that 200 rows span several pages, so that damage takes some rows and leaves others.
std::string value(const char* tag, int k) { return std::string(tag) + "-" + key(k) + "-" + std::string(90, 'v'); }

// A suite whose last good copy holds k000..k149 at their "first" values; after that open, k000..k029
// were rewritten and k150..k199 added. Answers the copy's rows and the newest ones.
std::pair<Rows, Rows> suiteWithLaterWrites(const fs::path& folder, const std::string& suite) {
    Rows copied, newest;
    {
        UserDefaults defaults(suite, folder);
        for (int k = 0; k < 150; ++k) EXPECT_TRUE(defaults.setString(copied[key(k)] = value("first", k), key(k)));
    }
    newest = copied;
    UserDefaults defaults(suite, folder);  // this open copies the suite
    for (int k = 0; k < 30; ++k) EXPECT_TRUE(defaults.setString(newest[key(k)] = value("second", k), key(k)));
    for (int k = 150; k < 200; ++k) EXPECT_TRUE(defaults.setString(newest[key(k)] = value("late", k), key(k)));
    return {copied, newest};
}

// What SQLite alone still finds in a damaged file by looking each key up, without changing the file.
// A writable schema lets it read a file shorter than its header says.
Rows pointLookups(const fs::path& path, const Rows& keys) {
    Rows found;
    sqlite3* db = nullptr;
    sqlite3_stmt* s = nullptr;
    const std::string uri = "file:" + path.string() + "?immutable=1";
    if (sqlite3_open_v2(uri.c_str(), &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, nullptr) == SQLITE_OK &&
        sqlite3_db_config(db, SQLITE_DBCONFIG_WRITABLE_SCHEMA, 1, nullptr) == SQLITE_OK &&
        sqlite3_prepare_v2(db, "SELECT value FROM preferences WHERE key = ?1", -1, &s, nullptr) == SQLITE_OK) {
        for (const auto& [k, ignored] : keys) {
            sqlite3_bind_text(s, 1, k.c_str(), -1, SQLITE_TRANSIENT);
            if (sqlite3_step(s) == SQLITE_ROW) {
                const Value v = PropertyList::read(std::string_view(static_cast<const char*>(sqlite3_column_blob(s, 0)),
                                                                    static_cast<std::size_t>(sqlite3_column_bytes(s, 0))));
                if (v.isString()) found[k] = *v.asString();
            }
            sqlite3_reset(s);
        }
    }
    sqlite3_finalize(s);
    sqlite3_close(db);
    return found;
}

std::vector<fs::path> movedAside(const fs::path& folder) {
    std::vector<fs::path> aside;
    for (const auto& entry : fs::directory_iterator(folder)) {
        const std::string name = entry.path().filename();
        if (name.find(".corrupt-") != std::string::npos && !name.ends_with("-wal")) aside.push_back(entry.path());
    }
    return aside;
}

void overwritePage(const fs::path& path, int page) {
    std::string garbage(4096, '\0');
    std::mt19937 random(page);
    for (char& c : garbage) c = static_cast<char>(random());
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(std::streamoff{page - 1} * 4096);
    file.write(garbage.data(), static_cast<std::streamsize>(garbage.size()));
}

// Damages a suite file of `pages` pages; answers the pages it destroyed.
using Damage = std::set<int> (*)(const fs::path&, int pages);
struct NamedDamage {
    const char* name;
    Damage apply;
    friend std::ostream& operator<<(std::ostream& out, const NamedDamage& d) { return out << d.name; }
};
const NamedDamage kDamages[] = {
    {"TruncatedToHalf", [](const fs::path& path, int pages) {
        fs::resize_file(path, fs::file_size(path) / 2);
        std::set<int> lost;
        for (int p = pages / 2 + 1; p <= pages; ++p) lost.insert(p);
        return lost;
    }},
    {"GarbageLeaf", [](const fs::path& path, int pages) {
        overwritePage(path, pages / 2);
        return std::set<int>{pages / 2};
    }},
    // The root holds some rows and leads to all others: SQLite reads nothing, the page reader the rest.
    {"GarbageRoot", [](const fs::path& path, int) {
        overwritePage(path, 2);
        return std::set<int>{2};
    }}};

// A suite of suiteWithLaterWrites, then damaged, and what recovery must give back: the copy's rows, the
// newest ones, what SQLite can still look up in the damaged file, and how many rows lived on the pages
// the damage destroyed (as SQLite's dbstat counted them on the intact file).
struct DamagedSuite {
    Rows copied, newest, readable;
    int rowsOnLostPages = 0;
    std::string bytes;
};

DamagedSuite damagedSuite(const fs::path& folder, const std::string& suite, Damage damage) {
    DamagedSuite result;
    std::tie(result.copied, result.newest) = suiteWithLaterWrites(folder, suite);
    const fs::path path = folder / UserDefaults::fileNameForSuite(suite);
    EXPECT_FALSE(fs::exists(path.string() + "-wal"));  // all in the file, so the damage reaches every row
    const int pages = static_cast<int>(fs::file_size(path) / 4096);
    EXPECT_GE(pages, 6);
    const fs::path intact = folder.parent_path() / (suite + ".intact");
    fs::copy_file(path, intact);
    std::string lost;
    for (int page : damage(path, pages)) lost += (lost.empty() ? "" : ",") + std::to_string(page);
    result.rowsOnLostPages = std::stoi(query(intact, ("SELECT CAST(total(ncell) AS INTEGER) FROM dbstat WHERE "
                                                      "name = 'preferences' AND pageno IN (" + lost + ")").c_str())
                                           .at(0));
    result.bytes = contents(path);
    result.readable = pointLookups(path, result.newest);
    return result;
}

// Every key of the last good copy is back; every value is the newest or the copy's; what SQLite can still
// look up is back at its newest value; only as many rows as lived on destroyed pages are old or missing;
// nothing else is stored.
void expectRecovered(const UserDefaults& defaults, const DamagedSuite& damaged) {
    int behind = 0;
    for (const auto& [k, latest] : damaged.newest) {
        const std::optional<std::string> now = defaults.stringForKey(k);
        const auto inCopy = damaged.copied.find(k);
        // Not in the copy: back at its newest value, or lost with its page.
        const bool allowed = now == latest || (inCopy != damaged.copied.end() ? now == inCopy->second : !now);
        EXPECT_TRUE(allowed) << k << " = " << now.value_or("(nil)");
        if (damaged.readable.count(k) != 0) {
            EXPECT_EQ(now, latest) << k;
        }
        behind += now != latest;
    }
    EXPECT_LE(behind, damaged.rowsOnLostPages);
    const Value stored = defaults.persistentDomain();
    for (const auto& [k, ignored] : *stored.asDictionary())
        EXPECT_TRUE(damaged.newest.count(k) != 0 || k.starts_with("p")) << k;  // p...: the writers' keys
}

class DamagedSuiteTest : public UserDefaultsTest, public ::testing::WithParamInterface<NamedDamage> {};

TEST_P(DamagedSuiteTest, ComesBackFromTheLastGoodCopyAndEveryReadableRow) {
    const DamagedSuite damaged = damagedSuite(folder_, "Damaged", GetParam().apply);
    nbtest::LogLines log(&NBLog::sharedInstance());
    UserDefaults defaults("Damaged", folder_);
    expectRecovered(defaults, damaged);
    ASSERT_TRUE(defaults.setString("works", "again"));
    const std::vector<fs::path> aside = movedAside(folder_);
    ASSERT_EQ(aside.size(), 1u);
    EXPECT_EQ(contents(aside.front()), damaged.bytes);

    // One line names the keys only the copy had, and no key SQLite could still read is among them.
    std::set<std::string> named;
    int pageLines = 0;
    for (const std::string& line : log.take()) {
        pageLines += line.find("pages of the damaged file could not be read") != std::string::npos;
        const auto list = line.find("may be lost: ");
        if (list == std::string::npos) continue;
        std::istringstream names(line.substr(list + 13));
        for (std::string name; std::getline(names >> std::ws, name, ',');) named.insert(name);
    }
    EXPECT_EQ(pageLines, 1);
    for (const auto& [k, old] : damaged.copied) {
        if (damaged.readable.count(k) != 0) {
            EXPECT_EQ(named.count(k), 0u) << k;
        }
        if (old != damaged.newest.at(k) && defaults.stringForKey(k) == old) {
            EXPECT_EQ(named.count(k), 1u) << k;
        }
    }
    for (const std::string& k : named) EXPECT_EQ(damaged.copied.count(k), 1u) << k;
}

INSTANTIATE_TEST_SUITE_P(Damage, DamagedSuiteTest, ::testing::ValuesIn(kDamages),
                         [](const auto& info) { return std::string(info.param.name); });

// Writers that all found the suite damaged before any could recover it: this process holds the suite's
// lock shared, as an open in progress would, until each has said so. The first to get the lock then
// recovers; the others must find the rebuilt suite and write into it, not move it aside as well.
TEST_F(UserDefaultsTest, FourWritersThatFoundTheSuiteDamagedRecoverItOnce) {
    constexpr int kProcesses = 4, kKeys = 50;
    const DamagedSuite damaged = damagedSuite(folder_, "Shared", kDamages[0].apply);
    const int lock = ::open((database("Shared").string() + ".lock").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(::flock(lock, LOCK_SH), 0);
    std::vector<ChildProcess> writers;
    std::vector<std::string> outputs(kProcesses);
    for (int p = 0; p < kProcesses; ++p) {
        writers.push_back(ChildProcess::start(
            child({"range", folder_.string(), "Shared", "p" + std::to_string(p) + "-", std::to_string(kKeys)})));
        for (std::string line; outputs[p].find("waiting for other opens") == std::string::npos; outputs[p] += line + "\n") {
            line = writers.back().readLine();
            ASSERT_FALSE(line.empty()) << outputs[p];
        }
    }
    ::close(lock);
    int recoveries = 0;
    for (int p = 0; p < kProcesses; ++p) {
        outputs[p] += writers[p].readAll();
        EXPECT_EQ(writers[p].wait(), 0) << outputs[p];
        recoveries += outputs[p].find("moved it to") != std::string::npos;
    }
    EXPECT_EQ(recoveries, 1);
    EXPECT_EQ(movedAside(folder_).size(), 1u);
    UserDefaults defaults("Shared", folder_);
    expectRecovered(defaults, damaged);
    for (int p = 0; p < kProcesses; ++p)
        for (int k = 0; k < kKeys; ++k)
            EXPECT_EQ(defaults.integerForKey("p" + std::to_string(p) + "-" + std::to_string(k)), k);
}

// The copy is a new file whenever it is rewritten, so its inode tells whether an open rewrote it.
TEST_F(UserDefaultsTest, LastGoodCopyIsRewrittenOnlyAfterTheSuiteChanged) {
    auto copyInode = [&] {
        struct stat st {};
        return ::stat((database("Copied").string() + ".last-good").c_str(), &st) == 0 ? st.st_ino : 0;
    };
    const fs::path copy = database("Copied").string() + ".last-good";
    { ASSERT_TRUE(UserDefaults("Copied", folder_).setString("1", "a")); }
    { UserDefaults defaults("Copied", folder_); }
    EXPECT_EQ(query(copy, "SELECT key FROM preferences"), std::vector<std::string>{"a"});
    struct stat st {};
    ASSERT_EQ(::stat(copy.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);

    // Long unmodified, as far as its clock can tell.
    const timespec anHourAgo[2] = {{0, UTIME_OMIT}, {::time(nullptr) - 3600, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, database("Copied").c_str(), anHourAgo, 0), 0);
    const ino_t before = copyInode();
    {
        UserDefaults defaults("Copied", folder_);
        EXPECT_EQ(copyInode(), before);
        ASSERT_TRUE(defaults.setString("2", "b"));
    }
    { UserDefaults defaults("Copied", folder_); }
    EXPECT_NE(copyInode(), before);
    EXPECT_EQ(query(copy, "SELECT key FROM preferences ORDER BY key"), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(UserDefaults::persistentDomainNames(folder_), std::vector<std::string>{"Copied"});
}

// A file SQLite wrote without secure delete, so deleted rows linger in its bytes: on freelist pages (a
// deleted run of keys) and in freeblocks of live pages (every seventh key). The reader finds exactly the
// live rows, skips the one too large for its page, and knows that value's overflow pages for what they are.
TEST(SuitePageReaderTest, FindsEveryLiveRowAndNoDeletedOne) {
    nbtest::TempDir dir("nbpages");
    const fs::path path = dir.path() / "pages.sqlite3";
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(path.c_str(), &db), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(db,
                           "PRAGMA secure_delete=OFF;"
                           "CREATE TABLE preferences (key TEXT PRIMARY KEY NOT NULL, value BLOB NOT NULL) WITHOUT ROWID;"
                           "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i < 299)"
                           "  INSERT INTO preferences SELECT printf('k%03d', i), CAST(printf('value %d %.60c', i, 'v') AS BLOB) FROM n;"
                           "INSERT INTO preferences VALUES ('big', zeroblob(10000));"
                           "DELETE FROM preferences WHERE key BETWEEN 'k100' AND 'k249' OR (key LIKE 'k%' AND substr(key, 2) % 7 = 0);",
                           nullptr, nullptr, nullptr),
              SQLITE_OK);
    sqlite3_close(db);

    const SuitePageReader::Result result = SuitePageReader::readFile(path);
    Rows found;
    for (const auto& row : result.rows) EXPECT_TRUE(found.emplace(row.key, row.value).second) << row.key;
    Rows live;
    for (int k = 0; k < 300; ++k) {
        if ((k < 100 || k >= 250) && k % 7 != 0) live[key(k)] = "value " + std::to_string(k) + " " + std::string(60, 'v');
    }
    EXPECT_EQ(found, live);
    EXPECT_EQ(result.skippedCells, 1u);
    EXPECT_GT(result.freePages, 0u);
    EXPECT_EQ(result.unreadablePages, 0u);
    EXPECT_EQ(std::uintmax_t{result.pageCount} * result.pageSize, fs::file_size(path));
}

}  // namespace
}  // namespace nb
