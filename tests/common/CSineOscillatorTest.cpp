// The oscillator's contract beyond what the flanger uses (whose values the engine's reference
// comparison pins bit for bit): re-seeding on a jump, at Init and after the step limit, and the
// limit's clamping.
#include "CSineOscillator.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

namespace {

TEST(CSineOscillatorTest, ReseedsOnAJumpAtInitAndOnceEveryLimitPlusOneCalls)
{
    CSineOscillator osc(0.1, 0.0, 0, 2);
    const int expectedSteps[] = {1, 2, 3, 1, 2, 3, 1};
    for (int n = 0; n < 7; ++n) {
        EXPECT_NEAR(std::sin(n * 0.1), osc.FindNthSine(n), 1e-15) << n;
        EXPECT_EQ(expectedSteps[n], osc.nSteps) << n;
    }
    // A jump re-seeds at the requested index; even then the value comes through one step.
    const double c = std::cos(0.1);
    EXPECT_EQ((c + c) * std::sin(11 * 0.1) - std::sin(10 * 0.1), osc.FindNthSine(12));
    EXPECT_EQ(1, osc.nSteps);
    EXPECT_EQ(13, osc.nNext);
    // Init re-seeds with a new step and phase, keeping the limit.
    osc.Init(0.2, 0.5, 40);
    EXPECT_EQ(0, osc.nSteps);
    EXPECT_EQ(2, osc.nMaxSteps);
    const double c2 = std::cos(0.2);
    EXPECT_EQ((c2 + c2) * std::sin(39 * 0.2 + 0.5) - std::sin(38 * 0.2 + 0.5), osc.FindNthSine(40));
}

TEST(CSineOscillatorTest, LimitOutOfRangeBecomesTheMaximum)
{
    const std::int32_t limits[][2] = {{0, 262144},      {300000, 262144}, {262145, 262144},
                                      {262144, 262144}, {1, 1},           {-3, -3}};
    for (const auto& limit : limits) {
        EXPECT_EQ(limit[1], CSineOscillator(0.1, 0.0, 0, limit[0]).nMaxSteps) << limit[0];
    }
}

} // namespace
