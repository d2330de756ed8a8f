// InterestDuration: the time window of a tagged right, in Unix seconds as the server sent it.
//
// A bound of 0 means "unbounded on that side"; a negative bound makes the window never valid. Windows are
// judged against a server time (VipInfo's reply time), never the local clock.
//
// A value type: immutable once VipInfo has stored it, readable from any thread.
#pragma once

#include <cstdint>

namespace nb {

class InterestDuration {
public:
    InterestDuration() = default;
    InterestDuration(std::int64_t openTS, std::int64_t closeTS) noexcept : openTS_(openTS), closeTS_(closeTS) {}

    // Whether `referenceTS` lies in the window, both ends included:
    //   (0, 0) always; (open, close) open <= t <= close; (open, 0) t >= open; (0, close) t <= close;
    //   any negative bound never.
    bool isValidAt(std::int64_t referenceTS) const noexcept;

    std::int64_t openTS() const noexcept { return openTS_; }
    void setOpenTS(std::int64_t openTS) noexcept { openTS_ = openTS; }
    std::int64_t closeTS() const noexcept { return closeTS_; }
    void setCloseTS(std::int64_t closeTS) noexcept { closeTS_ = closeTS; }

    friend bool operator==(const InterestDuration&, const InterestDuration&) = default;

private:
    std::int64_t openTS_ = 0;
    std::int64_t closeTS_ = 0;
};

}  // namespace nb
