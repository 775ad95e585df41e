/* Hosts open and close instances from several threads at once, in both
   styles, while another thread lists the components and every thread first
   registers the built bundle: every call succeeds, reaches its own instance,
   and the bundle is registered once. */
#include <AudioUnit/AudioUnit.h>
#include <CoreServices/CoreServices.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <thread>
#include <vector>

namespace {

const AudioComponentDescription kPlugIn = {kAudioUnitType_Effect, 0x566E6472 /* Vndr */,
                                           0x5664726C /* Vdrl */, 0, 0};

/* One open-use-close cycle whose centre frequency is set to tag and read
   back; the first failure, or -1 when the read does not give tag. */
OSStatus Cycle(bool componentManager, Float32 tag)
{
    ComponentInstance unit = nullptr;
    ComponentDescription looking = {kPlugIn.componentType, kPlugIn.componentSubType,
                                    kPlugIn.componentManufacturer, 0, 0};
    OSStatus status =
        componentManager
            ? OpenAComponent(FindNextComponent(nullptr, &looking), &unit)
            : AudioComponentInstanceNew(AudioComponentFindNext(nullptr, &kPlugIn), &unit);
    if (status != noErr) {
        return status;
    }
    Float32 value = 0;
    for (OSStatus s : {AudioUnitInitialize(unit),
                       AudioUnitSetParameter(unit, 5, kAudioUnitScope_Global, 0, tag, 0),
                       AudioUnitGetParameter(unit, 5, kAudioUnitScope_Global, 0, &value)}) {
        status = status != noErr ? status : s;
    }
    status = (status == noErr && value != tag) ? -1 : status;
    const OSStatus closed =
        componentManager ? CloseComponent(unit) : AudioComponentInstanceDispose(unit);
    return status != noErr ? status : closed;
}

TEST(ComponentRegistryConcurrentTest, ConcurrentOpenCloseLookupAndRegistration)
{
    unsetenv("AU_COMPONENT_PATH");
    setenv("HOME", "/nonexistent", 1);
    std::atomic<bool> go{false};
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 5; ++t) {
        threads.emplace_back([&, t] {
            while (!go.load()) {
                std::this_thread::yield();
            }
            for (int round = 0; round < 40 && t == 4; ++round) {
                for (AudioComponent c = nullptr; (c = AudioComponentFindNext(c, nullptr));) {
                    AudioComponentDescription description;
                    CFStringRef name = nullptr;
                    failures += AudioComponentGetDescription(c, &description) != noErr ||
                                AudioComponentCopyName(c, &name) != noErr;
                    CFRelease(name);
                }
            }
            // The first look-up, the folder scan and the registrations race.
            failures += t < 4 && AudioComponentRegisterBundle(VANDREL_BUNDLE_DIR) != noErr;
            for (int round = 0; round < 40 && t < 4; ++round) {
                failures += Cycle((round + t) % 2 == 0, Float32(200 + t * 40 + round)) != noErr;
            }
        });
    }
    go = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, failures.load());
    EXPECT_EQ(1u, AudioComponentCount(&kPlugIn));
}

} // namespace
