// Where the audio to process comes from: a file or the built-in demonstration
// signal. Sources deliver non-interleaved 32-bit float frames, the layout the
// plug-in takes, so the render loop never converts.
#pragma once

#include <cstdint>

class AudioSource
{
public:
    virtual ~AudioSource() = default;

    // The source's shape, fixed when it is opened. [any]
    virtual unsigned channels() const = 0;   // 1 or more
    virtual double sampleRate() const = 0;   // hertz, above 0
    virtual int64_t totalFrames() const = 0; // frames the source will deliver

    // Fills up to `frames` frames into channel buffers out[0..channels()-1],
    // each with room for `frames` floats; returns the frames written, 0 at the
    // end. Throws ToolError(kInputUnreadable) when the data cannot be read. [control]
    virtual unsigned read(float* const* out, unsigned frames) = 0;
};
