// Dictionaries: one entry per key whatever object spells it, and exact
// retain counts for keys and values with and without callbacks.
#include "CFTestHelpers.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

TEST(CFDictionaryTest, SettingAnEqualKeyReplacesTheValue)
{
    CFStringRef key = NewCFString("name");
    CFStringRef sameKey = NewCFString("name");
    CFStringRef first = NewCFString("first");
    CFStringRef second = NewCFString("second");
    CFMutableDictionaryRef dict = NewCFTypeDictionary();

    CFDictionarySetValue(dict, key, first);
    EXPECT_EQ(2, CFGetRetainCount(key));
    EXPECT_EQ(2, CFGetRetainCount(first));

    CFDictionarySetValue(dict, sameKey, second);
    EXPECT_EQ(1, CFDictionaryGetCount(dict));
    EXPECT_EQ(second, CFDictionaryGetValue(dict, key));
    EXPECT_EQ(1, CFGetRetainCount(first)); // old value released
    EXPECT_EQ(2, CFGetRetainCount(second));
    EXPECT_EQ(2, CFGetRetainCount(key)); // the first key object stays
    EXPECT_EQ(1, CFGetRetainCount(sameKey));

    // Setting the value already held must not release it on the way.
    CFDictionarySetValue(dict, key, second);
    EXPECT_EQ(2, CFGetRetainCount(second));

    CFDictionaryAddValue(dict, key, first);                 // present: no change
    CFDictionaryReplaceValue(dict, CFSTR("absent"), first); // absent: no change
    EXPECT_EQ(1, CFDictionaryGetCount(dict));
    EXPECT_EQ(second, CFDictionaryGetValue(dict, key));
    EXPECT_EQ(1, CFGetRetainCount(first));

    CFDictionaryRemoveValue(dict, sameKey);
    EXPECT_EQ(0, CFDictionaryGetCount(dict));
    EXPECT_EQ(1, CFGetRetainCount(key));
    EXPECT_EQ(1, CFGetRetainCount(second));
    EXPECT_FALSE(CFDictionaryContainsKey(dict, key));

    CFDictionarySetValue(dict, key, first);
    CFRelease(dict);
    EXPECT_EQ(1, CFGetRetainCount(key));
    EXPECT_EQ(1, CFGetRetainCount(first));
    for (CFStringRef s : {key, sameKey, first, second}) {
        CFRelease(s);
    }
}

TEST(CFDictionaryTest, ManyKeysAreNeitherLostNorDuplicated)
{
    constexpr int kCount = 2000;
    CFMutableDictionaryRef dict = NewCFTypeDictionary();
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < kCount; ++i) {
            CFStringRef key = NewCFString("key" + std::to_string(i));
            CFNumberRef value = CFNumberCreate(kCFAllocatorDefault, kCFNumberIntType, &i);
            CFDictionarySetValue(dict, key, value);
            CFRelease(value);
            CFRelease(key);
        }
    }
    ASSERT_EQ(kCount, CFDictionaryGetCount(dict));
    for (int i = 0; i < kCount; i += 2) {
        CFStringRef key = NewCFString("key" + std::to_string(i));
        CFDictionaryRemoveValue(dict, key);
        CFRelease(key);
    }
    ASSERT_EQ(kCount / 2, CFDictionaryGetCount(dict));

    std::vector<const void*> keys(kCount / 2);
    std::vector<const void*> values(kCount / 2);
    CFDictionaryGetKeysAndValues(dict, keys.data(), values.data());
    std::set<int> seen;
    for (size_t i = 0; i < keys.size(); ++i) {
        int number = -1;
        ASSERT_TRUE(
            CFNumberGetValue(static_cast<CFNumberRef>(values[i]), kCFNumberIntType, &number));
        char text[32];
        ASSERT_TRUE(CFStringGetCString(static_cast<CFStringRef>(keys[i]), text, sizeof text,
                                       kCFStringEncodingUTF8));
        EXPECT_EQ("key" + std::to_string(number), text); // pairs stay aligned
        EXPECT_EQ(1, number % 2);
        seen.insert(number);
    }
    EXPECT_EQ(static_cast<size_t>(kCount / 2), seen.size());

    CFDictionaryRef copy = CFDictionaryCreateCopy(kCFAllocatorDefault, dict);
    EXPECT_TRUE(CFEqual(copy, dict));
    CFDictionaryRemoveAllValues(dict);
    EXPECT_EQ(0, CFDictionaryGetCount(dict));
    EXPECT_FALSE(CFEqual(copy, dict));
    CFRelease(copy);
    CFRelease(dict);
}

