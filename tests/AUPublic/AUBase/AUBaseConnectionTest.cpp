#include "AUBaseTestUnit.h"
#include "AUPluginDispatch.h"

#include <AudioUnit/AudioUnit.h>
#include <gtest/gtest.h>

namespace {

class ConnectionUnit : public AUBaseTestUnit
{
public:
    explicit ConnectionUnit(AudioComponentInstance inInstance) : AUBaseTestUnit(inInstance)
    {
        sLastOpened = this;
    }
    static inline ConnectionUnit* sLastOpened = nullptr;
};

const AudioComponentDescription kDescription = {kAudioUnitType_Effect, 0x74436E6E /* tCnn */,
                                                0x56616E64 /* Vand */, 0, 0};

OSStatus SilentInput(void*, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32, UInt32,
                     AudioBufferList*)
{
    return noErr;
}

// Two units opened through the runtime, as a host would: a source and the
// unit under test whose input 0 is connected to it.
class ConnectionTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        CFStringRef name = CFStringCreateWithCString(kCFAllocatorDefault, "Test: connections",
                                                     kCFStringEncodingUTF8);
        sComponent = AudioComponentRegister(&kDescription, name, 1,
                                            APFactory<AUBaseLookup, ConnectionUnit>::Factory);
        CFRelease(name);
    }

    void SetUp() override
    {
        ASSERT_NE(sComponent, nullptr);
        ASSERT_EQ(AudioComponentInstanceNew(sComponent, &mSource), noErr);
        ASSERT_EQ(AudioComponentInstanceNew(sComponent, &mDest), noErr);
        mUnit = ConnectionUnit::sLastOpened;
        for (AudioUnitPropertyID id :
             {kAudioUnitProperty_MakeConnection, kAudioUnitProperty_StreamFormat,
              kAudioUnitProperty_SetRenderCallback}) {
            AudioUnitAddPropertyListener(mDest, id, ListenerLog::Hear, &mLog);
        }
        mMono = mUnit->GetStreamFormat(kAudioUnitScope_Output, 0);
        mMono.mChannelsPerFrame = 1;
        mMono.mSampleRate = 48000.0;
        ASSERT_EQ(AudioUnitSetProperty(mSource, kAudioUnitProperty_StreamFormat,
                                       kAudioUnitScope_Output, 0, &mMono, sizeof(mMono)),
                  noErr);
    }

    void TearDown() override
    {
        AudioComponentInstanceDispose(mDest);
        AudioComponentInstanceDispose(mSource);
    }

    OSStatus Connect(AudioUnit inSource, UInt32 inSourceOutput = 0, UInt32 inDestInput = 0)
    {
        const AudioUnitConnection connection{inSource, inSourceOutput, inDestInput};
        return AudioUnitSetProperty(mDest, kAudioUnitProperty_MakeConnection, kAudioUnitScope_Input,
                                    inDestInput, &connection, sizeof(connection));
    }

    OSStatus SetInputFormat(const AudioStreamBasicDescription& inFormat)
    {
        return AudioUnitSetProperty(mDest, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input,
                                    0, &inFormat, sizeof(inFormat));
    }

    bool InputFormatWritable()
    {
        UInt32 size = 0;
        Boolean writable = false;
        EXPECT_EQ(AudioUnitGetPropertyInfo(mDest, kAudioUnitProperty_StreamFormat,
                                           kAudioUnitScope_Input, 0, &size, &writable),
                  noErr);
        return writable != 0;
    }

    static inline AudioComponent sComponent = nullptr;
    AudioComponentInstance mSource = nullptr;
    AudioComponentInstance mDest = nullptr;
    ConnectionUnit* mUnit = nullptr;
    ListenerLog mLog;
    CAStreamBasicDescription mMono;
};

} // namespace

