/*
 * CAStreamBasicDescription: the platform's 40-byte stream format record with
 * the comparisons and derived counts the framework needs.
 *
 * It adds no data and no virtual operations, so a pointer to one is a
 * pointer to the platform record and the two convert freely. A field that is
 * 0 is a wildcard: it stands for "any value" in operator== below, which is
 * how a host or a unit says "I do not care" when formats are negotiated.
 */
#ifndef CASTREAMBASICDESCRIPTION_H
#define CASTREAMBASICDESCRIPTION_H

#include <CoreAudio/CoreAudioTypes.h>

class CAStreamBasicDescription : public AudioStreamBasicDescription
{
public:
    // All 40 bytes zero: every field a wildcard. [any]
    CAStreamBasicDescription();
    // A copy of all 40 bytes of a platform record. [any]
    CAStreamBasicDescription(const AudioStreamBasicDescription& desc);

    CAStreamBasicDescription& operator=(const AudioStreamBasicDescription& desc);

    // withWildcards false: the first 36 bytes (every field but mReserved) are
    // bytewise identical. withWildcards true: operator==. [any]
    bool IsEqual(const AudioStreamBasicDescription& other, bool withWildcards) const;

    // Interleaved unless linear PCM with the non-interleaved flag; every
    // other format counts as interleaved. [any]
    bool IsInterleavedFormat() const;

    // Buffers a buffer list of this format needs: 1 when interleaved, else
    // one per channel. [any]
    UInt32 StreamCount() const;

    // Channels each of those buffers carries: all of them when interleaved,
    // else 1. [any]
    UInt32 ChannelsPerStream() const;
};

static_assert(sizeof(CAStreamBasicDescription) == sizeof(AudioStreamBasicDescription),
              "the value class must stay layout-identical to the platform record");

// Wildcard equality: fields that are 0 on either side match anything, and
// linear PCM flags are compared after removing the bits that do not change
// the meaning of the format (see the definition). mReserved is ignored. [any]
bool operator==(const AudioStreamBasicDescription& x, const AudioStreamBasicDescription& y);

#endif
