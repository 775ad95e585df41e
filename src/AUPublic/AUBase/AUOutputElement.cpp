#include "AUOutputElement.h"

AUOutputElement::AUOutputElement(AUBase* inAudioUnit) : AUIOElement(inAudioUnit)
{
    AllocateBuffer();
}

AUOutputElement::~AUOutputElement() = default;

OSStatus AUOutputElement::SetStreamFormat(const CAStreamBasicDescription& inFormat)
{
    const OSStatus result = AUIOElement::SetStreamFormat(inFormat);
    if (result == noErr) {
        AllocateBuffer();
    }
    return result;
}
