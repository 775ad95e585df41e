// The unit base: lifecycle, formats, the property layer and elements; and,
// on units opened through the audio-unit runtime as a host opens them, saved
// state, connections and the entry layer (both open paths with their failure
// clean-up, the selector table, the property, render and exception glue).
#include "AUBaseTestUnit.h"
#include "AUPluginDispatch.h"
#include "BufferListStorage.h"
#include "CAException.h"
#include "CFTestHelpers.h"
#include "RunTogether.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

AU_EXPORT_COMPONENT_ENTRIES(AUBaseTestUnit, TestUnitEntry, TestUnitFactory)

namespace {

constexpr AudioUnitScope kGlobal = kAudioUnitScope_Global;
constexpr AudioUnitScope kIn = kAudioUnitScope_Input;
constexpr AudioUnitScope kOut = kAudioUnitScope_Output;
constexpr AudioUnitScope kGroup = kAudioUnitScope_Group;
constexpr OSStatus kBadScope = kAudioUnitErr_InvalidScope;
constexpr OSStatus kBadElement = kAudioUnitErr_InvalidElement;
constexpr OSStatus kNoProperty = kAudioUnitErr_InvalidProperty;
constexpr OSStatus kBadValue = kAudioUnitErr_InvalidPropertyValue;
constexpr AudioUnitPropertyID kLastRenderedSampleTime = 0x6C727374; // 'lrst'

CAStreamBasicDescription FloatFormat(UInt32 inChannels, Float64 inRate = 44100.0)
{
    CAStreamBasicDescription format = AUIOElement::DefaultStreamFormat();
    format.mChannelsPerFrame = inChannels;
    format.mSampleRate = inRate;
    return format;
}

// A unit whose second output is not a bus, so sizing the buffers fails.
class BrokenOutputUnit : public AUBaseTestUnit
{
public:
    BrokenOutputUnit() : AUBaseTestUnit(1, 2) {}

    AUElement* CreateElement(AudioUnitScope inScope, AudioUnitElement inElement) override
    {
        return inScope == kOut && inElement == 1
                   ? new AUElement(this)
                   : AUBaseTestUnit::CreateElement(inScope, inElement);
    }
};

TEST(AUBaseLifecycleTest, InitializeAndCleanupRunTheirHooksOncePerTransition)
{
    AUBaseTestUnit unit;
    EXPECT_EQ(unit.Inputs().GetNumberOfElements(), 0u) << "buses come with PostConstructor";
    unit.PostConstructor();
    unit.PostConstructor();
    EXPECT_EQ(unit.Inputs().GetNumberOfElements(), 1u);
    EXPECT_EQ(unit.DoInitialize(), noErr);
    EXPECT_EQ(unit.DoInitialize(), noErr);
    EXPECT_EQ(unit.mInitializeCalls, 1);
    EXPECT_TRUE(unit.IsInitialized());
    EXPECT_TRUE(unit.HasBegunInitializing());
    unit.DoCleanup();
    unit.DoCleanup();
    EXPECT_EQ(unit.mCleanupCalls, 1);
    EXPECT_FALSE(unit.IsInitialized());
    EXPECT_FALSE(unit.HasBegunInitializing());
    EXPECT_EQ(unit.DoInitialize(), noErr);
    unit.PreDestructor();
    EXPECT_EQ(unit.mCleanupCalls, 2);
    EXPECT_FALSE(unit.IsInitialized());

    // A bus that cannot be sized undoes the initialization.
    auto broken = OpenUnit<BrokenOutputUnit>();
    EXPECT_EQ(ThrownStatus([&] { broken->DoInitialize(); }), kBadElement);
    EXPECT_EQ(broken->mCleanupCalls, 1);
    EXPECT_FALSE(broken->IsInitialized());
    EXPECT_FALSE(broken->HasBegunInitializing());
}

TEST(AUBaseLifecycleTest, BusesAreSizedFromInitializationOnToTheMaximumSlice)
{
    auto unit = OpenUnit();
    ListenerLog log;
    unit->AddPropertyListener(kAudioUnitProperty_MaximumFramesPerSlice, ListenerLog::Hear, &log);
    AUOutputElement* out = unit->GetOutput(0);
    const AUBufferList& output = out->GetBufferList();
    const auto setMaximum = [&](UInt32 inFrames, UInt32 inSize = sizeof(UInt32)) {
        return unit->DispatchSetProperty(kAudioUnitProperty_MaximumFramesPerSlice, kGlobal, 0,
                                         &inFrames, inSize);
    };
    EXPECT_EQ(setMaximum(512, 2), kBadValue);
    EXPECT_EQ(setMaximum(512), noErr);
    out->AllocateBuffer(100);
    EXPECT_EQ(output.GetAllocatedStreams(), 0u); // nothing before initialization
    ASSERT_EQ(unit->DoInitialize(), noErr);
    EXPECT_EQ(output.GetAllocatedFrames(), 512u);
    EXPECT_EQ(output.GetAllocatedBytes(), 2u * 2048u);
    EXPECT_EQ(setMaximum(256), kAudioUnitErr_Initialized);
    // A new format while initialized resizes the bus at once.
    EXPECT_EQ(out->SetStreamFormat(FloatFormat(4)), noErr);
    EXPECT_EQ(out->PrepareIOBuffer(512).mBuffers[3].mDataByteSize, 2048u);
    // After cleanup a new maximum is stored; the next initialization sizes
    // the buses, whose memory never shrinks.
    unit->DoCleanup();
    EXPECT_EQ(setMaximum(256), noErr);
    EXPECT_EQ(log.mCalls.size(), 2u);
    ASSERT_EQ(unit->DoInitialize(), noErr);
    EXPECT_EQ(output.GetAllocatedFrames(), 256u);
    EXPECT_EQ(output.GetAllocatedBytes(), 4u * 2048u);
    unit->SetMaxFramesPerSlice(1024); // while initialized: every bus at once
    EXPECT_EQ(output.GetAllocatedFrames(), 1024u);
}

// ---- The property layer -----------------------------------------------------

struct InfoRow
{
    AudioUnitPropertyID id;
    AudioUnitScope scope;
    AudioUnitElement element;
    OSStatus status;
    UInt32 size = 0;
    bool writable = false;
};

// What a host learns about each framework property of a new, uninitialized
// unit with one input, one output and three global parameters.
const InfoRow kInfoRows[] = {
    {kAudioUnitProperty_ClassInfo, kGlobal, 0, noErr, 8, true},
    {kAudioUnitProperty_ClassInfo, kGlobal, 1, kBadElement},
    {kAudioUnitProperty_ClassInfo, kIn, 0, kBadScope},
    {kAudioUnitProperty_MakeConnection, kIn, 0, noErr, 16, true},
    {kAudioUnitProperty_MakeConnection, kOut, 0, kBadScope},
    {kAudioUnitProperty_SampleRate, kIn, 0, noErr, 8, true},
    {kAudioUnitProperty_SampleRate, kOut, 1, kBadElement},
    {kAudioUnitProperty_ParameterList, kGlobal, 0, noErr, 12, false},
    {kAudioUnitProperty_ParameterList, kIn, 9, noErr, 0, false},
    {kAudioUnitProperty_ParameterInfo, kGlobal, 99, noErr, 104, false},
    {kAudioUnitProperty_FastDispatch, kGlobal, kAudioUnitRenderSelect, noErr, 8},
    {kAudioUnitProperty_FastDispatch, kIn, 0, kBadScope},
    {kAudioUnitProperty_StreamFormat, kOut, 0, noErr, 40, true},
    {kAudioUnitProperty_StreamFormat, kGlobal, 0, noErr, 40, true},
    {kAudioUnitProperty_StreamFormat, kGroup, 0, kBadElement},
    {kAudioUnitProperty_ElementCount, kIn, 0, noErr, 4, false},
    {kAudioUnitProperty_Latency, kGlobal, 0, noErr, 8, false},
    {kAudioUnitProperty_Latency, kIn, 0, kBadScope},
    {kAudioUnitProperty_SupportedNumChannels, kGlobal, 0, kNoProperty},
    {kAudioUnitProperty_SupportedNumChannels, kIn, 0, kBadScope},
    {kAudioUnitProperty_MaximumFramesPerSlice, kGlobal, 0, noErr, 4, true},
    {kAudioUnitProperty_MaximumFramesPerSlice, kOut, 0, kBadScope},
    {kAudioUnitProperty_SetExternalBuffer, kOut, 0, kNoProperty},
    {kAudioUnitProperty_ParameterValueStrings, kGlobal, 0, kNoProperty},
    {kAudioUnitProperty_GetUIComponentList, kGlobal, 0, kNoProperty},
    {kAudioUnitProperty_GetUIComponentList, kOut, 0, kBadScope},
    {kAudioUnitProperty_AudioChannelLayout, kOut, 0, kNoProperty},
    {kAudioUnitProperty_TailTime, kGlobal, 0, kNoProperty},
    {kAudioUnitProperty_TailTime, kOut, 0, kBadScope},
    {kAudioUnitProperty_LastRenderError, kGlobal, 0, noErr, 4, false},
    {kAudioUnitProperty_LastRenderError, kIn, 0, kBadScope},
    {kAudioUnitProperty_SetRenderCallback, kIn, 0, noErr, 16, true},
    {kAudioUnitProperty_SetRenderCallback, kIn, 1, kBadElement},
    {kAudioUnitProperty_SetRenderCallback, kOut, 0, kBadScope},
    {kAudioUnitProperty_FactoryPresets, kGlobal, 0, kNoProperty},
    {kAudioUnitProperty_FactoryPresets, kIn, 0, kBadScope},
    {kAudioUnitProperty_ContextName, kGlobal, 0, noErr, 8, true},
    {kAudioUnitProperty_ContextName, kIn, 0, kBadScope},
    {kAudioUnitProperty_HostCallbacks, kGlobal, 0, noErr, 40, true},
    {kAudioUnitProperty_HostCallbacks, kIn, 0, kBadScope},
    {kAudioUnitProperty_ElementName, kOut, 0, noErr, 8, true},
    {kAudioUnitProperty_ElementName, kOut, 1, kBadElement},
    {kAudioUnitProperty_SupportedChannelLayoutTags, kIn, 0, kNoProperty},
    {kAudioUnitProperty_ParameterClumpName, kGlobal, 0, noErr, 16, false},
    {kAudioUnitProperty_PresentPreset, kGlobal, 0, noErr, 16, true},
    {kAudioUnitProperty_PresentPreset, kIn, 0, kBadScope},
    {kAudioUnitProperty_IconLocation, kGlobal, 0, kNoProperty},
    {kAudioUnitProperty_IconLocation, kIn, 0, kBadScope},
    {kAudioUnitProperty_ShouldAllocateBuffer, kOut, 0, noErr, 4, true},
    {kAudioUnitProperty_ShouldAllocateBuffer, kGlobal, 0, kBadScope},
    {kAudioUnitProperty_ParameterHistoryInfo, kGlobal, 7, noErr, 8, false},
    {kLastRenderedSampleTime, kOut, 0, noErr, 8, false},
    {kAudioUnitProperty_BypassEffect, kGlobal, 0, kNoProperty},
};

class PropertyTest : public ::testing::Test
{
protected:
    PropertyTest()
    {
        for (AudioUnitPropertyID id :
             {kAudioUnitProperty_StreamFormat, kAudioUnitProperty_HostCallbacks,
              kAudioUnitProperty_ContextName, kAudioUnitProperty_ElementName,
              kAudioUnitProperty_PresentPreset, kAudioUnitProperty_ElementCount}) {
            Unit().AddPropertyListener(id, ListenerLog::Hear, &mLog);
        }
    }

