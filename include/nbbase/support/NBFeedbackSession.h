// NBFeedbackSession: opens the product's feedback page in the user's browser with the user's identity and
// the SDK's diagnostics attached, so the support page can fill in the report.
//
// The address is rootUrl() alone when no user is signed in (userId nil or ""). Otherwise it is
//   rootUrl()?data=<data>&custom=<custom>
// with exactly those two query items, in that order, each written with Url::encodeComponent, so that
// whatever decodes the query on the page (URL decoding or HTML form decoding, where a bare "+" would be a
// blank) gets back exactly the text: the base64 "+", "/" and "=" included.
//
// "data" seals five pairs, built in this order: "userid" (the configuration's userId), "version" (the
// application's version, NBUtils::appVersion of the main bundle), "os" and "net" (NBDeviceInfo's
// systemVerison and networkType), "t" (the wall clock in milliseconds since 1970, fraction cut off). The
// pairs are written "key=value" joined by "&", the whole text encoded with Url::encodeQuery (which keeps
// "&" and "=", so a value holding either would split; none of the five can), and its UTF-8 bytes sealed
// with NBCryptor::encryptData under rsaPubKey() (RSA-OAEP with SHA-256, block by block: NBCryptor.h is the
// page owner's contract), then written in standard base64. The page thus reverses: base64, decrypt,
// percent-decode, split. A key that failed to load, or a failed encryption, makes the data value "": the
// page still opens, without the identity.
//
// "custom" is the compact JSON of the SDK's common report parameters (getReportCommonParams), with
// "nimbo_game_id" set to the configuration's gameId when the parameters lack a non-empty one; "{}" when
// the SDK gives none (no instance, or not a dictionary), "" when they cannot be written as JSON.
//
// The error code given to navigateToFeedbackPageWithErrorCode never reaches the page: the page asks the
// user, and an address must not carry what the user did not see.
//
// rootUrl() is "<production web base>/page/feedback/mac.html" (NBConfiguration::productionWebApiBase),
// whatever the environment: the page exists only there. The public key is the PEM given to the
// constructor, by default the one built into the library (the CMake setting NBBASE_FEEDBACK_PUBLIC_KEY;
// the development key unless the build named another). It is loaded once, at construction; a key that
// does not load is logged (level 4) and leaves rsaPubKey() null.
//
// Threads: every function may be called on any thread. navigateToFeedbackPage* block for as long as the
// SDK's getReportCommonParams does and return once the workspace has been handed the address; a host calls
// them off the main thread where that matters. Nothing here changes after construction.
//
// Lifetime: the collaborators must outlive the session. sharedInstance() is created once, thread-safely,
// and never destroyed.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "nbbase/common/NBDeviceInfo.h"
#include "nbbase/common/NBPublicKey.h"
#include "nbbase/core/NBConfiguration.h"
#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/foundation/Clock.h"
#include "nbbase/foundation/MainBundle.h"
#include "nbbase/foundation/NBLog.h"
#include "nbbase/foundation/Value.h"
#include "nbbase/foundation/Workspace.h"

namespace nb {

class NBFeedbackSession {
public:
    using DeviceInfoProvider = std::function<NBDeviceInfo()>;
    using MainBundleProvider = std::function<std::shared_ptr<const MainBundle>()>;

    static NBFeedbackSession& sharedInstance();
    // The key built into the library, as PEM text.
    [[nodiscard]] static std::string_view builtInPublicKeyPem() noexcept;

    explicit NBFeedbackSession(NBConfiguration& configuration = NBConfiguration::sharedInstance(),
                               NimboSdkManager& sdkManager = NimboSdkManager::sharedInstance(),
                               Workspace& workspace = Workspace::sharedInstance(),
                               DeviceInfoProvider deviceInfo = [] { return NBDeviceInfo::current(); },
                               MainBundleProvider mainBundle = &MainBundle::main,
                               const Clock& clock = Clock::system(), NBLog& log = NBLog::sharedInstance(),
                               std::string_view publicKeyPem = builtInPublicKeyPem());
    NBFeedbackSession(const NBFeedbackSession&) = delete;
    NBFeedbackSession& operator=(const NBFeedbackSession&) = delete;

    [[nodiscard]] const std::string& rootUrl() const noexcept { return rootUrl_; }
    // Null when the key did not load.
    [[nodiscard]] const std::shared_ptr<const NBPublicKey>& rsaPubKey() const noexcept { return rsaPubKey_; }

    // Opens feedbackPageUrl() through the workspace; a workspace that cannot open it is logged (level 4).
    void navigateToFeedbackPage();
    void navigateToFeedbackPageWithErrorCode(const Value& errorCode);
    // The address the two above open, built afresh (a new "t", a new seal).
    [[nodiscard]] std::string feedbackPageUrl();

    // "" for an absent value (nil) and for a failed seal. Pairs are taken in the dictionary's order; a pair
    // whose value is null is left out and logged (level 4) "value of key {<key>} is nil"; other values are
    // written as "%@" prints them.
    [[nodiscard]] std::string buildDataValue(const Value& dictionary) const;
    [[nodiscard]] static std::string buildCustomValue(const Value& dictionary);
    // Sets "nimbo_game_id" as described above; anything but a dictionary is left alone.
    void ensureGameIdExist(Value& parameters) const;

private:
    NBConfiguration& configuration_;
    NimboSdkManager& sdkManager_;
    Workspace& workspace_;
    const DeviceInfoProvider deviceInfo_;
    const MainBundleProvider mainBundle_;
    const Clock& clock_;
    NBLog& log_;
    const std::string rootUrl_;
    const std::shared_ptr<const NBPublicKey> rsaPubKey_;
};

}  // namespace nb
