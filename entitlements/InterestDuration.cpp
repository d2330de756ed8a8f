#include "nbbase/entitlements/InterestDuration.h"

namespace nb {

bool InterestDuration::isValidAt(std::int64_t referenceTS) const noexcept {
    if (openTS_ < 0 || closeTS_ < 0) return false;
    if (openTS_ == 0 && closeTS_ == 0) return true;
    if (closeTS_ == 0) return referenceTS >= openTS_;
    if (openTS_ == 0) return referenceTS <= closeTS_;
    return openTS_ <= referenceTS && referenceTS <= closeTS_;
}

}  // namespace nb
