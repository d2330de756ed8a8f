#include "nbbase/foundation/UserDefaults.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "nbbase/common/NBLog.h"

extern char** environ;

namespace nb {
namespace {

namespace fs = std::filesystem;

const std::string kChild = std::string(NBBASE_TEST_TOOLS_DIR) + "/nbtest_defaults_child";

// Collects NBLog error lines for the lifetime of the object.
class ErrorLog {
public:
    ErrorLog() {
        NBLog::sharedInstance().setLogHandler([this](std::int32_t level, const std::string& text) {
            if (level < 4) return;
            std::lock_guard lock(mutex_);
            lines_.push_back(text);
        });
    }
    ~ErrorLog() { NBLog::sharedInstance().setLogHandler({}); }
    std::vector<std::string> lines() const {
        std::lock_guard lock(mutex_);
        return lines_;
    }
    bool contains(std::string_view text) const {
        auto all = lines();
        return std::any_of(all.begin(), all.end(), [&](const std::string& l) { return l.find(text) != l.npos; });
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

// A child process whose standard output and error come back through one pipe.
struct Child {
    pid_t pid = -1;
    int output = -1;

    static Child start(const std::vector<std::string>& args) {
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC) != 0) return {};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, fds[1], STDERR_FILENO);
        std::vector<char*> argv{const_cast<char*>(kChild.c_str())};
        for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        Child child;
        if (posix_spawn(&child.pid, kChild.c_str(), &actions, nullptr, argv.data(), environ) != 0) child.pid = -1;
        posix_spawn_file_actions_destroy(&actions);
        ::close(fds[1]);
        child.output = fds[0];
        return child;
    }

    // One line, or "" at end of file or after the generous timeout.
    std::string readLine() {
        std::string line;
        char c;
        while (true) {
            pollfd p{output, POLLIN, 0};
            if (::poll(&p, 1, 60000) <= 0 || ::read(output, &c, 1) != 1) return line;
            if (c == '\n') return line;
            line += c;
        }
    }
    std::string readAll() {
        std::string all;
        char buffer[4096];
        ssize_t n;
        while ((n = ::read(output, buffer, sizeof buffer)) > 0) all.append(buffer, static_cast<std::size_t>(n));
        return all;
    }
    // Exit status, or -signal.
    int wait() {
        int status = 0;
        ::waitpid(pid, &status, 0);
        if (output >= 0) ::close(output);
        output = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    struct Result {
        int status;
        std::string output;
    };
    static Result run(const std::vector<std::string>& args) {
        Child child = start(args);
        std::string out = child.readAll();
        return {child.wait(), out};
    }
};

class UserDefaultsTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "nbdefaults-XXXXXX").string();
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        root_ = pattern;
        folder_ = root_ / "Preferences";
    }
    void TearDown() override {
        std::error_code ec;
        fs::permissions(folder_, fs::perms::owner_all, ec);
        fs::remove_all(root_, ec);
    }

    // Reads the suite's table with SQLite alone, bypassing UserDefaults.
    std::vector<std::string> storedKeys(const std::string& suite) const {
        std::vector<std::string> keys;
        sqlite3* db = nullptr;
        std::string path = (folder_ / UserDefaults::fileNameForSuite(suite)).string();
        if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
            sqlite3_stmt* s = nullptr;
            if (sqlite3_prepare_v2(db, "SELECT key FROM preferences ORDER BY key", -1, &s, nullptr) == SQLITE_OK) {
                while (sqlite3_step(s) == SQLITE_ROW) keys.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(s, 0)));
            }
            sqlite3_finalize(s);
        }
        sqlite3_close(db);
        return keys;
    }

    static std::string integrityOf(const fs::path& path) {
        sqlite3* db = nullptr;
        std::string result = "cannot open";
        if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK) {
            sqlite3_stmt* s = nullptr;
            if (sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &s, nullptr) == SQLITE_OK && sqlite3_step(s) == SQLITE_ROW)
                result = reinterpret_cast<const char*>(sqlite3_column_text(s, 0));
            else
                result = sqlite3_errmsg(db);
            sqlite3_finalize(s);
        }
        sqlite3_close(db);
        return result;
    }

    static std::string contents(const fs::path& path) {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }

    fs::path root_;
    fs::path folder_;
};

TEST_F(UserDefaultsTest, RegisteredDefaultsAnswerUntilAValueIsStoredAndAreNeverWritten) {
    UserDefaults defaults("Suite", folder_);
    defaults.registerDefaults(Value::dictionary({{"volume", 5}, {"name", "guest"}}));
    EXPECT_EQ(defaults.integerForKey("volume"), 5);
    EXPECT_EQ(defaults.stringForKey("name"), "guest");
    EXPECT_TRUE(storedKeys("Suite").empty());

    ASSERT_TRUE(defaults.setInteger(7, "volume"));
    EXPECT_EQ(defaults.integerForKey("volume"), 7);
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
    EXPECT_EQ(storedKeys("Suite"), std::vector<std::string>{"name"});
}

