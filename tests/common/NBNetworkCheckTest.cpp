#include <atomic>
#include <fstream>
#include <mutex>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "TempDir.h"
#include "nbbase/common/NBNetworkCheck.h"

namespace {

using nb::NBNetworkCheck;

struct RecordingDelegate : nb::NBNetworkCheckDelegate {
    void interfaceTypeDidChange(std::int32_t type) override {
        std::lock_guard lock(mutex);
        seen.push_back(type);
    }
    std::vector<std::int32_t> received() {
        std::lock_guard lock(mutex);
        return seen;
    }
    std::mutex mutex;
    std::vector<std::int32_t> seen;
};

TEST(NBNetworkCheck, NotifiesLiveDelegatesOnlyWhenTheTypeChanges) {
    std::atomic<std::int32_t> current{NBNetworkCheck::kWired};
    NBNetworkCheck check([&] { return current.load(); });
    auto kept = std::make_shared<RecordingDelegate>(), removed = std::make_shared<RecordingDelegate>(),
         dropped = std::make_shared<RecordingDelegate>();
    for (const auto& delegate : {kept, removed, dropped}) check.addDelegate(delegate);

    check.recheck();  // unchanged since construction
    current = NBNetworkCheck::kWiFi;
    check.recheck();
    check.removeDelegate(removed);
    dropped.reset();  // a destroyed delegate is skipped, not called
    check.recheck();  // unchanged
    current = NBNetworkCheck::kNone;
    check.recheck();

    EXPECT_EQ(kept->received(), (std::vector<std::int32_t>{NBNetworkCheck::kWiFi, NBNetworkCheck::kNone}));
    EXPECT_EQ(removed->received(), (std::vector<std::int32_t>{NBNetworkCheck::kWiFi}));
    EXPECT_EQ(check.interfaceType(), NBNetworkCheck::kNone);
}

// Routing tables laid out as the kernel writes them, to the type they mean.
TEST(NBNetworkCheck, KernelProbeFollowsTheDefaultRoute) {
    const std::string header = "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";
    auto v4 = [](const char* iface, const char* dest, const char* flags, const char* metric, const char* mask) {
        return std::string(iface) + "\t" + dest + "\t010200C0\t" + flags + "\t0\t0\t" + metric + "\t" + mask +
               "\t0\t0\t0\n";
    };
    auto v6 = [](const char* iface, const char* flags) {
        return std::string(32, '0') + " 00 " + std::string(32, '0') + " 00 " + std::string(32, '0') + " 00000400 " +
               "00000001 00000000 " + flags + " " + iface + "\n";
    };
    struct Case {
        std::string route, ipv6Route;
        std::int32_t expected;
    } cases[] = {
        {"", "", NBNetworkCheck::kNone},  // no tables at all
        {header + v4("eth0", "000200C0", "0001", "0", "00FFFFFF"), "", NBNetworkCheck::kNone},
        {header + v4("lo", "00000000", "0003", "0", "00000000"), v6("lo", "00200200"), NBNetworkCheck::kNone},
        {header + v4("eth0", "00000000", "0002", "0", "00000000"), "", NBNetworkCheck::kNone},  // not up
        {header + v4("eth0", "00000000", "0003", "0", "00000000"), "", NBNetworkCheck::kWired},
        {header + v4("wlan0", "00000000", "0003", "0", "00000000"), "", NBNetworkCheck::kWiFi},
        {header + v4("wlan0", "00000000", "0003", "600", "00000000") + v4("eth0", "00000000", "0003", "64", "00000000"),
         "", NBNetworkCheck::kWired},
        {header + v4("eth0", "00000000", "0003", "400", "00000000") + v4("wlp2s0", "00000000", "0003", "A", "00000000"),
         "", NBNetworkCheck::kWiFi},
        {header, v6("wlan0", "00000003"), NBNetworkCheck::kWiFi},
        {header, v6("eth0", "00000201") + v6("lo", "00200200"), NBNetworkCheck::kNone},  // rejected routes
        {"garbage", "also garbage", NBNetworkCheck::kNone},
    };
    for (const auto& c : cases) {
        nbtest::TempDir dir;
        std::filesystem::create_directories(dir.path() / "sys" / "wlan0" / "wireless");
        std::filesystem::create_directories(dir.path() / "sys" / "wlp2s0" / "phy80211");
        std::filesystem::create_directories(dir.path() / "sys" / "eth0");
        if (!c.route.empty()) std::ofstream(dir.path() / "route") << c.route;
        if (!c.ipv6Route.empty()) std::ofstream(dir.path() / "ipv6_route") << c.ipv6Route;
        EXPECT_EQ(NBNetworkCheck::interfaceTypeFromTables(dir.path(), dir.path() / "sys"), c.expected)
            << c.route << c.ipv6Route;
    }
    const std::int32_t real = NBNetworkCheck::kernelInterfaceType();
    EXPECT_TRUE(real == NBNetworkCheck::kNone || real == NBNetworkCheck::kWiFi || real == NBNetworkCheck::kWired);
}

// A real monitor thread on the kernel's routing socket runs beside rechecks from other threads, and the
// destructor stops it. Concurrent rechecks are serialised: delegates never see the same type twice in a row.
TEST(NBNetworkCheck, MonitorThreadStartsOnceAndStopsWithItsOwner) {
    std::atomic<int> probes{0};
    auto delegate = std::make_shared<RecordingDelegate>();
    {
        NBNetworkCheck check([&] { return static_cast<std::int32_t>(probes.fetch_add(1) / 3 % 2); });
        check.addDelegate(delegate);
        ASSERT_TRUE(check.startMonitor());
        EXPECT_TRUE(check.startMonitor());
        EXPECT_TRUE(check.isMonitoring());
        std::vector<std::thread> threads;
        for (int t = 0; t < 3; ++t) {
            threads.emplace_back([&] {
                for (int i = 0; i < 200; ++i) check.recheck();
            });
        }
        for (auto& thread : threads) thread.join();
    }
    const auto seen = delegate->received();
    EXPECT_FALSE(seen.empty());
    for (std::size_t i = 1; i < seen.size(); ++i) ASSERT_NE(seen[i], seen[i - 1]) << "at " << i;
}

}  // namespace
