// Bundles built in a temporary folder: Info.plist values, uniqueness,
// localized look-ups under changing locales, resources, and finding the
// bundle of a plug-in binary that was loaded with dlopen.
#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>
#include <string>
#include <vector>

namespace {

void writeFile(const std::string& path, const std::string& bytes)
{
    std::ofstream file(path, std::ios::binary);
    file << bytes;
}

std::string infoPlist(const std::string& identifier, const std::string& executable)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n"
           "<key>CFBundleIdentifier</key><string>" +
           identifier +
           "</string>\n"
           "<key>CFBundleExecutable</key><string>" +
           executable +
           "</string>\n"
           "<key>CFBundleVersion</key><string>1.2.3</string>\n"
           "</dict>\n</plist>\n";
}

// UTF-16 little-endian with a byte-order mark.
std::string utf16WithBOM(const std::u16string& text)
{
    std::string bytes = "\xFF\xFE";
    for (char16_t unit : text) {
        bytes += static_cast<char>(unit & 0xFF);
        bytes += static_cast<char>(unit >> 8);
    }
    return bytes;
}

CFBundleRef openBundle(const std::string& path)
{
    CFURLRef url = CFURLCreateFromFileSystemRepresentation(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()),
        static_cast<CFIndex>(path.size()), true);
    CFBundleRef bundle = CFBundleCreate(kCFAllocatorDefault, url);
    CFRelease(url);
    return bundle;
}

std::string text(CFStringRef string)
{
    char buffer[512];
    return CFStringGetCString(string, buffer, sizeof buffer, kCFStringEncodingUTF8)
               ? std::string(buffer)
               : "<failed>";
}

std::string path(CFURLRef url)
{
    char buffer[4096];
    return CFURLGetFileSystemRepresentation(url, true, reinterpret_cast<UInt8*>(buffer),
                                            sizeof buffer)
               ? std::string(buffer)
               : std::string("<none>");
}

class CFBundleTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
            const char* value = std::getenv(variable);
            mSavedLocale.emplace_back(variable, value != nullptr ? value : "");
            unsetenv(variable);
        }
        char pattern[] = "/tmp/cfbundletestXXXXXX";
        ASSERT_NE(nullptr, mkdtemp(pattern));
        mRoot = pattern;
        char resolved[4096];
        ASSERT_NE(nullptr, realpath(mRoot.c_str(), resolved));
        mRoot = resolved;

        mBundlePath = mRoot + "/Effect.component";
        const std::string resources = mBundlePath + "/Contents/Resources";
        std::filesystem::create_directories(resources + "/en.lproj");
        std::filesystem::create_directories(resources + "/fr.lproj");
        std::filesystem::create_directories(resources + "/Views/Panel.bundle");
        writeFile(mBundlePath + "/Contents/Info.plist",
                  infoPlist("com.example.effect." + std::to_string(getpid()), "Effect"));
        writeFile(resources + "/en.lproj/Localizable.strings",
                  "/* English names */\n"
                  "\"Dry Out\" = \"Dry Out\";\n"
                  "\"Only English\" = \"English only\"; // trailing comment\n"
                  "\"Escapes\" = \"Tab\\tQuote\\\"\\U00E9\\n\";\n"
                  "\"Same\";\n");
        writeFile(resources + "/fr.lproj/Localizable.strings",
                  utf16WithBOM(u"/* Noms français */\n\"Dry Out\" = \"Sortie s\u00E8che\";\n// "
                               u"\"Only English\" = \"x\";\n"));
        writeFile(resources + "/fr.lproj/Units.strings", "\"Hz\" = \"Hz (fr)\";\n");
        writeFile(resources + "/en.lproj/Units.strings",
                  "\"Hz\" = \"Hertz\";\n\"dB\" = \"decibels\";\n");
        writeFile(resources + "/fr.lproj/Help.txt", "aide");
        writeFile(resources + "/en.lproj/Help.txt", "help");
        writeFile(resources + "/Views/Panel.bundle/marker", "");
        writeFile(resources + "/Icon.png", "");

        mBundle = openBundle(mBundlePath);
        ASSERT_NE(nullptr, mBundle);
    }

    void TearDown() override
    {
        if (mBundle != nullptr) {
            CFRelease(mBundle);
        }
        for (const auto& saved : mSavedLocale) {
            if (saved.second.empty()) {
                unsetenv(saved.first.c_str());
            } else {
                setenv(saved.first.c_str(), saved.second.c_str(), 1);
            }
        }
        std::error_code error;
        std::filesystem::remove_all(mRoot, error);
        EXPECT_FALSE(error) << error.message();
    }

    std::string localized(const char* key, CFStringRef value = nullptr, CFStringRef table = nullptr,
                          CFBundleRef bundle = nullptr)
    {
        CFStringRef name =
            CFStringCreateWithCString(kCFAllocatorDefault, key, kCFStringEncodingUTF8);
        CFStringRef result =
            CFBundleCopyLocalizedString(bundle != nullptr ? bundle : mBundle, name, value, table);
        std::string out = text(result);
        CFRelease(result);
        EXPECT_EQ(1, CFGetRetainCount(name)); // the key was not kept
        CFRelease(name);
        return out;
    }

    std::vector<std::pair<std::string, std::string>> mSavedLocale;
    std::string mRoot;
    std::string mBundlePath;
    CFBundleRef mBundle = nullptr;
};

} // namespace

