// The interests store on server-sized replies.
//
// Parse: InterestsInfo::parse of a reply of about 1 MB (thousands of held, offered and not-held records of
// types 1 to 7, with the extra-data texts the servers send), beside RapidJSON's own DOM of the same bytes
// with the flags nb::Json decodes with. The target is at most twice the DOM's time. The parse also reads
// the quality and frame-rate lists out of each record's extra-data text; the idle limits wait for their
// first use, so that cost is timed on its own. The DOM is also timed decoding every extra-data text, and
// nb::Json::decode alone shows what a Value tree of the reply would cost.
//
// Rules: hasFpsInterest and getNextCheckInterestsInfoTimerElapse on a store of 1,000 records, beside plain
// loops that do the same search over the same records held as structs, which is what the figures are read
// against.
#include <benchmark/benchmark.h>
#include <rapidjson/document.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "RapidJsonBaseline.h"
#include "nbbase/entitlements/InterestsInfo.h"
#include "nbbase/foundation/Json.h"
#include "tests/InterestsCollaborators.h"

namespace {

constexpr std::int64_t kServerTime = 1795000000;

// Every record's numbers follow from its index, so every run parses the very same bytes.
std::int64_t endTimeOf(int i) { return kServerTime - 86400 + static_cast<std::int64_t>(i) * 7919 % 2592000; }

std::string quoted(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + '"';
}

std::string gameLimits(int i) {
    std::string limits = "[";
    for (int g = 0; g < 2 + i % 5; ++g) {
        if (g > 0) limits += ',';
        const int game = 1000 + (i * 31 + g * 17) % 9000;
        // Most ids come as text, some as numbers: the servers send both.
        const std::string id = g % 3 == 2 ? std::to_string(game) : quoted(std::to_string(game));
        limits += R"({"game_id":)" + id + R"(,"max_on_hook_time":)" + std::to_string(300 * (1 + (i + g) % 24)) + "}";
    }
    return limits + "]";
}

// The "extra_data" text of a record of the type, itself JSON except for the types that carry nothing.
std::string extraData(int type, int i) {
    static const char* const kFps[] = {"[30,60]", "[30,60,90]", "[60,90,120]", "[120,90]", "[90]"};
    static const char* const kFrames[] = {"[0,1,2,3]", "[3,4]", "[0,1]", "[2]", "[0,1,2,3,4]"};
    switch (type) {
        case 2: return R"({"count":)" + std::to_string(1 + i % 9) + R"(,"unit":"minute"})";
        case 4: return std::string(R"({"frame":)") + kFrames[i % 5] + "}";
        case 5: return gameLimits(i);
        case 6: return R"({"discount":"0.8","desc":"Weekend offer on every game in the catalogue"})";
        case 7: return std::string(R"({"fps":)") + kFps[i % 5] + "}";
        default: return "";
    }
}

// A full interests reply in the servers' compact form. Record types cycle through 1 to 7; without heldFps
// the held frame-rate records become type 6, so that a frame-rate question searches the whole held list.
std::string interestsReply(int held, int offered, int notHeld, bool heldFps = true) {
    std::string s = R"({"code":0,"message":"","data":{"timestamp":)" + std::to_string(kServerTime) + R"(,"having":[)";
    for (int i = 0; i < held; ++i) {
        const int cycled = 1 + i % 7;
        const int type = cycled == 7 && !heldFps ? 6 : cycled;
        if (i > 0) s += ',';
        s += R"({"type":)" + std::to_string(type) + R"(,"end_time":)" + std::to_string(endTimeOf(i)) +
             R"(,"extra_data":)" + quoted(extraData(type, i)) + "}";
    }
    s += R"(],"available_present":[)";
    for (int i = 0; i < offered; ++i) {
        const int type = 1 + (i * 3) % 7;
        const int property = 1 + i % 2;
        const std::string product = (property == 2 ? "svip-" : "vip-") + std::to_string(type) + "-" + std::to_string(i);
        if (i > 0) s += ',';
        s += R"({"type":)" + std::to_string(type) +
             // Product ids come as text and, for older products, as numbers.
             R"(,"product_id":)" + (i % 4 == 3 ? std::to_string(30000 + i) : quoted(product)) +
             R"(,"product_name":")" + (property == 2 ? "SVIP" : "VIP") + " offer " + std::to_string(i) +
             R"(, one month","property":)" + std::to_string(property) + R"(,"end_time":)" +
             std::to_string(endTimeOf(held + i)) + R"(,"expire_time":)" + std::to_string(kServerTime + 604800) +
             R"(,"extra_data":)" + quoted(extraData(type, held + i)) + "}";
    }
    s += R"(],"no_having":[)";
    for (int i = 0; i < notHeld; ++i) {
        if (i > 0) s += ',';
        s += R"({"type":5,"extra_data":)" + quoted(gameLimits(i)) + "}";
    }
    return s + "]}}";
}

