// Parameter automation: linear ramps over frame ranges, delivered to the unit
// as scheduled parameter events block by block, so every change lands on its
// exact frame whatever the block size.
//
// Each parameter follows a line through its ramps: before its first ramp it
// holds that ramp's start value, between ramps the previous ramp's end value,
// after the last the last end value. Inside a ramp the events are ramped
// pieces of at most kStepFrames frames, each carrying the line's values at its
// own ends, so a unit that holds a piece's start value follows the line in
// steps no longer than kStepFrames, and one that interpolates follows it
// exactly. A piece that straddles a block boundary is sent with the same
// values in both blocks (a negative offset in the second), so the result does
// not depend on the block size. Outside ramps, one immediate event per block
// holds the value.
#pragma once

#include <AudioUnit/AudioUnit.h>

#include <cstdint>
#include <string>
#include <vector>

struct Ramp
{
    AudioUnitParameterID id;
    std::string name; // for messages
    AudioUnitParameterValue from;
    AudioUnitParameterValue to;
    int64_t startFrame; // first frame of the ramp
    int64_t endFrame;   // frame where `to` is reached, after startFrame
};

class Automation
{
public:
    static constexpr unsigned kStepFrames = 32;

    // Throws ToolError(kUsage) when two ramps of one parameter overlap. [control]
    explicit Automation(std::vector<Ramp> ramps);

    // Replaces `events` with the events for the block of `frames` frames that
    // starts at frame `blockStart` of the output. [control]
    void eventsForBlock(int64_t blockStart, unsigned frames,
                        std::vector<AudioUnitParameterEvent>& events) const;

    // The value of the parameter's line at `frame` (the parameter must have ramps). [any]
    AudioUnitParameterValue valueAt(AudioUnitParameterID id, int64_t frame) const;

private:
    // The ramps of one parameter, in time order.
    struct Lane
    {
        AudioUnitParameterID id;
        std::vector<Ramp> ramps;
    };

    static AudioUnitParameterValue lineValue(const Lane& lane, int64_t frame);
    static void laneEvents(const Lane& lane, int64_t blockStart, unsigned frames,
                           std::vector<AudioUnitParameterEvent>& events);

    std::vector<Lane> mLanes;
};
