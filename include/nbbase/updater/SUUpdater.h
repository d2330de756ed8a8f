// SUUpdater: the application updater. It finds out whether a newer version is published, asks the user
// through the host, downloads the package, checks that it is the one the publisher signed, and hands it
// to the host's installer. It draws nothing and installs nothing itself: the alert, the progress display,
// the installation and the relaunch are host hooks (SUUpdaterHooks).
//
// A check, step by step (everything runs on the main queue given to the constructor):
// 1. The feed. A delegate whose checkForUpdateItem() answers true supplies it through that call's
//    completion (from any thread). Otherwise the feed is the appcast at feedURL() (setFeedURL(), else the
//    main bundle's information key "SUFeedURL"), fetched with the URL session and read by SUAppcast. No
//    feed at all, a fetch that fails, a feed that is not an appcast, or a completion answering false end
//    the check with updaterDidAbortWithError().
// 2. The choice. updaterDidFinishLoadingAppcast(), then the newest item by the delegate's comparator
//    (versionComparatorForUpdater(); the constructor's when it answers none, and without either the
//    check ends with updaterDidAbortWithError(), NoComparator) among those
//    whose minimum and maximum system versions admit systemVersion() (an item naming none, or an unknown
//    system version, is admitted). It is an update when it is newer than the running version: the main
//    bundle's "CFBundleVersion", else its "CFBundleShortVersionString". A background or scheduled check
//    passes over the version stored under "SUSkippedVersion" in the standard defaults; a check the user
//    asked for (checkForUpdates) does not. No update: updaterDidNotFindUpdate() and hooks.upToDate for a
//    check the user asked for.
// 3. An update: updaterDidFindValidUpdate(). A background check while automaticallyDownloadsUpdates() is
//    on downloads and installs without asking. Otherwise hooks.showUpdateAlert shows the alert; what it
//    answers (an alert process id, 0 when the alert is in-process) goes to updateAlertVisbile(). Each
//    choice the user makes there comes back through the reply the hook was given and goes to doAction()
//    (SUUpdateAlertAction numbers) before the updater acts on it: Install downloads, Skip stores the
//    version under "SUSkippedVersion" and calls updaterUserDidSkipThisVersion(), RemindLater and Close
//    end the check. Without an alert hook the check ends after updaterDidFindValidUpdate().
// 4. The download, into the caches folder: <caches>/<bundle identifier>/Updates/, first as a ".part" file
//    named after the link's hash, with hooks.downloadProgress told the totals. A transfer that is cut
//    resumes with a range request, up to kDownloadAttempts transfers in all; a later check of the same
//    link resumes what an earlier one left. cancelDownload() stops waiting for it (userDidCancelDownload()).
//    A download that fails for good calls updaterFailedToDownloadUpdate().
// 5. The checks, on the background queue: the file must be complete (the transfer succeeded), match the
//    item's contentLength when the item states one, and, when the main bundle names a public key under
//    "SUPublicEDKey", carry the item's edSignature made by that key (SUSignatureVerifier). A refused file
//    is deleted, the refusal is logged at level 4 ("update refused: ...") and reported through
//    updaterFailedToDownloadUpdate(). Without a configured key an unsigned file is accepted, with a
//    level-2 line saying it was not verified. Only then is the file renamed to the link's file name in
//    the same folder and given to hooks.installUpdate; nothing a failed or cut download leaves carries
//    that name. When the installer answers true, updaterWillRelaunchApplication() and hooks.relaunch.
//
// Only one check runs at a time; a check asked for while one runs is ignored (logged at level 2).
//
// Scheduled checks: while automaticallyChecksForUpdates() is on and updateCheckInterval() is positive, a
// background check runs every interval, on a timer that either setter restarts or cancels. Settings live in
// this object (the client sets them at every start).
//
// Threads: every public function may be called on any thread; what it starts runs on the main queue.
// Delegate operations and hooks are called on the main queue, one at a time, never under a lock of the
// updater's. The completion given to checkForUpdateItem may be called on any thread; only its first call
// counts. The reply given to showUpdateAlert may be called on any thread, once per choice; choices that no
// longer apply (anything after Skip, RemindLater or Close; anything but CancelDownload after Install)
// are ignored.
//
// Lifetime: destroy an updater on the main queue's thread (or once its main queue no longer runs). The
// delegate is held weakly (a destroyed delegate is simply not called). Work in flight holds the updater's
// state weakly: after destruction, late completions do nothing, and the scheduled check is cancelled.
// The main queue, the background queue, the URL session, the standard defaults and the log must outlive
// the updater. sharedUpdater() is created once, thread-safely, and never destroyed.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "nbbase/common/NBDeviceInfo.h"
#include "nbbase/common/URLSession.h"
#include "nbbase/foundation/ConcurrentQueue.h"
#include "nbbase/foundation/DispatchQueue.h"
#include "nbbase/foundation/Folders.h"
#include "nbbase/foundation/MainBundle.h"
#include "nbbase/foundation/MainQueue.h"
#include "nbbase/foundation/NBLog.h"
#include "nbbase/foundation/UserDefaults.h"
#include "nbbase/updater/SUAppcast.h"
#include "nbbase/updater/SUAppcastItem.h"
#include "nbbase/updater/SUVersionComparison.h"

