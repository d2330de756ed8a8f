#include "HostCommand.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>
#include <memory>
#include <optional>
#include <system_error>

#include <fmt/format.h>

#include "ConfigCommand.h"
#include "EntitlementTable.h"
#include "EntitlementsCommand.h"
#include "CatalogReport.h"
#include "HostSteps.h"
#include "HostSupport.h"
#include "HostPlugins.h"
#include "HostUpdate.h"
#include "LocalImageServer.h"
#include "ReportText.h"
#include "PlistText.h"
#include "SdkCommand.h"
#include "ZoneCommand.h"
#include "nbbase/NBConstants.h"
#include "nbbase/catalog/CouponInfo.h"
#include "nbbase/catalog/ExtraGameInfo.h"
#include "nbbase/catalog/GameGlobalConfig.h"
#include "nbbase/catalog/GameInfo.h"
#include "nbbase/catalog/HangupInfo.h"
#include "nbbase/catalog/MaintainPageInfo.h"
#include "nbbase/catalog/NBImageCache.h"
#include "nbbase/catalog/RouterInfo.h"
#include "nbbase/catalog/TipsButtonInfo.h"
#include "nbbase/catalog/UserInfo.h"
#include "nbbase/common/NBNetworkCheck.h"
#include "nbbase/common/URLSession.h"
#include "nbbase/core/NBConfiguration.h"
#include "nbbase/core/NBEventCenter.h"
#include "nbbase/core/NBZoneCache.h"
#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/entitlements/InterestsInfo.h"
#include "nbbase/entitlements/VipInfo.h"
#include "nbbase/foundation/ConcurrentQueue.h"
#include "nbbase/foundation/Folders.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/Localization.h"
#include "nbbase/foundation/MainBundle.h"
#include "nbbase/foundation/MainQueue.h"
#include "nbbase/foundation/ManualClock.h"
#include "nbbase/foundation/NBLog.h"
#include "nbbase/foundation/PropertyList.h"
#include "nbbase/foundation/SerialQueue.h"
#include "nbbase/foundation/UserDefaults.h"
#include "nbbase/sdk/ReplaySdk.h"

namespace nb::nbctl {

namespace {

// The library's log lines, the plug-ins' included, go to standard output among the host's own.
void printLogLines() {
    NBLog::sharedInstance().setLogHandler([](std::int32_t level, const std::string& text) {
        fmt::print("[log {}] {}\n", level, text);
    });
}

// The client application the host plays.
std::shared_ptr<const MainBundle> clientBundle(const std::filesystem::path& folder) {
    return std::make_shared<const MainBundle>(
        Value::dictionary({{"CFBundleIdentifier", "com.korvane.nimbo.mac"},
                           {"CFBundleShortVersionString", "3.2.0"},
                           {"NIMBODistributionChannel", "nimbo_official"}}),
        folder);
}

// What a tester leaves in the home folder: the test environment off, report logging on.
bool writeDeveloperFile(const std::filesystem::path& path) {
    const auto bytes = PropertyList::write(
        Value::dictionary({{"game", Value::dictionary({{"envType", "1"}})},
                           {"debug", Value::dictionary({{"enable_report_log", true}, {"log_level", "info"}})}}),
        PropertyList::Format::Xml);
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes->data()), static_cast<std::streamsize>(bytes->size()));
    return static_cast<bool>(out);
}

// Start-up: the settings suite with its registered defaults, the developer's switches, the server bases.
void playSettings(NBConfiguration& configuration) {
    section("settings");
    const auto suite = configuration.userDefaults();
    fmt::print("suite {} in {}\n", suite->suiteName(), suite->databasePath().parent_path().string());
    fmt::print("configuration file {}\n", configuration.sdkConfigFilePath().string());
    configuration.checkSupplyId();
    const Value report = ConfigCommand::report(configuration);
    fmt::print("switches {}\nenvironment {}\n", PlistText::format(report["switches"]),
               PlistText::format(report["environment"]));
    fmt::print("registered defaults: fps {}, frame {}x{}, full screen {}; supplyId {}\n", configuration.fps(),
               configuration.frameSize().width, configuration.frameSize().height, configuration.isFullScreen(),
               configuration.supplyId().value_or("(null)"));
}

