#include "AUBaseTestUnit.h"
#include "AUScopeElement.h"
#include "CFTestHelpers.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// Elements that report their destruction, to see which ones a scope destroys
// and in what order.
std::vector<UInt32> gDestroyed;

class LoggingElement : public AUElement
{
public:
    LoggingElement(AUBase* inUnit, UInt32 inIndex) : AUElement(inUnit), mIndex(inIndex) {}
    ~LoggingElement() override { gDestroyed.push_back(mIndex); }

private:
    UInt32 mIndex;
};

class GroupLoggingUnit : public AUBaseTestUnit
{
public:
    GroupLoggingUnit() : AUBaseTestUnit(1, 1, 1) {}

    AUElement* CreateElement(AudioUnitScope inScope, AudioUnitElement inElement) override
    {
        if (inScope == kAudioUnitScope_Group) {
            mCreated.push_back(inElement);
            return new LoggingElement(this, inElement);
        }
        return AUBaseTestUnit::CreateElement(inScope, inElement);
    }

    std::vector<UInt32> mCreated;
};

void SetEntry(CFMutableDictionaryRef ioDict, const char* inKey, CFTypeRef inValue)
{
    CFStringRef key = NewCFString(inKey);
    CFDictionarySetValue(ioDict, key, inValue);
    CFRelease(key);
}

std::string NameOf(AUScope& inScope, UInt32 inIndex)
{
    CFStringRef name = inScope.GetElement(inIndex)->GetName();
    return name == nullptr ? std::string("<none>") : ToString(name);
}

} // namespace

TEST(AUElementTest, IndexedStorageListsIdsAndRefusesIdsPastTheArray)
{
    auto unitOwner = OpenUnit();
    AUBaseTestUnit& unit = *unitOwner;
    AUElement element(&unit);
    element.UseIndexedParameters(7);
    element.SetParameter(6, 0.5f);
    EXPECT_EQ(element.GetNumberOfParameters(), 7u);
    std::vector<AudioUnitParameterID> ids(7, 99);
    element.GetParameterList(ids.data());
    for (UInt32 i = 0; i < 7; ++i) {
        EXPECT_EQ(ids[i], i);
    }
    EXPECT_EQ(ThrownStatus([&] { element.GetParameter(7); }), kAudioUnitErr_InvalidParameter);
    EXPECT_EQ(ThrownStatus([&] { element.SetParameter(7, 1.0f); }), kAudioUnitErr_InvalidParameter);

    // Resizing keeps the records below the new size and drops the rest.
    element.UseIndexedParameters(9);
    EXPECT_EQ(element.GetParameter(6), 0.5f);
    EXPECT_EQ(element.GetParameter(8), 0.0f);
    element.UseIndexedParameters(2);
    EXPECT_EQ(ThrownStatus([&] { element.GetParameter(6); }), kAudioUnitErr_InvalidParameter);
}

TEST(AUElementTest, SparseStorageGrowsOnlyWhileTheUnitIsUninitialized)
{
    auto unitOwner = OpenUnit();
    AUBaseTestUnit& unit = *unitOwner;
    AUElement element(&unit);
    element.SetParameter(9, 9.0f);
    element.SetParameter(2, 2.0f);
    element.SetParameter(5, 5.0f);
    std::vector<AudioUnitParameterID> ids(3);
    element.GetParameterList(ids.data());
    EXPECT_EQ(ids, (std::vector<AudioUnitParameterID>{2, 5, 9}));
    EXPECT_EQ(ThrownStatus([&] { element.GetParameter(3); }), kAudioUnitErr_InvalidParameter);

    ASSERT_EQ(unit.DoInitialize(), noErr);
    element.SetParameter(3, 3.0f); // silently ignored
    EXPECT_EQ(element.GetNumberOfParameters(), 3u);
    EXPECT_EQ(ThrownStatus([&] { element.GetParameter(3); }), kAudioUnitErr_InvalidParameter);
    element.SetParameter(5, 50.0f); // existing records still change
    EXPECT_EQ(element.GetParameter(5), 50.0f);
    element.SetParameter(4, 4.0f, true);
    EXPECT_EQ(element.GetParameter(4), 4.0f);
}

