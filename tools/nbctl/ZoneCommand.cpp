#include "ZoneCommand.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>

#include <fmt/format.h>

#include "PlistText.h"
#include "nbbase/foundation/Folders.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/UserDefaults.h"

namespace nb::nbctl {

ZoneCommand::ZoneCommand(CLI::App& app, const std::filesystem::path& preferencesFolder) : folder_(preferencesFolder) {
    command_ = app.add_subcommand("zone", "Show the stored speed test, whether the network changed and the zone ids");
    command_->add_option("--store", store_, "Store the JSON array in FILE ('-': standard input) as a finished test");
}

std::string ZoneCommand::report(NBZoneCache& cache, const NBConfiguration& configuration,
                                const NetworkInterfaces& network) {
    const auto wifi = network.wifiInterface();
    const auto address = cache.getIPAddress();
    const double modified = cache.configModifiyTime();
    std::string text = fmt::format(
        "network now: {}; IPv4 address {}\n",
        !wifi ? std::string("no Wi-Fi interface")
              : fmt::format("Wi-Fi {} {}", wifi->interfaceName,
                            wifi->ssid ? fmt::format("joined to \"{}\"", *wifi->ssid) : "joined to no network"),
        address.value_or("none"));
    text += fmt::format("configuration file {}: {}\n", configuration.sdkConfigFilePath().string(),
                        modified == 0 ? std::string("missing (0)") : fmt::format("modified {:.6f}", modified));
    const Value record = configuration.speedTestDict();
    text += fmt::format("record {}\n", record.isDictionary() ? PlistText::format(record) : "none");
    const NetworkVerdict verdict = cache.networkVerdict();
    text += fmt::format("network changed: {} ({})\n", cache.checkNetworkChange() ? "yes" : "no",
                        NBZoneCache::describe(verdict));
    const std::string zones = cache.zoneId();
    const bool removed = record.isDictionary() && !configuration.speedTestDict().isDictionary();
    text += fmt::format("zone ids: \"{}\"{}\n", zones, removed ? " (the record was removed: test again)" : "");
    return text;
}

int ZoneCommand::run() const {
    const Folders folders = Folders::fromProcessEnvironment();
    NBConfiguration configuration(std::make_shared<UserDefaults>(std::string(NBConfiguration::kSuiteName), folder_),
                                  folders.homeFolder());
    const auto network = NetworkInterfaces::system();
    NBZoneCache cache(configuration, network);
    if (!store_.empty()) {
        std::string bytes;
        if (store_ == "-") {
            bytes.assign(std::istreambuf_iterator<char>(std::cin), {});
        } else {
            std::ifstream in(store_, std::ios::binary);
            if (!in) {
                std::fprintf(stderr, "nbctl: cannot read %s\n", store_.c_str());
                return 1;
            }
            bytes.assign(std::istreambuf_iterator<char>(in), {});
        }
        const auto entries = Json::decode(bytes);
        if (!entries || !entries->isArray()) {
            std::fprintf(stderr, "nbctl: %s is not a JSON array of speed-test entries\n", store_.c_str());
            return 1;
        }
        const Value before = configuration.speedTestDict();
        cache.speedTestEnd(*entries);
        std::printf("%s\n", configuration.speedTestDict() == before ? "stored nothing: the result is empty or used a backup zone"
                                                                   : "stored the speed test");
    }
    std::printf("%s", report(cache, configuration, *network).c_str());
    return 0;
}

}  // namespace nb::nbctl
