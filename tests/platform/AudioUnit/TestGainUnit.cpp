/*
 * The runtime's test component, written directly against the platform
 * headers. It exports a factory (TestGainFactory) and a Component Manager
 * entry function (TestGainEntry) over one unit class that records every call
 * it receives, so that the tests can open it both ways and check that each
 * host call arrives with its selector and arguments intact.
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
#include <cstdint>
#include <cstring>
#include <new>

#include "TestGainUnit.h"

namespace {

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

template <typename T> T* Pointer(UInt64 slot)
{
    return reinterpret_cast<T*>(static_cast<std::uintptr_t>(slot));
}

class GainUnit
{
public:
    GainUnit(ComponentInstance instance, bool factoryStyle)
        : mInstance(instance), mFactoryStyle(factoryStyle)
    {
    }

    /* Keeps the call as its last one (unless it reads that record) and
       answers it: the private properties are read-only, every other call
       succeeds. Allocates nothing. */
    OSStatus Receive(const TestGainCall& call)
    {
        const UInt32 id = static_cast<UInt32>(call.mArgs[0]);
        const bool property = call.mWhat == kAudioUnitGetPropertyInfoSelect ||
                              call.mWhat == kAudioUnitGetPropertySelect;
        const TestGainCall last = mLast;
        if (!property || id != kTestGainProperty_LastCall) {
            mLast = call;
        }
        if (!property) {
            return noErr;
        }
        UInt32 size = 0;
        AudioComponentDescription description;
        Handle storage = nullptr;
        const void* value = nullptr;
        switch (id) {
        case kTestGainProperty_Description:
            size = sizeof(description);
            value = &description;
            break;
        case kTestGainProperty_Storage:
            size = sizeof(storage);
            value = &storage;
            break;
        case kTestGainProperty_LastCall:
            size = sizeof(last);
            value = &last;
            break;
        default:
            return kAudioUnitErr_InvalidProperty;
        }
        if (call.mWhat == kAudioUnitGetPropertyInfoSelect) {
            if (UInt32* outSize = Pointer<UInt32>(call.mArgs[3])) {
                *outSize = size;
            }
            if (Boolean* writable = Pointer<Boolean>(call.mArgs[4])) {
                *writable = false;
            }
            return noErr;
        }
        UInt32* ioSize = Pointer<UInt32>(call.mArgs[4]);
        if (call.mArgs[3] == 0 || ioSize == nullptr || *ioSize < size) {
            return paramErr;
        }
        if (id == kTestGainProperty_Description) {
            OSStatus status = OwnDescription(description);
            if (status != noErr) {
                return status;
            }
        } else if (id == kTestGainProperty_Storage) {
            if (Runtime().getStorage == nullptr) {
                return kAudio_UnimplementedError;
            }
            storage = Runtime().getStorage(mInstance);
        }
        std::memcpy(Pointer<void>(call.mArgs[3]), value, size);
        *ioSize = size;
        return noErr;
    }

private:
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
    TestGainCall mLast = {};
};

/* ---- Factory style: the instance record and one method per selector. ---- */

struct FactoryRecord
{
    AudioComponentPlugInInterface mInterface;
    OSType mSubtype;
    GainUnit* mUnit;
};

/* The method of one selector, with that selector's argument types: packs
   the arguments into a call record the way the entry style receives them. */
template <SInt16 What, typename... A> OSStatus Method(void* self, A... args)
{
    TestGainCall call = {What, {}};
    [[maybe_unused]] UInt64* slot = call.mArgs;
    (std::memcpy(slot++, &args, sizeof(args)), ...);
    return static_cast<FactoryRecord*>(self)->mUnit->Receive(call);
}

template <SInt16 What, typename... A> AudioComponentMethod MethodOf()
{
    return reinterpret_cast<AudioComponentMethod>(&Method<What, A...>);
}

