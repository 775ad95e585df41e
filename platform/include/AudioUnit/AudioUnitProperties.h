/*
 * Audio-unit properties: their identifiers, the records they exchange, and
 * the units and flags of parameter descriptions. Each record keeps the
 * platform's byte layout (pinned at the end of the file).
 */
#ifndef AUDIOUNIT_AUDIOUNITPROPERTIES_H
#define AUDIOUNIT_AUDIOUNITPROPERTIES_H

#include <MacTypes.h>
#include <AudioUnit/AUComponent.h>
#include <CoreAudio/CoreAudioTypes.h>
#include <CoreFoundation/CoreFoundation.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Property identifiers. */
enum
{
    kAudioUnitProperty_ClassInfo = 0,
    kAudioUnitProperty_MakeConnection = 1,
    kAudioUnitProperty_SampleRate = 2,
    kAudioUnitProperty_ParameterList = 3,
    kAudioUnitProperty_ParameterInfo = 4,
    kAudioUnitProperty_FastDispatch = 5,
    kAudioUnitProperty_CPULoad = 6,
    kAudioUnitProperty_StreamFormat = 8,
    kAudioUnitProperty_ElementCount = 11,
    kAudioUnitProperty_Latency = 12,
    kAudioUnitProperty_SupportedNumChannels = 13,
    kAudioUnitProperty_MaximumFramesPerSlice = 14,
    kAudioUnitProperty_SetExternalBuffer = 15,
    kAudioUnitProperty_ParameterValueStrings = 16,
    kAudioUnitProperty_GetUIComponentList = 18,
    kAudioUnitProperty_AudioChannelLayout = 19,
    kAudioUnitProperty_TailTime = 20,
    kAudioUnitProperty_BypassEffect = 21,
    kAudioUnitProperty_LastRenderError = 22,
    kAudioUnitProperty_SetRenderCallback = 23,
    kAudioUnitProperty_FactoryPresets = 24,
    kAudioUnitProperty_ContextName = 25,
    kAudioUnitProperty_RenderQuality = 26,
    kAudioUnitProperty_HostCallbacks = 27,
    kAudioUnitProperty_InPlaceProcessing = 29,
    kAudioUnitProperty_ElementName = 30,
    kAudioUnitProperty_CocoaUI = 31,
    kAudioUnitProperty_SupportedChannelLayoutTags = 32,
    kAudioUnitProperty_ParameterStringFromValue = 33,
    kAudioUnitProperty_ParameterIDName = 34,
    kAudioUnitProperty_ParameterClumpName = 35,
    kAudioUnitProperty_PresentPreset = 36,
    kAudioUnitProperty_OfflineRender = 37,
    kAudioUnitProperty_ParameterValueFromString = 38,
    kAudioUnitProperty_IconLocation = 39,
    kAudioUnitProperty_PresentationLatency = 40,
    kAudioUnitProperty_DependentParameters = 45,
    kAudioUnitProperty_AUHostIdentifier = 46,
    kAudioUnitProperty_InputSamplesInOutput = 49,
    kAudioUnitProperty_ClassInfoFromDocument = 50,
    kAudioUnitProperty_ShouldAllocateBuffer = 51,
    kAudioUnitProperty_FrequencyResponse = 52,
    kAudioUnitProperty_ParameterHistoryInfo = 53,
    kAudioUnitProperty_NickName = 54
};

/* Render quality values (kAudioUnitProperty_RenderQuality). */
enum
{
    kRenderQuality_Max = 127,
    kRenderQuality_High = 96,
    kRenderQuality_Medium = 64,
    kRenderQuality_Low = 32,
    kRenderQuality_Min = 0
};

/* Keys of the class-info (saved state) dictionary. */
#define kAUPresetVersionKey "version"
#define kAUPresetTypeKey "type"
#define kAUPresetSubtypeKey "subtype"
#define kAUPresetManufacturerKey "manufacturer"
#define kAUPresetDataKey "data"
#define kAUPresetNameKey "name"
#define kAUPresetRenderQualityKey "render-quality"
#define kAUPresetCPULoadKey "cpu-load"
#define kAUPresetElementNameKey "element-name"
#define kAUPresetExternalFileRefs "file-references"
#define kAUPresetPartKey "part"

