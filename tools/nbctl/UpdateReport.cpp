#include "UpdateReport.h"

#include <chrono>

#include <fmt/format.h>

#include "HostSteps.h"
#include "nbbase/update/NBCustomizedVersionComparator.h"

namespace nb::nbctl {

UpdateReport::UpdateReport(std::shared_ptr<SUUpdaterDelegate> client, bool download, std::function<bool()> mandatory)
    : client_(std::move(client)), download_(download), mandatory_(std::move(mandatory)) {}

std::shared_ptr<UpdateReport> UpdateReport::attach(SUUpdater& updater, std::shared_ptr<SUUpdaterDelegate> client,
                                                   bool download, std::function<bool()> mandatory) {
    auto report = std::make_shared<UpdateReport>(std::move(client), download, std::move(mandatory));
    updater.setDelegate(report);
    updater.setHooks(report->hooks());
    return report;
}

bool UpdateReport::runCheck(SUUpdater& updater, MainQueue& main, const std::function<void()>& check) {
    outcome_ = Outcome::Running;
    check();
    const bool ended = waitOnMain(main, [&] { return outcome_ != Outcome::Running && !updater.updateInProgress(); },
                                  std::chrono::seconds(30));
    if (!ended) fmt::print("the update check did not end within 30 s\n");
    return ended && outcome_ != Outcome::Failed;
}

SUUpdaterHooks UpdateReport::hooks() {
    SUUpdaterHooks h;
    h.showUpdateAlert = [this](const Item& item, SUUpdaterHooks::AlertReply reply) {
        const bool mandatory = mandatory_ && mandatory_();
        fmt::print("decision: {} update to {}\n", mandatory ? "mandatory" : "optional", item->displayVersionString());
        fmt::print("download link: {}\n", item->fileURL().empty() ? "(none)" : item->fileURL());
        fmt::print("package: {}, {}\n",
                   item->contentLength() ? fmt::format("{} bytes", *item->contentLength()) : "length not stated",
                   item->edSignature() ? "signed" : "not signed");
        reply(download_ ? SUUpdateAlertAction::Install : SUUpdateAlertAction::Close);
        if (!download_) outcome_ = Outcome::Found;
        return 0;
    };
    h.upToDate = [] { fmt::print("decision: up to date\n"); };
    h.downloadProgress = [](const Item&, std::uint64_t received, std::optional<std::uint64_t> expected) {
        if (expected && received == *expected) fmt::print("downloaded {} bytes\n", received);
    };
    h.installUpdate = [this](const Item& item, const std::filesystem::path& file) {
        fmt::print("verified download: {} ({} bytes, {})\n", file.string(), std::filesystem::file_size(file),
                   item->edSignature() ? "Ed25519 signature good" : "no signature asked for");
        fmt::print("would install {} now\n", item->displayVersionString());
        outcome_ = Outcome::Installed;
        return true;
    };
    h.relaunch = [] { fmt::print("would relaunch the client\n"); };
    return h;
}

const SUVersionComparison* UpdateReport::versionComparatorForUpdater(SUUpdater& updater) {
    // Without the update manager (a feed of the user's own), versions are still the client's to order.
    return client_ ? client_->versionComparatorForUpdater(updater) : &NBCustomizedVersionComparator::defaultComparator();
}

void UpdateReport::updaterDidFinishLoadingAppcast(SUUpdater& updater, const SUAppcast& appcast) {
    fmt::print("feed: {} item{}\n", appcast.items().size(), appcast.items().size() == 1 ? "" : "s");
    if (client_) client_->updaterDidFinishLoadingAppcast(updater, appcast);
}

void UpdateReport::updaterDidNotFindUpdate(SUUpdater& updater) {
    outcome_ = Outcome::UpToDate;
    if (client_) client_->updaterDidNotFindUpdate(updater);
}

void UpdateReport::updaterDidFindValidUpdate(SUUpdater& updater, const Item& item) {
    if (client_) client_->updaterDidFindValidUpdate(updater, item);
}

void UpdateReport::updaterWillRelaunchApplication(SUUpdater& updater) {
    if (client_) client_->updaterWillRelaunchApplication(updater);
}

void UpdateReport::updaterDidAbortWithError(SUUpdater& updater, const SUError& error) {
    fmt::print("check failed: {}\n", error.localizedDescription);
    outcome_ = Outcome::Failed;
    if (client_) client_->updaterDidAbortWithError(updater, error);
}

void UpdateReport::userDidCancelDownload(SUUpdater& updater) {
    outcome_ = Outcome::Failed;
    if (client_) client_->userDidCancelDownload(updater);
}

void UpdateReport::updaterFailedToDownloadUpdate(SUUpdater& updater, const Item& item, const SUError& error) {
    fmt::print("download failed: {}\n", error.localizedDescription);
    outcome_ = Outcome::Failed;
    if (client_) client_->updaterFailedToDownloadUpdate(updater, item, error);
}

void UpdateReport::updaterUserDidSkipThisVersion(SUUpdater& updater, const Item& item) {
    if (client_) client_->updaterUserDidSkipThisVersion(updater, item);
}

bool UpdateReport::checkForUpdateItem(FeedCompletion completion) {
    return client_ && client_->checkForUpdateItem(std::move(completion));
}

void UpdateReport::doAction(std::int64_t action) {
    if (client_) client_->doAction(action);
}

void UpdateReport::updateAlertVisbile(std::int32_t value) {
    if (client_) client_->updateAlertVisbile(value);
}

}  // namespace nb::nbctl