TEST(CFDictionaryTest, NullCallbacksUseIdentityAndNoRetain)
{
    CFStringRef key = NewCFString("k");
    CFStringRef twin = NewCFString("k");
    CFStringRef value = NewCFString("v");
    CFMutableDictionaryRef dict =
        CFDictionaryCreateMutable(kCFAllocatorDefault, 0, nullptr, nullptr);
    CFDictionarySetValue(dict, key, value);
    CFDictionarySetValue(dict, twin, value);
    EXPECT_EQ(2, CFDictionaryGetCount(dict)); // distinct objects, distinct keys
    EXPECT_EQ(1, CFGetRetainCount(key));
    EXPECT_EQ(1, CFGetRetainCount(value));
    CFDictionaryRemoveValue(dict, key);
    EXPECT_EQ(1, CFGetRetainCount(key));
    EXPECT_EQ(1, CFGetRetainCount(value));
    CFRelease(dict);
    EXPECT_EQ(1, CFGetRetainCount(twin));

    // Type keys with unretained values: only keys are retained.
    CFMutableDictionaryRef mixed =
        CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, nullptr);
    CFDictionarySetValue(mixed, key, value);
    EXPECT_EQ(2, CFGetRetainCount(key));
    EXPECT_EQ(1, CFGetRetainCount(value));
    EXPECT_EQ(value, CFDictionaryGetValue(mixed, twin));
    CFRelease(mixed);
    EXPECT_EQ(1, CFGetRetainCount(key));

    for (CFStringRef s : {key, twin, value}) {
        CFRelease(s);
    }
}

TEST(CFDictionaryTest, CreateFromArraysKeepsTheLaterPairAndIsImmutable)
{
    CFStringRef inner = NewCFString("inner");
    const void* keys[] = {CFSTR("a"), CFSTR("b"), CFSTR("a")};
    const void* values[] = {inner, kCFBooleanTrue, kCFBooleanFalse};
    CFDictionaryRef dict =
        CFDictionaryCreate(kCFAllocatorDefault, keys, values, 3, &kCFTypeDictionaryKeyCallBacks,
                           &kCFTypeDictionaryValueCallBacks);
    EXPECT_EQ(2, CFDictionaryGetCount(dict));
    EXPECT_EQ(kCFBooleanFalse, CFDictionaryGetValue(dict, CFSTR("a"))); // the later pair wins
    EXPECT_EQ(1, CFGetRetainCount(inner));                              // replaced, released
    const void* found = nullptr;
    EXPECT_TRUE(CFDictionaryGetValueIfPresent(dict, CFSTR("b"), &found));
    EXPECT_EQ(kCFBooleanTrue, found);
    EXPECT_TRUE(CFDictionaryContainsValue(dict, kCFBooleanTrue));
    EXPECT_FALSE(CFDictionaryGetValueIfPresent(dict, CFSTR("c"), &found));

    CFDictionarySetValue(
        reinterpret_cast<CFMutableDictionaryRef>(const_cast<__CFDictionary*>(dict)), CFSTR("c"),
        inner);
    EXPECT_EQ(2, CFDictionaryGetCount(dict)); // immutable: ignored
    CFRelease(dict);
    CFRelease(inner);
}
