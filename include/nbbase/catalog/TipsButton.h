// TipsButton: one button of a tip panel, as TipsButtonInfo reads it from a panel's "left_button" or
// "right_button" (show from "enable", highLight from "highlight", title, startUrl from "jump_url").
// source, aspectRatio and backImage are the application's own; no reply sets them.
//
// A plain value: copy it freely. A copy shares nothing with the original, so a record handed out by
// TipsButtonInfo stays as it was, whatever later replies do. Not synchronised: one object is read by many
// threads or written by one, as any value.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace nb {

class TipsButton {
public:
    bool show() const noexcept { return show_; }
    void setShow(bool show) noexcept { show_ = show; }
    bool highLight() const noexcept { return highLight_; }
    void setHighLight(bool highLight) noexcept { highLight_ = highLight; }
    std::int32_t source() const noexcept { return source_; }
    void setSource(std::int32_t source) noexcept { source_ = source; }
    float aspectRatio() const noexcept { return aspectRatio_; }
    void setAspectRatio(float aspectRatio) noexcept { aspectRatio_ = aspectRatio; }
    // nullopt when the reply had no such key.
    const std::optional<std::string>& title() const noexcept { return title_; }
    void setTitle(std::optional<std::string> title) { title_ = std::move(title); }
    const std::optional<std::string>& startUrl() const noexcept { return startUrl_; }
    void setStartUrl(std::optional<std::string> startUrl) { startUrl_ = std::move(startUrl); }
    // The name of a background image the application chose; kept as a copy of its own.
    const std::optional<std::string>& backImage() const noexcept { return backImage_; }
    void setBackImage(std::optional<std::string> backImage) { backImage_ = std::move(backImage); }

    friend bool operator==(const TipsButton&, const TipsButton&) = default;

private:
    bool show_ = false;
    bool highLight_ = false;
    std::int32_t source_ = 0;
    float aspectRatio_ = 0;
    std::optional<std::string> title_;
    std::optional<std::string> startUrl_;
    std::optional<std::string> backImage_;
};

}  // namespace nb
