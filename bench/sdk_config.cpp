// A debug switch asked of an unchanged 4 KB configuration file, beside what it cannot beat (a bare stat()
// of the file) and what it replaced (reading and parsing the whole file on every call).
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "nbbase/core/NBConfiguration.h"
#include "nbbase/foundation/PropertyList.h"
#include "nbbase/foundation/PropertyListFile.h"

namespace {

namespace fs = std::filesystem;

// A developer's file: the two sections read, padded with switches nobody reads to about 4 KB of XML.
std::string configurationXml() {
    nb::Value game = nb::Value::dictionary({{"envType", "1"}, {"game_tags", "beta"}});
    nb::Value debug = nb::Value::dictionary({{"log_level", "3"}, {"enable_nimbo_log", true}});
    for (int i = 0; i < 89; ++i) debug.set("unused_switch_" + std::to_string(i), i % 2 == 0);
    debug.set("enable_sdk_log", true);
    const auto bytes =
        nb::PropertyList::write(nb::Value::dictionary({{"game", game}, {"debug", debug}}), nb::PropertyList::Format::Xml);
    return bytes ? std::string(bytes->begin(), bytes->end()) : std::string();
}

struct Home {
    fs::path folder;
    fs::path file;
    std::size_t size = 0;
    std::unique_ptr<nb::NBConfiguration> configuration;

    Home() {
        std::string pattern = (fs::temp_directory_path() / "nbbench-XXXXXX").string();
        folder = ::mkdtemp(pattern.data());
        file = folder / nb::NBConfiguration::kSdkConfigFileName;
        const std::string xml = configurationXml();
        size = xml.size();
        std::ofstream(file, std::ios::binary) << xml;
        const timespec longAgo[2] = {{::time(nullptr) - 86400, 0}, {::time(nullptr) - 86400, 0}};
        ::utimensat(AT_FDCWD, file.c_str(), longAgo, 0);
        // The change time cannot be set back: wait out the racy window once, so the parse is kept from
        // the first call on, as it is for a file edited before the program started.
        std::this_thread::sleep_for(nb::PropertyListFile::kRacyWindow + std::chrono::seconds(1));
        configuration = std::make_unique<nb::NBConfiguration>(nullptr, folder);
    }
    ~Home() { fs::remove_all(folder); }
};

Home& home() {
    static Home* h = new Home();  // lives for the whole run, as the configuration of an application
    return *h;
}

void BM_EnableSdkLog(benchmark::State& state) {
    auto& h = home();
    if (!h.configuration->enableSdkLog()) state.SkipWithError("the switch does not read as set");
    for (auto _ : state) benchmark::DoNotOptimize(h.configuration->enableSdkLog());
    state.SetLabel(std::to_string(h.size) + " bytes");
}
BENCHMARK(BM_EnableSdkLog);

void BM_StatOfTheFile(benchmark::State& state) {
    auto& h = home();
    struct stat info {};
    for (auto _ : state) benchmark::DoNotOptimize(::stat(h.file.c_str(), &info));
}
BENCHMARK(BM_StatOfTheFile);

// What every switch cost before: the whole file read and parsed, then the two lookups.
void BM_ReadAndParseEveryCall(benchmark::State& state) {
    auto& h = home();
    for (auto _ : state) {
        const nb::Value root = nb::PropertyList::readFile(h.file);
        benchmark::DoNotOptimize(root["debug"]["enable_sdk_log"].boolValue());
    }
}
BENCHMARK(BM_ReadAndParseEveryCall);

}  // namespace

BENCHMARK_MAIN();
