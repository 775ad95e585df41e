// A small effect for the effect-base tests, and host-side helpers to drive
// it. Every channel is multiplied by the gain parameter times (channel + 1),
// so the output shows both that the kernels ran and that each channel went to
// the right kernel. It accepts any packed linear PCM format (the effect base
// decides which sample types it can process), publishes a tail time and, on
// request, a channel table, and records its resets. Included by exactly one
// source file of a test program, which it registers with the audio-unit
// runtime in both hosting styles.
#ifndef GAINEFFECT_H
#define GAINEFFECT_H

#include "../../AUBase/AUBaseTestUnit.h"
#include "AUEffectBase.h"
#include "AUPluginDispatch.h"
#include "BufferListStorage.h"

#include <AudioUnit/AudioUnit.h>
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

enum : AudioUnitParameterID
{
    kGainParam_Gain,          // linear factor, default 1
    kGainParam_TailSeconds,   // tail time reported to the effect base
    kGainParam_ResetCount,    // Reset calls so far
    kGainParam_BypassAtReset, // bypass flag seen by the last Reset (0 or 1)
    kGainParam_ChannelTable,  // which channel table to publish, see GainEffect
    kGainParam_KernelSerial,  // serial number of kernel 0 (kernels are numbered from 1)
    kGainParamCount
};

class GainKernel : public AUKernelBase
{
public:
    GainKernel(AUEffectBase* inUnit, UInt32 inSerial) : AUKernelBase(inUnit), mSerial(inSerial) {}

    void Process(const Float32* inSourceP, Float32* inDestP, UInt32 inFrames, UInt32 inStride,
                 bool&) override
    {
        for (UInt32 frame = 0; frame < inFrames; ++frame) {
            inDestP[frame * inStride] = inSourceP[frame * inStride] * ChannelGain();
        }
    }

    void Process(const SInt16* inSourceP, SInt16* inDestP, UInt32 inFrames, UInt32 inStride,
                 bool&) override
    {
        for (UInt32 frame = 0; frame < inFrames; ++frame) {
            inDestP[frame * inStride] =
                static_cast<SInt16>(std::nearbyint(inSourceP[frame * inStride] * ChannelGain()));
        }
    }

    const UInt32 mSerial;

private:
    Float32 ChannelGain() const;
};

class GainEffect : public AUEffectBase
{
public:
    explicit GainEffect(AudioComponentInstance inInstance) : AUEffectBase(inInstance)
    {
        CreateElements();
        Globals()->UseIndexedParameters(kGainParamCount);
        Globals()->SetParameter(kGainParam_Gain, 1.0f);
    }

    AudioUnitParameterValue Parameter(AudioUnitParameterID inID)
    {
        return Globals()->GetParameter(inID);
    }

    OSStatus Initialize() override
    {
        const OSStatus result = AUEffectBase::Initialize();
        if (result == noErr && !mKernelList.empty()) {
            Globals()->SetParameter(
                kGainParam_KernelSerial,
                static_cast<Float32>(static_cast<GainKernel*>(mKernelList[0])->mSerial));
        }
        return result;
    }

    OSStatus Reset(AudioUnitScope inScope, AudioUnitElement inElement) override
    {
        Globals()->SetParameter(kGainParam_ResetCount, Parameter(kGainParam_ResetCount) + 1.0f);
        Globals()->SetParameter(kGainParam_BypassAtReset, ShouldBypassEffect() ? 1.0f : 0.0f);
        return AUEffectBase::Reset(inScope, inElement);
    }

    Float64 GetTailTime() override { return Parameter(kGainParam_TailSeconds); }
    bool SupportsTail() override { return true; }

    // Channel tables by kGainParam_ChannelTable: 0 none, 1 {(-1,-1)},
    // 2 {(-1,-2)}, 3 {(1,1),(2,2)}, 4 {(-1,2)}, 5 {(-2,-2)}, 6 {(0,-1)}, 7 {(-1,0)}.
    UInt32 SupportedNumChannels(const AUChannelInfo** outInfo) override
    {
        static const AUChannelInfo kTables[][2] = {
            {},        {{-1, -1}}, {{-1, -2}}, {{1, 1}, {2, 2}},
            {{-1, 2}}, {{-2, -2}}, {{0, -1}},  {{-1, 0}}};
        const int table = static_cast<int>(Parameter(kGainParam_ChannelTable));
        if (outInfo != nullptr) {
            *outInfo = kTables[table];
        }
        return table == 0 ? 0 : table == 3 ? 2 : 1;
    }