// Sign-in: the identity is stored, then the login event travels from a background thread to the main
// queue, where the client's windows would hear it.
bool playSignIn(NBConfiguration& configuration, const std::shared_ptr<NBEventCenter>& events, MainQueue& main) {
    section("sign-in");
    auto delivered = std::make_shared<std::atomic<bool>>(false);
    const ObserverToken token = events->addEventListenerForName(
        NIMBO_EVENT_LOGIN_SUCCESS, nullptr, nullptr, [&main, delivered](const Notification& event) {
            fmt::print("delivered {} on the main thread: {}; context {}\n", event.name,
                       main.isMainThread() ? "yes" : "no", PlistText::format(event.userInfo));
            delivered->store(true);
        });

    configuration.setNimboToken("nbt-3f9c2a7d");
    configuration.setOpenId("open-5521");
    configuration.setUserId("10086");
    configuration.setGameId("1234");
    configuration.setVipFlags(1);
    configuration.setUserProfile(
        Value::dictionary({{"nickname", "Lantern"}, {"avatar", "https://img.korvane-nimbo.com/a/10086.png"},
                           {"signature", Value::null()}}));
    fmt::print("identity stored {}\n", PlistText::format(ConfigCommand::report(configuration)["identity"]));

    // The task owns what it uses: it may still run after a timeout has ended this function.
    const Value context = Value::dictionary({{"userId", Value(configuration.userId().value_or(""))}});
    ConcurrentQueue::global().async([events, context] {
        NBLog::sharedInstance().log(2, "signed in; posting {} from a background thread", NIMBO_EVENT_LOGIN_SUCCESS);
        events->postEventName(NIMBO_EVENT_LOGIN_SUCCESS, nullptr, context);
    });
    const bool ok = main.runUntil([&delivered] { return delivered->load(); }, std::chrono::seconds(10));
    events->removeListener(token);
    if (!ok) fmt::print(stderr, "nbctl: the login event was not delivered in 10 seconds\n");
    return ok;
}

// Zones: the client's speed test ends; its zones are stored with this machine's network and read back. A
// result that fell back to a backup zone is refused and leaves the stored one in place.
bool playZone(NBConfiguration& configuration) {
    section("zones");
    const auto network = NetworkInterfaces::system();
    NBZoneCache zones(configuration, network);
    zones.speedTestEnd(Value::array({Value::dictionary({{"zoneId", 3}, {"name", "sh-2"}, {"delay", 21}}),
                                     Value::dictionary({{"zoneId", "17"}, {"name", "gz-1"}, {"delay", 35}}),
                                     Value::dictionary({{"name", "probe"}, {"delay", 90}})}));
    zones.speedTestEnd(Value::array({Value::dictionary({{"zoneId", 5}, {"backup", true}})}));
    fmt::print("speed test stored (zones 3 and 17, and a probe without one); a later result with a backup zone "
               "refused\n{}",
               ZoneCommand::report(zones, configuration, *network));
    return true;
}

