// The effect base through the host API: a gain effect built on it, loaded
// from a bundle by the audio-unit runtime and opened in both styles, renders
// real buffers; and the base's internals (kernel bookkeeping, sample kinds,
// slices, silence timeout) on a directly constructed unit.
#include "BufferListStorage.h"
#include "GainEffect.h"
#include "GainHost.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <tuple>

namespace {

constexpr OSType kGainSubtype = FourCC("gain");
constexpr OSType kFailingSubtype = FourCC("fail");
constexpr Float32 kGain = 0.5f;

// The gain kernel's arithmetic on one sample, in the sample's own type.
Float32 ExpectedSample(SampleFormat inSample, SInt32 inStep, UInt32 inChannel, int inStages)
{
    const Float32 gain = kGain * Float32(inChannel + 1);
    if (inSample == SampleFormat::kFloat) {
        Float32 value = Float32(inStep) / 1024.0f;
        for (int s = 0; s < inStages; ++s) {
            value *= gain;
        }
        return value;
    }
    Float32 value = Float32(inStep * 2);
    for (int s = 0; s < inStages; ++s) {
        value = std::nearbyint(value * gain);
    }
    return value;
}

Float32 LoadSample(SampleFormat inSample, const void* inData, UInt32 inIndex)
{
    if (inSample == SampleFormat::kFloat) {
        return static_cast<const Float32*>(inData)[inIndex];
    }
    return static_cast<const SInt16*>(inData)[inIndex];
}

// One open test unit, closed at the end of the scope.
class HostedUnit
{
public:
    HostedUnit(OSType inSubtype, OpenStyle inStyle)
    {
        mOpenStatus = OpenTestUnit(inSubtype, inStyle, &mUnit);
    }
    ~HostedUnit()
    {
        if (mUnit != nullptr) {
            AudioComponentInstanceDispose(mUnit);
        }
    }
    HostedUnit(const HostedUnit&) = delete;
    HostedUnit& operator=(const HostedUnit&) = delete;

    AudioUnit Get() const { return mUnit; }
    OSStatus OpenStatus() const { return mOpenStatus; }

    OSStatus Configure(const AudioStreamBasicDescription& inFormat)
    {
        OSStatus result = SetFormat(mUnit, kAudioUnitScope_Input, inFormat);
        if (result == noErr) {
            result = SetFormat(mUnit, kAudioUnitScope_Output, inFormat);
        }
        if (result == noErr) {
            result =
                AudioUnitSetParameter(mUnit, kGainParam_Gain, kAudioUnitScope_Global, 0, kGain, 0);
        }
        return result;
    }

    Float32 Parameter(AudioUnitParameterID inID) const
    {
        Float32 value = -1.0f;
        EXPECT_EQ(noErr, AudioUnitGetParameter(mUnit, inID, kAudioUnitScope_Global, 0, &value));
        return value;
    }

private:
    AudioUnit mUnit = nullptr;
    OSStatus mOpenStatus = noErr;
};

// Host output buffers for one render: either the host's own memory or null
// pointers (the unit then hands out its own).
class HostOutput
{
public:
    HostOutput(const AudioStreamBasicDescription& inFormat, UInt32 inFrames, bool inHostMemory)
    {
        const bool interleaved = (inFormat.mFormatFlags & kAudioFormatFlagIsNonInterleaved) == 0;
        const UInt32 buffers = interleaved ? 1 : inFormat.mChannelsPerFrame;
        mListStorage = BufferListStorage(buffers);
        mList = &mListStorage.List();
        mMemory.assign(buffers, std::vector<UInt8>(inFrames * inFormat.mBytesPerFrame, 0xA5));
        for (UInt32 b = 0; b < buffers; ++b) {
            mList->mBuffers[b].mNumberChannels = interleaved ? inFormat.mChannelsPerFrame : 1;
            mList->mBuffers[b].mDataByteSize = inFrames * inFormat.mBytesPerFrame;
            mList->mBuffers[b].mData = inHostMemory ? mMemory[b].data() : nullptr;
        }
    }

