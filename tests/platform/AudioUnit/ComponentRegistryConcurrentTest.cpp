/* Hosts open and close instances from several threads at once, while other
   threads look components up and register bundles: every call succeeds and
   every bundle is registered once. */
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

OSStatus Silence(void*, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32, UInt32 frames,
                 AudioBufferList* data)
{
    std::memset(data->mBuffers[0].mData, 0, frames * sizeof(Float32));
    return noErr;
}

/* One open-use-close cycle in the given style; returns the first failure. */
OSStatus Cycle(bool componentManager)
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
    AURenderCallbackStruct input = {Silence, nullptr};
    Float32 samples[kFrames];
    AudioBufferList list = {1, {{1, sizeof(samples), samples}}};
    AudioUnitRenderActionFlags flags = 0;
    AudioTimeStamp time = {};
    for (OSStatus s :
         {AudioUnitSetProperty(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0,
                               &input, sizeof(input)),
          AudioUnitSetParameter(unit, kTestGainParam_Gain, kAudioUnitScope_Global, 0, 0.5f, 0),
          AudioUnitInitialize(unit), AudioUnitRender(unit, &flags, &time, 0, kFrames, &list)}) {
        if (s != noErr && status == noErr) {
            status = s;
        }
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
                if (Cycle((round + t) % 2 == 0) != noErr) {
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
