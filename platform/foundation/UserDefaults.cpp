#include "nbbase/foundation/UserDefaults.h"

#include <sqlite3.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <map>
#include <set>
#include <system_error>

#include "nbbase/foundation/AtomicFile.h"
#include "nbbase/foundation/NBLog.h"
#include "nbbase/foundation/Folders.h"
#include "nbbase/foundation/MainBundle.h"
#include "nbbase/foundation/PropertyList.h"
#include "nbbase/foundation/SuitePageReader.h"

namespace nb {
namespace {

constexpr std::string_view kSuffix = ".sqlite3";
constexpr mode_t kFileMode = 0600;

constexpr const char* kCreateTable =
    "CREATE TABLE IF NOT EXISTS preferences (key TEXT PRIMARY KEY NOT NULL, value BLOB NOT NULL) WITHOUT ROWID";

bool validSuiteName(std::string_view name) {
    return !name.empty() && name.front() != '.' && name.find('/') == std::string_view::npos &&
           name.find('\0') == std::string_view::npos;
}

// Makes a new directory entry durable: without it a power loss can forget a freshly created or
// renamed file even though its contents were synced.
void syncFolder(const std::filesystem::path& folder) {
    int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        (void)::fsync(fd);
        ::close(fd);
    }
}

// SQLite creates -wal and -shm with the permissions of the database file, so making that file 0600
// before SQLite first opens it covers all three regardless of the umask.
void ensurePrivateMode(const std::filesystem::path& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) == 0 && (st.st_mode & 0777) != kFileMode) (void)::chmod(path.c_str(), kFileMode);
}

std::string uriEscaped(const std::string& path) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : path) {
        if (std::isalnum(c) || c == '/' || c == '-' || c == '.' || c == '_' || c == '~') {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += kHex[c >> 4];
            out += kHex[c & 0xF];
        }
    }
    return out;
}

bool isPermissionProblem(int rc) {
    int primary = rc & 0xFF;
    return primary == SQLITE_READONLY || primary == SQLITE_CANTOPEN || primary == SQLITE_PERM ||
           primary == SQLITE_AUTH;
}

Value decodeBlob(sqlite3_stmt* statement, int column) {
    const void* blob = sqlite3_column_blob(statement, column);
    int size = sqlite3_column_bytes(statement, column);
    if (blob == nullptr || size <= 0) return {};
    return PropertyList::read(std::string_view(static_cast<const char*>(blob), static_cast<std::size_t>(size)));
}

// flock() on the suite's lock file, released when the object goes away. A separate file, because closing
// any descriptor of the database itself would drop SQLite's POSIX locks on it (see open()).
class SuiteLock {
public:
    explicit SuiteLock(const std::filesystem::path& path)
        : fd_(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kFileMode)) {}
    ~SuiteLock() {
        if (fd_ >= 0) ::close(fd_);
    }
    SuiteLock(const SuiteLock&) = delete;
    SuiteLock& operator=(const SuiteLock&) = delete;

    // LOCK_SH or LOCK_EX; a held lock is converted, which is not atomic: callers re-check what they saw.
    bool acquire(int operation) {
        if (fd_ < 0) return false;
        while (::flock(fd_, operation) != 0) {
            if (errno != EINTR) return false;
        }
        held_ = true;
        return true;
    }
    bool held() const { return held_; }

private:
    int fd_;
    bool held_ = false;
};

std::int64_t modifiedNanoseconds(const struct stat& st) {
#ifdef __APPLE__
    const timespec& t = st.st_mtimespec;
#else
    const timespec& t = st.st_mtim;
#endif
    return std::int64_t{t.tv_sec} * 1000000000 + t.tv_nsec;
}

std::int64_t nanosecondsSinceEpoch(std::chrono::system_clock::time_point t) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(t.time_since_epoch()).count();
}

bool sameFile(const struct stat& a, const struct stat& b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

void closeDatabase(sqlite3*& db) {
    sqlite3_close_v2(db);
    db = nullptr;
}

// Every statement of a script; SQLITE_OK or the first failure's code.
int execute(sqlite3* db, const char* sql) { return sqlite3_exec(db, sql, nullptr, nullptr, nullptr); }

std::int64_t pragmaNumber(sqlite3* db, const char* sql) {
    sqlite3_stmt* s = nullptr;
    std::int64_t n = 0;
    if (sqlite3_prepare_v2(db, sql, -1, &s, nullptr) == SQLITE_OK && sqlite3_step(s) == SQLITE_ROW)
        n = sqlite3_column_int64(s, 0);
    sqlite3_finalize(s);
    return n;
}

std::optional<std::string> firstText(sqlite3* db, const char* sql) {
    sqlite3_stmt* s = nullptr;
    std::optional<std::string> text;
    if (sqlite3_prepare_v2(db, sql, -1, &s, nullptr) == SQLITE_OK && sqlite3_step(s) == SQLITE_ROW) {
        const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(s, 0));
        text = bytes ? bytes : "";
    }
    sqlite3_finalize(s);
    return text;
}

