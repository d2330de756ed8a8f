// NetworkInterfaces: what the machine's network looks like right now, as far as the zone cache cares: its
// IPv4 addresses and the Wi-Fi network it has joined. The seam between the library and the kernel, so that
// tests can say "joined to this SSID with that address" without hardware.
//
// Answers are read afresh on every call; nothing is cached, since the point is to notice a change.
//
// Threads: implementations must let every function be called on any thread, concurrently. Calls are
// synchronous on the caller's thread and may block briefly on the kernel.
//
// Failure: nothing throws. A list that cannot be read is nullopt; see each function.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nb {

struct WiFiInterface {
    std::string interfaceName;
    // nullopt while the interface has not joined a network. Text, never raw bytes: an SSID that is not
    // UTF-8 arrives with its offending bytes written as "\xNN", the same way on every reading.
    std::optional<std::string> ssid;

    friend bool operator==(const WiFiInterface&, const WiFiInterface&) = default;
};

class NetworkInterfaces {
public:
    virtual ~NetworkInterfaces() = default;

    // Dotted-decimal IPv4 addresses in the order the kernel lists its interfaces, loopback included (an
    // interface with several addresses contributes each). Empty when there is none; nullopt when the list
    // cannot be read.
    virtual std::optional<std::vector<std::string>> ipv4Addresses() const = 0;

    // The Wi-Fi interface (a station one when there are several kinds) and the network it has joined;
    // nullopt on a machine without Wi-Fi, and whenever the kernel cannot be asked.
    virtual std::optional<WiFiInterface> wifiInterface() const = 0;

    // The kernel's answers (KernelNetworkInterfaces), created on first use, thread-safely, and never
    // destroyed, so it may be used at any time, also during static destruction.
    static std::shared_ptr<const NetworkInterfaces> system();

protected:
    NetworkInterfaces() = default;
    NetworkInterfaces(const NetworkInterfaces&) = default;
    NetworkInterfaces& operator=(const NetworkInterfaces&) = default;
};

}  // namespace nb
