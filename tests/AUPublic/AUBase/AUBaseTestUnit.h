// A small unit for the unit-base tests: one input and one output bus (by
// default), three indexed global parameters, and hooks that record what the
// framework asked of them.
#ifndef AUBASETESTUNIT_H
#define AUBASETESTUNIT_H

#include "AUBase.h"
#include "AUInputElement.h"
#include "AUOutputElement.h"
#include "ParameterEvents.h"
#include "ThrownStatus.h"

#include <CoreFoundation/CoreFoundation.h>

#include <memory>
#include <tuple>
#include <vector>

class AUBaseTestUnit : public AUBase
{
public:
    static constexpr UInt32 kNumParameters = 3;

    // The global element exists from construction on; the buses appear with
    // PostConstructor (see OpenUnit).
    explicit AUBaseTestUnit(UInt32 inInputs = 1, UInt32 inOutputs = 1, UInt32 inGroups = 0)
        : AUBase(nullptr, inInputs, inOutputs, inGroups)
    {
        SetUpParameters();
    }

    // As the entry layer constructs a unit for a host instance.
    explicit AUBaseTestUnit(AudioComponentInstance inInstance) : AUBase(inInstance, 1, 1, 0)
    {
        SetUpParameters();
    }

    bool StreamFormatWritable(AudioUnitScope, AudioUnitElement) override
    {
        return !IsInitialized();
    }

    OSStatus Initialize() override
    {
        ++mInitializeCalls;
        return mInitializeResult;
    }

    void Cleanup() override { ++mCleanupCalls; }

    OSStatus Render(AudioUnitRenderActionFlags&, const AudioTimeStamp&,
                    UInt32 inNumberFrames) override
    {
        ++mRenderCalls;
        AudioBufferList& out = GetOutput(0)->GetBufferList().GetPreparedList();
        for (UInt32 b = 0; b < out.mNumberBuffers; ++b) {
            float* samples = static_cast<float*>(out.mBuffers[b].mData);
            for (UInt32 i = 0; i < inNumberFrames; ++i) {
                samples[i] = static_cast<float>(b + 1);
            }
        }
        return mRenderResult;
    }

    // One slice as the unit saw it: start, length, and the stored record of
    // parameter 0 and 1 at that time.
    struct Slice
    {
        UInt32 start;
        UInt32 frames;
        ParameterMapEvent param0;
        ParameterMapEvent param1;
    };

    OSStatus ProcessScheduledSlice(void* inUserData, UInt32 inStart, UInt32 inFrames,
                                   UInt32 inTotal) override
    {
        mSliceUserData = inUserData;
        mSliceTotal = inTotal;
        mSlices.push_back(Slice{inStart, inFrames, Globals()->GetParameterEvent(0),
                                Globals()->GetParameterEvent(1)});
        return mSlices.size() == mFailingSlice ? mSliceResult : noErr;
    }

    void SetUpParameters()
    {
        Globals()->UseIndexedParameters(kNumParameters);
        for (UInt32 id = 0; id < kNumParameters; ++id) {
            Globals()->SetParameter(id, 10.0f * static_cast<float>(id + 1));
        }
    }

    ParameterEventList& PendingEvents() { return mParamList; }
    OSStatus LastRenderError() const { return mLastRenderError; }
    const AUPreset& CurrentPreset() const { return mCurrentPreset; }
    bool BuffersAllocated() const { return mBuffersAllocated; }

    int mInitializeCalls = 0;
    int mCleanupCalls = 0;
    int mRenderCalls = 0;
    OSStatus mInitializeResult = noErr;
    OSStatus mRenderResult = noErr;
    std::vector<Slice> mSlices;
    size_t mFailingSlice = 0;
    OSStatus mSliceResult = noErr;
    void* mSliceUserData = nullptr;
    UInt32 mSliceTotal = 0;
};

// Constructs a unit and runs its second construction phase, as the entry
// layer does when a host opens an instance.
template <class Unit = AUBaseTestUnit, class... Args> std::unique_ptr<Unit> OpenUnit(Args... inArgs)
{
    std::unique_ptr<Unit> unit(new Unit(inArgs...));
    unit->PostConstructor();
    return unit;
}

// Records every property-change notification it hears.
struct ListenerLog
{
    std::vector<std::tuple<AudioUnitPropertyID, AudioUnitScope, AudioUnitElement>> mCalls;

    static void Hear(void* inRefCon, AudioUnit, AudioUnitPropertyID inID, AudioUnitScope inScope,
                     AudioUnitElement inElement)
    {
        static_cast<ListenerLog*>(inRefCon)->mCalls.emplace_back(inID, inScope, inElement);
    }

    size_t CountOf(AudioUnitPropertyID inID) const
    {
        size_t count = 0;
        for (const auto& call : mCalls) {
            count += std::get<0>(call) == inID ? 1 : 0;
        }
        return count;
    }
};

#endif
