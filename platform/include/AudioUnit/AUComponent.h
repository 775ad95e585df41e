/*
 * The audio-unit host API: the calls a host makes on an open unit, the
 * selectors those calls carry to the plug-in, and the records they exchange.
 *
 * Lifecycle of a unit as a host drives it: open (AudioComponentInstanceNew or
 * OpenAComponent) -> set formats and the maximum slice size (properties) ->
 * AudioUnitInitialize -> AudioUnitRender again and again on the audio thread
 * -> AudioUnitUninitialize -> dispose. Every AudioUnit... call is routed to
 * the plug-in in the style the instance was opened with: a looked-up method
 * for a factory instance, a parameter block to the entry function for a
 * Component Manager instance. The runtime adds no state of its own between
 * host and unit, so the statuses are the plug-in's.
 *
 * Thread tags: [render] no allocation, no lock, no system call in the
 * runtime's routing (the unit's own contract applies beyond it); [control]
 * host control threads; [any] any thread.
 */
#ifndef AUDIOUNIT_AUCOMPONENT_H
#define AUDIOUNIT_AUCOMPONENT_H

#include <MacTypes.h>
#include <AudioUnit/AudioComponent.h>
#include <CoreAudio/CoreAudioTypes.h>
#include <stddef.h>

/* The runtime library exports these functions; plug-ins look some of them up
   at run time by name. */
#ifndef AU_EXPORT
#define AU_EXPORT extern __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef AudioComponentInstance AudioUnit;

typedef UInt32 AudioUnitPropertyID;
typedef UInt32 AudioUnitScope;
typedef UInt32 AudioUnitElement;
typedef UInt32 AudioUnitParameterID;
typedef Float32 AudioUnitParameterValue;
typedef UInt32 AudioUnitRenderActionFlags;

/* Component types (four-character codes). */
enum
{
    kAudioUnitType_Output = 0x61756F75,          /* 'auou' */
    kAudioUnitType_MusicDevice = 0x61756D75,     /* 'aumu' */
    kAudioUnitType_MusicEffect = 0x61756D66,     /* 'aumf' */
    kAudioUnitType_FormatConverter = 0x61756663, /* 'aufc' */
    kAudioUnitType_Effect = 0x61756678,          /* 'aufx' */
    kAudioUnitType_Mixer = 0x61756D78,           /* 'aumx' */
    kAudioUnitType_Panner = 0x6175706E,          /* 'aupn' */
    kAudioUnitType_Generator = 0x6175676E,       /* 'augn' */
    kAudioUnitType_OfflineEffect = 0x61756F6C    /* 'auol' */
};

/* Scopes of properties and parameters. */
enum
{
    kAudioUnitScope_Global = 0,
    kAudioUnitScope_Input = 1,
    kAudioUnitScope_Output = 2,
    kAudioUnitScope_Group = 3,
    kAudioUnitScope_Part = 4,
    kAudioUnitScope_Note = 5,
    kAudioUnitScope_Layer = 6,
    kAudioUnitScope_LayerItem = 7
};

/* Render action flags, read and written through a render call's first
   argument and passed to render notifications. */
enum
{
    kAudioUnitRenderAction_PreRender = (1U << 2),
    kAudioUnitRenderAction_PostRender = (1U << 3),
    kAudioUnitRenderAction_OutputIsSilence = (1U << 4),
    kAudioOfflineUnitRenderAction_Preflight = (1U << 5),
    kAudioOfflineUnitRenderAction_Render = (1U << 6),
    kAudioOfflineUnitRenderAction_Complete = (1U << 7),
    kAudioUnitRenderAction_PostRenderError = (1U << 8),
    kAudioUnitRenderAction_DoNotCheckRenderArgs = (1U << 9)
};

