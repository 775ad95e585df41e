// A minimal host for the unit's tests: opens instances through the host API,
// feeds input from a render callback with a deterministic test signal, and
// renders into buffers the test owns. Shared by the unit's test programs.
#ifndef VANDRELTESTHOST_H
#define VANDRELTESTHOST_H

#include "BufferListStorage.h"
#include "CFTestHelpers.h"
#include "Vandrel.h"
#include "VandrelEngine.h"

#include <AudioUnit/AudioUnit.h>
#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace vandrel_test {

// A four-character code as its 32-bit value.
constexpr OSType FourCC(const char (&inCode)[5])
{
    return (static_cast<OSType>(static_cast<unsigned char>(inCode[0])) << 24) |
           (static_cast<OSType>(static_cast<unsigned char>(inCode[1])) << 16) |
           (static_cast<OSType>(static_cast<unsigned char>(inCode[2])) << 8) |
           static_cast<OSType>(static_cast<unsigned char>(inCode[3]));
}

constexpr OSType kType = FourCC("aufx");
constexpr OSType kSubtype = FourCC("Vndr");
constexpr OSType kManufacturer = FourCC("Vdrl");

inline AudioComponentDescription UnitDescription()
{
    return AudioComponentDescription{kType, kSubtype, kManufacturer, 0, 0};
}

// Canonical stream format: 32-bit float, non-interleaved.
inline AudioStreamBasicDescription FloatFormat(UInt32 inChannels, Float64 inRate)
{
    AudioStreamBasicDescription format{};
    format.mSampleRate = inRate;
    format.mFormatID = kAudioFormatLinearPCM;
    format.mFormatFlags =
        kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked | kAudioFormatFlagIsNonInterleaved;
    format.mBytesPerPacket = 4;
    format.mFramesPerPacket = 1;
    format.mBytesPerFrame = 4;
    format.mChannelsPerFrame = inChannels;
    format.mBitsPerChannel = 32;
    return format;
}

// The test signal: a different mix of two sines and a little pseudo-noise per
// channel, a function of the absolute sample time only, so any split of the
// stream into renders sees the same samples.
inline float TestSample(UInt32 inChannel, std::int64_t inFrame)
{
    const double t = static_cast<double>(inFrame);
    const double f1 = 0.013 + 0.004 * inChannel;
    const double f2 = 0.0021;
    std::uint32_t noise = static_cast<std::uint32_t>(inFrame) * 2654435761u + inChannel * 40503u;
    noise ^= noise >> 13;
    const double n = (static_cast<double>(noise & 0xFFFF) / 65535.0 - 0.5) * 0.05;
    return static_cast<float>(0.4 * std::sin(6.283185307179586 * f1 * t) +
                              0.3 * std::sin(6.283185307179586 * f2 * t + inChannel) + n);
}

// Input callback state: how the host feeds input bus 0.
struct InputSource
{
    bool silent = false; // deliver zeros flagged as silence
    UInt32 calls = 0;
};

inline OSStatus FeedTestSignal(void* inRefCon, AudioUnitRenderActionFlags* ioActionFlags,
                               const AudioTimeStamp* inTimeStamp, UInt32, UInt32 inNumberFrames,
                               AudioBufferList* ioData)
{
    auto* source = static_cast<InputSource*>(inRefCon);
    ++source->calls;
    const auto start = static_cast<std::int64_t>(inTimeStamp->mSampleTime);
    for (UInt32 c = 0; c < ioData->mNumberBuffers; ++c) {
        auto* samples = static_cast<float*>(ioData->mBuffers[c].mData);
        for (UInt32 i = 0; i < inNumberFrames; ++i) {
            samples[i] = source->silent ? 0.0f : TestSample(c, start + i);
        }
    }
    if (source->silent) {
        *ioActionFlags |= kAudioUnitRenderAction_OutputIsSilence;
    }
    return noErr;
}

// Non-interleaved float buffers owned by the test, in an AudioBufferList.
class Buffers
{
public:
    Buffers(UInt32 inChannels, UInt32 inFrames)
        : mSamples(inChannels, std::vector<float>(inFrames, 0.0f)), mStorage(inChannels)
    {
        for (UInt32 c = 0; c < inChannels; ++c) {
            list().mBuffers[c].mNumberChannels = 1;
        }
        Reset(inFrames);
    }
    // Points the list at the test's samples again, sized for inFrames.
    void Reset(UInt32 inFrames)
    {
        for (UInt32 c = 0; c < list().mNumberBuffers; ++c) {
            list().mBuffers[c].mData = mSamples[c].data();
            list().mBuffers[c].mDataByteSize = inFrames * sizeof(float);
        }
    }
    AudioBufferList& list() { return mStorage.List(); }
    // Samples of channel c, as the unit left them (own buffers or pointers it
    // handed back).
    const float* channel(UInt32 c) { return static_cast<const float*>(list().mBuffers[c].mData); }

private:
    std::vector<std::vector<float>> mSamples;
    BufferListStorage mStorage;
};

