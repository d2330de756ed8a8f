#include "nbbase/catalog/RouterInfo.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "ReplayBridge.h"
#include "nbbase/foundation/SerialQueue.h"

namespace nb {
namespace {

using test::EventLog;

class RouterInfoTest : public testing::Test {
protected:
    // Requests and waits for the callback's answer (1 connected, 0 not).
    int request() {
        EventLog answers;
        router_.reqeustAccelerateRouter([&answers](bool connected) { answers.add(connected); });
        EXPECT_TRUE(answers.waitForSize(1));
        return answers.events().at(0);
    }

    nbtest::ReplayBridge replay_;
    SerialQueue background_{"nbtest.router"};
    RouterInfo router_{replay_.bridge(), background_};
};

TEST_F(RouterInfoTest, EachCheckStoresTheSdksAnswer) {
    EXPECT_FALSE(router_.isConnectAccelerateRouter());
    router_.checkAccelerateRouter();
    ASSERT_TRUE(nbtest::drain(background_));
    EXPECT_TRUE(router_.isConnectAccelerateRouter());  // the recording says true

    replay_.sdk().setFailure("connectAccelerateRouter", 1, 2, 3);
    EXPECT_EQ(request(), 0);
    EXPECT_FALSE(router_.isConnectAccelerateRouter());
    replay_.sdk().setReply("connectAccelerateRouter", true);
    EXPECT_EQ(request(), 1);
    router_.reqeustAccelerateRouter({});  // an empty callback is not called
    ASSERT_TRUE(nbtest::drain(background_));
    EXPECT_TRUE(router_.isConnectAccelerateRouter());

    replay_.bridge().uninitializeSDK();
    EXPECT_EQ(request(), 0);
    EXPECT_EQ(replay_.sdk().calls("connectAccelerateRouter").size(), 4u);
}

TEST_F(RouterInfoTest, ReadsWhileChecking) {
    std::atomic<bool> done{false};
    std::thread reader([&] {
        while (!done) (void)router_.isConnectAccelerateRouter();
    });
    EventLog answers;
    for (int i = 0; i < 100; ++i) {
        replay_.sdk().setReply("connectAccelerateRouter", i % 2 == 0);
        router_.reqeustAccelerateRouter([&answers](bool connected) { answers.add(connected); });
    }
    EXPECT_TRUE(answers.waitForSize(100));
    done = true;
    reader.join();
}

}  // namespace
}  // namespace nb