    AudioBufferList* List() { return mList; }

private:
    BufferListStorage mListStorage{0};
    AudioBufferList* mList;
    std::vector<std::vector<UInt8>> mMemory;
};

// Checks every sample of a rendered list against the kernel's arithmetic.
void ExpectGainApplied(const AudioBufferList& inList, SampleFormat inSample, UInt32 inChannels,
                       UInt64 inFirstFrame, UInt32 inFrames, int inStages)
{
    const bool interleaved = inList.mNumberBuffers == 1 && inChannels > 1;
    int mismatches = 0;
    for (UInt32 channel = 0; channel < inChannels; ++channel) {
        const AudioBuffer& buffer = inList.mBuffers[interleaved ? 0 : channel];
        ASSERT_NE(nullptr, buffer.mData);
        for (UInt32 i = 0; i < inFrames && mismatches < 5; ++i) {
            const UInt32 index = interleaved ? i * inChannels + channel : i;
            const Float32 expected =
                ExpectedSample(inSample, SignalStep(channel, inFirstFrame + i), channel, inStages);
            const Float32 actual = LoadSample(inSample, buffer.mData, index);
            if (actual != expected) {
                ++mismatches;
                ADD_FAILURE() << "channel " << channel << " frame " << i << ": " << actual
                              << " != " << expected;
            }
        }
    }
}

using RenderCase = std::tuple<OpenStyle, bool /*in place*/, bool /*host memory*/, SampleFormat,
                              bool /*interleaved*/>;

class EffectRenderTest : public ::testing::TestWithParam<RenderCase>
{
};

TEST_P(EffectRenderTest, OutputIsInputTimesChannelGainOverSuccessiveSlices)
{
    const auto [style, inPlace, hostMemory, sample, interleaved] = GetParam();
    HostedUnit unit(kGainSubtype, style);
    ASSERT_EQ(noErr, unit.OpenStatus());
    const AudioStreamBasicDescription format = MakeFormat(2, sample, interleaved);
    ASSERT_EQ(noErr, unit.Configure(format));
    ASSERT_EQ(noErr, SetUInt32Property(unit.Get(), kAudioUnitProperty_InPlaceProcessing, inPlace));
    SignalSource source{format, sample};
    ASSERT_EQ(noErr, source.Attach(unit.Get()));
    ASSERT_EQ(noErr, AudioUnitInitialize(unit.Get()));

    UInt64 frame = 0;
    for (UInt32 frames : {512U, 7U, 1156U, 1U}) {
        HostOutput output(format, frames, hostMemory);
        AudioUnitRenderActionFlags flags = 0;
        const AudioTimeStamp stamp = SampleTimeStamp(Float64(frame));
        ASSERT_EQ(noErr, AudioUnitRender(unit.Get(), &flags, &stamp, 0, frames, output.List()));
        EXPECT_EQ(0U, flags & kAudioUnitRenderAction_OutputIsSilence);
        ExpectGainApplied(*output.List(), sample, 2, frame, frames, 1);
        frame += frames;
    }
    EXPECT_EQ(4U, source.mCalls);
}

std::string RenderCaseName(const ::testing::TestParamInfo<RenderCase>& info)
{
    const auto [style, inPlace, hostMemory, sample, interleaved] = info.param;
    return std::string(StyleName(style)) + (inPlace ? "InPlace" : "Separate") +
           (hostMemory ? "HostMemory" : "NullPointers") +
           (sample == SampleFormat::kFloat ? "Float" : "Int16") +
           (interleaved ? "Interleaved" : "NonInterleaved");
}

INSTANTIATE_TEST_SUITE_P(
    StylesLayoutsAndSampleTypes, EffectRenderTest,
    ::testing::Combine(::testing::Values(OpenStyle::kFactory, OpenStyle::kEntryPoint),
                       ::testing::Bool(), ::testing::Bool(),
                       ::testing::Values(SampleFormat::kFloat, SampleFormat::kInt16),
                       ::testing::Bool()),
    RenderCaseName);

using ConnectionCase = std::tuple<OpenStyle /*source*/, OpenStyle /*destination*/>;

class EffectConnectionTest : public ::testing::TestWithParam<ConnectionCase>
{
};

// The destination pulls from the source unit (through its fast-dispatch
// render when the source was opened through the entry point).
TEST_P(EffectConnectionTest, ChainedUnitsApplyBothGains)
{
    const auto [sourceStyle, destinationStyle] = GetParam();
    HostedUnit upstream(kGainSubtype, sourceStyle);
    HostedUnit downstream(kGainSubtype, destinationStyle);
    ASSERT_EQ(noErr, upstream.OpenStatus());
    ASSERT_EQ(noErr, downstream.OpenStatus());
    const AudioStreamBasicDescription format = MakeFormat(2, SampleFormat::kFloat, false);
    ASSERT_EQ(noErr, upstream.Configure(format));
    ASSERT_EQ(noErr, downstream.Configure(format));
    SignalSource source{format, SampleFormat::kFloat};
    ASSERT_EQ(noErr, source.Attach(upstream.Get()));
    AudioUnitConnection connection = {upstream.Get(), 0, 0};
    ASSERT_EQ(noErr,
              AudioUnitSetProperty(downstream.Get(), kAudioUnitProperty_MakeConnection,
                                   kAudioUnitScope_Input, 0, &connection, sizeof connection));
    ASSERT_EQ(noErr, AudioUnitInitialize(upstream.Get()));
    ASSERT_EQ(noErr, AudioUnitInitialize(downstream.Get()));

    UInt64 frame = 0;
    for (UInt32 frames : {256U, 1000U}) {
        HostOutput output(format, frames, true);
        AudioUnitRenderActionFlags flags = 0;
        const AudioTimeStamp stamp = SampleTimeStamp(Float64(frame));
        ASSERT_EQ(noErr,
                  AudioUnitRender(downstream.Get(), &flags, &stamp, 0, frames, output.List()));
        ExpectGainApplied(*output.List(), SampleFormat::kFloat, 2, frame, frames, 2);
        frame += frames;
    }
}

std::string ConnectionCaseName(const ::testing::TestParamInfo<ConnectionCase>& info)
{
    return std::string(StyleName(std::get<0>(info.param))) + "Into" +
           StyleName(std::get<1>(info.param));
}

INSTANTIATE_TEST_SUITE_P(
    BothStyles, EffectConnectionTest,
    ::testing::Combine(::testing::Values(OpenStyle::kFactory, OpenStyle::kEntryPoint),
                       ::testing::Values(OpenStyle::kFactory, OpenStyle::kEntryPoint)),
    ConnectionCaseName);

class EffectHostTest : public ::testing::TestWithParam<OpenStyle>
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(noErr, mUnit.OpenStatus());
        ASSERT_EQ(noErr, mUnit.Configure(mFormat));
        ASSERT_EQ(noErr, mSource.Attach(mUnit.Get()));
    }

    // Renders inFrames frames into host memory; returns the status.
    OSStatus Render(UInt32 inFrames, AudioUnitRenderActionFlags& outFlags, HostOutput& ioOutput)
    {
        outFlags = 0;
        const AudioTimeStamp stamp = SampleTimeStamp(Float64(mFrame));
        const OSStatus result =
            AudioUnitRender(mUnit.Get(), &outFlags, &stamp, 0, inFrames, ioOutput.List());
        mFrame += inFrames;
        return result;
    }

    UInt32 GetUInt32Property(AudioUnitPropertyID inID)
    {
        UInt32 value = 0xFFFFFFFF;
        UInt32 size = sizeof value;
        EXPECT_EQ(noErr, AudioUnitGetProperty(mUnit.Get(), inID, kAudioUnitScope_Global, 0, &value,
                                              &size));
        EXPECT_EQ(sizeof value, size);
        return value;
    }

    HostedUnit mUnit{kGainSubtype, GetParam()};
    AudioStreamBasicDescription mFormat = MakeFormat(2, SampleFormat::kFloat, false);
    SignalSource mSource{mFormat, SampleFormat::kFloat};
    UInt64 mFrame = 0;
};

