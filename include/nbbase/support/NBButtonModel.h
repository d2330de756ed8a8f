// NBButtonModel: one button of a popup, as PopupWindowInfo reads it from an element of a popup's "buttons":
// index from "index" (its int value), name (the label), type ("click" or "nimbo_protocol"), target (what
// the button opens) and style ("highlight" or anything else) from the keys of the same names.
//
// Text fields keep what the reply gave: a string as itself, a number as its string value; a key that is
// missing, null, or holds an array, an object or any other kind leaves nullopt, which the predicates never
// match (nullopt and "" differ).
//
// A plain value: copy it freely; a copy shares nothing with the original. Not synchronised: one object is
// read by many threads or written by one. The buttons of a published popup are never changed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace nb {

class NBButtonModel {
public:
    std::int32_t index() const noexcept { return index_; }
    void setIndex(std::int32_t index) noexcept { index_ = index; }
    const std::optional<std::string>& name() const noexcept { return name_; }
    void setName(std::optional<std::string> name) { name_ = std::move(name); }
    const std::optional<std::string>& type() const noexcept { return type_; }
    void setType(std::optional<std::string> type) { type_ = std::move(type); }
    const std::optional<std::string>& target() const noexcept { return target_; }
    void setTarget(std::optional<std::string> target) { target_ = std::move(target); }
    const std::optional<std::string>& style() const noexcept { return style_; }
    void setStyle(std::optional<std::string> style) { style_ = std::move(style); }

    bool isHighLight() const noexcept { return style_ == "highlight"; }
    bool isTypeClick() const noexcept { return type_ == "click"; }
    bool isTypeNimboProtocol() const noexcept { return type_ == "nimbo_protocol"; }

    friend bool operator==(const NBButtonModel&, const NBButtonModel&) = default;

private:
    std::int32_t index_ = 0;
    std::optional<std::string> name_;
    std::optional<std::string> type_;
    std::optional<std::string> target_;
    std::optional<std::string> style_;
};

}  // namespace nb
