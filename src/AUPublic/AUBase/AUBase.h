// AUBase: the generic audio unit that effect bases and plug-in units derive
// from.
//
// Why: a host drives every unit the same way (properties, parameters,
// initialize, render, state), so this class answers all of it once and leaves
// virtual hooks with fixed default answers for a unit to override. The entry
// layer routes each host call to one operation here.
//
// Lifecycle: construct (one global element; maximum slice 1156 frames; preset
// {-1, "Untitled"}) -> PostConstructor (creates the input, output and group
// elements) -> formats and maximum slice set by the host -> DoInitialize
// (Initialize hook, then every bus buffer sized) -> DoRender again and again
// -> Reset -> DoCleanup -> PreDestructor -> destroy. Bus counts, stream
// formats (by default) and the maximum slice change only while uninitialized.
//
// Threads: everything runs on host control threads except DoRender and what
// it calls, which run on the host's audio thread. Render-notification
// registrations travel to the render thread through a lock-free list; the
// scheduled-event list is filled before a render and emptied by it, without a
// lock (the host must not schedule during a render of the same unit).
// Parameter values are single floats read and written without a lock.
//
// Thread tags: [render] runs on the audio thread: no allocation, no lock, no
// system call, no exception escaping; [control] host control threads; [any]
// either.
//
// Failures: deep inside, operations throw the bare status (OSStatus) or
// std::bad_alloc; the entry layer converts them for the host. DoRender catches
// everything itself.
#ifndef AUBASE_H
#define AUBASE_H

#include "AUScopeElement.h"
#include "CAStreamBasicDescription.h"
#include "CAThreadSafeList.h"
#include "ComponentBase.h"

#include <AudioUnit/AudioUnit.h>
#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <cstddef>
#include <vector>

class AUIOElement;
class AUInputElement;
class AUOutputElement;

class AUBase : public ComponentBase
{
public:
    // Sample time of mCurrentRenderTime before the first render and after a
    // reset or cleanup.
    static constexpr Float64 kNoLastRenderedSampleTime = -1.0;
    // Largest slice a render may ask for until the host sets another.
    static constexpr UInt32 kDefaultMaxFramesPerSlice = 1156;
    // Scheduled events the list holds before it has to grow.
    static constexpr std::size_t kParamListReserve = 24;
    // Listener registrations the registry holds before it has to grow.
    static constexpr std::size_t kPropertyListenersReserve = 32;

    // One render notification: called before and after every render.
    struct RenderCallback
    {
        AURenderCallback mRenderNotify;
        void* mRenderNotifyRefCon;

        bool operator==(const RenderCallback& other) const
        {
            return mRenderNotify == other.mRenderNotify &&
                   mRenderNotifyRefCon == other.mRenderNotifyRefCon;
        }
    };

    // One property-listener registration; duplicates are allowed.
    struct PropertyListener
    {
        AudioUnitPropertyID propertyID;
        AudioUnitPropertyListenerProc listenerProc;
        void* listenerRefCon;
    };

    typedef std::vector<AudioUnitParameterEvent> ParameterEventList;

    // Stores the instance, creates the global element, sets the maximum slice
    // to 1156 frames and the current preset to {-1, "Untitled"}. Input, output
    // and group elements come later, from CreateElements. Throws
    // std::bad_alloc. [control]
    AUBase(AudioComponentInstance inInstance, UInt32 inNumInputElements, UInt32 inNumOutputElements,
           UInt32 inNumGroupElements = 0);

    AUBase(const AUBase&) = delete;
    AUBase& operator=(const AUBase&) = delete;

    // ---- Virtual operations, in slot order -------------------------------

    // Releases the preset name and context name, the lists, then the scopes
    // (group, output, input, global). [control]
    ~AUBase() override;
    // Creates the input, output and group elements (CreateElements). [control]
    void PostConstructor() override;
    // Cleans up as DoCleanup does before the object is destroyed. [control]
    void PreDestructor() override;

