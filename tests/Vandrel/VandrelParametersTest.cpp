// The unit's parameters through the host API (English names), the mapping of
// parameter values into the engine's property record, and the one-time name
// localization, on the unit linked into this program.
#include "VandrelTestHost.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

using namespace vandrel_test;

namespace {
std::atomic<int> gLocalizeCalls{0};
}

// Counts the unit's look-ups in the bundle's strings table: the unit linked
// into this program calls this definition, which forwards to the object
// library's.
extern "C" CFStringRef CFBundleCopyLocalizedString(CFBundleRef bundle, CFStringRef key,
                                                   CFStringRef value, CFStringRef tableName)
{
    ++gLocalizeCalls;
    using Lookup = CFStringRef (*)(CFBundleRef, CFStringRef, CFStringRef, CFStringRef);
    static const auto real =
        reinterpret_cast<Lookup>(dlsym(RTLD_NEXT, "CFBundleCopyLocalizedString"));
    return real(bundle, key, value, tableName);
}

namespace {

struct ExpectedParameter
{
    const char* name;
    AudioUnitParameterUnit unit;
    float minValue;
    float maxValue;
    float defaultValue;
};

constexpr ExpectedParameter kExpected[7] = {
    {"Dry out", kAudioUnitParameterUnit_Decibels, -80, 12, -80},
    {"Wet out", kAudioUnitParameterUnit_Decibels, -80, 12, 0},
    {"Effect", kAudioUnitParameterUnit_Indexed, 0, 2, 0},
    {"Modulation rate", kAudioUnitParameterUnit_Hertz, 0.001f, 20, 10},
    {"Modulation depth", kAudioUnitParameterUnit_Percent, 1, 100, 10},
    {"Center frequency", kAudioUnitParameterUnit_Hertz, 100, 5000, 100},
    {"Resonance", kAudioUnitParameterUnit_Percent, 1, 100, 1}};

OSStatus GetInfo(AudioUnit inUnit, AudioUnitScope inScope, AudioUnitParameterID inID,
                 AudioUnitParameterInfo& outInfo)
{
    std::memset(&outInfo, 0, sizeof(outInfo));
    UInt32 size = sizeof(outInfo);
    return AudioUnitGetProperty(inUnit, kAudioUnitProperty_ParameterInfo, inScope, inID, &outInfo,
                                &size);
}

TEST(VandrelParameters, InfoOfEachParameterReadsBackExactly)
{
    Instance unit{LinkedFactoryComponent()};
    ASSERT_EQ(noErr, unit.openStatus());
    for (AudioUnitParameterID id = 0; id < 7; ++id) {
        AudioUnitParameterInfo info;
        ASSERT_EQ(noErr, GetInfo(unit.unit(), kAudioUnitScope_Global, id, info)) << id;
        const ExpectedParameter& expected = kExpected[id];
        EXPECT_STREQ(expected.name, info.name);
        EXPECT_EQ(expected.name, ToString(info.cfNameString));
        EXPECT_EQ(expected.unit, info.unit);
        EXPECT_EQ(expected.minValue, info.minValue);
        EXPECT_EQ(expected.maxValue, info.maxValue);
        EXPECT_EQ(expected.defaultValue, info.defaultValue);
        EXPECT_EQ(kAudioUnitParameterFlag_IsReadable | kAudioUnitParameterFlag_IsWritable |
                      kAudioUnitParameterFlag_HasCFNameString,
                  info.flags);
        EXPECT_EQ(expected.defaultValue, unit.GetParameter(id));
    }
    AudioUnitParameterInfo rate;
    ASSERT_EQ(noErr, GetInfo(unit.unit(), kAudioUnitScope_Global, kParam_ModulationRate, rate));
    UInt32 bits = 0;
    std::memcpy(&bits, &rate.minValue, sizeof(bits));
    EXPECT_EQ(0x3A83126Fu, bits);

    AudioUnitParameterInfo info;
    EXPECT_EQ(kAudioUnitErr_InvalidParameter,
              GetInfo(unit.unit(), kAudioUnitScope_Global, 7, info));
    // Other scopes: readable and writable, nothing else.
    ASSERT_EQ(noErr, GetInfo(unit.unit(), kAudioUnitScope_Input, kParam_Effect, info));
    EXPECT_EQ(kAudioUnitParameterFlag_IsReadable | kAudioUnitParameterFlag_IsWritable, info.flags);
    EXPECT_EQ(nullptr, info.cfNameString);
    EXPECT_EQ(0.0f, info.maxValue);

    UInt32 size = 0;
    Boolean writable = false;
    EXPECT_EQ(kAudioUnitErr_InvalidProperty,
              AudioUnitGetPropertyInfo(unit.unit(), kAudioUnitProperty_ParameterValueStrings,
                                       kAudioUnitScope_Global, kParam_Effect, &size, &writable));

    AudioUnitParameterID list[8] = {};
    size = sizeof(list);
    ASSERT_EQ(noErr, AudioUnitGetProperty(unit.unit(), kAudioUnitProperty_ParameterList,
                                          kAudioUnitScope_Global, 0, list, &size));
    ASSERT_EQ(7 * sizeof(AudioUnitParameterID), size);
    for (AudioUnitParameterID id = 0; id < 7; ++id) {
        EXPECT_EQ(id, list[id]);
    }
}

TEST(VandrelParameters, ValuesOutsideTheRangesAreStoredUnchanged)
{
    Instance unit{LinkedEntryComponent()};
    ASSERT_EQ(noErr, unit.SetParameter(kParam_ModulationRate, 50.0f));
    EXPECT_EQ(50.0f, unit.GetParameter(kParam_ModulationRate));
    ASSERT_EQ(noErr, unit.SetParameter(kParam_Effect, 1.5f));
    EXPECT_EQ(1.5f, unit.GetParameter(kParam_Effect));
    AudioUnitParameterValue value = 0.0f;
    EXPECT_EQ(kAudioUnitErr_InvalidParameter,
              AudioUnitGetParameter(unit.unit(), 7, kAudioUnitScope_Global, 0, &value));
}

TEST(VandrelParameters, VersionIsOnePointZero)
{
    Instance unit{LinkedEntryComponent()};
    ComponentParameters call{};
    call.what = kComponentVersionSelect;
    EXPECT_EQ(0x00010000, VandrelEntry(&call, UnitObject(unit.unit())));
}

TEST(VandrelParameters, MappingTruncatesTowardZero)
{
    constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
    constexpr float kInf = std::numeric_limits<float>::infinity();
    constexpr std::int64_t kMax64 = std::numeric_limits<std::int64_t>::max();
    constexpr std::int64_t kMin64 = std::numeric_limits<std::int64_t>::min();
    struct Case
    {
        float values[7];
        std::int64_t dry, wet, effect, rate, depth, center, resonance;
    };
    const Case cases[] = {
        {{-80, 12, 0.999f, 0.001f, 1, 100, 1}, -800, 120, 0, 1, 1, 100, 1},
        {{-79.95f, -5.25f, 1.0f, 10, 99.9f, 4999.9f, 1.99f}, -799, -52, 1, 10000, 99, 4999, 1},
        {{0, 0, 1.999f, 20, 100, 5000, 100}, 0, 0, 1, 20000, 100, 5000, 100},
        {{-2.5f, -0.05f, 2.0f, 0.1f, 50, 1000, 50}, -25, 0, 2, 100, 50, 1000, 50},
        {{-80, 0, 7.5f, 4.5f, 10, 100, 1}, -800, 0, 2, 4500, 10, 100, 1},
        // Unclamped host values: NaN reads as 0 and huge values saturate.
        {{kNaN, kInf, kNaN, -kInf, 1e30f, -1e30f, kNaN}, 0, kMax64, 2, kMin64, kMax64, kMin64, 0}};
    for (const Case& c : cases) {
        _transform_props props{};
        Vandrel::MapParameters(c.values, props);
        EXPECT_EQ(c.dry, props.lDryOut);
        EXPECT_EQ(c.wet, props.lWetOut);
        EXPECT_EQ(c.effect, props.lEffect);
        EXPECT_EQ(c.rate, props.lModRate);
        EXPECT_EQ(c.depth, props.lModDepth);
        EXPECT_EQ(c.center, props.lCenterFreq);
        EXPECT_EQ(c.resonance, props.lResonance);
    }

    // Change bits against the previous mapping: 2 for a level, 1 for the rest.
    float values[7] = {-10, -10, 0, 1, 10, 100, 1};
    _transform_props props{};
    Vandrel::MapParameters(values, props);
    props.uChanged = 0;
    Vandrel::MapParameters(values, props);
    EXPECT_EQ(0u, props.uChanged);
    values[1] = -10.04f; // the same tenth of a dB
    Vandrel::MapParameters(values, props);
    EXPECT_EQ(0u, props.uChanged);
    values[0] = -11.0f;
    Vandrel::MapParameters(values, props);
    EXPECT_EQ(kPropsChanged_Levels, props.uChanged);
    props.uChanged = 0;
    values[6] = 2.0f;
    Vandrel::MapParameters(values, props);
    EXPECT_EQ(kPropsChanged_Effect, props.uChanged);
}

TEST(VandrelParameters, LongNamesAreCutAtACharacterBoundary)
{
    char field[52];
    Vandrel::CopyParameterName(CFSTR("Resonance"), field);
    EXPECT_STREQ("Resonance", field);

    const std::string exact(51, 'x');
    CFStringRef fits =
        CFStringCreateWithCString(kCFAllocatorDefault, exact.c_str(), kCFStringEncodingUTF8);
    Vandrel::CopyParameterName(fits, field);
    EXPECT_EQ(exact, field);
    CFRelease(fits);

    // 50 ASCII bytes, then a two-byte character that would end past the field.
    const std::string straddling = std::string(50, 'a') + "\xC3\xA9" + "zzz";
    CFStringRef longName =
        CFStringCreateWithCString(kCFAllocatorDefault, straddling.c_str(), kCFStringEncodingUTF8);
    std::memset(field, 'Q', sizeof(field));
    Vandrel::CopyParameterName(longName, field);
    EXPECT_EQ(std::string(50, 'a'), field);
    CFRelease(longName);

    // 49 ASCII bytes, then the two-byte character fits exactly.
    const std::string fitting = std::string(49, 'a') + "\xC3\xA9" + "zzz";
    CFStringRef fittingName =
        CFStringCreateWithCString(kCFAllocatorDefault, fitting.c_str(), kCFStringEncodingUTF8);
    Vandrel::CopyParameterName(fittingName, field);
    EXPECT_EQ(fitting.substr(0, 51), field);
    CFRelease(fittingName);
}

TEST(VandrelParameters, NamesAreLocalizedOncePerProcess)
{
    Instance first{LinkedFactoryComponent()};
    ASSERT_EQ(noErr, first.openStatus());
    // Fifteen preset names and seven parameter names, looked up once.
    EXPECT_EQ(22, gLocalizeCalls.load());
    Instance second{LinkedEntryComponent()};
    ASSERT_EQ(noErr, second.openStatus());
    EXPECT_EQ(22, gLocalizeCalls.load());

    CFArrayRef presets = nullptr;
    UInt32 size = sizeof(presets);
    ASSERT_EQ(noErr, AudioUnitGetProperty(second.unit(), kAudioUnitProperty_FactoryPresets,
                                          kAudioUnitScope_Global, 0, &presets, &size));
    ASSERT_EQ(15, CFArrayGetCount(presets));
    EXPECT_EQ(
        "Flange - slow 2",
        ToString(static_cast<const AUPreset*>(CFArrayGetValueAtIndex(presets, 4))->presetName));
    CFRelease(presets);

    // A fresh unit has no current preset.
    AUPreset current{};
    size = sizeof(current);
    ASSERT_EQ(noErr, AudioUnitGetProperty(second.unit(), kAudioUnitProperty_PresentPreset,
                                          kAudioUnitScope_Global, 0, &current, &size));
    EXPECT_EQ(-1, current.presetNumber);
    EXPECT_EQ("Untitled", ToString(current.presetName));
    CFRelease(current.presetName);
}

} // namespace
