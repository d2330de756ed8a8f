#include "nbbase/catalog/CouponInfo.h"

#include <mutex>
#include <utility>

#include "nbbase/foundation/Json.h"

namespace nb {

struct CouponInfo::State {
    explicit State(NBLog& log) : log(log) {}

    NBLog& log;
    mutable std::mutex mutex;
    std::int32_t couponCount = 0;      // guarded by mutex
    std::int32_t svipCouponCount = 0;  // guarded by mutex

    void count(const Value& reply);
};

namespace {

std::int64_t usableCount(const Value& groups) {
    const Value::Array* list = groups.asArray();
    if (list == nullptr) return 0;
    auto count = static_cast<std::int64_t>(list->size());
    for (const Value& group : *list) {
        if (const Value::Array* codes = group["code_infos"].asArray()) {
            for (const Value& code : *codes) {
                const std::int64_t status = code["status"].longLongValue();
                count += status == 1 || status == 9;
            }
        }
    }
    return count;
}

// Anything but JSON bytes reads as an absent reply.
Value decodeReply(const Value& reply) {
    const Data* bytes = reply.asData();
    return bytes ? Json::decode(*bytes).value_or(Value()) : Value();
}

}  // namespace

void CouponInfo::State::count(const Value& reply) {
    const Value& data = reply["data"];
    if (!data.isDictionary()) return;
    const auto ordinary = static_cast<std::int32_t>(usableCount(data["coupons"]));
    const auto svip = static_cast<std::int32_t>(usableCount(data["svip_coupons"]));
    std::lock_guard lock(mutex);
    couponCount = ordinary;
    svipCouponCount = svip;
}

CouponInfo& CouponInfo::sharedInstance() {
    static CouponInfo* const instance = new CouponInfo();
    return *instance;
}

CouponInfo::CouponInfo(NimboSdkManager& sdkManager, NBLog& log, DispatchQueue& background)
    : sdkManager_(sdkManager), background_(background), state_(std::make_shared<State>(log)) {}

void CouponInfo::queryCoupons(const Value& request) { queryCoupons(request, {}); }

void CouponInfo::queryCoupons(const Value& request, Completion block) {
    auto sdk = sdkManager_.sdkInstance();
    if (!sdk) return;
    background_.async([weak = std::weak_ptr<State>(state_), sdk = std::move(sdk), request,
                       block = std::move(block)] {
        if (weak.expired()) return;
        sdk->queryCoupons(
            request,
            [weak, block](const Value& reply) {
                const auto state = weak.lock();
                if (!state || reply.isAbsent()) return;
                state->count(decodeReply(reply));
                if (block) block(0);
            },
            [weak, block](std::int32_t code) {
                const auto state = weak.lock();
                if (!state) return;
                state->log.log(4, "failed to querycoupons,code={}", code);
                if (block) block(1);
            });
    });
}

void CouponInfo::parseCouponCount(const Value& reply) { state_->count(reply); }

bool CouponInfo::hasCoupons() const {
    std::lock_guard lock(state_->mutex);
    return state_->couponCount > 0 || state_->svipCouponCount > 0;
}

std::int32_t CouponInfo::couponCount() const {
    std::lock_guard lock(state_->mutex);
    return state_->couponCount;
}

void CouponInfo::setCouponCount(std::int32_t couponCount) {
    std::lock_guard lock(state_->mutex);
    state_->couponCount = couponCount;
}

std::int32_t CouponInfo::svipCouponCount() const {
    std::lock_guard lock(state_->mutex);
    return state_->svipCouponCount;
}

void CouponInfo::setSvipCouponCount(std::int32_t svipCouponCount) {
    std::lock_guard lock(state_->mutex);
    state_->svipCouponCount = svipCouponCount;
}

}  // namespace nb