    // Hook after CreateElements made the standard elements; does nothing.
    // [control]
    virtual void CreateExtendedElements();
    // Hook of DoInitialize; 0. A nonzero status refuses the initialization.
    // [control]
    virtual OSStatus Initialize();
    // Hook of DoCleanup, run only when initialized; does nothing. [control]
    virtual void Cleanup();
    // Resets the render time; 0. Units reset their processing state here.
    // [control]
    virtual OSStatus Reset(AudioUnitScope inScope, AudioUnitElement inElement);

    // Hooks for properties the framework does not answer itself: size and
    // writability, value, new value, removal. Base answers:
    // kAudioUnitErr_InvalidProperty (-10879) for the first three,
    // kAudioUnitErr_InvalidPropertyValue (-10851) for removal. [control]
    virtual OSStatus GetPropertyInfo(AudioUnitPropertyID inID, AudioUnitScope inScope,
                                     AudioUnitElement inElement, UInt32& outDataSize,
                                     bool& outWritable);
    virtual OSStatus GetProperty(AudioUnitPropertyID inID, AudioUnitScope inScope,
                                 AudioUnitElement inElement, void* outData);
    virtual OSStatus SetProperty(AudioUnitPropertyID inID, AudioUnitScope inScope,
                                 AudioUnitElement inElement, const void* inData, UInt32 inDataSize);
    virtual OSStatus RemovePropertyValue(AudioUnitPropertyID inID, AudioUnitScope inScope,
                                         AudioUnitElement inElement);

    // Registers inProc for changes of property inID; 0. Throws
    // std::bad_alloc. [control]
    virtual OSStatus AddPropertyListener(AudioUnitPropertyID inID,
                                         AudioUnitPropertyListenerProc inProc, void* inRefCon);
    // Removes every registration of inProc for inID (only those with inRefCon
    // when inRefConSpecified); 0, also when nothing matched. [control]
    virtual OSStatus RemovePropertyListener(AudioUnitPropertyID inID,
                                            AudioUnitPropertyListenerProc inProc, void* inRefCon,
                                            bool inRefConSpecified);
    // Queues a pre/post-render notification; it takes effect at the next
    // render. Null inProc: paramErr (-50). Throws std::bad_alloc. [any]
    virtual OSStatus SetRenderNotification(AURenderCallback inProc, void* inRefCon);
    // Queues removing a notification; takes effect at the next render; 0.
    // Throws std::bad_alloc. [any]
    virtual OSStatus RemoveRenderNotification(AURenderCallback inProc, void* inRefCon);

    // outValue = the parameter's current value; 0. Throws -10866 (scope),
    // -10877 (element), -10878 (parameter). [any]
    virtual OSStatus GetParameter(AudioUnitParameterID inID, AudioUnitScope inScope,
                                  AudioUnitElement inElement, AudioUnitParameterValue& outValue);
    // Sets the value at once (the offset is ignored); 0. Throws as
    // GetParameter; a new ID of a sparse element of an initialized unit is
    // ignored. [any]
    virtual OSStatus SetParameter(AudioUnitParameterID inID, AudioUnitScope inScope,
                                  AudioUnitElement inElement, AudioUnitParameterValue inValue,
                                  UInt32 inBufferOffsetInFrames);
    // Applies each immediate event at once, then queues every event for the
    // next render; 0. Throws as SetParameter (events queued before stay) or
    // std::bad_alloc. [control]
    virtual OSStatus ScheduleParameter(const AudioUnitParameterEvent* inParameterEvent,
                                       UInt32 inNumEvents);

