// The effect base through the host API: a gain effect built on it, opened
// through the audio-unit runtime, renders real buffers; and the base's
// internals (kernel bookkeeping, sample kinds, slices, silence timeout) on a
// directly constructed unit.
#include "GainEffect.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

namespace {

using RenderCase = std::tuple<OpenStyle, bool /*in place*/, bool /*host memory*/, SampleFormat,
                              bool /*interleaved*/>;

class EffectRenderTest : public ::testing::TestWithParam<RenderCase>
{
};

TEST_P(EffectRenderTest, OutputIsInputTimesChannelGainOverSuccessiveSlices)
{
    const auto [style, inPlace, hostMemory, sample, interleaved] = GetParam();
    HostedGain unit(style);
    const AudioStreamBasicDescription format = MakeFormat(2, sample, interleaved);
    ASSERT_EQ(noErr, Configure(unit.mUnit, format, 0.5f));
    ASSERT_EQ(noErr, SetUInt32Property(unit.mUnit, kAudioUnitProperty_InPlaceProcessing, inPlace));
    SignalSource source{sample};
    ASSERT_EQ(noErr, source.Attach(unit.mUnit));
    ASSERT_EQ(noErr, AudioUnitInitialize(unit.mUnit));
    for (UInt32 frames : {512U, 7U, 1156U, 1U}) {
        ASSERT_EQ(noErr, unit.Render(format, frames, hostMemory));
        EXPECT_EQ(0U, unit.mFlags & kAudioUnitRenderAction_OutputIsSilence);
        unit.ExpectGain(sample, frames);
    }
    EXPECT_EQ(4U, source.mCalls);
}

INSTANTIATE_TEST_SUITE_P(
    StylesLayoutsAndSampleTypes, EffectRenderTest,
    ::testing::Combine(::testing::Values(OpenStyle::kFactory, OpenStyle::kEntryPoint),
                       ::testing::Bool(), ::testing::Bool(),
                       ::testing::Values(SampleFormat::kFloat, SampleFormat::kInt16),
                       ::testing::Bool()));

class EffectHostTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(noErr, Configure(mUnit.mUnit, mFormat, 0.5f));
        ASSERT_EQ(noErr, mSource.Attach(mUnit.mUnit));
    }

    UInt32 Flag(AudioUnitPropertyID inID)
    {
        UInt32 value = 0xFFFFFFFF;
        UInt32 size = sizeof value;
        EXPECT_EQ(noErr, AudioUnitGetProperty(mUnit.mUnit, inID, kAudioUnitScope_Global, 0, &value,
                                              &size));
        return value;
    }

    HostedGain mUnit;
    AudioStreamBasicDescription mFormat = MakeFormat(2, SampleFormat::kFloat);
    SignalSource mSource{SampleFormat::kFloat};
};

TEST_F(EffectHostTest, BypassPassesInputThroughAndLeavingItResetsFirst)
{
    for (AudioUnitPropertyID id :
         {kAudioUnitProperty_BypassEffect, kAudioUnitProperty_InPlaceProcessing}) {
        UInt32 size = 0;
        Boolean writable = false;
        ASSERT_EQ(noErr, AudioUnitGetPropertyInfo(mUnit.mUnit, id, kAudioUnitScope_Global, 0, &size,
                                                  &writable));
        EXPECT_EQ(4U, size);
        EXPECT_TRUE(writable);
        const UInt16 shortValue = 1;
        EXPECT_EQ(kAudioUnitErr_InvalidPropertyValue,
                  AudioUnitSetProperty(mUnit.mUnit, id, kAudioUnitScope_Global, 0, &shortValue,
                                       sizeof shortValue));
    }
    EXPECT_EQ(1U, Flag(kAudioUnitProperty_InPlaceProcessing));
    ASSERT_EQ(noErr, AudioUnitInitialize(mUnit.mUnit));
    for (UInt32 inPlace : {1U, 0U}) {
        ASSERT_EQ(noErr, SetUInt32Property(mUnit.mUnit, kAudioUnitProperty_BypassEffect, 7));
        EXPECT_EQ(1U, Flag(kAudioUnitProperty_BypassEffect));
        ASSERT_EQ(noErr,
                  SetUInt32Property(mUnit.mUnit, kAudioUnitProperty_InPlaceProcessing, inPlace));
        ASSERT_EQ(noErr, mUnit.Render(mFormat, 300, true));
        mUnit.ExpectGain(SampleFormat::kFloat, 300, 0); // unchanged
        EXPECT_EQ(Float32(1 - inPlace), mUnit.Parameter(kGainParam_ResetCount));
        ASSERT_EQ(noErr, SetUInt32Property(mUnit.mUnit, kAudioUnitProperty_BypassEffect, 0));
        EXPECT_EQ(Float32(2 - inPlace), mUnit.Parameter(kGainParam_ResetCount)) << "on leaving";
        EXPECT_EQ(1.0f, mUnit.Parameter(kGainParam_BypassAtReset)) << "before the change";
    }
    ASSERT_EQ(noErr, AudioUnitUninitialize(mUnit.mUnit));
    ASSERT_EQ(noErr, SetUInt32Property(mUnit.mUnit, kAudioUnitProperty_BypassEffect, 1));
    ASSERT_EQ(noErr, SetUInt32Property(mUnit.mUnit, kAudioUnitProperty_BypassEffect, 0));
    EXPECT_EQ(2.0f, mUnit.Parameter(kGainParam_ResetCount)) << "no reset while uninitialized";
}

