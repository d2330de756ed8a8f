// UpdateReport: what nbctl prints while the updater runs one check, for `nbctl update check` and the
// reference host. It is the updater's delegate (forwarding every operation to the client's own delegate,
// the update manager, when there is one) and sets the updater's hooks:
// - the alert prints the update found and answers Install when downloads are wanted, else Close;
// - progress prints once, at the end of the download;
// - the installer prints the verified package and does not install it; relaunching is only printed.
// The outcome says whether the check ended and how.
//
// Threads: construct, attach and read the outcome on the main queue's thread; the updater calls it there.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "nbbase/foundation/MainQueue.h"
#include "nbbase/updater/SUUpdater.h"

namespace nb::nbctl {

class UpdateReport final : public SUUpdaterDelegate {
public:
    enum class Outcome { Running, UpToDate, Found, Installed, Failed };

    // `client` may be null. `mandatory` answers whether the update found is mandatory (the manager knows).
    UpdateReport(std::shared_ptr<SUUpdaterDelegate> client, bool download, std::function<bool()> mandatory = {});

    // Becomes `updater`'s delegate and sets its hooks.
    static std::shared_ptr<UpdateReport> attach(SUUpdater& updater, std::shared_ptr<SUUpdaterDelegate> client,
                                                bool download, std::function<bool()> mandatory = {});

    [[nodiscard]] Outcome outcome() const { return outcome_; }
    // Runs `check`, then the main queue until the check ends (30 s at most); false when it failed or hung.
    bool runCheck(SUUpdater& updater, MainQueue& main, const std::function<void()>& check);

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

private:
    SUUpdaterHooks hooks();

    const std::shared_ptr<SUUpdaterDelegate> client_;
    const bool download_;
    const std::function<bool()> mandatory_;
    Outcome outcome_ = Outcome::Running;
};

}  // namespace nb::nbctl