TEST_P(EffectHostTest, BypassPassesInputThroughAndLeavingItResetsFirst)
{
    UInt32 size = 0;
    Boolean writable = false;
    ASSERT_EQ(noErr, AudioUnitGetPropertyInfo(mUnit.Get(), kAudioUnitProperty_BypassEffect,
                                              kAudioUnitScope_Global, 0, &size, &writable));
    EXPECT_EQ(4U, size);
    EXPECT_TRUE(writable);
    EXPECT_EQ(0U, GetUInt32Property(kAudioUnitProperty_BypassEffect));
    ASSERT_EQ(noErr, AudioUnitInitialize(mUnit.Get()));

    ASSERT_EQ(noErr, SetUInt32Property(mUnit.Get(), kAudioUnitProperty_BypassEffect, 7));
    EXPECT_EQ(1U, GetUInt32Property(kAudioUnitProperty_BypassEffect));
    EXPECT_EQ(0.0f, mUnit.Parameter(kGainParam_ResetCount)) << "turning bypass on never resets";
    for (UInt32 inPlace : {1U, 0U}) {
        ASSERT_EQ(noErr,
                  SetUInt32Property(mUnit.Get(), kAudioUnitProperty_InPlaceProcessing, inPlace));
        HostOutput output(mFormat, 300, true);
        AudioUnitRenderActionFlags flags;
        const UInt64 first = mFrame;
        ASSERT_EQ(noErr, Render(300, flags, output));
        for (UInt32 channel = 0; channel < 2; ++channel) {
            const auto* samples =
                static_cast<const Float32*>(output.List()->mBuffers[channel].mData);
            for (UInt32 i = 0; i < 300; ++i) {
                ASSERT_EQ(Float32(SignalStep(channel, first + i)) / 1024.0f, samples[i])
                    << "in place " << inPlace << ", channel " << channel << ", frame " << i;
            }
        }
    }

    ASSERT_EQ(noErr, SetUInt32Property(mUnit.Get(), kAudioUnitProperty_BypassEffect, 1));
    EXPECT_EQ(0.0f, mUnit.Parameter(kGainParam_ResetCount)) << "same value changes nothing";
    ASSERT_EQ(noErr, SetUInt32Property(mUnit.Get(), kAudioUnitProperty_BypassEffect, 0));
    EXPECT_EQ(1.0f, mUnit.Parameter(kGainParam_ResetCount));
    EXPECT_EQ(1.0f, mUnit.Parameter(kGainParam_BypassAtReset))
        << "reset runs before the flag changes";
    EXPECT_EQ(0U, GetUInt32Property(kAudioUnitProperty_BypassEffect));

    const UInt16 shortValue = 1;
    EXPECT_EQ(kAudioUnitErr_InvalidPropertyValue,
              AudioUnitSetProperty(mUnit.Get(), kAudioUnitProperty_BypassEffect,
                                   kAudioUnitScope_Global, 0, &shortValue, sizeof shortValue));
    EXPECT_EQ(0U, GetUInt32Property(kAudioUnitProperty_BypassEffect));

    AudioUnitUninitialize(mUnit.Get());
    ASSERT_EQ(noErr, SetUInt32Property(mUnit.Get(), kAudioUnitProperty_BypassEffect, 1));
    ASSERT_EQ(noErr, SetUInt32Property(mUnit.Get(), kAudioUnitProperty_BypassEffect, 0));
    EXPECT_EQ(1.0f, mUnit.Parameter(kGainParam_ResetCount)) << "no reset while uninitialized";
}

