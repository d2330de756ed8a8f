#include "CatalogReport.h"

#include <fmt/format.h>

#include "ReportText.h"
#include "nbbase/catalog/CouponInfo.h"
#include "nbbase/catalog/ExtraGameInfo.h"
#include "nbbase/catalog/GameGlobalConfig.h"
#include "nbbase/catalog/GameInfo.h"
#include "nbbase/catalog/HangupInfo.h"
#include "nbbase/catalog/MaintainPageInfo.h"
#include "nbbase/catalog/RouterInfo.h"
#include "nbbase/catalog/TipsButtonInfo.h"

namespace nb::nbctl {

namespace {

using Row = ReportText::Row;

std::string orNone(const std::optional<std::string>& text) { return text ? "\"" + *text + "\"" : "none"; }

// "[Title]" for a shown button, "(Title)" for a hidden one; "*" marks the highlighted one.
std::string buttons(const std::vector<TipsButton>& list) {
    std::string out;
    for (const TipsButton& button : list) {
        if (!out.empty()) out += ' ';
        const std::string title = button.title().value_or("");
        out += button.show() ? "[" + title + "]" : "(" + title + ")";
        if (button.highLight()) out += '*';
        if (button.startUrl() && !button.startUrl()->empty()) out += " -> " + *button.startUrl();
    }
    return out;
}

}  // namespace

std::string CatalogReport::text() const {
    return fmt::format("{}\n{}\n{}\n{}\n{}", gameText(), streamText(), tipsText(), hangupText(), accountText());
}

std::string CatalogReport::gameText() const {
    const GameInfo& game = models_.game;
    std::string out = fmt::format("Game {} {} (type {})\n", ReportText::jsonText(game.gameId()),
                                  ReportText::jsonText(game.name()), game.gameType());
    std::vector<Row> rows;
    rows.push_back({"tag period", fmt::format("{} to {}: {}", ReportText::instant(game.freeStartTS()),
                                              ReportText::instant(game.freeEndTS()),
                                              game.isTagTimeValid() ? "valid now" : "not valid now")});
    rows.push_back({"tags", fmt::format("test game {}, limited game {}", ReportText::yesNo(game.isTestGame()),
                                        ReportText::yesNo(game.isLimitedGame()))});
    rows.push_back({"copy game", game.copyGame() ? fmt::format("yes, owned {}, {} min left", ReportText::yesNo(game.myGame()),
                                                               game.copyGameTimeLeft())
                                                 : "no"});
    rows.push_back({"permission", game.isPermissionMode()
                                      ? fmt::format("controlled, held {}, trial {}", ReportText::yesNo(!game.gameWithoutPermission()),
                                                    game.permissionTryTime())
                                      : "not controlled"});
    rows.push_back({"paid time left", fmt::format("{}", game.paidTimeLeft())});
    rows.push_back({"client", fmt::format("wait for first scene {}, hide VIP queue button {}, skip archive {}",
                                          ReportText::yesNo(game.waitFirstScene()), ReportText::yesNo(game.isNeedHideVipQueueBtn()),
                                          ReportText::yesNo(game.isSupportSkipArchive()))});
    rows.push_back({"get button", fmt::format("{} -> {}", orNone(game.playGetBtnText()),
                                              game.playGetBtnTarget().value_or("none"))});
    if (const auto events = game.obtainGameEvents()) {
        rows.push_back({"obtain game", fmt::format("\"{}\" fires {} with {}", (*events)[0], (*events)[1], (*events)[2])});
    } else {
        rows.push_back({"obtain game", "no button"});
    }
    return out + ReportText::aligned(rows);
}

std::string CatalogReport::streamText() const {
    const GameGlobalConfig& config = models_.config;
    std::string out = fmt::format("Stream settings for game {}: SVIP features {}, idle play {}, mouse lock {}, "
                                  "menu touches {}\n",
                                  gameId_, config.enableSVip() ? "on" : "off",
                                  config.disableHangup() ? "switched off" : "allowed",
                                  ReportText::yesNo(config.mouseLockByGameId(gameId_)),
                                  config.againstMenuTouchByGameId(gameId_) ? "banned" : "allowed");
    std::vector<Row> rows{{"Quality", "Bit rate", "Resolution"}};
    for (const std::int32_t level : config.qualityLevels(gameId_)) {
        const Size size = config.getResolution(gameId_, level);
        rows.push_back({fmt::format("{}", level), fmt::format("{}", config.getBitRate(gameId_, level)),
                        fmt::format("{}x{}", size.width, size.height)});
    }
    out += ReportText::aligned(rows);
    std::string rates;
    for (const Value& fps : config.getSupportFps(gameId_)) rates += (rates.empty() ? "" : ", ") + fps.stringValue();
    return out + "Frame rates: " + rates + "\n";
}

std::string CatalogReport::tipsText() const {
    std::string out = "Tip panels\n";
    std::vector<Row> rows;
    if (const auto panels = models_.tips.btnDict()) {
        for (const auto& [type, list] : *panels) rows.push_back({"  type " + type, list ? buttons(*list) : ""});
    }
    if (rows.empty()) rows.push_back({"  none"});
    out += ReportText::aligned(rows);
    if (const auto tip = models_.tips.getTipsByGameId(gameId_)) {
        out += fmt::format("Tips for game {}: {}\n  video {}, dismiss after {}, timeout {}, at most {} times\n",
                           gameId_, orNone(tip->content()), tip->videoUrl().value_or("none"), tip->dismissDelay(),
                           tip->timeout(), tip->maxTime());
        if (tip->btnArray()) out += "  " + buttons(*tip->btnArray()) + "\n";
    } else {
        out += fmt::format("Tips for game {}: none\n", gameId_);
    }
    if (const auto exit = models_.extra.getClickEventByGameId(gameId_)) {
        out += fmt::format("Exit button when play time ends: \"{}\" fires {}\n", exit->title, exit->event);
    } else {
        out += "Exit button when play time ends: none\n";
    }
    return out;
}

std::string CatalogReport::hangupText() const {
    const HangupInfo& hangup = models_.hangup;
    if (hangup.isHangingUp()) {
        return fmt::format("Idle play: hanging up in instance {} since {}\n  forecast end {}, {} s left\n",
                           ReportText::jsonText(hangup.instanceId()), ReportText::instant(hangup.hangupBeginTime()),
                           ReportText::instant(hangup.hangupEndTimeExpected()), hangup.hangupRemainTimeInSec());
    }
    if (hangup.isHangUpEnd()) {
        return fmt::format("Idle play: ended after {} s\n", hangup.totalHangUpSeconds());
    }
    return "Idle play: not hanging up\n";
}

std::string CatalogReport::accountText() const {
    const CouponInfo& coupons = models_.coupons;
    std::string out = fmt::format("Coupons: {} ordinary, {} SVIP: badge {}\n", coupons.couponCount(),
                                  coupons.svipCouponCount(), coupons.hasCoupons() ? "shown" : "hidden");
    out += fmt::format("Maintenance page: {} ({})\n", models_.maintainPage.pageUrl().value_or("none"),
                       models_.maintainPage.valid() ? "valid" : "not valid");
    if (models_.router) {
        out += fmt::format("Accelerating router: {}\n",
                           models_.router->isConnectAccelerateRouter() ? "connected" : "not connected");
    }
    return out;
}

}  // namespace nb::nbctl
