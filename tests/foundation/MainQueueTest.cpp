// The main queue as a host drives it: binding to a thread, the drive calls, the wake-up hook, destruction.
#include <gtest/gtest.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "nbbase/foundation/MainQueue.h"
#include "tests/foundation/DispatchTestSupport.h"

namespace nb {
namespace {

using test::EventLog;
using test::kPatience;
using namespace std::chrono_literals;

// Logs an event when destroyed: shows when a queue lets go of a task it did not run.
struct DropWitness {
    EventLog* log;
    int event;
    ~DropWitness() { log->add(event); }
};

class MainQueueTest : public testing::Test {
protected:
    EventLog log_;
    ThreadPool pool_{2};
    MainQueue queue_{pool_};
};

// A post made on the main thread waits for the next drive call, so never runs before its poster returns.
TEST_F(MainQueueTest, DrainRunsWhatIsPostedAndWhatTasksPostButNotDelayedTasks) {
    queue_.async([&] {
        log_.add(1);
        for (int i = 0; i < 2; ++i) queue_.async([&] { queue_.async([] {}); });
    });
    EXPECT_EQ(log_.size(), 0u);
    EXPECT_EQ(queue_.pendingCount(), 1u);
    EXPECT_EQ(queue_.drain(), 5u);
    EXPECT_EQ(log_.events(), std::vector<int>{1});

    auto later = queue_.asyncAfter(std::chrono::hours(1), [&] { log_.add(2); });
    EXPECT_EQ(queue_.drain(), 0u);
    EXPECT_TRUE(later.cancel());
}

TEST_F(MainQueueTest, IsMainThreadOnlyOnTheBoundThreadWhichAloneMayDrive) {
    EXPECT_TRUE(queue_.isMainThread());
    EXPECT_TRUE(MainQueue::sharedInstance().isMainThread()) << "gtest runs tests on the process's main thread";
    queue_.async([&] { log_.add(1); });
    std::vector<bool> elsewhere;  // the worker is joined before this is read
    std::thread([&] {
        elsewhere = {queue_.isMainThread(), MainQueue::sharedInstance().isMainThread(), queue_.drain() != 0,
                     MainQueue(pool_).isMainThread()};
    }).join();
    EXPECT_EQ(elsewhere, (std::vector<bool>{false, false, false, true}));
    EXPECT_EQ(queue_.drain(), 1u);
}

// One wake-up, on the submitting thread, each time the queue stops being empty.
TEST_F(MainQueueTest, WakeUpHandlerFiresOnTheSubmittingThreadWhenTheQueueStopsBeingEmpty) {
    std::vector<std::thread::id> wakes;  // only the joined worker and this thread submit
    queue_.setWakeUpHandler([&] { wakes.push_back(std::this_thread::get_id()); });
    std::thread::id worker;
    std::thread([&] {
        worker = std::this_thread::get_id();
        for (int i = 0; i < 3; ++i) queue_.async([] {});
    }).join();
    EXPECT_EQ(queue_.drain(), 3u);
    queue_.async([] {});
    EXPECT_EQ(wakes, (std::vector<std::thread::id>{worker, std::this_thread::get_id()}));
    queue_.setWakeUpHandler({});
}

// A host event loop that sleeps until woken and drains on its own thread, as a GUI toolkit would. The loop's
// state is shared with the handler: a pool thread may still be inside the handler when the loop ends.
TEST_F(MainQueueTest, HostLoopDrivenOnlyByWakeUpsRunsImmediateAndDelayedWork) {
    struct Loop {
        std::mutex mutex;
        std::condition_variable woken;
        bool wakePending = false;  // guarded by mutex
    };
    auto loop = std::make_shared<Loop>();
    queue_.setWakeUpHandler([loop] {
        std::lock_guard lock(loop->mutex);
        loop->wakePending = true;
        loop->woken.notify_one();
    });
    std::thread worker([&] {
        queue_.async([&] { log_.add(1); });
        queue_.asyncAfter(std::chrono::milliseconds(20), [&] { log_.add(2); });
    });
    while (log_.size() < 2) {
        std::unique_lock lock(loop->mutex);
        ASSERT_TRUE(loop->woken.wait_for(lock, kPatience, [&] { return loop->wakePending; }));
        loop->wakePending = false;
        lock.unlock();
        queue_.drain();
    }
    worker.join();
    EXPECT_EQ(log_.events(), (std::vector<int>{1, 2}));
}

// run() returns when stopped from another thread; a stop arriving before run() ends that run only.
TEST_F(MainQueueTest, RunStopAndRunUntil) {
    constexpr int count = 100;
    std::thread worker([&] {
        for (int i = 0; i < count; ++i) queue_.async([&, i] { log_.add(i); });
        if (log_.waitForSize(count)) queue_.stop();
    });
    EXPECT_EQ(queue_.run(), static_cast<std::size_t>(count));
    worker.join();

    std::thread([&] { queue_.stop(); }).join();
    queue_.async([&] { log_.add(-1); });
    EXPECT_EQ(queue_.run(), 0u);
    EXPECT_EQ(queue_.runFor(std::chrono::milliseconds(10)), 1u);

    queue_.asyncAfter(std::chrono::milliseconds(10), [&] { log_.add(-2); });
    EXPECT_TRUE(queue_.runUntil([&] { return log_.size() == count + 2; }, kPatience));
    EXPECT_FALSE(queue_.runUntil([] { return false; }, std::chrono::milliseconds(10)));
}

TEST(MainQueueLifetime, DestroyingTheQueueDropsPendingAndDelayedTasksWithoutRunningThem) {
    EventLog log;
    ThreadPool pool(2);
    Cancellable delayed;
    {
        MainQueue queue(pool);
        queue.async([&log, witness = std::make_shared<DropWitness>(&log, 1)] { log.add(-1); });
        delayed = queue.asyncAfter(20ms, [&log, witness = std::make_shared<DropWitness>(&log, 2)] { log.add(-2); });
    }
    EXPECT_EQ(log.events(), std::vector<int>{1}) << "the queued task is destroyed with the queue";
    ASSERT_TRUE(log.waitForSize(2)) << "the delayed task is let go when it comes due";
    EXPECT_EQ(log.events(), (std::vector<int>{1, 2}));
    EXPECT_EQ(delayed.status(), Cancellable::Status::Cancelled);
}

}  // namespace
}  // namespace nb
