/* The platform headers compile as strict C (HeadersAsC.c) and give C and C++
   the same constants, including those beyond the range of int. */
#include <AudioToolbox/AudioToolbox.h>
#include <AudioUnit/AudioUnit.h>
#include <CoreServices/CoreServices.h>

#include <gtest/gtest.h>

extern "C" unsigned long HeadersAsC_Constant(unsigned index);

TEST(AudioUnitHeadersTest, CAndCxxAgreeOnConstants)
{
    const unsigned long cxx[] = {
        kAudioUnitType_Effect,
        static_cast<UInt32>(badComponentSelector),
        static_cast<UInt32>(kAudioUnitParameterFlag_IsWritable),
        static_cast<UInt32>(kAudioFormatFlagsAreAllClear),
        kAudioFormatFlagsNativeFloatPacked,
        kAudioUnitRemovePropertyListenerWithUserDataSelect,
        static_cast<UInt32>(kComponentOpenSelect),
    };
    const unsigned count = sizeof(cxx) / sizeof(cxx[0]);
    for (unsigned i = 0; i < count; ++i) {
        EXPECT_EQ(HeadersAsC_Constant(i), cxx[i]) << "constant " << i;
    }
    EXPECT_EQ(HeadersAsC_Constant(count), 0u) << "the C table has more entries";
}
