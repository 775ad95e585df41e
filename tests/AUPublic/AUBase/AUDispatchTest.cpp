// The selector table and the property, render and exception glue, driven the
// way hosts drive them: through the runtime's AudioUnit... calls in both
// hosting styles, and with hand-built parameter blocks straight into the
// component entry point.
#include "BufferListStorage.h"
#include "DispatchTestUnit.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

AU_EXPORT_COMPONENT_ENTRIES(DispatchTestUnit, DispatchTestEntry, DispatchTestFactory)

namespace {

// A parameter block with room for six arguments after the instance slot.
struct ParameterBlock
{
    UInt8 flags = 0;
    UInt8 paramSize = 0;
    SInt16 what = 0;
    UInt32 padding = 0;
    long params[7] = {};

    ComponentParameters* Get() { return reinterpret_cast<ComponentParameters*>(this); }
};
static_assert(offsetof(ParameterBlock, what) == offsetof(ComponentParameters, what), "same header");
static_assert(offsetof(ParameterBlock, params) == offsetof(ComponentParameters, params),
              "same slots");

long Slot(UInt32 inValue)
{
    return static_cast<long>(inValue);
}

template <typename T> long Slot(T* inPointer)
{
    return reinterpret_cast<long>(inPointer);
}

template <typename... Args>
ParameterBlock MakeBlock(SInt16 inSelector, AudioUnit inUnit, Args... inArgs)
{
    ParameterBlock block;
    block.what = inSelector;
    block.paramSize = static_cast<UInt8>(8 * sizeof...(inArgs));
    block.params[0] = reinterpret_cast<long>(inUnit);
    int slot = 1;
    ((block.params[slot++] = Slot(inArgs)), ...);
    return block;
}

AudioTimeStamp SampleTimeStamp(Float64 inSampleTime)
{
    AudioTimeStamp stamp = {};
    stamp.mSampleTime = inSampleTime;
    stamp.mFlags = kAudioTimeStampSampleTimeValid;
    return stamp;
}

// A unit opened through the runtime, closed at the end of the test.
class DispatchTest : public ::testing::TestWithParam<OpenStyle>
{
protected:
    void SetUp() override
    {
        mUnit = OpenDispatchTestUnit(GetParam());
        ASSERT_NE(nullptr, mUnit);
        mObject = DispatchTestUnit::sLastConstructed;
        ASSERT_NE(nullptr, mObject);
        ASSERT_EQ(GetParam() == OpenStyle::kFactory ? ComponentBase::kAudioComponentInstance
                                                    : ComponentBase::kComponentMgrInstance,
                  mObject->GetInstanceType());
    }

    void TearDown() override
    {
        if (mUnit != nullptr) {
            EXPECT_EQ(noErr, AudioComponentInstanceDispose(mUnit));
        }
    }

    // Renders 64 frames of the default stereo format into host memory.
    OSStatus Render(Float64 inSampleTime, AudioUnitRenderActionFlags* ioFlags = nullptr)
    {
        BufferListStorage storage(2);
        AudioBufferList* list = &storage.List();
        for (UInt32 b = 0; b < 2; ++b) {
            list->mBuffers[b] = {1, 64 * 4, mSamples[b]};
        }
        const AudioTimeStamp stamp = SampleTimeStamp(inSampleTime);
        return AudioUnitRender(mUnit, ioFlags, &stamp, 0, 64, list);
    }

    Float64 LastRenderedSampleTime()
    {
        Float64 time = 0;
        UInt32 size = sizeof time;
        EXPECT_EQ(noErr,
                  AudioUnitGetProperty(mUnit, 0x6C727374, kAudioUnitScope_Global, 0, &time, &size));
        return time;
    }