TEST_P(EffectHostTest, InPlacePropertyDefaultsOnAndRefusesShortValues)
{
    EXPECT_EQ(1U, GetUInt32Property(kAudioUnitProperty_InPlaceProcessing));
    ASSERT_EQ(noErr, SetUInt32Property(mUnit.Get(), kAudioUnitProperty_InPlaceProcessing, 0));
    EXPECT_EQ(0U, GetUInt32Property(kAudioUnitProperty_InPlaceProcessing));
    const UInt8 shortValue = 1;
    EXPECT_EQ(kAudioUnitErr_InvalidPropertyValue,
              AudioUnitSetProperty(mUnit.Get(), kAudioUnitProperty_InPlaceProcessing,
                                   kAudioUnitScope_Global, 0, &shortValue, sizeof shortValue));
    EXPECT_EQ(0U, GetUInt32Property(kAudioUnitProperty_InPlaceProcessing));
    // Outside the global scope the effect base does not answer these.
    UInt32 value = 0;
    UInt32 size = sizeof value;
    EXPECT_EQ(kAudioUnitErr_InvalidProperty,
              AudioUnitGetProperty(mUnit.Get(), kAudioUnitProperty_InPlaceProcessing,
                                   kAudioUnitScope_Input, 0, &value, &size));
}

TEST_P(EffectHostTest, SilentInputIsReportedSilentAfterLatencyAndTail)
{
    ASSERT_EQ(noErr, SetUInt32Property(mUnit.Get(), kAudioUnitProperty_InPlaceProcessing, 0));
    ASSERT_EQ(noErr, AudioUnitInitialize(mUnit.Get()));
    mSource.mSilent = true;
    AudioUnitRenderActionFlags flags;
    {
        HostOutput output(mFormat, 512, true);
        ASSERT_EQ(noErr, Render(512, flags, output));
        EXPECT_NE(0U, flags & kAudioUnitRenderAction_OutputIsSilence) << "no tail: silent at once";
        const auto* samples = static_cast<const Float32*>(output.List()->mBuffers[1].mData);
        EXPECT_EQ(0.0f, samples[0]);
        EXPECT_EQ(0.0f, samples[511]);
    }

    // A tail of 0.01 s at 44100 Hz is 441 frames: one 512-frame slice more.
    ASSERT_EQ(noErr, AudioUnitSetParameter(mUnit.Get(), kGainParam_TailSeconds,
                                           kAudioUnitScope_Global, 0, 0.01f, 0));
    mSource.mSilent = false;
    HostOutput output(mFormat, 512, true);
    ASSERT_EQ(noErr, Render(512, flags, output));
    EXPECT_EQ(0U, flags & kAudioUnitRenderAction_OutputIsSilence);
    mSource.mSilent = true;
    ASSERT_EQ(noErr, Render(512, flags, output));
    EXPECT_EQ(0U, flags & kAudioUnitRenderAction_OutputIsSilence) << "counter 441 -> -71";
    ASSERT_EQ(noErr, Render(512, flags, output));
    EXPECT_NE(0U, flags & kAudioUnitRenderAction_OutputIsSilence);
    ASSERT_EQ(noErr, Render(512, flags, output));
    EXPECT_NE(0U, flags & kAudioUnitRenderAction_OutputIsSilence) << "re-arms only after sound";
}

