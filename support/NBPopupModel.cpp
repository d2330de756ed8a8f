#include "nbbase/support/NBPopupModel.h"

namespace nb {

NBPopupModel::NBPopupModel(const NBPopupModel& other) : f_(other.f_), block_(other.block()) {}

NBPopupModel& NBPopupModel::operator=(const NBPopupModel& other) {
    if (this == &other) return *this;
    f_ = other.f_;
    // Taken under the other's lock alone, then stored under ours: never both locks at once.
    setBlock(other.block());
    return *this;
}

void NBPopupModel::setBtnArray(std::optional<std::vector<NBButtonModel>> btnArray) {
    if (btnArray && btnArray->empty()) btnArray.reset();
    f_.btnArray = std::move(btnArray);
}

NBPopupModel::Block NBPopupModel::block() const {
    std::lock_guard lock(blockMutex_);
    return block_;
}

void NBPopupModel::setBlock(Block block) const {
    std::lock_guard lock(blockMutex_);
    // The old block is released after the lock, in case its destruction reads the record.
    std::swap(block_, block);
}

}  // namespace nb
