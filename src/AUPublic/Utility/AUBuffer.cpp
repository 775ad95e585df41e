#include "AUBuffer.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// An AudioBufferList is an 8-byte header followed by 16-byte buffer records.
constexpr UInt32 kListHeaderBytes = offsetof(AudioBufferList, mBuffers);
constexpr UInt32 kBufferRecordBytes = sizeof(AudioBuffer);
static_assert(kListHeaderBytes == 8 && kBufferRecordBytes == 16, "platform list layout");

// Largest stream count whose list size 8 + 16 n still fits 32 bits.
constexpr UInt32 kMaxStreams = (0xFFFFFFFFU - kListHeaderBytes) / kBufferRecordBytes;
static_assert(kMaxStreams == 0x0FFFFFFF, "list size arithmetic");

// Each stream starts on a 16-byte boundary so vector code can use it.
constexpr UInt32 kStreamAlignment = 16;

constexpr std::size_t ListBytes(UInt32 buffers)
{
    return kListHeaderBytes + std::size_t(kBufferRecordBytes) * buffers;
}

// realloc that also releases the old block when growing fails, so the caller
// holds nothing afterwards and cannot keep a pointer it must not use.
void* Reallocf(void* block, std::size_t size)
{
    void* grown = std::realloc(block, size);
    if (grown == nullptr) {
        std::free(block);
    }
    return grown;
}

[[noreturn]] void ThrowStatus(OSStatus status)
{
    throw status;
}

} // namespace

AUBufferList::~AUBufferList()
{
    Deallocate();
    std::free(mBufferList);
}

void AUBufferList::Allocate(const CAStreamBasicDescription& format, UInt32 nFrames)
{
    const UInt32 streams = format.StreamCount();
    const UInt32 bytesPerFrame = format.mBytesPerFrame;

    // Every size is checked before anything changes, so an overflow leaves
    // the list as it was.
    if (streams > kMaxStreams) {
        throw std::bad_alloc();
    }
    if (nFrames != 0 && bytesPerFrame != 0 &&
        nFrames > (0xFFFFFFFFU - (kStreamAlignment - 1)) / bytesPerFrame) {
        throw std::bad_alloc();
    }
    const UInt32 stride =
        (nFrames * bytesPerFrame + (kStreamAlignment - 1)) & ~(kStreamAlignment - 1);
    if (streams != 0 && stride != 0 && streams > 0xFFFFFFFFU / stride) {
        throw std::bad_alloc();
    }
    const UInt32 total = streams * stride;

    // A failed growth has released the old block (Reallocf): the list then
    // holds nothing rather than a dangling pointer, and says so in its counts.
    if (streams > mAllocatedStreams) {
        void* grown = Reallocf(mBufferList, ListBytes(streams));
        if (grown == nullptr) {
            mBufferList = nullptr;
            mAllocatedStreams = 0;
            mPointerState = kPointersInvalid;
            throw std::bad_alloc();
        }
        mBufferList = static_cast<AudioBufferList*>(grown);
        mAllocatedStreams = streams;
    }
    if (total > mAllocatedBytes) {
        if (mMemoryIsExternal) {
            // The host's block is too small now; it stays the host's.
            mMemoryIsExternal = false;
            mMemory = nullptr;
        }
        void* grown = Reallocf(mMemory, total);
        if (grown == nullptr) {
            mMemory = nullptr;
            mAllocatedBytes = 0;
            mAllocatedFrames = 0;
            mPointerState = kPointersInvalid;
            throw std::bad_alloc();
        }
        mMemory = static_cast<Byte*>(grown);
        mAllocatedBytes = total;
    }
    mAllocatedFrames = nFrames;
    mPointerState = kPointersInvalid;
}

void AUBufferList::Deallocate()
{
    mAllocatedStreams = 0;
    mAllocatedFrames = 0;
    mAllocatedBytes = 0;
    if (mMemory != nullptr) {
        if (mMemoryIsExternal) {
            mMemoryIsExternal = false;
        } else {
            std::free(mMemory);
        }
        mMemory = nullptr;
    }
    mPointerState = kPointersInvalid;
}

// Buffer records format needs. A format needing more records than the header
// has room for is refused; so is any format before the first Allocate made a
// header.
UInt32 AUBufferList::CheckStreams(const CAStreamBasicDescription& format) const
{
    const UInt32 streams = format.StreamCount();
    if (mBufferList == nullptr || streams > mAllocatedStreams) {
        ThrowStatus(kAudioUnitErr_FormatNotSupported);
    }
    return streams;
}

