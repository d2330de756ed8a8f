// Any bytes, decoded, as a global configuration reply: every question for a few game ids (fixed ones and
// the first id of each of the reply's tables) and levels (the extremes included) must answer without
// fault, frame rates must come back sorted, and a game the reply does not name must answer exactly what
// a nil game does (the "default" entry, else the built-in values).
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/CatalogCollaborators.h"
#include "nbbase/catalog/GameGlobalConfig.h"
#include "nbbase/foundation/Json.h"

namespace {

using nbfuzz::check;

constexpr std::int32_t kLevels[] = {0, 1, 2, 3, 4, -1, INT_MIN, INT_MAX};
const char* const kUnnamed = "\x01 no game has this id";

std::optional<std::string> firstKey(const nb::Value& table) {
    const nb::Value::Dictionary* entries = table.asDictionary();
    if (entries == nullptr || entries->empty()) return std::nullopt;
    return entries->begin()->first;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto& collaborators = nbfuzz::CatalogCollaborators::shared();
    nb::GameGlobalConfig config(collaborators.bridge(), collaborators.configuration(), {}, collaborators.log(),
                                collaborators.background());
    const nb::Value reply = nb::Json::decode(nb::Data(data, data + size)).value_or(nb::Value());
    config.parse(reply);
    check(config.enableSVip() == (!reply.contains("enable_svip") || reply["enable_svip"].boolValue()));
    check(config.disableHangup() == reply["disable_hangup"].boolValue());

    std::vector<std::optional<std::string>> games = {std::nullopt, "", "1234", "default", kUnnamed};
    for (const char* table : {"game_list", "picuture_quality", "fps"}) games.push_back(firstKey(reply[table]));
    for (const auto& game : games) {
        (void)config.mouseLockByGameId(game), (void)config.againstMenuTouchByGameId(game);
        for (const std::int32_t level : kLevels) {
            (void)config.getBitRate(game, level), (void)config.getResolution(game, level);
        }
        const auto fps = config.getSupportFps(game);
        for (std::size_t i = 1; i < fps.size(); ++i) check(fps[i - 1].longLongValue() <= fps[i].longLongValue());
    }
    for (const std::int32_t level : kLevels) {
        check(config.getBitRate(kUnnamed, level) == config.getBitRate(std::nullopt, level));
        check(config.getResolution(kUnnamed, level) == config.getResolution(std::nullopt, level));
    }
    check(config.getSupportFps(kUnnamed) == config.getSupportFps(std::nullopt));
    check(config.mouseLockByGameId(kUnnamed) && !config.againstMenuTouchByGameId(kUnnamed));
    return 0;
}