TEST_F(EffectHostTest, SilentInputWithoutTailIsReportedSilentAndZeroed)
{
    ASSERT_EQ(noErr, SetUInt32Property(mUnit.mUnit, kAudioUnitProperty_InPlaceProcessing, 0));
    ASSERT_EQ(noErr, AudioUnitInitialize(mUnit.mUnit));
    mSource.mFlagSilence = true;
    ASSERT_EQ(noErr, mUnit.Render(mFormat, 512, true));
    EXPECT_NE(0U, mUnit.mFlags & kAudioUnitRenderAction_OutputIsSilence) << "no tail: at once";
    EXPECT_EQ(std::vector<UInt8>(2048, 0), mUnit.mMemory[1]) << "the output is zeroed";
}

TEST_F(EffectHostTest, ScheduledEventsTakeEffectAtTheirFrames)
{
    ASSERT_EQ(noErr, AudioUnitInitialize(mUnit.mUnit));
    // Scheduling applies both values at once; slicing then applies each from
    // its own frame on.
    const AudioUnitParameterEvent events[2] = {ImmediateEvent(kGainParam_Gain, 200, 0.125f),
                                               ImmediateEvent(kGainParam_Gain, 0, 0.25f)};
    ASSERT_EQ(noErr, AudioUnitScheduleParameters(mUnit.mUnit, events, 2));
    ASSERT_EQ(noErr, mUnit.Render(mFormat, 512, true));
    mUnit.ExpectGain(SampleFormat::kFloat, 200, 1, 0.25f);
    mUnit.ExpectGain(SampleFormat::kFloat, 312, 1, 0.125f, 200);
    EXPECT_EQ(2048U, mUnit.mStorage.List().mBuffers[1].mDataByteSize) << "slices are rewound";
}

TEST(ChannelCheckTest, InitializeChecksChannelsAgainstTheTable)
{
    const OSStatus kRefused = kAudioUnitErr_FormatNotSupported;
    const std::tuple<int, UInt32, UInt32, OSStatus> cases[] = {
        {0, 2, 2, noErr},    {0, 2, 1, kRefused}, {0, 1, 1, noErr},    {1, 2, 2, noErr},
        {1, 2, 1, kRefused}, {2, 2, 1, noErr},    {2, 1, 2, noErr},    {3, 1, 2, kRefused},
        {3, 2, 2, noErr},    {4, 6, 2, noErr},    {4, 2, 6, kRefused}, {5, 2, 2, kRefused},
        {6, 0, 2, noErr},    {6, 2, 0, kRefused}, {7, 2, 0, noErr}};
    for (const auto& [table, inputs, outputs, expected] : cases) {
        HostedGain unit;
        ASSERT_EQ(noErr, AudioUnitSetParameter(unit.mUnit, kGainParam_ChannelTable,
                                               kAudioUnitScope_Global, 0, Float32(table), 0));
        const std::pair<AudioUnitScope, UInt32> buses[] = {{kAudioUnitScope_Input, inputs},
                                                           {kAudioUnitScope_Output, outputs}};
        for (const auto& [scope, channels] : buses) {
            const AudioStreamBasicDescription format = MakeFormat(channels, SampleFormat::kFloat);
            ASSERT_EQ(noErr, AudioUnitSetProperty(unit.mUnit, kAudioUnitProperty_StreamFormat,
                                                  scope, 0, &format, sizeof format));
        }
        EXPECT_EQ(expected, AudioUnitInitialize(unit.mUnit))
            << "table " << table << ", " << inputs << " in, " << outputs << " out";
        EXPECT_EQ(expected == noErr && outputs > 0 ? 1.0f : 0.0f,
                  unit.Parameter(kGainParam_KernelSerial));
    }
}

// ---- Internals on a directly constructed unit ------------------------------

