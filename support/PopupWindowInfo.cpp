#include "nbbase/support/PopupWindowInfo.h"

#include <chrono>
#include <utility>

#include "nbbase/NBConstants.h"
#include "nbbase/foundation/Json.h"

namespace nb {

using PopupArrayPtr = std::shared_ptr<const PopupWindowInfo::PopupArray>;

struct PopupWindowInfo::State {
    State(NBImageCache& imageCache, NBLog& log, const Clock& clock) : imageCache(imageCache), log(log), clock(clock) {}

    NBImageCache& imageCache;
    NBLog& log;
    const Clock& clock;

    mutable std::mutex mutex;
    std::optional<std::string> token;                         // guarded by mutex
    std::map<std::string, PopupArrayPtr, std::less<>> store;  // guarded by mutex

    std::optional<std::string> currentToken() const {
        std::lock_guard lock(mutex);
        return token;
    }
    PopupArrayPtr build(const Value::Array& list, const std::string& scene, const std::string& gameId,
                        const std::optional<std::string>& userData) const;
    void parse(const Value& reply, const std::string& gameId);
};

namespace {

// The order in which a reply's scenes are filed, and so the order of their prefetches.
constexpr const char* kFiledScenes[] = {kSceneGameDetailPage, kScenePreLaunchGame, kSceneGamePlaying,
                                        kSceneActivityGameNeedPermission};

NBButtonModel makeButton(const Value& item) {
    NBButtonModel button;
    button.setName(item["name"].textValue());
    button.setType(item["type"].textValue());
    button.setIndex(item["index"].intValue());
    button.setTarget(item["target"].textValue());
    button.setStyle(item["style"].textValue());
    return button;
}

std::shared_ptr<const NBPopupModel> makePopup(const Value& item, const std::optional<std::string>& userData,
                                              const std::string& scene, const std::string& gameId) {
    auto popup = std::make_shared<NBPopupModel>();
    popup->setUserData(userData);
    popup->setScene(scene);
    popup->setGameId(gameId);
    popup->setWId(item["id"].textValue());
    popup->setTitle(item["title"].textValue());
    popup->setType(item["type"].textValue());
    popup->setContent(item["content"].textValue());
    popup->setImgUrl(item["img_url"].textValue());
    popup->setBgImgUrl(item["bg_img_url"].textValue());
    popup->setUrlType(item["url_type"].textValue());
    popup->setUrl(item["url"].textValue());
    popup->setHasX(item["has_x"].boolValue());
    popup->setConfirmTicket(item["confirm_ticket"].textValue());
    popup->setParam(item["param"].textValue());
    popup->setIndex(item["index"].intValue());
    if (const Value::Array* buttons = item["buttons"].asArray(); buttons != nullptr && !buttons->empty()) {
        std::vector<NBButtonModel> list;
        list.reserve(buttons->size());
        for (const Value& button : *buttons) list.push_back(makeButton(button));
        popup->setBtnArray(std::move(list));
    }
    return popup;
}

// Absent when the bytes are not a JSON object or array, which the parse then treats as no reply.
Value decodeReply(const Value& reply) {
    const Data* bytes = reply.asData();
    return bytes ? Json::decode(*bytes).value_or(Value()) : Value();
}

}  // namespace

PopupArrayPtr PopupWindowInfo::State::build(const Value::Array& list, const std::string& scene,
                                            const std::string& gameId,
                                            const std::optional<std::string>& userData) const {
    auto popups = std::make_shared<PopupArray>();
    popups->reserve(list.size());
    for (const Value& item : list) {
        auto popup = makePopup(item, userData, scene, gameId);
        // Only pictures the memory cache already holds are fetched again: a refresh of what was shown.
        const std::optional<std::string>& candidate = popup->isTextWindow() ? popup->bgImgUrl() : popup->imgUrl();
        if (candidate && !candidate->empty() && imageCache.imgByUrl(*candidate) != nullptr) {
            imageCache.addImageDownloadTask(*candidate);
        }
        popups->push_back(std::move(popup));
    }
    return popups;
}

void PopupWindowInfo::State::parse(const Value& reply, const std::string& gameId) {
    std::map<std::string, PopupArrayPtr, std::less<>> filed;
    if (!reply.isAbsent() && !reply.isDictionary()) {
        log.log(4, "parse popup reply error,reply is not an object");
    } else if (const Value::Dictionary* scenes = reply["data"]["scenes"].asDictionary()) {
        const std::optional<std::string> userData = currentToken();
        for (const char* scene : kFiledScenes) {
            const Value::Array* list = scenes->get(scene).asArray();
            if (list != nullptr && !list->empty()) filed.emplace(scene, build(*list, scene, gameId, userData));
        }
    }
    // Swapped rather than assigned, so that the old popups are released after the lock.
    std::lock_guard lock(mutex);
    store.swap(filed);
}

namespace {

void sendRequest(const std::shared_ptr<PopupWindowInfo::State>& state, const std::shared_ptr<NimboSDKInterface>& sdk,
                 const std::optional<std::string>& token, const std::vector<std::string>& scenes,
                 const std::optional<std::string>& gameId, const std::optional<std::string>& zoneId,
                 PopupWindowInfo::Callback callback) {
    if (scenes.empty()) {
        state->log.log(4, "requestPopupWindowInfo param error,sceneArray is null");
        return;
    }
    if (!token) state->log.log(4, "requestPopupWindowInfo param error,nimboToken is null");
    const std::string sentToken = token.value_or("");
    {
        std::lock_guard lock(state->mutex);
        state->token = sentToken;
    }
    if (!sdk) return;
    Value sceneArray{Value::Array(scenes.begin(), scenes.end())};
    std::string game = gameId.value_or("");
    const Clock::MonotonicTime start = state->clock.monotonicNow();
    sdk->requestPopupWindowInfo(
        sentToken, sceneArray, game, zoneId.value_or(""),
        [weak = std::weak_ptr<PopupWindowInfo::State>(state), game, start, callback = std::move(callback)](
            std::int32_t retCode, const Value&, const Value& reply) {
            const auto state = weak.lock();
            if (!state) return;
            const double cost = std::chrono::duration<double>(state->clock.monotonicNow() - start).count();
            state->log.log(2, "requestWindowInfo callback gameId={},retCode={},cost={:f}", game, retCode, cost);
            if (retCode != 0 || reply.isAbsent()) {
                if (callback) callback(1);
                return;
            }
            state->parse(decodeReply(reply), game);
            if (callback) callback(0);
        });
}

}  // namespace

PopupWindowInfo& PopupWindowInfo::sharedInstance() {
    static PopupWindowInfo* const instance = new PopupWindowInfo();
    return *instance;
}

PopupWindowInfo::PopupWindowInfo(NimboSdkManager& sdkManager, NBImageCache& imageCache, NBLog& log,
                                 DispatchQueue& globalQueue, ThreadPool& pool, const Clock& clock)
    : sdkManager_(sdkManager),
      globalQueue_(globalQueue),
      pool_(pool),
      state_(std::make_shared<State>(imageCache, log, clock)) {}

PopupWindowInfo::~PopupWindowInfo() = default;

std::vector<std::string> PopupWindowInfo::allPrelaunchScenes() {
    return {kSceneGameDetailPage, kScenePreLaunchGame, kSceneActivityGameNeedPermission};
}

std::vector<std::string> PopupWindowInfo::allGamePlayingScenes() { return {kSceneGamePlaying}; }

void PopupWindowInfo::requestWindowInfo(const std::optional<std::string>& token, const std::vector<std::string>& scenes,
                                        const std::optional<std::string>& gameId, Callback callback) {
    DispatchQueue* queue = nullptr;
    {
        std::lock_guard lock(queueMutex_);
        if (!requestQueue_) requestQueue_ = std::make_unique<ConcurrentQueue>(std::string(kRequestQueueLabel), pool_);
        queue = requestQueue_.get();
    }
    queue->async([weak = std::weak_ptr<State>(state_), sdk = sdkManager_.sdkInstance(), token, scenes, gameId,
                  callback = std::move(callback)]() mutable {
        if (const auto state = weak.lock())
            sendRequest(state, sdk, token, scenes, gameId, std::nullopt, std::move(callback));
    });
}

void PopupWindowInfo::requestPopupWindowInfo(const std::optional<std::string>& token,
                                             const std::vector<std::string>& scenes,
                                             const std::optional<std::string>& gameId,
                                             const std::optional<std::string>& zoneId, Callback callback) {
    sendRequest(state_, sdkManager_.sdkInstance(), token, scenes, gameId, zoneId, std::move(callback));
}

void PopupWindowInfo::parse(const Value& reply, const std::string& gameId) { state_->parse(reply, gameId); }

void PopupWindowInfo::addPopupModels(const Value& array, const std::string& scene, const std::string& gameId) {
    const Value::Array* list = array.asArray();
    if (list == nullptr || list->empty()) return;
    PopupArrayPtr popups = state_->build(*list, scene, gameId, state_->currentToken());
    std::lock_guard lock(state_->mutex);
    state_->store[scene].swap(popups);
}

std::shared_ptr<const PopupWindowInfo::PopupArray> PopupWindowInfo::popupWindowArrayByScene(
    std::string_view scene) const {
    if (scene.empty()) return nullptr;
    std::lock_guard lock(state_->mutex);
    const auto found = state_->store.find(scene);
    return found == state_->store.end() ? nullptr : found->second;
}

void PopupWindowInfo::requestClickButtonCallback(const Value& context, const std::optional<std::string>& confirmTicket,
                                                 std::int32_t buttonIndex) {
    auto sdk = sdkManager_.sdkInstance();
    if (!sdk) return;
    globalQueue_.async(
        [weak = std::weak_ptr<State>(state_), sdk = std::move(sdk), context, confirmTicket, buttonIndex] {
            if (weak.expired()) return;
            sdk->requestClickButtonCallback(
                context, confirmTicket, buttonIndex,
                [weak, buttonIndex](std::int32_t code, const std::optional<std::string>& message) {
                    const auto state = weak.lock();
                    if (!state) return;
                    state->log.log(2, "requestClickCallback:index={},code={},message={}", buttonIndex, code,
                                   message ? std::string_view(*message) : std::string_view("(null)"));
                });
        });
}

void PopupWindowInfo::clear() {
    std::map<std::string, PopupArrayPtr, std::less<>> dropped;
    std::lock_guard lock(state_->mutex);
    state_->store.swap(dropped);
}

std::optional<std::string> PopupWindowInfo::token() const { return state_->currentToken(); }

DispatchQueue* PopupWindowInfo::requestQueue() const {
    std::lock_guard lock(queueMutex_);
    return requestQueue_.get();
}

}  // namespace nb
