#include "AUBaseTestUnit.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

namespace {

CAStreamBasicDescription FloatFormat(UInt32 inChannels, Float64 inRate = 48000.0)
{
    AudioStreamBasicDescription format{};
    format.mSampleRate = inRate;
    format.mFormatID = kAudioFormatLinearPCM;
    format.mFormatFlags = kAudioFormatFlagsNativeFloatPacked | kAudioFormatFlagIsNonInterleaved;
    format.mBytesPerPacket = 4;
    format.mFramesPerPacket = 1;
    format.mBytesPerFrame = 4;
    format.mChannelsPerFrame = inChannels;
    format.mBitsPerChannel = 32;
    return CAStreamBasicDescription(format);
}

std::string ToStdString(CFStringRef inString)
{
    char text[64] = {};
    CFStringGetCString(inString, text, sizeof(text), kCFStringEncodingUTF8);
    return text;
}

// A unit whose second output is not a bus, so sizing the buffers fails.
class BrokenOutputUnit : public AUBaseTestUnit
{
public:
    BrokenOutputUnit() : AUBaseTestUnit(1, 2) {}

    AUElement* CreateElement(AudioUnitScope inScope, AudioUnitElement inElement) override
    {
        if (inScope == kAudioUnitScope_Output && inElement == 1) {
            return new AUElement(this);
        }
        return AUBaseTestUnit::CreateElement(inScope, inElement);
    }
};

} // namespace

TEST(AUBaseLifecycleTest, NewUnitHasItsDefaultsAndBusesAfterPostConstructor)
{
    AUBaseTestUnit unit;
    EXPECT_EQ(unit.GetScope(kAudioUnitScope_Global).GetNumberOfElements(), 1u);
    EXPECT_EQ(unit.GetScope(kAudioUnitScope_Input).GetNumberOfElements(), 0u);
    EXPECT_EQ(unit.GetMaxFramesPerSlice(), 1156u);
    EXPECT_EQ(unit.CurrentRenderTime().mSampleTime, AUBase::kNoLastRenderedSampleTime);
    EXPECT_EQ(unit.CurrentPreset().presetNumber, -1);
    EXPECT_EQ(ToStdString(unit.CurrentPreset().presetName), "Untitled");

    unit.PostConstructor();
    unit.PostConstructor(); // elements are created once
    EXPECT_EQ(unit.Inputs().GetNumberOfElements(), 1u);
    EXPECT_EQ(unit.Outputs().GetNumberOfElements(), 1u);
    EXPECT_EQ(unit.Groups().GetNumberOfElements(), 0u);
    const CAStreamBasicDescription& format = unit.GetStreamFormat(kAudioUnitScope_Input, 0);
    EXPECT_EQ(format.mSampleRate, 44100.0);
    EXPECT_EQ(format.mChannelsPerFrame, 2u);
    EXPECT_EQ(format.mFormatFlags, 41u);
    EXPECT_TRUE(unit.ValidFormat(kAudioUnitScope_Input, 0, format));
    EXPECT_EQ(ThrownStatus([&] { unit.CreateElement(5, 0); }), kAudioUnitErr_InvalidScope);
    std::unique_ptr<AUElement> part(unit.CreateElement(kAudioUnitScope_Part, 0));
    EXPECT_EQ(part->AsIOElement(), nullptr);
}

TEST(AUBaseLifecycleTest, InitializeAndCleanupRunTheirHooksOncePerTransition)
{
    auto owner = OpenUnit();
    AUBaseTestUnit& unit = *owner;

    unit.mInitializeResult = kAudioUnitErr_FormatNotSupported;
    EXPECT_EQ(unit.DoInitialize(), kAudioUnitErr_FormatNotSupported);
    EXPECT_FALSE(unit.IsInitialized());
    EXPECT_FALSE(unit.HasBegunInitializing());
    EXPECT_EQ(unit.GetOutput(0)->GetBufferList().GetAllocatedBytes(), 0u);

    unit.mInitializeResult = noErr;
    EXPECT_EQ(unit.DoInitialize(), noErr);
    EXPECT_EQ(unit.DoInitialize(), noErr);
    EXPECT_EQ(unit.mInitializeCalls, 2); // the failed try and one success
    EXPECT_TRUE(unit.IsInitialized());
    EXPECT_TRUE(unit.HasBegunInitializing());

    unit.DoCleanup();
    unit.DoCleanup();
    EXPECT_EQ(unit.mCleanupCalls, 1);
    EXPECT_FALSE(unit.IsInitialized());
    EXPECT_FALSE(unit.HasBegunInitializing());

    EXPECT_EQ(unit.DoInitialize(), noErr);
    EXPECT_EQ(unit.mInitializeCalls, 3);
    unit.PreDestructor();
    EXPECT_EQ(unit.mCleanupCalls, 2);
    EXPECT_FALSE(unit.IsInitialized());
}

