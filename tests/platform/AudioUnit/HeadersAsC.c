/* The platform headers compiled as strict C11: their static assertions pin
   the record layouts for C as they do for C++, and the constants C sees are
   reported so that the tests can compare them with what C++ sees. */
#include <AudioToolbox/AudioToolbox.h>
#include <AudioUnit/AudioUnit.h>
#include <CoreAudio/CoreAudioTypes.h>
#include <CoreServices/CoreServices.h>

unsigned long HeadersAsC_Constant(unsigned index);

/* The index-th constant of the table below; 0 past its end. */
unsigned long HeadersAsC_Constant(unsigned index)
{
    static const unsigned long kConstants[] = {
        (unsigned long)kAudioUnitType_Effect,
        (unsigned long)(UInt32)badComponentSelector,
        (unsigned long)(UInt32)kAudioUnitParameterFlag_IsWritable,
        (unsigned long)(UInt32)kAudioFormatFlagsAreAllClear,
        (unsigned long)kAudioFormatFlagsNativeFloatPacked,
        (unsigned long)kAudioUnitRemovePropertyListenerWithUserDataSelect,
        (unsigned long)(UInt32)kComponentOpenSelect,
    };
    return index < sizeof(kConstants) / sizeof(kConstants[0]) ? kConstants[index] : 0;
}
