// The built-in demonstration sound, used when no input file is given: eight
// seconds of stereo at 44.1 kHz with a progression of four sawtooth chords
// (rich in harmonics, so comb notches and filter sweeps show) over a drum
// pattern of kicks, noise snares and hi-hats and a quiet noise wash
// (broadband, so the sweeps are heard on every hit and seen throughout). It
// is computed once, deterministically.
#pragma once

#include "AudioSource.h"

#include <cstddef>
#include <vector>

class DemoSignal : public AudioSource
{
public:
    static constexpr unsigned kChannels = 2;
    static constexpr double kSampleRate = 44100.0;
    static constexpr double kSeconds = 8.0;
    static constexpr float kPeak = 0.5f; // headroom for presets that add gain

    DemoSignal();

    unsigned channels() const override { return kChannels; }
    double sampleRate() const override { return kSampleRate; }
    int64_t totalFrames() const override { return static_cast<int64_t>(mSamples[0].size()); }
    unsigned read(float* const* out, unsigned frames) override;

private:
    std::vector<float> mSamples[kChannels];
    size_t mPosition = 0;
};
