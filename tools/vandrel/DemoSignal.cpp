#include "DemoSignal.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kBeatSeconds = 0.5;  // 120 beats per minute
constexpr double kChordSeconds = 2.0; // one chord per bar of four beats

// MIDI note numbers of the chords: A minor, F major, C major, G major.
constexpr int kChords[4][4] = {
    {45, 52, 57, 60}, {41, 48, 53, 57}, {48, 55, 60, 64}, {43, 50, 55, 59}};

double noteFrequency(int note)
{
    return 440.0 * std::pow(2.0, (note - 69) / 12.0);
}

// Correction that removes most aliasing from a naive sawtooth at its jump
// (polynomial band-limited step); phase and step in cycles.
double polyBlep(double phase, double step)
{
    if (phase < step) {
        const double t = phase / step;
        return t + t - t * t - 1.0;
    }
    if (phase > 1.0 - step) {
        const double t = (phase - 1.0) / step;
        return t * t + t + t + 1.0;
    }
    return 0.0;
}

// Deterministic white noise in [-1, 1).
class NoiseGenerator
{
public:
    double next()
    {
        mState ^= mState << 13;
        mState ^= mState >> 7;
        mState ^= mState << 17;
        return static_cast<double>(mState >> 11) / 4503599627370496.0 - 1.0;
    }

private:
    uint64_t mState = 0x9E3779B97F4A7C15ull;
};

void addChords(std::vector<double>* channels, size_t frames)
{
    for (int chord = 0; chord < 4; ++chord) {
        const size_t begin = static_cast<size_t>(chord * kChordSeconds * DemoSignal::kSampleRate);
        const size_t length = static_cast<size_t>(kChordSeconds * DemoSignal::kSampleRate);
        for (int voice = 0; voice < 4; ++voice) {
            // Voices spread across the stereo field and slightly detuned per side.
            const double pan = 0.2 + 0.2 * voice;
            for (unsigned c = 0; c < DemoSignal::kChannels; ++c) {
                const double detune = c == 0 ? 0.998 : 1.002;
                const double step =
                    noteFrequency(kChords[chord][voice]) * detune / DemoSignal::kSampleRate;
                const double gain = 0.2 * (c == 0 ? 1.0 - pan : pan);
                double phase = 0.25 * voice;
                for (size_t i = 0; i < length && begin + i < frames; ++i) {
                    const double t = i / DemoSignal::kSampleRate;
                    const double envelope = std::min(1.0, t / 0.01) *
                                            std::min(1.0, (kChordSeconds - t) / 0.05) *
                                            (0.6 + 0.4 * std::exp(-t * 2.0));
                    const double saw = 2.0 * phase - 1.0 - polyBlep(phase, step);
                    channels[c][begin + i] += gain * envelope * saw;
                    phase += step;
                    if (phase >= 1.0)
                        phase -= 1.0;
                }
            }
        }
    }
}

// A steady, quiet noise wash (like a ride cymbal or tape hiss): on a
// broadband sound, every notch and peak of the effect shows as it moves.
void addWash(std::vector<double>* channels, size_t frames)
{
    NoiseGenerator noise;
    for (size_t i = 0; i < frames; ++i)
        for (unsigned c = 0; c < DemoSignal::kChannels; ++c)
            channels[c][i] += 0.1 * noise.next();
}

void addDrums(std::vector<double>* channels, size_t frames)
{
    NoiseGenerator noise;
    const size_t sixteenth = static_cast<size_t>(kBeatSeconds / 4.0 * DemoSignal::kSampleRate);
    for (size_t hit = 0; hit * sixteenth < frames; ++hit) {
        const size_t begin = hit * sixteenth;
        const bool kick = hit % 8 == 0;
        const bool snare = hit % 8 == 4;
        const bool hat = hit % 2 == 0 && !kick && !snare;
        const size_t length =
            std::min(frames - begin, static_cast<size_t>(0.4 * DemoSignal::kSampleRate));
        double kickPhase = 0.0;
        for (size_t i = 0; i < length; ++i) {
            const double t = i / DemoSignal::kSampleRate;
            double left = 0.0;
            double right = 0.0;
            if (kick) {
                // A sine whose pitch falls from 150 Hz to 50 Hz.
                kickPhase +=
                    2.0 * kPi * (50.0 + 100.0 * std::exp(-t * 30.0)) / DemoSignal::kSampleRate;
                left = right = 0.8 * std::sin(kickPhase) * std::exp(-t * 8.0);
            }
            if (snare) {
                const double burst = 0.35 * std::exp(-t * 18.0);
                left += burst * noise.next();
                right += burst * noise.next();
            }
            if (hat) {
                const double burst = 0.1 * std::exp(-t * 60.0);
                left += burst * noise.next();
                right += burst * noise.next();
            }
            channels[0][begin + i] += left;
            channels[1][begin + i] += right;
        }
    }
}

} // namespace

DemoSignal::DemoSignal()
{
    const size_t frames = static_cast<size_t>(kSeconds * kSampleRate);
    std::vector<double> mix[kChannels];
    for (std::vector<double>& channel : mix)
        channel.assign(frames, 0.0);
    addChords(mix, frames);
    addDrums(mix, frames);
    addWash(mix, frames);
    double peak = 0.0;
    for (const std::vector<double>& channel : mix)
        for (double sample : channel)
            peak = std::max(peak, std::fabs(sample));
    const double scale = peak > 0.0 ? kPeak / peak : 0.0;
    for (unsigned c = 0; c < kChannels; ++c) {
        mSamples[c].resize(frames);
        for (size_t i = 0; i < frames; ++i)
            mSamples[c][i] = static_cast<float>(mix[c][i] * scale);
    }
}

unsigned DemoSignal::read(float* const* out, unsigned frames)
{
    const size_t count = std::min<size_t>(frames, mSamples[0].size() - mPosition);
    for (unsigned c = 0; c < kChannels; ++c)
        std::copy_n(mSamples[c].begin() + static_cast<std::ptrdiff_t>(mPosition), count, out[c]);
    mPosition += count;
    return static_cast<unsigned>(count);
}
