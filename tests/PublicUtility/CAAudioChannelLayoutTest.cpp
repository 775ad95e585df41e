#include "CAAudioChannelLayout.h"

#include <gtest/gtest.h>

namespace {

AudioChannelLayout Layout(AudioChannelLayoutTag tag, AudioChannelBitmap bitmap, UInt32 descriptions)
{
    AudioChannelLayout layout{};
    layout.mChannelLayoutTag = tag;
    layout.mChannelBitmap = bitmap;
    layout.mNumberChannelDescriptions = descriptions;
    return layout;
}

TEST(CAAudioChannelLayoutTest, CountsChannelsOfTagsBitmapsAndDescriptions)
{
    // A tag's low 16 bits; the bitmap and descriptions are then ignored.
    EXPECT_EQ(CAAudioChannelLayout::NumberChannels(Layout(kAudioChannelLayoutTag_Mono, 7, 9)), 1u);
    EXPECT_EQ(CAAudioChannelLayout::NumberChannels(Layout(kAudioChannelLayoutTag_Stereo, 0, 0)),
              2u);
    EXPECT_EQ(
        CAAudioChannelLayout::NumberChannels(Layout(kAudioChannelLayoutTag_Quadraphonic, 0, 0)),
        4u);
    EXPECT_EQ(CAAudioChannelLayout::NumberChannels(
                  Layout(kAudioChannelLayoutTag_DiscreteInOrder | 12, 0, 0)),
              12u);
    EXPECT_EQ(CAAudioChannelLayout::NumberChannels(Layout(kAudioChannelLayoutTag_Unknown, 0, 0)),
              0u);

    // Bitmap: the set bits, wherever they are.
    const AudioChannelLayoutTag bitmapTag = kAudioChannelLayoutTag_UseChannelBitmap;
    EXPECT_EQ(CAAudioChannelLayout::NumberChannels(Layout(bitmapTag, 0, 5)), 0u);
    EXPECT_EQ(CAAudioChannelLayout::NumberChannels(Layout(
                  bitmapTag,
                  kAudioChannelBit_Left | kAudioChannelBit_Right | kAudioChannelBit_LFEScreen, 0)),
              3u);
    EXPECT_EQ(CAAudioChannelLayout::NumberChannels(Layout(bitmapTag, 0x80000001U, 0)), 2u);
    EXPECT_EQ(CAAudioChannelLayout::NumberChannels(Layout(bitmapTag, 0xFFFFFFFFU, 0)), 32u);

    // Descriptions: their count.
    const AudioChannelLayoutTag descriptionTag = kAudioChannelLayoutTag_UseChannelDescriptions;
    EXPECT_EQ(CAAudioChannelLayout::NumberChannels(Layout(descriptionTag, 0xFF, 6)), 6u);
    EXPECT_EQ(CAAudioChannelLayout::NumberChannels(Layout(descriptionTag, 0, 0)), 0u);
}

} // namespace
