#include "nbbase/common/NBNetworkCheck.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <limits>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>

#if defined(__linux__)
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#else
#include <ifaddrs.h>
#include <net/if.h>
#include <net/route.h>
#endif

#include "nbbase/foundation/NBLog.h"

namespace nb {

namespace {

constexpr unsigned long kRouteUp = 0x0001;      // RTF_UP
constexpr unsigned long kRouteReject = 0x0200;  // RTF_REJECT: an unreachable route, not a way out

struct DefaultRoute {
    std::string interface;
    unsigned long metric = std::numeric_limits<unsigned long>::max();
};

std::optional<unsigned long> hexNumber(const std::string& text) {
    if (text.empty() || text.size() > 16) return std::nullopt;
    unsigned long value = 0;
    for (char c : text) {
        int digit;
        if (c >= '0' && c <= '9') digit = c - '0';
        else if (c >= 'a' && c <= 'f') digit = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F') digit = c - 'A' + 10;
        else return std::nullopt;
        value = value * 16 + static_cast<unsigned long>(digit);
    }
    return value;
}

bool allZeros(const std::string& hex) {
    return !hex.empty() && hex.find_first_not_of('0') == std::string::npos;
}

void consider(DefaultRoute& best, const std::string& interface, unsigned long flags, unsigned long metric) {
    if (interface.empty() || interface == "lo") return;
    if ((flags & kRouteUp) == 0 || (flags & kRouteReject) != 0) return;
    if (best.interface.empty() || metric < best.metric) best = {interface, metric};
}

// /proc/net/route: "Iface Destination Gateway Flags RefCnt Use Metric Mask MTU Window IRTT", hex numbers.
DefaultRoute ipv4DefaultRoute(const std::filesystem::path& file) {
    DefaultRoute best;
    std::ifstream in(file);
    std::string line;
    if (!std::getline(in, line)) return best;  // the header
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        std::string iface, destination, gateway, flags, refCount, use, metric, mask;
        if (!(fields >> iface >> destination >> gateway >> flags >> refCount >> use >> metric >> mask)) continue;
        auto flagBits = hexNumber(flags);
        auto metricValue = hexNumber(metric);
        if (!allZeros(destination) || !allZeros(mask) || !flagBits || !metricValue) continue;
        consider(best, iface, *flagBits, *metricValue);
    }
    return best;
}

// /proc/net/ipv6_route: "destination prefix source prefix next-hop metric refcount use flags device".
DefaultRoute ipv6DefaultRoute(const std::filesystem::path& file) {
    DefaultRoute best;
    std::ifstream in(file);
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        std::string destination, prefix, source, sourcePrefix, nextHop, metric, refCount, use, flags, iface;
        if (!(fields >> destination >> prefix >> source >> sourcePrefix >> nextHop >> metric >> refCount >> use >>
              flags >> iface)) {
            continue;
        }
        auto flagBits = hexNumber(flags);
        auto metricValue = hexNumber(metric);
        if (!allZeros(destination) || !allZeros(prefix) || !flagBits || !metricValue) continue;
        consider(best, iface, *flagBits, *metricValue);
    }
    return best;
}

#if !defined(__linux__)
// Without the kernel's routing table in files, an interface that is up and addressed stands in for a route.
std::int32_t interfaceTypeFromAddresses() {
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) return NBNetworkCheck::kNone;
    std::int32_t type = NBNetworkCheck::kNone;
    for (ifaddrs* item = list; item != nullptr; item = item->ifa_next) {
        if (item->ifa_addr == nullptr || (item->ifa_flags & IFF_UP) == 0 || (item->ifa_flags & IFF_LOOPBACK) != 0) {
            continue;
        }
        if (item->ifa_addr->sa_family == AF_INET || item->ifa_addr->sa_family == AF_INET6) {
            type = NBNetworkCheck::kWired;
            break;
        }
    }
    ::freeifaddrs(list);
    return type;
}
#endif

void closeQuietly(int& fd) {
    if (fd >= 0) ::close(fd);
    fd = -1;
}

int openRoutingSocket() {
#if defined(__linux__)
    int fd = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
    if (fd < 0) return -1;
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE | RTMGRP_IPV4_IFADDR;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        int saved = errno;
        ::close(fd);
        errno = saved;
        return -1;
    }
    return fd;
#else
    int fd = ::socket(PF_ROUTE, SOCK_RAW, AF_UNSPEC);
    if (fd < 0) return -1;
    ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    return fd;
#endif
}

bool makePipe(int fds[2]) {
    if (::pipe(fds) != 0) return false;
    for (int i = 0; i < 2; ++i) ::fcntl(fds[i], F_SETFD, FD_CLOEXEC);
    return true;
}

}  // namespace

NBNetworkCheck& NBNetworkCheck::sharedInstance() {
    static NBNetworkCheck* const instance = new NBNetworkCheck();
    return *instance;
}

NBNetworkCheck::NBNetworkCheck(Probe probe) : probe_(std::move(probe)), lastType_(interfaceType()) {}

