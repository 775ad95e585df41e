// The built bundle as a host finds it on disk: its layout, its Info.plist
// component entry, its two localized strings tables, and a binary that
// exports exactly the entry point and the factory.
#include "CFTestHelpers.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>

namespace {

const std::filesystem::path kBundle = VANDREL_BUNDLE_DIR;

std::string ReadFile(const std::filesystem::path& inPath)
{
    std::ifstream file(inPath, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

TEST(VandrelBundle, BinaryExportsExactlyEntryAndFactory)
{
    const std::filesystem::path binary = kBundle / "Contents" / "Linux" / "Vandrel";
    ASSERT_TRUE(std::filesystem::exists(binary));
    const std::string command = "nm -D --defined-only '" + binary.string() + "'";
    FILE* pipe = popen(command.c_str(), "r");
    ASSERT_NE(nullptr, pipe);
    std::set<std::string> exported;
    char line[512];
    while (fgets(line, sizeof(line), pipe) != nullptr) {
        std::istringstream fields(line);
        std::string address, kind, name;
        if (fields >> address >> kind >> name) {
            exported.insert(name);
        }
    }
    ASSERT_EQ(0, pclose(pipe));
    EXPECT_EQ((std::set<std::string>{"VandrelEntry", "VandrelFactory"}), exported);
}

TEST(VandrelBundle, LoadingRaisesTheSoftOpenFileLimitOnly)
{
    rlimit before{};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
    rlimit lowered = before;
    lowered.rlim_cur = std::min<rlim_t>(before.rlim_max, 256);
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &lowered));

    const std::filesystem::path binary = kBundle / "Contents" / "Linux" / "Vandrel";
    void* handle = dlopen(binary.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(nullptr, handle) << dlerror();
    EXPECT_NE(nullptr, dlsym(handle, "VandrelFactory"));
    EXPECT_NE(nullptr, dlsym(handle, "VandrelEntry"));

    rlimit after{};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &after));
    EXPECT_EQ(before.rlim_max, after.rlim_max);
    if (before.rlim_max == RLIM_INFINITY || before.rlim_max >= 7168) {
        EXPECT_EQ(7168u, after.rlim_cur);
    } else {
        EXPECT_EQ(lowered.rlim_cur, after.rlim_cur); // refused above the hard limit
    }
    dlclose(handle);
}

TEST(VandrelBundle, InfoPlistDescribesTheEffectComponent)
{
    const std::string text = ReadFile(kBundle / "Contents" / "Info.plist");
    ASSERT_FALSE(text.empty());
    CFDataRef data = CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                                  static_cast<CFIndex>(text.size()));
    auto info = static_cast<CFDictionaryRef>(CFPropertyListCreateWithData(
        kCFAllocatorDefault, data, kCFPropertyListImmutable, nullptr, nullptr));
    CFRelease(data);
    ASSERT_NE(nullptr, info);
    EXPECT_EQ("org.vandrel.audiounit.Vandrel",
              ToString(CFDictionaryGetValue(info, CFSTR("CFBundleIdentifier"))));
    EXPECT_EQ("Vandrel", ToString(CFDictionaryGetValue(info, CFSTR("CFBundleExecutable"))));
    auto components = static_cast<CFArrayRef>(CFDictionaryGetValue(info, CFSTR("AudioComponents")));
    ASSERT_NE(nullptr, components);
    ASSERT_EQ(1, CFArrayGetCount(components));
    auto component = static_cast<CFDictionaryRef>(CFArrayGetValueAtIndex(components, 0));
    EXPECT_EQ("aufx", ToString(CFDictionaryGetValue(component, CFSTR("type"))));
    EXPECT_EQ("Vndr", ToString(CFDictionaryGetValue(component, CFSTR("subtype"))));
    EXPECT_EQ("Vdrl", ToString(CFDictionaryGetValue(component, CFSTR("manufacturer"))));
    EXPECT_EQ("Vandrel: Vandrel", ToString(CFDictionaryGetValue(component, CFSTR("name"))));
    EXPECT_EQ("VandrelFactory",
              ToString(CFDictionaryGetValue(component, CFSTR("factoryFunction"))));
    EXPECT_EQ("VandrelEntry", ToString(CFDictionaryGetValue(component, CFSTR("entryFunction"))));
    SInt32 version = 0;
    ASSERT_TRUE(CFNumberGetValue(
        static_cast<CFNumberRef>(CFDictionaryGetValue(component, CFSTR("version"))),
        kCFNumberSInt32Type, &version));
    EXPECT_EQ(0x00010000, version);
    CFRelease(info);
}

TEST(VandrelBundle, StringsTablesKeyedByEveryEnglishName)
{
    const char* keys[] = {
        "Dry out",          "Wet out",         "Effect",    "Modulation rate", "Modulation depth",
        "Center frequency", "Resonance",       "Default",   "Flange - 1 Hz",   "Flange - fast",
        "Flange - slow 1",  "Flange - slow 2", "Phaser 1",  "Phaser 2",        "Phaser 3",
        "Wah-Wah 1",        "Wah-Wah 2",       "Wah-Wah 3", "Wah-Wah 4",       "Wah-Wah 5",
        "Warble 1",         "Warble 2"};
    for (const char* language : {"English", "French"}) {
        const std::string table =
            ReadFile(kBundle / "Contents" / "Resources" / (std::string(language) + ".lproj") /
                     "Localizable.strings");
        ASSERT_FALSE(table.empty()) << language;
        for (const char* key : keys) {
            EXPECT_NE(std::string::npos, table.find("\"" + std::string(key) + "\" = \""))
                << language << ": " << key;
        }
    }
}

} // namespace
