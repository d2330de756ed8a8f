// Any bytes as the extra game list, on a fresh model: every answer of getClickEventByGameId comes from an
// element of "game_extra_list" whose "id" is that very string and whose title and event, both non-empty,
// are what it answered; ids that no element carries as a string answer nothing.
//
// Seed: examples/replies/getGameListExtraInfo.json.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "fuzz/CatalogCollaborators.h"
#include "nbbase/catalog/ExtraGameInfo.h"

namespace {

using nbfuzz::check;

// Whether some complete element for `id` answers exactly `event`.
bool answeredBy(const nb::Value::Array& games, const std::string& id, const nb::ExtraGameInfo::ClickEvent& event) {
    for (const nb::Value& game : games) {
        if (game["id"] == nb::Value(id) && game.contains("time_end_exit_btn_title") &&
            game.contains("time_end_exit_btn_click_event") &&
            game["time_end_exit_btn_title"].stringValue() == event.title &&
            game["time_end_exit_btn_click_event"].stringValue() == event.event) {
            return true;
        }
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto& collaborators = nbfuzz::CatalogCollaborators::shared();
    nb::ExtraGameInfo info(collaborators.bridge(), collaborators.background());
    const nb::Value reply = nbfuzz::decodeInput(data, size);
    info.setExtra(reply);
    check(info.extra() == reply);
    check(!info.getClickEventByGameId(std::nullopt));

    const nb::Value::Array* games = reply["game_extra_list"].asArray();
    if (games == nullptr) {
        check(!info.getClickEventByGameId("1234") && !info.getClickEventByGameId(""));
        return 0;
    }
    for (const nb::Value& game : *games) {
        // The id's string value: the id itself when it is a string, else a text it must not match.
        const std::string id = game["id"].stringValue();
        const auto event = info.getClickEventByGameId(id);
        if (!event) continue;
        check(!event->title.empty() && !event->event.empty());
        check(answeredBy(*games, id, *event));
    }
    return 0;
}
