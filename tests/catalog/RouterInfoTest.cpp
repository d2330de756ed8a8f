#include "nbbase/catalog/RouterInfo.h"

#include <gtest/gtest.h>

#include "ReplayBridge.h"

namespace nb {
namespace {

TEST(RouterInfoTest, EachCheckStoresTheSdksAnswer) {
    nbtest::ReplayBridge replay;
    RouterInfo router(replay.bridge(), replay.background());
    const auto request = [&] {
        test::EventLog answers;
        router.reqeustAccelerateRouter([&answers](bool connected) { answers.add(connected); });
        EXPECT_TRUE(answers.waitForSize(1));
        return answers.events().at(0);
    };

    EXPECT_FALSE(router.isConnectAccelerateRouter());
    router.checkAccelerateRouter();
    ASSERT_TRUE(replay.drain());
    EXPECT_TRUE(router.isConnectAccelerateRouter());  // the recording says true

    replay.sdk().setFailure("connectAccelerateRouter", 1, 2, 3);
    EXPECT_EQ(request(), 0);
    EXPECT_FALSE(router.isConnectAccelerateRouter());
    replay.sdk().setReply("connectAccelerateRouter", true);
    router.reqeustAccelerateRouter({});  // an empty callback is not called
    ASSERT_TRUE(replay.drain());
    EXPECT_TRUE(router.isConnectAccelerateRouter());

    replay.bridge().uninitializeSDK();
    EXPECT_EQ(request(), 0);
    EXPECT_EQ(replay.sdk().calls("connectAccelerateRouter").size(), 3u);
}

}  // namespace
}  // namespace nb
