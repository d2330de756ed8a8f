#include "nbbase/common/NBDeviceInfo.h"

#include <gtest/gtest.h>

#include <fstream>
#include <utility>

#include "TempDir.h"

namespace nb {
namespace {

// os-release values are shell words; the name is what a person reads.
TEST(NBDeviceInfo, ReadsTheSystemNameAsOsReleaseWritesIt) {
    nbtest::TempDir dir("nbdevice");
    const std::pair<const char*, const char*> cases[] = {
        {"NAME=\"Debian GNU/Linux\"\nPRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n", "Debian GNU/Linux 12 (bookworm)"},
        {"PRETTY_NAME='Alpine Linux v3.19'\n", "Alpine Linux v3.19"},
        {"PRETTY_NAME=Plain\n", "Plain"},
        {"PRETTY_NAME=\"Say \\\"hi\\\" \\\\o/\"\n", "Say \"hi\" \\o/"},
        {"PRETTY_NAME=\"\n", "\""},
        {"NAME=Other\n", ""},
    };
    for (const auto& [text, name] : cases) {
        SCOPED_TRACE(text);
        std::ofstream(dir.path() / "os-release") << text;
        EXPECT_EQ(NBDeviceInfo::osReleaseName(dir.path() / "os-release"), name);
    }
    EXPECT_EQ(NBDeviceInfo::osReleaseName(dir.path() / "missing"), "");
    EXPECT_FALSE(NBDeviceInfo::current().systemVerison().empty());
}

TEST(NBDeviceInfo, NetworkTypeFollowsTheMonitor) {
    NBNetworkCheck wired([] { return NBNetworkCheck::kWired; });
    EXPECT_EQ(NBDeviceInfo::current(wired).networkType(), "wired");
    EXPECT_EQ(NBDeviceInfo::networkTypeName(7), "none");
}

}  // namespace
}  // namespace nb
