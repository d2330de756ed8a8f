#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "TempDir.h"
#include "nbbase/foundation/MainBundle.h"
#include "nbbase/foundation/PropertyList.h"

namespace {

using nb::MainBundle;

TEST(MainBundleTest, ReadsInfoPlistInEitherFormatAndNothingElse) {
    const nbtest::TempDir dir("nbbundle");
    const auto info = dir.path() / "Info.plist";
    EXPECT_EQ(MainBundle::fromFolder(dir.path()), nullptr);
    for (const char* bytes : {"", "not a plist", "<plist><array><string>x</string></array></plist>"}) {
        std::ofstream(info) << bytes;
        EXPECT_EQ(MainBundle::fromFolder(dir.path()), nullptr) << bytes;
    }
    const nb::Value dictionary = nb::Value::dictionary({{"CFBundleIdentifier", "com.example.client"},
                                                        {"CFBundleShortVersionString", "3.2.1"},
                                                        {"CFBundleVersion", 3021}});
    for (auto format : {nb::PropertyList::Format::Xml, nb::PropertyList::Format::Binary}) {
        const auto bytes = nb::PropertyList::write(dictionary, format);
        ASSERT_TRUE(bytes);
        std::ofstream(info, std::ios::binary).write(reinterpret_cast<const char*>(bytes->data()),
                                                    static_cast<std::streamsize>(bytes->size()));
        const auto bundle = MainBundle::fromFolder(dir.path());
        ASSERT_TRUE(bundle);
        EXPECT_EQ(bundle->bundleIdentifier() + " " + bundle->shortVersionString() + " " + bundle->bundleVersion(),
                  "com.example.client 3.2.1 3021");
    }
}

TEST(MainBundleTest, HostSetBundleWinsUntilCleared) {
    const auto found = MainBundle::main();
    ASSERT_TRUE(found);
    EXPECT_FALSE(found->executableName().empty());
    const nb::Value info = nb::Value::dictionary({{"CFBundleIdentifier", "com.example.host"}});
    MainBundle::setMain(std::make_shared<MainBundle>(info, std::filesystem::path()));
    EXPECT_EQ(MainBundle::main()->bundleIdentifier(), "com.example.host");
    MainBundle::setMain(nullptr);
    EXPECT_EQ(MainBundle::main()->bundleIdentifier(), found->bundleIdentifier());
}

}  // namespace
