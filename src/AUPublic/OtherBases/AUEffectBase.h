// AUEffectBase: the base of effect units: one input bus, one output bus with
// the same channel count, and one AUKernelBase per channel.
//
// Why: most effects process each channel independently, so this class does
// everything around the per-sample work: it validates the channel
// configuration at initialization, keeps the kernel list sized to the channel
// count, answers the bypass and in-place properties, pulls the input and runs
// the kernels on the render thread (slice by slice when parameter events are
// scheduled), dispatches by sample type, and propagates silence with a
// timeout that covers the unit's latency and tail.
//
// Lifecycle: construct -> Initialize (channel check, kernels made through
// NewKernel, bus elements and sample kind cached) -> Render again and again ->
// Reset (kernels, then the unit) -> Cleanup (kernels deleted) -> destroy.
// Kernels, cached elements and the sample kind are valid only while
// initialized; bypass and in-place flags persist across initializations.
//
// In-place processing: when on and the output bus allocates its own memory,
// the output renders straight over the input's buffers, which saves one copy
// per channel; with it off the kernels read the input and write the output.
//
// Thread tags as in ComponentBase.h: [render], [control], [any].
#ifndef AUEFFECTBASE_H
#define AUEFFECTBASE_H

#include "AUBase.h"
#include "AUKernelBase.h"

#include <AudioUnit/AudioUnit.h>

#include <cstddef>
#include <vector>

class AUEffectBase : public AUBase
{
public:
    // Sample type of the output format, which decides the kernel variant.
    enum SampleKind : UInt32
    {
        kSampleKindOther = 0,
        kSampleKindFloat32 = 1,
        kSampleKindInt16 = 2,
        kSampleKindFixed824 = 3 // signed 32-bit with 24 fraction bits
    };

    // What a render with scheduled events hands to each ProcessScheduledSlice;
    // borrowed from the render for its duration.
    struct SliceProcessRecord
    {
        AudioUnitRenderActionFlags* mActionFlags;
        AudioBufferList* mInputBufferList;
        AudioBufferList* mOutputBufferList;
    };
    static_assert(offsetof(SliceProcessRecord, mInputBufferList) == sizeof(void*) &&
                      offsetof(SliceProcessRecord, mOutputBufferList) == 2 * sizeof(void*) &&
                      sizeof(SliceProcessRecord) == 3 * sizeof(void*),
                  "flags, input list, output list, in that order");

    // One input and one output bus, no groups; bypass off; in-place
    // processing as given. Throws std::bad_alloc. [control]
    AUEffectBase(AudioComponentInstance inInstance, bool inProcessesInPlace = true);
    // Cleanup, then the unit. [control]
    ~AUEffectBase() override;

    // Channel check (the unit's channel table when it publishes one, else
    // equal nonzero counts): kAudioUnitErr_FormatNotSupported (-10868) on a
    // mismatch, with no kernel made. Then one kernel per output channel, the
    // bus elements and the sample kind cached; 0. Throws -10877 for a missing
    // bus, std::bad_alloc. [control]
    OSStatus Initialize() override;
    // Deletes every kernel (the list keeps its storage) and forgets the
    // cached elements. [control]
    void Cleanup() override;
    // Resets every kernel in channel order, then the unit. [control]
    OSStatus Reset(AudioUnitScope inScope, AudioUnitElement inElement) override;

    // Bypass (21) and in-place processing (29) in the global scope: 4 bytes
    // (u32 0 or 1), writable. Setting either with fewer than 4 bytes gives
    // kAudioUnitErr_InvalidPropertyValue (-10851). Turning bypass off while
    // initialized resets the unit first. Everything else goes to AUBase.
    // [control]
    OSStatus GetPropertyInfo(AudioUnitPropertyID inID, AudioUnitScope inScope,
                             AudioUnitElement inElement, UInt32& outDataSize,
                             bool& outWritable) override;
    OSStatus GetProperty(AudioUnitPropertyID inID, AudioUnitScope inScope,
                         AudioUnitElement inElement, void* outData) override;
    OSStatus SetProperty(AudioUnitPropertyID inID, AudioUnitScope inScope,
                         AudioUnitElement inElement, const void* inData,
                         UInt32 inDataSize) override;

