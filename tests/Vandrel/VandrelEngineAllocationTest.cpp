#include "VandrelEngine.h"
#include "VandrelEngineTestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

// This binary replaces the global allocation functions: it counts every
// allocation and can make the n-th one from now fail.
namespace {

long gAllocations = 0;
long gFailAfter = -1; // allocations still allowed before one fails; -1: never

void* Allocate(std::size_t size)
{
    if (gFailAfter == 0) {
        return nullptr;
    }
    if (gFailAfter > 0) {
        --gFailAfter;
    }
    ++gAllocations;
    return std::malloc(size == 0 ? 1 : size);
}

} // namespace

[[gnu::noinline]] void* operator new(std::size_t size)
{
    void* p = Allocate(size);
    if (p == nullptr) {
        throw std::bad_alloc();
    }
    return p;
}

[[gnu::noinline]] void* operator new[](std::size_t size)
{
    return operator new(size);
}

[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return Allocate(size);
}

[[gnu::noinline]] void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return Allocate(size);
}

[[gnu::noinline]] void operator delete(void* p) noexcept
{
    std::free(p);
}

[[gnu::noinline]] void operator delete[](void* p) noexcept
{
    std::free(p);
}

[[gnu::noinline]] void operator delete(void* p, std::size_t) noexcept
{
    std::free(p);
}

[[gnu::noinline]] void operator delete[](void* p, std::size_t) noexcept
{
    std::free(p);
}

namespace {

using enginetest::Buffers;
using enginetest::MakeProps;

TEST(VandrelEngineAllocationTest, RendersAllocateNothing)
{
    for (std::int64_t effect : {kEffect_Flange, kEffect_Phaser, kEffect_WahWah}) {
        CVandrelEngine engine;
        _transform_props props = MakeProps(effect, 10000, 10);
        const long beforeBegin = gAllocations;
        engine.TransformBegin(2, 44100, props);
        EXPECT_EQ(gAllocations - beforeBegin, 4) << "delay line, two tables, oscillator";

        Buffers buffers = enginetest::Noise(2, 4096, 3);
        float* pointers[2] = {buffers[0].data(), buffers[1].data()};
        const long before = gAllocations;
        for (unsigned int frames : {1u, 64u, 512u, 1156u, 4096u}) {
            props.lModRate += 1000; // new parameters, so the tables are rebuilt
            props.lModDepth += 3;
            engine.TransformCookProperties(props, TRANSFORM_CONTINUE);
            unsigned int count = frames;
            engine.TransformFloat(TRANSFORM_CONTINUE, pointers, 2, count, false);
            EXPECT_EQ(count, frames);
        }
        EXPECT_EQ(gAllocations, before) << "effect " << effect;
    }
}

TEST(VandrelEngineAllocationTest, FailedAllocationLeavesNoStateAndRendersNothing)
{
    for (long failing = 0; failing < 4; ++failing) {
        CVandrelEngine engine;
        _transform_props props = MakeProps(kEffect_Phaser, 10000, 10);
        gFailAfter = failing;
        const std::int32_t status = engine.TransformBegin(2, 44100, props);
        gFailAfter = -1;
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