// A database of our own in memory, with the page size of `like` so that SQLite's backup can fill it
// (backup refuses an in-memory destination of another page size).
sqlite3* openMemoryDatabase(sqlite3* like) {
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(":memory:", &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK) {
        closeDatabase(db);
        return nullptr;
    }
    if (like != nullptr) {
        const std::string sql = "PRAGMA page_size=" + std::to_string(pragmaNumber(like, "PRAGMA page_size"));
        (void)execute(db, sql.c_str());
    }
    return db;
}

bool backupInto(sqlite3* destination, sqlite3* source) {
    sqlite3_backup* backup = sqlite3_backup_init(destination, "main", source, "main");
    if (backup == nullptr) return false;
    const int stepped = sqlite3_backup_step(backup, -1);
    return sqlite3_backup_finish(backup) == SQLITE_OK && stepped == SQLITE_DONE;
}

// The file image of an in-memory database, its header marked for WAL (2) or a rollback journal (1).
// Bytes 18 and 19 say only which journal to expect; a rollback copy is read without a -wal or -shm.
std::optional<std::string> imageOf(sqlite3* db, unsigned char journalVersion) {
    sqlite3_int64 size = 0;
    unsigned char* bytes = sqlite3_serialize(db, "main", &size, 0);
    if (bytes == nullptr) return std::nullopt;
    std::optional<std::string> image;
    if (size >= 100) {
        bytes[18] = bytes[19] = journalVersion;
        image.emplace(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size));
    }
    sqlite3_free(bytes);
    return image;
}

std::string columnBytes(sqlite3_stmt* s, int column) {
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(s, column));
    return bytes ? std::string(bytes, static_cast<std::size_t>(sqlite3_column_bytes(s, column))) : std::string();
}

// The quick check's first complaint, for a log line: it reports one per line, after a heading line.
std::string firstComplaint(const std::string& report) {
    std::vector<std::string> lines;
    for (std::size_t start = 0; start < report.size();) {
        std::size_t end = std::min(report.find('\n', start), report.size());
        if (report.compare(start, 3, "***") != 0 && end > start) lines.push_back(report.substr(start, end - start));
        start = end + 1;
    }
    if (lines.empty()) return report;
    return lines.size() == 1 ? lines.front() : lines.front() + " and " + std::to_string(lines.size() - 1) + " more";
}

using Rows = std::map<std::string, std::string>;  // key -> stored bytes

// Reads rows with SQLite in key order, starting over just past the last key read whenever a step fails
// (a bad page ends a scan, not the recovery). A seek past a bad leaf tends to land on it again, so the
// caller scans once each way. Answers whether the scan reached its end without an error.
bool scanInOrder(sqlite3* db, bool forward, Rows& rows) {
    const char* first = forward ? "SELECT key, value FROM preferences ORDER BY key"
                                : "SELECT key, value FROM preferences ORDER BY key DESC";
    const char* resume = forward ? "SELECT key, value FROM preferences WHERE key > ?1 ORDER BY key"
                                 : "SELECT key, value FROM preferences WHERE key < ?1 ORDER BY key DESC";
    std::optional<std::string> last;
    bool clean = true;
    for (bool progress = true; progress;) {
        progress = false;
        sqlite3_stmt* s = nullptr;
        if (sqlite3_prepare_v2(db, last ? resume : first, -1, &s, nullptr) != SQLITE_OK) {
            sqlite3_finalize(s);
            return false;
        }
        if (last) sqlite3_bind_text(s, 1, last->data(), static_cast<int>(last->size()), SQLITE_TRANSIENT);
        int rc;
        while ((rc = sqlite3_step(s)) == SQLITE_ROW) {
            std::string key = columnBytes(s, 0);
            rows.try_emplace(key, columnBytes(s, 1));
            last = std::move(key);
            progress = true;
        }
        sqlite3_finalize(s);
        if (rc == SQLITE_DONE) return clean;
        clean = false;
    }
    return false;
}

struct Salvage {
    Rows rows;
    std::size_t bySqlite = 0;
    std::size_t fromPages = 0;
    std::size_t refused = 0;  // page rows whose value is not a property list
    std::optional<SuitePageReader::Result> pages;
};

