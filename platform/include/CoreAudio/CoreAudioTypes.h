/*
 * Audio data records shared by every audio header: stream formats, buffer
 * lists, time stamps and channel layouts. Plain C with the platform's byte
 * layout (pinned by the static assertions at the end), so that records cross
 * between hosts and plug-ins unchanged.
 */
#ifndef COREAUDIO_COREAUDIOTYPES_H
#define COREAUDIO_COREAUDIOTYPES_H

#include <MacTypes.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A call the implementation does not provide (for example an unsupported
   sample type). */
enum
{
    kAudio_UnimplementedError = -4,
    kAudio_FileNotFoundError = -43,
    kAudio_ParamError = -50,
    kAudio_MemFullError = -108
};

typedef UInt32 AudioFormatID;
typedef UInt32 AudioFormatFlags;

/* A stream format: 40 bytes. For non-interleaved linear PCM, mBytesPerFrame
   and mBytesPerPacket describe one channel of one buffer. */
typedef struct AudioStreamBasicDescription
{
    Float64 mSampleRate;
    AudioFormatID mFormatID;
    AudioFormatFlags mFormatFlags;
    UInt32 mBytesPerPacket;
    UInt32 mFramesPerPacket;
    UInt32 mBytesPerFrame;
    UInt32 mChannelsPerFrame;
    UInt32 mBitsPerChannel;
    UInt32 mReserved;
} AudioStreamBasicDescription;

/* Format identifiers (four-character codes). */
enum
{
    kAudioFormatLinearPCM = 0x6C70636D,     /* 'lpcm' */
    kAudioFormatAC3 = 0x61632D33,           /* 'ac-3' */
    kAudioFormatAppleLossless = 0x616C6163, /* 'alac' */
    kAudioFormatMPEG4AAC = 0x61616320,      /* 'aac ' */
    kAudioFormatMIDIStream = 0x6D696469     /* 'midi' */
};

/* Format flags. */
enum
{
    kAudioFormatFlagIsFloat = (1U << 0),
    kAudioFormatFlagIsBigEndian = (1U << 1),
    kAudioFormatFlagIsSignedInteger = (1U << 2),
    kAudioFormatFlagIsPacked = (1U << 3),
    kAudioFormatFlagIsAlignedHigh = (1U << 4),
    kAudioFormatFlagIsNonInterleaved = (1U << 5),
    kAudioFormatFlagIsNonMixable = (1U << 6),

    kLinearPCMFormatFlagIsFloat = kAudioFormatFlagIsFloat,
    kLinearPCMFormatFlagIsBigEndian = kAudioFormatFlagIsBigEndian,
    kLinearPCMFormatFlagIsSignedInteger = kAudioFormatFlagIsSignedInteger,
    kLinearPCMFormatFlagIsPacked = kAudioFormatFlagIsPacked,
    kLinearPCMFormatFlagIsAlignedHigh = kAudioFormatFlagIsAlignedHigh,
    kLinearPCMFormatFlagIsNonInterleaved = kAudioFormatFlagIsNonInterleaved,
    kLinearPCMFormatFlagIsNonMixable = kAudioFormatFlagIsNonMixable,
    kLinearPCMFormatFlagsSampleFractionShift = 7,
    kLinearPCMFormatFlagsSampleFractionMask = (0x3FU << kLinearPCMFormatFlagsSampleFractionShift),

    /* This machine is little-endian: native formats carry no big-endian flag. */
    kAudioFormatFlagsNativeEndian = 0,
    kAudioFormatFlagsNativeFloatPacked =
        kAudioFormatFlagIsFloat | kAudioFormatFlagsNativeEndian | kAudioFormatFlagIsPacked,
    /* The canonical sample formats: 32-bit float, and for audio units also
       one buffer per channel. */
    kAudioFormatFlagsCanonical = kAudioFormatFlagsNativeFloatPacked,
    kAudioFormatFlagsAudioUnitCanonical =
        kAudioFormatFlagsNativeFloatPacked | kAudioFormatFlagIsNonInterleaved
};

/* Sample types of the canonical formats. */
typedef Float32 AudioSampleType;
typedef Float32 AudioUnitSampleType;

/* Values above the range of a C enumerator are macros. */
#define kAudioFormatFlagsAreAllClear ((AudioFormatFlags)0x80000000U)
#define kLinearPCMFormatFlagsAreAllClear kAudioFormatFlagsAreAllClear

/* Number of fraction bits of the signed 8.24 fixed-point sample type. */
enum
{
    kAudioUnitSampleFractionBits = 24
};

/* One buffer of audio: 16 bytes. The data is not owned by the record. */
typedef struct AudioBuffer
{
    UInt32 mNumberChannels;
    UInt32 mDataByteSize;
    void* mData;
} AudioBuffer;

/* A variable-length list of buffers: 8 + 16 * mNumberBuffers bytes. */
typedef struct AudioBufferList
{
    UInt32 mNumberBuffers;
    AudioBuffer mBuffers[1];
} AudioBufferList;

