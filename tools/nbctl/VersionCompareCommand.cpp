#include "VersionCompareCommand.h"

#include <cstdio>

#include "nbbase/update/NBCustomizedVersionComparator.h"

namespace nb::nbctl {

VersionCompareCommand::VersionCompareCommand(CLI::App& app) {
    command_ = app.add_subcommand("version-compare", "Compare two versions as the updater does: -1, 0 or 1");
    command_->add_flag("--build-number", buildNumber_, "Compare the first and last dotted components only");
    command_->add_option("A", a_, "The first version")->required();
    command_->add_option("B", b_, "The version it is compared with")->required();
}

int VersionCompareCommand::run() const {
    NBCustomizedVersionComparator comparator;
    comparator.setCompareNimboBuildNum(buildNumber_);
    std::printf("%lld\n", static_cast<long long>(comparator.compareVersion(a_, b_)));
    return 0;
}

}  // namespace nb::nbctl
