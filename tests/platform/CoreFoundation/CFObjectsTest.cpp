// The object library as the plug-in, the host and the runtime use it: exact
// retain counts, containers, strings, and property lists in both formats
// with refusals of malformed bytes and unwritable trees.
#include "CFTestHelpers.h"
#include "RunTogether.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

extern "C" int CFHeadersExerciseFromC(void);

namespace {

std::string BytesOf(CFDataRef data)
{
    return std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
                       static_cast<size_t>(CFDataGetLength(data)));
}

} // namespace

TEST(CFObjectsTest, RetainReleaseBalanceAndConstantsAreImmortal)
{
    CFStringRef string = NewCFString("owned");
    EXPECT_EQ(string, CFRetain(string));
    EXPECT_EQ(2, CFGetRetainCount(string));
    CFRelease(string);
    EXPECT_EQ(1, CFGetRetainCount(string));
    CFRelease(string);
    EXPECT_EQ(nullptr, CFRetain(nullptr));
    EXPECT_EQ(0, CFGetRetainCount(nullptr));
    CFRelease(CFSTR("immortal"));
    EXPECT_EQ(LONG_MAX, CFGetRetainCount(CFSTR("immortal")));
    CFRelease(kCFBooleanTrue);
    EXPECT_EQ(LONG_MAX, CFGetRetainCount(kCFBooleanTrue));
    EXPECT_EQ(0, CFHeadersExerciseFromC()); // the headers as C11, against the library
}

// Threads retain and release one object and meanwhile intern a constant
// string: the count ends exact and the constant is one object.
TEST(CFObjectsTest, ConcurrentRetainReleaseAndConstantStrings)
{
    CFDataRef data = CFDataCreate(kCFAllocatorDefault, nullptr, 0);
    std::vector<CFStringRef> seen(4, nullptr);
    RunTogether(4, [data, &seen](int inThread) {
        for (int i = 0; i < 1000000; ++i) {
            CFRetain(data);
        }
        seen[inThread] = CFSTR("shared by threads");
        for (int i = 0; i < 1000000; ++i) {
            CFRelease(data);
        }
    });
    EXPECT_EQ(1, CFGetRetainCount(data));
    CFRelease(data);
    EXPECT_EQ(std::vector<CFStringRef>(4, CFSTR("shared by threads")), seen);
}

TEST(CFObjectsTest, DictionariesKeepOneEntryPerKeyWithExactCounts)
{
    CFStringRef key = NewCFString("name");
    CFStringRef twin = NewCFString("name");
    CFMutableDictionaryRef dict = NewCFTypeDictionary();
    CFDictionarySetValue(dict, key, CFSTR("first"));
    CFDictionarySetValue(dict, twin, twin);
    CFDictionarySetValue(dict, key, twin); // the value held: not dropped on the way
    EXPECT_EQ(twin, CFDictionaryGetValue(dict, key));
    EXPECT_EQ(2, CFGetRetainCount(key)); // the first key object stays
    EXPECT_EQ(2, CFGetRetainCount(twin));
    CFDictionaryRemoveValue(dict, twin); // by an equal key: releases the key and the value
    EXPECT_EQ(1, CFGetRetainCount(key));
    EXPECT_EQ(1, CFGetRetainCount(twin));
    CFRelease(dict);
    CFRelease(key);
    CFRelease(twin);
}

TEST(CFObjectsTest, StringsConvertBetweenUtf8AndUtf16Units)
{
    CFStringRef string = NewCFString("caf\xC3\xA9\xF0\x9F\x98\x80"); // é, a surrogate pair
    EXPECT_EQ(6, CFStringGetLength(string));
    EXPECT_STREQ("caf\xC3\xA9\xF0\x9F\x98\x80",
                 CFStringGetCStringPtr(string, kCFStringEncodingUTF8));
    // Room for the terminator is needed; a failed copy leaves "".
    char buffer[10] = "xxxxxxxxx";
    EXPECT_FALSE(CFStringGetCString(string, buffer, 9, kCFStringEncodingUTF8));
    EXPECT_STREQ("", buffer);
    EXPECT_TRUE(CFStringGetCString(string, buffer, 10, kCFStringEncodingUTF8));
    EXPECT_STREQ("caf\xC3\xA9\xF0\x9F\x98\x80", buffer);
    CFRelease(string);
    // Counted UTF-8 bytes, without a terminator; malformed ones refused.
    for (auto [bytes, expected] :
         {std::pair("h\xC3\xA9!", "h\xC3\xA9"), std::pair("\xC3 x", "<not a string>"),
          std::pair("\xC0\xAFx", "<not a string>")}) {
        CFStringRef decoded =
            CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes), 3,
                                    kCFStringEncodingUTF8, false);
        EXPECT_EQ(expected, ToString(decoded)) << bytes;
        CFRelease(decoded);
    }
}

