#include "AllocationCounter.h"
#include "AUBaseTestUnit.h"
#include "BufferListStorage.h"

#include <gtest/gtest.h>

#include <cstddef>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#if defined(__x86_64__) || defined(__i386__)
#include <xmmintrin.h>
#endif

namespace {

// A unit whose render can fail in the ways a real one does, slices scheduled
// events without recording them on the heap, and notes the processor's
// floating-point control word while rendering.
class RenderUnit : public AUBaseTestUnit
{
public:
    enum class Failure
    {
        kNone,
        kThrowStatus,
        kThrowZero,
        kThrowOther
    };

    OSStatus Render(AudioUnitRenderActionFlags& ioActionFlags, const AudioTimeStamp& inTimeStamp,
                    UInt32 inNumberFrames) override
    {
#if defined(__x86_64__) || defined(__i386__)
        mControlWordInRender = _mm_getcsr();
#endif
        switch (mFailure) {
        case Failure::kThrowStatus:
            throw static_cast<OSStatus>(kAudioUnitErr_NoConnection);
        case Failure::kThrowZero:
            throw static_cast<OSStatus>(noErr);
        case Failure::kThrowOther:
            throw 2.5;
        case Failure::kNone:
            break;
        }
        if (!mParamList.empty()) {
            ProcessForScheduledParams(mParamList, inNumberFrames, nullptr);
        }
        return AUBaseTestUnit::Render(ioActionFlags, inTimeStamp, inNumberFrames);
    }

    OSStatus ProcessScheduledSlice(void*, UInt32, UInt32, UInt32) override
    {
        ++mSliceCount;
        return noErr;
    }

    Failure mFailure = Failure::kNone;
    int mSliceCount = 0;
    unsigned int mControlWordInRender = 0;
};

// What one render notification saw.
struct NotifyLog
{
    std::vector<AudioUnitRenderActionFlags> mFlags;

    static OSStatus Hear(void* inRefCon, AudioUnitRenderActionFlags* ioActionFlags,
                         const AudioTimeStamp*, UInt32, UInt32, AudioBufferList*)
    {
        static_cast<NotifyLog*>(inRefCon)->mFlags.push_back(*ioActionFlags);
        return noErr;
    }
};

// A host's stereo buffer list with room for 1156 frames per channel.
struct HostBuffers
{
    HostBuffers()
    {
        for (UInt32 i = 0; i < 2; ++i) {
            mList.mBuffers[i].mNumberChannels = 1;
            mList.mBuffers[i].mDataByteSize = sizeof(mSamples[i]);
            mList.mBuffers[i].mData = mSamples[i];
        }
    }

    void Reset(UInt32 inBytes, bool inNullData = false)
    {
        for (UInt32 i = 0; i < 2; ++i) {
            mList.mBuffers[i].mDataByteSize = inBytes;
            mList.mBuffers[i].mData = inNullData ? nullptr : mSamples[i];
        }
    }

    BufferListStorage mStorage{2};
    AudioBufferList& mList = mStorage.List();
    float mSamples[2][1156] = {};
};

AudioTimeStamp TimeAt(Float64 inSampleTime)
{
    AudioTimeStamp time{};
    time.mSampleTime = inSampleTime;
    time.mFlags = kAudioTimeStampSampleTimeValid;
    return time;
}

class RenderTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        mOwner = OpenUnit<RenderUnit>();
        Unit().AddPropertyListener(kAudioUnitProperty_LastRenderError, ListenerLog::Hear, &mLog);
    }

    RenderUnit& Unit() { return *mOwner; }

    OSStatus Render(UInt32 inFrames, Float64 inSampleTime = -2.0, UInt32 inBus = 0)
    {
        mFlags = 0;
        if (inSampleTime == -2.0) {
            inSampleTime = mNextSampleTime;
            mNextSampleTime += inFrames;
        }
        return Unit().DoRender(mFlags, TimeAt(inSampleTime), inBus, inFrames, mHost.mList);
    }

    OSStatus TakeLastError()
    {
        OSStatus error = noErr;
        Unit().DispatchGetProperty(kAudioUnitProperty_LastRenderError, kAudioUnitScope_Global, 0,
                                   &error);
        return error;
    }

    std::unique_ptr<RenderUnit> mOwner;
    HostBuffers mHost;
    ListenerLog mLog;
    AudioUnitRenderActionFlags mFlags = 0;
    Float64 mNextSampleTime = 0.0;
};

} // namespace

