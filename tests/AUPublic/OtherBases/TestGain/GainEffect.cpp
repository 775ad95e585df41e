#include "GainEffect.h"

#include <cmath>

namespace {

const AUChannelInfo kTableAnyEqual[] = {{-1, -1}};
const AUChannelInfo kTableAnyPair[] = {{-1, -2}};
const AUChannelInfo kTableMonoOrStereo[] = {{1, 1}, {2, 2}};
const AUChannelInfo kTableStereoOut[] = {{-1, 2}};
const AUChannelInfo kTableNeverMatches[] = {{-2, -2}};

} // namespace

GainEffect::GainEffect(AudioComponentInstance inInstance) : AUEffectBase(inInstance, true)
{
    CreateElements();
    Globals()->UseIndexedParameters(kGainParamCount);
    Globals()->SetParameter(kGainParam_Gain, 1.0f);
    for (AudioUnitParameterID id = kGainParam_TailSeconds; id < kGainParamCount; ++id) {
        Globals()->SetParameter(id, 0.0f);
    }
}

OSStatus GainEffect::Initialize()
{
    const OSStatus result = AUEffectBase::Initialize();
    if (result == noErr && !mKernelList.empty() && mKernelList[0] != nullptr) {
        Globals()->SetParameter(
            kGainParam_KernelSerial,
            static_cast<Float32>(static_cast<GainKernel*>(mKernelList[0])->Serial()));
    }
    return result;
}

OSStatus GainEffect::Reset(AudioUnitScope inScope, AudioUnitElement inElement)
{
    Globals()->SetParameter(kGainParam_ResetCount, Parameter(kGainParam_ResetCount) + 1.0f);
    Globals()->SetParameter(kGainParam_BypassAtReset, ShouldBypassEffect() ? 1.0f : 0.0f);
    return AUEffectBase::Reset(inScope, inElement);
}

Float64 GainEffect::GetTailTime()
{
    return Parameter(kGainParam_TailSeconds);
}

UInt32 GainEffect::SupportedNumChannels(const AUChannelInfo** outInfo)
{
    const auto select = [outInfo](const AUChannelInfo* inTable, UInt32 inCount) {
        if (outInfo != nullptr) {
            *outInfo = inTable;
        }
        return inCount;
    };
    switch (static_cast<int>(Parameter(kGainParam_ChannelTable))) {
    case 1:
        return select(kTableAnyEqual, 1);
    case 2:
        return select(kTableAnyPair, 1);
    case 3:
        return select(kTableMonoOrStereo, 2);
    case 4:
        return select(kTableStereoOut, 1);
    case 5:
        return select(kTableNeverMatches, 1);
    default:
        return 0;
    }
}

bool GainEffect::ValidFormat(AudioUnitScope, AudioUnitElement,
                             const CAStreamBasicDescription& inNewFormat)
{
    return inNewFormat.mFormatID == kAudioFormatLinearPCM && inNewFormat.mFramesPerPacket == 1 &&
           (inNewFormat.mFormatFlags & kAudioFormatFlagIsPacked) != 0 &&
           inNewFormat.mBytesPerFrame != 0 && inNewFormat.mChannelsPerFrame != 0;
}

AUKernelBase* GainEffect::NewKernel()
{
    return new GainKernel(this, mNextKernelSerial++);
}

Float32 GainKernel::ChannelGain() const
{
    auto* unit = static_cast<GainEffect*>(mAudioUnit);
    return unit->Parameter(kGainParam_Gain) * static_cast<Float32>(mChannelNum + 1);
}

void GainKernel::Process(const Float32* inSourceP, Float32* inDestP, UInt32 inFramesToProcess,
                         UInt32 inNumChannels, bool&)
{
    const Float32 gain = ChannelGain();
    for (UInt32 frame = 0; frame < inFramesToProcess; ++frame) {
        inDestP[frame * inNumChannels] = inSourceP[frame * inNumChannels] * gain;
    }
}

void GainKernel::Process(const SInt16* inSourceP, SInt16* inDestP, UInt32 inFramesToProcess,
                         UInt32 inNumChannels, bool&)
{
    const Float32 gain = ChannelGain();
    for (UInt32 frame = 0; frame < inFramesToProcess; ++frame) {
        const Float32 scaled = std::nearbyint(inSourceP[frame * inNumChannels] * gain);
        inDestP[frame * inNumChannels] =
            static_cast<SInt16>(std::fmax(-32768.0f, std::fmin(32767.0f, scaled)));
    }
}
