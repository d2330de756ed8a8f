#include "nbbase/support/NBQRTaskManager.h"

#include <atomic>
#include <mutex>
#include <shared_mutex>
#include <utility>

#include "nbbase/common/NBJsonUtils.h"

namespace nb {

struct NBQRTaskManager::State {
    State(NimboSdkManager& sdkManager, NBConfiguration& configuration, NBLog& log)
        : sdkManager(sdkManager), configuration(configuration), log(log) {}

    NimboSdkManager& sdkManager;
    NBConfiguration& configuration;
    NBLog& log;

    // Held shared while a request uses the collaborators; the destructor takes it exclusively to close.
    std::shared_mutex mutex;
    bool open = true;  // guarded by mutex
};

namespace {

using State = NBQRTaskManager::State;
using Sdk = std::shared_ptr<NimboSDKInterface>;

// Runs `use` on the collaborators while the manager lives; false once it is gone.
template <typename Use>
bool withState(const std::weak_ptr<State>& weak, Use&& use) {
    const auto state = weak.lock();
    if (!state) return false;
    std::shared_lock lock(state->mutex);
    if (!state->open) return false;
    use(*state);
    return true;
}

// The completion of one request, called exactly once: with the first answer given, or with nil when the
// last holder (a queued task, an SDK callback) lets go without answering.
class Answer {
public:
    explicit Answer(NBQRTaskManager::Completion complete) : complete_(std::move(complete)) {}
    ~Answer() { (*this)(nullptr); }
    Answer(const Answer&) = delete;
    Answer& operator=(const Answer&) = delete;

    void operator()(std::shared_ptr<NBSceneTask> task) {
        if (answered_.exchange(true)) return;
        if (complete_) complete_(std::move(task));
    }

private:
    const NBQRTaskManager::Completion complete_;
    std::atomic<bool> answered_{false};
};
using AnswerPtr = std::shared_ptr<Answer>;

bool isEmpty(const std::optional<std::string>& text) { return !text || text->empty(); }

// The reply is JSON text; bytes are taken as that text too.
std::optional<std::string> replyText(const Value& reply) {
    if (const std::string* text = reply.asString()) return *text;
    if (const Data* bytes = reply.asData()) return std::string(bytes->begin(), bytes->end());
    return std::nullopt;
}

void fetchQRCode(const std::weak_ptr<State>& weak, const Sdk& sdk, std::shared_ptr<NBSceneTask> task,
                 std::int64_t scene, const AnswerPtr& answer) {
    std::optional<std::string> token;
    if (!withState(weak, [&](State& state) { token = state.configuration.nimboToken(); })) return (*answer)(nullptr);
    const std::string adTag = NBSceneTask::getAdTag(scene);

    const Value query = NBJsonUtils::dictionaryWithURL(task ? task->gotoURL() : std::nullopt);
    const std::optional<std::string> name = query["xcx_name"].textValue();
    const std::optional<std::string> page = query["xcx_page"].textValue();
    if (isEmpty(name) || isEmpty(page)) return (*answer)(std::move(task));
    if (!sdk) return (*answer)(nullptr);

    sdk->getCommonMiniProgramQRCode(
        name, page, token, adTag,
        [task, answer](const Value& image) {
            task->setQrCodeImageData(image);
            (*answer)(task);
        },
        [weak, answer](std::int32_t a, std::int32_t b, std::int32_t c) {
            withState(weak, [&](State& state) {
                state.log.log(4, "[task] getCommonMiniProgramQRCode failed. {}-{}-{}", a, b, c);
            });
            (*answer)(nullptr);
        });
}

void requestOnBackground(const std::weak_ptr<State>& weak, std::int64_t scene,
                         const std::optional<std::string>& filter, const std::optional<std::string>& taskId,
                         const AnswerPtr& answer) {
    const std::string sentFilter = isEmpty(filter) ? NBQRTaskManager::getSceneName(scene) : *filter;
    const Value givenFilter = filter ? Value(*filter) : Value();

    std::optional<std::string> token;
    Sdk sdk;
    if (!withState(weak, [&](State& state) { token = state.configuration.nimboToken(); })) return (*answer)(nullptr);
    if (isEmpty(token)) {
        (*answer)(nullptr);
        withState(weak, [&](State& state) {
            state.log.log(2, "requestSceneTask token is nil, filter: {}, scene: {}", givenFilter, scene);
        });
        return;
    }
    if (!withState(weak, [&](State& state) {
            state.log.log(2, "requestSceneTask, filter: {}, scene: {}", givenFilter, scene);
            sdk = state.sdkManager.sdkInstance();
        })) {
        return (*answer)(nullptr);
    }
    if (!sdk) return (*answer)(nullptr);

    // The callbacks hold the instance weakly: the SDK keeps them until it answers.
    sdk->getSceneTasks(
        token, "svip", Value(sentFilter), "watch_ads",
        [weak, weakSdk = std::weak_ptr<NimboSDKInterface>(sdk), scene, taskId, answer](const Value& reply) {
            const std::optional<std::string> text = replyText(reply);
            if (isEmpty(text)) return (*answer)(nullptr);
            auto task = std::make_shared<NBSceneTask>(text, taskId);
            task->setFromScene(scene);
            if (!task->gotoURL() || !task->gotoURL()->starts_with("nimbo")) return (*answer)(nullptr);
            fetchQRCode(weak, weakSdk.lock(), std::move(task), scene, answer);
        },
        [weak, answer](std::int32_t a, std::int32_t b, std::int32_t c) {
            withState(weak, [&](State& state) {
                state.log.log(4, "[task] requestSceneTask failed. {}-{}-{}", a, b, c);
            });
            (*answer)(nullptr);
        });
}

}  // namespace

NBQRTaskManager& NBQRTaskManager::sharedInstance() {
    static NBQRTaskManager* const instance = new NBQRTaskManager();
    return *instance;
}

NBQRTaskManager::NBQRTaskManager(NimboSdkManager& sdkManager, NBConfiguration& configuration, NBLog& log,
                                 DispatchQueue& background)
    : background_(background), state_(std::make_shared<State>(sdkManager, configuration, log)) {}

NBQRTaskManager::~NBQRTaskManager() {
    std::unique_lock lock(state_->mutex);
    state_->open = false;
}

std::string NBQRTaskManager::getSceneName(std::int64_t scene) {
    switch (scene) {
        case 1: return "scene_task_center";
        case 2: return "scene_task_login_game";
        case 3: return "scene_task_less_five_minutes";
        case 4: return "scene_task_ingame_notime";
        default: return "all-scene";
    }
}

void NBQRTaskManager::requestSceneTask(std::int64_t scene, Completion complete) {
    requestSceneTask(scene, std::nullopt, std::nullopt, std::move(complete));
}

void NBQRTaskManager::requestSceneTask(std::int64_t scene, const std::optional<std::string>& filter,
                                       const std::optional<std::string>& taskId, Completion complete) {
    background_.async([weak = std::weak_ptr<State>(state_), scene, filter, taskId,
                       answer = std::make_shared<Answer>(std::move(complete))] {
        requestOnBackground(weak, scene, filter, taskId, answer);
    });
}

void NBQRTaskManager::requesTaskQRCode(std::shared_ptr<NBSceneTask> task, std::int64_t scene, Completion complete) {
    const auto answer = std::make_shared<Answer>(std::move(complete));
    fetchQRCode(state_, state_->sdkManager.sdkInstance(), std::move(task), scene, answer);
}

}  // namespace nb
