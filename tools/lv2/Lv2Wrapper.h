// One instance of a plug-in of the Vandrel.lv2 bundle (mono or stereo): a
// thin LV2 host of the effect unit through the platform's public host API
// (PluginHost), so that the unit alone decides sound, parameters and presets.
//
// Lifecycle as an LV2 host drives it: instantiate (finds the
// Vandrel.component beside this library, opens the unit, sets its formats,
// maximum slice and input callback, initializes it) -> connect ports ->
// activate (resets the unit, hands it the current controls, sets up its
// stream) -> run ... -> deactivate (resets the unit) -> cleanup.
//
// run(n): each control value is kept within its declared range (NaN gives
// the default) and passed on only when it changed, before the render, so it
// takes effect at the run's first frame; then n frames render in slices of at
// most the maximum slice (the host's bufsz:maxBlockLength, else
// kDefaultMaxFrames). Inputs and outputs may share buffers.
//
// Bypass (the lv2:enabled port) is the unit's bypass. Entering it sets a
// flag; leaving it resets the unit, which then has to set up its stream
// again, so that is done through the host's worker (work:schedule) while run
// passes the input through: processing resumes, from a clean state, with the
// first run after the worker's answer. With the worker, run allocates
// nothing, takes no lock and makes no system call; a host without one gets
// the reset, and the unit's set-up, inside run.
//
// Threads: the LV2 classes; [render] is run and the worker's response,
// [control] the others; work() runs on the host's worker thread while run
// leaves the unit alone.
#pragma once

#include "Lv2Ports.h"
#include "PluginHost.h"

#include <lv2/core/lv2.h>
#include <lv2/worker/worker.h>

#include <cstdint>
#include <vector>

class Lv2Wrapper
{
public:
    // Largest slice rendered at once when the host gives no bufsz:maxBlockLength.
    static constexpr unsigned kDefaultMaxFrames = 4096;
    // Largest maximum slice taken from the host; longer runs are split.
    static constexpr unsigned kLargestMaxFrames = 65536;

    // The descriptors of the bundle's plug-ins: 0 mono, 1 stereo; null for
    // other indices. Static, never freed. [any]
    static const LV2_Descriptor* descriptor(uint32_t index);

private:
    struct Control
    {
        AudioUnitParameterID id;
        float minimum;
        float maximum;
        float defaultValue;
        float sent; // the value the unit has
        const float* port;

        // value within [minimum, maximum]; NaN gives defaultValue. [render]
        float kept(float value) const;
    };

    enum class Mode
    {
        kProcessing, // the unit renders
        kBypassed,   // the unit passes the input through
        kResuming,   // the worker is taking the unit out of bypass; run copies
        kFailed,     // the unit could not be reset; run writes silence
    };

    // Throws ToolError when the unit cannot be found, opened or initialized. [control]
    Lv2Wrapper(unsigned channels, double sampleRate, unsigned maxFrames,
               LV2_Worker_Schedule* schedule);

    void connect(uint32_t port, void* data);
    void activate();
    void deactivate();
    // [render]
    void run(uint32_t frames);
    void applyControls();
    void followBypass();
    void passThrough(uint32_t frames);

    static LV2_Handle instantiate(const LV2_Descriptor* descriptor, double sampleRate,
                                  const char* bundlePath, const LV2_Feature* const* features);
    static const void* extensionData(const char* uri);
    static LV2_Worker_Status work(LV2_Handle handle, LV2_Worker_Respond_Function respond,
                                  LV2_Worker_Respond_Handle respondHandle, uint32_t size,
                                  const void* data);
    static LV2_Worker_Status workResponse(LV2_Handle handle, uint32_t size, const void* data);

    PluginHost mHost;
    std::vector<Control> mControls;
    Lv2Ports mPorts;
    unsigned mChannels;
    double mSampleRate;
    unsigned mMaxFrames;
    LV2_Worker_Schedule* mSchedule; // the host's; null without a worker
    Mode mMode = Mode::kProcessing;
    float mLatencyFrames = 0.0f;
    const float* mEnabled = nullptr;
    float* mLatency = nullptr;
    const float* mIn[Lv2Ports::kMaxChannels] = {};
    float* mOut[Lv2Ports::kMaxChannels] = {};
};
