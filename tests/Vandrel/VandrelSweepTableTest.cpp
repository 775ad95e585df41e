// The sweep tables' frequencies computed in runs must be exactly the running
// sum lo, lo + inc, ... that defines the tables, for every table the unit can
// set up, and for the rounding corners (ties, binade crossings) that
// parameters seldom reach.
#include "SweepFrequencies.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

namespace {

// Expects f(j) == the running sum for every entry, through ForEach and At.
::testing::AssertionResult MatchesRunningSum(double lo, double inc, std::int64_t count)
{
    CSweepFrequencies runs;
    if (!runs.Build(lo, inc, count)) {
        return ::testing::AssertionFailure() << "no runs for lo " << lo << " inc " << inc;
    }
    double f = lo;
    std::int64_t mismatch = -1;
    runs.ForEach(0, count - 1, [&](std::int64_t j, double value) {
        if (mismatch < 0 && (value != f || ((j % 97 == 0 || j == count - 1) && runs.At(j) != f))) {
            mismatch = j;
        }
        f += inc;
    });
    if (mismatch >= 0) {
        return ::testing::AssertionFailure() << std::hexfloat << "entry " << mismatch << " of lo "
                                             << lo << " inc " << inc << " count " << count;
    }
    return ::testing::AssertionSuccess();
}

// lo and inc of the table for a centre, depth, sample rate and length.
void SweepOf(int center, int depth, int sampleRate, std::int64_t len, double& lo, double& inc)
{
    const double mOff = static_cast<double>(depth - 50);
    const double o = 1.0 + 0.002 * (mOff * mOff);
    const double span = depth <= 50 ? o : 1.0 / o;
    const double fc = static_cast<double>(center) / static_cast<double>(sampleRate);
    const double ratio = std::exp2(1.0 / span);
    lo = fc / ratio;
    const double hi = fc * ratio;
    inc = ((hi < 0.5 ? hi : 0.5) - lo) / static_cast<double>(len);
}

TEST(VandrelSweepTableTest, RunsMatchTheRunningSumForEveryTableTheUnitSetsUp)
{
    for (int rate : {8000, 22050, 44100, 48000, 96000, 192000}) {
        // Every length a modulation rate of 1 mHz to 20 Hz gives, with the
        // depth and centre at their ends and middles.
        std::int64_t previous = 0;
        for (std::int64_t mhz = 20000; mhz >= 1; --mhz) {
            const auto half =
                static_cast<std::int64_t>(1000.0 * rate / static_cast<double>(2 * mhz));
            const std::int64_t len = std::min<std::int64_t>(std::max<std::int64_t>(half, 1), 2000);
            if (len == previous) {
                continue;
            }
            previous = len;
            for (int depth : {1, 50, 100}) {
                for (int center : {100, 1000, 5000}) {
                    double lo;
                    double inc;
                    SweepOf(center, depth, rate, len, lo, inc);
                    ASSERT_TRUE(MatchesRunningSum(lo, inc, len))
                        << rate << " Hz, " << mhz << " mHz";
                }
            }
        }
        // Every depth, and centres across the range, at the longest table.
        for (int depth = 1; depth <= 100; ++depth) {
            for (int center = 100; center <= 5000; center += 49) {
                double lo;
                double inc;
                SweepOf(center, depth, rate, 2000, lo, inc);
                ASSERT_TRUE(MatchesRunningSum(lo, inc, 2000)) << rate << " Hz, depth " << depth;
            }
        }
    }
}

TEST(VandrelSweepTableTest, RunsFollowTiesAndBinadeCrossings)
{
    const double ulp = std::ldexp(1.0, -52);
    struct Case
    {
        double lo;
        double inc;
    };
    const Case cases[] = {
        {1.0, 2.5 * ulp},              // tie from an even start: rounds down to even
        {1.0 + ulp, 2.5 * ulp},        // tie from an odd start: the first step differs
        {1.0 + ulp, 3.5 * ulp},        // tie rounding up
        {2.0 - 700 * ulp, 1.5 * ulp},  // ties across into the next binade
        {1.0, 0.25 * ulp},             // steps below half a unit leave the sum still
        {1.0, 0.5 * ulp},              // exactly half a unit from even: still
        {0.001, 0.3},                  // every step leaves its binade
        {std::ldexp(1.0, -20), 1e-4},  // lowest centre, widest span
        {0.1, 0.0},                    // no span
        {std::ldexp(1.0, -900), 1.0},  // the most binades 2000 steps can cross
        {1.0 + ulp, -2.5 * ulp},       // falling: tie from an odd start
        {1.0 + 900 * ulp, -1.5 * ulp}, // falling ties across into the binade below
        {1.0, -1.0 * ulp},             // falling from a power of two
        {1.0 + 2 * ulp, -2.5 * ulp},   // a falling tie onto a power of two
        {0.9, -0.0002},                // a centre above half the sample rate
    };
    for (const Case& c : cases) {
        EXPECT_TRUE(MatchesRunningSum(c.lo, c.inc, 2000));
    }

    CSweepFrequencies runs;
    EXPECT_FALSE(runs.Build(0.0, 1e-5, 10));
    EXPECT_FALSE(runs.Build(0.01, -1e-3, 20)) << "falls below zero";
    EXPECT_FALSE(runs.Build(0.01, NAN, 10));
    EXPECT_FALSE(runs.Build(std::ldexp(1.0, -1000), 1e-300, 10));
}

} // namespace
