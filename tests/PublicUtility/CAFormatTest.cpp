// Stream-format equality with wildcards, swept from one table both ways.
#include "CAStreamBasicDescription.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Description = CAStreamBasicDescription;

constexpr AudioFormatFlags kPacked = kAudioFormatFlagIsPacked;
constexpr AudioFormatFlags kBig = kAudioFormatFlagIsBigEndian;
constexpr AudioFormatFlags kSigned = kAudioFormatFlagIsSignedInteger;
constexpr AudioFormatFlags kHigh = kAudioFormatFlagIsAlignedHigh;
constexpr AudioFormatFlags kAllClear = kAudioFormatFlagsAreAllClear;
constexpr AudioFormatFlags kSeparate = kAudioFormatFlagIsNonInterleaved;
constexpr AudioFormatFlags kFloat = kAudioFormatFlagIsFloat | kPacked | kSeparate;
constexpr UInt32 kPCM = kAudioFormatLinearPCM;

// A format with bytes per packet equal to bytes per frame.
Description Fmt(Float64 inRate, UInt32 inID, AudioFormatFlags inFlags, UInt32 inBytes = 4,
                UInt32 inChannels = 2, UInt32 inBits = 32, UInt32 inFramesPerPacket = 1)
{
    return Description(
        {inRate, inID, inFlags, inBytes, inFramesPerPacket, inBytes, inChannels, inBits, 0});
}

TEST(CAStreamBasicDescriptionTest, WildcardEqualityIsSymmetric)
{
    const Description f = Fmt(44100.0, kPCM, kFloat);
    const auto aac = [](AudioFormatFlags inFlags) {
        return Fmt(0, kAudioFormatMPEG4AAC, inFlags, 0, 0, 0, 1024);
    };
    const auto pcm = [](AudioFormatFlags inFlags, UInt32 inBits = 32, UInt32 inChannels = 2) {
        return Fmt(44100.0, kPCM, inFlags, inBits / 8 * (inFlags & kSeparate ? 1 : inChannels),
                   inChannels, inBits);
    };
    struct Match
    {
        const char* mWhat;
        Description mA;
        Description mB;
        bool mEqual;
    };
    std::vector<Match> matches = {
        {"all-zero matches PCM", Description(), f, true},
        {"all-zero matches AAC", Description(), aac(3), true},
        {"other rate", f, Fmt(96000.0, kPCM, kFloat), false},
        {"zero rate", Fmt(0, kPCM, kFloat), Fmt(96000.0, kPCM, kFloat), true},
        {"zero format ID skips the flags", Fmt(44100.0, 0, kSigned | kBig), f, true},
        {"other format ID", f, Fmt(44100.0, kAudioFormatAC3, kFloat), false},
        {"zero flags match any", pcm(0), pcm(kSigned), true},
        {"float vs integer", f, pcm(kSigned | kPacked | kSeparate), false},
        {"non-PCM aligned-high counts", aac(kPacked), aac(kPacked | kHigh), false},
        {"non-PCM all-clear counts", aac(kPacked), aac(kPacked | kAllClear), false},
        {"packed ignores aligned-high", f, pcm(kFloat | kHigh), true},
        {"unpacked keeps aligned-high", pcm(kFloat & ~kPacked), pcm((kFloat & ~kPacked) | kHigh),
         false},
        {"all-clear ignored", f, pcm(kFloat | kAllClear), true},
        {"all-clear ignored unpacked", pcm(kFloat & ~kPacked), pcm((kFloat & ~kPacked) | kAllClear),
         true},
        {"float ignores the signed bit", f, pcm(kFloat | kSigned), true},
        {"integer signedness counts", pcm(kSigned, 16), pcm(kPacked, 16), false},
        {"packed 8-bit byte order ignored", pcm(kPacked, 8), pcm(kPacked | kBig, 8), true},
        {"16-bit byte order counts", pcm(kPacked, 16), pcm(kPacked | kBig, 16), false},
        {"unpacked 8-bit byte order counts", pcm(kSigned, 8), pcm(kSigned | kBig, 8), false},
        {"mono interleaving ignored", pcm(kFloat, 32, 1), pcm(kFloat & ~kSeparate, 32, 1), true},
        {"stereo interleaving counts", f, Fmt(44100.0, kPCM, kFloat & ~kSeparate), false},
    };
    // Each plain numeric field: 0 on either side is a wildcard, two different
    // nonzero values are not equal.
    for (auto field : {&Description::mBytesPerPacket, &Description::mFramesPerPacket,
                       &Description::mBytesPerFrame, &Description::mChannelsPerFrame,
                       &Description::mBitsPerChannel}) {
        Description three = f;
        Description zero = f;
        three.*field = 3;
        zero.*field = 0;
        matches.push_back({"numeric field differs", f, three, false});
        matches.push_back({"numeric field zero", zero, three, true});
    }
    for (const Match& m : matches) {
        EXPECT_EQ(m.mA == m.mB, m.mEqual) << m.mWhat;
        EXPECT_EQ(m.mB == m.mA, m.mEqual) << m.mWhat;
        EXPECT_EQ(m.mA.IsEqual(m.mB, true), m.mEqual) << m.mWhat;
    }
    // Without wildcards every field but the reserved one counts.
    EXPECT_FALSE(Description().IsEqual(f, false));
    Description reserved = f;
    reserved.mReserved = 7;
    EXPECT_TRUE(f.IsEqual(reserved, false));
}

} // namespace
