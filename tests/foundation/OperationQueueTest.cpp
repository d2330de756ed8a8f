// Operation queues: the concurrency cap, cancellation before and after start, waiting, destruction.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "nbbase/foundation/OperationQueue.h"
#include "tests/foundation/DispatchTestSupport.h"

namespace nb {
namespace {

using test::EventLog;
using test::Gate;
using test::kPatience;
using namespace std::chrono_literals;

class OperationQueueCapTest : public testing::TestWithParam<int> {};

TEST_P(OperationQueueCapTest, RunsUpToItsCapAtOnceAndNeverMore) {
    const int cap = GetParam();
    EventLog entered;
    std::atomic<int> inside{0}, most{0};
    Gate gate;
    ThreadPool pool(8);  // more threads than the cap, so only the queue can hold operations back
    OperationQueue queue("test.ops", cap, pool);
    for (int i = 0; i < 3 * cap + 2; ++i) {
        queue.addOperation([&] {
            const int now = ++inside;
            for (int seen = most; now > seen && !most.compare_exchange_weak(seen, now);) {
            }
            entered.add(now);
            gate.pass();
            --inside;
        });
    }
    ASSERT_TRUE(entered.waitForSize(static_cast<std::size_t>(cap)));
    // Give a queue that ignores its cap a chance to start one more; this wait is meant to time out.
    EXPECT_FALSE(entered.waitForSize(static_cast<std::size_t>(cap) + 1, 50ms));
    gate.open();
    ASSERT_TRUE(queue.waitUntilAllOperationsAreFinishedFor(kPatience));
    EXPECT_EQ(most.load(), cap);
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

TEST_F(OperationQueueTest, CapOfOneStartsOperationsInTheOrderAddedAndRaisingTheCapStartsWaitingOnes) {
    OperationQueue queue("test.ops", 1, pool_);
    for (int i = 0; i < 50; ++i) queue.addOperation([this, i] { log_.add(i); });
    ASSERT_TRUE(queue.waitUntilAllOperationsAreFinishedFor(kPatience));
    const auto events = log_.events();
    EXPECT_EQ(events.size(), 50u);
    EXPECT_TRUE(std::is_sorted(events.begin(), events.end()));

    queue.addOperation([&] { gate_.pass(); });
    queue.addOperation([&] { log_.add(50); });
    queue.setMaxConcurrentOperationCount(2);
    ASSERT_TRUE(log_.waitForSize(51)) << "the second never started while the first was blocked";
    gate_.open();
    ASSERT_TRUE(queue.waitUntilAllOperationsAreFinishedFor(kPatience));
}

// Cancelling a waiting operation keeps it from running; a started one is not interrupted.
TEST_F(OperationQueueTest, CancelledWaitingOperationsNeverRun) {
    OperationQueue queue("test.ops", 1, pool_);
    auto running = queue.addOperation([&] {
        started_.open();
        gate_.pass();
        log_.add(1);
    });
    auto waiting = queue.addOperation([&] { log_.add(2); });
    queue.addOperation([&] { log_.add(3); });
    ASSERT_TRUE(started_.pass());
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
    for (std::size_t i = 2; i < handles.size(); ++i) EXPECT_EQ(handles[i].status(), Cancellable::Status::Cancelled);
}

// Operations that were waiting follow each other on the thread that ran the one before: no other pool
// thread is woken for them.
TEST_F(OperationQueueTest, ABusyQueueKeepsToOneThread) {
    OperationQueue queue("test.ops", 1, pool_);
    std::mutex mutex;
    std::set<std::thread::id> threads;
    auto record = [&] {
        std::lock_guard lock(mutex);
        threads.insert(std::this_thread::get_id());
    };
    queue.addOperation([&] {
        record();
        gate_.pass();
    });
    for (int i = 0; i < 20; ++i) queue.addOperation(record);
    gate_.open();
    ASSERT_TRUE(queue.waitUntilAllOperationsAreFinishedFor(kPatience));
    std::lock_guard lock(mutex);
    EXPECT_EQ(threads.size(), 1u);
}

// Waiting from the queue's own operation returns instead of deadlocking; destroying the queue cancels waiting
// operations and lets the running one finish.
TEST_F(OperationQueueTest, WaitingFromInsideAndDestroyingTheQueue) {
    Cancellable waiting;
    {
        OperationQueue queue("test.ops", 1, pool_);
        queue.addOperation([&] { log_.add(queue.waitUntilAllOperationsAreFinishedFor(kPatience) ? 1 : 0); });
        queue.addOperation([&] {
            started_.open();
            gate_.pass();
            log_.add(2);
        });
        waiting = queue.addOperation([&] { log_.add(3); });
        ASSERT_TRUE(started_.pass());
    }
    EXPECT_EQ(waiting.status(), Cancellable::Status::Cancelled);
    gate_.open();
    ASSERT_TRUE(log_.waitForSize(2));
    EXPECT_EQ(log_.events(), (std::vector<int>{0, 2}));
}

}  // namespace
}  // namespace nb
