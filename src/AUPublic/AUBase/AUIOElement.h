/*
 * AUIOElement: one bus of a unit, an element with a stream format and a
 * buffer list.
 *
 * Buffers are sized only once the unit has begun initializing: before that
 * AllocateBuffer does nothing, and the unit's initialization sizes every bus
 * to the maximum slice. While the unit is initialized, a new stream format
 * resizes the bus at once (the two concrete kinds do this in
 * SetStreamFormat). Whether a bus needs sample memory of its own is the
 * concrete kind's answer (NeedsBufferSpace), and a host may take that job
 * away entirely (WillAllocateBuffer false) when it supplies the buffers.
 */
#ifndef AUIOELEMENT_H
#define AUIOELEMENT_H

#include "AUBuffer.h"
#include "AUScopeElement.h"
#include "CAStreamBasicDescription.h"

#include <AudioUnit/AudioUnit.h>

class AUIOElement : public AUElement
{
public:
    // Stereo 32-bit float, one buffer per channel, 44100 Hz: the format of
    // every new bus.
    static CAStreamBasicDescription DefaultStreamFormat();

    // Default format, empty buffer list, allocates its own buffers. [control]
    explicit AUIOElement(AUBase* inAudioUnit);
    ~AUIOElement() override;

    // Virtual operations after AUElement's, in this slot order: AsIOElement,
    // SetStreamFormat, AllocateBuffer, NeedsBufferSpace, GetChannelLayoutTags,
    // GetAudioChannelLayout, SetAudioChannelLayout, RemoveAudioChannelLayout.

    // This bus itself (a plain element gives null). [any]
    AUIOElement* AsIOElement() override { return this; }

    // Takes all 40 bytes of inFormat; 0. No validation here: the unit's
    // ValidFormat decides what a bus accepts. [control]
    virtual OSStatus SetStreamFormat(const CAStreamBasicDescription& inFormat);

    // Once the unit has begun initializing: sizes the buffer list for
    // inFramesToAllocate frames (0: the unit's maximum slice) when the bus
    // allocates and needs memory, else sizes only the list header. Before
    // that, nothing. Throws std::bad_alloc. [control]
    virtual void AllocateBuffer(UInt32 inFramesToAllocate = 0);

    // Whether the bus needs sample memory of its own. [any]
    virtual bool NeedsBufferSpace() const = 0;

    // Channel layouts: a bus publishes none. Supported tags: 0, nothing
    // written. Layout: size 0, nothing written. Set:
    // kAudioUnitErr_InvalidProperty. Remove: kAudioUnitErr_InvalidPropertyValue.
    // [control]
    virtual UInt32 GetChannelLayoutTags(AudioChannelLayoutTag* outLayoutTags);
    virtual UInt32 GetAudioChannelLayout(AudioChannelLayout* outLayout, bool& outWritable);
    virtual OSStatus SetAudioChannelLayout(const AudioChannelLayout& inLayout);
    virtual OSStatus RemoveAudioChannelLayout();

    // Points the bus's list at its own memory for nFrames frames. Throws
    // kAudioUnitErr_InvalidPropertyValue when the bus does not allocate, and
    // the statuses of AUBufferList::PrepareBuffer. [render]
    AudioBufferList& PrepareIOBuffer(UInt32 nFrames);

    // Uses a host block as the bus's sample memory (see
    // AUBufferList::UseExternalBuffer); the block stays the host's. [control]
    void UseExternalBuffer(const AudioUnitExternalBuffer& inBuffer);

    // Borrowed; valid while the element lives. [any]
    const CAStreamBasicDescription& GetStreamFormat() const { return mStreamFormat; }
    AUBufferList& GetBufferList() { return mIOBuffer; }
    const AUBufferList& GetBufferList() const { return mIOBuffer; }

    // False when the host supplies the bus's buffers; changed only while the
    // unit is uninitialized. [control]
    bool WillAllocateBuffer() const { return mWillAllocate; }
    void SetWillAllocateBuffer(bool inWillAllocate) { mWillAllocate = inWillAllocate; }

protected:
    CAStreamBasicDescription mStreamFormat;
    AUBufferList mIOBuffer;
    bool mWillAllocate;
};

#endif
