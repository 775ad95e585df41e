#include "AUBuffer.h"
#include "BufferListStorage.h"
#include "ThrownStatus.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <vector>

namespace {

CAStreamBasicDescription FloatFormat(UInt32 channels, bool interleaved)
{
    CAStreamBasicDescription d;
    d.mSampleRate = 44100.0;
    d.mFormatID = kAudioFormatLinearPCM;
    d.mFormatFlags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked |
                     (interleaved ? 0 : kAudioFormatFlagIsNonInterleaved);
    d.mBytesPerFrame = d.mBytesPerPacket = interleaved ? 4 * channels : 4;
    d.mFramesPerPacket = 1;
    d.mChannelsPerFrame = channels;
    d.mBitsPerChannel = 32;
    return d;
}

std::uintptr_t Address(const void* p)
{
    return reinterpret_cast<std::uintptr_t>(p);
}

class AUBufferListTest : public ::testing::Test
{
protected:
    AUBufferList mList;
    const CAStreamBasicDescription mStereo = FloatFormat(2, false);
};

TEST_F(AUBufferListTest, AllocateAndPrepareDefaultStereo)
{
    mList.Allocate(mStereo, 1156);
    EXPECT_EQ(mList.GetAllocatedStreams(), 2u);
    EXPECT_EQ(mList.GetAllocatedFrames(), 1156u);
    EXPECT_EQ(mList.GetAllocatedBytes(), 9248u) << "two strides of 4624 bytes";
    EXPECT_EQ(mList.GetPointerState(), AUBufferList::kPointersInvalid);
    EXPECT_EQ(ThrownStatus([&] { mList.GetPreparedList(); }), -1);

    AudioBufferList& abl = mList.PrepareBuffer(mStereo, 512);
    EXPECT_EQ(mList.GetPointerState(), AUBufferList::kPointersToOwnMemory);
    ASSERT_EQ(abl.mNumberBuffers, 2u);
    for (UInt32 k = 0; k < 2; ++k) {
        EXPECT_EQ(abl.mBuffers[k].mNumberChannels, 1u);
        EXPECT_EQ(abl.mBuffers[k].mDataByteSize, 2048u);
        EXPECT_EQ(Address(abl.mBuffers[k].mData) % 16, 0u);
    }
    EXPECT_EQ(Address(abl.mBuffers[1].mData) - Address(abl.mBuffers[0].mData), 4624u)
        << "stride follows the allocated frames, not the prepared ones";
    EXPECT_EQ(&mList.GetPreparedList(), &abl);
    // The whole block is writable (the sanitizer build checks the bounds).
    std::memset(abl.mBuffers[1].mData, 0, 4624);

    EXPECT_EQ(ThrownStatus([&] { mList.PrepareBuffer(mStereo, 1156); }), 0);
    EXPECT_EQ(ThrownStatus([&] { mList.PrepareBuffer(mStereo, 1157); }),
              kAudioUnitErr_TooManyFramesToProcess);
}

TEST_F(AUBufferListTest, InterleavedFormatUsesOneBufferForAllChannels)
{
    const CAStreamBasicDescription format = FloatFormat(3, true);
    mList.Allocate(format, 100);
    EXPECT_EQ(mList.GetAllocatedStreams(), 1u);
    EXPECT_EQ(mList.GetAllocatedBytes(), 1200u);
    AudioBufferList& abl = mList.PrepareBuffer(format, 10);
    ASSERT_EQ(abl.mNumberBuffers, 1u);
    EXPECT_EQ(abl.mBuffers[0].mNumberChannels, 3u);
    EXPECT_EQ(abl.mBuffers[0].mDataByteSize, 120u);
}

TEST_F(AUBufferListTest, AllocationOnlyGrowsButFramesFollowTheLastRequest)
{
    mList.Allocate(mStereo, 1156);
    void* first = mList.PrepareBuffer(mStereo, 1).mBuffers[0].mData;

    mList.Allocate(FloatFormat(1, false), 64);
    EXPECT_EQ(mList.GetAllocatedStreams(), 2u) << "header never shrinks";
    EXPECT_EQ(mList.GetAllocatedBytes(), 9248u) << "memory never shrinks";
    EXPECT_EQ(mList.GetAllocatedFrames(), 64u);
    EXPECT_EQ(mList.PrepareBuffer(FloatFormat(1, false), 64).mBuffers[0].mData, first);

    mList.Allocate(mStereo, 0);
    EXPECT_EQ(mList.GetAllocatedBytes(), 9248u);
    EXPECT_EQ(mList.GetAllocatedFrames(), 0u);
    EXPECT_EQ(ThrownStatus([&] { mList.PrepareBuffer(mStereo, 1); }),
              kAudioUnitErr_TooManyFramesToProcess);
    EXPECT_EQ(ThrownStatus([&] { mList.PrepareBuffer(mStereo, 0); }), 0);

    mList.Allocate(FloatFormat(4, false), 2000);
    EXPECT_EQ(mList.GetAllocatedStreams(), 4u);
    EXPECT_EQ(mList.GetAllocatedBytes(), 32000u);
}

TEST_F(AUBufferListTest, SizeOverflowsThrowBeforeAnythingChanges)
{
    mList.Allocate(mStereo, 256);

    auto expectUnchanged = [&](const char* what) {
        EXPECT_EQ(mList.GetAllocatedStreams(), 2u) << what;
        EXPECT_EQ(mList.GetAllocatedFrames(), 256u) << what;
        EXPECT_EQ(mList.GetAllocatedBytes(), 2048u) << what;
        EXPECT_EQ(ThrownStatus([&] { mList.PrepareBuffer(mStereo, 256); }), 0) << what;
    };

    // Header: 8 + 16 n must fit 32 bits.
    CAStreamBasicDescription manyStreams = FloatFormat(0x10000000, false);
    EXPECT_THROW(mList.Allocate(manyStreams, 0), std::bad_alloc);
    expectUnchanged("stream count");

    // Stride: frames x bytes per frame + 15 must fit 32 bits, wrapping to a
    // small number included.
    CAStreamBasicDescription wide = FloatFormat(1, true);
    wide.mBytesPerFrame = 0x10000;
    EXPECT_THROW(mList.Allocate(wide, 0x10000), std::bad_alloc);
    expectUnchanged("stride wraps to 0");
    wide.mBytesPerFrame = 0xFFFFFFF1;
    EXPECT_THROW(mList.Allocate(wide, 1), std::bad_alloc);
    expectUnchanged("rounding up wraps");

    // Total: streams x stride must fit 32 bits (here it would wrap to 0).
    CAStreamBasicDescription many = FloatFormat(0x100, false);
    EXPECT_THROW(mList.Allocate(many, 0x400000), std::bad_alloc);
    expectUnchanged("total");

    // Zero bytes per frame is no overflow: nothing to allocate.
    wide.mBytesPerFrame = 0;
    EXPECT_NO_THROW(mList.Allocate(wide, 0xFFFFFFFF));
}

TEST_F(AUBufferListTest, NullPrepareSizesRecordsWithoutPointers)
{
    mList.Allocate(mStereo, 0);
    EXPECT_EQ(mList.GetAllocatedBytes(), 0u);

    AudioBufferList& abl = mList.PrepareNullBuffer(mStereo, 4096);
    EXPECT_EQ(mList.GetPointerState(), AUBufferList::kPointersToExternalMemory);
    ASSERT_EQ(abl.mNumberBuffers, 2u);
    for (UInt32 k = 0; k < 2; ++k) {
        EXPECT_EQ(abl.mBuffers[k].mData, nullptr);
        EXPECT_EQ(abl.mBuffers[k].mDataByteSize, 16384u) << "no frame limit without own memory";
        EXPECT_EQ(abl.mBuffers[k].mNumberChannels, 1u);
    }

    // A format needing more buffers than the header holds is refused by both.
    const CAStreamBasicDescription five = FloatFormat(5, false);
    EXPECT_EQ(ThrownStatus([&] { mList.PrepareNullBuffer(five, 1); }),
              kAudioUnitErr_FormatNotSupported);
    EXPECT_EQ(ThrownStatus([&] { mList.PrepareBuffer(five, 0); }),
              kAudioUnitErr_FormatNotSupported);

    AUBufferList fresh;
    EXPECT_EQ(ThrownStatus([&] { fresh.PrepareNullBuffer(FloatFormat(1, true), 1); }),
              kAudioUnitErr_FormatNotSupported)
        << "no header before the first allocation";
}

TEST_F(AUBufferListTest, DeallocateForgetsMemoryAndInvalidates)
{
    mList.Allocate(mStereo, 512);
    mList.PrepareBuffer(mStereo, 512);
    mList.Deallocate();
    EXPECT_EQ(mList.GetAllocatedStreams(), 0u);
    EXPECT_EQ(mList.GetAllocatedFrames(), 0u);
    EXPECT_EQ(mList.GetAllocatedBytes(), 0u);
    EXPECT_EQ(mList.GetPointerState(), AUBufferList::kPointersInvalid);
    EXPECT_EQ(ThrownStatus([&] { mList.GetPreparedList(); }), -1);

    mList.Allocate(mStereo, 512);
    EXPECT_EQ(mList.PrepareBuffer(mStereo, 512).mBuffers[1].mDataByteSize, 2048u);
}

TEST_F(AUBufferListTest, ExternalMemoryIsUsedButNeverFreed)
{
    // Blocks from operator new: freeing one with free() would be reported by
    // the sanitizer build.
    std::vector<std::uint64_t> block(9250 / 8 + 1);
    std::vector<std::uint64_t> second(2000);
    AudioUnitExternalBuffer exact{reinterpret_cast<Byte*>(block.data()), 9250};
    AudioUnitExternalBuffer small{reinterpret_cast<Byte*>(block.data()), 9247};

    mList.UseExternalBuffer(mStereo, exact);
    EXPECT_FALSE(mList.IsMemoryExternal()) << "ignored before anything is allocated";

    mList.Allocate(mStereo, 1156);
    mList.UseExternalBuffer(mStereo, small);
    EXPECT_FALSE(mList.IsMemoryExternal()) << "ignored when smaller than the allocation";

    CAStreamBasicDescription noBytes = mStereo;
    noBytes.mBytesPerFrame = 0;
    mList.UseExternalBuffer(noBytes, exact);
    EXPECT_FALSE(mList.IsMemoryExternal()) << "ignored when no frame count follows";

    mList.UseExternalBuffer(mStereo, exact);
    EXPECT_TRUE(mList.IsMemoryExternal());
    EXPECT_EQ(mList.GetAllocatedBytes(), 9248u) << "rounded down to 16 bytes";
    EXPECT_EQ(mList.GetAllocatedFrames(), 1156u);
    EXPECT_EQ(mList.GetPointerState(), AUBufferList::kPointersInvalid);
    AudioBufferList& abl = mList.PrepareBuffer(mStereo, 1156);
    EXPECT_EQ(abl.mBuffers[0].mData, block.data());
    EXPECT_EQ(Address(abl.mBuffers[1].mData) - Address(block.data()), 4624u);

    // A larger host block replaces the first one, which is only forgotten.
    mList.UseExternalBuffer(mStereo, {reinterpret_cast<Byte*>(second.data()), 16000});
    EXPECT_EQ(mList.GetAllocatedFrames(), 2000u);

    // Growing beyond the host block goes back to own memory.
    mList.Allocate(mStereo, 4000);
    EXPECT_FALSE(mList.IsMemoryExternal());
    EXPECT_EQ(mList.GetAllocatedBytes(), 32000u);
    EXPECT_NE(mList.PrepareBuffer(mStereo, 4000).mBuffers[0].mData, second.data());

    AUBufferList external;
    external.Allocate(mStereo, 16);
    external.UseExternalBuffer(mStereo, {reinterpret_cast<Byte*>(second.data()), 16000});
    external.Deallocate();
    EXPECT_FALSE(external.IsMemoryExternal());
    EXPECT_EQ(external.GetAllocatedBytes(), 0u);
}

TEST_F(AUBufferListTest, CallerListAndPointerCopies)
{
    mList.Allocate(mStereo, 64);

    BufferListStorage dest(2);
    EXPECT_EQ(ThrownStatus([&] { mList.CopyPointersTo(dest.List()); }), -1) << "not prepared";

    float left[64] = {};
    float right[64] = {};
    BufferListStorage host(2);
    host.List().mBuffers[0] = {1, 256, left};
    host.List().mBuffers[1] = {1, 256, right};
    mList.UseCallerList(host.List());
    EXPECT_EQ(mList.GetPointerState(), AUBufferList::kPointersToExternalMemory);
    EXPECT_EQ(mList.GetPreparedList().mBuffers[1].mData, right);

    BufferListStorage three(3);
    EXPECT_EQ(ThrownStatus([&] { mList.UseCallerList(three.List()); }), -1)
        << "more buffers than the header holds";
    EXPECT_EQ(ThrownStatus([&] { mList.CopyPointersTo(three.List()); }), -1);

    AudioBufferList& own = mList.PrepareBuffer(mStereo, 32);
    dest.List().mBuffers[0] = {9, 9, nullptr};
    dest.List().mBuffers[1] = {9, 9, nullptr};
    mList.CopyPointersTo(dest.List());
    EXPECT_EQ(dest.List().mNumberBuffers, 2u);
    for (UInt32 k = 0; k < 2; ++k) {
        EXPECT_EQ(dest.List().mBuffers[k].mData, own.mBuffers[k].mData);
        EXPECT_EQ(dest.List().mBuffers[k].mDataByteSize, 128u);
        EXPECT_EQ(dest.List().mBuffers[k].mNumberChannels, 1u);
    }
}

TEST_F(AUBufferListTest, CopyContentsRepeatsTheLastSourceBuffer)
{
    mList.Allocate(mStereo, 8);

    BufferListStorage dest(3);
    EXPECT_EQ(ThrownStatus([&] { mList.CopyContentsTo(dest.List()); }), -1) << "not prepared";

    AudioBufferList& src = mList.PrepareBuffer(mStereo, 4);
    for (int i = 0; i < 4; ++i) {
        static_cast<float*>(src.mBuffers[0].mData)[i] = 1.0f + i;
        static_cast<float*>(src.mBuffers[1].mData)[i] = 10.0f + i;
    }
    float out[3][8];
    for (auto& channel : out) {
        for (float& s : channel) {
            s = -1.0f;
        }
    }
    for (UInt32 k = 0; k < 3; ++k) {
        dest.List().mBuffers[k] = {1, 32, out[k]};
    }
    mList.CopyContentsTo(dest.List());
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(out[0][i], 1.0f + i);
        EXPECT_EQ(out[1][i], 10.0f + i);
        EXPECT_EQ(out[2][i], 10.0f + i) << "last source buffer repeated";
    }
    EXPECT_EQ(out[0][4], -1.0f) << "only the source's byte size is copied";
    for (UInt32 k = 0; k < 3; ++k) {
        EXPECT_EQ(dest.List().mBuffers[k].mDataByteSize, 16u);
    }

    // Copying a list onto itself leaves the samples as they are.
    dest.List().mNumberBuffers = 2;
    mList.CopyPointersTo(dest.List());
    mList.CopyContentsTo(dest.List());
    EXPECT_EQ(static_cast<float*>(src.mBuffers[1].mData)[3], 13.0f);
}

} // namespace
