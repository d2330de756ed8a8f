#include "nbbase/entitlements/TriableInterest.h"

#include <gtest/gtest.h>

#include <string>

#include "nbbase/foundation/Json.h"

namespace nb {
namespace {

Value json(const std::string& text) { return Json::decode(text).value_or(Value()); }

using Form = TriableInterest::ProductIdForm;

TEST(TriableInterestTest, OfferFieldsAndProductIdForms) {
    const Value offer = json(R"({"type": 7, "end_time": 1795086400, "product_id": 30017, "product_name": "SVIP 120",
        "property": -2, "expire_time": 3, "extra_data": "{\"fps\": 120}"})");
    const auto t = TriableInterest::fromDictionary(offer);
    EXPECT_EQ(t->productId(), Value("30017"));
    EXPECT_EQ(TriableInterest::fromDictionary(offer, Form::AsSent)->productId(), Value(30017));
    EXPECT_EQ(t->productName(), "SVIP 120");
    EXPECT_EQ(t->property(), -2);  // widened with its sign
    EXPECT_EQ(t->expireTime(), 3);
    EXPECT_EQ(t->endTime(), 1795086400);
    EXPECT_EQ(t->fpsAttr(), json("[120]"));
    EXPECT_EQ(t->userData(), 0);

    const auto bare = TriableInterest::fromDictionary(json(R"({"type": 4})"));
    EXPECT_TRUE(bare->productId().isAbsent());
    EXPECT_EQ(bare->productName(), std::nullopt);
    EXPECT_FALSE(bare->hasEndTime());
}

TEST(TriableInterestTest, ExtraDataIsReadOnlyWhenPresent) {
    struct Case {
        const char* offer;
        Value fps, frame;
        std::int32_t hangup;
    };
    const Value none;
    const Case cases[] = {
        {R"({"type": 4})", none, none, 0},
        {R"({"type": 4, "extra_data": ""})", none, none, 0},
        {R"({"type": 4, "extra_data": "{}"})", none, Value(Value::Array{}), 0},
        {R"({"type": 5})", none, none, 0},
        {R"({"type": 5, "extra_data": "junk"})", none, none, 1},
        {R"({"type": 2, "extra_data": "{\"fps\": [60]}"})", none, none, 0},
        {R"({"type": 7, "extra_data": {"fps": [60]}})", none, none, 0},  // an object is no text
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.offer);
        const auto t = TriableInterest::fromDictionary(json(c.offer));
        EXPECT_EQ(t->fpsAttr().kind(), c.fps.kind());
        EXPECT_EQ(t->frameAttr().kind(), c.frame.kind());
        EXPECT_EQ(t->hangup(), c.hangup);
    }
}

}  // namespace
}  // namespace nb