/* SMPTE time, part of a time stamp: 24 bytes. */
typedef UInt32 SMPTETimeType;
typedef UInt32 SMPTETimeFlags;

enum
{
    kSMPTETimeType24 = 0,
    kSMPTETimeType25 = 1,
    kSMPTETimeType30Drop = 2,
    kSMPTETimeType30 = 3,
    kSMPTETimeType2997 = 4,
    kSMPTETimeType2997Drop = 5
};

enum
{
    kSMPTETimeUnknown = 0,
    kSMPTETimeValid = (1U << 0),
    kSMPTETimeRunning = (1U << 1)
};

typedef struct SMPTETime
{
    SInt16 mSubframes;
    SInt16 mSubframeDivisor;
    UInt32 mCounter;
    SMPTETimeType mType;
    SMPTETimeFlags mFlags;
    SInt16 mHours;
    SInt16 mMinutes;
    SInt16 mSeconds;
    SInt16 mFrames;
} SMPTETime;

/* A time stamp: 64 bytes; mFlags says which of the fields are valid. */
typedef UInt32 AudioTimeStampFlags;

enum
{
    kAudioTimeStampNothingValid = 0,
    kAudioTimeStampSampleTimeValid = (1U << 0),
    kAudioTimeStampHostTimeValid = (1U << 1),
    kAudioTimeStampRateScalarValid = (1U << 2),
    kAudioTimeStampWordClockTimeValid = (1U << 3),
    kAudioTimeStampSMPTETimeValid = (1U << 4),
    kAudioTimeStampSampleHostTimeValid =
        kAudioTimeStampSampleTimeValid | kAudioTimeStampHostTimeValid
};

typedef struct AudioTimeStamp
{
    Float64 mSampleTime;
    UInt64 mHostTime;
    Float64 mRateScalar;
    UInt64 mWordClockTime;
    SMPTETime mSMPTETime;
    AudioTimeStampFlags mFlags;
    UInt32 mReserved;
} AudioTimeStamp;

/* Channel layouts. A layout tag's low 16 bits are its channel count. */
typedef UInt32 AudioChannelLabel;
typedef UInt32 AudioChannelLayoutTag;
typedef UInt32 AudioChannelBitmap;
typedef UInt32 AudioChannelFlags;

#define kAudioChannelLabel_Unknown ((AudioChannelLabel)0xFFFFFFFFU)
enum
{
    kAudioChannelLabel_Unused = 0,
    kAudioChannelLabel_UseCoordinates = 100,
    kAudioChannelLabel_Left = 1,
    kAudioChannelLabel_Right = 2,
    kAudioChannelLabel_Center = 3,
    kAudioChannelLabel_LFEScreen = 4,
    kAudioChannelLabel_LeftSurround = 5,
    kAudioChannelLabel_RightSurround = 6,
    kAudioChannelLabel_Mono = 42
};

enum
{
    kAudioChannelBit_Left = (1U << 0),
    kAudioChannelBit_Right = (1U << 1),
    kAudioChannelBit_Center = (1U << 2),
    kAudioChannelBit_LFEScreen = (1U << 3),
    kAudioChannelBit_LeftSurround = (1U << 4),
    kAudioChannelBit_RightSurround = (1U << 5)
};

enum
{
    kAudioChannelFlags_AllOff = 0,
    kAudioChannelFlags_RectangularCoordinates = (1U << 0),
    kAudioChannelFlags_SphericalCoordinates = (1U << 1),
    kAudioChannelFlags_Meters = (1U << 2)
};

enum
{
    kAudioChannelLayoutTag_UseChannelDescriptions = (0U << 16) | 0,
    kAudioChannelLayoutTag_UseChannelBitmap = (1U << 16) | 0,
    kAudioChannelLayoutTag_Mono = (100U << 16) | 1,
    kAudioChannelLayoutTag_Stereo = (101U << 16) | 2,
    kAudioChannelLayoutTag_StereoHeadphones = (102U << 16) | 2,
    kAudioChannelLayoutTag_Quadraphonic = (108U << 16) | 4,
    kAudioChannelLayoutTag_DiscreteInOrder = (147U << 16) | 0
};
#define kAudioChannelLayoutTag_Unknown ((AudioChannelLayoutTag)0xFFFF0000U)

/* One channel of a layout: 20 bytes. */
typedef struct AudioChannelDescription
{
    AudioChannelLabel mChannelLabel;
    AudioChannelFlags mChannelFlags;
    Float32 mCoordinates[3];
} AudioChannelDescription;

/* A channel layout: 12 + 20 * mNumberChannelDescriptions bytes. */
typedef struct AudioChannelLayout
{
    AudioChannelLayoutTag mChannelLayoutTag;
    AudioChannelBitmap mChannelBitmap;
    UInt32 mNumberChannelDescriptions;
    AudioChannelDescription mChannelDescriptions[1];
} AudioChannelLayout;

