// Events posted from a background thread and delivered on the main queue, run on the benchmark thread, to
// ten listeners, beside the raw throughput of that queue with empty tasks posted the same way. The gap is
// the event centre's own cost: the notification carried by each task, the snapshot of registrations, and
// ten calls through weakly held listeners.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <memory>
#include <thread>
#include <vector>

#include "nbbase/NBConstants.h"
#include "nbbase/core/NBEventCenter.h"
#include "nbbase/foundation/MainQueue.h"
#include "MainQueueBaseline.h"

namespace {

constexpr int kBatch = nbbench::kMainQueueBatch;
constexpr int kListeners = 10;

struct Listener {
    std::size_t received = 0;
    void onEvent(const nb::Notification&) { ++received; }
};

BENCHMARK(nbbench::BM_MainQueuePostFromOtherThread)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_EventCenterPostFromOtherThread(benchmark::State& state) {
    nb::MainQueue queue;
    nb::NBEventCenter center(queue);
    std::vector<std::shared_ptr<Listener>> listeners;
    for (int i = 0; i < kListeners; ++i) {
        listeners.push_back(std::make_shared<Listener>());
        center.addEventListener(listeners.back(), &Listener::onEvent, nb::NIMBO_EVENT_GAME_STARTED, nullptr);
    }
    for (auto _ : state) {
        std::thread producer([&] {
            for (int i = 0; i < kBatch; ++i) {
                center.postEventName(nb::NIMBO_EVENT_GAME_STARTED, nullptr);
            }
            queue.async([&] { queue.stop(); });  // after the events: the queue is FIFO per poster
        });
        benchmark::DoNotOptimize(queue.run());
        producer.join();
    }
    std::size_t received = 0;
    for (const auto& listener : listeners) {
        received += listener->received;
    }
    if (received != static_cast<std::size_t>(state.iterations()) * kBatch * kListeners) {
        state.SkipWithError("an event missed a listener");
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
}
BENCHMARK(BM_EventCenterPostFromOtherThread)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
