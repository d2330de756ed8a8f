// nb::UserDefaults: a persistent suite of settings shared by every process of the user (the application,
// its plug-ins and `nbctl defaults`).
//
// Storage: one SQLite database per suite, "<suiteName>.sqlite3" in the preferences folder given to the
// constructor (created with mode 0700 when missing), one row per key, each value a binary property list.
// The database and its -wal and -shm files are mode 0600 whatever the umask: the suite holds the
// session token. Beside them, never listed as suites:
//   "<file>.last-good"  the last-known-good copy, a rollback-journal SQLite file of the same table, 0600;
//   "<file>.lock"       empty; opens hold flock() on it (shared to look, exclusive to recover); never removed;
//   "<file>.corrupt-<unix time>[-n]" (with its "-wal")  a damaged database, moved aside and never deleted.
//
// Durability: every setter is its own transaction, committed in WAL mode with synchronous=FULL before it
// returns, so a write that returned true survives the process being killed at any moment and a power
// loss. Writers in other processes are waited for (busy timeout kBusyTimeoutMs) rather than failing.
// Every getter reads the database, so it sees what other processes wrote; decoded values are cached
// only against the exact bytes just read.
//
// Damage: every open runs SQLite's quick check. An open that finds the suite sound refreshes the last
// good copy when the database or its WAL was modified since the copy was taken (modification times, with
// kCopyClockSlack of margin for coarse file-system clocks; a write never goes unnoticed, an unchanged
// suite is not copied again). The copy is a snapshot taken with SQLite's backup API and renamed into
// place, so it is whole or absent. A suite found damaged (quick check, or SQLite calling it corrupt or
// not a database) is recovered under the exclusive lock, by the first process to get there only: the
// fresh suite starts from the last good copy, then every row still readable in the damaged file replaces
// the copy's (SQLite's own scan first, resumed past bad pages in both directions; then, when that scan
// could not finish, the file's pages read by SuitePageReader, whose rows must be property lists and lose
// to SQLite's). The damaged file and its WAL are then moved aside and the rebuilt suite renamed into
// place. What was recovered and what was lost is logged at NBLog level 4: counts from the damaged file
// and from the copy, the keys that only the copy had (their newest value may be lost), and the pages of
// the damaged file that could not be read (keys stored only there since the copy are lost). A key deleted
// after the last copy may come back from it. Connections that other processes opened before the damage
// keep using the damaged file until those instances are rebuilt.
//
// Registered defaults live in this instance's memory, answer when no value is stored and are never
// written to the database.
//
// Threads: every function may be called from any thread at once; one connection is shared behind a
// mutex. Several instances, in this process or others, may use the same suite at the same time. The
// constructor may wait for other processes' opens of the suite (their check and copy, or a recovery).
//
// Failure: nothing throws and nothing crashes. Setters answer false and log an NBLog level-4 line.
// Getters answer as if the key were not stored (registered default, else absent, 0, false or nullopt).
// A damaged suite that cannot be recovered (its lock file or the folder cannot be written) is left as
// it is, logged, and the instance stays unopened. A last good copy that cannot be written or read is
// logged and recovery goes on without it. A preferences folder that cannot be written (read-only, or
// not ours) still lets an existing suite be read: the database is then opened immutable and read-only,
// every setter fails, no copy is taken and the files are left untouched. An instance that could not
// open its database at all stays in that state (getters answer registered defaults only); build a new
// instance to retry.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "nbbase/foundation/Value.h"

struct sqlite3;
struct sqlite3_stmt;

namespace nb {

class UserDefaults {
public:
    static constexpr int kBusyTimeoutMs = 10000;
    // How much older than the copy's snapshot a modification time must be to count as already copied.
    static constexpr std::chrono::seconds kCopyClockSlack{2};

    // Opens (creating when needed) the suite's database in preferencesFolder. A suite name must be a
    // plain file name: non-empty, without '/', NUL, or a leading '.'; an invalid name opens nothing.
    UserDefaults(std::string suiteName, std::filesystem::path preferencesFolder);
    ~UserDefaults();

    // The application's own suite: named after the main bundle's identifier (the executable's name when
    // the bundle has none), in the user's preferences folder. Created on first use, never destroyed.
    static UserDefaults& standardUserDefaults();
    UserDefaults(const UserDefaults&) = delete;
    UserDefaults& operator=(const UserDefaults&) = delete;

    const std::string& suiteName() const noexcept { return suiteName_; }
    // "<preferencesFolder>/<suiteName>.sqlite3".
    const std::filesystem::path& databasePath() const noexcept { return databasePath_; }
    // "<databasePath>.last-good".
    const std::filesystem::path& lastGoodCopyPath() const noexcept { return lastGoodPath_; }
    static std::string fileNameForSuite(std::string_view suiteName);

