// Numbers typed on nbctl's command line: the whole text read in decimal, within the range of the type
// it is stored in, or the reason it was refused.
//
// CLI11 2.1 reads integer options with strtoll in base 0 and keeps what it got: "99999999999999999999"
// quietly becomes INT64_MAX and "010" becomes eight. Every numeric option of nbctl is therefore declared
// with integerOption(), which refuses such text before CLI11 converts it; the refusal is a CLI11
// parse error, printed by main as one line that names the argument and the range, exit status 2.
//
// Threads: stateless, any thread. Nothing throws.
#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <variant>

#include <CLI/CLI.hpp>

namespace nb::nbctl {

class NumberArgument {
public:
    static constexpr std::int64_t kMinInteger = std::numeric_limits<std::int64_t>::min();
    static constexpr std::int64_t kMaxInteger = std::numeric_limits<std::int64_t>::max();

    // Decimal digits with an optional sign, nothing before or after. Otherwise the reason, which quotes
    // the text but does not name the argument (the caller knows it): "'x' is not an integer" or
    // "'x' is out of range: an integer from MIN to MAX".
    static std::variant<std::int64_t, std::string> integer(std::string_view text, std::int64_t min = kMinInteger,
                                                           std::int64_t max = kMaxInteger);

    // Decimal or exponent notation with an optional sign ("2.5", "-1e3", ".5"), locale-independent.
    // Refused: anything else (hex, "inf", "nan" included), a magnitude beyond double's largest, and a
    // non-zero value so small that it would read as 0.
    static std::variant<double, std::string> real(std::string_view text);

    // A CLI11 transform for an integer option or positional stored in any signed type whose range holds
    // [min, max]: refuses as integer() does, and otherwise hands CLI11 the number's plain decimal text,
    // which its base-0 conversion then reads back exactly.
    static CLI::Validator integerOption(std::int64_t min = kMinInteger, std::int64_t max = kMaxInteger);
};

}  // namespace nb::nbctl
