#include "VandrelEngine.h"
#include "VandrelEngineTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using enginetest::Buffers;
using enginetest::MakeProps;

unsigned int Transform(CVandrelEngine& engine, Buffers& buffers, unsigned int frames,
                       std::int32_t* status = nullptr, bool skip = false)
{
    float* pointers[64] = {};
    for (std::size_t c = 0; c < buffers.size(); ++c) {
        pointers[c] = buffers[c].data();
    }
    unsigned int count = frames;
    const std::int32_t result = engine.TransformFloat(
        TRANSFORM_CONTINUE, pointers, static_cast<unsigned int>(buffers.size()), count, skip);
    if (status != nullptr) {
        *status = result;
    }
    return count;
}

TEST(VandrelEngineLifecycleTest, CookTurnsLevelsIntoGainsAndClearsTheChangeMask)
{
    CVandrelEngine engine;
    _transform_props props = MakeProps(kEffect_Phaser, 10000, 10, 100, 1, -800, 120);
    props.uChanged = 3;
    EXPECT_EQ(engine.TransformBegin(2, 44100, props), 0);
    EXPECT_TRUE(engine.bValid);
    EXPECT_EQ(props.uChanged, 0u);
    EXPECT_EQ(engine.dDry, 0.0);
    EXPECT_EQ(engine.dWet, std::pow(10.0, 0.6)); // the phaser's wet gain is the plain ratio

    props = MakeProps(kEffect_Flange, 10000, 10, 100, 1, -799, -60);
    EXPECT_EQ(engine.TransformCookProperties(props, TRANSFORM_CONTINUE), 0);
    EXPECT_EQ(engine.dWet, std::pow(10.0, -0.3) * 0.9);
    EXPECT_EQ(engine.adChanGain[17], 0.95 * std::pow(10.0, -0.3));
}

TEST(VandrelEngineLifecycleTest, RefusedWorkLeavesBuffersUntouched)
{
    CVandrelEngine engine;
    _transform_props props = MakeProps(7, 10000, 10);
    EXPECT_EQ(engine.TransformBegin(2, 44100, props), CVandrelEngine::kStatusUnknownEffect);
    EXPECT_FALSE(engine.bValid);
    EXPECT_EQ(engine.lEffect, 7);
    EXPECT_NE(engine.pdDelay, nullptr);

    const Buffers in = enginetest::Noise(2, 32, 1);
    Buffers buffers = in;
    std::int32_t status = 0;
    EXPECT_EQ(Transform(engine, buffers, 32, &status), 0u);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(buffers, in);

    props.lEffect = kEffect_Flange;
    EXPECT_EQ(engine.TransformCookProperties(props, TRANSFORM_CONTINUE), 0);
    EXPECT_EQ(Transform(engine, buffers, 32, &status, true), 0u);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(buffers, in);

    // More channels than the stream has cannot be flanged; more than 32
    // cannot be processed at all.
    Buffers three = enginetest::Noise(3, 32, 1);
    const Buffers threeIn = three;
    EXPECT_EQ(Transform(engine, three, 32), 0u);
    EXPECT_EQ(three, threeIn);
    props.lEffect = kEffect_WahWah;
    engine.TransformCookProperties(props, TRANSFORM_CONTINUE);
    Buffers many = enginetest::Noise(33, 8, 2);
    const Buffers manyIn = many;
    EXPECT_EQ(Transform(engine, many, 8), 0u);
    EXPECT_EQ(many, manyIn);

    // A stream of 33 channels is refused before anything changes.
    CVandrelEngine fresh;
    EXPECT_EQ(fresh.TransformBegin(33, 44100, props), CVandrelEngine::kStatusBadChannelCount);
    EXPECT_EQ(fresh.TransformBegin(-1, 44100, props), CVandrelEngine::kStatusBadChannelCount);
    EXPECT_EQ(fresh.nChannels, 1);
    EXPECT_EQ(fresh.pdDelay, nullptr);
    EXPECT_EQ(fresh.pOsc, nullptr);
}