TEST_F(CFBundleTest, InfoDictionaryAndUniqueness)
{
    EXPECT_EQ("com.example.effect." + std::to_string(getpid()),
              text(CFBundleGetIdentifier(mBundle)));
    EXPECT_TRUE(CFEqual(CFSTR("1.2.3"),
                        CFBundleGetValueForInfoDictionaryKey(mBundle, CFSTR("CFBundleVersion"))));
    EXPECT_EQ(nullptr, CFBundleGetValueForInfoDictionaryKey(mBundle, CFSTR("Missing")));

    CFURLRef url = CFBundleCopyBundleURL(mBundle);
    EXPECT_EQ(mBundlePath, path(url));
    CFBundleRef again = CFBundleCreate(kCFAllocatorDefault, url);
    EXPECT_EQ(mBundle, again);
    EXPECT_EQ(2, CFGetRetainCount(mBundle));
    CFRelease(again);
    CFRelease(url);

    CFURLRef executable = CFBundleCopyExecutableURL(mBundle);
    EXPECT_EQ(mBundlePath + "/Contents/Linux/Effect", path(executable));
    CFRelease(executable);

    // Found by identifier while alive, gone once released.
    CFStringRef identifier =
        CFStringCreateCopy(kCFAllocatorDefault, CFBundleGetIdentifier(mBundle));
    EXPECT_EQ(mBundle, CFBundleGetBundleWithIdentifier(identifier));
    EXPECT_EQ(1, CFGetRetainCount(mBundle));
    CFRelease(mBundle);
    mBundle = nullptr;
    EXPECT_EQ(nullptr, CFBundleGetBundleWithIdentifier(identifier));
    CFRelease(identifier);

    CFURLRef missing = CFURLCreateWithFileSystemPath(
        kCFAllocatorDefault, CFSTR("/nonexistent/X.component"), kCFURLPOSIXPathStyle, true);
    EXPECT_EQ(nullptr, CFBundleCreate(kCFAllocatorDefault, missing));
    CFRelease(missing);
}

TEST_F(CFBundleTest, LocalizedStringsFollowTheLocaleWithEnglishFallback)
{
    setenv("LANG", "fr_FR.UTF-8", 1);
    EXPECT_EQ("Sortie s\xC3\xA8"
              "che",
              localized("Dry Out"));
    EXPECT_EQ("English only", localized("Only English")); // missing in French
    EXPECT_EQ("Default", localized("Nowhere", CFSTR("Default")));
    EXPECT_EQ("Nowhere", localized("Nowhere"));
    EXPECT_EQ("Nowhere", localized("Nowhere", CFSTR("")));
    EXPECT_EQ("Hz (fr)", localized("Hz", nullptr, CFSTR("Units")));
    EXPECT_EQ("decibels", localized("dB", nullptr, CFSTR("Units")));
    EXPECT_EQ("Wanted", localized("Wanted", nullptr, CFSTR("NoSuchTable")));

    // LC_ALL wins over LANG, LC_MESSAGES over LANG; read at every call.
    setenv("LC_ALL", "en_US.UTF-8", 1);
    EXPECT_EQ("Dry Out", localized("Dry Out"));
    unsetenv("LC_ALL");
    setenv("LC_MESSAGES", "fr_CA", 1);
    setenv("LANG", "en_GB", 1);
    EXPECT_EQ("Sortie s\xC3\xA8"
              "che",
              localized("Dry Out"));
    unsetenv("LC_MESSAGES");

    // A language the bundle lacks, or the C locale, falls back to English.
    setenv("LANG", "de_DE.UTF-8", 1);
    EXPECT_EQ("Dry Out", localized("Dry Out"));
    setenv("LANG", "C", 1);
    EXPECT_EQ("English only", localized("Only English"));
    EXPECT_EQ("Tab\tQuote\"\xC3\xA9\n", localized("Escapes"));
    EXPECT_EQ("Same", localized("Same"));
}

TEST_F(CFBundleTest, LegacyLanguageFolderNames)
{
    const std::string legacy = mRoot + "/Legacy.bundle";
    std::filesystem::create_directories(legacy + "/Contents/Resources/French.lproj");
    std::filesystem::create_directories(legacy + "/Contents/Resources/English.lproj");
    writeFile(legacy + "/Contents/Info.plist", infoPlist("com.example.legacy", "Legacy"));
    writeFile(legacy + "/Contents/Resources/French.lproj/Localizable.strings",
              "\"Rate\" = \"Vitesse\";");
    writeFile(legacy + "/Contents/Resources/English.lproj/Localizable.strings",
              "\"Rate\" = \"Rate (Hz)\";");
    CFBundleRef bundle = openBundle(legacy);
    ASSERT_NE(nullptr, bundle);
    setenv("LANG", "fr_BE.UTF-8", 1);
    EXPECT_EQ("Vitesse", localized("Rate", nullptr, nullptr, bundle));
    setenv("LANG", "it_IT.UTF-8", 1);
    EXPECT_EQ("Rate (Hz)", localized("Rate", nullptr, nullptr, bundle));
    CFRelease(bundle);
}

