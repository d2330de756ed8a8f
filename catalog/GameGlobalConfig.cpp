#include "nbbase/catalog/GameGlobalConfig.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <mutex>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "nbbase/common/NBUtils.h"

namespace nb {
namespace {

constexpr std::string_view kDefaultKey = "default";

struct StringHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view s) const noexcept { return std::hash<std::string_view>{}(s); }
};
template <typename T>
using StringMap = std::unordered_map<std::string, T, StringHash, std::equal_to<>>;

// What one picture-quality level resolves to, its fallbacks applied.
struct Level {
    std::int32_t level;
    std::int32_t bitRate;
    Size resolution;
};
using Levels = std::vector<Level>;  // sorted by level

// The level a key of a picture-quality entry stands for: only the exact decimal form of an int32 can ever
// be asked for ("01", "+1" and "1.0" never are).
std::optional<std::int32_t> levelOfKey(std::string_view key) {
    std::int32_t level = 0;
    const auto [end, error] = std::from_chars(key.data(), key.data() + key.size(), level);
    if (error != std::errc() || end != key.data() + key.size() || std::to_string(level) != key) return std::nullopt;
    return level;
}

Size resolutionOf(const Value& text, std::int32_t level) {
    const std::string* resolution = text.asString();
    const std::size_t split = resolution ? resolution->find('_') : std::string::npos;
    if (split == std::string::npos || resolution->find('_', split + 1) != std::string::npos) {
        return GameGlobalConfig::defaultResolution(level);
    }
    const std::string_view whole = *resolution;
    return Size{static_cast<double>(Value(whole.substr(0, split)).intValue()),
                static_cast<double>(Value(whole.substr(split + 1)).intValue())};
}

// The levels a picture-quality entry answers for itself; an entry that is not a dictionary has none.
Levels ownLevels(const Value& entry) {
    Levels levels;
    if (const Value::Dictionary* keys = entry.asDictionary()) {
        for (const auto& [key, levelEntry] : *keys) {
            if (const auto level = levelOfKey(key)) {
                levels.push_back(
                    {*level, levelEntry["bitrate"].intValue(), resolutionOf(levelEntry["resolution"], *level)});
            }
        }
    }
    std::sort(levels.begin(), levels.end(), [](const Level& a, const Level& b) { return a.level < b.level; });
    return levels;
}

// A game's own levels, completed with those of the "default" entry that it lacks.
Levels merged(Levels own, const Levels& fallback) {
    const std::size_t ownCount = own.size();
    for (const Level& level : fallback) {
        const auto end = own.begin() + static_cast<std::ptrdiff_t>(ownCount);
        const auto found = std::lower_bound(own.begin(), end, level.level,
                                            [](const Level& l, std::int32_t wanted) { return l.level < wanted; });
        if (found == end || found->level != level.level) own.push_back(level);
    }
    std::inplace_merge(own.begin(), own.begin() + static_cast<std::ptrdiff_t>(ownCount), own.end(),
                       [](const Level& a, const Level& b) { return a.level < b.level; });
    return own;
}

const Level* findLevel(const Levels& levels, std::int32_t wanted) {
    const auto found = std::lower_bound(levels.begin(), levels.end(), wanted,
                                        [](const Level& l, std::int32_t w) { return l.level < w; });
    return found != levels.end() && found->level == wanted ? &*found : nullptr;
}

std::vector<Value> sortedByIntegerValue(const Value::Array& list) {
    std::vector<Value> sorted(list.begin(), list.end());
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const Value& a, const Value& b) { return a.longLongValue() < b.longLongValue(); });
    return sorted;
}

}  // namespace

// One reply's tables, built whole before they are published and never changed afterwards.
struct GameGlobalConfigTables {
    StringMap<bool> mouseLock;
    StringMap<bool> againstMenuTouch;
    StringMap<Levels> pictureQuality;  // every game of the reply, "default" included, fallbacks merged in
    const Levels* defaultLevels = nullptr;  // pictureQuality's "default" entry, when there is one
    StringMap<std::vector<Value>> fps;      // only the entries that are arrays, sorted

    GameGlobalConfigTables() = default;
    GameGlobalConfigTables(const GameGlobalConfigTables&) = delete;  // defaultLevels points into this one
    GameGlobalConfigTables& operator=(const GameGlobalConfigTables&) = delete;

