// Rendering allocates nothing once a unit is initialized: global operator new
// and delete are replaced in this program (the bundle's code resolves to them
// too) and counted around render calls only.
#include "AllocationCounter.h"
#include "BufferListStorage.h"
#include "GainHost.h"
#include "GainEffect.h"

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr OSType kGainSubtype = FourCC("gain");

// Allocations and releases alike: a render makes neither.
long HeapCalls()
{
    return allocationcounter::Allocations() + allocationcounter::Releases();
}

struct AllocationCase
{
    OpenStyle mStyle;
    bool mInPlace;
    bool mHostMemory;
    bool mBypass;
    bool mConnected; // input from a second unit instead of a host callback
};

class RenderAllocationTest : public ::testing::TestWithParam<AllocationCase>
{
protected:
    void TearDown() override
    {
        for (AudioUnit unit : {mUnit, mUpstream}) {
            if (unit != nullptr) {
                AudioComponentInstanceDispose(unit);
            }
        }
    }

    AudioUnit mUnit = nullptr;
    AudioUnit mUpstream = nullptr;
};

TEST_P(RenderAllocationTest, RendersOfVariedSizesAllocateNothing)
{
    const AllocationCase& c = GetParam();
    const AudioStreamBasicDescription format = MakeFormat(2, SampleFormat::kFloat, false);
    SignalSource source{format, SampleFormat::kFloat};
    const long beforeOpen = HeapCalls();
    ASSERT_EQ(noErr, OpenTestUnit(kGainSubtype, c.mStyle, &mUnit));
    ASSERT_LT(beforeOpen, HeapCalls()) << "the bundle's allocations are counted here";
    ASSERT_EQ(noErr, SetFormat(mUnit, kAudioUnitScope_Input, format));
    ASSERT_EQ(noErr, SetFormat(mUnit, kAudioUnitScope_Output, format));
    ASSERT_EQ(noErr, SetUInt32Property(mUnit, kAudioUnitProperty_InPlaceProcessing, c.mInPlace));
    ASSERT_EQ(noErr, SetUInt32Property(mUnit, kAudioUnitProperty_BypassEffect, c.mBypass));
    if (c.mConnected) {
        ASSERT_EQ(noErr, OpenTestUnit(kGainSubtype, c.mStyle, &mUpstream));
        ASSERT_EQ(noErr, SetFormat(mUpstream, kAudioUnitScope_Input, format));
        ASSERT_EQ(noErr, SetFormat(mUpstream, kAudioUnitScope_Output, format));
        ASSERT_EQ(noErr, source.Attach(mUpstream));
        ASSERT_EQ(noErr, AudioUnitInitialize(mUpstream));
        AudioUnitConnection connection = {mUpstream, 0, 0};
        ASSERT_EQ(noErr,
                  AudioUnitSetProperty(mUnit, kAudioUnitProperty_MakeConnection,
                                       kAudioUnitScope_Input, 0, &connection, sizeof connection));
    } else {
        ASSERT_EQ(noErr, source.Attach(mUnit));
    }
    ASSERT_EQ(noErr, AudioUnitInitialize(mUnit));

    std::vector<Float32> left(1156);
    std::vector<Float32> right(1156);
    BufferListStorage listStorage(2);
    AudioBufferList* list = &listStorage.List();
    AudioUnitParameterEvent event = {};
    event.parameter = kGainParam_Gain;
    event.eventType = kParameterEvent_Immediate;
    event.eventValues.immediate.bufferOffset = 3;
    event.eventValues.immediate.value = 0.75f;

    Float64 sampleTime = 0;
    long allocations = 0;
    for (UInt32 frames : {512U, 1U, 1156U, 64U, 333U}) {
        ASSERT_EQ(noErr, AudioUnitScheduleParameters(mUnit, &event, 1));
        for (UInt32 b = 0; b < 2; ++b) {
            list->mBuffers[b] = {1, frames * 4,
                                 c.mHostMemory ? (b == 0 ? left : right).data() : nullptr};
        }
        AudioUnitRenderActionFlags flags = 0;
        const AudioTimeStamp stamp = SampleTimeStamp(sampleTime);
        const long before = HeapCalls();
        const OSStatus result = AudioUnitRender(mUnit, &flags, &stamp, 0, frames, list);
        allocations += HeapCalls() - before;
        ASSERT_EQ(noErr, result);
        sampleTime += frames;
    }
    EXPECT_EQ(0, allocations);
    EXPECT_EQ(5U, source.mCalls);
}

std::string AllocationCaseName(const ::testing::TestParamInfo<AllocationCase>& info)
{
    const AllocationCase& c = info.param;
    return std::string(StyleName(c.mStyle)) + (c.mInPlace ? "InPlace" : "Separate") +
           (c.mHostMemory ? "HostMemory" : "NullPointers") + (c.mBypass ? "Bypassed" : "") +
           (c.mConnected ? "Connected" : "Callback");
}

INSTANTIATE_TEST_SUITE_P(
    Paths, RenderAllocationTest,
    ::testing::Values(AllocationCase{OpenStyle::kFactory, true, true, false, false},
                      AllocationCase{OpenStyle::kFactory, false, false, false, false},
                      AllocationCase{OpenStyle::kEntryPoint, true, false, false, false},
                      AllocationCase{OpenStyle::kEntryPoint, false, true, false, false},
                      AllocationCase{OpenStyle::kFactory, false, true, true, false},
                      AllocationCase{OpenStyle::kEntryPoint, true, true, true, false},
                      AllocationCase{OpenStyle::kFactory, false, true, false, true},
                      AllocationCase{OpenStyle::kEntryPoint, true, true, false, true}),
    AllocationCaseName);

} // namespace