// Entitlements: the interests store on the host's bridge fetches the interests as a client does after
// sign-in, and the table shows what the user may use. The VIP reply comes from the client (no SDK request
// delivers it) and decides the level the trial flags are computed for, so it is parsed first.
std::shared_ptr<InterestsInfo> playEntitlements(NBConfiguration& configuration, NimboSdkManager& bridge,
                                                const std::filesystem::path& replies, MainQueue& main) {
    section("entitlements");
    const auto vipReply = EntitlementsCommand::readReply(replies / "vipInfo.json", false);
    if (!vipReply) return nullptr;
    // The process-wide VIP record, as a client's reply handler fills it; it outlives any late reply.
    VipInfo& vip = VipInfo::sharedInstance();
    vip.parse(*vipReply);
    // A serial background queue sends the base-interest query that the fetch starts with before the
    // interests request, and ReplaySdk answers in call order, so both replies are in once the fetch reports.
    SerialQueue background("nbctl.interests");
    const auto interests = InterestsInfo::create(bridge, configuration, vip, NBLog::sharedInstance(), background);

    auto result = std::make_shared<std::optional<std::int32_t>>();  // set on the main queue
    interests->fetchInterests(Value::array({1234}), std::nullopt, [&main, result](std::int32_t answer) {
        main.async([result, answer] { *result = answer; });
    });
    main.runUntil([&] { return result->has_value(); }, std::chrono::seconds(10));
    if (!*result) {
        fmt::print(stderr, "nbctl: the interests did not arrive in 10 seconds\n");
        return nullptr;
    }
    if (**result != 0) {
        fmt::print(stderr, "nbctl: fetching the interests failed ({})\n", **result);
        return nullptr;
    }
    const auto levels = interests->stableInterestDict();
    if (!levels || levels->empty()) {
        fmt::print(stderr, "nbctl: the base interests (user-property reply) did not arrive\n");
        return nullptr;
    }
    fmt::print("fetchInterests for games [1234]: result 0, passed to the main queue; base interests of {} levels\n"
               "(the table follows the game's configuration, below)\n",
               interests->stableInterestDict()->size());
    return interests;
}

// Catalogue: the models fetch the configuration, tips, extra game list, coupons, maintenance page and router
// state through the bridge, as a client does after sign-in, and the client hands them the game, hang-up
// and replies it received. The report shows what a client would, and the entitlement table follows the
// quality levels and frame rates this game is configured with.
bool playCatalog(NBConfiguration& configuration, NimboSdkManager& bridge, const std::filesystem::path& replies,
                 const InterestsInfo& interests, MainQueue& main) {
    section("catalog");
    const std::string gameId = configuration.gameId().value_or("1234");
    NBLog& log = NBLog::sharedInstance();
    // One serial queue for the fetches, so a marker task queued after them says they are done.
    SerialQueue background("nbctl.catalog");
    GameGlobalConfig config(bridge, configuration, &MainBundle::main, log, background);
    TipsButtonInfo tips(bridge, log, background);
    ExtraGameInfo extra(bridge, background);
    CouponInfo coupons(bridge, log, background);
    MaintainPageInfo maintainPage(bridge, background);
    RouterInfo router(bridge, background);

    // Each answer is printed on the main queue, where a client would take it.
    auto answers = std::make_shared<int>(0);
    const auto answered = [&main, answers](std::string line) {
        main.async([answers, line = std::move(line)] {
            fmt::print("{}\n", line);
            ++*answers;
        });
    };
    config.queryConfig([answered](std::int32_t result) { answered(fmt::format("queryConfig: {}", result)); });
    tips.fetchTipsButtonInfo();
    tips.fetchGameTips();
    extra.fetchGameExraInfo();
    background.async([answered] { answered("fetchTipsButtonInfo, fetchGameTips, fetchGameExraInfo: done"); });
    coupons.queryCoupons(Value::dictionary({{"user_id", Value(configuration.userId().value_or(""))}}),
                         [answered](std::int32_t result) { answered(fmt::format("queryCoupons: {}", result)); });
    maintainPage.fetchConfig(
        [answered](bool valid) { answered(fmt::format("fetchConfig (maintenance page): valid {}", valid)); });
    router.reqeustAccelerateRouter(
        [answered](bool connected) { answered(fmt::format("reqeustAccelerateRouter: connected {}", connected)); });
    if (!waitOnMain(main, [&] { return *answers == 5; }, std::chrono::seconds(10))) {
        fmt::print(stderr, "nbctl: the catalogue fetches did not all answer in 10 seconds\n");
        return false;
    }

    // What the client receives itself and hands over. The local clock is set to the SDK's, the recording's
    // present, so the idle time left reads as it did then.
    const std::int64_t now = bridge.getTimeStamp();
    const ManualClock clock = ManualClock::atSecondsSince1970(static_cast<double>(now));
    GameInfo game(bridge, Localization::sharedInstance(), log);
    HangupInfo hangup(clock, log);
    const auto gameReply = EntitlementsCommand::readReply(replies / "gameInfo.json", true);
    const auto hangupReply = EntitlementsCommand::readReply(replies / "checkGameHangUpStatus.json", false);
    if (!gameReply || !hangupReply) return false;
    fmt::print("parse gameInfo.json: {}; parse checkGameHangUpStatus.json: {}; local clock set to {}\n\n",
               game.parse(*gameReply), hangup.parse(std::string(hangupReply->begin(), hangupReply->end())),
               ReportText::instant(now));

    fmt::print("{}", CatalogReport({game, config, tips, extra, hangup, coupons, maintainPage, &router}, gameId).text());

    EntitlementRows rows;
    rows.qualityLevels = config.qualityLevels(gameId);
    rows.frameRates.clear();
    for (const Value& fps : config.getSupportFps(gameId)) rows.frameRates.push_back(fps.intValue());
    fmt::print("\nEntitlements in game {}\n{}", gameId,
               EntitlementTable(interests, VipInfo::sharedInstance(), std::move(rows)).text());
    return true;
}