/* Audio-unit statuses. */
enum
{
    kAudioUnitErr_InvalidProperty = -10879,
    kAudioUnitErr_InvalidParameter = -10878,
    kAudioUnitErr_InvalidElement = -10877,
    kAudioUnitErr_NoConnection = -10876,
    kAudioUnitErr_FailedInitialization = -10875,
    kAudioUnitErr_TooManyFramesToProcess = -10874,
    kAudioUnitErr_InvalidFile = -10871,
    kAudioUnitErr_UnknownFileType = -10870,
    kAudioUnitErr_FileNotSpecified = -10869,
    kAudioUnitErr_FormatNotSupported = -10868,
    kAudioUnitErr_Uninitialized = -10867,
    kAudioUnitErr_InvalidScope = -10866,
    kAudioUnitErr_PropertyNotWritable = -10865,
    kAudioUnitErr_CannotDoInCurrentContext = -10863,
    kAudioUnitErr_InvalidPropertyValue = -10851,
    kAudioUnitErr_PropertyNotInUse = -10850,
    kAudioUnitErr_Initialized = -10849,
    kAudioUnitErr_InvalidOfflineRender = -10848,
    kAudioUnitErr_Unauthorized = -10847
};

/* Selectors of the audio-unit calls, as the plug-in receives them. */
enum
{
    kAudioUnitRange = 0x0000,
    kAudioUnitInitializeSelect = 0x0001,
    kAudioUnitUninitializeSelect = 0x0002,
    kAudioUnitGetPropertyInfoSelect = 0x0003,
    kAudioUnitGetPropertySelect = 0x0004,
    kAudioUnitSetPropertySelect = 0x0005,
    kAudioUnitGetParameterSelect = 0x0006,
    kAudioUnitSetParameterSelect = 0x0007,
    kAudioUnitResetSelect = 0x0009,
    kAudioUnitAddPropertyListenerSelect = 0x000A,
    kAudioUnitRemovePropertyListenerSelect = 0x000B,
    kAudioUnitRenderSelect = 0x000E,
    kAudioUnitAddRenderNotifySelect = 0x000F,
    kAudioUnitRemoveRenderNotifySelect = 0x0010,
    kAudioUnitScheduleParametersSelect = 0x0011,
    kAudioUnitRemovePropertyListenerWithUserDataSelect = 0x0012
};

/* Pulls audio: the host's input callback, a render notification, or a unit's
   render. ioData's buffers may be null, asking the callee for its own. */
typedef OSStatus (*AURenderCallback)(void* inRefCon, AudioUnitRenderActionFlags* ioActionFlags,
                                     const AudioTimeStamp* inTimeStamp, UInt32 inBusNumber,
                                     UInt32 inNumberFrames, AudioBufferList* ioData);

/* Called when a property changes, on the thread that changed it. */
typedef void (*AudioUnitPropertyListenerProc)(void* inRefCon, AudioUnit inUnit,
                                              AudioUnitPropertyID inID, AudioUnitScope inScope,
                                              AudioUnitElement inElement);

/* A scheduled parameter change: 32 bytes. */
typedef UInt32 AUParameterEventType;
enum
{
    kParameterEvent_Immediate = 1,
    kParameterEvent_Ramped = 2
};

typedef struct AudioUnitParameterEvent
{
    AudioUnitScope scope;
    AudioUnitElement element;
    AudioUnitParameterID parameter;
    AUParameterEventType eventType;
    union {
        struct
        {
            SInt32 startBufferOffset;
            UInt32 durationInFrames;
            AudioUnitParameterValue startValue;
            AudioUnitParameterValue endValue;
        } ramp;
        struct
        {
            UInt32 bufferOffset;
            AudioUnitParameterValue value;
        } immediate;
    } eventValues;
} AudioUnitParameterEvent;

/* One parameter's address and value. */
typedef struct AudioUnitParameter
{
    AudioUnit mAudioUnit;
    AudioUnitParameterID mParameterID;
    AudioUnitScope mScope;
    AudioUnitElement mElement;
} AudioUnitParameter;

/* One property's address. */
typedef struct AudioUnitProperty
{
    AudioUnit mAudioUnit;
    AudioUnitPropertyID mPropertyID;
    AudioUnitScope mScope;
    AudioUnitElement mElement;
} AudioUnitProperty;

