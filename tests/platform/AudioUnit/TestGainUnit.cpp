/*
 * A small gain effect used only by the runtime's tests, written directly
 * against the platform headers. It exports a factory (TestGainFactory) and a
 * Component Manager entry function (TestGainEntry) over one unit class, so
 * that the tests can open it both ways and check that every host call
 * arrives with its arguments intact.
 *
 * Like a real plug-in it looks up the runtime's instance-storage and
 * description functions at run time in libAudioUnit.so, and it answers two
 * private properties with what those look-ups return.
 *
 * Subtype 'gfal' refuses to open, in both styles; for subtype 'gnul' the
 * factory returns no record.
 */
#include <AudioUnit/AudioUnit.h>
#include <CoreServices/CoreServices.h>

#include <dlfcn.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "TestGainUnit.h"

namespace {

constexpr OSType kFailingSubtype = 0x6766616C;  // 'gfal'
constexpr OSType kNoRecordSubtype = 0x676E756C; // 'gnul'
constexpr UInt32 kMaxNotifications = 4;
constexpr UInt32 kMaxEvents = 16;

/* The runtime functions a plug-in looks up by name. */
struct RuntimeCalls
{
    Handle (*getStorage)(ComponentInstance) = nullptr;
    OSErr (*getInfo)(Component, ComponentDescription*, Handle, Handle, Handle) = nullptr;
    AudioComponent (*getComponent)(AudioComponentInstance) = nullptr;
    OSStatus (*getDescription)(AudioComponent, AudioComponentDescription*) = nullptr;
    void (*setStorage)(ComponentInstance, Handle) = nullptr;

    RuntimeCalls()
    {
        void* runtime = dlopen("libAudioUnit.so", RTLD_LAZY);
        if (runtime == nullptr) {
            return;
        }
        getStorage =
            reinterpret_cast<decltype(getStorage)>(dlsym(runtime, "GetComponentInstanceStorage"));
        setStorage =
            reinterpret_cast<decltype(setStorage)>(dlsym(runtime, "SetComponentInstanceStorage"));
        getInfo = reinterpret_cast<decltype(getInfo)>(dlsym(runtime, "GetComponentInfo"));
        getComponent = reinterpret_cast<decltype(getComponent)>(
            dlsym(runtime, "AudioComponentInstanceGetComponent"));
        getDescription = reinterpret_cast<decltype(getDescription)>(
            dlsym(runtime, "AudioComponentGetDescription"));
    }
};

const RuntimeCalls& Runtime()
{
    static const RuntimeCalls sCalls;
    return sCalls;
}

struct Listener
{
    AudioUnitPropertyID id;
    AudioUnitPropertyListenerProc proc;
    void* refCon;
};

class GainUnit
{
public:
    GainUnit(ComponentInstance instance, bool factoryStyle)
        : mInstance(instance), mFactoryStyle(factoryStyle)
    {
        mListeners.reserve(8);
    }

    OSStatus Initialize()
    {
        mInitialized = true;
        return noErr;
    }

    OSStatus Uninitialize()
    {
        mInitialized = false;
        return noErr;
    }

    OSStatus GetPropertyInfo(AudioUnitPropertyID id, AudioUnitScope scope, AudioUnitElement,
                             UInt32* size, Boolean* writable)
    {
        UInt32 s = 0;
        Boolean w = false;
        switch (id) {
        case kAudioUnitProperty_MaximumFramesPerSlice:
            s = 4;
            w = true;
            break;
        case kAudioUnitProperty_StreamFormat:
            s = sizeof(AudioStreamBasicDescription);
            w = true;
            break;
        case kAudioUnitProperty_SetRenderCallback:
            if (scope != kAudioUnitScope_Input) {
                return kAudioUnitErr_InvalidScope;
            }
            s = sizeof(AURenderCallbackStruct);
            w = true;
            break;
        case kTestGainProperty_Description:
            s = sizeof(AudioComponentDescription);
            break;
        case kTestGainProperty_Storage:
            s = sizeof(void*);
            break;
        case kTestGainProperty_ResetCount:
            s = 4;
            break;
        default:
            return kAudioUnitErr_InvalidProperty;
        }
        if (size != nullptr) {
            *size = s;
        }
        if (writable != nullptr) {
            *writable = w;
        }
        return noErr;
    }

