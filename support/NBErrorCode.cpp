#include "nbbase/support/NBErrorCode.h"

#include <algorithm>
#include <cassert>
#include <charconv>

#include <fmt/format.h>

#include "nbbase/foundation/NBLog.h"

namespace nb {

namespace {

// The English texts are also the translation catalogues' message ids: keep them character for character,
// misspellings and the full-width comma included.
constexpr const char* kNoInit = "Failed to initialize NIMBO";
constexpr const char* kNetwork = "Startup failed, please check your network connection";
constexpr const char* kStatus = "Failed to query NIMBO service status";
constexpr const char* kLaunch = "Failed to launch the game";
constexpr const char* kSpeed = "Failed to test speed, please check your network connection";
constexpr const char* kLogin = "Failed to login NIMBO";
constexpr const char* kQualification = "Sorry, you haven't got the qualification";
constexpr const char* kTestPermission = "The account has no test permissions";
constexpr const char* kExpired = "Login session expired\xEF\xBC\x8Cplesae login again";
constexpr const char* kLibrary = "Failed to refresh the game library";
constexpr const char* kOutdated = "The appliction is outdated, please update to the latest version";
constexpr const char* kArchiving = "Your last game is being archived, please try again later";
constexpr const char* kMaintenance = "The game is in maintenance";
constexpr const char* kSessionError = "Unexpected error occurred, game ended";
constexpr const char* kNetworkEnded = "Network error, game ended";
constexpr const char* kIdle = "Game ended due to no action for a while";

constexpr NBErrorCode::Pattern kTable[] = {
    {"0*", kNoInit},
    {"101", kNetwork},
    {"1**", kStatus},
    {"201", kNetwork},
    {"2**", kLaunch},
    {"301", kNetwork},
    {"3**", kLaunch},
    {"1010*", kSpeed},
    {"1020*", kSpeed},
    {"20001", kNetwork},
    {"200**", kLogin},
    {"20003-21008", kQualification},
    {"20003-31212", kTestPermission},
    {"20003-22001", kExpired},
    {"20003-22003", kExpired},
    {"20101", kNetwork},
    {"201**", kLibrary},
    {"20201", kNetwork},
    {"202**", kLaunch},
    {"20203", kOutdated},
    {"20403-22005", kOutdated},
    {"20003-22005", kOutdated},
    {"20401", kNetwork},
    {"204**", kLaunch},
    {"20403-22022", kArchiving},
    {"20403-23003", kExpired},
    {"20403-23004", kExpired},
    {"20403-22017", kMaintenance},
    {"300**", kLaunch},
    {"30***", kSessionError},
    {"30106", kNetworkEnded},
    {"30107", kNetworkEnded},
    {"30108", kNetworkEnded},
    {"30110", kNetworkEnded},
    {"30201", kSessionError},
    {"30202-20", kArchiving},
    {"30410", kIdle},
    {"30503-9", kArchiving},
    {"30504", kNetworkEnded},
};

// What a pattern string stands for. level -1 is a code/sub-code pair; 0 an exact code; 1 to 3 the number
// of '*', that is the power of ten the code is divided by.
struct ParsedPattern {
    int level = -1;
    std::int64_t number = 0;
    std::int64_t subCode = 0;
};

bool readNumber(std::string_view& text, std::int64_t& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end == text.data()) return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return true;
}

bool parsePattern(std::string_view text, ParsedPattern& parsed) {
    if (!readNumber(text, parsed.number)) return false;
    if (text.empty()) {
        parsed.level = 0;
        return true;
    }
    if (text.size() <= 3 && text.find_first_not_of('*') == std::string_view::npos) {
        parsed.level = static_cast<int>(text.size());
        return true;
    }
    if (text.front() != '-') return false;
    text.remove_prefix(1);
    parsed.level = -1;
    return readNumber(text, parsed.subCode) && text.empty() && parsed.subCode != 0;
}

template <typename Level, typename Key>
const std::string* findIn(const Level& level, const Key& key) {
    const auto it = std::lower_bound(level.begin(), level.end(), key,
                                     [](const auto& entry, const Key& k) { return entry.first < k; });
    return it != level.end() && it->first == key ? &it->second : nullptr;
}

}  // namespace

