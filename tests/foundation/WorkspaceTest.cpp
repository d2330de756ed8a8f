#include <stdlib.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "TempDir.h"
#include "nbbase/foundation/SystemWorkspace.h"

namespace nb {
namespace {

// The address reaches the opener as one argument, untouched by any shell.
TEST(SystemWorkspace, HandsTheAddressToTheOpenerAsItIs) {
    nbtest::TempDir dir("nbworkspace");
    const auto record = dir.path() / "opened";
    ASSERT_EQ(::setenv("NBTEST_OPENED", record.c_str(), 1), 0);
    const std::string url = "https://h/p?a=1&b=$(touch x);c='d' e";
    SystemWorkspace workspace(NBBASE_TEST_TOOLS_DIR "/nbtest_opener");
    std::string error;
    ASSERT_TRUE(workspace.openURL(url, &error)) << error;

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!std::filesystem::exists(record) && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::ifstream in(record);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), url + "\n");
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "x"));
}

TEST(SystemWorkspace, SaysWhyNothingOpened) {
    std::string error;
    EXPECT_FALSE(SystemWorkspace("/nonexistent/opener").openURL("https://h/", &error));
    EXPECT_EQ(error, "cannot start /nonexistent/opener: No such file or directory");
    EXPECT_FALSE(SystemWorkspace(NBBASE_TEST_TOOLS_DIR "/nbtest_opener").openURL("", &error));
    EXPECT_EQ(error, "no address to open");
}

}  // namespace
}  // namespace nb