TEST_F(CFBundleTest, ResourcesUnlocalizedFirstThenByLanguage)
{
    setenv("LANG", "fr_FR.UTF-8", 1);
    CFURLRef help = CFBundleCopyResourceURL(mBundle, CFSTR("Help"), CFSTR("txt"), nullptr);
    EXPECT_EQ(mBundlePath + "/Contents/Resources/fr.lproj/Help.txt", path(help));
    CFRelease(help);
    setenv("LANG", "en_US", 1);
    help = CFBundleCopyResourceURL(mBundle, CFSTR("Help"), CFSTR(".txt"), nullptr);
    EXPECT_EQ(mBundlePath + "/Contents/Resources/en.lproj/Help.txt", path(help));
    CFRelease(help);

    CFURLRef icon = CFBundleCopyResourceURL(mBundle, CFSTR("Icon.png"), nullptr, nullptr);
    EXPECT_EQ(mBundlePath + "/Contents/Resources/Icon.png", path(icon));
    EXPECT_FALSE(CFURLHasDirectoryPath(icon));
    CFRelease(icon);

    CFURLRef panel =
        CFBundleCopyResourceURL(mBundle, CFSTR("Panel"), CFSTR("bundle"), CFSTR("Views"));
    EXPECT_EQ(mBundlePath + "/Contents/Resources/Views/Panel.bundle", path(panel));
    EXPECT_TRUE(CFURLHasDirectoryPath(panel));
    CFRelease(panel);

    EXPECT_EQ(nullptr, CFBundleCopyResourceURL(mBundle, CFSTR("Panel"), CFSTR("bundle"), nullptr));
    EXPECT_EQ(nullptr, CFBundleCopyResourceURL(mBundle, CFSTR("Missing"), CFSTR("txt"), nullptr));
}

TEST_F(CFBundleTest, FindsTheBundleOfADlopenedBinary)
{
    const std::string bundle = mRoot + "/Loaded.component";
    const std::string identifier = "com.example.loaded." + std::to_string(getpid());
    std::filesystem::create_directories(bundle + "/Contents/Linux");
    writeFile(bundle + "/Contents/Info.plist", infoPlist(identifier, "Loaded"));
    ASSERT_TRUE(std::filesystem::copy_file(CF_TEST_PLUGIN_PATH, bundle + "/Contents/Linux/Loaded"));
    CFStringRef key =
        CFStringCreateWithCString(kCFAllocatorDefault, identifier.c_str(), kCFStringEncodingUTF8);
    EXPECT_EQ(nullptr, CFBundleGetBundleWithIdentifier(key)); // not loaded yet

    // Loaded the way a host would, through a path with extra components.
    const std::string loadPath = mRoot + "/./Loaded.component/Contents/Linux/Loaded";
    void* handle = dlopen(loadPath.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(nullptr, handle) << dlerror();
    CFBundleRef found = CFBundleGetBundleWithIdentifier(key);
    ASSERT_NE(nullptr, found);
    CFURLRef url = CFBundleCopyBundleURL(found);
    EXPECT_EQ(bundle, path(url));
    EXPECT_EQ(found, CFBundleGetBundleWithIdentifier(key));

    // Creating it afterwards yields the same object; the executable resolves.
    CFBundleRef created = CFBundleCreate(kCFAllocatorDefault, url);
    EXPECT_EQ(found, created);
    auto answer = reinterpret_cast<int (*)(void)>(
        CFBundleGetFunctionPointerForName(created, CFSTR("CFTestPlugInAnswer")));
    ASSERT_NE(nullptr, answer);
    EXPECT_EQ(42, answer());
    EXPECT_EQ(nullptr, CFBundleGetFunctionPointerForName(created, CFSTR("NoSuchFunction")));
    CFRelease(created);
    // Bundles of loaded binaries stay known after callers release them.
    EXPECT_EQ(found, CFBundleGetBundleWithIdentifier(key));

    CFRelease(url);
    CFRelease(key);
    dlclose(handle);
}

TEST_F(CFBundleTest, ConcurrentCreateReleaseAndLookups)
{
    setenv("LANG", "fr_FR.UTF-8", 1);
    CFURLRef url = CFBundleCopyBundleURL(mBundle);
    CFRelease(mBundle);
    mBundle = nullptr;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([url, &wrong] {
            for (int i = 0; i < 200; ++i) {
                CFBundleRef bundle = CFBundleCreate(kCFAllocatorDefault, url);
                CFStringRef name =
                    CFBundleCopyLocalizedString(bundle, CFSTR("Dry Out"), nullptr, nullptr);
                if (!CFEqual(name, CFSTR("Sortie s\xC3\xA8"
                                         "che"))) {
                    ++wrong;
                }
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