    AUBaseTestUnit& Unit() { return *mOwner; }

    OSStatus Set(AudioUnitPropertyID inID, AudioUnitScope inScope, AudioUnitElement inElement,
                 const void* inData, UInt32 inSize)
    {
        return Unit().DispatchSetProperty(inID, inScope, inElement, inData, inSize);
    }

    template <class T>
    OSStatus Get(AudioUnitPropertyID inID, AudioUnitScope inScope, AudioUnitElement inElement,
                 T& outValue)
    {
        return Unit().DispatchGetProperty(inID, inScope, inElement, &outValue);
    }

    std::unique_ptr<AUBaseTestUnit> mOwner = OpenUnit();
    ListenerLog mLog;
};

TEST_F(PropertyTest, InfoReportsSizeWritabilityAndStatusPerProperty)
{
    for (const InfoRow& row : kInfoRows) {
        UInt32 size = 0;
        bool writable = false;
        EXPECT_EQ(Unit().DispatchGetPropertyInfo(row.id, row.scope, row.element, size, writable),
                  row.status)
            << "property " << row.id << " scope " << row.scope << " element " << row.element;
        if (row.status == noErr) {
            EXPECT_EQ(size, row.size) << "property " << row.id;
            EXPECT_EQ(writable, row.writable) << "property " << row.id;
        }
    }
    UInt32 size = 0;
    bool writable = false;
    EXPECT_EQ(ThrownStatus([&] {
                  Unit().DispatchGetPropertyInfo(kAudioUnitProperty_ElementName, 4, 0, size,
                                                 writable);
              }),
              kBadScope);
    ASSERT_EQ(Unit().DoInitialize(), noErr);
    EXPECT_EQ(
        Unit().DispatchGetPropertyInfo(kAudioUnitProperty_StreamFormat, kIn, 0, size, writable),
        noErr);
    EXPECT_FALSE(writable);
}

// Every refused set returns its status and leaves the unit as it was: no
// format, name, preset or callback changes, and no listener hears anything.
TEST_F(PropertyTest, RefusedSetsChangeNothing)
{
    AudioStreamBasicDescription integer = FloatFormat(1);
    integer.mFormatFlags &= ~kAudioFormatFlagIsFloat;
    const CAStreamBasicDescription mono = FloatFormat(1);
    const Float64 rate = 96000.0;
    CFStringRef name = NewCFString("name");
    const Float64 notAString = 1.0;
    CFNumberRef number = CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &notAString);
    const AUPreset unnamed{-1, nullptr};
    const AUPreset factory{3, name};
    const HostCallbackInfo callbacks{this, nullptr, nullptr, nullptr, nullptr};
    const UInt32 count = 2;
    const struct
    {
        AudioUnitPropertyID id;
        AudioUnitScope scope;
        AudioUnitElement element;
        const void* data;
        UInt32 size;
        OSStatus status;
    } rows[] = {
        {kAudioUnitProperty_StreamFormat, kIn, 0, &mono, 35, kBadValue},
        {kAudioUnitProperty_StreamFormat, kIn, 1, &mono, 40, kBadElement},
        {kAudioUnitProperty_StreamFormat, kIn, 0, &integer, 40, kAudioUnitErr_FormatNotSupported},
        {kAudioUnitProperty_SampleRate, kOut, 0, &rate, 4, kBadValue},
        {kAudioUnitProperty_SampleRate, kOut, 1, &rate, 8, kBadElement},
        {kAudioUnitProperty_ElementCount, kOut, 0, &count, 2, kBadValue},
        {kAudioUnitProperty_ElementCount, kOut, 0, &count, 4, kAudioUnitErr_PropertyNotWritable},
        {kAudioUnitProperty_ContextName, kGlobal, 0, &name, 4, kBadValue},
        {kAudioUnitProperty_ContextName, kIn, 0, &name, 8, kBadScope},
        {kAudioUnitProperty_HostCallbacks, kIn, 0, &callbacks, 40, kBadScope},
        {kAudioUnitProperty_ElementName, kOut, 1, &name, 8, kBadElement},
        {kAudioUnitProperty_ElementName, kOut, 0, &name, 4, kBadValue},
        {kAudioUnitProperty_ElementName, kOut, 0, &number, 8, kBadValue},
        {kAudioUnitProperty_PresentPreset, kGlobal, 0, &unnamed, 16, kBadValue},
        {kAudioUnitProperty_PresentPreset, kGlobal, 0, &factory, 12, kBadValue},
        {kAudioUnitProperty_PresentPreset, kIn, 0, &factory, 16, kBadScope},
        {kAudioUnitProperty_PresentPreset, kGlobal, 0, &factory, 16, kNoProperty},
        {kAudioUnitProperty_ShouldAllocateBuffer, kGlobal, 0, &count, 4, kBadScope},
        {kAudioUnitProperty_ShouldAllocateBuffer, kIn, 1, &count, 4, kBadElement},
        {kAudioUnitProperty_ShouldAllocateBuffer, kIn, 0, &count, 2, kBadValue},
        {kAudioUnitProperty_MakeConnection, kIn, 0, &count, 4, kBadValue},
        {kAudioUnitProperty_SetRenderCallback, kIn, 0, &count, 8, kBadValue},
        {kAudioUnitProperty_SetExternalBuffer, kOut, 0, &callbacks, 16,
         kAudioUnitErr_Uninitialized},
        {kAudioUnitProperty_SetExternalBuffer, kOut, 0, &callbacks, 8, kBadValue},
        {kAudioUnitProperty_BypassEffect, kGlobal, 0, &count, 4, kNoProperty},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Set(row.id, row.scope, row.element, row.data, row.size), row.status)
            << "property " << row.id << " scope " << row.scope << " size " << row.size;
    }
    EXPECT_EQ(Unit().GetStreamFormat(kIn, 0).mChannelsPerFrame, 2u);
    EXPECT_EQ(Unit().GetStreamFormat(kOut, 0).mSampleRate, 44100.0);
    EXPECT_EQ(Unit().GetOutput(0)->GetName(), nullptr);
    EXPECT_EQ(Unit().CurrentPreset().presetNumber, -1);
    EXPECT_TRUE(Unit().GetInput(0)->WillAllocateBuffer());
    EXPECT_EQ(CFGetRetainCount(name), 1);
    EXPECT_TRUE(mLog.mCalls.empty());
    HostCallbackInfo read{};
    EXPECT_EQ(Get(kAudioUnitProperty_HostCallbacks, kGlobal, 0, read), noErr);
    EXPECT_EQ(read.hostUserData, nullptr);
    CFRelease(number);
    CFRelease(name);
}

