#include "nbbase/catalog/HangupInfo.h"

#include <limits>

#include "nbbase/foundation/Json.h"

namespace nb {
namespace {

void readInt64(const Value& reply, std::string_view key, std::int64_t& field) {
    if (reply.contains(key)) field = reply[key].longLongValue();
}

// Truncation toward zero that stops at the int64 limits instead of overflowing.
std::int64_t truncatedSeconds(double seconds) {
    constexpr double kLimit = 0x1p63;  // INT64_MAX + 1, exactly
    if (seconds >= kLimit) return std::numeric_limits<std::int64_t>::max();
    if (seconds <= -kLimit) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(seconds);
}

// The reply object; nullopt for nil text, text that is not JSON and a top-level value that is not an object.
std::optional<Value> decodeReply(const std::optional<std::string>& text) {
    if (!text) return std::nullopt;
    auto reply = Json::decode(*text, {.allowFragments = true});
    if (!reply || !reply->isDictionary()) return std::nullopt;
    return reply;
}

}  // namespace

HangupInfo& HangupInfo::sharedInstance() {
    static HangupInfo* const instance = new HangupInfo();
    return *instance;
}

HangupInfo::HangupInfo(const Clock& clock, NBLog& log) : clock_(clock), log_(log) {}

bool HangupInfo::parse(const std::optional<std::string>& text) {
    const auto reply = decodeReply(text);
    if (!reply) return false;
    const Value& r = *reply;
    if (const std::int32_t code = r["code"].intValue(); code != 0) {
        log_.log(4, "parse hangup info error[{},{}]", code, r["message"]);
        return false;
    }
    std::lock_guard lock(mutex_);
    Fields& f = fields_;
    if (r.contains("game_id")) f.gameId = r["game_id"];
    if (r.contains("instance_id")) f.instanceId = r["instance_id"];
    if (r.contains("game_status")) f.hangupStatus = r["game_status"].intValue();
    readInt64(r, "onhook_begin_time", f.hangupBeginTime);
    readInt64(r, "onhook_end_time", f.hangupEndTime);
    readInt64(r, "forecast_end_time", f.hangupEndTimeExpected);
    readInt64(r, "server_time", f.currentTS);
    f.hangUp = f.hangupStatus == kStatusHangingUp;
    return true;
}

bool HangupInfo::parseHangUpResult(const Value& /*ignored*/, const std::optional<std::string>& text) {
    const auto reply = decodeReply(text);
    if (!reply) return false;
    if (const std::int32_t code = (*reply)["code"].intValue(); code != 0) {
        log_.log(4, "parseHangUpResult error[{},{}]", code, (*reply)["message"]);
        return false;
    }
    return true;
}

bool HangupInfo::isHangingUp() const { return read(&Fields::hangUp); }

std::int64_t HangupInfo::hangupRemainTimeInSec() const {
    std::unique_lock lock(mutex_);
    const Fields& f = fields_;
    if (!f.hangUp || f.currentTS == 0 || f.hangupEndTimeExpected == 0 || f.currentTS > f.hangupEndTimeExpected) {
        return 0;
    }
    const double forecastEnd = static_cast<double>(f.hangupEndTimeExpected);
    lock.unlock();
    return truncatedSeconds(forecastEnd - clock_.secondsSince1970());
}

bool HangupInfo::isHangUpEnd() const { return read(&Fields::hangupStatus) == kStatusEnded; }

std::int32_t HangupInfo::totalHangUpSeconds() const {
    std::lock_guard lock(mutex_);
    if (fields_.hangupStatus != kStatusEnded) return 0;
    const auto end = static_cast<std::uint32_t>(fields_.hangupEndTime);
    const auto begin = static_cast<std::uint32_t>(fields_.hangupBeginTime);
    return static_cast<std::int32_t>(end - begin);  // modular since C++20
}

Value HangupInfo::gameId() const { return read(&Fields::gameId); }
Value HangupInfo::instanceId() const { return read(&Fields::instanceId); }
std::int32_t HangupInfo::hangupStatus() const { return read(&Fields::hangupStatus); }
std::int64_t HangupInfo::hangupBeginTime() const { return read(&Fields::hangupBeginTime); }
std::int64_t HangupInfo::hangupEndTime() const { return read(&Fields::hangupEndTime); }
std::int64_t HangupInfo::hangupEndTimeExpected() const { return read(&Fields::hangupEndTimeExpected); }
std::int64_t HangupInfo::currentTS() const { return read(&Fields::currentTS); }

}  // namespace nb
