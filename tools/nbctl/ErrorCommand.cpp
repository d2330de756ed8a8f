#include "ErrorCommand.h"

#include <fmt/format.h>

#include "NumberArgument.h"
#include "nbbase/support/NBErrorCode.h"

namespace nb::nbctl {

ErrorCommand::ErrorCommand(CLI::App& app) {
    command_ = app.add_subcommand("error", "Show the message and display form of an error code");
    command_->add_option("code", code_, "Error code")->required()->transform(NumberArgument::integerOption());
    command_->add_option("subcode", subCode_, "Sub-code (default 0)")->transform(NumberArgument::integerOption());
    command_->add_option("--module", module_, "Module shown in the display form (default 0)")
        ->transform(NumberArgument::integerOption());
}

int ErrorCommand::run() const {
    const NBErrorCode& catalogue = NBErrorCode::sharedInstance();
    fmt::print("{}\n{}\n", catalogue.queryErrorMessage(code_, subCode_),
               catalogue.formatErrorCode(code_, subCode_, module_));
    return 0;
}

}  // namespace nb::nbctl
