// Bit-rate lookups in the global game configuration, on the recorded configuration.
//
// GameGlobalConfig::getBitRate beside the plainest table that could answer the same question: a two-level
// std::unordered_map (game id text → level key text → bit rate) holding the reply's entries, asked with the
// level keys already formatted. The target is at most three times the plain lookup's time. Both ask the
// same five (game, level) pairs, all of which the reply names directly; a sixth benchmark asks pairs that
// take the fallbacks ("default" entry, built-in rate), which the plain table cannot answer at all.
#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>

#include "nbbase/catalog/GameGlobalConfig.h"
#include "nbbase/foundation/Json.h"

namespace {

nb::Value recordedConfig() {
    std::ifstream in(std::string(NBBASE_SOURCE_DIR) + "/examples/replies/getGameGlobalConfig.json", std::ios::binary);
    return nb::Json::decode(std::string(std::istreambuf_iterator<char>(in), {})).value_or(nb::Value());
}

// The pairs asked; every one is an entry of the recorded reply.
const std::array<std::pair<const char*, std::int32_t>, 5> kDirect = {
    {{"1234", 0}, {"1234", 1}, {"1234", 3}, {"default", 2}, {"default", 4}}};
// Level 2 of 1234 and every level of 9999 come from "default"; level 7 from the built-in rates.
const std::array<std::pair<const char*, std::int32_t>, 5> kFallbacks = {
    {{"1234", 2}, {"1234", 4}, {"9999", 1}, {"9999", 3}, {"1234", 7}}};

// A model with no SDK, no settings suite and a silent log: nothing but the parse and the lookups.
struct Model {
    Model() {
        log.setLogHandler([](std::int32_t, const std::string&) {});
        config.parse(recordedConfig());
    }
    nb::NBLog log;
    nb::NBConfiguration configuration{nullptr, "/nonexistent", {}, {}};
    nb::NBNetworkCheck network{[] { return nb::NBNetworkCheck::kWired; }};
    nb::NimboSdkManager bridge{[] { return nullptr; }, {}, configuration, network, log};
    nb::GameGlobalConfig config{bridge, configuration, {}, log};
};

void lookUp(benchmark::State& state, const std::array<std::pair<const char*, std::int32_t>, 5>& pairs) {
    Model model;
    std::array<std::pair<std::optional<std::string>, std::int32_t>, 5> asked;
    for (std::size_t i = 0; i < pairs.size(); ++i) asked[i] = {std::string(pairs[i].first), pairs[i].second};
    for (auto _ : state) {
        for (const auto& [gameId, level] : asked) benchmark::DoNotOptimize(model.config.getBitRate(gameId, level));
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * asked.size()));
}

void BM_GetBitRate(benchmark::State& state) { lookUp(state, kDirect); }
BENCHMARK(BM_GetBitRate);

void BM_PlainTwoLevelMap(benchmark::State& state) {
    std::unordered_map<std::string, std::unordered_map<std::string, int>> table;
    const nb::Value reply = recordedConfig();
    for (const auto& [gameId, levels] : *reply["picuture_quality"].asDictionary()) {
        for (const auto& [level, entry] : *levels.asDictionary()) table[gameId][level] = entry["bitrate"].intValue();
    }
    std::array<std::pair<std::string, std::string>, 5> asked;
    for (std::size_t i = 0; i < kDirect.size(); ++i) asked[i] = {kDirect[i].first, std::to_string(kDirect[i].second)};
    for (auto _ : state) {
        for (const auto& [gameId, level] : asked) {
            benchmark::DoNotOptimize(table.find(gameId)->second.find(level)->second);
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * asked.size()));
}
BENCHMARK(BM_PlainTwoLevelMap);

void BM_GetBitRateWithFallbacks(benchmark::State& state) { lookUp(state, kFallbacks); }
BENCHMARK(BM_GetBitRateWithFallbacks);

void BM_GetResolution(benchmark::State& state) {
    Model model;
    const std::optional<std::string> gameId = "1234";
    for (auto _ : state) {
        for (std::int32_t level = 0; level < 5; ++level) {
            benchmark::DoNotOptimize(model.config.getResolution(gameId, level));
        }
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * 5));
}
BENCHMARK(BM_GetResolution);

void BM_Parse(benchmark::State& state) {
    Model model;
    const nb::Value reply = recordedConfig();
    for (auto _ : state) model.config.parse(reply);
}
BENCHMARK(BM_Parse);

}  // namespace

BENCHMARK_MAIN();