    // Processing hooks of other unit kinds; kAudio_UnimplementedError (-4).
    // [render]
    virtual OSStatus ProcessBufferLists(AudioUnitRenderActionFlags& ioActionFlags,
                                        const AudioBufferList& inBuffer, AudioBufferList& outBuffer,
                                        UInt32 inFramesToProcess);
    virtual OSStatus ProcessMultipleBufferLists(AudioUnitRenderActionFlags& ioActionFlags,
                                                UInt32 inFramesToProcess,
                                                UInt32 inNumberInputBufferLists,
                                                const AudioBufferList** inBufferList,
                                                UInt32 inNumberOutputBufferLists,
                                                AudioBufferList** ioOutputBufferLists);
    virtual OSStatus ComplexRender(AudioUnitRenderActionFlags& ioActionFlags,
                                   const AudioTimeStamp& inTimeStamp, UInt32 inOutputBusNumber,
                                   UInt32 inNumberOfPackets, UInt32* outNumberOfPackets,
                                   AudioBufferList& ioData);

    // Renders once per time stamp: a sample time equal to the last rendered
    // one returns 0 without rendering; otherwise stores the time stamp and
    // returns Render's status. [render]
    virtual OSStatus RenderBus(AudioUnitRenderActionFlags& ioActionFlags,
                               const AudioTimeStamp& inTimeStamp, UInt32 inBusNumber,
                               UInt32 inNumberFrames);
    // Produces inNumberFrames frames into the output buses' prepared lists;
    // base: 0, nothing done. [render]
    virtual OSStatus Render(AudioUnitRenderActionFlags& ioActionFlags,
                            const AudioTimeStamp& inTimeStamp, UInt32 inNumberFrames);

    // Whether the host may set the bus count of inScope; false. [control]
    virtual bool BusCountWritable(AudioUnitScope inScope);
    // Sets the element count of inScope. -10849 while initialized. Throws
    // -10866 for an unknown scope, std::bad_alloc. [control]
    virtual OSStatus SetBusCount(AudioUnitScope inScope, UInt32 inCount);

    // Connects input conn.destInputNumber to another unit's output (null
    // source disconnects), first adopting the source's output format through
    // the stream-format property; returns that step's error unchanged.
    // Throws -10877 for a missing input. [control]
    virtual OSStatus SetConnection(const AudioUnitConnection& inConnection);
    // Feeds input inElement from a host render callback (null disconnects)
    // and notifies listeners of inPropertyID (input scope, inElement); 0.
    // Throws -10877 for a missing input. [control]
    virtual OSStatus SetInputCallback(UInt32 inPropertyID, AudioUnitElement inElement,
                                      AURenderCallback inProc, void* inRefCon);

    // Parameter IDs of the scope's element with the most parameters (ties: the
    // lowest index) into outParameterList when not null; outNumParameters =
    // that count (0 when none). 0; throws -10866 for an unknown scope.
    // [control]
    virtual OSStatus GetParameterList(AudioUnitScope inScope,
                                      AudioUnitParameterID* outParameterList,
                                      UInt32& outNumParameters);
    // Describes a parameter; base: kAudioUnitErr_InvalidParameter (-10878).
    // [control]
    virtual OSStatus GetParameterInfo(AudioUnitScope inScope, AudioUnitParameterID inParameterID,
                                      AudioUnitParameterInfo& outParameterInfo);
    // Base: -10879. [control]
    virtual OSStatus GetParameterHistoryInfo(AudioUnitScope inScope,
                                             AudioUnitParameterID inParameterID,
                                             Float32& outUpdatesPerSecond,
                                             Float32& outHistoryDurationInSeconds);

    // The class-info dictionary of the unit's state; *outData receives one
    // reference that the caller owns. 0; throws std::bad_alloc. [control]
    virtual OSStatus SaveState(CFPropertyListRef* outData);
    // Validates and applies a class-info dictionary: -10851 for a malformed
    // one, -10866 for a blob record naming a scope the unit lacks, -10878 for
    // one naming a parameter past an indexed element's; a refused state
    // changes nothing. [control]
    virtual OSStatus RestoreState(CFPropertyListRef inPlist);

