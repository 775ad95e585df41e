// The factory's instance record and the methods its Lookup hands out, called
// directly as the runtime calls them (record as `self`, the host call's
// arguments after it).
#include "DispatchTestUnit.h"

#include <gtest/gtest.h>

#include <vector>

AU_EXPORT_COMPONENT_ENTRIES(DispatchTestUnit, DispatchTestEntry, DispatchTestFactory)

namespace {

template <typename Proc>
Proc Method(SInt16 inSelector)
{
    return reinterpret_cast<Proc>(AUBaseLookup::Lookup(inSelector));
}

AudioTimeStamp SampleTimeStamp(Float64 inSampleTime)
{
    AudioTimeStamp stamp = {};
    stamp.mSampleTime = inSampleTime;
    stamp.mFlags = kAudioTimeStampSampleTimeValid;
    return stamp;
}

TEST(AUBaseLookupTest, HandsOutMethodsForTheAudioUnitSelectorsOnly)
{
    for (SInt16 selector = -6; selector <= 24; ++selector) {
        const bool implemented = (selector >= 1 && selector <= 7) || selector == 9 ||
                                 selector == 10 || (selector >= 14 && selector <= 18);
        EXPECT_EQ(implemented, AUBaseLookup::Lookup(selector) != nullptr) << "selector " << selector;
    }
    EXPECT_EQ(nullptr, AUBaseLookup::Lookup(kAudioUnitRemovePropertyListenerSelect));
}

TEST(APFactoryTest, RecordHoldsTheInterfaceAndTheUnitsConstructors)
{
    AudioComponentPlugInInterface* interface = DispatchTestFactory(nullptr);
    ASSERT_NE(nullptr, interface);
    auto* record = reinterpret_cast<AudioComponentPlugInInstance*>(interface);
    EXPECT_EQ(&ComponentBase::AP_Open, interface->Open);
    EXPECT_EQ(&ComponentBase::AP_Close, interface->Close);
    EXPECT_EQ(&AUBaseLookup::Lookup, interface->Lookup);
    EXPECT_EQ(nullptr, interface->reserved);
    EXPECT_EQ((&APFactory<AUBaseLookup, DispatchTestUnit>::Construct), record->mConstruct);
    EXPECT_EQ((&APFactory<AUBaseLookup, DispatchTestUnit>::Destruct), record->mDestruct);
    EXPECT_EQ(nullptr, record->mPad[0]);
    EXPECT_EQ(nullptr, record->mPad[1]);
    EXPECT_EQ(nullptr, record->mConstruct(nullptr, nullptr));
    ASSERT_EQ(noErr, interface->Open(interface, nullptr));
    EXPECT_EQ(noErr, interface->Close(interface));
}

class PluginMethodTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        mRecord = DispatchTestFactory(nullptr);
        ASSERT_NE(nullptr, mRecord);
        ASSERT_EQ(noErr, mRecord->Open(mRecord, nullptr));
        mObject = DispatchTestUnit::sLastConstructed;
        ASSERT_NE(nullptr, mObject);
        mList = reinterpret_cast<AudioBufferList*>(mListStorage.data());
        mList->mNumberBuffers = 2;
        for (UInt32 b = 0; b < 2; ++b) {
            mList->mBuffers[b] = {1, 32 * 4, mSamples[b]};
        }
    }

    void TearDown() override { EXPECT_EQ(noErr, mRecord->Close(mRecord)); }

    AudioComponentPlugInInterface* mRecord = nullptr;
    DispatchTestUnit* mObject = nullptr;
    std::vector<UInt8> mListStorage =
        std::vector<UInt8>(offsetof(AudioBufferList, mBuffers) + 2 * sizeof(AudioBuffer));
    AudioBufferList* mList = nullptr;
    Float32 mSamples[2][32] = {};
};

