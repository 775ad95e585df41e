// The phaser and wah-wah run separate channel buffers in pairs, one sweep
// pass for both; buffers that share samples run channel after channel. Either
// way the result is bit for bit that of the one-sample routine applied to
// every sample, channel after channel, each channel from the same sweep state.
#include "VandrelEngine.h"
#include "VandrelEngineTestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

using enginetest::Buffers;
using enginetest::MakeProps;

// The straightforward driver: ProcessWahWah_FloatSample on every sample of
// channel 0, then of channel 1 from the same sweep state, and so on.
void RenderSampleBySample(CVandrelEngine& engine, float* const* channels, unsigned int channelCount,
                          unsigned int frames)
{
    const double startPos = engine.dWahPos;
    const double startStep = engine.dWahStep;
    for (unsigned int c = 0; c < channelCount; ++c) {
        engine.dWahPos = startPos;
        engine.dWahStep = startStep;
        for (unsigned int f = 0; f < frames; ++f) {
            channels[c][f] = engine.ProcessWahWah_FloatSample(&channels[c][f], c);
        }
    }
}

bool SameBits(const std::vector<float>& a, const std::vector<float>& b)
{
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

struct PairCase
{
    std::int64_t effect;
    unsigned int channels;
};

class VandrelEngineChannelPairsTest : public ::testing::TestWithParam<PairCase>
{
};

TEST_P(VandrelEngineChannelPairsTest, SeparateBuffersMatchTheOneSampleRoutine)
{
    const PairCase param = GetParam();
    // Rate 20 Hz at 44100 Hz: the sweep turns every 1102 samples, so the
    // renders below cross both ends, also in the middle of a render.
    _transform_props props = MakeProps(param.effect, 20000, 80, 1500, 90, -60, -20);
    _transform_props refProps = props;
    CVandrelEngine engine;
    CVandrelEngine reference;
    ASSERT_EQ(engine.TransformBegin(static_cast<int>(param.channels), 44100, props), 0);
    ASSERT_EQ(reference.TransformBegin(static_cast<int>(param.channels), 44100, refProps), 0);

    const unsigned int kSizes[] = {1, 511, 1024, 3, 2000, 0, 777};
    Buffers buffers = enginetest::Noise(static_cast<int>(param.channels), 6000, 7);
    Buffers expected = buffers;
    std::size_t start = 0;
    for (unsigned int frames : kSizes) {
        float* pointers[CVandrelEngine::kMaxChannels] = {};
        float* refPointers[CVandrelEngine::kMaxChannels] = {};
        for (unsigned int c = 0; c < param.channels; ++c) {
            pointers[c] = buffers[c].data() + start;
            refPointers[c] = expected[c].data() + start;
        }
        engine.TransformCookProperties(props, TRANSFORM_CONTINUE);
        reference.TransformCookProperties(refProps, TRANSFORM_CONTINUE);
        unsigned int count = frames;
        ASSERT_EQ(engine.TransformFloat(TRANSFORM_CONTINUE, pointers, param.channels, count, false),
                  0);
        EXPECT_EQ(count, frames);
        RenderSampleBySample(reference, refPointers, param.channels, frames);
        start += frames;

        EXPECT_EQ(engine.dWahPos, reference.dWahPos) << "after " << start << " frames";
        EXPECT_EQ(engine.dWahStep, reference.dWahStep) << "after " << start << " frames";
        for (unsigned int c = 0; c < param.channels; ++c) {
            EXPECT_EQ(engine.adWahY1[c], reference.adWahY1[c]) << "channel " << c;
            EXPECT_EQ(engine.adWahY2[c], reference.adWahY2[c]) << "channel " << c;
        }
    }
    for (unsigned int c = 0; c < param.channels; ++c) {
        EXPECT_TRUE(SameBits(buffers[c], expected[c])) << "channel " << c;
    }
}

INSTANTIATE_TEST_SUITE_P(Counts, VandrelEngineChannelPairsTest,
                         ::testing::Values(PairCase{kEffect_Phaser, 1}, PairCase{kEffect_Phaser, 2},
                                           PairCase{kEffect_Phaser, 3}, PairCase{kEffect_WahWah, 2},
                                           PairCase{kEffect_WahWah, 7},
                                           PairCase{kEffect_WahWah, 32}));

// One buffer passed for two channels, and two buffers that overlap by part of
// their length: each channel reads what the channel before it wrote.
TEST(VandrelEngineChannelPairsOverlapTest, SharedSamplesRunChannelAfterChannel)
{
    for (const std::ptrdiff_t offset : {0, 100}) {
        _transform_props props = MakeProps(kEffect_WahWah, 20000, 50, 1000, 50, -60, 0);
        _transform_props refProps = props;
        CVandrelEngine engine;
        CVandrelEngine reference;
        ASSERT_EQ(engine.TransformBegin(3, 44100, props), 0);
        ASSERT_EQ(reference.TransformBegin(3, 44100, refProps), 0);

        constexpr unsigned int kFrames = 500;
        Buffers buffers = enginetest::Noise(2, kFrames + 100, 11);
        Buffers expected = buffers;
        float* pointers[3] = {buffers[0].data(), buffers[0].data() + offset, buffers[1].data()};
        float* refPointers[3] = {expected[0].data(), expected[0].data() + offset,
                                 expected[1].data()};
        unsigned int count = kFrames;
        ASSERT_EQ(engine.TransformFloat(TRANSFORM_CONTINUE, pointers, 3, count, false), 0);
        RenderSampleBySample(reference, refPointers, 3, kFrames);

        EXPECT_TRUE(SameBits(buffers[0], expected[0])) << "offset " << offset;
        EXPECT_TRUE(SameBits(buffers[1], expected[1])) << "offset " << offset;
        EXPECT_EQ(engine.dWahPos, reference.dWahPos) << "offset " << offset;
    }
}

} // namespace