    // Value names of an indexed parameter (*outStrings owned by the caller;
    // null outStrings asks only whether there are any); base: -10879.
    // [control]
    virtual OSStatus GetParameterValueStrings(AudioUnitScope inScope,
                                              AudioUnitParameterID inParameterID,
                                              CFArrayRef* outStrings);
    // Name of a parameter clump (*outClumpName owned by the caller); base:
    // -10879. [control]
    virtual OSStatus CopyClumpName(AudioUnitScope inScope, UInt32 inClumpID,
                                   UInt32 inDesiredNameLength, CFStringRef* outClumpName);
    // The factory presets as an array of AUPreset records (*outData owned by
    // the caller; null outData asks only whether there are any); base: -10879.
    // [control]
    virtual OSStatus GetPresets(CFArrayRef* outData) const;
    // Applies factory preset inNewFactoryPreset; base: -10879. [control]
    virtual OSStatus NewFactoryPresetSet(const AUPreset& inNewFactoryPreset);

    // Custom editor components: count (base 0) and their descriptions (base
    // writes nothing). [control]
    virtual int GetNumCustomUIComponents();
    virtual void GetUIComponentDescs(ComponentDescription* inDescArray);
    // The unit's icon (caller owns the URL); base: null. [control]
    virtual CFURLRef CopyIconLocation();

    // Latency and tail in seconds; base 0.0. [any]
    virtual Float64 GetLatency();
    virtual Float64 GetTailTime();
    // Whether the unit publishes a tail time; false. [any]
    virtual bool SupportsTail();

    // Whether the host may change the stream format of a bus now (supplied by
    // every concrete unit base). [control]
    virtual bool StreamFormatWritable(AudioUnitScope inScope, AudioUnitElement inElement) = 0;
    // Channel configurations the unit supports: count, with *outInfo pointing
    // at a table the unit keeps; base 0 and outInfo untouched. [control]
    virtual UInt32 SupportedNumChannels(const AUChannelInfo** outInfo);

    // The canonical format: linear PCM, one frame per packet, 32-bit native
    // float, non-interleaved (one 4-byte sample per buffer and frame); rate
    // and channel count free. [control]
    virtual bool ValidFormat(AudioUnitScope inScope, AudioUnitElement inElement,
                             const CAStreamBasicDescription& inNewFormat);
    // Format of a bus: global -> output 0, input/output -> that element.
    // Borrowed from the element. Throws -10866 (other scopes) or -10877.
    // [any]
    virtual const CAStreamBasicDescription& GetStreamFormat(AudioUnitScope inScope,
                                                            AudioUnitElement inElement);
    // Gives the bus (as GetStreamFormat finds it) the new format and notifies
    // stream-format listeners with the scope and element as passed; 0.
    // [control]
    virtual OSStatus ChangeStreamFormat(AudioUnitScope inScope, AudioUnitElement inElement,
                                        const CAStreamBasicDescription& inPrevFormat,
                                        const CAStreamBasicDescription& inNewFormat);
    // Scopes beyond the four standard ones; none. [any]
    virtual AUScope* GetScopeExtended(AudioUnitScope inScope);
    // A new element for a scope (owned by the scope that asked): plain for
    // global, group and part, input/output elements for those scopes. Throws
    // -10866 for any other scope, std::bad_alloc. [control]
    virtual AUElement* CreateElement(AudioUnitScope inScope, AudioUnitElement inElement);

    // Instrument and transport operations of other unit kinds;
    // kAudio_UnimplementedError (-4). [control]
    virtual OSStatus Start();
    virtual OSStatus Stop();
    virtual OSStatus PrepareInstrument(UInt32 inInstrument);
    virtual OSStatus ReleaseInstrument(UInt32 inInstrument);
    virtual OSStatus MIDIEvent(UInt32 inStatus, UInt32 inData1, UInt32 inData2,
                               UInt32 inOffsetSampleFrame);
    virtual OSStatus SysEx(const UInt8* inData, UInt32 inLength);
    virtual OSStatus StartNote(UInt32 inInstrument, UInt32 inGroupID, UInt32* outNoteInstanceID,
                               UInt32 inOffsetSampleFrame, const Float32* inNoteParams);
    virtual OSStatus StopNote(UInt32 inGroupID, UInt32 inNoteInstanceID,
                              UInt32 inOffsetSampleFrame);