// Records what it is shown, as a client's image widget would draw it.
class HostImageView final : public NBImageView {
public:
    void setImageData(const Data& bytes) override {
        sizes.push_back(bytes.size());
    }
    std::vector<std::size_t> sizes;  // touched only on the main thread
};

// Images: the avatar and the popup pictures, from a local server over examples/images that stands in for
// the image host. The profile reply names the avatar; the popup reply names the pictures to prefetch.
bool playImages(NBConfiguration& configuration, NimboSdkManager& bridge, ReplaySdk& replay,
                const std::filesystem::path& replies, const std::filesystem::path& images, const Folders& folders,
                MainQueue& main, bool openFeedback) {
    section("images");
    LocalImageServer server(images);
    if (!server.listening()) {
        fmt::print(stderr, "nbctl: no port on 127.0.0.1 for the image server\n");
        return false;
    }
    // Declared after the server, so its connections close first and the server stops at once.
    URLSession::Options options;
    options.userAgent = [&bridge] { return bridge.getHttpUserAgent(); };
    URLSession session(options);
    fmt::print("image server http://127.0.0.1:{} over {}\n", server.port(), images.string());

    const auto profile = EntitlementsCommand::readReply(replies / "userInfo.json", false);
    const auto popups = EntitlementsCommand::readReply(replies / "requestPopupWindowInfo.json", false);
    if (!profile || !popups) return false;
    Value profileReply = Json::decode(*profile).value_or(Value());
    profileReply.set("figure_url", Value(server.localUrl(profileReply["figure_url"].stringValue())));
    const std::string profileText = Json::encode(profileReply).value_or("");
    UserInfo user(session);
    user.parse(Data(profileText.begin(), profileText.end()));
    if (!waitOnMain(main, [&] { return user.iconData().has_value(); }, std::chrono::seconds(10))) {
        fmt::print(stderr, "nbctl: the avatar did not arrive in 10 seconds\n");
        return false;
    }
    fmt::print("avatar of {}: {} bytes from {}\n", user.nickName().value_or("(no nickname)"), user.iconData()->size(),
               *user.figure());

    // The popup pictures, at the local server's addresses; the popups step gets the reply rewritten alike.
    std::vector<std::optional<std::string>> urls;
    const std::function<void(Value&)> localize = [&](Value& value) {
        if (const auto* dictionary = value.asDictionary()) {
            std::vector<std::string> keys;
            for (const auto& entry : *dictionary) keys.push_back(entry.first);
            for (const std::string& key : keys) {
                Value& item = *value.mutableDictionary().findMutable(key);
                if ((key == "img_url" || key == "bg_img_url") && !item.stringValue().empty()) {
                    item = Value(server.localUrl(item.stringValue()));
                    urls.push_back(item.stringValue());
                }
                localize(item);
            }
        } else if (value.isArray()) {
            for (Value& item : value.mutableArray()) localize(item);
        }
    };
    Value popupReply = Json::decode(*popups).value_or(Value());
    localize(popupReply);
    SerialQueue disk("nbctl.images");
    NBImageCache cache(session, folders, main, disk);
    cache.concurentDownloadImage(urls);
    if (!waitOnMain(main, [&] { return cache.pendingDownloadCount() == 0; }, std::chrono::seconds(10))) {
        fmt::print(stderr, "nbctl: the popup images did not arrive in 10 seconds\n");
        return false;
    }
    fmt::print("prefetched {} popup images, two at a time:\n", urls.size());
    for (const auto& url : urls) {
        const auto bytes = cache.imgByUrl(*url);
        fmt::print("  {}: {}\n", *url, bytes ? fmt::format("{} bytes", bytes->size()) : "missing");
        if (bytes) cache.saveImage(*bytes, *url);
    }
    auto saved = std::make_shared<std::atomic<bool>>(false);
    disk.async([saved] { saved->store(true); });
    if (!waitOnMain(main, [&] { return saved->load(); }, std::chrono::seconds(10))) return false;
    fmt::print("saved under {}\n", std::filesystem::path(*cache.storePathByUrl(*urls.front())).parent_path().string());

    // A popup shown twice: the second time the cached picture appears at once and the server is only asked
    // whether it changed.
    auto view = std::make_shared<HostImageView>();
    cache.updateImage(*urls.front(), view);
    if (!waitOnMain(main, [&] { return view->sizes.size() == 2; }, std::chrono::seconds(10))) {
        fmt::print(stderr, "nbctl: the refreshed popup image did not arrive in 10 seconds\n");
        return false;
    }
    fmt::print("updateImage of a prefetched picture: view set with {} bytes at once, then with {} bytes\n",
               view->sizes[0], view->sizes[1]);
    cache.updateImage(*urls.front(), view);
    if (!waitOnMain(main, [&] { return view->sizes.size() == 4; }, std::chrono::seconds(10))) return false;
    fmt::print("updateImage again: view set twice more; the server answered {} of {} requests with 304 Not Modified\n",
               server.notModifiedCount(), server.requestCount());
    return HostSupport({configuration, bridge, replay, cache, server, main}, std::move(popupReply), openFeedback).run();
}

