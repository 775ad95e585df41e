#include "AUBaseTestUnit.h"
#include "AUDispatch.h"

#include <AudioUnit/AudioUnit.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

constexpr AudioUnitPropertyID kLastRenderedSampleTime = 0x6C727374; // 'lrst'

struct InfoRow
{
    AudioUnitPropertyID id;
    AudioUnitScope scope;
    AudioUnitElement element;
    OSStatus status;
    UInt32 size;
    bool writable;
};

// What a host learns about each framework property of a new, uninitialized
// unit with one input, one output and three global parameters.
const InfoRow kInfoRows[] = {
    {kAudioUnitProperty_ClassInfo, kAudioUnitScope_Global, 0, noErr, 8, true},
    {kAudioUnitProperty_ClassInfo, kAudioUnitScope_Global, 1, kAudioUnitErr_InvalidElement, 0,
     false},
    {kAudioUnitProperty_ClassInfo, kAudioUnitScope_Input, 0, kAudioUnitErr_InvalidScope, 0, false},
    {kAudioUnitProperty_MakeConnection, kAudioUnitScope_Input, 0, noErr, 16, true},
    {kAudioUnitProperty_MakeConnection, kAudioUnitScope_Output, 0, kAudioUnitErr_InvalidScope, 0,
     false},
    {kAudioUnitProperty_SampleRate, kAudioUnitScope_Input, 0, noErr, 8, true},
    {kAudioUnitProperty_SampleRate, kAudioUnitScope_Output, 1, kAudioUnitErr_InvalidElement, 0,
     false},
    {kAudioUnitProperty_ParameterList, kAudioUnitScope_Global, 0, noErr, 12, false},
    {kAudioUnitProperty_ParameterList, kAudioUnitScope_Input, 9, noErr, 0, false},
    {kAudioUnitProperty_ParameterInfo, kAudioUnitScope_Global, 99, noErr, 104, false},
    {kAudioUnitProperty_FastDispatch, kAudioUnitScope_Global, kAudioUnitRenderSelect, noErr, 8,
     false},
    {kAudioUnitProperty_FastDispatch, kAudioUnitScope_Input, 0, kAudioUnitErr_InvalidScope, 0,
     false},
    {kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 0, noErr, 40, true},
    {kAudioUnitProperty_StreamFormat, kAudioUnitScope_Global, 0, noErr, 40, true},
    {kAudioUnitProperty_StreamFormat, kAudioUnitScope_Group, 0, kAudioUnitErr_InvalidElement, 0,
     false},
    {kAudioUnitProperty_ElementCount, kAudioUnitScope_Input, 0, noErr, 4, false},
    {kAudioUnitProperty_Latency, kAudioUnitScope_Global, 0, noErr, 8, false},
    {kAudioUnitProperty_SupportedNumChannels, kAudioUnitScope_Global, 0,
     kAudioUnitErr_InvalidProperty, 0, false},
    {kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global, 0, noErr, 4, true},
    {kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Output, 0,
     kAudioUnitErr_InvalidScope, 0, false},
    {kAudioUnitProperty_SetExternalBuffer, kAudioUnitScope_Output, 0, kAudioUnitErr_InvalidProperty,
     0, false},
    {kAudioUnitProperty_ParameterValueStrings, kAudioUnitScope_Global, 0,
     kAudioUnitErr_InvalidProperty, 0, false},
    {kAudioUnitProperty_GetUIComponentList, kAudioUnitScope_Global, 0,
     kAudioUnitErr_InvalidProperty, 0, false},
    {kAudioUnitProperty_AudioChannelLayout, kAudioUnitScope_Output, 0,
     kAudioUnitErr_InvalidProperty, 0, false},
    {kAudioUnitProperty_TailTime, kAudioUnitScope_Global, 0, kAudioUnitErr_InvalidProperty, 0,
     false},
    {kAudioUnitProperty_LastRenderError, kAudioUnitScope_Global, 0, noErr, 4, false},
    {kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0, noErr, 16, true},
    {kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 1, kAudioUnitErr_InvalidElement,
     0, false},
    {kAudioUnitProperty_FactoryPresets, kAudioUnitScope_Global, 0, kAudioUnitErr_InvalidProperty, 0,
     false},
    {kAudioUnitProperty_ContextName, kAudioUnitScope_Global, 0, noErr, 8, true},
    {kAudioUnitProperty_HostCallbacks, kAudioUnitScope_Global, 0, noErr, 40, true},
    {kAudioUnitProperty_ElementName, kAudioUnitScope_Output, 0, noErr, 8, true},
    {kAudioUnitProperty_ElementName, kAudioUnitScope_Output, 1, kAudioUnitErr_InvalidElement, 0,
     false},
    {kAudioUnitProperty_SupportedChannelLayoutTags, kAudioUnitScope_Input, 0,
     kAudioUnitErr_InvalidProperty, 0, false},
    {kAudioUnitProperty_ParameterClumpName, kAudioUnitScope_Global, 0, noErr, 16, false},
    {kAudioUnitProperty_PresentPreset, kAudioUnitScope_Global, 0, noErr, 16, true},
    {kAudioUnitProperty_IconLocation, kAudioUnitScope_Global, 0, kAudioUnitErr_InvalidProperty, 0,
     false},
    {kAudioUnitProperty_ShouldAllocateBuffer, kAudioUnitScope_Output, 0, noErr, 4, true},
    {kAudioUnitProperty_ShouldAllocateBuffer, kAudioUnitScope_Global, 0, kAudioUnitErr_InvalidScope,
     0, false},
    {kAudioUnitProperty_ParameterHistoryInfo, kAudioUnitScope_Global, 0, noErr, 8, false},
    {kLastRenderedSampleTime, kAudioUnitScope_Output, 0, noErr, 8, false},
    {kAudioUnitProperty_BypassEffect, kAudioUnitScope_Global, 0, kAudioUnitErr_InvalidProperty, 0,
     false},
};