TEST_F(PropertyTest, FormatSetsCompareBeforeTheyChangeAndNotify)
{
    Float64 rate = 44100.0; // the current rate
    EXPECT_EQ(Set(kAudioUnitProperty_SampleRate, kOut, 0, &rate, 8), noErr);
    EXPECT_EQ(mLog.CountOf(kAudioUnitProperty_StreamFormat), 0u) << "unchanged: not notified";
    rate = 96000.0;
    EXPECT_EQ(Set(kAudioUnitProperty_SampleRate, kOut, 0, &rate, 8), noErr);
    EXPECT_EQ(mLog.CountOf(kAudioUnitProperty_StreamFormat), 1u);
    Float64 read = 0.0;
    EXPECT_EQ(Get(kAudioUnitProperty_SampleRate, kGlobal, 0, read), noErr);
    EXPECT_EQ(read, 96000.0);
    const AudioStreamBasicDescription mono = FloatFormat(1, 96000.0);
    EXPECT_EQ(Set(kAudioUnitProperty_StreamFormat, kGlobal, 0, &mono, 36), noErr);
    EXPECT_EQ(Unit().GetStreamFormat(kOut, 0).mChannelsPerFrame, 1u) << "global is output 0";
    ASSERT_EQ(Unit().DoInitialize(), noErr);
    rate = 48000.0;
    EXPECT_EQ(Set(kAudioUnitProperty_SampleRate, kOut, 0, &rate, 8),
              kAudioUnitErr_PropertyNotWritable);
    EXPECT_EQ(Unit().GetStreamFormat(kOut, 0).mSampleRate, 96000.0);
    const UInt32 no = 0;
    EXPECT_EQ(Set(kAudioUnitProperty_ShouldAllocateBuffer, kIn, 0, &no, 4),
              kAudioUnitErr_Initialized);
}

