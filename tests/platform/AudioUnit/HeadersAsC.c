/* The platform headers compiled as strict C11: reports the record layouts C
   sees, so that the tests can compare them with what C++ sees. */
#include <AudioToolbox/AudioToolbox.h>
#include <AudioUnit/AudioUnit.h>
#include <CoreAudio/CoreAudioTypes.h>
#include <CoreServices/CoreServices.h>

#include <stddef.h>

#include "HeadersAsC.h"

size_t HeadersAsC_Layout(unsigned index)
{
    static const size_t kLayout[] = {
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
    return index < sizeof(kLayout) / sizeof(kLayout[0]) ? kLayout[index] : 0;
}

unsigned long HeadersAsC_Constant(unsigned index)
{
    static const unsigned long kConstants[] = {
        (unsigned long)kAudioUnitType_Effect,
        (unsigned long)(UInt32)badComponentSelector,
        (unsigned long)(UInt32)kAudioUnitParameterFlag_IsWritable,
        (unsigned long)(UInt32)kAudioFormatFlagsAreAllClear,
        (unsigned long)kAudioFormatFlagsNativeFloatPacked,
        (unsigned long)kAudioUnitRemovePropertyListenerWithUserDataSelect,
    };
    return index < sizeof(kConstants) / sizeof(kConstants[0]) ? kConstants[index] : 0;
}
