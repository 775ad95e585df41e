// Many whole lives of an instance in each hosting style: open, format, initialize, render with
// notifications and scheduled events, save and restore the state, close. Every call succeeds and
// the resident size stays flat; leaks are LeakSanitizer's in the sanitizer build.
// VANDREL_STRESS_CYCLES sets the count (1000 by default).
#include "ParameterEvents.h"
#include "VandrelTestHost.h"

#include <fstream>

namespace {

using namespace vandrel_test;

long ResidentPages()
{
    std::ifstream statm("/proc/self/statm");
    long size = 0, resident = 0;
    statm >> size >> resident;
    return resident;
}

OSStatus CountRender(void* inRefCon, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32,
                     UInt32, AudioBufferList*)
{
    ++*static_cast<int*>(inRefCon);
    return noErr;
}

void Cycle(bool inEntryStyle, int inRound)
{
    Instance instance(inEntryStyle);
    int notified = 0;
    ASSERT_EQ(noErr, AudioUnitAddRenderNotify(instance.unit(), CountRender, &notified));
    instance.Prepare(1 + inRound % 3, inRound % 2 ? 44100.0 : 8000.0);
    instance.SetAll(kPresetValues[inRound % 15]);
    const AudioUnitParameterEvent events[] = {RampEvent(kRate, 10, 300, 0.5f, 5),
                                              ImmediateEvent(kWet, 100, -6)};
    ASSERT_EQ(noErr, AudioUnitScheduleParameters(instance.unit(), events, 2));
    ASSERT_EQ(noErr, instance.Render(512));
    ASSERT_EQ(noErr, instance.Render(1000));
    CFPropertyListRef state = nullptr;
    ASSERT_EQ(noErr, instance.Get(kAudioUnitProperty_ClassInfo, state));
    EXPECT_EQ(noErr, instance.Set(kAudioUnitProperty_ClassInfo, state));
    CFRelease(state);
    EXPECT_EQ(noErr, AudioUnitRemoveRenderNotify(instance.unit(), CountRender, &notified));
    EXPECT_EQ(4, notified) << "before and after each render";
    EXPECT_EQ(noErr, AudioUnitUninitialize(instance.unit()));
}

class VandrelStressTest : public ::testing::TestWithParam<bool>
{
};

TEST_P(VandrelStressTest, ManyInstanceLivesKeepTheResidentSizeFlat)
{
    const char* count = std::getenv("VANDREL_STRESS_CYCLES");
    const int cycles = count != nullptr ? std::atoi(count) : 1000;
    for (int round = 0; round < 100; ++round) {
        ASSERT_NO_FATAL_FAILURE(Cycle(GetParam(), round));
    }
    [[maybe_unused]] const long before = ResidentPages();
    for (int round = 0; round < cycles; ++round) {
        ASSERT_NO_FATAL_FAILURE(Cycle(GetParam(), round));
    }
#if !defined(__SANITIZE_ADDRESS__)
    // 256 KiB of slack for the allocator's own bookkeeping; the sanitizer build holds freed
    // memory in quarantine, so its resident size grows by design.
    EXPECT_LE(ResidentPages() - before, 64) << "pages of 4 KiB gained over " << cycles;
#endif
}

INSTANTIATE_TEST_SUITE_P(HostingStyles, VandrelStressTest, ::testing::Bool(), [](const auto& info) {
    return info.param ? "ComponentManager" : "Factory";
});

} // namespace
