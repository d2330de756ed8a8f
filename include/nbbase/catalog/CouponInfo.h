// CouponInfo: how many coupons the signed-in user holds, ordinary and SVIP, from which the client decides
// whether to show a coupon badge. The counts start at 0 and change only through parseCouponCount() (or
// their setters).
//
// Counting, for "coupons" and "svip_coupons" of the reply's "data" alike: a list that is missing, null or
// not an array counts 0; otherwise the count is the number of groups plus the number of code records, over
// all groups' "code_infos", whose "status" (as a long long) is 1 or 9. The groups are part of the sum on
// purpose: two groups with three usable codes count 5. A reply that is absent, or whose "data" is missing
// or not an object, keeps both counts. Both counts of a reply are stored together.
//
// queryCoupons: the request goes to the SDK as given (its content is the SDK's business), from the
// background queue given to the constructor. The SDK answers on its own thread:
// - with reply bytes: they are decoded (bytes that are not JSON count as an absent reply) and counted,
//   then the completion is called with 0;
// - with no bytes: nothing happens, and the completion is not called either;
// - with a failure code: "failed to querycoupons,code=<code>" is logged (level 4), the counts stay, and the
//   completion is called with 1.
// Without an SDK instance at the call nothing is sent and nothing is called back.
//
// Threads: every function may be called on any thread; the counts are guarded by a lock. The completion
// runs on the SDK's callback thread.
//
// Lifetime: the SDK's callbacks hold the model's state weakly: a reply that arrives after the object was
// destroyed is dropped, and its completion not called. The log must outlive the object.
// sharedInstance() is created once, thread-safely, and never destroyed.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "nbbase/core/NimboSdkManager.h"
#include "nbbase/foundation/ConcurrentQueue.h"
#include "nbbase/foundation/DispatchQueue.h"
#include "nbbase/foundation/NBLog.h"
#include "nbbase/foundation/Value.h"

namespace nb {

class CouponInfo {
public:
    // 0 after a reply was counted, 1 after the query failed.
    using Completion = std::function<void(std::int32_t result)>;

    static CouponInfo& sharedInstance();

    explicit CouponInfo(NimboSdkManager& sdkManager = NimboSdkManager::sharedInstance(),
                        NBLog& log = NBLog::sharedInstance(), DispatchQueue& background = ConcurrentQueue::global());
    CouponInfo(const CouponInfo&) = delete;
    CouponInfo& operator=(const CouponInfo&) = delete;

    void queryCoupons(const Value& request);
    // `block` may be empty.
    void queryCoupons(const Value& request, Completion block);
    void parseCouponCount(const Value& reply);

    [[nodiscard]] bool hasCoupons() const;
    [[nodiscard]] std::int32_t couponCount() const;
    void setCouponCount(std::int32_t couponCount);
    [[nodiscard]] std::int32_t svipCouponCount() const;
    void setSvipCouponCount(std::int32_t svipCouponCount);

    // Shared with queries in flight.
    struct State;

private:
    NimboSdkManager& sdkManager_;
    DispatchQueue& background_;
    const std::shared_ptr<State> state_;
};

}  // namespace nb
