// A minimal host for the unit's tests: opens instances of the bundle through the host API in
// either style, feeds input from a render callback with a deterministic test signal, renders
// into buffers the test owns, and runs the reference model over the same signal.
#ifndef VANDRELTESTHOST_H
#define VANDRELTESTHOST_H

#include "BufferListStorage.h"
#include "CFTestHelpers.h"
#include "VandrelEngineReference.h"

#include <AudioUnit/AudioUnit.h>
#include <CoreServices/CoreServices.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace vandrel_test {

namespace ref = engine_reference;

constexpr OSType kType = 0x61756678;         // 'aufx'
constexpr OSType kSubtype = 0x566E6472;      // 'Vndr'
constexpr OSType kManufacturer = 0x5664726C; // 'Vdrl'

// Parameter IDs, all in the global scope.
enum : AudioUnitParameterID
{
    kDry,
    kWet,
    kEffect,
    kRate,
    kDepth,
    kCenter,
    kResonance
};

// Dry, wet, effect, rate, depth, centre, resonance: one value per parameter ID.
using Params = std::array<float, 7>;

// The factory presets' values; preset 0 holds the defaults.
constexpr Params kPresetValues[15] = {
    {-80, 0, 0, 10, 10, 100, 1},         {-5, -6, 0, 1, 85, 100, 1},
    {-6, -6, 0, 5, 50, 100, 1},          {-3, -2, 0, 0.1f, 100, 100, 1},
    {-2.5f, -2.5f, 0, 0.5f, 85, 100, 1}, {-80, 0, 1, 0.5f, 50, 1000, 50},
    {-80, 0, 1, 4.5f, 50, 1000, 50},     {-80, 0, 1, 10, 50, 2000, 40},
    {-80, 0, 2, 1, 50, 1000, 50},        {-80, 0, 2, 2, 50, 1000, 80},
    {-15, 0, 2, 0.2f, 50, 500, 100},     {-80, 0, 2, 0.5f, 70, 3000, 50},
    {-80, 0, 2, 10, 50, 2000, 50},       {-5, -5, 0, 20, 85, 100, 1},
    {-5, -5, 0, 20, 20, 100, 1}};

// Parameter sets for changes between renders: edges of the mapping, values outside the
// advertised ranges (which the unit passes on unclamped, rates of 0 and below among them), and
// sets that give sweep tables of one entry or a few at very low sample rates.
constexpr Params kEdgeValues[] = {
    {-80, 0, 0.999f, 0.001f, 10, 100, 1}, {-79.95f, 12, 1, 0.007f, 100, 5000, 100},
    {12, -79.9f, 1.999f, 20, 1, 100, 49}, {-5.25f, -0.05f, 2.5f, 50, 0, 3000, 50.999f},
    {0, 0, 2, 0.007f, 99.9f, 4999.9f, 0}, {-6, -6, 0, 50, 0, 100, 1},
    {-6, 3, 0.5f, 0.0004f, 1000, 100, 1}, {-100, -3, 1.5f, 13.7f, 51, 777.7f, 150},
    {-3, -3, 0, 19.999f, 20000, 100, 1},  {-80, 0, 7.5f, -2, 20000, 250, 99},
    {-12, -1, 0, 7.77f, 2, 100, 1},       {-20, -2, 1, 0, 50, 1000, 80},
    {-6, -3, 1, 20, 50, 10, 50},          {-80, 0, 2, 20, 100, 5, 100},
    {-80, 0, 2, 0.5f, 50, 300, 80}};

// The test signal, a function of channel and absolute frame only (so any split of a stream
// into renders sees the same samples): a unit impulse every 3001 frames, a rising sine sweep
// and fixed-seed noise, with a long silent stretch in every 150000 frames so that the stored
// filter and delay state decays through the flush threshold.
inline float TestSample(UInt32 inChannel, std::int64_t inFrame)
{
    const std::int64_t cycle = inFrame % 150000;
    if (cycle >= 100000 && cycle < 130000) {
        return 0.0f;
    }
    if (inFrame % 3001 == static_cast<std::int64_t>(inChannel) * 5) {
        return 1.0f;
    }
    const double t = static_cast<double>(inFrame) / 44100.0;
    const double sweep = 0.4 * std::sin(2.0 * ref::kPi * (30.0 * t + 400.0 * t * t) +
                                        0.3 * static_cast<double>(inChannel));
    std::uint32_t x = static_cast<std::uint32_t>(inFrame) * 2654435761u + (inChannel + 1u) * 40503u;
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    return static_cast<float>(sweep + (static_cast<double>(x) / 4294967296.0 - 0.5) * 0.3);
}

using Audio = std::vector<std::vector<float>>;

