// Strings: UTF-16 lengths, C-string conversion limits, ordering, formatting.
#include "CFTestHelpers.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

TEST(CFStringTest, LengthCountsUTF16Units)
{
    // "é" is one unit, U+1F600 is a surrogate pair.
    CFStringRef string = NewCFString("a\xC3\xA9\xF0\x9F\x98\x80");
    ASSERT_NE(nullptr, string);
    EXPECT_EQ(4, CFStringGetLength(string));
    EXPECT_EQ(0xE9, CFStringGetCharacterAtIndex(string, 1));
    EXPECT_EQ(0xD83D, CFStringGetCharacterAtIndex(string, 2));
    EXPECT_EQ(0xDE00, CFStringGetCharacterAtIndex(string, 3));
    EXPECT_EQ(0, CFStringGetCharacterAtIndex(string, 4));
    EXPECT_EQ(12, CFStringGetMaximumSizeForEncoding(4, kCFStringEncodingUTF8));
    CFRelease(string);

    EXPECT_EQ(nullptr, NewCFString("bad \xC3"));
    EXPECT_EQ(nullptr, NewCFString("overlong \xC0\xAF"));
    EXPECT_EQ(nullptr,
              CFStringCreateWithCString(kCFAllocatorDefault, "\xE9t\xE9", kCFStringEncodingASCII));
}

TEST(CFStringTest, GetCStringNeedsRoomForTheTerminator)
{
    CFStringRef string = NewCFString("caf\xC3\xA9"); // 5 UTF-8 bytes
    char buffer[8];
    std::memset(buffer, 'x', sizeof buffer);
    EXPECT_FALSE(CFStringGetCString(string, buffer, 5, kCFStringEncodingUTF8));
    EXPECT_STREQ("", buffer);
    EXPECT_TRUE(CFStringGetCString(string, buffer, 6, kCFStringEncodingUTF8));
    EXPECT_STREQ("caf\xC3\xA9", buffer);
    EXPECT_FALSE(CFStringGetCString(string, buffer, sizeof buffer, kCFStringEncodingASCII));
    EXPECT_TRUE(CFStringGetCString(string, buffer, sizeof buffer, kCFStringEncodingISOLatin1));
    EXPECT_STREQ("caf\xE9", buffer);

    // The direct pointer is optional: when present it holds the same text.
    const char* direct = CFStringGetCStringPtr(string, kCFStringEncodingUTF8);
    if (direct != nullptr) {
        EXPECT_STREQ("caf\xC3\xA9", direct);
    }
    EXPECT_EQ(nullptr, CFStringGetCStringPtr(string, kCFStringEncodingASCII));
    CFRelease(string);

    const UniChar withNul[] = {'a', 0, 'b'};
    CFStringRef embedded = CFStringCreateWithCharacters(kCFAllocatorDefault, withNul, 3);
    EXPECT_EQ(3, CFStringGetLength(embedded));
    EXPECT_EQ(nullptr, CFStringGetCStringPtr(embedded, kCFStringEncodingUTF8));
    CFRelease(embedded);
}

TEST(CFStringTest, BytesInOtherEncodingsDecode)
{
    const UInt8 utf16WithBOM[] = {0xFF, 0xFE, 'h', 0, 0xE9, 0};
    CFStringRef little =
        CFStringCreateWithBytes(kCFAllocatorDefault, utf16WithBOM, 6, kCFStringEncodingUTF16, true);
    const UInt8 bigEndian[] = {0, 'h', 0, 0xE9};
    CFStringRef big =
        CFStringCreateWithBytes(kCFAllocatorDefault, bigEndian, 4, kCFStringEncodingUTF16BE, false);
    CFStringRef expected = NewCFString("h\xC3\xA9");
    EXPECT_TRUE(CFEqual(expected, little));
    EXPECT_TRUE(CFEqual(expected, big));
    EXPECT_EQ(nullptr, CFStringCreateWithBytes(kCFAllocatorDefault, utf16WithBOM, 5,
                                               kCFStringEncodingUTF16, true));
    CFRelease(expected);
    CFRelease(big);
    CFRelease(little);
}