namespace nb {

class SUUpdater;

// The choices of the update alert, as doAction() receives them.
enum class SUUpdateAlertAction : std::int64_t {
    Install = 1,
    RemindLater = 2,
    Skip = 3,
    CancelDownload = 4,  // the user stopped the download the alert started
    Close = 5,           // the alert was closed without a choice
};

struct SUError {
    enum Code : std::int64_t {
        NoFeed = 1,          // neither the delegate nor a feed URL supplies the feed
        FeedFailed = 2,      // the feed could not be fetched or read
        DownloadFailed = 3,  // the package could not be downloaded
        Refused = 4,         // the package is not complete, not of the stated length, or not signed by the key
        InstallFailed = 5,   // the installer hook refused the package
        NoComparator = 6,    // neither the delegate nor the constructor supplies a version comparator
    };
    std::int64_t code = 0;
    std::string localizedDescription;
};

// Every operation is optional: the defaults do nothing (and checkForUpdateItem answers false).
class SUUpdaterDelegate {
public:
    using Item = std::shared_ptr<const SUAppcastItem>;
    // success false: no feed could be had (the check aborts).
    using FeedCompletion = std::function<void(bool success, SUAppcast appcast)>;

    virtual ~SUUpdaterDelegate() = default;

    // nullptr: the comparator given to the updater's constructor. The answer must outlive the check.
    virtual const SUVersionComparison* versionComparatorForUpdater(SUUpdater& updater);
    virtual void updaterDidFinishLoadingAppcast(SUUpdater& updater, const SUAppcast& appcast);
    virtual void updaterDidNotFindUpdate(SUUpdater& updater);
    virtual void updaterDidFindValidUpdate(SUUpdater& updater, const Item& item);
    virtual void updaterWillRelaunchApplication(SUUpdater& updater);
    virtual void updaterDidAbortWithError(SUUpdater& updater, const SUError& error);
    virtual void userDidCancelDownload(SUUpdater& updater);
    virtual void updaterFailedToDownloadUpdate(SUUpdater& updater, const Item& item, const SUError& error);
    virtual void updaterUserDidSkipThisVersion(SUUpdater& updater, const Item& item);
    // True when this delegate supplies the feed: it then calls `completion` exactly once, on any thread.
    virtual bool checkForUpdateItem(FeedCompletion completion);
    // A choice made in the update alert (SUUpdateAlertAction), before the updater acts on it.
    virtual void doAction(std::int64_t action);
    // The update alert became visible; `value` is what hooks.showUpdateAlert answered.
    virtual void updateAlertVisbile(std::int32_t value);

protected:
    SUUpdaterDelegate() = default;
    SUUpdaterDelegate(const SUUpdaterDelegate&) = default;
    SUUpdaterDelegate& operator=(const SUUpdaterDelegate&) = default;
};

// What the host does for the updater. Every hook is optional; all run on the main queue.
struct SUUpdaterHooks {
    using Item = std::shared_ptr<const SUAppcastItem>;
    using AlertReply = std::function<void(SUUpdateAlertAction action)>;

