#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "nbbase/foundation/NBLog.h"

namespace {

TEST(NBLog, FormatsValuesAsTheirDescription) {
    nb::NBLog log;
    std::vector<std::pair<int, std::string>> lines;
    log.setLogHandler([&](std::int32_t level, const std::string& text) { lines.emplace_back(level, text); });
    log.log(4, "parse hangup info error[{},{}]", 3, nb::Value("busy"));
    log.log(2, "missing {} null {} real {}", nb::Value(), nb::Value::null(), nb::Value(0.1));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], std::make_pair(4, std::string("parse hangup info error[3,busy]")));
    EXPECT_EQ(lines[1].second, "missing (null) null <null> real 0.1");
}

// Lines logged while the handler is replaced reach the old or the new one, never neither, and a handler
// may log or replace the handler itself without deadlock.
TEST(NBLog, HandlerReplacedWhileOtherThreadsLog) {
    nb::NBLog log;
    std::atomic<int> delivered{0};
    std::atomic<bool> stop{false};
    auto counting = [&](std::int32_t, const std::string&) { delivered.fetch_add(1); };
    log.setLogHandler(counting);

    constexpr int kThreads = 4, kLines = 2000;
    std::vector<std::thread> loggers;
    for (int t = 0; t < kThreads; ++t) {
        loggers.emplace_back([&] {
            for (int i = 0; i < kLines; ++i) log.log(2, "line {}", i);
        });
    }
    std::thread replacer([&] {
        while (!stop.load()) log.setLogHandler(counting);
    });
    for (auto& t : loggers) t.join();
    stop = true;
    replacer.join();
    EXPECT_EQ(delivered.load(), kThreads * kLines);

    log.setLogHandler([&](std::int32_t level, const std::string& text) {
        if (level == 4) {
            log.setLogHandler(counting);
            log.log(2, "re-entered after {}", text);
        }
    });
    log.log(4, "first");
    EXPECT_EQ(delivered.load(), kThreads * kLines + 1);
}

}  // namespace
