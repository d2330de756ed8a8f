#include "nbbase/common/NBDeviceInfo.h"

#include <sys/utsname.h>

#include <fstream>
#include <string_view>

#if defined(__APPLE__)
#include <sys/sysctl.h>
#endif

namespace nb {

namespace {

// os-release values are shell words: optionally quoted, with backslash escapes inside double quotes.
std::string unquote(std::string_view value) {
    if (value.size() < 2 || (value.front() != '"' && value.front() != '\'') || value.back() != value.front()) {
        return std::string(value);
    }
    const char quote = value.front();
    value = value.substr(1, value.size() - 2);
    std::string out;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (quote == '"' && value[i] == '\\' && i + 1 < value.size()) ++i;
        out.push_back(value[i]);
    }
    return out;
}

std::string systemVersion() {
#if defined(__APPLE__)
    if (std::string number = NBDeviceInfo::systemVersionNumber(); !number.empty()) return number;
#else
    for (const char* file : {"/etc/os-release", "/usr/lib/os-release"}) {
        std::string name = NBDeviceInfo::osReleaseName(file);
        if (!name.empty()) return name;
    }
#endif
    struct utsname names {};
    if (::uname(&names) != 0) return "";
    return std::string(names.sysname) + " " + names.release;
}

}  // namespace

NBDeviceInfo NBDeviceInfo::current(const NBNetworkCheck& network) {
    return NBDeviceInfo(systemVersion(), networkTypeName(network.interfaceType()));
}

std::string NBDeviceInfo::networkTypeName(std::int32_t interfaceType) {
    switch (interfaceType) {
        case NBNetworkCheck::kWiFi: return "wifi";
        case NBNetworkCheck::kWired: return "wired";
        default: return "none";
    }
}

std::string NBDeviceInfo::osReleaseName(const std::filesystem::path& file) { return osReleaseValue(file, "PRETTY_NAME"); }

std::string NBDeviceInfo::osReleaseValue(const std::filesystem::path& file, std::string_view key) {
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) {
        if (line.size() > key.size() && line.compare(0, key.size(), key) == 0 && line[key.size()] == '=') {
            return unquote(std::string_view(line).substr(key.size() + 1));
        }
    }
    return "";
}

std::string NBDeviceInfo::systemVersionNumber() {
#if defined(__APPLE__)
    char version[64] = {};
    std::size_t size = sizeof version;
    if (sysctlbyname("kern.osproductversion", version, &size, nullptr, 0) == 0) return version;
#else
    for (const char* file : {"/etc/os-release", "/usr/lib/os-release"}) {
        std::string number = osReleaseValue(file, "VERSION_ID");
        if (!number.empty()) return number;
    }
#endif
    return "";
}

}  // namespace nb