TEST(AUBaseLifecycleTest, FailedBufferSizingUndoesTheInitialization)
{
    auto owner = OpenUnit<BrokenOutputUnit>();
    BrokenOutputUnit& unit = *owner;
    EXPECT_EQ(ThrownStatus([&] { unit.DoInitialize(); }), kAudioUnitErr_InvalidElement);
    EXPECT_EQ(unit.mInitializeCalls, 1);
    EXPECT_EQ(unit.mCleanupCalls, 1);
    EXPECT_FALSE(unit.IsInitialized());
    EXPECT_FALSE(unit.HasBegunInitializing());
}

TEST(AUBaseLifecycleTest, BuffersAreSizedAtInitializationToTheMaximumSlice)
{
    auto owner = OpenUnit();
    AUBaseTestUnit& unit = *owner;
    ListenerLog log;
    unit.AddPropertyListener(kAudioUnitProperty_MaximumFramesPerSlice, ListenerLog::Hear, &log);
    const AUBufferList& output = unit.GetOutput(0)->GetBufferList();

    unit.SetMaxFramesPerSlice(512);
    EXPECT_EQ(log.mCalls.size(), 1u);
    EXPECT_EQ(output.GetAllocatedBytes(), 0u); // nothing before initialization
    EXPECT_FALSE(unit.BuffersAllocated());

    ASSERT_EQ(unit.DoInitialize(), noErr);
    EXPECT_TRUE(unit.BuffersAllocated());
    EXPECT_EQ(output.GetAllocatedFrames(), 512u);
    EXPECT_EQ(output.GetAllocatedBytes(), 2u * 2048u);
    // An input without a source needs no sample memory.
    EXPECT_EQ(unit.GetInput(0)->GetBufferList().GetAllocatedBytes(), 0u);
    EXPECT_EQ(unit.CanSetMaxFrames(), kAudioUnitErr_Initialized);
    const UInt32 frames = 256;
    EXPECT_EQ(unit.DispatchSetProperty(kAudioUnitProperty_MaximumFramesPerSlice,
                                       kAudioUnitScope_Global, 0, &frames, sizeof(frames)),
              kAudioUnitErr_Initialized);
    EXPECT_EQ(unit.GetMaxFramesPerSlice(), 512u);

    // After cleanup a new maximum is stored; the buses keep their memory
    // until the next initialization sizes them again.
    unit.DoCleanup();
    EXPECT_EQ(unit.CanSetMaxFrames(), noErr);
    EXPECT_EQ(unit.DispatchSetProperty(kAudioUnitProperty_MaximumFramesPerSlice,
                                       kAudioUnitScope_Global, 0, &frames, sizeof(frames)),
              noErr);
    EXPECT_EQ(log.mCalls.size(), 2u);
    EXPECT_EQ(output.GetAllocatedFrames(), 512u);
    ASSERT_EQ(unit.DoInitialize(), noErr);
    EXPECT_EQ(output.GetAllocatedFrames(), 256u);
    EXPECT_EQ(output.GetAllocatedBytes(), 2u * 2048u); // memory never shrinks

    // While initialized a new maximum (set directly, as a unit may) resizes
    // every bus at once.
    unit.SetMaxFramesPerSlice(1024);
    EXPECT_EQ(output.GetAllocatedFrames(), 1024u);
    EXPECT_EQ(output.GetAllocatedBytes(), 2u * 4096u);
}

TEST(AUBaseLifecycleTest, BusCountChangesOnlyWhileUninitialized)
{
    auto owner = OpenUnit();
    AUBaseTestUnit& unit = *owner;
    EXPECT_EQ(unit.SetBusCount(kAudioUnitScope_Output, 2), noErr);
    ASSERT_EQ(unit.Outputs().GetNumberOfElements(), 2u);
    EXPECT_NE(unit.GetOutput(1)->AsIOElement(), nullptr);
    EXPECT_EQ(unit.GetStreamFormat(kAudioUnitScope_Output, 1).mChannelsPerFrame, 2u);
    EXPECT_EQ(ThrownStatus([&] { unit.SetBusCount(kAudioUnitScope_Part, 1); }),
              kAudioUnitErr_InvalidScope);

    ASSERT_EQ(unit.DoInitialize(), noErr);
    EXPECT_EQ(unit.SetBusCount(kAudioUnitScope_Output, 3), kAudioUnitErr_Initialized);
    EXPECT_EQ(unit.Outputs().GetNumberOfElements(), 2u);
}