    // Creates the elements if needed, then sizes every output bus and then
    // every input bus to the maximum slice (a no-op before initialization
    // begins). Throws std::bad_alloc, -10877. [control]
    virtual void ReallocateBuffers();
    // Stores the maximum slice, reallocates buffers once they were ever
    // allocated, and notifies its listeners (global, element 0). [control]
    virtual void SetMaxFramesPerSlice(UInt32 inFrames);
    // kAudioUnitErr_Initialized (-10849) while initialized, else 0. [any]
    virtual OSStatus CanSetMaxFrames() const;

    // Channel-layout pass-throughs to the bus; each throws -10866 or -10877
    // for a missing bus. Tags: count of supported layout tags (written to
    // outLayoutTags when not null). Layout: its size in bytes (0: none).
    // [control]
    virtual UInt32 GetChannelLayoutTags(AudioUnitScope inScope, AudioUnitElement inElement,
                                        AudioChannelLayoutTag* outLayoutTags);
    virtual UInt32 GetAudioChannelLayout(AudioUnitScope inScope, AudioUnitElement inElement,
                                         AudioChannelLayout* outLayoutPtr, bool& outWritable);
    // -10851 when the layout's channel count differs from the bus or no
    // supported tag matches; -10879 when the bus supports no tags; paramErr
    // for a null layout. Throws std::bad_alloc. [control]
    virtual OSStatus SetAudioChannelLayout(AudioUnitScope inScope, AudioUnitElement inElement,
                                           const AudioChannelLayout* inLayout);
    // Removes the bus's layout; 0 when it has none. [control]
    virtual OSStatus RemoveAudioChannelLayout(AudioUnitScope inScope, AudioUnitElement inElement);

    // Sorts ioParamList by offset, cuts the render of inFramesToProcess frames
    // into slices at event offsets and ramp ends, writes the events that fall
    // in each slice into their parameters, and calls ProcessScheduledSlice per
    // slice; the first nonzero slice status is returned. Events for missing
    // elements are skipped; throws -10866 (scope) or -10878 (indexed
    // parameter). [render]
    virtual OSStatus ProcessForScheduledParams(ParameterEventList& ioParamList,
                                               UInt32 inFramesToProcess, void* inUserData);
    // Processes inSliceFrames frames starting inStartFrameInBuffer frames into
    // the render of inTotalBufferFrames; base: 0. [render]
    virtual OSStatus ProcessScheduledSlice(void* inUserData, UInt32 inStartFrameInBuffer,
                                           UInt32 inSliceFrames, UInt32 inTotalBufferFrames);

    // ---- Lifecycle --------------------------------------------------------

    // Creates input, output and group elements once (then
    // CreateExtendedElements). Throws std::bad_alloc. [control]
    void CreateElements();
    // Initialize hook, then buffers sized and the unit marked initialized;
    // 0 when already initialized; the hook's nonzero status unchanged.
    // Throws std::bad_alloc, -10877. [control]
    OSStatus DoInitialize();
    // Cleanup hook when initialized; resets the render time and clears the
    // initialized flags. [control]
    void DoCleanup();

    // Lifecycle flags and the largest slice a render may ask for. [any]
    bool IsInitialized() const { return mInitialized; }
    bool HasBegunInitializing() const { return mHasBegunInitializing; }
    UInt32 GetMaxFramesPerSlice() const { return mMaxFramesPerSlice; }
    // Sample time of the last render, kNoLastRenderedSampleTime when none.
    // [any]
    const AudioTimeStamp& CurrentRenderTime() const { return mCurrentRenderTime; }
    // Forgets the last render's time stamp. [any]
    void ResetRenderTime();

    // ---- Render pipeline --------------------------------------------------