// A unit with one named parameter clump that notes the name length asked for.
class ClumpUnit : public AUBaseTestUnit
{
public:
    OSStatus CopyClumpName(AudioUnitScope, UInt32 inClumpID, UInt32 inDesiredNameLength,
                           CFStringRef* outClumpName) override
    {
        mDesiredNameLength = inDesiredNameLength;
        if (inClumpID != 1) {
            return kAudioUnitErr_InvalidProperty;
        }
        *outClumpName =
            CFStringCreateWithCString(kCFAllocatorDefault, "Tone", kCFStringEncodingUTF8);
        return noErr;
    }

    UInt32 mDesiredNameLength = 0;
};

class PropertyTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        mOwner = OpenUnit();
        for (AudioUnitPropertyID id :
             {kAudioUnitProperty_StreamFormat, kAudioUnitProperty_SampleRate,
              kAudioUnitProperty_HostCallbacks, kAudioUnitProperty_ContextName,
              kAudioUnitProperty_AudioChannelLayout, kAudioUnitProperty_ElementName,
              kAudioUnitProperty_PresentPreset}) {
            Unit().AddPropertyListener(id, ListenerLog::Hear, &mLog);
        }
    }

    AUBaseTestUnit& Unit() { return *mOwner; }

    OSStatus Set(AudioUnitPropertyID inID, AudioUnitScope inScope, AudioUnitElement inElement,
                 const void* inData, UInt32 inSize)
    {
        return Unit().DispatchSetProperty(inID, inScope, inElement, inData, inSize);
    }

    std::unique_ptr<AUBaseTestUnit> mOwner;
    ListenerLog mLog;
};

} // namespace

TEST_F(PropertyTest, InfoReportsSizeWritabilityAndStatusPerProperty)
{
    for (const InfoRow& row : kInfoRows) {
        SCOPED_TRACE("property " + std::to_string(row.id) + " scope " + std::to_string(row.scope) +
                     " element " + std::to_string(row.element));
        UInt32 size = 0;
        bool writable = false;
        EXPECT_EQ(Unit().DispatchGetPropertyInfo(row.id, row.scope, row.element, size, writable),
                  row.status);
        if (row.status == noErr) {
            EXPECT_EQ(size, row.size);
            EXPECT_EQ(writable, row.writable);
        }
    }
    UInt32 size = 0;
    bool writable = false;
    EXPECT_EQ(ThrownStatus([&] {
                  Unit().DispatchGetPropertyInfo(kAudioUnitProperty_ElementName, 4, 0, size,
                                                 writable);
              }),
              kAudioUnitErr_InvalidScope);
    ASSERT_EQ(Unit().DoInitialize(), noErr);
    EXPECT_EQ(Unit().DispatchGetPropertyInfo(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input,
                                             0, size, writable),
              noErr);
    EXPECT_FALSE(writable);
}