    // Stored value, else registered default, else absent.
    Value objectForKey(std::string_view key) const;
    // A string as itself, a number as its string value; nullopt for a missing key or any other kind.
    std::optional<std::string> stringForKey(std::string_view key) const;
    // Numbers and strings convert by Value's rules; anything else, or a missing key, is 0 or false.
    std::int64_t integerForKey(std::string_view key) const;
    bool boolForKey(std::string_view key) const;
    double doubleForKey(std::string_view key) const;
    float floatForKey(std::string_view key) const;
    // Only a value of that very kind; otherwise absent (nullopt for data).
    Value arrayForKey(std::string_view key) const;
    Value dictionaryForKey(std::string_view key) const;
    std::optional<Data> dataForKey(std::string_view key) const;

    // An absent value removes the key. A value that cannot be a property list (null, or holding one)
    // is refused: false and a logged error, the stored value unchanged.
    bool setObject(const Value& value, std::string_view forKey);
    bool setInteger(std::int64_t value, std::string_view forKey);
    bool setBool(bool value, std::string_view forKey);
    bool setDouble(double value, std::string_view forKey);
    bool setFloat(float value, std::string_view forKey);
    bool setString(std::string value, std::string_view forKey);
    bool removeObjectForKey(std::string_view key);
    // Stores value only when the suite holds none for the key (a registered default does not count),
    // in one SQLite statement: of any threads and processes racing on an unset key exactly one stores,
    // and every read after its commit answers the winner's value. True when this call stored the value;
    // false when a value was already stored (left unchanged), and false with a logged error when the
    // value cannot be a property list (absent and null included) or the suite cannot be written.
    bool setObjectIfAbsent(const Value& value, std::string_view forKey);

    // Merges a dictionary into this instance's registered defaults (a later registration of a key
    // replaces the earlier one). Anything but a dictionary is ignored with a logged error.
    void registerDefaults(const Value& dictionary);

    // Registered defaults overlaid with the stored values, as a dictionary.
    Value dictionaryRepresentation() const;
    // Only the stored key/values of this suite, as a dictionary (empty when nothing is stored or the
    // database cannot be read). Rows whose bytes are not a property list are skipped.
    Value persistentDomain() const;
    // Removes every stored key of the suite in one transaction; the files stay, as other processes may
    // have the suite open.
    bool removePersistentDomain();
    // Names of the suites stored in a folder, sorted; empty when the folder cannot be listed.
    static std::vector<std::string> persistentDomainNames(const std::filesystem::path& preferencesFolder);

private:
    struct CachedValue {
        std::string bytes;  // the stored property list the value was decoded from
        Value value;
    };
    struct KeyHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view s) const noexcept { return std::hash<std::string_view>{}(s); }
    };

    enum class Health { Sound, Damaged, Unknown };

    void open();
    bool openConnection(bool readOnly);
    void closeConnection();
    bool prepareStatements();
    // PRAGMA quick_check on the open connection; `problem` gets SQLite's first complaint.
    Health checkLocked(std::string& problem);
    bool lastGoodCopyIsStale() const;
    void saveLastGoodCopyLocked();
    // Rebuilds the suite from the last good copy and the damaged file's readable rows and moves the
    // damaged file aside; the caller holds the exclusive lock and has closed its connection.
    bool recoverLocked(const std::string& problem);
    Value storedValueLocked(std::string_view key) const;
    // The property-list bytes stored for value, or nullopt (logged) when it cannot be stored.
    std::optional<std::string> encodedForStoring(const Value& value, std::string_view forKey) const;
    bool writeLocked(sqlite3_stmt* statement, std::string_view key, const std::string* bytes, const char* what);
    void logSqliteError(const char* what, int rc) const;

    const std::string suiteName_;
    const std::filesystem::path folder_;
    const std::filesystem::path databasePath_;
    const std::filesystem::path lastGoodPath_;
    const std::filesystem::path lockPath_;

    mutable std::mutex mutex_;
    sqlite3* db_ = nullptr;                 // guarded by mutex_; null when the suite could not be opened
    bool readOnly_ = false;                 // guarded by mutex_
    sqlite3_stmt* selectStatement_ = nullptr;   // guarded by mutex_
    sqlite3_stmt* upsertStatement_ = nullptr;   // guarded by mutex_
    sqlite3_stmt* deleteStatement_ = nullptr;   // guarded by mutex_
    sqlite3_stmt* insertIfAbsentStatement_ = nullptr;  // guarded by mutex_
    Value::Dictionary registered_;          // guarded by mutex_
    mutable std::unordered_map<std::string, CachedValue, KeyHash, std::equal_to<>> decoded_;  // guarded by mutex_
};

}  // namespace nb
