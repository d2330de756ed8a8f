#include "nbbase/foundation/PropertyList.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace nb {
namespace {

using Format = PropertyList::Format;

std::string asText(const Data& d) { return std::string(d.begin(), d.end()); }

Value roundTrip(const Value& v, Format format) {
    auto bytes = PropertyList::write(v, format);
    return bytes ? PropertyList::read(*bytes) : Value();
}

void bigEndian(std::string& out, std::uint64_t v, int bytes) {
    for (int s = 8 * (bytes - 1); s >= 0; s -= 8) out += static_cast<char>((v >> s) & 0xFF);
}

// A binary list built by hand from its encoded objects; object 0 is the top one.
std::string binaryList(const std::vector<std::string>& objects, int referenceSize) {
    std::string bin = "bplist00", table, trailer(6, '\0');
    for (const std::string& object : objects) {
        bigEndian(table, bin.size(), 4);
        bin += object;
    }
    const std::uint64_t tableAt = bin.size();
    trailer += {4, static_cast<char>(referenceSize)};
    bigEndian(trailer, objects.size(), 8);
    bigEndian(trailer, 0, 8);
    bigEndian(trailer, tableAt, 8);
    return bin + table + trailer;
}

class PropertyListRoundTrip : public ::testing::TestWithParam<Format> {};

TEST_P(PropertyListRoundTrip, EveryKindComesBackEqualAndInOrder) {
    const Value v = Value::dictionary({
        {"flag", true}, {"zero", 0}, {"negative", -5}, {"min", std::numeric_limits<std::int64_t>::min()},
        {"max", std::numeric_limits<std::int64_t>::max()}, {"real", 0.1}, {"huge", 1e300},
        {"text", "h\xc3\xa9llo <&> \"quoted\""}, {"empty", ""}, {"bytes", Data{0, 1, 2, 255}}, {"noBytes", Data{}},
        {"list", Value::array({1, "two", Value::array({}), Value::dictionary({})})},
        {"nested", Value::dictionary({{"a", Value::dictionary({{"b", Value::array({3.5})}})}})},
    });
    const Value back = roundTrip(v, GetParam());
    EXPECT_EQ(back, v) << back.description();
    // Equality alone would accept 7 == 7.0 and true == 1.
    EXPECT_TRUE(back["min"].isInteger());
    EXPECT_TRUE(back["real"].isReal());
    EXPECT_TRUE(back["flag"].isBool());
    const Value ordered = roundTrip(Value::dictionary({{"z", 1}, {"a", 2}, {"m", 3}}), GetParam());
    std::string order;
    for (const auto& [key, item] : *ordered.asDictionary()) order += key;
    EXPECT_EQ(order, "zam");
}

TEST_P(PropertyListRoundTrip, DatesMoveBetweenEpochs) {
    // Whole seconds, before and after 1970 and 2001; binary also keeps the fraction.
    for (double t : {0.0, 978307200.0, -1000000.0, 1700000000.0, 978307199.0, 1700000000.25, 978307198.5}) {
        if (t != std::floor(t) && GetParam() == Format::Xml) continue;
        const Value back = roundTrip(Value(Date{t}), GetParam());
        ASSERT_TRUE(back.isDate()) << t;
        EXPECT_NEAR(back.asDate()->secondsSince1970, t, 1e-6) << t;
    }
}

TEST_P(PropertyListRoundTrip, ValuesAPropertyListCannotHoldAreRefused) {
    Value deep = 1;
    for (std::size_t i = 0; i <= PropertyList::kMaxDepth + 1; ++i) deep = Value::array({deep});
    // Latin-1 "caf\xE9" is refused because the binary writer would damage it.
    const Value refused[] = {
        Value(), Value::null(), Value::array({1, Value::null()}),
        Value::dictionary({{"a", Value::dictionary({{"b", Value::null()}})}}),
        Value(std::numeric_limits<std::uint64_t>::max()), Value(std::string("a\0b", 3)), Value("caf\xE9"),
        Value::dictionary({{"\xFF", 1}}), Value::dictionary({{std::string("k\0", 2), 1}}), Value(Date{1e12}),
        Value(Date{-1e12}), deep};
    for (const Value& v : refused) EXPECT_FALSE(PropertyList::write(v, GetParam())) << v.description().substr(0, 80);
}

INSTANTIATE_TEST_SUITE_P(Formats, PropertyListRoundTrip, ::testing::Values(Format::Xml, Format::Binary),
                         [](const auto& info) { return info.param == Format::Xml ? "Xml" : "Binary"; });

TEST(PropertyListRead, HandWrittenXml) {
    const Value v = PropertyList::read(std::string_view(R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><dict>
  <!-- a comment holding <array> must not count as nesting -->
  <key>Name</key><string>demo</string> <key>Count</key><integer>-12</integer> <key>On</key><true/>
  <key>Ratio</key><real>2.5</real> <key>When</key><date>2001-01-01T00:01:00Z</date>
  <key>Blob</key><data>AAEC</data> <key>Empty</key><array/>
</dict></plist>)"));
    EXPECT_EQ(v, Value::dictionary({{"Name", "demo"}, {"Count", -12}, {"On", true}, {"Ratio", 2.5},
                                    {"When", Value(Date{978307260.0})}, {"Blob", Data{0, 1, 2}},
                                    {"Empty", Value(Value::Array{})}}));
}

TEST(PropertyListRead, GarbageAndTruncationFailCleanly) {
    auto binary = PropertyList::write(Value::dictionary({{"a", Value::array({1, 2, "three"})}}), Format::Binary);
    ASSERT_TRUE(binary);
    const std::string bin = asText(*binary);
    const std::string cases[] = {"", "bplist00", bin.substr(0, bin.size() / 2), bin.substr(0, bin.size() - 1),
                                 "<?xml version=\"1.0\"?><html><body>not a plist</body></html>",
                                 "<plist><dict><key>a</key>", "{\"json\": true}", std::string("\0\0\0\0", 4)};
    for (const std::string& c : cases) EXPECT_TRUE(PropertyList::read(std::string_view(c)).isAbsent()) << c.size();

    // Every truncation and random corruption of a real binary list: absent or a value, never a crash.
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

// Fuzz finding: a binary one-byte string may hold any byte, and such a value could not be written back.
TEST(PropertyListRead, MalformedUtf8BecomesReplacementCharacters) {
    auto binary = PropertyList::write(Value::array({"a\xC3\xA9", "xyz"}), Format::Binary);
    ASSERT_TRUE(binary);
    std::string bin = asText(*binary);
    const std::size_t at = bin.find("xyz");
    ASSERT_NE(at, std::string::npos);
    bin[at + 1] = '\xFF';
    const Value v = PropertyList::read(std::string_view(bin));
    EXPECT_EQ(v, Value::array({"a\xC3\xA9", "x\xEF\xBF\xBDz"}));
    EXPECT_TRUE(PropertyList::write(v, Format::Binary));
}

// Fuzz finding: libplist asserts on a dictionary key holding NUL, which would end the process.
TEST(PropertyListRead, DictionaryKeyWithNulIsRefusedInsteadOfAborting) {
    const auto list = [](char middle) {
        return binaryList({"\xD1\x01\x02", std::string("\x53" "a") + middle + "b", "\x51x"}, 1);
    };
    EXPECT_TRUE(PropertyList::read(std::string_view(list('\0'))).isAbsent());
    EXPECT_EQ(PropertyList::read(std::string_view(list('c'))), Value::dictionary({{"acb", "x"}}));
}

TEST(PropertyListRead, DeepNestingAndExponentialSharingAreRefused) {
    std::string xml = "<?xml version=\"1.0\"?><plist version=\"1.0\">";
    for (int i = 0; i < 100000; ++i) xml += "<array>";
    for (int i = 0; i < 100000; ++i) xml += "</array>";
    EXPECT_TRUE(PropertyList::read(std::string_view(xml + "</plist>")).isAbsent());

    // Binary: object i is a one-element array holding object i+1, before libplist can recurse that deep.
    std::vector<std::string> chain;
    for (std::uint32_t i = 1; i < 100000; ++i) bigEndian(chain.emplace_back("\xA1"), i, 4);
    chain.emplace_back("\x08");
    EXPECT_TRUE(PropertyList::read(std::string_view(binaryList(chain, 4))).isAbsent());

    // Object i refers twice to object i+1: 40 levels would expand to 2^40 values.
    std::vector<std::string> shared;
    for (char i = 1; i <= 40; ++i) shared.push_back({'\xA2', i, i});
    shared.emplace_back("\x09");
    EXPECT_TRUE(PropertyList::read(std::string_view(binaryList(shared, 1))).isAbsent());
}

}  // namespace
}  // namespace nb
