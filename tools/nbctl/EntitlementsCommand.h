// `nbctl entitlements`: the entitlement table (EntitlementTable) for three recorded server replies.
//
//   entitlements [--replies DIR] [--interests FILE] [--property FILE] [--vip FILE]
//
// --interests is a full interests reply, --property a user-property reply (the base interests of the
// levels), --vip a VIP reply. Each defaults to its recording in the replies folder: getUserFullInterests.json,
// queryUserPropertyInterests.json and vipInfo.json, so the bare command shows the recorded session.
//
// The replies are parsed as a client does, in this order: the VIP reply (it decides the level the trial
// flags are computed for), the base interests, then the full interests, whose parse recomputes the flags.
// Nothing is fetched and nothing is written: the interests store gets a bridge without an SDK instance, a
// configuration without a settings suite.
//
// Exit codes: 0 the table was printed; 1 a reply was refused, with one line on standard error naming the
// file: it cannot be read, it is not a JSON object, its "code" is not 0 (a recorded failure has nothing to
// show, and the store would keep nothing of it), or an interests reply has no "data" object; 2 bad
// arguments.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "nbbase/foundation/Value.h"

namespace nb::nbctl {

class EntitlementsCommand {
public:
    EntitlementsCommand(CLI::App& app, std::filesystem::path defaultReplies);

    bool selected() const { return command_->parsed(); }
    // Any thread; it starts no work of its own.
    int run() const;

    // The bytes of a reply file that passes the checks above (`needsData`: an interests reply, which must
    // hold a "data" object); otherwise nullopt after one line on standard error. The reference host reads
    // the VIP recording with it too.
    static std::optional<Data> readReply(const std::filesystem::path& path, bool needsData);

private:
    CLI::App* command_ = nullptr;
    std::filesystem::path replies_;
    std::filesystem::path interests_;  // empty: the recording in replies_
    std::filesystem::path property_;
    std::filesystem::path vip_;
};

}  // namespace nb::nbctl