TEST_F(PluginMethodTest, MethodsWorkOnTheUnitInsideTheRecord)
{
    auto setParameter = Method<AudioUnitSetParameterProc>(kAudioUnitSetParameterSelect);
    auto getParameter = Method<AudioUnitGetParameterProc>(kAudioUnitGetParameterSelect);
    ASSERT_EQ(noErr, setParameter(mRecord, 0, kAudioUnitScope_Global, 0, 1.5f, 0));
    EXPECT_EQ(1.5f, mObject->Globals()->GetParameter(0));
    Float32 value = 0;
    ASSERT_EQ(noErr, getParameter(mRecord, 0, kAudioUnitScope_Global, 0, &value));
    EXPECT_EQ(1.5f, value);
    EXPECT_EQ(paramErr, getParameter(mRecord, 0, kAudioUnitScope_Global, 0, nullptr));
    EXPECT_EQ(kAudioUnitErr_InvalidScope, getParameter(mRecord, 0, 9, 0, &value));

    auto getPropertyInfo = Method<AudioUnitGetPropertyInfoProc>(kAudioUnitGetPropertyInfoSelect);
    auto getProperty = Method<AudioUnitGetPropertyProc>(kAudioUnitGetPropertySelect);
    auto setProperty = Method<AudioUnitSetPropertyProc>(kAudioUnitSetPropertySelect);
    UInt32 size = 0;
    Boolean writable = false;
    ASSERT_EQ(noErr, getPropertyInfo(mRecord, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input,
                                     0, &size, &writable));
    EXPECT_EQ(40U, size);
    EXPECT_TRUE(writable);
    UInt32 frames = 333;
    ASSERT_EQ(noErr, setProperty(mRecord, kAudioUnitProperty_MaximumFramesPerSlice,
                                 kAudioUnitScope_Global, 0, &frames, sizeof frames));
    frames = 0;
    size = sizeof frames;
    ASSERT_EQ(noErr, getProperty(mRecord, kAudioUnitProperty_MaximumFramesPerSlice,
                                 kAudioUnitScope_Global, 0, &frames, &size));
    EXPECT_EQ(333U, frames);
    EXPECT_EQ(paramErr, setProperty(mRecord, kAudioUnitProperty_MaximumFramesPerSlice,
                                    kAudioUnitScope_Global, 0, nullptr, 4));

    auto initialize = Method<AudioUnitInitializeProc>(kAudioUnitInitializeSelect);
    auto uninitialize = Method<AudioUnitUninitializeProc>(kAudioUnitUninitializeSelect);
    ASSERT_EQ(noErr, initialize(mRecord));
    EXPECT_TRUE(mObject->IsInitialized());
    ASSERT_EQ(noErr, uninitialize(mRecord));
    EXPECT_FALSE(mObject->IsInitialized());
}

TEST_F(PluginMethodTest, RenderAndResetLeaveTheRenderTimeToTheUnit)
{
    auto render = Method<AudioUnitRenderProc>(kAudioUnitRenderSelect);
    auto reset = Method<AudioUnitResetProc>(kAudioUnitResetSelect);
    const AudioTimeStamp stamp = SampleTimeStamp(640);
    EXPECT_EQ(paramErr, render(mRecord, nullptr, nullptr, 0, 32, mList));
    EXPECT_EQ(paramErr, render(mRecord, nullptr, &stamp, 0, 32, nullptr));
    EXPECT_EQ(noErr, mObject->LastRenderErrorForTest()) << "the unit never saw those calls";
    ASSERT_EQ(noErr, Method<AudioUnitInitializeProc>(kAudioUnitInitializeSelect)(mRecord));
    ASSERT_EQ(noErr, render(mRecord, nullptr, &stamp, 0, 32, mList));
    EXPECT_EQ(640.0, mObject->CurrentRenderTime().mSampleTime);

    mObject->mChainReset = false;
    ASSERT_EQ(noErr, reset(mRecord, kAudioUnitScope_Global, 0));
    EXPECT_EQ(1, mObject->mResetCalls);
    EXPECT_EQ(640.0, mObject->CurrentRenderTime().mSampleTime) << "the method only calls Reset";
    mObject->mChainReset = true;
    ASSERT_EQ(noErr, reset(mRecord, kAudioUnitScope_Global, 0));
    EXPECT_EQ(AUBase::kNoLastRenderedSampleTime, mObject->CurrentRenderTime().mSampleTime);
}

