#include <atomic>
#include <fstream>
#include <memory>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "TempDir.h"
#include "catalog/ReplayBridge.h"
#include "nbbase/NBConstants.h"
#include "nbbase/foundation/PropertyList.h"
#include "nbbase/update/NBUpdateManager.h"

namespace {

using namespace std::chrono_literals;
using nb::NBUpdateManager;
using nb::Value;

constexpr char kBundleId[] = "org.nimbo.client.test";
constexpr char kLink[] = "https://dl.korvane-nimbo.com/mac/Nimbo_3.3.0.dmg";

Value updateInfo(const std::string& version, bool forced, bool showFeatures = true) {
    return Value::dictionary({{"latestversion", version},
                              {"downloadurl", kLink},
                              {"whatsnew", "Smoother streaming."},
                              {"showfeatures", showFeatures},
                              {"forceupdate", forced}});
}

// A manager on its own updater, SDK bridge (ReplaySdk), event centre, settings and caches, all in a temporary
// home, with a main queue driven by the test's thread and a terminate hook that only counts.
struct Rig {
    explicit Rig(std::string shortVersion = "3.2.0", std::string channel = "") {
        bundle = std::make_shared<nb::MainBundle>(
            Value::dictionary({{"CFBundleIdentifier", kBundleId},
                               {"CFBundleShortVersionString", shortVersion},
                               {"CFBundleVersion", shortVersion},
                               {"NIMBODistributionChannel", channel}}),
            home.path());
        updater = std::make_unique<nb::SUUpdater>(bundle, defaults, session, folders, main, replay.background(),
                                                  replay.log(), "12");
        manager = create();
    }
    ~Rig() {
        manager.reset();
        replay.drain();
        main.drain();
    }

    std::shared_ptr<NBUpdateManager> create() {
        return NBUpdateManager::create({.updater = *updater,
                                        .sdkManager = replay.bridge(),
                                        .configuration = replay.configuration(),
                                        .eventCenter = events,
                                        .standardDefaults = defaults,
                                        .bundle = bundle,
                                        .cachesFolder = folders.cachesFolder(),
                                        .mainQueue = main,
                                        .background = replay.background(),
                                        .log = replay.log(),
                                        .terminate = [this] { ++terminated; }});
    }

    // Runs the main queue until `done` or the patience runs out.
    bool until(const std::function<bool()>& done) { return main.runUntil(done, nb::test::kPatience); }

    // The found flag of one checkForUpdatesWithBlock, once the updater has answered.
    std::optional<bool> check() {
        auto found = std::make_shared<std::optional<bool>>();
        manager->checkForUpdatesWithBlock([found](bool f, nb::SUUpdater&, const auto&) { *found = f; });
        if (!until([&] { return found->has_value(); })) return std::nullopt;
        return *found;
    }

    std::vector<std::int64_t> reportedEvents() {
        std::vector<std::int64_t> ids;
        for (const auto& call : replay.sdk().calls("beaconCommonReport")) ids.push_back(call.arguments["eventId"].longLongValue());
        return ids;
    }

    std::optional<std::string> skipped() { return defaults.stringForKey(nb::UpgradeSkippedVersionKey); }

