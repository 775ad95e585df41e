// Bundles built in a temporary folder: Info.plist values, one object per
// folder, localized strings under changing locales with English fallback,
// resources, and finding the bundle of a plug-in binary loaded with dlopen.
#include "CFTestHelpers.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

void WriteFile(const std::string& path, const std::string& bytes)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string InfoPlist(const std::string& identifier)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
           "<key>CFBundleIdentifier</key><string>" +
           identifier +
           "</string><key>CFBundleVersion</key><string>1.2.3</string></dict></plist>\n";
}

// UTF-16 little-endian with a byte-order mark.
std::string Utf16WithBOM(const std::u16string& text)
{
    std::string bytes = "\xFF\xFE";
    for (char16_t unit : text) {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8);
    }
    return bytes;
}

CFURLRef NewURL(const std::string& path)
{
    return CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault,
                                                   reinterpret_cast<const UInt8*>(path.data()),
                                                   static_cast<CFIndex>(path.size()), true);
}

CFBundleRef OpenBundle(const std::string& path)
{
    CFURLRef url = NewURL(path);
    CFBundleRef bundle = CFBundleCreate(kCFAllocatorDefault, url);
    CFRelease(url);
    return bundle;
}

// The path of a URL, "<none>" for null; releases the URL.
std::string TakePath(CFURLRef url)
{
    char buffer[4096];
    const bool ok = url != nullptr &&
                    CFURLGetFileSystemRepresentation(url, true, reinterpret_cast<UInt8*>(buffer),
                                                     sizeof buffer);
    if (url != nullptr) {
        CFRelease(url);
    }
    return ok ? std::string(buffer) : std::string("<none>");
}

const char kSeche[] = "Sortie s\xC3\xA8"
                      "che";

class CFBundleTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
            unsetenv(variable);
        }
        char pattern[] = "/tmp/cfbundletestXXXXXX";
        ASSERT_NE(nullptr, mkdtemp(pattern));
        char resolved[4096];
        ASSERT_NE(nullptr, realpath(pattern, resolved));
        mRoot = resolved;
        mBundlePath = mRoot + "/Effect.component";
        mIdentifier = "com.example.effect." + std::to_string(getpid());
        const std::string resources = mBundlePath + "/Contents/Resources";
        WriteFile(mBundlePath + "/Contents/Info.plist", InfoPlist(mIdentifier));
        // English and French under their legacy folder names, as the plug-in
        // ships them, and French also under its code.
        WriteFile(resources + "/English.lproj/Localizable.strings",
                  "/* English names */\n"
                  "\"Dry Out\" = \"Dry Out\";\n"
                  "\"Only English\" = \"English only\"; // trailing comment\n"
                  "\"Escapes\" = \"Tab\\tQuote\\\"\\U00E9\\101\\n\";\n"
                  "\"Same\";\n");
        WriteFile(resources + "/fr.lproj/Localizable.strings",
                  Utf16WithBOM(u"/* Noms */\n\"Dry Out\" = \"Sortie s\u00E8che\";\n// "
                               u"\"Only English\" = \"x\";\n"));
        WriteFile(resources + "/French.lproj/Units.strings", "\"Hz\" = \"Hz (fr)\";\n");
        WriteFile(resources + "/English.lproj/Units.strings",
                  "\"Hz\" = \"Hertz\";\n\"dB\" = \"decibels\";\n");
        WriteFile(resources + "/fr.lproj/Help.txt", "aide");
        WriteFile(resources + "/English.lproj/Help.txt", "help");
        WriteFile(resources + "/Views/Panel.bundle/marker", "");
        WriteFile(resources + "/Icon.png", "");
        mBundle = OpenBundle(mBundlePath);
        ASSERT_NE(nullptr, mBundle);
    }

    void TearDown() override
    {
        if (mBundle != nullptr) {
            CFRelease(mBundle);
        }
        std::filesystem::remove_all(mRoot);
    }

    std::string mRoot;
    std::string mBundlePath;
    std::string mIdentifier;
    CFBundleRef mBundle = nullptr;
};

} // namespace

