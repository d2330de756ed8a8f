#include "ConfigCommand.h"

#include <cstdio>
#include <memory>

#include "PlistText.h"
#include "nbbase/core/NBConfiguration.h"
#include "nbbase/foundation/Folders.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/UserDefaults.h"

namespace nb::nbctl {

namespace {

Value optionalString(const std::optional<std::string>& s) { return s ? Value(*s) : Value(); }

}  // namespace

ConfigCommand::ConfigCommand(CLI::App& app, const std::filesystem::path& preferencesFolder)
    : folder_(preferencesFolder) {
    command_ = app.add_subcommand("config", "Show the settings store: switches, environment, identity, client settings");
    command_->add_flag("--json", json_, "Print JSON for scripts");
}

Value ConfigCommand::report(const NBConfiguration& c) {
    const Value switches = Value::dictionary({
        {"enableNimboLog", c.enableNimboLog()},
        {"enableNbgameLog", c.enableNbgameLog()},
        {"enableCefDebug", c.enableCefDebug()},
        {"enableSdkLog", c.enableSdkLog()},
        {"enableReportLog", c.enableReportLog()},
        {"enableShowBitRate", c.enableShowBitRate()},
        {"disableBeanconReport", c.disableBeanconReport()},
        {"printMouseEvent", c.printMouseEvent()},
        {"logLevel", optionalString(c.logLevel())},
        {"feLogLevel", optionalString(c.feLogLevel())},
        {"fullscreenLevel", optionalString(c.fullscreenLevel())},
        {"debugResolution", optionalString(c.debugResolution())},
        {"gameTags", optionalString(c.gameTags())},
    });
    const Value environment = Value::dictionary({
        {"envType", c.envType()},
        {"authApiBase", c.authApiBase()},
        {"gameApiBase", c.gameApiBase()},
        {"webApiBase", c.webApiBase()},
        {"hostVersion", c.hostVersion()},
    });
    const Value identity = Value::dictionary({
        {"nimboToken", optionalString(c.nimboToken())},
        {"openId", optionalString(c.openId())},
        {"userId", optionalString(c.userId())},
        {"gameId", optionalString(c.gameId())},
        {"vipFlags", c.vipFlags()},
        {"svipFlags", c.svipFlags()},
        {"userProfile", c.userProfile()},
        {"supplyId", optionalString(c.supplyId())},
    });
    const Size frame = c.frameSize();
    const Value client = Value::dictionary({
        {"language", optionalString(c.language())},
        {"fps", c.fps()},
        {"frameSize", Value::array({frame.width, frame.height})},
        {"isFullScreen", c.isFullScreen()},
        {"autoGameAdaptive", c.autoGameAdaptive()},
        {"showStatisticWidget", c.showStatisticWidget()},
        {"firstLaunchGame", c.firstLaunchGame()},
        {"showGameGuide", c.showGameGuide()},
        {"checkNetworkStable", c.checkNetworkStable()},
        {"videoDefinition", optionalString(c.videoDefinition())},
        {"enableMenuShortCutTips", c.enableMenuShortCutTips()},
        {"enableDisplayDelayTips", c.enableDisplayDelayTips()},
        {"menuTipsShown", c.menuTipsShown()},
        {"disableGameExitShortcutKey", c.disableGameExitShortcutKey()},
        {"enableSpaceSwitch", c.enableSpaceSwitch()},
        {"sysMouseAcceleration", c.sysMouseAcceleration()},
        {"disableMouseAcceleration", c.disableMouseAcceleration()},
        {"sysFNSwitchEnable", c.sysFNSwitchEnable()},
        {"enableFNSwitch", c.enableFNSwitch()},
        {"hangupNewFeatureShow", c.hangupNewFeatureShow()},
        {"svipNewFeatureShow", c.svipNewFeatureShow()},
        {"enableUnlockMoueShortcutTips", c.enableUnlockMoueShortcutTips()},
        {"showTipsGameIdArray", c.showTipsGameIdArray()},
        {"speedTest", c.speedTestDict()},
        {"speedTestLimitDict", c.speedTestLimitDict()},
    });
    return Value::dictionary({
        {"configuration file", c.sdkConfigFilePath().string()},
        {"switches", switches},
        {"environment", environment},
        {"identity", identity},
        {"client", client},
    });
}

int ConfigCommand::run() const {
    const Folders folders = Folders::fromProcessEnvironment();
    NBConfiguration configuration(std::make_shared<UserDefaults>(std::string(NBConfiguration::kSuiteName), folder_),
                                  folders.homeFolder());
    const Value value = report(configuration);
    if (json_) {
        const auto text = Json::encode(PlistText::jsonSafe(value), Json::Style::Pretty);
        if (!text) {
            std::fprintf(stderr, "nbctl: the settings cannot be written as JSON\n");
            return 1;
        }
        std::printf("%s\n", text->c_str());
    } else {
        std::printf("%s\n", PlistText::format(value).c_str());
    }
    return 0;
}

}  // namespace nb::nbctl