    nbtest::ReplayBridge replay;
    nbtest::TempDir home{"nbupdate"};
    nb::Folders folders{nb::Folders::Environment{home.path().string(), {}, {}, {}}};
    nb::MainQueue main;
    nb::NBEventCenter events{main};
    nb::UserDefaults defaults{kBundleId, home.path() / "prefs"};
    nb::URLSession session;
    std::shared_ptr<nb::MainBundle> bundle;
    std::unique_ptr<nb::SUUpdater> updater;
    std::atomic<int> terminated{0};
    std::shared_ptr<NBUpdateManager> manager;
};

TEST(NBUpdateManager, DownloadLinkFollowsTheDistributionChannel) {
    struct Case {
        const char* channel;
        const char* link;
        const char* expected;
    } cases[] = {
        {"", kLink, kLink},
        {"0", kLink, kLink},
        {"nimbo", kLink, kLink},
        {"web", kLink, "https://dl.korvane-nimbo.com/mac/web/Nimbo_3.3.0-web.dmg"},
        // Every occurrence of the package name is replaced, not only the file's.
        {"web", "https://h/Nimbo_3.3.0/Nimbo_3.3.0.dmg", "https://h/web/Nimbo_3.3.0-web/web/Nimbo_3.3.0-web.dmg"},
        // A link without a file name has nothing to rewrite beyond its last folder.
        {"web", "https://h/latest/", "https://h/web/latest-web/"},
        {"web", "", ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(NBUpdateManager::channelDownloadURL(c.link, c.channel), c.expected) << c.channel << " " << c.link;
    }

    Rig rig("3.2.0", "web");
    const auto item = rig.manager->covertUpdateItem(updateInfo("3.3.0", false));
    ASSERT_TRUE(item);
    EXPECT_EQ(item->fileURL(), "https://dl.korvane-nimbo.com/mac/web/Nimbo_3.3.0-web.dmg");
    EXPECT_EQ(item->versionString(), "3.3.0");
    EXPECT_EQ(item->title(), "3.3.0");
    EXPECT_EQ(item->itemDescription(), "Smoother streaming.");
    EXPECT_TRUE(item->showFeatures());
    for (const Value& nothing : {Value(), Value::dictionary({}), Value("3.3.0")}) {
        EXPECT_FALSE(rig.manager->covertUpdateItem(nothing));
    }
}

// What a fetched answer does to a skipped version, and whether the background check then finds the update.
TEST(NBUpdateManager, SkipHoldsOnlyForTheSkippedVersionOfAnOptionalUpdate) {
    struct Case {
        const char* skipped;
        const char* offered;
        bool forced;
        std::optional<std::string> skipAfter;
        bool found;
    } cases[] = {
        {"3.3.0", "3.4.0", false, std::nullopt, true},  // a newer version is offered: the skip is forgotten
        {"3.3.0", "3.3.0", false, "3.3.0", false},      // the skipped one again: kept, and passed over
        {"3.3.0", "3.3.0", true, std::nullopt, true},   // mandatory: the skip goes
    };
    for (const auto& c : cases) {
        Rig rig;
        ASSERT_TRUE(rig.defaults.setString(c.skipped, nb::UpgradeSkippedVersionKey));
        rig.replay.sdk().setReply("getUpdateInformation", updateInfo(c.offered, c.forced));
        EXPECT_EQ(rig.check(), c.found) << c.offered << (c.forced ? " forced" : "");
        EXPECT_EQ(rig.skipped(), c.skipAfter) << c.offered << (c.forced ? " forced" : "");
        EXPECT_EQ(rig.manager->forceUpate(), c.forced);
    }
}

TEST(NBUpdateManager, GamesTurnScheduledChecksOffAndOn) {
    Rig rig;
    rig.manager->setAutomaticallyCheckForUpdates(true);
    EXPECT_TRUE(rig.updater->automaticallyChecksForUpdates());
    EXPECT_EQ(rig.updater->updateCheckInterval(), nb::UPDATE_CHECK_INTERVAL);
    EXPECT_TRUE(rig.updater->hasScheduledCheck());

    rig.events.postEventName(nb::NIMBO_EVENT_GAME_STARTED, nullptr);
    ASSERT_TRUE(rig.until([&] { return !rig.manager->automaticallyCheckForUpdates(); }));
    EXPECT_FALSE(rig.updater->automaticallyChecksForUpdates());
    EXPECT_EQ(rig.updater->updateCheckInterval(), 0);
    EXPECT_FALSE(rig.updater->hasScheduledCheck());

    // A second start finds the flag already off and leaves the updater alone.
    rig.updater->setUpdateCheckInterval(42);
    rig.events.postEventName(nb::NIMBO_EVENT_GAME_STARTED, nullptr);
    rig.main.drain();
    EXPECT_EQ(rig.updater->updateCheckInterval(), 42);

    rig.events.postEventName(nb::NIMBO_EVENT_GAME_FINISHED, nullptr);
    ASSERT_TRUE(rig.until([&] { return rig.manager->automaticallyCheckForUpdates(); }));
    EXPECT_TRUE(rig.updater->automaticallyChecksForUpdates());
    EXPECT_EQ(rig.updater->updateCheckInterval(), nb::UPDATE_CHECK_INTERVAL);
    EXPECT_TRUE(rig.updater->hasScheduledCheck());
}

TEST(NBUpdateManager, AlertActionsAreReportedAndDeclinedMandatoryUpdatesQuit) {
    for (const bool forced : {false, true}) {
        Rig rig;
        rig.manager->setForceUpate(forced);
        for (std::int64_t action = 1; action <= 5; ++action) {
            const int before = rig.terminated;
            rig.manager->doAction(action);
            const bool quits = forced && (action == 2 || action == 5);
            EXPECT_EQ(rig.terminated - before, quits ? 1 : 0) << "action " << action << (forced ? " forced" : "");
        }
        rig.manager->updateAlertVisbile(4321);
        EXPECT_EQ(rig.manager->getUpgradeProcessId(), 4321);
        EXPECT_EQ(rig.reportedEvents(), (std::vector<std::int64_t>{27201, 27202, 27203, 27204, 27205, 27240}));
    }
}

// Cancelling or failing a download, or an updater error with no check pending, quits only when the update
// is mandatory or downloads itself.
TEST(NBUpdateManager, CancellationQuitsOnlyMandatoryOrAutomaticUpdates) {
    for (const bool forced : {false, true}) {
        for (const bool automatic : {false, true}) {
            Rig rig;
            rig.manager->setForceUpate(forced);
            rig.updater->setAutomaticallyDownloadsUpdates(automatic);
            rig.manager->userDidCancelDownload(*rig.updater);
            rig.manager->updaterFailedToDownloadUpdate(*rig.updater, nullptr, {});
            rig.manager->updaterDidAbortWithError(*rig.updater, {nb::SUError::FeedFailed, "offline"});
            EXPECT_EQ(rig.terminated, forced || automatic ? 3 : 0) << forced << automatic;
        }
    }
}

TEST(NBUpdateManager, FeedHoldsTheItemUnlessAnOptionalUpdateDownloadsItself) {
    struct Case {
        bool forced;
        bool automatic;
        std::size_t items;
    } cases[] = {{false, false, 1}, {false, true, 0}, {true, true, 1}, {true, false, 1}};
    for (const auto& c : cases) {
        Rig rig;
        rig.replay.sdk().setReply("getUpdateInformation", updateInfo("3.3.0", c.forced));
        rig.updater->setAutomaticallyDownloadsUpdates(c.automatic);
        std::optional<std::pair<bool, std::size_t>> answer;
        ASSERT_TRUE(rig.manager->checkForUpdateItem(
            [&](bool ok, nb::SUAppcast appcast) { answer.emplace(ok, appcast.items().size()); }));
        ASSERT_TRUE(rig.until([&] { return answer.has_value(); }));
        EXPECT_EQ(*answer, std::make_pair(true, c.items)) << c.forced << c.automatic;
    }
}

TEST(NBUpdateManager, CacheFileSurvivesRestartsAndBadContentIsReplaced) {
    Rig rig("3.3.0");
    const auto path = rig.manager->updateInfoPath();
    EXPECT_EQ(path, std::filesystem::path(rig.folders.cachesFolder()) / kBundleId / "update");
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path) << "not a property list";
    rig.manager = rig.create();
    EXPECT_FALSE(rig.manager->updateItem());

    // No answer leaves the cache alone and ends the pending check with NO.
    rig.replay.sdk().setFailure("getUpdateInformation", 1, 0, 0);
    EXPECT_EQ(rig.check(), false);
    EXPECT_TRUE(nb::PropertyList::readFile(path).isAbsent());

    rig.replay.sdk().reset("getUpdateInformation");
    EXPECT_EQ(rig.check(), false);  // the recorded answer offers 3.3.0, the version running
    EXPECT_EQ(nb::PropertyList::readFile(path)["latestversion"].stringValue(), "3.3.0");

    // The next start restores the item, and the release notes of the version now running are shown.
    std::vector<std::string> shown;
    nb::SUUpdaterHooks hooks;
    hooks.showFeatures = [&](const auto& item) { shown.push_back(item->versionString()); };
    rig.updater->setHooks(hooks);
    rig.manager = rig.create();
    ASSERT_TRUE(rig.manager->updateItem());
    rig.manager->showFeatures();
    ASSERT_TRUE(rig.until([&] { return !shown.empty(); }));
    EXPECT_EQ(shown, std::vector<std::string>{"3.3.0"});
}

TEST(NBUpdateManager, DeletedPreferencesFileForgetsTheSkip) {
    Rig rig;
    ASSERT_TRUE(rig.defaults.setString("3.3.0", nb::UpgradeSkippedVersionKey));
    NBUpdateManager::checkUpgradeCache(rig.defaults);
    EXPECT_EQ(rig.skipped(), "3.3.0");

    std::filesystem::remove(rig.defaults.databasePath());
    NBUpdateManager::checkUpgradeCache(rig.defaults);
    EXPECT_EQ(rig.skipped(), std::nullopt);
}

TEST(NBUpdateManager, DevelopmentBuildNeverChecks) {
    Rig rig("0.10.9999.0");
    std::optional<bool> found;
    rig.manager->checkForUpdatesAndInstall([&](bool f, nb::SUUpdater&, const auto&) { found = f; });
    EXPECT_EQ(found, false);  // at once, not through the main queue
    rig.manager->checkForUpdatesAndInstall({});
    rig.main.drain();
    EXPECT_TRUE(rig.replay.sdk().calls("getUpdateInformation").empty());
    EXPECT_TRUE(rig.updater->validateMenuItem());
}

}  // namespace
