// End to end: the runtime loads the built bundle and the tests drive the unit
// only through the public host API, opened in both styles (factory and
// component manager).
#include "VandrelTestHost.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

using namespace vandrel_test;

namespace {

constexpr float kDefaults[7] = {-80.0f, 0.0f, 0.0f, 10.0f, 10.0f, 100.0f, 1.0f};

// Registers the built bundle once; the plug-in folders of the user's home and
// of AU_COMPONENT_PATH are kept out of the way so that only this bundle
// provides the description.
void RegisterBundleOnce()
{
    static const bool registered = [] {
        setenv("HOME", VANDREL_TEST_DATA_DIR "/no-such-home", 1);
        unsetenv("AU_COMPONENT_PATH");
        EXPECT_EQ(noErr, AudioComponentRegisterBundle(VANDREL_BUNDLE_DIR));
        return true;
    }();
    (void)registered;
}

AudioComponent FactoryComponent()
{
    RegisterBundleOnce();
    const AudioComponentDescription desc = UnitDescription();
    return AudioComponentFindNext(nullptr, &desc);
}

Component EntryComponent()
{
    RegisterBundleOnce();
    ComponentDescription desc{kType, kSubtype, kManufacturer, 0, 0};
    return FindNextComponent(nullptr, &desc);
}

std::unique_ptr<Instance> Open(bool inEntryStyle)
{
    auto instance = inEntryStyle ? std::make_unique<Instance>(EntryComponent())
                                 : std::make_unique<Instance>(FactoryComponent());
    EXPECT_EQ(noErr, instance->openStatus());
    return instance;
}

// Parameterized by opening style: true = component manager.
class VandrelHost : public ::testing::TestWithParam<bool>
{
};

TEST(VandrelHostDiscovery, BundleFoundInBothStylesWithItsIdentity)
{
    AudioComponent component = FactoryComponent();
    ASSERT_NE(nullptr, component);
    ASSERT_NE(nullptr, EntryComponent());
    AudioComponentDescription desc{};
    ASSERT_EQ(noErr, AudioComponentGetDescription(component, &desc));
    EXPECT_EQ(kType, desc.componentType);
    EXPECT_EQ(kSubtype, desc.componentSubType);
    EXPECT_EQ(kManufacturer, desc.componentManufacturer);
    CFStringRef name = nullptr;
    ASSERT_EQ(noErr, AudioComponentCopyName(component, &name));
    EXPECT_EQ("Vandrel: Vandrel", ToString(name));
    CFRelease(name);
    UInt32 version = 0;
    ASSERT_EQ(noErr, AudioComponentGetVersion(component, &version));
    EXPECT_EQ(0x00010000u, version);
}

TEST_P(VandrelHost, RendersAtEveryRateAndSliceUpToTheMaximum)
{
    for (const auto& [channels, rate] :
         std::vector<std::pair<UInt32, Float64>>{{1, 22050.0}, {2, 44100.0}, {6, 96000.0}}) {
        auto unit = Open(GetParam());
        const UInt32 maxFrames = 4096;
        ASSERT_EQ(noErr,
                  AudioUnitSetProperty(unit->unit(), kAudioUnitProperty_MaximumFramesPerSlice,
                                       kAudioUnitScope_Global, 0, &maxFrames, sizeof(maxFrames)));
        unit->Prepare(channels, rate);
        ReferenceStream reference(channels, static_cast<int>(rate));
        Audio expected;
        Audio actual;
        for (UInt32 frames : {4096u, 17u, 1000u}) {
            reference.Process(kDefaults, frames, expected);
            unit->RenderAppend(actual, frames);
        }
        ExpectSameAudio(expected, actual);
        Buffers tooMany(channels, 4097);
        EXPECT_EQ(kAudioUnitErr_TooManyFramesToProcess, unit->Render(tooMany, 4097));
    }
}

TEST_P(VandrelHost, PullsInputFromConnectedInstance)
{
    // Upstream: bypassed, so it hands the test signal on unchanged; the
    // downstream unit pulls it through the connection.
    auto upstream = Open(GetParam());
    auto downstream = Open(GetParam());
    upstream->Prepare(2, 44100.0);
    const UInt32 on = 1;
    ASSERT_EQ(noErr, AudioUnitSetProperty(upstream->unit(), kAudioUnitProperty_BypassEffect,
                                          kAudioUnitScope_Global, 0, &on, sizeof(on)));
    ASSERT_EQ(noErr, downstream->SetFormat(2, 44100.0));
    const AudioUnitConnection connection{upstream->unit(), 0, 0};
    ASSERT_EQ(noErr,
              AudioUnitSetProperty(downstream->unit(), kAudioUnitProperty_MakeConnection,
                                   kAudioUnitScope_Input, 0, &connection, sizeof(connection)));
    ASSERT_EQ(noErr, AudioUnitInitialize(downstream->unit()));
    ASSERT_EQ(noErr, downstream->SetParameter(kParam_Effect, 2.0f));
    ASSERT_EQ(noErr, downstream->SetParameter(kParam_CenterFreq, 1500.0f));

    float values[7] = {-80.0f, 0.0f, 2.0f, 10.0f, 10.0f, 1500.0f, 1.0f};
    ReferenceStream reference(2, 44100);
    Audio expected;
    Audio actual;
    for (UInt32 frames : {512u, 512u, 99u}) {
        reference.Process(values, frames, expected);
        downstream->RenderAppend(actual, frames);
    }
    ExpectSameAudio(expected, actual);
    EXPECT_EQ(3u, upstream->source().calls);

    // Component-manager instances hand out their fast render entry, which the
    // connection uses; factory instances do not, so AudioUnitRender is used.
    void* fastRender = nullptr;
    UInt32 size = sizeof(fastRender);
    const OSStatus fast =
        AudioUnitGetProperty(upstream->unit(), kAudioUnitProperty_FastDispatch,
                             kAudioUnitScope_Global, kAudioUnitRenderSelect, &fastRender, &size);
    EXPECT_EQ(GetParam() ? OSStatus{noErr} : OSStatus{kAudioUnitErr_InvalidProperty}, fast);
}

TEST_P(VandrelHost, FactoryPresetsListedSelectedAndRefused)
{
    auto unit = Open(GetParam());
    CFArrayRef presets = nullptr;
    UInt32 size = sizeof(presets);
    ASSERT_EQ(noErr, AudioUnitGetProperty(unit->unit(), kAudioUnitProperty_FactoryPresets,
                                          kAudioUnitScope_Global, 0, &presets, &size));
    ASSERT_EQ(15, CFArrayGetCount(presets));
    const char* names[15] = {"Default",         "Flange - 1 Hz", "Flange - fast", "Flange - slow 1",
                             "Flange - slow 2", "Phaser 1",      "Phaser 2",      "Phaser 3",
                             "Wah-Wah 1",       "Wah-Wah 2",     "Wah-Wah 3",     "Wah-Wah 4",
                             "Wah-Wah 5",       "Warble 1",      "Warble 2"};
    for (CFIndex i = 0; i < 15; ++i) {
        const auto* preset = static_cast<const AUPreset*>(CFArrayGetValueAtIndex(presets, i));
        EXPECT_EQ(i, preset->presetNumber);
        EXPECT_EQ(names[i], ToString(preset->presetName));
    }
    CFRelease(presets);

    AUPreset choice{9, nullptr};
    ASSERT_EQ(noErr, AudioUnitSetProperty(unit->unit(), kAudioUnitProperty_PresentPreset,
                                          kAudioUnitScope_Global, 0, &choice, sizeof(choice)));
    AUPreset current{};
    size = sizeof(current);
    ASSERT_EQ(noErr, AudioUnitGetProperty(unit->unit(), kAudioUnitProperty_PresentPreset,
                                          kAudioUnitScope_Global, 0, &current, &size));
    EXPECT_EQ(9, current.presetNumber);
    EXPECT_EQ("Wah-Wah 2", ToString(current.presetName));
    CFRelease(current.presetName);
    const float wah2[7] = {-80, 0, 2, 2, 50, 1000, 80};
    for (AudioUnitParameterID id = 0; id < 7; ++id) {
        EXPECT_EQ(wah2[id], unit->GetParameter(id)) << "parameter " << id;
    }

    choice.presetNumber = 3;
    ASSERT_EQ(noErr, AudioUnitSetProperty(unit->unit(), kAudioUnitProperty_PresentPreset,
                                          kAudioUnitScope_Global, 0, &choice, sizeof(choice)));
    EXPECT_EQ(0.1f, unit->GetParameter(kParam_ModulationRate));
    choice.presetNumber = 15;
    EXPECT_EQ(kAudioUnitErr_InvalidPropertyValue,
              AudioUnitSetProperty(unit->unit(), kAudioUnitProperty_PresentPreset,
                                   kAudioUnitScope_Global, 0, &choice, sizeof(choice)));
    EXPECT_EQ(0.1f, unit->GetParameter(kParam_ModulationRate));
    choice.presetNumber = 0;
    ASSERT_EQ(noErr, AudioUnitSetProperty(unit->unit(), kAudioUnitProperty_PresentPreset,
                                          kAudioUnitScope_Global, 0, &choice, sizeof(choice)));
    for (AudioUnitParameterID id = 0; id < 7; ++id) {
        EXPECT_EQ(kDefaults[id], unit->GetParameter(id)) << "parameter " << id;
    }
}

TEST_P(VandrelHost, SavedStateSurvivesAnXmlFileIntoAFreshInstance)
{
    auto unit = Open(GetParam());
    const AUPreset phaser3{7, nullptr};
    ASSERT_EQ(noErr, AudioUnitSetProperty(unit->unit(), kAudioUnitProperty_PresentPreset,
                                          kAudioUnitScope_Global, 0, &phaser3, sizeof(phaser3)));
    ASSERT_EQ(noErr, unit->SetParameter(kParam_DryOut, -7.25f));

    CFPropertyListRef state = nullptr;
    UInt32 size = sizeof(state);
    ASSERT_EQ(noErr, AudioUnitGetProperty(unit->unit(), kAudioUnitProperty_ClassInfo,
                                          kAudioUnitScope_Global, 0, &state, &size));
    // The parameter blob: one record of the global element with 7 values.
    CFDataRef blob = static_cast<CFDataRef>(
        CFDictionaryGetValue(static_cast<CFDictionaryRef>(state), CFSTR("data")));
    ASSERT_NE(nullptr, blob);
    ASSERT_EQ(68, CFDataGetLength(blob));
    const UInt8* bytes = CFDataGetBytePtr(blob);
    const UInt8 header[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7};
    EXPECT_EQ(0, std::memcmp(header, bytes, 12));
    const float expected[7] = {-7.25f, 0, 1, 10, 50, 2000, 40};
    for (UInt32 id = 0; id < 7; ++id) {
        const UInt8* entry = bytes + 12 + 8 * id;
        const UInt32 storedID = (entry[0] << 24) | (entry[1] << 16) | (entry[2] << 8) | entry[3];
        UInt32 bits = 0;
        std::memcpy(&bits, &expected[id], 4);
        const UInt32 storedBits =
            (static_cast<UInt32>(entry[4]) << 24) | (entry[5] << 16) | (entry[6] << 8) | entry[7];
        EXPECT_EQ(id, storedID);
        EXPECT_EQ(bits, storedBits) << "parameter " << id;
    }

    CFDataRef xml = CFPropertyListCreateData(kCFAllocatorDefault, state,
                                             kCFPropertyListXMLFormat_v1_0, 0, nullptr);
    CFRelease(state);
    ASSERT_NE(nullptr, xml);
    const std::string path =
        ::testing::TempDir() + "vandrel-state-" + std::to_string(getpid()) + ".aupreset";
    {
        std::ofstream file(path, std::ios::binary);
        file.write(reinterpret_cast<const char*>(CFDataGetBytePtr(xml)), CFDataGetLength(xml));
    }
    CFRelease(xml);

    std::ifstream file(path, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(file)),
                           std::istreambuf_iterator<char>());
    EXPECT_NE(std::string::npos, text.find("<plist"));
    CFDataRef read = CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                                  static_cast<CFIndex>(text.size()));
    CFPropertyListRef restored = CFPropertyListCreateWithData(
        kCFAllocatorDefault, read, kCFPropertyListImmutable, nullptr, nullptr);
    CFRelease(read);
    ASSERT_NE(nullptr, restored);

    auto fresh = Open(!GetParam());
    ASSERT_EQ(noErr, AudioUnitSetProperty(fresh->unit(), kAudioUnitProperty_ClassInfo,
                                          kAudioUnitScope_Global, 0, &restored, sizeof(restored)));
    CFRelease(restored);
    for (AudioUnitParameterID id = 0; id < 7; ++id) {
        EXPECT_EQ(expected[id], fresh->GetParameter(id)) << "parameter " << id;
    }
    AUPreset current{};
    size = sizeof(current);
    ASSERT_EQ(noErr, AudioUnitGetProperty(fresh->unit(), kAudioUnitProperty_PresentPreset,
                                          kAudioUnitScope_Global, 0, &current, &size));
    EXPECT_EQ(-1, current.presetNumber);
    EXPECT_EQ("Phaser 3", ToString(current.presetName));
    CFRelease(current.presetName);
    std::remove(path.c_str());
}

