/* The audio-unit host calls: each routes its selector and arguments to the
   plug-in in the instance's style. No allocation, lock or system call here,
   so every call is as real-time safe as the plug-in's own method. */
#include "ComponentInstanceRecord.h"

extern "C" {

OSStatus AudioUnitInitialize(AudioUnit inUnit)
{
    return inUnit != nullptr ? inUnit->Call(kAudioUnitInitializeSelect) : paramErr;
}

OSStatus AudioUnitUninitialize(AudioUnit inUnit)
{
    return inUnit != nullptr ? inUnit->Call(kAudioUnitUninitializeSelect) : paramErr;
}

OSStatus AudioUnitGetPropertyInfo(AudioUnit inUnit, AudioUnitPropertyID inID,
                                  AudioUnitScope inScope, AudioUnitElement inElement,
                                  UInt32* outDataSize, Boolean* outWritable)
{
    return inUnit != nullptr ? inUnit->Call(kAudioUnitGetPropertyInfoSelect, inID, inScope,
                                            inElement, outDataSize, outWritable)
                             : paramErr;
}

OSStatus AudioUnitGetProperty(AudioUnit inUnit, AudioUnitPropertyID inID, AudioUnitScope inScope,
                              AudioUnitElement inElement, void* outData, UInt32* ioDataSize)
{
    return inUnit != nullptr ? inUnit->Call(kAudioUnitGetPropertySelect, inID, inScope, inElement,
                                            outData, ioDataSize)
                             : paramErr;
}

OSStatus AudioUnitSetProperty(AudioUnit inUnit, AudioUnitPropertyID inID, AudioUnitScope inScope,
                              AudioUnitElement inElement, const void* inData, UInt32 inDataSize)
{
    return inUnit != nullptr ? inUnit->Call(kAudioUnitSetPropertySelect, inID, inScope, inElement,
                                            inData, inDataSize)
                             : paramErr;
}

OSStatus AudioUnitAddPropertyListener(AudioUnit inUnit, AudioUnitPropertyID inID,
                                      AudioUnitPropertyListenerProc inProc, void* inProcUserData)
{
    return inUnit != nullptr
               ? inUnit->Call(kAudioUnitAddPropertyListenerSelect, inID, inProc, inProcUserData)
               : paramErr;
}

OSStatus AudioUnitRemovePropertyListenerWithUserData(AudioUnit inUnit, AudioUnitPropertyID inID,
                                                     AudioUnitPropertyListenerProc inProc,
                                                     void* inProcUserData)
{
    return inUnit != nullptr ? inUnit->Call(kAudioUnitRemovePropertyListenerWithUserDataSelect,
                                            inID, inProc, inProcUserData)
                             : paramErr;
}

OSStatus AudioUnitAddRenderNotify(AudioUnit inUnit, AURenderCallback inProc, void* inProcUserData)
{
    return inUnit != nullptr ? inUnit->Call(kAudioUnitAddRenderNotifySelect, inProc, inProcUserData)
                             : paramErr;
}

OSStatus AudioUnitRemoveRenderNotify(AudioUnit inUnit, AURenderCallback inProc,
                                     void* inProcUserData)
{
    return inUnit != nullptr
               ? inUnit->Call(kAudioUnitRemoveRenderNotifySelect, inProc, inProcUserData)
               : paramErr;
}

OSStatus AudioUnitGetParameter(AudioUnit inUnit, AudioUnitParameterID inID, AudioUnitScope inScope,
                               AudioUnitElement inElement, AudioUnitParameterValue* outValue)
{
    return inUnit != nullptr
               ? inUnit->Call(kAudioUnitGetParameterSelect, inID, inScope, inElement, outValue)
               : paramErr;
}

OSStatus AudioUnitSetParameter(AudioUnit inUnit, AudioUnitParameterID inID, AudioUnitScope inScope,
                               AudioUnitElement inElement, AudioUnitParameterValue inValue,
                               UInt32 inBufferOffsetInFrames)
{
    return inUnit != nullptr ? inUnit->Call(kAudioUnitSetParameterSelect, inID, inScope, inElement,
                                            inValue, inBufferOffsetInFrames)
                             : paramErr;
}

OSStatus AudioUnitScheduleParameters(AudioUnit inUnit,
                                     const AudioUnitParameterEvent* inParameterEvent,
                                     UInt32 inNumParamEvents)
{
    return inUnit != nullptr ? inUnit->Call(kAudioUnitScheduleParametersSelect, inParameterEvent,
                                            inNumParamEvents)
                             : paramErr;
}

OSStatus AudioUnitRender(AudioUnit inUnit, AudioUnitRenderActionFlags* ioActionFlags,
                         const AudioTimeStamp* inTimeStamp, UInt32 inOutputBusNumber,
                         UInt32 inNumberFrames, AudioBufferList* ioData)
{
    return inUnit != nullptr ? inUnit->Call(kAudioUnitRenderSelect, ioActionFlags, inTimeStamp,
                                            inOutputBusNumber, inNumberFrames, ioData)
                             : paramErr;
}

OSStatus AudioUnitReset(AudioUnit inUnit, AudioUnitScope inScope, AudioUnitElement inElement)
{
    return inUnit != nullptr ? inUnit->Call(kAudioUnitResetSelect, inScope, inElement) : paramErr;
}

} // extern "C"