TEST(VandrelEngineLifecycleTest, EndReleasesStateAndBeginRebuildsIt)
{
    CVandrelEngine engine;
    _transform_props props = MakeProps(kEffect_WahWah, 1000, 50, 1000, 50);
    engine.TransformBegin(4, 44100, props);
    Buffers buffers = enginetest::Noise(4, 30000, 9);
    Transform(engine, buffers, 30000);
    ASSERT_LT(engine.dWahStep, 0.0);
    const double y1OfChannel3 = engine.adWahY1[3];
    ASSERT_NE(y1OfChannel3, 0.0);
    props.lEffect = kEffect_Flange;
    engine.TransformCookProperties(props, TRANSFORM_CONTINUE);
    Transform(engine, buffers, 1000);

    EXPECT_EQ(engine.TransformEnd(), 0);
    EXPECT_EQ(engine.TransformEnd(), 0);
    EXPECT_EQ(engine.pdDelay, nullptr);
    EXPECT_EQ(engine.pdWahA1, nullptr);
    EXPECT_EQ(engine.pOsc, nullptr);
    EXPECT_EQ(engine.lLfoIndex, 1000);
    EXPECT_EQ(Transform(engine, buffers, 10), 0u);
    EXPECT_LT(engine.TransformCookProperties(props, TRANSFORM_CONTINUE), 0);
    EXPECT_FALSE(engine.bValid);

    // Rebuilt: positions and the memories of channels 0 and 1 are zero; the
    // sweep direction and the memories of channels 2 and up survive.
    props.lEffect = kEffect_WahWah;
    EXPECT_EQ(engine.TransformBegin(4, 44100, props), 0);
    EXPECT_EQ(engine.lLfoIndex, 0);
    EXPECT_EQ(engine.lWritePos, 0);
    EXPECT_EQ(engine.dWahPos, 0.0);
    EXPECT_LT(engine.dWahStep, 0.0);
    EXPECT_EQ(engine.adWahY1[0], 0.0);
    EXPECT_EQ(engine.adWahY2[1], 0.0);
    EXPECT_EQ(engine.adWahY1[3], y1OfChannel3);

    // The flanger after a new begin sounds like a fresh engine's.
    props.lEffect = kEffect_Flange;
    engine.TransformBegin(2, 44100, props);
    CVandrelEngine fresh;
    _transform_props freshProps = props;
    fresh.TransformBegin(2, 44100, freshProps);
    Buffers a = enginetest::Noise(2, 500, 4);
    Buffers b = a;
    Transform(engine, a, 500);
    Transform(fresh, b, 500);
    EXPECT_EQ(a, b);
}

TEST(VandrelEngineLifecycleTest, EmptyRendersMoveOnlyWhatTheyMust)
{
    CVandrelEngine engine;
    _transform_props props = MakeProps(kEffect_Flange, 10000, 10);
    engine.TransformBegin(0, 44100, props);
    Buffers none;
    std::int32_t status = -1;
    EXPECT_EQ(Transform(engine, none, 100, &status), 100u);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(engine.lLfoIndex, 100);
    EXPECT_EQ(engine.lWritePos, 6400);

    engine.TransformBegin(2, 44100, props);
    Buffers stereo = enginetest::Noise(2, 10, 2);
    EXPECT_EQ(Transform(engine, stereo, 0, &status), 0u);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(engine.lLfoIndex, 0);
    EXPECT_EQ(engine.dReadCenter, 44.0);

    props.lEffect = kEffect_Phaser;
    engine.TransformCookProperties(props, TRANSFORM_CONTINUE);
    EXPECT_EQ(Transform(engine, none, 100, &status), 100u);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(engine.dWahPos, 0.0);
}

struct SplitCase
{
    std::int64_t effect;
    unsigned int first;
};

class VandrelEngineSplitTest : public ::testing::TestWithParam<SplitCase>
{
};

