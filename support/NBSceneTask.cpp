#include "nbbase/support/NBSceneTask.h"

#include <fmt/format.h>

#include "nbbase/common/NBJsonUtils.h"

namespace nb {

namespace {

const Value& chooseTask(const Value& tasks, const std::optional<std::string>& findTaskId) {
    if (findTaskId && !findTaskId->empty()) {
        if (const Value::Array* list = tasks.asArray()) {
            for (const Value& task : *list) {
                if (task["task_id"].textValue() == findTaskId) return task;
            }
        }
    }
    return tasks[0];
}

}  // namespace

NBSceneTask::NBSceneTask(const std::optional<std::string>& json, const std::optional<std::string>& findTaskId) {
    const Value reply = NBJsonUtils::dictionaryWithJsonString(json);
    const Value& task = chooseTask(reply["data"], findTaskId);

    const std::string* descriptionText = task["description"].asString();
    const Value description = NBJsonUtils::dictionaryWithJsonString(
        descriptionText ? std::optional<std::string>(*descriptionText) : std::nullopt);
    if (description.isDictionary()) tips_ = description["scene_desc"].textValue();

    taskId_ = task["task_id"].textValue();
    name_ = task["task_name"].textValue();
    type_ = task["task_type"].textValue();
    gotoURL_ = task["goto_complete"].textValue();
}

bool NBSceneTask::isValid() const noexcept {
    const bool hasImage = (qrCodeImageData_.asData() && !qrCodeImageData_.asData()->empty()) ||
                          (qrCodeImageData_.asString() && !qrCodeImageData_.asString()->empty());
    return hasImage && gotoURL_ && !gotoURL_->empty();
}

std::string NBSceneTask::getAdTag(std::int64_t scene) {
    return fmt::format("ADTAG=mac.{}", actionSourceForScene(scene));
}

std::int64_t NBSceneTask::actionSourceForScene(std::int64_t scene) noexcept {
    switch (scene) {
        case 1: return 85;
        case 2: return 36;
        case 3: return 39;
        case 4: return 41;
        default: return 0;
    }
}

}  // namespace nb
