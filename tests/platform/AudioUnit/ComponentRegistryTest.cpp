/* Bundles are found in the folders of AU_COMPONENT_PATH and the home
   plug-in folder (through symbolic links), named by the host, or registered
   in-process; broken bundles are skipped without hiding the others. */
#include <AudioUnit/AudioUnit.h>
#include <CoreServices/CoreServices.h>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "TestGainUnit.h"

namespace {

constexpr OSType kFolderSubtype = 0x67666C64;          // 'gfld'
constexpr OSType kSingleSubtype = 0x6773676C;          // 'gsgl'
constexpr OSType kLinkedSubtype = 0x676C6E6B;          // 'glnk'
constexpr OSType kExplicitSubtype = 0x67657870;        // 'gexp'
constexpr OSType kRegisteredSubtype = 0x67726567;      // 'greg'
constexpr OSType kEntryRegisteredSubtype = 0x6772636D; // 'grcm'

std::string FourChars(OSType code)
{
    return std::string{static_cast<char>(code >> 24), static_cast<char>(code >> 16),
                       static_cast<char>(code >> 8), static_cast<char>(code)};
}

void WriteFile(const std::string& path, const std::string& text)
{
    std::ofstream(path) << text;
}

/* A bundle at path with one component of the given subtype, whose binary is
   a symbolic link to the test gain binary. */
void MakeBundle(const std::string& path, OSType subtype, const std::string& executable = "TestGain")
{
    std::filesystem::create_directories(path + "/Contents/Linux");
    WriteFile(path + "/Contents/Info.plist",
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
              "<key>CFBundleExecutable</key><string>" +
                  executable +
                  "</string>"
                  "<key>AudioComponents</key><array><dict>"
                  "<key>type</key><string>aufx</string>"
                  "<key>subtype</key><string>" +
                  FourChars(subtype) +
                  "</string>"
                  "<key>manufacturer</key><string>Vtst</string>"
                  "<key>name</key><string>Scanned</string>"
                  "<key>version</key><integer>7</integer>"
                  "<key>factoryFunction</key><string>TestGainFactory</string>"
                  "<key>entryFunction</key><string>TestGainEntry</string>"
                  "</dict></array></dict></plist>\n");
    std::filesystem::create_symlink(TEST_GAIN_BINARY, path + "/Contents/Linux/TestGain");
}

AudioComponentDescription Describe(OSType subtype)
{
    return AudioComponentDescription{kAudioUnitType_Effect, subtype, kTestGainManufacturer, 0, 0};
}

UInt32 CountOf(OSType subtype)
{
    AudioComponentDescription description = Describe(subtype);
    return AudioComponentCount(&description);
}

/* Opens the component both ways and closes it again. */
void ExpectOpensBothWays(OSType subtype)
{
    AudioComponentDescription description = Describe(subtype);
    AudioComponent component = AudioComponentFindNext(nullptr, &description);
    ASSERT_NE(component, nullptr) << FourChars(subtype);
    AudioComponentInstance instance = nullptr;
    ASSERT_EQ(AudioComponentInstanceNew(component, &instance), noErr);
    EXPECT_EQ(AudioUnitInitialize(instance), noErr);
    EXPECT_EQ(AudioComponentInstanceDispose(instance), noErr);

    ComponentDescription looking;
    std::memcpy(&looking, &description, sizeof(looking));
    Component cmComponent = FindNextComponent(nullptr, &looking);
    ASSERT_EQ(reinterpret_cast<void*>(cmComponent), reinterpret_cast<void*>(component));
    ComponentInstance ci = nullptr;
    ASSERT_EQ(OpenAComponent(cmComponent, &ci), noErr);
    EXPECT_EQ(AudioUnitInitialize(ci), noErr);
    EXPECT_EQ(CloseComponent(ci), noErr);
}

class ComponentRegistryTest : public ::testing::Test
{
protected:
    /* Builds the folders before the first look-up of the process, which
       scans them once. */
    static void SetUpTestSuite()
    {
        char pattern[] = "/tmp/au-scan-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        sRoot = pattern;

        std::string folder = sRoot + "/env/Folder";
        MakeBundle(folder + "/FolderGain.component", kFolderSubtype);
        MakeBundle(folder + "/Broken.component", 0x67627276, "Missing"); // binary missing
        std::filesystem::create_directories(folder + "/Garbage.component/Contents");
        WriteFile(folder + "/Garbage.component/Contents/Info.plist", "this is not a property list");
        WriteFile(folder + "/Notes.txt", "not a bundle");
        MakeBundle(sRoot + "/env/Single.component", kSingleSubtype);

        // The home plug-in folder is a symbolic link, and so is the bundle in
        // the folder it points to.
        MakeBundle(sRoot + "/real/Linked.component", kLinkedSubtype);
        std::filesystem::create_directories(sRoot + "/linked");
        std::filesystem::create_directory_symlink(sRoot + "/real/Linked.component",
                                                  sRoot + "/linked/Linked.component");
        std::filesystem::create_directories(sRoot + "/home/Library/Audio/Plug-Ins");
        std::filesystem::create_directory_symlink(
            sRoot + "/linked", sRoot + "/home/Library/Audio/Plug-Ins/Components");

        MakeBundle(sRoot + "/explicit/Explicit.component", kExplicitSubtype);

        std::string path =
            folder + "::" + sRoot + "/env/Single.component:" + sRoot + "/does-not-exist";
        setenv("AU_COMPONENT_PATH", path.c_str(), 1);
        setenv("HOME", (sRoot + "/home").c_str(), 1);
    }

