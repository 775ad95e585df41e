#include "CAAudioChannelLayout.h"

#include <gtest/gtest.h>

namespace {

TEST(CAAudioChannelLayoutTest, CountsChannelsOfTagsBitmapsAndDescriptions)
{
    const AudioChannelLayoutTag bitmap = kAudioChannelLayoutTag_UseChannelBitmap;
    const AudioChannelLayoutTag described = kAudioChannelLayoutTag_UseChannelDescriptions;
    struct Case
    {
        AudioChannelLayoutTag mTag;
        AudioChannelBitmap mBitmap;
        UInt32 mDescriptions;
        UInt32 mChannels;
    };
    const Case cases[] = {
        // A tag's low 16 bits; the bitmap and descriptions are then ignored.
        {kAudioChannelLayoutTag_Mono, 7, 9, 1},
        {kAudioChannelLayoutTag_Stereo, 0, 0, 2},
        {kAudioChannelLayoutTag_Quadraphonic, 0, 0, 4},
        {kAudioChannelLayoutTag_DiscreteInOrder | 12, 0, 0, 12},
        {kAudioChannelLayoutTag_Unknown, 0, 0, 0},
        // Bitmap: the set bits, wherever they are.
        {bitmap, 0, 5, 0},
        {bitmap, kAudioChannelBit_Left | kAudioChannelBit_Right | kAudioChannelBit_LFEScreen, 0, 3},
        {bitmap, 0x80000001U, 0, 2},
        {bitmap, 0xFFFFFFFFU, 0, 32},
        // Descriptions: their count.
        {described, 0xFF, 6, 6},
        {described, 0, 0, 0},
    };
    for (const Case& c : cases) {
        AudioChannelLayout layout{};
        layout.mChannelLayoutTag = c.mTag;
        layout.mChannelBitmap = c.mBitmap;
        layout.mNumberChannelDescriptions = c.mDescriptions;
        EXPECT_EQ(CAAudioChannelLayout::NumberChannels(layout), c.mChannels)
            << "tag " << c.mTag << " bitmap " << c.mBitmap;
    }
}

} // namespace
