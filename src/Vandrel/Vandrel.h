// Vandrel: the modulation effect unit (flanger, phaser, wah-wah with a dry/wet
// mix) on top of the effect base.
//
// Why: the effect base brings buses, kernels, bypass, in-place processing and
// the property plumbing; this class adds the seven parameters, the fifteen
// factory presets, the editor view and latency properties, and bridges the
// render call to one CVandrelEngine that processes every channel in a single
// call. The per-channel kernels exist only because the effect base counts
// channels through them; they process nothing.
//
// Lifecycle: constructed by the bundle's entry points under the process-wide
// open mutex (parameters get their defaults; parameter and preset names are
// localized once per process) -> formats and maximum frames set -> Initialize
// (caches the output format, marks the engine as needing a begin) -> renders
// (the first one begins the engine stream, later ones re-cook the properties
// with TRANSFORM_CONTINUE) -> Reset (ends the stream; the next render begins it
// anew) -> Cleanup -> destroyed.
//
// Scheduled parameter events: the framework slices such a render at the event
// offsets as usual (its parameter records and what GetParameter reads are
// unchanged). For each slice the engine is given the parameter values in force
// for that slice, re-cooked with TRANSFORM_CONTINUE and run over exactly that
// slice's frames of every channel; under a ramp the engine gets the value
// interpolated along the ramp, refreshed every kRampStepFrames frames. So
// automation is sample-accurate, a render whose events all take effect at
// frame 0 sounds exactly like an event-free render with those values, and a
// render split by an immediate event at frame k sounds exactly like two
// renders of k and n - k frames with the value changed between them.
//
// Loading the bundle raises the process's soft open-file limit to 7168 (when
// the limits can be read), selects the UTF-8 character type and fills the
// factory-preset table; nothing else happens at load.
//
// Thread tags as in ComponentBase.h: [render], [control], [any].
#ifndef VANDREL_H
#define VANDREL_H

#include "AUEffectBase.h"
#include "VandrelEngine.h"

#include <AudioUnit/AudioUnit.h>
#include <CoreFoundation/CoreFoundation.h>

// Parameter identifiers, all in the global scope, element 0.
enum : AudioUnitParameterID
{
    kParam_DryOut = 0,          // dB, -80 (silence) .. 12, default -80
    kParam_WetOut = 1,          // dB, -80 .. 12, default 0
    kParam_Effect = 2,          // indexed: 0 flanger, 1 phaser, 2 wah-wah (kEffect_*)
    kParam_ModulationRate = 3,  // Hz, 0.001 .. 20, default 10
    kParam_ModulationDepth = 4, // percent, 1 .. 100, default 10
    kParam_CenterFreq = 5,      // Hz, 100 .. 5000, default 100
    kParam_Resonance = 6,       // percent, 1 .. 100, default 1
    kNumParams = 7
};

constexpr int kNumPresets = 15;

// The plug-in bundle's identifier, used to find its resources.
#define kVandrelBundleIdentifier "org.vandrel.audiounit.Vandrel"

class Vandrel : public AUEffectBase
{
public:
    // Most channels the engine serves; wider formats are refused by Initialize.
    static constexpr UInt32 kMaxChannels = 32;
    // Under a parameter ramp the engine's values are refreshed at least this
    // often, in frames.
    static constexpr UInt32 kRampStepFrames = 32;

    // Parameters at their defaults, no preset current, latency 0; localizes the
    // parameter and preset names on the first construction in the process that
    // finds the bundle. Must run under the component-open mutex. Throws what
    // the framework throws (std::bad_alloc). [control]
    explicit Vandrel(AudioComponentInstance inComponentInstance);
    // Releases the engine's buffers. [control]
    ~Vandrel() override;

    // 0x00010000: version 1.0.0. [any]
    OSStatus Version() override;

