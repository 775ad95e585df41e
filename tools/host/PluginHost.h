// One open instance of the effect, driven through the platform's public host
// API only (AudioComponent... and AudioUnit... calls), as any host drives a
// unit: open -> ask presets and parameters, set them or restore a state ->
// set the stream formats, the maximum slice and the input callback ->
// initialize -> render block after block -> uninitialize and dispose.
//
// The input reaches the unit through a render callback that hands it the
// block passed to render(); the output comes back in the caller's buffers.
#pragma once

#include "CFRef.h"

#include <AudioToolbox/AudioToolbox.h>
#include <AudioUnit/AudioUnit.h>

#include <string>
#include <vector>

struct PresetInfo
{
    SInt32 number;
    std::string name;
};

struct ParameterDescription
{
    AudioUnitParameterID id;
    std::string name;
    AudioUnitParameterUnit unit;
    AudioUnitParameterValue minValue;
    AudioUnitParameterValue maxValue;
    AudioUnitParameterValue defaultValue;
    std::vector<std::string>
        valueNames; // names of the values of an indexed parameter, if published
};

class PluginHost
{
public:
    // Opens an instance of the component. Throws ToolError(kPluginUnavailable)
    // with the unit's status when it cannot be opened. [control]
    explicit PluginHost(AudioComponent component);
    // Uninitializes and disposes of the instance. [control]
    ~PluginHost();
    PluginHost(const PluginHost&) = delete;
    PluginHost& operator=(const PluginHost&) = delete;

    // The component's name ("Maker: Name") and version (0xMMMMmmbb). [control]
    std::string componentName() const;
    UInt32 componentVersion() const;

    // The unit's factory presets in its order; empty when it publishes none. [control]
    std::vector<PresetInfo> factoryPresets() const;
    // The global-scope parameters the unit lists, with their descriptions. [control]
    std::vector<ParameterDescription> parameters() const;

    // Each of these throws ToolError(kProcessingFailed) naming the call and the
    // unit's status when the unit refuses it. [control]
    void selectPreset(SInt32 number);
    void setParameter(AudioUnitParameterID id, AudioUnitParameterValue value);
    AudioUnitParameterValue parameter(AudioUnitParameterID id) const;
    void setBypass(bool bypass);

    // As setParameter and setBypass, returning the unit's status instead of
    // throwing. Leaving bypass resets the unit, which then sets up its stream
    // again in the next render (see start()). [render: allocation-free]
    OSStatus trySetParameter(AudioUnitParameterID id, AudioUnitParameterValue value);
    OSStatus trySetBypass(bool bypass);

    // The unit's state (class-info dictionary), owned by the returned holder. [control]
    CFRef<CFPropertyListRef> copyState() const;
    // Hands a state to the unit; false (and the unit's status in *status) when
    // the unit refuses it. [control]
    bool restoreState(CFPropertyListRef state, OSStatus* status);

    // Sets 32-bit float non-interleaved formats on input and output, the maximum
    // slice, installs the input callback and initializes. Throws
    // ToolError(kUnsupportedInput) when the unit refuses the format and
    // ToolError(kProcessingFailed) for other refusals. [control]
    void prepare(double sampleRate, unsigned channels, unsigned maxFrames);

    // Queues parameter events for the next render. Throws ToolError(kProcessingFailed). [control]
    void schedule(const std::vector<AudioUnitParameterEvent>& events);

    // Processes `frames` (at most maxFrames) frames from in[c] into out[c]. The
    // unit may process the input buffers in place; when it does, out may be in
    // (nothing is then copied). Returns the unit's status. [render]
    OSStatus render(float* const* in, float* const* out, unsigned frames);

    // After prepare(): returns the unit to its state before any render
    // (AudioUnitReset) and restarts the render clock. Throws
    // ToolError(kProcessingFailed). [control]
    void reset();
    // After prepare() or reset(): renders an empty slice, so that the unit
    // sets up its stream (and allocates what it needs) now rather than in the
    // next render. The slice takes a sample time of its own, one frame before
    // the next render's. Returns the unit's status. [control]
    OSStatus start();
    // Whether the unit processes its input buffers in place. [control]
    bool processesInPlace() const;
    // The unit's processing latency in seconds; 0 when it reports none. [control]
    Float64 latencySeconds() const;

private:
    // The unit's input callback: hands it the block being rendered. [render]
    static OSStatus supplyInput(void* refCon, AudioUnitRenderActionFlags* flags,
                                const AudioTimeStamp* timeStamp, UInt32 bus, UInt32 frames,
                                AudioBufferList* data);

    AudioComponent mComponent;
    AudioUnit mUnit = nullptr;
    bool mInitialized = false;
    unsigned mChannels = 0;
    Float64 mSampleTime = 0.0;
    float* const* mInput = nullptr; // the block being rendered, for the callback
    std::vector<unsigned char> mOutputListStorage;
};
