#include "nbbase/catalog/UserInfo.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <thread>

#include "HttpTestServer.h"
#include "foundation/DispatchTestSupport.h"

namespace nb {
namespace {

using namespace std::chrono_literals;

Data bytes(const std::string& text) { return Data(text.begin(), text.end()); }

bool waitFor(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + test::kPatience;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

TEST(UserInfoTest, ProfileFieldsKeepWhatAReplyLeavesOut) {
    nbtest::HttpTestServer server;
    URLSession session;
    UserInfo user(session);
    std::ifstream in(std::string(NBBASE_SOURCE_DIR) + "/examples/replies/userInfo.json", std::ios::binary);
    const Data recorded(std::istreambuf_iterator<char>(in), {});
    EXPECT_TRUE(user.parse(recorded));
    EXPECT_EQ(user.nickName(), "Lantern");
    EXPECT_EQ(user.figure(), "https://img.korvane-nimbo.com/a/10086.png");
    EXPECT_EQ(user.lastLogin(), Value(1794990000));
    EXPECT_EQ(user.openType(), 1);
    EXPECT_EQ(user.userStatus(), 0);

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

    user.setUserId("10086");
    EXPECT_EQ(user.userId(), "10086");
}

TEST(UserInfoTest, TheAvatarIsDownloadedEncodedAndKeptUntilANewOneArrives) {
    nbtest::HttpTestServer server;
    server.serve("/a%20b.png", "avatar");  // the URL's "%20" is encoded again, and the server decodes once
    server.serve("/gone.png", nbtest::HttpTestServer::Resource("", {}, {}, nbtest::HttpTestServer::Mode::NotFound));
    URLSession session;
    UserInfo user(session);

    EXPECT_TRUE(user.parse(bytes(R"({"figure_url": ")" + server.url("/a%20b.png") + R"("})")));
    ASSERT_TRUE(waitFor([&] { return user.iconData().has_value(); }));
    EXPECT_EQ(user.iconData(), bytes("avatar"));

    user.downloadUserIcon(server.url("/gone.png"));
    user.downloadUserIcon(std::nullopt);
    ASSERT_TRUE(waitFor([&] { return server.requestCount("/gone.png") == 1; }));
    // The failure's completion runs on the session thread; one more download orders after it there.
    user.downloadUserIcon(server.url("/a%20b.png"));
    ASSERT_TRUE(waitFor([&] { return server.requestCount("/a%20b.png") == 2; }));
    EXPECT_EQ(user.iconData(), bytes("avatar"));
}

}  // namespace
}  // namespace nb
