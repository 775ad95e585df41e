// The render pipeline of the unit base: request checks, render notifications,
// scheduled-event slicing, input pulls; and that none of it allocates once
// the unit is initialized (global operator new is counted in this program).
#include "AllocationCounter.h"
#include "AUBaseTestUnit.h"
#include "BufferListStorage.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace {

class RenderTest : public ::testing::Test
{
protected:
    RenderTest()
    {
        mList.mNumberBuffers = 2;
        SetHostBuffers(sizeof(mSamples[0]));
        mLog.mFlags.reserve(64);
        Unit().AddPropertyListener(kAudioUnitProperty_LastRenderError, ListenerLog::Hear, &mErrors);
    }

    AUBaseTestUnit& Unit() { return *mOwner; }

    // Points the host's stereo list at its own memory, or at nothing.
    void SetHostBuffers(UInt32 inBytes, bool inNullData = false)
    {
        for (UInt32 i = 0; i < 2; ++i) {
            mList.mBuffers[i] = {1, inBytes, inNullData ? nullptr : mSamples[i]};
        }
    }

    // Renders at the next sample time unless one is given.
    OSStatus Render(UInt32 inFrames, Float64 inSampleTime = -2.0, UInt32 inBus = 0)
    {
        mFlags = 0;
        if (inSampleTime == -2.0) {
            inSampleTime = mNextSampleTime;
            mNextSampleTime += inFrames;
        }
        return Unit().DoRender(mFlags, TimeAt(inSampleTime), inBus, inFrames, mList);
    }

    OSStatus TakeLastError()
    {
        OSStatus error = 1;
        EXPECT_EQ(Unit().DispatchGetProperty(kAudioUnitProperty_LastRenderError,
                                             kAudioUnitScope_Global, 0, &error),
                  noErr);
        return error;
    }

    std::unique_ptr<AUBaseTestUnit> mOwner = OpenUnit();
    BufferListStorage mStorage{2};
    AudioBufferList& mList = mStorage.List();
    float mSamples[2][1156] = {};
    ListenerLog mErrors;
    NotifyLog mLog;
    AudioUnitRenderActionFlags mFlags = 0;
    Float64 mNextSampleTime = 0.0;
};

TEST_F(RenderTest, RequestsThatBreakTheContractAreRefusedAndRecorded)
{
    EXPECT_EQ(Render(512), kAudioUnitErr_Uninitialized);
    EXPECT_EQ(Render(512), kAudioUnitErr_Uninitialized);
    EXPECT_EQ(Unit().mRenderCalls, 0);
    EXPECT_EQ(mErrors.mCalls.size(), 1u); // the first error is pending until read
    EXPECT_EQ(TakeLastError(), kAudioUnitErr_Uninitialized);
    EXPECT_EQ(TakeLastError(), noErr);
    ASSERT_EQ(Unit().DoInitialize(), noErr);

    EXPECT_EQ(Render(1157), kAudioUnitErr_TooManyFramesToProcess);
    EXPECT_EQ(TakeLastError(), kAudioUnitErr_TooManyFramesToProcess);
    EXPECT_EQ(mErrors.mCalls.size(), 2u);
    EXPECT_EQ(Render(1156), noErr);
    EXPECT_EQ(Render(64, 5000.0, 1), kAudioUnitErr_InvalidElement);
    EXPECT_EQ(TakeLastError(), kAudioUnitErr_InvalidElement);
    mList.mNumberBuffers = 1; // stereo needs two
    EXPECT_EQ(Render(512), paramErr);
    EXPECT_EQ(TakeLastError(), paramErr);
    mList.mNumberBuffers = 2;
    SetHostBuffers(2047);
    EXPECT_EQ(Render(512), paramErr);
    SetHostBuffers(8192);
    EXPECT_EQ(Render(512), noErr);
    EXPECT_EQ(mList.mBuffers[0].mDataByteSize, 2048u);
    EXPECT_EQ(Unit().mRenderCalls, 2);
}

TEST_F(RenderTest, OneRenderPerTimeStampIntoHostOrOwnBuffers)
{
    ASSERT_EQ(Unit().DoInitialize(), noErr);
    SetHostBuffers(1024);
    EXPECT_EQ(Render(256, 100.0), noErr);
    EXPECT_EQ(mSamples[1][255], 2.0f);
    mSamples[1][0] = -1.0f;
    EXPECT_EQ(Render(256, 100.0), noErr); // same time: not rendered again
    EXPECT_EQ(Unit().mRenderCalls, 1);
    SetHostBuffers(1024, true);
    EXPECT_EQ(Render(256, 356.0), noErr);
    EXPECT_EQ(static_cast<const float*>(mList.mBuffers[1].mData)[10], 2.0f) << "own buffers";
    EXPECT_EQ(mSamples[1][0], -1.0f) << "the host's memory was not touched";
}