class EffectInternalsTest : public ::testing::Test
{
protected:
    void SetFormats(UInt32 inChannels)
    {
        const CAStreamBasicDescription format(MakeFormat(inChannels, SampleFormat::kFloat));
        for (AudioUnitScope scope : {kAudioUnitScope_Input, kAudioUnitScope_Output}) {
            ASSERT_EQ(noErr, mUnit.DispatchSetProperty(kAudioUnitProperty_StreamFormat, scope, 0,
                                                       &format, sizeof format));
        }
    }

    GainEffect mUnit{nullptr};
};

TEST_F(EffectInternalsTest, SilenceTimeoutCountsLatencyPlusTailInFrames)
{
    SetFormats(1);
    ASSERT_EQ(noErr, mUnit.DoInitialize());
    const AudioUnitRenderActionFlags silent = kAudioUnitRenderAction_OutputIsSilence;
    // Tail seconds (negative: unchanged), input flags, frames, silent. The counter is armed
    // only after sound, with latency plus tail in frames (0.01 s is 441), and survives the
    // extremes of a 32-bit count: a tail far beyond it saturates instead of wrapping.
    const std::tuple<float, AudioUnitRenderActionFlags, UInt32, bool> steps[] = {
        {-1, silent, 512, true},  {0.01f, silent, 512, true},      {-1, 0, 512, false},
        {-1, silent, 400, false}, {-1, silent, 41, false},         {-1, silent, 512, true},
        {-1, 0, 512, false},      {-1, silent, 0xFFFFFFFF, false}, {-1, silent, 1, true},
        {1.0e6f, 0, 512, false},  {-1, silent, 512, false},        {-1, silent, 0x7FFFFFFF, false},
        {-1, silent, 512, true}};
    for (size_t i = 0; i < std::size(steps); ++i) {
        const auto& [tail, flags, frames, expected] = steps[i];
        if (tail >= 0) {
            mUnit.Globals()->SetParameter(kGainParam_TailSeconds, tail);
        }
        EXPECT_EQ(expected, mUnit.IsInputSilent(flags, frames)) << "step " << i;
    }
}

TEST(EffectSampleKindTest, IdentifiesTheKernelVariant)
{
    const AudioStreamBasicDescription f = MakeFormat(2, SampleFormat::kFloat);
    const AudioStreamBasicDescription i16 = MakeFormat(2, SampleFormat::kInt16, true);
    const auto with = [](AudioStreamBasicDescription inFormat, auto inChange) {
        inChange(inFormat);
        return inFormat;
    };
    const std::tuple<const char*, AudioStreamBasicDescription, AUEffectBase::SampleKind> cases[] = {
        {"float", f, AUEffectBase::kSampleKindFloat32},
        {"float interleaved", MakeFormat(3, SampleFormat::kFloat, true),
         AUEffectBase::kSampleKindFloat32},
        {"int16 interleaved", i16, AUEffectBase::kSampleKindInt16},
        {"8.24", MakeFormat(2, SampleFormat::kFixed824), AUEffectBase::kSampleKindFixed824},
        {"int32", MakeFormat(2, SampleFormat::kInt32), AUEffectBase::kSampleKindOther},
        {"big-endian", with(f, [](auto& d) { d.mFormatFlags |= kAudioFormatFlagIsBigEndian; }),
         AUEffectBase::kSampleKindOther},
        {"not packed", with(f, [](auto& d) { d.mFormatFlags &= ~kAudioFormatFlagIsPacked; }),
         AUEffectBase::kSampleKindOther},
        {"float and signed",
         with(f, [](auto& d) { d.mFormatFlags |= kAudioFormatFlagIsSignedInteger; }),
         AUEffectBase::kSampleKindOther},
        {"bits disagree", with(f, [](auto& d) { d.mBitsPerChannel = 24; }),
         AUEffectBase::kSampleKindOther},
        {"int16 fraction", with(i16, [](auto& d) { d.mFormatFlags |= 1U << 7; }),
         AUEffectBase::kSampleKindOther},
        {"packet unlike frame", with(f, [](auto& d) { d.mBytesPerPacket = 8; }),
         AUEffectBase::kSampleKindOther},
        {"no channels", with(f, [](auto& d) { d.mChannelsPerFrame = 0; }),
         AUEffectBase::kSampleKindOther},
        {"uneven interleaved frame",
         with(i16, [](auto& d) { d.mBytesPerFrame = d.mBytesPerPacket = 5; }),
         AUEffectBase::kSampleKindOther},
    };
    for (const auto& [what, format, kind] : cases) {
        EXPECT_EQ(kind, AUEffectBase::IdentifySampleKind(format)) << what;
    }
}

} // namespace