TEST_F(PropertyTest, StreamFormatAndSampleRateSetsValidateCompareAndNotify)
{
    AudioStreamBasicDescription format = Unit().GetStreamFormat(kAudioUnitScope_Input, 0);
    format.mChannelsPerFrame = 1;
    EXPECT_EQ(Set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0, &format, 35),
              kAudioUnitErr_InvalidPropertyValue);
    EXPECT_EQ(Set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0, &format, 36), noErr);
    EXPECT_EQ(Unit().GetStreamFormat(kAudioUnitScope_Input, 0).mChannelsPerFrame, 1u);
    EXPECT_EQ(mLog.CountOf(kAudioUnitProperty_StreamFormat), 1u);
    EXPECT_EQ(Set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0, &format, 40), noErr);
    EXPECT_EQ(mLog.CountOf(kAudioUnitProperty_StreamFormat), 1u); // unchanged: no notification
    EXPECT_EQ(Set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 1, &format, 40),
              kAudioUnitErr_InvalidElement);
    format.mFormatFlags &= ~static_cast<UInt32>(kAudioFormatFlagIsFloat);
    EXPECT_EQ(Set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0, &format, 40),
              kAudioUnitErr_FormatNotSupported);

    Float64 rate = 44100.0; // the current rate
    EXPECT_EQ(Set(kAudioUnitProperty_SampleRate, kAudioUnitScope_Output, 0, &rate, 8), noErr);
    EXPECT_EQ(mLog.CountOf(kAudioUnitProperty_StreamFormat), 1u);
    rate = 96000.0;
    EXPECT_EQ(Set(kAudioUnitProperty_SampleRate, kAudioUnitScope_Output, 0, &rate, 4),
              kAudioUnitErr_InvalidPropertyValue);
    EXPECT_EQ(Set(kAudioUnitProperty_SampleRate, kAudioUnitScope_Output, 0, &rate, 8), noErr);
    EXPECT_EQ(mLog.CountOf(kAudioUnitProperty_StreamFormat), 2u);
    Float64 read = 0.0;
    EXPECT_EQ(
        Unit().DispatchGetProperty(kAudioUnitProperty_SampleRate, kAudioUnitScope_Global, 0, &read),
        noErr);
    EXPECT_EQ(read, 96000.0);

    ASSERT_EQ(Unit().DoInitialize(), noErr);
    EXPECT_EQ(Set(kAudioUnitProperty_SampleRate, kAudioUnitScope_Output, 0, &rate, 8), noErr);
    rate = 48000.0;
    EXPECT_EQ(Set(kAudioUnitProperty_SampleRate, kAudioUnitScope_Output, 0, &rate, 8),
              kAudioUnitErr_PropertyNotWritable);
    EXPECT_EQ(Unit().GetStreamFormat(kAudioUnitScope_Output, 0).mSampleRate, 96000.0);
}

