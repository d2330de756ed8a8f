// nbctl: the library's command-line tool and reference host.
#include <clocale>
#include <cstdio>
#include <filesystem>

#include <CLI/CLI.hpp>

#include "CatalogCommand.h"
#include "ConfigCommand.h"
#include "DataFolders.h"
#include "DefaultsCommand.h"
#include "EntitlementsCommand.h"
#include "ErrorCommand.h"
#include "FeedbackCommand.h"
#include "HostCommand.h"
#include "PluginsCommand.h"
#include "SdkCommand.h"
#include "UpdateCommand.h"
#include "VersionCompareCommand.h"
#include "ZoneCommand.h"
#include "nbbase/foundation/Folders.h"

int main(int argc, char** argv) {
    // Messages follow the user's language, as the host application's would.
    std::setlocale(LC_ALL, "");

    CLI::App app{"nbctl: the NBBase command-line tool and reference host"};
    app.require_subcommand(1);
    std::filesystem::path preferences = nb::Folders::fromProcessEnvironment().preferencesFolder();
    app.add_option("--preferences", preferences, "Preferences folder (default: $XDG_CONFIG_HOME, else ~/.config)");

    const nb::nbctl::DataFolders data = nb::nbctl::DataFolders::forExecutable();

    nb::nbctl::DefaultsCommand defaults(app, preferences);
    nb::nbctl::ConfigCommand config(app, preferences);
    nb::nbctl::ErrorCommand error(app);
    nb::nbctl::SdkCommand sdk(app, data.replies);
    nb::nbctl::HostCommand host(app, data.replies, data.images, data.plugIns);
    nb::nbctl::CatalogCommand catalog(app, data.replies);
    nb::nbctl::EntitlementsCommand entitlements(app, data.replies);
    nb::nbctl::FeedbackCommand feedback(app, preferences, data.replies);
    nb::nbctl::VersionCompareCommand versionCompare(app);
    nb::nbctl::UpdateCommand update(app, data.replies);
    nb::nbctl::PluginsCommand plugins(app, data.plugIns);
    nb::nbctl::ZoneCommand zone(app, preferences);

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        std::fprintf(stderr, "nbctl: %s\n", e.what());
        return 2;
    }
    if (defaults.selected()) return defaults.run();
    if (config.selected()) return config.run();
    if (error.selected()) return error.run();
    if (sdk.selected()) return sdk.run();
    if (entitlements.selected()) return entitlements.run();
    if (catalog.selected()) return catalog.run();
    if (feedback.selected()) return feedback.run();
    if (versionCompare.selected()) return versionCompare.run();
    if (update.selected()) return update.run();
    if (plugins.selected()) return plugins.run();
    if (zone.selected()) return zone.run();
    return host.run();
}
