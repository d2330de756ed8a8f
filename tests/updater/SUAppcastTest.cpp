#include "nbbase/updater/SUAppcast.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "LogLines.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/updater/SUAppcastItem.h"

namespace nb {
namespace {

std::string exampleFeed() {
    std::ifstream in(std::string(NBBASE_SOURCE_DIR) + "/examples/appcast/appcast.xml", std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

Value json(std::string_view text) { return Json::decode(text).value(); }

std::string rss(std::string_view items) {
    return "<?xml version=\"1.0\"?><rss version=\"2.0\" xmlns:sparkle=\"urn:x-updater\"><channel><title>t</title>" +
           std::string(items) + "</channel></rss>";
}

using nbtest::LogLines;

TEST(SUAppcastTest, ExampleFeedReadFully) {
    LogLines log;
    std::string error = "untouched";
    const std::optional<SUAppcast> appcast = SUAppcast::parseAppcastData(exampleFeed(), &error, log.log());
    ASSERT_TRUE(appcast) << error;
    EXPECT_EQ(error, "untouched");
    EXPECT_TRUE(log.take().empty());

    struct Expected {
        const char* title;
        const char* version;
        const char* display;
        const char* file;
        std::optional<std::uint64_t> length;
        bool signed_;
        std::optional<std::string> minimumSystem;
        std::optional<std::string> notesLink;
        const char* date;
    };
    const Expected expected[] = {
        {"Version 3.3.0", "3.3.0.1180", "3.3.0", "https://dl.korvane-nimbo.com/mac/Nimbo_3.3.0.dmg", 98765432, true,
         "10.15", std::nullopt, "Tue, 14 May 2024 10:30:00 +0800"},
        {"Version 3.2.1", "3.2.1.1102", "3.2.1", "https://dl.korvane-nimbo.com/mac/Nimbo_3.2.1.dmg", 97301120, false,
         std::nullopt, "https://dl.korvane-nimbo.com/mac/notes/3.2.1.html", "Mon, 08 Apr 2024 09:00:00 +0800"},
        {"Version 3.2.0", "3.2.0.1021", "3.2.0.1021", "https://dl.korvane-nimbo.com/mac/Nimbo_3.2.0.dmg", 96112640,
         false, std::nullopt, std::nullopt, "Fri, 15 Mar 2024 18:45:00 +0800"},
    };
    ASSERT_EQ(appcast->items().size(), std::size(expected));
    for (std::size_t i = 0; i < std::size(expected); ++i) {
        SCOPED_TRACE(i);
        const SUAppcastItem& item = *appcast->items()[i];
        EXPECT_EQ(item.title(), expected[i].title);
        EXPECT_EQ(item.versionString(), expected[i].version);
        EXPECT_EQ(item.displayVersionString(), expected[i].display);
        EXPECT_EQ(item.fileURL(), expected[i].file);
        EXPECT_EQ(item.contentLength(), expected[i].length);
        EXPECT_EQ(item.edSignature().has_value(), expected[i].signed_);
        EXPECT_EQ(item.minimumSystemVersion(), expected[i].minimumSystem);
        EXPECT_EQ(item.maximumSystemVersion(), std::nullopt);
        EXPECT_EQ(item.releaseNotesURL(), expected[i].notesLink);
        EXPECT_EQ(item.dateString(), expected[i].date);
        EXPECT_FALSE(item.showFeatures());
        EXPECT_EQ(item.propertiesDictionary()["enclosure"]["type"], Value("application/octet-stream"));
    }
    const SUAppcastItem& newest = *appcast->items()[0];
    EXPECT_EQ(newest.edSignature()->size(), 88u);
    // CDATA arrives as its text, markup and all; the entity inside it stays as written.
    EXPECT_NE(newest.itemDescription().find("<li>Queue position &amp; waiting time"), std::string::npos);
    EXPECT_EQ(appcast->items()[1]->itemDescription(), "");
}

// One row per dictionary: which version, display version, link and length it yields.
TEST(SUAppcastTest, ItemFieldRules) {
    struct Row {
        const char* dictionary;
        const char* version;
        const char* display;
        const char* file;
        std::optional<std::uint64_t> length;
    };
    const Row rows[] = {
        // The enclosure's version wins over the element; the short version follows the same order.
        {R"({"sparkle:version": "1", "sparkle:shortVersionString": "S1",
             "enclosure": {"sparkle:version": "2", "sparkle:shortVersionString": "S2", "url": "u"}})", "2", "S2", "u",
         std::nullopt},
        {R"({"sparkle:version": "1", "sparkle:shortVersionString": "S1", "enclosure": {"sparkle:version": "2"}})", "2",
         "S1", "", std::nullopt},
        {R"({"sparkle:version": "1", "enclosure": {"sparkle:version": ""}})", "1", "1", "", std::nullopt},
        {R"({"sparkle:version": " 1.2\n", "enclosure": {"url": "\n  https://h/p.dmg  ", "length": " 42 "}})", "1.2",
         "1.2", "https://h/p.dmg", 42},
        {R"({"sparkle:version": 7, "enclosure": {"length": 1024}})", "7", "7", "", 1024},
        // A length counts only as a plain decimal above zero that fits.
        {R"({"sparkle:version": "1", "enclosure": {"length": "0"}})", "1", "1", "", std::nullopt},
        {R"({"sparkle:version": "1", "enclosure": {"length": "-5"}})", "1", "1", "", std::nullopt},
        {R"({"sparkle:version": "1", "enclosure": {"length": "+5"}})", "1", "1", "", std::nullopt},
        {R"({"sparkle:version": "1", "enclosure": {"length": "12abc"}})", "1", "1", "", std::nullopt},
        {R"({"sparkle:version": "1", "enclosure": {"length": 1.5}})", "1", "1", "", std::nullopt},
        {R"({"sparkle:version": "1", "enclosure": {"length": "18446744073709551615"}})", "1", "1", "",
         18446744073709551615u},
        {R"({"sparkle:version": "1", "enclosure": {"length": "18446744073709551616"}})", "1", "1", "", std::nullopt},
        {R"({"sparkle:version": "1", "length": "5", "url": "elsewhere"})", "1", "1", "", std::nullopt},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.dictionary);
        const auto item = SUAppcastItem::initWithDictionary(json(row.dictionary));
        ASSERT_TRUE(item);
        EXPECT_EQ(item->versionString(), row.version);
        EXPECT_EQ(item->displayVersionString(), row.display);
        EXPECT_EQ(item->fileURL(), row.file);
        EXPECT_EQ(item->contentLength(), row.length);
    }
}

TEST(SUAppcastTest, ItemsWithoutVersionRefused) {
    const char* const refused[] = {
        R"([{"sparkle:version": "1"}])",
        R"({"title": "no version", "enclosure": {"url": "u"}})",
        R"({"sparkle:version": " \n", "enclosure": {"sparkle:version": ""}})",
        R"({"sparkle:version": {"nested": "1"}, "enclosure": "sparkle:version"})",
        R"({"sparkle:version": null})",
    };
    for (const char* dictionary : refused) {
        SCOPED_TRACE(dictionary);
        std::string reason;
        EXPECT_EQ(SUAppcastItem::initWithDictionary(json(dictionary), &reason), nullptr);
        EXPECT_FALSE(reason.empty());
        EXPECT_EQ(reason.find('\n'), std::string::npos);
    }
    EXPECT_EQ(SUAppcastItem::initWithDictionary(Value()), nullptr);
}

// What the update manager hands over: no length, no signature, and its own "showfeatures" flag read as a
// bool value.
TEST(SUAppcastTest, UpdateManagerDictionary) {
    const std::pair<Value, bool> flags[] = {{Value(true), true}, {Value("YES"), true}, {Value(1), true},
                                            {Value("0"), false}, {Value(), false}};
    for (const auto& [flag, shows] : flags) {
        SCOPED_TRACE(flag.description());
        Value dictionary = Value::dictionary(
            {{"description", "<p>Faster start</p>"},
             {"title", "3.3.0"},
             {"enclosure", Value::dictionary({{"url", "https://dl.korvane-nimbo.com/mac/web/Nimbo_3.3.0-web.dmg"},
                                              {"sparkle:version", "3.3.0"}})}});
        dictionary.set("showfeatures", flag);
        const auto item = SUAppcastItem::initWithDictionary(dictionary);
        ASSERT_TRUE(item);
        EXPECT_EQ(item->fileURL(), "https://dl.korvane-nimbo.com/mac/web/Nimbo_3.3.0-web.dmg");
        EXPECT_EQ(item->versionString(), "3.3.0");
        EXPECT_EQ(item->displayVersionString(), "3.3.0");
        EXPECT_EQ(item->title(), "3.3.0");
        EXPECT_EQ(item->itemDescription(), "<p>Faster start</p>");
        EXPECT_EQ(item->showFeatures(), shows);
        EXPECT_EQ(item->contentLength(), std::nullopt);
        EXPECT_EQ(item->edSignature(), std::nullopt);
        EXPECT_EQ(item->propertiesDictionary(), dictionary);
    }
}

TEST(SUAppcastTest, FeedReadingRules) {
    struct Row {
        std::string xml;
        std::vector<std::string> versions;
        std::size_t skipped;
    };
    const Row rows[] = {
        // Items without a version are skipped, the rest kept in order.
        {rss("<item><title>a</title></item><item><sparkle:version>2</sparkle:version></item>"
             "<item><enclosure url='u' sparkle:version=''/></item><item><enclosure sparkle:version='4'/></item>"),
         {"2", "4"}, 2},
        // The first of a repeated element or enclosure wins.
        {rss("<item><enclosure sparkle:version='1'/><enclosure sparkle:version='9'/></item>"
             "<item><sparkle:version>3</sparkle:version><sparkle:version>8</sparkle:version></item>"),
         {"1", "3"}, 0},
        // Names as written: another prefix is not the updater's, an undeclared one still reads.
        {"<rss xmlns:sp='urn:x-updater'><channel><item><sp:version>1</sp:version></item>"
         "<item><sparkle:version>2</sparkle:version></item></channel></rss>",
         {"2"}, 1},
        // Text content includes nested text and CDATA; items outside the first channel are not read.
        {"<rss><channel><item><sparkle:version>1.<b>2</b><![CDATA[.3]]></sparkle:version></item></channel>"
         "<channel><item><sparkle:version>5</sparkle:version></item></channel></rss>",
         {"1.2.3"}, 0},
        {rss(""), {}, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.xml);
        LogLines log;
        const auto appcast = SUAppcast::parseAppcastData(row.xml, nullptr, log.log());
        ASSERT_TRUE(appcast);
        std::vector<std::string> versions;
        for (const auto& item : appcast->items()) versions.push_back(item->versionString());
        EXPECT_EQ(versions, row.versions);
        const std::vector<std::string> lines = log.take();
        EXPECT_EQ(lines.size(), row.skipped);
        for (const std::string& line : lines) EXPECT_EQ(line.rfind("2 appcast item ", 0), 0u) << line;
    }
}

TEST(SUAppcastTest, RefusedFeeds) {
    const std::string bomb =
        "<?xml version='1.0'?><!DOCTYPE rss [<!ENTITY a 'aaaaaaaaaa'><!ENTITY b '&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;'>"
        "<!ENTITY c '&b;&b;&b;&b;&b;&b;&b;&b;&b;&b;'><!ENTITY d '&c;&c;&c;&c;&c;&c;&c;&c;&c;&c;'>]>" +
        rss("<item><title>&d;&d;&d;&d;</title><sparkle:version>1</sparkle:version></item>");
    const std::pair<std::string, const char*> rows[] = {
        {"", "not well-formed"},
        {rss("<item>").substr(0, 80), "not well-formed XML: line 1:"},
        {rss("<item><title>&unknown;</title></item>"), "not well-formed"},
        {rss("<item><title>\xce\xcf\xcd\xcb</title></item>"), "not proper UTF-8"},
        {"<rss><channel></rss>", "not well-formed"},
        {bomb, "DTD"},
        {"<!DOCTYPE rss SYSTEM 'http://127.0.0.1:9/feed.dtd'>" + rss(""), "DTD"},
        {"<!DOCTYPE rss>" + rss(""), "DTD"},
        {"<html><body/></html>", "root element is <html>, not <rss>"},
        {"<atom:rss xmlns:atom='urn:a'><channel/></atom:rss>", "root element is <atom:rss>"},
        {"<rss version='2.0'><item><sparkle:version>1</sparkle:version></item></rss>", "no <channel>"},
        {"<rss>" + std::string(SUAppcast::kMaxFeedBytes, ' ') + "</rss>", "bytes, more than"},
    };
    testing::internal::CaptureStderr();
    for (const auto& [xml, reason] : rows) {
        SCOPED_TRACE(xml.substr(0, 200));
        std::string error;
        EXPECT_FALSE(SUAppcast::parseAppcastData(xml, &error));
        EXPECT_NE(error.find(reason), std::string::npos) << error;
        EXPECT_EQ(error.find('\n'), std::string::npos) << error;
    }
    // A feed declaring an encoding the bytes do not follow fails in the conversion, outside any context.
    EXPECT_FALSE(SUAppcast::parseAppcastData("<?xml version='1.0' encoding='ISO-2022-JP'?><rss>\x1b$B\xff\xff</rss>"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace nb
