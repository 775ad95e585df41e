/*
 * CAAudioChannelLayout: questions about the platform's channel layout record.
 *
 * A layout names its channels in one of three ways: a layout tag (whose low
 * 16 bits are the channel count), a bitmap of standard channels, or a list of
 * channel descriptions. The unit compares the count with a bus's channel
 * count before it accepts a layout.
 */
#ifndef CAAUDIOCHANNELLAYOUT_H
#define CAAUDIOCHANNELLAYOUT_H

#include <CoreAudio/CoreAudioTypes.h>

class CAAudioChannelLayout
{
public:
    // Channels the layout describes: set bits of the bitmap for the bitmap
    // tag, the low 16 bits of any other nonzero tag, else the number of
    // channel descriptions. [any]
    static UInt32 NumberChannels(const AudioChannelLayout& layout);
};

#endif