NBErrorCode& NBErrorCode::sharedInstance() {
    static NBErrorCode* const instance = new NBErrorCode();
    return *instance;
}

NBErrorCode::NBErrorCode(const Localization& localization)
    : localization_(localization), unknownId_(kUnknownMessage), codeFormatId_(kCodeFormat) {
    initializeErrorCodeTable();
}

std::span<const NBErrorCode::Pattern> NBErrorCode::englishErrorCodeTable() { return kTable; }

void NBErrorCode::initializeErrorCodeTable() {
    // Built aside, outside the lock (gettext is the slow part), then published whole.
    auto table = std::make_shared<Table>();

    // The lookup works on numbers, not on formatted keys: decimal without leading zeros is one-to-one with
    // the numbers, so matching (code / 100) against 201 is matching "%ld**" against "201**", without
    // formatting four strings per lookup.
    for (const Pattern& entry : kTable) {
        std::string message = localization_.localizedString(std::string(entry.message));
        ParsedPattern parsed;
        [[maybe_unused]] const bool valid = parsePattern(entry.pattern, parsed);
        assert(valid && "malformed error code pattern");
        if (parsed.level < 0) {
            table->pairs.emplace_back(std::pair{parsed.number, parsed.subCode}, message);
        } else {
            table->byQuotient[parsed.level].emplace_back(parsed.number, message);
        }
        table->errorCodeTable.emplace(std::string(entry.pattern), std::move(message));
    }
    auto byKey = [](const auto& a, const auto& b) { return a.first < b.first; };
    std::sort(table->pairs.begin(), table->pairs.end(), byKey);
    for (auto& level : table->byQuotient) std::sort(level.begin(), level.end(), byKey);

    std::shared_ptr<const Table> previous;
    {
        const std::lock_guard lock(mutex_);
        previous = std::exchange(table_, std::move(table));
    }
    // `previous` is released here, outside the lock; lookups still holding it keep it alive.
}

std::shared_ptr<const NBErrorCode::Table> NBErrorCode::table() const {
    const std::lock_guard lock(mutex_);
    return table_;
}

std::map<std::string, std::string> NBErrorCode::errorCodeTable() const { return table()->errorCodeTable; }

std::string NBErrorCode::queryErrorMessage(std::int64_t code, std::int64_t subCode) const {
    const std::shared_ptr<const Table> table = this->table();
    if (subCode != 0) {
        if (const std::string* message = findIn(table->pairs, std::pair{code, subCode})) return *message;
    }
    // Narrowest first; C++ division truncates toward zero, as the patterns expect (-5 / 10 is 0).
    constexpr std::int64_t kDivisors[] = {1, 10, 100, 1000};
    for (int level = 0; level < 4; ++level) {
        if (const std::string* message = findIn(table->byQuotient[level], code / kDivisors[level])) return *message;
    }
    return localization_.localizedString(unknownId_);
}

bool NBErrorCode::isSafeCodeFormat(std::string_view format) {
    int conversions = 0;
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%') continue;
        const std::string_view rest = format.substr(i + 1);
        if (rest.starts_with('%')) {
            i += 1;
        } else if (rest.starts_with("ld")) {
            ++conversions;
            i += 2;
        } else {
            return false;
        }
    }
    return conversions == 3;
}

std::string NBErrorCode::formatErrorCode(std::int64_t code, std::int64_t subCode, std::int64_t module) const {
    std::string format = localization_.localizedString(codeFormatId_);
    if (!isSafeCodeFormat(format)) {
        if (!reportedBadFormat_.exchange(true, std::memory_order_relaxed)) {
            NBLog::sharedInstance().log(4, "NBErrorCode: ignoring the translated code format \"{}\"", format);
        }
        format = codeFormatId_;
    }
    // The format is known to hold exactly three "%ld" and literal "%%", so it is filled here by hand rather
    // than handed to printf: no translation can ever reach a variadic call.
    const std::int64_t values[] = {module, code, subCode};
    std::size_t next = 0;
    std::string text;
    text.reserve(format.size() + 3 * 20);
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%') {
            text += format[i];
        } else if (format[i + 1] == '%') {
            text += '%';
            i += 1;
        } else {
            const fmt::format_int number(values[next++]);
            text.append(number.data(), number.size());
            i += 2;
        }
    }
    return text;
}

}  // namespace nb
