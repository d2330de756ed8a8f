#include "EntitlementTable.h"

#include <algorithm>
#include <ctime>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "nbbase/entitlements/InterestsInfo.h"
#include "nbbase/entitlements/VipInfo.h"
#include "nbbase/foundation/Json.h"

namespace nb::nbctl {

namespace {

using Row = std::vector<std::string>;

// Pads every column but the last to its widest cell, two spaces apart; trailing blanks are cut.
std::string aligned(const std::vector<Row>& rows) {
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

std::string yesNo(bool b) { return b ? "yes" : "no"; }

// Server seconds with their UTC date. Only years 1970 to 9999 get a date: a server that sends 0 means
// "none", and gmtime cannot render every 64-bit value.
std::string instant(std::int64_t seconds) {
    constexpr std::int64_t kLastDate = 253402300799;  // 9999-12-31 23:59:59
    if (seconds <= 0 || seconds > kLastDate) return fmt::format("{}", seconds);
    return fmt::format("{} ({:%Y-%m-%d %H:%M:%S} UTC)", seconds, fmt::gmtime(static_cast<std::time_t>(seconds)));
}

// JSON text, so that a string id shows quoted and a numeric one bare: the store tells them apart.
std::string jsonText(const Value& value) {
    if (value.isAbsent()) return "none";
    return Json::encode(value).value_or(value.kindName());
}

std::string levelName(std::int64_t level) {
    switch (level) {
        case StableInterest::kPropertyOrdinary: return "ordinary";
        case StableInterest::kPropertyVip: return "VIP";
        case StableInterest::kPropertySvip: return "SVIP";
        default: return "unknown";
    }
}

std::string offerText(const TriableInterest* offer) {
    if (!offer) return "-";
    const Value& id = offer->productId();
    std::string text = id.isString() ? *id.asString() : (id.isAbsent() ? "(no product id)" : jsonText(id));
    if (offer->productName()) text += fmt::format(" \"{}\"", *offer->productName());
    return text;
}

// Allowed now only through a held right that the user's level does not give.
bool isTrial(const InterestsSnapshot::TriableFlags& flags, std::int32_t value) {
    const auto flag = flags.find(value);
    return flag != flags.end() && !flag->second;
}

Row rightRow(std::string name, bool allowed, bool trial, const TriableInterest* unlocking) {
    if (allowed) return {std::move(name), "yes", yesNo(trial), ""};
    return {std::move(name), "no", "", offerText(unlocking)};
}

std::string rights(const InterestRules& rules) {
    const InterestsSnapshot& snapshot = rules.snapshot();
    std::vector<Row> rows{{"Right", "Allowed", "Trial", "Unlocked by"}};
    const auto offers = rules.pictureQualityAvailableInterests();
    for (const std::int32_t level : EntitlementTable::kQualityLevels) {
        const auto unlocking = std::find_if(offers.begin(), offers.end(), [level](const auto& offer) {
            return InterestRules::containsKey(Value(level), offer->frameAttr());
        });
        rows.push_back(rightRow(fmt::format("quality {}", level), rules.hasPictureQualityFrameInterest(level),
                                isTrial(snapshot.frameTriableFlag, level),
                                unlocking == offers.end() ? nullptr : unlocking->get()));
    }
    for (const std::int32_t fps : EntitlementTable::kFrameRates) {
        rows.push_back(rightRow(fmt::format("{} fps", fps), rules.hasFpsInterest(fps),
                                isTrial(snapshot.fpsTriableFlag, fps), rules.getTriableInterestByFps(fps).get()));
    }
    return aligned(rows);
}

std::string heldEnds(const InterestRules& rules) {
    std::string out;
    const Value expiry = rules.pictureQualityAndFpsInterestExpiredTime();
    if (expiry.isAbsent()) {
        out += "Quality and frame-rate trial: no held quality or frame-rate right\n";
    } else if (expiry["endTime"].longLongValue() == 0) {
        out += fmt::format("Quality and frame-rate trial: none held (endTime 0, svip {})\n",
                           yesNo(expiry["svip"].boolValue()));
    } else {
        out += fmt::format("Quality and frame-rate trial ends {}, svip {}\n",
                           instant(expiry["endTime"].longLongValue()), yesNo(expiry["svip"].boolValue()));
    }

    std::vector<Row> rows{{"Held record", "Ends", "By server time"}};
    if (const auto& held = rules.snapshot().havingInterests) {
        for (const auto& record : *held) {
            std::string name;
            if (record->type() == StableInterest::kTypeFrame) {
                name = "quality " + jsonText(record->frameAttr());
            } else if (record->type() == StableInterest::kTypeFps) {
                name = "frame rate " + jsonText(record->fpsAttr());
            } else {
                continue;
            }
            rows.push_back({std::move(name), instant(record->endTime()),
                            record->isLiveAt(rules.snapshot().currentTS) ? "live" : "ended"});
        }
    }
    if (rows.size() > 1) out += aligned(rows);
    return out;
}

std::string nextCheck(const InterestRules& rules) {
    const Value timer = rules.getNextCheckInterestsInfoTimerElapse();
    const std::int64_t elapse = timer["elapse"].longLongValue();
    return fmt::format("Next check: elapse {} s{}, endTime {}\n            for type {}, property {}, isHaving {}, "
                       "isTry {}\n",
                       elapse, elapse <= 0 ? " (due: fetch now)" : "", instant(timer["endTime"].longLongValue()),
                       timer["type"].intValue(), timer["property"].intValue(), yesNo(timer["isHaving"].boolValue()),
                       yesNo(timer["isTry"].boolValue()));
}

// Every game an idle-play record names, held or not, in the order first seen.
std::vector<Value> idleGames(const InterestsSnapshot& snapshot) {
    std::vector<Value> games;
    const auto collect = [&games](const auto& list) {
        if (!list) return;
        for (const auto& record : *list) {
            if (record->type() != StableInterest::kTypeHangup || !record->maxOnHookInfo()) continue;
            for (const auto& [game, seconds] : record->maxOnHookInfo()->entries()) {
                if (std::find(games.begin(), games.end(), game) == games.end()) games.push_back(game);
            }
        }
    };
    collect(snapshot.havingInterests);
    collect(snapshot.noHavingInterests);
    return games;
}

std::string idlePlay(const InterestRules& rules) {
    const std::vector<Value> games = idleGames(rules.snapshot());
    if (games.empty()) return "Idle play: no game has an idle limit\n";
    std::vector<Row> rows{{"Idle play in game", "With the right (s)", "Without (s)"}};
    for (const Value& game : games) {
        rows.push_back({jsonText(game), fmt::format("{}", rules.maxHangupTimeInSec(game, true)),
                        fmt::format("{}", rules.maxHangupTimeInSec(game, false))});
    }
    return aligned(rows);
}

}  // namespace

EntitlementTable::EntitlementTable(InterestRules rules) : rules_(std::move(rules)) {}

EntitlementTable::EntitlementTable(const InterestsInfo& interests, const VipInfo& vip)
    : rules_(interests.snapshot(), vip.propertyLevel()) {}

std::string EntitlementTable::text() const {
    return fmt::format("User level: {} ({})\nServer time (currentTS): {}\n\n{}\n{}\n{}\n{}", rules_.level(),
                       levelName(rules_.level()), instant(rules_.snapshot().currentTS), rights(rules_),
                       heldEnds(rules_), nextCheck(rules_), idlePlay(rules_));
}

}  // namespace nb::nbctl
