#include "EntitlementsCommand.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <utility>

#include <fmt/format.h>

#include "EntitlementTable.h"
#include "nbbase/common/NBNetworkCheck.h"
#include "nbbase/core/NBConfiguration.h"
#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/entitlements/InterestsInfo.h"
#include "nbbase/entitlements/VipInfo.h"
#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/NBLog.h"

namespace nb::nbctl {

namespace {

std::string textOf(const Data& bytes) { return std::string(bytes.begin(), bytes.end()); }

void refuse(const std::filesystem::path& path, const std::string& why) {
    fmt::print(stderr, "nbctl: {}: {}\n", path.string(), why);
}

}  // namespace

std::optional<Data> EntitlementsCommand::readReply(const std::filesystem::path& path, bool needsData) {
    std::error_code ec;
    const auto status = std::filesystem::status(path, ec);
    if (!std::filesystem::exists(status)) {
        refuse(path, "cannot read the reply: no such file");
        return std::nullopt;
    }
    if (!std::filesystem::is_regular_file(status)) {
        refuse(path, "cannot read the reply: not a regular file");
        return std::nullopt;
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        refuse(path, fmt::format("cannot read the reply: {}", std::strerror(errno)));
        return std::nullopt;
    }
    const Data bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};

    Json::Error error;
    const auto decoded = Json::decode(bytes, {}, &error);
    if (!decoded) {
        refuse(path, fmt::format("not JSON: {}", error.message));
        return std::nullopt;
    }
    if (!decoded->isDictionary()) {
        refuse(path, fmt::format("the reply is a JSON {}, not an object", decoded->kindName()));
        return std::nullopt;
    }
    // Read as the store reads it, so "0" and 0.0 pass and a missing code counts as 0.
    if (const std::int64_t code = (*decoded)["code"].longLongValue(); code != 0) {
        std::string message = (*decoded)["message"].isString() ? *(*decoded)["message"].asString() : "";
        std::replace_if(message.begin(), message.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
        refuse(path, message.empty() ? fmt::format("the server answered code {}", code)
                                     : fmt::format("the server answered code {}: {}", code, message));
        return std::nullopt;
    }
    if (needsData && !(*decoded)["data"].isDictionary()) {
        refuse(path, "the reply has no \"data\" object");
        return std::nullopt;
    }
    return bytes;
}

EntitlementsCommand::EntitlementsCommand(CLI::App& app, std::filesystem::path defaultReplies)
    : replies_(std::move(defaultReplies)) {
    command_ = app.add_subcommand("entitlements", "Show the entitlement table for recorded interests and VIP replies");
    command_->add_option("--replies", replies_, "Folder the replies default to")->capture_default_str();
    command_->add_option("--interests", interests_, "Full interests reply (default: getUserFullInterests.json)");
    command_->add_option("--property", property_,
                         "User-property reply (default: queryUserPropertyInterests.json)");
    command_->add_option("--vip", vip_, "VIP reply (default: vipInfo.json)");
}

int EntitlementsCommand::run() const {
    const auto pick = [this](const std::filesystem::path& given, const char* recording) {
        return given.empty() ? replies_ / recording : given;
    };
    const std::filesystem::path vipPath = pick(vip_, "vipInfo.json");
    const std::filesystem::path propertyPath = pick(property_, "queryUserPropertyInterests.json");
    const std::filesystem::path interestsPath = pick(interests_, "getUserFullInterests.json");
    // Every file is checked before any is parsed, so a bad one costs nothing and nothing half-parsed shows.
    const auto vipReply = readReply(vipPath, false);
    if (!vipReply) return 1;
    const auto propertyReply = readReply(propertyPath, true);
    if (!propertyReply) return 1;
    const auto interestsReply = readReply(interestsPath, true);
    if (!interestsReply) return 1;

    // The store's collaborators, built here rather than shared, so nothing touches the user's settings:
    // no suite, and no home folder (nothing below reads the configuration file). The bridge never gets an
    // SDK instance; its constructor still starts the network monitor, which the fixed probe keeps quiet.
    // Nothing is fetched, so the background queue stays idle.
    NBLog log;
    NBConfiguration configuration(nullptr, std::filesystem::path(), {}, {});
    NBNetworkCheck network([] { return NBNetworkCheck::kNone; });
    NimboSdkManager bridge(nullptr, {}, configuration, network, log);

    VipInfo vip;
    vip.parse(*vipReply);
    const auto interests = InterestsInfo::create(bridge, configuration, vip, log);
    if (!interests->parseUserPropertyInterests(textOf(*propertyReply))) {
        refuse(propertyPath, "the interests store refused the user-property reply");
        return 1;
    }
    if (!interests->parse(textOf(*interestsReply))) {
        refuse(interestsPath, "the interests store refused the interests reply");
        return 1;
    }
    fmt::print("{}", EntitlementTable(*interests, vip).text());
    return 0;
}

}  // namespace nb::nbctl
