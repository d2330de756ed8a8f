// Filing a popup reply of 1,000 popups, made from the recorded reply's five popups (buttons included) and
// spread over the four scenes: PopupWindowInfo::parse of the decoded reply, and decoding plus parse from
// the bytes, beside RapidJSON's DOM parse of the same bytes. The target is parse at most twice the DOM's
// time. The image cache holds none of the pictures, so each popup costs one memory-cache lookup and no
// download, as on a client that has not shown them yet.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>

#include "RapidJsonBaseline.h"
#include "nbbase/NBConstants.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/MainQueue.h"
#include "nbbase/foundation/SerialQueue.h"
#include "nbbase/support/PopupWindowInfo.h"

namespace {

constexpr int kPopups = 1000;

const std::string& replyText() {
    static const std::string* const text = [] {
        std::ifstream in(std::string(NBBASE_SOURCE_DIR) + "/examples/replies/requestPopupWindowInfo.json",
                         std::ios::binary);
        const nb::Value recorded = nb::Json::decode(std::string(std::istreambuf_iterator<char>(in), {})).value();
        nb::Value::Array shapes;
        for (const auto& [scene, popups] : *recorded["data"]["scenes"].asDictionary()) {
            for (const nb::Value& popup : *popups.asArray()) shapes.push_back(popup);
        }
        const char* const scenes[] = {nb::kSceneGameDetailPage, nb::kScenePreLaunchGame, nb::kSceneGamePlaying,
                                      nb::kSceneActivityGameNeedPermission};
        nb::Value filed;
        for (int i = 0; i < kPopups; ++i) {
            nb::Value popup = shapes[static_cast<std::size_t>(i) % shapes.size()];
            popup.set("id", "pw-" + std::to_string(i));
            popup.set("index", i / 4);
            popup.set("confirm_ticket", "ct-" + std::to_string(i) + "-9f3e");
            popup.set("img_url", "https://img.korvane-nimbo.com/popup/" + std::to_string(i) + ".png");
            nb::Value list = filed[scenes[i % 4]];
            list.append(std::move(popup));
            filed.set(scenes[i % 4], std::move(list));
        }
        nb::Value reply = nb::Value::dictionary({{"code", 0}, {"message", ""}});
        reply.set("data", nb::Value::dictionary({{"scenes", filed}}));
        return new std::string(nb::Json::encode(reply).value());
    }();
    return *text;
}

// A store with no SDK, no settings suite, a silent log and an image cache that holds nothing.
struct Popups {
    Popups() { log.setLogHandler([](std::int32_t, const std::string&) {}); }
    nb::NBLog log;
    nb::NBConfiguration configuration{nullptr, "/nonexistent", {}, {}};
    nb::NBNetworkCheck network{[] { return nb::NBNetworkCheck::kWired; }};
    nb::NimboSdkManager bridge{[] { return nullptr; }, {}, configuration, network, log};
    nb::MainQueue main;
    nb::SerialQueue disk{"bench.popup-images"};
    nb::NBImageCache cache{nb::URLSession::shared(), nb::Folders::sharedInstance(), main, disk};
    nb::PopupWindowInfo info{bridge, cache, log};
};

void BM_Parse(benchmark::State& state) {
    Popups popups;
    const nb::Value reply = nb::Json::decode(replyText()).value();
    for (auto _ : state) popups.info.parse(reply, "1234");
    if (popups.info.popupWindowArrayByScene(nb::kSceneGamePlaying)->size() != kPopups / 4) {
        state.SkipWithError("the reply was not filed");
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * replyText().size()));
}
BENCHMARK(BM_Parse)->Unit(benchmark::kMillisecond);

void BM_DecodeAndParse(benchmark::State& state) {
    Popups popups;
    const std::string& text = replyText();
    for (auto _ : state) popups.info.parse(nb::Json::decode(text).value_or(nb::Value()), "1234");
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_DecodeAndParse)->Unit(benchmark::kMillisecond);

void BM_RapidJsonDomSameFlags(benchmark::State& state) { nbbench::rapidJsonDomSameFlags(state, replyText()); }
BENCHMARK(BM_RapidJsonDomSameFlags)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
