// Allocation counts around the engine and the unit. Global operator new and delete are
// replaced in this program to count (and, on request, to fail).
#include "AllocationCounter.h"
#include "ParameterEvents.h"
#include "VandrelEngine.h"
#include "VandrelTestHost.h"

#include <gtest/gtest.h>

using namespace vandrel_test;

namespace {

// TransformBegin takes exactly four blocks (delay line, two tables, oscillator). When any of
// them cannot be had the engine keeps none, reports -108, refuses to cook or render (the
// buffers untouched), and a later begin works.
TEST(VandrelEngineAllocation, FailedAllocationLeavesNoStateAndRendersNothing)
{
    for (long failing = 0; failing <= 4; ++failing) {
        SCOPED_TRACE("allocations allowed: " + std::to_string(failing));
        CVandrelEngine engine;
        _transform_props props{-800, 0, kEffect_Phaser, 10000, 10, 100, 1, 0};
        const long before = allocationcounter::Allocations();
        allocationcounter::FailAllocationsAfter(failing);
        const std::int32_t status = engine.TransformBegin(2, 44100, props);
        allocationcounter::FailAllocationsAfter(-1);
        EXPECT_EQ(std::min(failing, 4L), allocationcounter::Allocations() - before);
        if (failing == 4) {
            EXPECT_EQ(CVandrelEngine::kStatusOK, status);
            continue;
        }
        EXPECT_EQ(CVandrelEngine::kStatusNoMemory, status);
        EXPECT_FALSE(engine.bValid);
        EXPECT_TRUE(!engine.pdDelay && !engine.pdWahA1 && !engine.pdWahA2 && !engine.pOsc);
        EXPECT_EQ(CVandrelEngine::kStatusNotBegun,
                  engine.TransformCookProperties(props, TRANSFORM_CONTINUE));
        float samples[2][16] = {};
        samples[1][3] = 0.5f;
        float* pointers[2] = {samples[0], samples[1]};
        unsigned int count = 16;
        EXPECT_EQ(1, engine.TransformFloat(TRANSFORM_CONTINUE, pointers, 2, count, false));
        EXPECT_EQ(0u, count);
        EXPECT_EQ(0.5f, samples[1][3]);
        EXPECT_EQ(CVandrelEngine::kStatusOK, engine.TransformBegin(2, 44100, props));
        count = 16;
        EXPECT_EQ(0, engine.TransformFloat(TRANSFORM_CONTINUE, pointers, 2, count, false));
        EXPECT_NE(0.5f, samples[1][3]);
    }
}

// Renders of varied sizes, counting allocations around the render calls only.
long AllocationsDuringRenders(Instance& inUnit)
{
    long counted = 0;
    for (UInt32 frames : {1u, 64u, 333u, 1156u, 512u}) {
        const long before = allocationcounter::Allocations();
        EXPECT_EQ(noErr, inUnit.Render(frames));
        counted += allocationcounter::Allocations() - before;
    }
    return counted;
}

class VandrelRenderAllocation : public ::testing::TestWithParam<bool>
{
};

// Once the engine stream has begun, renders allocate nothing: plain, after parameter changes
// that rebuild the sweep tables, after a preset change, with scheduled events and ramps, and
// bypassed; in place or not.
TEST_P(VandrelRenderAllocation, RendersAllocateNothingOnceBegun)
{
    Instance unit(true);
    ASSERT_EQ(noErr, unit.Set(kAudioUnitProperty_InPlaceProcessing, UInt32{GetParam()}));
    unit.Prepare(2, 44100.0);
    // The first render begins the engine stream, which allocates its state: proof that the
    // counting sees the engine's blocks.
    const long beforeBegin = allocationcounter::Allocations();
    ASSERT_EQ(noErr, unit.Render(256));
    EXPECT_EQ(4, allocationcounter::Allocations() - beforeBegin);

    EXPECT_EQ(0, AllocationsDuringRenders(unit));
    for (float effect : {1.0f, 2.0f, 0.0f}) {
        ASSERT_EQ(noErr, unit.SetParameter(kEffect, effect));
        ASSERT_EQ(noErr, unit.SetParameter(kCenter, 700.0f + effect * 100.0f));
        EXPECT_EQ(0, AllocationsDuringRenders(unit)) << "effect " << effect;
    }
    ASSERT_EQ(noErr, unit.Set(kAudioUnitProperty_PresentPreset, AUPreset{12, nullptr}));
    EXPECT_EQ(0, AllocationsDuringRenders(unit));

    for (UInt32 frames : {64u, 1156u, 200u}) {
        const AudioUnitParameterEvent events[3] = {RampEvent(kWet, 10, frames, -20.0f, 0.0f),
                                                   ImmediateEvent(kRate, frames / 2, 3.0f),
                                                   ImmediateEvent(kEffect, frames / 3, 1.0f)};
        ASSERT_EQ(noErr, AudioUnitScheduleParameters(unit.unit(), events, 3));
        const long before = allocationcounter::Allocations();
        ASSERT_EQ(noErr, unit.Render(frames));
        EXPECT_EQ(0, allocationcounter::Allocations() - before) << frames << " frames with events";
    }
    ASSERT_EQ(noErr, unit.Set(kAudioUnitProperty_BypassEffect, UInt32{1}));
    EXPECT_EQ(0, AllocationsDuringRenders(unit));
}

INSTANTIATE_TEST_SUITE_P(InPlaceOrNot, VandrelRenderAllocation, ::testing::Bool());

} // namespace