TEST_F(PropertyTest, GetsHandOutValuesAndReferencesTheHostOwns)
{
    Float64 number = 0.0;
    EXPECT_EQ(Get(kLastRenderedSampleTime, kGlobal, 0, number), noErr);
    EXPECT_EQ(number, AUBase::kNoLastRenderedSampleTime);
    AudioUnitParameterID ids[3] = {};
    EXPECT_EQ(Get(kAudioUnitProperty_ParameterList, kGlobal, 0, ids), noErr);
    EXPECT_EQ(ids[2], 2u);
    UInt32 count = 0;
    EXPECT_EQ(Get(kAudioUnitProperty_ElementCount, kOut, 0, count), noErr);
    EXPECT_EQ(count, 1u);
    const UInt32 no = 0;
    EXPECT_EQ(Set(kAudioUnitProperty_ShouldAllocateBuffer, kIn, 0, &no, 4), noErr);
    EXPECT_EQ(Get(kAudioUnitProperty_ShouldAllocateBuffer, kIn, 0, count), noErr);
    EXPECT_EQ(count, 0u);
    void* proc = nullptr;
    EXPECT_EQ(Get(kAudioUnitProperty_FastDispatch, kGlobal, kAudioUnitGetParameterSelect, proc),
              noErr);
    EXPECT_EQ(proc, reinterpret_cast<void*>(&CMgr_AudioUnitBaseGetParameter));
    EXPECT_EQ(Get(kAudioUnitProperty_FastDispatch, kGlobal, kAudioUnitResetSelect, proc),
              kNoProperty);
    // The system clump is refused; others go to the unit, which has none.
    AudioUnitParameterNameInfo clump{kAudioUnitClumpID_System, -1, nullptr};
    EXPECT_EQ(Get(kAudioUnitProperty_ParameterClumpName, kGlobal, 0, clump), kBadValue);
    clump.inID = 1;
    EXPECT_EQ(Get(kAudioUnitProperty_ParameterClumpName, kGlobal, 0, clump), kNoProperty);
}

TEST_F(PropertyTest, NamesPresetsAndHostCallbacksAreRetainedAndNotifiedOnChange)
{
    CFStringRef name = NewCFString("Host document");
    CFStringRef got = nullptr;
    for (AudioUnitPropertyID id :
         {kAudioUnitProperty_ContextName, kAudioUnitProperty_ElementName}) {
        const AudioUnitScope scope = id == kAudioUnitProperty_ContextName ? kGlobal : kOut;
        EXPECT_EQ(Get(id, scope, 0, got), kBadValue) << "no name yet";
        EXPECT_EQ(Set(id, scope, 0, &name, 8), noErr);
        EXPECT_EQ(Get(id, scope, 0, got), noErr);
        EXPECT_EQ(got, name);
        CFRelease(got);
        EXPECT_EQ(mLog.CountOf(id), 1u);
    }
    EXPECT_EQ(Unit().DispatchRemovePropertyValue(kAudioUnitProperty_ContextName, kGlobal, 0),
              noErr);
    EXPECT_EQ(Get(kAudioUnitProperty_ContextName, kGlobal, 0, got), kBadValue);
    AUPreset preset{-1, name};
    EXPECT_EQ(Set(kAudioUnitProperty_PresentPreset, kGlobal, 0, &preset, 16), noErr);
    EXPECT_FALSE(Unit().SetAFactoryPresetAsCurrent(AUPreset{-2, name}));
    EXPECT_FALSE(Unit().SetAFactoryPresetAsCurrent(AUPreset{2, nullptr}));
    EXPECT_TRUE(Unit().SetAFactoryPresetAsCurrent(AUPreset{2, name}));
    EXPECT_EQ(Get(kAudioUnitProperty_PresentPreset, kGlobal, 0, preset), noErr);
    EXPECT_EQ(preset.presetNumber, 2);
    EXPECT_EQ(CFGetRetainCount(name), 4); // ours, the element's, the preset's and the host's
    CFRelease(preset.presetName);
    CFRelease(name);
    EXPECT_EQ(mLog.CountOf(kAudioUnitProperty_PresentPreset), 1u) << "factory presets are quiet";

    HostCallbackInfo info{};
    info.hostUserData = this;
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(Set(kAudioUnitProperty_HostCallbacks, kGlobal, 0, &info, 40), noErr);
    }
    HostCallbackInfo read{};
    EXPECT_EQ(Get(kAudioUnitProperty_HostCallbacks, kGlobal, 0, read), noErr);
    EXPECT_EQ(read.hostUserData, this);
    const auto remove = [&](AudioUnitScope inScope) {
        return Unit().DispatchRemovePropertyValue(kAudioUnitProperty_HostCallbacks, inScope, 0);
    };
    EXPECT_EQ(remove(kIn), kBadScope);
    EXPECT_EQ(remove(kGlobal), noErr);
    EXPECT_EQ(remove(kGlobal), noErr);
    EXPECT_EQ(mLog.CountOf(kAudioUnitProperty_HostCallbacks), 2u) << "set once, cleared once";
    EXPECT_EQ(Unit().DispatchRemovePropertyValue(kAudioUnitProperty_Latency, kGlobal, 0),
              kBadValue);

    // Removing a listener by its user data leaves the others of the same procedure.
    ListenerLog other;
    Unit().AddPropertyListener(kAudioUnitProperty_ContextName, ListenerLog::Hear, &other);
    Unit().RemovePropertyListener(kAudioUnitProperty_ContextName, ListenerLog::Hear, &other, true);
    const size_t heard = mLog.CountOf(kAudioUnitProperty_ContextName);
    Unit().PropertyChanged(kAudioUnitProperty_ContextName, kGlobal, 0);
    EXPECT_EQ(mLog.CountOf(kAudioUnitProperty_ContextName), heard + 1);
    EXPECT_TRUE(other.mCalls.empty());
}

// ---- Elements and scopes ----------------------------------------------------

TEST(AUElementTest, IndexedAndSparseParameterStorage)
{
    auto unit = OpenUnit(1, 1, 3);
    AUElement element(unit.get());
    element.UseIndexedParameters(7);
    element.SetParameter(6, 0.5f);
    EXPECT_EQ(ThrownStatus([&] { element.SetParameter(7, 1.0f); }), kAudioUnitErr_InvalidParameter);
    element.UseIndexedParameters(9); // keeps the records below the new size
    EXPECT_EQ(element.GetParameter(6), 0.5f);
    EXPECT_EQ(element.GetParameter(8), 0.0f);

    // Sparse storage lists its ids in order and grows only while the unit is
    // uninitialized; the scope's list comes from its fullest element (the
    // lowest index on a tie).
    AUElement& sparse = *unit->Groups().GetElement(1);
    for (AudioUnitParameterID id : {9u, 2u, 5u}) {
        sparse.SetParameter(id, 1.0f);
        unit->Groups().GetElement(2)->SetParameter(id + 1, 1.0f);
    }
    AudioUnitParameterID list[3] = {};
    UInt32 count = 0;
    EXPECT_EQ(unit->GetParameterList(kGroup, list, count), noErr);
    EXPECT_EQ(count, 3u);
    EXPECT_EQ(std::vector<AudioUnitParameterID>(list, list + 3),
              (std::vector<AudioUnitParameterID>{2, 5, 9}));
    ASSERT_EQ(unit->DoInitialize(), noErr);
    sparse.SetParameter(3, 3.0f); // silently ignored
    sparse.SetScheduledEvent(4, ImmediateEvent(4, 0, 4.0f), 0, 16);
    EXPECT_EQ(sparse.GetNumberOfParameters(), 3u);
    EXPECT_EQ(ThrownStatus([&] { sparse.GetParameter(3); }), kAudioUnitErr_InvalidParameter);
    sparse.SetParameter(5, 50.0f); // existing records still change
    EXPECT_EQ(sparse.GetParameter(5), 50.0f);
    sparse.SetParameter(4, 4.0f, true);
    EXPECT_EQ(sparse.GetParameter(4), 4.0f);
}

