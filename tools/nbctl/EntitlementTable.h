// EntitlementTable: what the signed-in user may use now, as a client would show it: his property level,
// each picture quality and frame rate (allowed, whether only as a trial, or which offer would unlock it),
// when the held quality and frame-rate rights end, when the client should fetch the interests again, and
// how long he may stay idle in each game the idle-play records name.
//
// Every answer comes from the one InterestRules the table was built with, so the lines agree with each
// other even while the store parses a newer reply. Times are the server's Unix seconds (shown with their
// UTC date); the local clock is never read.
//
// Threads: a table is immutable once built; build and read it on any thread.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "nbbase/entitlements/InterestRules.h"

namespace nb {
class InterestsInfo;
class VipInfo;
}  // namespace nb

namespace nb::nbctl {

class EntitlementTable {
public:
    // The quality levels and frame rates that get a row.
    static constexpr std::array<std::int32_t, 4> kQualityLevels{0, 1, 2, 3};
    static constexpr std::array<std::int32_t, 4> kFrameRates{30, 60, 90, 120};

    explicit EntitlementTable(InterestRules rules);
    // On the store's current snapshot and the level the VIP record reports now.
    EntitlementTable(const InterestsInfo& interests, const VipInfo& vip);

    [[nodiscard]] const InterestRules& rules() const noexcept { return rules_; }
    // Plain text in aligned columns, every line ending with a newline.
    [[nodiscard]] std::string text() const;

private:
    InterestRules rules_;
};

}  // namespace nb::nbctl
