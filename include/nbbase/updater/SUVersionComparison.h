// SUVersionComparison: how the updater orders two version strings. The delegate of SUUpdater answers one
// (versionComparatorForUpdater); NBCustomizedVersionComparator is the client's.
//
// compareVersion answers -1 when `a` is older than `toVersion`, 0 when they are the same version and 1 when
// `a` is newer. Implementations must be callable on any thread at once.
#pragma once

#include <cstdint>
#include <string_view>

namespace nb {

class SUVersionComparison {
public:
    virtual ~SUVersionComparison() = default;
    [[nodiscard]] virtual std::int64_t compareVersion(std::string_view a, std::string_view toVersion) const = 0;

protected:
    SUVersionComparison() = default;
    SUVersionComparison(const SUVersionComparison&) = default;
    SUVersionComparison& operator=(const SUVersionComparison&) = default;
};

}  // namespace nb
