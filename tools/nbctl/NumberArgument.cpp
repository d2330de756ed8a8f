#include "NumberArgument.h"

#include <charconv>
#include <cmath>
#include <system_error>

#include <fmt/format.h>

namespace nb::nbctl {

namespace {

// from_chars takes a '-' but not a '+', which people type for offsets and exponents alike.
std::string_view withoutPlus(std::string_view text) {
    if (text.size() > 1 && text[0] == '+' && text[1] != '-' && text[1] != '+') text.remove_prefix(1);
    return text;
}

}  // namespace

std::variant<std::int64_t, std::string> NumberArgument::integer(std::string_view text, std::int64_t min,
                                                                 std::int64_t max) {
    const std::string_view digits = withoutPlus(text);
    std::int64_t n = 0;
    const auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), n);
    const bool whole = !digits.empty() && end == digits.data() + digits.size();
    if (ec == std::errc::invalid_argument || !whole) return fmt::format("'{}' is not an integer", text);
    if (ec == std::errc::result_out_of_range || n < min || n > max) {
        return fmt::format("'{}' is out of range: an integer from {} to {}", text, min, max);
    }
    return n;
}

std::variant<double, std::string> NumberArgument::real(std::string_view text) {
    const std::string_view digits = withoutPlus(text);
    double d = 0;
    const auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), d);
    const bool whole = !digits.empty() && end == digits.data() + digits.size();
    // from_chars also reads "inf" and "nan", which no settings value or JSON reader expects.
    if (ec == std::errc::invalid_argument || !whole || (ec == std::errc() && !std::isfinite(d))) {
        return fmt::format("'{}' is not a number", text);
    }
    if (ec == std::errc::result_out_of_range) {
        return fmt::format("'{}' is out of range: a double holds 0 and magnitudes from {} to {}", text,
                           std::numeric_limits<double>::denorm_min(), std::numeric_limits<double>::max());
    }
    return d;
}

CLI::Validator NumberArgument::integerOption(std::int64_t min, std::int64_t max) {
    return CLI::Validator(
        [min, max](std::string& text) -> std::string {
            auto parsed = integer(text, min, max);
            if (auto* reason = std::get_if<std::string>(&parsed)) return *reason;
            text = std::to_string(std::get<std::int64_t>(parsed));
            return {};
        },
        fmt::format("in [{}, {}]", min, max));
}

}  // namespace nb::nbctl
