// Serial queues on the pool: one task at a time whatever the number of submitting threads, and pending work
// outliving the queue object. Concurrent and global queues: tasks really run side by side.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "nbbase/foundation/ConcurrentQueue.h"
#include "nbbase/foundation/SerialQueue.h"
#include "tests/foundation/DispatchTestSupport.h"

namespace nb {
namespace {

using test::EventLog;
using test::Gate;

TEST(SerialQueueTest, TasksFromManyThreadsNeverOverlapAndKeepEachThreadsOrder) {
    constexpr int threads = 4, perThread = 250;
    EventLog log;
    ThreadPool pool(8);
    SerialQueue queue("test.serial", pool);
    std::atomic<int> active{0};
    std::atomic<bool> overlapped{false}, wasCurrentInside{true};
    std::vector<std::thread> submitters;
    for (int t = 0; t < threads; ++t) {
        submitters.emplace_back([&, t] {
            for (int i = 0; i < perThread; ++i) {
                queue.async([&, event = t * perThread + i] {
                    if (++active > 1) overlapped = true;
                    if (!queue.isCurrent()) wasCurrentInside = false;
                    std::this_thread::yield();  // widen the window in which an overlapping task would show
                    --active;
                    log.add(event);
                });
            }
        });
    }
    for (auto& submitter : submitters) submitter.join();
    ASSERT_TRUE(log.waitForSize(threads * perThread));
    EXPECT_FALSE(overlapped.load());
    EXPECT_TRUE(wasCurrentInside.load());
    EXPECT_FALSE(queue.isCurrent());
    std::vector<int> lastOfThread(threads, -1);
    for (int event : log.events()) {
        auto& last = lastOfThread[static_cast<std::size_t>(event / perThread)];
        ASSERT_GT(event, last) << "a thread's tasks ran out of order";
        last = event;
    }
}

TEST(SerialQueueTest, WorkSubmittedBeforeTheQueueIsDestroyedStillRunsInOrder) {
    EventLog log;
    Gate gate;
    ThreadPool pool(2);
    {
        SerialQueue queue("test.serial", pool);
        queue.async([&] { gate.pass(); });
        for (int i = 0; i < 10; ++i) queue.async([&log, i] { log.add(i); });
    }
    gate.open();
    ASSERT_TRUE(log.waitForSize(10));
    EXPECT_EQ(log.events(), (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
}

// Two tasks that each wait for the other can only both finish if they run at the same time. The state is
// shared with the tasks so that a failing run, whose tasks outlive the check, stays clean.
void expectTasksOverlap(DispatchQueue& queue) {
    struct Meeting {
        EventLog log;
        std::atomic<int> arrived{0};
        Gate bothHere;
    };
    auto meeting = std::make_shared<Meeting>();
    for (int i = 0; i < 2; ++i) {
        queue.async([meeting, i] {
            if (++meeting->arrived == 2) meeting->bothHere.open();
            if (meeting->bothHere.pass()) meeting->log.add(i);
        });
    }
    ASSERT_TRUE(meeting->log.waitForSize(2)) << queue.label() << " ran its tasks one at a time";
}

TEST(ConcurrentQueueTest, TasksRunSideBySideOnOwnAndGlobalQueues) {
    ThreadPool pool(2);
    ConcurrentQueue queue("test.concurrent", pool);
    expectTasksOverlap(queue);
    EXPECT_GE(ThreadPool::sharedInstance().threadCount(), 8u);
    expectTasksOverlap(ConcurrentQueue::global());
    expectTasksOverlap(ConcurrentQueue::global(ConcurrentQueue::Priority::Background));
}

}  // namespace
}  // namespace nb