TEST_F(RenderTest, RequestsThatBreakTheContractAreRefusedAndRecorded)
{
    EXPECT_EQ(Render(512), kAudioUnitErr_Uninitialized);
    EXPECT_EQ(Render(512), kAudioUnitErr_Uninitialized);
    EXPECT_EQ(Unit().mRenderCalls, 0);
    EXPECT_EQ(mLog.mCalls.size(), 1u); // the first error is pending until read
    EXPECT_EQ(TakeLastError(), kAudioUnitErr_Uninitialized);
    ASSERT_EQ(Unit().DoInitialize(), noErr);

    EXPECT_EQ(Render(1157), kAudioUnitErr_TooManyFramesToProcess);
    EXPECT_EQ(TakeLastError(), kAudioUnitErr_TooManyFramesToProcess);
    EXPECT_EQ(mLog.mCalls.size(), 2u);
    EXPECT_EQ(Render(1156), noErr);
    EXPECT_EQ(Render(64, 5000.0, 1), kAudioUnitErr_InvalidElement);
    EXPECT_EQ(TakeLastError(), kAudioUnitErr_InvalidElement);

    mHost.mList.mNumberBuffers = 1; // stereo needs two
    EXPECT_EQ(Render(512), paramErr);
    EXPECT_EQ(TakeLastError(), paramErr);
    mHost.mList.mNumberBuffers = 2;
    mHost.Reset(1024);
    EXPECT_EQ(Render(512), paramErr);
    mHost.Reset(8192);
    EXPECT_EQ(Render(512), noErr);
    EXPECT_EQ(mHost.mList.mBuffers[0].mDataByteSize, 2048u);
    EXPECT_EQ(Unit().mRenderCalls, 2);
}

TEST_F(RenderTest, OneRenderPerTimeStampIntoHostOrOwnBuffers)
{
    ASSERT_EQ(Unit().DoInitialize(), noErr);
    mHost.Reset(1024);
    EXPECT_EQ(Render(256, 100.0), noErr);
    EXPECT_EQ(mHost.mSamples[0][255], 1.0f);
    EXPECT_EQ(mHost.mSamples[1][0], 2.0f);
    Float64 last = 0.0;
    Unit().DispatchGetProperty(0x6C727374, kAudioUnitScope_Global, 0, &last);
    EXPECT_EQ(last, 100.0);

    mHost.mSamples[0][0] = -1.0f;
    EXPECT_EQ(Render(256, 100.0), noErr); // same time: not rendered again
    EXPECT_EQ(Unit().mRenderCalls, 1);

    mHost.Reset(1024, true);
    EXPECT_EQ(Render(256, 356.0), noErr);
    const float* unitSamples = static_cast<const float*>(mHost.mList.mBuffers[1].mData);
    ASSERT_NE(unitSamples, nullptr);
    EXPECT_NE(unitSamples, mHost.mSamples[1]);
    EXPECT_EQ(unitSamples[10], 2.0f);
    EXPECT_EQ(mHost.mSamples[0][0], -1.0f); // the host's memory was not touched

    EXPECT_EQ(Unit().Reset(kAudioUnitScope_Global, 0), noErr);
    EXPECT_EQ(Unit().CurrentRenderTime().mSampleTime, AUBase::kNoLastRenderedSampleTime);
}

