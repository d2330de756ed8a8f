#include "nbbase/catalog/ExtraGameInfo.h"

#include <mutex>
#include <utility>

namespace nb {

struct ExtraGameInfo::State {
    mutable std::mutex mutex;
    Value extra;  // guarded by mutex

    void store(Value value) {
        std::lock_guard lock(mutex);
        std::swap(extra, value);  // the old reply is released after the lock
    }
};

ExtraGameInfo& ExtraGameInfo::sharedInstance() {
    static ExtraGameInfo* const instance = new ExtraGameInfo();
    return *instance;
}

ExtraGameInfo::ExtraGameInfo(NimboSdkManager& sdkManager, DispatchQueue& background)
    : sdkManager_(sdkManager), background_(background), state_(std::make_shared<State>()) {}

void ExtraGameInfo::fetchGameExraInfo() {
    background_.async([state = state_, sdk = sdkManager_.sdkInstance()] {
        state->store(sdk ? sdk->getGameListExtraInfo() : Value());
    });
}

std::optional<ExtraGameInfo::ClickEvent> ExtraGameInfo::getClickEventByGameId(
    const std::optional<std::string>& gameId) const {
    if (!gameId) return std::nullopt;
    const Value reply = extra();
    const Value::Array* games = reply["game_extra_list"].asArray();
    if (games == nullptr) return std::nullopt;
    const Value id(*gameId);
    for (const Value& game : *games) {
        if (!game.contains("id") || !game.contains("time_end_exit_btn_title") ||
            !game.contains("time_end_exit_btn_click_event")) {
            continue;
        }
        if (!(game["id"] == id)) continue;
        ClickEvent answer{game["time_end_exit_btn_title"].stringValue(),
                          game["time_end_exit_btn_click_event"].stringValue()};
        if (!answer.title.empty() && !answer.event.empty()) return answer;
    }
    return std::nullopt;
}

Value ExtraGameInfo::extra() const {
    std::lock_guard lock(state_->mutex);
    return state_->extra;
}

void ExtraGameInfo::setExtra(Value extra) { state_->store(std::move(extra)); }

}  // namespace nb