// The SDK bridge: created from the stored identity on ReplaySdk, which answers from recorded replies;
// the library's log lines now go to the SDK's log.
bool playSdk(NBConfiguration& configuration, const std::filesystem::path& replies, const std::filesystem::path& images,
             const Folders& folders, const std::shared_ptr<const MainBundle>& bundle, MainQueue& main,
             bool openFeedback) {
    section("sdk");
    std::string error;
    if (!ReplaySdk::validateFolder(replies, &error)) {
        fmt::print(stderr, "nbctl: {}\n", error);
        return false;
    }
    auto replay = std::make_shared<ReplaySdk>(replies);
    NimboSDKInterface::setClassObject(replay);
    NBNetworkCheck network;
    NimboSdkManager bridge([replay] { return replay; }, {}, configuration, network, NBLog::sharedInstance());
    bridge.initializeSDK(nullptr, configuration.userId(), configuration.openId(), false);
    fmt::print("replies {}\n", replies.string());
    for (const ReplaySdk::Call& call : replay->calls()) {
        fmt::print("initialise: {} {}\n", call.operation, PlistText::format(call.arguments));
    }

    NBLog::sharedInstance().log(2, "reference host signed in as {}", configuration.userId().value_or(""));
    NBLog::sharedInstance().log(4, "reference host: an error line for the SDK's log");
    for (const ReplaySdk::Call& call : replay->calls("reportLog")) {
        fmt::print("log line forwarded to the SDK at level {}: {}\n", call.arguments["level"],
                   call.arguments["content"]);
    }

    bool ok = true;
    for (const char* operation : {"getTimeStamp", "getUserFullInterests"}) {
        const auto outcome = SdkCommand::play(bridge, operation);
        const std::string text = SdkCommand::describe(*outcome);
        fmt::print("{}: {}\n", operation, text.substr(0, text.find('\n')));
        ok = ok && outcome->answered && !outcome->failed;
    }
    const auto interests = ok ? playEntitlements(configuration, bridge, replies, main) : nullptr;
    ok = interests && playCatalog(configuration, bridge, replies, *interests, main) &&
         playImages(configuration, bridge, *replay, replies, images, folders, main, openFeedback) &&
         HostUpdate({configuration, bridge, folders, bundle, main}).run();
    bridge.uninitializeSDK();
    NimboSDKInterface::setClassObject(nullptr);
    printLogLines();  // the bridge had sent them to the SDK
    return ok;
}

}  // namespace

