// The bus buffer list: grow-only sizing with its 32-bit overflow checks and
// failed-growth rule, the prepares, the caller's lists and the copies.
#include "AUBuffer.h"
#include "BufferListStorage.h"
#include "ThrownStatus.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>

namespace {

CAStreamBasicDescription FloatFormat(UInt32 inChannels, bool inInterleaved = false)
{
    CAStreamBasicDescription format;
    FillOutASBDForLPCM(format, 44100.0, inChannels, 32, 32, true, false, !inInterleaved);
    return format;
}

std::uintptr_t Address(const void* inPointer)
{
    return reinterpret_cast<std::uintptr_t>(inPointer);
}

class AUBufferListTest : public ::testing::Test
{
protected:
    void ExpectSizes(UInt32 inStreams, UInt32 inFrames, UInt32 inBytes)
    {
        EXPECT_EQ(mList.GetAllocatedStreams(), inStreams);
        EXPECT_EQ(mList.GetAllocatedFrames(), inFrames);
        EXPECT_EQ(mList.GetAllocatedBytes(), inBytes);
    }

    OSStatus Prepare(const CAStreamBasicDescription& inFormat, UInt32 inFrames, bool inNull = false)
    {
        return ThrownStatus([&] {
            inNull ? mList.PrepareNullBuffer(inFormat, inFrames)
                   : mList.PrepareBuffer(inFormat, inFrames);
        });
    }

    AUBufferList mList;
    const CAStreamBasicDescription mStereo = FloatFormat(2);
};

TEST_F(AUBufferListTest, PreparesPointEveryBufferIntoTheAllocation)
{
    EXPECT_EQ(Prepare(mStereo, 1, true), kAudioUnitErr_FormatNotSupported) << "no header yet";
    mList.Allocate(mStereo, 1156);
    ExpectSizes(2, 1156, 9248); // two strides of 4624 bytes
    EXPECT_EQ(ThrownStatus([&] { mList.GetPreparedList(); }), -1) << "not prepared";
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
    std::memset(abl.mBuffers[1].mData, 0, 4624); // the sanitizer build checks the bounds
    EXPECT_EQ(Prepare(mStereo, 1156), noErr);
    EXPECT_EQ(Prepare(mStereo, 1157), kAudioUnitErr_TooManyFramesToProcess);
    // A format needing more buffers than the header holds is refused by both.
    EXPECT_EQ(Prepare(FloatFormat(5), 0), kAudioUnitErr_FormatNotSupported);
    EXPECT_EQ(Prepare(FloatFormat(5), 1, true), kAudioUnitErr_FormatNotSupported);

    // A null prepare sizes the records without a frame limit.
    AudioBufferList& null = mList.PrepareNullBuffer(mStereo, 4096);
    EXPECT_EQ(mList.GetPointerState(), AUBufferList::kPointersToExternalMemory);
    EXPECT_EQ(null.mNumberBuffers, 2u);
    EXPECT_EQ(null.mBuffers[1].mData, nullptr);
    EXPECT_EQ(null.mBuffers[1].mDataByteSize, 16384u);
}

TEST_F(AUBufferListTest, AllocationOnlyGrowsButFramesFollowTheLastRequest)
{
    mList.Allocate(mStereo, 1156);
    void* first = mList.PrepareBuffer(mStereo, 1).mBuffers[0].mData;
    mList.Allocate(FloatFormat(1), 64);
    ExpectSizes(2, 64, 9248);
    EXPECT_EQ(mList.PrepareBuffer(FloatFormat(1), 64).mBuffers[0].mData, first);
    mList.Allocate(mStereo, 0);
    ExpectSizes(2, 0, 9248);
    EXPECT_EQ(Prepare(mStereo, 1), kAudioUnitErr_TooManyFramesToProcess);
    EXPECT_EQ(Prepare(mStereo, 0), noErr);
    mList.Allocate(FloatFormat(4), 2000);
    ExpectSizes(4, 2000, 32000);
    mList.Deallocate();
    ExpectSizes(0, 0, 0);
    EXPECT_EQ(mList.GetPointerState(), AUBufferList::kPointersInvalid);
    mList.Allocate(mStereo, 512);
    EXPECT_EQ(mList.PrepareBuffer(mStereo, 512).mBuffers[1].mDataByteSize, 2048u);
}

TEST_F(AUBufferListTest, SizeOverflowsThrowBeforeAnythingChanges)
{
    mList.Allocate(mStereo, 256);
    auto expectUnchanged = [&](const char* inWhat) {
        SCOPED_TRACE(inWhat);
        ExpectSizes(2, 256, 2048);
        EXPECT_EQ(Prepare(mStereo, 256), noErr);
    };
    // Header: 8 + 16 n must fit 32 bits.
    EXPECT_THROW(mList.Allocate(FloatFormat(0x10000000), 0), std::bad_alloc);
    expectUnchanged("stream count");
    // Stride: frames x bytes per frame + 15 must fit 32 bits.
    CAStreamBasicDescription wide = FloatFormat(1, true);
    wide.mBytesPerFrame = 0x10000;
    EXPECT_THROW(mList.Allocate(wide, 0x10000), std::bad_alloc);
    expectUnchanged("stride wraps to 0");
    wide.mBytesPerFrame = 0xFFFFFFF1;
    EXPECT_THROW(mList.Allocate(wide, 1), std::bad_alloc);
    expectUnchanged("rounding up wraps");
    // Total: streams x stride must fit 32 bits (here it would wrap to 0).
    EXPECT_THROW(mList.Allocate(FloatFormat(0x100), 0x400000), std::bad_alloc);
    expectUnchanged("total");
    wide.mBytesPerFrame = 0; // no overflow: nothing to allocate
    EXPECT_NO_THROW(mList.Allocate(wide, 0xFFFFFFFF));
}

// With the address space capped a little above its current size, the process
// cannot have large blocks: growth fails and leaves the list holding nothing.
TEST_F(AUBufferListTest, FailedGrowthLeavesAnEmptyListThatStillWorks)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers' allocators abort instead of failing";
#endif
    mList.Allocate(mStereo, 256);
    mList.PrepareBuffer(mStereo, 256);
    rlimit saved;
    getrlimit(RLIMIT_AS, &saved);
    unsigned long pages = 0;
    FILE* statm = std::fopen("/proc/self/statm", "r");
    ASSERT_EQ(std::fscanf(statm, "%lu", &pages), 1);
    std::fclose(statm);
    rlimit cap = saved;
    cap.rlim_cur = (pages + 16384) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
    ASSERT_EQ(setrlimit(RLIMIT_AS, &cap), 0);
    EXPECT_THROW(mList.Allocate(mStereo, 0x4000000), std::bad_alloc); // 512 MB of samples
    ExpectSizes(2, 0, 0);
    EXPECT_EQ(mList.GetPointerState(), AUBufferList::kPointersInvalid);
    EXPECT_THROW(mList.Allocate(FloatFormat(0x1000000), 0), std::bad_alloc); // a 256 MB header
    ExpectSizes(0, 0, 0);
    setrlimit(RLIMIT_AS, &saved);
    EXPECT_EQ(Prepare(mStereo, 1, true), kAudioUnitErr_FormatNotSupported);
    mList.Allocate(mStereo, 64);
    ExpectSizes(2, 64, 512);
    EXPECT_EQ(mList.PrepareBuffer(mStereo, 64).mBuffers[1].mDataByteSize, 256u);
}

