#include "FeedbackCommand.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>

#include <fmt/format.h>

#include "nbbase/common/NBBase64.h"
#include "nbbase/common/NBCryptor.h"
#include "nbbase/common/NBJsonUtils.h"
#include "nbbase/common/NBKeyLoader.h"
#include "nbbase/common/NBNetworkCheck.h"
#include "nbbase/core/NBConfiguration.h"
#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/foundation/Folders.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/NBLog.h"
#include "nbbase/foundation/RecordingWorkspace.h"
#include "nbbase/foundation/SystemWorkspace.h"
#include "nbbase/foundation/UserDefaults.h"
#include "nbbase/sdk/ReplaySdk.h"
#include "nbbase/support/NBFeedbackSession.h"

namespace nb::nbctl {

FeedbackCommand::FeedbackCommand(CLI::App& app, const std::filesystem::path& preferencesFolder,
                                 std::filesystem::path defaultReplies)
    : preferences_(preferencesFolder), replies_(std::move(defaultReplies)) {
    command_ = app.add_subcommand("feedback", "Show the feedback page's address for the signed-in user");
    command_->add_flag("--open", open_, "Open the address in the default browser");
    command_->add_option("--decrypt", keyFile_, "PEM private key: print what the page reads from the address");
    command_->add_option("--replies", replies_, "Folder of recorded server replies")->capture_default_str();
}

bool FeedbackCommand::unseal(const std::string& address, const NBPrivateKey& key, std::string* text,
                             std::string* error) {
    const Value items = NBJsonUtils::dictionaryWithURL(address);
    if (!items.contains("data")) {
        *error = "the address carries no data value (no user is signed in)";
        return false;
    }
    const auto cipher = NBBase64::dataFromBase64String(items["data"].stringValue());
    if (!cipher) {
        *error = "the data value is not base64";
        return false;
    }
    const auto plain = NBCryptor::decryptData(*cipher, key, error);
    if (!plain) return false;
    // The sealed text is itself a query: the same reader gives its pairs.
    const Value pairs = NBJsonUtils::dictionaryWithURL(address.substr(0, address.find('?')) + "?" +
                                                       std::string(plain->begin(), plain->end()));
    std::string out = "data:\n";
    for (const auto& [name, value] : *pairs.asDictionary()) out += fmt::format("  {} = {}\n", name, value);
    const auto custom = Json::decode(items["custom"].stringValue());
    out += "custom: " + (custom ? Json::encode(*custom, Json::Style::Pretty).value_or("") : "(not JSON)") + "\n";
    *text = std::move(out);
    return true;
}

int FeedbackCommand::run() const {
    std::shared_ptr<const NBPrivateKey> key;
    if (!keyFile_.empty()) {
        std::ifstream in(keyFile_);
        const std::string pem(std::istreambuf_iterator<char>(in), {});
        std::string error = "cannot be read";
        if (in) key = NBKeyLoader::loadPEMPrivateKey(pem, &error);
        if (!key) {
            std::fprintf(stderr, "nbctl: %s: %s\n", keyFile_.c_str(), error.c_str());
            return 1;
        }
    }
    // Library lines (a missing recording, a key that does not load) go to standard error, away from the
    // address a script may read.
    NBLog::sharedInstance().setLogHandler(
        [](std::int32_t level, const std::string& text) { std::fprintf(stderr, "[log %d] %s\n", level, text.c_str()); });

    const Folders folders = Folders::fromProcessEnvironment();
    NBConfiguration configuration(
        std::make_shared<UserDefaults>(std::string(NBConfiguration::kSuiteName), preferences_), folders.homeFolder());
    auto replay = std::make_shared<ReplaySdk>(replies_);
    NBNetworkCheck network;
    NimboSdkManager bridge([replay] { return replay; }, {}, configuration, network, NBLog::sharedInstance());
    bridge.initializeSDK(nullptr);

    RecordingWorkspace recorder;
    SystemWorkspace desktop;
    Workspace& workspace = open_ ? static_cast<Workspace&>(desktop) : recorder;
    NBFeedbackSession session(configuration, bridge, workspace);
    const std::string address = session.feedbackPageUrl();
    int status = 0;
    std::printf("%s\n", address.c_str());
    if (address == session.rootUrl()) std::fprintf(stderr, "nbctl: no user is signed in: the page opens without a query\n");
    if (open_) {
        std::string error;
        if (!workspace.openURL(address, &error)) {
            std::fprintf(stderr, "nbctl: %s\n", error.c_str());
            status = 1;
        }
    }
    if (key && status == 0) {
        std::string text, error;
        if (unseal(address, *key, &text, &error)) {
            std::printf("%s", text.c_str());
        } else {
            std::fprintf(stderr, "nbctl: %s: %s\n", keyFile_.c_str(), error.c_str());
            status = 1;
        }
    }
    bridge.uninitializeSDK();
    NBLog::sharedInstance().setLogHandler(nullptr);
    return status;
}

}  // namespace nb::nbctl