// ---- Units opened through the runtime: state and connections ----------------

// The unit registered with the runtime in both hosting styles, as a bundle
// would register it.
ComponentDescription gDescription = {kAudioUnitType_Effect, 0x74537474 /* tStt */,
                                     0x56616E64 /* Vand */, 0, 0};

// Opens the unit through the runtime in one style; null on failure.
AudioUnit Open(OpenStyle inStyle, OSStatus* outStatus = nullptr)
{
    static const bool sRegistered =
        (RegisterBothStyles(gDescription, TestUnitFactory, reinterpret_cast<void*>(TestUnitEntry)),
         true);
    (void)sRegistered;
    AudioUnit unit = nullptr;
    const OSStatus status = OpenInStyle(gDescription, inStyle, &unit);
    if (outStatus != nullptr) {
        *outStatus = status;
    }
    return unit;
}

// The instance under test, and a second one as a connection source.
class HostedTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_NE(mSource = Open(OpenStyle::kFactory), nullptr);
        mSourceUnit = AUBaseTestUnit::sLastOpened;
        ASSERT_NE(mInstance = Open(OpenStyle::kFactory), nullptr);
        mUnit = AUBaseTestUnit::sLastOpened;
        for (AudioUnitPropertyID id :
             {kAudioUnitProperty_PresentPreset, kAudioUnitProperty_ElementCount,
              kAudioUnitProperty_MakeConnection, kAudioUnitProperty_StreamFormat}) {
            AudioUnitAddPropertyListener(mInstance, id, ListenerLog::Hear, &mLog);
        }
    }

    void TearDown() override
    {
        AudioComponentInstanceDispose(mInstance);
        AudioComponentInstanceDispose(mSource);
    }

    AudioComponentInstance mInstance = nullptr;
    AudioComponentInstance mSource = nullptr;
    AUBaseTestUnit* mUnit = nullptr;
    AUBaseTestUnit* mSourceUnit = nullptr;
    ListenerLog mLog;
};

using Bytes = std::vector<UInt8>;

// One blob record: scope, element, then (id, value) entries, big-endian.
Bytes Record(UInt32 inScope, UInt32 inElement, std::vector<std::pair<UInt32, float>> inEntries)
{
    Bytes bytes;
    const auto put = [&bytes](UInt32 inValue) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            bytes.push_back(static_cast<UInt8>(inValue >> shift));
        }
    };
    put(inScope);
    put(inElement);
    put(static_cast<UInt32>(inEntries.size()));
    for (const auto& [id, value] : inEntries) {
        UInt32 bits;
        std::memcpy(&bits, &value, sizeof(bits));
        put(id);
        put(bits);
    }
    return bytes;
}

Bytes operator+(Bytes a, const Bytes& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// Stores a value under a key, giving up the caller's reference to it.
void Put(CFMutableDictionaryRef ioDict, const char* inKey, CFTypeRef inValue)
{
    CFStringRef key = NewCFString(inKey);
    CFDictionarySetValue(ioDict, key, inValue);
    CFRelease(key);
    CFRelease(inValue);
}

CFTypeRef Int(SInt32 inValue)
{
    return CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &inValue);
}

CFTypeRef Data(const Bytes& inBytes)
{
    return CFDataCreate(kCFAllocatorDefault, inBytes.data(), static_cast<CFIndex>(inBytes.size()));
}

CFTypeRef Names(const char* inScope, const char* inElement, CFTypeRef inName)
{
    CFMutableDictionaryRef elements = NewCFTypeDictionary();
    Put(elements, inElement, inName);
    CFMutableDictionaryRef scopes = NewCFTypeDictionary();
    Put(scopes, inScope, elements);
    return scopes;
}

// A state for this unit: identity keys, plus the given ones.
CFMutableDictionaryRef State(std::vector<std::pair<const char*, CFTypeRef>> inEntries = {})
{
    CFMutableDictionaryRef dict = NewCFTypeDictionary();
    Put(dict, "version", Int(0));
    Put(dict, "subtype", Int(static_cast<SInt32>(gDescription.componentSubType)));
    Put(dict, "manufacturer", Int(static_cast<SInt32>(gDescription.componentManufacturer)));
    for (const auto& [key, value] : inEntries) {
        Put(dict, key, value);
    }
    return dict;
}

class StateTest : public HostedTest
{
protected:
    CFPropertyListRef Save()
    {
        CFPropertyListRef state = nullptr;
        UInt32 size = sizeof(state);
        EXPECT_EQ(AudioUnitGetProperty(mInstance, kAudioUnitProperty_ClassInfo, kGlobal, 0, &state,
                                       &size),
                  noErr);
        return state;
    }

    // Restores a state and releases it.
    OSStatus Restore(CFPropertyListRef inState, UInt32 inSize = sizeof(CFPropertyListRef),
                     AudioUnitScope inScope = kGlobal)
    {
        const OSStatus status = AudioUnitSetProperty(mInstance, kAudioUnitProperty_ClassInfo,
                                                     inScope, 0, &inState, inSize);
        CFRelease(inState);
        return status;
    }

    std::vector<float> Values()
    {
        std::vector<float> values;
        for (UInt32 id = 0; id < AUBaseTestUnit::kNumParameters; ++id) {
            values.push_back(mUnit->Globals()->GetParameter(id));
        }
        return values;
    }

    std::string PresetName() { return ToString(mUnit->CurrentPreset().presetName); }
};

