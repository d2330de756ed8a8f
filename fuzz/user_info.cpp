// Any bytes as a profile reply: parse always answers true, keeps the reply whole, and sets each field the
// reply carries by the same conversion a fresh read of that key gives.
//
// The fuzzer must never reach the network, and a profile names the avatar to download: a "figure_url" is
// pointed at a file that does not exist before the parse, so the download fails at once on this machine.
//
// Seed: examples/replies/userInfo.json.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>

#include "nbbase/catalog/UserInfo.h"
#include "nbbase/foundation/Json.h"

namespace {

void check(bool condition) {
    if (!condition) std::abort();
}

std::optional<std::string> text(const nb::Value& value) {
    if (value.isString() || value.isNumber()) return value.stringValue();
    return std::nullopt;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static nb::URLSession* const session = new nb::URLSession();
    nb::Data bytes(data, data + size);
    auto decoded = nb::Json::decode(bytes);
    if (decoded && decoded->contains("figure_url")) {
        decoded->set("figure_url", "file:///nonexistent/nbbase-fuzz/avatar.png");
        const auto rewritten = nb::Json::encode(*decoded);
        if (!rewritten) return 0;
        bytes.assign(rewritten->begin(), rewritten->end());
        decoded = nb::Json::decode(bytes);
    }

    nb::UserInfo user(*session);
    check(user.parse(bytes));
    const nb::Value reply = decoded.value_or(nb::Value());
    check(user.dict() == reply);
    check(user.figure() == (reply.contains("figure_url") ? text(reply["figure_url"]) : std::nullopt));
    check(user.nickName() == (reply.contains("nick_name") ? text(reply["nick_name"]) : std::nullopt));
    check(user.lastLogin() == reply["last_login"]);
    check(user.openType() == reply["open_type"].intValue());
    check(user.userStatus() == reply["user_status"].intValue());
    return 0;
}
