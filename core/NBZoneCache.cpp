#include "nbbase/core/NBZoneCache.h"

#include <sys/stat.h>

#include <utility>

namespace nb {

namespace {

bool usedBackup(const Value& entry) { return entry.isDictionary() && entry["backup"].boolValue(); }

std::optional<std::string> zoneIdOf(const Value& entry) {
    if (!entry.isDictionary()) return std::nullopt;
    std::optional<std::string> id = entry["zoneId"].textValue();
    if (id && id->empty()) return std::nullopt;
    return id;
}

std::optional<std::string> storedText(const Value& value) {
    const std::string* text = value.asString();
    return text ? std::optional<std::string>(*text) : std::nullopt;
}

}  // namespace

NBZoneCache::NBZoneCache(NBConfiguration& configuration, std::shared_ptr<const NetworkInterfaces> network,
                         const Clock& clock)
    : configuration_(configuration), network_(std::move(network)), clock_(clock) {}

NBZoneCache& NBZoneCache::sharedInstance() {
    static NBZoneCache* const instance = new NBZoneCache(NBConfiguration::sharedInstance());
    return *instance;
}

void NBZoneCache::speedTestEnd(const Value& array) {
    const Value::Array* entries = array.asArray();
    if (entries == nullptr || entries->empty()) return;
    for (const Value& entry : *entries) {
        if (usedBackup(entry)) return;
    }
    Value record = Value::dictionary({{"testResult", array}});
    if (const auto wifi = network_ ? network_->wifiInterface() : std::nullopt; wifi && wifi->ssid) {
        record.set("ssid", *wifi->ssid);
    }
    if (auto address = getIPAddress()) record.set("ipAddress", std::move(*address));
    record.set("testTime", clock_.date());
    record.set("configModifyTime", configModifiyTime());
    configuration_.setSpeedTestDict(record);
}

std::string NBZoneCache::zoneId() {
    const Value record = configuration_.speedTestDict();
    const Value::Array* entries = record["testResult"].asArray();
    if (entries == nullptr || checkNetworkChangeFor(record)) {
        clearZoneId();
        return {};
    }
    std::string joined;
    for (const Value& entry : *entries) {
        const std::optional<std::string> id = zoneIdOf(entry);
        if (!id) continue;
        if (!joined.empty()) joined += ',';
        joined += *id;
    }
    return joined;
}

void NBZoneCache::clearZoneId() { configuration_.setSpeedTestDict(Value()); }

bool NBZoneCache::checkNetworkChange() const { return checkNetworkChangeFor(configuration_.speedTestDict()); }

NetworkVerdict NBZoneCache::networkVerdict() const { return verdictFor(configuration_.speedTestDict()); }

bool NBZoneCache::checkNetworkChangeFor(const Value& record) const {
    const NetworkVerdict verdict = verdictFor(record);
    return verdict != NetworkVerdict::SameSsid && verdict != NetworkVerdict::SameAddress;
}

NetworkVerdict NBZoneCache::verdictFor(const Value& record) const {
    if (!record.isDictionary()) return NetworkVerdict::NoRecord;
    // Exact comparison on purpose: both sides come from the same computation on the same file, so any
    // difference means the file was created, removed or touched since the test.
    if (configModifiyTime() != record["configModifyTime"].doubleValue()) return NetworkVerdict::ConfigurationEdited;
    const Date* testTime = record["testTime"].asDate();
    if (testTime == nullptr) return NetworkVerdict::NoTestTime;
    if (testTime->secondsSince1970 < clock_.secondsSince1970() - kValiditySeconds) return NetworkVerdict::Expired;

    const std::optional<WiFiInterface> wifi = network_ ? network_->wifiInterface() : std::nullopt;
    if (wifi && !wifi->ssid) return NetworkVerdict::WiFiNotJoined;
    const std::optional<std::string> ssid = wifi ? wifi->ssid : std::nullopt;
    if (ssid == storedText(record["ssid"])) return NetworkVerdict::SameSsid;

    const std::optional<std::string> address = getIPAddress();
    if (!address) return NetworkVerdict::NoAddress;
    return address == storedText(record["ipAddress"]) ? NetworkVerdict::SameAddress
                                                      : NetworkVerdict::AddressChanged;
}

const char* NBZoneCache::describe(NetworkVerdict verdict) {
    switch (verdict) {
        case NetworkVerdict::NoRecord: return "no speed test recorded";
        case NetworkVerdict::ConfigurationEdited: return "the SDK configuration file changed since the test";
        case NetworkVerdict::NoTestTime: return "the record has no test time";
        case NetworkVerdict::Expired: return "the test is more than a day old";
        case NetworkVerdict::WiFiNotJoined: return "Wi-Fi has not joined a network";
        case NetworkVerdict::SameSsid: return "the same Wi-Fi network as at the test, or no Wi-Fi then and now";
        case NetworkVerdict::NoAddress: return "another network and no IPv4 address";
        case NetworkVerdict::SameAddress: return "another Wi-Fi network but the same IPv4 address";
        case NetworkVerdict::AddressChanged: return "another network and another IPv4 address";
    }
    return "unknown";
}

std::optional<std::string> NBZoneCache::getIPAddress() const {
    if (!network_) return std::nullopt;
    std::optional<std::vector<std::string>> addresses = network_->ipv4Addresses();
    if (!addresses || addresses->empty()) return std::nullopt;
    return std::move(addresses->back());
}

double NBZoneCache::configModifiyTime() const {
    struct stat status {};
    if (::stat(configuration_.sdkConfigFilePath().c_str(), &status) != 0) return 0;
#ifdef __APPLE__
    const timespec& modified = status.st_mtimespec;
#else
    const timespec& modified = status.st_mtim;
#endif
    return static_cast<double>(modified.tv_sec) + static_cast<double>(modified.tv_nsec) / 1e9;
}

}  // namespace nb
