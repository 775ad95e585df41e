// Bundles built in a temporary folder: Info.plist values, one object per
// folder, localized strings under changing locales with English fallback,
// resources, and finding the bundle of a plug-in binary loaded with dlopen.
#include "CFTestHelpers.h"

#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace {

void WriteFile(const std::string& path, const std::string& bytes)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string InfoPlist(const std::string& identifier)
{
    return "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>" + identifier +
           "</string><key>CFBundleVersion</key><string>1.2.3</string></dict></plist>\n";
}

CFBundleRef OpenBundle(const std::string& path)
{
    CFURLRef url = CFURLCreateFromFileSystemRepresentation(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()),
        static_cast<CFIndex>(path.size()), true);
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
    CFRelease(url);
    return ok ? std::string(buffer) : std::string("<none>");
}

const char kSeche[] = u8"Sortie s\u00E8che";

class CFBundleTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        unsetenv("LC_ALL"); // the cases set LANG themselves
        unsetenv("LC_MESSAGES");
        char pattern[] = "/tmp/cfbundletestXXXXXX";
        char resolved[4096];
        ASSERT_NE(nullptr, realpath(mkdtemp(pattern), resolved));
        mRoot = resolved;
        mBundlePath = mRoot + "/Effect.component";
        mIdentifier = "com.example.effect." + std::to_string(getpid());
        WriteFile(mBundlePath + "/Contents/Info.plist", InfoPlist(mIdentifier));
        // English and French under their legacy folder names, as the plug-in
        // ships them, and French also under its code, in UTF-16 (little-endian
        // here, big-endian for the units, each with its byte-order mark).
        std::string french = "\xFF\xFE";
        for (char16_t unit : std::u16string(u"/* Noms */\n\"Dry Out\" = \"Sortie s\u00E8che\";\n"
                                            u"// \"Only English\" = \"x\";\n")) {
            french += {static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)};
        }
        std::string units = "\xFE\xFF";
        for (char16_t unit : std::u16string(u"\"Hz\" = \"Hz (fr)\";\n")) {
            units += {static_cast<char>(unit >> 8), static_cast<char>(unit & 0xFF)};
        }
        for (const auto& [file, text] : std::vector<std::pair<std::string, std::string>>{
                 {"English.lproj/Localizable.strings",
                  "/* English names */\n\"Dry Out\" = \"Dry Out\";\n"
                  "\"Only English\" = \"English only\"; // trailing comment\n"
                  "\"Escapes\" = \"Tab\\tQuote\\\"\\U00A91\\101\\n\";\n\"Same\";\n"},
                 {"English.lproj/Broken.strings", "\"Broken\" = \"\\u;\n"},
                 {"fr.lproj/Localizable.strings", french},
                 {"French.lproj/Units.strings", units},
                 {"English.lproj/Units.strings", "\"Hz\" = \"Hertz\";\n\"dB\" = \"decibels\";\n"},
                 {"fr.lproj/Help.txt", "aide"},
                 {"Views/Panel.bundle/marker", ""},
                 {"Icon.png", ""}}) {
            WriteFile(mBundlePath + "/Contents/Resources/" + file, text);
        }
        mBundle = OpenBundle(mBundlePath);
        ASSERT_NE(nullptr, mBundle);
    }

    void TearDown() override
    {
        CFRelease(mBundle);
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

TEST_F(CFBundleTest, LocalizedStringsAndResourcesFollowTheLocaleWithEnglishFallback)
{
    // LANG, an LC_ALL or LC_MESSAGES setting, key, value, table, result.
    const std::tuple<const char*, const char*, const char*, CFStringRef, CFStringRef, const char*>
        cases[] = {
            {"fr_FR.UTF-8", nullptr, "Dry Out", nullptr, nullptr, kSeche},
            {"fr_BE.UTF-8@euro", nullptr, "Dry Out", nullptr, nullptr, kSeche},
            {"fr", nullptr, "Only English", nullptr, nullptr, "English only"},
            {"fr", nullptr, "Nowhere", CFSTR("Default"), nullptr, "Default"},
            {"fr", nullptr, "Hz", nullptr, CFSTR("Units"), "Hz (fr)"},
            {"fr", nullptr, "dB", CFSTR("x"), CFSTR("Units"), "decibels"},
            {"fr_FR", "LC_ALL=en_US.UTF-8", "Dry Out", nullptr, nullptr, "Dry Out"},
            {"en_GB", "LC_MESSAGES=fr_CA", "Dry Out", nullptr, nullptr, kSeche},
            {"fr_FR", "LC_ALL=", "Dry Out", nullptr, nullptr, kSeche},
            {"de_DE.UTF-8", nullptr, "Dry Out", nullptr, nullptr, "Dry Out"},
            {"C", nullptr, "Hz", nullptr, CFSTR("Units"), "Hertz"},
            {"C", nullptr, "Escapes", nullptr, nullptr,
             "Tab\tQuote\"\xC2\xA9"
             "1A\n"},
            {"C", nullptr, "Same", nullptr, nullptr, "Same"},
            {"C", nullptr, "Broken", nullptr, CFSTR("Broken"), "Broken"}, // "\u" without digits
        };
    for (const auto& [lang, locale, key, value, table, expected] : cases) {
        setenv("LANG", lang, 1);
        if (locale != nullptr) {
            putenv(const_cast<char*>(locale)); // a literal: it outlives the setting
        }
        CFStringRef name = NewCFString(key);
        CFStringRef result = CFBundleCopyLocalizedString(mBundle, name, value, table);
        EXPECT_EQ(expected, ToString(result))
            << lang << " " << (locale != nullptr ? locale : "") << " " << key;
        CFRelease(result);
        EXPECT_EQ(1, CFGetRetainCount(name)); // the key was not kept
        CFRelease(name);
        unsetenv("LC_ALL");
        unsetenv("LC_MESSAGES");
    }
    // Resources: unlocalized first, then by language.
    const std::string resources = mBundlePath + "/Contents/Resources/";
    setenv("LANG", "fr", 1);
    EXPECT_EQ(resources + "fr.lproj/Help.txt",
              TakePath(CFBundleCopyResourceURL(mBundle, CFSTR("Help"), CFSTR(".txt"), nullptr)));
    EXPECT_EQ(resources + "Icon.png",
              TakePath(CFBundleCopyResourceURL(mBundle, CFSTR("Icon.png"), nullptr, nullptr)));
    EXPECT_EQ("<none>",
              TakePath(CFBundleCopyResourceURL(mBundle, CFSTR("Help"), CFSTR("pdf"), nullptr)));
    CFURLRef panel =
        CFBundleCopyResourceURL(mBundle, CFSTR("Panel"), CFSTR("bundle"), CFSTR("Views"));
    EXPECT_TRUE(CFURLHasDirectoryPath(panel));
    EXPECT_EQ(resources + "Views/Panel.bundle", TakePath(panel));
}

// Hosts often load a plug-in through links: a folder linked to the bundle's
// binary folder, a version link beside the binary, or a link from elsewhere.
TEST_F(CFBundleTest, FindsTheBundleOfABinaryLoadedThroughLinks)
{
    namespace fs = std::filesystem;
    const std::string suffix = "." + std::to_string(getpid());
    // Each way needs its own copy: the loader hands out one handle per file.
    const struct
    {
        const char* name;
        std::string linkTo;   // what the link created below points to
        std::string loadPath; // what the host passes to dlopen
    } ways[] = {
        {"Folder", "Folder.component/Contents/Linux", mRoot + "/folder-link/Folder"},
        {"Version", "Version.component/Contents/Linux", mRoot + "/version-link/Version.so.1"},
        {"Absolute", mRoot + "/Absolute.component/Contents/Linux/Absolute",
         mRoot + "/libAbsolute.so"},
    };
    std::vector<void*> handles;
    for (const auto& way : ways) {
        const std::string bundle = mRoot + "/" + way.name + ".component";
        const std::string identifier = std::string("com.example.link.") + way.name + suffix;
        WriteFile(bundle + "/Contents/Info.plist", InfoPlist(identifier));
        fs::create_directories(bundle + "/Contents/Linux");
        ASSERT_TRUE(fs::copy_file(CF_TEST_PLUGIN_PATH, bundle + "/Contents/Linux/" + way.name));
        const std::string link = way.loadPath.substr(0, way.loadPath.rfind('/'));
        if (way.linkTo.front() == '/') {
            fs::create_symlink(way.linkTo, way.loadPath);
        } else {
            fs::create_directory_symlink(mRoot + "/" + way.linkTo, link);
        }
        if (std::string(way.name) == "Version") {
            fs::create_symlink(way.name, bundle + "/Contents/Linux/Version.so.1");
        }
        void* handle = dlopen(way.loadPath.c_str(), RTLD_NOW);
        ASSERT_NE(nullptr, handle) << dlerror();
        handles.push_back(handle);
        CFStringRef key = NewCFString(identifier);
        CFBundleRef found = CFBundleGetBundleWithIdentifier(key);
        EXPECT_EQ(bundle, TakePath(CFBundleCopyBundleURL(found))) << way.name;
        CFRelease(key);
    }
    for (void* handle : handles) {
        dlclose(handle);
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
    void* handle = dlopen((mRoot + "/./Loaded.component/Contents/Linux/Loaded").c_str(), RTLD_NOW);
    ASSERT_NE(nullptr, handle) << dlerror();
    CFBundleRef found = CFBundleGetBundleWithIdentifier(key);
    EXPECT_EQ(bundle, TakePath(CFBundleCopyBundleURL(found)));
    // Created afterwards it is the same object, known after its release.
    CFBundleRef created = OpenBundle(bundle);
    EXPECT_EQ(found, created);
    CFRelease(created);
    EXPECT_EQ(found, CFBundleGetBundleWithIdentifier(key));
    CFRelease(key);
    dlclose(handle);
}
