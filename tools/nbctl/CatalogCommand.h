// `nbctl catalog`: the catalogue report (CatalogReport) for recorded server replies, as a client would
// show the current game and its user.
//
//   catalog [--replies DIR] [--game-id ID] [--now SECONDS] [--game FILE] [--config FILE] [--tips FILE]
//           [--game-tips FILE] [--extra FILE] [--hangup FILE] [--coupons FILE] [--maintain FILE]
//
// Each file defaults to its recording in the replies folder: gameInfo.json, getGameGlobalConfig.json,
// getTipsButtonInfo.json, getGameTipsConfig.json, getGameListExtraInfo.json, checkGameHangUpStatus.json,
// queryCoupons.json and getMaintainPageConfig.json. --game-id (default 1234) chooses the game whose stream
// settings, tips and exit button are shown.
//
// Time: a recording is shown as it was. The tag period is judged against the SDK's clock and the idle time
// left against the local clock; both read --now, which defaults to the recording's getTimeStamp.json (the
// system clock when there is none). --now is a decimal integer that fits 64 bits; anything else is a bad
// argument, never rounded to the end of the range.
//
// Nothing is fetched and nothing is written: every model parses its file, the bridge's SDK answers only the
// time, and the settings suite is never opened.
//
// Exit codes: 0 the report was printed; 1 a reply was refused, with one line on standard error naming the
// file (it cannot be read, it is not a JSON object, or its "code" is not 0); 2 bad arguments.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

namespace nb::nbctl {

class CatalogCommand {
public:
    CatalogCommand(CLI::App& app, std::filesystem::path defaultReplies);

    bool selected() const { return command_->parsed(); }
    // Any thread; it starts no work of its own.
    int run() const;

private:
    std::filesystem::path pick(const std::filesystem::path& given, const char* recording) const {
        return given.empty() ? replies_ / recording : given;
    }

    CLI::App* command_ = nullptr;
    std::filesystem::path replies_;
    std::string gameId_ = "1234";
    std::optional<long long> now_;
    std::filesystem::path game_, config_, tips_, gameTips_, extra_, hangup_, coupons_, maintain_;
};

}  // namespace nb::nbctl
