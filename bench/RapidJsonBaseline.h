// RapidJSON's own DOM on the bytes a benchmark decodes: the baseline that nb::Json figures are read against,
// reported beside them in the same run.
#pragma once

#include <benchmark/benchmark.h>
#include <rapidjson/document.h>

#include <cstdint>
#include <string>

namespace nbbench {

// The work nb::Json::decode does: iterative, UTF-8 validated, reals correctly rounded.
inline constexpr unsigned kSameFlags =
    rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag | rapidjson::kParseFullPrecisionFlag;

inline void rapidJsonDomSameFlags(benchmark::State& state, const std::string& text) {
    for (auto _ : state) {
        rapidjson::Document d;
        d.Parse<kSameFlags>(text.data(), text.size());
        if (d.HasParseError()) state.SkipWithError("parse failed");
        benchmark::DoNotOptimize(d);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

}  // namespace nbbench
