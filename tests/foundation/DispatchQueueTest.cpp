// Rules every DispatchQueue keeps, run against each kind of queue on a pool of its own.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
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
using Clock = std::chrono::steady_clock;

// A queue under test, and how the test waits for its tasks: the main queue must be driven by the waiting
// thread, the pool queues only waited for.
class Harness {
public:
    virtual ~Harness() = default;
    virtual DispatchQueue& queue() = 0;
    virtual bool waitForEvents(EventLog& log, std::size_t count) = 0;
};

class MainHarness final : public Harness {
public:
    explicit MainHarness(ThreadPool& pool) : queue_(pool) {}
    DispatchQueue& queue() override { return queue_; }
    bool waitForEvents(EventLog& log, std::size_t count) override {
        return queue_.runUntil([&] { return log.size() >= count; }, kPatience);
    }

private:
    MainQueue queue_;
};

template <typename Queue>
class PoolHarness final : public Harness {
public:
    explicit PoolHarness(ThreadPool& pool) : queue_("test.queue", pool) {}
    DispatchQueue& queue() override { return queue_; }
    bool waitForEvents(EventLog& log, std::size_t count) override { return log.waitForSize(count); }

private:
    Queue queue_;
};

struct QueueKind {
    const char* name;
    std::function<std::unique_ptr<Harness>(ThreadPool&)> make;
};

const QueueKind kMain{"Main", [](ThreadPool& pool) { return std::make_unique<MainHarness>(pool); }};
const QueueKind kSerial{"Serial", [](ThreadPool& pool) { return std::make_unique<PoolHarness<SerialQueue>>(pool); }};
const QueueKind kConcurrent{"Concurrent",
                            [](ThreadPool& pool) { return std::make_unique<PoolHarness<ConcurrentQueue>>(pool); }};

class DispatchQueueTest : public testing::TestWithParam<QueueKind> {
protected:
    EventLog log_;  // first, so that it outlives every task still on the pool at teardown
    ThreadPool pool_{4};
    std::unique_ptr<Harness> harness_ = GetParam().make(pool_);
    DispatchQueue& queue_ = harness_->queue();
};

TEST_P(DispatchQueueTest, DelayedTaskRunsNoEarlierThanItsDelay) {
    constexpr auto delay = std::chrono::milliseconds(40);
    const auto submitted = Clock::now();
    std::atomic<Clock::time_point> ranAt{};
    queue_.asyncAfter(delay, [&] {
        ranAt = Clock::now();
        log_.add(1);
    });
    ASSERT_TRUE(harness_->waitForEvents(log_, 1));
    EXPECT_GE(ranAt.load() - submitted, delay);
}

TEST_P(DispatchQueueTest, CancelledDelayedTaskNeverRunsAndReleasesItsCaptures) {
    auto captured = std::make_shared<int>(0);
    std::weak_ptr<int> watch = captured;
    auto handle = queue_.asyncAfter(std::chrono::milliseconds(10), [&log_ = log_, captured] { log_.add(-1); });
    captured.reset();
    ASSERT_TRUE(handle.cancel());
    EXPECT_TRUE(watch.expired());
    EXPECT_EQ(handle.status(), Cancellable::Status::Cancelled);
    EXPECT_TRUE(handle.cancel()) << "a second cancel still guarantees the task never runs";

    // Well after the cancelled one was due.
    queue_.asyncAfter(std::chrono::milliseconds(150), [&] { log_.add(1); });
    ASSERT_TRUE(harness_->waitForEvents(log_, 1));
    EXPECT_EQ(log_.events(), std::vector<int>{1});
}

TEST_P(DispatchQueueTest, CancelAnswersFalseOnceTheTaskHasStarted) {
    auto handle = queue_.asyncAfter(Clock::duration::zero(), [&] { log_.add(1); });
    ASSERT_TRUE(harness_->waitForEvents(log_, 1));
    EXPECT_FALSE(handle.cancel());
    // The log is written inside the task, so it may still be returning.
    EXPECT_NE(handle.status(), Cancellable::Status::Cancelled);
    EXPECT_FALSE(queue_.asyncAfter(Clock::duration::zero(), {}));
}

TEST_P(DispatchQueueTest, ThrowingTaskIsContainedAndTheQueueGoesOn) {
    queue_.async([] { throw std::runtime_error("task failure"); });
    queue_.asyncAfter(Clock::duration::zero(), [] { throw 42; });
    queue_.async([&] { log_.add(1); });
    queue_.asyncAfter(std::chrono::milliseconds(20), [&] { log_.add(2); });
    ASSERT_TRUE(harness_->waitForEvents(log_, 2));
}

INSTANTIATE_TEST_SUITE_P(AllKinds, DispatchQueueTest, testing::Values(kMain, kSerial, kConcurrent),
                         [](const auto& info) { return std::string(info.param.name); });

// Queues that promise order.
class OrderedQueueTest : public DispatchQueueTest {};

TEST_P(OrderedQueueTest, TasksFromOneThreadRunInSubmissionOrder) {
    constexpr int count = 500;
    for (int i = 0; i < count; ++i) {
        queue_.async([this, i] { log_.add(i); });
    }
    ASSERT_TRUE(harness_->waitForEvents(log_, count));
    const auto events = log_.events();
    for (int i = 0; i < count; ++i) {
        ASSERT_EQ(events[static_cast<std::size_t>(i)], i);
    }
}

TEST_P(OrderedQueueTest, TaskSubmittedFromATaskRunsAfterItsSubmitterReturns) {
    queue_.async([this] {
        queue_.async([this] { log_.add(2); });
        log_.add(1);
    });
    ASSERT_TRUE(harness_->waitForEvents(log_, 2));
    EXPECT_EQ(log_.events(), (std::vector<int>{1, 2}));
}

INSTANTIATE_TEST_SUITE_P(SerialKinds, OrderedQueueTest, testing::Values(kMain, kSerial),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace nb
