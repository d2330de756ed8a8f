#include "UpdateCommand.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>

#include <fmt/format.h>

#include "UpdateReport.h"
#include "nbbase/common/NBNetworkCheck.h"
#include "nbbase/core/NBConfiguration.h"
#include "nbbase/core/NBEventCenter.h"
#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/foundation/Folders.h"
#include "nbbase/foundation/MainBundle.h"
#include "nbbase/foundation/MainQueue.h"
#include "nbbase/foundation/NBLog.h"
#include "nbbase/foundation/UserDefaults.h"
#include "nbbase/sdk/ReplaySdk.h"
#include "nbbase/update/NBUpdateManager.h"
#include "nbbase/updater/UpdateSigner.h"

namespace nb::nbctl {

UpdateCommand::UpdateCommand(CLI::App& app, std::filesystem::path defaultReplies) : replies_(std::move(defaultReplies)) {
    command_ = app.add_subcommand("update", "Check for application updates, and sign them");
    command_->require_subcommand(1);
    check_ = command_->add_subcommand("check", "Run one update check and say what the updater would do");
    check_->add_option("--appcast", appcast_, "Read the feed at this URL instead of asking the SDK");
    check_->add_option("--running", running_, "The running version (default: the main bundle's, else 0)");
    check_->add_flag("--download", download_, "Download and verify the update (nothing is installed)");
    check_->add_option("--replies", replies_, "Folder of recorded server replies")->capture_default_str();
    keygen_ = command_->add_subcommand("keygen", "Print a new Ed25519 key pair for signing updates");
    sign_ = command_->add_subcommand("sign", "Print a package's signature and length for the feed");
    sign_->add_option("--key", keyFile_, "File holding the base64 private key")->required();
    sign_->add_option("package", package_, "The package to sign")->required();
}

int UpdateCommand::run() const {
    if (keygen_->parsed()) return keygen();
    if (sign_->parsed()) return sign();
    return check();
}

int UpdateCommand::keygen() const {
    const auto pair = UpdateSigner::generateKeyPair();
    if (!pair) {
        std::fprintf(stderr, "nbctl: no key pair could be made\n");
        return 1;
    }
    fmt::print("private key (keep secret): {}\npublic key (SUPublicEDKey): {}\n", pair->base64PrivateKey,
               pair->base64PublicKey);
    return 0;
}

int UpdateCommand::sign() const {
    std::ifstream in(keyFile_);
    std::string key((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    while (!key.empty() && (key.back() == '\n' || key.back() == '\r' || key.back() == ' ')) key.pop_back();
    const UpdateSigner signer(key);
    if (!in || !signer.valid()) {
        std::fprintf(stderr, "nbctl: %s: %s\n", keyFile_.c_str(), in ? signer.error().c_str() : "cannot be read");
        return 1;
    }
    std::string error;
    const auto signature = signer.signFile(package_, &error);
    if (!signature) {
        std::fprintf(stderr, "nbctl: %s\n", error.c_str());
        return 1;
    }
    fmt::print("sparkle:edSignature=\"{}\" length=\"{}\"\n", *signature, std::filesystem::file_size(package_));
    return 0;
}

int UpdateCommand::check() const {
    NBLog::sharedInstance().setLogHandler(
        [](std::int32_t level, const std::string& text) { std::fprintf(stderr, "[log %d] %s\n", level, text.c_str()); });
    const auto main = MainBundle::main();
    Value info = main->infoDictionary();
    std::string running = running_;
    if (running.empty()) running = !main->bundleVersion().empty() ? main->bundleVersion() : main->shortVersionString();
    if (running.empty()) running = "0";
    info.set("CFBundleVersion", Value(running));
    info.set("CFBundleShortVersionString", Value(running));
    const auto bundle = std::make_shared<const MainBundle>(std::move(info), main->bundlePath());
    fmt::print("running version: {}\n", running);

    const Folders folders = Folders::fromProcessEnvironment();
    MainQueue& mainQueue = MainQueue::sharedInstance();
    UserDefaults& defaults = UserDefaults::standardUserDefaults();
    SUUpdater updater(bundle, defaults, URLSession::shared(), folders, mainQueue);
    int status = 0;
    if (!appcast_.empty()) {
        updater.setFeedURL(appcast_);
        auto report = UpdateReport::attach(updater, nullptr, download_);
        status = report->runCheck(updater, mainQueue, [&] { updater.checkForUpdates(); }) ? 0 : 1;
    } else {
        NBConfiguration configuration(
            std::make_shared<UserDefaults>(std::string(NBConfiguration::kSuiteName), folders.preferencesFolder()),
            folders.homeFolder(), [bundle] { return bundle; });
        auto replay = std::make_shared<ReplaySdk>(replies_);
        NBNetworkCheck network;
        NimboSdkManager bridge([replay] { return replay; }, {}, configuration, network, NBLog::sharedInstance());
        bridge.initializeSDK(nullptr);
        NBEventCenter events(mainQueue);
        auto manager = NBUpdateManager::create({.updater = updater,
                                                .sdkManager = bridge,
                                                .configuration = configuration,
                                                .eventCenter = events,
                                                .standardDefaults = defaults,
                                                .bundle = bundle,
                                                .cachesFolder = folders.cachesFolder(),
                                                .mainQueue = mainQueue,
                                                .background = ConcurrentQueue::global(),
                                                .log = NBLog::sharedInstance(),
                                                .terminate = [] { fmt::print("would quit the client\n"); }});
        auto report = UpdateReport::attach(updater, manager, download_, [manager] { return manager->forceUpate(); });
        status = report->runCheck(updater, mainQueue, [&] { updater.checkForUpdates(); }) ? 0 : 1;
        bridge.uninitializeSDK();
    }
    NBLog::sharedInstance().setLogHandler(nullptr);
    return status;
}

}  // namespace nb::nbctl
