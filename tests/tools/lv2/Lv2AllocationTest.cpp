// run() of the LV2 wrapper allocates and frees nothing once activated: in runs
// of any length, after control changes and around bypass, driven as a host's
// audio thread drives it. The worker's job runs outside the count, as on a
// host's worker thread.
#include "AllocationCounter.h"
#include "Lv2Ports.h"
#include "Lv2TestHost.h"

#include <gtest/gtest.h>

namespace {

TEST(Lv2AllocationTest, RunAllocatesNothingAfterActivate)
{
    Lv2TestHost host(Lv2Ports::kStereoUri, 1024);
    host.applyPreset("Wah-Wah 2");
    const Channels in(2, std::vector<float>(4096, 0.25f));
    Channels out(2, std::vector<float>(4096));
    // Frames of each run, and the control set before it ("" for none).
    const struct
    {
        uint32_t frames;
        const char* symbol;
        float value;
    } runs[] = {{64, "", 0},        {1, "", 0},
                {4096, "", 0},      {64, "modulation_rate", 7},
                {64, "effect", 0},  {64, "wet_out", 1e9f},
                {64, "enabled", 0}, {64, "resonance", 90},
                {64, "enabled", 1}, {64, "", 0},
                {0, "effect", 1},   {512, "", 0}};
    for (const auto& run : runs) {
        if (*run.symbol != 0)
            host.control(run.symbol) = run.value;
        host.connect(in, out, 0);
        const long before[] = {allocationcounter::Allocations(), allocationcounter::Releases()};
        lilv_instance_run(host.instance(), run.frames);
        EXPECT_EQ(allocationcounter::Allocations(), before[0]) << run.frames << run.symbol;
        EXPECT_EQ(allocationcounter::Releases(), before[1]) << run.frames << run.symbol;
        host.runWorker();
    }
    EXPECT_NE(out[0][100], in[0][100]) << "the effect is on at the end";
}

} // namespace
