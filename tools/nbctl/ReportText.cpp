#include "ReportText.h"

#include <algorithm>
#include <ctime>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "nbbase/foundation/Json.h"

namespace nb::nbctl {

std::string ReportText::aligned(const std::vector<Row>& rows) {
    std::vector<std::size_t> widths;
    for (const Row& row : rows) {
        if (widths.size() < row.size()) widths.resize(row.size(), 0);
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
    }
    std::string out;
    for (const Row& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 < row.size()) line.append(widths[i] + 2 - row[i].size(), ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        out += line + '\n';
    }
    return out;
}

std::string ReportText::instant(std::int64_t seconds) {
    constexpr std::int64_t kLastDate = 253402300799;  // 9999-12-31 23:59:59
    if (seconds <= 0 || seconds > kLastDate) return fmt::format("{}", seconds);
    return fmt::format("{} ({:%Y-%m-%d %H:%M:%S} UTC)", seconds, fmt::gmtime(static_cast<std::time_t>(seconds)));
}

std::string ReportText::jsonText(const Value& value) {
    if (value.isAbsent()) return "none";
    return Json::encode(value).value_or(value.kindName());
}

}  // namespace nb::nbctl
