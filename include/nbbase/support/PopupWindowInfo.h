// PopupWindowInfo: the popups the servers want shown at the fixed moments of a game's life (scenes), asked
// for through the SDK, kept per scene as NBPopupModel records, with their pictures refreshed in the image
// cache; and the report of a button press back through the SDK. Drawing them is the client's business.
//
// Requests (requestPopupWindowInfo; requestWindowInfo runs it with a nil zone on requestQueue(), a
// concurrent queue labelled "com.popupwindow.request" made on the first such call):
// - an empty scene list logs "requestPopupWindowInfo param error,sceneArray is null" (level 4) and stops:
//   nothing is sent and the callback is never called;
// - a nil token logs "requestPopupWindowInfo param error,nimboToken is null" (level 4) and goes on with "";
//   the token (or "") becomes token(), and the SDK is asked with it, the scenes, and the game id and zone
//   id ("" for nil). Without an SDK instance at the call nothing is sent and nothing is called back;
// - on the SDK's answer "requestWindowInfo callback gameId=<id>,retCode=<code>,cost=<seconds>" is logged
//   (level 2; the cost measured on the monotonic clock). A return code of 0 with reply bytes: the bytes
//   are decoded (objects and arrays only) and parsed, and the callback gets 0, even when the bytes did
//   not decode: the parse of nothing empties the store, and the caller is deliberately told 0 all the
//   same. Any other return code, or no bytes: the callback gets 1 and the store stays as it was.
//
// Parsing (parse) always empties the whole store first, whatever scenes the request named. Then, from
// "data" -> "scenes", the four scenes are filed in the fixed order game_detail_page, pre_launch_game,
// game_playing, activity_game_need_permission, each only when its value is a non-empty array; other keys
// are ignored, as is a "data" or "scenes" that is missing or not an object. A reply whose top level is
// present but not an object is refused: the store is emptied as for an undecodable one, and
// "parse popup reply error,reply is not an object" is logged (level 4).
//
// Filing (addPopupModels) makes one record per element, in order (see NBPopupModel.h for the keys; an
// element that is not an object makes a record whose reply fields are all empty), with userData the
// current token(), and replaces that scene's list only; a list that is not an array or is empty files
// nothing and leaves the scene as it was. Each record's picture (bgImgUrl for a text popup, imgUrl for any
// other) is queued with the image cache's addImageDownloadTask only when it is non-empty AND the memory
// cache already holds bytes for it: this is deliberate. The prefetch refreshes pictures that have already
// been shown; a picture never shown is fetched when the client displays it, not ahead of time.
//
// Button presses (requestClickButtonCallback): `context` goes to the SDK as its first argument unchanged,
// with the ticket and index, from the global queue given to the constructor; the answer is logged as
// "requestClickCallback:index=<index>,code=<code>,message=<message or (null)>" (level 2) and not passed on.
// Without an SDK instance at the call nothing is sent.
//
// Threads: every function may be called on any thread. The store is one immutable snapshot per scene; a
// parse builds its records outside the instance lock and swaps the whole store in under it, so a reader
// sees the store before or after a reply, never part of one, and a list it was handed never changes.
// clear() and the token are guarded by that lock too, and the lazy creation of requestQueue() by one of
// its own. Callbacks run on the SDK's thread, not on the main thread; an answer is parsed and logged there.
//
// Lifetime: queued requests and SDK answers hold the store weakly: once the object is destroyed they do
// nothing, and their callback is not called. The image cache, the log, the clock and the pool must outlive
// the object and the requests it has in flight; the bridge and the global queue are used only inside its
// calls. sharedInstance() is created once, thread-safely, and never destroyed.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "nbbase/catalog/NBImageCache.h"
#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/foundation/Clock.h"
#include "nbbase/foundation/ConcurrentQueue.h"
#include "nbbase/foundation/DispatchQueue.h"
#include "nbbase/foundation/NBLog.h"
#include "nbbase/foundation/ThreadPool.h"
#include "nbbase/foundation/Value.h"
#include "nbbase/support/NBPopupModel.h"

namespace nb {

class PopupWindowInfo {
public:
    // 0 once a reply was parsed, 1 when the request failed.
    using Callback = std::function<void(std::int32_t result)>;
    // A scene's popups in reply order; never empty.
    using PopupArray = std::vector<std::shared_ptr<const NBPopupModel>>;

    static constexpr std::string_view kRequestQueueLabel = "com.popupwindow.request";

    static PopupWindowInfo& sharedInstance();

    explicit PopupWindowInfo(NimboSdkManager& sdkManager = NimboSdkManager::sharedInstance(),
                             NBImageCache& imageCache = NBImageCache::sharedInstance(),
                             NBLog& log = NBLog::sharedInstance(),
                             DispatchQueue& globalQueue = ConcurrentQueue::global(),
                             ThreadPool& pool = ThreadPool::sharedInstance(), const Clock& clock = Clock::system());
    ~PopupWindowInfo();
    PopupWindowInfo(const PopupWindowInfo&) = delete;
    PopupWindowInfo& operator=(const PopupWindowInfo&) = delete;

    // game_detail_page, pre_launch_game, activity_game_need_permission.
    [[nodiscard]] static std::vector<std::string> allPrelaunchScenes();
    // game_playing.
    [[nodiscard]] static std::vector<std::string> allGamePlayingScenes();

    // Returns at once; the request runs on requestQueue(). `callback` may be empty.
    void requestWindowInfo(const std::optional<std::string>& token, const std::vector<std::string>& scenes,
                           const std::optional<std::string>& gameId, Callback callback);
    // Checks, stores the token and sends on the calling thread; answers on the SDK's thread.
    void requestPopupWindowInfo(const std::optional<std::string>& token, const std::vector<std::string>& scenes,
                                const std::optional<std::string>& gameId, const std::optional<std::string>& zoneId,
                                Callback callback);

    void parse(const Value& reply, const std::string& gameId);
    void addPopupModels(const Value& array, const std::string& scene, const std::string& gameId);

    // nullptr for an empty scene or one without popups.
    [[nodiscard]] std::shared_ptr<const PopupArray> popupWindowArrayByScene(std::string_view scene) const;

    void requestClickButtonCallback(const Value& context, const std::optional<std::string>& confirmTicket,
                                    std::int32_t buttonIndex);

    void clear();

    // The token of the latest request ("" when it had none); nullopt before the first.
    [[nodiscard]] std::optional<std::string> token() const;

    // nullptr until the first requestWindowInfo; then the same queue for the object's life.
    [[nodiscard]] DispatchQueue* requestQueue() const;

    struct State;  // the store, shared weakly with requests in flight

private:
    NimboSdkManager& sdkManager_;
    DispatchQueue& globalQueue_;
    ThreadPool& pool_;
    const std::shared_ptr<State> state_;
    mutable std::mutex queueMutex_;
    std::unique_ptr<ConcurrentQueue> requestQueue_;  // guarded by queueMutex_
};

}  // namespace nb