TEST_F(PropertyTest, GetsHandOutValuesAndReferencesTheHostOwns)
{
    Float64 sampleTime = 0.0;
    EXPECT_EQ(
        Unit().DispatchGetProperty(kLastRenderedSampleTime, kAudioUnitScope_Global, 0, &sampleTime),
        noErr);
    EXPECT_EQ(sampleTime, AUBase::kNoLastRenderedSampleTime);

    AudioUnitParameterID ids[3] = {};
    EXPECT_EQ(Unit().DispatchGetProperty(kAudioUnitProperty_ParameterList, kAudioUnitScope_Global,
                                         0, ids),
              noErr);
    EXPECT_EQ(ids[2], 2u);

    UInt32 count = 0;
    EXPECT_EQ(Unit().DispatchGetProperty(kAudioUnitProperty_ElementCount, kAudioUnitScope_Output, 0,
                                         &count),
              noErr);
    EXPECT_EQ(count, 1u);

    CFStringRef mine =
        CFStringCreateWithCString(kCFAllocatorDefault, "Mine", kCFStringEncodingUTF8);
    ASSERT_TRUE(Unit().SetAFactoryPresetAsCurrent(AUPreset{2, mine}));
    AUPreset preset{};
    EXPECT_EQ(Unit().DispatchGetProperty(kAudioUnitProperty_PresentPreset, kAudioUnitScope_Global,
                                         0, &preset),
              noErr);
    EXPECT_EQ(preset.presetNumber, 2);
    EXPECT_EQ(preset.presetName, mine);
    EXPECT_EQ(CFGetRetainCount(mine), 3); // ours, the unit's and the host's
    CFRelease(preset.presetName);
    CFRelease(mine);

    void* proc = nullptr;
    EXPECT_EQ(Unit().DispatchGetProperty(kAudioUnitProperty_FastDispatch, kAudioUnitScope_Global,
                                         kAudioUnitRenderSelect, &proc),
              noErr);
    EXPECT_EQ(proc, reinterpret_cast<void*>(&CMgr_AudioUnitBaseRender));
    EXPECT_EQ(Unit().DispatchGetProperty(kAudioUnitProperty_FastDispatch, kAudioUnitScope_Global,
                                         kAudioUnitGetParameterSelect, &proc),
              noErr);
    EXPECT_EQ(proc, reinterpret_cast<void*>(&CMgr_AudioUnitBaseGetParameter));

    UInt32 willAllocate = 7;
    EXPECT_EQ(Unit().DispatchGetProperty(kAudioUnitProperty_ShouldAllocateBuffer,
                                         kAudioUnitScope_Input, 0, &willAllocate),
              noErr);
    EXPECT_EQ(willAllocate, 1u);
    const UInt32 no = 0;
    EXPECT_EQ(Set(kAudioUnitProperty_ShouldAllocateBuffer, kAudioUnitScope_Input, 0, &no, 4),
              noErr);
    EXPECT_FALSE(Unit().GetInput(0)->WillAllocateBuffer());
    EXPECT_EQ(Set(kAudioUnitProperty_ShouldAllocateBuffer, kAudioUnitScope_Input, 0, &no, 2),
              kAudioUnitErr_InvalidPropertyValue);

    AudioUnitParameterNameInfo clump{};
    clump.inID = kAudioUnitClumpID_System;
    EXPECT_EQ(Unit().DispatchGetProperty(kAudioUnitProperty_ParameterClumpName,
                                         kAudioUnitScope_Global, 0, &clump),
              kAudioUnitErr_InvalidPropertyValue);
    clump.inID = 1;
    EXPECT_EQ(Unit().DispatchGetProperty(kAudioUnitProperty_ParameterClumpName,
                                         kAudioUnitScope_Global, 0, &clump),
              kAudioUnitErr_InvalidProperty);
    // The host's length reaches the unit as given, and the name is the host's.
    auto clumps = OpenUnit<ClumpUnit>();
    clump.inDesiredLength = -1;
    EXPECT_EQ(clumps->DispatchGetProperty(kAudioUnitProperty_ParameterClumpName,
                                          kAudioUnitScope_Global, 0, &clump),
              noErr);
    EXPECT_EQ(clumps->mDesiredNameLength, 0xFFFFFFFFu);
    ASSERT_NE(clump.outName, nullptr);
    EXPECT_EQ(CFGetRetainCount(clump.outName), 1);
    CFRelease(clump.outName);

    ASSERT_EQ(Unit().DoInitialize(), noErr);
    EXPECT_EQ(Set(kAudioUnitProperty_ShouldAllocateBuffer, kAudioUnitScope_Input, 0, &no, 4),
              kAudioUnitErr_Initialized);
}

