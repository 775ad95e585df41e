#include "CSineOscillator.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

constexpr double kTwoPi = 6.283185307179586;

TEST(CSineOscillatorTest, ConsecutiveIndicesFollowTheSine)
{
    CSineOscillator osc(kTwoPi / 8.0, 0.0, 0, 2048);
    const double expected[8] = {0.0, std::sqrt(0.5),  1.0,  std::sqrt(0.5),
                                0.0, -std::sqrt(0.5), -1.0, -std::sqrt(0.5)};
    for (int n = 0; n < 8; ++n) {
        EXPECT_NEAR(osc.FindNthSine(n), expected[n], 1e-12) << "n=" << n;
    }

    // A long run with a phase stays on sin(n w + phi): the re-seeding every
    // 2049 values bounds the drift of the recurrence, which would otherwise
    // grow with the run length.
    const double omega = 0.00142476;
    const double phase = 0.3;
    CSineOscillator slow(omega, phase, 0, 2048);
    for (int n = 0; n < 200000; ++n) {
        ASSERT_NEAR(slow.FindNthSine(n), std::sin(n * omega + phase), 1e-9) << "n=" << n;
    }

    CSineOscillator still(0.0, 0.5, 7, 2048);
    EXPECT_NEAR(still.FindNthSine(7), std::sin(0.5), 1e-15);
    EXPECT_NEAR(still.FindNthSine(8), std::sin(0.5), 1e-15);
}

TEST(CSineOscillatorTest, JumpReseedsAtTheRequestedIndex)
{
    const double omega = 0.3;
    CSineOscillator osc(omega, 0.1, 0, 2048);
    osc.FindNthSine(0);
    osc.FindNthSine(1);
    osc.FindNthSine(2);
    EXPECT_EQ(osc.nSteps, 3);
    EXPECT_NEAR(osc.FindNthSine(5), std::sin(5 * omega + 0.1), 1e-14);
    EXPECT_EQ(osc.nSteps, 1);
    EXPECT_EQ(osc.nNext, 6);
    // Even a re-seeding call returns its value through one recurrence step.
    const double c = std::cos(omega);
    EXPECT_EQ(osc.dCur, (c + c) * std::sin(4 * omega + 0.1) - std::sin(3 * omega + 0.1));
}

TEST(CSineOscillatorTest, StepCountReseedsOnceEveryLimitPlusOneCalls)
{
    CSineOscillator osc(0.1, 0.0, 0, 2);
    const int expectedSteps[] = {1, 2, 3, 1, 2, 3, 1};
    for (int n = 0; n < 7; ++n) {
        osc.FindNthSine(n);
        EXPECT_EQ(osc.nSteps, expectedSteps[n]) << "n=" << n;
    }

    // Init re-seeds at its index with nSteps 0, so the next call at that
    // index is served by the recurrence from the new seed.
    osc.Init(0.2, 0.0, 40);
    EXPECT_EQ(osc.nSteps, 0);
    EXPECT_EQ(osc.nMaxSteps, 2);
    const double c = std::cos(0.2);
    EXPECT_EQ(osc.FindNthSine(40), (c + c) * std::sin(39 * 0.2) - std::sin(38 * 0.2));
    EXPECT_EQ(osc.nSteps, 1);
}

TEST(CSineOscillatorTest, LimitOutOfRangeBecomesTheMaximum)
{
    EXPECT_EQ(CSineOscillator(0.1, 0.0, 0, 0).nMaxSteps, 262144);
    EXPECT_EQ(CSineOscillator(0.1, 0.0, 0, 300000).nMaxSteps, 262144);
    EXPECT_EQ(CSineOscillator(0.1, 0.0, 0, 262144).nMaxSteps, 262144);
    EXPECT_EQ(CSineOscillator(0.1, 0.0, 0, -3).nMaxSteps, -3);
}

TEST(CSineOscillatorTest, IndexArithmeticWrapsIn32Bits)
{
    // The engine passes the low 32 bits of a longer counter: the seed of
    // INT32_MIN takes its neighbours from the top of the range.
    const double omega = 1e-9;
    CSineOscillator osc(omega, 0.0, INT32_MIN, 2048);
    EXPECT_EQ(osc.dPrev1, std::sin(2147483647.0 * omega));
    EXPECT_EQ(osc.dPrev2, std::sin(2147483646.0 * omega));
    osc.FindNthSine(INT32_MAX);
    EXPECT_EQ(osc.nNext, INT32_MIN);
}

} // namespace
