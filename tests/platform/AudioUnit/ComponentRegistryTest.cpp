/* The runtime's component registry: bundles found in the folders and
   bundles of AU_COMPONENT_PATH and in the home plug-in folder (through
   symbolic links) or named by the host, broken bundles and entries skipped,
   in-process registrations in both hosting styles, look-ups by description,
   and the statuses of refused calls. The bundles made here carry the built
   plug-in's binary under descriptions of their own. */
#include <AudioUnit/AudioUnit.h>
#include <CoreServices/CoreServices.h>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <tuple>
#include <vector>

#include "CFTestHelpers.h"

namespace fs = std::filesystem;

namespace {

constexpr OSType kVtst = 0x56747374; // 'Vtst', the manufacturer of every test component
const std::string kFactory = "<key>factoryFunction</key><string>VandrelFactory</string>";
const std::string kEntry = "<key>entryFunction</key><string>VandrelEntry</string>";

OSType Code(const char* text)
{
    return OSType(text[0]) << 24 | OSType(text[1]) << 16 | OSType(text[2]) << 8 | OSType(text[3]);
}

/* One AudioComponents entry of manufacturer Vtst. */
std::string Entry(const std::string& subtype, const std::string& functions = kFactory + kEntry,
                  const std::string& type = "aufx")
{
    return "<dict><key>type</key><string>" + type + "</string><key>subtype</key><string>" +
           subtype + "</string><key>manufacturer</key><string>Vtst</string><key>name</key>" +
           "<string>Test " + subtype + "</string><key>version</key><integer>7</integer>" +
           functions + "</dict>";
}

/* A bundle at path listing entries, whose binary links to the plug-in's. */
void MakeBundle(const std::string& path, const std::string& entries,
                const std::string& executable = "Vandrel")
{
    fs::create_directories(path + "/Contents/Linux");
    std::ofstream(path + "/Contents/Info.plist")
        << "<plist version=\"1.0\"><dict><key>CFBundleExecutable</key><string>" << executable
        << "</string><key>AudioComponents</key><array>" << entries << "</array></dict></plist>\n";
    fs::create_symlink(VANDREL_BUNDLE_DIR "/Contents/Linux/Vandrel",
                       path + "/Contents/Linux/Vandrel");
}

AudioComponent Find(const char* subtype)
{
    AudioComponentDescription description = {kAudioUnitType_Effect, Code(subtype), kVtst, 0, 0};
    return AudioComponentFindNext(nullptr, &description);
}

/* Opens the component in the given style, initializes the unit, checks what
   the runtime tells about it, routes the highest selector, and closes it
   through the other API. */
void ExpectOpensAndCloses(void* component, bool componentManager)
{
    ComponentInstance unit = nullptr;
    ASSERT_EQ(noErr, componentManager ? OpenAComponent(static_cast<Component>(component), &unit)
                                      : AudioComponentInstanceNew(
                                            static_cast<AudioComponent>(component), &unit));
    EXPECT_EQ(noErr, AudioUnitInitialize(unit));
    EXPECT_EQ(component, AudioComponentInstanceGetComponent(unit));
    ComponentDescription info = {};
    EXPECT_EQ(noErr, GetComponentInfo(reinterpret_cast<Component>(unit), &info, nullptr, nullptr,
                                      nullptr));
    EXPECT_EQ(kVtst, info.componentManufacturer);
    auto listener = [](void*, AudioUnit, AudioUnitPropertyID, AudioUnitScope, AudioUnitElement) {};
    EXPECT_EQ(noErr,
              AudioUnitAddPropertyListener(unit, kAudioUnitProperty_Latency, listener, &info));
    EXPECT_EQ(noErr, AudioUnitRemovePropertyListenerWithUserData(unit, kAudioUnitProperty_Latency,
                                                                 listener, &info));
    EXPECT_EQ(noErr, componentManager ? AudioComponentInstanceDispose(unit) : CloseComponent(unit));
}

class ComponentRegistryTest : public ::testing::Test
{
protected:
    /* Builds the folders before the first look-up of the process, which
       scans them once. */
    static void SetUpTestSuite()
    {
        char pattern[] = "/tmp/au-scan-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(pattern));
        sRoot = pattern;
        const std::string folder = sRoot + "/path/Folder";
        // Entries without a loadable function or with a malformed code are
        // left out; the rest of their bundle loads.
        MakeBundle(folder + "/A.component",
                   Entry("gbth") + Entry("gfac", kFactory) + Entry("gent", kEntry) +
                       Entry("gmis", "<key>factoryFunction</key><string>NoSuch</string>") +
                       Entry("gbad", kFactory, "effect") + Entry("gnon", "") +
                       "<string>not a dictionary</string>");
        MakeBundle(folder + "/B.component", Entry("gfl2", kFactory) + Entry("g ~~", kFactory));
        MakeBundle(folder + "/Broken.component", Entry("gbrk"), "Missing");
        MakeBundle(folder + "/Empty.component", Entry("gmis", ""));
        std::ofstream(folder + "/Notes.txt") << "not a bundle";
        MakeBundle(sRoot + "/path/Single.component", Entry("gsgl"));
        // The home plug-in folder is a link, and so is the bundle in it.
        MakeBundle(sRoot + "/real/Linked.component", Entry("glnk", kEntry));
        fs::create_directories(sRoot + "/linked");
        fs::create_directory_symlink(sRoot + "/real/Linked.component",
                                     sRoot + "/linked/Linked.component");
        fs::create_directories(sRoot + "/home/Library/Audio/Plug-Ins");
        fs::create_directory_symlink(sRoot + "/linked",
                                     sRoot + "/home/Library/Audio/Plug-Ins/Components");
        MakeBundle(sRoot + "/named/Named.component", Entry("gnam"));
        const std::string path = folder + "::" + sRoot + "/path/Single.component:/nonexistent";
        setenv("AU_COMPONENT_PATH", path.c_str(), 1);
        setenv("HOME", (sRoot + "/home").c_str(), 1);
    }