TEST_F(PluginMethodTest, ListenersNotificationsAndScheduledEventsReachTheUnit)
{
    int heard = 0;
    AudioUnitPropertyListenerProc listener = [](void* inRefCon, AudioUnit, AudioUnitPropertyID,
                                                AudioUnitScope, AudioUnitElement) {
        ++*static_cast<int*>(inRefCon);
    };
    auto addListener = Method<AudioUnitAddPropertyListenerProc>(kAudioUnitAddPropertyListenerSelect);
    auto removeListener = Method<AudioUnitRemovePropertyListenerWithUserDataProc>(
        kAudioUnitRemovePropertyListenerWithUserDataSelect);
    ASSERT_EQ(noErr, addListener(mRecord, kAudioUnitProperty_ContextName, listener, &heard));
    CFStringRef name = CFStringCreateWithCString(nullptr, "bus", kCFStringEncodingUTF8);
    auto setProperty = Method<AudioUnitSetPropertyProc>(kAudioUnitSetPropertySelect);
    ASSERT_EQ(noErr, setProperty(mRecord, kAudioUnitProperty_ContextName, kAudioUnitScope_Global, 0,
                                 &name, sizeof name));
    EXPECT_EQ(1, heard);
    ASSERT_EQ(noErr, removeListener(mRecord, kAudioUnitProperty_ContextName, listener, &heard));
    ASSERT_EQ(noErr, setProperty(mRecord, kAudioUnitProperty_ContextName, kAudioUnitScope_Global, 0,
                                 &name, sizeof name));
    EXPECT_EQ(1, heard);
    CFRelease(name);

    int notified = 0;
    AURenderCallback notify = [](void* inRefCon, AudioUnitRenderActionFlags*, const AudioTimeStamp*,
                                 UInt32, UInt32, AudioBufferList*) {
        ++*static_cast<int*>(inRefCon);
        return OSStatus(noErr);
    };
    auto addNotify = Method<AudioUnitAddRenderNotifyProc>(kAudioUnitAddRenderNotifySelect);
    auto removeNotify = Method<AudioUnitRemoveRenderNotifyProc>(kAudioUnitRemoveRenderNotifySelect);
    auto render = Method<AudioUnitRenderProc>(kAudioUnitRenderSelect);
    EXPECT_EQ(paramErr, addNotify(mRecord, nullptr, &notified));
    ASSERT_EQ(noErr, addNotify(mRecord, notify, &notified));
    ASSERT_EQ(noErr, Method<AudioUnitInitializeProc>(kAudioUnitInitializeSelect)(mRecord));
    AudioUnitRenderActionFlags flags = 0;
    AudioTimeStamp stamp = SampleTimeStamp(0);
    ASSERT_EQ(noErr, render(mRecord, &flags, &stamp, 0, 32, mList));
    EXPECT_EQ(2, notified);
    ASSERT_EQ(noErr, removeNotify(mRecord, notify, &notified));
    stamp.mSampleTime = 32;
    ASSERT_EQ(noErr, render(mRecord, &flags, &stamp, 0, 32, mList));
    EXPECT_EQ(2, notified);

    AudioUnitParameterEvent event = {};
    event.parameter = 1;
    event.eventType = kParameterEvent_Immediate;
    event.eventValues.immediate.value = 9.0f;
    ASSERT_EQ(noErr, Method<AudioUnitScheduleParametersProc>(kAudioUnitScheduleParametersSelect)(
                         mRecord, &event, 1));
    EXPECT_EQ(9.0f, mObject->Globals()->GetParameter(1));
}

TEST_F(PluginMethodTest, MethodsConvertEveryExceptionAndRefuseANullRecord)
{
    auto setProperty = Method<AudioUnitSetPropertyProc>(kAudioUnitSetPropertySelect);
    for (UInt32 kind = 0; kind < kThrowKindCount; ++kind) {
        EXPECT_EQ(ExpectedStatus(ThrowKind(kind)),
                  setProperty(mRecord, kThrowProperty, kAudioUnitScope_Global, 0, &kind, sizeof kind))
            << "kind " << kind;
    }
    for (SInt16 selector : {1, 2}) {
        EXPECT_EQ(paramErr, Method<AudioUnitInitializeProc>(selector)(nullptr));
    }
    Float32 value = 0;
    EXPECT_EQ(paramErr, Method<AudioUnitGetParameterProc>(kAudioUnitGetParameterSelect)(
                            nullptr, 0, kAudioUnitScope_Global, 0, &value));
}

}  // namespace