// Two renders of n and m frames equal one of n + m: the cook in between moves
// nothing. The flanger's oscillator is re-seeded at its current index, which
// may change the last bits of the sine.
TEST_P(VandrelEngineSplitTest, TwoRendersEqualOne)
{
    const SplitCase& c = GetParam();
    const unsigned int total = 7000;
    const Buffers in = enginetest::Noise(2, total, 21);
    Buffers whole = in;
    Buffers split = in;
    CVandrelEngine one;
    CVandrelEngine two;
    _transform_props props = MakeProps(c.effect, 10000, 60, 800, 70, -100, -20);
    one.TransformBegin(2, 44100, props);
    two.TransformBegin(2, 44100, props);
    enginetest::Render(one, props, whole, 0, total);
    enginetest::Render(two, props, split, 0, c.first);
    enginetest::Render(two, props, split, c.first, total - c.first);
    for (int ch = 0; ch < 2; ++ch) {
        for (unsigned int n = 0; n < total; ++n) {
            if (c.effect == kEffect_Flange) {
                ASSERT_NEAR(split[ch][n], whole[ch][n], 1e-6) << ch << " " << n;
            } else {
                ASSERT_EQ(split[ch][n], whole[ch][n]) << ch << " " << n;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Splits, VandrelEngineSplitTest,
                         ::testing::Values(SplitCase{kEffect_Flange, 1},
                                           SplitCase{kEffect_Flange, 4409},
                                           SplitCase{kEffect_Phaser, 64},
                                           SplitCase{kEffect_WahWah, 2205},
                                           SplitCase{kEffect_WahWah, 6999}));

class VandrelEngineChannelCountTest : public ::testing::TestWithParam<int>
{
};

// Identical input on every channel: the swept filters give identical
// outputs; the flanger differs only by the channel factors, as the
// reference says.
TEST_P(VandrelEngineChannelCountTest, EveryChannelIsProcessed)
{
    const int channels = GetParam();
    const Buffers in = enginetest::Noise(channels, 3000, 8, true);
    for (std::int64_t effect : {kEffect_Phaser, kEffect_WahWah}) {
        CVandrelEngine engine;
        _transform_props props = MakeProps(effect, 5000, 70, 700, 60, -200, 0);
        engine.TransformBegin(channels, 44100, props);
        Buffers out = in;
        EXPECT_EQ(Transform(engine, out, 3000), 3000u);
        EXPECT_NE(out[0], in[0]);
        for (int c = 1; c < channels; ++c) {
            ASSERT_EQ(out[c], out[0]) << "effect " << effect << " channel " << c;
        }
    }

    CVandrelEngine engine;
    _transform_props props = MakeProps(kEffect_Flange, 15000, 90, 100, 1, -150, -10);
    engine.TransformBegin(channels, 44100, props);
    Buffers out = in;
    EXPECT_EQ(Transform(engine, out, 3000), 3000u);
    EXPECT_EQ(out, enginetest::ReferenceFlanger(in, 44100, props));
}

INSTANTIATE_TEST_SUITE_P(OneTo32, VandrelEngineChannelCountTest, ::testing::Range(1, 33));

} // namespace

namespace {

// Parameters are not clamped by the unit, so any property value can arrive:
// the engine must stay within its memory and free of undefined behaviour.
TEST(VandrelEngineLifecycleTest, ExtremePropertiesStayWithinBounds)
{
    const std::int64_t big = INT64_MAX;
    const std::int64_t small = INT64_MIN;
    const _transform_props cases[] = {
        MakeProps(kEffect_Flange, big, big, big, big, big, big),
        MakeProps(kEffect_Flange, small, small, small, small, small, small),
        MakeProps(kEffect_Flange, 1, 100000000000LL, 100, 1, 0, 0),
        MakeProps(kEffect_Phaser, big, big, big, big, 0, 0),
        MakeProps(kEffect_WahWah, small, small, small, small, 0, 0),
        MakeProps(kEffect_WahWah, 1, -7, -300, 0, 0, 0),
    };
    for (int sampleRate : {44100, 0, -44100, INT32_MAX}) {
        for (const _transform_props& c : cases) {
            CVandrelEngine engine;
            _transform_props props = c;
            engine.TransformBegin(3, sampleRate, props);
            Buffers buffers = enginetest::Noise(3, 300, 6);
            for (int k = 0; k < 3; ++k) {
                enginetest::Render(engine, props, buffers, 100 * k, 100);
            }
            EXPECT_GE(engine.lWritePos, 0);
            EXPECT_LT(engine.lWritePos, CVandrelEngine::kDelayFrames);
        }
    }
}

} // namespace