TEST_F(RenderTest, NotificationsSeeTheirPhaseAndRegistrationsApplyAtTheNextRender)
{
    ASSERT_EQ(Unit().DoInitialize(), noErr);
    NotifyLog log;
    NotifyLog removed;
    EXPECT_EQ(Unit().SetRenderNotification(nullptr, &log), paramErr);
    EXPECT_EQ(Unit().SetRenderNotification(NotifyLog::Hear, &removed), noErr);
    EXPECT_EQ(Unit().SetRenderNotification(NotifyLog::Hear, &removed), noErr);
    EXPECT_EQ(Unit().RemoveRenderNotification(NotifyLog::Hear, &removed), noErr);
    EXPECT_EQ(Unit().RemoveRenderNotification(NotifyLog::Hear, &mLog), noErr);
    EXPECT_EQ(Unit().SetRenderNotification(NotifyLog::Hear, &log), noErr);

    EXPECT_EQ(Render(64), noErr);
    EXPECT_TRUE(removed.mFlags.empty());
    ASSERT_EQ(log.mFlags.size(), 2u);
    EXPECT_EQ(log.mFlags[0], static_cast<UInt32>(kAudioUnitRenderAction_PreRender));
    EXPECT_EQ(log.mFlags[1], static_cast<UInt32>(kAudioUnitRenderAction_PostRender));
    EXPECT_EQ(mFlags, 0u); // the host's flags are not the notifications'

    Unit().mRenderResult = -77;
    EXPECT_EQ(Render(64), -77);
    ASSERT_EQ(log.mFlags.size(), 4u);
    EXPECT_EQ(log.mFlags[3], static_cast<UInt32>(kAudioUnitRenderAction_PostRender |
                                                 kAudioUnitRenderAction_PostRenderError));
    EXPECT_EQ(TakeLastError(), -77);

    Unit().mRenderResult = noErr;
    Unit().mFailure = RenderUnit::Failure::kThrowStatus;
    EXPECT_EQ(Render(64), kAudioUnitErr_NoConnection);
    EXPECT_EQ(log.mFlags.size(), 5u); // pre-render only
    EXPECT_EQ(TakeLastError(), kAudioUnitErr_NoConnection);
    Unit().mFailure = RenderUnit::Failure::kThrowOther;
    EXPECT_EQ(Render(64), -1);
    EXPECT_EQ(TakeLastError(), -1);
    Unit().mFailure = RenderUnit::Failure::kThrowZero;
    EXPECT_EQ(Render(64), noErr);
    EXPECT_EQ(TakeLastError(), noErr);
}

TEST_F(RenderTest, ScheduledEventsLastOneRenderUnlessItFails)
{
    ASSERT_EQ(Unit().DoInitialize(), noErr);
    std::vector<AudioUnitParameterEvent> events{ImmediateEvent(0, 32, 1.0f)};
    Unit().ScheduleParameter(events.data(), 1);
    Unit().mFailure = RenderUnit::Failure::kThrowStatus;
    EXPECT_NE(Render(64), noErr);
    EXPECT_EQ(Unit().PendingEvents().size(), 1u);
    Unit().mFailure = RenderUnit::Failure::kNone;
    EXPECT_EQ(Render(64), noErr);
    EXPECT_EQ(Unit().mSliceCount, 2);
    EXPECT_TRUE(Unit().PendingEvents().empty());
}

TEST_F(RenderTest, RendersAllocateNothingOnceInitialized)
{
    ASSERT_EQ(Unit().DoInitialize(), noErr);
    NotifyLog log;
    log.mFlags.reserve(64);
    Unit().SetRenderNotification(NotifyLog::Hear, &log);
    const std::vector<AudioUnitParameterEvent> events{ImmediateEvent(1, 300, 2.0f),
                                                      RampEvent(0, 10, 100, 0.0f, 1.0f),
                                                      ImmediateEvent(2, 5, 3.0f)};
    const long before = allocationcounter::Allocations();
    for (UInt32 frames : {1u, 7u, 64u, 512u, 1156u}) {
        Unit().PendingEvents().insert(Unit().PendingEvents().end(), events.begin(), events.end());
        mHost.Reset(frames * 4, frames % 2 == 0);
        EXPECT_EQ(Render(frames), noErr);
    }
    EXPECT_EQ(allocationcounter::Allocations() - before, 0);
    EXPECT_GT(Unit().mSliceCount, 5);
    EXPECT_EQ(log.mFlags.size(), 10u);
}