    OSStatus GetProperty(AudioUnitPropertyID id, AudioUnitScope scope, AudioUnitElement element,
                         void* data, UInt32* ioSize)
    {
        UInt32 size = 0;
        OSStatus status = GetPropertyInfo(id, scope, element, &size, nullptr);
        if (status != noErr) {
            return status;
        }
        if (data == nullptr || ioSize == nullptr || *ioSize < size) {
            return paramErr;
        }
        switch (id) {
        case kAudioUnitProperty_MaximumFramesPerSlice:
            std::memcpy(data, &mMaxFrames, 4);
            break;
        case kAudioUnitProperty_StreamFormat:
            std::memcpy(data, &mFormat, sizeof(mFormat));
            break;
        case kAudioUnitProperty_SetRenderCallback:
            std::memcpy(data, &mInput, sizeof(mInput));
            break;
        case kTestGainProperty_Description: {
            AudioComponentDescription description;
            status = OwnDescription(description);
            if (status != noErr) {
                return status;
            }
            std::memcpy(data, &description, sizeof(description));
            break;
        }
        case kTestGainProperty_Storage: {
            if (Runtime().getStorage == nullptr) {
                return kAudio_UnimplementedError;
            }
            Handle storage = Runtime().getStorage(mInstance);
            std::memcpy(data, &storage, sizeof(storage));
            break;
        }
        case kTestGainProperty_ResetCount:
            std::memcpy(data, &mResetCount, 4);
            break;
        }
        *ioSize = size;
        return noErr;
    }

    OSStatus SetProperty(AudioUnitPropertyID id, AudioUnitScope scope, AudioUnitElement element,
                         const void* data, UInt32 size)
    {
        switch (id) {
        case kAudioUnitProperty_MaximumFramesPerSlice:
            if (size != 4) {
                return kAudioUnitErr_InvalidPropertyValue;
            }
            if (mInitialized) {
                return kAudioUnitErr_Initialized;
            }
            std::memcpy(&mMaxFrames, data, 4);
            break;
        case kAudioUnitProperty_StreamFormat:
            if (size < sizeof(mFormat)) {
                return kAudioUnitErr_InvalidPropertyValue;
            }
            std::memcpy(&mFormat, data, sizeof(mFormat));
            break;
        case kAudioUnitProperty_SetRenderCallback:
            if (scope != kAudioUnitScope_Input || size < sizeof(mInput)) {
                return kAudioUnitErr_InvalidPropertyValue;
            }
            std::memcpy(&mInput, data, sizeof(mInput));
            break;
        default:
            return kAudioUnitErr_InvalidProperty;
        }
        for (const Listener& listener : mListeners) {
            if (listener.id == id) {
                listener.proc(listener.refCon, mInstance, id, scope, element);
            }
        }
        return noErr;
    }

    OSStatus AddPropertyListener(AudioUnitPropertyID id, AudioUnitPropertyListenerProc proc,
                                 void* refCon)
    {
        mListeners.push_back(Listener{id, proc, refCon});
        return noErr;
    }

    OSStatus RemovePropertyListener(AudioUnitPropertyID id, AudioUnitPropertyListenerProc proc,
                                    void* refCon)
    {
        mListeners.erase(std::remove_if(mListeners.begin(), mListeners.end(),
                                        [&](const Listener& l) {
                                            return l.id == id && l.proc == proc &&
                                                   l.refCon == refCon;
                                        }),
                         mListeners.end());
        return noErr;
    }

    OSStatus GetParameter(AudioUnitParameterID id, AudioUnitScope scope, AudioUnitElement element,
                          AudioUnitParameterValue* value)
    {
        if (id != kTestGainParam_Gain || scope != kAudioUnitScope_Global || element != 0) {
            return kAudioUnitErr_InvalidParameter;
        }
        if (value == nullptr) {
            return paramErr;
        }
        *value = mGain;
        return noErr;
    }