TEST_F(PropertyTest, NamesAndPresetsAreRetainedAndNotified)
{
    CFStringRef name =
        CFStringCreateWithCString(kCFAllocatorDefault, "Host document", kCFStringEncodingUTF8);
    CFStringRef got = nullptr;
    EXPECT_EQ(
        Unit().DispatchGetProperty(kAudioUnitProperty_ContextName, kAudioUnitScope_Global, 0, &got),
        kAudioUnitErr_InvalidPropertyValue);
    EXPECT_EQ(Set(kAudioUnitProperty_ContextName, kAudioUnitScope_Global, 0, &name, 8), noErr);
    EXPECT_EQ(
        Unit().DispatchGetProperty(kAudioUnitProperty_ContextName, kAudioUnitScope_Global, 0, &got),
        noErr);
    EXPECT_EQ(got, name);
    CFRelease(got);
    EXPECT_EQ(CFGetRetainCount(name), 2); // ours and the unit's
    const CFStringRef none = nullptr;
    EXPECT_EQ(Set(kAudioUnitProperty_ContextName, kAudioUnitScope_Global, 0, &none, 8), noErr);
    EXPECT_EQ(CFGetRetainCount(name), 1);
    EXPECT_EQ(
        Unit().DispatchGetProperty(kAudioUnitProperty_ContextName, kAudioUnitScope_Global, 0, &got),
        kAudioUnitErr_InvalidPropertyValue);
    EXPECT_EQ(mLog.CountOf(kAudioUnitProperty_ContextName), 2u);

    EXPECT_EQ(Set(kAudioUnitProperty_ElementName, kAudioUnitScope_Output, 1, &name, 8),
              kAudioUnitErr_InvalidElement);
    EXPECT_EQ(Set(kAudioUnitProperty_ElementName, kAudioUnitScope_Output, 0, &name, 4),
              kAudioUnitErr_InvalidPropertyValue);
    EXPECT_EQ(Set(kAudioUnitProperty_ElementName, kAudioUnitScope_Output, 0, &name, 8), noErr);
    EXPECT_EQ(Unit().GetOutput(0)->GetName(), name);
    const Float64 notAString = 1.0;
    CFNumberRef number = CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &notAString);
    EXPECT_EQ(Set(kAudioUnitProperty_ElementName, kAudioUnitScope_Output, 0, &number, 8),
              kAudioUnitErr_InvalidPropertyValue);
    CFRelease(number);
    EXPECT_EQ(mLog.CountOf(kAudioUnitProperty_ElementName), 1u);

    AUPreset user{-1, nullptr};
    EXPECT_EQ(Set(kAudioUnitProperty_PresentPreset, kAudioUnitScope_Global, 0, &user, 16),
              kAudioUnitErr_InvalidPropertyValue);
    user.presetName = name;
    EXPECT_EQ(Set(kAudioUnitProperty_PresentPreset, kAudioUnitScope_Global, 0, &user, 16), noErr);
    EXPECT_EQ(Unit().CurrentPreset().presetName, name);
    AUPreset factory{3, name};
    EXPECT_EQ(Set(kAudioUnitProperty_PresentPreset, kAudioUnitScope_Global, 0, &factory, 16),
              kAudioUnitErr_InvalidProperty); // the base unit has no factory presets
    EXPECT_EQ(Unit().CurrentPreset().presetNumber, -1);
    EXPECT_EQ(mLog.CountOf(kAudioUnitProperty_PresentPreset), 1u);

    EXPECT_FALSE(Unit().SetAFactoryPresetAsCurrent(AUPreset{-2, name}));
    EXPECT_FALSE(Unit().SetAFactoryPresetAsCurrent(AUPreset{2, nullptr}));
    EXPECT_TRUE(Unit().SetAFactoryPresetAsCurrent(factory));
    EXPECT_EQ(Unit().CurrentPreset().presetNumber, 3);
    EXPECT_EQ(mLog.CountOf(kAudioUnitProperty_PresentPreset), 1u);
    CFRelease(name);
}

TEST_F(PropertyTest, HostCallbacksNotifyOnlyWhenTheBlockChanges)
{
    HostCallbackInfo info{};
    info.hostUserData = this;
    EXPECT_EQ(Set(kAudioUnitProperty_HostCallbacks, kAudioUnitScope_Input, 0, &info, 40),
              kAudioUnitErr_InvalidScope);
    EXPECT_EQ(Set(kAudioUnitProperty_HostCallbacks, kAudioUnitScope_Global, 0, &info, 40), noErr);
    EXPECT_EQ(Set(kAudioUnitProperty_HostCallbacks, kAudioUnitScope_Global, 0, &info, 40), noErr);
    EXPECT_EQ(mLog.CountOf(kAudioUnitProperty_HostCallbacks), 1u);
    HostCallbackInfo read{};
    EXPECT_EQ(Unit().DispatchGetProperty(kAudioUnitProperty_HostCallbacks, kAudioUnitScope_Global,
                                         0, &read),
              noErr);
    EXPECT_EQ(std::memcmp(&read, &info, sizeof(info)), 0);

    EXPECT_EQ(Unit().DispatchRemovePropertyValue(kAudioUnitProperty_HostCallbacks,
                                                 kAudioUnitScope_Global, 0),
              noErr);
    EXPECT_EQ(Unit().DispatchRemovePropertyValue(kAudioUnitProperty_HostCallbacks,
                                                 kAudioUnitScope_Global, 0),
              noErr);
    EXPECT_EQ(mLog.CountOf(kAudioUnitProperty_HostCallbacks), 2u);

    EXPECT_EQ(Unit().DispatchRemovePropertyValue(kAudioUnitProperty_AudioChannelLayout,
                                                 kAudioUnitScope_Output, 0),
              noErr);
    EXPECT_EQ(mLog.CountOf(kAudioUnitProperty_AudioChannelLayout), 1u);
    EXPECT_EQ(
        Unit().DispatchRemovePropertyValue(kAudioUnitProperty_Latency, kAudioUnitScope_Global, 0),
        kAudioUnitErr_InvalidPropertyValue);
}