TEST_P(EffectHostTest, ScheduledEventTakesEffectAtItsFrame)
{
    ASSERT_EQ(noErr, AudioUnitInitialize(mUnit.Get()));
    // Scheduling applies both values at once; slicing then applies each from
    // its own frame on.
    AudioUnitParameterEvent events[2] = {};
    for (int e = 0; e < 2; ++e) {
        events[e].scope = kAudioUnitScope_Global;
        events[e].parameter = kGainParam_Gain;
        events[e].eventType = kParameterEvent_Immediate;
    }
    events[0].eventValues.immediate.bufferOffset = 200;
    events[0].eventValues.immediate.value = 0.125f;
    events[1].eventValues.immediate.bufferOffset = 0;
    events[1].eventValues.immediate.value = 0.25f;
    ASSERT_EQ(noErr, AudioUnitScheduleParameters(mUnit.Get(), events, 2));

    HostOutput output(mFormat, 512, true);
    AudioUnitRenderActionFlags flags;
    ASSERT_EQ(noErr, Render(512, flags, output));
    for (UInt32 channel = 0; channel < 2; ++channel) {
        const auto* samples = static_cast<const Float32*>(output.List()->mBuffers[channel].mData);
        for (UInt32 i = 0; i < 512; ++i) {
            const Float32 gain = (i < 200 ? 0.25f : 0.125f) * Float32(channel + 1);
            ASSERT_EQ(Float32(SignalStep(channel, i)) / 1024.0f * gain, samples[i])
                << "channel " << channel << ", frame " << i;
        }
    }
    EXPECT_EQ(512U, output.List()->mBuffers[0].mDataByteSize / 4);
}

TEST_P(EffectHostTest, UnsupportedSampleTypesFailTheRender)
{
    for (SampleFormat sample : {SampleFormat::kInt32, SampleFormat::kFixed824}) {
        const AudioStreamBasicDescription format = MakeFormat(2, sample, false);
        ASSERT_EQ(noErr, mUnit.Configure(format));
        ASSERT_EQ(noErr, AudioUnitInitialize(mUnit.Get()));
        SignalSource source{format, sample};
        ASSERT_EQ(noErr, source.Attach(mUnit.Get()));
        HostOutput output(format, 64, true);
        AudioUnitRenderActionFlags flags;
        EXPECT_EQ(-1, Render(64, flags, output));
        ASSERT_EQ(noErr, AudioUnitUninitialize(mUnit.Get()));
    }
}

TEST_P(EffectHostTest, RenderWithoutInputSourceIsRefused)
{
    ASSERT_EQ(noErr, AudioUnitInitialize(mUnit.Get()));
    AURenderCallbackStruct none = {nullptr, nullptr};
    ASSERT_EQ(noErr, AudioUnitSetProperty(mUnit.Get(), kAudioUnitProperty_SetRenderCallback,
                                          kAudioUnitScope_Input, 0, &none, sizeof none));
    HostOutput output(mFormat, 64, true);
    AudioUnitRenderActionFlags flags;
    EXPECT_EQ(kAudioUnitErr_NoConnection, Render(64, flags, output));
    EXPECT_EQ(0U, mSource.mCalls);
}

TEST_P(EffectHostTest, StreamFormatWritableOnlyWhileUninitialized)
{
    UInt32 size = 0;
    Boolean writable = false;
    ASSERT_EQ(noErr, AudioUnitGetPropertyInfo(mUnit.Get(), kAudioUnitProperty_StreamFormat,
                                              kAudioUnitScope_Output, 0, &size, &writable));
    EXPECT_TRUE(writable);
    ASSERT_EQ(noErr, AudioUnitInitialize(mUnit.Get()));
    ASSERT_EQ(noErr, AudioUnitGetPropertyInfo(mUnit.Get(), kAudioUnitProperty_StreamFormat,
                                              kAudioUnitScope_Output, 0, &size, &writable));
    EXPECT_FALSE(writable);
    EXPECT_EQ(
        kAudioUnitErr_PropertyNotWritable,
        SetFormat(mUnit.Get(), kAudioUnitScope_Output, MakeFormat(1, SampleFormat::kFloat, false)));
}

// Saved state names the component, which the unit finds through the runtime
// in either style.
TEST_P(EffectHostTest, ClassInfoCarriesTheComponentDescription)
{
    CFPropertyListRef state = nullptr;
    UInt32 size = sizeof state;
    ASSERT_EQ(noErr, AudioUnitGetProperty(mUnit.Get(), kAudioUnitProperty_ClassInfo,
                                          kAudioUnitScope_Global, 0, &state, &size));
    ASSERT_NE(nullptr, state);
    auto number = [state](const char* inKey) {
        CFStringRef key = CFStringCreateWithCString(nullptr, inKey, kCFStringEncodingUTF8);
        const void* value = CFDictionaryGetValue(static_cast<CFDictionaryRef>(state), key);
        CFRelease(key);
        SInt32 result = 0;
        if (value != nullptr) {
            CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt32Type, &result);
        }
        return OSType(result);
    };
    EXPECT_EQ(OSType(kAudioUnitType_Effect), number("type"));
    EXPECT_EQ(kGainSubtype, number("subtype"));
    EXPECT_EQ(kTestManufacturer, number("manufacturer"));
    CFRelease(state);
}

