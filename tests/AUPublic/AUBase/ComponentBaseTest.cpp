// The component root: the open mutex and opening style, the base selectors,
// both open paths with their failure clean-up, and the component description
// looked up through the runtime.
#include "DispatchTestUnit.h"

#include <gtest/gtest.h>

#include <malloc.h>

#include <atomic>
#include <thread>
#include <vector>

AU_EXPORT_COMPONENT_ENTRIES(DispatchTestUnit, DispatchTestEntry, DispatchTestFactory)

namespace {

// Bytes the process has allocated with malloc and not freed; under the
// address sanitizer this reads 0 and the leak checker takes over.
size_t AllocatedBytes()
{
    return mallinfo2().uordblks;
}

class FailureFlags : public ::testing::Test
{
protected:
    void TearDown() override
    {
        DispatchTestUnit::sThrowInConstructor = false;
        DispatchTestUnit::sThrowInPostConstructor = false;
    }
};

TEST(ComponentInitLockerTest, NestsOnOneThreadAndRestoresTheOpeningStyle)
{
    EXPECT_EQ(UInt32(ComponentBase::kComponentMgrInstance), ComponentBase::sNewInstanceType);
    {
        ComponentInitLocker outer(ComponentBase::kAudioComponentInstance);
        EXPECT_EQ(UInt32(ComponentBase::kAudioComponentInstance), ComponentBase::sNewInstanceType);
        {
            ComponentInitLocker inner(ComponentBase::kComponentMgrInstance);
            EXPECT_EQ(UInt32(ComponentBase::kComponentMgrInstance),
                      ComponentBase::sNewInstanceType);
        }
        EXPECT_EQ(UInt32(ComponentBase::kAudioComponentInstance), ComponentBase::sNewInstanceType);
    }
    EXPECT_EQ(UInt32(ComponentBase::kComponentMgrInstance), ComponentBase::sNewInstanceType);
}

TEST(ComponentInitLockerTest, ConcurrentHoldersAreSerialized)
{
    std::atomic<int> inside{0};
    std::atomic<int> overlaps{0};
    UInt32 typesSeen = 0;
    auto work = [&](UInt32 inType) {
        for (int i = 0; i < 200; ++i) {
            ComponentInitLocker locker(inType);
            if (inside.fetch_add(1) != 0) {
                ++overlaps;
            }
            typesSeen |= 1U << ComponentBase::sNewInstanceType;
            std::this_thread::yield();
            inside.fetch_sub(1);
        }
    };
    std::thread first(work, UInt32(ComponentBase::kAudioComponentInstance));
    std::thread second(work, UInt32(ComponentBase::kComponentMgrInstance));
    first.join();
    second.join();
    EXPECT_EQ(0, overlaps.load());
    EXPECT_EQ(3U, typesSeen);
    EXPECT_EQ(UInt32(ComponentBase::kComponentMgrInstance), ComponentBase::sNewInstanceType);
}

TEST(ComponentBaseTest, BaseSelectorsAnswerVersionCanDoAndClose)
{
    struct PlainComponent : ComponentBase
    {
        explicit PlainComponent(int* inLive, int* inPreDestructed)
            : ComponentBase(nullptr), mLive(inLive), mPreDestructed(inPreDestructed)
        {
            ++*mLive;
        }
        ~PlainComponent() override { --*mLive; }
        void PreDestructor() override { ++*mPreDestructed; }
        int* mLive;
        int* mPreDestructed;
    };
    int live = 0;
    int preDestructed = 0;
    auto* component = new PlainComponent(&live, &preDestructed);
    EXPECT_EQ(1, component->Version());

    ComponentParameters params = {};
    auto dispatch = [&](SInt16 inSelector, long inSlot1 = 0) {
        struct
        {
            ComponentParameters header;
            long slot1;
        } block = {};
        block.header.what = inSelector;
        block.header.params[0] = 0;
        block.slot1 = inSlot1;
        return ComponentBase::ComponentEntryDispatch(&block.header, component);
    };
    EXPECT_EQ(1, dispatch(kComponentVersionSelect));
    for (SInt16 selector : {-1, -2, -3, -4}) {
        EXPECT_EQ(1, dispatch(kComponentCanDoSelect, UInt16(selector))) << selector;
    }
    for (SInt16 selector : {-5, 0, 1, 14}) {
        EXPECT_EQ(0, dispatch(kComponentCanDoSelect, UInt16(selector))) << selector;
    }
    EXPECT_EQ(badComponentSelector, dispatch(1));
    EXPECT_EQ(badComponentSelector, dispatch(kComponentOpenSelect));
    params.what = kComponentVersionSelect;
    EXPECT_EQ(paramErr, ComponentBase::ComponentEntryDispatch(&params, nullptr));

    EXPECT_EQ(noErr, dispatch(kComponentCloseSelect));
    EXPECT_EQ(1, preDestructed);
    EXPECT_EQ(0, live) << "close deletes the object";
}

TEST(ComponentBaseTest, SelectorForCanDoIsTheSignedLowHalfOfSlotOne)
{
    struct
    {
        ComponentParameters header;
        long slot1;
    } block = {};
    block.header.what = kComponentCanDoSelect;
    block.slot1 = 0x7777FFFE;
    EXPECT_EQ(-2, ComponentBase::GetSelectorForCanDo(&block.header));
    block.slot1 = 14;
    EXPECT_EQ(14, ComponentBase::GetSelectorForCanDo(&block.header));
    block.header.what = kComponentVersionSelect;
    EXPECT_EQ(0, ComponentBase::GetSelectorForCanDo(&block.header));
}

using Factory = APFactory<AUBaseLookup, DispatchTestUnit>;

TEST_F(FailureFlags, FactoryOpenBuildsInPlaceAndCloseTearsDown)
{
    AudioComponentPlugInInterface* record = Factory::Factory(nullptr);
    ASSERT_NE(nullptr, record);
    const int preDestructed = DispatchTestUnit::sPreDestructorCalls;
    auto instance = reinterpret_cast<AudioComponentInstance>(0x1234);
    ASSERT_EQ(noErr, record->Open(record, instance));
    DispatchTestUnit* unit = DispatchTestUnit::sLastConstructed;
    EXPECT_EQ(AudioComponentPlugInInstanceStorage(record), static_cast<void*>(unit));
    EXPECT_EQ(UInt32(ComponentBase::kAudioComponentInstance),
              DispatchTestUnit::sTypeSeenByConstructor);
    EXPECT_EQ(UInt32(ComponentBase::kAudioComponentInstance), unit->GetInstanceType());
    EXPECT_EQ(instance, unit->GetComponentInstance());
    EXPECT_EQ(UInt32(ComponentBase::kComponentMgrInstance), ComponentBase::sNewInstanceType);
    EXPECT_EQ(1, DispatchTestUnit::sLiveObjects);
    EXPECT_EQ(noErr, record->Close(record));
    EXPECT_EQ(preDestructed + 1, DispatchTestUnit::sPreDestructorCalls);
    EXPECT_EQ(0, DispatchTestUnit::sLiveObjects);
    EXPECT_EQ(paramErr, ComponentBase::AP_Open(nullptr, instance));
    EXPECT_EQ(paramErr, ComponentBase::AP_Close(nullptr));
}

TEST_F(FailureFlags, FailedFactoryOpenReleasesTheRecord)
{
    auto failedOpen = [](bool inConstructor) {
        DispatchTestUnit::sThrowInConstructor = inConstructor;
        DispatchTestUnit::sThrowInPostConstructor = !inConstructor;
        AudioComponentPlugInInterface* record = Factory::Factory(nullptr);
        return record == nullptr ? OSStatus(noErr) : record->Open(record, nullptr);
    };
    // One round first, so that what the process sets up once (for the first
    // construction, the first exception thrown) is not counted.
    failedOpen(true);
    failedOpen(false);
    const int preDestructed = DispatchTestUnit::sPreDestructorCalls;
    for (bool inConstructor : {true, false}) {
        const size_t before = AllocatedBytes();
        EXPECT_EQ(inConstructor ? OSStatus(kAudioUnitErr_FailedInitialization)
                                : OSStatus(memFullErr),
                  failedOpen(inConstructor));
        EXPECT_EQ(before, AllocatedBytes()) << "record and elements released";
        EXPECT_EQ(0, DispatchTestUnit::sLiveObjects);
        EXPECT_EQ(UInt32(ComponentBase::kComponentMgrInstance), ComponentBase::sNewInstanceType);
    }
    EXPECT_EQ(preDestructed, DispatchTestUnit::sPreDestructorCalls) << "never became usable";
}

class OpenPathTest : public FailureFlags, public ::testing::WithParamInterface<OpenStyle>
{
};

TEST_P(OpenPathTest, FailedOpenThroughTheRuntimeLeavesNothing)
{
    const int preDestructed = DispatchTestUnit::sPreDestructorCalls;
    for (bool inConstructor : {true, false}) {
        DispatchTestUnit::sThrowInConstructor = inConstructor;
        DispatchTestUnit::sThrowInPostConstructor = !inConstructor;
        OSStatus status = noErr;
        EXPECT_EQ(nullptr, OpenDispatchTestUnit(GetParam(), &status));
        EXPECT_EQ(inConstructor ? OSStatus(kAudioUnitErr_FailedInitialization)
                                : OSStatus(memFullErr),
                  status);
        EXPECT_EQ(0, DispatchTestUnit::sLiveObjects);
    }
    EXPECT_EQ(preDestructed, DispatchTestUnit::sPreDestructorCalls);
}

TEST_P(OpenPathTest, OpenedUnitKnowsItsStyleAndDescription)
{
    AudioUnit unit = OpenDispatchTestUnit(GetParam());
    ASSERT_NE(nullptr, unit);
    DispatchTestUnit* object = DispatchTestUnit::sLastConstructed;
    ASSERT_NE(nullptr, object);
    const UInt32 expectedType = GetParam() == OpenStyle::kFactory
                                    ? ComponentBase::kAudioComponentInstance
                                    : ComponentBase::kComponentMgrInstance;
    EXPECT_EQ(expectedType, object->GetInstanceType());
    EXPECT_EQ(expectedType, DispatchTestUnit::sTypeSeenByConstructor);
    EXPECT_EQ(unit, object->GetComponentInstance());
    if (GetParam() == OpenStyle::kEntryPoint) {
        EXPECT_EQ(static_cast<void*>(static_cast<AUBase*>(object)),
                  static_cast<void*>(CMgr_GetComponentInstanceStorage(unit)));
    }
    const AudioComponentDescription description = object->GetComponentDescription();
    EXPECT_EQ(OSType(kAudioUnitType_Effect), description.componentType);
    EXPECT_EQ(kDispatchTestSubtype, description.componentSubType);
    EXPECT_EQ(kDispatchTestManufacturer, description.componentManufacturer);
    EXPECT_EQ(noErr, AudioComponentInstanceDispose(unit));
    EXPECT_EQ(0, DispatchTestUnit::sLiveObjects);
}

INSTANTIATE_TEST_SUITE_P(BothStyles, OpenPathTest,
                         ::testing::Values(OpenStyle::kFactory, OpenStyle::kEntryPoint),
                         [](const ::testing::TestParamInfo<OpenStyle>& info) {
                             return StyleName(info.param);
                         });

TEST(ComponentDescriptionTest, UnknownInstancesDescribeAsZero)
{
    for (UInt32 type : {UInt32(ComponentBase::kAudioComponentInstance),
                        UInt32(ComponentBase::kComponentMgrInstance)}) {
        ComponentInitLocker locker(type);
        DispatchTestUnit orphan(nullptr);
        const AudioComponentDescription description = orphan.GetComponentDescription();
        EXPECT_EQ(0U, description.componentType);
        EXPECT_EQ(0U, description.componentSubType);
        EXPECT_EQ(0U, description.componentManufacturer);
        EXPECT_EQ(0U, description.componentFlags);
        EXPECT_EQ(0U, description.componentFlagsMask);
    }
    EXPECT_EQ(nullptr, CMgr_GetComponentInstanceStorage(nullptr));
}

} // namespace