TEST_F(CFBundleTest, InfoDictionaryAndOneObjectPerFolder)
{
    EXPECT_EQ(mIdentifier, ToString(CFBundleGetIdentifier(mBundle)));
    EXPECT_EQ("1.2.3",
              ToString(CFBundleGetValueForInfoDictionaryKey(mBundle, CFSTR("CFBundleVersion"))));
    EXPECT_EQ(nullptr, CFBundleGetValueForInfoDictionaryKey(mBundle, CFSTR("Missing")));
    EXPECT_EQ(mBundlePath, TakePath(CFBundleCopyBundleURL(mBundle)));

    // Another spelling of the folder yields the same object.
    CFBundleRef again = OpenBundle(mRoot + "/./Effect.component/");
    EXPECT_EQ(mBundle, again);
    EXPECT_EQ(2, CFGetRetainCount(mBundle));
    CFRelease(again);

    // Found by identifier while alive, gone once released.
    CFStringRef identifier = NewCFString(mIdentifier);
    EXPECT_EQ(mBundle, CFBundleGetBundleWithIdentifier(identifier));
    EXPECT_EQ(1, CFGetRetainCount(mBundle));
    CFRelease(mBundle);
    mBundle = nullptr;
    EXPECT_EQ(nullptr, CFBundleGetBundleWithIdentifier(identifier));
    CFRelease(identifier);
    EXPECT_EQ(nullptr, OpenBundle(mRoot + "/Missing.component"));
}

TEST_F(CFBundleTest, LocalizedStringsFollowTheLocaleWithEnglishFallback)
{
    const struct
    {
        const char* mVariable; // set to mLocale, LANG set to mLang
        const char* mLocale;
        const char* mLang;
        const char* mKey;
        CFStringRef mValue;
        CFStringRef mTable;
        const char* mExpected;
    } cases[] = {
        {"LANG", "fr_FR.UTF-8", "fr_FR.UTF-8", "Dry Out", nullptr, nullptr, kSeche},
        {"LANG", "fr_BE.UTF-8@euro", "fr_BE.UTF-8@euro", "Dry Out", nullptr, nullptr, kSeche},
        {"LANG", "fr", "fr", "Only English", nullptr, nullptr, "English only"},
        {"LANG", "fr", "fr", "Nowhere", CFSTR("Default"), nullptr, "Default"},
        {"LANG", "fr", "fr", "Nowhere", nullptr, nullptr, "Nowhere"},
        {"LANG", "fr", "fr", "Nowhere", CFSTR(""), nullptr, "Nowhere"},
        {"LANG", "fr", "fr", "Hz", nullptr, CFSTR("Units"), "Hz (fr)"},
        {"LANG", "fr", "fr", "dB", CFSTR("x"), CFSTR("Units"), "decibels"},
        {"LANG", "fr", "fr", "Wanted", nullptr, CFSTR("NoSuchTable"), "Wanted"},
        {"LC_ALL", "en_US.UTF-8", "fr_FR", "Dry Out", nullptr, nullptr, "Dry Out"},
        {"LC_MESSAGES", "fr_CA", "en_GB", "Dry Out", nullptr, nullptr, kSeche},
        {"LC_ALL", "", "fr_FR", "Dry Out", nullptr, nullptr, kSeche},
        {"LANG", "de_DE.UTF-8", "de_DE.UTF-8", "Dry Out", nullptr, nullptr, "Dry Out"},
        {"LANG", "C", "C", "Hz", nullptr, CFSTR("Units"), "Hertz"},
        {"LANG", "C", "C", "Escapes", nullptr, nullptr,
         "Tab\tQuote\"\xC3\xA9"
         "A\n"},
        {"LANG", "C", "C", "Same", nullptr, nullptr, "Same"},
    };
    for (const auto& c : cases) {
        setenv("LANG", c.mLang, 1);
        setenv(c.mVariable, c.mLocale, 1);
        CFStringRef key = NewCFString(c.mKey);
        CFStringRef result = CFBundleCopyLocalizedString(mBundle, key, c.mValue, c.mTable);
        EXPECT_EQ(c.mExpected, ToString(result))
            << c.mVariable << "=" << c.mLocale << " " << c.mKey;
        CFRelease(result);
        EXPECT_EQ(1, CFGetRetainCount(key)); // the key was not kept
        CFRelease(key);
        unsetenv(c.mVariable);
    }
}

