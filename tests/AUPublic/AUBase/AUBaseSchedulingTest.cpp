#include "AUBaseTestUnit.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace {

using SliceBounds = std::vector<std::pair<UInt32, UInt32>>;

class SchedulingTest : public ::testing::Test
{
protected:
    void SetUp() override { mOwner = OpenUnit(); }

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

    std::unique_ptr<AUBaseTestUnit> mOwner;
    int mUserData = 0;
};

} // namespace

TEST_F(SchedulingTest, RampAndImmediateEventsCutTheRenderIntoSlices)
{
    Schedule({ImmediateEvent(1, 400, 5.0f), RampEvent(0, 100, 200, 1.0f, 2.0f)});
    EXPECT_EQ(Unit().Globals()->GetParameter(1), 5.0f); // applied when scheduled
    ASSERT_EQ(Process(512), noErr);
    EXPECT_EQ(Bounds(), (SliceBounds{{0, 100}, {100, 300}, {300, 400}, {400, 512}}));
    EXPECT_EQ(Unit().mSliceUserData, &mUserData);
    EXPECT_EQ(Unit().mSliceTotal, 512u);

    const auto& slices = Unit().mSlices;
    // Parameter 0: its plain value until the ramp, the ramp (rebased to the
    // slice) from 100 on, and the ramp's record stays after it ended.
    EXPECT_EQ(slices[0].param0.GetEventType(), static_cast<UInt32>(kParameterEvent_Immediate));
    EXPECT_EQ(slices[0].param0.GetValue(), 10.0f);
    EXPECT_EQ(slices[1].param0.GetEventType(), static_cast<UInt32>(kParameterEvent_Ramped));
    EXPECT_EQ(slices[1].param0.GetBufferOffset(), 0);
    EXPECT_EQ(slices[1].param0.GetDurationInFrames(), 200u);
    EXPECT_EQ(slices[1].param0.GetSliceDurationFrames(), 200u);
    EXPECT_EQ(slices[1].param0.GetValue(), 1.0f);
    EXPECT_EQ(slices[3].param0.GetSliceDurationFrames(), 200u); // not applied again
    // Parameter 1: the immediate event is applied by slicing only from 400 on.
    EXPECT_EQ(slices[2].param1.GetSliceDurationFrames(), 0u);
    EXPECT_EQ(slices[3].param1.GetValue(), 5.0f);
    EXPECT_EQ(slices[3].param1.GetBufferOffset(), 0);
    EXPECT_EQ(slices[3].param1.GetDurationInFrames(), 112u);
    EXPECT_EQ(slices[3].param1.GetSliceDurationFrames(), 112u);
}

TEST_F(SchedulingTest, ImmediateEventsTakeEffectFromTheirOffsetInTimeOrder)
{
    Schedule({ImmediateEvent(0, 64, 1.0f), ImmediateEvent(0, 128, 2.0f)});
    ASSERT_EQ(Process(256), noErr);
    EXPECT_EQ(Bounds(), (SliceBounds{{0, 64}, {64, 128}, {128, 256}}));
    const auto& slices = Unit().mSlices;
    EXPECT_EQ(slices[0].param0.GetValue(), 2.0f); // both applied when scheduled
    EXPECT_EQ(slices[1].param0.GetValue(), 1.0f);
    EXPECT_EQ(slices[2].param0.GetValue(), 2.0f);
}

TEST_F(SchedulingTest, EventsAtTheStartOrBeyondTheEndDoNotCutSlices)
{
    Schedule({ImmediateEvent(0, 0, 3.0f), ImmediateEvent(1, 300, 4.0f)});
    Unit().Globals()->SetParameter(1, 9.0f);
    ASSERT_EQ(Process(256), noErr);
    ASSERT_EQ(Bounds(), (SliceBounds{{0, 256}}));
    EXPECT_EQ(Unit().mSlices[0].param0.GetDurationInFrames(), 256u);
    EXPECT_EQ(Unit().mSlices[0].param1.GetValue(), 9.0f); // never applied by slicing

    Unit().mSlices.clear();
    Unit().PendingEvents().clear();
    Schedule({RampEvent(0, 0, 1000, 1.0f, 3.0f)});
    ASSERT_EQ(Process(256), noErr);
    ASSERT_EQ(Bounds(), (SliceBounds{{0, 256}}));
    EXPECT_EQ(Unit().mSlices[0].param0.GetDurationInFrames(), 1000u);
    EXPECT_EQ(Unit().mSlices[0].param0.GetBufferOffset(), 0);
}

TEST_F(SchedulingTest, RampThatBeganEarlierEndsItsSliceAndIsRebased)
{
    Schedule({RampEvent(0, -50, 100, 1.0f, 3.0f)});
    ASSERT_EQ(Process(256), noErr);
    ASSERT_EQ(Bounds(), (SliceBounds{{0, 50}, {50, 256}}));
    EXPECT_EQ(Unit().mSlices[0].param0.GetBufferOffset(), -50);
    EXPECT_EQ(Unit().mSlices[0].param0.GetSliceDurationFrames(), 50u);
    EXPECT_EQ(Unit().mSlices[1].param0.GetSliceDurationFrames(), 50u); // not re-applied
}

TEST_F(SchedulingTest, MissingElementsAreSkippedAndBadAddressesThrow)
{
    Schedule({ImmediateEvent(0, 0, 1.0f)});
    AudioUnitParameterEvent elsewhere = ImmediateEvent(0, 32, 6.0f);
    elsewhere.element = 5;
    AudioUnitParameterEvent ramp = RampEvent(0, 16, 8, 0.0f, 1.0f);
    ramp.element = 5;
    Unit().PendingEvents().push_back(elsewhere);
    Unit().PendingEvents().push_back(ramp);
    ASSERT_EQ(Process(64), noErr);
    EXPECT_EQ(Bounds(), (SliceBounds{{0, 16}, {16, 24}, {24, 32}, {32, 64}}));
    EXPECT_EQ(Unit().Globals()->GetParameter(0), 1.0f);

    Unit().PendingEvents().clear();
    Unit().PendingEvents().push_back(ImmediateEvent(7, 0, 1.0f));
    EXPECT_EQ(ThrownStatus([&] { Process(64); }), kAudioUnitErr_InvalidParameter);
    Unit().PendingEvents()[0] = ImmediateEvent(0, 0, 1.0f);
    Unit().PendingEvents()[0].scope = 9;
    EXPECT_EQ(ThrownStatus([&] { Process(64); }), kAudioUnitErr_InvalidScope);
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

TEST_F(SchedulingTest, SchedulingQueuesEveryEventAndAppliesImmediateOnesAtOnce)
{
    EXPECT_EQ(Unit().ScheduleParameter(nullptr, 0), noErr);
    EXPECT_TRUE(Unit().PendingEvents().empty());
    Schedule({RampEvent(2, 0, 10, 7.0f, 8.0f), ImmediateEvent(2, 99, 4.0f)});
    EXPECT_EQ(Unit().PendingEvents().size(), 2u);
    EXPECT_EQ(Unit().Globals()->GetParameter(2), 4.0f);

    std::vector<AudioUnitParameterEvent> events{ImmediateEvent(0, 0, 1.0f),
                                                ImmediateEvent(0, 0, 2.0f, 3)};
    EXPECT_EQ(ThrownStatus([&] { Unit().ScheduleParameter(events.data(), 2); }),
              kAudioUnitErr_InvalidElement);
    EXPECT_EQ(Unit().PendingEvents().size(), 3u); // the first one stays queued
}