// Bit-for-bit equality of two multi-channel recordings.
inline ::testing::AssertionResult SameAudio(const Audio& inExpected, const Audio& inActual)
{
    for (std::size_t c = 0; c < std::max(inExpected.size(), inActual.size()); ++c) {
        if (c >= inExpected.size() || c >= inActual.size() ||
            inExpected[c].size() != inActual[c].size()) {
            return ::testing::AssertionFailure() << "channel " << c << " missing or shorter";
        }
        for (std::size_t i = 0; i < inExpected[c].size(); ++i) {
            if (std::memcmp(&inExpected[c][i], &inActual[c][i], sizeof(float)) != 0) {
                return ::testing::AssertionFailure()
                       << "channel " << c << " frame " << i << ": " << inActual[c][i]
                       << ", expected " << inExpected[c][i];
            }
        }
    }
    return ::testing::AssertionSuccess();
}

// The reference model run over an input (the test signal by default) as the unit runs the
// engine: begun at the first block, cooked with the mapped values before each later block.
class ReferenceStream
{
public:
    using Input = std::function<float(UInt32 inChannel, std::int64_t inFrame)>;
    ReferenceStream(UInt32 inChannels, int inRate, std::int64_t inStartFrame = 0,
                    Input inInput = TestSample)
        : mChannels(inChannels), mRate(inRate), mFrame(inStartFrame), mInput(std::move(inInput))
    {
    }
    void Process(const Params& inValues, UInt32 inFrames, Audio& outAudio)
    {
        ref::mapParameters(inValues.data(), mProps, mPrevious);
        if (mBegun) {
            mEngine.cook(mProps, ref::State::Continue);
        } else {
            mEngine.begin(static_cast<int>(mChannels), mRate, mProps);
            mBegun = true;
        }
        outAudio.resize(mChannels);
        std::vector<float*> pointers(mChannels);
        for (UInt32 c = 0; c < mChannels; ++c) {
            const std::size_t start = outAudio[c].size();
            for (UInt32 i = 0; i < inFrames; ++i) {
                outAudio[c].push_back(mInput(c, mFrame + i));
            }
            pointers[c] = outAudio[c].data() + start;
        }
        unsigned int frames = inFrames;
        mEngine.transform(pointers.data(), mChannels, frames, false);
        mFrame += inFrames;
    }
    // Ends the stream, as the unit's reset does; the next block begins it again at inFrame.
    void Restart(std::int64_t inFrame)
    {
        mEngine.end();
        mBegun = false;
        mFrame = inFrame;
    }

private:
    ref::Engine mEngine;
    ref::Props mProps;
    ref::Props mPrevious;
    UInt32 mChannels;
    int mRate;
    std::int64_t mFrame;
    Input mInput;
    bool mBegun = false;
};

// Registers the bundle the process's instances come from, once: the built one unless a test
// named another first. No installed copy of the plug-in may take part (the runtime scans the
// home folder and AU_COMPONENT_PATH).
inline void RegisterBundle(const std::string& inPath = VANDREL_BUNDLE_DIR)
{
    static const OSStatus status = [&inPath] {
        setenv("HOME", (inPath + "/no-such-home").c_str(), 1);
        unsetenv("AU_COMPONENT_PATH");
        return AudioComponentRegisterBundle(inPath.c_str());
    }();
    EXPECT_EQ(noErr, status);
}

// One open instance of the registered unit, in the component-manager style (OpenAComponent)
// or the factory style (AudioComponentInstanceNew), fed by the test signal; closed by the
// destructor.
class Instance
{
public:
    static constexpr UInt32 kMaxFrames = 4097;

    explicit Instance(bool inEntryStyle) : mEntryStyle(inEntryStyle)
    {
        RegisterBundle();
        if (inEntryStyle) {
            ComponentDescription desc{kType, kSubtype, kManufacturer, 0, 0};
            ComponentInstance ci = nullptr;
            EXPECT_EQ(noErr, OpenAComponent(FindNextComponent(nullptr, &desc), &ci));
            mUnit = reinterpret_cast<AudioUnit>(ci);
        } else {
            const AudioComponentDescription desc{kType, kSubtype, kManufacturer, 0, 0};
            EXPECT_EQ(noErr,
                      AudioComponentInstanceNew(AudioComponentFindNext(nullptr, &desc), &mUnit));
        }
    }
    ~Instance()
    {
        if (mEntryStyle) {
            CloseComponent(reinterpret_cast<ComponentInstance>(mUnit));
        } else {
            AudioComponentInstanceDispose(mUnit);
        }
    }
    AudioUnit unit() const { return mUnit; }

