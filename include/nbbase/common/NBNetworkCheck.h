// NBNetworkCheck: the kind of network interface the machine currently reaches the internet through, and
// notifications when it changes.
//
// Interface types (the int32 values the SDK is told): kNone 0, no default route (the loopback interface
// does not count); kWiFi 1, the default route leaves through a wireless interface; kWired 2, through any
// other interface (Ethernet, a tunnel, a bridge).
//
// How the type is found: on Linux the default route with the lowest metric in /proc/net/route (an IPv6
// default route from /proc/net/ipv6_route when there is no IPv4 one) names the interface, and it is
// wireless when /sys/class/net/<interface>/wireless or .../phy80211 exists. Elsewhere, an interface that is
// up, not loopback and holds an address counts as wired. The probe is the seam: a test gives its own.
//
// Changes: startMonitor() opens a routing socket (netlink on Linux: link, route and address groups) read on
// a thread of this object. Each batch of kernel messages makes the monitor call recheck(), which probes and,
// only when the type differs from the last one seen, calls every live delegate's interfaceTypeDidChange on
// the monitor thread (or on the thread that called recheck()). Rechecks are serialised, so delegates see
// the changes one at a time and in order; a delegate must not call recheck() from its callback.
//
// Delegates are held weakly: one that has been destroyed is skipped and forgotten. addDelegate and
// removeDelegate may be called on any thread, also from inside a callback; a delegate removed while a
// notification is under way may still receive that one notification.
//
// Lifetime: the destructor stops and joins the monitor thread (it must not run on the monitor thread, that
// is from a delegate callback). sharedInstance() is never destroyed, so its monitor, once started, runs
// until the process ends.
//
// Failure: when the routing socket cannot be opened, startMonitor() logs the reason (NBLog level 4) and
// answers false; interfaceType() keeps working. A probe that cannot read the kernel's tables answers kNone.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace nb {

class NBNetworkCheckDelegate {
public:
    virtual ~NBNetworkCheckDelegate() = default;
    // The new type, one of NBNetworkCheck::InterfaceType's values. Runs on the monitor thread.
    virtual void interfaceTypeDidChange(std::int32_t interfaceType) = 0;
};

class NBNetworkCheck {
public:
    enum InterfaceType : std::int32_t { kNone = 0, kWiFi = 1, kWired = 2 };

    // Answers the current type. Called on the monitor thread and on any thread that asks interfaceType(),
    // so it must be thread-safe.
    using Probe = std::function<std::int32_t()>;

    // The process-wide monitor with the kernel probe, created on first use and never destroyed. Its monitor
    // thread starts only when someone calls startMonitor().
    static NBNetworkCheck& sharedInstance();

    // Probes once, to know the type that later changes are measured against. An empty probe answers kNone.
    explicit NBNetworkCheck(Probe probe = &NBNetworkCheck::kernelInterfaceType);
    ~NBNetworkCheck();
    NBNetworkCheck(const NBNetworkCheck&) = delete;
    NBNetworkCheck& operator=(const NBNetworkCheck&) = delete;

    // The type now, probed afresh; any thread. It does not notify delegates (only recheck() does).
    std::int32_t interfaceType() const;

    void addDelegate(std::weak_ptr<NBNetworkCheckDelegate> delegate);
    // Matches by identity, so a delegate may remove itself from its destructor; unknown ones are ignored.
    void removeDelegate(const std::weak_ptr<NBNetworkCheckDelegate>& delegate);

    // Starts the monitor thread unless it runs already; any thread. True when it runs.
    bool startMonitor();
    bool isMonitoring() const;

    // Probes and notifies the delegates when the type changed; what the monitor does on each kernel message.
    // Any thread; blocks while another recheck is notifying.
    void recheck();

    // The kernel probe. On Linux it is interfaceTypeFromTables("/proc/net", "/sys/class/net"), which reads
    // procNet ("route", "ipv6_route") and sysClassNet ("<interface>/wireless", "<interface>/phy80211"); the
    // folders are parameters so that a test can lay out a routing table of its own.
    static std::int32_t kernelInterfaceType();
    static std::int32_t interfaceTypeFromTables(const std::filesystem::path& procNet,
                                                const std::filesystem::path& sysClassNet);

private:
    void monitorLoop(int routingSocket, int stopFd);

    const Probe probe_;

    std::mutex recheckMutex_;
    std::int32_t lastType_;  // guarded by recheckMutex_

    std::mutex delegatesMutex_;
    std::vector<std::weak_ptr<NBNetworkCheckDelegate>> delegates_;  // guarded by delegatesMutex_

    mutable std::mutex monitorMutex_;
    std::thread monitor_;      // guarded by monitorMutex_
    int stopPipe_[2] = {-1, -1};  // guarded by monitorMutex_; the write end wakes the monitor to stop
};

}  // namespace nb