TEST(CFStringTest, CompareOrdersByUnitsCaseAndNumbers)
{
    EXPECT_EQ(kCFCompareLessThan, CFStringCompare(CFSTR("abc"), CFSTR("abd"), 0));
    EXPECT_EQ(kCFCompareGreaterThan, CFStringCompare(CFSTR("abd"), CFSTR("abc"), 0));
    EXPECT_EQ(kCFCompareLessThan, CFStringCompare(CFSTR("ab"), CFSTR("abc"), 0));
    EXPECT_EQ(kCFCompareEqualTo, CFStringCompare(CFSTR("Flanger"), CFSTR("Flanger"), 0));
    EXPECT_EQ(kCFCompareLessThan, CFStringCompare(CFSTR("Z"), CFSTR("a"), 0));
    EXPECT_EQ(kCFCompareGreaterThan,
              CFStringCompare(CFSTR("Z"), CFSTR("a"), kCFCompareCaseInsensitive));
    EXPECT_EQ(kCFCompareEqualTo,
              CFStringCompare(CFSTR("WAH"), CFSTR("wah"), kCFCompareCaseInsensitive));
    EXPECT_EQ(kCFCompareLessThan, CFStringCompare(CFSTR("preset10"), CFSTR("preset9"), 0));
    EXPECT_EQ(kCFCompareGreaterThan,
              CFStringCompare(CFSTR("preset10"), CFSTR("preset9"), kCFCompareNumerically));
    EXPECT_EQ(kCFCompareEqualTo,
              CFStringCompare(CFSTR("p007"), CFSTR("p7"), kCFCompareNumerically));
    EXPECT_TRUE(CFStringHasPrefix(CFSTR("Warble 1"), CFSTR("Warble")));
    EXPECT_TRUE(CFStringHasSuffix(CFSTR("Warble 1"), CFSTR(" 1")));
    EXPECT_FALSE(CFStringHasSuffix(CFSTR("1"), CFSTR("Warble 1")));
}

TEST(CFStringTest, FormatAndMutation)
{
    CFStringRef name = CFSTR("Phaser");
    CFStringRef formatted =
        CFStringCreateWithFormat(kCFAllocatorDefault, nullptr, CFSTR("%d|%5.2f|%@|%s|%u%%|%lld"),
                                 -12, 3.14159, name, "c", 7u, 1234567890123LL);
    char buffer[128];
    ASSERT_TRUE(CFStringGetCString(formatted, buffer, sizeof buffer, kCFStringEncodingUTF8));
    EXPECT_STREQ("-12| 3.14|Phaser|c|7%|1234567890123", buffer);
    CFRelease(formatted);

    CFMutableStringRef text = CFStringCreateMutable(kCFAllocatorDefault, 0);
    CFStringAppend(text, CFSTR("Dry "));
    CFStringAppendCString(text, "\xC3\xA9t\xC3\xA9", kCFStringEncodingUTF8);
    CFStringRef copy = CFStringCreateCopy(kCFAllocatorDefault, text);
    CFStringAppend(text, CFSTR("!"));
    EXPECT_EQ(8, CFStringGetLength(text));
    EXPECT_EQ(7, CFStringGetLength(copy));
    CFRelease(copy);
    CFRelease(text);

    // A surrogate pair split over two appends, then a self-append.
    CFMutableStringRef pair = CFStringCreateMutable(kCFAllocatorDefault, 0);
    const UniChar high = 0xD83D;
    const UniChar low = 0xDE00;
    CFStringRef highString = CFStringCreateWithCharacters(kCFAllocatorDefault, &high, 1);
    CFStringRef lowString = CFStringCreateWithCharacters(kCFAllocatorDefault, &low, 1);
    CFStringAppend(pair, highString);
    EXPECT_FALSE(
        CFStringGetCString(pair, buffer, sizeof buffer, kCFStringEncodingUTF8)); // lone surrogate
    CFStringAppend(pair, lowString);
    CFStringAppend(pair, pair);
    ASSERT_TRUE(CFStringGetCString(pair, buffer, sizeof buffer, kCFStringEncodingUTF8));
    EXPECT_STREQ("\xF0\x9F\x98\x80\xF0\x9F\x98\x80", buffer);
    EXPECT_EQ(4, CFStringGetLength(pair));
    CFRelease(lowString);
    CFRelease(highString);
    CFRelease(pair);

    // Appending to an immutable string changes nothing.
    CFStringRef fixed = NewCFString("fixed");
    CFStringAppend(reinterpret_cast<CFMutableStringRef>(const_cast<__CFString*>(fixed)),
                   CFSTR("more"));
    EXPECT_EQ(5, CFStringGetLength(fixed));
    CFRelease(fixed);

    EXPECT_EQ(-42, CFStringGetIntValue(CFSTR("  -42 dB")));
    EXPECT_EQ(0, CFStringGetIntValue(CFSTR("none")));
    EXPECT_DOUBLE_EQ(2.5, CFStringGetDoubleValue(CFSTR("2.5")));
}
