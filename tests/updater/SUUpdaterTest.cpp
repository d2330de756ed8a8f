// The updater engine against a real HTTP server on 127.0.0.1: feeds, the choice of an update, the alert's
// choices, downloads that resume, and packages refused before they reach the installer.
#include <fmt/format.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "HttpTestServer.h"
#include "TempDir.h"
#include "catalog/ReplayBridge.h"
#include "nbbase/NBConstants.h"
#include "nbbase/foundation/SerialQueue.h"
#include "nbbase/update/NBCustomizedVersionComparator.h"
#include "nbbase/updater/SUUpdater.h"
#include "nbbase/updater/UpdateSigner.h"

namespace {

using nb::SUUpdateAlertAction;
using nb::SUUpdater;
using nb::Value;
using Mode = nbtest::HttpTestServer::Mode;

constexpr char kBundleId[] = "org.nimbo.client.test";

// Records what the updater tells its delegate, as short lines.
class RecordingDelegate final : public nb::SUUpdaterDelegate {
public:
    std::vector<std::string> events;
    std::vector<std::int64_t> actions;
    std::optional<nb::SUAppcast> feed;  // when set, the delegate supplies this feed
    int feedRequests = 0;

    void updaterDidNotFindUpdate(SUUpdater&) override { events.push_back("not found"); }
    void updaterDidFindValidUpdate(SUUpdater&, const Item& item) override {
        events.push_back("found " + item->versionString());
    }
    void updaterDidAbortWithError(SUUpdater&, const nb::SUError& error) override {
        events.push_back(fmt::format("abort {}", error.code));
    }
    void updaterFailedToDownloadUpdate(SUUpdater&, const Item&, const nb::SUError& error) override {
        events.push_back(fmt::format("download failed {}", error.code));
    }
    void userDidCancelDownload(SUUpdater&) override { events.push_back("cancelled"); }
    void updaterUserDidSkipThisVersion(SUUpdater&, const Item& item) override {
        events.push_back("skipped " + item->versionString());
    }
    void updaterWillRelaunchApplication(SUUpdater&) override { events.push_back("relaunch"); }
    void doAction(std::int64_t action) override { actions.push_back(action); }
    bool checkForUpdateItem(FeedCompletion completion) override {
        ++feedRequests;
        if (!feed) return false;
        completion(true, *feed);
        return true;
    }
};

struct Package {
    std::string bytes;
    std::optional<std::uint64_t> length;
    std::optional<std::string> signature;
};

std::string appcastXml(const std::string& url, const Package& package, const std::string& version = "3.3.0") {
    std::string enclosure = fmt::format(R"(url="{}" sparkle:version="{}")", url, version);
    if (package.length) enclosure += fmt::format(R"( length="{}")", *package.length);
    if (package.signature) enclosure += fmt::format(R"( sparkle:edSignature="{}")", *package.signature);
    return fmt::format(R"(<?xml version="1.0" encoding="utf-8"?>
<rss version="2.0" xmlns:sparkle="urn:test:updates">
  <channel><title>Nimbo</title>
    <item><title>Older</title><enclosure url="{}/old.dmg" sparkle:version="3.1.0" length="1"/></item>
    <item><title>{}</title><enclosure {} type="application/octet-stream"/></item>
  </channel>
</rss>)",
                       url, version, enclosure);
}

// An updater on a temporary home, a main queue driven by the test's thread, and a local server.
struct Rig {
    explicit Rig(std::optional<std::string> publicKey = std::nullopt) {
        Value::Dictionary info{{"CFBundleIdentifier", kBundleId}, {"CFBundleVersion", "3.2.0"}};
        if (publicKey) info.set("SUPublicEDKey", Value(*publicKey));
        bundle = std::make_shared<nb::MainBundle>(Value(std::move(info)), home.path());
        updater = std::make_unique<SUUpdater>(bundle, defaults, session, folders, main, background, replay.log(), "12",
                                              &nb::NBCustomizedVersionComparator::defaultComparator());
        updater->setDelegate(delegate);
        nb::SUUpdaterHooks hooks;
        hooks.showUpdateAlert = [this](const SUUpdater::Item& item, nb::SUUpdaterHooks::AlertReply reply) {
            alerts.push_back(item->versionString());
            if (answer) reply(*answer);
            return 77;
        };
        hooks.installUpdate = [this](const SUUpdater::Item&, const std::filesystem::path& file) {
            installed = file;
            return true;
        };
        hooks.relaunch = [this] { ++relaunches; };
        updater->setHooks(hooks);
    }
    ~Rig() {
        updater.reset();
        nbtest::drain(background);
    }