/* kAudioUnitProperty_MakeConnection: 16 bytes. */
typedef struct AudioUnitConnection
{
    AudioUnit sourceAudioUnit;
    UInt32 sourceOutputNumber;
    UInt32 destInputNumber;
} AudioUnitConnection;

/* kAudioUnitProperty_SetRenderCallback: 16 bytes. */
typedef struct AURenderCallbackStruct
{
    AURenderCallback inputProc;
    void* inputProcRefCon;
} AURenderCallbackStruct;

/* kAudioUnitProperty_SetExternalBuffer: 16 bytes; the memory stays the
   host's. */
typedef struct AudioUnitExternalBuffer
{
    Byte* buffer;
    UInt32 size;
} AudioUnitExternalBuffer;

/* kAudioUnitProperty_SupportedNumChannels, one configuration: 4 bytes. -1
   means any count on that side; -2 (with -1 on the other side) any count
   independently. */
typedef struct AUChannelInfo
{
    SInt16 inChannels;
    SInt16 outChannels;
} AUChannelInfo;

/* kAudioUnitProperty_FactoryPresets (array elements) and
   kAudioUnitProperty_PresentPreset: 16 bytes. Negative numbers are user
   presets. */
typedef struct AUPreset
{
    SInt32 presetNumber;
    CFStringRef presetName;
} AUPreset;

/* kAudioUnitProperty_CocoaUI: the view bundle and its class names (one
   here): 16 bytes. The host owns the objects it gets. */
typedef struct AudioUnitCocoaViewInfo
{
    CFURLRef mCocoaAUViewBundleLocation;
    CFStringRef mCocoaAUViewClass[1];
} AudioUnitCocoaViewInfo;

/* kAudioUnitProperty_ParameterClumpName and ParameterIDName: 16 bytes. */
typedef struct AudioUnitParameterNameInfo
{
    AudioUnitParameterID inID;
    SInt32 inDesiredLength;
    CFStringRef outName;
} AudioUnitParameterNameInfo;
typedef AudioUnitParameterNameInfo AudioUnitParameterIDName;

enum
{
    kAudioUnitParameterName_Full = -1
};

/* The clump every parameter belongs to unless it names another. */
enum
{
    kAudioUnitClumpID_System = 0
};

/* kAudioUnitProperty_ParameterHistoryInfo: 8 bytes. */
typedef struct AudioUnitParameterHistoryInfo
{
    Float32 updatesPerSecond;
    Float32 historyDurationInSeconds;
} AudioUnitParameterHistoryInfo;

/* Host transport callbacks (kAudioUnitProperty_HostCallbacks): 40 bytes. */
typedef OSStatus (*HostCallback_GetBeatAndTempo)(void* inHostUserData, Float64* outCurrentBeat,
                                                 Float64* outCurrentTempo);
typedef OSStatus (*HostCallback_GetMusicalTimeLocation)(void* inHostUserData,
                                                        UInt32* outDeltaSampleOffsetToNextBeat,
                                                        Float32* outTimeSig_Numerator,
                                                        UInt32* outTimeSig_Denominator,
                                                        Float64* outCurrentMeasureDownBeat);
typedef OSStatus (*HostCallback_GetTransportState)(void* inHostUserData, Boolean* outIsPlaying,
                                                   Boolean* outTransportStateChanged,
                                                   Float64* outCurrentSampleInTimeLine,
                                                   Boolean* outIsCycling,
                                                   Float64* outCycleStartBeat,
                                                   Float64* outCycleEndBeat);
typedef OSStatus (*HostCallback_GetTransportState2)(
    void* inHostUserData, Boolean* outIsPlaying, Boolean* outIsRecording,
    Boolean* outTransportStateChanged, Float64* outCurrentSampleInTimeLine, Boolean* outIsCycling,
    Float64* outCycleStartBeat, Float64* outCycleEndBeat);

