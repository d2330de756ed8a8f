// ExtraGameInfo: the server's extra per-game settings, kept as the reply came (extra), and the one question
// the client asks of them: which exit button to show, and which event it fires, when a game's play time
// runs out.
//
// fetchGameExraInfo() stores whatever the SDK answers, an absent Value included: a failed fetch clears an
// earlier list. getClickEventByGameId() walks "game_extra_list" on each call, in order:
// - an element counts only when "id", "time_end_exit_btn_title" and "time_end_exit_btn_click_event" are all
//   present (null counts as present);
// - its "id" must equal the game id by Value equality: a numeric id never matches a string game id;
// - the first such element whose title and event are both non-empty (as their string values) answers; an
//   element with an empty one is passed over, so a later element with the same id may still answer.
// Absent when the id is nil, nothing was stored, or no element answers.
//
// Threads: every function may be called on any thread. The fetch returns at once; the SDK is asked on the
// background queue given to the constructor, whose thread it blocks for the round trip. The stored reply
// is swapped under a lock; a lookup walks its own copy of it, outside the lock. Without an SDK instance at
// the call, the fetch stores an absent Value, as a failed one does.
//
// Lifetime: a fetch in flight holds the model's state, not the object, so the object may go first.
// sharedInstance() is created once, thread-safely, and never destroyed.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/foundation/ConcurrentQueue.h"
#include "nbbase/foundation/DispatchQueue.h"
#include "nbbase/foundation/Value.h"

namespace nb {

class ExtraGameInfo {
public:
    // The answer of a lookup, which the server sends as the pair [title, event].
    struct ClickEvent {
        std::string title;  // the exit button's caption
        std::string event;  // what the button fires
        friend bool operator==(const ClickEvent&, const ClickEvent&) = default;
    };

    static ExtraGameInfo& sharedInstance();

    explicit ExtraGameInfo(NimboSdkManager& sdkManager = NimboSdkManager::sharedInstance(),
                           DispatchQueue& background = ConcurrentQueue::global());
    ExtraGameInfo(const ExtraGameInfo&) = delete;
    ExtraGameInfo& operator=(const ExtraGameInfo&) = delete;

    // getGameListExtraInfo, then setExtra() with its answer.
    void fetchGameExraInfo();
    [[nodiscard]] std::optional<ClickEvent> getClickEventByGameId(const std::optional<std::string>& gameId) const;

    [[nodiscard]] Value extra() const;
    void setExtra(Value extra);

    // Shared with fetches in flight.
    struct State;

private:
    NimboSdkManager& sdkManager_;
    DispatchQueue& background_;
    const std::shared_ptr<State> state_;
};

}  // namespace nb
