// Child process for the settings tests: one first-launch decision of the distribution channel, so that
// several processes can race it.
//
//   nbtest_supply_child <preferences folder> <home folder> <channel> <gate fd>
//
// Opens the settings suite with a bundle whose "NIMBODistributionChannel" is <channel>, writes "ready",
// waits until the inherited descriptor <gate fd> reaches end of file (the test closes the other end once
// every child is ready, which releases them together), then runs checkSupplyId() and writes
// "supplyId=<value>" or "supplyId=(nil)". Exits 0, or 64 on bad arguments.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "nbbase/core/NBConfiguration.h"

namespace {

bool writeLine(const std::string& line) { return std::fputs(line.c_str(), stdout) >= 0 && std::fflush(stdout) == 0; }

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) return 64;
    const auto bundle = std::make_shared<const nb::MainBundle>(
        nb::Value::dictionary({{"NIMBODistributionChannel", argv[3]}}), argv[2]);
    nb::NBConfiguration configuration(
        std::make_shared<nb::UserDefaults>(std::string(nb::NBConfiguration::kSuiteName), argv[1]), argv[2],
        [bundle] { return bundle; }, [] { return std::vector<std::string>{}; });
    if (!writeLine("ready\n")) return 1;
    const int gate = std::atoi(argv[4]);
    for (char c; ::read(gate, &c, 1) > 0;) {
    }
    configuration.checkSupplyId();
    return writeLine("supplyId=" + configuration.supplyId().value_or("(nil)") + "\n") ? 0 : 1;
}
