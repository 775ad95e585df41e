/* Every host call reaches the test gain unit with its arguments intact,
   whichever way the instance was opened, and the runtime answers the
   component questions a plug-in asks about itself. */
#include <AudioUnit/AudioUnit.h>
#include <CoreServices/CoreServices.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "TestGainUnit.h"

namespace {

std::atomic<long> gAllocations{0};

} // namespace

// Counts every allocation of the process, to show that routed renders
// allocate nothing. The whole family is replaced, and exported from the test
// program, so that the runtime and the loaded plug-in pair them the same way.
void* operator new(std::size_t size)
{
    ++gAllocations;
    if (void* p = std::malloc(size == 0 ? 1 : size)) {
        return p;
    }
    throw std::bad_alloc();
}

void* operator new[](std::size_t size)
{
    return operator new(size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    ++gAllocations;
    return std::malloc(size == 0 ? 1 : size);
}

void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept
{
    return operator new(size, tag);
}

void operator delete(void* p) noexcept
{
    std::free(p);
}

void operator delete[](void* p) noexcept
{
    std::free(p);
}

void operator delete(void* p, std::size_t) noexcept
{
    std::free(p);
}

void operator delete[](void* p, std::size_t) noexcept
{
    std::free(p);
}

void operator delete(void* p, const std::nothrow_t&) noexcept
{
    std::free(p);
}

void operator delete[](void* p, const std::nothrow_t&) noexcept
{
    std::free(p);
}

namespace {

constexpr UInt32 kFrames = 8;

AudioComponentDescription Describe(OSType subtype)
{
    return AudioComponentDescription{kAudioUnitType_Effect, subtype, kTestGainManufacturer, 0, 0};
}

// Keeps the standard folders of the machine out of the look-ups.
void RegisterTestBundleOnly()
{
    unsetenv("AU_COMPONENT_PATH");
    setenv("HOME", "/nonexistent", 1);
    ASSERT_EQ(AudioComponentRegisterBundle(TEST_GAIN_BUNDLE), noErr);
}

enum class OpenWay
{
    kFactory,          // AudioComponentInstanceNew on a component with a factory
    kComponentManager, // OpenAComponent
    kEntryOnly         // AudioComponentInstanceNew on an entry-only component
};

struct Host
{
    std::vector<Float32> input;
    int inputCalls = 0;
    std::vector<AudioUnitRenderActionFlags> notifications;
    std::vector<std::string> heard;
};

OSStatus ProvideInput(void* refCon, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32,
                      UInt32 frames, AudioBufferList* data)
{
    Host* host = static_cast<Host*>(refCon);
    ++host->inputCalls;
    for (UInt32 b = 0; b < data->mNumberBuffers; ++b) {
        std::memcpy(data->mBuffers[b].mData, host->input.data(), frames * sizeof(Float32));
    }
    return noErr;
}

OSStatus RecordNotification(void* refCon, AudioUnitRenderActionFlags* flags, const AudioTimeStamp*,
                            UInt32, UInt32, AudioBufferList*)
{
    static_cast<Host*>(refCon)->notifications.push_back(*flags);
    return noErr;
}

void RecordListener(void* refCon, AudioUnit, AudioUnitPropertyID id, AudioUnitScope scope,
                    AudioUnitElement element)
{
    static_cast<Host*>(refCon)->heard.push_back(std::to_string(id) + "/" + std::to_string(scope) +
                                                "/" + std::to_string(element));
}

class ComponentInstanceRecordTest : public ::testing::TestWithParam<OpenWay>
{
protected:
    static void SetUpTestSuite() { RegisterTestBundleOnly(); }

    void SetUp() override
    {
        AudioComponentDescription description = Describe(Subtype());
        if (GetParam() == OpenWay::kComponentManager) {
            ComponentDescription looking;
            std::memcpy(&looking, &description, sizeof(looking));
            Component component = FindNextComponent(nullptr, &looking);
            ASSERT_NE(component, nullptr);
            ASSERT_EQ(OpenAComponent(component, &mUnit), noErr);
            mComponent = reinterpret_cast<AudioComponent>(component);
        } else {
            mComponent = AudioComponentFindNext(nullptr, &description);
            ASSERT_NE(mComponent, nullptr);
            ASSERT_EQ(AudioComponentInstanceNew(mComponent, &mUnit), noErr);
        }
        ASSERT_NE(mUnit, nullptr);
        AURenderCallbackStruct input = {ProvideInput, &mHost};
        ASSERT_EQ(AudioUnitSetProperty(mUnit, kAudioUnitProperty_SetRenderCallback,
                                       kAudioUnitScope_Input, 0, &input, sizeof(input)),
                  noErr);
        mHost.input.resize(kFrames);
        for (UInt32 i = 0; i < kFrames; ++i) {
            mHost.input[i] = static_cast<Float32>(i + 1);
        }
        mBufferList.mNumberBuffers = 1;
        mBufferList.mBuffers[0] = AudioBuffer{1, kFrames * sizeof(Float32), mSamples};
    }

    void TearDown() override
    {
        if (mUnit != nullptr) {
            EXPECT_EQ(AudioComponentInstanceDispose(mUnit), noErr);
        }
    }

    OSType Subtype() const
    {
        return GetParam() == OpenWay::kEntryOnly ? kTestGainEntryOnly : kTestGainSubtype;
    }
    bool EntryStyle() const { return GetParam() != OpenWay::kFactory; }

    OSStatus Render(UInt32 frames = kFrames)
    {
        AudioUnitRenderActionFlags flags = 0;
        AudioTimeStamp time = {};
        time.mSampleTime = mSampleTime;
        time.mFlags = kAudioTimeStampSampleTimeValid;
        mSampleTime += frames;
        return AudioUnitRender(mUnit, &flags, &time, 0, frames, &mBufferList);
    }

    AudioComponent mComponent = nullptr;
    AudioUnit mUnit = nullptr;
    Host mHost;
    Float32 mSamples[kFrames] = {};
    AudioBufferList mBufferList = {};
    Float64 mSampleTime = 0;
};

TEST_P(ComponentInstanceRecordTest, PlugInFindsItsDescriptionAndStorageThroughTheRuntime)
{
    AudioComponentDescription description = {};
    UInt32 size = sizeof(description);
    ASSERT_EQ(AudioUnitGetProperty(mUnit, kTestGainProperty_Description, kAudioUnitScope_Global, 0,
                                   &description, &size),
              noErr);
    AudioComponentDescription expected = Describe(Subtype());
    EXPECT_EQ(std::memcmp(&description, &expected, sizeof(expected)), 0);

    EXPECT_EQ(AudioComponentInstanceGetComponent(mUnit), mComponent);
    ComponentDescription info = {};
    unsigned char name[256] = {};
    Ptr nameBytes = reinterpret_cast<Ptr>(name);
    ASSERT_EQ(
        GetComponentInfo(reinterpret_cast<Component>(mUnit), &info, &nameBytes, nullptr, nullptr),
        noErr);
    EXPECT_EQ(info.componentSubType, Subtype());
    std::string pascal(reinterpret_cast<char*>(name + 1), name[0]);
    EXPECT_EQ(pascal.rfind("Vandrel Tests: ", 0), 0u) << pascal;

    void* storage = nullptr;
    size = sizeof(storage);
    ASSERT_EQ(AudioUnitGetProperty(mUnit, kTestGainProperty_Storage, kAudioUnitScope_Global, 0,
                                   &storage, &size),
              noErr);
    EXPECT_EQ(storage, static_cast<void*>(GetComponentInstanceStorage(mUnit)));
    // Only an entry-point unit stores its object with the runtime.
    EXPECT_EQ(storage != nullptr, EntryStyle());
}

TEST_P(ComponentInstanceRecordTest, PropertiesRoundTripAndListenersHearChanges)
{
    UInt32 size = 0;
    Boolean writable = false;
    ASSERT_EQ(AudioUnitGetPropertyInfo(mUnit, kAudioUnitProperty_StreamFormat,
                                       kAudioUnitScope_Output, 0, &size, &writable),
              noErr);
    EXPECT_EQ(size, 40u);
    EXPECT_TRUE(writable);
    EXPECT_EQ(AudioUnitGetPropertyInfo(mUnit, kAudioUnitProperty_MaximumFramesPerSlice, 0, 0,
                                       nullptr, nullptr),
              noErr);
    EXPECT_EQ(AudioUnitGetPropertyInfo(mUnit, kAudioUnitProperty_CocoaUI, 0, 0, &size, &writable),
              kAudioUnitErr_InvalidProperty);

    Host other;
    ASSERT_EQ(AudioUnitAddPropertyListener(mUnit, kAudioUnitProperty_MaximumFramesPerSlice,
                                           RecordListener, &mHost),
              noErr);
    ASSERT_EQ(AudioUnitAddPropertyListener(mUnit, kAudioUnitProperty_MaximumFramesPerSlice,
                                           RecordListener, &other),
              noErr);
    UInt32 maxFrames = 512;
    ASSERT_EQ(AudioUnitSetProperty(mUnit, kAudioUnitProperty_MaximumFramesPerSlice,
                                   kAudioUnitScope_Global, 0, &maxFrames, sizeof(maxFrames)),
              noErr);
    ASSERT_EQ(AudioUnitRemovePropertyListenerWithUserData(
                  mUnit, kAudioUnitProperty_MaximumFramesPerSlice, RecordListener, &other),
              noErr);
    maxFrames = 7;
    ASSERT_EQ(AudioUnitSetProperty(mUnit, kAudioUnitProperty_MaximumFramesPerSlice,
                                   kAudioUnitScope_Global, 0, &maxFrames, sizeof(maxFrames)),
              noErr);
    EXPECT_EQ(mHost.heard, (std::vector<std::string>{"14/0/0", "14/0/0"}));
    EXPECT_EQ(other.heard, (std::vector<std::string>{"14/0/0"}));

    UInt32 readBack = 0;
    size = sizeof(readBack);
    ASSERT_EQ(AudioUnitGetProperty(mUnit, kAudioUnitProperty_MaximumFramesPerSlice,
                                   kAudioUnitScope_Global, 0, &readBack, &size),
              noErr);
    EXPECT_EQ(readBack, 7u);
    EXPECT_EQ(size, 4u);

    AudioStreamBasicDescription format = {
        48000.0, kAudioFormatLinearPCM, kAudioFormatFlagsAudioUnitCanonical, 4, 1, 4, 1, 32, 0};
    ASSERT_EQ(AudioUnitSetProperty(mUnit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output,
                                   0, &format, sizeof(format)),
              noErr);
    AudioStreamBasicDescription got = {};
    size = sizeof(got);
    ASSERT_EQ(AudioUnitGetProperty(mUnit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output,
                                   0, &got, &size),
              noErr);
    EXPECT_EQ(std::memcmp(&got, &format, sizeof(format)), 0);
    EXPECT_EQ(
        AudioUnitSetProperty(mUnit, kAudioUnitProperty_MaximumFramesPerSlice, 0, 0, &maxFrames, 3),
        kAudioUnitErr_InvalidPropertyValue);
}

TEST_P(ComponentInstanceRecordTest, ParametersScheduledEventsAndResetReachTheUnit)
{
    AudioUnitParameterValue value = 0;
    ASSERT_EQ(AudioUnitGetParameter(mUnit, kTestGainParam_Gain, kAudioUnitScope_Global, 0, &value),
              noErr);
    EXPECT_EQ(value, 1.0f);
    ASSERT_EQ(AudioUnitSetParameter(mUnit, kTestGainParam_Gain, kAudioUnitScope_Global, 0, 0.5f, 0),
              noErr);
    ASSERT_EQ(AudioUnitGetParameter(mUnit, kTestGainParam_Gain, kAudioUnitScope_Global, 0, &value),
              noErr);
    EXPECT_EQ(value, 0.5f);
    EXPECT_EQ(AudioUnitSetParameter(mUnit, 9, kAudioUnitScope_Global, 0, 0.5f, 0),
              kAudioUnitErr_InvalidParameter);
    EXPECT_EQ(AudioUnitGetParameter(mUnit, kTestGainParam_Gain, kAudioUnitScope_Input, 0, &value),
              kAudioUnitErr_InvalidParameter);

    AudioUnitParameterEvent event = {};
    event.scope = kAudioUnitScope_Global;
    event.parameter = kTestGainParam_Gain;
    event.eventType = kParameterEvent_Immediate;
    event.eventValues.immediate.bufferOffset = 3;
    event.eventValues.immediate.value = -2.0f;
    ASSERT_EQ(AudioUnitScheduleParameters(mUnit, &event, 1), noErr);
    ASSERT_EQ(AudioUnitInitialize(mUnit), noErr);
    ASSERT_EQ(Render(), noErr);
    for (UInt32 i = 0; i < kFrames; ++i) {
        Float32 gain = i < 3 ? 0.5f : -2.0f;
        EXPECT_EQ(mSamples[i], gain * static_cast<Float32>(i + 1)) << "frame " << i;
    }
    ASSERT_EQ(AudioUnitGetParameter(mUnit, kTestGainParam_Gain, kAudioUnitScope_Global, 0, &value),
              noErr);
    EXPECT_EQ(value, -2.0f);

    ASSERT_EQ(AudioUnitReset(mUnit, kAudioUnitScope_Global, 0), noErr);
    ASSERT_EQ(AudioUnitReset(mUnit, kAudioUnitScope_Global, 0), noErr);
    UInt32 resets = 0;
    UInt32 size = sizeof(resets);
    ASSERT_EQ(AudioUnitGetProperty(mUnit, kTestGainProperty_ResetCount, kAudioUnitScope_Global, 0,
                                   &resets, &size),
              noErr);
    EXPECT_EQ(resets, 2u);
}

TEST_P(ComponentInstanceRecordTest, RenderPullsInputAndCallsNotificationsAroundIt)
{
    EXPECT_EQ(Render(), kAudioUnitErr_Uninitialized);
    ASSERT_EQ(AudioUnitInitialize(mUnit), noErr);
    ASSERT_EQ(AudioUnitAddRenderNotify(mUnit, RecordNotification, &mHost), noErr);
    ASSERT_EQ(AudioUnitSetParameter(mUnit, kTestGainParam_Gain, kAudioUnitScope_Global, 0, 3.0f, 0),
              noErr);
    ASSERT_EQ(Render(), noErr);
    EXPECT_EQ(mHost.inputCalls, 1);
    for (UInt32 i = 0; i < kFrames; ++i) {
        EXPECT_EQ(mSamples[i], 3.0f * static_cast<Float32>(i + 1));
    }
    EXPECT_EQ(mHost.notifications,
              (std::vector<AudioUnitRenderActionFlags>{kAudioUnitRenderAction_PreRender,
                                                       kAudioUnitRenderAction_PostRender}));

    ASSERT_EQ(AudioUnitRemoveRenderNotify(mUnit, RecordNotification, &mHost), noErr);
    ASSERT_EQ(Render(4), noErr);
    EXPECT_EQ(mHost.notifications.size(), 2u);
    EXPECT_EQ(Render(2000), kAudioUnitErr_TooManyFramesToProcess);

    ASSERT_EQ(AudioUnitUninitialize(mUnit), noErr);
    EXPECT_EQ(Render(), kAudioUnitErr_Uninitialized);
    EXPECT_EQ(AudioUnitRender(mUnit, nullptr, nullptr, 0, kFrames, &mBufferList), paramErr);
}

TEST_P(ComponentInstanceRecordTest, RoutedRendersAllocateNothing)
{
    ASSERT_EQ(AudioUnitInitialize(mUnit), noErr);
    ASSERT_EQ(Render(), noErr);
    long before = gAllocations.load();
    for (UInt32 frames : {1u, 3u, 8u}) {
        AudioUnitParameterValue value = 0;
        ASSERT_EQ(
            AudioUnitSetParameter(mUnit, kTestGainParam_Gain, kAudioUnitScope_Global, 0, 0.25f, 0),
            noErr);
        ASSERT_EQ(
            AudioUnitGetParameter(mUnit, kTestGainParam_Gain, kAudioUnitScope_Global, 0, &value),
            noErr);
        ASSERT_EQ(Render(frames), noErr);
    }
    EXPECT_EQ(gAllocations.load(), before);
}

INSTANTIATE_TEST_SUITE_P(OpenWays, ComponentInstanceRecordTest,
                         ::testing::Values(OpenWay::kFactory, OpenWay::kComponentManager,
                                           OpenWay::kEntryOnly),
                         [](const ::testing::TestParamInfo<OpenWay>& info) {
                             switch (info.param) {
                             case OpenWay::kFactory:
                                 return "Factory";
                             case OpenWay::kComponentManager:
                                 return "ComponentManager";
                             default:
                                 return "EntryOnly";
                             }
                         });

class AudioComponentLookupTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite() { RegisterTestBundleOnly(); }
};

std::vector<OSType> AudioComponentSubtypes()
{
    std::vector<OSType> subtypes;
    AudioComponentDescription search = {kAudioUnitType_Effect, 0, kTestGainManufacturer, 0, 0};
    for (AudioComponent c = AudioComponentFindNext(nullptr, &search); c != nullptr;
         c = AudioComponentFindNext(c, &search)) {
        AudioComponentDescription description;
        EXPECT_EQ(AudioComponentGetDescription(c, &description), noErr);
        subtypes.push_back(description.componentSubType);
    }
    return subtypes;
}

std::vector<OSType> ComponentManagerSubtypes()
{
    std::vector<OSType> subtypes;
    ComponentDescription search = {kAudioUnitType_Effect, 0, kTestGainManufacturer, 0, 0};
    for (Component c = FindNextComponent(nullptr, &search); c != nullptr;
         c = FindNextComponent(c, &search)) {
        ComponentDescription description;
        EXPECT_EQ(GetComponentInfo(c, &description, nullptr, nullptr, nullptr), noErr);
        subtypes.push_back(description.componentSubType);
    }
    return subtypes;
}

TEST_F(AudioComponentLookupTest, BundleComponentsAreListedByBothApisInBundleOrder)
{
    // Entries naming a missing symbol or a malformed code are left out; the
    // Component Manager lists only components with an entry function.
    EXPECT_EQ(AudioComponentSubtypes(),
              (std::vector<OSType>{kTestGainSubtype, kTestGainFactoryOnly, kTestGainEntryOnly,
                                   kTestGainFailing, kTestGainNoRecord}));
    EXPECT_EQ(ComponentManagerSubtypes(),
              (std::vector<OSType>{kTestGainSubtype, kTestGainEntryOnly, kTestGainFailing}));
    AudioComponentDescription search = {kAudioUnitType_Effect, 0, kTestGainManufacturer, 0, 0};
    EXPECT_EQ(AudioComponentCount(&search), 5u);

    AudioComponentDescription gain = Describe(kTestGainSubtype);
    AudioComponent component = AudioComponentFindNext(nullptr, &gain);
    ASSERT_NE(component, nullptr);
    CFStringRef name = nullptr;
    ASSERT_EQ(AudioComponentCopyName(component, &name), noErr);
    char text[64] = {};
    ASSERT_TRUE(CFStringGetCString(name, text, sizeof(text), kCFStringEncodingUTF8));
    EXPECT_STREQ(text, "Vandrel Tests: Gain");
    CFRelease(name);
    UInt32 version = 0;
    ASSERT_EQ(AudioComponentGetVersion(component, &version), noErr);
    EXPECT_EQ(version, static_cast<UInt32>(kTestGainVersion));

    // A flag mask that the registered flags (0) cannot meet matches nothing.
    AudioComponentDescription flagged = gain;
    flagged.componentFlags = 1;
    flagged.componentFlagsMask = 1;
    EXPECT_EQ(AudioComponentFindNext(nullptr, &flagged), nullptr);
}

TEST_F(AudioComponentLookupTest, FailedOpenLeavesNoInstanceInEitherStyle)
{
    AudioComponentDescription failing = Describe(kTestGainFailing);
    AudioComponent component = AudioComponentFindNext(nullptr, &failing);
    ASSERT_NE(component, nullptr);
    AudioComponentInstance instance = reinterpret_cast<AudioComponentInstance>(&failing);
    EXPECT_EQ(AudioComponentInstanceNew(component, &instance), kAudioUnitErr_FailedInitialization);
    EXPECT_EQ(instance, nullptr);

    ComponentInstance ci = reinterpret_cast<ComponentInstance>(&failing);
    EXPECT_EQ(OpenAComponent(reinterpret_cast<Component>(component), &ci),
              kAudioUnitErr_FailedInitialization);
    EXPECT_EQ(ci, nullptr);

    // A factory without a record to give reports a lack of memory.
    AudioComponentDescription noRecord = Describe(kTestGainNoRecord);
    component = AudioComponentFindNext(nullptr, &noRecord);
    ASSERT_NE(component, nullptr);
    EXPECT_EQ(AudioComponentInstanceNew(component, &instance), memFullErr);
    EXPECT_EQ(instance, nullptr);
}

TEST_F(AudioComponentLookupTest, BadHandlesAreRefusedWithoutCrashing)
{
    int notAHandle = 0;
    AudioComponent bogus = reinterpret_cast<AudioComponent>(&notAHandle);
    AudioComponentInstance instance = nullptr;
    AudioComponentDescription description;
    CFStringRef name = nullptr;
    EXPECT_EQ(AudioComponentInstanceNew(bogus, &instance), paramErr);
    EXPECT_EQ(AudioComponentInstanceNew(nullptr, &instance), paramErr);
    EXPECT_EQ(AudioComponentGetDescription(bogus, &description), paramErr);
    EXPECT_EQ(AudioComponentCopyName(bogus, &name), paramErr);
    EXPECT_EQ(AudioComponentFindNext(bogus, nullptr), nullptr);
    EXPECT_EQ(
        GetComponentInfo(reinterpret_cast<Component>(bogus), nullptr, nullptr, nullptr, nullptr),
        invalidComponentID);
    EXPECT_EQ(AudioComponentInstanceDispose(nullptr), paramErr);
    EXPECT_EQ(AudioUnitInitialize(nullptr), paramErr);
    EXPECT_EQ(AudioUnitRender(nullptr, nullptr, nullptr, 0, 0, nullptr), paramErr);
    EXPECT_EQ(GetComponentInstanceStorage(nullptr), nullptr);

    // A factory-only component cannot be opened through the Component Manager.
    AudioComponentDescription factoryOnly = Describe(kTestGainFactoryOnly);
    AudioComponent component = AudioComponentFindNext(nullptr, &factoryOnly);
    ASSERT_NE(component, nullptr);
    ComponentInstance ci = nullptr;
    EXPECT_EQ(OpenAComponent(reinterpret_cast<Component>(component), &ci), invalidComponentID);

    // Disposing twice: the second call is refused.
    ASSERT_EQ(AudioComponentInstanceNew(component, &instance), noErr);
    EXPECT_EQ(CloseComponent(instance), noErr);
    EXPECT_EQ(AudioComponentInstanceDispose(instance), paramErr);
}

} // namespace
