#include "CAStreamBasicDescription.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

// 44.1 kHz stereo 32-bit float, one buffer per channel.
CAStreamBasicDescription FloatStereo()
{
    CAStreamBasicDescription d;
    d.mSampleRate = 44100.0;
    d.mFormatID = kAudioFormatLinearPCM;
    d.mFormatFlags =
        kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked | kAudioFormatFlagIsNonInterleaved;
    d.mBytesPerPacket = 4;
    d.mFramesPerPacket = 1;
    d.mBytesPerFrame = 4;
    d.mChannelsPerFrame = 2;
    d.mBitsPerChannel = 32;
    return d;
}

CAStreamBasicDescription IntPCM(UInt32 bits, UInt32 channels, AudioFormatFlags flags)
{
    CAStreamBasicDescription d;
    d.mSampleRate = 48000.0;
    d.mFormatID = kAudioFormatLinearPCM;
    d.mFormatFlags = flags;
    d.mBytesPerFrame = d.mBytesPerPacket = bits / 8 * channels;
    d.mFramesPerPacket = 1;
    d.mChannelsPerFrame = channels;
    d.mBitsPerChannel = bits;
    return d;
}

bool Equal(const CAStreamBasicDescription& a, const CAStreamBasicDescription& b)
{
    return a == b;
}

TEST(CAStreamBasicDescriptionTest, DefaultIsAllZeroAndMatchesEveryFormat)
{
    CAStreamBasicDescription zero;
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(&zero);
    for (std::size_t i = 0; i < sizeof zero; ++i) {
        ASSERT_EQ(bytes[i], 0) << "byte " << i;
    }
    CAStreamBasicDescription aac;
    aac.mFormatID = kAudioFormatMPEG4AAC;
    aac.mFormatFlags = 3;
    aac.mFramesPerPacket = 1024;
    for (const CAStreamBasicDescription& other : {FloatStereo(), aac}) {
        EXPECT_TRUE(zero == other);
        EXPECT_TRUE(other == zero);
        EXPECT_FALSE(zero.IsEqual(other, false));
    }
}

TEST(CAStreamBasicDescriptionTest, ExactComparisonCoversEveryFieldButReserved)
{
    const CAStreamBasicDescription base = FloatStereo();
    CAStreamBasicDescription reserved = base;
    reserved.mReserved = 7;
    EXPECT_TRUE(base.IsEqual(reserved, false));
    EXPECT_TRUE(base.IsEqual(reserved, true));

    UInt32 CAStreamBasicDescription::*fields[] = {
        &CAStreamBasicDescription::mFormatID,       &CAStreamBasicDescription::mFormatFlags,
        &CAStreamBasicDescription::mBytesPerPacket, &CAStreamBasicDescription::mFramesPerPacket,
        &CAStreamBasicDescription::mBytesPerFrame,  &CAStreamBasicDescription::mChannelsPerFrame,
        &CAStreamBasicDescription::mBitsPerChannel};
    for (auto field : fields) {
        CAStreamBasicDescription changed = base;
        changed.*field += 1;
        EXPECT_FALSE(base.IsEqual(changed, false));
    }
    CAStreamBasicDescription rate = base;
    rate.mSampleRate = 48000.0;
    EXPECT_FALSE(base.IsEqual(rate, false));
}

// Each of the plain numeric fields: 0 on either side is a wildcard, two
// different nonzero values are not equal.
TEST(CAStreamBasicDescriptionTest, ZeroFieldIsWildcardOnEitherSide)
{
    UInt32 CAStreamBasicDescription::*fields[] = {
        &CAStreamBasicDescription::mBytesPerPacket, &CAStreamBasicDescription::mFramesPerPacket,
        &CAStreamBasicDescription::mBytesPerFrame, &CAStreamBasicDescription::mChannelsPerFrame,
        &CAStreamBasicDescription::mBitsPerChannel};
    for (auto field : fields) {
        CAStreamBasicDescription a = FloatStereo();
        CAStreamBasicDescription b = FloatStereo();
        b.*field = 3;
        EXPECT_FALSE(Equal(a, b));
        a.*field = 0;
        EXPECT_TRUE(Equal(a, b));
        EXPECT_TRUE(Equal(b, a));
    }

    CAStreamBasicDescription a = FloatStereo();
    CAStreamBasicDescription b = FloatStereo();
    b.mSampleRate = 96000.0;
    EXPECT_FALSE(Equal(a, b));
    a.mSampleRate = 0.0;
    EXPECT_TRUE(Equal(a, b));
    EXPECT_TRUE(Equal(b, a));

    b.mSampleRate = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(Equal(a, b)) << "a zero rate matches even NaN";
    a.mSampleRate = b.mSampleRate;
    EXPECT_FALSE(Equal(a, b)) << "NaN never equals NaN";
}

TEST(CAStreamBasicDescriptionTest, FormatIdAndFlagsWildcards)
{
    CAStreamBasicDescription pcm = FloatStereo();
    CAStreamBasicDescription anyFormat = FloatStereo();
    anyFormat.mFormatID = 0;
    anyFormat.mFormatFlags = kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsBigEndian;
    EXPECT_TRUE(Equal(anyFormat, pcm)) << "format ID 0 skips the flags";
    EXPECT_TRUE(Equal(pcm, anyFormat));

    CAStreamBasicDescription other = FloatStereo();
    other.mFormatID = kAudioFormatAC3;
    EXPECT_FALSE(Equal(pcm, other));

    CAStreamBasicDescription anyFlags = FloatStereo();
    anyFlags.mFormatFlags = 0;
    CAStreamBasicDescription intFlags = FloatStereo();
    intFlags.mFormatFlags = kAudioFormatFlagIsSignedInteger;
    EXPECT_TRUE(Equal(anyFlags, intFlags));
    EXPECT_TRUE(Equal(intFlags, anyFlags));
    EXPECT_FALSE(Equal(pcm, intFlags));
}