NBNetworkCheck::~NBNetworkCheck() {
    std::thread monitor;
    {
        std::lock_guard lock(monitorMutex_);
        if (monitor_.joinable()) {
            char stop = 1;
            while (::write(stopPipe_[1], &stop, 1) < 0 && errno == EINTR) {
            }
        }
        monitor = std::move(monitor_);
    }
    if (monitor.joinable()) monitor.join();
    std::lock_guard lock(monitorMutex_);
    closeQuietly(stopPipe_[0]);
    closeQuietly(stopPipe_[1]);
}

std::int32_t NBNetworkCheck::interfaceType() const {
    return probe_ ? probe_() : kNone;
}

void NBNetworkCheck::addDelegate(std::weak_ptr<NBNetworkCheckDelegate> delegate) {
    std::lock_guard lock(delegatesMutex_);
    std::erase_if(delegates_, [](const auto& held) { return held.expired(); });
    delegates_.push_back(std::move(delegate));
}

void NBNetworkCheck::removeDelegate(const std::weak_ptr<NBNetworkCheckDelegate>& delegate) {
    std::lock_guard lock(delegatesMutex_);
    std::erase_if(delegates_, [&](const auto& held) {
        return !held.owner_before(delegate) && !delegate.owner_before(held);
    });
}

bool NBNetworkCheck::startMonitor() {
    std::lock_guard lock(monitorMutex_);
    if (monitor_.joinable()) return true;
    int routingSocket = openRoutingSocket();
    if (routingSocket < 0) {
        NBLog::sharedInstance().log(4, "network monitor: cannot open the routing socket: {}", std::strerror(errno));
        return false;
    }
    if (stopPipe_[0] < 0 && !makePipe(stopPipe_)) {
        NBLog::sharedInstance().log(4, "network monitor: cannot make its stop pipe: {}", std::strerror(errno));
        ::close(routingSocket);
        return false;
    }
    try {
        monitor_ = std::thread([this, routingSocket, stopFd = stopPipe_[0]] { monitorLoop(routingSocket, stopFd); });
    } catch (const std::system_error& error) {
        NBLog::sharedInstance().log(4, "network monitor: cannot start its thread: {}", error.what());
        ::close(routingSocket);
        return false;
    }
    return true;
}

bool NBNetworkCheck::isMonitoring() const {
    std::lock_guard lock(monitorMutex_);
    return monitor_.joinable();
}

void NBNetworkCheck::recheck() {
    std::lock_guard recheckLock(recheckMutex_);
    const std::int32_t type = interfaceType();
    if (type == lastType_) return;
    lastType_ = type;

    std::vector<std::shared_ptr<NBNetworkCheckDelegate>> live;
    {
        std::lock_guard lock(delegatesMutex_);
        std::erase_if(delegates_, [](const auto& held) { return held.expired(); });
        for (const auto& held : delegates_) {
            if (auto delegate = held.lock()) live.push_back(std::move(delegate));
        }
    }
    for (const auto& delegate : live) delegate->interfaceTypeDidChange(type);
}

void NBNetworkCheck::monitorLoop(int routingSocket, int stopFd) {
    alignas(8) char buffer[16384];
    for (;;) {
        pollfd fds[2] = {{routingSocket, POLLIN, 0}, {stopFd, POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            NBLog::sharedInstance().log(4, "network monitor: poll failed: {}", std::strerror(errno));
            break;
        }
        if (fds[1].revents != 0) break;
        if (fds[0].revents == 0) continue;
        // The messages only say that something changed; the probe reads the outcome. Drain the batch so that
        // a burst of messages costs one recheck. An overflow (ENOBUFS) lost messages, which a recheck covers.
        bool readable = true;
        while (readable) {
            ssize_t got = ::recv(routingSocket, buffer, sizeof buffer, 0);
            readable = got > 0 || (got < 0 && (errno == EINTR || errno == ENOBUFS));
        }
        recheck();
    }
    ::close(routingSocket);
}

std::int32_t NBNetworkCheck::kernelInterfaceType() {
#if defined(__linux__)
    return interfaceTypeFromTables("/proc/net", "/sys/class/net");
#else
    return interfaceTypeFromAddresses();
#endif
}

std::int32_t NBNetworkCheck::interfaceTypeFromTables(const std::filesystem::path& procNet,
                                                     const std::filesystem::path& sysClassNet) {
    DefaultRoute route = ipv4DefaultRoute(procNet / "route");
    if (route.interface.empty()) route = ipv6DefaultRoute(procNet / "ipv6_route");
    if (route.interface.empty()) return kNone;
    // The interface name comes from the kernel's own table; still, never let it climb out of the folder.
    if (route.interface.find('/') != std::string::npos || route.interface == "..") return kWired;
    std::error_code ignored;
    const auto device = sysClassNet / route.interface;
    if (std::filesystem::exists(device / "wireless", ignored) || std::filesystem::exists(device / "phy80211", ignored)) {
        return kWiFi;
    }
    return kWired;
}

}  // namespace nb
