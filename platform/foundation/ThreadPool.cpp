#include "nbbase/foundation/ThreadPool.h"

// First of the Asio headers: it configures them.
#include "platform/foundation/DispatchInternal.h"

#include <algorithm>
#include <thread>

#include <asio/thread_pool.hpp>

namespace nb {

ThreadPool& ThreadPool::sharedInstance() {
    static ThreadPool* const instance = new ThreadPool();
    return *instance;
}

std::size_t ThreadPool::defaultThreadCount() {
    return std::max<std::size_t>(8, 2 * std::size_t{std::thread::hardware_concurrency()});
}

ThreadPool::ThreadPool(std::size_t threadCount)
    : threadCount_(std::max<std::size_t>(1, threadCount)),
      pool_(std::make_unique<asio::thread_pool>(threadCount_)) {}

ThreadPool::~ThreadPool() {
    // Running handlers return, queued ones are abandoned; the pool's own destructor destroys them.
    pool_->stop();
    pool_->join();
}

}  // namespace nb
