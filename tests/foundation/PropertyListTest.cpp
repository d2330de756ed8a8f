#include "nbbase/foundation/PropertyList.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <string>
#include <unistd.h>

namespace nb {
namespace {

using Format = PropertyList::Format;

std::string asText(const Data& d) { return std::string(d.begin(), d.end()); }

Value roundTrip(const Value& v, Format format) {
    auto bytes = PropertyList::write(v, format);
    if (!bytes) return {};
    return PropertyList::read(*bytes);
}

class PropertyListRoundTrip : public ::testing::TestWithParam<Format> {};

TEST_P(PropertyListRoundTrip, EveryKindComesBackEqual) {
    Value v = Value::dictionary({
        {"flag", true},
        {"zero", 0},
        {"small", 7},
        {"negative", -5},
        {"min", std::numeric_limits<std::int64_t>::min()},
        {"max", std::numeric_limits<std::int64_t>::max()},
        {"real", 0.1},
        {"huge", 1e300},
        {"text", "h\xc3\xa9llo <&> \"quoted\""},
        {"empty", ""},
        {"bytes", Data{0, 1, 2, 255}},
        {"noBytes", Data{}},
        {"list", Value::array({1, "two", Value::array({}), Value::dictionary({})})},
        {"nested", Value::dictionary({{"a", Value::dictionary({{"b", Value::array({3.5})}})}})},
    });
    Value back = roundTrip(v, GetParam());
    EXPECT_EQ(back, v) << back.description();
    // Integers stay integers and reals stay reals: equality alone would accept 7 == 7.0.
    EXPECT_TRUE(back["min"].isInteger());
    EXPECT_TRUE(back["real"].isReal());
    EXPECT_TRUE(back["flag"].isBool());
}

TEST_P(PropertyListRoundTrip, DictionaryKeepsItsOrder) {
    Value v = Value::dictionary({{"z", 1}, {"a", 2}, {"m", 3}});
    Value back = roundTrip(v, GetParam());
    std::string order;
    for (const auto& [key, item] : *back.asDictionary()) order += key;
    EXPECT_EQ(order, "zam");
}

TEST_P(PropertyListRoundTrip, DatesMoveBetweenEpochs) {
    // Whole seconds, before and after 1970 and 2001; binary also keeps the fraction.
    for (double t : {0.0, 978307200.0, -1000000.0, 1700000000.0, 978307199.0}) {
        Value back = roundTrip(Value(Date{t}), GetParam());
        ASSERT_TRUE(back.isDate()) << t;
        EXPECT_DOUBLE_EQ(back.asDate()->secondsSince1970, t);
    }
    if (GetParam() == Format::Binary) {
        for (double t : {1700000000.25, 978307198.5, 100.75}) {
            Value back = roundTrip(Value(Date{t}), Format::Binary);
            ASSERT_TRUE(back.isDate());
            EXPECT_NEAR(back.asDate()->secondsSince1970, t, 1e-6) << t;
        }
    }
}

TEST_P(PropertyListRoundTrip, ValuesAPropertyListCannotHoldAreRefused) {
    const Value refused[] = {
        Value(),
        Value::null(),
        Value::array({1, Value::null()}),
        Value::dictionary({{"a", Value::dictionary({{"b", Value::null()}})}}),
        Value(std::numeric_limits<std::uint64_t>::max()),
        Value(std::string("a\0b", 3)),
        Value("caf\xE9"),  // Latin-1, not UTF-8: the binary writer would damage it
        Value::dictionary({{"\xFF", 1}}),
        Value::dictionary({{std::string("k\0", 2), 1}}),
        Value(Date{1e12}),
        Value(Date{-1e12}),
    };
    for (const Value& v : refused) EXPECT_FALSE(PropertyList::write(v, GetParam())) << v.description();

    Value deep = 1;
    for (std::size_t i = 0; i <= PropertyList::kMaxDepth + 1; ++i) deep = Value::array({deep});
    EXPECT_FALSE(PropertyList::write(deep, GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Formats, PropertyListRoundTrip, ::testing::Values(Format::Xml, Format::Binary),
                         [](const auto& info) { return info.param == Format::Xml ? "Xml" : "Binary"; });

TEST(PropertyListRead, HandWrittenXml) {
    Value v = PropertyList::read(std::string_view(R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
  <!-- a comment holding <array> must not count as nesting -->
  <key>Name</key><string>demo</string>
  <key>Count</key><integer>-12</integer>
  <key>On</key><true/>
  <key>Ratio</key><real>2.5</real>
  <key>When</key><date>2001-01-01T00:01:00Z</date>
  <key>Blob</key><data>AAEC</data>
  <key>Empty</key><array/>
</dict>
</plist>)"));
    ASSERT_TRUE(v.isDictionary());
    EXPECT_EQ(v["Name"], Value("demo"));
    EXPECT_EQ(v["Count"].longLongValue(), -12);
    EXPECT_EQ(v["On"], Value(true));
    EXPECT_EQ(v["Ratio"], Value(2.5));
    EXPECT_EQ(v["When"], Value(Date{978307260.0}));
    EXPECT_EQ(v["Blob"], Value(Data{0, 1, 2}));
    EXPECT_EQ(v["Empty"], Value(Value::Array{}));
}

TEST(PropertyListRead, GarbageFailsCleanly) {
    auto binary = PropertyList::write(Value::dictionary({{"a", Value::array({1, 2, "three"})}}), Format::Binary);
    ASSERT_TRUE(binary);
    std::string bin = asText(*binary);

    const std::string cases[] = {
        "",
        "bplist00",
        bin.substr(0, bin.size() / 2),
        bin.substr(0, bin.size() - 1),
        "<?xml version=\"1.0\"?><html><body>not a plist</body></html>",
        "<plist><dict><key>a</key>",
        "{\"json\": true}",
        std::string("\0\0\0\0", 4),
    };
    for (const std::string& c : cases) EXPECT_TRUE(PropertyList::read(std::string_view(c)).isAbsent()) << c.size();

    // Every truncation and single-byte corruption of a real binary list: absent or a value, never a crash.
    for (std::size_t n = 0; n < bin.size(); ++n) (void)PropertyList::read(std::string_view(bin).substr(0, n));
    std::mt19937 random(42);
    for (int round = 0; round < 2000; ++round) {
        std::string corrupt = bin;
        corrupt[random() % corrupt.size()] = static_cast<char>(random());
        (void)PropertyList::read(std::string_view(corrupt));
    }
    for (int round = 0; round < 200; ++round) {
        std::string noise(random() % 300, '\0');
        for (char& c : noise) c = static_cast<char>(random());
        if (round % 2 == 0) noise.replace(0, std::min<std::size_t>(8, noise.size()), "bplist00");
        (void)PropertyList::read(std::string_view(noise));
    }
}

TEST(PropertyListRead, MalformedUtf8BecomesReplacementCharacters) {
    // A binary one-byte string may hold any byte; found by fuzzing, where it could not be written back.
    auto binary = PropertyList::write(Value::array({"a\xC3\xA9", "xyz"}), Format::Binary);
    ASSERT_TRUE(binary);
    std::string bin = asText(*binary);
    std::size_t at = bin.find("xyz");
    ASSERT_NE(at, std::string::npos);
    bin[at + 1] = '\xFF';
    Value v = PropertyList::read(std::string_view(bin));
    EXPECT_EQ(v, Value::array({"a\xC3\xA9", "x\xEF\xBF\xBDz"}));
    EXPECT_TRUE(PropertyList::write(v, Format::Binary));
}

TEST(PropertyListRead, DictionaryKeyWithNulIsRefusedInsteadOfAborting) {
    // {"a\0b": "x"}: libplist asserts on such a key, which would end the process.
    const unsigned char bytes[] = {'b', 'p', 'l', 'i', 's', 't', '0', '0', 0xD1, 1, 2, 0x53, 'a', 0, 'b', 0x51, 'x',
                                   8, 11, 15, 0, 0, 0, 0, 0, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 3,
                                   0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 17};
    std::string bin(reinterpret_cast<const char*>(bytes), sizeof bytes);
    EXPECT_TRUE(PropertyList::read(std::string_view(bin)).isAbsent());
    bin[13] = 'c';  // the same list with a plain key reads
    EXPECT_EQ(PropertyList::read(std::string_view(bin)), Value::dictionary({{"acb", "x"}}));
}

TEST(PropertyListRead, DeepNestingIsRefusedBeforeLibplistRecurses) {
    std::string xml = "<?xml version=\"1.0\"?><plist version=\"1.0\">";
    for (int i = 0; i < 100000; ++i) xml += "<array>";
    for (int i = 0; i < 100000; ++i) xml += "</array>";
    xml += "</plist>";
    EXPECT_TRUE(PropertyList::read(std::string_view(xml)).isAbsent());

    // Binary: a chain of one-element arrays, object i holding a reference to object i+1.
    const std::uint32_t count = 100000;
    std::string bin = "bplist00";
    std::vector<std::uint32_t> offsets;
    for (std::uint32_t i = 0; i < count; ++i) {
        offsets.push_back(static_cast<std::uint32_t>(bin.size()));
        if (i + 1 == count) {
            bin += '\x08';  // false
        } else {
            std::uint32_t next = i + 1;
            bin += '\xA1';
            for (int s = 24; s >= 0; s -= 8) bin += static_cast<char>((next >> s) & 0xFF);
        }
    }
    std::uint64_t table = bin.size();
    for (std::uint32_t o : offsets)
        for (int s = 24; s >= 0; s -= 8) bin += static_cast<char>((o >> s) & 0xFF);
    std::string trailer(32, '\0');
    trailer[6] = 4;
    trailer[7] = 4;
    for (int k = 0; k < 8; ++k) {
        trailer[8 + k] = static_cast<char>((std::uint64_t{count} >> (56 - 8 * k)) & 0xFF);
        trailer[24 + k] = static_cast<char>((table >> (56 - 8 * k)) & 0xFF);
    }
    EXPECT_TRUE(PropertyList::read(std::string_view(bin + trailer)).isAbsent());
}

TEST(PropertyListRead, SharedReferencesCannotExpandExponentially) {
    // Object i is an array referring twice to object i+1: 40 levels would expand to 2^40 values.
    const std::uint8_t levels = 40;
    std::string bin = "bplist00";
    std::vector<std::uint8_t> offsets;
    for (std::uint8_t i = 0; i < levels; ++i) {
        offsets.push_back(static_cast<std::uint8_t>(bin.size()));
        bin += '\xA2';
        bin += static_cast<char>(i + 1);
        bin += static_cast<char>(i + 1);
    }
    offsets.push_back(static_cast<std::uint8_t>(bin.size()));
    bin += '\x09';
    std::uint8_t table = static_cast<std::uint8_t>(bin.size());
    for (std::uint8_t o : offsets) bin += static_cast<char>(o);
    std::string trailer(32, '\0');
    trailer[6] = 1;
    trailer[7] = 1;
    trailer[15] = static_cast<char>(levels + 1);
    trailer[31] = static_cast<char>(table);
    EXPECT_TRUE(PropertyList::read(std::string_view(bin + trailer)).isAbsent());
}

TEST(PropertyListRead, FileIsReadAfreshAndMissingFileIsAbsent) {
    auto dir = std::filesystem::temp_directory_path() / ("nbplist-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    auto path = dir / "Config.plist";
    EXPECT_TRUE(PropertyList::readFile(path).isAbsent());
    for (int version : {1, 2}) {
        auto bytes = PropertyList::write(Value::dictionary({{"version", version}}), Format::Xml);
        ASSERT_TRUE(bytes);
        std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes->data()),
                                                    static_cast<std::streamsize>(bytes->size()));
        EXPECT_EQ(PropertyList::readFile(path)["version"], Value(version));
    }
    std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace nb