// One open instance, configured for a channel count and rate and fed by the
// test signal. Opened through the factory (AudioComponentInstanceNew) or
// through the entry point (OpenAComponent); closed by the destructor.
class Instance
{
public:
    // Factory style.
    explicit Instance(AudioComponent inComponent)
    {
        mOpenStatus = AudioComponentInstanceNew(inComponent, &mUnit);
    }
    // Component-manager style.
    explicit Instance(Component inComponent) : mEntryStyle(true)
    {
        ComponentInstance ci = nullptr;
        mOpenStatus = OpenAComponent(inComponent, &ci);
        mUnit = reinterpret_cast<AudioUnit>(ci);
    }
    ~Instance()
    {
        if (mUnit != nullptr) {
            if (mEntryStyle) {
                CloseComponent(reinterpret_cast<ComponentInstance>(mUnit));
            } else {
                AudioComponentInstanceDispose(mUnit);
            }
        }
    }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    OSStatus openStatus() const { return mOpenStatus; }
    AudioUnit unit() const { return mUnit; }

    OSStatus SetFormat(UInt32 inChannels, Float64 inRate)
    {
        const AudioStreamBasicDescription format = FloatFormat(inChannels, inRate);
        OSStatus status = AudioUnitSetProperty(mUnit, kAudioUnitProperty_StreamFormat,
                                               kAudioUnitScope_Input, 0, &format, sizeof(format));
        if (status == noErr) {
            status = AudioUnitSetProperty(mUnit, kAudioUnitProperty_StreamFormat,
                                          kAudioUnitScope_Output, 0, &format, sizeof(format));
        }
        mChannels = inChannels;
        return status;
    }
    OSStatus FeedFromCallback()
    {
        AURenderCallbackStruct callback{FeedTestSignal, &mSource};
        return AudioUnitSetProperty(mUnit, kAudioUnitProperty_SetRenderCallback,
                                    kAudioUnitScope_Input, 0, &callback, sizeof(callback));
    }
    // Format, callback input, initialize: ready to render.
    void Prepare(UInt32 inChannels = 2, Float64 inRate = 44100.0)
    {
        ASSERT_EQ(noErr, SetFormat(inChannels, inRate));
        ASSERT_EQ(noErr, FeedFromCallback());
        ASSERT_EQ(noErr, AudioUnitInitialize(mUnit));
    }
    OSStatus SetParameter(AudioUnitParameterID inID, AudioUnitParameterValue inValue)
    {
        return AudioUnitSetParameter(mUnit, inID, kAudioUnitScope_Global, 0, inValue, 0);
    }
    AudioUnitParameterValue GetParameter(AudioUnitParameterID inID)
    {
        AudioUnitParameterValue value = -12345.0f;
        EXPECT_EQ(noErr, AudioUnitGetParameter(mUnit, inID, kAudioUnitScope_Global, 0, &value));
        return value;
    }
    // Renders inFrames frames at the running sample time into out (whose
    // pointers are reset first) and advances the time.
    OSStatus Render(Buffers& out, UInt32 inFrames, AudioUnitRenderActionFlags* ioFlags = nullptr)
    {
        out.Reset(inFrames);
        AudioTimeStamp stamp{};
        stamp.mSampleTime = mSampleTime;
        stamp.mFlags = kAudioTimeStampSampleTimeValid;
        AudioUnitRenderActionFlags flags = 0;
        const OSStatus status =
            AudioUnitRender(mUnit, ioFlags ? ioFlags : &flags, &stamp, 0, inFrames, &out.list());
        mSampleTime += inFrames;
        return status;
    }
    // Renders inFrames frames and appends every channel's output to outAudio
    // (one vector per channel).
    void RenderAppend(std::vector<std::vector<float>>& outAudio, UInt32 inFrames)
    {
        Buffers out(mChannels, inFrames);
        ASSERT_EQ(noErr, Render(out, inFrames));
        outAudio.resize(mChannels);
        for (UInt32 c = 0; c < mChannels; ++c) {
            outAudio[c].insert(outAudio[c].end(), out.channel(c), out.channel(c) + inFrames);
        }
    }
    InputSource& source() { return mSource; }
    Float64 sampleTime() const { return mSampleTime; }

private:
    AudioUnit mUnit = nullptr;
    OSStatus mOpenStatus = -1;
    bool mEntryStyle = false;
    UInt32 mChannels = 2;
    Float64 mSampleTime = 0.0;
    InputSource mSource;
};

using Audio = std::vector<std::vector<float>>;

// Sample-exact equality of two multi-channel recordings.
inline void ExpectSameAudio(const Audio& inExpected, const Audio& inActual)
{
    ASSERT_EQ(inExpected.size(), inActual.size());
    for (std::size_t c = 0; c < inExpected.size(); ++c) {
        ASSERT_EQ(inExpected[c].size(), inActual[c].size()) << "channel " << c;
        for (std::size_t i = 0; i < inExpected[c].size(); ++i) {
            ASSERT_EQ(inExpected[c][i], inActual[c][i]) << "channel " << c << " frame " << i;
        }
    }
}

