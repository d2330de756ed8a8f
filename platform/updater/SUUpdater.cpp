#include "nbbase/updater/SUUpdater.h"

#include <openssl/evp.h>

#include <atomic>
#include <mutex>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "nbbase/NBConstants.h"
#include "nbbase/foundation/Url.h"
#include "nbbase/updater/SUSignatureVerifier.h"

namespace nb {

// The delegate's defaults: an updater without a delegate, or with one that cares about little, behaves
// as if these answered.
const SUVersionComparison* SUUpdaterDelegate::versionComparatorForUpdater(SUUpdater&) { return nullptr; }
void SUUpdaterDelegate::updaterDidFinishLoadingAppcast(SUUpdater&, const SUAppcast&) {}
void SUUpdaterDelegate::updaterDidNotFindUpdate(SUUpdater&) {}
void SUUpdaterDelegate::updaterDidFindValidUpdate(SUUpdater&, const Item&) {}
void SUUpdaterDelegate::updaterWillRelaunchApplication(SUUpdater&) {}
void SUUpdaterDelegate::updaterDidAbortWithError(SUUpdater&, const SUError&) {}
void SUUpdaterDelegate::userDidCancelDownload(SUUpdater&) {}
void SUUpdaterDelegate::updaterFailedToDownloadUpdate(SUUpdater&, const Item&, const SUError&) {}
void SUUpdaterDelegate::updaterUserDidSkipThisVersion(SUUpdater&, const Item&) {}
bool SUUpdaterDelegate::checkForUpdateItem(FeedCompletion) { return false; }
void SUUpdaterDelegate::doAction(std::int64_t) {}
void SUUpdaterDelegate::updateAlertVisbile(std::int32_t) {}

namespace {

constexpr char kFeedUrlKey[] = "SUFeedURL";
constexpr char kPublicKeyKey[] = "SUPublicEDKey";
constexpr char kDownloadsFolder[] = "Updates";

std::string infoText(const MainBundle& bundle, std::string_view key) {
    return bundle.objectForInfoDictionaryKey(key).textValue().value_or("");
}

// The first 16 hex digits of the link's SHA-256: a stable name for its partial download, so that a later
// check of the same link resumes it and another link never appends to it.
std::string linkHash(const std::string& link) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(link.data(), link.size(), digest, &length, EVP_sha256(), nullptr) != 1) return "update";
    std::string hex;
    for (unsigned int i = 0; i < 8 && i < length; ++i) hex += fmt::format("{:02x}", digest[i]);
    return hex;
}

// The file name the installer gets: the link's last path component, or "update" when that is empty or
// could be taken for a hidden or relative name.
std::string packageFileName(const std::string& link) {
    const auto url = Url::parse(link);
    const std::string path = url ? url->path() : std::string();
    std::string name = path.substr(path.find_last_of('/') + 1);
    if (name.empty() || name.front() == '.') return "update";
    return name;
}

}  // namespace

// One check, from its start to its end. Main-queue only.
struct Check {
    enum class Stage { Feed, Alert, Download, Verify, Done };
    std::uint64_t id = 0;
    bool interactive = false;
    Stage stage = Stage::Feed;
    SUUpdater::Item item;
    int attempts = 0;
    std::filesystem::path partFile;
    std::filesystem::path packageFile;
};

struct SUUpdater::Core : std::enable_shared_from_this<SUUpdater::Core> {
    Core(std::shared_ptr<const MainBundle> bundle, UserDefaults& defaults, URLSession& session, const Folders& folders,
         MainQueue& mainQueue, DispatchQueue& background, NBLog& log, std::string systemVersion,
         const SUVersionComparison* comparator)
        : fixedBundle(std::move(bundle)),
          defaults(defaults),
          session(session),
          cachesFolder(folders.cachesFolder()),
          mainQueue(mainQueue),
          background(background),
          log(log),
          systemVersion(std::move(systemVersion)),
          comparator(comparator) {}

