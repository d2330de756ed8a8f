// NBZoneCache: the zones of the host's last speed test, handed out while the network the test ran on is
// still the current one and the test is at most kValiditySeconds old, so that the host tests again only
// when the answer may have changed.
//
// The record lives in the settings suite under "speedTest" (NBConfiguration::speedTestDict), so it outlives
// the process and is shared with every process on the suite:
//   "testResult"       the entries exactly as the host passed them (dictionaries with "zoneId", "backup"
//                      and keys of the host's own; other kinds are kept but carry nothing);
//   "ssid"             the joined Wi-Fi network at the end of the test, absent without one;
//   "ipAddress"        getIPAddress() at the end of the test, absent without one;
//   "testTime"         a date, the clock's now when the test was stored;
//   "configModifyTime" configModifiyTime() when the test was stored.
//
// Reading entries: "backup" is read by its bool value (true, 1, "YES"); an entry's "zoneId" counts when it
// is a non-empty string or a number (its string value, 17 or 2.5). Entries that are not dictionaries, and
// zone ids that are empty, null or containers, count as no zone id, so zoneId() never has empty items.
//
// Reading the record: a suite value that is not a dictionary is no record; a stored "configModifyTime" that
// is not a number reads by its double value (0 for anything unreadable); a stored "ssid" or "ipAddress" that
// is not a string counts as absent.
//
// Threads: every function may be called on any thread at once. The cache has no state of its own beyond
// its collaborators, which are thread-safe; each call reads the suite afresh. zoneId() reads the record and
// removes it when invalid in two steps, so a record stored by another thread in between may be removed too
// (the host then tests again). The network is asked on the calling thread and may block briefly.
//
// Lifetime: the configuration and the clock must outlive the cache; the network is shared. sharedInstance()
// is created once, thread-safely, on first use and never destroyed.
//
// Failure: nothing throws. A suite that refuses the record (it cannot hold a null anywhere in the entries)
// logs it and keeps the earlier record; a network that cannot be read counts as no address and no Wi-Fi.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "nbbase/common/NetworkInterfaces.h"
#include "nbbase/core/NBConfiguration.h"
#include "nbbase/foundation/Clock.h"
#include "nbbase/foundation/Value.h"

namespace nb {

// Why checkNetworkChange() answers as it does, in the order the rules are tried.
enum class NetworkVerdict {
    NoRecord,             // no record, or one that is not a dictionary: changed
    ConfigurationEdited,  // the SDK configuration file's time differs from the recorded one: changed
    NoTestTime,           // "testTime" is not a date: changed
    Expired,              // older than kValiditySeconds: changed
    WiFiNotJoined,        // a Wi-Fi interface joined to no network: changed
    SameSsid,             // the joined SSID is the recorded one (both absent counts): unchanged
    NoAddress,            // another SSID and no current IPv4 address: changed
    SameAddress,          // another SSID but the recorded address: unchanged
    AddressChanged,       // another SSID and another address: changed
};

class NBZoneCache {
public:
    static constexpr double kValiditySeconds = 86400;

    // A null network counts as a machine without Wi-Fi and without addresses.
    explicit NBZoneCache(NBConfiguration& configuration,
                         std::shared_ptr<const NetworkInterfaces> network = NetworkInterfaces::system(),
                         const Clock& clock = Clock::system());
    NBZoneCache(const NBZoneCache&) = delete;
    NBZoneCache& operator=(const NBZoneCache&) = delete;

    // Wired to NBConfiguration::sharedInstance(), the kernel's network and the system clock.
    static NBZoneCache& sharedInstance();

    // Stores a finished test's entries, replacing any earlier record. Ignored (the earlier record kept) when
    // `array` is not an array or is empty, and when any entry used a backup zone, as such a result says
    // nothing about the best zones.
    void speedTestEnd(const Value& array);

    // The recorded zone ids joined with "," in the entries' order; "" when no entry has one. When there is
    // no record, no "testResult" array, or checkNetworkChange() is true, the record is removed and "" is
    // answered, which tells the host to test again.
    [[nodiscard]] std::string zoneId();
    void clearZoneId();

    // True when the record is no longer valid for the current network: networkVerdict() is neither
    // SameSsid nor SameAddress.
    [[nodiscard]] bool checkNetworkChange() const;
    [[nodiscard]] NetworkVerdict networkVerdict() const;
    // A short English phrase for the verdict, for tools and logs. Never null.
    static const char* describe(NetworkVerdict verdict);

    // The last IPv4 address the kernel lists (loopback included, no interface preferred); nullopt when
    // there is none or the list cannot be read.
    [[nodiscard]] std::optional<std::string> getIPAddress() const;
    // The SDK configuration file's modification time in seconds since 1970, with sub-second precision;
    // 0 when the file does not exist or cannot be examined.
    [[nodiscard]] double configModifiyTime() const;

private:
    NetworkVerdict verdictFor(const Value& record) const;
    bool checkNetworkChangeFor(const Value& record) const;

    NBConfiguration& configuration_;
    const std::shared_ptr<const NetworkInterfaces> network_;
    const Clock& clock_;
};

}  // namespace nb
