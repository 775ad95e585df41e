/* The platform headers give C and C++ the same record layouts and constants,
   with the sizes a plug-in built for the platform expects. */
#include <AudioToolbox/AudioToolbox.h>
#include <AudioUnit/AudioUnit.h>
#include <CoreServices/CoreServices.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "HeadersAsC.h"

TEST(AudioUnitHeadersTest, CAndCxxAgreeOnRecordLayouts)
{
    const std::vector<size_t> expected = {
        40, 16, 24,  24, 64, 56, 20, 12,                       // audio data records
        20, 8,                                                 // component manager
        20, 32,                                                // audio components
        32, 16, 104, 72, 96, 16, 16, 16, 16, 4, 16, 16, 8, 40, // audio-unit records
    };
    const std::vector<size_t> cxx = {
        sizeof(AudioStreamBasicDescription),
        sizeof(AudioBuffer),
        sizeof(AudioBufferList),
        sizeof(SMPTETime),
        sizeof(AudioTimeStamp),
        offsetof(AudioTimeStamp, mFlags),
        sizeof(AudioChannelDescription),
        offsetof(AudioChannelLayout, mChannelDescriptions),
        sizeof(ComponentDescription),
        offsetof(ComponentParameters, params),
        sizeof(AudioComponentDescription),
        sizeof(AudioComponentPlugInInterface),
        sizeof(AudioUnitParameterEvent),
        offsetof(AudioUnitParameterEvent, eventValues),
        sizeof(AudioUnitParameterInfo),
        offsetof(AudioUnitParameterInfo, cfNameString),
        offsetof(AudioUnitParameterInfo, flags),
        sizeof(AUPreset),
        sizeof(AudioUnitConnection),
        sizeof(AURenderCallbackStruct),
        sizeof(AudioUnitExternalBuffer),
        sizeof(AUChannelInfo),
        sizeof(AudioUnitCocoaViewInfo),
        sizeof(AudioUnitParameterNameInfo),
        sizeof(AudioUnitParameterHistoryInfo),
        sizeof(HostCallbackInfo),
    };
    ASSERT_EQ(cxx.size(), expected.size());
    for (unsigned i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(HeadersAsC_Layout(i), expected[i]) << "C layout entry " << i;
        EXPECT_EQ(cxx[i], expected[i]) << "C++ layout entry " << i;
    }
    EXPECT_EQ(HeadersAsC_Layout(static_cast<unsigned>(expected.size())), 0u);
}

TEST(AudioUnitHeadersTest, ConstantsHaveThePlatformValuesInBothLanguages)
{
    const std::vector<unsigned long> expected = {0x61756678UL, 0x80008002UL, 0x80000000UL,
                                                 0x80000000UL, 0x9UL,        18UL};
    for (unsigned i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(HeadersAsC_Constant(i), expected[i]) << "C constant " << i;
    }
    EXPECT_EQ(badComponentSelector, -2147450878);
    EXPECT_EQ(kAudioUnitParameterFlag_IsReadable | kAudioUnitParameterFlag_IsWritable, 0xC0000000u);
    EXPECT_EQ(kAudioUnitParameterFlag_IsReadable | kAudioUnitParameterFlag_IsWritable |
                  kAudioUnitParameterFlag_HasCFNameString,
              0xC8000000u);
    EXPECT_EQ(kAudioUnitRenderAction_OutputIsSilence, 16u);
    EXPECT_EQ(kAudioUnitErr_TooManyFramesToProcess, -10874);
    EXPECT_EQ(kComponentOpenSelect, -1);
    EXPECT_EQ(kAudioChannelLayoutTag_UseChannelBitmap, 0x10000u);
}
