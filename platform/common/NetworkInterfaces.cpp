#include "nbbase/common/NetworkInterfaces.h"

#include "nbbase/common/KernelNetworkInterfaces.h"

namespace nb {

std::shared_ptr<const NetworkInterfaces> NetworkInterfaces::system() {
    static const auto* const instance =
        new std::shared_ptr<const NetworkInterfaces>(std::make_shared<const KernelNetworkInterfaces>());
    return *instance;
}

}  // namespace nb
