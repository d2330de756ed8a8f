#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "TempDir.h"
#include "nbbase/foundation/MainBundle.h"
#include "nbbase/foundation/PropertyList.h"

namespace {

class MainBundleTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_FALSE(folder_.empty()); }
    void TearDown() override { nb::MainBundle::setMain(nullptr); }
    void writeInfo(const std::string& bytes) const { std::ofstream(folder_ / "Info.plist") << bytes; }

    nbtest::TempDir dir_{"nbbundle"};
    const std::filesystem::path folder_ = dir_.path();
};

TEST_F(MainBundleTest, ReadsInfoPlistInEitherFormat) {
    const nb::Value info = nb::Value::dictionary({{"CFBundleIdentifier", "com.example.client"},
                                                  {"CFBundleShortVersionString", "3.2.1"},
                                                  {"CFBundleVersion", 3021}});
    for (auto format : {nb::PropertyList::Format::Xml, nb::PropertyList::Format::Binary}) {
        const auto bytes = nb::PropertyList::write(info, format);
        ASSERT_TRUE(bytes);
        writeInfo(std::string(bytes->begin(), bytes->end()));
        const auto bundle = nb::MainBundle::fromFolder(folder_);
        ASSERT_TRUE(bundle);
        EXPECT_EQ(bundle->bundleIdentifier(), "com.example.client");
        EXPECT_EQ(bundle->shortVersionString(), "3.2.1");
        EXPECT_EQ(bundle->bundleVersion(), "3021");
        EXPECT_EQ(bundle->builtInPlugInsPath(), folder_ / "PlugIns");
    }
}

TEST_F(MainBundleTest, MissingOrBadInfoPlistGivesNoBundle) {
    EXPECT_EQ(nb::MainBundle::fromFolder(folder_), nullptr);
    for (const char* bytes : {"", "not a plist", "<plist><array><string>x</string></array></plist>"}) {
        writeInfo(bytes);
        EXPECT_EQ(nb::MainBundle::fromFolder(folder_), nullptr) << bytes;
    }
}

TEST_F(MainBundleTest, HostSetBundleWinsUntilCleared) {
    const auto found = nb::MainBundle::main();
    ASSERT_TRUE(found);
    EXPECT_FALSE(found->executableName().empty());

    nb::MainBundle::setMain(std::make_shared<nb::MainBundle>(
        nb::Value::dictionary({{"CFBundleIdentifier", "com.example.host"}}), folder_));
    EXPECT_EQ(nb::MainBundle::main()->bundleIdentifier(), "com.example.host");
    nb::MainBundle::setMain(nullptr);
    EXPECT_EQ(nb::MainBundle::main()->bundleIdentifier(), found->bundleIdentifier());
}

}  // namespace
