// Error code lookups over a fixed mix of 10,000 codes (pairs, exact codes, each wildcard width, misses),
// beside one std::unordered_map<std::string, std::string> lookup of a string key in the same run. A miss
// answers "Unknown error occurred" through gettext on every call, so hits and misses are also timed apart,
// and gettext's own cost for that text is shown on its own. The target is under 300 ns per lookup.
// The program honours the process locale: run it with LC_ALL=C.UTF-8 LANGUAGE=zh_CN to time translated
// lookups (gettext then searches the catalogue instead of answering the id at once).
#include <benchmark/benchmark.h>

#include <clocale>
#include <cstdint>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "nbbase/support/NBErrorCode.h"

namespace {

using nb::NBErrorCode;

struct Query {
    std::int64_t code, subCode;
};

enum class Mix { All, Hits, Misses };

const NBErrorCode& catalogue() {
    static const NBErrorCode* const instance = new NBErrorCode();
    return *instance;
}

bool isMiss(const Query& q) {
    static const std::string* const unknown =
        new std::string(nb::Localization::sharedInstance().localizedString(std::string(NBErrorCode::kUnknownMessage)));
    return catalogue().queryErrorMessage(q.code, q.subCode) == *unknown;
}

// Three in four codes come from the table's patterns (a pair, an exact code with and without a sub-code,
// any code under a wildcard); the rest are drawn from all five-digit codes of either sign, mostly misses.
std::vector<Query> makeQueries(Mix mix) {
    std::mt19937_64 random(42);
    std::vector<Query> fromPatterns;
    for (const auto& entry : NBErrorCode::englishErrorCodeTable()) {
        const std::string pattern(entry.pattern);
        const auto stars = pattern.size() - pattern.find_last_not_of('*') - 1;
        const auto dash = pattern.find('-');
        if (dash != std::string::npos) {
            fromPatterns.push_back({std::stoll(pattern.substr(0, dash)), std::stoll(pattern.substr(dash + 1))});
        } else if (stars == 0) {
            fromPatterns.push_back({std::stoll(pattern), 0});
            fromPatterns.push_back({std::stoll(pattern), 777});
        } else {
            std::int64_t scale = 1;
            for (std::size_t i = 0; i < stars; ++i) scale *= 10;
            const std::int64_t base = std::stoll(pattern.substr(0, pattern.size() - stars)) * scale;
            for (int i = 0; i < 4; ++i) fromPatterns.push_back({base + static_cast<std::int64_t>(random() % scale), 0});
        }
    }
    std::vector<Query> queries;
    std::uniform_int_distribution<std::int64_t> anyCode(-99999, 99999);
    while (queries.size() < 10000) {
        const Query q = random() % 4 != 0 ? fromPatterns[random() % fromPatterns.size()]
                                          : Query{anyCode(random), random() % 2 ? 0 : anyCode(random)};
        if (mix == Mix::All || (mix == Mix::Misses) == isMiss(q)) queries.push_back(q);
    }
    return queries;
}

void runQueries(benchmark::State& state, Mix mix) {
    const std::vector<Query> queries = makeQueries(mix);
    const NBErrorCode& errors = catalogue();
    if (mix == Mix::All) {
        std::size_t misses = 0;
        for (const Query& q : queries) misses += isMiss(q);
        state.counters["miss_share"] = static_cast<double>(misses) / static_cast<double>(queries.size());
    }
    std::size_t i = 0;
    for (auto _ : state) {
        const Query& q = queries[i];
        i = i + 1 == queries.size() ? 0 : i + 1;
        std::string message = errors.queryErrorMessage(q.code, q.subCode);
        benchmark::DoNotOptimize(message);
    }
}

void BM_QueryErrorMessageMix(benchmark::State& state) { runQueries(state, Mix::All); }
void BM_QueryErrorMessageHitsOnly(benchmark::State& state) { runQueries(state, Mix::Hits); }
void BM_QueryErrorMessageMissesOnly(benchmark::State& state) { runQueries(state, Mix::Misses); }

// What each miss pays to gettext for the unknown-code text.
void BM_GettextUnknownText(benchmark::State& state) {
    const nb::Localization& localization = nb::Localization::sharedInstance();
    const std::string id(NBErrorCode::kUnknownMessage);
    for (auto _ : state) {
        std::string message = localization.localizedString(id);
        benchmark::DoNotOptimize(message);
    }
}

// Baseline: one hashed lookup of a ready-made key in the same table, answering a copy of the message.
void BM_UnorderedMapStringKey(benchmark::State& state) {
    std::unordered_map<std::string, std::string> table;
    std::vector<std::string> keys;
    for (const auto& entry : NBErrorCode::englishErrorCodeTable()) {
        table.emplace(entry.pattern, entry.message);
        keys.emplace_back(entry.pattern);
    }
    std::size_t i = 0;
    for (auto _ : state) {
        const auto it = table.find(keys[i]);
        i = i + 1 == keys.size() ? 0 : i + 1;
        std::string message = it->second;
        benchmark::DoNotOptimize(message);
    }
}

void BM_FormatErrorCode(benchmark::State& state) {
    const NBErrorCode& errors = catalogue();
    std::int64_t code = 20403;
    for (auto _ : state) {
        std::string text = errors.formatErrorCode(code++, 22005, 3);
        benchmark::DoNotOptimize(text);
    }
}

BENCHMARK(BM_QueryErrorMessageMix)->Repetitions(9)->ReportAggregatesOnly(true);
BENCHMARK(BM_QueryErrorMessageHitsOnly)->Repetitions(9)->ReportAggregatesOnly(true);
BENCHMARK(BM_QueryErrorMessageMissesOnly)->Repetitions(9)->ReportAggregatesOnly(true);
BENCHMARK(BM_GettextUnknownText)->Repetitions(9)->ReportAggregatesOnly(true);
BENCHMARK(BM_UnorderedMapStringKey)->Repetitions(9)->ReportAggregatesOnly(true);
BENCHMARK(BM_FormatErrorCode)->Repetitions(9)->ReportAggregatesOnly(true);

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
