// The main queue's raw throughput: empty tasks posted from another thread and run on the benchmark
// thread. Benchmarks of what is built on the main queue report it beside their own figure, in the same run.
#pragma once

#include <benchmark/benchmark.h>

#include <thread>

#include "nbbase/foundation/MainQueue.h"

namespace nbbench {

inline constexpr int kMainQueueBatch = 20000;

inline void BM_MainQueuePostFromOtherThread(benchmark::State& state) {
    nb::MainQueue queue;  // bound to this, the benchmark thread
    for (auto _ : state) {
        std::thread producer([&] {
            for (int i = 0; i < kMainQueueBatch; ++i) {
                queue.async([] {});
            }
            queue.async([&] { queue.stop(); });
        });
        benchmark::DoNotOptimize(queue.run());
        producer.join();
    }
    state.SetItemsProcessed(state.iterations() * kMainQueueBatch);
}

}  // namespace nbbench