    // Runs the kernels over inBuffer into outBuffer (one interleaved buffer:
    // kernel i gets samples i, i + stride, ...; else kernel i gets buffer i),
    // setting kAudioUnitRenderAction_OutputIsSilence only when every kernel
    // left its output silent. Throws a CAException carrying
    // kAudio_UnimplementedError (-4) for a sample type without a kernel
    // variant; 0 otherwise. [render]
    OSStatus ProcessBufferLists(AudioUnitRenderActionFlags& ioActionFlags,
                                const AudioBufferList& inBuffer, AudioBufferList& outBuffer,
                                UInt32 inFramesToProcess) override;

    // Pulls input 0 and processes it into output 0 (in place when enabled),
    // or passes it through when bypassed; output flagged silent is zeroed
    // unless in place. -10876 without an input source; the pull's status;
    // -1 (thrown) for invalid buffer lists. [render]
    OSStatus Render(AudioUnitRenderActionFlags& ioActionFlags, const AudioTimeStamp& inTimeStamp,
                    UInt32 inFramesToProcess) override;

    // Formats may change only while uninitialized. [any]
    bool StreamFormatWritable(AudioUnitScope inScope, AudioUnitElement inElement) override;
    // The unit's format change, unchanged. [control]
    OSStatus ChangeStreamFormat(AudioUnitScope inScope, AudioUnitElement inElement,
                                const CAStreamBasicDescription& inPrevFormat,
                                const CAStreamBasicDescription& inNewFormat) override;

    // One slice of a render with scheduled events (inUserData is a
    // SliceProcessRecord): sizes every buffer to the slice, processes it and
    // advances the data pointers past it, so the next slice continues there.
    // The caller restores the pointers after the last slice. [render]
    OSStatus ProcessScheduledSlice(void* inUserData, UInt32 inStartFrameInBuffer,
                                   UInt32 inSliceFramesToProcess,
                                   UInt32 inTotalBufferFrames) override;

    // A new kernel for one channel, owned by this unit; base: null (no
    // processing for that channel). [control]
    virtual AUKernelBase* NewKernel();
    // Whether the input passes through unprocessed. [any]
    virtual bool ShouldBypassEffect();
    virtual void SetBypassEffect(bool inFlag);

    // Sizes the kernel list to the output channel count: new kernels appended
    // in channel order, surplus ones deleted from the end, every kernel
    // renumbered. Throws -10877, std::bad_alloc. [control]
    void MaintainKernels();
    // Channels of output bus 0; throws -10877 when it is missing. [any]
    UInt32 GetNumberOfChannels();

    // Whether the output renders over the input's buffers (see above); set
    // through the in-place property, read once per render. [any]
    bool ProcessesInPlace() const { return mProcessesInPlace; }

    // Whether this slice's output may be reported silent: false while the
    // input is not silent, and for latency + tail seconds of frames after it
    // became silent; the timeout re-arms only after non-silent input. Throws
    // -10877 for a missing output bus. [render]
    bool IsInputSilent(AudioUnitRenderActionFlags inActionFlags, UInt32 inFramesToProcess);

    // The sample kind of a format (kSampleKindOther unless packed native-endian
    // linear PCM of 32-bit float, 16-bit integer or 8.24 fixed point). [any]
    static SampleKind IdentifySampleKind(const AudioStreamBasicDescription& inFormat);

protected:
    // The kernel loop for one sample type T (float, 8.24 as SInt32, SInt16).
    template <typename T>
    void ProcessBufferListsT(AudioUnitRenderActionFlags& ioActionFlags,
                             const AudioBufferList& inBuffer, AudioBufferList& outBuffer,
                             UInt32 inFramesToProcess);

    std::vector<AUKernelBase*> mKernelList;
    bool mBypassEffect;
    bool mProcessesInPlace;
    SInt32 mSilentTimeoutCounter;
    bool mSilentTimeoutReset;
    AUOutputElement* mMainOutputElement;
    AUInputElement* mMainInputElement;
    SampleKind mSampleKind;
    UInt32 mFrameBytes;
};

#endif
