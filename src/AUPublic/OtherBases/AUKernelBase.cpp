#include "AUKernelBase.h"

#include "CAException.h"

#include <AudioUnit/AudioUnit.h>

// The channel number stays unset until the effect base numbers the kernel;
// zero keeps a kernel that is used before that on channel 0.
AUKernelBase::AUKernelBase(AUEffectBase* inAudioUnit) : mAudioUnit(inAudioUnit), mChannelNum(0) {}

AUKernelBase::~AUKernelBase() = default;

void AUKernelBase::Reset() {}

// A kernel that does not override the float variant passes its channel
// through, so an effect that processes nothing is transparent rather than
// silent; the output is never reported silent unless the input was.
void AUKernelBase::Process(const Float32* inSourceP, Float32* inDestP, UInt32 inFramesToProcess,
                           UInt32 inNumChannels, bool& ioSilence)
{
    (void)ioSilence;
    if (inSourceP == inDestP) {
        return;
    }
    for (UInt32 frame = 0; frame < inFramesToProcess; ++frame) {
        inDestP[frame * inNumChannels] = inSourceP[frame * inNumChannels];
    }
}

void AUKernelBase::Process(const SInt32*, SInt32*, UInt32, UInt32, bool&)
{
    throw CAException(kAudio_UnimplementedError);
}

void AUKernelBase::Process(const SInt16*, SInt16*, UInt32, UInt32, bool&)
{
    throw CAException(kAudio_UnimplementedError);
}
