#include "nbbase/foundation/Workspace.h"

#include "nbbase/foundation/SystemWorkspace.h"

namespace nb {

Workspace& Workspace::sharedInstance() {
    static SystemWorkspace* const instance = new SystemWorkspace();
    return *instance;
}

}  // namespace nb
