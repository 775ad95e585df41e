#include "AUBaseTestUnit.h"
#include "AUPluginDispatch.h"
#include "CFTestHelpers.h"

#include <AudioUnit/AudioUnit.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace {

// Opened through the runtime, so that the unit learns its component
// description as it does in a host.
class StateUnit : public AUBaseTestUnit
{
public:
    explicit StateUnit(AudioComponentInstance inInstance) : AUBaseTestUnit(inInstance)
    {
        sLastOpened = this;
    }
    static inline StateUnit* sLastOpened = nullptr;
};

const AudioComponentDescription kDescription = {kAudioUnitType_Effect, 0x74537474 /* tStt */,
                                                0x56616E64 /* Vand */, 0, 0};

using Bytes = std::vector<UInt8>;

void PutBigEndian(Bytes& ioBytes, UInt32 inValue)
{
    for (int shift = 24; shift >= 0; shift -= 8) {
        ioBytes.push_back(static_cast<UInt8>(inValue >> shift));
    }
}

UInt32 Bits(float inValue)
{
    UInt32 bits;
    std::memcpy(&bits, &inValue, sizeof(bits));
    return bits;
}

// One blob record: scope, element, then (id, value) entries.
Bytes Record(UInt32 inScope, UInt32 inElement, std::vector<std::pair<UInt32, float>> inEntries)
{
    Bytes bytes;
    PutBigEndian(bytes, inScope);
    PutBigEndian(bytes, inElement);
    PutBigEndian(bytes, static_cast<UInt32>(inEntries.size()));
    for (const auto& entry : inEntries) {
        PutBigEndian(bytes, entry.first);
        PutBigEndian(bytes, Bits(entry.second));
    }
    return bytes;
}

Bytes operator+(Bytes a, const Bytes& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

void Put(CFMutableDictionaryRef ioDict, const char* inKey, CFTypeRef inValue)
{
    CFStringRef key = NewCFString(inKey);
    CFDictionarySetValue(ioDict, key, inValue);
    CFRelease(key);
    CFRelease(inValue);
}

CFNumberRef Int(SInt32 inValue)
{
    return CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &inValue);
}

CFDataRef Data(const Bytes& inBytes)
{
    return CFDataCreate(kCFAllocatorDefault, inBytes.data(), static_cast<CFIndex>(inBytes.size()));
}

// A minimal valid state for this unit: identity keys only.
CFMutableDictionaryRef BaseState()
{
    CFMutableDictionaryRef dict = NewCFTypeDictionary();
    Put(dict, "version", Int(0));
    Put(dict, "type", Int(static_cast<SInt32>(kDescription.componentType)));
    Put(dict, "subtype", Int(static_cast<SInt32>(kDescription.componentSubType)));
    Put(dict, "manufacturer", Int(static_cast<SInt32>(kDescription.componentManufacturer)));
    return dict;
}

class StateTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        CFStringRef name = NewCFString("Test: state unit");
        sComponent = AudioComponentRegister(&kDescription, name, 1,
                                            APFactory<AUBaseLookup, StateUnit>::Factory);
        CFRelease(name);
    }

    void SetUp() override
    {
        ASSERT_NE(sComponent, nullptr);
        ASSERT_EQ(AudioComponentInstanceNew(sComponent, &mInstance), noErr);
        mUnit = StateUnit::sLastOpened;
        AudioUnitAddPropertyListener(mInstance, kAudioUnitProperty_PresentPreset, ListenerLog::Hear,
                                     &mLog);
        AudioUnitAddPropertyListener(mInstance, kAudioUnitProperty_ElementCount, ListenerLog::Hear,
                                     &mLog);
    }

    void TearDown() override { AudioComponentInstanceDispose(mInstance); }

    CFPropertyListRef Save()
    {
        CFPropertyListRef state = nullptr;
        UInt32 size = sizeof(state);
        EXPECT_EQ(AudioUnitGetProperty(mInstance, kAudioUnitProperty_ClassInfo,
                                       kAudioUnitScope_Global, 0, &state, &size),
                  noErr);
        return state;
    }

    OSStatus Restore(CFPropertyListRef inState)
    {
        return AudioUnitSetProperty(mInstance, kAudioUnitProperty_ClassInfo, kAudioUnitScope_Global,
                                    0, &inState, sizeof(inState));
    }

    std::vector<float> Values()
    {
        std::vector<float> values;
        for (UInt32 id = 0; id < AUBaseTestUnit::kNumParameters; ++id) {
            values.push_back(mUnit->Globals()->GetParameter(id));
        }
        return values;
    }

    static inline AudioComponent sComponent = nullptr;
    AudioComponentInstance mInstance = nullptr;
    StateUnit* mUnit = nullptr;
    ListenerLog mLog;
};

} // namespace

