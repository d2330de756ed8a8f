#include "HostCommand.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <system_error>

#include <fmt/format.h>

#include "ConfigCommand.h"
#include "EntitlementTable.h"
#include "EntitlementsCommand.h"
#include "PlistText.h"
#include "SdkCommand.h"
#include "nbbase/NBConstants.h"
#include "nbbase/common/NBLog.h"
#include "nbbase/common/NBNetworkCheck.h"
#include "nbbase/core/NBConfiguration.h"
#include "nbbase/core/NBEventCenter.h"
#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/entitlements/InterestsInfo.h"
#include "nbbase/entitlements/VipInfo.h"
#include "nbbase/foundation/ConcurrentQueue.h"
#include "nbbase/foundation/Folders.h"
#include "nbbase/foundation/MainBundle.h"
#include "nbbase/foundation/SerialQueue.h"
#include "nbbase/foundation/MainQueue.h"
#include "nbbase/foundation/PropertyList.h"
#include "nbbase/foundation/UserDefaults.h"
#include "nbbase/sdk/ReplaySdk.h"

namespace nb::nbctl {

namespace {

void section(const char* title) { fmt::print("\n== {} ==\n", title); }

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

// Entitlements: the interests store on the host's bridge fetches the interests as a client does after
// sign-in, and the table shows what the user may use. The VIP reply comes from the client (no SDK request
// delivers it) and decides the level the trial flags are computed for, so it is parsed first.
bool playEntitlements(NBConfiguration& configuration, NimboSdkManager& bridge, const std::filesystem::path& replies,
                      MainQueue& main) {
    section("entitlements");
    const auto vipReply = EntitlementsCommand::readReply(replies / "vipInfo.json", false);
    if (!vipReply) return false;
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
        return false;
    }
    if (**result != 0) {
        fmt::print(stderr, "nbctl: fetching the interests failed ({})\n", **result);
        return false;
    }
    const auto levels = interests->stableInterestDict();
    if (!levels || levels->empty()) {
        fmt::print(stderr, "nbctl: the base interests (user-property reply) did not arrive\n");
        return false;
    }
    fmt::print("fetchInterests for games [1234]: result 0, passed to the main queue; base interests of {} levels\n\n",
               interests->stableInterestDict()->size());
    fmt::print("{}", EntitlementTable(*interests, vip).text());
    return true;
}

// The SDK bridge: created from the stored identity on ReplaySdk, which answers from recorded replies;
// the library's log lines now go to the SDK's log.
bool playSdk(NBConfiguration& configuration, const std::filesystem::path& replies, MainQueue& main) {
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
    ok = ok && playEntitlements(configuration, bridge, replies, main);
    bridge.uninitializeSDK();
    NimboSDKInterface::setClassObject(nullptr);
    NBLog::sharedInstance().setLogHandler(nullptr);
    return ok;
}

}  // namespace

HostCommand::HostCommand(CLI::App& app, std::filesystem::path defaultReplies) : replies_(std::move(defaultReplies)) {
    command_ = app.add_subcommand("host", "Run the reference start-up session");
    command_->add_option("--home", home_, "Home folder to run in (default: a new temporary one)");
    command_->add_flag("--keep", keep_, "Keep the temporary home afterwards");
    command_->add_option("--replies", replies_, "Folder of recorded server replies")->capture_default_str();
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
    NBLog::sharedInstance().setLogHandler([](std::int32_t level, const std::string& text) {
        fmt::print("[log {}] {}\n", level, text);
    });
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
        ok = playSignIn(configuration, events, main) && playSdk(configuration, replies_, main);
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