    static void TearDownTestSuite() { fs::remove_all(sRoot); }

    static std::string sRoot;
};

std::string ComponentRegistryTest::sRoot;

TEST_F(ComponentRegistryTest, ScansPathFoldersPathBundlesAndTheLinkedHomeFolderInOrder)
{
    std::vector<std::string> listed;
    AudioComponentDescription any = {0, 0, kVtst, 0, 0};
    for (AudioComponent c = nullptr; (c = AudioComponentFindNext(c, &any)) != nullptr;) {
        CFStringRef name = nullptr;
        UInt32 version = 0;
        EXPECT_EQ(noErr, AudioComponentCopyName(c, &name));
        EXPECT_EQ(noErr, AudioComponentGetVersion(c, &version));
        listed.push_back(ToString(name) + " " + std::to_string(version));
        CFRelease(name);
    }
    EXPECT_EQ(listed,
              (std::vector<std::string>{"Test gbth 7", "Test gfac 7", "Test gent 7", "Test gfl2 7",
                                        "Test g ~~ 7", "Test gsgl 7", "Test glnk 7"}));
    EXPECT_EQ(7u, AudioComponentCount(&any));

    // The Component Manager finds only components with an entry function.
    ComponentDescription entries = {0, 0, kVtst, 0, 0};
    Component first = FindNextComponent(nullptr, &entries);
    EXPECT_EQ(reinterpret_cast<Component>(Find("gbth")), first);
    EXPECT_EQ(reinterpret_cast<Component>(Find("gent")), FindNextComponent(first, &entries));

    for (const char* subtype : {"gbth", "g ~~", "gfac", "gent", "gsgl", "glnk"}) {
        SCOPED_TRACE(subtype);
        ExpectOpensAndCloses(Find(subtype), false);
    }
    ExpectOpensAndCloses(Find("glnk"), true);
    ComponentInstance unit = nullptr;
    EXPECT_EQ(invalidComponentID, OpenAComponent(reinterpret_cast<Component>(Find("gfac")), &unit));
}

TEST_F(ComponentRegistryTest, NamedBundlesRegisterOnceOrReportWhyNot)
{
    const std::string folder = sRoot + "/path/Folder";
    const std::pair<std::string, OSStatus> cases[] = {
        {folder + "/Broken.component", kAudioUnitErr_InvalidFile},
        {folder + "/Empty.component", kAudioUnitErr_InvalidFile},
        {folder + "/Notes.txt", kAudioUnitErr_InvalidFile},
        {sRoot + "/nothing-here.component", fnfErr},
        {sRoot + "/named/Named.component", noErr},
        // Again, through other spellings of the path and through a link.
        {sRoot + "/named/../named/Named.component", noErr},
        {sRoot + "/linked/Linked.component", noErr},
    };
    for (const auto& [path, status] : cases) {
        EXPECT_EQ(status, AudioComponentRegisterBundle(path.c_str())) << path;
    }
    EXPECT_EQ(paramErr, AudioComponentRegisterBundle(nullptr));
    for (const char* subtype : {"gnam", "glnk"}) {
        AudioComponentDescription description = {0, Code(subtype), 0, 0, 0};
        EXPECT_EQ(1u, AudioComponentCount(&description)) << subtype;
    }
    ExpectOpensAndCloses(Find("gnam"), true);
    // The registry keeps exactly one reference to a registered name, and the
    // loaded bundle's Info.plist one more.
    CFStringRef name = nullptr;
    ASSERT_EQ(noErr, AudioComponentCopyName(Find("gnam"), &name));
    EXPECT_EQ(3, CFGetRetainCount(name));
    CFRelease(name);
}

TEST_F(ComponentRegistryTest, InProcessRegistrationsOpenInTheirStyleOrReportTheirFailure)
{
    void* binary = dlopen(VANDREL_BUNDLE_DIR "/Contents/Linux/Vandrel", RTLD_NOW | RTLD_LOCAL);
    auto factory = reinterpret_cast<AudioComponentFactoryFunction>(dlsym(binary, "VandrelFactory"));
    auto entry = reinterpret_cast<ComponentRoutineUPP>(dlsym(binary, "VandrelEntry"));
    AudioComponentDescription description = {kAudioUnitType_Effect, Code("rfac"), kVtst, 0, 0};
    unsigned char pascal[] = "\7Entered"; // length byte, then the text
    Ptr name = reinterpret_cast<Ptr>(pascal);
    ComponentDescription cm = {kAudioUnitType_Effect, Code("rent"), kVtst, 0, 0};
    Component entered = RegisterComponent(&cm, entry, 0, &name, nullptr, nullptr);
    EXPECT_EQ(entered, FindNextComponent(nullptr, &cm));
    CFStringRef copied = nullptr;
    ASSERT_EQ(noErr, AudioComponentCopyName(reinterpret_cast<AudioComponent>(entered), &copied));
    EXPECT_EQ("Entered", ToString(copied));
    CFRelease(copied);
    ExpectOpensAndCloses(entered, false); // through the factory's API

    // A failed open leaves no instance, and its status comes back.
    static AudioComponentPlugInInterface failing = {[](void*, AudioComponentInstance) -> OSStatus {
                                                        return kAudioUnitErr_FailedInitialization;
                                                    },
                                                    nullptr, nullptr, nullptr};
    const AudioComponentFactoryFunction failingFactory = [](const AudioComponentDescription*) {
        return &failing;
    };
    const AudioComponentFactoryFunction noRecord =
        [](const AudioComponentDescription*) -> AudioComponentPlugInInterface* { return nullptr; };
    const ComponentRoutineUPP failingEntry = [](ComponentParameters*, Handle) -> ComponentResult {
        return kAudioUnitErr_FailedInitialization;
    };
    const std::tuple<void*, bool, OSStatus> failures[] = {
        {AudioComponentRegister(&description, nullptr, 0, failingFactory), false,
         kAudioUnitErr_FailedInitialization},
        {AudioComponentRegister(&description, nullptr, 0, noRecord), false, memFullErr},
        {RegisterComponent(&cm, failingEntry, 0, nullptr, nullptr, nullptr), true,
         kAudioUnitErr_FailedInitialization},
        {RegisterComponent(&cm, failingEntry, 0, nullptr, nullptr, nullptr), false,
         kAudioUnitErr_FailedInitialization},
    };
    for (const auto& [component, componentManager, status] : failures) {
        ComponentInstance unit = reinterpret_cast<ComponentInstance>(&description);
        EXPECT_EQ(status,
                  componentManager
                      ? OpenAComponent(static_cast<Component>(component), &unit)
                      : AudioComponentInstanceNew(static_cast<AudioComponent>(component), &unit));
        EXPECT_EQ(nullptr, unit);
    }
    CFStringRef unnamed = nullptr;
    ASSERT_EQ(noErr, AudioComponentCopyName(static_cast<AudioComponent>(std::get<0>(failures[0])),
                                            &unnamed));
    EXPECT_EQ("", ToString(unnamed));
    CFRelease(unnamed);
    EXPECT_EQ(nullptr, AudioComponentRegister(nullptr, nullptr, 0, factory));
    EXPECT_EQ(nullptr, AudioComponentRegister(&description, nullptr, 0, nullptr));
    EXPECT_EQ(nullptr, RegisterComponent(&cm, nullptr, 0, nullptr, nullptr, nullptr));
    EXPECT_EQ(nullptr, RegisterComponent(nullptr, entry, 0, nullptr, nullptr, nullptr));
}

TEST_F(ComponentRegistryTest, DescriptionsMatchFieldByFieldWithZeroAsWildcard)
{
    const OSType gsgl = Code("gsgl");
    const std::pair<AudioComponentDescription, AudioComponent> cases[] = {
        {{kAudioUnitType_Effect, gsgl, kVtst, 0, 0}, Find("gsgl")},
        {{0, gsgl, 0, 0, 0}, Find("gsgl")},
        {{kAudioUnitType_Effect, 0, kVtst, 0, 0}, Find("gbth")},
        {{Code("aufc"), gsgl, kVtst, 0, 0}, nullptr},
        {{kAudioUnitType_Effect, gsgl + 1, kVtst, 0, 0}, nullptr},
        {{kAudioUnitType_Effect, gsgl, kVtst + 1, 0, 0}, nullptr},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        EXPECT_EQ(cases[i].second, AudioComponentFindNext(nullptr, &cases[i].first))
            << "case " << i;
    }
}

TEST_F(ComponentRegistryTest, UnknownHandlesAndNullArgumentsAreRefused)
{
    int notAHandle = 0;
    auto bogus = reinterpret_cast<AudioComponent>(&notAHandle);
    auto bogusUnit = reinterpret_cast<AudioComponentInstance>(&notAHandle);
    AudioComponentInstance unit = nullptr;
    AudioComponentDescription description;
    CFStringRef name = nullptr;
    UInt32 version = 0;
    Float32 value = 0;
    const OSStatus statuses[] = {
        AudioComponentInstanceNew(bogus, &unit),
        AudioComponentInstanceNew(nullptr, &unit),
        AudioComponentInstanceNew(Find("gbth"), nullptr),
        AudioComponentGetDescription(bogus, &description),
        AudioComponentGetDescription(Find("gbth"), nullptr),
        AudioComponentCopyName(bogus, &name),
        AudioComponentCopyName(Find("gbth"), nullptr),
        AudioComponentGetVersion(bogus, &version),
        AudioComponentGetVersion(Find("gbth"), nullptr),
        AudioComponentInstanceDispose(nullptr),
        AudioComponentInstanceDispose(bogusUnit),
        CloseComponent(nullptr),
        CloseComponent(bogusUnit),
        OpenAComponent(nullptr, &unit),
        OpenAComponent(reinterpret_cast<Component>(Find("gbth")), nullptr),
        AudioUnitInitialize(nullptr),
        AudioUnitUninitialize(nullptr),
        AudioUnitGetPropertyInfo(nullptr, 0, 0, 0, nullptr, nullptr),
        AudioUnitGetProperty(nullptr, 0, 0, 0, nullptr, nullptr),
        AudioUnitSetProperty(nullptr, 0, 0, 0, nullptr, 0),
        AudioUnitAddPropertyListener(nullptr, 0, nullptr, nullptr),
        AudioUnitRemovePropertyListenerWithUserData(nullptr, 0, nullptr, nullptr),
        AudioUnitAddRenderNotify(nullptr, nullptr, nullptr),
        AudioUnitRemoveRenderNotify(nullptr, nullptr, nullptr),
        AudioUnitGetParameter(nullptr, 0, 0, 0, &value),
        AudioUnitSetParameter(nullptr, 0, 0, 0, 0, 0),
        AudioUnitScheduleParameters(nullptr, nullptr, 0),
        AudioUnitRender(nullptr, nullptr, nullptr, 0, 0, nullptr),
        AudioUnitReset(nullptr, 0, 0),
    };
    for (size_t i = 0; i < std::size(statuses); ++i) {
        EXPECT_EQ(paramErr, statuses[i]) << "call " << i;
    }
    EXPECT_EQ(nullptr, unit);
    EXPECT_EQ(invalidComponentID, OpenAComponent(reinterpret_cast<Component>(bogus), &unit));
    EXPECT_EQ(invalidComponentID, GetComponentInfo(reinterpret_cast<Component>(bogus), nullptr,
                                                   nullptr, nullptr, nullptr));
    EXPECT_EQ(nullptr, AudioComponentFindNext(bogus, nullptr));
    EXPECT_EQ(nullptr, FindNextComponent(reinterpret_cast<Component>(bogus), nullptr));
    EXPECT_EQ(nullptr, GetComponentInstanceStorage(nullptr));
}

} // namespace
