// NBUpdateManager: connects the application updater (SUUpdater) to the product's own update service. The
// SDK answers the signed-in user's update information; the manager caches it, turns it into the one feed
// item the updater sees, and answers the updater as its delegate.
//
// Update information: a dictionary with "latestversion", "downloadurl", "whatsnew", "showfeatures" and
// "forceupdate". It is cached at <caches>/<bundle identifier>/"update" as an XML property list, replaced
// atomically with each answer; at start the cached one (when the file is a property-list dictionary;
// anything else is ignored) gives updateItem(), which showFeatures() reads after an update.
//
// The feed (checkForUpdateItem, the updater's request): on the background queue the SDK is asked with the
// configuration's userId, vipFlags and supplyId (a blocking call); an answer that keeps a skipped version
// other than its "latestversion" while the update is optional forgets the skip. Then, on the main queue:
// the answer is cached, forceUpate() is set from "forceupdate" (a mandatory update forgets any skip), and
// the feed holds the converted item, unless the update is optional and the updater downloads
// automatically, in which case it stays empty. No answer (no SDK, or nil) gives an empty feed with success
// false and touches nothing.
//
// Download links follow the build's distribution channel (the main bundle's "NIMBODistributionChannel"):
// for a channel other than "", "0" and "nimbo", every occurrence of the package name (the link's last path
// component without its extension) becomes "<channel>/<package>-<channel>": on channel web,
// ".../Client_1.2.dmg" becomes ".../web/Client_1.2-web.dmg".
//
// Mandatory updates: cancelling the download, failing it, or an updater error with no check pending quits
// through the terminate hook when the update is mandatory or the updater downloads automatically; alert
// actions 2 (remind later) and 5 (close) quit when it is mandatory. Every alert action is reported as the
// statistics event 27200 + action, the alert's appearance as 27240 (through the SDK bridge).
//
// Scheduled checks follow the game: NIMBO_EVENT_GAME_STARTED turns them off (interval 0), and
// NIMBO_EVENT_GAME_FINISHED turns them on (every UPDATE_CHECK_INTERVAL seconds). A build whose
// "CFBundleShortVersionString" is "0.10.9999.0" never checks through checkForUpdatesAndInstall.
//
// Threads: every function may be called on any thread; the manager's fields are guarded by a lock, never
// held while calling out. Delegate operations arrive on the updater's main queue; loadingBlock runs there
// too. The SDK query runs on the background queue. The terminate hook runs on the thread of the delegate
// operation that decides to quit (the main queue).
//
// Lifetime: made by create() (the updater holds its delegate weakly, the event centre its listener weakly),
// so destroying the manager detaches it. Every collaborator must outlive it. sharedInstance() wires the
// process-wide updater, SDK bridge, configuration, event centre, standard defaults and main bundle; it is
// created once, thread-safely, and never destroyed.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "nbbase/core/NBConfiguration.h"
#include "nbbase/core/NBEventCenter.h"
#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/foundation/ConcurrentQueue.h"
#include "nbbase/foundation/DispatchQueue.h"
#include "nbbase/foundation/Folders.h"
#include "nbbase/foundation/MainBundle.h"
#include "nbbase/foundation/MainQueue.h"
#include "nbbase/foundation/NBLog.h"
#include "nbbase/foundation/Notification.h"
#include "nbbase/foundation/UserDefaults.h"
#include "nbbase/updater/SUUpdater.h"

namespace nb {

class NBUpdateManager final : public SUUpdaterDelegate, public std::enable_shared_from_this<NBUpdateManager> {
public:
    // found, the updater, and the item when found (nullptr otherwise).
    using LoadingBlock = std::function<void(bool found, SUUpdater& updater, Item item)>;

    struct Collaborators {
        SUUpdater& updater = SUUpdater::sharedUpdater();
        NimboSdkManager& sdkManager = NimboSdkManager::sharedInstance();
        NBConfiguration& configuration = NBConfiguration::sharedInstance();
        NBEventCenter& eventCenter = NBEventCenter::sharedInstance();
        UserDefaults& standardDefaults = UserDefaults::standardUserDefaults();
        std::shared_ptr<const MainBundle> bundle = MainBundle::main();
        std::string cachesFolder = Folders::sharedInstance().cachesFolder();
        MainQueue& mainQueue = MainQueue::sharedInstance();
        DispatchQueue& background = ConcurrentQueue::global();
        NBLog& log = NBLog::sharedInstance();
        // Quits the application. The default exits the process (status 0) once the main queue's current
        // task returns; a host with its own orderly shutdown passes that instead.
        std::function<void()> terminate;
    };