TEST(CFObjectsTest, PropertyListsRoundTripInBothFormatsKeepingIntegersAndReals)
{
    CFMutableDictionaryRef state = NewCFTypeDictionary();
    const SInt32 subtype = 0x666C6E67;
    const SInt64 negative = -1234567890123LL;
    const Float32 load = 0.25f;
    const Float64 whole = 3.0;
    const UInt8 blob[] = {0, 0, 0, 1, 0xFF, 0x80};
    const void* items[] = {kCFBooleanTrue, kCFBooleanFalse, CFSTR("")};
    const std::pair<CFStringRef, CFTypeRef> entries[] = {
        {CFSTR("subtype"), CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &subtype)},
        {CFSTR("negative"), CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &negative)},
        {CFSTR("cpu-load"), CFNumberCreate(kCFAllocatorDefault, kCFNumberFloatType, &load)},
        {CFSTR("whole"), CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &whole)},
        {CFSTR("data"), CFDataCreate(kCFAllocatorDefault, blob, sizeof blob)},
        {CFSTR("name"), NewCFString("Wah <&> \"Caf\xC3\xA9\"")},
        {CFSTR("flags"), CFArrayCreate(kCFAllocatorDefault, items, 3, &kCFTypeArrayCallBacks)},
        {CFSTR("element-name"), NewCFTypeDictionary()},
    };
    for (const auto& [key, value] : entries) {
        CFDictionarySetValue(state, key, value);
        CFRelease(value);
    }
    std::string xml;
    for (CFPropertyListFormat format :
         {kCFPropertyListXMLFormat_v1_0, kCFPropertyListBinaryFormat_v1_0}) {
        CFErrorRef error = nullptr;
        CFDataRef data = CFPropertyListCreateData(kCFAllocatorDefault, state, format, 0, &error);
        ASSERT_NE(nullptr, data);
        xml = xml.empty() ? BytesOf(data) : xml;
        CFPropertyListFormat read = 0;
        CFPropertyListRef back = CFPropertyListCreateWithData(
            kCFAllocatorDefault, data, kCFPropertyListImmutable, &read, &error);
        CFRelease(data);
        ASSERT_NE(nullptr, back);
        EXPECT_EQ(nullptr, error);
        EXPECT_EQ(format, read);
        EXPECT_EQ(1, CFGetRetainCount(back));
        EXPECT_TRUE(CFEqual(state, back));
        // Written again, the tree read back gives the same XML: no integer
        // turned real or the reverse.
        data = CFPropertyListCreateData(kCFAllocatorDefault, back, kCFPropertyListXMLFormat_v1_0, 0,
                                        nullptr);
        EXPECT_EQ(xml, BytesOf(data));
        CFRelease(data);
        CFRelease(back);
    }
    auto copy = static_cast<CFMutableDictionaryRef>(const_cast<void*>(CFPropertyListCreateDeepCopy(
        kCFAllocatorDefault, state, kCFPropertyListMutableContainers)));
    EXPECT_TRUE(CFEqual(state, copy));
    CFDictionarySetValue(copy, CFSTR("extra"), kCFBooleanTrue); // mutable, and a copy
    EXPECT_FALSE(CFEqual(state, copy));
    CFRelease(copy);
    CFRelease(state);
    // XML spells integers and reals apart, escapes text, and sorts keys so
    // that equal trees give equal bytes.
    EXPECT_NE(std::string::npos, xml.find("<key>subtype</key>\n\t<integer>1718382183</integer>"));
    EXPECT_NE(std::string::npos, xml.find("<integer>-1234567890123</integer>"));
    EXPECT_NE(std::string::npos, xml.find("<key>cpu-load</key>\n\t<real>0.25</real>"));
    EXPECT_NE(std::string::npos, xml.find("<key>whole</key>\n\t<real>3</real>"));
    EXPECT_NE(std::string::npos, xml.find("&lt;&amp;&gt;"));
    EXPECT_LT(xml.find("<key>cpu-load</key>"), xml.find("<key>subtype</key>"));
}