// About 1 MB.
constexpr int kHeld = 3100;
constexpr int kOffered = 2600;
constexpr int kNotHeld = 850;

const std::string& bigReply() {
    static const std::string reply = interestsReply(kHeld, kOffered, kNotHeld);
    return reply;
}

nbtest::InterestsCollaborators& collaborators() {
    static nbtest::InterestsCollaborators instance;  // destroyed at exit, which removes its folder
    return instance;
}

// A store with the recorded base interests and the reply parsed; nullptr when either did not apply.
std::shared_ptr<nb::InterestsInfo> storeWith(const std::string& reply) {
    auto store = collaborators().makeStore();
    if (!store->parseUserPropertyInterests(nbtest::recordedReply("queryUserPropertyInterests.json")) ||
        !store->parse(reply) || !store->havingInterests() || store->havingInterests()->empty()) {
        return nullptr;
    }
    return store;
}

void setBytes(benchmark::State& state, const std::string& text) {
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
    state.counters["records"] = kHeld + kOffered + kNotHeld;
    state.counters["bytes"] = static_cast<double>(text.size());
}

// ---- Parse ---------------------------------------------------------------------------------------------------

void BM_InterestsParse(benchmark::State& state) {
    const std::string& text = bigReply();
    const auto store = storeWith(text);  // each parse then replaces lists as big as its own
    if (!store) return state.SkipWithError("the generated reply did not apply");
    for (auto _ : state) {
        if (!store->parse(text)) state.SkipWithError("parse failed");
    }
    if (store->havingInterests()->size() != kHeld) state.SkipWithError("records lost");
    setBytes(state, text);
}
BENCHMARK(BM_InterestsParse)->Unit(benchmark::kMillisecond);

// What the parse leaves for later: every idle-play record's limits read, as if each were asked about once.
void BM_InterestsParseThenEveryLimit(benchmark::State& state) {
    const std::string& text = bigReply();
    const auto store = storeWith(text);
    if (!store) return state.SkipWithError("the generated reply did not apply");
    std::size_t games = 0;
    for (auto _ : state) {
        if (!store->parse(text)) state.SkipWithError("parse failed");
        for (const auto& record : *store->havingInterests()) games += record->maxOnHookInfo() ? 1 : 0;
        for (const auto& record : *store->noHavingInterests()) games += record->maxOnHookInfo() ? 1 : 0;
    }
    benchmark::DoNotOptimize(games);
    setBytes(state, text);
}
BENCHMARK(BM_InterestsParseThenEveryLimit)->Unit(benchmark::kMillisecond);

void BM_RapidJsonDomSameFlags(benchmark::State& state) {
    nbbench::rapidJsonDomSameFlags(state, bigReply());
    setBytes(state, bigReply());
}
BENCHMARK(BM_RapidJsonDomSameFlags)->Unit(benchmark::kMillisecond);

// The DOM doing all the JSON work the store does: the reply, then every record's extra-data text.
void BM_RapidJsonDomWithExtraData(benchmark::State& state) {
    const std::string& text = bigReply();
    for (auto _ : state) {
        rapidjson::Document d;
        d.Parse<nbbench::kSameFlags>(text.data(), text.size());
        if (d.HasParseError()) state.SkipWithError("parse failed");
        for (const char* section : {"having", "available_present", "no_having"}) {
            for (const auto& record : d["data"][section].GetArray()) {
                const auto& extra = record["extra_data"];
                if (extra.GetStringLength() == 0) continue;
                rapidjson::Document inner;
                inner.Parse<nbbench::kSameFlags>(extra.GetString(), extra.GetStringLength());
                benchmark::DoNotOptimize(inner);
            }
        }
        benchmark::DoNotOptimize(d);
    }
    setBytes(state, text);
}
BENCHMARK(BM_RapidJsonDomWithExtraData)->Unit(benchmark::kMillisecond);

// The outer document alone, decoded into nb::Value: the first step of the store's parse.
void BM_DecodeReplyIntoValue(benchmark::State& state) {
    const std::string& text = bigReply();
    for (auto _ : state) {
        auto value = nb::Json::decode(text, {.allowFragments = true});
        if (!value) state.SkipWithError("decode failed");
        benchmark::DoNotOptimize(value);
    }
    setBytes(state, text);
}
BENCHMARK(BM_DecodeReplyIntoValue)->Unit(benchmark::kMillisecond);