    bool until(const std::function<bool()>& done) { return main.runUntil(done, nb::test::kPatience); }
    // Runs one check to its end.
    bool check(bool interactive) {
        if (interactive) updater->checkForUpdates(); else updater->checkForUpdatesInBackground();
        main.drain();
        return until([&] { return !updater->updateInProgress(); });
    }
    std::vector<std::string> leftovers() {
        std::vector<std::string> names;
        std::error_code ignored;
        for (const auto& entry : std::filesystem::directory_iterator(updater->downloadFolder(), ignored)) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }

    nbtest::HttpTestServer server;
    nbtest::ReplayBridge replay;  // for its log
    nbtest::TempDir home{"nbupdater"};
    nb::Folders folders{nb::Folders::Environment{home.path().string(), {}, {}, {}}};
    nb::MainQueue main;
    nb::SerialQueue background{"nbtest.updater"};
    nb::UserDefaults defaults{kBundleId, home.path() / "prefs"};
    nb::URLSession session;
    std::shared_ptr<nb::MainBundle> bundle;
    std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
    std::unique_ptr<SUUpdater> updater;
    std::optional<SUUpdateAlertAction> answer = SUUpdateAlertAction::Install;
    std::vector<std::string> alerts;
    std::optional<std::filesystem::path> installed;
    int relaunches = 0;
};