TEST_F(RenderTest, NotificationsSeeTheirPhaseAndRegistrationsApplyAtTheNextRender)
{
    ASSERT_EQ(Unit().DoInitialize(), noErr);
    NotifyLog removed;
    EXPECT_EQ(Unit().SetRenderNotification(nullptr, &mLog), paramErr);
    EXPECT_EQ(Unit().SetRenderNotification(NotifyLog::Hear, &removed), noErr);
    EXPECT_EQ(Unit().SetRenderNotification(NotifyLog::Hear, &removed), noErr);
    EXPECT_EQ(Unit().RemoveRenderNotification(NotifyLog::Hear, &removed), noErr);
    EXPECT_EQ(Unit().RemoveRenderNotification(NotifyLog::Hear, &mErrors), noErr);
    EXPECT_EQ(Unit().SetRenderNotification(NotifyLog::Hear, &mLog), noErr);

    EXPECT_EQ(Render(64), noErr);
    EXPECT_TRUE(removed.mFlags.empty());
    EXPECT_EQ(mLog.mFlags,
              (std::vector<AudioUnitRenderActionFlags>{kAudioUnitRenderAction_PreRender,
                                                       kAudioUnitRenderAction_PostRender}));
    EXPECT_EQ(mFlags, 0u); // the host's flags are not the notifications'

    Unit().mRenderResult = -77;
    EXPECT_EQ(Render(64), -77);
    ASSERT_EQ(mLog.mFlags.size(), 4u);
    EXPECT_EQ(mLog.mFlags[3], static_cast<UInt32>(kAudioUnitRenderAction_PostRender |
                                                  kAudioUnitRenderAction_PostRenderError));
    EXPECT_EQ(TakeLastError(), -77);

    Unit().mRenderResult = noErr;
    Unit().mFailure = AUBaseTestUnit::Failure::kThrowStatus;
    EXPECT_EQ(Render(64), kAudioUnitErr_NoConnection);
    EXPECT_EQ(mLog.mFlags.size(), 5u); // pre-render only
    EXPECT_EQ(TakeLastError(), kAudioUnitErr_NoConnection);
    Unit().mFailure = AUBaseTestUnit::Failure::kThrowOther;
    EXPECT_EQ(Render(64), -1);
    EXPECT_EQ(TakeLastError(), -1);
    Unit().mFailure = AUBaseTestUnit::Failure::kThrowZero;
    EXPECT_EQ(Render(64), noErr);
    EXPECT_EQ(TakeLastError(), noErr);
}

TEST_F(RenderTest, ScheduledEventsLastOneRenderUnlessItFails)
{
    ASSERT_EQ(Unit().DoInitialize(), noErr);
    const AudioUnitParameterEvent event = ImmediateEvent(0, 32, 1.0f);
    Unit().ScheduleParameter(&event, 1);
    Unit().mFailure = AUBaseTestUnit::Failure::kThrowStatus;
    EXPECT_NE(Render(64), noErr);
    EXPECT_EQ(Unit().PendingEvents().size(), 1u);
    Unit().mFailure = AUBaseTestUnit::Failure::kNone;
    EXPECT_EQ(Render(64), noErr);
    EXPECT_EQ(Unit().mSlices.size(), 2u);
    EXPECT_TRUE(Unit().PendingEvents().empty());
}

TEST_F(RenderTest, RendersAllocateNothingOnceInitialized)
{
    ASSERT_EQ(Unit().DoInitialize(), noErr);
    Unit().SetRenderNotification(NotifyLog::Hear, &mLog);
    const std::vector<AudioUnitParameterEvent> events{ImmediateEvent(1, 300, 2.0f),
                                                      RampEvent(0, 10, 100, 0.0f, 1.0f),
                                                      ImmediateEvent(2, 5, 3.0f)};
    const long before = allocationcounter::Allocations();
    for (UInt32 frames : {1u, 7u, 64u, 512u, 1156u}) {
        Unit().PendingEvents().insert(Unit().PendingEvents().end(), events.begin(), events.end());
        SetHostBuffers(frames * 4, frames % 2 == 0);
        EXPECT_EQ(Render(frames), noErr);
    }
    EXPECT_EQ(allocationcounter::Allocations() - before, 0);
    EXPECT_EQ(Unit().mSlices.size(), 16u);
    EXPECT_EQ(mLog.mFlags.size(), 10u);
}