typedef struct HostCallbackInfo
{
    void* hostUserData;
    HostCallback_GetBeatAndTempo beatAndTempoProc;
    HostCallback_GetMusicalTimeLocation musicalTimeLocationProc;
    HostCallback_GetTransportState transportStateProc;
    HostCallback_GetTransportState2 transportState2Proc;
} HostCallbackInfo;

/* Units of parameter values. */
typedef UInt32 AudioUnitParameterUnit;
enum
{
    kAudioUnitParameterUnit_Generic = 0,
    kAudioUnitParameterUnit_Indexed = 1,
    kAudioUnitParameterUnit_Boolean = 2,
    kAudioUnitParameterUnit_Percent = 3,
    kAudioUnitParameterUnit_Seconds = 4,
    kAudioUnitParameterUnit_SampleFrames = 5,
    kAudioUnitParameterUnit_Phase = 6,
    kAudioUnitParameterUnit_Rate = 7,
    kAudioUnitParameterUnit_Hertz = 8,
    kAudioUnitParameterUnit_Cents = 9,
    kAudioUnitParameterUnit_RelativeSemiTones = 10,
    kAudioUnitParameterUnit_MIDINoteNumber = 11,
    kAudioUnitParameterUnit_MIDIController = 12,
    kAudioUnitParameterUnit_Decibels = 13,
    kAudioUnitParameterUnit_LinearGain = 14,
    kAudioUnitParameterUnit_Degrees = 15,
    kAudioUnitParameterUnit_EqualPowerCrossfade = 16,
    kAudioUnitParameterUnit_MixerFaderCurve1 = 17,
    kAudioUnitParameterUnit_Pan = 18,
    kAudioUnitParameterUnit_Meters = 19,
    kAudioUnitParameterUnit_AbsoluteCents = 20,
    kAudioUnitParameterUnit_Octaves = 21,
    kAudioUnitParameterUnit_BPM = 22,
    kAudioUnitParameterUnit_Beats = 23,
    kAudioUnitParameterUnit_Milliseconds = 24,
    kAudioUnitParameterUnit_Ratio = 25,
    kAudioUnitParameterUnit_CustomUnit = 26
};

/* Parameter flags. The top bit is outside the range of a C enumerator, hence
   a macro. */
typedef UInt32 AudioUnitParameterOptions;
enum
{
    kAudioUnitParameterFlag_CFNameRelease = (1U << 4),
    kAudioUnitParameterFlag_OmitFromPresets = (1U << 13),
    kAudioUnitParameterFlag_PlotHistory = (1U << 14),
    kAudioUnitParameterFlag_MeterReadOnly = (1U << 15),
    kAudioUnitParameterFlag_DisplaySquareRoot = (1U << 16),
    kAudioUnitParameterFlag_DisplaySquared = (2U << 16),
    kAudioUnitParameterFlag_DisplayCubed = (3U << 16),
    kAudioUnitParameterFlag_DisplayCubeRoot = (4U << 16),
    kAudioUnitParameterFlag_DisplayExponential = (5U << 16),
    kAudioUnitParameterFlag_HasClump = (1U << 20),
    kAudioUnitParameterFlag_ValuesHaveStrings = (1U << 21),
    kAudioUnitParameterFlag_DisplayLogarithmic = (1U << 22),
    kAudioUnitParameterFlag_IsHighResolution = (1U << 23),
    kAudioUnitParameterFlag_NonRealTime = (1U << 24),
    kAudioUnitParameterFlag_CanRamp = (1U << 25),
    kAudioUnitParameterFlag_ExpertMode = (1U << 26),
    kAudioUnitParameterFlag_HasCFNameString = (1U << 27),
    kAudioUnitParameterFlag_IsGlobalMeta = (1U << 28),
    kAudioUnitParameterFlag_IsElementMeta = (1U << 29),
    kAudioUnitParameterFlag_IsReadable = (1U << 30),
    kAudioUnitParameterFlag_DisplayMask = (7U << 16) | (1U << 22)
};
#define kAudioUnitParameterFlag_IsWritable ((AudioUnitParameterOptions)(1U << 31))