std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Only a complete package of the stated length, signed by the configured key, reaches the installer; any
// other is deleted and reported, and nothing is left under the name the installer takes.
TEST(SUUpdater, InstallsOnlyCompleteSignedPackages) {
    const auto publisher = nb::UpdateSigner::generateKeyPair().value();
    const auto stranger = nb::UpdateSigner::generateKeyPair().value();
    const nb::UpdateSigner signer(publisher.base64PrivateKey);
    const std::string bytes(200'000, 'p');
    const std::string signature = signer.signData(bytes).value();
    const std::uint64_t size = bytes.size();

    struct Case {
        const char* name;
        std::optional<std::string> key;  // in the bundle
        std::string served;
        Package feed;
        bool installs;
    } cases[] = {
        {"signed", publisher.base64PublicKey, bytes, {bytes, size, signature}, true},
        {"tampered", publisher.base64PublicKey, std::string(bytes).replace(1000, 1, "q"), {bytes, size, signature}, false},
        {"wrong length", publisher.base64PublicKey, bytes, {bytes, size + 1, signature}, false},
        {"wrong key", stranger.base64PublicKey, bytes, {bytes, size, signature}, false},
        {"unsigned", publisher.base64PublicKey, bytes, {bytes, size, std::nullopt}, false},
        {"no key configured", std::nullopt, bytes, {bytes, std::nullopt, std::nullopt}, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Rig rig(c.key);
        rig.server.serve("/Nimbo_3.3.0.dmg", c.served);
        rig.server.serve("/appcast.xml", appcastXml(rig.server.url("/Nimbo_3.3.0.dmg"), c.feed));
        rig.updater->setFeedURL(rig.server.url("/appcast.xml"));
        ASSERT_TRUE(rig.check(true));
        EXPECT_EQ(rig.alerts, std::vector<std::string>{"3.3.0"});
        EXPECT_EQ(rig.delegate->actions, std::vector<std::int64_t>{1});
        const auto package = rig.updater->downloadFolder() / "Nimbo_3.3.0.dmg";
        if (c.installs) {
            EXPECT_EQ(rig.delegate->events, (std::vector<std::string>{"found 3.3.0", "relaunch"}));
            ASSERT_EQ(rig.installed, package);
            EXPECT_EQ(readFile(package), c.served);
            EXPECT_EQ(rig.relaunches, 1);
        } else {
            EXPECT_EQ(rig.delegate->events,
                      (std::vector<std::string>{"found 3.3.0", fmt::format("download failed {}", +nb::SUError::Refused)}));
            EXPECT_FALSE(rig.installed);
            EXPECT_TRUE(rig.leftovers().empty()) << rig.leftovers().front();
        }
    }
}

TEST(SUUpdater, CutDownloadResumesWithARangeRequest) {
    const std::string bytes(300'000, 'r');
    Rig rig;
    rig.server.serve("/Nimbo_3.3.0.dmg", nbtest::HttpTestServer::Resource(bytes, {}, {}, Mode::CutFirst));
    rig.server.serve("/appcast.xml", appcastXml(rig.server.url("/Nimbo_3.3.0.dmg"), {bytes, bytes.size(), {}}));
    rig.updater->setFeedURL(rig.server.url("/appcast.xml"));
    ASSERT_TRUE(rig.check(false));
    ASSERT_TRUE(rig.installed);
    EXPECT_EQ(readFile(*rig.installed), bytes);
    const auto ranges = rig.server.rangeHeaders("/Nimbo_3.3.0.dmg");
    ASSERT_EQ(ranges.size(), 2u);
    EXPECT_EQ(ranges[0], "");
    EXPECT_EQ(ranges[1].rfind("bytes=", 0), 0u);
    EXPECT_NE(ranges[1], "bytes=0-");
}

// A background check passes over the skipped version; a check the user asks for shows it, and skipping it
// from the alert records it.
TEST(SUUpdater, SkippedVersionAndTheAlertsChoices) {
    Rig rig;
    rig.delegate->feed.emplace();
    rig.delegate->feed->setItems({nb::SUAppcastItem::initWithDictionary(Value::dictionary(
        {{"enclosure", Value::dictionary({{"url", "http://127.0.0.1:9/x.dmg"}, {"sparkle:version", "3.3.0"}})}}))});
    rig.answer = SUUpdateAlertAction::Skip;
    ASSERT_TRUE(rig.check(false));
    EXPECT_EQ(rig.defaults.stringForKey(nb::UpgradeSkippedVersionKey), "3.3.0");

    ASSERT_TRUE(rig.check(false));
    rig.answer = SUUpdateAlertAction::RemindLater;
    ASSERT_TRUE(rig.check(true));
    EXPECT_EQ(rig.delegate->events,
              (std::vector<std::string>{"found 3.3.0", "skipped 3.3.0", "not found", "found 3.3.0"}));
    EXPECT_EQ(rig.delegate->actions, (std::vector<std::int64_t>{3, 2}));
    EXPECT_EQ(rig.alerts.size(), 2u);
}

TEST(SUUpdater, FeedProblemsAbortTheCheck) {
    Rig rig;
    ASSERT_TRUE(rig.check(true));  // no feed at all
    rig.server.serve("/appcast.xml", "<html>not a feed</html>");
    rig.updater->setFeedURL(rig.server.url("/appcast.xml"));
    ASSERT_TRUE(rig.check(true));
    rig.updater->setFeedURL(rig.server.url("/missing.xml"));
    ASSERT_TRUE(rig.check(true));
    EXPECT_EQ(rig.delegate->events, (std::vector<std::string>{"abort 1", "abort 2", "abort 2"}));
}

TEST(SUUpdater, ScheduledChecksRunUntilTurnedOff) {
    Rig rig;
    rig.delegate->feed.emplace();  // empty: nothing newer
    rig.updater->setUpdateCheckInterval(0.01);
    EXPECT_FALSE(rig.updater->hasScheduledCheck());
    rig.updater->setAutomaticallyChecksForUpdates(true);
    ASSERT_TRUE(rig.until([&] { return rig.delegate->feedRequests >= 2; }));
    rig.updater->setAutomaticallyChecksForUpdates(false);
    EXPECT_FALSE(rig.updater->hasScheduledCheck());
    rig.main.drain();
    const int seen = rig.delegate->feedRequests;
    rig.main.drain();
    EXPECT_EQ(rig.delegate->feedRequests, seen);
}

}  // namespace
