#include "Automation.h"
#include "ToolError.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

constexpr AudioUnitParameterID kRate = 3;
constexpr AudioUnitParameterID kWet = 1;

Ramp ramp(AudioUnitParameterID id, float from, float to, int64_t start, int64_t end)
{
    return Ramp{id, id == kRate ? "Modulation rate" : "Wet out", from, to, start, end};
}

// What a unit sees of one parameter at a frame of a block, applying the
// block's events in offset order as the framework does: the latest event that
// covers the frame wins. `interpolate` chooses between a unit that follows a
// ramp piece linearly and one that holds the piece's start value.
float seenValue(const std::vector<AudioUnitParameterEvent>& events, AudioUnitParameterID id,
                int64_t frameInBlock, bool interpolate)
{
    std::vector<AudioUnitParameterEvent> sorted;
    for (const AudioUnitParameterEvent& e : events)
        if (e.parameter == id)
            sorted.push_back(e);
    std::stable_sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) {
        return a.eventValues.ramp.startBufferOffset < b.eventValues.ramp.startBufferOffset;
    });
    float value = NAN;
    for (const AudioUnitParameterEvent& e : sorted) {
        if (e.eventType == kParameterEvent_Immediate) {
            if (e.eventValues.immediate.bufferOffset <= frameInBlock)
                value = e.eventValues.immediate.value;
            continue;
        }
        const auto& r = e.eventValues.ramp;
        if (r.startBufferOffset <= frameInBlock &&
            frameInBlock < r.startBufferOffset + int64_t(r.durationInFrames))
            value = interpolate ? r.startValue + (r.endValue - r.startValue) *
                                                     float(frameInBlock - r.startBufferOffset) /
                                                     float(r.durationInFrames)
                                : r.startValue;
    }
    return value;
}

// The values the unit sees for every frame of [0, total) at a block size.
std::vector<float> seenValues(const Automation& automation, AudioUnitParameterID id, int64_t total,
                              unsigned block, bool interpolate)
{
    std::vector<float> values;
    std::vector<AudioUnitParameterEvent> events;
    for (int64_t start = 0; start < total; start += block) {
        const unsigned frames = unsigned(std::min<int64_t>(block, total - start));
        automation.eventsForBlock(start, frames, events);
        for (const AudioUnitParameterEvent& e : events) {
            EXPECT_EQ(e.scope, kAudioUnitScope_Global);
            EXPECT_EQ(e.element, 0u);
            if (e.eventType == kParameterEvent_Immediate) {
                EXPECT_LT(e.eventValues.immediate.bufferOffset, frames);
            } else {
                EXPECT_LT(e.eventValues.ramp.startBufferOffset, int64_t(frames))
                    << "pieces overlap the block";
                EXPECT_GT(e.eventValues.ramp.startBufferOffset +
                              int64_t(e.eventValues.ramp.durationInFrames),
                          0);
                EXPECT_LE(e.eventValues.ramp.durationInFrames, Automation::kStepFrames);
            }
        }
        for (unsigned i = 0; i < frames; ++i)
            values.push_back(seenValue(events, id, i, interpolate));
    }
    return values;
}

class AutomationBlockTest : public ::testing::TestWithParam<unsigned>
{
};

TEST_P(AutomationBlockTest, UnitFollowsTheLineOnExactFramesWhateverTheBlockSize)
{
    // A rate ramp up from frame 1000 to 2001, a second one back down right
    // after it, and a wet ramp that starts in the first frame.
    const Automation automation({ramp(kRate, 0.5f, 10.0f, 1000, 2001),
                                 ramp(kRate, 10.0f, 2.0f, 2001, 2500),
                                 ramp(kWet, -80.0f, 0.0f, 0, 100)});
    const int64_t total = 3000;
    const std::vector<float> followed = seenValues(automation, kRate, total, GetParam(), true);
    const std::vector<float> held = seenValues(automation, kRate, total, GetParam(), false);
    ASSERT_EQ(followed.size(), size_t(total));
    for (int64_t f = 0; f < total; ++f) {
        const float line = automation.valueAt(kRate, f);
        ASSERT_NEAR(followed[f], line, 1e-4f) << "frame " << f;
        // Holding a piece's start value lags the line by at most one piece of
        // the steeper ramp.
        ASSERT_NEAR(held[f], line, 8.0f / 499.0f * Automation::kStepFrames + 1e-4f)
            << "frame " << f;
    }
    EXPECT_EQ(held[999], 0.5f) << "before the ramp: its start value";
    EXPECT_EQ(held[1000], 0.5f) << "the ramp starts on its frame";
    EXPECT_GT(followed[1001], 0.5f);
    EXPECT_EQ(held[2500], 2.0f) << "after the last ramp: its end value";
    EXPECT_EQ(held[total - 1], 2.0f);
    EXPECT_EQ(seenValues(automation, kWet, total, GetParam(), false)[100], 0.0f);

    // Held values are the same for every block size, so the sound is too.
    EXPECT_EQ(held, seenValues(automation, kRate, total, 512, false));
}

INSTANTIATE_TEST_SUITE_P(BlockSizes, AutomationBlockTest,
                         ::testing::Values(1u, 7u, 32u, 64u, 512u, 1156u));

TEST(AutomationTest, LineHoldsBetweenRampsAndParametersAreIndependent)
{
    const Automation automation({ramp(kWet, 0.0f, -6.0f, 100, 200),
                                 ramp(kWet, -20.0f, -10.0f, 300, 400),
                                 ramp(kRate, 1.0f, 2.0f, 0, 10)});
    EXPECT_EQ(automation.valueAt(kWet, 0), 0.0f);
    EXPECT_EQ(automation.valueAt(kWet, 150), -3.0f);
    EXPECT_EQ(automation.valueAt(kWet, 250), -6.0f) << "holds the first ramp's end";
    EXPECT_EQ(automation.valueAt(kWet, 300), -20.0f) << "jumps to the second ramp's start";
    EXPECT_EQ(automation.valueAt(kWet, 10000), -10.0f);
    EXPECT_EQ(automation.valueAt(kRate, 5), 1.5f);

    std::vector<AudioUnitParameterEvent> events{AudioUnitParameterEvent{}};
    Automation({}).eventsForBlock(0, 512, events);
    EXPECT_TRUE(events.empty()) << "no automation, no events";
}

TEST(AutomationTest, OverlappingRampsOfOneParameterAreRefused)
{
    try {
        Automation automation({ramp(kWet, 0.0f, 1.0f, 0, 100), ramp(kWet, 0.0f, 1.0f, 99, 200)});
        FAIL() << "overlap accepted";
    } catch (const ToolError& error) {
        EXPECT_EQ(error.status(), ExitStatus::kUsage);
        EXPECT_NE(std::string(error.what()).find("Wet out"), std::string::npos);
    }
    EXPECT_NO_THROW(Automation({ramp(kWet, 0.0f, 1.0f, 0, 100), ramp(kRate, 0.0f, 1.0f, 50, 200)}));
}

} // namespace
