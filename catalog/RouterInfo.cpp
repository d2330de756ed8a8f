#include "nbbase/catalog/RouterInfo.h"

#include <utility>

namespace nb {

RouterInfo& RouterInfo::sharedInstance() {
    static RouterInfo* const instance = new RouterInfo();
    return *instance;
}

RouterInfo::RouterInfo(NimboSdkManager& sdkManager, DispatchQueue& background)
    : sdkManager_(sdkManager), background_(background) {}

void RouterInfo::checkAccelerateRouter() { reqeustAccelerateRouter({}); }

void RouterInfo::reqeustAccelerateRouter(std::function<void(bool connected)> callback) {
    background_.async([connected = connected_, sdk = sdkManager_.sdkInstance(), callback = std::move(callback)] {
        const bool answer = sdk && sdk->connectAccelerateRouter();
        connected->store(answer);
        if (callback) callback(answer);
    });
}

bool RouterInfo::isConnectAccelerateRouter() const { return connected_->load(); }

}  // namespace nb