TEST_F(StateTest, SaveThenRestoreGivesBackValuesAndNamesTheUserPreset)
{
    mUnit->Globals()->SetParameter(0, 1.5f);
    mUnit->Globals()->SetParameter(1, -2.0f);
    mUnit->Globals()->SetParameter(2, 3e-7f);
    CFStringRef mine = NewCFString("Mine");
    AUPreset preset{-1, mine};
    ASSERT_EQ(AudioUnitSetProperty(mInstance, kAudioUnitProperty_PresentPreset,
                                   kAudioUnitScope_Global, 0, &preset, sizeof(preset)),
              noErr);

    CFPropertyListRef state = Save();
    ASSERT_NE(state, nullptr);
    CFDictionaryRef dict = static_cast<CFDictionaryRef>(state);
    SInt32 number = -1;
    CFNumberGetValue(static_cast<CFNumberRef>(CFDictionaryGetValue(dict, CFSTR("subtype"))),
                     kCFNumberSInt32Type, &number);
    EXPECT_EQ(static_cast<UInt32>(number), kDescription.componentSubType);
    EXPECT_EQ(ToString(CFDictionaryGetValue(dict, CFSTR("name"))), "Mine");
    EXPECT_FALSE(CFDictionaryContainsKey(dict, CFSTR("render-quality")));
    EXPECT_FALSE(CFDictionaryContainsKey(dict, CFSTR("cpu-load")));
    EXPECT_FALSE(CFDictionaryContainsKey(dict, CFSTR("element-name")));

    // One record: global scope, element 0, three entries, big-endian.
    CFDataRef data = static_cast<CFDataRef>(CFDictionaryGetValue(dict, CFSTR("data")));
    const Bytes expected = Record(0, 0, {{0, 1.5f}, {1, -2.0f}, {2, 3e-7f}});
    ASSERT_EQ(CFDataGetLength(data), static_cast<CFIndex>(expected.size()));
    EXPECT_EQ(std::memcmp(CFDataGetBytePtr(data), expected.data(), expected.size()), 0);
    EXPECT_EQ(expected.size(), 36u);

    mUnit->Globals()->SetParameter(0, 0.0f);
    mUnit->Globals()->SetParameter(2, 0.0f);
    mUnit->SetAFactoryPresetAsCurrent(AUPreset{4, mine});
    mLog.mCalls.clear();
    EXPECT_EQ(Restore(state), noErr);
    EXPECT_EQ(Values(), (std::vector<float>{1.5f, -2.0f, 3e-7f}));
    EXPECT_EQ(mUnit->CurrentPreset().presetNumber, -1);
    EXPECT_EQ(ToString(mUnit->CurrentPreset().presetName), "Mine");
    EXPECT_EQ(mLog.CountOf(kAudioUnitProperty_PresentPreset), 1u);
    CFRelease(state);
    CFRelease(mine);
}