    const std::shared_ptr<const MainBundle> fixedBundle;
    UserDefaults& defaults;
    URLSession& session;
    const std::string cachesFolder;
    MainQueue& mainQueue;
    DispatchQueue& background;
    NBLog& log;
    const std::string systemVersion;
    const SUVersionComparison* const comparator;

    // Set by the owner's constructor, cleared by its destructor; both on the main thread, so a main-queue
    // task that sees it set may use it to the end.
    SUUpdater* owner = nullptr;

    mutable std::mutex mutex;
    std::weak_ptr<SUUpdaterDelegate> delegate;  // guarded by mutex
    SUUpdaterHooks hooks;                        // guarded by mutex
    bool automaticChecks = false;                // guarded by mutex
    double interval = 0;                         // guarded by mutex
    bool automaticDownloads = false;             // guarded by mutex
    std::string feedUrl;                         // guarded by mutex
    Cancellable timer;                           // guarded by mutex
    std::atomic<bool> busy{false};

    std::shared_ptr<Check> check;  // main queue only
    std::uint64_t nextCheckId = 1; // main queue only

    std::shared_ptr<const MainBundle> bundle() const { return fixedBundle ? fixedBundle : MainBundle::main(); }

    std::filesystem::path downloadFolder() const {
        if (cachesFolder.empty()) return {};
        const auto b = bundle();
        std::string identifier = b->bundleIdentifier();
        if (identifier.empty()) identifier = b->executableName();
        return std::filesystem::path(cachesFolder) / identifier / kDownloadsFolder;
    }

    SUUpdaterHooks currentHooks() const {
        std::lock_guard lock(mutex);
        return hooks;
    }

    // Posts `task` to the main queue, run only while this state and its owner live.
    template <typename F>
    void onMain(F&& task) {
        mainQueue.async([weak = weak_from_this(), task = std::forward<F>(task)]() mutable {
            if (auto self = weak.lock(); self && self->owner != nullptr) task(*self);
        });
    }

    // Calls `f(delegate, updater)` when the delegate lives. Main queue only.
    template <typename F>
    void tellDelegate(F&& f) {
        std::shared_ptr<SUUpdaterDelegate> d;
        {
            std::lock_guard lock(mutex);
            d = delegate.lock();
        }
        if (d && owner != nullptr) f(*d, *owner);
    }

    // Whether `c` is still the check in progress. Delegate operations and hooks may end it (cancelling, or
    // destroying the updater), so this is asked again after each of them.
    bool current(const std::shared_ptr<Check>& c) const {
        return owner != nullptr && c && check == c && c->stage != Check::Stage::Done;
    }

    void finish() {
        if (check) check->stage = Check::Stage::Done;
        check.reset();
        busy.store(false);
    }

    void abort(SUError error) {
        log.log(2, "update check ended: {}", error.localizedDescription);
        finish();
        tellDelegate([&](SUUpdaterDelegate& d, SUUpdater& u) { d.updaterDidAbortWithError(u, error); });
    }

    // ---- 1. the feed

