// CatalogReport: what a client would show of one game and its user from the catalogue models: the game's
// tags, copy-game and permission state and obtain-game button; the bit rate, resolution and frame rates of
// each picture-quality level the configuration knows for the game; the tip panels, the game's tips and the
// exit button for when play time ends; the hang-up state and time left; the coupon badge; whether the
// maintenance page is usable; and whether an accelerating router is connected.
//
// It only reads the models, each through its public questions, after the caller has parsed or fetched
// what it wants shown. Times are Unix seconds shown with their UTC date.
//
// Threads: build and read on any thread once the models hold what is to be shown.
#pragma once

#include <string>

namespace nb {
class CouponInfo;
class ExtraGameInfo;
class GameGlobalConfig;
class GameInfo;
class HangupInfo;
class MaintainPageInfo;
class RouterInfo;
class TipsButtonInfo;
}  // namespace nb

namespace nb::nbctl {

class CatalogReport {
public:
    struct Models {
        const GameInfo& game;
        const GameGlobalConfig& config;
        const TipsButtonInfo& tips;
        const ExtraGameInfo& extra;
        const HangupInfo& hangup;
        const CouponInfo& coupons;
        const MaintainPageInfo& maintainPage;
        const RouterInfo* router = nullptr;  // nullptr: not asked (nbctl catalog has no SDK to ask)
    };

    CatalogReport(Models models, std::string gameId) : models_(models), gameId_(std::move(gameId)) {}

    // Plain text, every line ending with a newline.
    [[nodiscard]] std::string text() const;

private:
    std::string gameText() const;
    std::string streamText() const;
    std::string tipsText() const;
    std::string hangupText() const;
    std::string accountText() const;

    Models models_;
    std::string gameId_;
};

}  // namespace nb::nbctl