TEST_P(EffectHostTest, FailedConstructionLeavesNoInstance)
{
    HostedUnit failing(kFailingSubtype, GetParam());
    EXPECT_EQ(nullptr, failing.Get());
    // Entry point: the constructor throws an OSErr; factory: PostConstructor
    // throws std::bad_alloc.
    EXPECT_EQ(GetParam() == OpenStyle::kEntryPoint ? paramErr : memFullErr, failing.OpenStatus());
}

INSTANTIATE_TEST_SUITE_P(BothStyles, EffectHostTest,
                         ::testing::Values(OpenStyle::kFactory, OpenStyle::kEntryPoint),
                         [](const ::testing::TestParamInfo<OpenStyle>& info) {
                             return StyleName(info.param);
                         });

struct ChannelCase
{
    int mTable;
    UInt32 mInputs;
    UInt32 mOutputs;
    OSStatus mExpected;
};

class ChannelCheckTest : public ::testing::TestWithParam<ChannelCase>
{
};

TEST_P(ChannelCheckTest, InitializeChecksChannelsAgainstTheTable)
{
    const ChannelCase& c = GetParam();
    HostedUnit unit(kGainSubtype, OpenStyle::kFactory);
    ASSERT_EQ(noErr, unit.OpenStatus());
    ASSERT_EQ(noErr, AudioUnitSetParameter(unit.Get(), kGainParam_ChannelTable,
                                           kAudioUnitScope_Global, 0, Float32(c.mTable), 0));
    ASSERT_EQ(noErr, SetFormat(unit.Get(), kAudioUnitScope_Input,
                               MakeFormat(c.mInputs, SampleFormat::kFloat, false)));
    ASSERT_EQ(noErr, SetFormat(unit.Get(), kAudioUnitScope_Output,
                               MakeFormat(c.mOutputs, SampleFormat::kFloat, false)));
    EXPECT_EQ(c.mExpected, AudioUnitInitialize(unit.Get()));
    if (c.mExpected == noErr) {
        EXPECT_EQ(1.0f, unit.Parameter(kGainParam_KernelSerial));
    }
}

INSTANTIATE_TEST_SUITE_P(Tables, ChannelCheckTest,
                         ::testing::Values(ChannelCase{0, 2, 2, noErr},
                                           ChannelCase{0, 2, 1, kAudioUnitErr_FormatNotSupported},
                                           ChannelCase{0, 1, 1, noErr}, ChannelCase{1, 2, 2, noErr},
                                           ChannelCase{1, 2, 1, kAudioUnitErr_FormatNotSupported},
                                           ChannelCase{2, 2, 1, noErr}, ChannelCase{2, 1, 2, noErr},
                                           ChannelCase{3, 1, 2, kAudioUnitErr_FormatNotSupported},
                                           ChannelCase{3, 2, 2, noErr}, ChannelCase{4, 6, 2, noErr},
                                           ChannelCase{4, 2, 6, kAudioUnitErr_FormatNotSupported},
                                           ChannelCase{5, 2, 2, kAudioUnitErr_FormatNotSupported}));

// ---- Internals on a directly constructed unit ----------------------------

class EffectInternalsTest : public ::testing::Test
{
protected:
    void SetFormats(UInt32 inInputs, UInt32 inOutputs)
    {
        CAStreamBasicDescription input(MakeFormat(inInputs, SampleFormat::kFloat, false));
        CAStreamBasicDescription output(MakeFormat(inOutputs, SampleFormat::kFloat, false));
        ASSERT_EQ(noErr, mUnit.DispatchSetProperty(kAudioUnitProperty_StreamFormat,
                                                   kAudioUnitScope_Input, 0, &input, sizeof input));
        ASSERT_EQ(noErr,
                  mUnit.DispatchSetProperty(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output,
                                            0, &output, sizeof output));
    }

    GainEffect mUnit{nullptr};
};

