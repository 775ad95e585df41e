// The bundle as a host finds it on disk: a binary that exports exactly the entry point and the
// factory. Then a copy of it with a stand-in "VandrelCocoaViewFactory.bundle" among its
// resources, loaded by the runtime in a process whose locale is French: the unit takes its
// names from the French strings table, looking each up once per process, and reports the view.
#include "VandrelTestHost.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

namespace {

namespace fs = std::filesystem;
using vandrel_test::Instance;

const fs::path kBinary = fs::path(VANDREL_BUNDLE_DIR) / "Contents" / "Linux" / "Vandrel";
std::atomic<int> gLookups{0};

// Runs before any test, and so before the first unit exists.
const bool gFrenchLocale = [] {
    setenv("LANGUAGE", "fr", 1);
    setenv("LC_ALL", "fr_FR.UTF-8", 1);
    setenv("LANG", "fr_FR.UTF-8", 1);
    return true;
}();

} // namespace

// Counts the look-ups in the bundle's strings tables: this program exports this definition,
// which the loaded bundle binds to; it forwards to the object library's.
extern "C" CFStringRef CFBundleCopyLocalizedString(CFBundleRef bundle, CFStringRef key,
                                                   CFStringRef value, CFStringRef tableName)
{
    ++gLookups;
    using Lookup = CFStringRef (*)(CFBundleRef, CFStringRef, CFStringRef, CFStringRef);
    static const auto real =
        reinterpret_cast<Lookup>(dlsym(RTLD_NEXT, "CFBundleCopyLocalizedString"));
    return real(bundle, key, value, tableName);
}

namespace {

TEST(VandrelBundle, BinaryExportsExactlyEntryAndFactory)
{
    FILE* pipe = popen(("nm -D --defined-only '" + kBinary.string() + "'").c_str(), "r");
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

// Where this process keeps its copy; removed after the last test.
fs::path CopyRoot()
{
    return fs::path(::testing::TempDir()) / ("vandrel-view-copy-" + std::to_string(getpid()));
}

class CopyCleanup : public ::testing::Environment
{
public:
    void TearDown() override { fs::remove_all(CopyRoot()); }
};
::testing::Environment* const gCopyCleanup = ::testing::AddGlobalTestEnvironment(new CopyCleanup);

// The copy with its view bundle, made and registered (alone) once per process.
fs::path CopyWithViewBundle()
{
    static const fs::path copy = [] {
        const fs::path bundle = CopyRoot() / "Vandrel.component";
        fs::remove_all(CopyRoot());
        fs::create_directories(CopyRoot());
        fs::copy(VANDREL_BUNDLE_DIR, bundle, fs::copy_options::recursive);
        const fs::path view =
            bundle / "Contents" / "Resources" / "VandrelCocoaViewFactory.bundle" / "Contents";
        fs::create_directories(view);
        std::ofstream(view / "Info.plist")
            << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
               "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key>"
               "<string>org.vandrel.audiounit.VandrelCocoaViewFactory</string></dict></plist>\n";
        vandrel_test::RegisterBundle(bundle);
        return fs::canonical(bundle);
    }();
    return copy;
}

class VandrelCopy : public ::testing::TestWithParam<bool>
{
};

TEST_P(VandrelCopy, NamesComeFromTheFrenchTableLookedUpOncePerProcess)
{
    ASSERT_TRUE(gFrenchLocale);
    CopyWithViewBundle();
    {
        Instance first(!GetParam());
    }
    Instance unit(GetParam());
    // Fifteen preset names and seven parameter names, whatever else this process opened.
    EXPECT_EQ(22, gLookups.load());

    const std::string expected[7] = {
        "Sortie directe",
        "Sortie traitée",
        "Effet",
        "Vitesse de modulation",
        "Profondeur de modulation de l’oscillateur sinusoïdal à très basse fréquence",
        "Fréquence centrale",
        "Résonance"};
    for (AudioUnitParameterID id = 0; id < 7; ++id) {
        AudioUnitParameterInfo info{};
        ASSERT_EQ(noErr, unit.Get(kAudioUnitProperty_ParameterInfo, info, id));
        // The whole name travels as the string; the fixed field holds as much of it as fits.
        // The depth's name is longer than the field and a two-byte character straddles the
        // field's end: the cut falls just before it.
        EXPECT_EQ(expected[id], ToString(info.cfNameString)) << "parameter " << id;
        EXPECT_EQ(id == 4 ? expected[id].substr(0, 50) : expected[id], info.name);
    }
    CFArrayRef presets = nullptr;
    ASSERT_EQ(noErr, unit.Get(kAudioUnitProperty_FactoryPresets, presets));
    const auto* phaser2 = static_cast<const AUPreset*>(CFArrayGetValueAtIndex(presets, 6));
    EXPECT_EQ("Phaseur 2", ToString(phaser2->presetName));
    CFRelease(presets);
    // The current preset takes the localized name.
    ASSERT_EQ(noErr, unit.Set(kAudioUnitProperty_PresentPreset, AUPreset{0, nullptr}));
    AUPreset current{};
    ASSERT_EQ(noErr, unit.Get(kAudioUnitProperty_PresentPreset, current));
    EXPECT_EQ("Par défaut", ToString(current.presetName));
    CFRelease(current.presetName);
}

TEST_P(VandrelCopy, ReportsTheViewBundleAndItsFactoryClass)
{
    CopyWithViewBundle();
    Instance unit(GetParam());
    AudioUnitCocoaViewInfo info{};
    ASSERT_EQ(noErr, unit.Get(kAudioUnitProperty_CocoaUI, info));
    ASSERT_NE(nullptr, info.mCocoaAUViewBundleLocation);
    char path[4096] = {};
    EXPECT_TRUE(CFURLGetFileSystemRepresentation(info.mCocoaAUViewBundleLocation, true,
                                                 reinterpret_cast<UInt8*>(path), sizeof(path)));
    EXPECT_EQ(CopyWithViewBundle() / "Contents" / "Resources" / "VandrelCocoaViewFactory.bundle",
              fs::canonical(path));
    EXPECT_EQ("VandrelCocoaViewFactory", ToString(info.mCocoaAUViewClass[0]));
    // Both are the caller's to release; the unit keeps no reference.
    EXPECT_EQ(1, CFGetRetainCount(info.mCocoaAUViewBundleLocation));
    CFRelease(info.mCocoaAUViewBundleLocation);
    CFRelease(info.mCocoaAUViewClass[0]);
}

INSTANTIATE_TEST_SUITE_P(BothStyles, VandrelCopy, ::testing::Bool());

} // namespace