    bool ValidFormat(AudioUnitScope, AudioUnitElement,
                     const CAStreamBasicDescription& inFormat) override
    {
        return inFormat.mFormatID == kAudioFormatLinearPCM &&
               (inFormat.mFormatFlags & kAudioFormatFlagIsPacked) != 0;
    }

    AUKernelBase* NewKernel() override { return new GainKernel(this, mNextKernelSerial++); }

private:
    UInt32 mNextKernelSerial = 1;
};

inline Float32 GainKernel::ChannelGain() const
{
    return static_cast<GainEffect*>(mAudioUnit)->Parameter(kGainParam_Gain) *
           static_cast<Float32>(mChannelNum + 1);
}

AU_EXPORT_COMPONENT_ENTRIES(GainEffect, GainTestEntry, GainTestFactory)

// ---- Host side -------------------------------------------------------------

// Opens the effect through the runtime, registering it first (once).
inline OSStatus OpenGain(OpenStyle inStyle, AudioUnit* outUnit)
{
    static ComponentDescription description = {kAudioUnitType_Effect, 0x6761696E /* gain */,
                                               0x56645473 /* VdTs */, 0, 0};
    static const bool sRegistered =
        (RegisterBothStyles(description, GainTestFactory, reinterpret_cast<void*>(GainTestEntry)),
         true);
    (void)sRegistered;
    return OpenInStyle(description, inStyle, outUnit);
}

enum class SampleFormat
{
    kFloat,
    kInt16,
    kFixed824,
    kInt32
};

// Packed native-endian linear PCM at 44100 Hz.
inline AudioStreamBasicDescription MakeFormat(UInt32 inChannels, SampleFormat inSample,
                                              bool inInterleaved = false)
{
    const UInt32 bits = inSample == SampleFormat::kInt16 ? 16 : 32;
    AudioStreamBasicDescription format{};
    FillOutASBDForLPCM(format, 44100.0, inChannels, bits, bits, inSample == SampleFormat::kFloat,
                       false, !inInterleaved);
    if (inSample == SampleFormat::kFixed824) {
        format.mFormatFlags |= 24U << kLinearPCMFormatFlagsSampleFractionShift;
    }
    return format;
}

inline OSStatus SetUInt32Property(AudioUnit inUnit, AudioUnitPropertyID inID, UInt32 inValue)
{
    return AudioUnitSetProperty(inUnit, inID, kAudioUnitScope_Global, 0, &inValue, sizeof inValue);
}

// Sets both bus formats and the gain.
inline OSStatus Configure(AudioUnit inUnit, const AudioStreamBasicDescription& inFormat,
                          Float32 inGain)
{
    for (AudioUnitScope scope : {kAudioUnitScope_Input, kAudioUnitScope_Output}) {
        if (OSStatus result = AudioUnitSetProperty(inUnit, kAudioUnitProperty_StreamFormat, scope,
                                                   0, &inFormat, sizeof inFormat)) {
            return result;
        }
    }
    return AudioUnitSetParameter(inUnit, kGainParam_Gain, kAudioUnitScope_Global, 0, inGain, 0);
}

// The test signal: exact in float and in 16-bit, and different on every
// channel.
inline SInt32 SignalStep(UInt32 inChannel, UInt64 inFrame)
{
    return SInt32((inFrame * 7 + inChannel * 1013) % 2001) - 1000;
}

// A host render callback producing the test signal in any layout, with a
// frame counter that follows the time stamp. With mFlagSilence it flags its
// output as silence, whatever it holds, as a careless host may.
struct SignalSource
{
    SampleFormat mSample;
    bool mFlagSilence = false;
    UInt32 mCalls = 0;

    static OSStatus Render(void* inRefCon, AudioUnitRenderActionFlags* ioActionFlags,
                           const AudioTimeStamp* inTimeStamp, UInt32, UInt32 inNumberFrames,
                           AudioBufferList* ioData)
    {
        auto* source = static_cast<SignalSource*>(inRefCon);
        ++source->mCalls;
        const auto first = static_cast<UInt64>(inTimeStamp->mSampleTime);
        for (UInt32 b = 0; b < ioData->mNumberBuffers; ++b) {
            const UInt32 channels = ioData->mBuffers[b].mNumberChannels;
            void* data = ioData->mBuffers[b].mData;
            for (UInt32 c = 0; c < channels; ++c) {
                for (UInt32 i = 0; i < inNumberFrames; ++i) {
                    const SInt32 step = SignalStep(b + c, first + i);
                    const UInt32 index = i * channels + c;
                    if (source->mSample == SampleFormat::kFloat) {
                        static_cast<Float32*>(data)[index] = Float32(step) / 1024.0f;
                    } else {
                        static_cast<SInt16*>(data)[index] = SInt16(step * 2);
                    }
                }
            }
        }
        if (source->mFlagSilence) {
            *ioActionFlags |= kAudioUnitRenderAction_OutputIsSilence;
        }
        return noErr;
    }

