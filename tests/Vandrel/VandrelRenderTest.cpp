// The unit's render bridge, driven through the host API on the unit linked
// into this program: the engine is begun, cooked and run exactly as a direct
// engine stream would be, across initialize, reset, bypass, presets and
// scheduled parameter events.
#include "ParameterEvents.h"
#include "VandrelTestHost.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using namespace vandrel_test;

namespace {

constexpr float kDefaults[7] = {-80.0f, 0.0f, 0.0f, 10.0f, 10.0f, 100.0f, 1.0f};

void SetAll(Instance& inUnit, const float (&inValues)[7])
{
    for (AudioUnitParameterID id = 0; id < 7; ++id) {
        ASSERT_EQ(noErr, inUnit.SetParameter(id, inValues[id]));
    }
}

double Rms(const std::vector<float>& inSamples, std::size_t inBegin, std::size_t inEnd)
{
    double sum = 0.0;
    for (std::size_t i = inBegin; i < inEnd; ++i) {
        sum += static_cast<double>(inSamples[i]) * inSamples[i];
    }
    return std::sqrt(sum / static_cast<double>(inEnd - inBegin));
}

class VandrelRender : public ::testing::Test
{
protected:
    Instance mUnit{LinkedEntryComponent()};
};

TEST_F(VandrelRender, EngineBegunAtFirstRenderAndCookedBeforeEachLater)
{
    mUnit.Prepare(2, 44100.0);
    ReferenceStream reference(2, 44100);
    Audio expected;
    Audio actual;
    float values[7] = {-6.0f, -3.0f, 0.0f, 2.5f, 60.0f, 100.0f, 1.0f};
    SetAll(mUnit, values);
    for (UInt32 frames : {256u, 100u, 1156u, 1u}) {
        reference.Process(values, frames, expected);
        mUnit.RenderAppend(actual, frames);
    }
    // A change reaches the engine at the next render's cook.
    values[1] = -12.0f;
    values[3] = 7.0f;
    SetAll(mUnit, values);
    for (UInt32 frames : {512u, 300u}) {
        reference.Process(values, frames, expected);
        mUnit.RenderAppend(actual, frames);
    }
    ExpectSameAudio(expected, actual);
}

TEST_F(VandrelRender, ResetAndReinitializeRestartTheEngineStream)
{
    mUnit.Prepare(2, 44100.0);
    const float values[7] = {-5.0f, -5.0f, 0.0f, 20.0f, 85.0f, 100.0f, 1.0f};
    SetAll(mUnit, values);
    Audio ignored;
    mUnit.RenderAppend(ignored, 700);

    // After a reset the engine begins again from zeroed state at the next
    // render, with the channel count and rate it had.
    ASSERT_EQ(noErr, AudioUnitReset(mUnit.unit(), kAudioUnitScope_Global, 0));
    ReferenceStream afterReset(2, 44100, static_cast<std::int64_t>(mUnit.sampleTime()));
    Audio expected;
    Audio actual;
    for (UInt32 frames : {300u, 64u}) {
        afterReset.Process(values, frames, expected);
        mUnit.RenderAppend(actual, frames);
    }
    ExpectSameAudio(expected, actual);

    // A new format reaches the engine through initialization only.
    ASSERT_EQ(noErr, AudioUnitUninitialize(mUnit.unit()));
    ASSERT_EQ(noErr, mUnit.SetFormat(1, 48000.7));
    ASSERT_EQ(noErr, AudioUnitInitialize(mUnit.unit()));
    ReferenceStream afterInit(1, 48000, static_cast<std::int64_t>(mUnit.sampleTime()));
    expected.clear();
    actual.clear();
    for (UInt32 frames : {128u, 777u}) {
        afterInit.Process(values, frames, expected);
        mUnit.RenderAppend(actual, frames);
    }
    ExpectSameAudio(expected, actual);
}

TEST_F(VandrelRender, DryAtBottomOfRangeMixesInNoDrySignal)
{
    mUnit.Prepare(2, 44100.0);
    // Defaults: dry -80 dB, wet 0 dB, flanger. The flanger's delay line starts
    // empty, so the first frames hold no processed signal either: with no dry
    // signal they are exactly zero although the input is not.
    Audio output;
    mUnit.RenderAppend(output, 512);
    for (UInt32 c = 0; c < 2; ++c) {
        for (int i = 1; i < 8; ++i) {
            ASSERT_NE(0.0f, TestSample(c, i));
            EXPECT_EQ(0.0f, output[c][i]) << "channel " << c << " frame " << i;
        }
        // Yet the effect is audible: the processed signal fills the rest.
        EXPECT_GT(Rms(output[c], 256, 512), 0.05);
    }

    // Just above the bottom, the dry signal is there at about -79.9 dB.
    Instance other{LinkedEntryComponent()};
    other.Prepare(2, 44100.0);
    ASSERT_EQ(noErr, other.SetParameter(kParam_DryOut, -79.9f));
    Audio quiet;
    other.RenderAppend(quiet, 8);
    const double ratio = std::pow(10.0, -799.0 / 200.0);
    for (int i = 1; i < 8; ++i) {
        EXPECT_NEAR(TestSample(0, i) * ratio, quiet[0][i], 1e-9);
    }
}

TEST_F(VandrelRender, ProcessedOutputIsNeverFlaggedSilent)
{
    mUnit.Prepare(2, 44100.0);
    mUnit.source().silent = true;
    Buffers out(2, 256);
    AudioUnitRenderActionFlags flags = 0;
    ASSERT_EQ(noErr, mUnit.Render(out, 256, &flags));
    EXPECT_EQ(0u, flags & kAudioUnitRenderAction_OutputIsSilence);
}

TEST_F(VandrelRender, BypassInPlacePassesInputThroughAndRestartsAfterwards)
{
    mUnit.Prepare(2, 44100.0);
    Audio ignored;
    mUnit.RenderAppend(ignored, 300);
    const UInt32 on = 1;
    ASSERT_EQ(noErr, AudioUnitSetProperty(mUnit.unit(), kAudioUnitProperty_BypassEffect,
                                          kAudioUnitScope_Global, 0, &on, sizeof(on)));
    const auto start = static_cast<std::int64_t>(mUnit.sampleTime());
    Audio bypassed;
    mUnit.RenderAppend(bypassed, 400);
    for (UInt32 c = 0; c < 2; ++c) {
        for (std::int64_t i = 0; i < 400; ++i) {
            ASSERT_EQ(TestSample(c, start + i), bypassed[c][i]);
        }
    }
    // Turning bypass off resets the unit: the engine begins afresh.
    const UInt32 off = 0;
    ASSERT_EQ(noErr, AudioUnitSetProperty(mUnit.unit(), kAudioUnitProperty_BypassEffect,
                                          kAudioUnitScope_Global, 0, &off, sizeof(off)));
    ReferenceStream reference(2, 44100, static_cast<std::int64_t>(mUnit.sampleTime()));
    Audio expected;
    Audio actual;
    reference.Process(kDefaults, 200, expected);
    mUnit.RenderAppend(actual, 200);
    ExpectSameAudio(expected, actual);
}

TEST_F(VandrelRender, SeparateBuffersProcessCopyBypassAndZeroSilence)
{
    const UInt32 off = 0;
    ASSERT_EQ(noErr, AudioUnitSetProperty(mUnit.unit(), kAudioUnitProperty_InPlaceProcessing,
                                          kAudioUnitScope_Global, 0, &off, sizeof(off)));
    mUnit.Prepare(2, 44100.0);
    ReferenceStream reference(2, 44100);
    Audio expected;
    Audio actual;
    reference.Process(kDefaults, 512, expected);
    mUnit.RenderAppend(actual, 512);
    ExpectSameAudio(expected, actual);

    const UInt32 on = 1;
    ASSERT_EQ(noErr, AudioUnitSetProperty(mUnit.unit(), kAudioUnitProperty_BypassEffect,
                                          kAudioUnitScope_Global, 0, &on, sizeof(on)));
    const auto start = static_cast<std::int64_t>(mUnit.sampleTime());
    Audio bypassed;
    mUnit.RenderAppend(bypassed, 128);
    for (std::int64_t i = 0; i < 128; ++i) {
        ASSERT_EQ(TestSample(1, start + i), bypassed[1][i]);
    }

    // Silent input passes through as zeros, flagged silent.
    mUnit.source().silent = true;
    Buffers out(2, 64);
    AudioUnitRenderActionFlags flags = 0;
    ASSERT_EQ(noErr, mUnit.Render(out, 64, &flags));
    EXPECT_NE(0u, flags & kAudioUnitRenderAction_OutputIsSilence);
    for (UInt32 c = 0; c < 2; ++c) {
        for (int i = 0; i < 64; ++i) {
            ASSERT_EQ(0.0f, out.channel(c)[i]);
        }
    }
}

TEST_F(VandrelRender, RefusesUnservableFormatsAndRendersWithoutInputNever)
{
    for (Float64 rate : {0.0, 0.5, 3.0e9}) {
        ASSERT_EQ(noErr, mUnit.SetFormat(2, rate));
        EXPECT_EQ(kAudioUnitErr_FormatNotSupported, AudioUnitInitialize(mUnit.unit())) << rate;
    }
    ASSERT_EQ(noErr, mUnit.SetFormat(33, 44100.0));
    ASSERT_EQ(noErr, mUnit.FeedFromCallback());
    EXPECT_EQ(kAudioUnitErr_FormatNotSupported, AudioUnitInitialize(mUnit.unit()));
    Buffers wide(33, 64);
    EXPECT_EQ(kAudioUnitErr_Uninitialized, mUnit.Render(wide, 64));

    // 32 channels are served.
    ASSERT_EQ(noErr, mUnit.SetFormat(32, 44100.0));
    ASSERT_EQ(noErr, AudioUnitInitialize(mUnit.unit()));
    ReferenceStream reference(32, 44100, static_cast<std::int64_t>(mUnit.sampleTime()));
    Audio expected;
    Audio actual;
    reference.Process(kDefaults, 100, expected);
    mUnit.RenderAppend(actual, 100);
    ExpectSameAudio(expected, actual);

    Instance unfed{LinkedEntryComponent()};
    ASSERT_EQ(noErr, unfed.SetFormat(2, 44100.0));
    ASSERT_EQ(noErr, AudioUnitInitialize(unfed.unit()));
    Buffers out(2, 64);
    EXPECT_EQ(kAudioUnitErr_NoConnection, unfed.Render(out, 64));
}

// Every factory preset runs the engine with exactly the preset's values.
class VandrelPresetRender : public ::testing::TestWithParam<int>
{
};

constexpr float kPresetTable[15][7] = {
    {-80, 0, 0, 10, 10, 100, 1},         {-5, -6, 0, 1, 85, 100, 1},
    {-6, -6, 0, 5, 50, 100, 1},          {-3, -2, 0, 0.1f, 100, 100, 1},
    {-2.5f, -2.5f, 0, 0.5f, 85, 100, 1}, {-80, 0, 1, 0.5f, 50, 1000, 50},
    {-80, 0, 1, 4.5f, 50, 1000, 50},     {-80, 0, 1, 10, 50, 2000, 40},
    {-80, 0, 2, 1, 50, 1000, 50},        {-80, 0, 2, 2, 50, 1000, 80},
    {-15, 0, 2, 0.2f, 50, 500, 100},     {-80, 0, 2, 0.5f, 70, 3000, 50},
    {-80, 0, 2, 10, 50, 2000, 50},       {-5, -5, 0, 20, 85, 100, 1},
    {-5, -5, 0, 20, 20, 100, 1}};

TEST_P(VandrelPresetRender, OutputMatchesEngineWithPresetValues)
{
    const int number = GetParam();
    Instance unit{LinkedFactoryComponent()};
    ASSERT_EQ(noErr, unit.openStatus());
    unit.Prepare(2, 44100.0);
    const AUPreset preset{number, nullptr};
    ASSERT_EQ(noErr, AudioUnitSetProperty(unit.unit(), kAudioUnitProperty_PresentPreset,
                                          kAudioUnitScope_Global, 0, &preset, sizeof(preset)));
    ReferenceStream reference(2, 44100);
    Audio expected;
    Audio actual;
    for (UInt32 frames : {512u, 333u, 1024u}) {
        reference.Process(kPresetTable[number], frames, expected);
        unit.RenderAppend(actual, frames);
    }
    ExpectSameAudio(expected, actual);
    // The effect changes the signal audibly.
    double difference = 0.0;
    for (std::size_t i = 0; i < actual[0].size(); ++i) {
        difference += std::fabs(actual[0][i] - TestSample(0, static_cast<std::int64_t>(i)));
    }
    EXPECT_GT(difference / actual[0].size(), 0.01);
}

INSTANTIATE_TEST_SUITE_P(AllPresets, VandrelPresetRender, ::testing::Range(0, 15));

// Scheduled events: (effect, split frame).
class VandrelScheduledRender : public ::testing::TestWithParam<std::tuple<float, UInt32>>
{
};

TEST_P(VandrelScheduledRender, EventsAtFrameZeroSoundLikePlainSettings)
{
    const float effect = std::get<0>(GetParam());
    Instance scheduled{LinkedEntryComponent()};
    Instance plain{LinkedEntryComponent()};
    scheduled.Prepare();
    plain.Prepare();
    for (Instance* unit : {&scheduled, &plain}) {
        ASSERT_EQ(noErr, unit->SetParameter(kParam_Effect, effect));
        ASSERT_EQ(noErr, unit->SetParameter(kParam_CenterFreq, 1000.0f));
        ASSERT_EQ(noErr, unit->SetParameter(kParam_Resonance, 50.0f));
    }
    Audio a;
    Audio b;
    scheduled.RenderAppend(a, 400);
    plain.RenderAppend(b, 400);

    const AudioUnitParameterEvent events[] = {ImmediateEvent(kParam_WetOut, 0, -4.0f),
                                              ImmediateEvent(kParam_ModulationRate, 0, 3.0f),
                                              ImmediateEvent(kParam_DryOut, 0, -9.5f)};
    ASSERT_EQ(noErr, AudioUnitScheduleParameters(scheduled.unit(), events, 3));
    ASSERT_EQ(noErr, plain.SetParameter(kParam_WetOut, -4.0f));
    ASSERT_EQ(noErr, plain.SetParameter(kParam_ModulationRate, 3.0f));
    ASSERT_EQ(noErr, plain.SetParameter(kParam_DryOut, -9.5f));
    scheduled.RenderAppend(a, 600);
    plain.RenderAppend(b, 600);
    scheduled.RenderAppend(a, 200);
    plain.RenderAppend(b, 200);
    ExpectSameAudio(b, a);
}

TEST_P(VandrelScheduledRender, ImmediateEventSplitsRenderLikeTwoRenders)
{
    const float effect = std::get<0>(GetParam());
    const UInt32 split = std::get<1>(GetParam());
    constexpr UInt32 kFrames = 512;
    Instance scheduled{LinkedEntryComponent()};
    Instance twoRenders{LinkedEntryComponent()};
    scheduled.Prepare();
    twoRenders.Prepare();
    for (Instance* unit : {&scheduled, &twoRenders}) {
        ASSERT_EQ(noErr, unit->SetParameter(kParam_Effect, effect));
        ASSERT_EQ(noErr, unit->SetParameter(kParam_DryOut, -6.0f));
        ASSERT_EQ(noErr, unit->SetParameter(kParam_CenterFreq, 800.0f));
    }
    Audio a;
    Audio b;
    scheduled.RenderAppend(a, 300);
    twoRenders.RenderAppend(b, 300);

    const AudioUnitParameterEvent events[] = {ImmediateEvent(kParam_WetOut, split, -20.0f),
                                              ImmediateEvent(kParam_ModulationDepth, split, 90.0f)};
    ASSERT_EQ(noErr, AudioUnitScheduleParameters(scheduled.unit(), events, 2));
    scheduled.RenderAppend(a, kFrames);

    twoRenders.RenderAppend(b, split);
    ASSERT_EQ(noErr, twoRenders.SetParameter(kParam_WetOut, -20.0f));
    ASSERT_EQ(noErr, twoRenders.SetParameter(kParam_ModulationDepth, 90.0f));
    twoRenders.RenderAppend(b, kFrames - split);

    scheduled.RenderAppend(a, 256);
    twoRenders.RenderAppend(b, 256);
    ExpectSameAudio(b, a);
}

INSTANTIATE_TEST_SUITE_P(EffectsAndSplits, VandrelScheduledRender,
                         ::testing::Combine(::testing::Values(0.0f, 1.0f, 2.0f),
                                            ::testing::Values(1u, 37u, 300u, 511u)));

TEST(VandrelScheduledRamp, EngineFollowsRampEvery32Frames)
{
    // Phaser, no dry signal, wet ramped from silence to 0 dB over 256 frames
    // starting at frame 64 of a 512-frame render.
    Instance unit{LinkedEntryComponent()};
    unit.Prepare(1, 44100.0);
    float values[7] = {-80.0f, -80.0f, 1.0f, 0.5f, 50.0f, 1000.0f, 50.0f};
    SetAll(unit, values);
    const AudioUnitParameterEvent ramp = RampEvent(kParam_WetOut, 64, 256, -80.0f, 0.0f);
    ASSERT_EQ(noErr, AudioUnitScheduleParameters(unit.unit(), &ramp, 1));
    Audio actual;
    unit.RenderAppend(actual, 512);

    // The same stream stepped by hand: values at the start of each 32-frame
    // step inside the ramp, the end value after it.
    ReferenceStream reference(1, 44100);
    Audio expected;
    reference.Process(values, 64, expected);
    for (UInt32 frame = 64; frame < 320; frame += 32) {
        values[1] = static_cast<float>(-80.0f + (0.0f - -80.0f) * ((frame - 64) / 256.0));
        reference.Process(values, 32, expected);
    }
    values[1] = 0.0f;
    reference.Process(values, 192, expected);
    ExpectSameAudio(expected, actual);

    // Nothing is heard before the ramp starts; the level then grows.
    for (int i = 0; i < 64; ++i) {
        ASSERT_EQ(0.0f, actual[0][i]);
    }
    EXPECT_LT(Rms(actual[0], 96, 160), Rms(actual[0], 256, 320));
    // What the framework reports for the parameter is unchanged by this.
    EXPECT_EQ(-80.0f, unit.GetParameter(kParam_WetOut));
}

} // namespace