HostCommand::HostCommand(CLI::App& app, std::filesystem::path defaultReplies, std::filesystem::path defaultImages,
                         std::filesystem::path defaultPlugIns)
    : replies_(std::move(defaultReplies)), images_(std::move(defaultImages)), plugIns_(std::move(defaultPlugIns)) {
    command_ = app.add_subcommand("host", "Run the reference start-up session");
    command_->add_option("--home", home_, "Home folder to run in (default: a new temporary one)");
    command_->add_flag("--keep", keep_, "Keep the temporary home afterwards");
    command_->add_option("--replies", replies_, "Folder of recorded server replies")->capture_default_str();
    command_->add_option("--images", images_, "Folder the local image server serves")->capture_default_str();
    command_->add_option("--plugins", plugIns_, "Plug-in folder the host loads")->capture_default_str();
    command_->add_flag("--open-feedback", openFeedback_, "Open the feedback page in the default browser");
}

int HostCommand::run() const {
    std::string home = home_;
    if (home.empty()) {
        std::string pattern = (std::filesystem::temp_directory_path() / "nbctl-home-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            fmt::print(stderr, "nbctl: cannot create a temporary home in {}\n", pattern);
            return 1;
        }
        home = pattern;
    }
    printLogLines();
    fmt::print("NBBase reference host\nhome: {}\n", home);

    Folders::Environment environment;
    environment.home = home;
    const Folders folders(environment);
    const auto bundle = clientBundle(home);
    bool ok = writeDeveloperFile(std::filesystem::path(home) / NBConfiguration::kSdkConfigFileName);
    if (ok) {
        NBConfiguration configuration(
            std::make_shared<UserDefaults>(std::string(NBConfiguration::kSuiteName), folders.preferencesFolder()),
            home, [bundle] { return bundle; });
        MainQueue& main = MainQueue::sharedInstance();
        const auto events = std::make_shared<NBEventCenter>(main);
        playSettings(configuration);
        HostPlugins plugins(plugIns_, main);
        ok = plugins.start() && playSignIn(configuration, events, main) && playZone(configuration) &&
             playSdk(configuration, replies_, images_, folders, bundle, main, openFeedback_);
        plugins.stop();
    }

    NBLog::sharedInstance().setLogHandler(nullptr);
    if (home_.empty() && !keep_) {
        std::error_code ec;
        std::filesystem::remove_all(home, ec);
    }
    fmt::print("\n{}\n", ok ? "start-up finished" : "start-up failed");
    return ok ? 0 : 1;
}

}  // namespace nb::nbctl