TEST_F(StateTest, SaveThenRestoreGivesBackValuesAndNamesTheUserPreset)
{
    mUnit->Globals()->SetParameter(0, 1.5f);
    mUnit->Globals()->SetParameter(1, -2.0f);
    mUnit->Globals()->SetParameter(2, 3e-7f);
    CFStringRef mine = NewCFString("Mine");
    CFStringRef other = NewCFString("Other");
    AUPreset preset{-1, mine};
    ASSERT_EQ(AudioUnitSetProperty(mInstance, kAudioUnitProperty_PresentPreset, kGlobal, 0, &preset,
                                   sizeof(preset)),
              noErr);
    CFPropertyListRef state = Save();
    CFDictionaryRef dict = static_cast<CFDictionaryRef>(state);
    SInt32 number = -1;
    CFNumberGetValue(static_cast<CFNumberRef>(CFDictionaryGetValue(dict, CFSTR("subtype"))),
                     kCFNumberSInt32Type, &number);
    EXPECT_EQ(static_cast<UInt32>(number), gDescription.componentSubType);
    EXPECT_EQ(ToString(CFDictionaryGetValue(dict, CFSTR("name"))), "Mine");
    EXPECT_EQ(CFDictionaryGetCount(dict), 6) << "no quality, load or element names";
    CFDataRef data = static_cast<CFDataRef>(CFDictionaryGetValue(dict, CFSTR("data")));
    EXPECT_EQ(Bytes(CFDataGetBytePtr(data), CFDataGetBytePtr(data) + CFDataGetLength(data)),
              Record(0, 0, {{0, 1.5f}, {1, -2.0f}, {2, 3e-7f}}));

    mUnit->Globals()->SetParameter(0, 0.0f);
    mUnit->Globals()->SetParameter(2, 0.0f);
    mUnit->SetAFactoryPresetAsCurrent(AUPreset{4, other});
    mLog.mCalls.clear();
    EXPECT_EQ(Restore(state), noErr);
    EXPECT_EQ(Values(), (std::vector<float>{1.5f, -2.0f, 3e-7f}));
    EXPECT_EQ(mUnit->CurrentPreset().presetNumber, -1);
    EXPECT_EQ(PresetName(), "Mine");
    EXPECT_EQ(CFGetRetainCount(other), 1) << "the replaced name is released";
    EXPECT_EQ(mLog.mCalls,
              (std::vector<ListenerLog::Call>{{kAudioUnitProperty_PresentPreset, kGlobal, 0}}));
    CFRelease(mine);
    CFRelease(other);
}

TEST_F(StateTest, MalformedStatesAreRefusedWithoutChangingAnything)
{
    const Bytes good = Record(0, 0, {{0, 4.0f}});
    Bytes cut = Record(0, 0, {{1, 5.0f}, {2, 6.0f}});
    cut.pop_back();
    Bytes huge = Record(0, 0, {});
    huge[8] = huge[9] = huge[10] = huge[11] = 0xFF;
    const std::vector<std::pair<const char*, std::function<CFTypeRef()>>> cases = {
        {"version", [] { return Int(1); }},
        {"version", [] { return NewCFString("0"); }},
        {"subtype", [] { return Int(1); }},
        {"subtype", [] { return NewCFString("tStt"); }},
        {"manufacturer", [] { return Int(2); }},
        {"part", [] { return Int(0); }},
        {"data", [] { return NewCFString("x"); }},
        {"name", [] { return Int(3); }},
        {"render-quality", [] { return NewCFString("hi"); }},
        {"cpu-load", [] { return NewCFString("lo"); }},
        {"element-name", [] { return NewCFString("a"); }},
        {"element-name", [] { return Names("2", "0", Int(5)); }},
        {"element-name",
         [] {
             CFMutableDictionaryRef names = NewCFTypeDictionary();
             Put(names, "2", NewCFString("b"));
             return CFTypeRef(names);
         }},
        {"data", [&] { return Data(good + Bytes(11, 0)); }}, // header cut short
        {"data", [&] { return Data(good + cut); }},
        {"data", [&] { return Data(good + huge); }}, // count past the end
    };
    const std::vector<float> before = Values();
    for (const auto& [key, value] : cases) {
        CFMutableDictionaryRef state =
            State({{"data", Data(good)}, {"name", NewCFString("refused")}, {key, value()}});
        EXPECT_EQ(Restore(state), kBadValue) << key;
    }
    for (const char* missing : {"version", "subtype", "manufacturer"}) {
        CFMutableDictionaryRef state = State({{"data", Data(good)}});
        CFStringRef key = NewCFString(missing);
        CFDictionaryRemoveValue(state, key);
        CFRelease(key);
        EXPECT_EQ(Restore(state), kBadValue) << "no " << missing;
    }
    EXPECT_EQ(Restore(NewCFString("state")), kBadValue);
    EXPECT_EQ(Restore(State(), 4), kBadValue);
    EXPECT_EQ(Restore(State(), sizeof(CFPropertyListRef), kIn), kBadScope);
    EXPECT_EQ(Values(), before);
    EXPECT_EQ(PresetName(), "Untitled");
    EXPECT_TRUE(mLog.mCalls.empty());
}

TEST_F(StateTest, BlobRecordsApplyUntilAMissingElementOrAnError)
{
    EXPECT_EQ(
        Restore(State({{"type", Int(0x61756D75)}, // another type is not compared
                       {"data", Data(Record(0, 0, {}) + Record(0, 0, {{1, 7.0f}}) +
                                     Record(2, 3, {{0, 8.0f}}) + Record(0, 0, {{2, 9.0f}}))}})),
        noErr);
    EXPECT_EQ(Values(), (std::vector<float>{10.0f, 7.0f, 30.0f}));
    EXPECT_EQ(Restore(State({{"name", NewCFString("bad scope")},
                             {"data", Data(Record(0, 0, {{0, 1.0f}}) + Record(7, 0, {}))}})),
              kBadScope);
    EXPECT_EQ(PresetName(), "Untitled");
    EXPECT_EQ(Restore(State({{"data", Data(Record(0, 0, {{0, 2.0f}, {3, 2.0f}}))}})),
              kAudioUnitErr_InvalidParameter);
    EXPECT_EQ(Restore(State({{"data", Data({})}})), noErr);
    EXPECT_EQ(Values(), (std::vector<float>{2.0f, 7.0f, 30.0f}));
}

TEST_F(StateTest, ElementNamesAreSavedAndRestoredPerScope)
{
    CFStringRef name = NewCFString("Main out");
    ASSERT_EQ(AudioUnitSetProperty(mInstance, kAudioUnitProperty_ElementName, kOut, 0, &name,
                                   sizeof(name)),
              noErr);
    CFRelease(name);
    CFPropertyListRef saved = Save();
    CFDictionaryRef names = static_cast<CFDictionaryRef>(
        CFDictionaryGetValue(static_cast<CFDictionaryRef>(saved), CFSTR("element-name")));
    ASSERT_NE(names, nullptr);
    EXPECT_EQ(CFDictionaryGetCount(names), 1);
    CFDictionaryRef outputs = static_cast<CFDictionaryRef>(CFDictionaryGetValue(names, CFSTR("2")));
    ASSERT_NE(outputs, nullptr);
    EXPECT_EQ(CFDictionaryGetCount(outputs), 1);
    EXPECT_EQ(ToString(CFDictionaryGetValue(outputs, CFSTR("0"))), "Main out");

    mUnit->GetOutput(0)->SetName(nullptr);
    EXPECT_EQ(Restore(saved), noErr);
    EXPECT_EQ(ToString(mUnit->GetOutput(0)->GetName()), "Main out");
    EXPECT_EQ(mLog.CountOf(kAudioUnitProperty_ElementCount), 0u);
    // Names for group elements the unit lacks create them, and listeners hear
    // about the new element count.
    EXPECT_EQ(Restore(State({{"element-name", Names("3", "1", NewCFString("Group B"))}})), noErr);
    EXPECT_EQ(mUnit->Groups().GetNumberOfElements(), 2u);
    EXPECT_EQ(ToString(mUnit->Groups().GetElement(1)->GetName()), "Group B");
    EXPECT_EQ(mLog.CountOf(kAudioUnitProperty_ElementCount), 1u);
}

