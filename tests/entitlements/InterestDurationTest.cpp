#include "nbbase/entitlements/InterestDuration.h"

#include <gtest/gtest.h>

namespace nb {
namespace {

TEST(InterestDurationTest, WindowRules) {
    struct Case {
        std::int64_t open, close, at;
        bool valid;
    };
    const Case cases[] = {
        {0, 0, 0, true},       {0, 0, -7, true},       // no window: always
        {100, 200, 100, true}, {100, 200, 200, true},  // both ends included
        {100, 200, 99, false}, {100, 200, 201, false},
        {100, 0, 100, true},   {100, 0, 99, false},  // open-ended
        {0, 99, 99, true},     {0, 99, 100, false},
        {-1, 0, 5, false},     {0, -1, -5, false},    {-1, 200, 100, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(InterestDuration(c.open, c.close).isValidAt(c.at), c.valid)
            << "(" << c.open << ", " << c.close << ") at " << c.at;
    }
}

}  // namespace
}  // namespace nb
