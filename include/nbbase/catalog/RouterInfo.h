// RouterInfo: whether the SDK reports a connection to an accelerating router on the local network. False
// until the first check has been answered; each check replaces it with the SDK's answer (false when the
// SDK fails, or when there is no SDK instance at the call).
//
// Threads: every function may be called on any thread. The checks return at once: the SDK is asked on the
// background queue given to the constructor, whose thread it blocks for the round trip, and
// reqeustAccelerateRouter's callback is called there with the answer that check stored. The callback is
// meant to be given; an empty one is simply not called.
//
// Lifetime: a check in flight holds the model's state, not the object, so the object may go first; the
// callback is still called. sharedInstance() is created once, thread-safely, and never destroyed.
#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/foundation/ConcurrentQueue.h"
#include "nbbase/foundation/DispatchQueue.h"

namespace nb {

class RouterInfo {
public:
    static RouterInfo& sharedInstance();

    explicit RouterInfo(NimboSdkManager& sdkManager = NimboSdkManager::sharedInstance(),
                        DispatchQueue& background = ConcurrentQueue::global());
    RouterInfo(const RouterInfo&) = delete;
    RouterInfo& operator=(const RouterInfo&) = delete;

    void checkAccelerateRouter();
    void reqeustAccelerateRouter(std::function<void(bool connected)> callback);
    [[nodiscard]] bool isConnectAccelerateRouter() const;

private:
    NimboSdkManager& sdkManager_;
    DispatchQueue& background_;
    // Shared with checks in flight; a single flag, so an atomic is its whole guard.
    const std::shared_ptr<std::atomic<bool>> connected_ = std::make_shared<std::atomic<bool>>(false);
};

}  // namespace nb
