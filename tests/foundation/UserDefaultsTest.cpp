#include "nbbase/foundation/UserDefaults.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ErrorLog.h"
#include "TempDir.h"
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

}  // namespace
}  // namespace nb