    OSStatus Attach(AudioUnit inUnit)
    {
        AURenderCallbackStruct callback = {Render, this};
        return AudioUnitSetProperty(inUnit, kAudioUnitProperty_SetRenderCallback,
                                    kAudioUnitScope_Input, 0, &callback, sizeof callback);
    }
};

// ---- A unit opened through the runtime --------------------------------------

// One open test unit, closed at the end of the scope.
struct HostedGain
{
    explicit HostedGain(OpenStyle inStyle = OpenStyle::kFactory)
    {
        EXPECT_EQ(noErr, OpenGain(inStyle, &mUnit));
    }
    ~HostedGain() { AudioComponentInstanceDispose(mUnit); }

    Float32 Parameter(AudioUnitParameterID inID) const
    {
        Float32 value = -1.0f;
        EXPECT_EQ(noErr, AudioUnitGetParameter(mUnit, inID, kAudioUnitScope_Global, 0, &value));
        return value;
    }

    // Sets up the host's output buffers: its own memory (filled with a
    // pattern) or null pointers, which the unit then fills with its own.
    void PrepareOutput(const AudioStreamBasicDescription& inFormat, UInt32 inFrames,
                       bool inHostMemory)
    {
        const UInt32 buffers = inFormat.mFormatFlags & kAudioFormatFlagIsNonInterleaved
                                   ? inFormat.mChannelsPerFrame
                                   : 1;
        mStorage = BufferListStorage(buffers);
        mMemory.assign(buffers, std::vector<UInt8>(inFrames * inFormat.mBytesPerFrame, 0xA5));
        for (UInt32 b = 0; b < buffers; ++b) {
            mStorage.List().mBuffers[b] = {inFormat.mChannelsPerFrame / buffers,
                                           inFrames * inFormat.mBytesPerFrame,
                                           inHostMemory ? mMemory[b].data() : nullptr};
        }
    }

    // Renders into the prepared buffers at the next sample time.
    OSStatus Render(UInt32 inFrames)
    {
        mFlags = 0;
        mFirstFrame = mNextFrame;
        mNextFrame += inFrames;
        const AudioTimeStamp stamp = TimeAt(Float64(mFirstFrame));
        return AudioUnitRender(mUnit, &mFlags, &stamp, 0, inFrames, &mStorage.List());
    }

    OSStatus Render(const AudioStreamBasicDescription& inFormat, UInt32 inFrames, bool inHostMemory)
    {
        PrepareOutput(inFormat, inFrames, inHostMemory);
        return Render(inFrames);
    }

    // Checks inFrames rendered samples of both channels against inStages gain
    // stages, from inFrom on.
    void ExpectGain(SampleFormat inSample, UInt32 inFrames, int inStages = 1, Float32 inGain = 0.5f,
                    UInt32 inFrom = 0)
    {
        const AudioBufferList& list = mStorage.List();
        const bool interleaved = list.mNumberBuffers == 1;
        int mismatches = 0;
        for (UInt32 channel = 0; channel < 2; ++channel) {
            const void* data = list.mBuffers[interleaved ? 0 : channel].mData;
            ASSERT_NE(nullptr, data);
            const Float32 gain = inGain * Float32(channel + 1);
            for (UInt32 i = inFrom; i < inFrom + inFrames && mismatches < 5; ++i) {
                const SInt32 step = SignalStep(channel, mFirstFrame + i);
                const bool isFloat = inSample == SampleFormat::kFloat;
                Float32 expected = isFloat ? Float32(step) / 1024.0f : Float32(step * 2);
                for (int s = 0; s < inStages; ++s) {
                    expected = isFloat ? expected * gain : std::nearbyint(expected * gain);
                }
                const UInt32 index = interleaved ? i * 2 + channel : i;
                const Float32 actual = isFloat ? static_cast<const Float32*>(data)[index]
                                               : static_cast<const SInt16*>(data)[index];
                if (actual != expected) {
                    ++mismatches;
                    ADD_FAILURE() << "channel " << channel << " frame " << i << ": " << actual
                                  << " != " << expected;
                }
            }
        }
    }

    AudioUnit mUnit = nullptr;
    BufferListStorage mStorage{2};
    std::vector<std::vector<UInt8>> mMemory;
    AudioUnitRenderActionFlags mFlags = 0;
    UInt64 mFirstFrame = 0;
    UInt64 mNextFrame = 0;
};

#endif
