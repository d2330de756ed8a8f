#include "nbbase/catalog/TipsButtonInfo.h"

#include <mutex>
#include <string_view>
#include <utility>

namespace nb {

struct TipsButtonInfo::State {
    explicit State(NBLog& log) : log(log) {}

    NBLog& log;
    mutable std::mutex mutex;
    std::shared_ptr<const ButtonDict> btnDict;  // guarded by mutex
    std::shared_ptr<const GameTips> gameTips;   // guarded by mutex
};

namespace {

// Missing and null both read as nil; other kinds convert by Value's rules.
std::optional<std::string> optionalString(const Value& value) {
    if (value.isAbsent() || value.isNull()) return std::nullopt;
    return value.stringValue();
}

TipsButton makeButton(const Value& button) {
    TipsButton result;
    result.setShow(button["enable"].boolValue());
    result.setHighLight(button["highlight"].boolValue());
    result.setTitle(optionalString(button["title"]));
    result.setStartUrl(optionalString(button["jump_url"]));
    return result;
}

void publishButtons(TipsButtonInfo::State& state, const Value& reply) {
    if (reply.isAbsent()) return;
    auto dict = std::make_shared<TipsButtonInfo::ButtonDict>();
    if (const Value::Array* types = reply["button_types"].asArray()) {
        for (const Value& type : *types) {
            std::string key = type["type_id"].stringValue();
            if (auto buttons = TipsButtonInfo::parseBtnArray(type)) {
                (*dict)[std::move(key)] = std::make_shared<const std::vector<TipsButton>>(std::move(*buttons));
            } else {
                dict->erase(key);
            }
        }
    }
    // Swapped rather than assigned, so that the old list is released after the lock.
    std::shared_ptr<const TipsButtonInfo::ButtonDict> published = std::move(dict);
    std::lock_guard lock(state.mutex);
    state.btnDict.swap(published);
}

void publishGameTips(TipsButtonInfo::State& state, const Value& reply) {
    auto tips = std::make_shared<TipsButtonInfo::GameTips>();
    if (const Value::Dictionary* games = reply.asDictionary()) {
        for (const auto& [key, value] : *games) {
            if (key == "version") {
                state.log.log(2, "key={},value={}", key, value);
                continue;
            }
            auto entry = std::make_shared<GameTipsEntry>();
            entry->setContent(optionalString(value["en"]));
            entry->setVideoUrl(optionalString(value["video_url"]));
            entry->setDismissDelay(value["dismiss_delay"].longLongValue());
            entry->setTimeout(value["timeout"].longLongValue());
            entry->setMaxTime(value["max_time"].longLongValue());
            entry->setBtnArray(TipsButtonInfo::parseBtnArray(value));
            (*tips)[key] = std::move(entry);
        }
    }
    std::shared_ptr<const TipsButtonInfo::GameTips> published = std::move(tips);
    std::lock_guard lock(state.mutex);
    state.gameTips.swap(published);
}

}  // namespace

TipsButtonInfo& TipsButtonInfo::sharedInstance() {
    static TipsButtonInfo* const instance = new TipsButtonInfo();
    return *instance;
}

TipsButtonInfo::TipsButtonInfo(NimboSdkManager& sdkManager, NBLog& log, DispatchQueue& background)
    : sdkManager_(sdkManager), background_(background), state_(std::make_shared<State>(log)) {}

void TipsButtonInfo::fetchTipsButtonInfo() {
    background_.async([state = state_, sdk = sdkManager_.sdkInstance()] {
        publishButtons(*state, sdk ? sdk->getTipsButtonInfo() : Value());
    });
}

void TipsButtonInfo::fetchGameTips() {
    background_.async([state = state_, sdk = sdkManager_.sdkInstance()] {
        publishGameTips(*state, sdk ? sdk->getGameTipsConfig() : Value());
    });
}

void TipsButtonInfo::parse(const Value& reply) { publishButtons(*state_, reply); }

std::optional<std::vector<TipsButton>> TipsButtonInfo::parseBtnArray(const Value& panel) {
    std::optional<std::vector<TipsButton>> buttons;
    for (const std::string_view side : {"left_button", "right_button"}) {
        if (!panel.contains(side)) continue;
        if (!buttons) buttons.emplace();
        buttons->push_back(makeButton(panel[side]));
    }
    return buttons;
}

void TipsButtonInfo::parseGameTips(const Value& reply) { publishGameTips(*state_, reply); }

TipsButtonInfo::Buttons TipsButtonInfo::getButtonInfo(std::int64_t type) const {
    const auto dict = btnDict();
    if (!dict) return nullptr;
    const auto found = dict->find(std::to_string(type));
    return found == dict->end() ? nullptr : found->second;
}

std::shared_ptr<const GameTipsEntry> TipsButtonInfo::getTipsByGameId(const std::optional<std::string>& gameId) const {
    if (!gameId || gameId->empty()) return nullptr;
    const auto tips = gameTips();
    if (!tips) return nullptr;
    const auto found = tips->find(*gameId);
    return found == tips->end() ? nullptr : found->second;
}

std::shared_ptr<const TipsButtonInfo::ButtonDict> TipsButtonInfo::btnDict() const {
    std::lock_guard lock(state_->mutex);
    return state_->btnDict;
}

std::shared_ptr<const TipsButtonInfo::GameTips> TipsButtonInfo::gameTips() const {
    std::lock_guard lock(state_->mutex);
    return state_->gameTips;
}

}  // namespace nb