    void start(bool interactive) {
        if (check) {
            log.log(2, "update check already in progress");
            return;
        }
        check = std::make_shared<Check>();
        check->id = nextCheckId++;
        check->interactive = interactive;
        busy.store(true);
        const auto c = check;

        auto delivered = std::make_shared<std::atomic<bool>>(false);
        SUUpdaterDelegate::FeedCompletion completion = [weak = weak_from_this(), c, delivered](bool ok,
                                                                                               SUAppcast appcast) {
            if (delivered->exchange(true)) return;
            if (auto self = weak.lock()) {
                self->onMain([c, ok, appcast = std::move(appcast)](Core& core) { core.onFeed(c, ok, appcast); });
            }
        };
        bool delegateSupplies = false;
        tellDelegate([&](SUUpdaterDelegate& d, SUUpdater&) { delegateSupplies = d.checkForUpdateItem(completion); });
        if (delegateSupplies) return;

        std::string url;
        {
            std::lock_guard lock(mutex);
            url = feedUrl;
        }
        if (url.empty()) url = infoText(*bundle(), kFeedUrlKey);
        if (url.empty()) {
            abort({SUError::NoFeed, "no update feed: the delegate supplies none and no feed URL is set"});
            return;
        }
        session.dataTask({url, {}}, [weak = weak_from_this(), c, url](URLSession::Response response) {
            auto self = weak.lock();
            if (!self) return;
            self->onMain([c, url, response = std::move(response)](Core& core) {
                if (!core.current(c)) return;
                if (!response.succeeded()) {
                    core.abort({SUError::FeedFailed, fmt::format("the feed {} could not be fetched: {}", url,
                                                                 response.error)});
                    return;
                }
                std::string error;
                const std::string_view xml(reinterpret_cast<const char*>(response.body.data()), response.body.size());
                auto appcast = SUAppcast::parseAppcastData(xml, &error);
                if (!appcast) {
                    core.abort({SUError::FeedFailed, fmt::format("the feed {} is not an appcast: {}", url, error)});
                    return;
                }
                core.onFeed(c, true, std::move(*appcast));
            });
        });
    }

    // ---- 2. the choice

    void onFeed(const std::shared_ptr<Check>& c, bool ok, const SUAppcast& appcast) {
        if (!current(c)) return;
        if (!ok) {
            abort({SUError::FeedFailed, "the update information could not be fetched"});
            return;
        }
        tellDelegate([&](SUUpdaterDelegate& d, SUUpdater& u) { d.updaterDidFinishLoadingAppcast(u, appcast); });
        if (!current(c)) return;

        const SUVersionComparison* chosen = nullptr;
        tellDelegate([&](SUUpdaterDelegate& d, SUUpdater& u) { chosen = d.versionComparatorForUpdater(u); });
        if (chosen == nullptr) chosen = comparator;
        if (chosen == nullptr) {
            abort({SUError::NoComparator, "no version comparator: neither the delegate nor the updater has one"});
            return;
        }

        Item best;
        for (const auto& item : appcast.items()) {
            if (!item || !admitsThisSystem(*item, *chosen)) continue;
            if (!best || chosen->compareVersion(item->versionString(), best->versionString()) > 0) best = item;
        }
        const auto b = bundle();
        std::string running = b->bundleVersion();
        if (running.empty()) running = b->shortVersionString();
        const auto skipped = defaults.stringForKey(UpgradeSkippedVersionKey);
        const bool newer = best && chosen->compareVersion(best->versionString(), running) > 0;
        const bool passedOver = newer && !c->interactive && skipped == best->versionString();
        if (!newer || passedOver) {
            if (passedOver) log.log(2, "update {} skipped by the user", best->versionString());
            const bool tellUser = c->interactive;
            finish();
            tellDelegate([](SUUpdaterDelegate& d, SUUpdater& u) { d.updaterDidNotFindUpdate(u); });
            if (auto hook = currentHooks().upToDate; tellUser && hook) hook();
            return;
        }
        c->item = best;
        tellDelegate([&](SUUpdaterDelegate& d, SUUpdater& u) { d.updaterDidFindValidUpdate(u, best); });
        if (!current(c)) return;
        bool silent = false;
        {
            std::lock_guard lock(mutex);
            silent = !c->interactive && automaticDownloads;
        }
        if (silent) {
            startDownload(c);
        } else {
            showAlert(c);
        }
    }

    bool admitsThisSystem(const SUAppcastItem& item, const SUVersionComparison& order) const {
        if (systemVersion.empty()) return true;
        if (const auto& minimum = item.minimumSystemVersion();
            minimum && !minimum->empty() && order.compareVersion(systemVersion, *minimum) < 0) {
            return false;
        }
        if (const auto& maximum = item.maximumSystemVersion();
            maximum && !maximum->empty() && order.compareVersion(systemVersion, *maximum) > 0) {
            return false;
        }
        return true;
    }

    // ---- 3. the alert

