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
#include <utility>
#include <vector>

#include "TestGainUnit.h"

namespace {

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

    OSStatus GetPropertyInfo(AudioUnitPropertyID id, AudioUnitScope, AudioUnitElement, UInt32* size,
                             Boolean* writable)
    {
        const Property property = Find(id);
        if (property.mData == nullptr) {
            return kAudioUnitErr_InvalidProperty;
        }
        if (size != nullptr) {
            *size = property.mSize;
        }
        if (writable != nullptr) {
            *writable = property.mWritable;
        }
        return noErr;
    }

    OSStatus GetProperty(AudioUnitPropertyID id, AudioUnitScope, AudioUnitElement, void* data,
                         UInt32* ioSize)
    {
        const Property property = Find(id);
        if (property.mData == nullptr) {
            return kAudioUnitErr_InvalidProperty;
        }
        if (data == nullptr || ioSize == nullptr || *ioSize < property.mSize) {
            return paramErr;
        }
        if (id == kTestGainProperty_Description) {
            OSStatus status = OwnDescription(mDescription);
            if (status != noErr) {
                return status;
            }
        } else if (id == kTestGainProperty_Storage) {
            if (Runtime().getStorage == nullptr) {
                return kAudio_UnimplementedError;
            }
            mStorage = Runtime().getStorage(mInstance);
        }
        std::memcpy(data, property.mData, property.mSize);
        *ioSize = property.mSize;
        return noErr;
    }

