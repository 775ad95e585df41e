/* Every host call reaches the test unit with its arguments intact,
   whichever way the instance was opened, and the runtime answers the
   component questions a plug-in asks about itself. */
#include <AudioUnit/AudioUnit.h>
#include <CoreServices/CoreServices.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "AllocationCounter.h"
#include "TestGainUnit.h"

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

// A call argument the way the unit records it.
template <typename T> UInt64 Slot(T value)
{
    static_assert(sizeof(T) == 4 || sizeof(T) == 8, "32-bit values and pointers");
    UInt64 slot = 0;
    std::memcpy(&slot, &value, sizeof(T));
    return slot;
}

OSStatus RenderNotifyProc(void*, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32, UInt32,
                          AudioBufferList*)
{
    return noErr;
}

void PropertyListenerProc(void*, AudioUnit, AudioUnitPropertyID, AudioUnitScope, AudioUnitElement)
{
}

enum class OpenWay
{
    kFactory,          // AudioComponentInstanceNew on a component with a factory
    kComponentManager, // OpenAComponent
    kEntryOnly         // AudioComponentInstanceNew on an entry-only component
};

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

    TestGainCall LastCall()
    {
        TestGainCall call = {};
        UInt32 size = sizeof(call);
        EXPECT_EQ(AudioUnitGetProperty(mUnit, kTestGainProperty_LastCall, kAudioUnitScope_Global, 0,
                                       &call, &size),
                  noErr);
        return call;
    }

    AudioComponent mComponent = nullptr;
    AudioUnit mUnit = nullptr;
    Float32 mSamples[kFrames] = {};
    AudioBufferList mBufferList = {};
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
    EXPECT_EQ(storage != nullptr, GetParam() != OpenWay::kFactory);
}

