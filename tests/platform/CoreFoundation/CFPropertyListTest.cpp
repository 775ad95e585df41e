// Property lists: round trips keep every value and its kind (integer vs
// real), both formats read back, bad input fails cleanly.
#include "CFTestHelpers.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

template <typename T> CFNumberRef makeNumber(CFNumberType type, T value)
{
    return CFNumberCreate(kCFAllocatorDefault, type, &value);
}

// Stores value under key and gives up the caller's reference to it.
void put(CFMutableDictionaryRef dict, const char* key, CFTypeRef value)
{
    CFStringRef name = NewCFString(key);
    CFDictionarySetValue(dict, name, value);
    CFRelease(name);
    CFRelease(value);
}

// A preset-like tree with every kind of value, integers and reals apart.
CFMutableDictionaryRef makeState()
{
    CFMutableDictionaryRef dict = NewCFTypeDictionary();
    put(dict, "version", makeNumber(kCFNumberSInt32Type, SInt32(0)));
    put(dict, "subtype", makeNumber(kCFNumberSInt32Type, SInt32(0x666C6E67)));
    put(dict, "negative", makeNumber(kCFNumberSInt64Type, SInt64(-1234567890123LL)));
    put(dict, "cpu-load", makeNumber(kCFNumberFloatType, 0.25f));
    put(dict, "whole", makeNumber(kCFNumberFloat64Type, 3.0));
    put(dict, "tenth", makeNumber(kCFNumberFloat64Type, 0.1));
    const UInt8 blob[] = {0, 0, 0, 1, 0xFF, 0x80};
    put(dict, "data", CFDataCreate(kCFAllocatorDefault, blob, sizeof blob));
    put(dict, "empty", CFDataCreate(kCFAllocatorDefault, nullptr, 0));
    put(dict, "name", NewCFString("Wah <&> \"Caf\xC3\xA9\""));
    const void* items[] = {kCFBooleanTrue, kCFBooleanFalse, CFSTR("")};
    put(dict, "flags", CFArrayCreate(kCFAllocatorDefault, items, 3, &kCFTypeArrayCallBacks));
    CFMutableDictionaryRef names = NewCFTypeDictionary();
    CFDictionarySetValue(names, CFSTR("0"), CFSTR("Left"));
    put(dict, "element-name", names);
    return dict;
}

bool isFloat(CFDictionaryRef dict, const char* key)
{
    CFStringRef name = NewCFString(key);
    const bool result =
        CFNumberIsFloatType(static_cast<CFNumberRef>(CFDictionaryGetValue(dict, name)));
    CFRelease(name);
    return result;
}

std::string bytesOf(CFDataRef data)
{
    return std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
                       static_cast<size_t>(CFDataGetLength(data)));
}

class CFPropertyListFormatTest : public ::testing::TestWithParam<CFPropertyListFormat>
{
};

} // namespace