    AudioUnit mUnit = nullptr;
    DispatchTestUnit* mObject = nullptr;
    Float32 mSamples[2][64] = {};
};

TEST_P(DispatchTest, GetPropertyFollowsTheSizeRules)
{
    CAStreamBasicDescription format;
    UInt32 size = sizeof format;
    EXPECT_EQ(paramErr, AudioUnitGetProperty(mUnit, kAudioUnitProperty_StreamFormat,
                                             kAudioUnitScope_Output, 0, &format, nullptr));
    size = 0;
    EXPECT_EQ(paramErr, AudioUnitGetProperty(mUnit, kAudioUnitProperty_StreamFormat,
                                             kAudioUnitScope_Output, 0, &format, &size));

    size = 3;
    EXPECT_EQ(noErr, AudioUnitGetProperty(mUnit, kAudioUnitProperty_StreamFormat,
                                          kAudioUnitScope_Output, 0, nullptr, &size));
    EXPECT_EQ(40U, size) << "a null buffer asks for the size";

    size = 64;
    ASSERT_EQ(noErr, AudioUnitGetProperty(mUnit, kAudioUnitProperty_StreamFormat,
                                          kAudioUnitScope_Output, 0, &format, &size));
    EXPECT_EQ(40U, size);
    EXPECT_EQ(44100.0, format.mSampleRate);

    UInt8 shortBuffer[8];
    std::memset(shortBuffer, 0xEE, sizeof shortBuffer);
    size = 4;
    ASSERT_EQ(noErr, AudioUnitGetProperty(mUnit, kAudioUnitProperty_StreamFormat,
                                          kAudioUnitScope_Output, 0, shortBuffer, &size));
    EXPECT_EQ(4U, size);
    EXPECT_EQ(0, std::memcmp(shortBuffer, &format, 4)) << "the first bytes of the value";
    EXPECT_EQ(0xEE, shortBuffer[4]) << "nothing beyond the caller's size";

    size = 8;
    CFStringRef name = nullptr;
    EXPECT_EQ(kAudioUnitErr_InvalidPropertyValue,
              AudioUnitGetProperty(mUnit, kAudioUnitProperty_ContextName, kAudioUnitScope_Global, 0,
                                   &name, &size));
    EXPECT_EQ(0U, size) << "a failed get reports no bytes";

    size = 8;
    EXPECT_EQ(kAudioUnitErr_InvalidProperty,
              AudioUnitGetProperty(mUnit, 0x7A7A7A7A, kAudioUnitScope_Global, 0, &name, &size));
}

TEST_P(DispatchTest, PropertyInfoWritesBothAnswersWhateverTheResult)
{
    UInt32 size = 0;
    Boolean writable = false;
    ASSERT_EQ(noErr, AudioUnitGetPropertyInfo(mUnit, kAudioUnitProperty_MaximumFramesPerSlice,
                                              kAudioUnitScope_Global, 0, &size, &writable));
    EXPECT_EQ(4U, size);
    EXPECT_TRUE(writable);

    size = 77;
    writable = true;
    EXPECT_EQ(
        kAudioUnitErr_InvalidProperty,
        AudioUnitGetPropertyInfo(mUnit, 0x7A7A7A7A, kAudioUnitScope_Global, 0, &size, &writable));
    EXPECT_EQ(0U, size);
    EXPECT_FALSE(writable);

    EXPECT_EQ(noErr, AudioUnitGetPropertyInfo(mUnit, kAudioUnitProperty_StreamFormat,
                                              kAudioUnitScope_Input, 0, nullptr, nullptr));
}

TEST_P(DispatchTest, SetPropertyWithNullDataRemovesOnlyWithSizeZero)
{
    CFStringRef name = CFStringCreateWithCString(nullptr, "take 3", kCFStringEncodingUTF8);
    ASSERT_EQ(noErr, AudioUnitSetProperty(mUnit, kAudioUnitProperty_ContextName,
                                          kAudioUnitScope_Global, 0, &name, sizeof name));
    CFRelease(name);
    EXPECT_EQ(paramErr, AudioUnitSetProperty(mUnit, kAudioUnitProperty_ContextName,
                                             kAudioUnitScope_Global, 0, nullptr, 4));
    EXPECT_EQ(paramErr, AudioUnitSetProperty(mUnit, kAudioUnitProperty_ContextName,
                                             kAudioUnitScope_Global, 0, &name, 0));

    CFStringRef current = nullptr;
    UInt32 size = sizeof current;
    ASSERT_EQ(noErr, AudioUnitGetProperty(mUnit, kAudioUnitProperty_ContextName,
                                          kAudioUnitScope_Global, 0, &current, &size));
    ASSERT_NE(nullptr, current);
    CFRelease(current);

    ASSERT_EQ(noErr, AudioUnitSetProperty(mUnit, kAudioUnitProperty_ContextName,
                                          kAudioUnitScope_Global, 0, nullptr, 0));
    EXPECT_EQ(kAudioUnitErr_InvalidPropertyValue,
              AudioUnitGetProperty(mUnit, kAudioUnitProperty_ContextName, kAudioUnitScope_Global, 0,
                                   &current, &size))
        << "removed";
}

TEST_P(DispatchTest, RenderArgumentsAreCheckedBeforeTheUnit)
{
    BufferListStorage storage(2);
    AudioBufferList* list = &storage.List();
    AudioUnitRenderActionFlags flags = 0;
    EXPECT_EQ(paramErr, AudioUnitRender(mUnit, &flags, nullptr, 0, 64, list));
    const AudioTimeStamp stamp = SampleTimeStamp(0);
    EXPECT_EQ(paramErr, AudioUnitRender(mUnit, &flags, &stamp, 0, 64, nullptr));
    OSStatus lastError = 1;
    UInt32 size = sizeof lastError;
    ASSERT_EQ(noErr, AudioUnitGetProperty(mUnit, kAudioUnitProperty_LastRenderError,
                                          kAudioUnitScope_Global, 0, &lastError, &size));
    EXPECT_EQ(noErr, lastError) << "the unit never saw those calls";

    EXPECT_EQ(kAudioUnitErr_Uninitialized, Render(0, &flags));
    ASSERT_EQ(noErr, AudioUnitInitialize(mUnit));
    EXPECT_EQ(noErr, Render(64, nullptr)) << "null flags read as 0";
    EXPECT_EQ(64.0, LastRenderedSampleTime());
    EXPECT_EQ(noErr, AudioUnitUninitialize(mUnit));
    EXPECT_EQ(kAudioUnitErr_Uninitialized, Render(128, &flags));
}

TEST_P(DispatchTest, ParametersAndListenersReachTheUnit)
{
    ASSERT_EQ(noErr, AudioUnitSetParameter(mUnit, 1, kAudioUnitScope_Global, 0, 0.375f, 0));
    Float32 value = 0;
    ASSERT_EQ(noErr, AudioUnitGetParameter(mUnit, 1, kAudioUnitScope_Global, 0, &value));
    EXPECT_EQ(0.375f, value);
    EXPECT_EQ(paramErr, AudioUnitGetParameter(mUnit, 1, kAudioUnitScope_Global, 0, nullptr));
    EXPECT_EQ(kAudioUnitErr_InvalidParameter,
              AudioUnitGetParameter(mUnit, 9, kAudioUnitScope_Global, 0, &value));

    AudioUnitParameterEvent event = {};
    event.parameter = 0;
    event.eventType = kParameterEvent_Immediate;
    event.eventValues.immediate.value = -2.5f;
    ASSERT_EQ(noErr, AudioUnitScheduleParameters(mUnit, &event, 1));
    ASSERT_EQ(noErr, AudioUnitGetParameter(mUnit, 0, kAudioUnitScope_Global, 0, &value));
    EXPECT_EQ(-2.5f, value) << "immediate events apply at once";

    int heard = 0;
    auto listener = [](void* inRefCon, AudioUnit, AudioUnitPropertyID, AudioUnitScope,
                       AudioUnitElement) { ++*static_cast<int*>(inRefCon); };
    ASSERT_EQ(noErr, AudioUnitAddPropertyListener(mUnit, kAudioUnitProperty_MaximumFramesPerSlice,
                                                  listener, &heard));
    UInt32 frames = 512;
    ASSERT_EQ(noErr, AudioUnitSetProperty(mUnit, kAudioUnitProperty_MaximumFramesPerSlice,
                                          kAudioUnitScope_Global, 0, &frames, sizeof frames));
    EXPECT_EQ(1, heard);
    ASSERT_EQ(noErr, AudioUnitRemovePropertyListenerWithUserData(
                         mUnit, kAudioUnitProperty_MaximumFramesPerSlice, listener, &heard));
    ASSERT_EQ(noErr, AudioUnitSetProperty(mUnit, kAudioUnitProperty_MaximumFramesPerSlice,
                                          kAudioUnitScope_Global, 0, &frames, sizeof frames));
    EXPECT_EQ(1, heard);
}

TEST_P(DispatchTest, RenderNotificationsSeeEveryRenderUntilRemoved)
{
    ASSERT_EQ(noErr, AudioUnitInitialize(mUnit));
    std::vector<AudioUnitRenderActionFlags> seen;
    AURenderCallback notify = [](void* inRefCon, AudioUnitRenderActionFlags* ioActionFlags,
                                 const AudioTimeStamp*, UInt32, UInt32, AudioBufferList*) {
        static_cast<std::vector<AudioUnitRenderActionFlags>*>(inRefCon)->push_back(*ioActionFlags);
        return OSStatus(noErr);
    };
    ASSERT_EQ(noErr, AudioUnitAddRenderNotify(mUnit, notify, &seen));
    seen.reserve(8);
    AudioUnitRenderActionFlags flags = 0;
    ASSERT_EQ(noErr, Render(0, &flags));
    ASSERT_EQ(2U, seen.size());
    EXPECT_NE(0U, seen[0] & kAudioUnitRenderAction_PreRender);
    EXPECT_NE(0U, seen[1] & kAudioUnitRenderAction_PostRender);
    ASSERT_EQ(noErr, AudioUnitRemoveRenderNotify(mUnit, notify, &seen));
    ASSERT_EQ(noErr, Render(64, &flags));
    EXPECT_EQ(2U, seen.size());
}

TEST_P(DispatchTest, ResetForgetsTheLastRender)
{
    ASSERT_EQ(noErr, AudioUnitInitialize(mUnit));
    ASSERT_EQ(noErr, Render(100));
    EXPECT_EQ(100.0, LastRenderedSampleTime());
    ASSERT_EQ(noErr, AudioUnitReset(mUnit, kAudioUnitScope_Global, 0));
    EXPECT_EQ(1, mObject->mResetCalls);
    EXPECT_EQ(AUBase::kNoLastRenderedSampleTime, LastRenderedSampleTime());
}

TEST_P(DispatchTest, FastDispatchIsOfferedOnlyToEntryPointInstances)
{
    void* proc = nullptr;
    UInt32 size = sizeof proc;
    const OSStatus result =
        AudioUnitGetProperty(mUnit, kAudioUnitProperty_FastDispatch, kAudioUnitScope_Global,
                             kAudioUnitRenderSelect, &proc, &size);
    if (GetParam() == OpenStyle::kFactory) {
        EXPECT_EQ(kAudioUnitErr_InvalidProperty, result);
        return;
    }
    ASSERT_EQ(noErr, result);
    auto render = reinterpret_cast<AudioUnitRenderProc>(proc);
    ASSERT_EQ(noErr,
              AudioUnitGetProperty(mUnit, kAudioUnitProperty_FastDispatch, kAudioUnitScope_Global,
                                   kAudioUnitGetParameterSelect, &proc, &size));
    auto getParameter = reinterpret_cast<AudioUnitGetParameterProc>(proc);
    ASSERT_EQ(noErr,
              AudioUnitGetProperty(mUnit, kAudioUnitProperty_FastDispatch, kAudioUnitScope_Global,
                                   kAudioUnitSetParameterSelect, &proc, &size));
    auto setParameter = reinterpret_cast<AudioUnitSetParameterProc>(proc);

    void* storage = GetComponentInstanceStorage(mUnit);
    ASSERT_EQ(static_cast<void*>(static_cast<AUBase*>(mObject)), storage);
    EXPECT_EQ(noErr, setParameter(storage, 0, kAudioUnitScope_Global, 0, 4.25f, 0));
    Float32 value = 0;
    EXPECT_EQ(noErr, getParameter(storage, 0, kAudioUnitScope_Global, 0, &value));
    EXPECT_EQ(4.25f, value);
    EXPECT_EQ(paramErr, getParameter(storage, 0, kAudioUnitScope_Global, 0, nullptr));
    EXPECT_EQ(paramErr, getParameter(nullptr, 0, kAudioUnitScope_Global, 0, &value));
    EXPECT_EQ(paramErr, setParameter(nullptr, 0, kAudioUnitScope_Global, 0, 1.0f, 0));
    EXPECT_EQ(kAudioUnitErr_InvalidParameter,
              getParameter(storage, 7, kAudioUnitScope_Global, 0, &value))
        << "exceptions become statuses";

    BufferListStorage listStorage(2);
    AudioBufferList* list = &listStorage.List();
    for (UInt32 b = 0; b < 2; ++b) {
        list->mBuffers[b] = {1, 64 * 4, mSamples[b]};
    }
    const AudioTimeStamp stamp = SampleTimeStamp(0);
    EXPECT_EQ(paramErr, render(storage, nullptr, nullptr, 0, 64, list));
    EXPECT_EQ(kAudioUnitErr_Uninitialized, render(storage, nullptr, &stamp, 0, 64, list));
    ASSERT_EQ(noErr, AudioUnitInitialize(mUnit));
    EXPECT_EQ(noErr, render(storage, nullptr, &stamp, 0, 64, list));
}

class ExceptionConversionTest : public ::testing::TestWithParam<std::tuple<OpenStyle, ThrowKind>>
{
};

TEST_P(ExceptionConversionTest, EveryExceptionBecomesItsStatus)
{
    const auto [style, kind] = GetParam();
    AudioUnit unit = OpenDispatchTestUnit(style);
    ASSERT_NE(nullptr, unit);
    const UInt32 value = kind;
    EXPECT_EQ(ExpectedStatus(kind),
              AudioUnitSetProperty(unit, kThrowProperty, kAudioUnitScope_Global, 0, &value,
                                   sizeof value));
    EXPECT_EQ(noErr, AudioComponentInstanceDispose(unit));
}

std::string
ConversionCaseName(const ::testing::TestParamInfo<std::tuple<OpenStyle, ThrowKind>>& info)
{
    static const char* const kNames[] = {"CAXException",   "BadAlloc",    "OSStatus",    "OSErr",
                                         "PositiveStatus", "CAException", "StdException"};
    return std::string(StyleName(std::get<0>(info.param))) + kNames[std::get<1>(info.param)];
}

INSTANTIATE_TEST_SUITE_P(
    BothStyles, ExceptionConversionTest,
    ::testing::Combine(::testing::Values(OpenStyle::kFactory, OpenStyle::kEntryPoint),
                       ::testing::Values(kThrowCAXException, kThrowBadAlloc, kThrowOSStatus,
                                         kThrowOSErr, kThrowPositiveStatus, kThrowCAException,
                                         kThrowStdException)),
    ConversionCaseName);

INSTANTIATE_TEST_SUITE_P(BothStyles, DispatchTest,
                         ::testing::Values(OpenStyle::kFactory, OpenStyle::kEntryPoint),
                         [](const ::testing::TestParamInfo<OpenStyle>& info) {
                             return StyleName(info.param);
                         });

// ---- The selector table itself, through the entry point ---------------------

class EntryPointTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        mUnit = OpenDispatchTestUnit(OpenStyle::kEntryPoint);
        ASSERT_NE(nullptr, mUnit);
        mObject = static_cast<DispatchTestUnit*>(
            reinterpret_cast<AUBase*>(GetComponentInstanceStorage(mUnit)));
        ASSERT_EQ(DispatchTestUnit::sLastConstructed, mObject);
    }

    void TearDown() override { EXPECT_EQ(noErr, CloseComponent(mUnit)); }

    template <typename... Args> OSStatus Call(SInt16 inSelector, Args... inArgs)
    {
        ParameterBlock block = MakeBlock(inSelector, mUnit, inArgs...);
        return DispatchTestEntry(block.Get(), mObject);
    }

    AudioUnit mUnit = nullptr;
    DispatchTestUnit* mObject = nullptr;
};

