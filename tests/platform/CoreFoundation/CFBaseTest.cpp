// Reference counting, identity and equality common to every type.
#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <string>
#include <thread>
#include <vector>

TEST(CFBaseTest, CreateOwnsRetainAndReleaseBalance)
{
    CFStringRef string =
        CFStringCreateWithCString(kCFAllocatorDefault, "owned", kCFStringEncodingUTF8);
    ASSERT_NE(nullptr, string);
    EXPECT_EQ(1, CFGetRetainCount(string));
    EXPECT_EQ(string, CFRetain(string));
    EXPECT_EQ(2, CFGetRetainCount(string));
    CFRelease(string);
    EXPECT_EQ(1, CFGetRetainCount(string));
    CFRelease(string);

    EXPECT_EQ(nullptr, CFRetain(nullptr));
    CFRelease(nullptr);
    EXPECT_EQ(0, CFGetRetainCount(nullptr));
    EXPECT_EQ(0u, CFGetTypeID(nullptr));
}

TEST(CFBaseTest, ConstantsAreImmortalAndShared)
{
    CFStringRef constant = CFSTR("immortal");
    EXPECT_EQ(constant, CFSTR("immortal"));
    EXPECT_NE(constant, CFSTR("another"));
    const CFIndex before = CFGetRetainCount(constant);
    EXPECT_EQ(LONG_MAX, before);
    for (int i = 0; i < 5; ++i) {
        CFRelease(constant);
    }
    CFRetain(constant);
    EXPECT_EQ(before, CFGetRetainCount(constant));
    EXPECT_EQ(8, CFStringGetLength(constant));

    CFRelease(kCFBooleanTrue);
    CFRelease(kCFBooleanTrue);
    EXPECT_TRUE(CFBooleanGetValue(kCFBooleanTrue));
    EXPECT_FALSE(CFBooleanGetValue(kCFBooleanFalse));
    EXPECT_EQ(CFBooleanGetTypeID(), CFGetTypeID(kCFBooleanFalse));
}

TEST(CFBaseTest, EqualityIsByValueWithinATypeOnly)
{
    CFStringRef made = CFStringCreateWithCString(kCFAllocatorDefault, "3", kCFStringEncodingASCII);
    const SInt32 three = 3;
    CFNumberRef number = CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &three);

    EXPECT_TRUE(CFEqual(made, CFSTR("3")));
    EXPECT_EQ(CFHash(made), CFHash(CFSTR("3")));
    EXPECT_FALSE(CFEqual(made, number));
    EXPECT_FALSE(CFEqual(made, nullptr));
    EXPECT_FALSE(CFEqual(kCFBooleanTrue, kCFBooleanFalse));
    EXPECT_NE(CFGetTypeID(made), CFGetTypeID(number));
    EXPECT_EQ(CFStringGetTypeID(), CFGetTypeID(made));
    EXPECT_EQ(CFNumberGetTypeID(), CFGetTypeID(number));

    CFStringRef typeName = CFCopyTypeIDDescription(CFGetTypeID(number));
    EXPECT_TRUE(CFEqual(CFSTR("CFNumber"), typeName));
    CFRelease(typeName);
    CFRelease(number);
    CFRelease(made);
}

TEST(CFBaseTest, DescriptionShowsNestedContents)
{
    CFMutableDictionaryRef dict = CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    const void* items[] = {CFSTR("x"), kCFBooleanTrue};
    CFArrayRef array = CFArrayCreate(kCFAllocatorDefault, items, 2, &kCFTypeArrayCallBacks);
    CFDictionarySetValue(dict, CFSTR("list"), array);
    CFStringRef text = CFCopyDescription(dict);
    char buffer[256];
    ASSERT_TRUE(CFStringGetCString(text, buffer, sizeof buffer, kCFStringEncodingUTF8));
    const std::string described = buffer;
    EXPECT_NE(std::string::npos, described.find("list = ("));
    EXPECT_NE(std::string::npos, described.find("x,"));
    EXPECT_NE(std::string::npos, described.find("true"));
    CFRelease(text);
    CFRelease(array);
    CFRelease(dict);
}

// Threads retain and release one object and meanwhile read a constant
// string: the count ends exact and the constant is one object.
TEST(CFBaseTest, ConcurrentRetainReleaseAndConstantStrings)
{
    CFDataRef data = CFDataCreate(kCFAllocatorDefault, nullptr, 0);
    constexpr int kThreads = 4;
    constexpr int kRounds = 1000000;
    std::vector<CFStringRef> seen(kThreads, nullptr);
    // All threads start together, so that they really contend.
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([data, &seen, &go, t] {
            while (!go.load()) {
                std::this_thread::yield();
            }
            for (int i = 0; i < kRounds; ++i) {
                CFRetain(data);
            }
            for (int i = 0; i < 1000; ++i) {
                seen[static_cast<size_t>(t)] = CFSTR("shared by threads");
            }
            for (int i = 0; i < kRounds; ++i) {
                CFRelease(data);
            }
        });
    }
    go.store(true);
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(1, CFGetRetainCount(data));
    CFRelease(data);
    for (CFStringRef string : seen) {
        EXPECT_EQ(CFSTR("shared by threads"), string);
    }
}
