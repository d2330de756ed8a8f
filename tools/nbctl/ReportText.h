// ReportText: how nbctl's reports write what they show: aligned columns, yes and no, server times with
// their UTC date, and values as JSON so that a text id and a numeric one look different.
//
// Threads: stateless; any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "nbbase/foundation/Value.h"

namespace nb::nbctl {

class ReportText {
public:
    using Row = std::vector<std::string>;

    ReportText() = delete;

    // Pads every column but the last to its widest cell, two spaces apart; trailing blanks are cut; every
    // line ends with a newline.
    static std::string aligned(const std::vector<Row>& rows);
    static std::string yesNo(bool b) { return b ? "yes" : "no"; }
    // Server seconds with their UTC date. Only years 1970 to 9999 get a date: a server that sends 0 means
    // "none", and gmtime cannot render every 64-bit value.
    static std::string instant(std::int64_t seconds);
    // JSON text; "none" for an absent value.
    static std::string jsonText(const Value& value);
};

}  // namespace nb::nbctl
