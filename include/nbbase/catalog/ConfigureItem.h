// ConfigureItem: a game's client settings as one record: whether the mouse is locked and the definitions
// (picture-quality settings) that go with it. Nothing in the library fills it; the host builds and reads
// its own.
//
// Threads: a plain value, not synchronised: use one from one thread at a time, or copy it.
#pragma once

#include "nbbase/foundation/Value.h"

namespace nb {

class ConfigureItem {
public:
    bool mouseLock() const noexcept;
    void setMouseLock(bool mouseLock) noexcept;
    // A dictionary as the host stores it; absent until set.
    const Value& definitionDict() const noexcept;
    void setDefinitionDict(Value definitionDict);

private:
    bool mouseLock_ = false;
    Value definitionDict_;
};

}  // namespace nb
