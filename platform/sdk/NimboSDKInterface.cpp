#include "nbbase/sdk/NimboSDKInterface.h"

#include <mutex>
#include <utility>

namespace nb {
namespace {

struct ClassObjectSlot {
    std::mutex mutex;
    std::shared_ptr<NimboSDKInterface> object;  // guarded by mutex
};

// Created on first use and never destroyed, so no exit-time destructor races a late caller.
ClassObjectSlot& classObjectSlot() {
    static ClassObjectSlot* slot = new ClassObjectSlot;
    return *slot;
}

}  // namespace

void NimboSDKInterface::setClassObject(std::shared_ptr<NimboSDKInterface> object) {
    auto& slot = classObjectSlot();
    std::shared_ptr<NimboSDKInterface> previous;
    {
        std::lock_guard lock(slot.mutex);
        previous = std::exchange(slot.object, std::move(object));
    }
    // `previous` is released outside the lock: its destructor may be arbitrary vendor code.
}

std::shared_ptr<NimboSDKInterface> NimboSDKInterface::classObject() {
    auto& slot = classObjectSlot();
    std::lock_guard lock(slot.mutex);
    return slot.object;
}

}  // namespace nb