    // Effect base initialization (channel check, kernels), then caches the
    // output format and marks the engine as needing a begin. Formats of more
    // than kMaxChannels channels, and output rates below 1 Hz or beyond
    // 2^31 Hz, give kAudioUnitErr_FormatNotSupported (-10868) and leave the
    // unit uninitialized. [control]
    OSStatus Initialize() override;
    // Ends the engine stream (frees its buffers); the next render begins a new
    // one. Then the effect base's reset. Must not overlap a render. [control]
    OSStatus Reset(AudioUnitScope inScope, AudioUnitElement inElement) override;

    // The Cocoa view property (global scope): 16 bytes, read-only; reading it
    // gives a new URL of the "VandrelCocoaViewFactory.bundle" resource and a new
    // class-name string, both owned by the caller, or fnfErr (-43) when the
    // bundle or its view bundle is missing. Everything else goes to the effect
    // base. [control]
    OSStatus GetPropertyInfo(AudioUnitPropertyID inID, AudioUnitScope inScope,
                             AudioUnitElement inElement, UInt32& outDataSize,
                             bool& outWritable) override;
    OSStatus GetProperty(AudioUnitPropertyID inID, AudioUnitScope inScope,
                         AudioUnitElement inElement, void* outData) override;
    // Latency (global scope): a Float64 of seconds, stored as given; any other
    // size gives kAudioUnitErr_InvalidPropertyValue (-10851). Everything else
    // goes to the effect base. [control]
    OSStatus SetProperty(AudioUnitPropertyID inID, AudioUnitScope inScope,
                         AudioUnitElement inElement, const void* inData,
                         UInt32 inDataSize) override;

    // Pulls input bus 0 and runs the engine over every channel in place (or
    // passes the input through when bypassed). Statuses: -10876 without an
    // input source, the pull's status, -1 for invalid buffer lists, -10878 for
    // a scheduled event naming an unknown parameter. Allocates only in the
    // engine's begin, at the first render after Initialize or Reset. [render]
    OSStatus Render(AudioUnitRenderActionFlags& ioActionFlags, const AudioTimeStamp& inTimeStamp,
                    UInt32 inNumberFrames) override;

    // Global scope: name (cfNameString kept by the unit, not to be released;
    // `name` holds it as UTF-8, cut at a character boundary when longer than
    // the field), unit, range, default, readable and writable; unknown IDs give
    // -10878. Other scopes: success with only the readable and writable flags.
    // [control]
    OSStatus GetParameterInfo(AudioUnitScope inScope, AudioUnitParameterID inParameterID,
                              AudioUnitParameterInfo& outParameterInfo) override;
    // No value names are published: always kAudioUnitErr_InvalidProperty
    // (-10879), nothing written. [control]
    OSStatus GetParameterValueStrings(AudioUnitScope inScope, AudioUnitParameterID inParameterID,
                                      CFArrayRef* outStrings) override;

    // With a null place: 0 (presets exist). Otherwise a new array, owned by the
    // caller, of pointers to the fifteen preset records, which stay the
    // plug-in's (the array neither retains nor releases them). [control]
    OSStatus GetPresets(CFArrayRef* outData) const override;
    // Sets all seven parameters to the preset numbered inNewFactoryPreset's
    // presetNumber and makes it current; an unknown number gives
    // kAudioUnitErr_InvalidPropertyValue (-10851) and changes nothing.
    // [control]
    OSStatus NewFactoryPresetSet(const AUPreset& inNewFactoryPreset) override;

    // The latency set by the host, in seconds (0 until set); also refreshes
    // the engine property record from the parameters. [any; allocation-free]
    Float64 GetLatency() override;
    // No tail-time property. [any]
    bool SupportsTail() override;
    // A kernel that processes nothing; owned by the effect base. [control]
    AUKernelBase* NewKernel() override;

