#include "VandrelEngine.h"
#include "VandrelEngineTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using enginetest::Buffers;
using enginetest::MakeProps;

Buffers Impulse(int channels, int frames, float height = 1.0f)
{
    Buffers out(channels, std::vector<float>(frames, 0.0f));
    for (auto& channel : out) {
        channel[0] = height;
    }
    return out;
}

// Depth 2 at 44100 Hz gives a sweep of 0 frames: a fixed 44-frame delay.
Buffers FixedDelayImpulseResponse(int channels, std::int64_t wetTenths, float height = 1.0f)
{
    CVandrelEngine engine;
    _transform_props props = MakeProps(kEffect_Flange, 10000, 2, 100, 1, -800, wetTenths);
    engine.TransformBegin(channels, 44100, props);
    Buffers buffers = Impulse(channels, 400, height);
    enginetest::Render(engine, props, buffers, 0, 400);
    return buffers;
}

TEST(VandrelEngineFlangerTest, MonoImpulseEchoesHalveEveryMillisecond)
{
    const Buffers out = FixedDelayImpulseResponse(1, 0);
    double echo = 0.9;
    for (int n = 0; n < 400; ++n) {
        if (n > 0 && n % 44 == 0) {
            EXPECT_EQ(out[0][n], static_cast<float>(echo)) << "frame " << n;
            echo *= 0.5;
        } else {
            EXPECT_EQ(out[0][n], 0.0f) << "frame " << n;
        }
    }
}

TEST(VandrelEngineFlangerTest, StereoImpulseCarriesChannelFactorsAndSquaredWet)
{
    const Buffers out = FixedDelayImpulseResponse(2, 0);
    EXPECT_EQ(out[0][44], static_cast<float>(0.9 * 0.9));
    EXPECT_EQ(out[1][44], static_cast<float>(0.9 * 0.95));
    EXPECT_EQ(out[0][88], static_cast<float>(0.5 * 0.9 * 0.9));
    EXPECT_EQ(out[0][43], 0.0f);

    // At -6 dB the wet ratio enters twice with two channels, once with one.
    EXPECT_NEAR(FixedDelayImpulseResponse(2, -60)[0][44], 0.9 * 0.501187 * 0.501187 * 0.9, 1e-5);
    EXPECT_NEAR(FixedDelayImpulseResponse(1, -60)[0][44], 0.9 * 0.501187, 1e-5);
}

TEST(VandrelEngineFlangerTest, StoredValuesBelowThresholdAreFlushed)
{
    // 1e-11 written into the line is stored as 0: no echo. 1e-10 survives.
    EXPECT_EQ(FixedDelayImpulseResponse(1, 0, 1e-11f)[0][44], 0.0f);
    EXPECT_EQ(FixedDelayImpulseResponse(1, 0, 1e-10f)[0][44], static_cast<float>(0.9 * 1e-10f));
}

TEST(VandrelEngineFlangerTest, CookDerivesSizesFromRateAndSampleRate)
{
    CVandrelEngine engine;
    _transform_props props = MakeProps(kEffect_Flange, 10000, 10);
    engine.TransformBegin(2, 44100, props);
    EXPECT_EQ(engine.dReadCenter, 44.0);
    EXPECT_EQ(engine.dSweepDepth, 4.0);
    EXPECT_EQ(engine.dLfoPeriod, 4410.0);
    EXPECT_NEAR(engine.dLfoOmega, 0.00142476, 1e-8);
    engine.TransformBegin(2, 48000, props);
    EXPECT_EQ(engine.dSweepDepth, 4.0);
    EXPECT_NEAR(engine.dLfoOmega, 0.00130900, 1e-8);

    // A rate of 0 or below runs as 1 mHz: a period of 1000 s.
    for (std::int64_t rate : {0, -5}) {
        props.lModRate = rate;
        engine.TransformCookProperties(props, TRANSFORM_CONTINUE);
        EXPECT_EQ(engine.dLfoPeriod, 48000000.0);
    }
}

struct FlangerCase
{
    int channels;
    int sampleRate;
    std::int64_t rate;
    std::int64_t depth;
    std::int64_t dry;
    std::int64_t wet;
};

class VandrelEngineFlangerReferenceTest : public ::testing::TestWithParam<FlangerCase>
{
};

// Long enough to wrap the delay line twice and the oscillator period several
// times; one cook, so the oscillator's re-seeding follows one schedule.
TEST_P(VandrelEngineFlangerReferenceTest, MatchesReferenceSampleForSample)
{
    const FlangerCase& c = GetParam();
    const int frames = 15000;
    const _transform_props base = MakeProps(kEffect_Flange, c.rate, c.depth, 100, 1, c.dry, c.wet);
    const Buffers in = enginetest::Noise(c.channels, frames, 7);
    const Buffers expected = enginetest::ReferenceFlanger(in, c.sampleRate, base);

    CVandrelEngine engine;
    _transform_props props = base;
    engine.TransformBegin(c.channels, c.sampleRate, props);
    Buffers out = in;
    float* pointers[CVandrelEngine::kMaxChannels] = {};
    for (int ch = 0; ch < c.channels; ++ch) {
        pointers[ch] = out[ch].data();
    }
    unsigned int count = frames;
    ASSERT_EQ(engine.TransformFloat(TRANSFORM_CONTINUE, pointers, c.channels, count, false), 0);
    ASSERT_EQ(count, static_cast<unsigned int>(frames));
    for (int ch = 0; ch < c.channels; ++ch) {
        for (int n = 0; n < frames; ++n) {
            ASSERT_EQ(out[ch][n], expected[ch][n]) << "channel " << ch << " frame " << n;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Settings, VandrelEngineFlangerReferenceTest,
    ::testing::Values(FlangerCase{1, 44100, 10000, 10, -800, 0},   // defaults
                      FlangerCase{2, 44100, 10000, 10, -800, 0},   // defaults, stereo
                      FlangerCase{1, 44100, 20000, 100, -60, 0},   // taps reach the write frame
                      FlangerCase{2, 48000, 3000, 73, 0, -35},     // fractional positions
                      FlangerCase{5, 44100, 20000, 100, -120, 120} // channel factors beyond 2
                      ));

} // namespace
