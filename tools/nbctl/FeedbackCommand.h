// `nbctl feedback`: the feedback page's address as the library would open it for the signed-in user, and,
// given the page's private key, what the page reads from it.
//
//   feedback [--open] [--decrypt KEYFILE] [--replies DIR]
//
// The identity comes from the application's settings suite in the preferences folder, as `nbctl config`
// reads it; the SDK's report parameters ("custom") from the recorded getReportCommonParams.json in the
// replies folder. Without a signed-in user the address is the bare page. --open hands the address to the
// desktop's opener (xdg-open); otherwise nothing is opened. --decrypt reads a PEM private key and prints
// the "data" pairs it unseals and the "custom" parameters.
//
// Exit codes: 0 the address was printed (and opened, and unsealed, when asked); 1 the key file cannot be
// read or is not a private key, the data value does not unseal with it, or the opener could not be
// started, with one line on standard error saying which; 2 bad arguments.
#pragma once

#include <filesystem>
#include <string>

#include <CLI/CLI.hpp>

namespace nb {
class NBPrivateKey;
}

namespace nb::nbctl {

class FeedbackCommand {
public:
    FeedbackCommand(CLI::App& app, const std::filesystem::path& preferencesFolder,
                    std::filesystem::path defaultReplies);

    bool selected() const { return command_->parsed(); }
    int run() const;

    // What the page reads from a feedback address: the unsealed "data" pairs and the "custom" parameters,
    // one per line. False, with the reason in *error, when the data value does not unseal with `key`.
    static bool unseal(const std::string& address, const NBPrivateKey& key, std::string* text, std::string* error);

private:
    const std::filesystem::path& preferences_;
    std::filesystem::path replies_;
    std::string keyFile_;
    bool open_ = false;
    CLI::App* command_ = nullptr;
};

}  // namespace nb::nbctl
