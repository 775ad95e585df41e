// The engine and the unit's parameter mapping against the independent reference chain in
// VandrelEngineReference.h: every rendered float must be bit for bit the reference's, over the
// factory presets, several channel counts and sample rates, varied render sizes, parameter
// changes between renders, stream restarts and edge values of the mapping.
#include "Vandrel.h"
#include "VandrelEngine.h"
#include "VandrelEngineReference.h"
#include "VandrelTestHost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iomanip>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

namespace {

namespace ref = engine_reference;

using Params = std::array<float, 7>;

// Dry, wet, effect, rate, depth, centre, resonance, as the factory presets set them.
const Params kPresetValues[15] = {
    {-80.0f, 0.0f, 0.0f, 10.0f, 10.0f, 100.0f, 1.0f},
    {-5.0f, -6.0f, 0.0f, 1.0f, 85.0f, 100.0f, 1.0f},
    {-6.0f, -6.0f, 0.0f, 5.0f, 50.0f, 100.0f, 1.0f},
    {-3.0f, -2.0f, 0.0f, 0.1f, 100.0f, 100.0f, 1.0f},
    {-2.5f, -2.5f, 0.0f, 0.5f, 85.0f, 100.0f, 1.0f},
    {-80.0f, 0.0f, 1.0f, 0.5f, 50.0f, 1000.0f, 50.0f},
    {-80.0f, 0.0f, 1.0f, 4.5f, 50.0f, 1000.0f, 50.0f},
    {-80.0f, 0.0f, 1.0f, 10.0f, 50.0f, 2000.0f, 40.0f},
    {-80.0f, 0.0f, 2.0f, 1.0f, 50.0f, 1000.0f, 50.0f},
    {-80.0f, 0.0f, 2.0f, 2.0f, 50.0f, 1000.0f, 80.0f},
    {-15.0f, 0.0f, 2.0f, 0.2f, 50.0f, 500.0f, 100.0f},
    {-80.0f, 0.0f, 2.0f, 0.5f, 70.0f, 3000.0f, 50.0f},
    {-80.0f, 0.0f, 2.0f, 10.0f, 50.0f, 2000.0f, 50.0f},
    {-5.0f, -5.0f, 0.0f, 20.0f, 85.0f, 100.0f, 1.0f},
    {-5.0f, -5.0f, 0.0f, 20.0f, 20.0f, 100.0f, 1.0f},
};

// Parameter sets for changes between renders: edges of the mapping and values outside the
// advertised ranges, which the unit passes on unclamped.
const Params kEdgeValues[] = {
    {-80.0f, 0.0f, 0.999f, 0.001f, 10.0f, 100.0f, 1.0f},
    {-79.95f, 12.0f, 1.0f, 0.007f, 100.0f, 5000.0f, 100.0f},
    {12.0f, -79.9f, 1.999f, 20.0f, 1.0f, 100.0f, 49.0f},
    {-5.25f, -0.05f, 2.5f, 50.0f, 0.0f, 3000.0f, 50.999f},
    {0.0f, 0.0f, 2.0f, 0.007f, 99.9f, 4999.9f, 0.0f},
    {-6.0f, -6.0f, 0.0f, 50.0f, 0.0f, 100.0f, 1.0f},
    {-6.0f, 3.0f, 0.5f, 0.001f, 1000.0f, 100.0f, 1.0f},
    {-100.0f, -3.0f, 1.5f, 13.7f, 51.0f, 777.7f, 150.0f},
    {-3.0f, -3.0f, 0.0f, 19.999f, 20000.0f, 100.0f, 1.0f},
    {-80.0f, 0.0f, 7.5f, 0.0015f, 20000.0f, 250.0f, 99.0f},
    {-12.0f, -1.0f, 0.0f, 7.77f, 2.0f, 100.0f, 1.0f},
    {-20.0f, -2.0f, 1.0f, 2.0f, 50.0f, 1000.0f, 80.0f},
};

const unsigned int kRenderSizes[] = {1, 7, 64, 512, 1156};

uint32_t Bits(float inValue)
{
    uint32_t bits;
    std::memcpy(&bits, &inValue, sizeof bits);
    return bits;
}

// Deterministic test signal, a function of channel and absolute frame only: a unit impulse
// every 3001 frames, a rising sine sweep and fixed-seed noise, with a long silent stretch in
// every 150000 frames so that the stored filter and delay state decays through the flush
// threshold.
class TestSignal
{
public:
    explicit TestSignal(int inRate) : mRate(inRate) {}