// ---- Scheduled parameter events cut the render into slices ------------------

using SliceBounds = std::vector<std::pair<UInt32, UInt32>>;

class SchedulingTest : public ::testing::Test
{
protected:
    AUBaseTestUnit& Unit() { return *mOwner; }

    void Schedule(std::vector<AudioUnitParameterEvent> inEvents)
    {
        ASSERT_EQ(Unit().ScheduleParameter(inEvents.data(), static_cast<UInt32>(inEvents.size())),
                  noErr);
    }

    OSStatus Process(UInt32 inFrames)
    {
        return Unit().ProcessForScheduledParams(Unit().PendingEvents(), inFrames, &mUserData);
    }

    SliceBounds Bounds() const
    {
        SliceBounds bounds;
        for (const auto& slice : mOwner->mSlices) {
            bounds.emplace_back(slice.start, slice.start + slice.frames);
        }
        return bounds;
    }

    const AUBaseTestUnit::Slice& Slice(size_t inIndex) { return Unit().mSlices.at(inIndex); }

    std::unique_ptr<AUBaseTestUnit> mOwner = OpenUnit();
    int mUserData = 0;
};

TEST_F(SchedulingTest, RampAndImmediateEventsCutTheRenderIntoSlices)
{
    Schedule({ImmediateEvent(1, 400, 5.0f), RampEvent(0, 100, 200, 1.0f, 2.0f)});
    EXPECT_EQ(Unit().Globals()->GetParameter(1), 5.0f); // applied when scheduled
    ASSERT_EQ(Process(512), noErr);
    EXPECT_EQ(Bounds(), (SliceBounds{{0, 100}, {100, 300}, {300, 400}, {400, 512}}));
    EXPECT_EQ(Unit().mSliceUserData, &mUserData);
    EXPECT_EQ(Unit().mSliceTotal, 512u);
    // Parameter 0: its plain value until the ramp, the ramp (rebased to the
    // slice) from 100 on, and the ramp's record stays after it ended.
    EXPECT_EQ(Slice(0).param0.GetEventType(), static_cast<UInt32>(kParameterEvent_Immediate));
    EXPECT_EQ(Slice(0).param0.GetValue(), 10.0f);
    const ParameterMapEvent& ramp = Slice(1).param0;
    EXPECT_EQ(ramp.GetEventType(), static_cast<UInt32>(kParameterEvent_Ramped));
    EXPECT_EQ(ramp.GetBufferOffset(), 0);
    EXPECT_EQ(ramp.GetDurationInFrames(), 200u);
    EXPECT_EQ(ramp.GetSliceDurationFrames(), 200u);
    EXPECT_EQ(ramp.GetStartValue(), 1.0f);
    EXPECT_EQ(ramp.GetEndValue(), 2.0f);
    EXPECT_EQ(Slice(3).param0.GetSliceDurationFrames(), 200u); // not applied again
    // Parameter 1: the immediate event is applied by slicing only from 400 on.
    EXPECT_EQ(Slice(2).param1.GetSliceDurationFrames(), 0u);
    EXPECT_EQ(Slice(3).param1.GetValue(), 5.0f);
    EXPECT_EQ(Slice(3).param1.GetBufferOffset(), 0);
    EXPECT_EQ(Slice(3).param1.GetDurationInFrames(), 112u);
    EXPECT_EQ(Slice(3).param1.GetSliceDurationFrames(), 112u);
}

TEST_F(SchedulingTest, ImmediateEventsTakeEffectFromTheirOffsetInTimeOrder)
{
    Schedule(
        {ImmediateEvent(0, 128, 2.0f), ImmediateEvent(0, 64, 1.0f), ImmediateEvent(0, 192, 3.0f)});
    ASSERT_EQ(Process(256), noErr);
    EXPECT_EQ(Bounds(), (SliceBounds{{0, 64}, {64, 128}, {128, 192}, {192, 256}}));
    EXPECT_EQ(Slice(0).param0.GetValue(), 3.0f); // all applied when scheduled
    EXPECT_EQ(Slice(1).param0.GetValue(), 1.0f);
    EXPECT_EQ(Slice(2).param0.GetValue(), 2.0f);
    EXPECT_EQ(Slice(3).param0.GetValue(), 3.0f);
}

