#include "CAStreamBasicDescription.h"

#include <cstddef>
#include <cstring>

namespace {

// Every field but mReserved takes part in the exact comparison.
constexpr std::size_t kComparedBytes = offsetof(AudioStreamBasicDescription, mReserved);
static_assert(kComparedBytes == 36, "mReserved is the last 4 bytes");

bool FieldMatches(UInt32 a, UInt32 b)
{
    return a == 0 || b == 0 || a == b;
}

// Linear PCM flags that differ only in bits that cannot matter for these two
// formats compare equal: the "all clear" marker, the alignment of packed
// samples (packed samples fill their container, so there is nothing to align),
// the signed-integer bit of float samples, the byte order of one-byte samples
// and the interleaving of a single channel.
bool PCMFlagsMatch(const AudioStreamBasicDescription& x, const AudioStreamBasicDescription& y)
{
    AudioFormatFlags xf = x.mFormatFlags;
    AudioFormatFlags yf = y.mFormatFlags;
    const bool bothPacked = (xf & kAudioFormatFlagIsPacked) && (yf & kAudioFormatFlagIsPacked);
    const AudioFormatFlags mask =
        bothPacked ? ~(kAudioFormatFlagsAreAllClear | kAudioFormatFlagIsAlignedHigh)
                   : ~kAudioFormatFlagsAreAllClear;
    xf &= mask;
    yf &= mask;
    if ((xf & kAudioFormatFlagIsFloat) && (yf & kAudioFormatFlagIsFloat)) {
        xf &= ~AudioFormatFlags(kAudioFormatFlagIsSignedInteger);
        yf &= ~AudioFormatFlags(kAudioFormatFlagIsSignedInteger);
    }
    if ((xf & kAudioFormatFlagIsPacked) && x.mBitsPerChannel <= 8) {
        xf &= ~AudioFormatFlags(kAudioFormatFlagIsBigEndian);
    }
    if ((yf & kAudioFormatFlagIsPacked) && y.mBitsPerChannel <= 8) {
        yf &= ~AudioFormatFlags(kAudioFormatFlagIsBigEndian);
    }
    if (x.mChannelsPerFrame == 1 && y.mChannelsPerFrame == 1) {
        xf &= ~AudioFormatFlags(kAudioFormatFlagIsNonInterleaved);
        yf &= ~AudioFormatFlags(kAudioFormatFlagIsNonInterleaved);
    }
    return xf == yf;
}

} // namespace

// Value-initialising the base zeroes every field; the record has no padding.
CAStreamBasicDescription::CAStreamBasicDescription() : AudioStreamBasicDescription() {}

CAStreamBasicDescription::CAStreamBasicDescription(const AudioStreamBasicDescription& desc)
    : AudioStreamBasicDescription(desc)
{
}

CAStreamBasicDescription&
CAStreamBasicDescription::operator=(const AudioStreamBasicDescription& desc)
{
    AudioStreamBasicDescription::operator=(desc);
    return *this;
}

bool CAStreamBasicDescription::IsEqual(const AudioStreamBasicDescription& other,
                                       bool withWildcards) const
{
    if (withWildcards) {
        return *this == other;
    }
    return std::memcmp(static_cast<const AudioStreamBasicDescription*>(this), &other,
                       kComparedBytes) == 0;
}

bool CAStreamBasicDescription::IsInterleavedFormat() const
{
    return !(mFormatID == kAudioFormatLinearPCM &&
             (mFormatFlags & kAudioFormatFlagIsNonInterleaved));
}

UInt32 CAStreamBasicDescription::StreamCount() const
{
    return IsInterleavedFormat() ? 1 : mChannelsPerFrame;
}

UInt32 CAStreamBasicDescription::ChannelsPerStream() const
{
    return IsInterleavedFormat() ? mChannelsPerFrame : 1;
}

bool operator==(const AudioStreamBasicDescription& x, const AudioStreamBasicDescription& y)
{
    if (!(x.mSampleRate == 0.0 || y.mSampleRate == 0.0 || x.mSampleRate == y.mSampleRate)) {
        return false;
    }
    if (x.mFormatID != 0 && y.mFormatID != 0) {
        if (x.mFormatID != y.mFormatID) {
            return false;
        }
        if (x.mFormatFlags != 0 && y.mFormatFlags != 0) {
            const bool flagsMatch = x.mFormatID == kAudioFormatLinearPCM
                                        ? PCMFlagsMatch(x, y)
                                        : x.mFormatFlags == y.mFormatFlags;
            if (!flagsMatch) {
                return false;
            }
        }
    }
    return FieldMatches(x.mBytesPerPacket, y.mBytesPerPacket) &&
           FieldMatches(x.mFramesPerPacket, y.mFramesPerPacket) &&
           FieldMatches(x.mBytesPerFrame, y.mBytesPerFrame) &&
           FieldMatches(x.mChannelsPerFrame, y.mChannelsPerFrame) &&
           FieldMatches(x.mBitsPerChannel, y.mBitsPerChannel);
}
