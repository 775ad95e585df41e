/*
 * AUOutputElement: an output bus. It always renders into memory of its own
 * (unless the host supplies the buffers), so it always needs buffer space.
 */
#ifndef AUOUTPUTELEMENT_H
#define AUOUTPUTELEMENT_H

#include "AUIOElement.h"

class AUOutputElement : public AUIOElement
{
public:
    // Default format; allocates nothing before the unit begins initializing.
    // [control]
    explicit AUOutputElement(AUBase* inAudioUnit);
    ~AUOutputElement() override;

    // Takes the format and, when the unit is initializing or initialized,
    // resizes the bus for it. Throws std::bad_alloc. [control]
    OSStatus SetStreamFormat(const CAStreamBasicDescription& inFormat) override;
    // Always true. [any]
    bool NeedsBufferSpace() const override { return true; }
};

#endif