// Every row still readable in the damaged database at path, read without changing it: read-only, and no
// checkpoint on close, so its WAL stays as it was for whoever looks at the moved-aside file later.
Salvage salvage(const std::filesystem::path& path, std::uint32_t pageSize) {
    Salvage result;
    sqlite3* db = nullptr;
    bool complete = false;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr) == SQLITE_OK) {
        sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
        // Otherwise SQLite refuses a file shorter than its header says, and a truncated suite is exactly that.
        sqlite3_db_config(db, SQLITE_DBCONFIG_WRITABLE_SCHEMA, 1, nullptr);
        sqlite3_busy_timeout(db, UserDefaults::kBusyTimeoutMs);
        complete = scanInOrder(db, true, result.rows);
        if (!complete) (void)scanInOrder(db, false, result.rows);
    }
    closeDatabase(db);
    result.bySqlite = result.rows.size();
    if (complete) return result;

    result.pages = SuitePageReader::readFile(path, pageSize);
    Rows found;
    for (SuitePageReader::Row& row : result.pages->rows) {
        if (result.rows.count(row.key) != 0 || found.count(row.key) != 0) continue;
        // Bytes that merely parse as a record are not enough: every value we store is a property list.
        if (PropertyList::read(row.value).isAbsent()) {
            ++result.refused;
            continue;
        }
        found.emplace(std::move(row.key), std::move(row.value));
    }
    result.fromPages = found.size();
    result.rows.merge(found);
    return result;
}

std::string joined(const std::vector<std::string>& names) {
    std::string out;
    for (const std::string& name : names) out += (out.empty() ? "" : ", ") + name;
    return out;
}

}  // namespace

std::string UserDefaults::fileNameForSuite(std::string_view suiteName) {
    return std::string(suiteName) + std::string(kSuffix);
}

UserDefaults& UserDefaults::standardUserDefaults() {
    static UserDefaults* const instance = [] {
        const auto bundle = MainBundle::main();
        std::string name = bundle->bundleIdentifier();
        if (name.empty()) name = bundle->executableName();
        return new UserDefaults(std::move(name), Folders::sharedInstance().preferencesFolder());
    }();
    return *instance;
}

UserDefaults::UserDefaults(std::string suiteName, std::filesystem::path preferencesFolder)
    : suiteName_(std::move(suiteName)),
      folder_(std::move(preferencesFolder)),
      databasePath_(folder_ / fileNameForSuite(suiteName_)),
      lastGoodPath_(databasePath_.string() + ".last-good"),
      lockPath_(databasePath_.string() + ".lock") {
    std::lock_guard lock(mutex_);
    open();
}

UserDefaults::~UserDefaults() {
    std::lock_guard lock(mutex_);
    closeConnection();
}

void UserDefaults::logSqliteError(const char* what, int rc) const {
    NBLog::sharedInstance().log(4, "UserDefaults {}: {} failed: {} ({})", suiteName_, what,
                                db_ ? sqlite3_errmsg(db_) : sqlite3_errstr(rc), rc);
}

void UserDefaults::closeConnection() {
    for (sqlite3_stmt** s : {&selectStatement_, &upsertStatement_, &deleteStatement_, &insertIfAbsentStatement_}) {
        sqlite3_finalize(*s);
        *s = nullptr;
    }
    if (db_) sqlite3_close_v2(db_);
    db_ = nullptr;
    readOnly_ = false;
    decoded_.clear();
}

