// The engine and the unit's parameter mapping against the independent reference chain in
// VandrelEngineReference.h: every rendered float, status and derived value must be the
// reference's exactly, over presets, 0 to 33 channels, several sample rates, varied render
// sizes, changes between renders, restarts, refusals and edge values; last, the mapping of
// values beyond the model.
#include "Vandrel.h"
#include "VandrelEngine.h"
#include "VandrelTestHost.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <iomanip>
#include <string>
#include <tuple>
#include <vector>

namespace {

using vandrel_test::kEdgeValues;
using vandrel_test::kPresetValues;
using vandrel_test::Params;
using vandrel_test::TestSample;
namespace ref = engine_reference;

const unsigned int kRenderSizes[] = {1, 7, 64, 512, 1156};

// The first place where two lists of values differ (NaN matching NaN), if any.
::testing::AssertionResult SameValues(const char* inWhat, const std::vector<double>& inReal,
                                      const std::vector<double>& inExpected)
{
    for (size_t i = 0; i < inReal.size(); ++i) {
        if (!(inReal[i] == inExpected[i]) &&
            !(std::isnan(inReal[i]) && std::isnan(inExpected[i]))) {
            return ::testing::AssertionFailure()
                   << std::setprecision(17) << inWhat << " value " << i << ": engine " << inReal[i]
                   << ", reference " << inExpected[i];
        }
    }
    return ::testing::AssertionSuccess();
}

// Every engine field the reference also keeps, compared exactly, so a mismatch can be traced
// to the first derived value that went astray, even one the output never shows.
::testing::AssertionResult SameState(const CVandrelEngine& e, const ref::Engine& r)
{
    std::vector<double> real = {
        double(e.bValid), double(e.nChannels), double(e.lEffect),   e.dWet,
        e.dDry,           double(e.lWritePos), double(e.lLfoIndex), e.dReadCenter,
        e.dSamplesPerMs,  e.dWahPos,           e.dWahStep,          e.dFeedback};
    std::vector<double> expected = {
        double(r.valid), double(r.channels), double(r.effect),   r.wet,
        r.dry,           double(r.writePos), double(r.lfoIndex), r.readCenter,
        r.samplesPerMs,  r.wahPos,           r.wahStep,          r.feedback};
    for (int c = 0; c < CVandrelEngine::kMaxChannels; ++c) {
        real.insert(real.end(), {e.adFlangeMem[c], e.adWahY1[c], e.adWahY2[c]});
        expected.insert(expected.end(), {r.flangeMem[c], r.wahY1[c], r.wahY2[c]});
    }
    if (e.bValid && e.lEffect == kEffect_Flange) {
        real.insert(real.end(), {e.dSweepDepth, e.dLfoPeriod, e.dLfoOmega});
        expected.insert(expected.end(), {r.sweepDepth, r.lfoPeriod, r.lfoOmega});
        real.insert(real.end(), e.adChanGain, e.adChanGain + CVandrelEngine::kMaxChannels);
        expected.insert(expected.end(), r.chanGain, r.chanGain + ref::kMaxChannels);
    } else if (e.bValid && r.valid) {
        real.push_back(double(e.lWahTableLen));
        expected.push_back(double(r.wahTableLen));
        const double* a1 = e.pdWahA1; // computes every entry
        const double* a2 = e.pdWahA2;
        real.insert(real.end(), a1, a1 + r.wahTableLen);
        real.insert(real.end(), a2, a2 + r.wahTableLen);
        expected.insert(expected.end(), r.wahA1.begin(), r.wahA1.begin() + r.wahTableLen);
        expected.insert(expected.end(), r.wahA2.begin(), r.wahA2.begin() + r.wahTableLen);
    }
    return SameValues("state", real, expected);
}

::testing::AssertionResult SameProps(const _transform_props& a, const ref::Props& b)
{
    return SameValues(
        "mapped",
        {double(a.lDryOut), double(a.lWetOut), double(a.lEffect), double(a.lModRate),
         double(a.lModDepth), double(a.lCenterFreq), double(a.lResonance), double(a.uChanged)},
        {double(b.dryOut), double(b.wetOut), double(b.effect), double(b.modRate),
         double(b.modDepth), double(b.centerFreq), double(b.resonance), double(b.changed)});
}

// The unit's record of the values seen by the previous mapping is process-wide; this is its
// mirror. Every mapping in this program goes through MapBoth, so the two stay in step.
ref::Props gReferencePrevious;

::testing::AssertionResult MapBoth(const Params& inValues, _transform_props& ioProps,
                                   ref::Props& ioRefProps)
{
    AudioUnitParameterValue unitValues[kNumParams];
    std::copy(inValues.begin(), inValues.end(), unitValues);
    Vandrel::MapParameters(unitValues, ioProps);
    ref::mapParameters(inValues.data(), ioRefProps, gReferencePrevious);
    return SameProps(ioProps, ioRefProps);
}

// The engine and the reference driven side by side as the unit drives the engine: map the
// parameters, begin or cook, transform the same input in place; every step compares statuses,
// frame counts, samples and state.
class Chain
{
public:
    ::testing::AssertionResult Begin(int inChannels, int inRate, const Params& inValues)
    {
        mChannels = static_cast<unsigned int>(inChannels);
        if (auto mapped = MapBoth(inValues, mProps, mRefProps); !mapped) {
            return mapped;
        }
        return Compare("TransformBegin", mEngine.TransformBegin(inChannels, inRate, mProps),
                       mRef.begin(inChannels, inRate, mRefProps));
    }

