// InterestsSnapshot: one consistent state of the interests store: the three record lists, the base
// interests per property level, the server time of the last reply and the trial flags.
//
// The store never changes a snapshot that readers can see. A parse copies the current snapshot (the lists
// are shared, so the copy is cheap), applies the reply to the copy with the apply functions below and
// publishes the copy whole; readers keep whichever snapshot they took. That is what lets the rules run on
// the main thread while a reply is parsed on the SDK's thread without either seeing half of the other.
//
// Absent versus empty: a list (or the base-interest map) is null until a reply first carried its section;
// every rule treats null as empty. A section missing from a reply leaves its list as it was, a section
// that is present replaces it, even when empty: the servers send only the sections that changed.
//
// Threads: a published snapshot is immutable and may be read from any number of threads. The apply
// functions mutate, so they are only called on a private copy.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "nbbase/entitlements/HavingInterest.h"
#include "nbbase/entitlements/InterestFields.h"
#include "nbbase/entitlements/NoHavingInterest.h"
#include "nbbase/entitlements/StableInterest.h"
#include "nbbase/entitlements/TriableInterest.h"
#include "nbbase/foundation/Value.h"

namespace nb {

struct InterestsSnapshot {
    using HavingList = std::vector<std::shared_ptr<const HavingInterest>>;
    using TriableList = std::vector<std::shared_ptr<const TriableInterest>>;
    using NoHavingList = std::vector<std::shared_ptr<const NoHavingInterest>>;
    // Property level as decimal text ("0", "1", "2") to its base interest.
    using StableInterestMap = std::map<std::string, std::shared_ptr<const StableInterest>, std::less<>>;
    // Frame rate or quality level to whether the user's level gives it anyway (false: a trial right).
    // Keyed by the 32-bit value, which is how every rule compares attribute values.
    using TriableFlags = std::map<std::int32_t, bool>;

    // How a full interests reply is read. Full is the store's own parse; Text is the unlocked text parse
    // kept for callers that hold the reply as text, which differs on purpose: a held idle-play record keeps
    // hangup 0, "product_id" is stored as the JSON gave it, and "no_having" is not read.
    enum class ReplyForm { Full, Text };

    std::shared_ptr<const HavingList> havingInterests;
    std::shared_ptr<const TriableList> availableIntrests;
    std::shared_ptr<const NoHavingList> noHavingInterests;
    std::int64_t currentTS = 0;  // server time of the last reply, Unix seconds
    std::shared_ptr<const StableInterestMap> stableInterestDict;
    TriableFlags fpsTriableFlag;
    TriableFlags frameTriableFlag;
    bool hangTriableFlag = false;  // the held idle-play right is not part of the user's level

    // The "data" object of a full interests reply: its "timestamp" (0 when missing) and each section that
    // is present. A present section that is not an array empties its list; elements are read whatever
    // their kind, by Value's conversions.
    void applyInterests(const Value& data, ReplyForm form);
    // How an element of "having" and of "available_present" becomes a record in each form; shared by the
    // decoded reply above and InterestsReplyReader, which reads the text without a Value tree.
    static std::shared_ptr<const HavingInterest> havingRecord(const InterestFields& fields, ReplyForm form);
    static std::shared_ptr<const TriableInterest> availableRecord(const InterestFields& fields, ReplyForm form);
    // The "data" object of a user-property reply: replaces the base interests with those of levels 0, 1
    // and 2 that it holds.
    void applyStableInterests(const Value& data);
    // Rebuilds the trial flags for a property level from the held records. Answers false, leaving every
    // flag cleared, when there is no base interest for the level.
    bool applyTriableFlags(std::int64_t level);

    // The base interest of a level, or nullptr.
    [[nodiscard]] std::shared_ptr<const StableInterest> stableInterest(std::int64_t level) const;
};

}  // namespace nb
