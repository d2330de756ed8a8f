// Any bytes as both tip replies, on a fresh model: the button configuration (parse) and the game tips
// (parseGameTips). Every panel published holds one or two buttons and answers getButtonInfo for its type;
// the tips hold exactly the reply's keys but "version", each answered by getTipsByGameId; a panel's buttons
// follow the "left_button" and "right_button" keys it has.
//
// Seeds: examples/replies/getTipsButtonInfo.json and getGameTipsConfig.json.
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "fuzz/CatalogCollaborators.h"
#include "nbbase/catalog/TipsButtonInfo.h"

namespace {

using nbfuzz::check;

void checkPanel(const nb::Value& panel, const std::optional<std::vector<nb::TipsButton>>& buttons) {
    const std::size_t sides = panel.contains("left_button") + panel.contains("right_button");
    check(sides == 0 ? !buttons : (buttons && buttons->size() == sides));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto& collaborators = nbfuzz::CatalogCollaborators::shared();
    nb::TipsButtonInfo tips(collaborators.bridge(), collaborators.log(), collaborators.background());
    const nb::Value reply = nbfuzz::decodeInput(data, size);

    tips.parse(reply);
    const auto panels = tips.btnDict();
    check(reply.isAbsent() ? panels == nullptr : panels != nullptr);
    if (panels) {
        for (const auto& [key, buttons] : *panels) {
            check(buttons && !buttons->empty() && buttons->size() <= 2);
            // Keys that are a type's decimal text are what getButtonInfo reaches.
            std::int64_t type = 0;
            const char* end = key.data() + key.size();
            const auto parsed = std::from_chars(key.data(), end, type);
            if (parsed.ec == std::errc() && parsed.ptr == end && std::to_string(type) == key) {
                check(tips.getButtonInfo(type) == buttons);
            }
        }
    }
    if (const nb::Value::Array* types = reply["button_types"].asArray()) {
        for (const nb::Value& panel : *types) checkPanel(panel, nb::TipsButtonInfo::parseBtnArray(panel));
    }
    for (const std::int64_t type : {INT64_MIN, std::int64_t{-1}, std::int64_t{0}, std::int64_t{1}, INT64_MAX}) {
        const auto buttons = tips.getButtonInfo(type);
        check(!buttons || (panels && panels->contains(std::to_string(type))));
    }

    tips.parseGameTips(reply);
    const auto games = tips.gameTips();
    check(games != nullptr);
    const nb::Value::Dictionary* keys = reply.asDictionary();
    check(games->size() == (keys ? keys->size() - keys->contains("version") : 0));
    check(!games->contains("version"));
    if (keys) {
        for (const auto& [key, value] : *keys) {
            const auto entry = tips.getTipsByGameId(key);
            if (key == "version" || key.empty()) {
                check(entry == nullptr);
                continue;
            }
            check(entry && entry == games->at(key));
            check(entry->timeout() == value["timeout"].longLongValue());
            checkPanel(value, entry->btnArray());
        }
    }
    check(tips.getTipsByGameId(std::nullopt) == nullptr);
    return 0;
}
