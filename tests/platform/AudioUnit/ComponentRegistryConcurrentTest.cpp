/* Hosts open and close instances from several threads at once, while other
   threads look components up and register bundles: every call succeeds,
   reaches its own instance, and every bundle is registered once. */
#include <AudioUnit/AudioUnit.h>
#include <CoreServices/CoreServices.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "TestGainUnit.h"

namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 40;
constexpr UInt32 kFrames = 16;

/* One open-use-close cycle in the given style, whose reset carries tag.
   Returns the first failure, or -1 when the instance's last call is not
   this cycle's reset. */
OSStatus Cycle(bool componentManager, UInt32 tag)
{
    AudioComponentDescription description = {kAudioUnitType_Effect, kTestGainSubtype,
                                             kTestGainManufacturer, 0, 0};
    AudioUnit unit = nullptr;
    OSStatus status;
    if (componentManager) {
        ComponentDescription looking;
        std::memcpy(&looking, &description, sizeof(looking));
        status = OpenAComponent(FindNextComponent(nullptr, &looking), &unit);
    } else {
        status = AudioComponentInstanceNew(AudioComponentFindNext(nullptr, &description), &unit);
    }
    if (status != noErr) {
        return status;
    }
    Float32 samples[kFrames];
    AudioBufferList list = {1, {{1, sizeof(samples), samples}}};
    AudioUnitRenderActionFlags flags = 0;
    AudioTimeStamp time = {};
    TestGainCall last = {};
    UInt32 size = sizeof(last);
    for (OSStatus s :
         {AudioUnitInitialize(unit), AudioUnitRender(unit, &flags, &time, 0, kFrames, &list),
          AudioUnitReset(unit, tag, 0),
          AudioUnitGetProperty(unit, kTestGainProperty_LastCall, 0, 0, &last, &size)}) {
        if (s != noErr && status == noErr) {
            status = s;
        }
    }
    if (status == noErr && (last.mWhat != kAudioUnitResetSelect || last.mArgs[0] != tag)) {
        status = -1;
    }
    OSStatus closed = componentManager ? CloseComponent(unit) : AudioComponentInstanceDispose(unit);
    return status != noErr ? status : closed;
}

TEST(ComponentRegistryConcurrentTest, ConcurrentOpenCloseLookupAndRegistration)
{
    unsetenv("AU_COMPONENT_PATH");
    setenv("HOME", "/nonexistent", 1);

    std::atomic<bool> go{false};
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    // Every thread starts by registering the same bundle, so the first
    // look-up, the folder scan and the registration race each other.
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            while (!go.load()) {
                std::this_thread::yield();
            }
            if (AudioComponentRegisterBundle(TEST_GAIN_BUNDLE) != noErr) {
                ++failures;
            }
            for (int round = 0; round < kRounds; ++round) {
                if (Cycle((round + t) % 2 == 0, static_cast<UInt32>(t * kRounds + round)) !=
                    noErr) {
                    ++failures;
                }
            }
        });
    }
    threads.emplace_back([&] {
        while (!go.load()) {
            std::this_thread::yield();
        }
        for (int round = 0; round < kRounds; ++round) {
            AudioComponentDescription any = {};
            for (AudioComponent c = AudioComponentFindNext(nullptr, &any); c != nullptr;
                 c = AudioComponentFindNext(c, &any)) {
                AudioComponentDescription description;
                CFStringRef name = nullptr;
                if (AudioComponentGetDescription(c, &description) != noErr ||
                    AudioComponentCopyName(c, &name) != noErr) {
                    ++failures;
                }
                if (name != nullptr) {
                    CFRelease(name);
                }
            }
        }
    });
    go = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(failures.load(), 0);
    AudioComponentDescription gain = {kAudioUnitType_Effect, kTestGainSubtype,
                                      kTestGainManufacturer, 0, 0};
    EXPECT_EQ(AudioComponentCount(&gain), 1u);
}

} // namespace
