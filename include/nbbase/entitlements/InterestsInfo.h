// InterestsInfo: the signed-in user's interests (held, offered and not-held rights, and the base interests
// of each property level), fetched through the SDK bridge, and the rules that read them.
//
// The store posts no events: a client learns of new data from the completion callback of fetchInterests()
// and then asks the rules. It keeps nothing on disk and expires nothing by itself; the client runs its own
// timer from getNextCheckInterestsInfoTimerElapse() and fetches again when it fires.
//
// Replies: see InterestsSnapshot for how a reply replaces the lists (a missing section keeps its list, a
// present one replaces it, even when empty). A reply whose "code" is not 0 is logged and changes nothing;
// a "data" that is not an object counts as missing. Values of an unexpected kind convert by Value's rules.
// Every successful parse ends by recomputing the trial flags for the level VipInfo reports then.
//
// Threads: every function may be called on any thread.
// - Changes (the parses, checkUserInterestsTriableInfo) run under the store's recursive lock, one at a
//   time, and publish a new snapshot whole; a parse of a full reply publishes its lists and the flags
//   computed from them together. getNextCheckInterestsInfoTimerElapse() holds the lock too.
// - The rules and getters take no store lock: each reads one published snapshot (snapshot() hands it out),
//   so a reader on the main thread never waits for a parse on the SDK's thread and never sees half of one.
// - fetchInterests() and queryUserProperty() send their requests from the background queue given to
//   create(); replies are parsed, and fetchInterests' callback is called, on the SDK's thread.
//
// Lifetime: a store lives in a shared_ptr (create()). A reply that arrives after the store was destroyed is
// dropped and its callback not called. The collaborators given to create() must outlive the store.
// sharedInstance() is created once, thread-safely, and never destroyed.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "nbbase/core/NBConfiguration.h"
#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/entitlements/InterestRules.h"
#include "nbbase/entitlements/InterestsReplyReader.h"
#include "nbbase/entitlements/InterestsSnapshot.h"
#include "nbbase/entitlements/OnHookTimeMap.h"
#include "nbbase/entitlements/VipInfo.h"
#include "nbbase/foundation/ConcurrentQueue.h"
#include "nbbase/foundation/DispatchQueue.h"
#include "nbbase/foundation/NBLog.h"
#include "nbbase/foundation/Value.h"

namespace nb {

class InterestsInfo : public std::enable_shared_from_this<InterestsInfo> {
    struct Passkey {};

public:
    // 0 after a reply was parsed, -1 after the request failed.
    using InterestResult = std::function<void(std::int32_t result)>;
    // The interest types the store asks for.
    static constexpr std::string_view kInterestFilters = "[1,2,3,4,5,6,7]";

    static InterestsInfo& sharedInstance();
    static std::shared_ptr<InterestsInfo> create(NimboSdkManager& sdkManager = NimboSdkManager::sharedInstance(),
                                                 NBConfiguration& configuration = NBConfiguration::sharedInstance(),
                                                 VipInfo& vipInfo = VipInfo::sharedInstance(),
                                                 NBLog& log = NBLog::sharedInstance(),
                                                 DispatchQueue& background = ConcurrentQueue::global());

    InterestsInfo(Passkey, NimboSdkManager& sdkManager, NBConfiguration& configuration, VipInfo& vipInfo, NBLog& log,
                  DispatchQueue& background);
    InterestsInfo(const InterestsInfo&) = delete;
    InterestsInfo& operator=(const InterestsInfo&) = delete;

    // ---- Fetching and parsing ----------------------------------------------------------------------------

    // Asks for the base interests first if they are still missing (checkStableInterest, on this thread),
    // then for the full interests of `gameIds` (a JSON array; absent sends "[]") with the session token.
    // `interestResult` may be empty. Without an SDK instance nothing is sent and nothing is called back.
    void fetchInterests(const Value& gameIds, const std::optional<std::string>& instanceId,
                        InterestResult interestResult);
    // A full interests reply as text: false only when there is no text or it is not JSON; otherwise the
    // reply is applied (or logged, when its "code" is not 0), the trial flags recomputed, and true.
    bool parse(const std::optional<std::string>& text);
    // A decoded full interests reply; the trial flags are left as they were.
    void parseInterest(const Value& reply);
    // The variant for callers that hold a reply as text: true when it decoded with code 0 and a "data"
    // object, which is then applied in InterestsSnapshot::ReplyForm::Text. The trial flags are not touched.
    bool parseUserInterests(const std::optional<std::string>& text);
    // Asks for the base interests of the property levels; the reply is parsed and the trial flags
    // recomputed on the SDK's thread, whatever the parse answered. A failure is only logged.
    void queryUserProperty();
    // queryUserProperty() while no base interest is known: so they are fetched once per process, and again
    // only after a query that failed or brought none.
    void checkStableInterest();
    // A user-property reply as text: true when it decoded with code 0 and a "data" object.
    bool parseUserPropertyInterests(const std::optional<std::string>& text);
    // Rebuilds the trial flags for the level the two flags give (SVIP over VIP). Answers false, with every
    // flag cleared, when there is no base interest for the level.
    bool checkUserInterestsTriableInfo(bool isVip, bool isSvip);