    OSStatus SetParameter(AudioUnitParameterID id, AudioUnitScope scope, AudioUnitElement element,
                          AudioUnitParameterValue value, UInt32 offset)
    {
        if (id != kTestGainParam_Gain || scope != kAudioUnitScope_Global || element != 0) {
            return kAudioUnitErr_InvalidParameter;
        }
        mGain = value;
        mLastSetOffset = offset;
        return noErr;
    }

    OSStatus ScheduleParameters(const AudioUnitParameterEvent* events, UInt32 count)
    {
        if (events == nullptr || mEventCount + count > kMaxEvents) {
            return paramErr;
        }
        for (UInt32 i = 0; i < count; ++i) {
            if (events[i].parameter != kTestGainParam_Gain ||
                events[i].eventType != kParameterEvent_Immediate) {
                return kAudioUnitErr_InvalidParameter;
            }
        }
        std::copy(events, events + count, mEvents + mEventCount);
        mEventCount += count;
        return noErr;
    }

    OSStatus Reset(AudioUnitScope, AudioUnitElement)
    {
        ++mResetCount;
        return noErr;
    }

    OSStatus AddRenderNotify(AURenderCallback proc, void* refCon)
    {
        if (proc == nullptr || mNotificationCount == kMaxNotifications) {
            return paramErr;
        }
        mNotifications[mNotificationCount++] = AURenderCallbackStruct{proc, refCon};
        return noErr;
    }

    OSStatus RemoveRenderNotify(AURenderCallback proc, void* refCon)
    {
        for (UInt32 i = 0; i < mNotificationCount; ++i) {
            if (mNotifications[i].inputProc == proc &&
                mNotifications[i].inputProcRefCon == refCon) {
                mNotifications[i] = mNotifications[--mNotificationCount];
                break;
            }
        }
        return noErr;
    }

    /* Pulls the input through the host callback into ioData and scales it by
       the gain; a scheduled immediate gain change takes effect at its
       offset. Pre- and post-render notifications surround the work. */
    OSStatus Render(AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time, UInt32 bus,
                    UInt32 frames, AudioBufferList* data)
    {
        if (flags == nullptr || time == nullptr || data == nullptr) {
            return paramErr;
        }
        if (!mInitialized) {
            return kAudioUnitErr_Uninitialized;
        }
        if (frames > mMaxFrames) {
            return kAudioUnitErr_TooManyFramesToProcess;
        }
        if (mInput.inputProc == nullptr) {
            return kAudioUnitErr_NoConnection;
        }
        Notify(kAudioUnitRenderAction_PreRender, time, bus, frames, data);
        AudioUnitRenderActionFlags inputFlags = 0;
        OSStatus status =
            mInput.inputProc(mInput.inputProcRefCon, &inputFlags, time, 0, frames, data);
        if (status == noErr) {
            for (UInt32 b = 0; b < data->mNumberBuffers; ++b) {
                Float32* samples = static_cast<Float32*>(data->mBuffers[b].mData);
                Float32 gain = mGain;
                for (UInt32 f = 0; f < frames; ++f) {
                    for (UInt32 e = 0; e < mEventCount; ++e) {
                        if (mEvents[e].eventValues.immediate.bufferOffset == f) {
                            gain = mEvents[e].eventValues.immediate.value;
                        }
                    }
                    samples[f] *= gain;
                }
                if (b + 1 == data->mNumberBuffers) {
                    mGain = gain;
                }
            }
        }
        mEventCount = 0;
        Notify(kAudioUnitRenderAction_PostRender, time, bus, frames, data);
        return status;
    }

    ComponentInstance Instance() const { return mInstance; }

private:
    void Notify(AudioUnitRenderActionFlags phase, const AudioTimeStamp* time, UInt32 bus,
                UInt32 frames, AudioBufferList* data)
    {
        for (UInt32 i = 0; i < mNotificationCount; ++i) {
            AudioUnitRenderActionFlags flags = phase;
            mNotifications[i].inputProc(mNotifications[i].inputProcRefCon, &flags, time, bus,
                                        frames, data);
        }
    }