    float Sample(unsigned int inChannel, int64_t inFrame) const
    {
        const int64_t cycle = inFrame % 150000;
        if (cycle >= 100000 && cycle < 130000) {
            return 0.0f;
        }
        if (inFrame % 3001 == static_cast<int64_t>(inChannel) * 5) {
            return 1.0f;
        }
        const double t = static_cast<double>(inFrame) / static_cast<double>(mRate);
        const double sweep = 0.4 * std::sin(2.0 * 3.141592653589793 * (30.0 * t + 400.0 * t * t) +
                                            0.3 * static_cast<double>(inChannel));
        uint32_t x = static_cast<uint32_t>(inFrame) * 2654435761u + (inChannel + 1u) * 40503u;
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        const double noise = (static_cast<double>(x) / 4294967296.0 - 0.5) * 0.3;
        return static_cast<float>(sweep + noise);
    }

private:
    int mRate;
};

// The engine fields that the reference also keeps, compared exactly, so a mismatch in the
// output can be traced to the first derived value that went astray.
::testing::AssertionResult SameState(const CVandrelEngine& inEngine, const ref::Engine& inRef)
{
    std::ostringstream diff;
    auto check = [&diff](const char* inName, double inReal, double inExpected) {
        if (!(inReal == inExpected) && !(std::isnan(inReal) && std::isnan(inExpected))) {
            diff.precision(17);
            diff << ' ' << inName << " engine " << inReal << " reference " << inExpected << ';';
        }
    };
    check("bValid", inEngine.bValid, inRef.valid());
    check("dWet", inEngine.dWet, inRef.wet());
    check("dDry", inEngine.dDry, inRef.dry());
    check("lWritePos", static_cast<double>(inEngine.lWritePos),
          static_cast<double>(inRef.writePos()));
    check("lLfoIndex", static_cast<double>(inEngine.lLfoIndex),
          static_cast<double>(inRef.lfoIndex()));
    check("dReadCenter", inEngine.dReadCenter, inRef.readCenter());
    check("dSamplesPerMs", inEngine.dSamplesPerMs, inRef.samplesPerMs());
    check("dWahPos", inEngine.dWahPos, inRef.wahPos());
    check("dWahStep", inEngine.dWahStep, inRef.wahStep());
    if (inEngine.lEffect == kEffect_Flange) {
        check("dSweepDepth", inEngine.dSweepDepth, inRef.sweepDepth());
        check("dLfoPeriod", inEngine.dLfoPeriod, inRef.lfoPeriod());
        check("dLfoOmega", inEngine.dLfoOmega, inRef.lfoOmega());
        for (int c = 0; c < CVandrelEngine::kMaxChannels; ++c) {
            check("adChanGain", inEngine.adChanGain[c], inRef.chanGain(c));
        }
    } else if (inEngine.lEffect == kEffect_Phaser || inEngine.lEffect == kEffect_WahWah) {
        check("lWahTableLen", static_cast<double>(inEngine.lWahTableLen),
              static_cast<double>(inRef.wahTableLength()));
        for (int64_t j = 0; j < inRef.wahTableLength() && j < CVandrelEngine::kWahTableSize; ++j) {
            const int index = static_cast<int>(j);
            check("pdWahA1", inEngine.pdWahA1[index], inRef.wahA1(index));
            check("pdWahA2", inEngine.pdWahA2[index], inRef.wahA2(index));
        }
    }
    if (diff.str().empty()) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "state differs:" << diff.str();
}

::testing::AssertionResult SameProps(const _transform_props& inReal, const ref::Props& inExpected)
{
    const int64_t real[7] = {inReal.lDryOut,   inReal.lWetOut,   inReal.lEffect,
                             inReal.lModRate,  inReal.lModDepth, inReal.lCenterFreq,
                             inReal.lResonance};
    const int64_t expected[7] = {inExpected.dryOut,   inExpected.wetOut,   inExpected.effect,
                                 inExpected.modRate,  inExpected.modDepth, inExpected.centerFreq,
                                 inExpected.resonance};
    for (int i = 0; i < 7; ++i) {
        if (real[i] != expected[i]) {
            return ::testing::AssertionFailure()
                   << "field " << i << ": mapping " << real[i] << ", reference " << expected[i];
        }
    }
    if (inReal.uChanged != inExpected.changed) {
        return ::testing::AssertionFailure()
               << "uChanged: mapping " << inReal.uChanged << ", reference " << inExpected.changed;
    }
    return ::testing::AssertionSuccess();
}

// The record of values seen by the previous mapping is process-wide in the unit; this is its
// mirror for the reference. Every mapping in this program goes through Chain::Map or
// MapBoth, so the two stay in step.
ref::Props gReferencePrevious;

void MapBoth(const Params& inValues, _transform_props& ioProps, ref::Props& ioRefProps)
{
    AudioUnitParameterValue unitValues[kNumParams];
    std::copy(inValues.begin(), inValues.end(), unitValues);
    Vandrel::MapParameters(unitValues, ioProps);
    ref::mapParameters(inValues.data(), ioRefProps, gReferencePrevious);
}

// Brings the unit's record of previous values and its mirror into the same state (the unit's
// own renders also map parameters), so the change masks that follow can be compared.
void SyncPreviousValues()
{
    _transform_props props{};
    ref::Props refProps;
    MapBoth(kPresetValues[0], props, refProps);
}

// The engine and the reference driven side by side as the unit drives the engine: map the
// parameters, begin or cook, transform the same input in place.
class Chain
{
public:
    Chain() : mProps{} { SyncPreviousValues(); }

