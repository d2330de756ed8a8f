// StableInterest: one interest record, the base of HavingInterest, TriableInterest and NoHavingInterest, and
// by itself the base interests that a user property level brings (its type then stays 0).
//
// Records are values: the interests store builds each one in a single parse, hands it out as
// std::shared_ptr<const ...> and replaces it wholesale on the next parse, so a record that readers can see
// is never changed. The setters exist for that one parse (and for tests); nothing validates what they store.
//
// Attributes: fpsAttr and frameAttr are absent until a parse gives them, else an array of the numbers as the
// JSON held them (compare them by intValue()). An absent attribute and an empty one mean different things to
// the rules (no data versus data without values), so both survive the parse.
//
// Building from JSON never fails and never throws: a missing key leaves its field at 0 or absent, a key of an
// unexpected kind converts by Value's Foundation rules ("60" is 60, an object is 0).
//
// Threads: a record that is no longer being built may be read from any number of threads at once.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "nbbase/entitlements/OnHookTimeMap.h"
#include "nbbase/foundation/Value.h"

namespace nb {

class StableInterest {
public:
    // Interest type codes. Types 1, 2, 3 and 6 exist but carry no attributes.
    static constexpr std::int32_t kTypeFrame = 4;   // picture quality, values in frameAttr
    static constexpr std::int32_t kTypeHangup = 5;  // idle play, limits in maxOnHookInfo
    static constexpr std::int32_t kTypeFps = 7;     // frame rate, values in fpsAttr

    // User property levels: what base interests are filed under and what an offered product sells.
    static constexpr std::int64_t kPropertyOrdinary = 0;
    static constexpr std::int64_t kPropertyVip = 1;
    static constexpr std::int64_t kPropertySvip = 2;

    StableInterest() = default;
    virtual ~StableInterest() = default;
    StableInterest(const StableInterest&) = default;
    StableInterest& operator=(const StableInterest&) = default;

    // The base interest of one level, from {"fps": [...], "frame": [...], "hang_up": 1}. A present "fps" or
    // "frame" becomes a copy of its elements (an empty array when the value is not an array); "hang_up" is
    // read as an integer when present. type stays 0.
    static std::shared_ptr<const StableInterest> fromDictionary(const Value& dictionary);

    // Only the types whose end the expiry timer watches: frame, hangup and fps.
    static bool isMonitoredType(std::int32_t type) noexcept;

    // The attribute list under `key` in an "extra_data" text (itself JSON): absent when the text is empty or
    // not JSON; else the entry's elements when it is an array, a one-element array when it is a number, and
    // an empty array when it is anything else or missing.
    static Value arrayFromExtraData(std::string_view extraData, std::string_view key);
    // The idle limits in a type-5 "extra_data" text, an array of {"game_id", "max_on_hook_time"}: nullopt
    // when the text is empty or not JSON; else game id (of the kind the JSON gave it) to the time as the
    // JSON gave it, a later element winning. Elements missing either key are skipped, and a text that is
    // JSON but not an array gives an empty map.
    static std::optional<OnHookTimeMap> maxOnHookInfoFromExtraData(std::string_view extraData);

    std::int32_t hangup() const noexcept { return hangup_; }
    void setHangup(std::int32_t hangup) noexcept { hangup_ = hangup; }
    std::int32_t type() const noexcept { return type_; }
    void setType(std::int32_t type) noexcept { type_ = type; }
    const Value& fpsAttr() const noexcept { return fpsAttr_; }
    void setFpsAttr(Value fpsAttr) { fpsAttr_ = std::move(fpsAttr); }
    const Value& frameAttr() const noexcept { return frameAttr_; }
    void setFrameAttr(Value frameAttr) { frameAttr_ = std::move(frameAttr); }

protected:
    // Picture-quality records take their "frame" list, frame-rate records their "fps" list, from the
    // "extra_data" text; other types are left alone.
    void setAttrsFromExtraData(std::string_view extraData);

private:
    std::int32_t hangup_ = 0;
    std::int32_t type_ = 0;
    Value fpsAttr_;
    Value frameAttr_;
};

}  // namespace nb
