#include "AUPluginDispatch.h"

namespace {

// The unit stored in an instance record. APFactory::Construct checks that the
// unit's base sits at the start of the storage.
AUBase* Unit(void* self)
{
    return static_cast<AUBase*>(
        static_cast<ComponentBase*>(AudioComponentPlugInInstanceStorage(self)));
}

// Runs one method body on the record's unit: null record -> paramErr,
// exceptions -> their status.
template <typename Body> OSStatus Guarded(void* self, Body&& inBody)
{
    if (self == nullptr) {
        return paramErr;
    }
    try {
        return inBody(*Unit(self));
    } catch (...) {
        return AUDispatch::CurrentExceptionStatus();
    }
}

OSStatus AUMethodInitialize(void* self)
{
    return Guarded(self, [](AUBase& unit) { return unit.DoInitialize(); });
}

OSStatus AUMethodUninitialize(void* self)
{
    return Guarded(self, [](AUBase& unit) {
        unit.DoCleanup();
        return OSStatus(noErr);
    });
}

OSStatus AUMethodGetPropertyInfo(void* self, AudioUnitPropertyID inID, AudioUnitScope inScope,
                                 AudioUnitElement inElement, UInt32* outDataSize,
                                 Boolean* outWritable)
{
    return Guarded(self, [&](AUBase& unit) {
        return AUDispatch::GetPropertyInfo(unit, inID, inScope, inElement, outDataSize,
                                           outWritable);
    });
}

OSStatus AUMethodGetProperty(void* self, AudioUnitPropertyID inID, AudioUnitScope inScope,
                             AudioUnitElement inElement, void* outData, UInt32* ioDataSize)
{
    return Guarded(self, [&](AUBase& unit) {
        return AUDispatch::GetProperty(unit, inID, inScope, inElement, outData, ioDataSize);
    });
}

OSStatus AUMethodSetProperty(void* self, AudioUnitPropertyID inID, AudioUnitScope inScope,
                             AudioUnitElement inElement, const void* inData, UInt32 inDataSize)
{
    return Guarded(self, [&](AUBase& unit) {
        return AUDispatch::SetProperty(unit, inID, inScope, inElement, inData, inDataSize);
    });
}

OSStatus AUMethodGetParameter(void* self, AudioUnitParameterID inID, AudioUnitScope inScope,
                              AudioUnitElement inElement, AudioUnitParameterValue* outValue)
{
    return Guarded(self, [&](AUBase& unit) {
        if (outValue == nullptr) {
            return OSStatus(paramErr);
        }
        return unit.GetParameter(inID, inScope, inElement, *outValue);
    });
}

OSStatus AUMethodSetParameter(void* self, AudioUnitParameterID inID, AudioUnitScope inScope,
                              AudioUnitElement inElement, AudioUnitParameterValue inValue,
                              UInt32 inBufferOffsetInFrames)
{
    return Guarded(self, [&](AUBase& unit) {
        return unit.SetParameter(inID, inScope, inElement, inValue, inBufferOffsetInFrames);
    });
}

// Unlike the component-manager reset selector, this leaves the render time to
// the unit's Reset chain, which resets it itself.
OSStatus AUMethodReset(void* self, AudioUnitScope inScope, AudioUnitElement inElement)
{
    return Guarded(self, [&](AUBase& unit) { return unit.Reset(inScope, inElement); });
}

OSStatus AUMethodAddPropertyListener(void* self, AudioUnitPropertyID inID,
                                     AudioUnitPropertyListenerProc inProc, void* inRefCon)
{
    return Guarded(self,
                   [&](AUBase& unit) { return unit.AddPropertyListener(inID, inProc, inRefCon); });
}

OSStatus AUMethodRemovePropertyListener(void* self, AudioUnitPropertyID inID,
                                        AudioUnitPropertyListenerProc inProc, void* inRefCon)
{
    return Guarded(self, [&](AUBase& unit) {
        return unit.RemovePropertyListener(inID, inProc, inRefCon, true);
    });
}

// [render]
OSStatus AUMethodRender(void* self, AudioUnitRenderActionFlags* ioActionFlags,
                        const AudioTimeStamp* inTimeStamp, UInt32 inOutputBusNumber,
                        UInt32 inNumberFrames, AudioBufferList* ioData)
{
    return Guarded(self, [&](AUBase& unit) {
        return AUDispatch::Render(unit, ioActionFlags, inTimeStamp, inOutputBusNumber,
                                  inNumberFrames, ioData);
    });
}

OSStatus AUMethodAddRenderNotify(void* self, AURenderCallback inProc, void* inRefCon)
{
    return Guarded(self,
                   [&](AUBase& unit) { return unit.SetRenderNotification(inProc, inRefCon); });
}

OSStatus AUMethodRemoveRenderNotify(void* self, AURenderCallback inProc, void* inRefCon)
{
    return Guarded(self,
                   [&](AUBase& unit) { return unit.RemoveRenderNotification(inProc, inRefCon); });
}

OSStatus AUMethodScheduleParameters(void* self, const AudioUnitParameterEvent* inEvents,
                                    UInt32 inNumEvents)
{
    return Guarded(self,
                   [&](AUBase& unit) { return unit.ScheduleParameter(inEvents, inNumEvents); });
}

template <typename Method> AudioComponentMethod AsMethod(Method inMethod)
{
    return reinterpret_cast<AudioComponentMethod>(inMethod);
}

} // namespace

AudioComponentMethod AUBaseLookup::Lookup(SInt16 inSelector)
{
    switch (inSelector) {
    case kAudioUnitInitializeSelect:
        return AsMethod(AUMethodInitialize);
    case kAudioUnitUninitializeSelect:
        return AsMethod(AUMethodUninitialize);
    case kAudioUnitGetPropertyInfoSelect:
        return AsMethod(AUMethodGetPropertyInfo);
    case kAudioUnitGetPropertySelect:
        return AsMethod(AUMethodGetProperty);
    case kAudioUnitSetPropertySelect:
        return AsMethod(AUMethodSetProperty);
    case kAudioUnitGetParameterSelect:
        return AsMethod(AUMethodGetParameter);
    case kAudioUnitSetParameterSelect:
        return AsMethod(AUMethodSetParameter);
    case kAudioUnitResetSelect:
        return AsMethod(AUMethodReset);
    case kAudioUnitAddPropertyListenerSelect:
        return AsMethod(AUMethodAddPropertyListener);
    case kAudioUnitRenderSelect:
        return AsMethod(AUMethodRender);
    case kAudioUnitAddRenderNotifySelect:
        return AsMethod(AUMethodAddRenderNotify);
    case kAudioUnitRemoveRenderNotifySelect:
        return AsMethod(AUMethodRemoveRenderNotify);
    case kAudioUnitScheduleParametersSelect:
        return AsMethod(AUMethodScheduleParameters);
    case kAudioUnitRemovePropertyListenerWithUserDataSelect:
        return AsMethod(AUMethodRemovePropertyListener);
    default:
        return nullptr;
    }
}
