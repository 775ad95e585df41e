#include "CAAudioChannelLayout.h"

#include <bitset>

UInt32 CAAudioChannelLayout::NumberChannels(const AudioChannelLayout& layout)
{
    if (layout.mChannelLayoutTag == kAudioChannelLayoutTag_UseChannelBitmap) {
        return static_cast<UInt32>(std::bitset<32>(layout.mChannelBitmap).count());
    }
    if (layout.mChannelLayoutTag != kAudioChannelLayoutTag_UseChannelDescriptions) {
        return layout.mChannelLayoutTag & 0xFFFFU;
    }
    return layout.mNumberChannelDescriptions;
}