    ::testing::AssertionResult Map(const Params& inValues)
    {
        MapBoth(inValues, mProps, mRefProps);
        return SameProps(mProps, mRefProps);
    }

    ::testing::AssertionResult Begin(int inChannels, int inRate, const Params& inValues)
    {
        const ::testing::AssertionResult mapped = Map(inValues);
        if (!mapped) {
            return mapped;
        }
        mChannels = static_cast<unsigned int>(inChannels);
        mSignal = TestSignal(inRate);
        const int32_t status = mEngine.TransformBegin(inChannels, inRate, mProps);
        const int32_t expected = mRef.begin(inChannels, inRate, mRefProps);
        if (status != expected) {
            return ::testing::AssertionFailure()
                   << "TransformBegin status " << status << ", reference " << expected;
        }
        return After("TransformBegin");
    }

    ::testing::AssertionResult Cook(const Params& inValues)
    {
        const ::testing::AssertionResult mapped = Map(inValues);
        if (!mapped) {
            return mapped;
        }
        const int32_t status = mEngine.TransformCookProperties(mProps, TRANSFORM_CONTINUE);
        const int32_t expected = mRef.cook(mRefProps, ref::State::Continue);
        if (status != expected) {
            return ::testing::AssertionFailure()
                   << "cook status " << status << ", reference " << expected;
        }
        return After("cook");
    }

    void End()
    {
        mEngine.TransformEnd();
        mRef.end();
    }

    // Renders inFrames of the test signal on inChannels channels (the stream's by default)
    // through both and compares every sample bit for bit, then the state.
    ::testing::AssertionResult Render(unsigned int inFrames, int inChannels = -1)
    {
        const unsigned int channels =
            inChannels < 0 ? mChannels : static_cast<unsigned int>(inChannels);
        std::vector<std::vector<float>> real(channels, std::vector<float>(inFrames + 1u));
        std::vector<std::vector<float>> expected(channels, std::vector<float>(inFrames + 1u));
        float* realPointers[ref::kMaxChannels] = {};
        float* expectedPointers[ref::kMaxChannels] = {};
        for (unsigned int c = 0; c < channels; ++c) {
            for (unsigned int f = 0; f < inFrames; ++f) {
                real[c][f] = mSignal.Sample(c, mClock + f);
                expected[c][f] = real[c][f];
            }
            realPointers[c] = real[c].data();
            expectedPointers[c] = expected[c].data();
        }
        unsigned int realFrames = inFrames;
        unsigned int expectedFrames = inFrames;
        const int32_t status =
            mEngine.TransformFloat(TRANSFORM_CONTINUE, realPointers, channels, realFrames, false);
        const int32_t expectedStatus =
            mRef.transform(expectedPointers, channels, expectedFrames, false);
        const int64_t start = mClock;
        mClock += inFrames;
        if (status != expectedStatus || realFrames != expectedFrames) {
            return ::testing::AssertionFailure()
                   << "TransformFloat status " << status << " frames " << realFrames
                   << ", reference " << expectedStatus << " frames " << expectedFrames;
        }
        for (unsigned int c = 0; c < channels; ++c) {
            for (unsigned int f = 0; f < inFrames; ++f) {
                if (Bits(real[c][f]) != Bits(expected[c][f])) {
                    return ::testing::AssertionFailure()
                           << std::setprecision(9) << "channel " << c << " frame " << f
                           << " of a render of " << inFrames << " starting at " << start
                           << ": engine " << real[c][f] << ", reference " << expected[c][f];
                }
            }
        }
        return After("TransformFloat");
    }

