#include "nbbase/foundation/UserDefaults.h"

#include <sqlite3.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>

#include "nbbase/foundation/NBLog.h"
#include "nbbase/foundation/Folders.h"
#include "nbbase/foundation/MainBundle.h"
#include "nbbase/foundation/PropertyList.h"

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

bool isSqliteHeader(const std::filesystem::path& path) {
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    char header[16] = {};
    ssize_t n = ::read(fd, header, sizeof header);
    ::close(fd);
    return n == 0 || (n == 16 && std::memcmp(header, "SQLite format 3", 16) == 0);
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
      databasePath_(folder_ / fileNameForSuite(suiteName_)) {
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

    for (int attempt = 0; attempt < 2; ++attempt) {
        int rc = openConnection(false) ? SQLITE_OK : sqlite3_extended_errcode(db_);
        if (rc == SQLITE_OK && prepareStatements()) return;
        if (rc == SQLITE_OK) rc = sqlite3_extended_errcode(db_);
        int primary = rc & 0xFF;
        if ((primary == SQLITE_NOTADB || primary == SQLITE_CORRUPT) && attempt == 0) {
            logSqliteError("opening", rc);
            closeConnection();
            if (!moveAsideIfNotADatabase(rc)) return;
            continue;
        }
        if (isPermissionProblem(rc)) {
            closeConnection();
            if (openConnection(true)) {
                log.log(4, "UserDefaults {}: {} cannot be written; the suite is read-only", suiteName_,
                        folder_.string());
                (void)prepareStatements();  // no table yet: every key reads as missing
                return;
            }
        }
        logSqliteError("opening", rc);
        closeConnection();
        return;
    }
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

bool UserDefaults::moveAsideIfNotADatabase(int errorCode) {
    auto& log = NBLog::sharedInstance();
    // Another process may have moved the bad file aside and started a fresh suite since we looked;
    // never move a file that now starts like a database unless SQLite called it corrupt.
    if ((errorCode & 0xFF) == SQLITE_NOTADB && isSqliteHeader(databasePath_)) return true;
    const auto stamp = std::chrono::duration_cast<std::chrono::seconds>(
                           std::chrono::system_clock::now().time_since_epoch())
                           .count();
    std::string aside = databasePath_.string() + ".corrupt-" + std::to_string(stamp);
    for (int n = 1; std::filesystem::exists(aside); ++n) {
        aside = databasePath_.string() + ".corrupt-" + std::to_string(stamp) + "-" + std::to_string(n);
    }
    if (::rename(databasePath_.c_str(), aside.c_str()) != 0) {
        log.log(4, "UserDefaults {}: {} is not a usable database and cannot be moved aside: {}", suiteName_,
                databasePath_.string(), std::strerror(errno));
        return false;
    }
    // The WAL belongs with the bytes it modifies; the -shm is only an index SQLite rebuilds.
    const std::string wal = databasePath_.string() + "-wal";
    if (::access(wal.c_str(), F_OK) == 0) (void)::rename(wal.c_str(), (aside + "-wal").c_str());
    (void)::unlink((databasePath_.string() + "-shm").c_str());
    log.log(4, "UserDefaults {}: {} was not a usable database; moved it to {} and started a fresh suite",
            suiteName_, databasePath_.string(), aside);
    int fd = ::open(databasePath_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kFileMode);
    if (fd >= 0) {
        (void)::fchmod(fd, kFileMode);
        ::close(fd);
    }
    syncFolder(folder_);
    return true;
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