    OSStatus SetProperty(AudioUnitPropertyID id, AudioUnitScope scope, AudioUnitElement element,
                         const void* data, UInt32 size)
    {
        const Property property = Find(id);
        if (!property.mWritable) {
            return kAudioUnitErr_InvalidProperty;
        }
        if (data == nullptr || size != property.mSize) {
            return kAudioUnitErr_InvalidPropertyValue;
        }
        if (id == kAudioUnitProperty_MaximumFramesPerSlice && mInitialized) {
            return kAudioUnitErr_Initialized;
        }
        std::memcpy(property.mData, data, size);
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
                          AudioUnitParameterValue value, UInt32)
    {
        if (id != kTestGainParam_Gain || scope != kAudioUnitScope_Global || element != 0) {
            return kAudioUnitErr_InvalidParameter;
        }
        mGain = value;
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

private:
    struct Property
    {
        void* mData; // null: no such property
        UInt32 mSize;
        bool mWritable;
    };

    /* Where each property lives, its size and whether a host may set it. */
    Property Find(AudioUnitPropertyID id)
    {
        switch (id) {
        case kAudioUnitProperty_MaximumFramesPerSlice:
            return {&mMaxFrames, sizeof(mMaxFrames), true};
        case kAudioUnitProperty_StreamFormat:
            return {&mFormat, sizeof(mFormat), true};
        case kAudioUnitProperty_SetRenderCallback:
            return {&mInput, sizeof(mInput), true};
        case kTestGainProperty_Description:
            return {&mDescription, sizeof(mDescription), false};
        case kTestGainProperty_Storage:
            return {&mStorage, sizeof(mStorage), false};
        case kTestGainProperty_ResetCount:
            return {&mResetCount, sizeof(mResetCount), false};
        default:
            return {nullptr, 0, false};
        }
    }

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
    UInt32 mMaxFrames = 1024;
    UInt32 mResetCount = 0;
    AudioComponentDescription mDescription = {};
    Handle mStorage = nullptr;
    AudioStreamBasicDescription mFormat = {
        44100.0, kAudioFormatLinearPCM, kAudioFormatFlagsAudioUnitCanonical, 4, 1, 4, 2, 32, 0};
    AURenderCallbackStruct mInput = {nullptr, nullptr};
    std::vector<Listener> mListeners;
    AURenderCallbackStruct mNotifications[kMaxNotifications] = {};
    UInt32 mNotificationCount = 0;
    AudioUnitParameterEvent mEvents[kMaxEvents] = {};
    UInt32 mEventCount = 0;
};

/* ---- Routing: one table serves both hosting styles. ---- */

struct FactoryRecord
{
    AudioComponentPlugInInterface mInterface;
    OSType mSubtype;
    GainUnit* mUnit;
};

template <typename T> T Arg(const ComponentParameters* params, std::size_t slot)
{
    T value;
    std::memcpy(&value, &params->params[slot], sizeof(T));
    return value;
}

/* A unit method as a factory-style method (the record comes first) and as an
   entry-style call (the arguments follow the instance in the parameter
   block's slots). */
template <auto M, typename = decltype(M)> struct Route;
template <auto M, typename... A> struct Route<M, OSStatus (GainUnit::*)(A...)>
{
    static OSStatus Method(void* self, A... args)
    {
        return (static_cast<FactoryRecord*>(self)->mUnit->*M)(args...);
    }

    static ComponentResult Entry(GainUnit& unit, [[maybe_unused]] const ComponentParameters* params)
    {
        return Unpack(unit, params, std::index_sequence_for<A...>{});
    }

    template <std::size_t... I>
    static ComponentResult Unpack(GainUnit& unit,
                                  [[maybe_unused]] const ComponentParameters* params,
                                  std::index_sequence<I...>)
    {
        return (unit.*M)(Arg<A>(params, I + 1)...);
    }
};

struct Selector
{
    SInt16 mWhat;
    AudioComponentMethod mMethod;
    ComponentResult (*mEntry)(GainUnit&, const ComponentParameters*);
};

template <auto M> Selector Routed(SInt16 what)
{
    return Selector{what, reinterpret_cast<AudioComponentMethod>(&Route<M>::Method),
                    &Route<M>::Entry};
}

const Selector* FindSelector(SInt16 what)
{
    static const Selector sSelectors[] = {
        Routed<&GainUnit::Initialize>(kAudioUnitInitializeSelect),
        Routed<&GainUnit::Uninitialize>(kAudioUnitUninitializeSelect),
        Routed<&GainUnit::GetPropertyInfo>(kAudioUnitGetPropertyInfoSelect),
        Routed<&GainUnit::GetProperty>(kAudioUnitGetPropertySelect),
        Routed<&GainUnit::SetProperty>(kAudioUnitSetPropertySelect),
        Routed<&GainUnit::GetParameter>(kAudioUnitGetParameterSelect),
        Routed<&GainUnit::SetParameter>(kAudioUnitSetParameterSelect),
        Routed<&GainUnit::Reset>(kAudioUnitResetSelect),
        Routed<&GainUnit::AddPropertyListener>(kAudioUnitAddPropertyListenerSelect),
        Routed<&GainUnit::RemovePropertyListener>(
            kAudioUnitRemovePropertyListenerWithUserDataSelect),
        Routed<&GainUnit::Render>(kAudioUnitRenderSelect),
        Routed<&GainUnit::AddRenderNotify>(kAudioUnitAddRenderNotifySelect),
        Routed<&GainUnit::RemoveRenderNotify>(kAudioUnitRemoveRenderNotifySelect),
        Routed<&GainUnit::ScheduleParameters>(kAudioUnitScheduleParametersSelect),
    };
    for (const Selector& selector : sSelectors) {
        if (selector.mWhat == what) {
            return &selector;
        }
    }
    return nullptr;
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

AudioComponentMethod FactoryLookup(SInt16 what)
{
    const Selector* selector = FindSelector(what);
    return selector != nullptr ? selector->mMethod : nullptr;
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
    if (params->what == kComponentCloseSelect) {
        delete unit;
        return noErr;
    }
    if (params->what == kComponentVersionSelect) {
        return kTestGainVersion;
    }
    const Selector* selector = FindSelector(params->what);
    return selector != nullptr ? selector->mEntry(*unit, params) : badComponentSelector;
}

} // extern "C"