    // Notes, for each parameter an event touches first in this render cycle,
    // the value it had before, then queues the events as the framework does.
    // [control]
    OSStatus ScheduleParameter(const AudioUnitParameterEvent* inParameterEvent,
                               UInt32 inNumEvents) override;
    // One slice of a render with scheduled events: runs the engine over the
    // slice with the values in force there, then the effect base's slice step.
    // [render]
    OSStatus ProcessScheduledSlice(void* inUserData, UInt32 inStartFrameInBuffer,
                                   UInt32 inSliceFramesToProcess,
                                   UInt32 inTotalBufferFrames) override;

    // Copies the seven stored parameter values into the engine property record.
    // [any; allocation-free]
    void updateEngineParams();

    // The engine property fields for the given parameter values (indexed by
    // parameter ID): levels in tenths of a dB and the rate in mHz, truncated
    // toward zero; the effect 0 below 1.0, 1 below 2.0, else 2; depth, centre
    // frequency and resonance truncated. Sets the change bits of
    // ioProps.uChanged against the values of the previous mapping in this
    // process. [any; allocation-free]
    static void MapParameters(const AudioUnitParameterValue (&inValues)[kNumParams],
                              _transform_props& ioProps);

    // Writes inName as UTF-8 into the fixed name field of a parameter info,
    // cut at a character boundary when it does not fit and always
    // zero-terminated. [control]
    static void CopyParameterName(CFStringRef inName, char (&outField)[52]);

    class VandrelKernel : public AUKernelBase
    {
    public:
        explicit VandrelKernel(AUEffectBase* inAudioUnit);
        ~VandrelKernel() override;
        // Nothing to reset: the engine holds all state. [control]
        void Reset() override;
        using AUKernelBase::Process;
        // Processes nothing and leaves ioSilence as it is: the unit's render
        // runs the engine over all channels at once. [render]
        void Process(const Float32* inSourceP, Float32* inDestP, UInt32 inFramesToProcess,
                     UInt32 inNumChannels, bool& ioSilence) override;
    };

private:
    // Parameter values in force at frame inFrame of the current render:
    // stored values as the render began, or for parameters touched by this
    // cycle's events the latest event started by then (immediate value, or
    // the ramp's value at that frame; its end value once over). outRamping
    // tells whether a ramp is under way at that frame. inSorted: the events
    // are sorted by start, as the framework sorts them before slicing, which
    // lets the search start at the last event started by inFrame; the slices
    // ask for frames in order, so the count of started events only moves on
    // from one call to the next. [render]
    void ValuesInForceAt(UInt32 inFrame, bool inSorted,
                         AudioUnitParameterValue (&outValues)[kNumParams], bool& outRamping);

    AUOutputElement* mOutputElement;
    AUInputElement* mInputElement;
    UInt32 mOutBytesPerFrame;
    UInt32 mOutChannels;
    SInt32 mSampleRateHz;
    bool mNeedsBegin;
    Float64 mLatencySeconds;
    CVandrelEngine mEngine;
    _transform_props mEngineProps;

    // Scheduled-event bookkeeping: the events of the render under way (the
    // framework's list, valid only during that render) and, per parameter, the
    // value it had before the first event of the cycle touched it, or for a
    // parameter no event touches, its stored value as the render began.
    // mCycleStarted: how many of the sorted events had started by the frame of
    // the last sorted look-up.
    const AudioUnitParameterEvent* mCycleEvents;
    UInt32 mCycleEventCount;
    UInt32 mCycleStarted;
    UInt32 mTouchedParams;
    AudioUnitParameterValue mValuesBeforeEvents[kNumParams];
};

// The bundle's two exports: the component-manager entry point and the
// audio-component factory (instance record owned by the host until its Close).
extern "C" {
__attribute__((visibility("default"))) OSStatus VandrelEntry(ComponentParameters* params,
                                                             Vandrel* obj);
__attribute__((visibility("default"))) AudioComponentPlugInInterface*
VandrelFactory(const AudioComponentDescription* inDescription);
}

#endif
