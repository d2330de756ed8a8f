// NBDeviceInfo: what a support request says about the machine: the operating system's version and the kind
// of network it is on. A plain value; current() takes a fresh reading each time it is asked.
//
// systemVerison (the name is the interface's own) is, on Linux, the PRETTY_NAME of os-release
// (/etc/os-release, else /usr/lib/os-release), e.g. "Debian GNU/Linux 12 (bookworm)"; when neither file
// names one, uname's system name and release ("Linux 6.1.0-13-amd64"). On macOS it is the product version
// ("14.5"). networkType is "wifi", "wired" or "none", from the network monitor's interface type.
//
// Threads: current() may be called on any thread; it reads a small file and asks the monitor, which probes
// the kernel's routing tables. A value is immutable.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>

#include "nbbase/common/NBNetworkCheck.h"

namespace nb {

class NBDeviceInfo {
public:
    NBDeviceInfo(std::string systemVerison, std::string networkType)
        : systemVerison_(std::move(systemVerison)), networkType_(std::move(networkType)) {}

    [[nodiscard]] static NBDeviceInfo current(const NBNetworkCheck& network = NBNetworkCheck::sharedInstance());

    [[nodiscard]] const std::string& systemVerison() const noexcept { return systemVerison_; }
    [[nodiscard]] const std::string& networkType() const noexcept { return networkType_; }

    // "wifi", "wired" or "none" for NBNetworkCheck's interface types; "none" for any other number.
    [[nodiscard]] static std::string networkTypeName(std::int32_t interfaceType);
    // PRETTY_NAME of an os-release file (quotes and escapes as that format defines); "" when the file cannot
    // be read or has none.
    [[nodiscard]] static std::string osReleaseName(const std::filesystem::path& file);
    // Any key of an os-release file, read as osReleaseName reads PRETTY_NAME.
    [[nodiscard]] static std::string osReleaseValue(const std::filesystem::path& file, std::string_view key);
    // The system's version number: VERSION_ID of the system's os-release on Linux ("12"), the product version
    // on macOS ("14.5"); "" when unknown.
    [[nodiscard]] static std::string systemVersionNumber();

private:
    std::string systemVerison_;
    std::string networkType_;
};

}  // namespace nb