    template <class T> OSStatus Set(AudioUnitPropertyID inID, const T& inValue)
    {
        return AudioUnitSetProperty(mUnit, inID, kAudioUnitScope_Global, 0, &inValue, sizeof(T));
    }
    template <class T> OSStatus Get(AudioUnitPropertyID inID, T& outValue, UInt32 inElement = 0)
    {
        UInt32 size = sizeof(T);
        return AudioUnitGetProperty(mUnit, inID, kAudioUnitScope_Global, inElement, &outValue,
                                    &size);
    }
    // Canonical 32-bit float non-interleaved format on input and output; sizes the output
    // buffers the instance renders into.
    OSStatus SetFormat(UInt32 inChannels, Float64 inRate)
    {
        AudioStreamBasicDescription format{};
        FillOutASBDForLPCM(format, inRate, inChannels, 32, 32, true, false, true);
        mChannels = inChannels;
        mSamples.assign(inChannels * kMaxFrames, 0.0f);
        OSStatus status = noErr;
        for (AudioUnitScope scope : {kAudioUnitScope_Input, kAudioUnitScope_Output}) {
            if (status == noErr) {
                status = AudioUnitSetProperty(mUnit, kAudioUnitProperty_StreamFormat, scope, 0,
                                              &format, sizeof(format));
            }
        }
        return status;
    }
    OSStatus FeedFromCallback()
    {
        const AURenderCallbackStruct callback{FeedTestSignal, this};
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
    void SetAll(const Params& inValues)
    {
        for (AudioUnitParameterID id = 0; id < 7; ++id) {
            ASSERT_EQ(noErr, SetParameter(id, inValues[id]));
        }
    }
    AudioUnitParameterValue GetParameter(AudioUnitParameterID inID)
    {
        AudioUnitParameterValue value = -12345.0f;
        EXPECT_EQ(noErr, AudioUnitGetParameter(mUnit, inID, kAudioUnitScope_Global, 0, &value));
        return value;
    }
    // Renders inFrames frames (at most kMaxFrames) at the running sample time into the
    // instance's buffers and advances the time; Output(c) is channel c as the unit left it.
    OSStatus Render(UInt32 inFrames, AudioUnitRenderActionFlags* ioFlags = nullptr)
    {
        AudioBufferList& list = mList.List();
        list.mNumberBuffers = mChannels;
        for (UInt32 c = 0; c < mChannels; ++c) {
            list.mBuffers[c] = AudioBuffer{1, inFrames * 4, &mSamples[c * kMaxFrames]};
        }
        AudioTimeStamp stamp{};
        stamp.mSampleTime = static_cast<Float64>(mSampleTime);
        stamp.mFlags = kAudioTimeStampSampleTimeValid;
        AudioUnitRenderActionFlags flags = 0;
        mSampleTime += inFrames;
        return AudioUnitRender(mUnit, ioFlags ? ioFlags : &flags, &stamp, 0, inFrames, &list);
    }
    const float* Output(UInt32 c) { return static_cast<float*>(mList.List().mBuffers[c].mData); }
    // Renders inFrames frames and appends every channel's output to outAudio.
    void RenderAppend(Audio& outAudio, UInt32 inFrames)
    {
        ASSERT_EQ(noErr, Render(inFrames));
        outAudio.resize(mChannels);
        for (UInt32 c = 0; c < mChannels; ++c) {
            outAudio[c].insert(outAudio[c].end(), Output(c), Output(c) + inFrames);
        }
    }
    std::int64_t sampleTime() const { return mSampleTime; }

    bool silentInput = false;   // the callback delivers zeros flagged as silence
    bool noInputMemory = false; // the callback hands back buffers without memory

private:
    static OSStatus FeedTestSignal(void* inRefCon, AudioUnitRenderActionFlags* ioActionFlags,
                                   const AudioTimeStamp* inTimeStamp, UInt32, UInt32 inFrames,
                                   AudioBufferList* ioData)
    {
        auto* self = static_cast<Instance*>(inRefCon);
        const auto start = static_cast<std::int64_t>(inTimeStamp->mSampleTime);
        for (UInt32 c = 0; c < ioData->mNumberBuffers; ++c) {
            auto* samples = static_cast<float*>(ioData->mBuffers[c].mData);
            if (self->noInputMemory) {
                ioData->mBuffers[c].mData = nullptr;
                continue;
            }
            for (UInt32 i = 0; i < inFrames; ++i) {
                samples[i] = self->silentInput ? 0.0f : TestSample(c, start + i);
            }
        }
        if (self->silentInput) {
            *ioActionFlags |= kAudioUnitRenderAction_OutputIsSilence;
        }
        return noErr;
    }

    AudioUnit mUnit = nullptr;
    bool mEntryStyle;
    UInt32 mChannels = 0;
    std::int64_t mSampleTime = 0;
    std::vector<float> mSamples;
    BufferListStorage mList{64};
};

} // namespace vandrel_test

#endif
