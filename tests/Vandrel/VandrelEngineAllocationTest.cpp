#include "AllocationCounter.h"
#include "VandrelEngine.h"
#include "VandrelEngineTestSupport.h"

#include <gtest/gtest.h>

namespace {

using enginetest::Buffers;
using enginetest::MakeProps;

TEST(VandrelEngineAllocationTest, RendersAllocateNothing)
{
    for (std::int64_t effect : {kEffect_Flange, kEffect_Phaser, kEffect_WahWah}) {
        CVandrelEngine engine;
        _transform_props props = MakeProps(effect, 10000, 10);
        const long beforeBegin = allocationcounter::Allocations();
        engine.TransformBegin(2, 44100, props);
        EXPECT_EQ(allocationcounter::Allocations() - beforeBegin, 4)
            << "delay line, two tables, oscillator";

        Buffers buffers = enginetest::Noise(2, 4096, 3);
        float* pointers[2] = {buffers[0].data(), buffers[1].data()};
        const long before = allocationcounter::Allocations();
        for (unsigned int frames : {1u, 64u, 512u, 1156u, 4096u}) {
            props.lModRate += 1000; // new parameters, so the tables are rebuilt
            props.lModDepth += 3;
            engine.TransformCookProperties(props, TRANSFORM_CONTINUE);
            unsigned int count = frames;
            engine.TransformFloat(TRANSFORM_CONTINUE, pointers, 2, count, false);
            EXPECT_EQ(count, frames);
        }
        EXPECT_EQ(allocationcounter::Allocations(), before) << "effect " << effect;
    }
}

TEST(VandrelEngineAllocationTest, FailedAllocationLeavesNoStateAndRendersNothing)
{
    for (long failing = 0; failing < 4; ++failing) {
        CVandrelEngine engine;
        _transform_props props = MakeProps(kEffect_Phaser, 10000, 10);
        allocationcounter::FailAllocationsAfter(failing);
        const std::int32_t status = engine.TransformBegin(2, 44100, props);
        allocationcounter::FailAllocationsAfter(-1);
        EXPECT_EQ(status, CVandrelEngine::kStatusNoMemory) << failing;
        EXPECT_FALSE(engine.bValid);
        EXPECT_EQ(engine.pdDelay, nullptr);
        EXPECT_EQ(engine.pdWahA1, nullptr);
        EXPECT_EQ(engine.pdWahA2, nullptr);
        EXPECT_EQ(engine.pOsc, nullptr);

        EXPECT_LT(engine.TransformCookProperties(props, TRANSFORM_CONTINUE), 0);
        Buffers buffers = enginetest::Noise(2, 16, 1);
        const Buffers in = buffers;
        float* pointers[2] = {buffers[0].data(), buffers[1].data()};
        unsigned int count = 16;
        EXPECT_EQ(engine.TransformFloat(TRANSFORM_CONTINUE, pointers, 2, count, false), 1);
        EXPECT_EQ(count, 0u);
        EXPECT_EQ(buffers, in);

        // Once memory is there again, a new begin works.
        EXPECT_EQ(engine.TransformBegin(2, 44100, props), 0);
        count = 16;
        EXPECT_EQ(engine.TransformFloat(TRANSFORM_CONTINUE, pointers, 2, count, false), 0);
    }
}

} // namespace
