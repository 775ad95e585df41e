// AUKernelBase: the processor of one channel of an effect.
//
// Why: an effect base keeps one kernel per channel and calls it with that
// channel's samples, so a unit whose channels are independent writes only the
// per-sample work. Kernels are created by AUEffectBase::MaintainKernels at
// initialization (through the unit's NewKernel), numbered by channel, reset
// with the unit and deleted at cleanup; they must not allocate while
// processing.
#ifndef AUKERNELBASE_H
#define AUKERNELBASE_H

#include <MacTypes.h>

class AUEffectBase;

class AUKernelBase
{
public:
    // inAudioUnit: the owning effect, which outlives the kernel. [control]
    explicit AUKernelBase(AUEffectBase* inAudioUnit);

    AUKernelBase(const AUKernelBase&) = delete;
    AUKernelBase& operator=(const AUKernelBase&) = delete;

    // Virtual operations, in this slot order: destructors, Reset, Process for
    // float, 8.24 fixed (int) and 16-bit (short) samples.
    virtual ~AUKernelBase();

    // Forgets the channel's processing state; base: nothing to forget.
    // [control]
    virtual void Reset();

    // Processes inFramesToProcess frames of one channel. inNumChannels is the
    // interleave stride in samples between consecutive frames of the channel
    // (1 for non-interleaved buffers). ioSilence enters true when the input is
    // silent and must leave true only when the output is silent. inSource and
    // inDestination may be the same memory. The base float variant copies the
    // input through unchanged; the base integer variants throw a CAException
    // carrying kAudio_UnimplementedError (-4). [render]
    virtual void Process(const Float32* inSourceP, Float32* inDestP, UInt32 inFramesToProcess,
                         UInt32 inNumChannels, bool& ioSilence);
    virtual void Process(const SInt32* inSourceP, SInt32* inDestP, UInt32 inFramesToProcess,
                         UInt32 inNumChannels, bool& ioSilence);
    virtual void Process(const SInt16* inSourceP, SInt16* inDestP, UInt32 inFramesToProcess,
                         UInt32 inNumChannels, bool& ioSilence);

    // The owning effect (not owned) and the channel this kernel processes.
    // [any]
    AUEffectBase* GetAudioUnit() const { return mAudioUnit; }
    UInt32 GetChannelNum() const { return mChannelNum; }
    // Set by the effect base whenever the kernel list is resized. [control]
    void SetChannelNum(UInt32 inChannelNum) { mChannelNum = inChannelNum; }

protected:
    AUEffectBase* mAudioUnit;
    UInt32 mChannelNum;
};

#endif