    // A cook of the mapped values, or of an effect number the mapping never produces.
    ::testing::AssertionResult Cook(const Params& inValues, bool inUnknownEffect = false)
    {
        if (auto mapped = MapBoth(inValues, mProps, mRefProps); !mapped) {
            return mapped;
        }
        if (inUnknownEffect) {
            mProps.lEffect = mRefProps.effect = 3;
        }
        return Compare("cook", mEngine.TransformCookProperties(mProps, TRANSFORM_CONTINUE),
                       mRef.cook(mRefProps, ref::State::Continue));
    }

    void End()
    {
        EXPECT_EQ(0, mEngine.TransformEnd());
        mRef.end();
    }

    // Renders inFrames of the test signal on inChannels channels (the stream's by default)
    // through both. Channel c starts inStride samples after channel c - 1 in one block; a
    // stride below inFrames makes the buffers overlap (0: one buffer for all channels).
    ::testing::AssertionResult Render(unsigned int inFrames, int inChannels = -1,
                                      bool inSkip = false, int inStride = -1)
    {
        const unsigned int channels = inChannels < 0 ? mChannels : unsigned(inChannels);
        const size_t stride = inStride < 0 ? inFrames + 1u : size_t(inStride);
        std::vector<float> real(stride * channels + inFrames + 1u, 0.5f);
        for (unsigned int c = 0; c < channels; ++c) {
            for (unsigned int f = 0; f < inFrames; ++f) {
                real[c * stride + f] = TestSample(c, mClock + f);
            }
        }
        std::vector<float> expected = real;
        std::vector<float*> realPointers(channels);
        std::vector<float*> refPointers(channels);
        for (unsigned int c = 0; c < channels; ++c) {
            realPointers[c] = real.data() + c * stride;
            refPointers[c] = expected.data() + c * stride;
        }
        unsigned int realFrames = inFrames;
        unsigned int expectedFrames = inFrames;
        const int32_t status = mEngine.TransformFloat(TRANSFORM_CONTINUE, realPointers.data(),
                                                      channels, realFrames, inSkip);
        const int32_t expectedStatus =
            mRef.transform(refPointers.data(), channels, expectedFrames, inSkip);
        mClock += inFrames;
        if (realFrames != expectedFrames) {
            return ::testing::AssertionFailure()
                   << "frames " << realFrames << ", reference " << expectedFrames;
        }
        for (size_t i = 0; i < real.size(); ++i) {
            if (std::memcmp(&real[i], &expected[i], sizeof(float)) != 0) {
                return ::testing::AssertionFailure()
                       << "sample " << i << " of a render of " << inFrames << " before frame "
                       << mClock << ": engine " << real[i] << ", reference " << expected[i];
            }
        }
        return Compare("TransformFloat", status, expectedStatus);
    }

