// NBErrorCode: turns a failure's numeric code (and optional sub-code) into the short message shown to the
// user, and formats the code triple shown beside it.
//
// The catalogue is a fixed table of 39 patterns. A pattern is "code-subCode" (that code with that non-zero
// sub-code), "code" (that code, any sub-code), or the code's quotient by 10, 100 or 1000 followed by one,
// two or three '*'. A lookup tries, most specific first: the pair (only when subCode is not 0), the code,
// then code/10, code/100 and code/1000 as wildcards (signed division, truncating toward zero), and
// answers the first message found, else the localised "Unknown error occurred".
//
// Language: the table's messages are localised when the instance is built and again only when
// initializeErrorCodeTable() is called, so they stay in the language in force at the last build. The
// unknown-code text and the code format are localised afresh on every call.
//
// Threads: every member may be called on any thread at once. The table is an immutable snapshot; a rebuild
// makes a whole new one and swaps it in under a short lock, so a lookup running meanwhile answers from the
// old table or the new one, never from a mix. Nothing else blocks except the gettext lookups, which are
// process-wide and thread-safe. No function throws; there are no error results.
//
// Lifetime: the Localization passed in must outlive the instance. sharedInstance() uses
// Localization::sharedInstance(), is created on first use and never destroyed.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "nbbase/foundation/Localization.h"

namespace nb {

class NBErrorCode {
public:
    struct Pattern {
        std::string_view pattern;
        std::string_view message;  // English; also the gettext message id
    };

    static constexpr std::string_view kUnknownMessage = "Unknown error occurred";
    static constexpr std::string_view kCodeFormat = "Error Code:%ld-%ld-%ld";

    // The process-wide catalogue, created on first use (thread-safely) and never destroyed.
    static NBErrorCode& sharedInstance();

    explicit NBErrorCode(const Localization& localization = Localization::sharedInstance());

    NBErrorCode(const NBErrorCode&) = delete;
    NBErrorCode& operator=(const NBErrorCode&) = delete;

    // The localised message for a code; subCode 0 means there is no sub-code. Never empty.
    [[nodiscard]] std::string queryErrorMessage(std::int64_t code, std::int64_t subCode) const;

    // The localised "Error Code:%ld-%ld-%ld" filled with module, code and subCode, in that order (the
    // parameters' order differs on purpose). A translation that is not a safe code format (see below) is
    // ignored, with one error logged, and the English format used.
    [[nodiscard]] std::string formatErrorCode(std::int64_t code, std::int64_t subCode, std::int64_t module) const;

    // Rebuilds the table in the language in force now and swaps it in whole. A host that changes the
    // user's language calls this afterwards so that the shared catalogue follows. With glibc, changing
    // language is setting LANGUAGE or LC_* and calling setlocale(LC_ALL, "") again, which also makes
    // gettext forget its earlier answers. Lookups may run on other threads meanwhile (see above).
    void initializeErrorCodeTable();

    // A copy of the table in force: pattern -> localised message.
    std::map<std::string, std::string> errorCodeTable() const;

    // The table as written, in the order it is built.
    static std::span<const Pattern> englishErrorCodeTable();

    // True when `format` holds exactly three "%ld" conversions and no other conversion ("%%" is a literal
    // percent sign). Only such a format is ever filled, so a translation cannot misuse the arguments.
    static bool isSafeCodeFormat(std::string_view format);

private:
    // One level of the lookup: sorted by key, searched by bisection. Tiny, so a flat vector beats a hash.
    template <typename Key>
    using Level = std::vector<std::pair<Key, std::string>>;

    // One build of the catalogue; never changed once published.
    struct Table {
        std::map<std::string, std::string> errorCodeTable;
        Level<std::pair<std::int64_t, std::int64_t>> pairs;  // "code-subCode"
        Level<std::int64_t> byQuotient[4];                   // "code", "code/10*", "code/100**", "code/1000***"
    };

    std::shared_ptr<const Table> table() const;

    const Localization& localization_;
    const std::string unknownId_;     // kUnknownMessage, kept as a string so a lookup does not build one
    const std::string codeFormatId_;  // kCodeFormat, likewise
    mutable std::mutex mutex_;
    std::shared_ptr<const Table> table_;  // guarded by mutex_; never null after construction
    mutable std::atomic<bool> reportedBadFormat_{false};
};

}  // namespace nb