struct Conversion {
    const char* label;
    Value stored;
    std::optional<std::string> string;
    std::int64_t integer;
    bool flag;
    double real;
};

class UserDefaultsConversion : public UserDefaultsTest, public ::testing::WithParamInterface<Conversion> {};

TEST_P(UserDefaultsConversion, GettersConvertAsTheFoundationDoes) {
    const Conversion& c = GetParam();
    UserDefaults defaults("Suite", folder_);
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

INSTANTIATE_TEST_SUITE_P(
    Kinds, UserDefaultsConversion,
    ::testing::Values(Conversion{"decimalString", "42", "42", 42, true, 42},
                      Conversion{"leadingNumber", " 12abc", " 12abc", 12, true, 12},
                      Conversion{"yes", "YES", "YES", 0, true, 0},
                      Conversion{"no", "no", "no", 0, false, 0},
                      Conversion{"real", 3.75, "3.75", 3, true, 3.75},
                      Conversion{"negative", -9, "-9", -9, true, -9},
                      Conversion{"boolean", true, "1", 1, true, 1},
                      Conversion{"array", Value::array({1}), std::nullopt, 0, false, 0},
                      Conversion{"dictionary", Value::dictionary({{"a", 1}}), std::nullopt, 0, false, 0},
                      Conversion{"data", Value(Data{1, 2}), std::nullopt, 0, false, 0},
                      Conversion{"date", Value(Date{1700000000}), std::nullopt, 0, false, 0}),
    [](const auto& info) { return std::string(info.param.label); });

TEST_F(UserDefaultsTest, NullIsRefusedAndAbsentRemoves) {
    ErrorLog errors;
    UserDefaults defaults("Suite", folder_);
    ASSERT_TRUE(defaults.setString("kept", "key"));
    EXPECT_FALSE(defaults.setObject(Value::null(), "key"));
    EXPECT_FALSE(defaults.setObject(Value::array({Value::null()}), "key"));
    EXPECT_TRUE(errors.contains("refused"));
    EXPECT_EQ(defaults.stringForKey("key"), "kept");
    EXPECT_TRUE(defaults.setObject(Value(), "key"));
    EXPECT_FALSE(defaults.stringForKey("key"));
    EXPECT_EQ(defaults.integerForKey("key"), 0);
}

TEST_F(UserDefaultsTest, SuitesAreListedAndRemoved) {
    UserDefaults a("com.example.a", folder_);
    UserDefaults b("com.example.b", folder_);
    ASSERT_TRUE(a.setBool(true, "x"));
    ASSERT_TRUE(b.setDouble(1.5, "y"));
    EXPECT_EQ(UserDefaults::persistentDomainNames(folder_), (std::vector<std::string>{"com.example.a", "com.example.b"}));
    ASSERT_TRUE(a.removePersistentDomain());
    EXPECT_EQ(a.persistentDomain(), Value(Value::Dictionary{}));
    EXPECT_DOUBLE_EQ(b.doubleForKey("y"), 1.5);
    EXPECT_TRUE(UserDefaults::persistentDomainNames(root_ / "missing").empty());
}

TEST_F(UserDefaultsTest, FilesArePrivateWhateverTheUmask) {
    mode_t old = ::umask(0);
    {
        UserDefaults defaults("Suite", folder_);
        ASSERT_TRUE(defaults.setString("token", "session"));
        for (const char* suffix : {"", "-wal", "-shm"}) {
            struct stat st {};
            fs::path path = defaults.databasePath().string() + suffix;
            ASSERT_EQ(::stat(path.c_str(), &st), 0) << path;
            EXPECT_EQ(st.st_mode & 0777, 0600u) << path;
        }
    }
    ::umask(old);
}

TEST_F(UserDefaultsTest, WritesOfOneProcessAreReadByAnother) {
    UserDefaults defaults("Shared", folder_);
    EXPECT_FALSE(defaults.stringForKey("greeting"));  // read once, so a stale answer would show
    ASSERT_TRUE(defaults.setString("old", "greeting"));
    EXPECT_EQ(defaults.stringForKey("greeting"), "old");

    auto set = Child::run({"set", folder_.string(), "Shared", "greeting", "from child"});
    ASSERT_EQ(set.status, 0) << set.output;
    EXPECT_EQ(defaults.stringForKey("greeting"), "from child");

    ASSERT_TRUE(defaults.setString("from parent", "reply"));
    auto get = Child::run({"get", folder_.string(), "Shared", "reply"});
    EXPECT_EQ(get.status, 0);
    EXPECT_NE(get.output.find("value=from parent\n"), std::string::npos) << get.output;
}

TEST_F(UserDefaultsTest, NoAcknowledgedWriteIsLostWhenTheWriterIsKilled) {
    std::mt19937 random(std::random_device{}());
    std::vector<long long> acknowledged;
    const fs::path database = folder_ / UserDefaults::fileNameForSuite("Crash");
    for (int kill = 0; kill < 50; ++kill) {
        Child child = Child::start({"loop", folder_.string(), "Crash", std::to_string(kill * 100000)});
        ASSERT_GT(child.pid, 0);
        // Let it get a random distance into its work, then kill it in the middle of a set.
        const int acks = std::uniform_int_distribution<int>(1, 25)(random);
        for (int i = 0; i < acks; ++i) {
            std::string line = child.readLine();
            ASSERT_FALSE(line.empty()) << "child stopped early at kill " << kill;
            acknowledged.push_back(std::stoll(line));
        }
        ::kill(child.pid, SIGKILL);
        // Acknowledgements already in the pipe count too: the child returned from those sets.
        std::string tail = child.readAll();
        for (std::size_t at = 0, end; (end = tail.find('\n', at)) != std::string::npos; at = end + 1)
            acknowledged.push_back(std::stoll(tail.substr(at, end - at)));
        ASSERT_EQ(child.wait(), -SIGKILL);
        ASSERT_EQ(integrityOf(database), "ok") << "after kill " << kill;
    }
    UserDefaults defaults("Crash", folder_);
    for (long long n : acknowledged) ASSERT_EQ(defaults.integerForKey("k" + std::to_string(n)), n) << n;
}

TEST_F(UserDefaultsTest, ConcurrentProcessesWritingDisjointKeysLoseNone) {
    constexpr int kProcesses = 4, kKeys = 100;
    std::vector<Child> children;
    for (int p = 0; p < kProcesses; ++p)
        children.push_back(Child::start({"range", folder_.string(), "Busy", "p" + std::to_string(p) + "-", std::to_string(kKeys)}));
    for (Child& child : children) {
        std::string output = child.readAll();
        EXPECT_EQ(child.wait(), 0) << output;
    }
    UserDefaults defaults("Busy", folder_);
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
                if (!defaults.setInteger(t * 1000 + k, key)) ++mismatches;
                if (defaults.integerForKey(key) != t * 1000 + k) ++mismatches;
                if (!defaults.setString(key, "shared")) ++mismatches;
                if (!defaults.stringForKey("shared")) ++mismatches;
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
    const fs::path database = folder_ / UserDefaults::fileNameForSuite("Broken");
    std::string garbage(8192, '\0');
    std::mt19937 random(7);
    for (char& c : garbage) c = static_cast<char>(random());
    std::ofstream(database, std::ios::binary) << garbage;

    ErrorLog errors;
    UserDefaults defaults("Broken", folder_);
    EXPECT_TRUE(errors.contains("moved it to")) << (errors.lines().empty() ? "" : errors.lines().front());
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
// suite, so the read-only folder below is read-only for it as it would be for a user.
TEST_F(UserDefaultsTest, ReadOnlyFolderKeepsAnsweringAndRefusesWrites) {
    fs::create_directories(folder_);
    const bool root = ::geteuid() == 0;
    if (root) {
        ASSERT_EQ(::chmod(root_.c_str(), 0755), 0);
        ASSERT_EQ(::chown(folder_.c_str(), 65534, 65534), 0);
    }
    auto asUser = [&](std::vector<std::string> args) {
        args.insert(args.begin(), "--as-nobody");
        return Child::run(args);
    };
    ASSERT_EQ(asUser({"set", folder_.string(), "Locked", "token", "secret"}).status, 0);
    ASSERT_EQ(::chmod(folder_.c_str(), 0555), 0);
    const fs::path database = folder_ / UserDefaults::fileNameForSuite("Locked");
    const std::string before = contents(database);
    std::set<std::string> filesBefore;
    for (const auto& entry : fs::directory_iterator(folder_)) filesBefore.insert(entry.path().filename());

    auto get = asUser({"get", folder_.string(), "Locked", "token"});
    EXPECT_EQ(get.status, 0);
    EXPECT_NE(get.output.find("value=secret\n"), std::string::npos) << get.output;

    auto set = asUser({"set", folder_.string(), "Locked", "token", "changed"});
    EXPECT_EQ(set.status, 1) << set.output;
    EXPECT_NE(set.output.find("cannot store token"), std::string::npos) << set.output;

    // A suite that does not exist yet cannot be created, and still answers.
    auto fresh = asUser({"set", folder_.string(), "New", "key", "v"});
    EXPECT_EQ(fresh.status, 1) << fresh.output;
    EXPECT_NE(asUser({"get", folder_.string(), "New", "key"}).output.find("value=(nil)\n"), std::string::npos);

    EXPECT_EQ(contents(database), before);
    std::set<std::string> filesAfter;
    for (const auto& entry : fs::directory_iterator(folder_)) filesAfter.insert(entry.path().filename());
    EXPECT_EQ(filesAfter, filesBefore);
    get = asUser({"get", folder_.string(), "Locked", "token"});
    EXPECT_NE(get.output.find("value=secret\n"), std::string::npos) << get.output;
}

}  // namespace
}  // namespace nb