TEST_P(CFPropertyListFormatTest, RoundTripKeepsValuesAndKinds)
{
    CFMutableDictionaryRef state = makeState();
    CFErrorRef error = nullptr;
    CFDataRef data = CFPropertyListCreateData(kCFAllocatorDefault, state, GetParam(), 0, &error);
    ASSERT_NE(nullptr, data);
    EXPECT_EQ(nullptr, error);
    EXPECT_EQ(1, CFGetRetainCount(data));

    CFPropertyListFormat format = 0;
    CFPropertyListRef back = CFPropertyListCreateWithData(
        kCFAllocatorDefault, data, kCFPropertyListImmutable, &format, &error);
    ASSERT_NE(nullptr, back);
    EXPECT_EQ(GetParam(), format);
    EXPECT_EQ(1, CFGetRetainCount(back));
    ASSERT_EQ(CFDictionaryGetTypeID(), CFGetTypeID(back));
    EXPECT_TRUE(CFEqual(state, back));
    const auto dict = static_cast<CFDictionaryRef>(back);
    EXPECT_FALSE(isFloat(dict, "version"));
    EXPECT_FALSE(isFloat(dict, "negative"));
    EXPECT_TRUE(isFloat(dict, "whole")); // 3.0 stays a real
    EXPECT_TRUE(isFloat(dict, "cpu-load"));
    Float32 load = 0.0f;
    EXPECT_TRUE(
        CFNumberGetValue(static_cast<CFNumberRef>(CFDictionaryGetValue(dict, CFSTR("cpu-load"))),
                         kCFNumberFloatType, &load));
    EXPECT_EQ(0.25f, load);
    EXPECT_EQ(kCFBooleanTrue,
              CFArrayGetValueAtIndex(
                  static_cast<CFArrayRef>(CFDictionaryGetValue(dict, CFSTR("flags"))), 0));

    // Immutable by default; mutable containers on request.
    CFMutableDictionaryRef fixed = static_cast<CFMutableDictionaryRef>(const_cast<void*>(back));
    CFDictionarySetValue(fixed, CFSTR("extra"), kCFBooleanTrue);
    EXPECT_FALSE(CFDictionaryContainsKey(dict, CFSTR("extra")));
    CFPropertyListRef editable = CFPropertyListCreateWithData(
        kCFAllocatorDefault, data, kCFPropertyListMutableContainers, nullptr, nullptr);
    CFDictionarySetValue(static_cast<CFMutableDictionaryRef>(const_cast<void*>(editable)),
                         CFSTR("extra"), kCFBooleanTrue);
    EXPECT_TRUE(CFDictionaryContainsKey(static_cast<CFDictionaryRef>(editable), CFSTR("extra")));

    CFRelease(editable);
    CFRelease(back);
    CFRelease(data);
    CFRelease(state);
}

INSTANTIATE_TEST_SUITE_P(Formats, CFPropertyListFormatTest,
                         ::testing::Values(kCFPropertyListXMLFormat_v1_0,
                                           kCFPropertyListBinaryFormat_v1_0));

TEST(CFPropertyListTest, XmlSpellsIntegersAndRealsApart)
{
    CFMutableDictionaryRef state = makeState();
    CFDataRef data = CFPropertyListCreateData(kCFAllocatorDefault, state,
                                              kCFPropertyListXMLFormat_v1_0, 0, nullptr);
    const std::string xml = bytesOf(data);
    EXPECT_NE(std::string::npos, xml.find("<key>subtype</key>\n\t<integer>1718382183</integer>"));
    EXPECT_NE(std::string::npos, xml.find("<integer>-1234567890123</integer>"));
    EXPECT_NE(std::string::npos, xml.find("<key>cpu-load</key>\n\t<real>0.25</real>"));
    EXPECT_NE(std::string::npos, xml.find("&lt;&amp;&gt;"));
    // Keys are written in order, so equal trees give equal bytes.
    EXPECT_LT(xml.find("<key>cpu-load</key>"), xml.find("<key>version</key>"));
    CFDataRef again = CFPropertyListCreateData(kCFAllocatorDefault, state,
                                               kCFPropertyListXMLFormat_v1_0, 0, nullptr);
    EXPECT_TRUE(CFEqual(data, again));
    CFRelease(again);
    CFRelease(data);
    CFRelease(state);
}

TEST(CFPropertyListTest, ReadsAHandWrittenPresetFile)
{
    const char xml[] =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n"
        "  <key>version</key><integer>0</integer>\n"
        "  <key>manufacturer</key><integer>-5</integer>\n"
        "  <key>data</key><data>AAAAAQ==</data>\n"
        "  <key>name</key><string>Slow &amp; Deep</string>\n"
        "</dict>\n</plist>\n";
    CFDataRef data =
        CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(xml), sizeof xml - 1);
    CFPropertyListRef plist = CFPropertyListCreateWithData(
        kCFAllocatorDefault, data, kCFPropertyListImmutable, nullptr, nullptr);
    ASSERT_EQ(CFDictionaryGetTypeID(), CFGetTypeID(plist));
    const auto dict = static_cast<CFDictionaryRef>(plist);
    SInt32 manufacturer = 0;
    EXPECT_TRUE(CFNumberGetValue(
        static_cast<CFNumberRef>(CFDictionaryGetValue(dict, CFSTR("manufacturer"))),
        kCFNumberSInt32Type, &manufacturer));
    EXPECT_EQ(-5, manufacturer);
    const auto blob = static_cast<CFDataRef>(CFDictionaryGetValue(dict, CFSTR("data")));
    ASSERT_EQ(4, CFDataGetLength(blob));
    EXPECT_EQ(1, CFDataGetBytePtr(blob)[3]);
    EXPECT_TRUE(CFEqual(CFSTR("Slow & Deep"), CFDictionaryGetValue(dict, CFSTR("name"))));
    CFRelease(plist);
    CFRelease(data);
}