TEST(AUBaseFormatTest, OnlyNonInterleavedNativeFloatIsValid)
{
    auto owner = OpenUnit();
    AUBaseTestUnit& unit = *owner;
    for (Float64 rate : {8000.0, 44100.0, 192000.0}) {
        EXPECT_TRUE(unit.ValidFormat(kAudioUnitScope_Output, 0, FloatFormat(2, rate)));
    }
    EXPECT_TRUE(unit.ValidFormat(kAudioUnitScope_Input, 0, FloatFormat(7)));

    CAStreamBasicDescription format = FloatFormat(2);
    format.mFormatFlags &= ~static_cast<UInt32>(kAudioFormatFlagIsNonInterleaved);
    EXPECT_FALSE(unit.ValidFormat(kAudioUnitScope_Output, 0, format)) << "interleaved";
    format = FloatFormat(1);
    format.mFormatFlags &= ~static_cast<UInt32>(kAudioFormatFlagIsNonInterleaved);
    EXPECT_FALSE(unit.ValidFormat(kAudioUnitScope_Output, 0, format)) << "interleaved mono";
    format = FloatFormat(2);
    format.mFormatFlags |= kAudioFormatFlagIsBigEndian;
    EXPECT_FALSE(unit.ValidFormat(kAudioUnitScope_Output, 0, format)) << "big-endian";
    format = FloatFormat(2);
    format.mFormatFlags = kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked |
                          kAudioFormatFlagIsNonInterleaved;
    format.mBitsPerChannel = 16;
    format.mBytesPerFrame = format.mBytesPerPacket = 2;
    EXPECT_FALSE(unit.ValidFormat(kAudioUnitScope_Output, 0, format)) << "16-bit";
    format = FloatFormat(2);
    format.mFramesPerPacket = 2;
    EXPECT_FALSE(unit.ValidFormat(kAudioUnitScope_Output, 0, format)) << "2 frames per packet";
    format = FloatFormat(2);
    format.mFormatID = kAudioFormatAppleLossless;
    EXPECT_FALSE(unit.ValidFormat(kAudioUnitScope_Output, 0, format)) << "not PCM";
    format = FloatFormat(2);
    format.mBitsPerChannel = 64;
    format.mBytesPerFrame = format.mBytesPerPacket = 8;
    EXPECT_FALSE(unit.ValidFormat(kAudioUnitScope_Output, 0, format)) << "64-bit float";
}

TEST(AUBaseFormatTest, StreamFormatsAddressBusesAndChangesNotifyAsAddressed)
{
    auto owner = OpenUnit();
    AUBaseTestUnit& unit = *owner;
    ListenerLog log;
    unit.AddPropertyListener(kAudioUnitProperty_StreamFormat, ListenerLog::Hear, &log);

    EXPECT_EQ(&unit.GetStreamFormat(kAudioUnitScope_Global, 5),
              &unit.GetStreamFormat(kAudioUnitScope_Output, 0));
    EXPECT_EQ(ThrownStatus([&] { unit.GetStreamFormat(kAudioUnitScope_Group, 0); }),
              kAudioUnitErr_InvalidScope);
    EXPECT_EQ(ThrownStatus([&] { unit.GetStreamFormat(kAudioUnitScope_Input, 3); }),
              kAudioUnitErr_InvalidElement);

    const CAStreamBasicDescription mono = FloatFormat(1, 96000.0);
    EXPECT_EQ(unit.ChangeStreamFormat(kAudioUnitScope_Global, 5, mono, mono), noErr);
    EXPECT_TRUE(unit.GetStreamFormat(kAudioUnitScope_Output, 0).IsEqual(mono, false));
    EXPECT_TRUE(unit.GetStreamFormat(kAudioUnitScope_Input, 0).mChannelsPerFrame == 2);
    ASSERT_EQ(log.mCalls.size(), 1u);
    EXPECT_EQ(log.mCalls[0],
              std::make_tuple(AudioUnitPropertyID{kAudioUnitProperty_StreamFormat},
                              AudioUnitScope{kAudioUnitScope_Global}, AudioUnitElement{5}));
}

TEST(AUBaseFormatTest, ChannelLayoutsAreRefusedByBusesWithoutLayoutTags)
{
    auto owner = OpenUnit();
    AUBaseTestUnit& unit = *owner;
    AudioChannelLayout layout{};
    layout.mChannelLayoutTag = kAudioChannelLayoutTag_Mono;
    EXPECT_EQ(unit.SetAudioChannelLayout(kAudioUnitScope_Output, 0, &layout),
              kAudioUnitErr_InvalidPropertyValue);
    layout.mChannelLayoutTag = kAudioChannelLayoutTag_Stereo;
    EXPECT_EQ(unit.SetAudioChannelLayout(kAudioUnitScope_Output, 0, &layout),
              kAudioUnitErr_InvalidProperty);
    EXPECT_EQ(unit.DispatchSetProperty(kAudioUnitProperty_AudioChannelLayout,
                                       kAudioUnitScope_Output, 0, &layout, 11),
              kAudioUnitErr_InvalidPropertyValue);
    layout.mNumberChannelDescriptions = 1; // announces 20 more bytes than given
    EXPECT_EQ(unit.DispatchSetProperty(kAudioUnitProperty_AudioChannelLayout,
                                       kAudioUnitScope_Output, 0, &layout, 12),
              kAudioUnitErr_InvalidPropertyValue);
    EXPECT_EQ(unit.GetChannelLayoutTags(kAudioUnitScope_Input, 0, nullptr), 0u);
    EXPECT_EQ(unit.RemoveAudioChannelLayout(kAudioUnitScope_Input, 0), noErr);
    EXPECT_EQ(ThrownStatus([&] { unit.SetAudioChannelLayout(kAudioUnitScope_Global, 0, &layout); }),
              kAudioUnitErr_InvalidElement);
    EXPECT_EQ(ThrownStatus([&] { unit.RemoveAudioChannelLayout(kAudioUnitScope_Part, 0); }),
              kAudioUnitErr_InvalidScope);
}
