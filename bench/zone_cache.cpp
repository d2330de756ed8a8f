// What asking for the zones costs a client at a game's start: zoneId() on a valid record, which reads the
// suite, stats the SDK configuration file and asks the kernel for the Wi-Fi interface and the addresses,
// beside its parts measured alone: the suite read (speedTestDict), getifaddrs, and the nl80211 dump. On a
// machine without Wi-Fi the dump ends at the family lookup, so the figure is a floor there.
#include <benchmark/benchmark.h>

#include <stdlib.h>

#include <filesystem>
#include <memory>
#include <string>

#include "nbbase/common/KernelNetworkInterfaces.h"
#include "nbbase/core/NBConfiguration.h"
#include "nbbase/core/NBZoneCache.h"
#include "nbbase/foundation/UserDefaults.h"

namespace {

namespace fs = std::filesystem;

// A settings suite in a temporary home holding a valid record for this machine's network.
struct Home {
    Home() {
        std::string pattern = (fs::temp_directory_path() / "bench-zone-XXXXXX").string();
        path = ::mkdtemp(pattern.data()) != nullptr ? pattern : "";
        configuration = std::make_unique<nb::NBConfiguration>(
            std::make_shared<nb::UserDefaults>(std::string(nb::NBConfiguration::kSuiteName), path / "prefs"), path);
        cache = std::make_unique<nb::NBZoneCache>(*configuration);
        cache->speedTestEnd(nb::Value::array({nb::Value::dictionary({{"zoneId", 3}, {"delay", 21}}),
                                              nb::Value::dictionary({{"zoneId", "17"}, {"delay", 35}})}));
    }
    ~Home() {
        cache.reset();
        configuration.reset();
        std::error_code ignored;
        fs::remove_all(path, ignored);
    }
    fs::path path;
    std::unique_ptr<nb::NBConfiguration> configuration;
    std::unique_ptr<nb::NBZoneCache> cache;
};

void BM_ZoneId(benchmark::State& state) {
    Home home;
    for (auto _ : state) {
        const std::string zones = home.cache->zoneId();
        if (zones != "3,17") state.SkipWithError("the record was not valid for this network");
        benchmark::DoNotOptimize(zones);
    }
}
BENCHMARK(BM_ZoneId)->Unit(benchmark::kMicrosecond);

void BM_SuiteReadAlone(benchmark::State& state) {
    Home home;
    for (auto _ : state) benchmark::DoNotOptimize(home.configuration->speedTestDict());
}
BENCHMARK(BM_SuiteReadAlone)->Unit(benchmark::kMicrosecond);

void BM_AddressesAlone(benchmark::State& state) {
    const nb::KernelNetworkInterfaces kernel;
    for (auto _ : state) benchmark::DoNotOptimize(kernel.ipv4Addresses());
}
BENCHMARK(BM_AddressesAlone)->Unit(benchmark::kMicrosecond);

void BM_WiFiAlone(benchmark::State& state) {
    const nb::KernelNetworkInterfaces kernel;
    for (auto _ : state) benchmark::DoNotOptimize(kernel.wifiInterface());
}
BENCHMARK(BM_WiFiAlone)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