struct ListenerLog
{
    std::vector<AudioUnitPropertyID> ids;
};

void Listen(void* inRefCon, AudioUnit, AudioUnitPropertyID inID, AudioUnitScope, AudioUnitElement)
{
    static_cast<ListenerLog*>(inRefCon)->ids.push_back(inID);
}

TEST_P(VandrelHost, LatencyIsSettableAndAnnounced)
{
    auto unit = Open(GetParam());
    Float64 latency = -1.0;
    UInt32 size = sizeof(latency);
    ASSERT_EQ(noErr, AudioUnitGetProperty(unit->unit(), kAudioUnitProperty_Latency,
                                          kAudioUnitScope_Global, 0, &latency, &size));
    EXPECT_EQ(0.0, latency);

    ListenerLog log;
    ASSERT_EQ(noErr,
              AudioUnitAddPropertyListener(unit->unit(), kAudioUnitProperty_Latency, Listen, &log));
    ASSERT_EQ(noErr, AudioUnitAddPropertyListener(unit->unit(), kAudioUnitProperty_PresentPreset,
                                                  Listen, &log));
    const Float64 half = 0.5;
    ASSERT_EQ(noErr, AudioUnitSetProperty(unit->unit(), kAudioUnitProperty_Latency,
                                          kAudioUnitScope_Global, 0, &half, sizeof(half)));
    const Float32 narrow = 0.25f;
    EXPECT_EQ(kAudioUnitErr_InvalidPropertyValue,
              AudioUnitSetProperty(unit->unit(), kAudioUnitProperty_Latency, kAudioUnitScope_Global,
                                   0, &narrow, sizeof(narrow)));
    size = sizeof(latency);
    ASSERT_EQ(noErr, AudioUnitGetProperty(unit->unit(), kAudioUnitProperty_Latency,
                                          kAudioUnitScope_Global, 0, &latency, &size));
    EXPECT_EQ(0.5, latency);
    const AUPreset preset{2, nullptr};
    ASSERT_EQ(noErr, AudioUnitSetProperty(unit->unit(), kAudioUnitProperty_PresentPreset,
                                          kAudioUnitScope_Global, 0, &preset, sizeof(preset)));
    EXPECT_EQ((std::vector<AudioUnitPropertyID>{kAudioUnitProperty_Latency,
                                                kAudioUnitProperty_PresentPreset}),
              log.ids);

    ASSERT_EQ(noErr, AudioUnitRemovePropertyListenerWithUserData(
                         unit->unit(), kAudioUnitProperty_Latency, Listen, &log));
    ASSERT_EQ(noErr, AudioUnitSetProperty(unit->unit(), kAudioUnitProperty_Latency,
                                          kAudioUnitScope_Global, 0, &half, sizeof(half)));
    EXPECT_EQ(2u, log.ids.size());
}