#if defined(__x86_64__) || defined(__i386__)
TEST_F(RenderTest, DenormalsAreFlushedDuringRenderAndTheControlWordIsRestored)
{
    const unsigned int saved = _mm_getcsr();
    const unsigned int callerWord = saved & ~0x8040u;
    _mm_setcsr(callerWord);
    EXPECT_EQ(Render(64), kAudioUnitErr_Uninitialized);
    EXPECT_EQ(_mm_getcsr(), callerWord);
    ASSERT_EQ(Unit().DoInitialize(), noErr);
    EXPECT_EQ(Render(64), noErr);
    EXPECT_EQ(Unit().mControlWordInRender & 0x8040u, 0x8040u);
    EXPECT_EQ(_mm_getcsr(), callerWord);
    Unit().mFailure = RenderUnit::Failure::kThrowOther;
    EXPECT_EQ(Render(64), -1);
    EXPECT_EQ(_mm_getcsr(), callerWord);
    _mm_setcsr(saved);
}
#endif

TEST_F(RenderTest, ExternalBufferBecomesTheOutputMemory)
{
    // Exactly the two 1156-frame channels the output allocated.
    alignas(16) static UInt8 block[2 * 1156 * 4];
    AudioUnitExternalBuffer buffer{block, sizeof(block)};
    EXPECT_EQ(Unit().DispatchSetProperty(kAudioUnitProperty_SetExternalBuffer,
                                         kAudioUnitScope_Output, 0, &buffer, sizeof(buffer)),
              kAudioUnitErr_Uninitialized);
    ASSERT_EQ(Unit().DoInitialize(), noErr);
    EXPECT_EQ(Unit().DispatchSetProperty(kAudioUnitProperty_SetExternalBuffer,
                                         kAudioUnitScope_Output, 0, &buffer, 8),
              kAudioUnitErr_InvalidPropertyValue);
    AudioUnitExternalBuffer misaligned{block + 4, sizeof(block) - 4};
    EXPECT_EQ(Unit().DispatchSetProperty(kAudioUnitProperty_SetExternalBuffer,
                                         kAudioUnitScope_Output, 0, &misaligned,
                                         sizeof(misaligned)),
              paramErr);
    EXPECT_EQ(ThrownStatus([&] {
                  Unit().DispatchSetProperty(kAudioUnitProperty_SetExternalBuffer,
                                             kAudioUnitScope_Output, 3, &buffer, sizeof(buffer));
              }),
              kAudioUnitErr_InvalidElement);
    EXPECT_EQ(Unit().DispatchSetProperty(kAudioUnitProperty_SetExternalBuffer,
                                         kAudioUnitScope_Output, 0, &buffer, sizeof(buffer)),
              noErr);
    mHost.Reset(1024, true);
    EXPECT_EQ(Render(256), noErr);
    EXPECT_EQ(mHost.mList.mBuffers[0].mData, static_cast<void*>(block));
}

namespace {

std::atomic<int> gConcurrentCalls{0};

OSStatus CountCall(void*, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32, UInt32,
                   AudioBufferList*)
{
    gConcurrentCalls.fetch_add(1);
    return noErr;
}

} // namespace

TEST_F(RenderTest, ConcurrentNotificationRegistrationWhileRendering)
{
    ASSERT_EQ(Unit().DoInitialize(), noErr);
    constexpr int kRounds = 2000;
    std::atomic<bool> registering{true};
    std::thread registrar([&] {
        int tags[4] = {};
        for (int i = 0; i < kRounds; ++i) {
            void* refCon = &tags[i % 4];
            Unit().SetRenderNotification(CountCall, refCon);
            Unit().RemoveRenderNotification(CountCall, refCon);
        }
        registering = false;
    });
    while (registering) {
        ASSERT_EQ(Render(64), noErr);
    }
    registrar.join();
    ASSERT_EQ(Render(64), noErr); // applies whatever was still queued
    gConcurrentCalls = 0;
    ASSERT_EQ(Render(64), noErr);
    EXPECT_EQ(gConcurrentCalls.load(), 0); // every add was matched by a remove
}
