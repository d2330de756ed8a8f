#include "nbbase/catalog/UserInfo.h"

#include <mutex>
#include <utility>

#include "nbbase/foundation/Json.h"
#include "nbbase/foundation/Url.h"

namespace nb {

struct UserInfo::State {
    mutable std::mutex mutex;
    // Every field below is guarded by mutex.
    Value dict;
    std::optional<std::string> figureUrl;
    Value lastLogin;
    std::optional<std::string> nickName;
    std::int32_t openType = 0;
    std::int32_t userStatus = 0;
    std::optional<std::string> userId;
    std::optional<Data> iconData;
};

namespace {

std::optional<std::string> text(const Value& value) {
    if (value.isString() || value.isNumber()) return value.stringValue();
    return std::nullopt;
}

}  // namespace

UserInfo& UserInfo::sharedInstance() {
    static UserInfo* const instance = new UserInfo();
    return *instance;
}

UserInfo::UserInfo(URLSession& session) : session_(session), state_(std::make_shared<State>()) {}

bool UserInfo::parse(const Data& bytes) {
    const Value reply = Json::decode(bytes).value_or(Value());
    std::optional<std::string> figureUrl;
    {
        std::lock_guard lock(state_->mutex);
        state_->dict = reply;
        if (reply.contains("figure_url")) {
            figureUrl = text(reply["figure_url"]);
            state_->figureUrl = figureUrl;
        }
        if (reply.contains("last_login")) state_->lastLogin = reply["last_login"];
        if (reply.contains("nick_name")) state_->nickName = text(reply["nick_name"]);
        if (reply.contains("open_type")) state_->openType = reply["open_type"].intValue();
        if (reply.contains("user_status")) state_->userStatus = reply["user_status"].intValue();
    }
    if (reply.contains("figure_url")) downloadUserIcon(figureUrl);
    return true;
}

void UserInfo::downloadUserIcon(const std::optional<std::string>& url) {
    if (!url) return;
    session_.dataTask({Url::encodeQuery(*url), {}},
                      [weak = std::weak_ptr<State>(state_)](URLSession::Response reply) {
                          const auto state = weak.lock();
                          if (!state || !reply.succeeded()) return;
                          std::lock_guard lock(state->mutex);
                          state->iconData = std::move(reply.body);
                      });
}

Value UserInfo::dict() const {
    std::lock_guard lock(state_->mutex);
    return state_->dict;
}

std::optional<std::string> UserInfo::nickName() const {
    std::lock_guard lock(state_->mutex);
    return state_->nickName;
}

std::optional<std::string> UserInfo::figure() const {
    std::lock_guard lock(state_->mutex);
    return state_->figureUrl;
}

Value UserInfo::lastLogin() const {
    std::lock_guard lock(state_->mutex);
    return state_->lastLogin;
}

std::int32_t UserInfo::openType() const {
    std::lock_guard lock(state_->mutex);
    return state_->openType;
}

std::int32_t UserInfo::userStatus() const {
    std::lock_guard lock(state_->mutex);
    return state_->userStatus;
}

std::optional<std::string> UserInfo::userId() const {
    std::lock_guard lock(state_->mutex);
    return state_->userId;
}

void UserInfo::setUserId(std::optional<std::string> userId) {
    std::lock_guard lock(state_->mutex);
    state_->userId = std::move(userId);
}

std::optional<Data> UserInfo::iconData() const {
    std::lock_guard lock(state_->mutex);
    return state_->iconData;
}

void UserInfo::setIconData(std::optional<Data> iconData) {
    std::lock_guard lock(state_->mutex);
    state_->iconData = std::move(iconData);
}

}  // namespace nb
