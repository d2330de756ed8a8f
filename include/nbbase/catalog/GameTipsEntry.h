// GameTipsEntry: the tip TipsButtonInfo shows for one game: its text (content, from "en"), an optional
// video, three timings passed through in the server's own units, and the panel's buttons.
//
// A plain value: copy it freely. TipsButtonInfo hands entries out as shared_ptr<const GameTipsEntry>, which
// later replies never change. Not synchronised: one object is read by many threads or written by one.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "nbbase/catalog/TipsButton.h"

namespace nb {

class GameTipsEntry {
public:
    // Left button first when there is one; nullopt when the panel has neither button.
    using Buttons = std::optional<std::vector<TipsButton>>;

    const std::optional<std::string>& content() const noexcept { return content_; }
    void setContent(std::optional<std::string> content) { content_ = std::move(content); }
    const std::optional<std::string>& videoUrl() const noexcept { return videoUrl_; }
    void setVideoUrl(std::optional<std::string> videoUrl) { videoUrl_ = std::move(videoUrl); }
    std::int64_t dismissDelay() const noexcept { return dismissDelay_; }
    void setDismissDelay(std::int64_t dismissDelay) noexcept { dismissDelay_ = dismissDelay; }
    std::int64_t timeout() const noexcept { return timeout_; }
    void setTimeout(std::int64_t timeout) noexcept { timeout_ = timeout; }
    std::int64_t maxTime() const noexcept { return maxTime_; }
    void setMaxTime(std::int64_t maxTime) noexcept { maxTime_ = maxTime; }
    const Buttons& btnArray() const noexcept { return btnArray_; }
    void setBtnArray(Buttons btnArray) { btnArray_ = std::move(btnArray); }

    friend bool operator==(const GameTipsEntry&, const GameTipsEntry&) = default;

private:
    std::optional<std::string> content_;
    std::optional<std::string> videoUrl_;
    std::int64_t dismissDelay_ = 0;
    std::int64_t timeout_ = 0;
    std::int64_t maxTime_ = 0;
    Buttons btnArray_;
};

}  // namespace nb