    static NBUpdateManager& sharedInstance();
    // Becomes the updater's delegate, reads the cache, and listens for game starts and ends.
    static std::shared_ptr<NBUpdateManager> create(Collaborators collaborators);
    ~NBUpdateManager() override;
    NBUpdateManager(const NBUpdateManager&) = delete;
    NBUpdateManager& operator=(const NBUpdateManager&) = delete;

    // Forgets the skipped version when the standard defaults' own file is missing (the user deleted the
    // application's preferences): the skip would otherwise outlive the settings it belongs with.
    static void checkUpgradeCache(UserDefaults& standardDefaults = UserDefaults::standardUserDefaults());

    void checkForUpdates();
    // Keeps `block` for the check's outcome, turns automatic download off and checks in the background.
    void checkForUpdatesWithBlock(LoadingBlock block);
    // Nothing when `block` is empty; on build "0.10.9999.0" answers NO at once; else as above.
    void checkForUpdatesAndInstall(LoadingBlock block);
    [[nodiscard]] bool validateMenuItem() const;
    // Nothing when unchanged; else the updater's scheduled checks on (every UPDATE_CHECK_INTERVAL seconds)
    // or off.
    void setAutomaticallyCheckForUpdates(bool value);
    [[nodiscard]] bool automaticallyCheckForUpdates() const;
    [[nodiscard]] bool forceUpate() const;
    void setForceUpate(bool value);
    // Asks the updater to show the release notes when the running version is the cached update's and that
    // update asked for it.
    void showFeatures();
    // Quits when the updater downloads automatically or the update is mandatory.
    void userCancelAction();
    void disableSkipVersion();
    [[nodiscard]] std::int32_t getUpgradeProcessId() const;
    [[nodiscard]] Item updateItem() const;
    [[nodiscard]] const std::filesystem::path& updateInfoPath() const noexcept { return updateInfoPath_; }
    // nullptr for an absent or empty dictionary (or any other kind).
    [[nodiscard]] Item covertUpdateItem(const Value& updateInfo) const;
    // The download link as the build's channel serves it.
    [[nodiscard]] static std::string channelDownloadURL(const std::string& link, const std::string& channel);

    // SUUpdaterDelegate
    const SUVersionComparison* versionComparatorForUpdater(SUUpdater& updater) override;
    void updaterDidFinishLoadingAppcast(SUUpdater& updater, const SUAppcast& appcast) override;
    void updaterDidNotFindUpdate(SUUpdater& updater) override;
    void updaterDidFindValidUpdate(SUUpdater& updater, const Item& item) override;
    void updaterWillRelaunchApplication(SUUpdater& updater) override;
    void updaterDidAbortWithError(SUUpdater& updater, const SUError& error) override;
    void userDidCancelDownload(SUUpdater& updater) override;
    void updaterFailedToDownloadUpdate(SUUpdater& updater, const Item& item, const SUError& error) override;
    void updaterUserDidSkipThisVersion(SUUpdater& updater, const Item& item) override;
    bool checkForUpdateItem(FeedCompletion completion) override;
    void doAction(std::int64_t action) override;
    void updateAlertVisbile(std::int32_t value) override;

    // Event listeners: scheduled checks on after a game, off during one.
    void onGameFinished(const Notification& notification);
    void onGameStarted(const Notification& notification);

private:
    struct Token {};

public:
    NBUpdateManager(Token, Collaborators collaborators);

private:
    void start();
    // Forgets a skip of any version but the offered one, for an optional update.
    void checkNewVersion(const Value& updateInfo);
    void answerFeed(const Value& updateInfo, const FeedCompletion& completion);
    void finishLoading(bool found, SUUpdater& updater, Item item);
    void terminate();

    Collaborators c_;
    const std::filesystem::path updateInfoPath_;

    mutable std::mutex mutex_;
    LoadingBlock loadingBlock_;             // guarded by mutex_
    Item updateItem_;                       // guarded by mutex_
    std::int32_t processId_ = 0;            // guarded by mutex_
    bool automaticallyCheckForUpdates_ = false;  // guarded by mutex_
    bool forceUpate_ = false;               // guarded by mutex_
};

}  // namespace nb
