#include "CAStreamBasicDescription.h"

#include <gtest/gtest.h>

#include <limits>
#include <ostream>
#include <vector>

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

CAStreamBasicDescription IntPCM(UInt32 bits, AudioFormatFlags flags)
{
    CAStreamBasicDescription d = FloatStereo();
    d.mFormatFlags = flags;
    d.mBytesPerFrame = d.mBytesPerPacket = bits / 8 * 2;
    d.mBitsPerChannel = bits;
    return d;
}

template <class F> CAStreamBasicDescription With(CAStreamBasicDescription d, F change)
{
    change(d);
    return d;
}

CAStreamBasicDescription Flags(CAStreamBasicDescription d, AudioFormatFlags set,
                               AudioFormatFlags clear = 0)
{
    d.mFormatFlags = (d.mFormatFlags & ~clear) | set;
    return d;
}

CAStreamBasicDescription AAC(AudioFormatFlags flags)
{
    CAStreamBasicDescription d;
    d.mFormatID = kAudioFormatMPEG4AAC;
    d.mFormatFlags = flags;
    d.mFramesPerPacket = 1024;
    return d;
}

struct Match
{
    const char* mWhat;
    CAStreamBasicDescription mA;
    CAStreamBasicDescription mB;
    bool mEqual;
};

std::ostream& operator<<(std::ostream& out, const Match& m)
{
    return out << m.mWhat;
}

std::vector<Match> Matches()
{
    const AudioFormatFlags packed = kAudioFormatFlagIsPacked;
    const AudioFormatFlags big = kAudioFormatFlagIsBigEndian;
    const AudioFormatFlags isSigned = kAudioFormatFlagIsSignedInteger;
    const AudioFormatFlags nonInterleaved = kAudioFormatFlagIsNonInterleaved;
    const CAStreamBasicDescription f = FloatStereo();
    const auto rate = [&](double r) { return With(f, [r](auto& d) { d.mSampleRate = r; }); };
    const auto mono = [](CAStreamBasicDescription d) {
        d.mChannelsPerFrame = 1;
        return d;
    };
    const double nan = std::numeric_limits<double>::quiet_NaN();
    std::vector<Match> matches = {
        {"all-zero matches PCM", CAStreamBasicDescription(), f, true},
        {"all-zero matches AAC", CAStreamBasicDescription(), AAC(3), true},
        {"other rate", f, rate(96000.0), false},
        {"zero rate", rate(0.0), rate(96000.0), true},
        {"zero rate matches NaN", rate(0.0), rate(nan), true},
        {"NaN never equals NaN", rate(nan), rate(nan), false},
        {"zero format ID skips the flags",
         Flags(With(f, [](auto& d) { d.mFormatID = 0; }), isSigned | big, ~0u), f, true},
        {"other format ID", f, With(f, [](auto& d) { d.mFormatID = kAudioFormatAC3; }), false},
        {"zero flags match any", Flags(f, 0, ~0u), Flags(f, isSigned, ~0u), true},
        {"float vs integer", f, Flags(f, isSigned, ~0u), false},
        {"non-PCM aligned-high counts", AAC(packed), AAC(packed | kAudioFormatFlagIsAlignedHigh),
         false},
        {"non-PCM all-clear counts", AAC(packed), AAC(packed | kAudioFormatFlagsAreAllClear),
         false},
        {"packed ignores aligned-high", f, Flags(f, kAudioFormatFlagIsAlignedHigh), true},
        {"unpacked keeps aligned-high", Flags(f, 0, packed),
         Flags(f, kAudioFormatFlagIsAlignedHigh, packed), false},
        {"all-clear ignored", f, Flags(f, kAudioFormatFlagsAreAllClear), true},
        {"all-clear ignored unpacked", Flags(f, 0, packed),
         Flags(f, kAudioFormatFlagsAreAllClear, packed), true},
        {"float ignores the signed bit", f, Flags(f, isSigned), true},
        {"integer signedness counts", IntPCM(16, isSigned), IntPCM(16, packed), false},
        {"packed 8-bit byte order ignored", IntPCM(8, packed), IntPCM(8, packed | big), true},
        {"16-bit byte order counts", IntPCM(16, packed), IntPCM(16, packed | big), false},
        {"unpacked 8-bit byte order counts", IntPCM(8, isSigned), IntPCM(8, isSigned | big), false},
        {"mono interleaving ignored", mono(f), mono(Flags(f, 0, nonInterleaved)), true},
        {"stereo interleaving counts", f, Flags(f, 0, nonInterleaved), false},
    };
    // Each plain numeric field: 0 on either side is a wildcard, two
    // different nonzero values are not equal.
    for (auto field :
         {&CAStreamBasicDescription::mBytesPerPacket, &CAStreamBasicDescription::mFramesPerPacket,
          &CAStreamBasicDescription::mBytesPerFrame, &CAStreamBasicDescription::mChannelsPerFrame,
          &CAStreamBasicDescription::mBitsPerChannel}) {
        const CAStreamBasicDescription three = With(f, [field](auto& d) { d.*field = 3; });
        matches.push_back({"numeric field differs", f, three, false});
        matches.push_back(
            {"numeric field zero", With(f, [field](auto& d) { d.*field = 0; }), three, true});
    }
    return matches;
}

class CAStreamBasicDescriptionMatchTest : public ::testing::TestWithParam<Match>
{
};

TEST_P(CAStreamBasicDescriptionMatchTest, WildcardEqualityIsSymmetric)
{
    const Match& m = GetParam();
    EXPECT_EQ(m.mA == m.mB, m.mEqual);
    EXPECT_EQ(m.mB == m.mA, m.mEqual);
    EXPECT_EQ(m.mA.IsEqual(m.mB, true), m.mEqual);
}

INSTANTIATE_TEST_SUITE_P(Sweep, CAStreamBasicDescriptionMatchTest, ::testing::ValuesIn(Matches()));

TEST(CAStreamBasicDescriptionTest, ExactComparisonCoversEveryFieldButReservedAndNoWildcard)
{
    CAStreamBasicDescription zero;
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(&zero);
    for (std::size_t i = 0; i < sizeof zero; ++i) {
        ASSERT_EQ(bytes[i], 0) << "default byte " << i;
    }
    const CAStreamBasicDescription base = FloatStereo();
    EXPECT_FALSE(zero.IsEqual(base, false));
    EXPECT_FALSE(base.IsEqual(Flags(base, kAudioFormatFlagIsAlignedHigh), false));
    EXPECT_TRUE(base.IsEqual(With(base, [](auto& d) { d.mReserved = 7; }), false));

    for (auto field :
         {&CAStreamBasicDescription::mFormatID, &CAStreamBasicDescription::mFormatFlags,
          &CAStreamBasicDescription::mBytesPerPacket, &CAStreamBasicDescription::mFramesPerPacket,
          &CAStreamBasicDescription::mBytesPerFrame, &CAStreamBasicDescription::mChannelsPerFrame,
          &CAStreamBasicDescription::mBitsPerChannel}) {
        EXPECT_FALSE(base.IsEqual(With(base, [field](auto& d) { d.*field += 1; }), false));
    }
    EXPECT_FALSE(base.IsEqual(With(base, [](auto& d) { d.mSampleRate = 48000.0; }), false));
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
