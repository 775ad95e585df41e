// Arrays: what the callbacks retain and release, and range checks.
#include "CFTestHelpers.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

TEST(CFArrayTest, TypeCallbacksRetainWhileHeld)
{
    CFStringRef value = NewCFString("value");
    CFMutableArrayRef array = CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks);
    CFArrayAppendValue(array, value);
    CFArrayAppendValue(array, value);
    EXPECT_EQ(3, CFGetRetainCount(value));

    // A Get hands out a borrowed reference: the count does not move.
    EXPECT_EQ(value, CFArrayGetValueAtIndex(array, 1));
    EXPECT_EQ(3, CFGetRetainCount(value));

    // Replacing a value with itself must not drop it on the way.
    CFArraySetValueAtIndex(array, 0, value);
    EXPECT_EQ(3, CFGetRetainCount(value));

    CFArrayRemoveValueAtIndex(array, 0);
    EXPECT_EQ(2, CFGetRetainCount(value));
    CFArrayRef copy = CFArrayCreateCopy(kCFAllocatorDefault, array);
    EXPECT_EQ(3, CFGetRetainCount(value));
    CFRelease(array);
    EXPECT_EQ(2, CFGetRetainCount(value));
    CFRelease(copy);
    EXPECT_EQ(1, CFGetRetainCount(value));
    CFRelease(value);
}

TEST(CFArrayTest, NullCallbacksNeitherRetainNorRelease)
{
    CFStringRef value = NewCFString("preset");
    CFStringRef twin = NewCFString("preset");
    CFMutableArrayRef array = CFArrayCreateMutable(kCFAllocatorDefault, 15, nullptr);
    for (int i = 0; i < 20; ++i) {
        CFArrayAppendValue(array, value);
    }
    EXPECT_EQ(20, CFArrayGetCount(array)); // the capacity is only a hint
    EXPECT_EQ(1, CFGetRetainCount(value));
    // Without an equal callback values compare by identity.
    EXPECT_EQ(kCFNotFound, CFArrayGetFirstIndexOfValue(array, CFRangeMake(0, 20), twin));
    EXPECT_EQ(0, CFArrayGetFirstIndexOfValue(array, CFRangeMake(0, 20), value));
    CFArrayRemoveAllValues(array);
    EXPECT_EQ(1, CFGetRetainCount(value));

    // Raw non-object values are fine with NULL callbacks.
    static int sPlain[3];
    const void* raw[] = {&sPlain[0], &sPlain[1], &sPlain[2]};
    CFArrayRef plain = CFArrayCreate(kCFAllocatorDefault, raw, 3, nullptr);
    EXPECT_EQ(&sPlain[2], CFArrayGetValueAtIndex(plain, 2));
    CFRelease(plain);
    CFRelease(array);
    EXPECT_EQ(1, CFGetRetainCount(value));
    CFRelease(twin);
    CFRelease(value);
}

TEST(CFArrayTest, IndicesAndImmutability)
{
    const void* items[] = {CFSTR("a"), CFSTR("b"), CFSTR("c")};
    CFArrayRef fixed = CFArrayCreate(kCFAllocatorDefault, items, 3, &kCFTypeArrayCallBacks);
    EXPECT_EQ(nullptr, CFArrayGetValueAtIndex(fixed, 3));
    EXPECT_EQ(nullptr, CFArrayGetValueAtIndex(fixed, -1));
    CFArrayAppendValue(reinterpret_cast<CFMutableArrayRef>(const_cast<__CFArray*>(fixed)),
                       CFSTR("d"));
    EXPECT_EQ(3, CFArrayGetCount(fixed));

    CFMutableArrayRef array = CFArrayCreateMutableCopy(kCFAllocatorDefault, 0, fixed);
    CFArrayInsertValueAtIndex(array, 0, CFSTR("z"));
    CFArrayInsertValueAtIndex(array, 9, CFSTR("ignored"));
    CFArraySetValueAtIndex(array, 4, CFSTR("end"));
    const void* values[5] = {};
    CFArrayGetValues(array, CFRangeMake(0, 5), values);
    EXPECT_EQ(CFSTR("z"), values[0]);
    EXPECT_EQ(CFSTR("c"), values[3]);
    EXPECT_EQ(CFSTR("end"), values[4]);
    // Equal content found through the equal callback, not identity.
    CFStringRef b = NewCFString("b");
    EXPECT_EQ(2, CFArrayGetFirstIndexOfValue(array, CFRangeMake(0, 5), b));
    EXPECT_FALSE(CFArrayContainsValue(array, CFRangeMake(3, 2), b));
    CFRelease(b);

    CFArrayRemoveValueAtIndex(array, 0);
    CFArrayRemoveValueAtIndex(array, 3);
    EXPECT_TRUE(CFEqual(fixed, array));
    CFRelease(array);
    CFRelease(fixed);
}