    CVandrelEngine& Engine() { return mEngine; }
    ref::Engine& Reference() { return mRef; }
    _transform_props& Props() { return mProps; }
    ref::Props& RefProps() { return mRefProps; }

private:
    ::testing::AssertionResult After(const char* inStep)
    {
        ::testing::AssertionResult same = SameState(mEngine, mRef);
        if (!same) {
            same << " after " << inStep << " at frame " << mClock;
        }
        return same;
    }

    CVandrelEngine mEngine;
    _transform_props mProps;
    ref::Engine mRef;
    ref::Props mRefProps;
    TestSignal mSignal{44100};
    unsigned int mChannels = 1;
    int64_t mClock = 0;
};

std::string RateChannelsName(int inRate, int inChannels)
{
    return std::to_string(inRate) + "Hz_" + std::to_string(inChannels) + "ch";
}

// Each factory preset over three seconds, rendered in slices of varied sizes with a cook
// before every render after the first, as the unit does.
class EngineReferencePresetTest : public ::testing::TestWithParam<std::tuple<int, int, int>>
{
};

TEST_P(EngineReferencePresetTest, PresetRenderMatchesReferenceBitForBit)
{
    const int preset = std::get<0>(GetParam());
    const int channels = std::get<1>(GetParam());
    const int rate = std::get<2>(GetParam());
    Chain chain;
    ASSERT_TRUE(chain.Begin(channels, rate, kPresetValues[preset]));
    const int64_t total = 3 * static_cast<int64_t>(rate);
    int64_t done = 0;
    for (size_t i = 0; done < total; ++i) {
        const unsigned int frames = kRenderSizes[i % 5];
        if (i > 0) {
            ASSERT_TRUE(chain.Cook(kPresetValues[preset])) << "render " << i;
        }
        ASSERT_TRUE(chain.Render(frames)) << "render " << i;
        done += frames;
    }
}

INSTANTIATE_TEST_SUITE_P(AllPresets, EngineReferencePresetTest,
                         ::testing::Combine(::testing::Range(0, 15), ::testing::Values(1, 2, 5),
                                            ::testing::Values(44100, 48000, 22050, 96000)),
                         [](const ::testing::TestParamInfo<std::tuple<int, int, int>>& inInfo) {
                             return "Preset" + std::to_string(std::get<0>(inInfo.param)) + "_" +
                                    RateChannelsName(std::get<2>(inInfo.param),
                                                     std::get<1>(inInfo.param));
                         });

class EngineReferenceStreamTest : public ::testing::TestWithParam<std::tuple<int, int>>
{
};

// Parameters change between renders: presets and edge values in turn, switching effects,
// levels, rates and depths mid-stream, so state carried across cooks (oscillator index, sweep
// position and direction, frozen effect state) must match too.
TEST_P(EngineReferenceStreamTest, ParameterChangesBetweenRendersMatchReference)
{
    const int channels = std::get<0>(GetParam());
    const int rate = std::get<1>(GetParam());
    std::vector<Params> sequence(std::begin(kEdgeValues), std::end(kEdgeValues));
    for (int p = 0; p < 15; ++p) {
        sequence.push_back(kPresetValues[(p * 7) % 15]);
        sequence.push_back(kEdgeValues[(p * 5) % 12]);
    }
    Chain chain;
    ASSERT_TRUE(chain.Begin(channels, rate, kPresetValues[0]));
    const int64_t total = 4 * static_cast<int64_t>(rate);
    int64_t done = 0;
    for (size_t i = 0; done < total; ++i) {
        const Params& values = sequence[(i / 3) % sequence.size()];
        ASSERT_TRUE(chain.Cook(values))
            << "render " << i << ", parameter set " << (i / 3) % sequence.size();
        const unsigned int frames = kRenderSizes[(i * 3) % 5];
        ASSERT_TRUE(chain.Render(frames))
            << "render " << i << ", parameter set " << (i / 3) % sequence.size();
        done += frames;
    }
}

// Restarts: TransformEnd then TransformBegin rebuild the state, but keep the sweep direction
// and the filter memories of channels 2 and up; a restart may change channel count and rate.
TEST_P(EngineReferenceStreamTest, RestartsMatchReference)
{
    const int channels = std::get<0>(GetParam());
    const int rate = std::get<1>(GetParam());
    const int otherRate = rate == 44100 ? 48000 : 44100;
    Chain chain;
    for (int round = 0; round < 6; ++round) {
        const Params& values = kPresetValues[(round * 4 + 5) % 15];
        const int roundChannels = round == 3 ? (channels % 5) + 1 : channels;
        const int roundRate = round == 4 ? otherRate : rate;
        ASSERT_TRUE(chain.Begin(roundChannels, roundRate, values)) << "round " << round;
        int64_t done = 0;
        for (size_t i = 0; done < roundRate / 2 + 701 * round; ++i) {
            if (i > 0) {
                ASSERT_TRUE(chain.Cook(i % 40 < 20 ? values : kEdgeValues[round % 12]))
                    << "round " << round << " render " << i;
            }
            const unsigned int frames = kRenderSizes[(i + static_cast<size_t>(round)) % 5];
            ASSERT_TRUE(chain.Render(frames)) << "round " << round << " render " << i;
            done += frames;
        }
        chain.End();
        if (round % 2 == 1) {
            chain.End();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(ChannelsAndRates, EngineReferenceStreamTest,
                         ::testing::Combine(::testing::Values(1, 2, 5, 32),
                                            ::testing::Values(44100, 48000, 22050)),
                         [](const ::testing::TestParamInfo<std::tuple<int, int>>& inInfo) {
                             return RateChannelsName(std::get<1>(inInfo.param),
                                                     std::get<0>(inInfo.param));
                         });

// Renders that process nothing or only part of the stream's channels: zero frames, zero
// channels (the flanger still advances, the sweep does not), fewer channels than the stream
// (the flanger's delay line then uses the render's channel count), skip, and an effect number
// the mapping never produces.
TEST(EngineReferenceDriverTest, DegenerateRendersMatchReference)
{
    for (int effect = 0; effect < 3; ++effect) {
        SCOPED_TRACE("effect " + std::to_string(effect));
        Params values = kPresetValues[effect == 0 ? 1 : (effect == 1 ? 6 : 9)];
        Chain chain;
        ASSERT_TRUE(chain.Begin(3, 44100, values));
        ASSERT_TRUE(chain.Render(300));
        ASSERT_TRUE(chain.Render(0));
        ASSERT_TRUE(chain.Cook(values));
        ASSERT_TRUE(chain.Render(77, 0));
        ASSERT_TRUE(chain.Render(64));
        ASSERT_TRUE(chain.Cook(values));
        ASSERT_TRUE(chain.Render(129, 2));
        ASSERT_TRUE(chain.Render(64, 1));
        ASSERT_TRUE(chain.Render(512));

        float sample = 0.25f;
        float* pointer = &sample;
        unsigned int frames = 1;
        EXPECT_EQ(1, chain.Engine().TransformFloat(TRANSFORM_CONTINUE, &pointer, 1, frames, true));
        EXPECT_EQ(0u, frames);
        EXPECT_EQ(Bits(0.25f), Bits(sample));

        chain.Props().lEffect = 3;
        chain.RefProps().effect = 3;
        EXPECT_EQ(ref::kUnknownEffectStatus,
                  chain.Engine().TransformCookProperties(chain.Props(), TRANSFORM_CONTINUE));
        EXPECT_EQ(ref::kUnknownEffectStatus,
                  chain.Reference().cook(chain.RefProps(), ref::State::Continue));
        EXPECT_TRUE(SameState(chain.Engine(), chain.Reference()));
        ASSERT_TRUE(chain.Render(50));
        ASSERT_TRUE(chain.Cook(values));
        ASSERT_TRUE(chain.Render(1156));
    }
}

// The unit's mapping against the reference mapping, field by field and for the change mask,
// over the edges of every conversion: truncation of levels and rate, the effect thresholds,
// single-precision rate minimum, values beyond the advertised ranges.
TEST(EngineReferenceMappingTest, UnitMappingMatchesReference)
{
    std::vector<Params> values(std::begin(kPresetValues), std::end(kPresetValues));
    values.insert(values.end(), std::begin(kEdgeValues), std::end(kEdgeValues));
    const float levels[] = {-80.0f, -79.95f, -79.9f, -5.25f,  -0.05f,
                            0.05f,  11.99f,  12.0f,  -1000.0f};
    const float effects[] = {0.0f, 0.5f, 0.999f, 1.0f, 1.5f, 1.999f, 2.0f, 2.5f, 7.5f, -1.0f};
    const float rates[] = {0.001f, 0.0015f, 0.007f, 0.1f, 0.2f, 4.5f, 13.7f, 19.999f, 20.0f, 50.0f};
    const float wholes[] = {0.0f, 0.999f, 1.0f, 49.5f, 50.0f, 99.99f, 100.0f, 4999.9f, -2.5f};
    for (size_t i = 0; i < 40; ++i) {
        values.push_back({levels[i % 9], levels[(i * 4) % 9], effects[i % 10], rates[(i * 3) % 10],
                          wholes[i % 9], wholes[(i * 2) % 9] * 50.0f, wholes[(i * 5) % 9]});
    }
    SyncPreviousValues();
    _transform_props props{};
    ref::Props refProps;
    for (size_t i = 0; i < values.size(); ++i) {
        for (int repeat = 0; repeat < 2; ++repeat) {
            MapBoth(values[i], props, refProps);
            ASSERT_TRUE(SameProps(props, refProps)) << "set " << i << " repeat " << repeat;
            props.uChanged = 0;
            refProps.changed = 0;
        }
        Params levelOnly = values[i];
        levelOnly[1] += 1.0f;
        MapBoth(levelOnly, props, refProps);
        ASSERT_TRUE(SameProps(props, refProps)) << "level change after set " << i;
        EXPECT_EQ(2u, props.uChanged);
        props.uChanged = 0;
        refProps.changed = 0;
    }
}

// Sample rates far below audio rates: whole milliseconds of 0 or 1 sample, sweep tables of a
// single entry (the sweep then reverses every sample) or a few dozen.
TEST(EngineReferenceDriverTest, VeryLowSampleRatesMatchReference)
{
    const Params sets[] = {
        {-6.0f, -3.0f, 0.0f, 20.0f, 100.0f, 100.0f, 1.0f},
        {-6.0f, -3.0f, 1.0f, 20.0f, 50.0f, 10.0f, 50.0f},
        {-80.0f, 0.0f, 2.0f, 20.0f, 100.0f, 5.0f, 100.0f},
        {-80.0f, 0.0f, 2.0f, 0.5f, 50.0f, 300.0f, 80.0f},
        {-3.0f, -3.0f, 0.0f, 0.5f, 50.0f, 100.0f, 1.0f},
    };
    for (int rate : {40, 1000, 1999}) {
        for (int channels : {1, 2, 5}) {
            SCOPED_TRACE(RateChannelsName(rate, channels));
            Chain chain;
            ASSERT_TRUE(chain.Begin(channels, rate, sets[0]));
            for (size_t i = 0; i < 200; ++i) {
                ASSERT_TRUE(chain.Cook(sets[(i / 4) % 5])) << "render " << i;
                ASSERT_TRUE(chain.Render(kRenderSizes[i % 4])) << "render " << i;
            }
        }
    }
}

// The whole unit through the host API against the reference: factory presets selected through
// the preset property, parameters set between renders, a reset mid-stream, and a sample rate
// with a fraction of a hertz. The unit maps its stored parameters, begins the engine with the
// output format and transforms every channel; the reference does the same with the values
// listed in this file.
class UnitReferenceTest : public ::testing::TestWithParam<std::tuple<int, double>>
{
};

TEST_P(UnitReferenceTest, UnitRenderMatchesReferenceBitForBit)
{
    const auto channels = static_cast<UInt32>(std::get<0>(GetParam()));
    const double rate = std::get<1>(GetParam());
    vandrel_test::Instance instance(vandrel_test::LinkedFactoryComponent());
    ASSERT_EQ(noErr, instance.openStatus());
    instance.Prepare(channels, rate);
    SyncPreviousValues();

    ref::Engine reference;
    ref::Props refProps;
    ref::Props previous;
    bool needsBegin = true;
    int64_t clock = 0;
    auto renderBoth = [&](const Params& inValues, UInt32 inFrames) -> ::testing::AssertionResult {
        ref::mapParameters(inValues.data(), refProps, previous);
        if (needsBegin) {
            reference.begin(static_cast<int>(channels), static_cast<int>(rate), refProps);
            needsBegin = false;
        } else {
            reference.cook(refProps, ref::State::Continue);
        }
        std::vector<std::vector<float>> expected(channels, std::vector<float>(inFrames));
        float* pointers[ref::kMaxChannels] = {};
        for (UInt32 c = 0; c < channels; ++c) {
            for (UInt32 f = 0; f < inFrames; ++f) {
                expected[c][f] = vandrel_test::TestSample(c, clock + f);
            }
            pointers[c] = expected[c].data();
        }
        unsigned int frames = inFrames;
        reference.transform(pointers, channels, frames, false);

        vandrel_test::Buffers out(channels, inFrames);
        const OSStatus status = instance.Render(out, inFrames);
        const int64_t start = clock;
        clock += inFrames;
        if (status != noErr) {
            return ::testing::AssertionFailure() << "render status " << status;
        }
        for (UInt32 c = 0; c < channels; ++c) {
            for (UInt32 f = 0; f < inFrames; ++f) {
                if (Bits(out.channel(c)[f]) != Bits(expected[c][f])) {
                    return ::testing::AssertionFailure()
                           << std::setprecision(9) << "channel " << c << " frame " << f
                           << " of a render starting at " << start << ": unit " << out.channel(c)[f]
                           << ", reference " << expected[c][f];
                }
            }
        }
        return ::testing::AssertionSuccess();
    };

    for (int preset = 0; preset < 15; ++preset) {
        SCOPED_TRACE("preset " + std::to_string(preset));
        AUPreset choice{preset, nullptr};
        ASSERT_EQ(noErr, AudioUnitSetProperty(instance.unit(), kAudioUnitProperty_PresentPreset,
                                              kAudioUnitScope_Global, 0, &choice, sizeof choice));
        for (size_t i = 0; i < 12; ++i) {
            ASSERT_TRUE(renderBoth(kPresetValues[preset], kRenderSizes[i % 5])) << "render " << i;
        }
        if (preset == 7) {
            ASSERT_EQ(noErr, AudioUnitReset(instance.unit(), kAudioUnitScope_Global, 0));
            reference.end();
            needsBegin = true;
        }
    }
    for (size_t i = 0; i < 60; ++i) {
        const Params& values = kEdgeValues[i % 12];
        for (AudioUnitParameterID id = 0; id < 7; ++id) {
            ASSERT_EQ(noErr, instance.SetParameter(id, values[id]));
        }
        ASSERT_TRUE(renderBoth(values, kRenderSizes[(i * 2) % 5])) << "edge set " << i % 12;
    }
}

INSTANTIATE_TEST_SUITE_P(ChannelsAndRates, UnitReferenceTest,
                         ::testing::Combine(::testing::Values(1, 2, 5, 32),
                                            ::testing::Values(44100.0, 48000.75, 22050.0)),
                         [](const ::testing::TestParamInfo<std::tuple<int, double>>& inInfo) {
                             return RateChannelsName(static_cast<int>(std::get<1>(inInfo.param)),
                                                     std::get<0>(inInfo.param));
                         });

} // namespace