    explicit GameGlobalConfigTables(const Value& reply) {
        if (const Value::Dictionary* games = reply["game_list"].asDictionary()) {
            for (const auto& [gameId, entry] : *games) {
                if (entry.contains("mouselocked")) mouseLock.insert_or_assign(gameId, entry["mouselocked"].boolValue());
                if (entry.contains("menutouchban")) {
                    againstMenuTouch.insert_or_assign(gameId, entry["menutouchban"].boolValue());
                }
            }
        }
        if (const Value::Dictionary* qualities = reply["picuture_quality"].asDictionary()) {
            const Levels fallback = ownLevels(qualities->get(kDefaultKey));
            for (const auto& [gameId, entry] : *qualities) {
                pictureQuality.insert_or_assign(gameId, merged(ownLevels(entry), fallback));
            }
            const auto found = pictureQuality.find(kDefaultKey);
            if (found != pictureQuality.end()) defaultLevels = &found->second;
        }
        if (const Value::Dictionary* lists = reply["fps"].asDictionary()) {
            for (const auto& [gameId, list] : *lists) {
                if (const Value::Array* rates = list.asArray()) {
                    fps.insert_or_assign(gameId, sortedByIntegerValue(*rates));
                }
            }
        }
    }

    // The game's levels, else the "default" entry's; nullptr when neither exists.
    const Levels* levelsFor(const std::optional<std::string>& gameId) const {
        if (gameId) {
            const auto found = pictureQuality.find(*gameId);
            if (found != pictureQuality.end()) return &found->second;
        }
        return defaultLevels;
    }

    const Level* find(const std::optional<std::string>& gameId, std::int32_t level) const {
        const Levels* levels = levelsFor(gameId);
        return levels ? findLevel(*levels, level) : nullptr;
    }
};

namespace {

// Every snapshot any instance publishes gets a number never used before, so a number identifies one
// snapshot of one instance for the life of the process.
std::atomic<std::uint64_t> nextGeneration{1};

// The snapshot this thread last read and its number. Readers use it without any lock or reference count
// while it is still their instance's current one, which is what keeps a lookup within a few times a plain
// hash-map lookup. It keeps that snapshot alive until the thread reads another or ends.
struct ReaderCache {
    std::uint64_t generation = 0;
    std::shared_ptr<const GameGlobalConfigTables> tables;
};
// On ELF the library is loaded with the program (it is linked, not opened as a plug-in), so its thread
// storage can be reached at a fixed offset instead of through a call on every lookup.
#if defined(__ELF__)
[[gnu::tls_model("initial-exec")]]
#endif
thread_local ReaderCache readerCache;

}  // namespace

class GameGlobalConfig::State {
public:
    using Tables = GameGlobalConfigTables;

    State(NimboSdkManager& sdkManager, NBConfiguration& configuration, MainBundleProvider mainBundle, NBLog& log)
        : sdkManager_(sdkManager), configuration_(configuration), mainBundle_(std::move(mainBundle)), log_(log) {}

    NimboSdkManager& sdkManager() const { return sdkManager_; }

    Value request() const {
        const auto bundle = mainBundle_ ? mainBundle_() : nullptr;
        const MainBundle& info = bundle ? *bundle : MainBundle(Value(), {});
        return Value::dictionary({{"appversion", info.shortVersionString()},
                                  {"userid", configuration_.userId().value_or("")},
                                  {"paychannel", NBUtils::getPayChannel(info)}});
    }

    void parse(const Value& reply) {
        if (!reply.isDictionary()) {
            syncEnableSvip(true);
            std::lock_guard lock(mutex_);
            disableHangup_ = false;
            return;
        }
        auto tables = std::make_shared<const Tables>(reply);
        syncEnableSvip(!reply.contains("enable_svip") || reply["enable_svip"].boolValue());
        std::lock_guard lock(mutex_);
        disableHangup_ = reply["disable_hangup"].boolValue();
        tables_ = std::move(tables);
        generation_.store(nextGeneration.fetch_add(1, std::memory_order_relaxed), std::memory_order_release);
    }

    void syncEnableSvip(bool flag) {
        log_.log(2, "syncEnableSvip:{},set {}", flag ? 1 : 0, flag ? "feature_version 10" : "feature_version 3");
        {
            std::lock_guard lock(mutex_);
            enableSvip_ = flag;
        }
        sdkManager_.enableSvipFeatureVersion(flag ? 1 : 0);
    }