    // Shows the update alert for `item` (mandatory or not is the delegate's business) and answers the
    // alert's process id, or 0. `reply` may be kept and called for each choice; after Install, the
    // alert may still answer CancelDownload while the download runs.
    std::function<std::int32_t(const Item& item, AlertReply reply)> showUpdateAlert;
    // A check the user asked for found nothing newer.
    std::function<void()> upToDate;
    // Totals for the package file, resumed bytes included; `expected` when the server said.
    std::function<void(const Item& item, std::uint64_t received, std::optional<std::uint64_t> expected)>
        downloadProgress;
    // Installs the verified package at `file`; true when the application should now relaunch.
    std::function<bool(const Item& item, const std::filesystem::path& file)> installUpdate;
    std::function<void()> relaunch;
    // Shows the release notes of an installed update (SUUpdater::showFeatures).
    std::function<void(const Item& item)> showFeatures;
};

class SUUpdater {
public:
    using Item = std::shared_ptr<const SUAppcastItem>;

    static constexpr int kDownloadAttempts = 3;

    static SUUpdater& sharedUpdater();

    // `bundle` answers identity, versions and the information keys at each check; nullptr reads
    // MainBundle::main() each time. `systemVersion` is the running system's version for the items'
    // system-version bounds; "" is unknown. `comparator` orders versions when the delegate answers no
    // comparator of its own (the client's is NBCustomizedVersionComparator::defaultComparator()); it must
    // outlive the updater. The process-wide updater has none: its delegate, the update manager, answers one.
    explicit SUUpdater(std::shared_ptr<const MainBundle> bundle = nullptr,
                       UserDefaults& standardDefaults = UserDefaults::standardUserDefaults(),
                       URLSession& session = URLSession::shared(), const Folders& folders = Folders::sharedInstance(),
                       MainQueue& mainQueue = MainQueue::sharedInstance(),
                       DispatchQueue& background = ConcurrentQueue::global(), NBLog& log = NBLog::sharedInstance(),
                       std::string systemVersion = NBDeviceInfo::systemVersionNumber(),
                       const SUVersionComparison* comparator = nullptr);
    ~SUUpdater();
    SUUpdater(const SUUpdater&) = delete;
    SUUpdater& operator=(const SUUpdater&) = delete;

    void setDelegate(std::weak_ptr<SUUpdaterDelegate> delegate);
    void setHooks(SUUpdaterHooks hooks);

    // A check the user asked for (the sender is ignored; kept for the menu's action).
    void checkForUpdates();
    void checkForUpdatesInBackground();
    // True while no check runs: the "Check for Updates…" menu item may be enabled.
    [[nodiscard]] bool validateMenuItem() const;
    [[nodiscard]] bool updateInProgress() const;

    [[nodiscard]] bool automaticallyChecksForUpdates() const;
    void setAutomaticallyChecksForUpdates(bool value);
    // Seconds; 0 or less schedules nothing.
    [[nodiscard]] double updateCheckInterval() const;
    void setUpdateCheckInterval(double seconds);
    [[nodiscard]] bool automaticallyDownloadsUpdates() const;
    void setAutomaticallyDownloadsUpdates(bool value);
    // True while a scheduled check is waiting for its time.
    [[nodiscard]] bool hasScheduledCheck() const;

    // "" when neither set nor named by the bundle.
    [[nodiscard]] std::string feedURL() const;
    void setFeedURL(std::string url);

    // Stops waiting for the download in progress: userDidCancelDownload(), and the check ends.
    void cancelDownload();
    // Asks the host to show `item`'s release notes (hooks.showFeatures).
    void showFeatures(Item item);

    // The folder packages are downloaded to ("" when the caches folder is unknown).
    [[nodiscard]] std::filesystem::path downloadFolder() const;

    struct Core;

private:
    const std::shared_ptr<Core> core_;
};

}  // namespace nb
