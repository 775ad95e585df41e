#include "PlugHelpers.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

TEST(PlugHelpersTest, LevelToRatioMutesAtTheFloor)
{
    EXPECT_EQ(PlugGetRatioFromdB(-800, -80), 0.0);
    EXPECT_EQ(PlugGetRatioFromdB(-1000, -80), 0.0);
    EXPECT_NEAR(PlugGetRatioFromdB(-799, -80), 1.0e-4 * std::pow(10.0, 0.005), 1e-15);
    EXPECT_EQ(PlugGetRatioFromdB(0, -80), 1.0);
    EXPECT_EQ(PlugGetRatioFromdB(120, -80), std::pow(10.0, 0.6));
    EXPECT_NEAR(PlugGetRatioFromdB(-60, -80), 0.501187, 1e-6);
    EXPECT_EQ(PlugGetRatioFromdB(-50, -5), 0.0);
    EXPECT_GT(PlugGetRatioFromdB(-49, -5), 0.0);
}

TEST(PlugHelpersTest, BlocksAreZeroedAndBadSizesRefused)
{
    auto* block = static_cast<unsigned char*>(PlugMemAllocZeroInit(52000));
    ASSERT_NE(block, nullptr);
    for (int i = 0; i < 52000; ++i) {
        ASSERT_EQ(block[i], 0) << i;
    }
    PlugMemFree(block);
    EXPECT_EQ(PlugMemAllocZeroInit(-1), nullptr);
    PlugMemFree(nullptr);
}

} // namespace
