// Renders of an initialized unit allocate nothing once the engine stream has
// begun: plain, bypassed, in place or not, with scheduled events and ramps,
// and across preset changes. Global operator new and delete are replaced in
// this program to count.
#include "AllocationCounter.h"
#include "VandrelTestHost.h"

#include <gtest/gtest.h>

using namespace vandrel_test;

namespace {

class VandrelRenderAllocation : public ::testing::TestWithParam<bool>
{
};

// Renders of varied sizes, counting allocations around the render calls only.
long AllocationsDuringRenders(Instance& inUnit, Buffers& ioOut)
{
    long counted = 0;
    for (UInt32 frames : {1u, 64u, 333u, 1156u, 512u}) {
        const long before = allocationcounter::Allocations();
        EXPECT_EQ(noErr, inUnit.Render(ioOut, frames));
        counted += allocationcounter::Allocations() - before;
    }
    return counted;
}

TEST_P(VandrelRenderAllocation, RendersAllocateNothingOnceBegun)
{
    Instance unit{LinkedEntryComponent()};
    if (!GetParam()) {
        const UInt32 off = 0;
        ASSERT_EQ(noErr, AudioUnitSetProperty(unit.unit(), kAudioUnitProperty_InPlaceProcessing,
                                              kAudioUnitScope_Global, 0, &off, sizeof(off)));
    }
    unit.Prepare(2, 44100.0);
    Buffers out(2, 1156);
    // The first render begins the engine stream, which allocates its state:
    // proof that the counting sees the engine's blocks.
    const long beforeBegin = allocationcounter::Allocations();
    ASSERT_EQ(noErr, unit.Render(out, 256));
    EXPECT_GT(allocationcounter::Allocations() - beforeBegin, 0);

    EXPECT_EQ(0, AllocationsDuringRenders(unit, out));

    for (float effect : {1.0f, 2.0f, 0.0f}) {
        ASSERT_EQ(noErr, unit.SetParameter(kParam_Effect, effect));
        ASSERT_EQ(noErr, unit.SetParameter(kParam_CenterFreq, 700.0f + effect * 100.0f));
        EXPECT_EQ(0, AllocationsDuringRenders(unit, out)) << "effect " << effect;
    }

    const AUPreset preset{12, nullptr};
    ASSERT_EQ(noErr, AudioUnitSetProperty(unit.unit(), kAudioUnitProperty_PresentPreset,
                                          kAudioUnitScope_Global, 0, &preset, sizeof(preset)));
    EXPECT_EQ(0, AllocationsDuringRenders(unit, out));

    // Scheduled events, immediate and ramped, before each render.
    for (UInt32 frames : {64u, 1156u, 200u}) {
        AudioUnitParameterEvent events[3] = {};
        for (AudioUnitParameterEvent& event : events) {
            event.scope = kAudioUnitScope_Global;
        }
        events[0].parameter = kParam_WetOut;
        events[0].eventType = kParameterEvent_Ramped;
        events[0].eventValues.ramp.startBufferOffset = 10;
        events[0].eventValues.ramp.durationInFrames = frames;
        events[0].eventValues.ramp.startValue = -20.0f;
        events[0].eventValues.ramp.endValue = 0.0f;
        events[1].parameter = kParam_ModulationRate;
        events[1].eventType = kParameterEvent_Immediate;
        events[1].eventValues.immediate.bufferOffset = frames / 2;
        events[1].eventValues.immediate.value = 3.0f;
        events[2].parameter = kParam_Effect;
        events[2].eventType = kParameterEvent_Immediate;
        events[2].eventValues.immediate.bufferOffset = frames / 3;
        events[2].eventValues.immediate.value = 1.0f;
        ASSERT_EQ(noErr, AudioUnitScheduleParameters(unit.unit(), events, 3));
        const long before = allocationcounter::Allocations();
        ASSERT_EQ(noErr, unit.Render(out, frames));
        EXPECT_EQ(0, allocationcounter::Allocations() - before) << frames << " frames with events";
    }

    const UInt32 on = 1;
    ASSERT_EQ(noErr, AudioUnitSetProperty(unit.unit(), kAudioUnitProperty_BypassEffect,
                                          kAudioUnitScope_Global, 0, &on, sizeof(on)));
    EXPECT_EQ(0, AllocationsDuringRenders(unit, out));
}

INSTANTIATE_TEST_SUITE_P(InPlaceOrNot, VandrelRenderAllocation, ::testing::Bool());

} // namespace
