// Scheduled parameter events in the global scope, as a host builds them.
#ifndef PARAMETEREVENTS_H
#define PARAMETEREVENTS_H

#include <AudioUnit/AudioUnit.h>

inline AudioUnitParameterEvent ImmediateEvent(AudioUnitParameterID inID, UInt32 inOffset,
                                              float inValue, AudioUnitElement inElement = 0)
{
    AudioUnitParameterEvent event{};
    event.scope = kAudioUnitScope_Global;
    event.element = inElement;
    event.parameter = inID;
    event.eventType = kParameterEvent_Immediate;
    event.eventValues.immediate.bufferOffset = inOffset;
    event.eventValues.immediate.value = inValue;
    return event;
}

inline AudioUnitParameterEvent RampEvent(AudioUnitParameterID inID, SInt32 inOffset,
                                         UInt32 inDuration, float inStart, float inEnd)
{
    AudioUnitParameterEvent event{};
    event.scope = kAudioUnitScope_Global;
    event.element = 0;
    event.parameter = inID;
    event.eventType = kParameterEvent_Ramped;
    event.eventValues.ramp.startBufferOffset = inOffset;
    event.eventValues.ramp.durationInFrames = inDuration;
    event.eventValues.ramp.startValue = inStart;
    event.eventValues.ramp.endValue = inEnd;
    return event;
}

#endif
