// Decoding a server-reply-sized document into nb::Value, beside RapidJSON's own DOM on the same bytes.
// The target is at most twice the DOM's time with the same parse flags.
#include <benchmark/benchmark.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <string>

#include "RapidJsonBaseline.h"
#include "nbbase/foundation/Json.h"

namespace {

// About 1 MB: a list reply of game records with strings, integers, reals, bools and small nested objects.
const std::string& document() {
    static const std::string* const text = [] {
        auto* s = new std::string(R"({"code":0,"msg":"success","requestId":"a1b2c3d4","data":{"total":4000,"list":[)");
        for (int i = 0; i < 4000; ++i) {
            if (i > 0) *s += ',';
            const std::string n = std::to_string(i);
            *s += R"({"id":)" + n + R"(,"gameId":"g-)" + n + R"(","name":"Game title )" + n +
                  R"( \u96f2\u7aef","tags":["action","rpg","online"],"online":)" + (i % 3 ? "true" : "false") +
                  R"(,"score":)" + std::to_string(i % 50) + "." + std::to_string(i % 10) +
                  R"(,"price":{"amount":)" + std::to_string(1000 + i * 7 % 9000) +
                  R"(,"currency":"CNY","discount":null},"cover":"https://cdn.example.net/covers/)" + n +
                  R"(.jpg","players":)" + std::to_string(i * 37 % 100000) +
                  R"(,"description":"A longer description of the game, with \"quotes\" and more text to read."})";
        }
        *s += "]}}";
        return s;
    }();
    return *text;
}

void BM_DecodeIntoValue(benchmark::State& state) {
    const std::string& text = document();
    for (auto _ : state) {
        auto v = nb::Json::decode(text);
        if (!v) state.SkipWithError("decode failed");
        benchmark::DoNotOptimize(v);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_DecodeIntoValue)->Unit(benchmark::kMillisecond);

void BM_RapidJsonDomSameFlags(benchmark::State& state) { nbbench::rapidJsonDomSameFlags(state, document()); }
BENCHMARK(BM_RapidJsonDomSameFlags)->Unit(benchmark::kMillisecond);

// For reference: the DOM with its fastest defaults (recursive, approximate reals, no UTF-8 check).
void BM_RapidJsonDomDefaultFlags(benchmark::State& state) {
    const std::string& text = document();
    for (auto _ : state) {
        rapidjson::Document d;
        d.Parse(text.data(), text.size());
        benchmark::DoNotOptimize(d);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_RapidJsonDomDefaultFlags)->Unit(benchmark::kMillisecond);

void BM_EncodeValue(benchmark::State& state) {
    const nb::Value v = *nb::Json::decode(document());
    for (auto _ : state) {
        auto text = nb::Json::encode(v);
        benchmark::DoNotOptimize(text);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * document().size()));
}
BENCHMARK(BM_EncodeValue)->Unit(benchmark::kMillisecond);

void BM_RapidJsonDomWrite(benchmark::State& state) {
    rapidjson::Document d;
    d.Parse<nbbench::kSameFlags>(document().data(), document().size());
    for (auto _ : state) {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        d.Accept(writer);
        std::string text(buffer.GetString(), buffer.GetSize());
        benchmark::DoNotOptimize(text);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * document().size()));
}
BENCHMARK(BM_RapidJsonDomWrite)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