AudioBufferList& AUBufferList::FillRecords(const CAStreamBasicDescription& format, UInt32 streams,
                                           UInt32 nFrames)
{
    const UInt32 channels = format.ChannelsPerStream();
    const UInt32 byteSize = nFrames * format.mBytesPerFrame;
    mBufferList->mNumberBuffers = streams;
    for (UInt32 k = 0; k < streams; ++k) {
        AudioBuffer& buffer = mBufferList->mBuffers[k];
        buffer.mNumberChannels = channels;
        buffer.mDataByteSize = byteSize;
        buffer.mData = nullptr;
    }
    return *mBufferList;
}

AudioBufferList& AUBufferList::PrepareBuffer(const CAStreamBasicDescription& format, UInt32 nFrames)
{
    if (nFrames > mAllocatedFrames) {
        ThrowStatus(kAudioUnitErr_TooManyFramesToProcess);
    }
    const UInt32 streams = CheckStreams(format);
    // The stride follows the allocation, not nFrames, so each buffer starts
    // where Allocate placed it. Computed in 64 bits so that a format larger
    // than the allocated one cannot wrap around and pass the size check.
    const UInt64 stride =
        (UInt64(mAllocatedFrames) * format.mBytesPerFrame + (kStreamAlignment - 1)) &
        ~UInt64(kStreamAlignment - 1);
    if (streams * stride > mAllocatedBytes) {
        ThrowStatus(kAudioUnitErr_TooManyFramesToProcess);
    }
    AudioBufferList& list = FillRecords(format, streams, nFrames);
    // Without memory the size check leaves only empty buffers: they keep a
    // null pointer.
    if (mMemory != nullptr) {
        for (UInt32 k = 0; k < streams; ++k) {
            list.mBuffers[k].mData = mMemory + k * stride;
        }
    }
    mPointerState = kPointersToOwnMemory;
    return list;
}

AudioBufferList& AUBufferList::PrepareNullBuffer(const CAStreamBasicDescription& format,
                                                 UInt32 nFrames)
{
    AudioBufferList& list = FillRecords(format, CheckStreams(format), nFrames);
    mPointerState = kPointersToExternalMemory;
    return list;
}

void AUBufferList::UseExternalBuffer(const CAStreamBasicDescription& format,
                                     const AudioUnitExternalBuffer& buf)
{
    if (mMemory == nullptr || buf.buffer == nullptr) {
        return;
    }
    const UInt32 aligned = buf.size & ~(kStreamAlignment - 1);
    if (aligned < mAllocatedBytes) {
        return;
    }
    // A format without streams or without bytes per frame gives no frame
    // count; such a request is ignored rather than dividing by zero.
    const UInt64 bytesPerFrame = UInt64(format.StreamCount()) * format.mBytesPerFrame;
    if (bytesPerFrame == 0) {
        return;
    }
    if (!mMemoryIsExternal) {
        std::free(mMemory);
    }
    mMemory = buf.buffer;
    mAllocatedBytes = aligned;
    mAllocatedFrames = static_cast<UInt32>(aligned / bytesPerFrame);
    mMemoryIsExternal = true;
    // Records prepared earlier may point into the block just released.
    mPointerState = kPointersInvalid;
}

AudioBufferList& AUBufferList::GetPreparedList()
{
    if (mPointerState == kPointersInvalid) {
        ThrowStatus(-1);
    }
    return *mBufferList;
}

void AUBufferList::UseCallerList(const AudioBufferList& list)
{
    if (mBufferList == nullptr || list.mNumberBuffers > mAllocatedStreams) {
        ThrowStatus(-1);
    }
    std::memcpy(mBufferList, &list, ListBytes(list.mNumberBuffers));
    mPointerState = kPointersToExternalMemory;
}

void AUBufferList::CopyPointersTo(AudioBufferList& list) const
{
    if (mPointerState == kPointersInvalid || list.mNumberBuffers > mAllocatedStreams) {
        ThrowStatus(-1);
    }
    std::memcpy(&list, mBufferList, ListBytes(list.mNumberBuffers));
}

// A buffer with a null data pointer on either side has nothing to copy from
// or to; it only takes the source's byte size. A source with no buffers
// leaves the destination unchanged.
void AUBufferList::CopyContentsTo(AudioBufferList& list) const
{
    if (mPointerState == kPointersInvalid) {
        ThrowStatus(-1);
    }
    const UInt32 sourceCount = mBufferList->mNumberBuffers;
    if (sourceCount == 0) {
        return;
    }
    for (UInt32 i = 0; i < list.mNumberBuffers; ++i) {
        const AudioBuffer& source = mBufferList->mBuffers[i < sourceCount ? i : sourceCount - 1];
        AudioBuffer& destination = list.mBuffers[i];
        if (source.mData != destination.mData && source.mData != nullptr &&
            destination.mData != nullptr) {
            std::memmove(destination.mData, source.mData, source.mDataByteSize);
        }
        destination.mDataByteSize = source.mDataByteSize;
    }
}