TEST_F(StateTest, MalformedStatesAreRefusedWithoutChangingAnything)
{
    const Bytes good = Record(0, 0, {{0, 4.0f}});
    const std::vector<std::pair<const char*, std::function<void(CFMutableDictionaryRef)>>> cases = {
        {"version 1", [](CFMutableDictionaryRef d) { Put(d, "version", Int(1)); }},
        {"no version",
         [](CFMutableDictionaryRef d) { CFDictionaryRemoveValue(d, CFSTR("version")); }},
        {"version as text", [](CFMutableDictionaryRef d) { Put(d, "version", NewCFString("0")); }},
        {"no subtype",
         [](CFMutableDictionaryRef d) { CFDictionaryRemoveValue(d, CFSTR("subtype")); }},
        {"other subtype", [](CFMutableDictionaryRef d) { Put(d, "subtype", Int(1)); }},
        {"subtype as text",
         [](CFMutableDictionaryRef d) { Put(d, "subtype", NewCFString("tStt")); }},
        {"other manufacturer", [](CFMutableDictionaryRef d) { Put(d, "manufacturer", Int(2)); }},
        {"manufacturer as data",
         [](CFMutableDictionaryRef d) { Put(d, "manufacturer", Data({1})); }},
        {"part", [](CFMutableDictionaryRef d) { Put(d, "part", Int(0)); }},
        {"data as text", [](CFMutableDictionaryRef d) { Put(d, "data", NewCFString("x")); }},
        {"name as number", [](CFMutableDictionaryRef d) { Put(d, "name", Int(3)); }},
        {"render quality as text",
         [](CFMutableDictionaryRef d) { Put(d, "render-quality", NewCFString("hi")); }},
        {"cpu load as text",
         [](CFMutableDictionaryRef d) { Put(d, "cpu-load", NewCFString("lo")); }},
        {"element names as text",
         [](CFMutableDictionaryRef d) { Put(d, "element-name", NewCFString("a")); }},
        {"element names of text",
         [](CFMutableDictionaryRef d) {
             CFMutableDictionaryRef names = NewCFTypeDictionary();
             Put(names, "2", NewCFString("b"));
             Put(d, "element-name", names);
         }},
        {"element name as number",
         [](CFMutableDictionaryRef d) {
             CFMutableDictionaryRef outputs = NewCFTypeDictionary();
             Put(outputs, "0", Int(5));
             CFMutableDictionaryRef names = NewCFTypeDictionary();
             Put(names, "2", outputs);
             Put(d, "element-name", names);
         }},
        {"header cut short",
         [&](CFMutableDictionaryRef d) { Put(d, "data", Data(good + Bytes(11, 0))); }},
        {"entries cut short",
         [&](CFMutableDictionaryRef d) {
             Bytes cut = Record(0, 0, {{1, 5.0f}, {2, 6.0f}});
             cut.resize(cut.size() - 1);
             Put(d, "data", Data(good + cut));
         }},
        {"count past the end",
         [&](CFMutableDictionaryRef d) {
             Bytes huge = Record(0, 0, {});
             huge[8] = huge[9] = huge[10] = huge[11] = 0xFF;
             Put(d, "data", Data(good + huge));
         }},
    };
    const std::vector<float> before = Values();
    for (const auto& entry : cases) {
        SCOPED_TRACE(entry.first);
        CFMutableDictionaryRef state = BaseState();
        Put(state, "data", Data(good));
        Put(state, "name", NewCFString("refused"));
        entry.second(state);
        EXPECT_EQ(Restore(state), kAudioUnitErr_InvalidPropertyValue);
        EXPECT_EQ(Values(), before);
        EXPECT_EQ(ToString(mUnit->CurrentPreset().presetName), "Untitled");
        CFRelease(state);
    }
    CFStringRef notADictionary = NewCFString("state");
    EXPECT_EQ(Restore(notADictionary), kAudioUnitErr_InvalidPropertyValue);
    CFRelease(notADictionary);
    EXPECT_TRUE(mLog.mCalls.empty());
}