void UserDefaults::open() {
    auto& log = NBLog::sharedInstance();
    if (!validSuiteName(suiteName_)) {
        log.log(4, "UserDefaults: invalid suite name \"{}\"; nothing will be stored", suiteName_);
        return;
    }
    std::error_code ec;
    if (!std::filesystem::exists(folder_, ec)) {
        if (std::filesystem::create_directories(folder_, ec)) {
            std::filesystem::permissions(folder_, std::filesystem::perms::owner_all, ec);
            syncFolder(folder_.parent_path());
        }
    }
    // Shared while this open looks at the suite, so that no recovery swaps files under it; a folder
    // that cannot hold the lock file cannot be recovered in either, and is still read.
    SuiteLock lock(lockPath_);
    (void)lock.acquire(LOCK_SH);
    // Create the file ourselves so that its mode never depends on the umask. Only a missing file is
    // opened here: closing any descriptor of a file drops every POSIX lock this process holds on it,
    // including those of SQLite connections of other instances on the suite, and a connection that
    // silently lost its shared lock lets another process take the database for unused, checkpoint it
    // and reset its WAL under this one (disk I/O errors, lost writes).
    bool existed = std::filesystem::exists(databasePath_, ec);
    int fd = existed ? -1
                     : ::open(databasePath_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, kFileMode);
    if (fd >= 0) {
        ::close(fd);
        syncFolder(folder_);
    }
    if (fd < 0) existed = std::filesystem::exists(databasePath_, ec);  // another instance may have created it
    if (fd >= 0 || existed) {
        ensurePrivateMode(databasePath_);
        ensurePrivateMode(databasePath_.string() + "-wal");
        ensurePrivateMode(databasePath_.string() + "-shm");
    }

    bool recovered = false;
    for (;;) {
        // Judged before this open's own connection creates an empty WAL.
        const bool copyStale = lastGoodCopyIsStale();
        std::string problem;
        int rc = openConnection(false) ? SQLITE_OK : sqlite3_extended_errcode(db_);
        if (rc == SQLITE_OK && !prepareStatements()) rc = sqlite3_extended_errcode(db_);
        if (rc == SQLITE_OK) {
            const Health health = checkLocked(problem);
            if (health == Health::Sound && copyStale) saveLastGoodCopyLocked();
            if (health != Health::Damaged) return;
        } else if ((rc & 0xFF) == SQLITE_NOTADB || (rc & 0xFF) == SQLITE_CORRUPT) {
            problem = db_ ? sqlite3_errmsg(db_) : sqlite3_errstr(rc);
        } else if (isPermissionProblem(rc)) {
            closeConnection();
            if (openConnection(true)) {
                log.log(4, "UserDefaults {}: {} cannot be written; the suite is read-only", suiteName_,
                        folder_.string());
                (void)prepareStatements();  // no table yet: every key reads as missing
                return;
            }
            logSqliteError("opening", rc);
            closeConnection();
            return;
        } else {
            logSqliteError("opening", rc);
            closeConnection();
            return;
        }

        // Damaged. Leave the file exactly as found: no checkpoint into it, its WAL kept.
        struct stat found {};
        const bool located = ::stat(databasePath_.c_str(), &found) == 0;
        if (db_ != nullptr) sqlite3_db_config(db_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
        closeConnection();
        if (recovered || !located || !lock.held()) {
            log.log(4, "UserDefaults {}: {} is damaged ({}) and cannot be recovered{}", suiteName_,
                    databasePath_.string(), problem, recovered ? " even after a rebuild" : "");
            return;
        }
        log.log(4, "UserDefaults {}: {} is damaged ({}); waiting for other opens to finish before recovering it",
                suiteName_, databasePath_.string(), problem);
        if (!lock.acquire(LOCK_EX)) {
            log.log(4, "UserDefaults {}: cannot lock {}: {}", suiteName_, lockPath_.string(), std::strerror(errno));
            return;
        }
        // Another process may have recovered it while this one waited: then the path names its new file.
        struct stat now {};
        if (::stat(databasePath_.c_str(), &now) == 0 && sameFile(now, found)) {
            if (!recoverLocked(problem)) return;
            recovered = true;
        }
    }
}

UserDefaults::Health UserDefaults::checkLocked(std::string& problem) {
    sqlite3_stmt* s = nullptr;
    int rc = sqlite3_prepare_v2(db_, "PRAGMA quick_check", -1, &s, nullptr);
    if (rc == SQLITE_OK) rc = sqlite3_step(s);
    Health health = Health::Unknown;
    if (rc == SQLITE_ROW) {
        const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(s, 0));
        problem = text ? text : "";
        health = problem == "ok" ? Health::Sound : Health::Damaged;
        problem = firstComplaint(problem);
    } else if ((rc & 0xFF) == SQLITE_CORRUPT || (rc & 0xFF) == SQLITE_NOTADB) {
        problem = sqlite3_errmsg(db_);
        health = Health::Damaged;
    } else {
        // Busy beyond the timeout or an I/O error says nothing about the file; use it unchecked.
        logSqliteError("checking", rc);
    }
    sqlite3_finalize(s);
    return health;
}

bool UserDefaults::lastGoodCopyIsStale() const {
    struct stat copy {}, st {};
    if (::stat(lastGoodPath_.c_str(), &copy) != 0) return true;
    const std::int64_t copied = modifiedNanoseconds(copy);
    // A copy stamped in the future says the clock went back since; its stamp proves nothing.
    if (copied > nanosecondsSinceEpoch(std::chrono::system_clock::now() + kCopyClockSlack)) return true;
    if (::stat(databasePath_.c_str(), &st) == 0 && modifiedNanoseconds(st) >= copied) return true;
    // An empty WAL is only a reader having opened the suite; one with frames was written to.
    const std::string wal = databasePath_.string() + "-wal";
    return ::stat(wal.c_str(), &st) == 0 && st.st_size > 0 && modifiedNanoseconds(st) >= copied;
}

void UserDefaults::saveLastGoodCopyLocked() {
    // Stamped with a time before the snapshot, less the slack, so a write that lands during or just after
    // the snapshot is still newer than the copy. Two opens copying at once may swap stamps; the slack
    // covers that too, unless their snapshots are further apart than the slack itself.
    const auto stamp = std::chrono::system_clock::now() - kCopyClockSlack;
    sqlite3* memory = openMemoryDatabase(db_);
    std::optional<std::string> image;
    if (memory != nullptr && backupInto(memory, db_)) image = imageOf(memory, 1);
    closeDatabase(memory);
    if (!image) {
        logSqliteError("copying the suite", sqlite3_errcode(db_));
        return;
    }
    if (auto failure = AtomicFile::write(lastGoodPath_, *image)) {
        NBLog::sharedInstance().log(4, "UserDefaults {}: cannot keep a last good copy: {}", suiteName_, *failure);
        return;
    }
    const std::int64_t ns = nanosecondsSinceEpoch(stamp);
    const timespec times[2] = {{0, UTIME_OMIT}, {static_cast<time_t>(ns / 1000000000), static_cast<long>(ns % 1000000000)}};
    (void)::utimensat(AT_FDCWD, lastGoodPath_.c_str(), times, 0);
    syncFolder(folder_);
}