TEST_F(EffectInternalsTest, MaintainKernelsKeepsLowerChannelsAndRenumbers)
{
    SetFormats(2, 2);
    mUnit.MaintainKernels();
    ASSERT_EQ(2U, mUnit.Kernels().size());
    AUKernelBase* first = mUnit.Kernels()[0];
    EXPECT_EQ(0U, first->GetChannelNum());
    EXPECT_EQ(1U, mUnit.Kernels()[1]->GetChannelNum());

    SetFormats(1, 1);
    mUnit.MaintainKernels();
    ASSERT_EQ(1U, mUnit.Kernels().size());
    EXPECT_EQ(first, mUnit.Kernels()[0]);

    SetFormats(3, 3);
    mUnit.MaintainKernels();
    ASSERT_EQ(3U, mUnit.Kernels().size());
    EXPECT_EQ(first, mUnit.Kernels()[0]);
    EXPECT_EQ(2U, mUnit.Kernels()[2]->GetChannelNum());
    EXPECT_EQ(3U, static_cast<GainKernel*>(mUnit.Kernels()[1])->Serial()) << "made anew";
    EXPECT_EQ(4U, static_cast<GainKernel*>(mUnit.Kernels()[2])->Serial());

    mUnit.Cleanup();
    EXPECT_TRUE(mUnit.Kernels().empty());
}

TEST_F(EffectInternalsTest, ChannelMismatchMakesNoKernels)
{
    SetFormats(2, 1);
    EXPECT_EQ(kAudioUnitErr_FormatNotSupported, mUnit.DoInitialize());
    EXPECT_TRUE(mUnit.Kernels().empty());
    EXPECT_FALSE(mUnit.IsInitialized());
}

TEST_F(EffectInternalsTest, SliceSizesAndAdvancesEveryBuffer)
{
    SetFormats(2, 2);
    ASSERT_EQ(noErr, mUnit.DoInitialize());
    std::vector<Float32> memory(4 * 128, 1.0f);
    BufferListStorage inStorage(2);
    BufferListStorage outStorage(2);
    AudioBufferList* in = &inStorage.List();
    AudioBufferList* out = &outStorage.List();
    for (UInt32 b = 0; b < 2; ++b) {
        in->mBuffers[b] = {1, 512, memory.data() + b * 128};
        out->mBuffers[b] = {1, 512, memory.data() + (2 + b) * 128};
    }
    AudioUnitRenderActionFlags flags = 0;
    AUEffectBase::SliceProcessRecord record = {&flags, in, out};
    ASSERT_EQ(noErr, mUnit.ProcessScheduledSlice(&record, 0, 64, 128));
    for (UInt32 b = 0; b < 2; ++b) {
        EXPECT_EQ(256U, in->mBuffers[b].mDataByteSize);
        EXPECT_EQ(256U, out->mBuffers[b].mDataByteSize);
        EXPECT_EQ(memory.data() + b * 128 + 64, in->mBuffers[b].mData);
        EXPECT_EQ(memory.data() + (2 + b) * 128 + 64, out->mBuffers[b].mData);
    }
    EXPECT_EQ(1.0f, memory[2 * 128 + 63]) << "gain 1 on channel 0";
    EXPECT_EQ(2.0f, memory[3 * 128 + 63]) << "channel 1 doubles";
    EXPECT_EQ(1.0f, memory[3 * 128 + 64]) << "beyond the slice untouched";
}

TEST_F(EffectInternalsTest, InterleavedKernelsTakeEveryOtherSample)
{
    SetFormats(2, 2);
    ASSERT_EQ(noErr, mUnit.DoInitialize());
    std::vector<Float32> input = {1, 10, 2, 20, 3, 30};
    std::vector<Float32> output(6, 0.0f);
    BufferListStorage inStorage(1);
    BufferListStorage outStorage(1);
    AudioBufferList* in = &inStorage.List();
    AudioBufferList* out = &outStorage.List();
    in->mBuffers[0] = {2, 24, input.data()};
    out->mBuffers[0] = {2, 24, output.data()};
    AudioUnitRenderActionFlags flags = 0;
    ASSERT_EQ(noErr, mUnit.ProcessBufferLists(flags, *in, *out, 3));
    EXPECT_EQ((std::vector<Float32>{1, 20, 2, 40, 3, 60}), output);
}

