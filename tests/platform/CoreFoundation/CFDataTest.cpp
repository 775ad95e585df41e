// Data: growth, self-append, immutability.
#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <string>

namespace {

std::string bytesOf(CFDataRef data)
{
    return std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(data)),
                       static_cast<size_t>(CFDataGetLength(data)));
}

} // namespace

TEST(CFDataTest, MutableDataGrowsAndCopiesAreIndependent)
{
    CFMutableDataRef data = CFDataCreateMutable(kCFAllocatorDefault, 2); // capacity is only a hint
    CFDataAppendBytes(data, reinterpret_cast<const UInt8*>("abc"), 3);
    // Appending its own bytes must survive the buffer moving.
    for (int i = 0; i < 6; ++i) {
        CFDataAppendBytes(data, CFDataGetBytePtr(data), 3);
    }
    EXPECT_EQ(21, CFDataGetLength(data));
    EXPECT_EQ("abcabcabcabcabcabcabc", bytesOf(data));

    CFDataRef frozen = CFDataCreateCopy(kCFAllocatorDefault, data);
    CFDataSetLength(data, 2);
    CFDataIncreaseLength(data, 2);
    EXPECT_EQ(std::string("ab\0\0", 4), bytesOf(data));
    EXPECT_EQ(21, CFDataGetLength(frozen));
    CFDataGetMutableBytePtr(data)[0] = 'z';
    UInt8 part[2] = {};
    CFDataGetBytes(data, CFRangeMake(0, 2), part);
    EXPECT_EQ('z', part[0]);
    EXPECT_FALSE(CFEqual(data, frozen));

    // Immutable data refuses changes and hands out no writable pointer.
    CFMutableDataRef frozenAsMutable =
        reinterpret_cast<CFMutableDataRef>(const_cast<__CFData*>(frozen));
    CFDataAppendBytes(frozenAsMutable, part, 2);
    EXPECT_EQ(21, CFDataGetLength(frozen));
    EXPECT_EQ(nullptr, CFDataGetMutableBytePtr(frozenAsMutable));
    // Copying immutable data shares the object.
    CFDataRef again = CFDataCreateCopy(kCFAllocatorDefault, frozen);
    EXPECT_EQ(frozen, again);
    EXPECT_EQ(2, CFGetRetainCount(frozen));
    CFRelease(again);
    CFRelease(frozen);
    CFRelease(data);

    EXPECT_EQ(nullptr, CFDataCreate(kCFAllocatorDefault, nullptr, 4));
}