    /* The description the way a plug-in finds it: through the audio-component
       calls for a factory instance, through GetComponentInfo otherwise. */
    OSStatus OwnDescription(AudioComponentDescription& description) const
    {
        const RuntimeCalls& runtime = Runtime();
        if (mFactoryStyle) {
            if (runtime.getComponent == nullptr || runtime.getDescription == nullptr) {
                return kAudio_UnimplementedError;
            }
            return runtime.getDescription(runtime.getComponent(mInstance), &description);
        }
        if (runtime.getInfo == nullptr) {
            return kAudio_UnimplementedError;
        }
        ComponentDescription info;
        OSErr status = runtime.getInfo(reinterpret_cast<Component>(mInstance), &info, nullptr,
                                       nullptr, nullptr);
        std::memcpy(&description, &info, sizeof(description));
        return status;
    }

    ComponentInstance mInstance;
    bool mFactoryStyle;
    bool mInitialized = false;
    Float32 mGain = 1.0f;
    UInt32 mLastSetOffset = 0;
    UInt32 mMaxFrames = 1024;
    UInt32 mResetCount = 0;
    AudioStreamBasicDescription mFormat = {
        44100.0, kAudioFormatLinearPCM, kAudioFormatFlagsAudioUnitCanonical, 4, 1, 4, 2, 32, 0};
    AURenderCallbackStruct mInput = {nullptr, nullptr};
    std::vector<Listener> mListeners;
    AURenderCallbackStruct mNotifications[kMaxNotifications] = {};
    UInt32 mNotificationCount = 0;
    AudioUnitParameterEvent mEvents[kMaxEvents] = {};
    UInt32 mEventCount = 0;
};

/* ---- Factory style: the instance record and one method per selector. ---- */

struct FactoryRecord
{
    AudioComponentPlugInInterface mInterface;
    OSType mSubtype;
    GainUnit* mUnit;
};

GainUnit& UnitOf(void* self)
{
    return *static_cast<FactoryRecord*>(self)->mUnit;
}

OSStatus FactoryOpen(void* self, AudioComponentInstance instance)
{
    FactoryRecord* record = static_cast<FactoryRecord*>(self);
    if (record->mSubtype == kFailingSubtype) {
        delete record;
        return kAudioUnitErr_FailedInitialization;
    }
    record->mUnit = new GainUnit(instance, true);
    return noErr;
}

OSStatus FactoryClose(void* self)
{
    FactoryRecord* record = static_cast<FactoryRecord*>(self);
    delete record->mUnit;
    delete record;
    return noErr;
}

OSStatus MethodInitialize(void* self)
{
    return UnitOf(self).Initialize();
}
OSStatus MethodUninitialize(void* self)
{
    return UnitOf(self).Uninitialize();
}
OSStatus MethodGetPropertyInfo(void* self, AudioUnitPropertyID id, AudioUnitScope scope,
                               AudioUnitElement element, UInt32* size, Boolean* writable)
{
    return UnitOf(self).GetPropertyInfo(id, scope, element, size, writable);
}
OSStatus MethodGetProperty(void* self, AudioUnitPropertyID id, AudioUnitScope scope,
                           AudioUnitElement element, void* data, UInt32* size)
{
    return UnitOf(self).GetProperty(id, scope, element, data, size);
}
OSStatus MethodSetProperty(void* self, AudioUnitPropertyID id, AudioUnitScope scope,
                           AudioUnitElement element, const void* data, UInt32 size)
{
    return UnitOf(self).SetProperty(id, scope, element, data, size);
}
OSStatus MethodGetParameter(void* self, AudioUnitParameterID id, AudioUnitScope scope,
                            AudioUnitElement element, AudioUnitParameterValue* value)
{
    return UnitOf(self).GetParameter(id, scope, element, value);
}
OSStatus MethodSetParameter(void* self, AudioUnitParameterID id, AudioUnitScope scope,
                            AudioUnitElement element, AudioUnitParameterValue value, UInt32 offset)
{
    return UnitOf(self).SetParameter(id, scope, element, value, offset);
}
OSStatus MethodReset(void* self, AudioUnitScope scope, AudioUnitElement element)
{
    return UnitOf(self).Reset(scope, element);
}
OSStatus MethodAddPropertyListener(void* self, AudioUnitPropertyID id,
                                   AudioUnitPropertyListenerProc proc, void* refCon)
{
    return UnitOf(self).AddPropertyListener(id, proc, refCon);
}
OSStatus MethodRemovePropertyListener(void* self, AudioUnitPropertyID id,
                                      AudioUnitPropertyListenerProc proc, void* refCon)
{
    return UnitOf(self).RemovePropertyListener(id, proc, refCon);
}
OSStatus MethodRender(void* self, AudioUnitRenderActionFlags* flags, const AudioTimeStamp* time,
                      UInt32 bus, UInt32 frames, AudioBufferList* data)
{
    return UnitOf(self).Render(flags, time, bus, frames, data);
}
OSStatus MethodAddRenderNotify(void* self, AURenderCallback proc, void* refCon)
{
    return UnitOf(self).AddRenderNotify(proc, refCon);
}
OSStatus MethodRemoveRenderNotify(void* self, AURenderCallback proc, void* refCon)
{
    return UnitOf(self).RemoveRenderNotify(proc, refCon);
}
OSStatus MethodScheduleParameters(void* self, const AudioUnitParameterEvent* events, UInt32 count)
{
    return UnitOf(self).ScheduleParameters(events, count);
}

AudioComponentMethod FactoryLookup(SInt16 selector)
{
    switch (selector) {
    case kAudioUnitInitializeSelect:
        return reinterpret_cast<AudioComponentMethod>(MethodInitialize);
    case kAudioUnitUninitializeSelect:
        return reinterpret_cast<AudioComponentMethod>(MethodUninitialize);
    case kAudioUnitGetPropertyInfoSelect:
        return reinterpret_cast<AudioComponentMethod>(MethodGetPropertyInfo);
    case kAudioUnitGetPropertySelect:
        return reinterpret_cast<AudioComponentMethod>(MethodGetProperty);
    case kAudioUnitSetPropertySelect:
        return reinterpret_cast<AudioComponentMethod>(MethodSetProperty);
    case kAudioUnitGetParameterSelect:
        return reinterpret_cast<AudioComponentMethod>(MethodGetParameter);
    case kAudioUnitSetParameterSelect:
        return reinterpret_cast<AudioComponentMethod>(MethodSetParameter);
    case kAudioUnitResetSelect:
        return reinterpret_cast<AudioComponentMethod>(MethodReset);
    case kAudioUnitAddPropertyListenerSelect:
        return reinterpret_cast<AudioComponentMethod>(MethodAddPropertyListener);
    case kAudioUnitRemovePropertyListenerWithUserDataSelect:
        return reinterpret_cast<AudioComponentMethod>(MethodRemovePropertyListener);
    case kAudioUnitRenderSelect:
        return reinterpret_cast<AudioComponentMethod>(MethodRender);
    case kAudioUnitAddRenderNotifySelect:
        return reinterpret_cast<AudioComponentMethod>(MethodAddRenderNotify);
    case kAudioUnitRemoveRenderNotifySelect:
        return reinterpret_cast<AudioComponentMethod>(MethodRemoveRenderNotify);
    case kAudioUnitScheduleParametersSelect:
        return reinterpret_cast<AudioComponentMethod>(MethodScheduleParameters);
    default:
        return nullptr;
    }
}

/* ---- Entry-point style: unpack the parameter block. ---- */

template <typename T> T Arg(const ComponentParameters* params, int slot)
{
    T value;
    std::memcpy(&value, &params->params[slot], sizeof(T));
    return value;
}

OSStatus EntryOpen(ComponentParameters* params)
{
    const RuntimeCalls& runtime = Runtime();
    if (runtime.getInfo == nullptr || runtime.setStorage == nullptr) {
        return kAudio_UnimplementedError;
    }
    ComponentInstance instance = Arg<ComponentInstance>(params, 0);
    ComponentDescription description;
    OSErr status = runtime.getInfo(reinterpret_cast<Component>(instance), &description, nullptr,
                                   nullptr, nullptr);
    if (status != noErr) {
        return status;
    }
    if (description.componentSubType == kFailingSubtype) {
        return kAudioUnitErr_FailedInitialization;
    }
    runtime.setStorage(instance, reinterpret_cast<Handle>(new GainUnit(instance, false)));
    return noErr;
}

} // namespace

