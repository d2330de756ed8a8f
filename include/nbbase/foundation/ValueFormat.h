// Lets {fmt} print an nb::Value as "%@" would: strings as themselves, numbers as their string value,
// absent as "(null)". Format specs are those of a string ({:>8} pads).
#pragma once

#include <fmt/format.h>

#include "nbbase/foundation/Value.h"

template <>
struct fmt::formatter<nb::Value> : fmt::formatter<std::string_view> {
    template <typename FormatContext>
    auto format(const nb::Value& v, FormatContext& ctx) const {
        return fmt::formatter<std::string_view>::format(v.description(), ctx);
    }
};
