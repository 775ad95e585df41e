// The factory's instance record and the methods its Lookup hands out, called
// directly as the runtime calls them (record as `self`, the host call's
// arguments after it): what the runtime-driven dispatch tests cannot reach.
#include "BufferListStorage.h"
#include "DispatchTestUnit.h"

#include <gtest/gtest.h>

AU_EXPORT_COMPONENT_ENTRIES(DispatchTestUnit, DispatchTestEntry, DispatchTestFactory)

namespace {

template <typename Proc> Proc Method(SInt16 inSelector)
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
        EXPECT_EQ(implemented, AUBaseLookup::Lookup(selector) != nullptr)
            << "selector " << selector;
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

class PluginMethodTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        mRecord = DispatchTestFactory(nullptr);
        ASSERT_NE(nullptr, mRecord);
        ASSERT_EQ(noErr, mRecord->Open(mRecord, nullptr));
        mObject = DispatchTestUnit::sLastConstructed;
        ASSERT_NE(nullptr, mObject);
        mList = &mListStorage.List();
        for (UInt32 b = 0; b < 2; ++b) {
            mList->mBuffers[b] = {1, 32 * 4, mSamples[b]};
        }
    }

    void TearDown() override { EXPECT_EQ(noErr, mRecord->Close(mRecord)); }

    AudioComponentPlugInInterface* mRecord = nullptr;
    DispatchTestUnit* mObject = nullptr;
    BufferListStorage mListStorage{2};
    AudioBufferList* mList = nullptr;
    Float32 mSamples[2][32] = {};
};

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

// The runtime's factory-style calls exercise every method with a real record
// (see the dispatch tests); what only a direct call can show is the refusal of
// a null record.
TEST_F(PluginMethodTest, MethodsRefuseANullRecord)
{
    for (SInt16 selector : {1, 2}) {
        EXPECT_EQ(paramErr, Method<AudioUnitInitializeProc>(selector)(nullptr));
    }
    Float32 value = 0;
    EXPECT_EQ(paramErr, Method<AudioUnitGetParameterProc>(kAudioUnitGetParameterSelect)(
                            nullptr, 0, kAudioUnitScope_Global, 0, &value));
    const AudioTimeStamp stamp = SampleTimeStamp(0);
    EXPECT_EQ(paramErr, Method<AudioUnitRenderProc>(kAudioUnitRenderSelect)(nullptr, nullptr,
                                                                            &stamp, 0, 32, mList));
}

} // namespace