/* kAudioUnitProperty_ParameterInfo: 104 bytes. name is a C string used only
   when cfNameString is absent (no HasCFNameString flag). */
typedef struct AudioUnitParameterInfo
{
    char name[52];
    CFStringRef unitName;
    UInt32 clumpID;
    CFStringRef cfNameString;
    AudioUnitParameterUnit unit;
    AudioUnitParameterValue minValue;
    AudioUnitParameterValue maxValue;
    AudioUnitParameterValue defaultValue;
    AudioUnitParameterOptions flags;
} AudioUnitParameterInfo;

#ifdef __cplusplus
}
#endif

#if defined(__cplusplus)
#define AUDIOUNIT_STATIC_ASSERT(c, m) static_assert(c, m)
#else
#define AUDIOUNIT_STATIC_ASSERT(c, m) _Static_assert(c, m)
#endif
AUDIOUNIT_STATIC_ASSERT(sizeof(AudioUnitConnection) == 16, "connection is 16 bytes");
AUDIOUNIT_STATIC_ASSERT(offsetof(AudioUnitConnection, destInputNumber) == 12,
                        "destination input at 12");
AUDIOUNIT_STATIC_ASSERT(sizeof(AURenderCallbackStruct) == 16, "render callback is 16 bytes");
AUDIOUNIT_STATIC_ASSERT(sizeof(AudioUnitExternalBuffer) == 16, "external buffer is 16 bytes");
AUDIOUNIT_STATIC_ASSERT(sizeof(AUChannelInfo) == 4, "channel info is 4 bytes");
AUDIOUNIT_STATIC_ASSERT(sizeof(AUPreset) == 16, "preset is 16 bytes");
AUDIOUNIT_STATIC_ASSERT(offsetof(AUPreset, presetName) == 8, "preset name at 8");
AUDIOUNIT_STATIC_ASSERT(sizeof(AudioUnitCocoaViewInfo) == 16, "view info is 16 bytes");
AUDIOUNIT_STATIC_ASSERT(sizeof(AudioUnitParameterNameInfo) == 16, "name info is 16 bytes");
AUDIOUNIT_STATIC_ASSERT(offsetof(AudioUnitParameterNameInfo, outName) == 8, "name at 8");
AUDIOUNIT_STATIC_ASSERT(sizeof(AudioUnitParameterHistoryInfo) == 8, "history info is 8 bytes");
AUDIOUNIT_STATIC_ASSERT(sizeof(HostCallbackInfo) == 40, "host callbacks are 40 bytes");
AUDIOUNIT_STATIC_ASSERT(sizeof(AudioUnitParameterInfo) == 104, "parameter info is 104 bytes");
AUDIOUNIT_STATIC_ASSERT(offsetof(AudioUnitParameterInfo, unitName) == 56, "unit name at 56");
AUDIOUNIT_STATIC_ASSERT(offsetof(AudioUnitParameterInfo, clumpID) == 64, "clump at 64");
AUDIOUNIT_STATIC_ASSERT(offsetof(AudioUnitParameterInfo, cfNameString) == 72, "name string at 72");
AUDIOUNIT_STATIC_ASSERT(offsetof(AudioUnitParameterInfo, unit) == 80, "unit at 80");
AUDIOUNIT_STATIC_ASSERT(offsetof(AudioUnitParameterInfo, defaultValue) == 92, "default at 92");
AUDIOUNIT_STATIC_ASSERT(offsetof(AudioUnitParameterInfo, flags) == 96, "flags at 96");
#undef AUDIOUNIT_STATIC_ASSERT

#endif /* AUDIOUNIT_AUDIOUNITPROPERTIES_H */
