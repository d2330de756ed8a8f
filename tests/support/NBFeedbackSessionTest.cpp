#include "nbbase/support/NBFeedbackSession.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <tuple>

#include "catalog/ReplayBridge.h"
#include "nbbase/common/NBBase64.h"
#include "nbbase/common/NBCryptor.h"
#include "nbbase/common/NBJsonUtils.h"
#include "nbbase/common/NBKeyLoader.h"
#include "nbbase/foundation/ManualClock.h"
#include "nbbase/foundation/RecordingWorkspace.h"

namespace nb {
namespace {

constexpr char kRoot[] = "https://www.korvane-nimbo.com/page/feedback/mac.html";

std::string readFile(const std::string& path) {
    std::ifstream in(path);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

class NBFeedbackSessionTest : public testing::Test {
protected:
    NBFeedbackSessionTest() {
        replay_.configuration().setUserId("10086");
        replay_.configuration().setGameId("1234");
    }

    NBFeedbackSession session(std::string_view pem = NBFeedbackSession::builtInPublicKeyPem()) {
        return NBFeedbackSession(
            replay_.configuration(), replay_.bridge(), workspace_,
            [] { return NBDeviceInfo("Debian GNU/Linux 12 (bookworm)", "wifi"); }, [this] { return bundle_; },
            clock_, replay_.log(), pem);
    }

    // What the page does with "data": base64, decrypt with the private half, then read the pairs.
    static Value openData(const std::string& data) {
        const auto key = NBKeyLoader::loadPEMPrivateKey(
            readFile(NBBASE_SOURCE_DIR "/tests/support/feedback-private-key.pem"));
        const auto cipher = NBBase64::dataFromBase64String(data);
        if (!key || !cipher) return Value();
        const auto plain = NBCryptor::decryptData(*cipher, *key);
        if (!plain) return Value();
        return NBJsonUtils::dictionaryWithURL(std::string(kRoot) + "?" + std::string(plain->begin(), plain->end()));
    }

    nbtest::ReplayBridge replay_;
    RecordingWorkspace workspace_;
    ManualClock clock_ = ManualClock::atSecondsSince1970(1795000000.1239);
    std::shared_ptr<const MainBundle> bundle_ = std::make_shared<const MainBundle>(
        Value::dictionary({{"CFBundleShortVersionString", "3.2.0"}}), "/nonexistent");
};

TEST_F(NBFeedbackSessionTest, SignedInUserSealsTheFivePairsAndSendsTheReportParameters) {
    auto feedback = session();
    ASSERT_NE(feedback.rsaPubKey(), nullptr);
    feedback.navigateToFeedbackPageWithErrorCode(Value("Error Code:1001-7-42"));

    const auto opened = workspace_.openedURLs();
    ASSERT_EQ(opened.size(), 1u);
    const std::string& url = opened[0];
    EXPECT_EQ(url.rfind(std::string(kRoot) + "?data=", 0), 0u) << url;
    EXPECT_EQ(url.find("1001"), std::string::npos) << "the error code reached the page";
    // Only unreserved characters and escapes after the "?": every query decoder reads the values back as sent.
    const std::string query = url.substr(url.find('?') + 1);
    EXPECT_EQ(query.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~%=&"),
              std::string::npos);

    const Value items = NBJsonUtils::dictionaryWithURL(url);
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items.asDictionary()->begin()->first, "data");
    EXPECT_EQ(openData(items["data"].stringValue()),
              Value::dictionary({{"userid", "10086"},
                                 {"version", "3.2.0"},
                                 {"os", "Debian GNU/Linux 12 (bookworm)"},
                                 {"net", "wifi"},
                                 {"t", "1795000000123"}}));

    Value expected = nbtest::json(readFile(NBBASE_SOURCE_DIR "/examples/replies/getReportCommonParams.json"));
    expected.set("nimbo_game_id", "1234");
    EXPECT_EQ(Json::decode(items["custom"].stringValue()), expected);
    // The same millisecond seals the same "t" again; OAEP makes the cipher differ all the same.
    const std::string again = NBJsonUtils::dictionaryWithURL(feedback.feedbackPageUrl())["data"].stringValue();
    EXPECT_NE(again, items["data"].stringValue());
    EXPECT_EQ(openData(again)["t"], Value("1795000000123"));
}

TEST_F(NBFeedbackSessionTest, WithoutAUserTheBarePageOpens) {
    for (const std::optional<std::string>& user : {std::optional<std::string>(), std::optional<std::string>("")}) {
        replay_.configuration().setUserId(user);
        session().navigateToFeedbackPage();
    }
    EXPECT_EQ(workspace_.openedURLs(), (std::vector<std::string>{kRoot, kRoot}));
    EXPECT_EQ(replay_.sdk().calls("getReportCommonParams").size(), 0u);
}

// A key that does not load costs the identity, never the page.
TEST_F(NBFeedbackSessionTest, WithoutAKeyOrAnSdkThePageStillOpens) {
    auto feedback = session("-----BEGIN PUBLIC KEY-----\nnot a key\n-----END PUBLIC KEY-----");
    EXPECT_EQ(feedback.rsaPubKey(), nullptr);
    EXPECT_EQ(replay_.logged().size(), 1u);
    replay_.bridge().uninitializeSDK();
    workspace_.setFails(true);
    feedback.navigateToFeedbackPage();
    ASSERT_EQ(workspace_.openedURLs(), std::vector<std::string>{std::string(kRoot) + "?data=&custom=%7B%7D"});
    EXPECT_EQ(replay_.logged(),
              std::vector<std::string>{"4 feedback page not opened: recording workspace set to fail"});
}

TEST_F(NBFeedbackSessionTest, ValuesBuiltFromParts) {
    auto feedback = session();
    EXPECT_EQ(feedback.buildDataValue(Value()), "");
    EXPECT_EQ(NBFeedbackSession::buildCustomValue(Value()), "{}");
    EXPECT_EQ(NBFeedbackSession::buildCustomValue(nbtest::json(R"({"a": [1, "b"], "c": {}})")), R"({"a":[1,"b"],"c":{}})");
    EXPECT_EQ(NBFeedbackSession::buildCustomValue(Value::dictionary({{"bytes", nb::Data{1}}})), "");

    // A null value is left out and named; others print as "%@" would, and the text is query-encoded.
    const std::string sealed =
        feedback.buildDataValue(Value::dictionary({{"a", "x y"}, {"gone", Value::null()}, {"n", 2.5}}));
    EXPECT_EQ(openData(sealed), Value::dictionary({{"a", "x y"}, {"n", "2.5"}}));
    EXPECT_EQ(replay_.logged(), std::vector<std::string>{"4 value of key {gone} is nil"});

    // (parameters, configured game id, what "nimbo_game_id" ends as)
    const std::tuple<const char*, const char*, Value> cases[] = {
        {R"({"nimbo_game_id": ""})", "123", Value("123")},
        {R"({})", "123", Value("123")},
        {R"({"nimbo_game_id": "77"})", "123", Value("77")},
        {R"({"nimbo_game_id": 77})", "123", Value(77)},
        {R"({"nimbo_game_id": ""})", "", Value("")},
        {R"({})", "", Value()},
    };
    for (const auto& [parameters, gameId, expected] : cases) {
        SCOPED_TRACE(std::string(parameters) + " game " + gameId);
        replay_.configuration().setGameId(gameId);
        Value value = nbtest::json(parameters);
        feedback.ensureGameIdExist(value);
        EXPECT_EQ(value["nimbo_game_id"], expected);
    }
}

}  // namespace
}  // namespace nb
