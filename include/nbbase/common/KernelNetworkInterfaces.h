// KernelNetworkInterfaces: NetworkInterfaces answered by the operating system.
//
// Addresses come from getifaddrs(), converted with inet_ntop (the list's own order, nothing skipped).
//
// Wi-Fi, on Linux, comes from nl80211 over generic netlink (libnl-genl): each call opens a socket of its
// own, resolves the "nl80211" family, dumps the interfaces and closes the socket, so calls never share
// state. A kernel without nl80211 (no wireless driver loaded, the usual case on desktops wired by cable and
// in containers), a dump without interfaces, and every libnl or socket failure answer "no Wi-Fi". A reply
// is awaited for at most kReplyTimeoutSeconds, so a kernel that never answers cannot hang the caller. On
// other systems the answer is always "no Wi-Fi".
//
// Which interface: the first one of station type (a client of an access point); when there is none, the
// first one listed. Its SSID is the dump's SSID attribute, which the kernel sends while the interface has
// joined a network; an empty attribute counts as not joined.
//
// Threads: every function may be called on any thread, concurrently; each call is synchronous.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "nbbase/common/NetworkInterfaces.h"

struct nl_msg;

namespace nb {

class KernelNetworkInterfaces final : public NetworkInterfaces {
public:
    static constexpr int kReplyTimeoutSeconds = 5;

    KernelNetworkInterfaces() = default;

    std::optional<std::vector<std::string>> ipv4Addresses() const override;
    std::optional<WiFiInterface> wifiInterface() const override;

    // The interfaces of one nl80211 interface dump, fed message by message as they arrive, and the choice
    // among them. Not thread-safe: one dump, one thread.
    class InterfaceDump {
    public:
        // Reads one reply message (generic netlink header, then nl80211 attributes). A message that is not
        // well formed, whose attributes do not have their kernel types, or that names no interface is
        // skipped. The message stays the caller's. Does nothing where nl80211 does not exist.
        void add(nl_msg* message);
        std::optional<WiFiInterface> chosen() const;

    private:
        std::optional<WiFiInterface> firstStation_;
        std::optional<WiFiInterface> first_;
    };

    // Kernel bytes (an SSID, an interface name) as storable text: well-formed UTF-8 is kept as it is; every
    // byte of an ill-formed sequence, and every NUL, becomes "\xNN" (two lowercase hex digits). The same
    // bytes always give the same text.
    static std::string textOf(std::span<const std::uint8_t> bytes);
};

}  // namespace nb