TEST(CFPropertyListTest, InvalidInputFailsWithAnError)
{
    const char garbage[] = "this is not a property list";
    CFDataRef data = CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(garbage),
                                  sizeof garbage - 1);
    CFErrorRef error = nullptr;
    EXPECT_EQ(nullptr, CFPropertyListCreateWithData(kCFAllocatorDefault, data, 0, nullptr, &error));
    ASSERT_NE(nullptr, error);
    EXPECT_EQ(kCFPropertyListReadCorruptError, CFErrorGetCode(error));
    CFRelease(error);
    EXPECT_EQ(nullptr,
              CFPropertyListCreateWithData(kCFAllocatorDefault, data, 0, nullptr, nullptr));
    CFDataRef empty = CFDataCreate(kCFAllocatorDefault, nullptr, 0);
    EXPECT_EQ(nullptr,
              CFPropertyListCreateWithData(kCFAllocatorDefault, empty, 0, nullptr, nullptr));
    CFRelease(empty);

    // A non-string key, or a non-property-list value, cannot be written.
    CFNumberRef number = makeNumber(kCFNumberSInt32Type, SInt32(1));
    CFMutableDictionaryRef dict = NewCFTypeDictionary();
    CFDictionarySetValue(dict, number, CFSTR("one"));
    EXPECT_EQ(nullptr, CFPropertyListCreateData(kCFAllocatorDefault, dict,
                                                kCFPropertyListXMLFormat_v1_0, 0, &error));
    ASSERT_NE(nullptr, error);
    EXPECT_EQ(kCFPropertyListWriteInvalidError, CFErrorGetCode(error));
    CFRelease(error);
    EXPECT_FALSE(CFPropertyListIsValid(dict, kCFPropertyListXMLFormat_v1_0));
    CFDictionaryRemoveAllValues(dict);
    CFURLRef url = CFURLCreateWithFileSystemPath(kCFAllocatorDefault, CFSTR("/tmp"),
                                                 kCFURLPOSIXPathStyle, true);
    CFDictionarySetValue(dict, CFSTR("url"), url);
    EXPECT_EQ(nullptr, CFPropertyListCreateData(kCFAllocatorDefault, dict,
                                                kCFPropertyListXMLFormat_v1_0, 0, nullptr));
    CFRelease(url);
    CFRelease(dict);
    CFRelease(number);
    CFRelease(data);
}

TEST(CFPropertyListTest, DeepCopyIsEqualAndIndependent)
{
    CFMutableDictionaryRef state = makeState();
    CFPropertyListRef copy =
        CFPropertyListCreateDeepCopy(kCFAllocatorDefault, state, kCFPropertyListMutableContainers);
    ASSERT_NE(nullptr, copy);
    EXPECT_TRUE(CFEqual(state, copy));
    auto* inner = static_cast<CFMutableDictionaryRef>(const_cast<void*>(
        CFDictionaryGetValue(static_cast<CFDictionaryRef>(copy), CFSTR("element-name"))));
    CFDictionarySetValue(inner, CFSTR("1"), CFSTR("Right"));
    EXPECT_FALSE(CFEqual(state, copy));
    CFRelease(copy);
    CFRelease(state);
}
