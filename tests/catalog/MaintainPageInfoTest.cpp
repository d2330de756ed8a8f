#include "nbbase/catalog/MaintainPageInfo.h"

#include <gtest/gtest.h>

#include "ReplayBridge.h"

namespace nb {
namespace {

using test::EventLog;

class MaintainPageInfoTest : public testing::Test {
protected:
    // Fetches and waits for the completion's answer (1 valid, 0 not), reading while the fetch writes: nothing
    // orders the read before the write, so ThreadSanitizer sees an unguarded field every time.
    int fetch() {
        EventLog answers;
        page_.fetchConfig([&answers](bool valid) { answers.add(valid); });
        (void)page_.pageUrl();
        EXPECT_TRUE(answers.waitForSize(1));
        return answers.events().at(0);
    }

    nbtest::ReplayBridge replay_;
    MaintainPageInfo page_{replay_.bridge(), replay_.background()};
};

TEST_F(MaintainPageInfoTest, FetchesReplaceAddressAndFetchedTogether) {
    EXPECT_FALSE(page_.fetched() || page_.valid());
    EXPECT_EQ(fetch(), 1);
    EXPECT_TRUE(page_.fetched());
    EXPECT_EQ(page_.pageUrl(), "https://status.korvane-nimbo.com/maintain?platform=mac");

    replay_.sdk().setFailure("getMaintainPageConfig", 1, 2, 3);
    EXPECT_EQ(fetch(), 0);
    EXPECT_FALSE(page_.fetched());
    EXPECT_EQ(page_.pageUrl(), std::nullopt);

    replay_.sdk().setReply("getMaintainPageConfig", Value::dictionary({{"other", 1}}));
    EXPECT_EQ(fetch(), 0);
    EXPECT_TRUE(page_.fetched());  // an answer without the address is still an answer

    replay_.sdk().reset("getMaintainPageConfig");
    page_.fetchConfig({});  // no completion: fetched all the same
    ASSERT_TRUE(replay_.drain());
    EXPECT_TRUE(page_.valid());
    replay_.bridge().uninitializeSDK();
    EXPECT_EQ(fetch(), 0);
    EXPECT_FALSE(page_.fetched());
}

TEST_F(MaintainPageInfoTest, WhichAddressesAreValid) {
    const std::pair<Value, bool> cases[] = {
        {"https://status.example.com/maintain", true}, {"nimbo://maintain", true},
        {"/maintain/index.html", false},        // no scheme
        {"file:///tmp/maintain.html", false},   // no host
        {"https://example.com/a b", false},     // nothing is encoded on the way
        {"", false}, {Value::null(), false}, {Value(), false}, {42, false},
    };
    for (const auto& [page, valid] : cases) {
        page_.parse(Value::dictionary({{"maintain_page", page}}));
        EXPECT_EQ(page_.valid(), valid) << page.description();
    }
    EXPECT_EQ(page_.pageUrl(), "42");
    page_.parse(Value());
    EXPECT_EQ(page_.pageUrl(), std::nullopt);
    EXPECT_FALSE(page_.fetched());  // parse alone never sets it
}

}  // namespace
}  // namespace nb
