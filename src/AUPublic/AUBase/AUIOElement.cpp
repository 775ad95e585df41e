#include "AUIOElement.h"

#include "AUBase.h"

CAStreamBasicDescription AUIOElement::DefaultStreamFormat()
{
    CAStreamBasicDescription format;
    FillOutASBDForLPCM(format, 44100.0, 2, 32, 32, true, false, true);
    return format;
}

AUIOElement::AUIOElement(AUBase* inAudioUnit)
    : AUElement(inAudioUnit), mStreamFormat(DefaultStreamFormat()), mWillAllocate(true)
{
}

AUIOElement::~AUIOElement() = default;

OSStatus AUIOElement::SetStreamFormat(const CAStreamBasicDescription& inFormat)
{
    mStreamFormat = inFormat;
    return noErr;
}

// A bus that does not allocate, or needs no memory (a connected input), still
// gets a list header sized for its format: its prepares only fill in records.
void AUIOElement::AllocateBuffer(UInt32 inFramesToAllocate)
{
    const AUBase* unit = GetAudioUnit();
    if (!unit->HasBegunInitializing()) {
        return;
    }
    const UInt32 frames =
        inFramesToAllocate != 0 ? inFramesToAllocate : unit->GetMaxFramesPerSlice();
    mIOBuffer.Allocate(mStreamFormat, mWillAllocate && NeedsBufferSpace() ? frames : 0);
}

UInt32 AUIOElement::GetChannelLayoutTags(AudioChannelLayoutTag* /*outLayoutTags*/)
{
    return 0;
}

UInt32 AUIOElement::GetAudioChannelLayout(AudioChannelLayout* /*outLayout*/, bool& /*outWritable*/)
{
    return 0;
}

OSStatus AUIOElement::SetAudioChannelLayout(const AudioChannelLayout& /*inLayout*/)
{
    return kAudioUnitErr_InvalidProperty;
}

OSStatus AUIOElement::RemoveAudioChannelLayout()
{
    return kAudioUnitErr_InvalidPropertyValue;
}

AudioBufferList& AUIOElement::PrepareIOBuffer(UInt32 nFrames)
{
    if (!mWillAllocate) {
        throw OSStatus(kAudioUnitErr_InvalidPropertyValue);
    }
    return mIOBuffer.PrepareBuffer(mStreamFormat, nFrames);
}

void AUIOElement::UseExternalBuffer(const AudioUnitExternalBuffer& inBuffer)
{
    mIOBuffer.UseExternalBuffer(mStreamFormat, inBuffer);
}