    void showAlert(const std::shared_ptr<Check>& c) {
        const auto hook = currentHooks().showUpdateAlert;
        if (!hook) {
            log.log(2, "update {} found; no alert to show it", c->item->versionString());
            finish();
            return;
        }
        c->stage = Check::Stage::Alert;
        SUUpdaterHooks::AlertReply reply = [weak = weak_from_this(), c](SUUpdateAlertAction action) {
            if (auto self = weak.lock()) self->onMain([c, action](Core& core) { core.onAlertAction(c, action); });
        };
        const std::int32_t value = hook(c->item, std::move(reply));
        if (!current(c)) return;
        tellDelegate([&](SUUpdaterDelegate& d, SUUpdater&) { d.updateAlertVisbile(value); });
    }

    void onAlertAction(const std::shared_ptr<Check>& c, SUUpdateAlertAction action) {
        if (!current(c)) return;
        const bool downloading = c->stage == Check::Stage::Download || c->stage == Check::Stage::Verify;
        const bool applies = c->stage == Check::Stage::Alert ? action != SUUpdateAlertAction::CancelDownload
                                                             : downloading && action == SUUpdateAlertAction::CancelDownload;
        if (!applies) return;
        tellDelegate([&](SUUpdaterDelegate& d, SUUpdater&) { d.doAction(static_cast<std::int64_t>(action)); });
        if (!current(c)) return;
        switch (action) {
            case SUUpdateAlertAction::Install:
                startDownload(c);
                break;
            case SUUpdateAlertAction::Skip: {
                const Item item = c->item;
                (void)defaults.setString(item->versionString(), UpgradeSkippedVersionKey);
                finish();
                tellDelegate([&](SUUpdaterDelegate& d, SUUpdater& u) { d.updaterUserDidSkipThisVersion(u, item); });
                break;
            }
            case SUUpdateAlertAction::CancelDownload:
                cancelDownload();
                break;
            case SUUpdateAlertAction::RemindLater:
            case SUUpdateAlertAction::Close:
                finish();
                break;
        }
    }

    // ---- 4. the download

    void startDownload(const std::shared_ptr<Check>& c) {
        const Item item = c->item;
        const std::filesystem::path folder = downloadFolder();
        if (item->fileURL().empty() || folder.empty() || !Folders::createFolder(folder.string(), 0700)) {
            failDownload(c, {SUError::DownloadFailed, item->fileURL().empty()
                                                          ? "the update names no download link"
                                                          : "no folder to download the update to"});
            return;
        }
        c->stage = Check::Stage::Download;
        c->partFile = folder / (linkHash(item->fileURL()) + ".part");
        c->packageFile = folder / packageFileName(item->fileURL());
        transfer(c);
    }

    void transfer(const std::shared_ptr<Check>& c) {
        ++c->attempts;
        const Item item = c->item;
        URLSession::DownloadRequest request;
        request.url = item->fileURL();
        request.destination = c->partFile;
        request.maxBytes = item->contentLength();
        auto progress = [weak = weak_from_this(), c](std::uint64_t received, std::optional<std::uint64_t> expected) {
            auto self = weak.lock();
            if (!self) return;
            self->onMain([c, received, expected](Core& core) {
                if (!core.current(c) || c->stage != Check::Stage::Download) return;
                if (auto hook = core.currentHooks().downloadProgress) hook(c->item, received, expected);
            });
        };
        session.downloadTask(std::move(request), std::move(progress),
                             [weak = weak_from_this(), c](URLSession::Response response) {
                                 auto self = weak.lock();
                                 if (!self) return;
                                 self->onMain([c, response = std::move(response)](Core& core) {
                                     core.onDownloaded(c, response);
                                 });
                             });
    }