extern "C" {

__attribute__((visibility("default"))) AudioComponentPlugInInterface*
TestGainFactory(const AudioComponentDescription* description)
{
    if (description->componentSubType == kNoRecordSubtype) {
        return nullptr;
    }
    FactoryRecord* record = new (std::nothrow) FactoryRecord;
    if (record == nullptr) {
        return nullptr;
    }
    record->mInterface =
        AudioComponentPlugInInterface{FactoryOpen, FactoryClose, FactoryLookup, nullptr};
    record->mSubtype = description->componentSubType;
    record->mUnit = nullptr;
    return &record->mInterface;
}

__attribute__((visibility("default"))) ComponentResult TestGainEntry(ComponentParameters* params,
                                                                     Handle storage)
{
    if (params->what == kComponentOpenSelect) {
        return EntryOpen(params);
    }
    GainUnit* unit = reinterpret_cast<GainUnit*>(storage);
    if (unit == nullptr) {
        return paramErr;
    }
    switch (params->what) {
    case kComponentCloseSelect:
        delete unit;
        return noErr;
    case kComponentVersionSelect:
        return kTestGainVersion;
    case kAudioUnitInitializeSelect:
        return unit->Initialize();
    case kAudioUnitUninitializeSelect:
        return unit->Uninitialize();
    case kAudioUnitGetPropertyInfoSelect:
        return unit->GetPropertyInfo(Arg<UInt32>(params, 1), Arg<UInt32>(params, 2),
                                     Arg<UInt32>(params, 3), Arg<UInt32*>(params, 4),
                                     Arg<Boolean*>(params, 5));
    case kAudioUnitGetPropertySelect:
        return unit->GetProperty(Arg<UInt32>(params, 1), Arg<UInt32>(params, 2),
                                 Arg<UInt32>(params, 3), Arg<void*>(params, 4),
                                 Arg<UInt32*>(params, 5));
    case kAudioUnitSetPropertySelect:
        return unit->SetProperty(Arg<UInt32>(params, 1), Arg<UInt32>(params, 2),
                                 Arg<UInt32>(params, 3), Arg<const void*>(params, 4),
                                 Arg<UInt32>(params, 5));
    case kAudioUnitGetParameterSelect:
        return unit->GetParameter(Arg<UInt32>(params, 1), Arg<UInt32>(params, 2),
                                  Arg<UInt32>(params, 3), Arg<Float32*>(params, 4));
    case kAudioUnitSetParameterSelect:
        return unit->SetParameter(Arg<UInt32>(params, 1), Arg<UInt32>(params, 2),
                                  Arg<UInt32>(params, 3), Arg<Float32>(params, 4),
                                  Arg<UInt32>(params, 5));
    case kAudioUnitResetSelect:
        return unit->Reset(Arg<UInt32>(params, 1), Arg<UInt32>(params, 2));
    case kAudioUnitAddPropertyListenerSelect:
        return unit->AddPropertyListener(Arg<UInt32>(params, 1),
                                         Arg<AudioUnitPropertyListenerProc>(params, 2),
                                         Arg<void*>(params, 3));
    case kAudioUnitRemovePropertyListenerWithUserDataSelect:
        return unit->RemovePropertyListener(Arg<UInt32>(params, 1),
                                            Arg<AudioUnitPropertyListenerProc>(params, 2),
                                            Arg<void*>(params, 3));
    case kAudioUnitRenderSelect:
        return unit->Render(Arg<AudioUnitRenderActionFlags*>(params, 1),
                            Arg<const AudioTimeStamp*>(params, 2), Arg<UInt32>(params, 3),
                            Arg<UInt32>(params, 4), Arg<AudioBufferList*>(params, 5));
    case kAudioUnitAddRenderNotifySelect:
        return unit->AddRenderNotify(Arg<AURenderCallback>(params, 1), Arg<void*>(params, 2));
    case kAudioUnitRemoveRenderNotifySelect:
        return unit->RemoveRenderNotify(Arg<AURenderCallback>(params, 1), Arg<void*>(params, 2));
    case kAudioUnitScheduleParametersSelect:
        return unit->ScheduleParameters(Arg<const AudioUnitParameterEvent*>(params, 1),
                                        Arg<UInt32>(params, 2));
    default:
        return badComponentSelector;
    }
}

} // extern "C"
