// `nbctl error CODE [SUBCODE] [--module M]`: the message a user is shown for a failure's code, in the
// user's language, and the code's display form. Each number is a decimal integer that fits 64 bits
// ("010" is ten); anything else fails with exit status 2 and one line naming the argument and the range.
#pragma once

#include <cstdint>

#include <CLI/CLI.hpp>

namespace nb::nbctl {

class ErrorCommand {
public:
    explicit ErrorCommand(CLI::App& app);

    bool selected() const { return command_->parsed(); }
    int run() const;

private:
    CLI::App* command_ = nullptr;
    std::int64_t code_ = 0;
    std::int64_t subCode_ = 0;
    std::int64_t module_ = 0;
};

}  // namespace nb::nbctl