    // The host's render call on output bus inBusNumber: validates the request
    // and the host's buffers, runs pre-render notifications, renders the bus,
    // runs post-render notifications and empties the scheduled-event list.
    // Statuses: -10867 uninitialized, -10874 too many frames, -10877 no such
    // bus, -50 bad buffer list, -1 unknown failure, or the render's own. Every
    // failure is recorded as the last render error when none is pending.
    // Catches every exception; runs with denormals flushed to zero. [render]
    OSStatus DoRender(AudioUnitRenderActionFlags& ioActionFlags, const AudioTimeStamp& inTimeStamp,
                      UInt32 inBusNumber, UInt32 inFramesToProcess, AudioBufferList& ioData);
    // Renders into the host's buffers when possible, else into the bus's own
    // and then hands the host pointers or copies. Throws statuses (-1, -10851,
    // -10874). [render]
    OSStatus DoRenderBus(AudioUnitRenderActionFlags& ioActionFlags,
                         const AudioTimeStamp& inTimeStamp, UInt32 inBusNumber,
                         AUOutputElement* theOutput, UInt32 inNumberFrames,
                         AudioBufferList& ioData);

    // ---- Property dispatch ------------------------------------------------

    // The host's property calls; framework properties are answered here and
    // every other one goes to the hooks above. Statuses are those of the
    // property table (-10866 scope, -10877 element, -10851 size or value,
    // -10865 not writable, -10879 unknown property, ...); lookups may throw
    // -10866/-10877. Get relies on a preceding info call: the element check
    // is not repeated and outData holds at least the reported size. [control]
    OSStatus DispatchGetPropertyInfo(AudioUnitPropertyID inID, AudioUnitScope inScope,
                                     AudioUnitElement inElement, UInt32& outDataSize,
                                     bool& outWritable);
    OSStatus DispatchGetProperty(AudioUnitPropertyID inID, AudioUnitScope inScope,
                                 AudioUnitElement inElement, void* outData);
    OSStatus DispatchSetProperty(AudioUnitPropertyID inID, AudioUnitScope inScope,
                                 AudioUnitElement inElement, const void* inData, UInt32 inDataSize);
    OSStatus DispatchRemovePropertyValue(AudioUnitPropertyID inID, AudioUnitScope inScope,
                                         AudioUnitElement inElement);

    // Calls, in registration order, every listener of inID with this unit's
    // instance, inID, inScope and inElement. [any: runs on the thread that
    // made the change]
    void PropertyChanged(AudioUnitPropertyID inID, AudioUnitScope inScope,
                         AudioUnitElement inElement);

    // ---- Presets ----------------------------------------------------------

    // Makes a factory preset current (retains its name); false and nothing
    // changed for a negative number or a null name. No notification. [control]
    bool SetAFactoryPresetAsCurrent(const AUPreset& inPreset);

    // ---- Scopes and elements ----------------------------------------------

    // Scope 0..3, or GetScopeExtended's; throws kAudioUnitErr_InvalidScope
    // (-10866) for none. Borrowed. [any]
    AUScope& GetScope(AudioUnitScope inScope);
    // Element, null when missing; throws -10866. [any]
    AUElement* GetElement(AudioUnitScope inScope, AudioUnitElement inElement);
    // Element; throws -10866 or -10877 when missing. [any]
    AUElement* SafeGetElement(AudioUnitScope inScope, AudioUnitElement inElement);
    // Bus; throws -10866, or -10877 for a missing or non-IO element. [any]
    AUIOElement* GetIOElement(AudioUnitScope inScope, AudioUnitElement inElement);

    AUScope& Inputs() { return mScopes[kAudioUnitScope_Input]; }
    AUScope& Outputs() { return mScopes[kAudioUnitScope_Output]; }
    AUScope& Groups() { return mScopes[kAudioUnitScope_Group]; }
    // The global element (element 0 of the global scope). [any]
    AUElement* Globals() { return mScopes[kAudioUnitScope_Global].GetElement(0); }
    // Input or output bus inElement; throws -10877 when missing. [any]
    AUInputElement* GetInput(AudioUnitElement inElement);
    AUOutputElement* GetOutput(AudioUnitElement inElement);

    // True when a's frame offset is below b's (signed). [any]
    static bool SortParameterEventList(const AudioUnitParameterEvent& a,
                                       const AudioUnitParameterEvent& b);

