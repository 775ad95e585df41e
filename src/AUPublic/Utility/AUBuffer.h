/*
 * AUBufferList: the buffer list and sample memory of one input or output bus.
 *
 * Lifecycle: the bus sizes the list with Allocate when the unit initializes
 * or a format changes while initialized (a control thread; Allocate may
 * move memory). Each render then points the list's buffer records somewhere
 * and hands the list out: at the list's own memory (PrepareBuffer), at
 * nothing yet, for a source to fill in its own pointers (PrepareNullBuffer),
 * or at a host's buffers (UseCallerList). The pointer state records which, so
 * that reading a list that no render prepared fails instead of handing out
 * stale pointers. The header and the memory only ever grow, so a smaller
 * format or slice after a larger one reuses them without allocating.
 *
 * A host may hand the list a block of its own (UseExternalBuffer); such a
 * block is used but never freed here.
 *
 * Errors are thrown: a status as a bare OSStatus (the render pipeline and the
 * entry layer catch it), an allocation failure or size overflow as
 * std::bad_alloc. Nothing here locks; nothing guards an Allocate that
 * overlaps a render of the same unit.
 */
#ifndef AUBUFFER_H
#define AUBUFFER_H

#include "CAStreamBasicDescription.h"

#include <AudioUnit/AudioUnit.h>

class AUBufferList
{
public:
    // What the buffer records in the list point at.
    enum EPtrState : UInt32
    {
        kPointersInvalid = 0,
        kPointersToOwnMemory = 1,
        kPointersToExternalMemory = 2
    };

    AUBufferList() = default;
    AUBufferList(const AUBufferList&) = delete;
    AUBufferList& operator=(const AUBufferList&) = delete;
    // Frees the list and the memory unless the host supplied it. [control]
    ~AUBufferList();

    // Sizes the list for nFrames frames of format: header for its stream
    // count, one 16-byte-aligned stride per stream. Grows only. Leaves the
    // pointers invalid. Throws std::bad_alloc on allocation failure or when a
    // size does not fit 32 bits (then nothing has changed). [control]
    void Allocate(const CAStreamBasicDescription& format, UInt32 nFrames);

    // Forgets the sample memory (freeing it unless external) and the sizes;
    // keeps the header. [control]
    void Deallocate();

    // Points the list at the own memory, nFrames valid frames per buffer.
    // Throws kAudioUnitErr_TooManyFramesToProcess when nFrames exceeds the
    // allocation, kAudioUnitErr_FormatNotSupported when the format needs more
    // buffers than allocated. The list stays owned by this object. [render]
    AudioBufferList& PrepareBuffer(const CAStreamBasicDescription& format, UInt32 nFrames);

    // Sizes the buffer records for nFrames frames with null data pointers,
    // for a source that supplies its own. Throws
    // kAudioUnitErr_FormatNotSupported as PrepareBuffer. [render]
    AudioBufferList& PrepareNullBuffer(const CAStreamBasicDescription& format, UInt32 nFrames);

    // Uses the host's block (size rounded down to 16 bytes) as sample memory
    // when it holds at least the current allocation, and leaves the pointers
    // invalid. Ignores the call when the block is smaller, when nothing is
    // allocated yet, when the block is null, or when format gives no bytes
    // per frame to divide by. The block stays the host's. [control]
    void UseExternalBuffer(const CAStreamBasicDescription& format,
                           const AudioUnitExternalBuffer& buf);

    // The list as the last prepare left it. Throws -1 when no render prepared
    // it. [render]
    AudioBufferList& GetPreparedList();

    // Copies the caller's buffer records into the list. Throws -1 when the
    // caller has more buffers than the list has room for. [render]
    void UseCallerList(const AudioBufferList& list);

    // Copies the header and the first list.mNumberBuffers buffer records
    // into list (the buffer count becomes this list's). Throws -1 when the
    // list is not prepared or list has more buffers than this one has room
    // for. [render]
    void CopyPointersTo(AudioBufferList& list) const;

    // Copies the samples of each buffer into the matching buffer of list,
    // repeating the last source buffer into surplus destination buffers, and
    // sets each destination's byte size to its source's. Throws -1 when the
    // list is not prepared. [render]
    void CopyContentsTo(AudioBufferList& list) const;

    // Marks the pointers stale. [render]
    void Invalidate() { mPointerState = kPointersInvalid; }

    // What the records point at, whether the memory is the host's, and the
    // sizes of the last Allocate or adopted host block. [any]
    EPtrState GetPointerState() const { return mPointerState; }
    bool IsMemoryExternal() const { return mMemoryIsExternal; }
    UInt32 GetAllocatedStreams() const { return mAllocatedStreams; }
    UInt32 GetAllocatedFrames() const { return mAllocatedFrames; }
    UInt32 GetAllocatedBytes() const { return mAllocatedBytes; }

private:
    UInt32 CheckStreams(const CAStreamBasicDescription& format) const;
    AudioBufferList& FillRecords(const CAStreamBasicDescription& format, UInt32 streams,
                                 UInt32 nFrames);

    EPtrState mPointerState = kPointersInvalid;
    bool mMemoryIsExternal = false;
    AudioBufferList* mBufferList = nullptr;
    Byte* mMemory = nullptr;
    UInt32 mAllocatedStreams = 0;
    UInt32 mAllocatedFrames = 0;
    UInt32 mAllocatedBytes = 0;
};

#endif
