#include "nbbase/catalog/UserInfo.h"

#include <gtest/gtest.h>

#include <thread>

#include "HttpTestServer.h"
#include "InterestsCollaborators.h"
#include "ReplayBridge.h"

namespace nb {
namespace {

using namespace std::chrono_literals;
using nbtest::bytes;

bool waitFor(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + test::kPatience;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

// The recorded profile with its avatar on the test's server, then replies that leave keys out, then avatars
// whose URL is encoded on the way or whose download fails.
TEST(UserInfoTest, ProfileAndAvatar) {
    nbtest::HttpTestServer server;
    server.serve("/a/10086.png", "avatar");
    server.serve("/a%20b.png", "encoded");  // the URL's "%20" is encoded again, and the server decodes once
    server.serve("/gone.png", nbtest::HttpTestServer::Resource("", {}, {}, nbtest::HttpTestServer::Mode::NotFound));
    URLSession session;
    UserInfo user(session);
    std::string recorded = nbtest::recordedReply("userInfo.json");
    const std::string host = "https://img.korvane-nimbo.com";
    recorded.replace(recorded.find(host), host.size(), server.url(""));
    EXPECT_TRUE(user.parse(bytes(recorded)));
    EXPECT_EQ(user.nickName(), "Lantern");
    EXPECT_EQ(user.figure(), server.url("/a/10086.png"));
    EXPECT_EQ(user.lastLogin(), Value(1794990000));
    EXPECT_EQ(user.openType(), 1);
    ASSERT_TRUE(waitFor([&] { return user.iconData() == bytes("avatar"); }));

    // Kinds convert; absent keys keep their fields; bytes that are not JSON change only dict.
    EXPECT_TRUE(user.parse(bytes(R"({"nick_name": 42, "open_type": "3x", "user_status": true})")));
    EXPECT_EQ(user.nickName(), "42");
    EXPECT_EQ(user.openType(), 3);
    EXPECT_EQ(user.userStatus(), 1);
    EXPECT_EQ(user.lastLogin(), Value(1794990000));
    EXPECT_TRUE(user.parse(bytes(R"({"nick_name": null})")));
    EXPECT_EQ(user.nickName(), std::nullopt);
    EXPECT_TRUE(user.parse(bytes("not json")));
    EXPECT_TRUE(user.dict().isAbsent());
    EXPECT_EQ(user.openType(), 3);

    user.downloadUserIcon(server.url("/a%20b.png"));
    ASSERT_TRUE(waitFor([&] { return user.iconData() == bytes("encoded"); }));
    user.downloadUserIcon(server.url("/gone.png"));
    user.downloadUserIcon(std::nullopt);
    ASSERT_TRUE(waitFor([&] { return server.requestCount("/gone.png") == 1; }));
    // The failure's completion runs on the session thread; one more download orders after it there.
    user.downloadUserIcon(server.url("/a%20b.png"));
    ASSERT_TRUE(waitFor([&] { return server.requestCount("/a%20b.png") == 2; }));
    EXPECT_EQ(user.iconData(), bytes("encoded"));
}

}  // namespace
}  // namespace nb