TEST(AUElementTest, ScheduledEventsFillTheRecordAndPlainValuesKeepItsFrames)
{
    auto unitOwner = OpenUnit();
    AUBaseTestUnit& unit = *unitOwner;
    AUElement* globals = unit.Globals();

    globals->SetScheduledEvent(0, RampEvent(0, 100, 200, 1.0f, 2.0f), 300, 64);
    ParameterMapEvent ramp = globals->GetParameterEvent(0);
    EXPECT_EQ(ramp.GetEventType(), static_cast<UInt32>(kParameterEvent_Ramped));
    EXPECT_EQ(ramp.GetBufferOffset(), -200); // began two slices earlier
    EXPECT_EQ(ramp.GetDurationInFrames(), 200u);
    EXPECT_EQ(ramp.GetStartValue(), 1.0f);
    EXPECT_EQ(ramp.GetEndValue(), 2.0f);
    EXPECT_EQ(ramp.GetSliceDurationFrames(), 64u);
    EXPECT_EQ(globals->GetParameter(0), 1.0f); // no interpolation

    globals->SetParameter(0, 7.0f);
    ramp = globals->GetParameterEvent(0);
    EXPECT_EQ(ramp.GetEventType(), static_cast<UInt32>(kParameterEvent_Immediate));
    EXPECT_EQ(ramp.GetEndValue(), 7.0f);
    EXPECT_EQ(ramp.GetBufferOffset(), -200);
    EXPECT_EQ(ramp.GetDurationInFrames(), 200u);

    globals->SetScheduledEvent(1, ImmediateEvent(1, 40, 3.0f), 32, 96);
    const ParameterMapEvent immediate = globals->GetParameterEvent(1);
    EXPECT_EQ(immediate.GetBufferOffset(), 0);
    EXPECT_EQ(immediate.GetDurationInFrames(), 96u);
    EXPECT_EQ(immediate.GetEndValue(), 3.0f);
    EXPECT_EQ(
        ThrownStatus([&] { globals->SetScheduledEvent(3, ImmediateEvent(3, 0, 1.0f), 0, 1); }),
        kAudioUnitErr_InvalidParameter);
}

TEST(AUScopeTest, GrowsThroughTheUnitAndShrinksFromTheEnd)
{
    gDestroyed.clear();
    {
        auto owner = OpenUnit<GroupLoggingUnit>();
        GroupLoggingUnit& unit = *owner;
        AUScope& groups = unit.GetScope(kAudioUnitScope_Group);
        EXPECT_EQ(unit.mCreated, (std::vector<UInt32>{0}));
        groups.SetNumberOfElements(3);
        EXPECT_EQ(unit.mCreated, (std::vector<UInt32>{0, 1, 2}));
        AUElement* first = groups.GetElement(0);
        groups.SetNumberOfElements(1);
        EXPECT_EQ(gDestroyed, (std::vector<UInt32>{2, 1}));
        EXPECT_EQ(groups.GetElement(0), first);
        EXPECT_EQ(groups.GetElement(1), nullptr);
        EXPECT_EQ(ThrownStatus([&] { groups.SafeGetElement(1); }), kAudioUnitErr_InvalidElement);
        EXPECT_EQ(ThrownStatus([&] { groups.GetIOElement(0); }), kAudioUnitErr_InvalidElement);
        gDestroyed.clear();
    }
    EXPECT_EQ(gDestroyed, (std::vector<UInt32>{0}));
}

TEST(AUScopeTest, ParameterListComesFromTheElementWithMostParameters)
{
    auto unitOwner = OpenUnit(1, 1, 3);
    AUBaseTestUnit& unit = *unitOwner;
    AUScope& groups = unit.GetScope(kAudioUnitScope_Group);
    groups.GetElement(1)->SetParameter(4, 1.0f);
    groups.GetElement(1)->SetParameter(8, 1.0f);
    groups.GetElement(2)->SetParameter(1, 1.0f);
    groups.GetElement(2)->SetParameter(2, 1.0f);
    AudioUnitParameterID ids[2] = {0, 0};
    UInt32 count = 0;
    EXPECT_EQ(unit.GetParameterList(kAudioUnitScope_Group, ids, count), noErr);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(ids[0], 4u); // tie: the lowest element index wins
    EXPECT_EQ(ids[1], 8u);

    ids[0] = 77;
    EXPECT_EQ(unit.GetParameterList(kAudioUnitScope_Input, ids, count), noErr);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(ids[0], 77u);
    EXPECT_EQ(ThrownStatus([&] { unit.GetParameterList(kAudioUnitScope_Part, ids, count); }),
              kAudioUnitErr_InvalidScope);
}

