#include "nbbase/update/NBUpdateManager.h"

#include <cstdlib>
#include <utility>

#include "nbbase/NBConstants.h"
#include "nbbase/foundation/AtomicFile.h"
#include "nbbase/foundation/PropertyList.h"
#include "nbbase/update/NBCustomizedVersionComparator.h"

namespace nb {

namespace {

constexpr char kLatestVersion[] = "latestversion";
constexpr char kDownloadUrl[] = "downloadurl";
constexpr char kWhatsNew[] = "whatsnew";
constexpr char kShowFeatures[] = "showfeatures";
constexpr char kForceUpdate[] = "forceupdate";
constexpr char kChannelKey[] = "NIMBODistributionChannel";
constexpr char kNeverCheckedVersion[] = "0.10.9999.0";
constexpr std::int32_t kAlertActionEventBase = 27200;
constexpr std::int32_t kAlertVisibleEvent = 27240;

std::string text(const Value& value) { return value.textValue().value_or(""); }

// The package name of a link: its last path component without the extension, as path-string functions
// read a link (a query, if any, is part of that component and goes with the extension).
std::string packageName(const std::string& link) {
    std::string_view path = link;
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    std::string_view last = path.substr(path.find_last_of('/') + 1);
    if (const auto dot = last.find_last_of('.'); dot != std::string_view::npos && dot > 0) last = last.substr(0, dot);
    return std::string(last);
}

}  // namespace

NBUpdateManager& NBUpdateManager::sharedInstance() {
    static NBUpdateManager* const instance = [] {
        // Kept alive for the process: the updater and the event centre only hold it weakly.
        static const std::shared_ptr<NBUpdateManager> owner = create(Collaborators{});
        return owner.get();
    }();
    return *instance;
}

std::shared_ptr<NBUpdateManager> NBUpdateManager::create(Collaborators collaborators) {
    auto manager = std::make_shared<NBUpdateManager>(Token{}, std::move(collaborators));
    manager->start();
    return manager;
}

NBUpdateManager::NBUpdateManager(Token, Collaborators collaborators)
    : c_(std::move(collaborators)),
      updateInfoPath_(c_.cachesFolder.empty() ? std::filesystem::path()
                                              : std::filesystem::path(c_.cachesFolder) /
                                                    c_.bundle->bundleIdentifier() / "update") {}

NBUpdateManager::~NBUpdateManager() { c_.eventCenter.removeListener(this); }

void NBUpdateManager::start() {
    c_.updater.setDelegate(weak_from_this());
    if (!updateInfoPath_.empty()) {
        const Value cached = PropertyList::readFile(updateInfoPath_);
        auto item = covertUpdateItem(cached);
        std::lock_guard lock(mutex_);
        updateItem_ = std::move(item);
    }
    const auto self = shared_from_this();
    c_.eventCenter.addEventListener(self, &NBUpdateManager::onGameFinished, std::string(NIMBO_EVENT_GAME_FINISHED),
                                    nullptr);
    c_.eventCenter.addEventListener(self, &NBUpdateManager::onGameStarted, std::string(NIMBO_EVENT_GAME_STARTED),
                                    nullptr);
}

void NBUpdateManager::checkUpgradeCache(UserDefaults& standardDefaults) {
    std::error_code error;
    if (!std::filesystem::exists(standardDefaults.databasePath(), error) && !error) {
        (void)standardDefaults.removeObjectForKey(UpgradeSkippedVersionKey);
    }
}

void NBUpdateManager::checkForUpdates() { c_.updater.checkForUpdates(); }

void NBUpdateManager::checkForUpdatesWithBlock(LoadingBlock block) {
    {
        std::lock_guard lock(mutex_);
        loadingBlock_ = std::move(block);
    }
    c_.updater.setAutomaticallyDownloadsUpdates(false);
    c_.updater.checkForUpdatesInBackground();
}

void NBUpdateManager::checkForUpdatesAndInstall(LoadingBlock block) {
    if (!block) return;
    if (c_.bundle->shortVersionString() == kNeverCheckedVersion) {
        block(false, c_.updater, nullptr);
        return;
    }
    checkForUpdatesWithBlock(std::move(block));
}

bool NBUpdateManager::validateMenuItem() const { return c_.updater.validateMenuItem(); }

void NBUpdateManager::setAutomaticallyCheckForUpdates(bool value) {
    {
        std::lock_guard lock(mutex_);
        if (automaticallyCheckForUpdates_ == value) return;
        automaticallyCheckForUpdates_ = value;
    }
    c_.updater.setAutomaticallyChecksForUpdates(value);
    c_.updater.setUpdateCheckInterval(value ? UPDATE_CHECK_INTERVAL : 0);
}

bool NBUpdateManager::automaticallyCheckForUpdates() const {
    std::lock_guard lock(mutex_);
    return automaticallyCheckForUpdates_;
}

bool NBUpdateManager::forceUpate() const {
    std::lock_guard lock(mutex_);
    return forceUpate_;
}

void NBUpdateManager::setForceUpate(bool value) {
    std::lock_guard lock(mutex_);
    forceUpate_ = value;
}

void NBUpdateManager::showFeatures() {
    const Item item = updateItem();
    if (item && c_.bundle->shortVersionString() == item->versionString() && item->showFeatures()) {
        c_.updater.showFeatures(item);
    }
}

void NBUpdateManager::userCancelAction() {
    if (c_.updater.automaticallyDownloadsUpdates() || forceUpate()) terminate();
}

void NBUpdateManager::disableSkipVersion() {
    if (c_.standardDefaults.stringForKey(UpgradeSkippedVersionKey)) {
        (void)c_.standardDefaults.removeObjectForKey(UpgradeSkippedVersionKey);
    }
}

std::int32_t NBUpdateManager::getUpgradeProcessId() const {
    std::lock_guard lock(mutex_);
    return processId_;
}

SUUpdaterDelegate::Item NBUpdateManager::updateItem() const {
    std::lock_guard lock(mutex_);
    return updateItem_;
}

std::string NBUpdateManager::channelDownloadURL(const std::string& link, const std::string& channel) {
    if (channel.empty() || channel == "0" || channel == "nimbo") return link;
    const std::string package = packageName(link);
    if (package.empty()) return link;
    const std::string replacement = channel + "/" + package + "-" + channel;
    std::string out;
    std::size_t from = 0;
    for (std::size_t at; (at = link.find(package, from)) != std::string::npos; from = at + package.size()) {
        out.append(link, from, at - from).append(replacement);
    }
    return out.append(link, from);
}

SUUpdaterDelegate::Item NBUpdateManager::covertUpdateItem(const Value& updateInfo) const {
    if (const auto* dictionary = updateInfo.asDictionary(); dictionary == nullptr || dictionary->empty()) return nullptr;
    const std::string version = text(updateInfo[kLatestVersion]);
    const std::string channel = text(c_.bundle->objectForInfoDictionaryKey(kChannelKey));
    const std::string link = channelDownloadURL(text(updateInfo[kDownloadUrl]), channel);
    c_.log.log(2, "channel {} download url : {}", channel, link);

    Value::Dictionary enclosure;
    enclosure.set("url", Value(link));
    enclosure.set("sparkle:version", Value(version));
    Value::Dictionary item;
    item.set("description", updateInfo[kWhatsNew]);
    item.set("title", Value(version));
    item.set("enclosure", Value(std::move(enclosure)));
    item.set(kShowFeatures, updateInfo[kShowFeatures]);
    return SUAppcastItem::initWithDictionary(Value(std::move(item)));
}

// ---- the updater's delegate

const SUVersionComparison* NBUpdateManager::versionComparatorForUpdater(SUUpdater&) {
    return &NBCustomizedVersionComparator::defaultComparator();
}

void NBUpdateManager::updaterDidFinishLoadingAppcast(SUUpdater&, const SUAppcast&) {}

void NBUpdateManager::finishLoading(bool found, SUUpdater& updater, Item item) {
    LoadingBlock block;
    {
        std::lock_guard lock(mutex_);
        block = std::exchange(loadingBlock_, nullptr);
    }
    if (!block) return;
    block(found, updater, std::move(item));
    c_.updater.setAutomaticallyDownloadsUpdates(false);
}

void NBUpdateManager::updaterDidNotFindUpdate(SUUpdater& updater) { finishLoading(false, updater, nullptr); }

void NBUpdateManager::updaterDidFindValidUpdate(SUUpdater& updater, const Item& item) {
    finishLoading(true, updater, item);
}

void NBUpdateManager::updaterWillRelaunchApplication(SUUpdater&) {}

void NBUpdateManager::updaterDidAbortWithError(SUUpdater& updater, const SUError& error) {
    c_.log.log(4, "update error : {}", error.localizedDescription);
    bool pending = false;
    {
        std::lock_guard lock(mutex_);
        pending = static_cast<bool>(loadingBlock_);
    }
    if (pending) {
        finishLoading(false, updater, nullptr);
    } else {
        userCancelAction();
    }
}

void NBUpdateManager::userDidCancelDownload(SUUpdater&) { userCancelAction(); }

void NBUpdateManager::updaterFailedToDownloadUpdate(SUUpdater&, const Item&, const SUError&) { userCancelAction(); }

void NBUpdateManager::updaterUserDidSkipThisVersion(SUUpdater&, const Item&) {
    c_.log.log(2, "update userDidSkipThisVersion");
    if (forceUpate()) disableSkipVersion();
    setAutomaticallyCheckForUpdates(true);
}

bool NBUpdateManager::checkForUpdateItem(FeedCompletion completion) {
    const auto sdk = c_.sdkManager.sdkInstance();
    const auto userId = c_.configuration.userId();
    const auto vipFlags = c_.configuration.vipFlags();
    const auto supplyId = c_.configuration.supplyId();
    c_.background.async([weak = weak_from_this(), sdk, userId, vipFlags, supplyId,
                         completion = std::move(completion)]() mutable {
        Value answer;
        if (sdk) answer = sdk->getUpdateInformation(userId, vipFlags, supplyId);
        const auto self = weak.lock();
        if (!self) return;
        const bool answered = !answer.isAbsent() && !answer.isNull();
        if (answered) self->checkNewVersion(answer);
        self->c_.log.log(1, "updateInfo : {}", answer);
        self->c_.mainQueue.async([weak, answer = answered ? std::move(answer) : Value(),
                                  completion = std::move(completion)] {
            if (const auto manager = weak.lock()) manager->answerFeed(answer, completion);
        });
    });
    return true;
}

void NBUpdateManager::answerFeed(const Value& updateInfo, const FeedCompletion& completion) {
    SUAppcast appcast;
    const bool answered = !updateInfo.isAbsent();
    if (answered) {
        if (const auto bytes = PropertyList::write(updateInfo, PropertyList::Format::Xml);
            bytes && !updateInfoPath_.empty() && Folders::createFolder(updateInfoPath_.parent_path().string(), 0700)) {
            if (const auto error = AtomicFile::write(
                    updateInfoPath_, {reinterpret_cast<const char*>(bytes->data()), bytes->size()})) {
                c_.log.log(4, "update information not cached: {}", *error);
            }
        }
        const bool mandatory = updateInfo[kForceUpdate].boolValue();
        setForceUpate(mandatory);
        if (mandatory) disableSkipVersion();
        if (mandatory || !c_.updater.automaticallyDownloadsUpdates()) {
            auto item = covertUpdateItem(updateInfo);
            {
                std::lock_guard lock(mutex_);
                updateItem_ = item;
            }
            if (item) appcast.setItems({std::move(item)});
        }
    }
    completion(answered, std::move(appcast));
}

void NBUpdateManager::checkNewVersion(const Value& updateInfo) {
    if (updateInfo.isAbsent() || updateInfo[kForceUpdate].boolValue()) return;
    const auto skipped = c_.standardDefaults.stringForKey(UpgradeSkippedVersionKey);
    if (skipped && *skipped != text(updateInfo[kLatestVersion])) {
        (void)c_.standardDefaults.removeObjectForKey(UpgradeSkippedVersionKey);
    }
}

void NBUpdateManager::doAction(std::int64_t action) {
    c_.log.log(2, "update doAction:{}", action);
    c_.sdkManager.beaconCommonReport(static_cast<std::int32_t>(kAlertActionEventBase + action), 0, "", "");
    if (forceUpate() && (action == 2 || action == 5)) terminate();
}

void NBUpdateManager::updateAlertVisbile(std::int32_t value) {
    {
        std::lock_guard lock(mutex_);
        processId_ = value;
    }
    c_.sdkManager.beaconCommonReport(kAlertVisibleEvent, 0, "", "");
}

void NBUpdateManager::onGameFinished(const Notification&) { setAutomaticallyCheckForUpdates(true); }

void NBUpdateManager::onGameStarted(const Notification&) { setAutomaticallyCheckForUpdates(false); }

void NBUpdateManager::terminate() {
    c_.log.log(2, "update: quitting the application");
    if (c_.terminate) {
        c_.terminate();
        return;
    }
    c_.mainQueue.async([] { std::exit(EXIT_SUCCESS); });
}

}  // namespace nb
