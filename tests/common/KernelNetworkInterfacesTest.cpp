#include "nbbase/common/KernelNetworkInterfaces.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#ifdef __linux__
#include <linux/nl80211.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>
#endif

namespace nb {
namespace {

std::span<const std::uint8_t> bytes(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

TEST(KernelNetworkInterfacesTest, AddressListHasLoopback) {
    const auto addresses = KernelNetworkInterfaces().ipv4Addresses();
    ASSERT_TRUE(addresses);
    EXPECT_NE(std::find(addresses->begin(), addresses->end(), "127.0.0.1"), addresses->end());
}

#ifdef __linux__
// Where the kernel lists no wireless interface, asking nl80211 must come back empty, whether the family
// exists or not, and leave nothing open behind (the sanitizer build checks the leaks).
TEST(KernelNetworkInterfacesTest, NoWirelessInterfaceMeansNoWiFi) {
    std::error_code error;
    for (const auto& link : std::filesystem::directory_iterator("/sys/class/net", error)) {
        if (std::filesystem::exists(link.path() / "wireless")) GTEST_SKIP() << "this machine has Wi-Fi";
    }
    EXPECT_EQ(KernelNetworkInterfaces().wifiInterface(), std::nullopt);
}

struct Attributes {
    const char* name = nullptr;
    int type = -1;            // NL80211_IFTYPE_*, or -1 for none
    const char* ssid = nullptr;
    bool shortType = false;   // a type attribute of 2 bytes instead of 4
    bool genericHeader = true;
};

struct MessageDeleter {
    void operator()(nl_msg* message) const { nlmsg_free(message); }
};

std::unique_ptr<nl_msg, MessageDeleter> reply(const Attributes& a) {
    std::unique_ptr<nl_msg, MessageDeleter> message(nlmsg_alloc());
    if (!a.genericHeader) return message;
    genlmsg_put(message.get(), NL_AUTO_PORT, NL_AUTO_SEQ, 28, 0, NLM_F_MULTI, NL80211_CMD_NEW_INTERFACE, 0);
    if (a.name) nla_put_string(message.get(), NL80211_ATTR_IFNAME, a.name);
    if (a.shortType) nla_put_u16(message.get(), NL80211_ATTR_IFTYPE, NL80211_IFTYPE_STATION);
    if (a.type >= 0) nla_put_u32(message.get(), NL80211_ATTR_IFTYPE, static_cast<std::uint32_t>(a.type));
    if (a.ssid) nla_put(message.get(), NL80211_ATTR_SSID, static_cast<int>(std::strlen(a.ssid)), a.ssid);
    return message;
}

TEST(KernelNetworkInterfacesTest, InterfaceChoiceFromDumpReplies) {
    const struct {
        const char* name;
        std::vector<Attributes> replies;
        std::optional<WiFiInterface> chosen;
    } cases[] = {
        {"no interface", {}, std::nullopt},
        {"station joined", {{"wlan0", NL80211_IFTYPE_STATION, "home"}}, WiFiInterface{"wlan0", "home"}},
        {"empty SSID is not joined", {{"wlan0", NL80211_IFTYPE_STATION, ""}}, WiFiInterface{"wlan0", std::nullopt}},
        {"station preferred over earlier kinds",
         {{"mon0", NL80211_IFTYPE_MONITOR},
          {"ap0", NL80211_IFTYPE_AP, "shared"},
          {"wlan1", NL80211_IFTYPE_STATION, "cafe"}},
         WiFiInterface{"wlan1", "cafe"}},
        {"first station of two",
         {{"wlan0", NL80211_IFTYPE_STATION}, {"wlan1", NL80211_IFTYPE_STATION, "home"}},
         WiFiInterface{"wlan0", std::nullopt}},
        {"no station: the first", {{"ap0", NL80211_IFTYPE_AP, "shared"}, {"p2p0", NL80211_IFTYPE_P2P_CLIENT}},
         WiFiInterface{"ap0", "shared"}},
        {"unusable replies skipped",
         {{nullptr, NL80211_IFTYPE_STATION, "nameless"},
          {"", NL80211_IFTYPE_STATION, "empty name"},
          {"bad0", -1, "bad type", true},
          {.genericHeader = false},
          {"wlan2", NL80211_IFTYPE_MONITOR}},
         WiFiInterface{"wlan2", std::nullopt}},
        {"SSID bytes that are not UTF-8", {{"wlan0", NL80211_IFTYPE_STATION, "caf\xe9"}},
         WiFiInterface{"wlan0", "caf\\xe9"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        KernelNetworkInterfaces::InterfaceDump dump;
        for (const Attributes& attributes : c.replies) dump.add(reply(attributes).get());
        EXPECT_EQ(dump.chosen(), c.chosen);
    }
}
#endif

TEST(KernelNetworkInterfacesTest, KernelBytesBecomeStableText) {
    const struct {
        std::string_view in;
        const char* out;
    } cases[] = {
        {"Home Net", "Home Net"},
        {"caf\xc3\xa9 \xf0\x9f\x93\xb6", "caf\xc3\xa9 \xf0\x9f\x93\xb6"},
        {"\xff\xfe", "\\xff\\xfe"},
        {"ab\xe2\x82", "ab\\xe2\\x82"},        // cut short
        {"\xc0\xaf", "\\xc0\\xaf"},            // overlong '/'
        {"\xed\xa0\x80", "\\xed\\xa0\\x80"},   // a surrogate
        {std::string_view("a\0b", 3), "a\\x00b"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(KernelNetworkInterfaces::textOf(bytes(c.in)), c.out) << c.out;
    }
}

}  // namespace
}  // namespace nb
