#include "nbbase/common/KernelNetworkInterfaces.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unicode/utf8.h>

#include <array>
#include <cstring>
#include <memory>

#ifdef __linux__
#include <linux/nl80211.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/netlink.h>
#endif

namespace nb {

std::optional<std::vector<std::string>> KernelNetworkInterfaces::ipv4Addresses() const {
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) return std::nullopt;
    const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(list, &::freeifaddrs);
    std::vector<std::string> addresses;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) continue;
        // memcpy rather than a cast: ifa_addr is only guaranteed sockaddr's alignment.
        sockaddr_in address{};
        std::memcpy(&address, entry->ifa_addr, sizeof address);
        std::array<char, INET_ADDRSTRLEN> text{};
        if (::inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size()) != nullptr) {
            addresses.emplace_back(text.data());
        }
    }
    return addresses;
}

std::string KernelNetworkInterfaces::textOf(std::span<const std::uint8_t> bytes) {
    static constexpr char kHex[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size());
    const auto escape = [&text](std::uint8_t byte) {
        text += "\\x";
        text += kHex[byte >> 4];
        text += kHex[byte & 0xf];
    };
    const auto length = static_cast<std::int32_t>(bytes.size());
    std::int32_t i = 0;
    while (i < length) {
        const std::int32_t start = i;
        UChar32 c = 0;
        U8_NEXT(bytes.data(), i, length, c);
        if (c <= 0) {
            // Negative: an ill-formed sequence, of which U8_NEXT consumed the bytes up to i. Zero: a NUL,
            // which C strings downstream would cut the text at.
            for (std::int32_t j = start; j < i; ++j) escape(bytes[static_cast<std::size_t>(j)]);
        } else {
            text.append(reinterpret_cast<const char*>(bytes.data()) + start, static_cast<std::size_t>(i - start));
        }
    }
    return text;
}

std::optional<WiFiInterface> KernelNetworkInterfaces::InterfaceDump::chosen() const {
    return firstStation_ ? firstStation_ : first_;
}

#ifdef __linux__

namespace {

const nla_policy* interfacePolicy() {
    static const auto policy = [] {
        std::array<nla_policy, NL80211_ATTR_MAX + 1> table{};
        table[NL80211_ATTR_IFNAME].type = NLA_STRING;
        table[NL80211_ATTR_IFTYPE].type = NLA_U32;
        table[NL80211_ATTR_SSID].type = NLA_UNSPEC;
        return table;
    }();
    return policy.data();
}

std::span<const std::uint8_t> bytesOf(const nlattr* attribute) {
    return {static_cast<const std::uint8_t*>(nla_data(attribute)), static_cast<std::size_t>(nla_len(attribute))};
}

int collectInterface(nl_msg* message, void* dump) {
    static_cast<KernelNetworkInterfaces::InterfaceDump*>(dump)->add(message);
    return NL_OK;
}

struct SocketDeleter {
    void operator()(nl_sock* socket) const { nl_socket_free(socket); }
};
struct MessageDeleter {
    void operator()(nl_msg* message) const { nlmsg_free(message); }
};

// One dump of the interfaces on a socket of its own: 0, or the first failure's libnl error (negative).
int dumpInterfaces(KernelNetworkInterfaces::InterfaceDump& dump) {
    const std::unique_ptr<nl_sock, SocketDeleter> socket(nl_socket_alloc());
    if (!socket) return -NLE_NOMEM;
    if (const int error = genl_connect(socket.get()); error < 0) return error;
    const timeval timeout{KernelNetworkInterfaces::kReplyTimeoutSeconds, 0};
    if (::setsockopt(nl_socket_get_fd(socket.get()), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout) != 0) {
        return -NLE_FAILURE;
    }
    const int family = genl_ctrl_resolve(socket.get(), "nl80211");
    if (family < 0) return family;
    const std::unique_ptr<nl_msg, MessageDeleter> request(nlmsg_alloc());
    if (!request) return -NLE_NOMEM;
    if (genlmsg_put(request.get(), NL_AUTO_PORT, NL_AUTO_SEQ, family, 0, NLM_F_DUMP, NL80211_CMD_GET_INTERFACE,
                    0) == nullptr) {
        return -NLE_NOMEM;
    }
    if (const int error = nl_socket_modify_cb(socket.get(), NL_CB_VALID, NL_CB_CUSTOM, &collectInterface, &dump);
        error < 0) {
        return error;
    }
    if (const int error = nl_send_auto(socket.get(), request.get()); error < 0) return error;
    const int error = nl_recvmsgs_default(socket.get());
    return error < 0 ? error : 0;
}

}  // namespace

void KernelNetworkInterfaces::InterfaceDump::add(nl_msg* message) {
    if (message == nullptr) return;
    std::array<nlattr*, NL80211_ATTR_MAX + 1> attributes{};
    if (genlmsg_parse(nlmsg_hdr(message), 0, attributes.data(), NL80211_ATTR_MAX, interfacePolicy()) < 0) return;
    const nlattr* name = attributes[NL80211_ATTR_IFNAME];
    if (name == nullptr) return;
    // The policy made sure the name ends with a NUL; the kernel's names never hold one before it.
    const char* nameText = nla_get_string(name);
    WiFiInterface interface{textOf({reinterpret_cast<const std::uint8_t*>(nameText), std::strlen(nameText)}),
                            std::nullopt};
    if (interface.interfaceName.empty()) return;
    if (const nlattr* ssid = attributes[NL80211_ATTR_SSID]; ssid != nullptr && nla_len(ssid) > 0) {
        interface.ssid = textOf(bytesOf(ssid));
    }
    const nlattr* type = attributes[NL80211_ATTR_IFTYPE];
    const bool station = type != nullptr && nla_get_u32(type) == NL80211_IFTYPE_STATION;
    if (station && !firstStation_) firstStation_ = interface;
    if (!first_) first_ = std::move(interface);
}

std::optional<WiFiInterface> KernelNetworkInterfaces::wifiInterface() const {
    // A dump that the kernel interrupts (interfaces came or went meanwhile) is asked again, a few times;
    // any other failure means no Wi-Fi.
    for (int attempt = 0; attempt < 3; ++attempt) {
        InterfaceDump dump;
        const int error = dumpInterfaces(dump);
        if (error == 0) return dump.chosen();
        if (error != -NLE_DUMP_INTR) break;
    }
    return std::nullopt;
}

#else

void KernelNetworkInterfaces::InterfaceDump::add(nl_msg*) {}

std::optional<WiFiInterface> KernelNetworkInterfaces::wifiInterface() const { return std::nullopt; }

#endif

}  // namespace nb
