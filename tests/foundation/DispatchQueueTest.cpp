// Rules every DispatchQueue keeps, run against each kind of queue on a pool of its own.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>

#include "nbbase/foundation/ConcurrentQueue.h"
#include "nbbase/foundation/MainQueue.h"
#include "nbbase/foundation/SerialQueue.h"
#include "tests/foundation/DispatchTestSupport.h"

namespace nb {
namespace {

using test::EventLog;
using test::kPatience;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Each kind on a pool of its own. The main queue must be driven by the waiting thread, the others only
// waited for.
class DispatchQueueTest : public testing::TestWithParam<std::string> {
protected:
    static std::unique_ptr<DispatchQueue> make(const std::string& kind, ThreadPool& pool) {
        if (kind == "Serial") return std::make_unique<SerialQueue>("test.queue", pool);
        if (kind == "Concurrent") return std::make_unique<ConcurrentQueue>("test.queue", pool);
        return nullptr;
    }
    bool waitForEvents(std::size_t count) {
        return own_ ? log_.waitForSize(count) : main_.runUntil([&] { return log_.size() >= count; }, kPatience);
    }

    EventLog log_;  // first, so that it outlives every task still on the pool at teardown
    ThreadPool pool_{4};
    MainQueue main_{pool_};
    std::unique_ptr<DispatchQueue> own_ = make(GetParam(), pool_);
    DispatchQueue& queue_ = own_ ? *own_ : main_;
};

TEST_P(DispatchQueueTest, DelayedTaskRunsNoEarlierThanItsDelayAndCancelledOneNever) {
    auto captured = std::make_shared<int>(0);
    std::weak_ptr<int> watch = captured;
    auto cancelled = queue_.asyncAfter(10ms, [&log_ = log_, captured] { log_.add(-1); });
    captured.reset();
    ASSERT_TRUE(cancelled.cancel());
    EXPECT_TRUE(watch.expired()) << "a cancelled task releases its captures at once";
    EXPECT_EQ(cancelled.status(), Cancellable::Status::Cancelled);
    EXPECT_TRUE(cancelled.cancel()) << "a second cancel still guarantees the task never runs";

    const auto submitted = Clock::now();
    std::atomic<Clock::time_point> ranAt{};
    auto started = queue_.asyncAfter(150ms, [&] {  // well after the cancelled one was due
        ranAt = Clock::now();
        log_.add(1);
    });
    ASSERT_TRUE(waitForEvents(1));
    EXPECT_GE(ranAt.load() - submitted, 150ms);
    EXPECT_EQ(log_.events(), std::vector<int>{1});
    EXPECT_FALSE(started.cancel());
    EXPECT_FALSE(queue_.asyncAfter(Clock::duration::zero(), {}));
}

TEST_P(DispatchQueueTest, ThrowingTaskIsContainedAndTheQueueGoesOn) {
    queue_.async([] { throw std::runtime_error("task failure"); });
    queue_.asyncAfter(Clock::duration::zero(), [] { throw 42; });
    queue_.async([&] { log_.add(1); });
    queue_.asyncAfter(20ms, [&] { log_.add(2); });
    ASSERT_TRUE(waitForEvents(2));
}

INSTANTIATE_TEST_SUITE_P(AllKinds, DispatchQueueTest, testing::Values("Main", "Serial", "Concurrent"),
                         [](const auto& info) { return info.param; });

// Queues that promise order.
class OrderedQueueTest : public DispatchQueueTest {};

// A task submitted from a task runs after its submitter returns.
TEST_P(OrderedQueueTest, TasksFromOneThreadRunInSubmissionOrder) {
    constexpr int count = 500;
    for (int i = 0; i < count; ++i) queue_.async([this, i] { log_.add(i); });
    queue_.async([this] {
        queue_.async([this] { log_.add(count + 1); });
        log_.add(count);
    });
    ASSERT_TRUE(waitForEvents(count + 2));
    const auto events = log_.events();
    for (int i = 0; i < count + 2; ++i) ASSERT_EQ(events[static_cast<std::size_t>(i)], i);
}

INSTANTIATE_TEST_SUITE_P(SerialKinds, OrderedQueueTest, testing::Values("Main", "Serial"),
                         [](const auto& info) { return info.param; });

}  // namespace
}  // namespace nb
