#include <cstdint>
#include <limits>

#include <gtest/gtest.h>

#include "util/checked.h"

namespace {

TEST(Checked, AddRefusesOverflowAndKeepsOutput) {
    uint32_t out = 7;
    EXPECT_TRUE(tev::checkedAdd<uint32_t>(0xFFFFFFF0u, 0xFu, &out));
    EXPECT_EQ(out, 0xFFFFFFFFu);
    EXPECT_FALSE(tev::checkedAdd<uint32_t>(0xFFFFFFF0u, 0x10u, &out));
    EXPECT_EQ(out, 0xFFFFFFFFu);
    int64_t wide = 0;
    EXPECT_FALSE(tev::checkedAdd<int64_t>(std::numeric_limits<int64_t>::max(), 1, &wide));
}

TEST(Checked, RangeFitsOnlyInsideTheStream) {
    EXPECT_TRUE(tev::rangeFits(0, 10, 10));
    EXPECT_TRUE(tev::rangeFits(10, 0, 10));
    EXPECT_FALSE(tev::rangeFits(1, 10, 10));
    EXPECT_FALSE(tev::rangeFits(-1, 1, 10));
    EXPECT_FALSE(tev::rangeFits(11, 0, 10));
    EXPECT_FALSE(tev::rangeFits(5, std::numeric_limits<int64_t>::max(), 10));
}

}  // namespace
