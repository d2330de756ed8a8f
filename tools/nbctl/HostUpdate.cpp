#include "HostUpdate.h"

#include <fstream>

#include <fmt/format.h>

#include "HostSteps.h"
#include "LocalImageServer.h"
#include "UpdateReport.h"
#include "nbbase/core/NBEventCenter.h"
#include "nbbase/foundation/NBLog.h"
#include "nbbase/foundation/Url.h"
#include "nbbase/foundation/UserDefaults.h"
#include "nbbase/update/NBUpdateManager.h"
#include "nbbase/updater/UpdateSigner.h"

namespace nb::nbctl {

namespace {

constexpr std::size_t kPackageBytes = 4u << 20;

bool writeFile(const std::filesystem::path& path, const std::string& bytes) {
    std::error_code ignored;
    std::filesystem::create_directories(path.parent_path(), ignored);
    std::ofstream out(path, std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(out);
}

std::string feed(const std::string& version, const std::string& url, std::size_t length, const std::string& signature) {
    return fmt::format(R"(<?xml version="1.0" encoding="utf-8"?>
<rss version="2.0" xmlns:sparkle="urn:nimbo:updates">
  <channel>
    <title>Nimbo for desktop</title>
    <item>
      <title>Nimbo {0}</title>
      <enclosure url="{1}" length="{2}" type="application/octet-stream"
                 sparkle:version="{0}" sparkle:shortVersionString="{0}" sparkle:edSignature="{3}"/>
    </item>
  </channel>
</rss>
)",
                       version, url, length, signature);
}

}  // namespace

bool HostUpdate::run() const {
    section("update");
    const auto keys = UpdateSigner::generateKeyPair();
    if (!keys) {
        fmt::print("no Ed25519 key pair could be made\n");
        return false;
    }
    Value info = parts_.bundle->infoDictionary();
    info.set("SUPublicEDKey", Value(keys->base64PublicKey));
    const auto bundle = std::make_shared<const MainBundle>(std::move(info), parts_.bundle->bundlePath());
    UserDefaults defaults(bundle->bundleIdentifier(), parts_.folders.preferencesFolder());
    NBUpdateManager::checkUpgradeCache(defaults);
    SUUpdater updater(bundle, defaults, URLSession::shared(), parts_.folders, parts_.main);
    NBEventCenter events(parts_.main);
    const auto manager = NBUpdateManager::create({.updater = updater,
                                                  .sdkManager = parts_.bridge,
                                                  .configuration = parts_.configuration,
                                                  .eventCenter = events,
                                                  .standardDefaults = defaults,
                                                  .bundle = bundle,
                                                  .cachesFolder = parts_.folders.cachesFolder(),
                                                  .mainQueue = parts_.main,
                                                  .background = ConcurrentQueue::global(),
                                                  .log = NBLog::sharedInstance(),
                                                  .terminate = [] { fmt::print("would quit the client\n"); }});

    // 1. The client's check, on the recorded update information.
    fmt::print("running version {}, channel {}\n", bundle->shortVersionString(),
               bundle->objectForInfoDictionaryKey("NIMBODistributionChannel"));
    std::optional<bool> found;
    SUUpdaterDelegate::Item item;
    manager->checkForUpdatesAndInstall([&](bool f, SUUpdater&, SUUpdaterDelegate::Item i) {
        found = f;
        item = std::move(i);
    });
    if (!waitOnMain(parts_.main, [&] { return found.has_value() && !updater.updateInProgress(); },
                    std::chrono::seconds(10))) {
        fmt::print("the update check did not end\n");
        return false;
    }
    if (!*found || !item) {
        fmt::print("decision: up to date\n");
        return false;  // the recording offers 3.3.0 to a client running 3.2.0
    }
    fmt::print("decision: {} update to {}\n", manager->forceUpate() ? "mandatory" : "optional", item->versionString());
    fmt::print("download link: {}\n", item->fileURL());
    fmt::print("update information cached at {}\n", manager->updateInfoPath().string());

    // 2. The publisher's side: the package at the link's path, signed, with a feed, served locally.
    const std::filesystem::path publish = std::filesystem::path(parts_.folders.homeFolder()) / "publish";
    const auto link = Url::parse(item->fileURL());
    std::string package(kPackageBytes, '\0');
    for (std::size_t i = 0; i < package.size(); ++i) package[i] = static_cast<char>((i * 131) >> 7);
    std::string tampered = package;
    tampered[kPackageBytes / 2] ^= 1;
    const UpdateSigner signer(keys->base64PrivateKey);
    const auto signature = signer.signData(package);
    LocalImageServer server(publish);
    const std::string localLink = server.localUrl(item->fileURL());
    if (!link || !signature || !server.listening() ||
        !writeFile(publish / std::filesystem::path(link->path()).relative_path(), package) ||
        !writeFile(publish / "tampered" / "package.dmg", tampered) ||
        !writeFile(publish / "appcast.xml", feed(item->versionString(), localLink, package.size(), *signature)) ||
        !writeFile(publish / "tampered.xml",
                   feed(item->versionString(), server.localUrl("https://dl.korvane-nimbo.com/tampered/package.dmg"),
                        tampered.size(), *signature))) {
        fmt::print("the update could not be published locally\n");
        return false;
    }
    fmt::print("published {} ({} bytes, signed; SUPublicEDKey {})\n", localLink, package.size(), keys->base64PublicKey);

    const auto report = UpdateReport::attach(updater, nullptr, true);
    updater.setFeedURL(server.localUrl("https://dl.korvane-nimbo.com/appcast.xml"));
    const bool verified = report->runCheck(updater, parts_.main, [&] { updater.checkForUpdates(); }) &&
                          report->outcome() == UpdateReport::Outcome::Installed;
    fmt::print("a tampered copy:\n");
    updater.setFeedURL(server.localUrl("https://dl.korvane-nimbo.com/tampered.xml"));
    const bool refused = !report->runCheck(updater, parts_.main, [&] { updater.checkForUpdates(); });
    return verified && refused;
}

}  // namespace nb::nbctl
