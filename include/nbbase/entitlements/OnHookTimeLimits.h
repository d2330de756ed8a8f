// OnHookTimeLimits: the idle limits of an idle-play record, kept as the "extra_data" text the server sent
// and read into an OnHookTimeMap the first time they are asked for.
//
// Why later: the limits of a full reply's idle-play records are about a third of its bytes, JSON inside
// JSON that would be scanned a second time, yet only the idle-play questions read them, and those ask about
// the one game being played. A parse that read them all would take about 40% longer.
//
// What get() gives is what StableInterest::maxOnHookInfoFromExtraData gives for the text.
//
// Threads: get() may be called from any number of threads at once; the first call reads the text while
// the others wait for it, and every caller sees the same map.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "nbbase/entitlements/OnHookTimeMap.h"

namespace nb {

class OnHookTimeLimits {
public:
    explicit OnHookTimeLimits(std::string extraData) : extraData_(std::move(extraData)) {}

    OnHookTimeLimits(const OnHookTimeLimits&) = delete;
    OnHookTimeLimits& operator=(const OnHookTimeLimits&) = delete;

    // nullopt when the text was empty or not JSON.
    [[nodiscard]] const std::optional<OnHookTimeMap>& get() const;
    // The same through a record's pointer, which is null for records without limits: nullopt then.
    [[nodiscard]] static const std::optional<OnHookTimeMap>& of(const std::shared_ptr<const OnHookTimeLimits>& limits);

private:
    mutable std::string extraData_;  // released once read
    mutable std::once_flag read_;
    mutable std::optional<OnHookTimeMap> limits_;
};

}  // namespace nb
