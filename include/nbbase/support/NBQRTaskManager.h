// NBQRTaskManager: asks the servers, through the SDK, for the task that fits a moment of the client (a
// scene), and fetches the QR code that opens the task in the companion mini-program on the phone.
//
// requestSceneTask runs on the background queue given to the constructor:
// 1. the filter sent is the caller's, or getSceneName(scene) when that is nil or empty;
// 2. with no session token (nil or empty) the completion gets nil, and only then is
//    "requestSceneTask token is nil, filter: <filter>, scene: <scene>" logged (level 2);
// 3. otherwise "requestSceneTask, filter: <filter>, scene: <scene>" is logged (level 2; both lines show the
//    caller's filter, "(null)" for nil) and getSceneTasks is sent with act "svip" and task type "watch_ads"
//    to the SDK instance taken from the bridge at that moment; without one the completion gets nil;
// 4. a failure logs "[task] requestSceneTask failed. a-b-c" (level 4) and answers nil; a reply that is not
//    a non-empty text (a string, or bytes taken as text) answers nil;
// 5. the reply becomes an NBSceneTask (NBSceneTask.h) for `taskId`, fromScene set to the scene. A task
//    whose gotoURL does not begin with "nimbo", the product's own links, answers nil; any other goes
//    through requesTaskQRCode on the same SDK instance, whose answer is passed on unchanged.
//
// requesTaskQRCode reads the token, takes "xcx_name" and "xcx_page" from the task's gotoURL query
// (NBJsonUtils::dictionaryWithURL) and, when either is missing or empty, answers the task as it is (no QR
// code; isValid() is then false). Otherwise it sends getCommonMiniProgramQRCode with the name, page, token
// and getAdTag(scene) to the SDK instance of the moment (none answers nil). Success stores the SDK's value
// in the task's qrCodeImageData and answers the task; failure logs
// "[task] getCommonMiniProgramQRCode failed. a-b-c" (level 4) and answers nil. A nil task answers nil.
//
// The completion is called exactly once for every request (an empty one is simply not called), nil where
// nothing usable came back. That holds also when the SDK lets go of its callbacks without calling either
// (an SDK being torn down), and when the manager is destroyed with requests in flight: those answer nil
// and log nothing more.
//
// Threads: every function may be called on any thread. The completion runs on the SDK's callback thread
// when the SDK answered, else on the background queue (no token, no SDK, no link parameters after a
// reply); requesTaskQRCode called directly may answer inside the call (no link parameters, no SDK).
// Nothing is moved to the main queue. A task handed to the completion belongs to its receiver; a task
// passed to requesTaskQRCode is written by the manager until its completion runs.
//
// Lifetime: the bridge, configuration, log and queue given to the constructor must outlive the manager.
// The destructor waits for any callback that is using them at that moment, so none is used afterwards.
// sharedInstance() is created once, thread-safely, and never destroyed.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "nbbase/core/NBConfiguration.h"
#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/foundation/ConcurrentQueue.h"
#include "nbbase/foundation/DispatchQueue.h"
#include "nbbase/foundation/NBLog.h"
#include "nbbase/support/NBSceneTask.h"

namespace nb {

class NBQRTaskManager {
public:
    // nullptr is nil.
    using Completion = std::function<void(std::shared_ptr<NBSceneTask> task)>;

    static NBQRTaskManager& sharedInstance();

    explicit NBQRTaskManager(NimboSdkManager& sdkManager = NimboSdkManager::sharedInstance(),
                             NBConfiguration& configuration = NBConfiguration::sharedInstance(),
                             NBLog& log = NBLog::sharedInstance(),
                             DispatchQueue& background = ConcurrentQueue::global());
    ~NBQRTaskManager();
    NBQRTaskManager(const NBQRTaskManager&) = delete;
    NBQRTaskManager& operator=(const NBQRTaskManager&) = delete;

    // "scene_task_center", "scene_task_login_game", "scene_task_less_five_minutes" and
    // "scene_task_ingame_notime" for scenes 1 to 4; "all-scene" for any other.
    [[nodiscard]] static std::string getSceneName(std::int64_t scene);

    // With a nil filter and a nil task id.
    void requestSceneTask(std::int64_t scene, Completion complete);
    void requestSceneTask(std::int64_t scene, const std::optional<std::string>& filter,
                          const std::optional<std::string>& taskId, Completion complete);
    void requesTaskQRCode(std::shared_ptr<NBSceneTask> task, std::int64_t scene, Completion complete);

    // The collaborators, shared with requests in flight.
    struct State;

private:
    DispatchQueue& background_;
    const std::shared_ptr<State> state_;
};

}  // namespace nb