TEST(CAStreamBasicDescriptionTest, NonPCMFlagsCompareExactly)
{
    CAStreamBasicDescription a;
    a.mFormatID = kAudioFormatMPEG4AAC;
    a.mFormatFlags = kAudioFormatFlagIsPacked;
    CAStreamBasicDescription b = a;
    b.mFormatFlags = kAudioFormatFlagIsPacked | kAudioFormatFlagIsAlignedHigh;
    EXPECT_FALSE(Equal(a, b)) << "only linear PCM flags are normalised";
    b.mFormatFlags = kAudioFormatFlagIsPacked | kAudioFormatFlagsAreAllClear;
    EXPECT_FALSE(Equal(a, b));
}

TEST(CAStreamBasicDescriptionTest, PCMFlagNormalisation)
{
    // Aligned-high is irrelevant only when both sides are packed.
    CAStreamBasicDescription a = FloatStereo();
    CAStreamBasicDescription b = FloatStereo();
    b.mFormatFlags |= kAudioFormatFlagIsAlignedHigh;
    EXPECT_TRUE(Equal(a, b));
    EXPECT_FALSE(a.IsEqual(b, false));
    a.mFormatFlags &= ~AudioFormatFlags(kAudioFormatFlagIsPacked);
    b.mFormatFlags &= ~AudioFormatFlags(kAudioFormatFlagIsPacked);
    EXPECT_FALSE(Equal(a, b));

    // The all-clear marker is always ignored.
    a = FloatStereo();
    b = FloatStereo();
    b.mFormatFlags |= kAudioFormatFlagsAreAllClear;
    EXPECT_TRUE(Equal(a, b));
    a.mFormatFlags &= ~AudioFormatFlags(kAudioFormatFlagIsPacked);
    b.mFormatFlags &= ~AudioFormatFlags(kAudioFormatFlagIsPacked);
    EXPECT_TRUE(Equal(a, b));

    // Float samples ignore the signed-integer bit.
    b = FloatStereo();
    b.mFormatFlags |= kAudioFormatFlagIsSignedInteger;
    EXPECT_TRUE(Equal(FloatStereo(), b));
    CAStreamBasicDescription intSigned = IntPCM(16, 2, kAudioFormatFlagIsSignedInteger);
    CAStreamBasicDescription intUnsigned = IntPCM(16, 2, kAudioFormatFlagIsPacked);
    EXPECT_FALSE(Equal(intSigned, intUnsigned));

    // Byte order of packed one-byte samples does not matter; of wider
    // samples, or of unpacked ones, it does.
    const AudioFormatFlags packed = kAudioFormatFlagIsPacked;
    const AudioFormatFlags packedBig = packed | kAudioFormatFlagIsBigEndian;
    EXPECT_TRUE(Equal(IntPCM(8, 2, packed), IntPCM(8, 2, packedBig)));
    EXPECT_FALSE(Equal(IntPCM(16, 2, packed), IntPCM(16, 2, packedBig)));
    EXPECT_FALSE(
        Equal(IntPCM(8, 2, kAudioFormatFlagIsSignedInteger),
              IntPCM(8, 2, kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsBigEndian)));

    // Interleaving of a single channel does not matter.
    CAStreamBasicDescription mono = FloatStereo();
    mono.mChannelsPerFrame = 1;
    CAStreamBasicDescription monoInterleaved = mono;
    monoInterleaved.mFormatFlags &= ~AudioFormatFlags(kAudioFormatFlagIsNonInterleaved);
    EXPECT_TRUE(Equal(mono, monoInterleaved));
    CAStreamBasicDescription stereoInterleaved = FloatStereo();
    stereoInterleaved.mFormatFlags &= ~AudioFormatFlags(kAudioFormatFlagIsNonInterleaved);
    EXPECT_FALSE(Equal(FloatStereo(), stereoInterleaved));
}

TEST(CAStreamBasicDescriptionTest, StreamCountFollowsInterleaving)
{
    CAStreamBasicDescription d = FloatStereo();
    d.mChannelsPerFrame = 5;
    EXPECT_FALSE(d.IsInterleavedFormat());
    EXPECT_EQ(d.StreamCount(), 5u);
    EXPECT_EQ(d.ChannelsPerStream(), 1u);

    d.mFormatFlags &= ~AudioFormatFlags(kAudioFormatFlagIsNonInterleaved);
    EXPECT_TRUE(d.IsInterleavedFormat());
    EXPECT_EQ(d.StreamCount(), 1u);
    EXPECT_EQ(d.ChannelsPerStream(), 5u);

    d.mFormatFlags |= kAudioFormatFlagIsNonInterleaved;
    d.mFormatID = kAudioFormatAppleLossless;
    EXPECT_TRUE(d.IsInterleavedFormat()) << "every non-PCM format is interleaved";
    EXPECT_EQ(d.StreamCount(), 1u);
}

} // namespace
