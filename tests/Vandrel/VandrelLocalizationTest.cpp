// Parameter and preset names in another language: the process's locale is
// French before the first unit is made, so the unit takes its names from the
// bundle's French strings table.
#include "VandrelTestHost.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

using namespace vandrel_test;

namespace {

// Runs before any test, and so before the first unit exists.
const bool gFrenchLocale = [] {
    setenv("LANGUAGE", "fr", 1);
    setenv("LC_ALL", "fr_FR.UTF-8", 1);
    setenv("LC_MESSAGES", "fr_FR.UTF-8", 1);
    setenv("LANG", "fr_FR.UTF-8", 1);
    // No installed copy of the plug-in may be found before the built bundle.
    setenv("HOME", VANDREL_TEST_DATA_DIR "/no-such-home", 1);
    unsetenv("AU_COMPONENT_PATH");
    return true;
}();

bool IsValidUtf8(const char* inText)
{
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(inText); *p != 0;) {
        int extra = (*p < 0x80)         ? 0
                    : (*p >> 5) == 0x6  ? 1
                    : (*p >> 4) == 0xE  ? 2
                    : (*p >> 3) == 0x1E ? 3
                                        : -1;
        if (extra < 0) {
            return false;
        }
        ++p;
        for (int i = 0; i < extra; ++i, ++p) {
            if ((*p & 0xC0) != 0x80) {
                return false;
            }
        }
    }
    return true;
}

TEST(VandrelLocalization, NamesComeFromTheFrenchTable)
{
    ASSERT_TRUE(gFrenchLocale);
    {
        // Before the bundle is known, the names stay English, and the next
        // construction tries again.
        const AudioComponentDescription desc = UnitDescription();
        AudioComponent withoutBundle =
            AudioComponentRegister(&desc, CFSTR("Vandrel (no bundle)"), 1, VandrelFactory);
        Instance early{withoutBundle};
        ASSERT_EQ(noErr, early.openStatus());
        AudioUnitParameterInfo info{};
        UInt32 size = sizeof(info);
        ASSERT_EQ(noErr, AudioUnitGetProperty(early.unit(), kAudioUnitProperty_ParameterInfo,
                                              kAudioUnitScope_Global, kParam_DryOut, &info, &size));
        EXPECT_EQ("Dry out", ToString(info.cfNameString));
    }
    Instance unit{LinkedFactoryComponent()};
    ASSERT_EQ(noErr, unit.openStatus());

    const char* expected[7] = {
        "Sortie directe",
        "Sortie traitée",
        "Effet",
        "Vitesse de modulation",
        "Profondeur de modulation de l’oscillateur sinusoïdal à très basse fréquence",
        "Fréquence centrale",
        "Résonance"};
    for (AudioUnitParameterID id = 0; id < 7; ++id) {
        AudioUnitParameterInfo info{};
        UInt32 size = sizeof(info);
        ASSERT_EQ(noErr, AudioUnitGetProperty(unit.unit(), kAudioUnitProperty_ParameterInfo,
                                              kAudioUnitScope_Global, id, &info, &size));
        // The whole name travels as the string; the fixed field holds as much
        // of it as fits, cut between characters.
        EXPECT_EQ(expected[id], ToString(info.cfNameString)) << "parameter " << id;
        const std::string field = info.name;
        EXPECT_LE(field.size(), 51u);
        EXPECT_TRUE(IsValidUtf8(info.name));
        EXPECT_EQ(0u, std::string(expected[id]).rfind(field, 0)) << "parameter " << id;
        if (std::strlen(expected[id]) <= 51) {
            EXPECT_EQ(expected[id], field);
        }
    }
    // The depth's French name is longer than the field and a two-byte
    // character straddles its end: the cut falls just before it.
    AudioUnitParameterInfo depth{};
    UInt32 size = sizeof(depth);
    ASSERT_EQ(noErr,
              AudioUnitGetProperty(unit.unit(), kAudioUnitProperty_ParameterInfo,
                                   kAudioUnitScope_Global, kParam_ModulationDepth, &depth, &size));
    EXPECT_EQ(50u, std::strlen(depth.name));

    CFArrayRef presets = nullptr;
    size = sizeof(presets);
    ASSERT_EQ(noErr, AudioUnitGetProperty(unit.unit(), kAudioUnitProperty_FactoryPresets,
                                          kAudioUnitScope_Global, 0, &presets, &size));
    EXPECT_EQ(
        "Par défaut",
        ToString(static_cast<const AUPreset*>(CFArrayGetValueAtIndex(presets, 0))->presetName));
    EXPECT_EQ(
        "Phaseur 2",
        ToString(static_cast<const AUPreset*>(CFArrayGetValueAtIndex(presets, 6))->presetName));
    CFRelease(presets);

    // The current preset takes the localized name.
    const AUPreset choice{14, nullptr};
    ASSERT_EQ(noErr, AudioUnitSetProperty(unit.unit(), kAudioUnitProperty_PresentPreset,
                                          kAudioUnitScope_Global, 0, &choice, sizeof(choice)));
    AUPreset current{};
    size = sizeof(current);
    ASSERT_EQ(noErr, AudioUnitGetProperty(unit.unit(), kAudioUnitProperty_PresentPreset,
                                          kAudioUnitScope_Global, 0, &current, &size));
    EXPECT_EQ(14, current.presetNumber);
    EXPECT_EQ("Vibrato 2", ToString(current.presetName));
    CFRelease(current.presetName);
}

} // namespace
