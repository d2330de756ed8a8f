// NBSceneTask: one task the servers offer for a scene (watch an advertisement on the phone, earn play
// time), with the QR code that opens it in the companion mini-program.
//
// Built from the task reply: an object whose "data" is an array of task objects. The record takes the
// element whose "task_id" equals `findTaskId` (the first such, compared as text: a number matches its
// decimal form), or the first element when `findTaskId` is nil or empty or no element carries it. From
// that element: taskId "task_id", name "task_name", type "task_type", gotoURL "goto_complete", each nil
// unless a string or a number (textValue). tips starts as "看广告得时长"; when the element's
// "description" is a JSON text of an object, tips becomes that object's "scene_desc", nil when it has
// none. A reply that is not such an object, or has no element, leaves every text field nil but tips.
// qrCodeImageData stays absent and fromScene 0: NBQRTaskManager fills them in.
//
// getAdTag and actionSourceForScene map scenes 1 to 4 to action sources 85, 36, 39 and 41, any other
// scene to 0; the ad tag is "ADTAG=mac.<action source>".
//
// Threads and ownership: a plain record, not synchronised. NBQRTaskManager builds one per request and
// writes it only until it hands it to the completion; from then on it belongs to the completion's receiver,
// which may read and change it on any one thread at a time. A task given to requesTaskQRCode must not be
// touched by anyone else until that call's completion has run. Nothing throws.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "nbbase/foundation/Value.h"

namespace nb {

class NBSceneTask {
public:
    static constexpr std::string_view kDefaultTips = "看广告得时长";

    NBSceneTask() = default;
    NBSceneTask(const std::optional<std::string>& json, const std::optional<std::string>& findTaskId);

    // True when qrCodeImageData holds at least one byte (a data or string value) and gotoURL is non-empty.
    [[nodiscard]] bool isValid() const noexcept;

    [[nodiscard]] static std::string getAdTag(std::int64_t scene);
    [[nodiscard]] static std::int64_t actionSourceForScene(std::int64_t scene) noexcept;

    const std::optional<std::string>& taskId() const noexcept { return taskId_; }
    void setTaskId(std::optional<std::string> taskId) { taskId_ = std::move(taskId); }
    const std::optional<std::string>& name() const noexcept { return name_; }
    void setName(std::optional<std::string> name) { name_ = std::move(name); }
    const std::optional<std::string>& type() const noexcept { return type_; }
    void setType(std::optional<std::string> type) { type_ = std::move(type); }
    // The task's link; its query carries "xcx_name" and "xcx_page".
    const std::optional<std::string>& gotoURL() const noexcept { return gotoURL_; }
    void setGotoURL(std::optional<std::string> gotoURL) { gotoURL_ = std::move(gotoURL); }
    const std::optional<std::string>& tips() const noexcept { return tips_; }
    void setTips(std::optional<std::string> tips) { tips_ = std::move(tips); }
    // What the SDK delivered for the QR code: the image bytes as a data Value; absent before.
    const Value& qrCodeImageData() const noexcept { return qrCodeImageData_; }
    void setQrCodeImageData(Value qrCodeImageData) { qrCodeImageData_ = std::move(qrCodeImageData); }
    std::int64_t fromScene() const noexcept { return fromScene_; }
    void setFromScene(std::int64_t fromScene) noexcept { fromScene_ = fromScene; }

private:
    std::optional<std::string> taskId_;
    std::optional<std::string> name_;
    std::optional<std::string> type_;
    std::optional<std::string> gotoURL_;
    std::optional<std::string> tips_{kDefaultTips};
    Value qrCodeImageData_;
    std::int64_t fromScene_ = 0;
};

}  // namespace nb