TEST_F(HostedTest, ConnectedInputTakesTheSourceFormatKeepsItAndPullsThroughTheRuntime)
{
    const CAStreamBasicDescription mono = FloatFormat(1, 48000.0);
    const CAStreamBasicDescription stereo = FloatFormat(2, 48000.0);
    const auto connect = [&](AudioUnit inSource, UInt32 inOutput = 0, UInt32 inInput = 0) {
        const AudioUnitConnection connection{inSource, inOutput, inInput};
        return AudioUnitSetProperty(mInstance, kAudioUnitProperty_MakeConnection, kIn, inInput,
                                    &connection, sizeof(connection));
    };
    // Refused connections leave the input as it was.
    EXPECT_EQ(connect(mSource, 5), kBadElement); // the source has one output
    EXPECT_EQ(connect(mSource, 0, 3), kBadElement);
    CAStreamBasicDescription interleaved = stereo;
    interleaved.mFormatFlags &= ~static_cast<UInt32>(kAudioFormatFlagIsNonInterleaved);
    mSourceUnit->GetOutput(0)->SetStreamFormat(interleaved);
    EXPECT_EQ(connect(mSource), kAudioUnitErr_FormatNotSupported);
    EXPECT_TRUE(mLog.mCalls.empty());

    mSourceUnit->GetOutput(0)->SetStreamFormat(mono);
    ASSERT_EQ(connect(mSource), noErr);
    AUInputElement* in = mUnit->GetInput(0);
    EXPECT_TRUE(mUnit->GetStreamFormat(kIn, 0).IsEqual(mono, false));
    EXPECT_EQ(mLog.mCalls,
              (std::vector<ListenerLog::Call>{{kAudioUnitProperty_StreamFormat, kIn, 0},
                                              {kAudioUnitProperty_MakeConnection, kIn, 0}}));
    EXPECT_EQ(AudioUnitSetProperty(mInstance, kAudioUnitProperty_StreamFormat, kIn, 0, &stereo,
                                   sizeof(stereo)),
              kAudioUnitErr_PropertyNotWritable);
    // The source renders into its own memory; the pull hands that on.
    ASSERT_EQ(AudioUnitInitialize(mSource), noErr);
    ASSERT_EQ(AudioUnitInitialize(mInstance), noErr);
    AudioUnitRenderActionFlags flags = 0;
    EXPECT_EQ(in->PullInput(flags, TimeAt(0), 0, 256), noErr);
    EXPECT_EQ(mSourceUnit->mRenderCalls, 1);
    const AudioBufferList& pulled = in->GetBufferList().GetPreparedList();
    ASSERT_EQ(pulled.mNumberBuffers, 1u);
    EXPECT_EQ(pulled.mBuffers[0].mDataByteSize, 1024u);
    EXPECT_EQ(static_cast<float*>(pulled.mBuffers[0].mData)[255], 1.0f);
    ASSERT_EQ(connect(nullptr), noErr);
    EXPECT_EQ(in->PullInput(flags, TimeAt(256), 0, 256), kAudioUnitErr_NoConnection);
}

// ---- The entry layer: routing, size rules, statuses -------------------------

// A unit opened through the runtime, closed at the end of the test.
class DispatchTest : public ::testing::TestWithParam<OpenStyle>
{
protected:
    void SetUp() override
    {
        ASSERT_NE(nullptr, mUnit);
        for (UInt32 b = 0; b < 2; ++b) {
            mList.mBuffers[b] = {1, 64 * 4, mSamples[b]};
        }
    }

    void TearDown() override { EXPECT_EQ(noErr, AudioComponentInstanceDispose(mUnit)); }

    // Renders 64 frames of the default stereo format into host memory.
    OSStatus Render(Float64 inSampleTime, AudioUnitRenderActionFlags* ioFlags = nullptr)
    {
        const AudioTimeStamp stamp = TimeAt(inSampleTime);
        return AudioUnitRender(mUnit, ioFlags, &stamp, 0, 64, &mList);
    }

    AudioUnit mUnit = Open(GetParam());
    AUBaseTestUnit* mObject = AUBaseTestUnit::sLastOpened;
    Float32 mSamples[2][64] = {};
    BufferListStorage mStorage{2};
    AudioBufferList& mList = mStorage.List();
};

TEST_P(DispatchTest, GetPropertyFollowsTheSizeRules)
{
    CAStreamBasicDescription format;
    UInt32 size = 0;
    const auto get = [&](AudioUnitPropertyID inID, void* outData, UInt32* ioSize) {
        return AudioUnitGetProperty(mUnit, inID, kAudioUnitScope_Output, 0, outData, ioSize);
    };
    EXPECT_EQ(paramErr, get(kAudioUnitProperty_StreamFormat, &format, nullptr));
    EXPECT_EQ(paramErr, get(kAudioUnitProperty_StreamFormat, &format, &size));
    size = 3;
    EXPECT_EQ(noErr, get(kAudioUnitProperty_StreamFormat, nullptr, &size));
    EXPECT_EQ(40U, size) << "a null buffer asks for the size";
    size = 64;
    ASSERT_EQ(noErr, get(kAudioUnitProperty_StreamFormat, &format, &size));
    EXPECT_EQ(40U, size);
    EXPECT_EQ(44100.0, format.mSampleRate);
    UInt8 shortBuffer[8];
    std::memset(shortBuffer, 0xEE, sizeof shortBuffer);
    size = 4;
    ASSERT_EQ(noErr, get(kAudioUnitProperty_StreamFormat, shortBuffer, &size));
    EXPECT_EQ(4U, size);
    EXPECT_EQ(0, std::memcmp(shortBuffer, &format, 4)) << "the first bytes of the value";
    EXPECT_EQ(0xEE, shortBuffer[4]) << "nothing beyond the caller's size";
    size = 8;
    EXPECT_EQ(kAudioUnitErr_InvalidPropertyValue,
              get(kAudioUnitProperty_ElementName, &format, &size));
    EXPECT_EQ(0U, size) << "a failed get reports no bytes";
    size = 8;
    EXPECT_EQ(kAudioUnitErr_InvalidProperty, get(0x7A7A7A7A, &format, &size));
    EXPECT_EQ(8U, size);
}