TEST_F(SchedulingTest, RampThatBeganEarlierEndsItsSliceAndIsRebased)
{
    Schedule({RampEvent(0, -50, 100, 1.0f, 3.0f), RampEvent(1, 100, 50, 0.0f, 1.0f)});
    ASSERT_EQ(Process(256), noErr);
    ASSERT_EQ(Bounds(), (SliceBounds{{0, 50}, {50, 100}, {100, 150}, {150, 256}}));
    EXPECT_EQ(Slice(0).param0.GetBufferOffset(), -50);
    EXPECT_EQ(Slice(0).param0.GetSliceDurationFrames(), 50u);
    EXPECT_EQ(Slice(1).param0.GetSliceDurationFrames(), 50u); // not re-applied
    EXPECT_EQ(Slice(2).param1.GetBufferOffset(), 0);
    EXPECT_EQ(Slice(3).param1.GetSliceDurationFrames(), 50u);
}

TEST_F(SchedulingTest, RampsSentInPiecesCutSlicesAtEveryPieceEvenWhenAnEndWraps)
{
    // Pieces of 32 frames, then a ramp whose end wraps past 2^32 frames to
    // frame 48, which cuts the second piece there although it starts later;
    // an immediate event, whatever its value, is applied to every slice.
    Schedule({ImmediateEvent(1, 0, 0.0f), RampEvent(0, 0, 32, 0.0f, 1.0f),
              RampEvent(0, 32, 32, 1.0f, 2.0f), RampEvent(0, 64, 32, 2.0f, 3.0f),
              RampEvent(1, 96, 0xFFFFFFD0u, 0.0f, 1.0f)});
    ASSERT_EQ(Process(128), noErr);
    EXPECT_EQ(Bounds(), (SliceBounds{{0, 32}, {32, 48}, {48, 64}, {64, 96}, {96, 128}}));
    EXPECT_EQ(Slice(2).param0.GetStartValue(), 1.0f);
    EXPECT_EQ(Slice(2).param0.GetBufferOffset(), -16);
    EXPECT_EQ(Slice(3).param0.GetStartValue(), 2.0f);
    EXPECT_EQ(Slice(3).param1.GetSliceDurationFrames(), 32u);
    EXPECT_EQ(Slice(4).param0.GetStartValue(), 2.0f); // over, not applied again
    EXPECT_EQ(Slice(4).param1.GetBufferOffset(), 0);

    // A ramp that has not begun still cuts the render at its start, though its
    // wrapped end (16) lies behind.
    Unit().PendingEvents().clear();
    Unit().mSlices.clear();
    Schedule({RampEvent(0, 0, 32, 0.0f, 1.0f), RampEvent(1, 96, 0xFFFFFFB0u, 0.0f, 1.0f)});
    ASSERT_EQ(Process(128), noErr);
    EXPECT_EQ(Bounds(), (SliceBounds{{0, 16}, {16, 32}, {32, 96}, {96, 128}}));
}

TEST_F(SchedulingTest, NoFramesMeansNoSlicesAndAFailingSliceStopsTheRender)
{
    Schedule({ImmediateEvent(0, 10, 1.0f), ImmediateEvent(0, 20, 2.0f)});
    EXPECT_EQ(Process(0), noErr);
    EXPECT_EQ(Process(0x80000000u), noErr); // negative as a signed count
    EXPECT_TRUE(Unit().mSlices.empty());

    Unit().mFailingSlice = 2;
    Unit().mSliceResult = -1234;
    EXPECT_EQ(Process(32), -1234);
    EXPECT_EQ(Bounds(), (SliceBounds{{0, 10}, {10, 20}}));
    EXPECT_EQ(Unit().Globals()->GetParameter(0), 1.0f); // as the last slice left it
}

// ---- Input pulls from a host callback ----------------------------------------

// A host render callback: writes channel c, frame i as 100 c + i into the
// buffers it is given, first pointing them at its own when they have none;
// returns mResult, and can remove itself from the input while it runs.
struct HostCallback
{
    int mCalls = 0;
    UInt32 mBus = 0;
    void* mFirstData = nullptr;
    OSStatus mResult = noErr;
    AUInputElement* mDisconnect = nullptr;
    float mOwn[2][64] = {};

