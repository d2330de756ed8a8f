#include "EntitlementTable.h"

#include "ReportText.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "nbbase/entitlements/InterestsInfo.h"
#include "nbbase/entitlements/VipInfo.h"

namespace nb::nbctl {

namespace {

using Row = ReportText::Row;

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
    std::string text = id.isString() ? *id.asString() : (id.isAbsent() ? "(no product id)" : ReportText::jsonText(id));
    if (offer->productName()) text += fmt::format(" \"{}\"", *offer->productName());
    return text;
}

// Allowed now only through a held right that the user's level does not give.
bool isTrial(const InterestsSnapshot::TriableFlags& flags, std::int32_t value) {
    const auto flag = flags.find(value);
    return flag != flags.end() && !flag->second;
}

Row rightRow(std::string name, bool allowed, bool trial, const TriableInterest* unlocking) {
    if (allowed) return {std::move(name), "yes", ReportText::yesNo(trial), ""};
    return {std::move(name), "no", "", offerText(unlocking)};
}

std::string rights(const InterestRules& rules, const std::vector<std::int32_t>& qualityLevels,
                   const std::vector<std::int32_t>& frameRates) {
    const InterestsSnapshot& snapshot = rules.snapshot();
    std::vector<Row> rows{{"Right", "Allowed", "Trial", "Unlocked by"}};
    const auto offers = rules.pictureQualityAvailableInterests();
    for (const std::int32_t level : qualityLevels) {
        const auto unlocking = std::find_if(offers.begin(), offers.end(), [level](const auto& offer) {
            return InterestRules::containsKey(Value(level), offer->frameAttr());
        });
        rows.push_back(rightRow(fmt::format("quality {}", level), rules.hasPictureQualityFrameInterest(level),
                                isTrial(snapshot.frameTriableFlag, level),
                                unlocking == offers.end() ? nullptr : unlocking->get()));
    }
    for (const std::int32_t fps : frameRates) {
        rows.push_back(rightRow(fmt::format("{} fps", fps), rules.hasFpsInterest(fps),
                                isTrial(snapshot.fpsTriableFlag, fps), rules.getTriableInterestByFps(fps).get()));
    }
    return ReportText::aligned(rows);
}

std::string heldEnds(const InterestRules& rules) {
    std::string out;
    const Value expiry = rules.pictureQualityAndFpsInterestExpiredTime();
    if (expiry.isAbsent()) {
        out += "Quality and frame-rate trial: no held quality or frame-rate right\n";
    } else if (expiry["endTime"].longLongValue() == 0) {
        out += fmt::format("Quality and frame-rate trial: none held (endTime 0, svip {})\n",
                           ReportText::yesNo(expiry["svip"].boolValue()));
    } else {
        out += fmt::format("Quality and frame-rate trial ends {}, svip {}\n",
                           ReportText::instant(expiry["endTime"].longLongValue()), ReportText::yesNo(expiry["svip"].boolValue()));
    }

    std::vector<Row> rows{{"Held record", "Ends", "By server time"}};
    if (const auto& held = rules.snapshot().havingInterests) {
        for (const auto& record : *held) {
            std::string name;
            if (record->type() == StableInterest::kTypeFrame) {
                name = "quality " + ReportText::jsonText(record->frameAttr());
            } else if (record->type() == StableInterest::kTypeFps) {
                name = "frame rate " + ReportText::jsonText(record->fpsAttr());
            } else {
                continue;
            }
            rows.push_back({std::move(name), ReportText::instant(record->endTime()),
                            record->isLiveAt(rules.snapshot().currentTS) ? "live" : "ended"});
        }
    }
    if (rows.size() > 1) out += ReportText::aligned(rows);
    return out;
}

std::string nextCheck(const InterestRules& rules) {
    const Value timer = rules.getNextCheckInterestsInfoTimerElapse();
    const std::int64_t elapse = timer["elapse"].longLongValue();
    return fmt::format("Next check: elapse {} s{}, endTime {}\n            for type {}, property {}, isHaving {}, "
                       "isTry {}\n",
                       elapse, elapse <= 0 ? " (due: fetch now)" : "", ReportText::instant(timer["endTime"].longLongValue()),
                       timer["type"].intValue(), timer["property"].intValue(), ReportText::yesNo(timer["isHaving"].boolValue()),
                       ReportText::yesNo(timer["isTry"].boolValue()));
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
        rows.push_back({ReportText::jsonText(game), fmt::format("{}", rules.maxHangupTimeInSec(game, true)),
                        fmt::format("{}", rules.maxHangupTimeInSec(game, false))});
    }
    return ReportText::aligned(rows);
}

}  // namespace

EntitlementTable::EntitlementTable(InterestRules rules, Rows rows) : rules_(std::move(rules)), rows_(std::move(rows)) {}

EntitlementTable::EntitlementTable(const InterestsInfo& interests, const VipInfo& vip, Rows rows)
    : rules_(interests.snapshot(), vip.propertyLevel()), rows_(std::move(rows)) {}

std::string EntitlementTable::text() const {
    return fmt::format("User level: {} ({})\nServer time (currentTS): {}\n\n{}\n{}\n{}\n{}", rules_.level(),
                       levelName(rules_.level()), ReportText::instant(rules_.snapshot().currentTS),
                       rights(rules_, rows_.qualityLevels, rows_.frameRates),
                       heldEnds(rules_), nextCheck(rules_), idlePlay(rules_));
}

}  // namespace nb::nbctl