bool UserDefaults::recoverLocked(const std::string& problem) {
    auto& log = NBLog::sharedInstance();
    // Built in memory and written whole, so that no process ever opens half a rebuilt suite.
    sqlite3* fresh = nullptr;
    std::string copyProblem = "there is none";
    std::uint32_t pageSize = SuitePageReader::kDefaultPageSize;
    if (::access(lastGoodPath_.c_str(), F_OK) == 0) {
        sqlite3* copy = nullptr;
        if (sqlite3_open_v2(lastGoodPath_.c_str(), &copy, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr) ==
            SQLITE_OK) {
            const std::optional<std::string> verdict = firstText(copy, "PRAGMA quick_check");
            fresh = verdict == "ok" ? openMemoryDatabase(copy) : nullptr;
            if (fresh != nullptr && backupInto(fresh, copy)) {
                copyProblem.clear();
                pageSize = static_cast<std::uint32_t>(pragmaNumber(copy, "PRAGMA page_size"));
            } else {
                copyProblem = verdict && *verdict != "ok" ? *verdict : sqlite3_errmsg(copy);
                closeDatabase(fresh);
            }
        } else {
            copyProblem = sqlite3_errmsg(copy);
        }
        closeDatabase(copy);
    }
    if (fresh == nullptr) fresh = openMemoryDatabase(nullptr);
    std::set<std::string> copyKeys;
    if (fresh != nullptr && execute(fresh, kCreateTable) == SQLITE_OK) {
        sqlite3_stmt* s = nullptr;
        if (sqlite3_prepare_v2(fresh, "SELECT key FROM preferences", -1, &s, nullptr) == SQLITE_OK) {
            while (sqlite3_step(s) == SQLITE_ROW) copyKeys.insert(columnBytes(s, 0));
        }
        sqlite3_finalize(s);
    } else {
        closeDatabase(fresh);
    }

    const Salvage found = salvage(databasePath_, pageSize);
    std::optional<std::string> image;
    if (fresh != nullptr) {
        // The damaged file's rows are newer than the copy's wherever both have a key.
        sqlite3_stmt* s = nullptr;
        bool ok = execute(fresh, "BEGIN") == SQLITE_OK &&
                  sqlite3_prepare_v2(fresh, "INSERT OR REPLACE INTO preferences (key, value) VALUES (?1, ?2)", -1,
                                     &s, nullptr) == SQLITE_OK;
        for (auto it = found.rows.begin(); ok && it != found.rows.end(); ++it) {
            sqlite3_bind_text(s, 1, it->first.data(), static_cast<int>(it->first.size()), SQLITE_STATIC);
            sqlite3_bind_blob(s, 2, it->second.data(), static_cast<int>(it->second.size()), SQLITE_STATIC);
            ok = sqlite3_step(s) == SQLITE_DONE;
            sqlite3_reset(s);
        }
        sqlite3_finalize(s);
        if (ok && execute(fresh, "COMMIT") == SQLITE_OK) image = imageOf(fresh, 2);
        closeDatabase(fresh);
    }
    if (!image) {
        log.log(4, "UserDefaults {}: {} is damaged ({}) and a suite could not be rebuilt in memory", suiteName_,
                databasePath_.string(), problem);
        return false;
    }

    // A second name for the damaged file first, then the rebuilt suite renamed over the first: the path
    // never goes missing, and a crash in between leaves a damaged suite to recover again.
    const std::string path = databasePath_.string();
    const auto stamp = std::chrono::duration_cast<std::chrono::seconds>(
                           std::chrono::system_clock::now().time_since_epoch())
                           .count();
    std::string aside = path + ".corrupt-" + std::to_string(stamp);
    for (int n = 1; ::access(aside.c_str(), F_OK) == 0; ++n) aside = path + ".corrupt-" + std::to_string(stamp) + "-" + std::to_string(n);
    if (::link(path.c_str(), aside.c_str()) != 0 && ::rename(path.c_str(), aside.c_str()) != 0) {
        log.log(4, "UserDefaults {}: {} is damaged ({}) and cannot be moved aside: {}", suiteName_, path, problem,
                std::strerror(errno));
        return false;
    }
    // The WAL belongs with the bytes it modifies; an empty one (opening a suite makes one) holds nothing.
    // The -shm is only an index SQLite rebuilds.
    const std::string wal = path + "-wal";
    struct stat walStat {};
    if (::stat(wal.c_str(), &walStat) == 0) {
        (void)(walStat.st_size > 0 ? ::rename(wal.c_str(), (aside + "-wal").c_str()) : ::unlink(wal.c_str()));
    }
    (void)::unlink((path + "-shm").c_str());
    if (auto failure = AtomicFile::write(databasePath_, *image)) {
        log.log(4, "UserDefaults {}: {} is damaged ({}); moved it to {} but cannot write the rebuilt suite: {}",
                suiteName_, path, problem, aside, *failure);
        return false;
    }
    syncFolder(folder_);

    std::vector<std::string> onlyInCopy;
    for (const std::string& key : copyKeys)
        if (found.rows.count(key) == 0) onlyInCopy.push_back(key);
    log.log(4, "UserDefaults {}: {} was damaged ({}); moved it to {} and rebuilt the suite from what could be read",
            suiteName_, path, problem, aside);
    if (copyProblem.empty()) {
        log.log(4, "UserDefaults {}: recovered {} keys from the damaged file ({} read by SQLite, {} from its pages) "
                "and {} more from the last good copy {}",
                suiteName_, found.rows.size(), found.bySqlite, found.fromPages, onlyInCopy.size(),
                lastGoodPath_.string());
    } else {
        log.log(4, "UserDefaults {}: recovered {} keys from the damaged file ({} read by SQLite, {} from its pages); "
                "no last good copy could be used: {}",
                suiteName_, found.rows.size(), found.bySqlite, found.fromPages, copyProblem);
    }
    if (!onlyInCopy.empty()) {
        log.log(4, "UserDefaults {}: only the last good copy had {} keys; their newest values may be lost: {}",
                suiteName_, onlyInCopy.size(), joined(onlyInCopy));
    }
    if (found.pages) {
        log.log(4, "UserDefaults {}: {} of {} pages of the damaged file could not be read, {} damaged cells were "
                "skipped and {} rows were not property lists; keys stored there since the last good copy are lost",
                suiteName_, found.pages->unreadablePages, found.pages->pageCount, found.pages->skippedCells,
                found.refused);
    }
    return true;
}