#ifdef __cplusplus
}

/* The format flags of linear PCM samples of inValidBitsPerChannel bits, each
   in inTotalBitsPerChannel bits (packed when the two are equal, else aligned
   high). */
inline AudioFormatFlags CalculateLPCMFlags(UInt32 inValidBitsPerChannel,
                                           UInt32 inTotalBitsPerChannel, bool inIsFloat,
                                           bool inIsBigEndian, bool inIsNonInterleaved = false)
{
    return static_cast<AudioFormatFlags>(inIsFloat ? kAudioFormatFlagIsFloat
                                                   : kAudioFormatFlagIsSignedInteger) |
           (inIsBigEndian ? static_cast<AudioFormatFlags>(kAudioFormatFlagIsBigEndian) : 0U) |
           (inValidBitsPerChannel == inTotalBitsPerChannel ? kAudioFormatFlagIsPacked
                                                           : kAudioFormatFlagIsAlignedHigh) |
           (inIsNonInterleaved ? static_cast<AudioFormatFlags>(kAudioFormatFlagIsNonInterleaved)
                               : 0U);
}

/* Fills outASBD with a linear PCM format of one frame per packet; a frame
   holds one sample (one buffer per channel) or one per channel (interleaved). */
inline void FillOutASBDForLPCM(AudioStreamBasicDescription& outASBD, Float64 inSampleRate,
                               UInt32 inChannelsPerFrame, UInt32 inValidBitsPerChannel,
                               UInt32 inTotalBitsPerChannel, bool inIsFloat, bool inIsBigEndian,
                               bool inIsNonInterleaved = false)
{
    outASBD.mSampleRate = inSampleRate;
    outASBD.mFormatID = kAudioFormatLinearPCM;
    outASBD.mFormatFlags = CalculateLPCMFlags(inValidBitsPerChannel, inTotalBitsPerChannel,
                                              inIsFloat, inIsBigEndian, inIsNonInterleaved);
    outASBD.mBytesPerPacket =
        (inIsNonInterleaved ? 1 : inChannelsPerFrame) * (inTotalBitsPerChannel / 8);
    outASBD.mFramesPerPacket = 1;
    outASBD.mBytesPerFrame = outASBD.mBytesPerPacket;
    outASBD.mChannelsPerFrame = inChannelsPerFrame;
    outASBD.mBitsPerChannel = inValidBitsPerChannel;
    outASBD.mReserved = 0;
}
#endif

#if defined(__cplusplus)
#define COREAUDIO_STATIC_ASSERT(c, m) static_assert(c, m)
#else
#define COREAUDIO_STATIC_ASSERT(c, m) _Static_assert(c, m)
#endif
COREAUDIO_STATIC_ASSERT(sizeof(AudioStreamBasicDescription) == 40, "stream format is 40 bytes");
COREAUDIO_STATIC_ASSERT(offsetof(AudioStreamBasicDescription, mFormatID) == 8, "format ID at 8");
COREAUDIO_STATIC_ASSERT(offsetof(AudioStreamBasicDescription, mChannelsPerFrame) == 28,
                        "channels at 28");
COREAUDIO_STATIC_ASSERT(offsetof(AudioStreamBasicDescription, mReserved) == 36, "reserved at 36");
COREAUDIO_STATIC_ASSERT(sizeof(AudioBuffer) == 16, "buffer is 16 bytes");
COREAUDIO_STATIC_ASSERT(offsetof(AudioBuffer, mData) == 8, "buffer data at 8");
COREAUDIO_STATIC_ASSERT(sizeof(AudioBufferList) == 24, "buffer list is 8 + 16 n bytes");
COREAUDIO_STATIC_ASSERT(offsetof(AudioBufferList, mBuffers) == 8, "buffers at 8");
COREAUDIO_STATIC_ASSERT(sizeof(SMPTETime) == 24, "SMPTE time is 24 bytes");
COREAUDIO_STATIC_ASSERT(sizeof(AudioTimeStamp) == 64, "time stamp is 64 bytes");
COREAUDIO_STATIC_ASSERT(offsetof(AudioTimeStamp, mSMPTETime) == 32, "SMPTE time at 32");
COREAUDIO_STATIC_ASSERT(offsetof(AudioTimeStamp, mFlags) == 56, "time stamp flags at 56");
COREAUDIO_STATIC_ASSERT(sizeof(AudioChannelDescription) == 20, "channel description is 20 bytes");
COREAUDIO_STATIC_ASSERT(sizeof(AudioChannelLayout) == 32, "channel layout is 12 + 20 n bytes");
COREAUDIO_STATIC_ASSERT(offsetof(AudioChannelLayout, mChannelDescriptions) == 12,
                        "descriptions at 12");
#undef COREAUDIO_STATIC_ASSERT

#endif /* COREAUDIO_COREAUDIOTYPES_H */