    // Component-manager dispatch of every audio-unit selector to this class
    // (null This: paramErr). Converts no exceptions. [any]
    static OSStatus ComponentEntryDispatch(ComponentParameters* params, AUBase* This);

    // State-dictionary keys, bound on the first construction.
    static CFStringRef kVersionString;
    static CFStringRef kTypeString;
    static CFStringRef kSubtypeString;
    static CFStringRef kManufacturerString;
    static CFStringRef kDataString;
    static CFStringRef kNameString;
    static CFStringRef kRenderQualityString;
    static CFStringRef kCPULoadString;
    static CFStringRef kElementNameString;
    static CFStringRef kPartString;
    static CFStringRef kUntitledString;

protected:
    bool mElementsCreated;
    // Set last by DoInitialize, with a full barrier, and tested by the render
    // thread: a render that sees it set sees the buffers it was sized with.
    std::atomic<bool> mInitialized;
    bool mHasBegunInitializing;
    UInt32 mInitNumInputEls;
    UInt32 mInitNumOutputEls;
    UInt32 mInitNumGroupEls;
    AUScope mScopes[4];
    TThreadSafeList<RenderCallback> mRenderCallbacks;
    // Set by any thread at the first registration, read by the render thread.
    std::atomic<bool> mRenderCallbacksTouched;
    AudioTimeStamp mCurrentRenderTime;
    UInt32 mMaxFramesPerSlice;
    OSStatus mLastRenderError;
    AUPreset mCurrentPreset;
    // Growable lists: a failed growth throws std::bad_alloc and leaves the
    // list as it was. The render thread only reads, sorts in place and
    // empties mParamList, which keeps its room.
    ParameterEventList mParamList;
    std::vector<PropertyListener> mPropertyListeners;
    bool mBuffersAllocated;
    HostCallbackInfo mHostCallbackInfo;
    CFStringRef mContextName;

private:
    static bool sAUBaseCFStringsInitialized;

    static void InitializeCFStrings();
    // The format-writable rule of the sample-rate and stream-format
    // properties. Throws -10877 for a missing input element.
    bool IsStreamFormatWritable(AudioUnitScope inScope, AudioUnitElement inElement);
    // -10866 when inScope has no such scope (thrown), -10877 when the scope
    // has no element inElement, else 0.
    OSStatus CheckElement(AudioUnitScope inScope, AudioUnitElement inElement);
    OSStatus SetStreamFormatProperty(AudioUnitScope inScope, AudioUnitElement inElement,
                                     const CAStreamBasicDescription& inNewFormat);
    OSStatus SetPresentPreset(AudioUnitScope inScope, AudioUnitElement inElement,
                              const void* inData, UInt32 inDataSize);
    void SetHostCallbacks(const void* inData, UInt32 inDataSize);
    // Stores inError as the last render error unless one is pending, and
    // then notifies its listeners. [render]
    void RecordRenderError(OSStatus inError);
    // Finds the output bus of a render and checks the host's buffers for it
    // (count, sizes), trimming larger buffers to the request: noErr,
    // kAudioUnitErr_InvalidElement or paramErr. [render]
    OSStatus CheckRenderRequest(UInt32 inBusNumber, UInt32 inFramesToProcess,
                                AudioBufferList& ioData, AUOutputElement*& outOutput);
    // Calls every active render notification with one flags word, a copy of
    // inFlags that they share (each sees what the earlier ones left in it).
    // [render]
    void CallRenderNotifications(AudioUnitRenderActionFlags inFlags,
                                 const AudioTimeStamp& inTimeStamp, UInt32 inBusNumber,
                                 UInt32 inFramesToProcess, AudioBufferList& ioData);
    OSStatus ValidateState(CFDictionaryRef inDict, const AudioComponentDescription& inDesc);
    OSStatus CheckParameterBlob(CFDataRef inData);
    void RestoreParameterBlob(CFDataRef inData);
};

#endif
