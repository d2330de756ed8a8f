// Any bytes as a coupon reply, on a fresh model whose counts start at -1: a reply without a "data" object
// keeps both; otherwise each count is at least its list's number of groups and at most the groups plus
// their code records, and hasCoupons agrees with the counts.
//
// Seed: examples/replies/queryCoupons.json.
#include <cstddef>
#include <cstdint>

#include "fuzz/CatalogCollaborators.h"
#include "nbbase/catalog/CouponInfo.h"

namespace {

using nbfuzz::check;

void checkCount(const nb::Value& groups, std::int32_t count) {
    const nb::Value::Array* list = groups.asArray();
    if (list == nullptr) return check(count == 0);
    std::size_t codes = 0;
    for (const nb::Value& group : *list) codes += group["code_infos"].isArray() ? group["code_infos"].size() : 0;
    check(count >= 0 && static_cast<std::size_t>(count) >= list->size());
    check(static_cast<std::size_t>(count) <= list->size() + codes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto& collaborators = nbfuzz::CatalogCollaborators::shared();
    nb::CouponInfo coupons(collaborators.bridge(), collaborators.log(), collaborators.background());
    coupons.setCouponCount(-1);
    coupons.setSvipCouponCount(-1);
    const nb::Value reply = nbfuzz::decodeInput(data, size);
    coupons.parseCouponCount(reply);

    const nb::Value& section = reply["data"];
    if (!section.isDictionary()) {
        check(coupons.couponCount() == -1 && coupons.svipCouponCount() == -1 && !coupons.hasCoupons());
        return 0;
    }
    checkCount(section["coupons"], coupons.couponCount());
    checkCount(section["svip_coupons"], coupons.svipCouponCount());
    check(coupons.hasCoupons() == (coupons.couponCount() > 0 || coupons.svipCouponCount() > 0));
    return 0;
}
