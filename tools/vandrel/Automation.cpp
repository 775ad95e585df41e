#include "Automation.h"

#include "ToolError.h"

#include <algorithm>
#include <cassert>

namespace {

AudioUnitParameterEvent immediateEvent(AudioUnitParameterID id, UInt32 offset,
                                       AudioUnitParameterValue value)
{
    AudioUnitParameterEvent event{};
    event.scope = kAudioUnitScope_Global;
    event.element = 0;
    event.parameter = id;
    event.eventType = kParameterEvent_Immediate;
    event.eventValues.immediate.bufferOffset = offset;
    event.eventValues.immediate.value = value;
    return event;
}

AudioUnitParameterEvent rampedEvent(AudioUnitParameterID id, SInt32 offset, UInt32 duration,
                                    AudioUnitParameterValue start, AudioUnitParameterValue end)
{
    AudioUnitParameterEvent event{};
    event.scope = kAudioUnitScope_Global;
    event.element = 0;
    event.parameter = id;
    event.eventType = kParameterEvent_Ramped;
    event.eventValues.ramp.startBufferOffset = offset;
    event.eventValues.ramp.durationInFrames = duration;
    event.eventValues.ramp.startValue = start;
    event.eventValues.ramp.endValue = end;
    return event;
}

// The value of one ramp's line at a frame inside [startFrame, endFrame].
AudioUnitParameterValue rampValue(const Ramp& ramp, int64_t frame)
{
    if (frame >= ramp.endFrame)
        return ramp.to;
    const double position =
        static_cast<double>(frame - ramp.startFrame) / (ramp.endFrame - ramp.startFrame);
    return static_cast<AudioUnitParameterValue>(
        ramp.from + (static_cast<double>(ramp.to) - ramp.from) * position);
}

} // namespace

Automation::Automation(std::vector<Ramp> ramps)
{
    std::stable_sort(ramps.begin(), ramps.end(),
                     [](const Ramp& a, const Ramp& b) { return a.startFrame < b.startFrame; });
    for (Ramp& ramp : ramps) {
        assert(ramp.endFrame > ramp.startFrame);
        auto lane = std::find_if(mLanes.begin(), mLanes.end(),
                                 [&](const Lane& l) { return l.id == ramp.id; });
        if (lane == mLanes.end()) {
            mLanes.push_back(Lane{ramp.id, {}});
            lane = mLanes.end() - 1;
        } else if (lane->ramps.back().endFrame > ramp.startFrame) {
            throw ToolError(ExitStatus::kUsage, "Two ramps of " + ramp.name +
                                                    " overlap in time; let one end before the "
                                                    "next starts.");
        }
        lane->ramps.push_back(std::move(ramp));
    }
}

AudioUnitParameterValue Automation::lineValue(const Lane& lane, int64_t frame)
{
    AudioUnitParameterValue value = lane.ramps.front().from;
    for (const Ramp& ramp : lane.ramps) {
        if (frame < ramp.startFrame)
            break;
        if (frame >= ramp.endFrame) {
            value = ramp.to;
            continue;
        }
        return rampValue(ramp, frame);
    }
    return value;
}

AudioUnitParameterValue Automation::valueAt(AudioUnitParameterID id, int64_t frame) const
{
    for (const Lane& lane : mLanes)
        if (lane.id == id)
            return lineValue(lane, frame);
    assert(false && "parameter without ramps");
    return 0.0f;
}

void Automation::laneEvents(const Lane& lane, int64_t blockStart, unsigned frames,
                            std::vector<AudioUnitParameterEvent>& events)
{
    const int64_t blockEnd = blockStart + frames;
    int64_t position = blockStart;
    for (const Ramp& ramp : lane.ramps) {
        if (ramp.endFrame <= position)
            continue;
        if (ramp.startFrame >= blockEnd)
            break;
        if (ramp.startFrame > position)
            events.push_back(immediateEvent(lane.id, static_cast<UInt32>(position - blockStart),
                                            lineValue(lane, position)));
        // Pieces on a grid of kStepFrames from the ramp's start.
        const int64_t first = std::max(ramp.startFrame, position);
        int64_t pieceStart =
            ramp.startFrame + (first - ramp.startFrame) / kStepFrames * kStepFrames;
        for (; pieceStart < std::min(ramp.endFrame, blockEnd); pieceStart += kStepFrames) {
            const int64_t pieceEnd = std::min<int64_t>(pieceStart + kStepFrames, ramp.endFrame);
            events.push_back(rampedEvent(lane.id, static_cast<SInt32>(pieceStart - blockStart),
                                         static_cast<UInt32>(pieceEnd - pieceStart),
                                         rampValue(ramp, pieceStart), rampValue(ramp, pieceEnd)));
        }
        position = std::min(ramp.endFrame, blockEnd);
    }
    if (position < blockEnd)
        events.push_back(immediateEvent(lane.id, static_cast<UInt32>(position - blockStart),
                                        lineValue(lane, position)));
}

void Automation::eventsForBlock(int64_t blockStart, unsigned frames,
                                std::vector<AudioUnitParameterEvent>& events) const
{
    events.clear();
    for (const Lane& lane : mLanes)
        laneEvents(lane, blockStart, frames, events);
}