    void onDownloaded(const std::shared_ptr<Check>& c, const URLSession::Response& response) {
        if (!current(c) || c->stage != Check::Stage::Download) return;
        if (!response.succeeded()) {
            // The session keeps what arrived of a cut transfer, so the next one asks only for the rest.
            std::error_code ignored;
            const bool keptSomething = std::filesystem::file_size(c->partFile, ignored) > 0 && !ignored;
            if (keptSomething && c->attempts < kDownloadAttempts) {
                log.log(2, "update download interrupted ({}); resuming", response.error);
                transfer(c);
                return;
            }
            failDownload(c, {SUError::DownloadFailed, "the update could not be downloaded: " + response.error});
            return;
        }
        c->stage = Check::Stage::Verify;
        const std::string key = infoText(*bundle(), kPublicKeyKey);
        background.async([weak = weak_from_this(), c, key] {
            std::optional<std::string> refusal = verify(*c->item, c->partFile, key);
            std::error_code ignored;
            if (refusal) {
                std::filesystem::remove(c->partFile, ignored);
            } else {
                std::filesystem::rename(c->partFile, c->packageFile, ignored);
                if (ignored) refusal = "cannot move the package into place: " + ignored.message();
            }
            if (auto self = weak.lock()) {
                self->onMain([c, refusal](Core& core) { core.onVerified(c, refusal); });
            }
        });
    }

    // nullopt when the file may be installed; otherwise why not. Any thread.
    static std::optional<std::string> verify(const SUAppcastItem& item, const std::filesystem::path& file,
                                             const std::string& key) {
        std::error_code error;
        const std::uint64_t size = std::filesystem::file_size(file, error);
        if (error) return "cannot read the download: " + error.message();
        if (const auto length = item.contentLength(); length && *length != size) {
            return fmt::format("the download is {} bytes, the update states {}", size, *length);
        }
        if (key.empty()) return std::nullopt;
        const SUSignatureVerifier verifier(key);
        if (!verifier.valid()) return "the configured public key is unusable: " + verifier.error();
        if (!item.edSignature() || item.edSignature()->empty()) return std::string("the update is not signed");
        std::string reason;
        if (!verifier.verifyFile(file, *item.edSignature(), &reason)) return reason;
        return std::nullopt;
    }

    void onVerified(const std::shared_ptr<Check>& c, const std::optional<std::string>& refusal) {
        if (!current(c)) return;
        if (refusal) {
            log.log(4, "update refused: {}", *refusal);
            failDownload(c, {SUError::Refused, "update refused: " + *refusal});
            return;
        }
        if (infoText(*bundle(), kPublicKeyKey).empty()) {
            log.log(2, "update {} downloaded unverified: no public key is configured", c->item->versionString());
        }
        const Item item = c->item;
        const std::filesystem::path file = c->packageFile;
        const auto hooks = currentHooks();
        finish();
        if (!hooks.installUpdate) {
            log.log(2, "update {} downloaded to {}; no installer to hand it to", item->versionString(), file.string());
            return;
        }
        if (!hooks.installUpdate(item, file)) {
            tellDelegate([](SUUpdaterDelegate& d, SUUpdater& u) {
                d.updaterDidAbortWithError(u, {SUError::InstallFailed, "the update could not be installed"});
            });
            return;
        }
        tellDelegate([](SUUpdaterDelegate& d, SUUpdater& u) { d.updaterWillRelaunchApplication(u); });
        if (hooks.relaunch) hooks.relaunch();
    }

    void failDownload(const std::shared_ptr<Check>& c, const SUError& error) {
        const Item item = c->item;
        finish();
        tellDelegate([&](SUUpdaterDelegate& d, SUUpdater& u) { d.updaterFailedToDownloadUpdate(u, item, error); });
    }

    void cancelDownload() {
        if (!check || (check->stage != Check::Stage::Download && check->stage != Check::Stage::Verify)) return;
        finish();
        tellDelegate([](SUUpdaterDelegate& d, SUUpdater& u) { d.userDidCancelDownload(u); });
    }

    // ---- scheduled checks

