// GameGlobalConfig: the server's configuration for all games: the SVIP feature switch (passed on to the
// SDK), whether idle play (hang-up) is switched off, per-game switches for mouse locking and for banning
// touches on the in-game menu, and the tables from which the client picks a stream bit rate, a video
// resolution and the frame rates offered for a game and a picture-quality level.
//
// Every question has a fixed fallback, so the client works before the configuration has arrived and when
// the server leaves a game out:
// - mouse lock true and menu-touch ban false for a nil or empty id, or a game the reply did not list;
// - bit rate and resolution: the game's entry under "picuture_quality" (the server's spelling), else the
//   "default" entry; in it the level's entry (keyed by the level in decimal, "-1" for -1), else the
//   "default" entry's one; with neither, defaultBitRate() / defaultResolution(). A level entry without
//   "bitrate" answers 0. A "resolution" is "<width>_<height>", each part read as an int value; a text
//   that is not a string or does not split into exactly two parts at "_" keeps defaultResolution();
// - frame rates: the game's "fps" list, else the "default" one, else {30, 60}; a list that is not an array
//   counts as missing.
// Values of unexpected kinds convert by Value's Foundation rules; nothing is validated.
//
// Frame rates come back as sent (numbers stay numbers, a text "60" stays a text), sorted ascending by
// their 64-bit integer value; entries with equal integer values keep the server's order.
//
// parse() of a reply that is not a dictionary (nil, a failed request) turns SVIP on, turns the hang-up
// switch off and keeps the tables. Any dictionary replaces all tables: a game left out of the new reply
// answers its fallback again. "enable_svip" missing counts as true.
//
// Threads: every function may be called on any thread, a parse racing reads included. A parse builds the
// new tables apart (resolving every game's bit rates and resolutions per level) and publishes them as one
// immutable snapshot under a short lock; a reader takes the snapshot it finds, so it sees the whole old or
// the whole new configuration, never a table being refilled. Each thread keeps the last snapshot it read
// and reuses it without locking while it is still current, so lookups cost little more than a hash-map
// lookup; a thread holds that snapshot alive until it reads another or ends.
// queryConfig() returns at once: the request, the parse and then the completion run on the background
// queue given to the constructor (the completion on that queue's thread, never the caller's; hop to the
// main queue to touch interface state). syncEnableSvip() logs and calls the SDK bridge outside any lock.
//
// Failure: nothing throws. A failed request is not logged here; its completion receives -1.
//
// Lifetime: the collaborators given to the constructor must outlive the instance and every queryConfig()
// it started (until its completion has been called, or the parse done when it has none). Destroying the
// instance with a query in flight is safe: the query finishes on the state it shares. sharedInstance() is
// created once, thread-safely, on first use and never destroyed.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "nbbase/core/NBConfiguration.h"
#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/foundation/ConcurrentQueue.h"
#include "nbbase/foundation/DispatchQueue.h"
#include "nbbase/foundation/MainBundle.h"
#include "nbbase/foundation/NBLog.h"
#include "nbbase/foundation/Size.h"
#include "nbbase/foundation/Value.h"

namespace nb {

class GameGlobalConfig {
public:
    // May answer nullptr: then the version is "" and the pay channel the library's default.
    using MainBundleProvider = std::function<std::shared_ptr<const MainBundle>()>;
    // 0 when a reply was parsed, -1 when the request failed (or there was no SDK instance).
    using QueryResult = std::function<void(std::int32_t result)>;

    static GameGlobalConfig& sharedInstance();

    explicit GameGlobalConfig(NimboSdkManager& sdkManager = NimboSdkManager::sharedInstance(),
                              NBConfiguration& configuration = NBConfiguration::sharedInstance(),
                              MainBundleProvider mainBundle = &MainBundle::main,
                              NBLog& log = NBLog::sharedInstance(),
                              DispatchQueue& background = ConcurrentQueue::global());
    GameGlobalConfig(const GameGlobalConfig&) = delete;
    GameGlobalConfig& operator=(const GameGlobalConfig&) = delete;

    // Asks the SDK instance (taken now, on the caller's thread) for the configuration with
    // {"appversion": bundle's "CFBundleShortVersionString", "userid": the configuration's user id,
    // "paychannel": NBUtils::getPayChannel}, each "" when missing, then parses the answer and calls
    // `completion` (may be empty).
    void queryConfig(QueryResult completion);
    void parse(const Value& reply);
    // Logs "syncEnableSvip:<0|1>,set feature_version <3|10>" (level 2), records the flag and passes it to the
    // SDK's enableSvipFeatureVersion.
    void syncEnableSvip(bool flag);

    bool mouseLockByGameId(const std::optional<std::string>& gameId) const;
    bool againstMenuTouchByGameId(const std::optional<std::string>& gameId) const;
    // The level compared unsigned: 0 and 1 → 8, 2 → 20, anything else (negative levels too) → 40.
    static std::int32_t defaultBitRate(std::int32_t level);
    std::int32_t getBitRate(const std::optional<std::string>& gameId, std::int32_t frameLevel) const;
    // Level 0 → 1280 by 720, any other → 1920 by 1080.
    static Size defaultResolution(std::int32_t level);
    Size getResolution(const std::optional<std::string>& gameId, std::int32_t frameLevel) const;
    std::vector<Value> getSupportFps(const std::optional<std::string>& gameId) const;
    // The levels getBitRate and getResolution answer from the configuration rather than their defaults for
    // this game (its own and the "default" entry's), ascending; empty before any configuration. For
    // clients that list the picture qualities a game offers.
    std::vector<std::int32_t> qualityLevels(const std::optional<std::string>& gameId) const;
    bool enableSVip() const;
    bool disableHangup() const;

    class State;  // shared with queries in flight

private:
    const std::shared_ptr<State> state_;
    DispatchQueue& background_;
};

}  // namespace nb
