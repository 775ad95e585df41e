#include "AllocationCounter.h"
#include "AUBase.h"
#include "AUInputElement.h"
#include "ComponentBase.h"
#include "ThrownStatus.h"

#include <gtest/gtest.h>

namespace {

class TestUnit : public AUBase
{
public:
    TestUnit() : AUBase(nullptr, 1, 1, 0) { CreateElements(); }
    bool StreamFormatWritable(AudioUnitScope, AudioUnitElement) override
    {
        return !IsInitialized();
    }
};

AudioTimeStamp TimeAt(Float64 sampleTime)
{
    AudioTimeStamp ts{};
    ts.mSampleTime = sampleTime;
    ts.mFlags = kAudioTimeStampSampleTimeValid;
    return ts;
}

// What a host render callback saw.
struct CallbackLog
{
    int calls = 0;
    void* refCon = nullptr;
    AudioUnitRenderActionFlags* flags = nullptr;
    const AudioTimeStamp* timeStamp = nullptr;
    UInt32 bus = 0;
    UInt32 frames = 0;
    AudioBufferList* list = nullptr;
    void* firstData = nullptr;
    OSStatus result = noErr;
    AUInputElement* disconnect = nullptr;
    float* supplied[2] = {nullptr, nullptr};
};

// Writes channel c, frame i as 100 c + i into the buffers it is given, or
// first points them at its own buffers when the records have none.
OSStatus HostCallback(void* inRefCon, AudioUnitRenderActionFlags* ioActionFlags,
                      const AudioTimeStamp* inTimeStamp, UInt32 inBusNumber, UInt32 inNumberFrames,
                      AudioBufferList* ioData)
{
    auto* log = static_cast<CallbackLog*>(inRefCon);
    ++log->calls;
    log->refCon = inRefCon;
    log->flags = ioActionFlags;
    log->timeStamp = inTimeStamp;
    log->bus = inBusNumber;
    log->frames = inNumberFrames;
    log->list = ioData;
    log->firstData = ioData->mBuffers[0].mData;
    for (UInt32 c = 0; c < ioData->mNumberBuffers; ++c) {
        if (ioData->mBuffers[c].mData == nullptr) {
            ioData->mBuffers[c].mData = log->supplied[c];
        }
        auto* samples = static_cast<float*>(ioData->mBuffers[c].mData);
        for (UInt32 i = 0; i < inNumberFrames; ++i) {
            samples[i] = 100.0f * c + i;
        }
    }
    if (log->disconnect != nullptr) {
        log->disconnect->SetInputCallback(nullptr, nullptr);
    }
    return log->result;
}

TEST(AUInputElementTest, UnconnectedInputNeedsNoMemoryAndRefusesToPull)
{
    TestUnit unit;
    AUInputElement* in = unit.GetInput(0);
    EXPECT_FALSE(in->HasSource());
    EXPECT_FALSE(in->NeedsBufferSpace());
    ASSERT_EQ(unit.DoInitialize(), noErr);
    EXPECT_EQ(in->GetBufferList().GetAllocatedStreams(), 2u) << "a list header only";
    EXPECT_EQ(in->GetBufferList().GetAllocatedBytes(), 0u);

    AudioUnitRenderActionFlags flags = 0;
    const AudioTimeStamp ts = TimeAt(0);
    EXPECT_EQ(in->PullInput(flags, ts, 0, 512), kAudioUnitErr_NoConnection);
    EXPECT_EQ(in->GetBufferList().GetPointerState(), AUBufferList::kPointersInvalid)
        << "nothing prepared";
}

TEST(AUInputElementTest, CallbackFillsTheBusMemory)
{
    TestUnit unit;
    AUInputElement* in = unit.GetInput(0);
    CallbackLog log;
    in->SetInputCallback(HostCallback, &log);
    EXPECT_TRUE(in->HasSource());
    EXPECT_TRUE(in->NeedsBufferSpace());
    EXPECT_EQ(in->GetBufferList().GetAllocatedBytes(), 0u) << "sized at initialization";
    ASSERT_EQ(unit.DoInitialize(), noErr);
    EXPECT_EQ(in->GetBufferList().GetAllocatedBytes(), 9248u);

    AudioUnitRenderActionFlags flags = kAudioUnitRenderAction_OutputIsSilence;
    const AudioTimeStamp ts = TimeAt(1024);
    log.result = 7;
    EXPECT_EQ(in->PullInput(flags, ts, 3, 512), 7) << "the callback's status comes back";
    EXPECT_EQ(log.calls, 1);
    EXPECT_EQ(log.refCon, &log);
    EXPECT_EQ(log.flags, &flags);
    EXPECT_EQ(log.timeStamp, &ts);
    EXPECT_EQ(log.bus, 3u);
    EXPECT_EQ(log.frames, 512u);

    AudioBufferList& pulled = in->GetBufferList().GetPreparedList();
    EXPECT_EQ(log.list, &pulled);
    EXPECT_EQ(in->GetBufferList().GetPointerState(), AUBufferList::kPointersToOwnMemory);
    ASSERT_EQ(pulled.mNumberBuffers, 2u);
    EXPECT_NE(log.firstData, nullptr) << "the callback got the bus's memory";
    EXPECT_EQ(pulled.mBuffers[1].mDataByteSize, 2048u);
    EXPECT_EQ(static_cast<float*>(pulled.mBuffers[1].mData)[511], 611.0f);

    EXPECT_EQ(ThrownStatus([&] { in->PullInput(flags, ts, 0, 1157); }),
              kAudioUnitErr_TooManyFramesToProcess);

    // A new format while initialized resizes the bus for the callback.
    CAStreamBasicDescription mono = in->GetStreamFormat();
    mono.mChannelsPerFrame = 1;
    EXPECT_EQ(in->SetStreamFormat(mono), noErr);
    log.result = noErr;
    EXPECT_EQ(in->PullInput(flags, ts, 0, 1156), noErr);
    EXPECT_EQ(in->GetBufferList().GetPreparedList().mNumberBuffers, 1u);

    in->SetInputCallback(nullptr, nullptr);
    EXPECT_FALSE(in->HasSource());
    EXPECT_EQ(in->GetBufferList().GetAllocatedBytes(), 0u) << "disconnecting frees the memory";
    EXPECT_EQ(in->PullInput(flags, ts, 0, 16), kAudioUnitErr_NoConnection);
    EXPECT_EQ(log.calls, 2);
}

TEST(AUInputElementTest, HostSuppliedInputGetsNullPointersToFill)
{
    TestUnit unit;
    AUInputElement* in = unit.GetInput(0);
    in->SetWillAllocateBuffer(false);
    CallbackLog log;
    float left[64];
    float right[64];
    log.supplied[0] = left;
    log.supplied[1] = right;
    in->SetInputCallback(HostCallback, &log);
    ASSERT_EQ(unit.DoInitialize(), noErr);
    EXPECT_EQ(in->GetBufferList().GetAllocatedBytes(), 0u);

    AudioUnitRenderActionFlags flags = 0;
    EXPECT_EQ(in->PullInput(flags, TimeAt(0), 0, 64), noErr);
    EXPECT_EQ(log.firstData, nullptr);
    AudioBufferList& pulled = in->GetBufferList().GetPreparedList();
    EXPECT_EQ(pulled.mBuffers[0].mData, left);
    EXPECT_EQ(pulled.mBuffers[1].mData, right);
    EXPECT_EQ(right[63], 163.0f);
}

TEST(AUInputElementTest, SourceRemovedDuringThePullReportsNoConnection)
{
    TestUnit unit;
    AUInputElement* in = unit.GetInput(0);
    CallbackLog log;
    log.disconnect = in;
    in->SetInputCallback(HostCallback, &log);
    ASSERT_EQ(unit.DoInitialize(), noErr);
    AudioUnitRenderActionFlags flags = 0;
    EXPECT_EQ(in->PullInput(flags, TimeAt(0), 0, 32), kAudioUnitErr_NoConnection);
    EXPECT_EQ(log.calls, 1);
}

TEST(AUInputElementTest, PullingFromACallbackAllocatesNothing)
{
    TestUnit unit;
    AUInputElement* in = unit.GetInput(0);
    CallbackLog log;
    in->SetInputCallback(HostCallback, &log);
    ASSERT_EQ(unit.DoInitialize(), noErr);

    AudioUnitRenderActionFlags flags = 0;
    const long before = allocationcounter::Allocations();
    for (UInt32 frames : {1u, 64u, 512u, 1156u, 7u}) {
        in->PullInput(flags, TimeAt(frames), 0, frames);
    }
    EXPECT_EQ(allocationcounter::Allocations() - before, 0);
    EXPECT_EQ(log.calls, 5);
}

// A source unit registered with the runtime: it renders output bus b as
// samples 1000 (b + 1) + channel, in buffers of its own, and offers a fast
// render entry only when sOfferFastRender is set.
struct SourceLog
{
    int renders = 0;
    int fastRenders = 0;
    UInt32 bus = 0;
    UInt32 frames = 0;
    void* fastInstance = nullptr;
};

SourceLog sSourceLog;
bool sOfferFastRender = false;
float sSourceSamples[2][1156];

void FillFromSource(UInt32 bus, UInt32 frames, AudioBufferList* ioData)
{
    sSourceLog.bus = bus;
    sSourceLog.frames = frames;
    for (UInt32 c = 0; c < ioData->mNumberBuffers && c < 2; ++c) {
        for (UInt32 i = 0; i < frames; ++i) {
            sSourceSamples[c][i] = 1000.0f * (bus + 1) + c;
        }
        ioData->mBuffers[c].mData = sSourceSamples[c];
        ioData->mBuffers[c].mDataByteSize = frames * sizeof(float);
    }
}

OSStatus SourceFastRender(void* inComponentStorage, AudioUnitRenderActionFlags*,
                          const AudioTimeStamp*, UInt32 inOutputBusNumber, UInt32 inNumberFrames,
                          AudioBufferList* ioData)
{
    ++sSourceLog.fastRenders;
    sSourceLog.fastInstance = inComponentStorage;
    FillFromSource(inOutputBusNumber, inNumberFrames, ioData);
    return noErr;
}

OSStatus SourceRender(void*, AudioUnitRenderActionFlags*, const AudioTimeStamp*,
                      UInt32 inOutputBusNumber, UInt32 inNumberFrames, AudioBufferList* ioData)
{
    ++sSourceLog.renders;
    FillFromSource(inOutputBusNumber, inNumberFrames, ioData);
    return noErr;
}

OSStatus SourceGetProperty(void*, AudioUnitPropertyID inID, AudioUnitScope inScope,
                           AudioUnitElement inElement, void* outData, UInt32* ioDataSize)
{
    if (inID == kAudioUnitProperty_FastDispatch && inScope == kAudioUnitScope_Global &&
        inElement == kAudioUnitRenderSelect && sOfferFastRender && *ioDataSize >= sizeof(void*)) {
        *static_cast<AudioUnitRenderProc*>(outData) = SourceFastRender;
        *ioDataSize = sizeof(void*);
        return noErr;
    }
    return kAudioUnitErr_InvalidProperty;
}

OSStatus SourceOpen(void*, AudioComponentInstance)
{
    return noErr;
}

OSStatus SourceClose(void* self)
{
    delete static_cast<AudioComponentPlugInInterface*>(self);
    return noErr;
}

AudioComponentMethod SourceLookup(SInt16 selector)
{
    switch (selector) {
    case kAudioUnitGetPropertySelect:
        return reinterpret_cast<AudioComponentMethod>(SourceGetProperty);
    case kAudioUnitRenderSelect:
        return reinterpret_cast<AudioComponentMethod>(SourceRender);
    default:
        return nullptr;
    }
}

AudioComponentPlugInInterface* SourceFactory(const AudioComponentDescription*)
{
    return new AudioComponentPlugInInterface{SourceOpen, SourceClose, SourceLookup, nullptr};
}

AudioUnit OpenSource()
{
    static AudioComponent component = [] {
        AudioComponentDescription desc{kAudioUnitType_Generator, 0x73726354 /* 'srcT' */,
                                       0x54657374 /* 'Test' */, 0, 0};
        return AudioComponentRegister(&desc, CFSTR("Test source"), 1, SourceFactory);
    }();
    AudioUnit unit = nullptr;
    if (component == nullptr || AudioComponentInstanceNew(component, &unit) != noErr) {
        return nullptr;
    }
    return unit;
}

TEST(AUInputElementTest, ConnectedSourceRendersThroughTheRuntime)
{
    sOfferFastRender = false;
    sSourceLog = SourceLog{};
    AudioUnit source = OpenSource();
    ASSERT_NE(source, nullptr);

    TestUnit unit;
    AUInputElement* in = unit.GetInput(0);
    ASSERT_EQ(unit.DoInitialize(), noErr);
    in->SetConnection({source, 1, 0});
    EXPECT_TRUE(in->HasSource());
    EXPECT_EQ(in->GetSourceKind(), AUInputElement::kSourceConnection);
    EXPECT_FALSE(in->NeedsBufferSpace());
    EXPECT_EQ(in->GetBufferList().GetAllocatedBytes(), 0u) << "the source brings its own memory";

    AudioUnitRenderActionFlags flags = 0;
    const long before = allocationcounter::Allocations();
    const OSStatus status = in->PullInput(flags, TimeAt(0), 0, 256);
    EXPECT_EQ(allocationcounter::Allocations() - before, 0);
    EXPECT_EQ(status, noErr);
    EXPECT_EQ(sSourceLog.renders, 1);
    EXPECT_EQ(sSourceLog.fastRenders, 0);
    EXPECT_EQ(sSourceLog.bus, 1u) << "the source's output number";
    EXPECT_EQ(sSourceLog.frames, 256u);
    AudioBufferList& pulled = in->GetBufferList().GetPreparedList();
    EXPECT_EQ(in->GetBufferList().GetPointerState(), AUBufferList::kPointersToExternalMemory);
    EXPECT_EQ(pulled.mBuffers[1].mData, sSourceSamples[1]);
    EXPECT_EQ(static_cast<float*>(pulled.mBuffers[1].mData)[255], 2001.0f);

    in->SetConnection({nullptr, 0, 0});
    EXPECT_FALSE(in->HasSource());
    EXPECT_EQ(in->PullInput(flags, TimeAt(256), 0, 256), kAudioUnitErr_NoConnection);
    EXPECT_EQ(sSourceLog.renders, 1);
    AudioComponentInstanceDispose(source);
}

TEST(AUInputElementTest, ConnectedSourceWithAFastEntryIsCalledDirectly)
{
    sOfferFastRender = true;
    sSourceLog = SourceLog{};
    AudioUnit source = OpenSource();
    ASSERT_NE(source, nullptr);

    TestUnit unit;
    AUInputElement* in = unit.GetInput(0);
    in->SetConnection({source, 0, 0});
    ASSERT_EQ(unit.DoInitialize(), noErr);
    AudioUnitRenderActionFlags flags = 0;
    EXPECT_EQ(in->PullInput(flags, TimeAt(0), 0, 100), noErr);
    EXPECT_EQ(sSourceLog.fastRenders, 1);
    EXPECT_EQ(sSourceLog.renders, 0);
    EXPECT_EQ(sSourceLog.fastInstance, static_cast<void*>(CMgr_GetComponentInstanceStorage(source)))
        << "the source's instance storage is the fast entry's first argument";
    EXPECT_EQ(static_cast<float*>(in->GetBufferList().GetPreparedList().mBuffers[0].mData)[99],
              1000.0f);
    AudioComponentInstanceDispose(source);
    sOfferFastRender = false;
}

} // namespace