AudioComponentMethod FactoryLookup(SInt16 what)
{
    using ID = AudioUnitPropertyID;
    using Scope = AudioUnitScope;
    using Element = AudioUnitElement;
    using Listener = AudioUnitPropertyListenerProc;
    switch (what) {
    case kAudioUnitInitializeSelect:
        return MethodOf<kAudioUnitInitializeSelect>();
    case kAudioUnitUninitializeSelect:
        return MethodOf<kAudioUnitUninitializeSelect>();
    case kAudioUnitGetPropertyInfoSelect:
        return MethodOf<kAudioUnitGetPropertyInfoSelect, ID, Scope, Element, UInt32*, Boolean*>();
    case kAudioUnitGetPropertySelect:
        return MethodOf<kAudioUnitGetPropertySelect, ID, Scope, Element, void*, UInt32*>();
    case kAudioUnitSetPropertySelect:
        return MethodOf<kAudioUnitSetPropertySelect, ID, Scope, Element, const void*, UInt32>();
    case kAudioUnitGetParameterSelect:
        return MethodOf<kAudioUnitGetParameterSelect, AudioUnitParameterID, Scope, Element,
                        AudioUnitParameterValue*>();
    case kAudioUnitSetParameterSelect:
        return MethodOf<kAudioUnitSetParameterSelect, AudioUnitParameterID, Scope, Element,
                        AudioUnitParameterValue, UInt32>();
    case kAudioUnitResetSelect:
        return MethodOf<kAudioUnitResetSelect, Scope, Element>();
    case kAudioUnitAddPropertyListenerSelect:
        return MethodOf<kAudioUnitAddPropertyListenerSelect, ID, Listener, void*>();
    case kAudioUnitRemovePropertyListenerWithUserDataSelect:
        return MethodOf<kAudioUnitRemovePropertyListenerWithUserDataSelect, ID, Listener, void*>();
    case kAudioUnitRenderSelect:
        return MethodOf<kAudioUnitRenderSelect, AudioUnitRenderActionFlags*, const AudioTimeStamp*,
                        UInt32, UInt32, AudioBufferList*>();
    case kAudioUnitAddRenderNotifySelect:
        return MethodOf<kAudioUnitAddRenderNotifySelect, AURenderCallback, void*>();
    case kAudioUnitRemoveRenderNotifySelect:
        return MethodOf<kAudioUnitRemoveRenderNotifySelect, AURenderCallback, void*>();
    case kAudioUnitScheduleParametersSelect:
        return MethodOf<kAudioUnitScheduleParametersSelect, const AudioUnitParameterEvent*,
                        UInt32>();
    default:
        return nullptr;
    }
}

OSStatus FactoryOpen(void* self, AudioComponentInstance instance)
{
    FactoryRecord* record = static_cast<FactoryRecord*>(self);
    if (record->mSubtype == kTestGainFailing) {
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

/* ---- Entry-point style: the parameter block's slots are the record. ---- */

OSStatus EntryOpen(ComponentParameters* params)
{
    const RuntimeCalls& runtime = Runtime();
    if (runtime.getInfo == nullptr || runtime.setStorage == nullptr) {
        return kAudio_UnimplementedError;
    }
    ComponentInstance instance;
    std::memcpy(&instance, params->params, sizeof(instance));
    ComponentDescription description;
    OSErr status = runtime.getInfo(reinterpret_cast<Component>(instance), &description, nullptr,
                                   nullptr, nullptr);
    if (status != noErr) {
        return status;
    }
    if (description.componentSubType == kTestGainFailing) {
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
    if (description->componentSubType == kTestGainNoRecord) {
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
    default:
        break;
    }
    // The entry answers the audio-unit selectors the factory style answers.
    if (FactoryLookup(params->what) == nullptr) {
        return badComponentSelector;
    }
    TestGainCall call = {params->what, {}};
    const std::size_t bytes = std::min<std::size_t>(params->paramSize, sizeof(call.mArgs));
    std::memcpy(call.mArgs, reinterpret_cast<const char*>(params->params) + 8, bytes);
    return unit->Receive(call);
}

} // extern "C"
