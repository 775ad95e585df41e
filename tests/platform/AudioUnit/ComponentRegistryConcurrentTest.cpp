/* Hosts open and close instances in both styles from seven threads, each
   first registering the built bundle, while another lists the components:
   every call succeeds and reaches its own instance; the bundle loads once. */
#include <AudioUnit/AudioUnit.h>
#include <CoreServices/CoreServices.h>

#include <gtest/gtest.h>

#include "RunTogether.h"

#include <atomic>
#include <cstdlib>

namespace {

const AudioComponentDescription kPlugIn = {kAudioUnitType_Effect, 0x566E6472 /* Vndr */,
                                           0x5664726C /* Vdrl */, 0, 0};

/* One open-initialize-set-read-close cycle: true when every call succeeds and the
   centre frequency reads back as tag. */
bool Cycle(bool componentManager, Float32 tag)
{
    ComponentDescription looking = {kPlugIn.componentType, kPlugIn.componentSubType,
                                    kPlugIn.componentManufacturer, 0, 0};
    ComponentInstance unit = nullptr;
    Float32 value = 0;
    if ((componentManager ? OpenAComponent(FindNextComponent(nullptr, &looking), &unit)
                          : AudioComponentInstanceNew(AudioComponentFindNext(nullptr, &kPlugIn),
                                                      &unit)) != noErr) {
        return false;
    }
    const bool used = AudioUnitInitialize(unit) == noErr &&
                      AudioUnitSetParameter(unit, 5, kAudioUnitScope_Global, 0, tag, 0) == noErr &&
                      AudioUnitGetParameter(unit, 5, kAudioUnitScope_Global, 0, &value) == noErr;
    const OSStatus closed =
        componentManager ? CloseComponent(unit) : AudioComponentInstanceDispose(unit);
    return used && closed == noErr && value == tag;
}

TEST(ComponentRegistryConcurrentTest, ConcurrentOpenCloseLookupAndRegistration)
{
    unsetenv("AU_COMPONENT_PATH");
    setenv("HOME", "/nonexistent", 1);
    std::atomic<int> failures{0};
    RunTogether(8, [&failures](int t) {
        for (int round = 0; round < 40 && t == 7; ++round) {
            for (AudioComponent c = nullptr; (c = AudioComponentFindNext(c, nullptr));) {
                AudioComponentDescription description;
                CFStringRef name = nullptr;
                failures += AudioComponentGetDescription(c, &description) != noErr ||
                            AudioComponentCopyName(c, &name) != noErr;
                CFRelease(name);
            }
        }
        // The first look-up, the folder scan and the registrations race.
        failures += t < 7 && AudioComponentRegisterBundle(VANDREL_BUNDLE_DIR) != noErr;
        for (int round = 0; round < 40 && t < 7; ++round) {
            failures += !Cycle((round + t) % 2 == 0, Float32(200 + t * 40 + round));
        }
    });
    EXPECT_EQ(0, failures.load());
    EXPECT_EQ(1u, AudioComponentCount(&kPlugIn));
}

} // namespace