    // Restarts the timer from the current settings. Callers hold `mutex`.
    void rescheduleLocked() {
        timer.cancel();
        timer = Cancellable();
        if (!automaticChecks || !(interval > 0)) return;
        const auto delay = std::chrono::duration_cast<DispatchQueue::Duration>(std::chrono::duration<double>(interval));
        timer = mainQueue.asyncAfter(delay, [weak = weak_from_this()] {
            auto self = weak.lock();
            if (!self || self->owner == nullptr) return;
            {
                std::lock_guard lock(self->mutex);
                self->rescheduleLocked();
            }
            self->start(false);
        });
    }
};

SUUpdater& SUUpdater::sharedUpdater() {
    static SUUpdater* const instance = new SUUpdater();
    return *instance;
}

SUUpdater::SUUpdater(std::shared_ptr<const MainBundle> bundle, UserDefaults& standardDefaults, URLSession& session,
                     const Folders& folders, MainQueue& mainQueue, DispatchQueue& background, NBLog& log,
                     std::string systemVersion, const SUVersionComparison* comparator)
    : core_(std::make_shared<Core>(std::move(bundle), standardDefaults, session, folders, mainQueue, background, log,
                                   std::move(systemVersion), comparator)) {
    core_->owner = this;
}

SUUpdater::~SUUpdater() {
    core_->owner = nullptr;
    std::lock_guard lock(core_->mutex);
    core_->timer.cancel();
}

void SUUpdater::setDelegate(std::weak_ptr<SUUpdaterDelegate> delegate) {
    std::lock_guard lock(core_->mutex);
    core_->delegate = std::move(delegate);
}

void SUUpdater::setHooks(SUUpdaterHooks hooks) {
    std::lock_guard lock(core_->mutex);
    core_->hooks = std::move(hooks);
}

void SUUpdater::checkForUpdates() {
    core_->onMain([](Core& core) { core.start(true); });
}

void SUUpdater::checkForUpdatesInBackground() {
    core_->onMain([](Core& core) { core.start(false); });
}

bool SUUpdater::validateMenuItem() const { return !core_->busy.load(); }
bool SUUpdater::updateInProgress() const { return core_->busy.load(); }

bool SUUpdater::automaticallyChecksForUpdates() const {
    std::lock_guard lock(core_->mutex);
    return core_->automaticChecks;
}

void SUUpdater::setAutomaticallyChecksForUpdates(bool value) {
    std::lock_guard lock(core_->mutex);
    if (core_->automaticChecks == value) return;
    core_->automaticChecks = value;
    core_->rescheduleLocked();
}

double SUUpdater::updateCheckInterval() const {
    std::lock_guard lock(core_->mutex);
    return core_->interval;
}

void SUUpdater::setUpdateCheckInterval(double seconds) {
    std::lock_guard lock(core_->mutex);
    if (core_->interval == seconds) return;
    core_->interval = seconds;
    core_->rescheduleLocked();
}

bool SUUpdater::automaticallyDownloadsUpdates() const {
    std::lock_guard lock(core_->mutex);
    return core_->automaticDownloads;
}

void SUUpdater::setAutomaticallyDownloadsUpdates(bool value) {
    std::lock_guard lock(core_->mutex);
    core_->automaticDownloads = value;
}

bool SUUpdater::hasScheduledCheck() const {
    std::lock_guard lock(core_->mutex);
    return core_->timer.status() == Cancellable::Status::Pending;
}

std::string SUUpdater::feedURL() const {
    {
        std::lock_guard lock(core_->mutex);
        if (!core_->feedUrl.empty()) return core_->feedUrl;
    }
    return infoText(*core_->bundle(), kFeedUrlKey);
}

void SUUpdater::setFeedURL(std::string url) {
    std::lock_guard lock(core_->mutex);
    core_->feedUrl = std::move(url);
}

void SUUpdater::cancelDownload() {
    core_->onMain([](Core& core) { core.cancelDownload(); });
}

void SUUpdater::showFeatures(Item item) {
    if (!item) return;
    core_->onMain([item = std::move(item)](Core& core) {
        if (auto hook = core.currentHooks().showFeatures) hook(item);
    });
}

std::filesystem::path SUUpdater::downloadFolder() const { return core_->downloadFolder(); }

}  // namespace nb