    static std::shared_ptr<const StableInterest> parseStableInterest(const Value& dictionary);
    static std::string userProperty(std::int64_t level) { return InterestRules::userProperty(level); }
    static Value getArrayFromExtraData(std::string_view extraData, std::string_view key);
    static std::optional<OnHookTimeMap> getMaxHookOnTimeFromExtraData(std::string_view extraData);

    // ---- The stored state ------------------------------------------------------------------------------

    // The current snapshot, never null. Ask several questions of InterestRules(snapshot(), level) when the
    // answers must agree with each other.
    [[nodiscard]] std::shared_ptr<const InterestsSnapshot> snapshot() const;
    // Rules on the current snapshot and the level VipInfo reports now.
    [[nodiscard]] InterestRules rules() const;
    std::int64_t currentTS() const { return snapshot()->currentTS; }
    std::shared_ptr<const InterestsSnapshot::HavingList> havingInterests() const { return snapshot()->havingInterests; }
    std::shared_ptr<const InterestsSnapshot::TriableList> availableIntrests() const {
        return snapshot()->availableIntrests;
    }
    std::shared_ptr<const InterestsSnapshot::NoHavingList> noHavingInterests() const {
        return snapshot()->noHavingInterests;
    }
    std::shared_ptr<const InterestsSnapshot::StableInterestMap> stableInterestDict() const {
        return snapshot()->stableInterestDict;
    }
    InterestsSnapshot::TriableFlags fpsTriableFlag() const { return snapshot()->fpsTriableFlag; }
    InterestsSnapshot::TriableFlags frameTriableFlag() const { return snapshot()->frameTriableFlag; }
    bool hangTriableFlag() const { return snapshot()->hangTriableFlag; }

    // ---- Rules (see InterestRules) ---------------------------------------------------------------------

    std::shared_ptr<const HavingInterest> getHavingInterest(std::int32_t type) const;
    std::shared_ptr<const TriableInterest> getTriableInterest(std::int32_t type) const;
    static std::int32_t maxValueOfArray(const Value& values) { return InterestRules::maxValueOfArray(values); }
    static Value orderByDesending(const Value& values) { return InterestRules::orderByDesending(values); }
    static bool belongStableInterest(const StableInterest* base, std::int32_t fps) {
        return InterestRules::belongStableInterest(base, fps);
    }
    static bool containsKey(const Value& key, const Value& array) { return InterestRules::containsKey(key, array); }
    static bool needMonitorInterest(std::int32_t type) { return InterestRules::needMonitorInterest(type); }
    std::int64_t getPropertyByFps(std::int32_t fps) const;
    std::int64_t getPropertyByFrame(std::int32_t frame) const;
    std::int64_t getPropertyByInterest(const StableInterest& interest) const;
    bool hasPictureQualityFrameInterest(std::int32_t frame) const;
    bool hasFpsInterest(std::int32_t fps) const;
    InterestsSnapshot::TriableList pictureQualityAvailableInterests() const;
    Value fpsAvailableInterests(const Value& rates) const;
    std::shared_ptr<const TriableInterest> getTriableInterestByFps(std::int32_t fps) const;
    Value pictureQualityAndFpsInterestExpiredTime() const;
    bool pictureQualityTriableInterestEnd() const;
    Value getNextCheckInterestsInfoTimerElapse() const;
    std::int64_t maxHangupTimeInSec(const Value& gameId, bool haveInterest) const;
    Value isInterestsTriable(const StableInterest& interest) const;
    bool isCurrentHangupInterestTriable() const;
    bool haveHavingInterests(std::int32_t type) const;
    bool haveTriableInterests(std::int32_t type) const;
    bool haveInterests(std::int32_t type) const;

private:
    // Applies a decoded full reply to `next`: logs a non-zero code and answers false, as it does for a
    // reply without a "data" object; otherwise applies "data" in `form` and answers true.
    bool applyInterestsReply(const Value& reply, InterestsSnapshot::ReplyForm form, InterestsSnapshot& next) const;
    // The same for a reply read by an InterestsReplyReader, in the form it was read in.
    bool applyReadReply(const InterestsReplyReader& reader, InterestsSnapshot& next) const;
    bool applyPropertyReply(const std::optional<std::string>& text, InterestsSnapshot& next) const;
    void publish(InterestsSnapshot next);

    NimboSdkManager& sdkManager_;
    NBConfiguration& configuration_;
    VipInfo& vipInfo_;
    NBLog& log_;
    DispatchQueue& background_;

    // Serialises changes; held across a read-copy-publish so no two parses lose each other's sections.
    mutable std::recursive_mutex storeLock_;
    mutable std::mutex snapshotMutex_;
    std::shared_ptr<const InterestsSnapshot> snapshot_;  // guarded by snapshotMutex_, never null
};

}  // namespace nb
