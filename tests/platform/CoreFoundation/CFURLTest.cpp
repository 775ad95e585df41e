// File URLs: paths kept as made, resolved against the directory of creation.
#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <string>
#include <unistd.h>

namespace {

std::string path(CFURLRef url, bool resolve)
{
    char buffer[4096];
    return CFURLGetFileSystemRepresentation(url, resolve, reinterpret_cast<UInt8*>(buffer),
                                            sizeof buffer)
               ? std::string(buffer)
               : std::string("<failed>");
}

std::string text(CFStringRef string)
{
    char buffer[4096];
    return CFStringGetCString(string, buffer, sizeof buffer, kCFStringEncodingUTF8)
               ? std::string(buffer)
               : "<failed>";
}

} // namespace

TEST(CFURLTest, AbsolutePathsRoundTrip)
{
    CFURLRef url = CFURLCreateWithFileSystemPath(kCFAllocatorDefault,
                                                 CFSTR("/tmp/Some Folder/Vandrel.component/"),
                                                 kCFURLPOSIXPathStyle, true);
    ASSERT_NE(nullptr, url);
    EXPECT_EQ("/tmp/Some Folder/Vandrel.component", path(url, true));
    CFStringRef copied = CFURLCopyFileSystemPath(url, kCFURLPOSIXPathStyle);
    EXPECT_EQ("/tmp/Some Folder/Vandrel.component", text(copied));
    CFStringRef last = CFURLCopyLastPathComponent(url);
    EXPECT_EQ("Vandrel.component", text(last));
    EXPECT_TRUE(CFURLHasDirectoryPath(url));

    CFURLRef child =
        CFURLCreateCopyAppendingPathComponent(kCFAllocatorDefault, url, CFSTR("Contents"), true);
    EXPECT_EQ("/tmp/Some Folder/Vandrel.component/Contents", path(child, true));

    const char raw[] = "/tmp/Some Folder/Vandrel.component";
    CFURLRef same = CFURLCreateFromFileSystemRepresentation(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(raw), sizeof raw - 1, true);
    EXPECT_TRUE(CFEqual(url, same));
    EXPECT_EQ(CFHash(url), CFHash(same));

    UInt8 small[8];
    EXPECT_FALSE(CFURLGetFileSystemRepresentation(url, true, small, sizeof small));
    for (CFTypeRef object :
         {CFTypeRef(url), CFTypeRef(copied), CFTypeRef(last), CFTypeRef(child), CFTypeRef(same)}) {
        CFRelease(object);
    }
}

TEST(CFURLTest, RelativePathsResolveAgainstTheWorkingDirectory)
{
    char cwd[4096];
    ASSERT_NE(nullptr, getcwd(cwd, sizeof cwd));
    CFURLRef url = CFURLCreateWithFileSystemPath(kCFAllocatorDefault, CFSTR("presets/a.aupreset"),
                                                 kCFURLPOSIXPathStyle, false);
    EXPECT_EQ("presets/a.aupreset", path(url, false));
    EXPECT_EQ(std::string(cwd) + "/presets/a.aupreset", path(url, true));
    CFRelease(url);

    EXPECT_EQ(nullptr, CFURLCreateWithFileSystemPath(kCFAllocatorDefault, CFSTR(""),
                                                     kCFURLPOSIXPathStyle, false));
    EXPECT_EQ(nullptr, CFURLCreateWithFileSystemPath(kCFAllocatorDefault, nullptr,
                                                     kCFURLPOSIXPathStyle, false));
}