TEST_P(DispatchTest, RenderArgumentsAreCheckedBeforeTheUnit)
{
    AudioUnitRenderActionFlags flags = 0;
    EXPECT_EQ(paramErr, AudioUnitRender(mUnit, &flags, nullptr, 0, 64, &mList));
    const AudioTimeStamp stamp = TimeAt(0);
    EXPECT_EQ(paramErr, AudioUnitRender(mUnit, &flags, &stamp, 0, 64, nullptr));
    EXPECT_EQ(noErr, mObject->LastRenderError()) << "the unit never saw those calls";
    EXPECT_EQ(kAudioUnitErr_Uninitialized, Render(0, &flags));
    ASSERT_EQ(noErr, AudioUnitInitialize(mUnit));
    EXPECT_EQ(noErr, Render(64)) << "null flags read as 0";
    Float64 time = 0;
    UInt32 size = sizeof time;
    EXPECT_EQ(noErr,
              AudioUnitGetProperty(mUnit, kLastRenderedSampleTime, kGlobal, 0, &time, &size));
    EXPECT_EQ(64.0, time);
    EXPECT_EQ(noErr, AudioUnitUninitialize(mUnit));
    EXPECT_EQ(kAudioUnitErr_Uninitialized, Render(128, &flags));
}

TEST_P(DispatchTest, FailedOpenLeavesNothing)
{
    const int preDestructed = AUBaseTestUnit::sPreDestructorCalls;
    const int live = AUBaseTestUnit::sLiveObjects;
    for (bool inConstructor : {true, false}) {
        AUBaseTestUnit::sThrowInConstructor = inConstructor;
        AUBaseTestUnit::sThrowInPostConstructor = !inConstructor;
        OSStatus status = noErr;
        EXPECT_EQ(nullptr, Open(GetParam(), &status));
        EXPECT_EQ(inConstructor ? OSStatus(kAudioUnitErr_FailedInitialization)
                                : OSStatus(memFullErr),
                  status);
        EXPECT_EQ(live, AUBaseTestUnit::sLiveObjects);
    }
    AUBaseTestUnit::sThrowInConstructor = false;
    AUBaseTestUnit::sThrowInPostConstructor = false;
    EXPECT_EQ(preDestructed, AUBaseTestUnit::sPreDestructorCalls) << "never became usable";
    EXPECT_EQ(UInt32(ComponentBase::kComponentMgrInstance), ComponentBase::sNewInstanceType);
}

TEST_P(DispatchTest, EveryExceptionBecomesItsStatus)
{
    const std::pair<std::function<void()>, OSStatus> cases[] = {
        {[] { throw CAXException("test operation", -1234); }, -1234},
        {[] { throw std::bad_alloc(); }, memFullErr},
        {[] { throw static_cast<OSStatus>(kAudioUnitErr_InvalidParameter); },
         kAudioUnitErr_InvalidParameter},
        {[] { throw static_cast<OSErr>(-32767); }, -32767},
        {[] { throw static_cast<OSStatus>(5); }, 5},
        {[] { throw CAException(-99); }, -1}, // its status is not passed on
        {[] { throw std::runtime_error("unrelated"); }, -1},
    };
    const UInt32 value = 0;
    for (const auto& [thrower, status] : cases) {
        AUBaseTestUnit::sThrow = thrower;
        EXPECT_EQ(status, AudioUnitSetProperty(mUnit, kThrowProperty, kAudioUnitScope_Global, 0,
                                               &value, sizeof value));
    }
}

INSTANTIATE_TEST_SUITE_P(BothStyles, DispatchTest,
                         ::testing::Values(OpenStyle::kFactory, OpenStyle::kEntryPoint));

// ---- The selector table, through the entry point and the factory's Lookup ----

TEST(SelectorTableTest, CanDoLookupAndDispatchAgreeOnEverySelector)
{
    AudioUnit unit = Open(OpenStyle::kEntryPoint);
    ASSERT_NE(nullptr, unit);
    AUBaseTestUnit* object = AUBaseTestUnit::sLastOpened;
    // A parameter block with room for one argument after the instance slot.
    struct
    {
        ComponentParameters header;
        long slot1;
    } block = {};
    block.header.params[0] = reinterpret_cast<long>(unit);
    const auto call = [&](SInt16 inSelector, long inSlot1 = 0) {
        block.header.what = inSelector;
        block.slot1 = inSlot1;
        return TestUnitEntry(&block.header, object);
    };
    for (SInt16 selector = -6; selector <= 24; ++selector) {
        const bool base = selector >= -4 && selector <= -1;
        const bool unitSelector = (selector >= 1 && selector <= 7) || selector == 9 ||
                                  selector == 10 || (selector >= 14 && selector <= 18);
        SCOPED_TRACE("selector " + std::to_string(selector));
        EXPECT_EQ(base || unitSelector ? 1 : 0, call(kComponentCanDoSelect, UInt16(selector)));
        EXPECT_EQ(unitSelector, AUBaseLookup::Lookup(selector) != nullptr);
        if (!base && !unitSelector) {
            EXPECT_EQ(OSStatus(-2147450878), call(selector)) << "bad component selector";
        }
    }
    EXPECT_EQ(1, call(kComponentCanDoSelect, 0xABCD000E)) << "only the low 16 bits count";
    EXPECT_EQ(1, call(kComponentVersionSelect));
    EXPECT_EQ(paramErr, TestUnitEntry(&block.header, nullptr));
    EXPECT_EQ(paramErr, TestUnitEntry(nullptr, object));
    EXPECT_EQ(paramErr, AUBase::ComponentEntryDispatch(&block.header, nullptr));
    EXPECT_EQ(paramErr, ComponentBase::ComponentEntryDispatch(&block.header, nullptr));
    EXPECT_EQ(noErr, CloseComponent(unit));

    // The close selector tears the object down and deletes it.
    object = new AUBaseTestUnit(nullptr);
    object->PostConstructor();
    const int preDestructed = AUBaseTestUnit::sPreDestructorCalls;
    const int live = AUBaseTestUnit::sLiveObjects;
    EXPECT_EQ(noErr, call(kComponentCloseSelect));
    EXPECT_EQ(preDestructed + 1, AUBaseTestUnit::sPreDestructorCalls);
    EXPECT_EQ(live - 1, AUBaseTestUnit::sLiveObjects) << "deleted";
}

TEST(ComponentBaseTest, ConcurrentOpenLockHoldersAreSerializedAndNestOnOneThread)
{
    std::atomic<int> inside{0};
    std::atomic<int> overlaps{0};
    std::atomic<UInt32> typesSeen{0};
    RunTogether(2, [&](int inThread) {
        for (int i = 0; i < 200; ++i) {
            ComponentInitLocker locker(inThread == 0 ? ComponentBase::kAudioComponentInstance
                                                     : ComponentBase::kComponentMgrInstance);
            overlaps += inside.fetch_add(1) != 0 ? 1 : 0;
            {
                ComponentInitLocker nested(ComponentBase::kComponentMgrInstance);
            }
            typesSeen |= 1U << ComponentBase::sNewInstanceType;
            std::this_thread::yield();
            inside.fetch_sub(1);
        }
    });
    EXPECT_EQ(0, overlaps.load());
    EXPECT_EQ(3U, typesSeen.load());
    EXPECT_EQ(UInt32(ComponentBase::kComponentMgrInstance), ComponentBase::sNewInstanceType);
}

} // namespace