// The rest of the parse: records built from the decoded reply, extra-data texts decoded, the lists they
// replace released.
void BM_ApplyDecodedReply(benchmark::State& state) {
    const std::string& text = bigReply();
    const nb::Value data = (*nb::Json::decode(text))["data"];
    nb::InterestsSnapshot snapshot;
    for (auto _ : state) snapshot.applyInterests(data, nb::InterestsSnapshot::ReplyForm::Full);
    if (!snapshot.havingInterests || snapshot.havingInterests->size() != kHeld) state.SkipWithError("records lost");
    setBytes(state, text);
}
BENCHMARK(BM_ApplyDecodedReply)->Unit(benchmark::kMillisecond);

// ---- Rules on 1,000 records --------------------------------------------------------------------------------

constexpr int kSmallHeld = 500;
constexpr int kSmallOffered = 400;
constexpr int kSmallNotHeld = 100;

// 120 FPS is not in the ordinary level's base interest, so the answer comes from the held records: the first
// held frame-rate record (the seventh) when there is one, else a search of all 500.
void BM_StoreHasFpsInterest(benchmark::State& state) {
    const auto store = storeWith(interestsReply(kSmallHeld, kSmallOffered, kSmallNotHeld, state.range(0) != 0));
    if (!store) return state.SkipWithError("the generated reply did not apply");
    for (auto _ : state) benchmark::DoNotOptimize(store->hasFpsInterest(120));
}
BENCHMARK(BM_StoreHasFpsInterest)->ArgName("heldFps")->Arg(1)->Arg(0);

// The same question on rules already taken: what the search costs without taking the snapshot and the level.
void BM_RulesHasFpsInterest(benchmark::State& state) {
    const auto store = storeWith(interestsReply(kSmallHeld, kSmallOffered, kSmallNotHeld, state.range(0) != 0));
    if (!store) return state.SkipWithError("the generated reply did not apply");
    const nb::InterestRules rules = store->rules();
    for (auto _ : state) benchmark::DoNotOptimize(rules.hasFpsInterest(120));
}
BENCHMARK(BM_RulesHasFpsInterest)->ArgName("heldFps")->Arg(1)->Arg(0);

void BM_StoreNextCheckTimer(benchmark::State& state) {
    const auto store = storeWith(interestsReply(kSmallHeld, kSmallOffered, kSmallNotHeld));
    if (!store) return state.SkipWithError("the generated reply did not apply");
    for (auto _ : state) benchmark::DoNotOptimize(store->getNextCheckInterestsInfoTimerElapse());
}
BENCHMARK(BM_StoreNextCheckTimer);

// The baselines: the same records as plain structs, in two vectors as the store keeps its two lists.
struct PlainRecord {
    std::int32_t type;
    std::int64_t endTime;
    std::vector<std::int32_t> fps;
};

struct PlainRecords {
    std::vector<PlainRecord> held;
    std::vector<PlainRecord> offered;
};

PlainRecords plainRecords(bool heldFps) {
    const auto store = storeWith(interestsReply(kSmallHeld, kSmallOffered, kSmallNotHeld, heldFps));
    PlainRecords records;
    const auto plain = [](const nb::StableInterest& r, std::int64_t endTime) {
        std::vector<std::int32_t> fps;
        if (const auto* values = r.fpsAttr().asArray()) {
            for (const auto& v : *values) fps.push_back(v.intValue());
        }
        return PlainRecord{r.type(), endTime, std::move(fps)};
    };
    for (const auto& r : *store->havingInterests()) records.held.push_back(plain(*r, r->endTime()));
    for (const auto& r : *store->availableIntrests()) records.offered.push_back(plain(*r, r->endTime()));
    return records;
}

void BM_PlainFirstHeldFps(benchmark::State& state) {
    const auto records = plainRecords(state.range(0) != 0);
    for (auto _ : state) {
        const auto& held = records.held;
        const auto found = std::find_if(held.begin(), held.end(), [](const PlainRecord& r) { return r.type == 7; });
        const bool has = found != held.end() && found->endTime > kServerTime &&
                         std::any_of(found->fps.begin(), found->fps.end(), [](std::int32_t v) { return v >= 120; });
        benchmark::DoNotOptimize(has);
    }
}
BENCHMARK(BM_PlainFirstHeldFps)->ArgName("heldFps")->Arg(1)->Arg(0);

// The record that ends first among held and offered ones of the monitored types.
void BM_PlainMinimumEndTime(benchmark::State& state) {
    const auto records = plainRecords(true);
    for (auto _ : state) {
        const PlainRecord* first = nullptr;
        for (const auto* list : {&records.held, &records.offered}) {
            for (const auto& r : *list) {
                const bool monitored = r.type == 4 || r.type == 5 || r.type == 7;
                if (monitored && r.endTime > 0 && (!first || r.endTime < first->endTime)) first = &r;
            }
        }
        benchmark::DoNotOptimize(first);
    }
}
BENCHMARK(BM_PlainMinimumEndTime);

}  // namespace

BENCHMARK_MAIN();