TEST_F(CFBundleTest, ResourcesUnlocalizedFirstThenByLanguage)
{
    const std::string resources = mBundlePath + "/Contents/Resources";
    const struct
    {
        const char* mLang;
        CFStringRef mName;
        CFStringRef mType;
        CFStringRef mFolder;
        std::string mExpected;
    } cases[] = {
        {"fr_FR.UTF-8", CFSTR("Help"), CFSTR("txt"), nullptr, resources + "/fr.lproj/Help.txt"},
        {"de_DE", CFSTR("Help"), CFSTR(".txt"), nullptr, resources + "/English.lproj/Help.txt"},
        {"fr", CFSTR("Icon.png"), nullptr, nullptr, resources + "/Icon.png"},
        {"fr", CFSTR("Panel"), CFSTR("bundle"), CFSTR("Views"), resources + "/Views/Panel.bundle"},
        {"fr", CFSTR("Missing"), CFSTR("txt"), nullptr, "<none>"},
    };
    for (const auto& c : cases) {
        setenv("LANG", c.mLang, 1);
        CFURLRef url = CFBundleCopyResourceURL(mBundle, c.mName, c.mType, c.mFolder);
        if (url != nullptr) {
            EXPECT_EQ(std::filesystem::is_directory(c.mExpected), CFURLHasDirectoryPath(url));
        }
        EXPECT_EQ(c.mExpected, TakePath(url)) << ToString(c.mName);
    }
}

TEST_F(CFBundleTest, FindsTheBundleOfADlopenedBinary)
{
    const std::string bundle = mRoot + "/Loaded.component";
    const std::string identifier = "com.example.loaded." + std::to_string(getpid());
    WriteFile(bundle + "/Contents/Info.plist", InfoPlist(identifier));
    std::filesystem::create_directories(bundle + "/Contents/Linux");
    ASSERT_TRUE(std::filesystem::copy_file(CF_TEST_PLUGIN_PATH, bundle + "/Contents/Linux/Loaded"));
    CFStringRef key = NewCFString(identifier);
    EXPECT_EQ(nullptr, CFBundleGetBundleWithIdentifier(key)); // not loaded yet

    // Loaded the way a host would, through a path with extra components.
    const std::string loadPath = mRoot + "/./Loaded.component/Contents/Linux/Loaded";
    void* handle = dlopen(loadPath.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(nullptr, handle) << dlerror();
    CFBundleRef found = CFBundleGetBundleWithIdentifier(key);
    ASSERT_NE(nullptr, found);
    EXPECT_EQ(bundle, TakePath(CFBundleCopyBundleURL(found)));

    // Creating it afterwards yields the same object; bundles of loaded
    // binaries stay known after callers release them.
    CFBundleRef created = OpenBundle(bundle);
    EXPECT_EQ(found, created);
    CFRelease(created);
    EXPECT_EQ(found, CFBundleGetBundleWithIdentifier(key));
    CFRelease(key);
    dlclose(handle);
}

TEST_F(CFBundleTest, ConcurrentCreateReleaseAndLookups)
{
    setenv("LANG", "fr_FR.UTF-8", 1);
    CFRelease(mBundle);
    mBundle = nullptr;
    CFURLRef url = NewURL(mBundlePath);
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([url, &wrong] {
            for (int i = 0; i < 200; ++i) {
                CFBundleRef bundle = CFBundleCreate(kCFAllocatorDefault, url);
                CFStringRef name =
                    CFBundleCopyLocalizedString(bundle, CFSTR("Dry Out"), nullptr, nullptr);
                wrong += ToString(name) != kSeche;
                CFRelease(name);
                CFRelease(bundle);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(0, wrong.load());
    CFRelease(url);
}