TEST_F(AUBufferListTest, CallerListsAndCopies)
{
    mList.Allocate(mStereo, 64);
    BufferListStorage dest(3);
    EXPECT_EQ(ThrownStatus([&] { mList.CopyPointersTo(dest.List()); }), -1) << "not prepared";
    EXPECT_EQ(ThrownStatus([&] { mList.CopyContentsTo(dest.List()); }), -1);
    EXPECT_EQ(ThrownStatus([&] { mList.UseCallerList(dest.List()); }), -1) << "three buffers";
    // Contents: the last source buffer is repeated into surplus destination
    // buffers, and only the source's byte size is copied.
    AudioBufferList& src = mList.PrepareBuffer(mStereo, 4);
    float out[3][8];
    for (int i = 0; i < 8; ++i) {
        static_cast<float*>(src.mBuffers[0].mData)[i] = 1.0f + i;
        static_cast<float*>(src.mBuffers[1].mData)[i] = 10.0f + i;
        out[0][i] = out[1][i] = out[2][i] = -1.0f;
    }
    for (UInt32 k = 0; k < 3; ++k) {
        dest.List().mBuffers[k] = {1, 32, out[k]};
    }
    mList.CopyContentsTo(dest.List());
    EXPECT_EQ(out[0][3], 4.0f);
    EXPECT_EQ(out[1][3], 13.0f);
    EXPECT_EQ(out[2][3], 13.0f) << "last source buffer repeated";
    EXPECT_EQ(out[0][4], -1.0f);
    EXPECT_EQ(dest.List().mBuffers[2].mDataByteSize, 16u);
    // Pointers: the header and the records; a caller's list is taken as given.
    dest.List().mNumberBuffers = 2;
    mList.CopyPointersTo(dest.List());
    EXPECT_EQ(dest.List().mBuffers[1].mData, src.mBuffers[1].mData);
    EXPECT_EQ(dest.List().mBuffers[1].mDataByteSize, 16u);
    dest.List().mBuffers[1].mData = out[1];
    mList.UseCallerList(dest.List());
    EXPECT_EQ(mList.GetPointerState(), AUBufferList::kPointersToExternalMemory);
    EXPECT_EQ(mList.GetPreparedList().mBuffers[1].mData, out[1]);
}

} // namespace
