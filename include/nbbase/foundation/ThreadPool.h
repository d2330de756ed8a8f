// ThreadPool: the worker threads behind the global, labelled and operation queues, and the timers of every
// delayed task.
//
// The shared pool is large (max(8, 2 x cores)) because SDK and network calls made from global queues block
// their thread; a small pool would let a few slow calls starve every other queue.
//
// Threads: every function may be called on any thread. The destructor must not run on one of the pool's
// own threads (it joins them).
//
// Lifetime: destroying a pool lets running tasks return, then destroys queued and timed tasks without
// running them (their handles answer Cancelled). Queues built on a pool must not be used after it is gone.
// The shared pool is created on first use and never destroyed, so it never joins at process exit.
#pragma once

#include <cstddef>
#include <memory>

namespace asio {
class thread_pool;
}

namespace nb {

class ThreadPool {
public:
    // The process-wide pool of defaultThreadCount() threads.
    static ThreadPool& sharedInstance();
    [[nodiscard]] static std::size_t defaultThreadCount();

    // Starts threadCount threads (at least one) at once.
    explicit ThreadPool(std::size_t threadCount = defaultThreadCount());
    ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    [[nodiscard]] std::size_t threadCount() const noexcept { return threadCount_; }

    // The Asio pool, for the library's queue implementations.
    [[nodiscard]] asio::thread_pool& native() noexcept { return *pool_; }

private:
    std::size_t threadCount_;
    std::unique_ptr<asio::thread_pool> pool_;
};

}  // namespace nb
