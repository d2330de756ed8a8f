#include <gtest/gtest.h>

#include "nbbase/foundation/Value.h"

TEST(ValueSmoke, Builds) { EXPECT_EQ(nb::Value("  +12x").intValue(), 12); }