TEST_F(ConnectionTest, ConnectedInputTakesTheSourceFormatAndKeepsIt)
{
    ASSERT_EQ(Connect(mSource), noErr);
    EXPECT_EQ(mUnit->GetInput(0)->GetSourceKind(), AUInputElement::kSourceConnection);
    EXPECT_TRUE(mUnit->GetStreamFormat(kAudioUnitScope_Input, 0).IsEqual(mMono, false));
    ASSERT_EQ(mLog.mCalls.size(), 2u);
    EXPECT_EQ(mLog.mCalls[0],
              std::make_tuple(AudioUnitPropertyID{kAudioUnitProperty_StreamFormat},
                              AudioUnitScope{kAudioUnitScope_Input}, AudioUnitElement{0}));
    EXPECT_EQ(std::get<0>(mLog.mCalls[1]), AudioUnitPropertyID{kAudioUnitProperty_MakeConnection});

    EXPECT_FALSE(InputFormatWritable());
    EXPECT_EQ(SetInputFormat(mMono), noErr);
    CAStreamBasicDescription stereo = mMono;
    stereo.mChannelsPerFrame = 2;
    EXPECT_EQ(SetInputFormat(stereo), kAudioUnitErr_PropertyNotWritable);
    const Float64 rate = 22050.0;
    EXPECT_EQ(AudioUnitSetProperty(mDest, kAudioUnitProperty_SampleRate, kAudioUnitScope_Input, 0,
                                   &rate, sizeof(rate)),
              kAudioUnitErr_PropertyNotWritable);

    ASSERT_EQ(Connect(nullptr), noErr);
    EXPECT_FALSE(mUnit->GetInput(0)->HasSource());
    EXPECT_TRUE(InputFormatWritable());
    EXPECT_EQ(SetInputFormat(stereo), noErr);
}

TEST_F(ConnectionTest, RefusedConnectionsLeaveTheInputAsItWas)
{
    EXPECT_EQ(Connect(mSource, 5), kAudioUnitErr_InvalidElement); // the source has one output
    EXPECT_FALSE(mUnit->GetInput(0)->HasSource());
    EXPECT_EQ(mUnit->GetStreamFormat(kAudioUnitScope_Input, 0).mChannelsPerFrame, 2u);
    EXPECT_TRUE(mLog.mCalls.empty());

    // A source format this unit does not accept refuses the connection too.
    CAStreamBasicDescription interleaved = mMono;
    interleaved.mChannelsPerFrame = 2;
    interleaved.mFormatFlags &= ~static_cast<UInt32>(kAudioFormatFlagIsNonInterleaved);
    interleaved.mBytesPerFrame = interleaved.mBytesPerPacket = 8;
    ConnectionUnit* source = nullptr;
    AudioComponentInstance other = nullptr;
    ASSERT_EQ(AudioComponentInstanceNew(sComponent, &other), noErr);
    source = ConnectionUnit::sLastOpened;
    source->GetOutput(0)->SetStreamFormat(interleaved);
    EXPECT_EQ(Connect(other), kAudioUnitErr_FormatNotSupported);
    EXPECT_FALSE(mUnit->GetInput(0)->HasSource());
    AudioComponentInstanceDispose(other);

    EXPECT_EQ(Connect(mSource, 0, 3), kAudioUnitErr_InvalidElement);
}

TEST_F(ConnectionTest, RenderCallbackFeedsTheInputAndIsAnnounced)
{
    AURenderCallbackStruct callback{SilentInput, this};
    EXPECT_EQ(AudioUnitSetProperty(mDest, kAudioUnitProperty_SetRenderCallback,
                                   kAudioUnitScope_Input, 0, &callback, 8),
              kAudioUnitErr_InvalidPropertyValue);
    EXPECT_EQ(AudioUnitSetProperty(mDest, kAudioUnitProperty_SetRenderCallback,
                                   kAudioUnitScope_Input, 0, &callback, sizeof(callback)),
              noErr);
    EXPECT_EQ(mUnit->GetInput(0)->GetSourceKind(), AUInputElement::kSourceCallback);
    ASSERT_EQ(mLog.mCalls.size(), 1u);
    EXPECT_EQ(mLog.mCalls[0],
              std::make_tuple(AudioUnitPropertyID{kAudioUnitProperty_SetRenderCallback},
                              AudioUnitScope{kAudioUnitScope_Input}, AudioUnitElement{0}));
    EXPECT_TRUE(InputFormatWritable());

    callback.inputProc = nullptr;
    EXPECT_EQ(AudioUnitSetProperty(mDest, kAudioUnitProperty_SetRenderCallback,
                                   kAudioUnitScope_Input, 0, &callback, sizeof(callback)),
              noErr);
    EXPECT_FALSE(mUnit->GetInput(0)->HasSource());

    // Fast dispatch is offered only to component-manager instances.
    UInt32 size = 0;
    Boolean writable = false;
    EXPECT_EQ(AudioUnitGetPropertyInfo(mDest, kAudioUnitProperty_FastDispatch,
                                       kAudioUnitScope_Global, kAudioUnitRenderSelect, &size,
                                       &writable),
              kAudioUnitErr_InvalidProperty);
}
