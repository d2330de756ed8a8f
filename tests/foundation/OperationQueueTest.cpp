// Operation queues: the concurrency cap, cancellation before and after start, waiting, destruction.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "nbbase/foundation/OperationQueue.h"
#include "tests/foundation/DispatchTestSupport.h"

namespace nb {
namespace {

using test::EventLog;
using test::Gate;
using test::kPatience;
using namespace std::chrono_literals;

// Counts operations inside their body, remembering the most seen at once, and lets the test wait for a
// given number to be inside.
class Occupancy {
public:
    void enter() {
        std::lock_guard lock(mutex_);
        most_ = std::max(most_, ++inside_);
        changed_.notify_all();
    }
    void leave() {
        std::lock_guard lock(mutex_);
        --inside_;
        changed_.notify_all();
    }
    bool waitFor(std::function<bool(int)> condition, std::chrono::steady_clock::duration timeout = kPatience) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, timeout, [&] { return condition(inside_); });
    }
    int most() {
        std::lock_guard lock(mutex_);
        return most_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int inside_ = 0;
    int most_ = 0;
};

class OperationQueueCapTest : public testing::TestWithParam<int> {};

TEST_P(OperationQueueCapTest, RunsUpToItsCapAtOnceAndNeverMore) {
    const int cap = GetParam();
    Occupancy occupancy;
    Gate gate;
    ThreadPool pool(8);  // more threads than the cap, so only the queue can hold operations back
    OperationQueue queue("test.ops", cap, pool);
    for (int i = 0; i < 3 * cap + 2; ++i) {
        queue.addOperation([&] {
            occupancy.enter();
            gate.pass();
            occupancy.leave();
        });
    }
    ASSERT_TRUE(occupancy.waitFor([&](int inside) { return inside == cap; }));
    // Give a queue that ignores its cap a chance to start one more; this wait is meant to time out.
    EXPECT_FALSE(occupancy.waitFor([&](int inside) { return inside > cap; }, 50ms));
    gate.open();
    ASSERT_TRUE(queue.waitUntilAllOperationsAreFinishedFor(kPatience));
    EXPECT_EQ(occupancy.most(), cap);
    EXPECT_EQ(queue.operationCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Caps, OperationQueueCapTest, testing::Values(1, 2, 3));

class OperationQueueTest : public testing::Test {
protected:
    // Declared before the pool, which joins its threads first, so that a failing test ends cleanly.
    EventLog log_;
    Gate gate_, started_;
    ThreadPool pool_{4};
};

TEST_F(OperationQueueTest, CapOfOneStartsOperationsInTheOrderAdded) {
    OperationQueue queue("test.ops", 1, pool_);
    for (int i = 0; i < 50; ++i) {
        queue.addOperation([this, i] { log_.add(i); });
    }
    ASSERT_TRUE(queue.waitUntilAllOperationsAreFinishedFor(kPatience));
    const auto events = log_.events();
    ASSERT_EQ(events.size(), 50u);
    EXPECT_TRUE(std::is_sorted(events.begin(), events.end()));
}

TEST_F(OperationQueueTest, CancelledWaitingOperationNeverRunsWhileStartedOneIsNotInterrupted) {
    OperationQueue queue("test.ops", 1, pool_);
    auto running = queue.addOperation([&] {
        started_.open();
        gate_.pass();
        log_.add(1);
    });
    auto waiting = queue.addOperation([&] { log_.add(2); });
    auto after = queue.addOperation([&] { log_.add(3); });
    ASSERT_TRUE(started_.pass());
    EXPECT_EQ(queue.operationCount(), 3u);

    EXPECT_FALSE(running.cancel());
    EXPECT_TRUE(waiting.cancel());
    EXPECT_EQ(queue.operationCount(), 2u);
    gate_.open();
    ASSERT_TRUE(queue.waitUntilAllOperationsAreFinishedFor(kPatience));
    EXPECT_EQ(log_.events(), (std::vector<int>{1, 3}));
    EXPECT_EQ(running.status(), Cancellable::Status::Finished);
    EXPECT_EQ(waiting.status(), Cancellable::Status::Cancelled);
}

TEST_F(OperationQueueTest, CancelAllDropsWaitingOperationsAndWaitCoversRunningOnes) {
    OperationQueue queue("test.ops", 2, pool_);
    std::vector<Cancellable> handles;
    for (int i = 0; i < 6; ++i) {
        handles.push_back(queue.addOperation([this, i] {
            gate_.pass();
            log_.add(i);
        }));
    }
    queue.cancelAllOperations();
    gate_.open();
    ASSERT_TRUE(queue.waitUntilAllOperationsAreFinishedFor(kPatience));
    EXPECT_EQ(log_.size(), 2u) << "exactly the two operations running at the time of cancelAll";
    for (std::size_t i = 2; i < handles.size(); ++i) {
        EXPECT_EQ(handles[i].status(), Cancellable::Status::Cancelled);
    }
}

TEST_F(OperationQueueTest, RaisingTheCapStartsWaitingOperations) {
    OperationQueue queue("test.ops", 1, pool_);
    queue.addOperation([&] {
        gate_.pass();
        log_.add(1);
    });
    queue.addOperation([&] { log_.add(2); });
    queue.setMaxConcurrentOperationCount(2);
    ASSERT_TRUE(log_.waitForSize(1));
    EXPECT_EQ(log_.events(), std::vector<int>{2}) << "the second started while the first was still blocked";
    gate_.open();
    ASSERT_TRUE(queue.waitUntilAllOperationsAreFinishedFor(kPatience));
}

TEST_F(OperationQueueTest, WaitingFromItsOwnOperationReturnsInsteadOfDeadlocking) {
    OperationQueue queue("test.ops", 1, pool_);
    queue.addOperation([&] { log_.add(queue.waitUntilAllOperationsAreFinishedFor(kPatience) ? 1 : 0); });
    ASSERT_TRUE(queue.waitUntilAllOperationsAreFinishedFor(kPatience));
    EXPECT_EQ(log_.events(), std::vector<int>{0});
}

TEST_F(OperationQueueTest, DestroyingTheQueueCancelsWaitingOperationsAndLetsRunningOnesFinish) {
    Cancellable running, waiting;
    {
        OperationQueue queue("test.ops", 1, pool_);
        running = queue.addOperation([&] {
            started_.open();
            gate_.pass();
            log_.add(1);
        });
        waiting = queue.addOperation([&] { log_.add(2); });
        ASSERT_TRUE(started_.pass());
    }
    EXPECT_EQ(waiting.status(), Cancellable::Status::Cancelled);
    gate_.open();
    ASSERT_TRUE(log_.waitForSize(1));
    EXPECT_EQ(log_.events(), std::vector<int>{1});
}

}  // namespace
}  // namespace nb