TEST_P(VandrelHost, CocoaViewMissingFromThisBundle)
{
    auto unit = Open(GetParam());
    UInt32 size = 0;
    Boolean writable = true;
    ASSERT_EQ(noErr, AudioUnitGetPropertyInfo(unit->unit(), kAudioUnitProperty_CocoaUI,
                                              kAudioUnitScope_Global, 0, &size, &writable));
    EXPECT_EQ(16u, size);
    EXPECT_FALSE(writable);
    AudioUnitCocoaViewInfo info{};
    size = sizeof(info);
    EXPECT_EQ(fnfErr, AudioUnitGetProperty(unit->unit(), kAudioUnitProperty_CocoaUI,
                                           kAudioUnitScope_Global, 0, &info, &size));
}

TEST_P(VandrelHost, BypassAndScheduledEventsThroughTheRuntime)
{
    auto scheduled = Open(GetParam());
    auto plain = Open(GetParam());
    scheduled->Prepare();
    plain->Prepare();
    Audio a;
    Audio b;
    scheduled->RenderAppend(a, 256);
    plain->RenderAppend(b, 256);
    AudioUnitParameterEvent event{};
    event.scope = kAudioUnitScope_Global;
    event.parameter = kParam_ModulationRate;
    event.eventType = kParameterEvent_Immediate;
    event.eventValues.immediate.bufferOffset = 100;
    event.eventValues.immediate.value = 1.5f;
    ASSERT_EQ(noErr, AudioUnitScheduleParameters(scheduled->unit(), &event, 1));
    scheduled->RenderAppend(a, 300);
    plain->RenderAppend(b, 100);
    ASSERT_EQ(noErr, plain->SetParameter(kParam_ModulationRate, 1.5f));
    plain->RenderAppend(b, 200);
    ExpectSameAudio(b, a);

    const UInt32 on = 1;
    ASSERT_EQ(noErr, AudioUnitSetProperty(scheduled->unit(), kAudioUnitProperty_BypassEffect,
                                          kAudioUnitScope_Global, 0, &on, sizeof(on)));
    const auto start = static_cast<std::int64_t>(scheduled->sampleTime());
    Audio through;
    scheduled->RenderAppend(through, 128);
    for (std::int64_t i = 0; i < 128; ++i) {
        ASSERT_EQ(TestSample(0, start + i), through[0][i]);
    }
}

INSTANTIATE_TEST_SUITE_P(BothStyles, VandrelHost, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& info) {
                             return info.param ? "ComponentManager" : "Factory";
                         });

TEST(VandrelHostConcurrent, ManyInstancesOpenAndCloseFromSeveralThreads)
{
    AudioComponent factory = FactoryComponent();
    Component entry = EntryComponent();
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 15; ++i) {
                std::unique_ptr<Instance> unit = ((t + i) % 2 == 0)
                                                     ? std::make_unique<Instance>(factory)
                                                     : std::make_unique<Instance>(entry);
                if (unit->openStatus() != noErr) {
                    ++failures;
                    continue;
                }
                AudioUnitParameterInfo info{};
                UInt32 size = sizeof(info);
                if (AudioUnitGetProperty(unit->unit(), kAudioUnitProperty_ParameterInfo,
                                         kAudioUnitScope_Global, kParam_Resonance, &info,
                                         &size) != noErr ||
                    std::string(info.name) != "Resonance" || info.defaultValue != 1.0f) {
                    ++failures;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, failures.load());
}

} // namespace