bool UserDefaults::openConnection(bool readOnly) {
    closeConnection();
    const std::string path = databasePath_.string();
    if (!readOnly) {
        int rc = sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
        if (rc != SQLITE_OK) return false;
        sqlite3_extended_result_codes(db_, 1);
        sqlite3_busy_timeout(db_, kBusyTimeoutMs);
        // WAL lets readers in other processes proceed while one writes; FULL syncs the WAL on every
        // commit, which is what makes an acknowledged set survive a power loss.
        sqlite3_stmt* statement = nullptr;
        rc = sqlite3_prepare_v2(db_, "PRAGMA journal_mode=WAL", -1, &statement, nullptr);
        if (rc == SQLITE_OK) rc = sqlite3_step(statement);
        std::string mode = rc == SQLITE_ROW ? reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)) : "";
        sqlite3_finalize(statement);
        if (rc != SQLITE_ROW) return false;
        if (mode != "wal") {
            NBLog::sharedInstance().log(4, "UserDefaults {}: journal mode is {}, not wal", suiteName_, mode);
        }
        if (sqlite3_exec(db_, "PRAGMA synchronous=FULL", nullptr, nullptr, nullptr) != SQLITE_OK) return false;
        return sqlite3_exec(db_, kCreateTable, nullptr, nullptr, nullptr) == SQLITE_OK;
    }
    // A WAL database needs its -shm file, which cannot be created in a read-only folder. Try a
    // plain read-only connection first (it works while the -wal and -shm are there and so sees any
    // commit not yet checkpointed), else read the main file alone as immutable.
    for (const std::string& name : {path, "file:" + uriEscaped(path) + "?immutable=1"}) {
        int flags = SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_URI;
        if (sqlite3_open_v2(name.c_str(), &db_, flags, nullptr) == SQLITE_OK) {
            sqlite3_extended_result_codes(db_, 1);
            sqlite3_busy_timeout(db_, kBusyTimeoutMs);
            if (sqlite3_exec(db_, "SELECT count(*) FROM sqlite_master", nullptr, nullptr, nullptr) == SQLITE_OK) {
                readOnly_ = true;
                return true;
            }
        }
        sqlite3_close_v2(db_);
        db_ = nullptr;
    }
    return false;
}