/* Signatures of the plug-in's methods (factory style: the first argument is
   the instance record) and of the fast-dispatch entries (the first argument
   is the unit object, the instance's storage). */
typedef OSStatus (*AudioUnitInitializeProc)(void* self);
typedef OSStatus (*AudioUnitUninitializeProc)(void* self);
typedef OSStatus (*AudioUnitGetPropertyInfoProc)(void* self, AudioUnitPropertyID prop,
                                                 AudioUnitScope scope, AudioUnitElement elem,
                                                 UInt32* outDataSize, Boolean* outWritable);
typedef OSStatus (*AudioUnitGetPropertyProc)(void* self, AudioUnitPropertyID inID,
                                             AudioUnitScope inScope, AudioUnitElement inElement,
                                             void* outData, UInt32* ioDataSize);
typedef OSStatus (*AudioUnitSetPropertyProc)(void* self, AudioUnitPropertyID inID,
                                             AudioUnitScope inScope, AudioUnitElement inElement,
                                             const void* inData, UInt32 inDataSize);
typedef OSStatus (*AudioUnitAddPropertyListenerProc)(void* self, AudioUnitPropertyID prop,
                                                     AudioUnitPropertyListenerProc proc,
                                                     void* userData);
typedef OSStatus (*AudioUnitRemovePropertyListenerProc)(void* self, AudioUnitPropertyID prop,
                                                        AudioUnitPropertyListenerProc proc);
typedef OSStatus (*AudioUnitRemovePropertyListenerWithUserDataProc)(
    void* self, AudioUnitPropertyID prop, AudioUnitPropertyListenerProc proc, void* userData);
typedef OSStatus (*AudioUnitAddRenderNotifyProc)(void* self, AURenderCallback proc, void* userData);
typedef OSStatus (*AudioUnitRemoveRenderNotifyProc)(void* self, AURenderCallback proc,
                                                    void* userData);
typedef OSStatus (*AudioUnitScheduleParametersProc)(void* self,
                                                    const AudioUnitParameterEvent* events,
                                                    UInt32 numEvents);
typedef OSStatus (*AudioUnitResetProc)(void* self, AudioUnitScope inScope,
                                       AudioUnitElement inElement);
typedef OSStatus (*AudioUnitGetParameterProc)(void* inComponentStorage, AudioUnitParameterID inID,
                                              AudioUnitScope inScope, AudioUnitElement inElement,
                                              AudioUnitParameterValue* outValue);
typedef OSStatus (*AudioUnitSetParameterProc)(void* inComponentStorage, AudioUnitParameterID inID,
                                              AudioUnitScope inScope, AudioUnitElement inElement,
                                              AudioUnitParameterValue inValue,
                                              UInt32 inBufferOffsetInFrames);
typedef OSStatus (*AudioUnitRenderProc)(void* inComponentStorage,
                                        AudioUnitRenderActionFlags* ioActionFlags,
                                        const AudioTimeStamp* inTimeStamp, UInt32 inOutputBusNumber,
                                        UInt32 inNumberFrames, AudioBufferList* ioData);

/* Host calls. Each returns the unit's status, or paramErr for a null unit,
   or badComponentSelector when the unit does not answer the call. */

/* Allocates what rendering needs. [control] */
AU_EXPORT OSStatus AudioUnitInitialize(AudioUnit inUnit);

/* Releases what AudioUnitInitialize allocated. [control] */
AU_EXPORT OSStatus AudioUnitUninitialize(AudioUnit inUnit);

/* Size in bytes and writability of a property; either pointer may be null.
   [control] */
AU_EXPORT OSStatus AudioUnitGetPropertyInfo(AudioUnit inUnit, AudioUnitPropertyID inID,
                                            AudioUnitScope inScope, AudioUnitElement inElement,
                                            UInt32* outDataSize, Boolean* outWritable);

/* Copies a property into outData; *ioDataSize is the buffer size in, the
   bytes written out. Objects returned are owned by the caller. [control] */
AU_EXPORT OSStatus AudioUnitGetProperty(AudioUnit inUnit, AudioUnitPropertyID inID,
                                        AudioUnitScope inScope, AudioUnitElement inElement,
                                        void* outData, UInt32* ioDataSize);