TEST_F(PropertyTest, LastRenderErrorIsClearedByReadingIt)
{
    AudioTimeStamp time{};
    AudioUnitRenderActionFlags flags = 0;
    AudioBufferList list{};
    ListenerLog errors;
    Unit().AddPropertyListener(kAudioUnitProperty_LastRenderError, ListenerLog::Hear, &errors);
    EXPECT_EQ(Unit().DoRender(flags, time, 0, 64, list), kAudioUnitErr_Uninitialized);
    EXPECT_EQ(Unit().DoRender(flags, time, 0, 64, list), kAudioUnitErr_Uninitialized);
    EXPECT_EQ(errors.mCalls.size(), 1u); // pending until read

    OSStatus error = noErr;
    EXPECT_EQ(Unit().DispatchGetProperty(kAudioUnitProperty_LastRenderError, kAudioUnitScope_Global,
                                         0, &error),
              noErr);
    EXPECT_EQ(error, kAudioUnitErr_Uninitialized);
    EXPECT_EQ(Unit().DispatchGetProperty(kAudioUnitProperty_LastRenderError, kAudioUnitScope_Global,
                                         0, &error),
              noErr);
    EXPECT_EQ(error, noErr);
    EXPECT_EQ(Unit().DoRender(flags, time, 0, 64, list), kAudioUnitErr_Uninitialized);
    EXPECT_EQ(errors.mCalls.size(), 2u);
}

TEST(PropertyListenerTest, DuplicatesAreAllCalledAndRemovedTogether)
{
    auto owner = OpenUnit();
    AUBaseTestUnit& unit = *owner;
    ListenerLog first;
    ListenerLog second;
    unit.AddPropertyListener(kAudioUnitProperty_ContextName, ListenerLog::Hear, &first);
    unit.AddPropertyListener(kAudioUnitProperty_ContextName, ListenerLog::Hear, &first);
    unit.AddPropertyListener(kAudioUnitProperty_ContextName, ListenerLog::Hear, &second);
    unit.AddPropertyListener(kAudioUnitProperty_Latency, ListenerLog::Hear, &second);

    unit.PropertyChanged(kAudioUnitProperty_ContextName, kAudioUnitScope_Global, 0);
    EXPECT_EQ(first.mCalls.size(), 2u);
    EXPECT_EQ(second.mCalls.size(), 1u);

    unit.RemovePropertyListener(kAudioUnitProperty_ContextName, ListenerLog::Hear, &second, true);
    unit.PropertyChanged(kAudioUnitProperty_ContextName, kAudioUnitScope_Global, 0);
    EXPECT_EQ(first.mCalls.size(), 4u);
    EXPECT_EQ(second.mCalls.size(), 1u);

    unit.RemovePropertyListener(kAudioUnitProperty_ContextName, ListenerLog::Hear, nullptr, false);
    unit.PropertyChanged(kAudioUnitProperty_ContextName, kAudioUnitScope_Global, 0);
    unit.PropertyChanged(kAudioUnitProperty_Latency, kAudioUnitScope_Input, 3);
    EXPECT_EQ(first.mCalls.size(), 4u);
    ASSERT_EQ(second.mCalls.size(), 2u);
    EXPECT_EQ(second.mCalls[1],
              std::make_tuple(AudioUnitPropertyID{kAudioUnitProperty_Latency},
                              AudioUnitScope{kAudioUnitScope_Input}, AudioUnitElement{3}));
}
