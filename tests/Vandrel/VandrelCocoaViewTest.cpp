// The editor view answer of a bundle that carries a view bundle among its
// resources: a copy of the built bundle with a stand-in
// "VandrelCocoaViewFactory.bundle" added, loaded by the runtime in place of
// the original.
#include "VandrelTestHost.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

using namespace vandrel_test;

namespace {

namespace fs = std::filesystem;

// Where this process keeps its copy.
fs::path CopyRoot()
{
    return fs::path(::testing::TempDir()) / ("vandrel-view-copy-" + std::to_string(getpid()));
}

// Removes the copy after the last test.
class CopyCleanup : public ::testing::Environment
{
public:
    void TearDown() override { fs::remove_all(CopyRoot()); }
};
::testing::Environment* const gCopyCleanup = ::testing::AddGlobalTestEnvironment(new CopyCleanup);

// The copy, made and registered once per process.
fs::path CopyWithViewBundle()
{
    static const fs::path copy = [] {
        const fs::path root = CopyRoot();
        fs::remove_all(root);
        const fs::path bundle = root / "Vandrel.component";
        fs::create_directories(root);
        fs::copy(VANDREL_BUNDLE_DIR, bundle, fs::copy_options::recursive);
        const fs::path view =
            bundle / "Contents" / "Resources" / "VandrelCocoaViewFactory.bundle" / "Contents";
        fs::create_directories(view);
        std::ofstream(view / "Info.plist")
            << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
               "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key>"
               "<string>org.vandrel.audiounit.VandrelCocoaViewFactory</string></dict></plist>\n";
        setenv("HOME", (root / "home").c_str(), 1);
        unsetenv("AU_COMPONENT_PATH");
        EXPECT_EQ(noErr, AudioComponentRegisterBundle(bundle.c_str()));
        return fs::canonical(bundle);
    }();
    return copy;
}

std::string Path(CFURLRef inURL)
{
    char buffer[4096] = {};
    EXPECT_TRUE(CFURLGetFileSystemRepresentation(inURL, true, reinterpret_cast<UInt8*>(buffer),
                                                 sizeof(buffer)));
    return buffer;
}

class VandrelCocoaView : public ::testing::TestWithParam<bool>
{
};

TEST_P(VandrelCocoaView, ReportsTheViewBundleAndItsFactoryClass)
{
    const fs::path bundle = CopyWithViewBundle();
    std::unique_ptr<Instance> unit;
    if (GetParam()) {
        ComponentDescription desc{kType, kSubtype, kManufacturer, 0, 0};
        unit = std::make_unique<Instance>(FindNextComponent(nullptr, &desc));
    } else {
        const AudioComponentDescription desc = UnitDescription();
        unit = std::make_unique<Instance>(AudioComponentFindNext(nullptr, &desc));
    }
    ASSERT_EQ(noErr, unit->openStatus());

    AudioUnitCocoaViewInfo info{};
    UInt32 size = sizeof(info);
    ASSERT_EQ(noErr, AudioUnitGetProperty(unit->unit(), kAudioUnitProperty_CocoaUI,
                                          kAudioUnitScope_Global, 0, &info, &size));
    EXPECT_EQ(sizeof(info), size);
    ASSERT_NE(nullptr, info.mCocoaAUViewBundleLocation);
    ASSERT_NE(nullptr, info.mCocoaAUViewClass[0]);
    EXPECT_EQ(fs::canonical(bundle / "Contents" / "Resources" / "VandrelCocoaViewFactory.bundle"),
              fs::canonical(Path(info.mCocoaAUViewBundleLocation)));
    char name[64] = {};
    CFStringGetCString(info.mCocoaAUViewClass[0], name, sizeof(name), kCFStringEncodingUTF8);
    EXPECT_STREQ("VandrelCocoaViewFactory", name);
    // Both are the caller's to release; the unit keeps no reference.
    EXPECT_EQ(1, CFGetRetainCount(info.mCocoaAUViewBundleLocation));
    CFRelease(info.mCocoaAUViewBundleLocation);
    CFRelease(info.mCocoaAUViewClass[0]);
}

INSTANTIATE_TEST_SUITE_P(BothStyles, VandrelCocoaView, ::testing::Bool());

} // namespace