/* Sets a property; null data with size 0 removes its value. [control] */
AU_EXPORT OSStatus AudioUnitSetProperty(AudioUnit inUnit, AudioUnitPropertyID inID,
                                        AudioUnitScope inScope, AudioUnitElement inElement,
                                        const void* inData, UInt32 inDataSize);

/* Registers / removes a property listener. [control] */
AU_EXPORT OSStatus AudioUnitAddPropertyListener(AudioUnit inUnit, AudioUnitPropertyID inID,
                                                AudioUnitPropertyListenerProc inProc,
                                                void* inProcUserData);
AU_EXPORT OSStatus AudioUnitRemovePropertyListenerWithUserData(AudioUnit inUnit,
                                                               AudioUnitPropertyID inID,
                                                               AudioUnitPropertyListenerProc inProc,
                                                               void* inProcUserData);

/* Registers / removes a notification called before and after every render.
   [any] */
AU_EXPORT OSStatus AudioUnitAddRenderNotify(AudioUnit inUnit, AURenderCallback inProc,
                                            void* inProcUserData);
AU_EXPORT OSStatus AudioUnitRemoveRenderNotify(AudioUnit inUnit, AURenderCallback inProc,
                                               void* inProcUserData);

/* Reads / writes a parameter value; a nonzero offset applies the change at
   that frame of the next render. [render] */
AU_EXPORT OSStatus AudioUnitGetParameter(AudioUnit inUnit, AudioUnitParameterID inID,
                                         AudioUnitScope inScope, AudioUnitElement inElement,
                                         AudioUnitParameterValue* outValue);
AU_EXPORT OSStatus AudioUnitSetParameter(AudioUnit inUnit, AudioUnitParameterID inID,
                                         AudioUnitScope inScope, AudioUnitElement inElement,
                                         AudioUnitParameterValue inValue,
                                         UInt32 inBufferOffsetInFrames);

/* Queues parameter events for the next render. [render] */
AU_EXPORT OSStatus AudioUnitScheduleParameters(AudioUnit inUnit,
                                               const AudioUnitParameterEvent* inParameterEvent,
                                               UInt32 inNumParamEvents);

/* Renders inNumberFrames frames of output bus inOutputBusNumber into ioData.
   [render] */
AU_EXPORT OSStatus AudioUnitRender(AudioUnit inUnit, AudioUnitRenderActionFlags* ioActionFlags,
                                   const AudioTimeStamp* inTimeStamp, UInt32 inOutputBusNumber,
                                   UInt32 inNumberFrames, AudioBufferList* ioData);

/* Clears the unit's signal state (delay lines, filters) in a scope. Not to
   overlap a render. [control] */
AU_EXPORT OSStatus AudioUnitReset(AudioUnit inUnit, AudioUnitScope inScope,
                                  AudioUnitElement inElement);

#ifdef __cplusplus
}
#endif

#if defined(__cplusplus)
static_assert(sizeof(AudioUnitParameterEvent) == 32, "parameter event is 32 bytes");
static_assert(offsetof(AudioUnitParameterEvent, eventType) == 12, "event type at 12");
static_assert(offsetof(AudioUnitParameterEvent, eventValues) == 16, "event values at 16");
static_assert(sizeof(AudioUnitParameter) == 24, "parameter address is 24 bytes");
static_assert(sizeof(AudioUnitProperty) == 24, "property address is 24 bytes");
#else
_Static_assert(sizeof(AudioUnitParameterEvent) == 32, "parameter event is 32 bytes");
_Static_assert(offsetof(AudioUnitParameterEvent, eventType) == 12, "event type at 12");
_Static_assert(offsetof(AudioUnitParameterEvent, eventValues) == 16, "event values at 16");
_Static_assert(sizeof(AudioUnitParameter) == 24, "parameter address is 24 bytes");
_Static_assert(sizeof(AudioUnitProperty) == 24, "property address is 24 bytes");
#endif

#endif /* AUDIOUNIT_AUCOMPONENT_H */