TEST(AUScopeTest, ElementNamesRoundTripThroughTheNameDictionary)
{
    auto unitOwner = OpenUnit(1, 3);
    AUBaseTestUnit& unit = *unitOwner;
    AUScope& outputs = unit.GetScope(kAudioUnitScope_Output);
    CFMutableDictionaryRef dict = NewCFTypeDictionary();
    outputs.AddElementNamesToDict(dict);
    EXPECT_EQ(CFDictionaryGetCount(dict), 0);

    CFStringRef name = NewCFString("Side chain");
    outputs.GetElement(2)->SetName(name);
    EXPECT_TRUE(outputs.HasElementWithName());
    outputs.AddElementNamesToDict(dict);
    ASSERT_EQ(CFDictionaryGetCount(dict), 1);
    CFStringRef scopeKey = NewCFString("2");
    CFDictionaryRef inner = static_cast<CFDictionaryRef>(CFDictionaryGetValue(dict, scopeKey));
    ASSERT_NE(inner, nullptr);
    EXPECT_EQ(CFDictionaryGetCount(inner), 1);
    EXPECT_EQ(ToString(CFDictionaryGetValue(inner, scopeKey)), "Side chain");

    auto otherOwner = OpenUnit(1, 1);
    AUBaseTestUnit& other = *otherOwner;
    AUScope& otherOutputs = other.GetScope(kAudioUnitScope_Output);
    EXPECT_TRUE(otherOutputs.RestoreElementNames(inner));
    EXPECT_EQ(otherOutputs.GetNumberOfElements(), 3u);
    EXPECT_EQ(NameOf(otherOutputs, 2), "Side chain");
    EXPECT_FALSE(otherOutputs.RestoreElementNames(inner)); // nothing more to add

    CFRelease(scopeKey);
    CFRelease(name);
    CFRelease(dict);
}

TEST(AUScopeTest, RestoredNamesSkipMalformedKeysAndHugeIndices)
{
    auto unitOwner = OpenUnit(1, 1, 1);
    AUBaseTestUnit& unit = *unitOwner;
    AUScope& groups = unit.GetScope(kAudioUnitScope_Group);
    CFMutableDictionaryRef dict = NewCFTypeDictionary();
    CFStringRef name = NewCFString("kept");
    CFStringRef bad = NewCFString("skipped");
    const int number = 5;
    CFNumberRef notAString = CFNumberCreate(kCFAllocatorDefault, kCFNumberIntType, &number);
    SetEntry(dict, "0", name);
    SetEntry(dict, "3", name);
    for (const char* key : {"-1", "+2", " 2", "2x", "", "0x2", "1024", "99999999999"}) {
        SetEntry(dict, key, bad);
    }
    SetEntry(dict, "1", notAString);
    CFDictionarySetValue(dict, notAString, bad);

    CFDictionaryRef names = dict;
    EXPECT_TRUE(groups.RestoreElementNames(names));
    EXPECT_EQ(groups.GetNumberOfElements(), 4u);
    EXPECT_EQ(NameOf(groups, 0), "kept");
    EXPECT_EQ(NameOf(groups, 1), "<none>");
    EXPECT_EQ(NameOf(groups, 2), "<none>");
    EXPECT_EQ(NameOf(groups, 3), "kept");

    // The largest index accepted grows the scope to exactly the limit.
    CFMutableDictionaryRef edge = NewCFTypeDictionary();
    SetEntry(edge, "1023", name);
    CFDictionaryRef edgeNames = edge;
    EXPECT_TRUE(groups.RestoreElementNames(edgeNames));
    EXPECT_EQ(groups.GetNumberOfElements(), AUScope::kMaxRestoredElements);
    EXPECT_EQ(NameOf(groups, 1023), "kept");

    CFRelease(edge);
    CFRelease(notAString);
    CFRelease(bad);
    CFRelease(name);
    CFRelease(dict);
}