    static OSStatus Fill(void* inRefCon, AudioUnitRenderActionFlags*, const AudioTimeStamp*,
                         UInt32 inBusNumber, UInt32 inNumberFrames, AudioBufferList* ioData)
    {
        auto* self = static_cast<HostCallback*>(inRefCon);
        ++self->mCalls;
        self->mBus = inBusNumber;
        self->mFirstData = ioData->mBuffers[0].mData;
        for (UInt32 c = 0; c < ioData->mNumberBuffers; ++c) {
            if (ioData->mBuffers[c].mData == nullptr) {
                ioData->mBuffers[c].mData = self->mOwn[c];
            }
            for (UInt32 i = 0; i < inNumberFrames; ++i) {
                static_cast<float*>(ioData->mBuffers[c].mData)[i] = 100.0f * c + i;
            }
        }
        if (self->mDisconnect != nullptr) {
            self->mDisconnect->SetInputCallback(nullptr, nullptr);
        }
        return self->mResult;
    }
};

TEST(AUInputElementTest, CallbackPullsFillTheBusOrTheHostsBuffersWithoutAllocating)
{
    auto unit = OpenUnit(2, 1);
    AUInputElement* in = unit->GetInput(0);
    AUInputElement* hostFed = unit->GetInput(1);
    AudioUnitRenderActionFlags flags = 0;
    EXPECT_EQ(in->PullInput(flags, TimeAt(0), 0, 512), kAudioUnitErr_NoConnection);
    HostCallback callback;
    HostCallback host;
    in->SetInputCallback(HostCallback::Fill, &callback);
    hostFed->SetWillAllocateBuffer(false);
    hostFed->SetInputCallback(HostCallback::Fill, &host);
    EXPECT_EQ(in->GetBufferList().GetAllocatedBytes(), 0u) << "sized at initialization";
    ASSERT_EQ(unit->DoInitialize(), noErr);
    EXPECT_EQ(in->GetBufferList().GetAllocatedBytes(), 9248u);
    EXPECT_EQ(hostFed->GetBufferList().GetAllocatedBytes(), 0u);

    callback.mResult = 7;
    const long before = allocationcounter::Allocations();
    for (UInt32 frames : {1u, 1156u, 512u}) {
        EXPECT_EQ(in->PullInput(flags, TimeAt(0), 3, frames), 7) << "the callback's status";
    }
    EXPECT_EQ(hostFed->PullInput(flags, TimeAt(0), 1, 64), noErr);
    EXPECT_EQ(allocationcounter::Allocations() - before, 0);
    EXPECT_EQ(callback.mBus, 3u);
    AudioBufferList& pulled = in->GetBufferList().GetPreparedList();
    EXPECT_EQ(pulled.mBuffers[0].mData, callback.mFirstData) << "the bus's own memory";
    EXPECT_EQ(pulled.mBuffers[1].mDataByteSize, 2048u);
    EXPECT_EQ(static_cast<float*>(pulled.mBuffers[1].mData)[511], 611.0f);
    EXPECT_EQ(host.mFirstData, nullptr) << "a host-fed bus hands out no memory";
    EXPECT_EQ(hostFed->GetBufferList().GetPreparedList().mBuffers[1].mData, host.mOwn[1]);
    EXPECT_EQ(host.mOwn[1][63], 163.0f);

    // A new format while initialized resizes the bus for the callback.
    CAStreamBasicDescription mono = in->GetStreamFormat();
    mono.mChannelsPerFrame = 1;
    EXPECT_EQ(in->SetStreamFormat(mono), noErr);
    callback.mResult = noErr;
    EXPECT_EQ(in->PullInput(flags, TimeAt(0), 0, 1156), noErr);
    EXPECT_EQ(in->GetBufferList().GetPreparedList().mNumberBuffers, 1u);
    // A source removed during the pull, or before it, is no connection.
    callback.mDisconnect = in;
    EXPECT_EQ(in->PullInput(flags, TimeAt(0), 0, 16), kAudioUnitErr_NoConnection);
    EXPECT_EQ(in->GetBufferList().GetAllocatedBytes(), 0u) << "disconnecting frees the memory";
    EXPECT_EQ(in->PullInput(flags, TimeAt(0), 0, 16), kAudioUnitErr_NoConnection);
    EXPECT_EQ(callback.mCalls, 5);
}

} // namespace