// Every host call reaches the unit under its selector with every argument
// in its place, and the unit's status comes back to the host.
TEST_P(ComponentInstanceRecordTest, EveryCallReachesTheUnitWithItsArguments)
{
    UInt32 size = 0;
    Boolean writable = true;
    UInt32 value = 7;
    UInt32 tooSmall = sizeof(value);
    AudioUnitParameterValue parameter = 0;
    AudioUnitRenderActionFlags flags = 0;
    AudioTimeStamp time = {};
    AudioUnitParameterEvent events[2] = {};
    int refCon = 0;
    const struct
    {
        SInt16 mWhat;
        OSStatus mStatus;
        std::function<OSStatus()> mCall;
        std::vector<UInt64> mArgs;
    } calls[] = {
        {kAudioUnitInitializeSelect, noErr, [&] { return AudioUnitInitialize(mUnit); }, {}},
        {kAudioUnitUninitializeSelect, noErr, [&] { return AudioUnitUninitialize(mUnit); }, {}},
        {kAudioUnitGetPropertyInfoSelect,
         noErr,
         [&] {
             return AudioUnitGetPropertyInfo(mUnit, kTestGainProperty_Storage, 1, 2, &size,
                                             &writable);
         },
         {kTestGainProperty_Storage, 1, 2, Slot(&size), Slot(&writable)}},
        {kAudioUnitGetPropertyInfoSelect,
         kAudioUnitErr_InvalidProperty,
         [&] {
             return AudioUnitGetPropertyInfo(mUnit, kAudioUnitProperty_CocoaUI, 3, 4, nullptr,
                                             nullptr);
         },
         {kAudioUnitProperty_CocoaUI, 3, 4, 0, 0}},
        {kAudioUnitGetPropertySelect,
         paramErr,
         [&] {
             return AudioUnitGetProperty(mUnit, kTestGainProperty_Storage, 5, 6, &value, &tooSmall);
         },
         {kTestGainProperty_Storage, 5, 6, Slot(&value), Slot(&tooSmall)}},
        {kAudioUnitSetPropertySelect,
         noErr,
         [&] {
             return AudioUnitSetProperty(mUnit, kAudioUnitProperty_MaximumFramesPerSlice, 7, 8,
                                         &value, 0xFFFFFFF0u);
         },
         {kAudioUnitProperty_MaximumFramesPerSlice, 7, 8, Slot(&value), 0xFFFFFFF0u}},
        {kAudioUnitGetParameterSelect,
         noErr,
         [&] { return AudioUnitGetParameter(mUnit, 9, 10, 11, &parameter); },
         {9, 10, 11, Slot(&parameter)}},
        {kAudioUnitSetParameterSelect,
         noErr,
         [&] { return AudioUnitSetParameter(mUnit, 12, 13, 14, -0.5f, 15); },
         {12, 13, 14, Slot(-0.5f), 15}},
        {kAudioUnitResetSelect, noErr, [&] { return AudioUnitReset(mUnit, 16, 17); }, {16, 17}},
        {kAudioUnitAddPropertyListenerSelect,
         noErr,
         [&] { return AudioUnitAddPropertyListener(mUnit, 18, PropertyListenerProc, &refCon); },
         {18, Slot(&PropertyListenerProc), Slot(&refCon)}},
        {kAudioUnitRemovePropertyListenerWithUserDataSelect,
         noErr,
         [&] {
             return AudioUnitRemovePropertyListenerWithUserData(mUnit, 19, PropertyListenerProc,
                                                                &refCon);
         },
         {19, Slot(&PropertyListenerProc), Slot(&refCon)}},
        {kAudioUnitRenderSelect,
         noErr,
         [&] { return AudioUnitRender(mUnit, &flags, &time, 20, kFrames, &mBufferList); },
         {Slot(&flags), Slot(&time), 20, kFrames, Slot(&mBufferList)}},
        {kAudioUnitAddRenderNotifySelect,
         noErr,
         [&] { return AudioUnitAddRenderNotify(mUnit, RenderNotifyProc, &refCon); },
         {Slot(&RenderNotifyProc), Slot(&refCon)}},
        {kAudioUnitRemoveRenderNotifySelect,
         noErr,
         [&] { return AudioUnitRemoveRenderNotify(mUnit, RenderNotifyProc, &refCon); },
         {Slot(&RenderNotifyProc), Slot(&refCon)}},
        {kAudioUnitScheduleParametersSelect,
         noErr,
         [&] { return AudioUnitScheduleParameters(mUnit, events, 2); },
         {Slot(&events[0]), 2}},
    };
    for (const auto& c : calls) {
        EXPECT_EQ(c.mCall(), c.mStatus) << "selector " << c.mWhat;
        TestGainCall call = LastCall();
        EXPECT_EQ(call.mWhat, c.mWhat);
        std::vector<UInt64> expected = c.mArgs;
        expected.resize(5, 0);
        EXPECT_EQ(std::vector<UInt64>(call.mArgs, call.mArgs + 5), expected)
            << "selector " << c.mWhat;
    }
    EXPECT_EQ(size, sizeof(void*)) << "the unit's answer reached the host";
    EXPECT_FALSE(writable);
}

TEST_P(ComponentInstanceRecordTest, RoutedRendersAllocateNothing)
{
    ASSERT_EQ(AudioUnitInitialize(mUnit), noErr);
    AudioUnitRenderActionFlags flags = 0;
    AudioTimeStamp time = {};
    long before = allocationcounter::Allocations();
    for (UInt32 frames : {1u, 3u, 8u}) {
        AudioUnitParameterValue value = 0;
        ASSERT_EQ(
            AudioUnitSetParameter(mUnit, kTestGainParam_Gain, kAudioUnitScope_Global, 0, 0.25f, 0),
            noErr);
        ASSERT_EQ(
            AudioUnitGetParameter(mUnit, kTestGainParam_Gain, kAudioUnitScope_Global, 0, &value),
            noErr);
        ASSERT_EQ(AudioUnitRender(mUnit, &flags, &time, 0, frames, &mBufferList), noErr);
    }
    EXPECT_EQ(allocationcounter::Allocations(), before);
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
