#include "VandrelEngine.h"
#include "VandrelEngineTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>

namespace {

using enginetest::Buffers;
using enginetest::MakeProps;

constexpr double kPi = 3.141592653589793;

// Sweep frequency (cycles per sample) of a table entry, from its a2 = rho^2.
double EntryFrequency(const CVandrelEngine& engine, int j, double quality)
{
    return -std::log(engine.pdWahA2[j]) * quality / (2.0 * kPi);
}

TEST(VandrelEngineSweepTest, TableEntriesArePolePairsAlongTheSweep)
{
    CVandrelEngine engine;
    _transform_props props = MakeProps(kEffect_WahWah, 1000, 50, 1000, 50); // "Wah-Wah 1"
    engine.TransformBegin(2, 44100, props);
    ASSERT_EQ(engine.lWahTableLen, 2000);
    EXPECT_EQ(engine.dWahStep, 2000.0 / 22050.0);
    EXPECT_NEAR(engine.pdWahA1[0], 1.925121, 1e-6);
    EXPECT_NEAR(engine.pdWahA2[0], 0.931240, 1e-6);
    EXPECT_NEAR(engine.pdWahA1[1999], 1.664618, 1e-6);
    EXPECT_NEAR(engine.pdWahA2[1999], 0.752131, 1e-6);

    // Every entry: radius exp(-pi f / Q), angle 2 pi f, f linear from lo to
    // one increment below top; here Q = 1, lo = fc / 2, top = 2 fc.
    const double fc = 1000.0 / 44100.0;
    const double inc = (2.0 * fc - fc / 2.0) / 2000.0;
    for (int j = 0; j < 2000; ++j) {
        const double f = fc / 2.0 + j * inc;
        const double rho = std::exp(-kPi * f);
        ASSERT_NEAR(engine.pdWahA1[j], 2.0 * rho * std::cos(2.0 * kPi * f), 1e-12) << j;
        ASSERT_NEAR(engine.pdWahA2[j], rho * rho, 1e-12) << j;
    }

    // Defaults: depth 10 spans 1 / 4.2 octave around 100 Hz; resonance 1
    // gives Q = 1 / (1 + 0.008 * 49^2).
    props = MakeProps(kEffect_Phaser, 10000, 10, 100, 1);
    engine.TransformCookProperties(props, TRANSFORM_CONTINUE);
    const double broad = 1.0 / (1.0 + 0.008 * 49 * 49);
    EXPECT_NEAR(EntryFrequency(engine, 0, broad) * 44100.0, 84.79, 0.01);
    EXPECT_NEAR(EntryFrequency(engine, 1999, broad) * 44100.0, 117.92, 0.01);

    // Resonance 40 (Q = 1 / 1.8); centre 5000 Hz at depth 100 caps the top at
    // half the sample rate.
    props = MakeProps(kEffect_Phaser, 1000, 100, 5000, 40);
    engine.TransformCookProperties(props, TRANSFORM_CONTINUE);
    const double lo = 5000.0 / 44100.0 / 64.0;
    EXPECT_NEAR(EntryFrequency(engine, 0, 1.0 / 1.8), lo, 1e-12);
    EXPECT_NEAR(EntryFrequency(engine, 1999, 1.0 / 1.8), 0.5 - (0.5 - lo) / 2000.0, 1e-12);

    // 20 Hz: R = 1102 entries, one per sample.
    props.lModRate = 20000;
    engine.TransformCookProperties(props, TRANSFORM_CONTINUE);
    EXPECT_EQ(engine.lWahTableLen, 1102);
    EXPECT_EQ(engine.dWahStep, 1.0);
}

TEST(VandrelEngineSweepTest, SweepIsATriangleThatKeepsItsDirection)
{
    CVandrelEngine engine;
    _transform_props props = MakeProps(kEffect_Phaser, 20000, 50, 1000, 50);
    engine.TransformBegin(1, 44100, props);
    Buffers buffers(1, std::vector<float>(3000, 0.0f));
    enginetest::Render(engine, props, buffers, 0, 1101);
    EXPECT_EQ(engine.dWahPos, 1101.0);
    EXPECT_EQ(engine.dWahStep, -1.0);
    enginetest::Render(engine, props, buffers, 1101, 1101);
    EXPECT_EQ(engine.dWahPos, 0.0);
    EXPECT_EQ(engine.dWahStep, 1.0);

    // A faster rate shortens the table: a position beyond its end is clamped
    // at the next sample and the direction reverses.
    enginetest::Render(engine, props, buffers, 0, 600);
    props.lModRate = 40000;
    enginetest::Render(engine, props, buffers, 0, 1);
    EXPECT_EQ(engine.lWahTableLen, 551);
    EXPECT_EQ(engine.dWahPos, 550.0);
    EXPECT_EQ(engine.dWahStep, -1.0);
}

struct SweepCase
{
    std::int64_t effect;
    std::int64_t rate;
    std::int64_t depth;
    std::int64_t center;
    std::int64_t resonance;
    std::int64_t dry;
    std::int64_t wet;
};

class VandrelEngineSweepReferenceTest : public ::testing::TestWithParam<SweepCase>
{
};

TEST_P(VandrelEngineSweepReferenceTest, MatchesReferenceSampleForSample)
{
    const SweepCase& c = GetParam();
    const _transform_props base =
        MakeProps(c.effect, c.rate, c.depth, c.center, c.resonance, c.dry, c.wet);
    const Buffers in = enginetest::Noise(3, 12000, 11);
    const Buffers expected = enginetest::ReferenceSweep(in, 44100, base);

    // Renders of varied sizes: the sweep state carries across cooks exactly.
    CVandrelEngine engine;
    _transform_props props = base;
    engine.TransformBegin(3, 44100, props);
    Buffers out = in;
    const unsigned int sizes[] = {1, 64, 1000, 333, 4096};
    std::size_t start = 0;
    for (int k = 0; start < 12000; ++k) {
        const unsigned int n =
            static_cast<unsigned int>(std::min<std::size_t>(sizes[k % 5], 12000 - start));
        enginetest::Render(engine, props, out, start, n);
        start += n;
    }
    for (int ch = 0; ch < 3; ++ch) {
        for (int n = 0; n < 12000; ++n) {
            ASSERT_EQ(out[ch][n], expected[ch][n]) << "channel " << ch << " frame " << n;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Settings, VandrelEngineSweepReferenceTest,
    ::testing::Values(SweepCase{kEffect_Phaser, 10000, 10, 100, 1, -800, 0},    // defaults
                      SweepCase{kEffect_Phaser, 20000, 50, 1000, 40, -60, -20}, // step 1
                      SweepCase{kEffect_WahWah, 1000, 50, 1000, 50, -800, 0},   // "Wah-Wah 1"
                      SweepCase{kEffect_WahWah, 7300, 100, 5000, 100, 0, 120},  // capped top
                      SweepCase{kEffect_WahWah, 18000, 1, 300, 77, -100, -30}));

TEST(VandrelEngineSweepTest, FixedFilterIsTheStatedAllPass)
{
    // At 40 Hz and 20 Hz rate the table has one entry: the coefficients stay
    // put, and the phaser must equal (x + a) / 2 for the all-pass
    // (a2 - a1 z^-1 + z^-2) / (1 - a1 z^-1 + a2 z^-2) run in direct form I.
    CVandrelEngine engine;
    _transform_props props = MakeProps(kEffect_Phaser, 20000, 50, 4, 50);
    engine.TransformBegin(1, 40, props);
    ASSERT_EQ(engine.lWahTableLen, 1);
    const double a1 = engine.pdWahA1[0];
    const double a2 = engine.pdWahA2[0];
    EXPECT_NEAR(a2, std::exp(-2.0 * kPi * 0.05), 1e-15);

    Buffers buffers = enginetest::Noise(1, 500, 3);
    const std::vector<float> in = buffers[0];
    enginetest::Render(engine, props, buffers, 0, 500);
    double x1 = 0.0, x2 = 0.0, y1 = 0.0, y2 = 0.0;
    for (int n = 0; n < 500; ++n) {
        const double x = in[n];
        const double y = a2 * x - a1 * x1 + x2 + a1 * y1 - a2 * y2;
        ASSERT_NEAR(buffers[0][n], (x + y) * 0.5, 1e-6) << n;
        x2 = x1;
        x1 = x;
        y2 = y1;
        y1 = y;
    }
    EXPECT_EQ(engine.dWahPos, 0.0);
}

TEST(VandrelEngineSweepTest, ImpulseIntoWahStartsAtOneMinusA2)
{
    CVandrelEngine engine;
    _transform_props props = MakeProps(kEffect_WahWah, 1000, 50, 1000, 50);
    engine.TransformBegin(1, 44100, props);
    Buffers buffers(1, std::vector<float>(4, 0.0f));
    buffers[0][0] = 1.0f;
    enginetest::Render(engine, props, buffers, 0, 4);
    EXPECT_EQ(buffers[0][0], static_cast<float>(1.0 - engine.pdWahA2[0]));
}

TEST(VandrelEngineSweepTest, SkippedRebuildLeavesTablesBitIdentical)
{
    const _transform_props a = MakeProps(kEffect_WahWah, 1000, 50, 1000, 50);
    const _transform_props b = MakeProps(kEffect_Phaser, 3000, 80, 2500, 90);
    auto fresh = [](_transform_props props, int sampleRate) {
        auto engine = std::make_unique<CVandrelEngine>();
        engine->TransformBegin(2, sampleRate, props);
        return engine;
    };
    auto sameTables = [](const CVandrelEngine& x, const CVandrelEngine& y) {
        return x.lWahTableLen == y.lWahTableLen &&
               std::memcmp(x.pdWahA1, y.pdWahA1, 2000 * sizeof(double)) == 0 &&
               std::memcmp(x.pdWahA2, y.pdWahA2, 2000 * sizeof(double)) == 0;
    };

    CVandrelEngine engine;
    _transform_props props = a;
    engine.TransformBegin(2, 44100, props);
    Buffers buffers = enginetest::Noise(2, 256, 5);
    for (int k = 0; k < 3; ++k) {
        enginetest::Render(engine, props, buffers, 0, 256);
    }
    EXPECT_TRUE(sameTables(engine, *fresh(a, 44100)));

    // Every input of the tables takes effect at the next cook, and switching
    // to the flanger and back keeps them valid.
    std::int64_t _transform_props::*const fields[] = {
        &_transform_props::lModRate, &_transform_props::lModDepth, &_transform_props::lCenterFreq,
        &_transform_props::lResonance};
    for (auto field : fields) {
        props = a;
        props.*field = b.*field;
        enginetest::Render(engine, props, buffers, 0, 256);
        EXPECT_TRUE(sameTables(engine, *fresh(props, 44100)));
    }
    props = a;
    props.lEffect = kEffect_Flange;
    enginetest::Render(engine, props, buffers, 0, 256);
    props.lEffect = kEffect_WahWah;
    enginetest::Render(engine, props, buffers, 0, 256);
    EXPECT_TRUE(sameTables(engine, *fresh(a, 44100)));

    // A new stream reallocates the tables, and a new sample rate changes them.
    engine.TransformEnd();
    props = a;
    engine.TransformBegin(2, 44100, props);
    EXPECT_TRUE(sameTables(engine, *fresh(a, 44100)));
    engine.TransformBegin(2, 48000, props);
    EXPECT_TRUE(sameTables(engine, *fresh(a, 48000)));
}

} // namespace
