#include "AUBase.h"
#include "AUOutputElement.h"
#include "ThrownStatus.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace {

// The smallest concrete unit: one input, one output, no processing.
class TestUnit : public AUBase
{
public:
    TestUnit() : AUBase(nullptr, 1, 1, 0) { CreateElements(); }
    bool StreamFormatWritable(AudioUnitScope, AudioUnitElement) override
    {
        return !IsInitialized();
    }
};

CAStreamBasicDescription FloatChannels(UInt32 channels)
{
    CAStreamBasicDescription format = AUIOElement::DefaultStreamFormat();
    format.mChannelsPerFrame = channels;
    return format;
}

TEST(AUOutputElementTest, NewBusHasTheDefaultFloatStereoFormat)
{
    TestUnit unit;
    AUOutputElement* out = unit.GetOutput(0);
    const CAStreamBasicDescription& f = out->GetStreamFormat();
    EXPECT_EQ(f.mSampleRate, 44100.0);
    EXPECT_EQ(f.mFormatID, kAudioFormatLinearPCM);
    EXPECT_EQ(f.mFormatFlags, 41u);
    EXPECT_EQ(f.mBytesPerPacket, 4u);
    EXPECT_EQ(f.mFramesPerPacket, 1u);
    EXPECT_EQ(f.mBytesPerFrame, 4u);
    EXPECT_EQ(f.mChannelsPerFrame, 2u);
    EXPECT_EQ(f.mBitsPerChannel, 32u);
    EXPECT_EQ(f.mReserved, 0u);
    EXPECT_TRUE(out->WillAllocateBuffer());
    EXPECT_TRUE(out->NeedsBufferSpace());
    EXPECT_EQ(out->AsIOElement(), out);
    EXPECT_EQ(unit.Globals()->AsIOElement(), nullptr);

    CAStreamBasicDescription odd = FloatChannels(3);
    odd.mReserved = 9;
    EXPECT_EQ(out->SetStreamFormat(odd), noErr);
    EXPECT_EQ(out->GetStreamFormat().mReserved, 9u) << "all 40 bytes taken, unvalidated";
}

TEST(AUOutputElementTest, BuffersAreSizedOnlyOnceInitializationBegins)
{
    TestUnit unit;
    AUOutputElement* out = unit.GetOutput(0);
    const AUBufferList& buffers = out->GetBufferList();
    out->AllocateBuffer(100);
    EXPECT_EQ(out->SetStreamFormat(FloatChannels(2)), noErr);
    EXPECT_EQ(buffers.GetAllocatedStreams(), 0u) << "nothing before initialization";
    EXPECT_EQ(buffers.GetAllocatedBytes(), 0u);

    ASSERT_EQ(unit.DoInitialize(), noErr);
    EXPECT_EQ(buffers.GetAllocatedStreams(), 2u);
    EXPECT_EQ(buffers.GetAllocatedFrames(), 1156u) << "the unit's maximum slice";
    EXPECT_EQ(buffers.GetAllocatedBytes(), 9248u);

    // A new format while initialized resizes the bus at once.
    EXPECT_EQ(out->SetStreamFormat(FloatChannels(4)), noErr);
    EXPECT_EQ(buffers.GetAllocatedStreams(), 4u);
    EXPECT_EQ(buffers.GetAllocatedBytes(), 4u * 4624u);
    AudioBufferList& list = out->PrepareIOBuffer(1156);
    EXPECT_EQ(list.mNumberBuffers, 4u);
    EXPECT_EQ(list.mBuffers[3].mDataByteSize, 4624u);
    EXPECT_EQ(ThrownStatus([&] { out->PrepareIOBuffer(1157); }),
              kAudioUnitErr_TooManyFramesToProcess);

    out->AllocateBuffer(2000);
    EXPECT_EQ(buffers.GetAllocatedFrames(), 2000u) << "an explicit frame count wins";

    unit.DoCleanup();
    EXPECT_EQ(out->SetStreamFormat(FloatChannels(8)), noErr);
    EXPECT_EQ(buffers.GetAllocatedStreams(), 4u) << "no resizing after cleanup";
    EXPECT_EQ(buffers.GetAllocatedFrames(), 2000u);
}

TEST(AUOutputElementTest, HostSuppliedBusGetsOnlyAListHeader)
{
    TestUnit unit;
    AUOutputElement* out = unit.GetOutput(0);
    out->SetWillAllocateBuffer(false);
    ASSERT_EQ(unit.DoInitialize(), noErr);
    EXPECT_EQ(out->GetBufferList().GetAllocatedStreams(), 2u);
    EXPECT_EQ(out->GetBufferList().GetAllocatedBytes(), 0u);
    EXPECT_EQ(out->GetBufferList().GetAllocatedFrames(), 0u);
    EXPECT_EQ(ThrownStatus([&] { out->PrepareIOBuffer(1); }), kAudioUnitErr_InvalidPropertyValue);
    EXPECT_EQ(out->GetBufferList().PrepareNullBuffer(out->GetStreamFormat(), 512).mNumberBuffers,
              2u);
}

TEST(AUOutputElementTest, ExternalBlockBecomesTheBusMemory)
{
    TestUnit unit;
    AUOutputElement* out = unit.GetOutput(0);
    ASSERT_EQ(unit.DoInitialize(), noErr);
    std::vector<std::uint64_t> block(9250 / 8 + 1);
    out->UseExternalBuffer({reinterpret_cast<Byte*>(block.data()), 9250});
    EXPECT_TRUE(out->GetBufferList().IsMemoryExternal());
    EXPECT_EQ(out->GetBufferList().GetAllocatedFrames(), 1156u);
    EXPECT_EQ(out->PrepareIOBuffer(1156).mBuffers[0].mData, block.data());
}

} // namespace
