#include "nbbase/catalog/ConfigureItem.h"

#include <utility>

namespace nb {

bool ConfigureItem::mouseLock() const noexcept { return mouseLock_; }
void ConfigureItem::setMouseLock(bool mouseLock) noexcept { mouseLock_ = mouseLock; }
const Value& ConfigureItem::definitionDict() const noexcept { return definitionDict_; }
void ConfigureItem::setDefinitionDict(Value definitionDict) { definitionDict_ = std::move(definitionDict); }

}  // namespace nb
