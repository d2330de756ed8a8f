#include "CatalogCommand.h"

#include <ctime>
#include <fstream>
#include <iterator>
#include <memory>

#include <fmt/format.h>

#include "CatalogReport.h"
#include "EntitlementsCommand.h"
#include "NumberArgument.h"
#include "ReportText.h"
#include "nbbase/catalog/CouponInfo.h"
#include "nbbase/catalog/ExtraGameInfo.h"
#include "nbbase/catalog/GameGlobalConfig.h"
#include "nbbase/catalog/GameInfo.h"
#include "nbbase/catalog/HangupInfo.h"
#include "nbbase/catalog/MaintainPageInfo.h"
#include "nbbase/catalog/TipsButtonInfo.h"
#include "nbbase/foundation/NBLog.h"
#include "nbbase/common/NBNetworkCheck.h"
#include "nbbase/core/NBConfiguration.h"
#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/ManualClock.h"
#include "nbbase/foundation/SerialQueue.h"
#include "nbbase/sdk/ReplaySdk.h"

namespace nb::nbctl {

CatalogCommand::CatalogCommand(CLI::App& app, std::filesystem::path defaultReplies)
    : replies_(std::move(defaultReplies)) {
    command_ = app.add_subcommand("catalog", "Show what the catalogue models learn from recorded replies");
    command_->add_option("--replies", replies_, "Folder the replies default to")->capture_default_str();
    command_->add_option("--game-id", gameId_, "Game whose settings, tips and exit button are shown")
        ->capture_default_str();
    command_->add_option("--now", now_, "Unix seconds the clocks read (default: the recording's getTimeStamp.json)")
        ->transform(NumberArgument::integerOption());
    command_->add_option("--game", game_, "Game information reply (default: gameInfo.json)");
    command_->add_option("--config", config_, "Global configuration (default: getGameGlobalConfig.json)");
    command_->add_option("--tips", tips_, "Tip panels (default: getTipsButtonInfo.json)");
    command_->add_option("--game-tips", gameTips_, "Game tips (default: getGameTipsConfig.json)");
    command_->add_option("--extra", extra_, "Extra game list (default: getGameListExtraInfo.json)");
    command_->add_option("--hangup", hangup_, "Hang-up status (default: checkGameHangUpStatus.json)");
    command_->add_option("--coupons", coupons_, "Coupon reply (default: queryCoupons.json)");
    command_->add_option("--maintain", maintain_, "Maintenance page (default: getMaintainPageConfig.json)");
}

int CatalogCommand::run() const {
    // Every file is checked before any is parsed, so a bad one costs nothing and nothing half-parsed shows.
    struct Reply {
        std::filesystem::path path;
        Data bytes;
        Value value;
    };
    const auto read = [](const std::filesystem::path& path) -> std::optional<Reply> {
        auto bytes = EntitlementsCommand::readReply(path, false);
        if (!bytes) return std::nullopt;
        Value value = Json::decode(*bytes).value_or(Value());
        return Reply{path, std::move(*bytes), std::move(value)};
    };
    const auto game = read(pick(game_, "gameInfo.json"));
    const auto config = game ? read(pick(config_, "getGameGlobalConfig.json")) : std::nullopt;
    const auto tips = config ? read(pick(tips_, "getTipsButtonInfo.json")) : std::nullopt;
    const auto gameTips = tips ? read(pick(gameTips_, "getGameTipsConfig.json")) : std::nullopt;
    const auto extra = gameTips ? read(pick(extra_, "getGameListExtraInfo.json")) : std::nullopt;
    const auto hangup = extra ? read(pick(hangup_, "checkGameHangUpStatus.json")) : std::nullopt;
    const auto coupons = hangup ? read(pick(coupons_, "queryCoupons.json")) : std::nullopt;
    const auto maintain = coupons ? read(pick(maintain_, "getMaintainPageConfig.json")) : std::nullopt;
    if (!maintain) return 1;

    long long now = now_.value_or(0);
    if (!now_) {
        std::ifstream in(replies_ / "getTimeStamp.json", std::ios::binary);
        const std::string text(std::istreambuf_iterator<char>(in), {});
        const auto recorded = Json::decode(text, {.allowFragments = true});
        now = recorded ? recorded->longLongValue() : static_cast<long long>(std::time(nullptr));
    }

    // The models' collaborators, built here so that nothing touches the user's settings or the network:
    // an SDK that answers only the time, a log that keeps the models' information lines to itself, and a
    // background queue that nothing is sent to.
    NBLog log;
    log.setLogHandler([](std::int32_t level, const std::string& text) {
        if (level >= 4) fmt::print(stderr, "nbctl: {}\n", text);
    });
    auto sdk = std::make_shared<ReplaySdk>();
    sdk->setReply("getTimeStamp", Value(now));
    NBConfiguration configuration(nullptr, std::filesystem::path(), {}, {});
    NBNetworkCheck network([] { return NBNetworkCheck::kNone; });
    NimboSdkManager bridge([sdk] { return sdk; }, {}, configuration, network, log);
    bridge.initializeSDK(nullptr, std::nullopt, std::nullopt, false);
    SerialQueue idle("nbctl.catalog");
    const ManualClock clock = ManualClock::atSecondsSince1970(static_cast<double>(now));

    GameInfo gameInfo(bridge, Localization::sharedInstance(), log);
    gameInfo.parse(game->bytes);
    GameGlobalConfig globalConfig(bridge, configuration, {}, log, idle);
    globalConfig.parse(config->value);
    TipsButtonInfo tipsInfo(bridge, log, idle);
    tipsInfo.parse(tips->value);
    tipsInfo.parseGameTips(gameTips->value);
    ExtraGameInfo extraInfo(bridge, idle);
    extraInfo.setExtra(extra->value);
    HangupInfo hangupInfo(clock, log);
    hangupInfo.parse(std::string(hangup->bytes.begin(), hangup->bytes.end()));
    CouponInfo couponInfo(bridge, log, idle);
    couponInfo.parseCouponCount(coupons->value);
    MaintainPageInfo maintainPage(bridge, idle);
    maintainPage.parse(maintain->value);

    fmt::print("Clocks read {}\n\n", ReportText::instant(now));
    fmt::print("{}", CatalogReport({gameInfo, globalConfig, tipsInfo, extraInfo, hangupInfo, couponInfo, maintainPage},
                                   gameId_)
                         .text());
    bridge.uninitializeSDK();
    return 0;
}

}  // namespace nb::nbctl
