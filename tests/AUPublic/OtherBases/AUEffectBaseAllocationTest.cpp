// Rendering allocates nothing once an effect is initialized: global operator
// new and delete are replaced in this program and counted around renders.
#include "AllocationCounter.h"
#include "GainEffect.h"

#include <gtest/gtest.h>

namespace {

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
};

TEST_P(RenderAllocationTest, RendersOfVariedSizesAllocateNothing)
{
    const AllocationCase& c = GetParam();
    const AudioStreamBasicDescription format = MakeFormat(2, SampleFormat::kFloat);
    SignalSource source{SampleFormat::kFloat};
    HostedGain unit(c.mStyle);
    HostedGain upstream(c.mStyle);
    ASSERT_EQ(noErr, Configure(unit.mUnit, format, 0.5f));
    ASSERT_EQ(noErr,
              SetUInt32Property(unit.mUnit, kAudioUnitProperty_InPlaceProcessing, c.mInPlace));
    ASSERT_EQ(noErr, SetUInt32Property(unit.mUnit, kAudioUnitProperty_BypassEffect, c.mBypass));
    ASSERT_EQ(noErr, Configure(upstream.mUnit, format, 0.5f));
    ASSERT_EQ(noErr, source.Attach(c.mConnected ? upstream.mUnit : unit.mUnit));
    ASSERT_EQ(noErr, AudioUnitInitialize(upstream.mUnit));
    if (c.mConnected) {
        const AudioUnitConnection connection = {upstream.mUnit, 0, 0};
        ASSERT_EQ(noErr,
                  AudioUnitSetProperty(unit.mUnit, kAudioUnitProperty_MakeConnection,
                                       kAudioUnitScope_Input, 0, &connection, sizeof connection));
    }
    ASSERT_EQ(noErr, AudioUnitInitialize(unit.mUnit));
    const AudioUnitParameterEvent event = ImmediateEvent(kGainParam_Gain, 3, 0.75f);
    long heapCalls = 0;
    for (UInt32 frames : {512U, 1U, 1156U, 64U, 333U}) {
        ASSERT_EQ(noErr, AudioUnitScheduleParameters(unit.mUnit, &event, 1));
        unit.PrepareOutput(format, frames, c.mHostMemory);
        const long before = allocationcounter::Allocations() + allocationcounter::Releases();
        const OSStatus result = unit.Render(frames);
        heapCalls += allocationcounter::Allocations() + allocationcounter::Releases() - before;
        ASSERT_EQ(noErr, result);
    }
    EXPECT_EQ(0, heapCalls);
    EXPECT_EQ(5U, source.mCalls);
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
                      AllocationCase{OpenStyle::kEntryPoint, true, true, false, true}));

} // namespace
