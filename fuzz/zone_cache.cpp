// Any bytes as a speed test's entries, stored over an earlier record: either the entries were stored as
// they are (a non-empty array in which no entry used a backup zone and that the suite can hold), or the
// earlier record is untouched. zoneId() then never has an empty item, and every item is the zone id of one
// of the entries.
//
// The network and the clock are fixed, so a stored record is always valid.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "fuzz/CatalogCollaborators.h"
#include "nbbase/core/NBZoneCache.h"
#include "nbbase/foundation/ManualClock.h"
#include "nbbase/foundation/PropertyList.h"

namespace {

using nbfuzz::check;

class FixedNetwork final : public nb::NetworkInterfaces {
public:
    std::optional<std::vector<std::string>> ipv4Addresses() const override {
        return std::vector<std::string>{"127.0.0.1", "192.168.1.4"};
    }
    std::optional<nb::WiFiInterface> wifiInterface() const override { return nb::WiFiInterface{"wlan0", "home"}; }
};

// What an entry may contribute to the joined list, found independently of the cache.
std::set<std::string> candidateIds(const nb::Value& entries) {
    std::set<std::string> ids;
    if (const nb::Value::Array* list = entries.asArray()) {
        for (const nb::Value& entry : *list) {
            if (auto id = entry["zoneId"].textValue()) ids.insert(*id);
        }
    }
    return ids;
}

bool anyBackup(const nb::Value& entries) {
    for (const nb::Value& entry : *entries.asArray()) {
        if (entry["backup"].boolValue()) return true;
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static nb::ManualClock clock(nb::Clock::fromSecondsSince1970(1'700'000'000));
    // Refused writes are logged by the suite; the oracle below judges them instead.
    static const bool quiet = [] {
        nb::NBLog::sharedInstance().setLogHandler([](std::int32_t, const std::string&) {});
        return true;
    }();
    (void)quiet;
    auto& configuration = nbfuzz::CatalogCollaborators::shared().configuration();
    nb::NBZoneCache cache(configuration, std::make_shared<FixedNetwork>(), clock);

    const nb::Value earlier = nb::Value::array({nb::Value::dictionary({{"zoneId", "seed"}})});
    cache.speedTestEnd(earlier);
    const nb::Value earlierRecord = configuration.speedTestDict();
    check(earlierRecord["testResult"] == earlier);

    const nb::Value entries = nbfuzz::decodeInput(data, size);
    cache.speedTestEnd(entries);
    const nb::Value record = configuration.speedTestDict();
    const bool acceptable = entries.isArray() && entries.size() > 0 && !anyBackup(entries);
    // The suite holds property-list values only; a null anywhere in the entries is refused there.
    const bool storable = nb::PropertyList::write(entries, nb::PropertyList::Format::Binary).has_value();
    if (acceptable && storable) {
        check(record["testResult"] == entries);
    } else {
        check(record == earlierRecord);
    }

    const std::set<std::string> ids = candidateIds(record["testResult"]);
    const std::string joined = cache.zoneId();
    // With a comma inside an id the items cannot be told apart; such ids are the host's business.
    for (const std::string& id : ids) {
        if (id.find(',') != std::string::npos) return 0;
    }
    std::size_t start = 0;
    while (!joined.empty() && start <= joined.size()) {
        std::size_t end = joined.find(',', start);
        if (end == std::string::npos) end = joined.size();
        const std::string item = joined.substr(start, end - start);
        check(!item.empty() && ids.count(item) == 1);
        start = end + 1;
    }
    return 0;
}
