// The unit end to end: the runtime loads the built bundle and the tests drive it only through
// the host API, opened in both styles (factory and component manager). Its audio is compared
// bit for bit with the reference model run over the same input.
#include "ParameterEvents.h"
#include "VandrelTestHost.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>

using namespace vandrel_test;

namespace {

// Parameterized by opening style: true = component manager.
class VandrelUnit : public ::testing::TestWithParam<bool>
{
};

::testing::AssertionResult HasValues(Instance& inUnit, const Params& inValues)
{
    for (AudioUnitParameterID id = 0; id < 7; ++id) {
        if (inUnit.GetParameter(id) != inValues[id]) {
            return ::testing::AssertionFailure()
                   << "parameter " << id << " is " << inUnit.GetParameter(id);
        }
    }
    return ::testing::AssertionSuccess();
}

// The current preset's number and name, the name released.
std::pair<SInt32, std::string> CurrentPreset(Instance& inUnit)
{
    AUPreset current{};
    EXPECT_EQ(noErr, inUnit.Get(kAudioUnitProperty_PresentPreset, current));
    const std::string name = ToString(current.presetName);
    if (current.presetName != nullptr) {
        CFRelease(current.presetName);
    }
    return {current.presetNumber, name};
}

TEST_P(VandrelUnit, ParametersLatencyAndViewReadBackExactly)
{
    Instance unit(GetParam());

    using Info = std::tuple<std::string, std::string, AudioUnitParameterUnit, float, float, float>;
    const Info expected[7] = {
        {"Dry out", "Dry out", kAudioUnitParameterUnit_Decibels, -80, 12, -80},
        {"Wet out", "Wet out", kAudioUnitParameterUnit_Decibels, -80, 12, 0},
        {"Effect", "Effect", kAudioUnitParameterUnit_Indexed, 0, 2, 0},
        {"Modulation rate", "Modulation rate", kAudioUnitParameterUnit_Hertz, 0.001f, 20, 10},
        {"Modulation depth", "Modulation depth", kAudioUnitParameterUnit_Percent, 1, 100, 10},
        {"Center frequency", "Center frequency", kAudioUnitParameterUnit_Hertz, 100, 5000, 100},
        {"Resonance", "Resonance", kAudioUnitParameterUnit_Percent, 1, 100, 1}};
    const UInt32 readWrite =
        kAudioUnitParameterFlag_IsReadable | kAudioUnitParameterFlag_IsWritable;
    auto info = [&](AudioUnitScope inScope, AudioUnitParameterID inID,
                    AudioUnitParameterInfo& out) {
        std::memset(&out, 0, sizeof out);
        UInt32 size = sizeof out;
        return AudioUnitGetProperty(unit.unit(), kAudioUnitProperty_ParameterInfo, inScope, inID,
                                    &out, &size);
    };
    AudioUnitParameterInfo got;
    for (AudioUnitParameterID id = 0; id < 7; ++id) {
        ASSERT_EQ(noErr, info(kAudioUnitScope_Global, id, got)) << id;
        EXPECT_EQ(expected[id], Info(got.name, ToString(got.cfNameString), got.unit, got.minValue,
                                     got.maxValue, got.defaultValue));
        EXPECT_EQ(readWrite | kAudioUnitParameterFlag_HasCFNameString, got.flags);
    }
    EXPECT_TRUE(HasValues(unit, kPresetValues[0])) << "defaults";
    EXPECT_EQ(kAudioUnitErr_InvalidParameter, info(kAudioUnitScope_Global, 7, got));
    // Other scopes: readable and writable, nothing else.
    ASSERT_EQ(noErr, info(kAudioUnitScope_Input, kEffect, got));
    EXPECT_EQ(readWrite, got.flags);
    EXPECT_EQ(nullptr, got.cfNameString);
    EXPECT_EQ(0.0f, got.maxValue);

    UInt32 size = 0;
    Boolean writable = true;
    EXPECT_EQ(kAudioUnitErr_InvalidProperty,
              AudioUnitGetPropertyInfo(unit.unit(), kAudioUnitProperty_ParameterValueStrings,
                                       kAudioUnitScope_Global, kEffect, &size, nullptr));

    // Values outside the advertised ranges are stored unchanged; unknown IDs are refused.
    ASSERT_EQ(noErr, unit.SetParameter(kRate, 50.0f));
    ASSERT_EQ(noErr, unit.SetParameter(kEffect, 1.5f));
    EXPECT_EQ(50.0f, unit.GetParameter(kRate));
    EXPECT_EQ(1.5f, unit.GetParameter(kEffect));
    AudioUnitParameterValue value = 0.0f;
    EXPECT_EQ(kAudioUnitErr_InvalidParameter,
              AudioUnitGetParameter(unit.unit(), 7, kAudioUnitScope_Global, 0, &value));

    // The latency is a Float64 stored as given; the bundle carries no view bundle.
    Float64 latency = -1.0;
    ASSERT_EQ(noErr, unit.Get(kAudioUnitProperty_Latency, latency));
    EXPECT_EQ(0.0, latency);
    ASSERT_EQ(noErr, unit.Set(kAudioUnitProperty_Latency, 0.5));
    EXPECT_EQ(kAudioUnitErr_InvalidPropertyValue, unit.Set(kAudioUnitProperty_Latency, 0.25f));
    ASSERT_EQ(noErr, unit.Get(kAudioUnitProperty_Latency, latency));
    EXPECT_EQ(0.5, latency);

    ASSERT_EQ(noErr, AudioUnitGetPropertyInfo(unit.unit(), kAudioUnitProperty_CocoaUI,
                                              kAudioUnitScope_Global, 0, &size, &writable));
    EXPECT_EQ(16u, size);
    EXPECT_FALSE(writable);
    AudioUnitCocoaViewInfo view{};
    EXPECT_EQ(fnfErr, unit.Get(kAudioUnitProperty_CocoaUI, view));
}

TEST_P(VandrelUnit, FactoryPresetsListedSelectedAndRefused)
{
    Instance unit(GetParam());
    EXPECT_EQ((std::pair<SInt32, std::string>{-1, "Untitled"}), CurrentPreset(unit));
    CFArrayRef presets = nullptr;
    ASSERT_EQ(noErr, unit.Get(kAudioUnitProperty_FactoryPresets, presets));
    ASSERT_EQ(15, CFArrayGetCount(presets));
    const char* names[15] = {"Default",         "Flange - 1 Hz", "Flange - fast", "Flange - slow 1",
                             "Flange - slow 2", "Phaser 1",      "Phaser 2",      "Phaser 3",
                             "Wah-Wah 1",       "Wah-Wah 2",     "Wah-Wah 3",     "Wah-Wah 4",
                             "Wah-Wah 5",       "Warble 1",      "Warble 2"};
    for (CFIndex i = 0; i < 15; ++i) {
        const auto* preset = static_cast<const AUPreset*>(CFArrayGetValueAtIndex(presets, i));
        EXPECT_EQ(i, preset->presetNumber);
        EXPECT_EQ(names[i], ToString(preset->presetName));
    }
    CFRelease(presets);

    for (SInt32 number : {9, 3, 14, 0}) {
        ASSERT_EQ(noErr, unit.Set(kAudioUnitProperty_PresentPreset, AUPreset{number, nullptr}));
        EXPECT_TRUE(HasValues(unit, kPresetValues[number])) << "preset " << number;
        EXPECT_EQ((std::pair<SInt32, std::string>{number, names[number]}), CurrentPreset(unit));
    }
    ASSERT_EQ(noErr, unit.Set(kAudioUnitProperty_PresentPreset, AUPreset{3, nullptr}));
    for (SInt32 number : {15, -1}) {
        EXPECT_EQ(kAudioUnitErr_InvalidPropertyValue,
                  unit.Set(kAudioUnitProperty_PresentPreset, AUPreset{number, nullptr}));
        EXPECT_TRUE(HasValues(unit, kPresetValues[3]));
        EXPECT_EQ((std::pair<SInt32, std::string>{3, names[3]}), CurrentPreset(unit));
    }
}

// The saved state survives the XML form into a fresh instance of the other style, restoring
// the values and the preset name; a foreign state is refused before anything changes (the
// unit-base tests go through every kind of damage).
TEST_P(VandrelUnit, StateSavedRestoredAndRefusedWholesale)
{
    Instance unit(GetParam());
    ASSERT_EQ(noErr, unit.Set(kAudioUnitProperty_PresentPreset, AUPreset{7, nullptr}));
    ASSERT_EQ(noErr, unit.SetParameter(kDry, -7.25f));
    const Params saved = {-7.25f, 0, 1, 10, 50, 2000, 40};
    CFPropertyListRef state = nullptr;
    ASSERT_EQ(noErr, unit.Get(kAudioUnitProperty_ClassInfo, state));
    CFDataRef xml = CFPropertyListCreateData(kCFAllocatorDefault, state,
                                             kCFPropertyListXMLFormat_v1_0, 0, nullptr);
    ASSERT_NE(nullptr, xml);
    CFPropertyListRef restored = CFPropertyListCreateWithData(
        kCFAllocatorDefault, xml, kCFPropertyListImmutable, nullptr, nullptr);
    CFRelease(xml);
    ASSERT_NE(nullptr, restored);
    Instance fresh(!GetParam());
    ASSERT_EQ(noErr, fresh.Set(kAudioUnitProperty_ClassInfo, restored));
    CFRelease(restored);
    EXPECT_TRUE(HasValues(fresh, saved));
    EXPECT_EQ((std::pair<SInt32, std::string>{-1, "Phaser 3"}), CurrentPreset(fresh));

    ASSERT_EQ(noErr, fresh.Set(kAudioUnitProperty_PresentPreset, AUPreset{12, nullptr}));
    CFMutableDictionaryRef foreign =
        CFDictionaryCreateMutableCopy(nullptr, 0, static_cast<CFDictionaryRef>(state));
    CFDictionarySetValue(foreign, CFSTR("subtype"), CFSTR("Vndr"));
    EXPECT_EQ(kAudioUnitErr_InvalidPropertyValue,
              fresh.Set(kAudioUnitProperty_ClassInfo, static_cast<CFPropertyListRef>(foreign)));
    EXPECT_TRUE(HasValues(fresh, kPresetValues[12]));
    EXPECT_EQ((std::pair<SInt32, std::string>{12, "Wah-Wah 5"}), CurrentPreset(fresh));
    CFRelease(foreign);
    CFRelease(state);
}

INSTANTIATE_TEST_SUITE_P(BothStyles, VandrelUnit, ::testing::Bool());

// The unit's output against the reference at several channel counts and rates (one with a
// fraction of a hertz), in place (component-manager style) or not (factory style): factory
// presets selected through the preset property, renders of varied sizes up to the maximum
// slice, a reset mid-stream, then edge parameter sets set between renders.
class VandrelUnitRender : public ::testing::TestWithParam<std::tuple<bool, int, double>>
{
};

TEST_P(VandrelUnitRender, OutputMatchesReferenceThroughPresetsResetAndChanges)
{
    const auto [entryStyle, channelCount, rate] = GetParam();
    const auto channels = static_cast<UInt32>(channelCount);
    Instance unit(entryStyle);
    ASSERT_EQ(noErr, unit.Set(kAudioUnitProperty_MaximumFramesPerSlice, UInt32{4096}));
    ASSERT_EQ(noErr, unit.Set(kAudioUnitProperty_InPlaceProcessing, UInt32{entryStyle}));
    unit.Prepare(channels, rate);
    ReferenceStream reference(channels, static_cast<int>(rate));
    Audio expected;
    Audio actual;
    const UInt32 sizes[] = {1, 7, 64, 512, 1156, 4096};
    for (int preset = 0; preset < 15; ++preset) {
        SCOPED_TRACE("preset " + std::to_string(preset));
        ASSERT_EQ(noErr, unit.Set(kAudioUnitProperty_PresentPreset, AUPreset{preset, nullptr}));
        for (size_t i = 0; i < 8; ++i) {
            reference.Process(kPresetValues[preset], sizes[(i + preset) % 6], expected);
            unit.RenderAppend(actual, sizes[(i + preset) % 6]);
        }
        if (preset == 7) {
            ASSERT_EQ(noErr, AudioUnitReset(unit.unit(), kAudioUnitScope_Global, 0));
            reference.Restart(unit.sampleTime());
        }
    }
    for (size_t i = 0; i < 45; ++i) {
        const Params& values = kEdgeValues[i % std::size(kEdgeValues)];
        unit.SetAll(values);
        reference.Process(values, sizes[(i * 2) % 5], expected);
        unit.RenderAppend(actual, sizes[(i * 2) % 5]);
    }
    ASSERT_TRUE(SameAudio(expected, actual));
    EXPECT_EQ(kAudioUnitErr_TooManyFramesToProcess, unit.Render(4097));
}

INSTANTIATE_TEST_SUITE_P(StylesChannelsAndRates, VandrelUnitRender,
                         ::testing::Combine(::testing::Bool(), ::testing::Values(1, 2, 5, 32),
                                            ::testing::Values(44100.0, 48000.75, 22050.0)));

// In place or into its own buffers, the unit passes the input through when bypassed (silent
// input as zeros flagged silent), never flags processed output silent, refuses input buffers
// without memory, and takes a new format at initialization.
class VandrelUnitBuffers : public ::testing::TestWithParam<bool>
{
};

TEST_P(VandrelUnitBuffers, ProcessBypassSilenceAndReinitialize)
{
    Instance unit(true);
    ASSERT_EQ(noErr, unit.Set(kAudioUnitProperty_InPlaceProcessing, UInt32{GetParam()}));
    unit.Prepare(2, 44100.0);
    ASSERT_EQ(noErr, unit.Render(512));
    ASSERT_EQ(noErr, unit.Set(kAudioUnitProperty_BypassEffect, UInt32{1}));
    ASSERT_EQ(noErr, unit.Render(128));
    for (std::int64_t i = 0; i < 128; ++i) {
        ASSERT_EQ(TestSample(1, 512 + i), unit.Output(1)[i]) << i;
    }
    unit.silentInput = true;
    AudioUnitRenderActionFlags flags = 0;
    ASSERT_EQ(noErr, unit.Render(64, &flags));
    EXPECT_NE(0u, flags & kAudioUnitRenderAction_OutputIsSilence);
    for (UInt32 c = 0; c < 2; ++c) {
        for (int i = 0; i < 64; ++i) {
            ASSERT_EQ(0.0f, unit.Output(c)[i]);
        }
    }
    ASSERT_EQ(noErr, unit.Set(kAudioUnitProperty_BypassEffect, UInt32{0}));
    flags = 0;
    ASSERT_EQ(noErr, unit.Render(64, &flags));
    EXPECT_EQ(0u, flags & kAudioUnitRenderAction_OutputIsSilence);
    unit.silentInput = false;
    unit.noInputMemory = true;
    EXPECT_EQ(-1, unit.Render(64));
    EXPECT_EQ(noErr, unit.Render(0));
    unit.noInputMemory = false;

    ASSERT_EQ(noErr, AudioUnitUninitialize(unit.unit()));
    ASSERT_EQ(noErr, unit.SetFormat(1, 48000.7));
    ASSERT_EQ(noErr, AudioUnitInitialize(unit.unit()));
    ReferenceStream afterInit(1, 48000, unit.sampleTime());
    Audio expected;
    Audio actual;
    for (UInt32 frames : {128u, 777u}) {
        afterInit.Process(kPresetValues[0], frames, expected);
        unit.RenderAppend(actual, frames);
    }
    ASSERT_TRUE(SameAudio(expected, actual));
}

INSTANTIATE_TEST_SUITE_P(InPlaceOrNot, VandrelUnitBuffers, ::testing::Bool());

TEST_P(VandrelUnit, RefusesUnservableFormatsAndRendersWithoutInputNever)
{
    Instance unit(GetParam());
    for (Float64 rate : {0.0, 0.5, 2147483648.0}) {
        ASSERT_EQ(noErr, unit.SetFormat(2, rate));
        EXPECT_EQ(kAudioUnitErr_FormatNotSupported, AudioUnitInitialize(unit.unit())) << rate;
    }
    ASSERT_EQ(noErr, unit.SetFormat(33, 44100.0));
    ASSERT_EQ(noErr, unit.FeedFromCallback());
    EXPECT_EQ(kAudioUnitErr_FormatNotSupported, AudioUnitInitialize(unit.unit()));
    EXPECT_EQ(kAudioUnitErr_Uninitialized, unit.Render(64));
    ASSERT_EQ(noErr, unit.SetFormat(2, 1.0));
    EXPECT_EQ(noErr, AudioUnitInitialize(unit.unit()));

    Instance unfed(GetParam());
    ASSERT_EQ(noErr, unfed.SetFormat(2, 44100.0));
    ASSERT_EQ(noErr, AudioUnitInitialize(unfed.unit()));
    EXPECT_EQ(kAudioUnitErr_NoConnection, unfed.Render(64));
}

// Scheduled events, by effect and by the frame k they take effect at: events at frame 0 act as
// plain settings, one at frame k as two renders of k and n - k frames; under ramps from k the
// engine takes the value at the start of each 32-frame step, then the end value. The next
// render runs on the values the framework stored. Unknown parameters are refused.
class VandrelScheduledRender : public ::testing::TestWithParam<std::tuple<float, UInt32>>
{
};

TEST_P(VandrelScheduledRender, EventsSplitTheRenderExactly)
{
    const auto [effect, split] = GetParam();
    Params values = {-6, 0, effect, 10, 10, 800, 50};
    Instance unit(true);
    unit.Prepare();
    unit.SetAll(values);
    ReferenceStream reference(2, 44100);
    Audio expected;
    Audio actual;
    reference.Process(values, 300, expected);
    unit.RenderAppend(actual, 300);

    const AudioUnitParameterEvent events[] = {
        ImmediateEvent(kWet, split, -20.0f),
        ImmediateEvent(kDepth, split, 90.0f),
        ImmediateEvent(kRate, 0, 3.0f),
        ImmediateEvent(kCenter, 0, 1500.0f),
        RampEvent(kDry, static_cast<SInt32>(split), 96, -30.0f, -12.0f),
        RampEvent(kDry, static_cast<SInt32>(split + 96), 64, -12.0f, -24.0f)};
    ASSERT_EQ(noErr, AudioUnitScheduleParameters(unit.unit(), events, 6));
    unit.RenderAppend(actual, 512);
    values[kRate] = 3.0f;
    values[kCenter] = 1500.0f;
    if (split > 0) {
        reference.Process(values, split, expected);
    }
    values[kWet] = -20.0f;
    values[kDepth] = 90.0f;
    // Dry ramps from -30 to -12 over 96 frames, then on to -24 over 64.
    for (UInt32 frame = split; frame < 512;) {
        const UInt32 elapsed = frame - split;
        if (elapsed < 96) {
            values[kDry] = static_cast<float>(-30.0f + 18.0f * (elapsed / 96.0));
        } else if (elapsed < 160) {
            values[kDry] = static_cast<float>(-12.0f + -12.0f * ((elapsed - 96) / 64.0));
        } else {
            values[kDry] = -24.0f;
        }
        const UInt32 step = elapsed >= 160 ? 512 - frame : std::min(32u, 512 - frame);
        reference.Process(values, step, expected);
        frame += step;
    }
    // The next render runs on the stored values: the start of the last ramp begun.
    values[kDry] = split + 96 < 512 ? -12.0f : -30.0f;
    reference.Process(values, 256, expected);
    unit.RenderAppend(actual, 256);
    ASSERT_TRUE(SameAudio(expected, actual));
    EXPECT_EQ(-20.0f, unit.GetParameter(kWet));

    const AudioUnitParameterEvent unknown = ImmediateEvent(9, split, 1.0f);
    EXPECT_EQ(kAudioUnitErr_InvalidParameter,
              AudioUnitScheduleParameters(unit.unit(), &unknown, 1));
}

INSTANTIATE_TEST_SUITE_P(EffectsAndSplits, VandrelScheduledRender,
                         ::testing::Combine(::testing::Values(0.0f, 1.0f, 2.0f),
                                            ::testing::Values(0u, 1u, 37u, 450u)));

} // namespace
