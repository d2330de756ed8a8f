#include "nbbase/foundation/Url.h"

#include <gtest/gtest.h>

#include <string>

namespace nb {
namespace {

TEST(UrlTest, StrictParsing) {
    struct Case {
        std::string text;
        bool parses;
        const char* scheme;
        const char* host;
        const char* path;
    };
    const Case cases[] = {
        {"https://img.example.com/a/b.png?x=1", true, "https", "img.example.com", "/a/b.png"},
        {"HTTP://127.0.0.1:8080/", true, "http", "127.0.0.1", "/"},
        {"file:///tmp/picture.png", true, "file", "", "/tmp/picture.png"},
        {"nimbo://open?page=vip", true, "nimbo", "open", "/"},
        {"https://example.com/a%20b", true, "https", "example.com", "/a%20b"},
        // What the platform's strict parsing refuses: a blank, no scheme at all, a bare path.
        {"https://example.com/a b.png", false, "", "", ""},
        {"example.com/a.png", false, "", "", ""},
        {"/maintain/index.html", false, "", "", ""},
        {"", false, "", "", ""},
        {"https://exa mple.com/", false, "", "", ""},
        {std::string("https://example.com/\0x", 21), false, "", "", ""},
        {"https://example.com/caf\xc3\xa9.png", false, "", "", ""},
        {"https://example.com/{id}.png", false, "", "", ""},
        {"file:relative/name.png", false, "", "", ""},
        {"file:/..?", false, "", "", ""},
        {"s:/host%ecname/x", false, "", "", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        const auto url = Url::parse(c.text);
        ASSERT_EQ(url.has_value(), c.parses);
        if (!url) continue;
        EXPECT_EQ(url->scheme(), c.scheme);
        EXPECT_EQ(url->host(), c.host);
        EXPECT_EQ(url->path(), c.path);
    }
    EXPECT_EQ(Url::parse("https://example.com/p?a=1&b=2")->query(), "a=1&b=2");
    EXPECT_EQ(Url::parse("https://example.com/p")->query(), std::nullopt);
    EXPECT_TRUE(Url::parse("file:///tmp/x")->isFile());
}

TEST(UrlTest, QueryEncodingKeepsExactlyTheAllowedSet) {
    const std::string allowed =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789!$&'()*+,-./:;=?@_~";
    int kept = 0;
    for (int c = 0; c < 256; ++c) {
        const bool inSet = allowed.find(static_cast<char>(c)) != std::string::npos && c != 0;
        EXPECT_EQ(Url::isQueryAllowed(static_cast<unsigned char>(c)), inSet) << c;
        kept += inSet;
    }
    EXPECT_EQ(kept, 81);
    EXPECT_EQ(Url::encodeQuery(allowed), allowed);
    EXPECT_EQ(Url::encodeQuery("https://h/a b.png?q=\"x\"#f"), "https://h/a%20b.png?q=%22x%22%23f");
    // An encoded text is encoded again: "%" is not in the set.
    EXPECT_EQ(Url::encodeQuery("a%20b"), "a%2520b");
    EXPECT_EQ(Url::encodeQuery("头"), "%E5%A4%B4");
    EXPECT_TRUE(Url::parse(Url::encodeQuery("https://h/a b[1].png")));
    // A component keeps only what no decoder reads otherwise.
    EXPECT_EQ(Url::encodeComponent("a+b/c=d&e f~.-_?%"), "a%2Bb%2Fc%3Dd%26e%20f~.-_%3F%25");
}

}  // namespace
}  // namespace nb
