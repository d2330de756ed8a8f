// TipsButtonInfo: the tip panels the client may show, fetched through the SDK: panels by button type
// (btnDict) and tips by game id (gameTips), answered by getButtonInfo() and getTipsByGameId().
//
// Replies:
// - parse() of a button configuration replaces btnDict with the panels of its "button_types", keyed by the
//   string value of each "type_id" (7 and "7" are the same key; a later element with a key replaces an
//   earlier one, and one without buttons removes it). An absent reply keeps the panels there were.
// - parseGameTips() replaces gameTips with one entry per key of the reply other than "version", whose pair
//   is logged ("key=...,value=...", level 2) and not stored. An absent reply clears the tips: unlike
//   parse(), a failed tips fetch leaves no tips behind.
// - A button or entry is made from whatever its value is; keys that are missing (or hold null) give false,
//   0 or nullopt; values of other kinds convert by Value's rules (a numeric title becomes its decimal text).
//
// The lists are immutable once published. btnDict() and gameTips() are nullptr until their first parse;
// getButtonInfo() and getTipsByGameId() answer nullptr for nil. What they hand out never changes, so a
// caller may keep and read it on any thread while later replies replace the lists.
//
// Threads: every function may be called on any thread. The fetches return at once; the SDK is asked on the
// background queue given to the constructor (which blocks that queue's thread for the round trip), and the
// reply is parsed there. A parse builds its list outside the lock and publishes it whole, so a reader sees
// the list before or after a reply, never part of one. Without an SDK instance (sdkInstance() null at the
// call) a fetch proceeds as if the SDK had answered nil.
//
// Lifetime: a fetch in flight holds the model's state, not the object: the object may be destroyed with
// fetches pending, whose replies then go nowhere. The log must outlive those fetches; the bridge is only
// asked on the calling thread. sharedInstance() is created once, thread-safely, and never destroyed.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "nbbase/catalog/GameTipsEntry.h"
#include "nbbase/catalog/TipsButton.h"
#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/foundation/ConcurrentQueue.h"
#include "nbbase/foundation/DispatchQueue.h"
#include "nbbase/foundation/NBLog.h"
#include "nbbase/foundation/Value.h"

namespace nb {

class TipsButtonInfo {
public:
    using Buttons = std::shared_ptr<const std::vector<TipsButton>>;
    // Decimal text of a button type to its panel's buttons (never null, never empty).
    using ButtonDict = std::map<std::string, Buttons, std::less<>>;
    // Game id to its tip (never null).
    using GameTips = std::map<std::string, std::shared_ptr<const GameTipsEntry>, std::less<>>;

    static TipsButtonInfo& sharedInstance();

    explicit TipsButtonInfo(NimboSdkManager& sdkManager = NimboSdkManager::sharedInstance(),
                            NBLog& log = NBLog::sharedInstance(),
                            DispatchQueue& background = ConcurrentQueue::global());
    TipsButtonInfo(const TipsButtonInfo&) = delete;
    TipsButtonInfo& operator=(const TipsButtonInfo&) = delete;

    // getTipsButtonInfo, then parse().
    void fetchTipsButtonInfo();
    // getGameTipsConfig, then parseGameTips().
    void fetchGameTips();

    void parse(const Value& reply);
    // The buttons of one panel: the left one first, then the right one; nullopt when it has neither.
    static std::optional<std::vector<TipsButton>> parseBtnArray(const Value& panel);
    void parseGameTips(const Value& reply);

    // The panel of a button type; nullptr when no reply named that type.
    [[nodiscard]] Buttons getButtonInfo(std::int64_t type) const;
    // nullptr for nil or an empty id and for a game without tips.
    [[nodiscard]] std::shared_ptr<const GameTipsEntry> getTipsByGameId(const std::optional<std::string>& gameId) const;

    [[nodiscard]] std::shared_ptr<const ButtonDict> btnDict() const;
    [[nodiscard]] std::shared_ptr<const GameTips> gameTips() const;

    // Shared with fetches in flight.
    struct State;

private:
    NimboSdkManager& sdkManager_;
    DispatchQueue& background_;
    const std::shared_ptr<State> state_;
};

}  // namespace nb