    // The current tables. The reference stays valid until this thread's next call of tables(), on any
    // instance: use it and drop it within one getter.
    const Tables& tables() const {
        ReaderCache& cache = readerCache;
        if (cache.generation != generation_.load(std::memory_order_acquire)) {
            std::shared_ptr<const Tables> previous;  // freed after the lock is released
            std::lock_guard lock(mutex_);
            previous = std::exchange(cache.tables, tables_);
            cache.generation = generation_.load(std::memory_order_relaxed);
        }
        return *cache.tables;
    }
    bool enableSvip() const {
        std::lock_guard lock(mutex_);
        return enableSvip_;
    }
    bool disableHangup() const {
        std::lock_guard lock(mutex_);
        return disableHangup_;
    }

private:
    NimboSdkManager& sdkManager_;
    NBConfiguration& configuration_;
    const MainBundleProvider mainBundle_;
    NBLog& log_;

    mutable std::mutex mutex_;
    std::shared_ptr<const Tables> tables_ = std::make_shared<const Tables>();  // guarded by mutex_
    // tables_'s number: written under mutex_ with tables_, read without it to see whether a cached
    // snapshot is still current.
    std::atomic<std::uint64_t> generation_{nextGeneration.fetch_add(1, std::memory_order_relaxed)};
    bool enableSvip_ = false;      // guarded by mutex_
    bool disableHangup_ = false;   // guarded by mutex_
};

GameGlobalConfig& GameGlobalConfig::sharedInstance() {
    static GameGlobalConfig* const instance = new GameGlobalConfig();
    return *instance;
}

GameGlobalConfig::GameGlobalConfig(NimboSdkManager& sdkManager, NBConfiguration& configuration,
                                   MainBundleProvider mainBundle, NBLog& log, DispatchQueue& background)
    : state_(std::make_shared<State>(sdkManager, configuration, std::move(mainBundle), log)), background_(background) {}

void GameGlobalConfig::queryConfig(QueryResult completion) {
    background_.async([state = state_, sdk = state_->sdkManager().sdkInstance(), completion = std::move(completion)] {
        const Value reply = sdk ? sdk->getGameGlobalConfig(state->request()) : Value();
        state->parse(reply);
        if (completion) completion(reply.isDictionary() ? 0 : -1);
    });
}

void GameGlobalConfig::parse(const Value& reply) { state_->parse(reply); }
void GameGlobalConfig::syncEnableSvip(bool flag) { state_->syncEnableSvip(flag); }

bool GameGlobalConfig::mouseLockByGameId(const std::optional<std::string>& gameId) const {
    if (!gameId || gameId->empty()) return true;
    const auto& tables = state_->tables();
    const auto found = tables.mouseLock.find(*gameId);
    return found == tables.mouseLock.end() || found->second;
}

bool GameGlobalConfig::againstMenuTouchByGameId(const std::optional<std::string>& gameId) const {
    if (!gameId || gameId->empty()) return false;
    const auto& tables = state_->tables();
    const auto found = tables.againstMenuTouch.find(*gameId);
    return found != tables.againstMenuTouch.end() && found->second;
}

std::int32_t GameGlobalConfig::defaultBitRate(std::int32_t level) {
    switch (static_cast<std::uint32_t>(level)) {
        case 0:
        case 1:
            return 8;
        case 2:
            return 20;
        default:
            return 40;
    }
}

Size GameGlobalConfig::defaultResolution(std::int32_t level) {
    return level == 0 ? Size{1280, 720} : Size{1920, 1080};
}

std::int32_t GameGlobalConfig::getBitRate(const std::optional<std::string>& gameId, std::int32_t frameLevel) const {
    const Level* level = state_->tables().find(gameId, frameLevel);
    return level ? level->bitRate : defaultBitRate(frameLevel);
}

Size GameGlobalConfig::getResolution(const std::optional<std::string>& gameId, std::int32_t frameLevel) const {
    const Level* level = state_->tables().find(gameId, frameLevel);
    return level ? level->resolution : defaultResolution(frameLevel);
}

std::vector<Value> GameGlobalConfig::getSupportFps(const std::optional<std::string>& gameId) const {
    const auto& tables = state_->tables();
    auto found = gameId ? tables.fps.find(*gameId) : tables.fps.end();
    if (found == tables.fps.end()) found = tables.fps.find(kDefaultKey);
    if (found == tables.fps.end()) return {Value(30), Value(60)};
    return found->second;
}

std::vector<std::int32_t> GameGlobalConfig::qualityLevels(const std::optional<std::string>& gameId) const {
    std::vector<std::int32_t> levels;
    if (const Levels* found = state_->tables().levelsFor(gameId)) {
        for (const Level& level : *found) levels.push_back(level.level);
    }
    return levels;
}

bool GameGlobalConfig::enableSVip() const { return state_->enableSvip(); }
bool GameGlobalConfig::disableHangup() const { return state_->disableHangup(); }

}  // namespace nb
