// The unit used from several threads at once, as hosts do, in each hosting style: one thread
// renders while others set parameters, schedule events (ordered with the renders, as the host
// must), add and remove render notifications, and (the control thread) select presets, read
// the state and add and remove property listeners (opens and closes from 8 threads at once are
// in the runtime's concurrent test). Run under ThreadSanitizer, these find the races;
// tests/tsan.supp names the documented ones.
#include "ParameterEvents.h"
#include "VandrelTestHost.h"

#include <gmock/gmock.h>

#include <atomic>
#include <mutex>
#include <thread>

namespace {

using namespace vandrel_test;

OSStatus CountRender(void* inRefCon, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32,
                     UInt32, AudioBufferList*)
{
    static_cast<std::atomic<int>*>(inRefCon)->fetch_add(1, std::memory_order_relaxed);
    return noErr;
}

void CountChange(void* inRefCon, AudioUnit, AudioUnitPropertyID, AudioUnitScope, AudioUnitElement)
{
    ++*static_cast<int*>(inRefCon);
}

class VandrelConcurrentTest : public ::testing::TestWithParam<bool>
{
};

TEST_P(VandrelConcurrentTest, RenderWhileOtherThreadsChangeTheUnit)
{
    constexpr int kRounds = 300;
    Instance instance(GetParam());
    instance.Prepare();
    const AudioUnit unit = instance.unit();
    std::mutex renderOrder; // the host's: scheduled events belong to the next render
    // No synchronization between the threads beyond the host's: each counts its own failures.
    std::atomic<int> working{4}, notified{0};
    std::atomic<bool> go{false};
    int failures[5] = {}, changes = 0, next = 0;
    auto worker = [&](auto inStep) {
        return std::thread([&, inStep, slot = next++] {
            while (!go) {
                std::this_thread::yield();
            }
            for (int round = 0; round < kRounds; ++round) {
                failures[slot] += !inStep(round);
            }
            --working;
        });
    };
    std::thread threads[] = {
        worker([&](int round) {
            return instance.SetParameter(round % 7, kPresetValues[round % 15][round % 7]) == noErr;
        }),
        worker([&](int round) {
            const AudioUnitParameterEvent events[] = {
                RampEvent(kCenter, round % 300, 200, 500, 2000),
                ImmediateEvent(kDepth, round % 500, float(round % 100))};
            const std::lock_guard<std::mutex> lock(renderOrder);
            return AudioUnitScheduleParameters(unit, events, 2) == noErr;
        }),
        worker([&](int) {
            return AudioUnitAddRenderNotify(unit, CountRender, &notified) == noErr &&
                   AudioUnitRemoveRenderNotify(unit, CountRender, &notified) == noErr;
        }),
        worker([&](int round) {
            const AUPreset preset{round % 15, nullptr};
            CFPropertyListRef state = nullptr;
            const bool done =
                AudioUnitAddPropertyListener(unit, kAudioUnitProperty_PresentPreset, CountChange,
                                             &changes) == noErr &&
                instance.Set(kAudioUnitProperty_PresentPreset, preset) == noErr &&
                AudioUnitRemovePropertyListenerWithUserData(unit, kAudioUnitProperty_PresentPreset,
                                                            CountChange, &changes) == noErr &&
                instance.Get(kAudioUnitProperty_ClassInfo, state) == noErr;
            if (state != nullptr) {
                CFRelease(state);
            }
            return done;
        })};
    go = true;
    for (int renders = 0; working > 0 || renders < kRounds; ++renders) {
        const std::lock_guard<std::mutex> lock(renderOrder);
        failures[4] += instance.Render(256 + renders % 300) != noErr;
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(failures, ::testing::Each(0));
    EXPECT_EQ(kRounds, changes) << "each preset change reaches its listener";
    ASSERT_EQ(noErr, instance.Render(64)); // applies whatever was still queued
    notified = 0;
    ASSERT_EQ(noErr, instance.Render(64));
    EXPECT_EQ(0, notified.load()) << "every added notification was removed";
}

INSTANTIATE_TEST_SUITE_P(HostingStyles, VandrelConcurrentTest, ::testing::Bool(),
                         [](const auto& info) {
                             return info.param ? "ComponentManager" : "Factory";
                         });

} // namespace
