// Host-side helpers for the effect-base tests: open the test bundles' units
// through the audio-unit runtime in either style, describe formats, feed an
// input from a host callback, and render into host buffers.
#ifndef GAINHOST_H
#define GAINHOST_H

#include <AudioUnit/AudioUnit.h>
#include <CoreServices/CoreServices.h>

#include <cstring>
#include <vector>

enum class OpenStyle
{
    kFactory,
    kEntryPoint
};

inline const char* StyleName(OpenStyle inStyle)
{
    return inStyle == OpenStyle::kFactory ? "Factory" : "EntryPoint";
}

constexpr OSType FourCC(const char (&inCode)[5])
{
    return (OSType(UInt8(inCode[0])) << 24) | (OSType(UInt8(inCode[1])) << 16) |
           (OSType(UInt8(inCode[2])) << 8) | OSType(UInt8(inCode[3]));
}

constexpr OSType kTestManufacturer = FourCC("VdTs");

// Makes the test bundles known to the runtime (once per process).
inline void RegisterTestBundles()
{
    static const bool sRegistered = [] {
        return AudioComponentRegisterBundle(GLUE_GAIN_BUNDLE) == noErr &&
               AudioComponentRegisterBundle(GLUE_FAILING_BUNDLE) == noErr;
    }();
    (void)sRegistered;
}

// Opens the test component with the given subtype; *outUnit is null on failure.
inline OSStatus OpenTestUnit(OSType inSubtype, OpenStyle inStyle, AudioUnit* outUnit)
{
    RegisterTestBundles();
    *outUnit = nullptr;
    if (inStyle == OpenStyle::kFactory) {
        AudioComponentDescription description = {kAudioUnitType_Effect, inSubtype,
                                                 kTestManufacturer, 0, 0};
        AudioComponent component = AudioComponentFindNext(nullptr, &description);
        if (component == nullptr) {
            return invalidComponentID;
        }
        return AudioComponentInstanceNew(component, outUnit);
    }
    ComponentDescription description = {kAudioUnitType_Effect, inSubtype, kTestManufacturer, 0, 0};
    Component component = FindNextComponent(nullptr, &description);
    if (component == nullptr) {
        return invalidComponentID;
    }
    return OpenAComponent(component, outUnit);
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
                                              bool inInterleaved)
{
    UInt32 sampleBytes = 4;
    UInt32 flags = kAudioFormatFlagIsPacked;
    switch (inSample) {
    case SampleFormat::kFloat:
        flags |= kAudioFormatFlagIsFloat;
        break;
    case SampleFormat::kInt16:
        flags |= kAudioFormatFlagIsSignedInteger;
        sampleBytes = 2;
        break;
    case SampleFormat::kFixed824:
        flags |=
            kAudioFormatFlagIsSignedInteger | (24U << kLinearPCMFormatFlagsSampleFractionShift);
        break;
    case SampleFormat::kInt32:
        flags |= kAudioFormatFlagIsSignedInteger;
        break;
    }
    if (!inInterleaved) {
        flags |= kAudioFormatFlagIsNonInterleaved;
    }
    const UInt32 frameBytes = inInterleaved ? sampleBytes * inChannels : sampleBytes;
    AudioStreamBasicDescription format = {};
    format.mSampleRate = 44100.0;
    format.mFormatID = kAudioFormatLinearPCM;
    format.mFormatFlags = flags;
    format.mBytesPerPacket = frameBytes;
    format.mFramesPerPacket = 1;
    format.mBytesPerFrame = frameBytes;
    format.mChannelsPerFrame = inChannels;
    format.mBitsPerChannel = sampleBytes * 8;
    return format;
}

inline OSStatus SetFormat(AudioUnit inUnit, AudioUnitScope inScope,
                          const AudioStreamBasicDescription& inFormat)
{
    return AudioUnitSetProperty(inUnit, kAudioUnitProperty_StreamFormat, inScope, 0, &inFormat,
                                sizeof inFormat);
}

inline OSStatus SetUInt32Property(AudioUnit inUnit, AudioUnitPropertyID inID, UInt32 inValue)
{
    return AudioUnitSetProperty(inUnit, inID, kAudioUnitScope_Global, 0, &inValue, sizeof inValue);
}

// The test signal: exact in float, in 16-bit and in 8.24, and different on
// every channel.
inline SInt32 SignalStep(UInt32 inChannel, UInt64 inFrame)
{
    return SInt32((inFrame * 7 + inChannel * 1013) % 2001) - 1000;
}

// A host render callback producing the test signal for any layout, with a
// frame counter that follows the time stamp. With mSilent it produces zeros
// and flags them as silence.
struct SignalSource
{
    AudioStreamBasicDescription mFormat;
    SampleFormat mSample;
    bool mSilent = false;
    UInt32 mCalls = 0;

    static OSStatus Render(void* inRefCon, AudioUnitRenderActionFlags* ioActionFlags,
                           const AudioTimeStamp* inTimeStamp, UInt32, UInt32 inNumberFrames,
                           AudioBufferList* ioData)
    {
        auto* source = static_cast<SignalSource*>(inRefCon);
        ++source->mCalls;
        const bool interleaved = ioData->mNumberBuffers == 1;
        const auto firstFrame = static_cast<UInt64>(inTimeStamp->mSampleTime);
        for (UInt32 b = 0; b < ioData->mNumberBuffers; ++b) {
            const UInt32 channels = ioData->mBuffers[b].mNumberChannels;
            for (UInt32 c = 0; c < channels; ++c) {
                const UInt32 channel = interleaved ? c : b;
                for (UInt32 i = 0; i < inNumberFrames; ++i) {
                    const SInt32 step = source->mSilent ? 0 : SignalStep(channel, firstFrame + i);
                    source->Store(ioData->mBuffers[b].mData, i * channels + c, step);
                }
            }
        }
        if (source->mSilent) {
            *ioActionFlags |= kAudioUnitRenderAction_OutputIsSilence;
        }
        return noErr;
    }

    void Store(void* outData, UInt32 inIndex, SInt32 inStep) const
    {
        switch (mSample) {
        case SampleFormat::kFloat:
            static_cast<Float32*>(outData)[inIndex] = Float32(inStep) / 1024.0f;
            break;
        case SampleFormat::kInt16:
            static_cast<SInt16*>(outData)[inIndex] = SInt16(inStep * 2);
            break;
        case SampleFormat::kFixed824:
        case SampleFormat::kInt32:
            static_cast<SInt32*>(outData)[inIndex] = inStep * 4096;
            break;
        }
    }

    OSStatus Attach(AudioUnit inUnit)
    {
        AURenderCallbackStruct callback = {Render, this};
        return AudioUnitSetProperty(inUnit, kAudioUnitProperty_SetRenderCallback,
                                    kAudioUnitScope_Input, 0, &callback, sizeof callback);
    }
};

inline AudioTimeStamp SampleTimeStamp(Float64 inSampleTime)
{
    AudioTimeStamp stamp = {};
    stamp.mSampleTime = inSampleTime;
    stamp.mFlags = kAudioTimeStampSampleTimeValid;
    return stamp;
}

#endif