    static void TearDownTestSuite()
    {
        std::error_code error;
        std::filesystem::remove_all(sRoot, error);
        EXPECT_FALSE(error) << error.message();
    }

    static std::string sRoot;
};

std::string ComponentRegistryTest::sRoot;

TEST_F(ComponentRegistryTest, FindsBundlesInPathFoldersPathBundlesAndTheLinkedHomeFolder)
{
    EXPECT_EQ(CountOf(kFolderSubtype), 1u);
    EXPECT_EQ(CountOf(kSingleSubtype), 1u);
    EXPECT_EQ(CountOf(kLinkedSubtype), 1u);
    EXPECT_EQ(CountOf(kExplicitSubtype), 0u);
    for (OSType subtype : {kFolderSubtype, kSingleSubtype, kLinkedSubtype}) {
        ExpectOpensBothWays(subtype);
    }
    // Scanned in order: the path's folder, then its bundle, then home.
    AudioComponentDescription any = {kAudioUnitType_Effect, 0, kTestGainManufacturer, 0, 0};
    AudioComponent first = AudioComponentFindNext(nullptr, &any);
    AudioComponentDescription description;
    ASSERT_EQ(AudioComponentGetDescription(first, &description), noErr);
    EXPECT_EQ(description.componentSubType, kFolderSubtype);
}

TEST_F(ComponentRegistryTest, BrokenBundlesAreSkippedAndReportedWhenNamed)
{
    EXPECT_EQ(CountOf(0x67627276), 0u);
    EXPECT_EQ(AudioComponentRegisterBundle((sRoot + "/env/Folder/Broken.component").c_str()),
              kAudioUnitErr_InvalidFile);
    EXPECT_EQ(AudioComponentRegisterBundle((sRoot + "/env/Folder/Garbage.component").c_str()),
              kAudioUnitErr_InvalidFile);
    EXPECT_EQ(AudioComponentRegisterBundle((sRoot + "/env/Folder/Notes.txt").c_str()),
              kAudioUnitErr_InvalidFile);
    EXPECT_EQ(AudioComponentRegisterBundle((sRoot + "/nothing-here.component").c_str()), fnfErr);
    EXPECT_EQ(AudioComponentRegisterBundle(nullptr), paramErr);
}

TEST_F(ComponentRegistryTest, NamedBundleRegistersItsComponentsOnce)
{
    std::string bundle = sRoot + "/explicit/Explicit.component";
    ASSERT_EQ(AudioComponentRegisterBundle(bundle.c_str()), noErr);
    EXPECT_EQ(CountOf(kExplicitSubtype), 1u);
    ExpectOpensBothWays(kExplicitSubtype);

    // Again, through another spelling of the path and through a link.
    std::string link = sRoot + "/explicit-link.component";
    std::filesystem::create_directory_symlink(bundle, link);
    EXPECT_EQ(AudioComponentRegisterBundle(bundle.c_str()), noErr);
    EXPECT_EQ(
        AudioComponentRegisterBundle((sRoot + "/explicit/../explicit/Explicit.component").c_str()),
        noErr);
    EXPECT_EQ(AudioComponentRegisterBundle(link.c_str()), noErr);
    EXPECT_EQ(CountOf(kExplicitSubtype), 1u);
    // A bundle the scan already loaded is not loaded twice either.
    EXPECT_EQ(AudioComponentRegisterBundle((sRoot + "/env/Single.component").c_str()), noErr);
    EXPECT_EQ(CountOf(kSingleSubtype), 1u);
}

TEST_F(ComponentRegistryTest, InProcessRegistrationsAreListedAndOpenInTheirStyle)
{
    void* binary = dlopen(TEST_GAIN_BINARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(binary, nullptr);
    auto factory =
        reinterpret_cast<AudioComponentFactoryFunction>(dlsym(binary, "TestGainFactory"));
    auto entry = reinterpret_cast<ComponentRoutineUPP>(dlsym(binary, "TestGainEntry"));
    ASSERT_NE(factory, nullptr);
    ASSERT_NE(entry, nullptr);

    AudioComponentDescription registered = Describe(kRegisteredSubtype);
    CFStringRef name =
        CFStringCreateWithCString(kCFAllocatorDefault, "Registered", kCFStringEncodingUTF8);
    AudioComponent component = AudioComponentRegister(&registered, name, 5, factory);
    CFRelease(name);
    ASSERT_NE(component, nullptr);
    EXPECT_EQ(AudioComponentFindNext(nullptr, &registered), component);
    ComponentDescription looking;
    std::memcpy(&looking, &registered, sizeof(looking));
    EXPECT_EQ(FindNextComponent(nullptr, &looking), nullptr); // no entry function
    CFStringRef copied = nullptr;
    ASSERT_EQ(AudioComponentCopyName(component, &copied), noErr);
    char text[32] = {};
    ASSERT_TRUE(CFStringGetCString(copied, text, sizeof(text), kCFStringEncodingUTF8));
    EXPECT_STREQ(text, "Registered");
    CFRelease(copied);

    ComponentDescription entryDescription = {kAudioUnitType_Effect, kEntryRegisteredSubtype,
                                             kTestGainManufacturer, 0, 0};
    unsigned char pascalName[] = "\x0A"
                                 "Registered";
    Ptr nameBytes = reinterpret_cast<Ptr>(pascalName);
    Component cmComponent =
        RegisterComponent(&entryDescription, entry, 0, &nameBytes, nullptr, nullptr);
    ASSERT_NE(cmComponent, nullptr);
    EXPECT_EQ(FindNextComponent(nullptr, &entryDescription), cmComponent);
    ExpectOpensBothWays(kEntryRegisteredSubtype);
    unsigned char readBack[256] = {};
    Ptr readBytes = reinterpret_cast<Ptr>(readBack);
    ASSERT_EQ(GetComponentInfo(cmComponent, nullptr, &readBytes, nullptr, nullptr), noErr);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(readBack + 1), readBack[0]), "Registered");

    EXPECT_EQ(AudioComponentRegister(nullptr, nullptr, 0, factory), nullptr);
    EXPECT_EQ(RegisterComponent(&entryDescription, nullptr, 0, nullptr, nullptr, nullptr), nullptr);
}

} // namespace