    CVandrelEngine& Engine() { return mEngine; }

private:
    ::testing::AssertionResult Compare(const char* inStep, int32_t inStatus, int32_t inExpected)
    {
        ::testing::AssertionResult same = SameState(mEngine, mRef);
        if (inStatus != inExpected) {
            same = ::testing::AssertionFailure()
                   << "status " << inStatus << ", reference " << inExpected;
        }
        if (!same) {
            same << " after " << inStep << " at frame " << mClock;
        }
        return same;
    }

    CVandrelEngine mEngine;
    _transform_props mProps{};
    ref::Engine mRef;
    ref::Props mRefProps;
    unsigned int mChannels = 1;
    int64_t mClock = 0;
};

// The parameter sets the stream tests cook in turn: single table inputs changing, edge values,
// presets and edge values alternating, combinations of the edges of every conversion. Every
// cook also compares the unit's mapping, change mask included.
std::vector<Params> ChangeSequence()
{
    // A sweep whose table inputs change one at a time: the engine must rebuild its tables.
    std::vector<Params> sequence = {{-80, 0, 2, 1, 50, 1000, 50}, {-80, 0, 2, 2, 50, 1000, 50},
                                    {-80, 0, 2, 1, 50, 1000, 50}, {-80, 0, 2, 1, 60, 1000, 50},
                                    {-80, 0, 2, 1, 50, 1000, 50}, {-80, 0, 2, 1, 50, 1200, 50},
                                    {-80, 0, 2, 1, 50, 1000, 50}, {-80, 0, 2, 1, 50, 1000, 70}};
    sequence.insert(sequence.end(), std::begin(kEdgeValues), std::end(kEdgeValues));
    for (size_t p = 0; p < 15; ++p) {
        sequence.push_back(kPresetValues[(p * 7) % 15]);
        sequence.push_back(kEdgeValues[(p * 5) % std::size(kEdgeValues)]);
    }
    const float levels[] = {-80, -79.95f, -79.9f, -5.25f, -0.05f, 0.05f, 11.99f, 12, -1000};
    const float effects[] = {0, 0.5f, 0.999f, 1, 1.5f, 1.999f, 2, 2.5f, 7.5f, -1};
    const float rates[] = {0.001f, 0.0015f, 0.007f, 0.1f, 0.2f, 4.5f, 13.7f, 19.999f, 20, 50};
    const float wholes[] = {0, 0.999f, 1, 49.5f, 50, 99.99f, 100, 4999.9f, -2.5f};
    for (size_t i = 0; i < 40; ++i) {
        sequence.push_back({levels[i % 9], levels[(i * 4) % 9], effects[i % 10],
                            rates[(i * 3) % 10], wholes[i % 9], wholes[(i * 2) % 9] * 50.0f,
                            wholes[(i * 5) % 9]});
    }
    return sequence;
}

class EngineReferenceStreamTest : public ::testing::TestWithParam<std::tuple<int, int>>
{
};

// Six stream rounds with parameters changing before every render, so the state carried across
// cooks must match too. Between rounds the stream ends (once or twice), and a cook and a render
// without a stream are refused alike; TransformBegin then rebuilds the state but keeps the
// sweep direction and the filter memories of channels 2 and up. Round 3 changes the channel
// count, round 4 the sample rate.
TEST_P(EngineReferenceStreamTest, ChangesAndRestartsMatchReference)
{
    const auto [channels, rate] = GetParam();
    const std::vector<Params> sequence = ChangeSequence();
    Chain chain;
    for (int round = 0; round < 6; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const int roundChannels = round == 3 ? (channels % 5) + 1 : channels;
        const int roundRate = round == 4 ? (rate == 44100 ? 48000 : 44100) : rate;
        ASSERT_TRUE(chain.Begin(roundChannels, roundRate, kPresetValues[(round * 4 + 5) % 15]));
        for (size_t i = 0; i < 110; ++i) {
            const size_t set = (static_cast<size_t>(round) * 17 + i / 3) % sequence.size();
            if (i > 0) {
                ASSERT_TRUE(chain.Cook(sequence[set])) << "render " << i << ", set " << set;
            }
            ASSERT_TRUE(chain.Render(kRenderSizes[(i * 3 + static_cast<size_t>(round)) % 5]))
                << "render " << i << ", set " << set;
        }
        chain.End();
        if (round % 2 == 1) {
            chain.End();
        }
        ASSERT_TRUE(chain.Cook(kPresetValues[round]));
        ASSERT_TRUE(chain.Render(64));
    }
}

INSTANTIATE_TEST_SUITE_P(ChannelsAndRates, EngineReferenceStreamTest,
                         ::testing::Combine(::testing::Values(1, 2, 5, 32),
                                            ::testing::Values(44100, 48000, 22050, 96000)));

// Sample rates far below audio rates: whole milliseconds of 0 or 1 sample, sweep tables of a
// single entry (the sweep then reverses every sample) or a few dozen.
INSTANTIATE_TEST_SUITE_P(VeryLowRates, EngineReferenceStreamTest,
                         ::testing::Combine(::testing::Values(1, 2, 5),
                                            ::testing::Values(40, 1000, 1999)));

// Renders that process nothing or part of the stream's channels: a stream of no channels, no
// frames, no channels (the flanger still advances, the sweep does not), fewer channels (the
// flanger's line then takes the render's count), more (the flanger refuses; beyond 32, all do),
// overlapping or shared buffers (each channel reads what the one before it wrote), skip, a
// refused TransformBegin that leaves the stream as it was, a restart at another sample rate
// with the same settings, an effect number never mapped.
TEST(EngineReferenceDriverTest, DegenerateRendersMatchReference)
{
    for (int effect = 0; effect < 3; ++effect) {
        SCOPED_TRACE("effect " + std::to_string(effect));
        const Params values = kPresetValues[effect == 0 ? 1 : (effect == 1 ? 6 : 9)];
        Chain chain;
        ASSERT_TRUE(chain.Begin(0, 44100, values));
        ASSERT_TRUE(chain.Render(100));
        ASSERT_TRUE(chain.Begin(3, 44100, values));
        ASSERT_TRUE(chain.Render(300));
        ASSERT_TRUE(chain.Render(0));
        ASSERT_TRUE(chain.Cook(values));
        ASSERT_TRUE(chain.Render(77, 0));
        ASSERT_TRUE(chain.Render(64));
        ASSERT_TRUE(chain.Cook(values));
        ASSERT_TRUE(chain.Render(129, 2));
        ASSERT_TRUE(chain.Render(64, 1));
        ASSERT_TRUE(chain.Render(65, 4));
        ASSERT_TRUE(chain.Render(33, 33));
        ASSERT_TRUE(chain.Render(200, 3, false, 100));
        ASSERT_TRUE(chain.Render(200, 2, false, 0));
        ASSERT_TRUE(chain.Render(100, 3, true));
        for (int bad : {33, -1}) {
            _transform_props props{};
            EXPECT_EQ(CVandrelEngine::kStatusBadChannelCount,
                      chain.Engine().TransformBegin(bad, 8000, props));
        }
        ASSERT_TRUE(chain.Render(512));
        ASSERT_TRUE(chain.Begin(3, 22050, values));
        ASSERT_TRUE(chain.Render(300));
        ASSERT_TRUE(chain.Cook(values, true));
        ASSERT_TRUE(chain.Render(50));
        ASSERT_TRUE(chain.Cook(values));
        ASSERT_TRUE(chain.Render(1156));
    }
}

// Unclamped host values beyond the model: the unit's mapping reads NaN as 0 and saturates
// huge values.
TEST(EngineBeyondReferenceTest, UnitMappingSaturates)
{
    _transform_props props{};
    ref::Props refProps;
    constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
    constexpr float kInf = std::numeric_limits<float>::infinity();
    constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
    constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
    const AudioUnitParameterValue extreme[kNumParams] = {kNaN,  kInf,   kNaN, -kInf,
                                                         1e30f, -1e30f, kNaN};
    Vandrel::MapParameters(extreme, props);
    const int64_t expected[7] = {0, kMax, kEffect_WahWah, kMin, kMax, kMin, 0};
    const int64_t mapped[7] = {props.lDryOut,   props.lWetOut,     props.lEffect,   props.lModRate,
                               props.lModDepth, props.lCenterFreq, props.lResonance};
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(expected[i], mapped[i]) << "field " << i;
    }
    // Back in step with the mirror for the tests that follow.
    (void)MapBoth(kPresetValues[0], props, refProps);
}

} // namespace