// Makes the built bundle known to the object library, so that the unit
// linked into this program finds its resources (names, view bundle) by
// identifier, as it does when loaded from the bundle.
inline CFBundleRef BuiltBundle()
{
    static CFBundleRef bundle = [] {
        // No installed copy of the plug-in may take part: the runtime scans
        // the home folder and AU_COMPONENT_PATH on first use.
        setenv("HOME", VANDREL_TEST_DATA_DIR "/no-such-home", 1);
        unsetenv("AU_COMPONENT_PATH");
        CFURLRef url = CFURLCreateWithFileSystemPath(kCFAllocatorDefault, CFSTR(VANDREL_BUNDLE_DIR),
                                                     kCFURLPOSIXPathStyle, true);
        CFBundleRef created = CFBundleCreate(kCFAllocatorDefault, url);
        CFRelease(url);
        return created;
    }();
    return bundle;
}

// The unit linked into this program, registered with the runtime in both
// styles (once per process).
inline AudioComponent LinkedFactoryComponent()
{
    static AudioComponent component = [] {
        BuiltBundle();
        const AudioComponentDescription desc = UnitDescription();
        return AudioComponentRegister(&desc, CFSTR("Vandrel: Vandrel (linked)"), 0x00010000,
                                      VandrelFactory);
    }();
    return component;
}

inline Component LinkedEntryComponent()
{
    static Component component = [] {
        BuiltBundle();
        ComponentDescription desc{kType, kSubtype, kManufacturer, 0, 0};
        return RegisterComponent(&desc, reinterpret_cast<ComponentRoutineUPP>(VandrelEntry), 0,
                                 nullptr, nullptr, nullptr);
    }();
    return component;
}

// The unit object behind an instance opened in the component-manager style.
inline Vandrel* UnitObject(AudioUnit inUnit)
{
    return reinterpret_cast<Vandrel*>(
        GetComponentInstanceStorage(reinterpret_cast<ComponentInstance>(inUnit)));
}

// The engine's property record for seven parameter values, derived the
// straightforward way from the documented mapping.
inline _transform_props ReferenceProps(const float (&inValues)[7])
{
    _transform_props props{};
    props.lDryOut = static_cast<std::int64_t>(static_cast<double>(inValues[0]) * 10.0);
    props.lWetOut = static_cast<std::int64_t>(static_cast<double>(inValues[1]) * 10.0);
    props.lEffect = inValues[2] < 1.0f ? 0 : (inValues[2] < 2.0f ? 1 : 2);
    props.lModRate = static_cast<std::int64_t>(static_cast<double>(inValues[3]) * 1000.0);
    props.lModDepth = static_cast<std::int64_t>(inValues[4]);
    props.lCenterFreq = static_cast<std::int64_t>(inValues[5]);
    props.lResonance = static_cast<std::int64_t>(inValues[6]);
    return props;
}

// The engine run directly over the test signal, as the unit should run it:
// begin at the first block, cook with TRANSFORM_CONTINUE before each later
// block.
class ReferenceStream
{
public:
    ReferenceStream(UInt32 inChannels, int inRate, std::int64_t inStartFrame = 0)
        : mChannels(inChannels), mRate(inRate), mFrame(inStartFrame)
    {
    }
    void Process(const float (&inValues)[7], UInt32 inFrames,
                 std::vector<std::vector<float>>& outAudio)
    {
        _transform_props props = ReferenceProps(inValues);
        if (!mBegun) {
            mEngine.TransformBegin(static_cast<int>(mChannels), mRate, props);
            mBegun = true;
        } else {
            mEngine.TransformCookProperties(props, TRANSFORM_CONTINUE);
        }
        std::vector<std::vector<float>> block(mChannels, std::vector<float>(inFrames));
        std::vector<float*> pointers(mChannels);
        for (UInt32 c = 0; c < mChannels; ++c) {
            for (UInt32 i = 0; i < inFrames; ++i) {
                block[c][i] = TestSample(c, mFrame + i);
            }
            pointers[c] = block[c].data();
        }
        unsigned int frames = inFrames;
        mEngine.TransformFloat(TRANSFORM_CONTINUE, pointers.data(), mChannels, frames, false);
        mFrame += inFrames;
        outAudio.resize(mChannels);
        for (UInt32 c = 0; c < mChannels; ++c) {
            outAudio[c].insert(outAudio[c].end(), block[c].begin(), block[c].end());
        }
    }

private:
    CVandrelEngine mEngine;
    UInt32 mChannels;
    int mRate;
    std::int64_t mFrame;
    bool mBegun = false;
};

} // namespace vandrel_test

#endif