bool UserDefaults::prepareStatements() {
    return sqlite3_prepare_v3(db_, "SELECT value FROM preferences WHERE key = ?1", -1, SQLITE_PREPARE_PERSISTENT,
                              &selectStatement_, nullptr) == SQLITE_OK &&
           (readOnly_ ||
            (sqlite3_prepare_v3(db_, "INSERT OR REPLACE INTO preferences (key, value) VALUES (?1, ?2)", -1,
                                SQLITE_PREPARE_PERSISTENT, &upsertStatement_, nullptr) == SQLITE_OK &&
             sqlite3_prepare_v3(db_, "DELETE FROM preferences WHERE key = ?1", -1, SQLITE_PREPARE_PERSISTENT,
                                &deleteStatement_, nullptr) == SQLITE_OK &&
             sqlite3_prepare_v3(db_,
                                "INSERT INTO preferences (key, value) VALUES (?1, ?2) ON CONFLICT (key) DO NOTHING",
                                -1, SQLITE_PREPARE_PERSISTENT, &insertIfAbsentStatement_, nullptr) == SQLITE_OK));
}

Value UserDefaults::storedValueLocked(std::string_view key) const {
    if (selectStatement_ == nullptr) return {};
    sqlite3_stmt* s = selectStatement_;
    sqlite3_bind_text(s, 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
    Value result;
    int rc = sqlite3_step(s);
    if (rc == SQLITE_ROW) {
        const void* blob = sqlite3_column_blob(s, 0);
        std::string_view bytes(static_cast<const char*>(blob), static_cast<std::size_t>(sqlite3_column_bytes(s, 0)));
        auto it = decoded_.find(key);
        if (it != decoded_.end() && it->second.bytes == bytes) {
            result = it->second.value;
        } else {
            result = bytes.empty() ? Value() : PropertyList::read(bytes);
            if (result.isAbsent()) {
                NBLog::sharedInstance().log(4, "UserDefaults {}: the value of {} is not a property list", suiteName_,
                                            key);
            } else {
                decoded_.insert_or_assign(std::string(key), CachedValue{std::string(bytes), result});
            }
        }
    } else {
        if (auto it = decoded_.find(key); it != decoded_.end()) decoded_.erase(it);
        if (rc != SQLITE_DONE) logSqliteError("reading", rc);
    }
    sqlite3_reset(s);
    sqlite3_clear_bindings(s);
    return result;
}

bool UserDefaults::writeLocked(sqlite3_stmt* statement, std::string_view key, const std::string* bytes,
                               const char* what) {
    if (db_ == nullptr || readOnly_ || statement == nullptr) {
        NBLog::sharedInstance().log(4, "UserDefaults {}: cannot {} {}: the suite is {}", suiteName_, what, key,
                                    db_ ? "read-only" : "not open");
        return false;
    }
    sqlite3_stmt* s = statement;
    sqlite3_bind_text(s, 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
    if (bytes) sqlite3_bind_blob(s, 2, bytes->data(), static_cast<int>(bytes->size()), SQLITE_STATIC);
    // One statement in autocommit mode is one transaction, durable once step answers DONE.
    int rc = sqlite3_step(s);
    bool ok = rc == SQLITE_DONE;
    if (!ok) NBLog::sharedInstance().log(4, "UserDefaults {}: cannot {} {}: {} ({})", suiteName_, what, key,
                                         sqlite3_errmsg(db_), rc);
    sqlite3_reset(s);
    sqlite3_clear_bindings(s);
    if (auto it = decoded_.find(key); it != decoded_.end()) decoded_.erase(it);
    return ok;
}

Value UserDefaults::objectForKey(std::string_view key) const {
    std::lock_guard lock(mutex_);
    Value stored = storedValueLocked(key);
    if (!stored.isAbsent()) return stored;
    return registered_.get(key);
}

std::optional<std::string> UserDefaults::stringForKey(std::string_view key) const {
    Value v = objectForKey(key);
    if (v.isString() || v.isNumber()) return v.stringValue();
    return std::nullopt;
}

std::int64_t UserDefaults::integerForKey(std::string_view key) const {
    Value v = objectForKey(key);
    return v.isString() || v.isNumber() ? v.integerValue() : 0;
}

bool UserDefaults::boolForKey(std::string_view key) const {
    Value v = objectForKey(key);
    return (v.isString() || v.isNumber()) && v.boolValue();
}

double UserDefaults::doubleForKey(std::string_view key) const {
    Value v = objectForKey(key);
    return v.isString() || v.isNumber() ? v.doubleValue() : 0.0;
}

float UserDefaults::floatForKey(std::string_view key) const { return static_cast<float>(doubleForKey(key)); }

Value UserDefaults::arrayForKey(std::string_view key) const {
    Value v = objectForKey(key);
    return v.isArray() ? v : Value();
}

Value UserDefaults::dictionaryForKey(std::string_view key) const {
    Value v = objectForKey(key);
    return v.isDictionary() ? v : Value();
}

std::optional<Data> UserDefaults::dataForKey(std::string_view key) const {
    Value v = objectForKey(key);
    if (const Data* d = v.asData()) return *d;
    return std::nullopt;
}

std::optional<std::string> UserDefaults::encodedForStoring(const Value& value, std::string_view forKey) const {
    std::optional<Data> encoded = PropertyList::write(value, PropertyList::Format::Binary);
    if (!encoded) {
        NBLog::sharedInstance().log(4, "UserDefaults {}: refused to store {} for {}: not a property-list value",
                                    suiteName_, value.kindName(), forKey);
        return std::nullopt;
    }
    return std::string(encoded->begin(), encoded->end());
}

bool UserDefaults::setObject(const Value& value, std::string_view forKey) {
    if (value.isAbsent()) return removeObjectForKey(forKey);
    const std::optional<std::string> bytes = encodedForStoring(value, forKey);
    if (!bytes) return false;
    std::lock_guard lock(mutex_);
    return writeLocked(upsertStatement_, forKey, &*bytes, "store");
}

bool UserDefaults::setObjectIfAbsent(const Value& value, std::string_view forKey) {
    const std::optional<std::string> bytes = encodedForStoring(value, forKey);
    if (!bytes) return false;
    std::lock_guard lock(mutex_);
    // The statement inserts nothing when the key exists; the row count tells whether this call won.
    return writeLocked(insertIfAbsentStatement_, forKey, &*bytes, "store") && sqlite3_changes(db_) == 1;
}

bool UserDefaults::setInteger(std::int64_t value, std::string_view forKey) {
    return setObject(Value(static_cast<long long>(value)), forKey);
}
bool UserDefaults::setBool(bool value, std::string_view forKey) { return setObject(Value(value), forKey); }
bool UserDefaults::setDouble(double value, std::string_view forKey) { return setObject(Value(value), forKey); }
bool UserDefaults::setFloat(float value, std::string_view forKey) {
    return setObject(Value(static_cast<double>(value)), forKey);
}
bool UserDefaults::setString(std::string value, std::string_view forKey) {
    return setObject(Value(std::move(value)), forKey);
}

bool UserDefaults::removeObjectForKey(std::string_view key) {
    std::lock_guard lock(mutex_);
    return writeLocked(deleteStatement_, key, nullptr, "remove");
}

void UserDefaults::registerDefaults(const Value& dictionary) {
    const Value::Dictionary* entries = dictionary.asDictionary();
    if (entries == nullptr) {
        NBLog::sharedInstance().log(4, "UserDefaults {}: registerDefaults needs a dictionary, not {}", suiteName_,
                                    dictionary.kindName());
        return;
    }
    std::lock_guard lock(mutex_);
    for (const auto& [key, value] : *entries) registered_.set(key, value);
}

Value UserDefaults::persistentDomain() const {
    Value::Dictionary result;
    std::lock_guard lock(mutex_);
    if (db_ == nullptr) return Value(std::move(result));
    sqlite3_stmt* s = nullptr;
    int rc = sqlite3_prepare_v2(db_, "SELECT key, value FROM preferences", -1, &s, nullptr);
    if (rc == SQLITE_OK) {
        while ((rc = sqlite3_step(s)) == SQLITE_ROW) {
            const auto* key = reinterpret_cast<const char*>(sqlite3_column_text(s, 0));
            Value value = decodeBlob(s, 1);
            if (key != nullptr && !value.isAbsent()) result.set(key, std::move(value));
        }
    }
    // A suite opened read-only before it ever had a table is simply empty.
    if (rc != SQLITE_DONE && !readOnly_) logSqliteError("listing", rc);
    sqlite3_finalize(s);
    return Value(std::move(result));
}

Value UserDefaults::dictionaryRepresentation() const {
    Value stored = persistentDomain();
    Value::Dictionary result;
    {
        std::lock_guard lock(mutex_);
        result = registered_;
    }
    for (const auto& [key, value] : *stored.asDictionary()) result.set(key, value);
    return Value(std::move(result));
}

bool UserDefaults::removePersistentDomain() {
    std::lock_guard lock(mutex_);
    if (db_ == nullptr || readOnly_) {
        NBLog::sharedInstance().log(4, "UserDefaults {}: cannot remove the suite: it is {}", suiteName_,
                                    db_ ? "read-only" : "not open");
        return false;
    }
    int rc = sqlite3_exec(db_, "DELETE FROM preferences", nullptr, nullptr, nullptr);
    decoded_.clear();
    if (rc != SQLITE_OK) {
        logSqliteError("removing the suite", rc);
        return false;
    }
    return true;
}

std::vector<std::string> UserDefaults::persistentDomainNames(const std::filesystem::path& preferencesFolder) {
    std::vector<std::string> names;
    std::error_code ec;
    for (std::filesystem::directory_iterator it(preferencesFolder, ec), end; !ec && it != end; it.increment(ec)) {
        std::string name = it->path().filename().string();
        if (name.size() <= kSuffix.size() || name.compare(name.size() - kSuffix.size(), kSuffix.size(), kSuffix) != 0)
            continue;
        name.resize(name.size() - kSuffix.size());
        if (validSuiteName(name) && it->is_regular_file(ec)) names.push_back(std::move(name));
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace nb
