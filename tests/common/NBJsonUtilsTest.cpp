#include "nbbase/common/NBJsonUtils.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "nbbase/foundation/Json.h"

namespace nb {
namespace {

Value object(const char* json) { return Json::decode(std::string_view(json)).value(); }

TEST(NBJsonUtilsTest, DictionaryWithJsonStringAnswersObjectsOnly) {
    EXPECT_EQ(NBJsonUtils::dictionaryWithJsonString(R"({"a": [1], "b": "x"})"), object(R"({"a": [1], "b": "x"})"));
    for (const std::optional<std::string>& text :
         {std::optional<std::string>(), std::optional<std::string>(""), std::optional<std::string>("{"),
          std::optional<std::string>("[1, 2]"), std::optional<std::string>("\"text\""),
          std::optional<std::string>("12")}) {
        SCOPED_TRACE(text.value_or("(nil)"));
        EXPECT_TRUE(NBJsonUtils::dictionaryWithJsonString(text).isAbsent());
    }
}

TEST(NBJsonUtilsTest, DictionaryWithURLQueryRules) {
    struct Case {
        std::optional<std::string> url;
        const char* expected;  // JSON object
    };
    const Case cases[] = {
        {"nimbo://miniprogram/open?xcx_name=nimbo_tasks&xcx_page=pages/ads/watch",
         R"({"xcx_name": "nimbo_tasks", "xcx_page": "pages/ads/watch"})"},
        // The last of a repeated name wins; a bare name is ""; empty pieces are skipped, an empty name kept.
        {"https://h.example/p?a=1&b&a=2&&=v&", R"({"a": "2", "b": "", "": "v"})"},
        // Split at the first "=" only; the fragment is not part of the query.
        {"https://h.example/p?a=1=2#x&b=3", R"({"a": "1=2"})"},
        // Escapes decode, in names too; "+" stays; a broken escape stays as written.
        {"https://h.example/p?x=%41%62+c&%6B=%e6%97%b6%E9%95%BF&bad=%zz%4", R"({"x": "Ab+c", "k": "时长", "bad": "%zz%4"})"},
        // What would decode to invalid UTF-8 or hold a NUL stays as written, escapes and all.
        {"https://h.example/p?u=%FF%FEok&n=a%00b&%C3%28=1&%C3%A9=2",
         R"({"u": "%FF%FEok", "n": "a%00b", "%C3%28": "1", "é": "2"})"},
        // No query, an empty one, or a text the strict parser refuses (raw non-ASCII, no scheme, nil).
        {"nimbo://open", "{}"},
        {"https://h.example/p?", "{}"},
        {"nimbo://open?t=时长", "{}"},
        {"open?a=1", "{}"},
        {std::nullopt, "{}"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.url.value_or("(nil)"));
        const Value query = NBJsonUtils::dictionaryWithURL(c.url);
        EXPECT_EQ(query, object(c.expected));
        // Every value is text that JSON can carry.
        EXPECT_TRUE(Json::encode(query).has_value());
    }
}

}  // namespace
}  // namespace nb