TEST_F(EffectInternalsTest, SilenceTimeoutCountsLatencyPlusTailInFrames)
{
    SetFormats(1, 1);
    ASSERT_EQ(noErr, mUnit.DoInitialize());
    const AudioUnitRenderActionFlags silent = kAudioUnitRenderAction_OutputIsSilence;
    EXPECT_TRUE(mUnit.IsInputSilent(silent, 512)) << "no latency or tail";
    mUnit.Globals()->SetParameter(kGainParam_TailSeconds, 0.01f);
    EXPECT_TRUE(mUnit.IsInputSilent(silent, 512)) << "counter armed only after sound";
    EXPECT_FALSE(mUnit.IsInputSilent(0, 512));
    EXPECT_FALSE(mUnit.IsInputSilent(silent, 400)) << "441 -> 41";
    EXPECT_FALSE(mUnit.IsInputSilent(silent, 41)) << "41 -> 0";
    EXPECT_TRUE(mUnit.IsInputSilent(silent, 512));

    // The frame count survives the extremes of a 32-bit counter: a tail far
    // beyond it keeps the output audible, the largest slice still ends it.
    EXPECT_FALSE(mUnit.IsInputSilent(0, 512));
    EXPECT_FALSE(mUnit.IsInputSilent(silent, 0xFFFFFFFF)) << "441 -> below zero";
    EXPECT_TRUE(mUnit.IsInputSilent(silent, 1));
    mUnit.Globals()->SetParameter(kGainParam_TailSeconds, 1.0e6f);
    EXPECT_FALSE(mUnit.IsInputSilent(0, 512));
    EXPECT_FALSE(mUnit.IsInputSilent(silent, 512)) << "4.41e10 frames saturate, not wrap";
    EXPECT_FALSE(mUnit.IsInputSilent(silent, 0x7FFFFFFF));
    EXPECT_TRUE(mUnit.IsInputSilent(silent, 512));
}

struct SampleKindCase
{
    const char* mName;
    AudioStreamBasicDescription mFormat;
    AUEffectBase::SampleKind mExpected;
};

AudioStreamBasicDescription Modified(AudioStreamBasicDescription inFormat, UInt32 inSetFlags,
                                     UInt32 inClearFlags, UInt32 inBits = 0)
{
    inFormat.mFormatFlags = (inFormat.mFormatFlags | inSetFlags) & ~inClearFlags;
    if (inBits != 0) {
        inFormat.mBitsPerChannel = inBits;
    }
    return inFormat;
}

class SampleKindTest : public ::testing::TestWithParam<SampleKindCase>
{
};

TEST_P(SampleKindTest, IdentifiesTheKernelVariant)
{
    EXPECT_EQ(GetParam().mExpected, AUEffectBase::IdentifySampleKind(GetParam().mFormat));
}

const AudioStreamBasicDescription kFloatStereo = MakeFormat(2, SampleFormat::kFloat, false);
const AudioStreamBasicDescription kInt16Interleaved = MakeFormat(2, SampleFormat::kInt16, true);

INSTANTIATE_TEST_SUITE_P(
    Formats, SampleKindTest,
    ::testing::Values(
        SampleKindCase{"FloatNonInterleaved", kFloatStereo, AUEffectBase::kSampleKindFloat32},
        SampleKindCase{"FloatInterleaved", MakeFormat(3, SampleFormat::kFloat, true),
                       AUEffectBase::kSampleKindFloat32},
        SampleKindCase{"Int16Interleaved", kInt16Interleaved, AUEffectBase::kSampleKindInt16},
        SampleKindCase{"Fixed824", MakeFormat(2, SampleFormat::kFixed824, false),
                       AUEffectBase::kSampleKindFixed824},
        SampleKindCase{"Int32", MakeFormat(2, SampleFormat::kInt32, false),
                       AUEffectBase::kSampleKindOther},
        SampleKindCase{"BigEndian", Modified(kFloatStereo, kAudioFormatFlagIsBigEndian, 0),
                       AUEffectBase::kSampleKindOther},
        SampleKindCase{"NotPacked", Modified(kFloatStereo, 0, kAudioFormatFlagIsPacked),
                       AUEffectBase::kSampleKindOther},
        SampleKindCase{"FloatWithFractionBits", Modified(kFloatStereo, 1U << 7, 0),
                       AUEffectBase::kSampleKindOther},
        SampleKindCase{"FloatAndSigned", Modified(kFloatStereo, kAudioFormatFlagIsSignedInteger, 0),
                       AUEffectBase::kSampleKindOther},
        SampleKindCase{"BitsDisagree", Modified(kFloatStereo, 0, 0, 24),
                       AUEffectBase::kSampleKindOther},
        SampleKindCase{"Int16Fraction", Modified(kInt16Interleaved, 1U << 7, 0),
                       AUEffectBase::kSampleKindOther},
        SampleKindCase{"NotPCM",
                       [] {
                           AudioStreamBasicDescription f = kFloatStereo;
                           f.mFormatID = FourCC("aac ");
                           return f;
                       }(),
                       AUEffectBase::kSampleKindOther},
        SampleKindCase{"UnevenInterleavedFrame",
                       [] {
                           AudioStreamBasicDescription f = kInt16Interleaved;
                           f.mBytesPerFrame = f.mBytesPerPacket = 5;
                           return f;
                       }(),
                       AUEffectBase::kSampleKindOther}),
    [](const ::testing::TestParamInfo<SampleKindCase>& info) { return info.param.mName; });

} // namespace