TEST(CFObjectsTest, PropertyListsRefuseUnwritableTrees)
{
    // A non-string key, at the top or deep in a tree; no tree; no format.
    CFMutableDictionaryRef booleanKey = NewCFTypeDictionary();
    CFDictionarySetValue(booleanKey, kCFBooleanTrue, CFSTR("one"));
    const void* nested[] = {CFSTR("fine"), booleanKey};
    CFArrayRef invalid = CFArrayCreate(kCFAllocatorDefault, nested, 2, &kCFTypeArrayCallBacks);
    const std::pair<CFPropertyListRef, CFPropertyListFormat> trees[] = {
        {booleanKey, kCFPropertyListXMLFormat_v1_0},
        {invalid, kCFPropertyListBinaryFormat_v1_0},
        {nullptr, kCFPropertyListXMLFormat_v1_0},
        {CFSTR("fine"), kCFPropertyListOpenStepFormat},
    };
    for (const auto& [tree, format] : trees) {
        CFErrorRef error = nullptr;
        EXPECT_EQ(nullptr, CFPropertyListCreateData(kCFAllocatorDefault, tree, format, 0, &error));
        ASSERT_NE(nullptr, error);
        EXPECT_EQ(kCFPropertyListWriteInvalidError, CFErrorGetCode(error));
        CFRelease(error);
    }
    CFRelease(invalid);
    CFRelease(booleanKey);
}

TEST(CFObjectsTest, EdgesOfTextNumbersUrlsAndMutability)
{
    // The smallest two-byte UTF-8 sequence.
    CFStringRef copyright = NewCFString("\xC2\xA9");
    EXPECT_EQ(1, CFStringGetLength(copyright));
    EXPECT_EQ("\xC2\xA9", ToString(copyright));
    CFRelease(copyright);

    SInt32 value = 7;
    EXPECT_FALSE(CFNumberGetValue(nullptr, kCFNumberSInt32Type, &value));
    EXPECT_EQ(7, value);
    EXPECT_EQ(nullptr, CFURLCreateFromFileSystemRepresentation(
                           kCFAllocatorDefault, reinterpret_cast<const UInt8*>("/tmp"), 0, true));

    // Only the mutable options give containers and leaves that change.
    const std::string xml = "<plist version=\"1.0\"><dict><key>d</key><data>AQI=</data></dict>"
                            "</plist>";
    CFDataRef source = CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(xml.data()),
                                    CFIndex(xml.size()));
    for (auto [options, containerGrows, leafGrows] :
         {std::tuple(kCFPropertyListImmutable, false, false),
          std::tuple(kCFPropertyListMutableContainers, true, false),
          std::tuple(kCFPropertyListMutableContainersAndLeaves, true, true)}) {
        auto dict = static_cast<CFMutableDictionaryRef>(const_cast<void*>(
            CFPropertyListCreateWithData(kCFAllocatorDefault, source, options, nullptr, nullptr)));
        ASSERT_NE(nullptr, dict);
        auto leaf = static_cast<CFMutableDataRef>(
            const_cast<void*>(CFDictionaryGetValue(dict, CFSTR("d"))));
        CFDataAppendBytes(leaf, reinterpret_cast<const UInt8*>("x"), 1);
        CFDictionarySetValue(dict, CFSTR("e"), kCFBooleanTrue);
        EXPECT_EQ(containerGrows ? 2 : 1, CFDictionaryGetCount(dict)) << options;
        EXPECT_EQ(leafGrows ? 3 : 2, CFDataGetLength(leaf)) << options;
        CFRelease(dict);
    }
    CFRelease(source);
}
