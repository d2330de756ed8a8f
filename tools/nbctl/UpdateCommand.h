// `nbctl update`: the application updater from the command line.
//
//   update check [--appcast URL] [--running VERSION] [--download] [--replies DIR]
//       Runs one check and says what the updater would do: up to date, or the update it found (optional or
//       mandatory), its download link and whether it is signed. Without --appcast the feed is the update
//       information the SDK answers (ReplaySdk on the recorded replies), through the update manager, with
//       the settings and caches of the user running nbctl. --running sets the running version (default:
//       the main bundle's, else 0). --download also downloads the package into the caches folder and
//       verifies it (length and, when the main bundle names "SUPublicEDKey", its Ed25519 signature); nothing
//       is installed.
//   update keygen
//       Prints a new Ed25519 key pair for signing updates: the private key (keep it secret) and the public
//       key for the client's "SUPublicEDKey".
//   update sign --key FILE PACKAGE
//       Prints the package's "sparkle:edSignature" and "length" attributes for a feed; FILE holds the base64
//       private key.
//
// Exit codes: 0 done; 1 the check failed (no feed, refused download, ...) or a key or file could not be used;
// 2 bad arguments.
#pragma once

#include <filesystem>
#include <string>

#include <CLI/CLI.hpp>

namespace nb::nbctl {

class UpdateCommand {
public:
    UpdateCommand(CLI::App& app, std::filesystem::path defaultReplies);

    bool selected() const { return command_->parsed(); }
    int run() const;

private:
    int check() const;
    int keygen() const;
    int sign() const;

    CLI::App* command_ = nullptr;
    CLI::App* check_ = nullptr;
    CLI::App* keygen_ = nullptr;
    CLI::App* sign_ = nullptr;
    std::filesystem::path replies_;
    std::string appcast_;
    std::string running_;
    bool download_ = false;
    std::filesystem::path keyFile_;
    std::filesystem::path package_;
};

}  // namespace nb::nbctl
