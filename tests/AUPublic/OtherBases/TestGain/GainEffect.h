// A small effect used by the tests: every channel is multiplied by the gain
// parameter times (channel number + 1), so the output shows both that the
// kernels ran and that each channel went to the right kernel. It accepts any
// packed native-endian linear PCM format (the effect base decides which sample
// types it can process), publishes a tail time and, on request, a channel
// table, and records its resets so tests can see when they happen.
#ifndef GAINEFFECT_H
#define GAINEFFECT_H

#include "AUEffectBase.h"

enum : AudioUnitParameterID
{
    kGainParam_Gain = 0,          // linear factor, default 1
    kGainParam_TailSeconds = 1,   // tail time reported to the effect base, default 0
    kGainParam_ResetCount = 2,    // Reset calls so far
    kGainParam_BypassAtReset = 3, // bypass flag seen by the last Reset (0 or 1)
    kGainParam_ChannelTable = 4,  // which channel table to publish, see GainEffect
    kGainParam_KernelSerial = 5,  // serial number of kernel 0 (kernels are numbered from 1)
    kGainParamCount = 6
};

class GainEffect : public AUEffectBase
{
public:
    // Channel tables selectable through kGainParam_ChannelTable: 0 none,
    // 1 {(-1,-1)}, 2 {(-1,-2)}, 3 {(1,1),(2,2)}, 4 {(-1,2)}, 5 {(-2,-2)}.
    static constexpr int kChannelTableCount = 6;

    explicit GainEffect(AudioComponentInstance inInstance);

    OSStatus Reset(AudioUnitScope inScope, AudioUnitElement inElement) override;
    Float64 GetTailTime() override;
    bool SupportsTail() override { return true; }
    UInt32 SupportedNumChannels(const AUChannelInfo** outInfo) override;
    bool ValidFormat(AudioUnitScope inScope, AudioUnitElement inElement,
                     const CAStreamBasicDescription& inNewFormat) override;
    AUKernelBase* NewKernel() override;
    OSStatus Initialize() override;

    AudioUnitParameterValue Parameter(AudioUnitParameterID inID)
    {
        return Globals()->GetParameter(inID);
    }
    const std::vector<AUKernelBase*>& Kernels() const { return mKernelList; }
    SampleKind GetSampleKind() const { return mSampleKind; }

private:
    UInt32 mNextKernelSerial = 1;
};

class GainKernel : public AUKernelBase
{
public:
    GainKernel(GainEffect* inUnit, UInt32 inSerial) : AUKernelBase(inUnit), mSerial(inSerial) {}

    void Process(const Float32* inSourceP, Float32* inDestP, UInt32 inFramesToProcess,
                 UInt32 inNumChannels, bool& ioSilence) override;
    void Process(const SInt16* inSourceP, SInt16* inDestP, UInt32 inFramesToProcess,
                 UInt32 inNumChannels, bool& ioSilence) override;

    UInt32 Serial() const { return mSerial; }

private:
    Float32 ChannelGain() const;

    UInt32 mSerial;
};

#endif