TEST_F(EntryPointTest, CanDoAnswersExactlyTheImplementedSelectors)
{
    for (SInt16 selector = -6; selector <= 20; ++selector) {
        const bool implemented = (selector >= -4 && selector <= -1) ||
                                 (selector >= 1 && selector <= 7) || selector == 9 ||
                                 selector == 10 || (selector >= 14 && selector <= 18);
        EXPECT_EQ(implemented ? 1 : 0, Call(kComponentCanDoSelect, UInt32(UInt16(selector))))
            << "selector " << selector;
    }
    EXPECT_EQ(1, Call(kComponentCanDoSelect, UInt32(0xABCD000E))) << "only the low 16 bits count";
}

TEST_F(EntryPointTest, UnknownSelectorsAreBadComponentSelector)
{
    for (SInt16 selector : {0, 8, 11, 12, 13, 19, 42, -5, -9}) {
        EXPECT_EQ(badComponentSelector, Call(selector)) << "selector " << selector;
    }
    EXPECT_EQ(OSStatus(-2147450878), badComponentSelector);
    EXPECT_EQ(1, Call(kComponentVersionSelect));
}

TEST_F(EntryPointTest, ResetSelectorResetsTheRenderTimeItself)
{
    mObject->mChainReset = false;
    ASSERT_EQ(noErr, Call(kAudioUnitInitializeSelect));
    Float32 samples[2][16] = {};
    BufferListStorage storage(2);
    AudioBufferList* list = &storage.List();
    list->mBuffers[0] = {1, 64, samples[0]};
    list->mBuffers[1] = {1, 64, samples[1]};
    const AudioTimeStamp stamp = SampleTimeStamp(32);
    EXPECT_EQ(paramErr,
              Call(kAudioUnitRenderSelect, static_cast<AudioUnitRenderActionFlags*>(nullptr),
                   static_cast<const AudioTimeStamp*>(nullptr), UInt32(0), UInt32(16), list));
    ASSERT_EQ(noErr, Call(kAudioUnitRenderSelect, static_cast<AudioUnitRenderActionFlags*>(nullptr),
                          &stamp, UInt32(0), UInt32(16), list));
    EXPECT_EQ(32.0, mObject->CurrentRenderTime().mSampleTime);
    ASSERT_EQ(noErr, Call(kAudioUnitResetSelect, UInt32(kAudioUnitScope_Global), UInt32(0)));
    EXPECT_EQ(1, mObject->mResetCalls);
    EXPECT_EQ(AUBase::kNoLastRenderedSampleTime, mObject->CurrentRenderTime().mSampleTime);
}

TEST_F(EntryPointTest, NullObjectOrBlockIsParamErr)
{
    ParameterBlock block = MakeBlock(kAudioUnitInitializeSelect, mUnit);
    EXPECT_EQ(paramErr, DispatchTestEntry(block.Get(), nullptr));
    EXPECT_EQ(paramErr, DispatchTestEntry(nullptr, mObject));
    ParameterBlock version = MakeBlock(kComponentVersionSelect, mUnit);
    EXPECT_EQ(paramErr, DispatchTestEntry(version.Get(), nullptr));
}

} // namespace
