// Throughput of the main queue: empty tasks posted from another thread and run on the benchmark thread,
// beside what it is built on, asio::post to an io_context run on one thread. The gap is the main queue's own
// cost: the pending count behind the wake-up hook, the std::function and the exception guard around tasks.
#include <benchmark/benchmark.h>

#include <thread>

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>

#include "nbbase/foundation/MainQueue.h"
#include "MainQueueBaseline.h"

namespace {

constexpr int kBatch = nbbench::kMainQueueBatch;

BENCHMARK(nbbench::BM_MainQueuePostFromOtherThread)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_AsioIoContextPostFromOtherThread(benchmark::State& state) {
    asio::io_context io(1);
    auto work = asio::make_work_guard(io);
    for (auto _ : state) {
        io.restart();
        std::thread producer([&] {
            for (int i = 0; i < kBatch; ++i) {
                asio::post(io, [] {});
            }
            asio::post(io, [&] { io.stop(); });
        });
        benchmark::DoNotOptimize(io.run());
        producer.join();
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}
BENCHMARK(BM_AsioIoContextPostFromOtherThread)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