TEST_F(StateTest, BlobRecordsApplyUntilAMissingElementAndAFailingOneRefusesAll)
{
    CFMutableDictionaryRef state = BaseState();
    Put(state, "type", Int(0x61756D75)); // another type is not compared
    Put(state, "data",
        Data(Record(0, 0, {}) + Record(0, 0, {{1, 7.0f}}) + Record(2, 3, {{0, 8.0f}}) +
             Record(0, 0, {{2, 9.0f}})));
    EXPECT_EQ(Restore(state), noErr);
    EXPECT_EQ(Values(), (std::vector<float>{10.0f, 7.0f, 30.0f}));
    EXPECT_EQ(ToString(mUnit->CurrentPreset().presetName), "Untitled");
    CFRelease(state);

    state = BaseState();
    Put(state, "name", NewCFString("bad scope"));
    Put(state, "data", Data(Record(0, 0, {{0, 1.0f}}) + Record(7, 0, {{0, 2.0f}})));
    EXPECT_EQ(Restore(state), kAudioUnitErr_InvalidScope);
    EXPECT_EQ(mUnit->Globals()->GetParameter(0), 10.0f); // the record before it is not applied
    EXPECT_EQ(ToString(mUnit->CurrentPreset().presetName), "Untitled");
    CFRelease(state);

    state = BaseState();
    Put(state, "data", Data(Record(0, 0, {{0, 2.0f}, {3, 2.0f}})));
    EXPECT_EQ(Restore(state), kAudioUnitErr_InvalidParameter);
    EXPECT_EQ(mUnit->Globals()->GetParameter(0), 10.0f);
    CFRelease(state);

    state = BaseState();
    Put(state, "data", Data({}));
    EXPECT_EQ(Restore(state), noErr);
    EXPECT_EQ(mUnit->Globals()->GetParameter(0), 10.0f);
    CFRelease(state);
}

TEST_F(StateTest, ElementNamesAreSavedAndRestoredPerScope)
{
    CFStringRef name = NewCFString("Main out");
    ASSERT_EQ(AudioUnitSetProperty(mInstance, kAudioUnitProperty_ElementName,
                                   kAudioUnitScope_Output, 0, &name, sizeof(name)),
              noErr);
    CFPropertyListRef saved = Save();
    CFDictionaryRef names = static_cast<CFDictionaryRef>(
        CFDictionaryGetValue(static_cast<CFDictionaryRef>(saved), CFSTR("element-name")));
    ASSERT_NE(names, nullptr);
    EXPECT_EQ(CFDictionaryGetCount(names), 1);
    CFDictionaryRef outputs = static_cast<CFDictionaryRef>(CFDictionaryGetValue(names, CFSTR("2")));
    ASSERT_NE(outputs, nullptr);
    EXPECT_EQ(ToString(CFDictionaryGetValue(outputs, CFSTR("0"))), "Main out");

    mUnit->GetOutput(0)->SetName(nullptr);
    EXPECT_EQ(Restore(saved), noErr);
    EXPECT_EQ(ToString(mUnit->GetOutput(0)->GetName()), "Main out");
    EXPECT_EQ(mLog.CountOf(kAudioUnitProperty_ElementCount), 0u);

    // Names for group elements the unit lacks create them, and listeners hear
    // about the new element count.
    CFMutableDictionaryRef state = BaseState();
    CFMutableDictionaryRef allNames = NewCFTypeDictionary();
    CFMutableDictionaryRef groups = NewCFTypeDictionary();
    Put(groups, "1", NewCFString("Group B"));
    Put(allNames, "3", groups);
    Put(state, "element-name", allNames);
    EXPECT_EQ(Restore(state), noErr);
    EXPECT_EQ(mUnit->Groups().GetNumberOfElements(), 2u);
    EXPECT_EQ(ToString(mUnit->Groups().GetElement(1)->GetName()), "Group B");
    ASSERT_EQ(mLog.CountOf(kAudioUnitProperty_ElementCount), 1u);
    CFRelease(state);
    CFRelease(saved);
    CFRelease(name);
}
