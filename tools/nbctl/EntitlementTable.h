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

#include <cstdint>
#include <string>
#include <vector>

#include "nbbase/entitlements/InterestRules.h"

namespace nb {
class InterestsInfo;
class VipInfo;
}  // namespace nb

namespace nb::nbctl {

// The quality levels and frame rates that get a row: those the game's configuration offers
// (GameGlobalConfig), or without one the levels and rates every client knows. Outside the class so that
// "Rows rows = {}" compiles as a default argument.
struct EntitlementRows {
    std::vector<std::int32_t> qualityLevels{0, 1, 2, 3};
    std::vector<std::int32_t> frameRates{30, 60, 90, 120};
};

class EntitlementTable {
public:
    using Rows = EntitlementRows;

    explicit EntitlementTable(InterestRules rules, Rows rows = {});
    // On the store's current snapshot and the level the VIP record reports now.
    EntitlementTable(const InterestsInfo& interests, const VipInfo& vip, Rows rows = {});

    [[nodiscard]] const InterestRules& rules() const noexcept { return rules_; }
    // Plain text in aligned columns, every line ending with a newline.
    [[nodiscard]] std::string text() const;

private:
    InterestRules rules_;
    Rows rows_;
};

}  // namespace nb::nbctl
