/*
 * Shared by the engine tests: property records, test signals, and slow
 * reference implementations of the flanger and of the swept all-pass,
 * written from the signal equations (absolute sample times, one history per
 * channel) rather than from the engine's ring buffers and indices.
 */
#ifndef VANDRELENGINETESTSUPPORT_H
#define VANDRELENGINETESTSUPPORT_H

#include "VandrelEngine.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

namespace enginetest {

using Buffers = std::vector<std::vector<float>>;

inline _transform_props MakeProps(std::int64_t effect, std::int64_t rateMilliHz, std::int64_t depth,
                                  std::int64_t center = 100, std::int64_t resonance = 1,
                                  std::int64_t dryTenths = -800, std::int64_t wetTenths = 0)
{
    _transform_props props{};
    props.lDryOut = dryTenths;
    props.lWetOut = wetTenths;
    props.lEffect = effect;
    props.lModRate = rateMilliHz;
    props.lModDepth = depth;
    props.lCenterFreq = center;
    props.lResonance = resonance;
    return props;
}

inline Buffers Noise(int channels, int frames, unsigned seed, bool sameOnAll = false)
{
    std::mt19937 gen(seed);
    std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
    Buffers out(channels, std::vector<float>(frames));
    for (auto& channel : out) {
        for (float& s : channel) {
            s = dist(gen);
        }
        if (sameOnAll) {
            gen.seed(seed);
        }
    }
    return out;
}

// Runs one cook-and-transform per block of `frames` frames, as the unit does.
inline void Render(CVandrelEngine& engine, _transform_props& props, Buffers& buffers,
                   std::size_t start, unsigned int frames)
{
    float* pointers[CVandrelEngine::kMaxChannels] = {};
    for (std::size_t c = 0; c < buffers.size(); ++c) {
        pointers[c] = buffers[c].data() + start;
    }
    engine.TransformCookProperties(props, TRANSFORM_CONTINUE);
    unsigned int count = frames;
    engine.TransformFloat(TRANSFORM_CONTINUE, pointers, static_cast<unsigned int>(buffers.size()),
                          count, false);
}

inline double Flush(double v)
{
    return std::fabs(v) < 2e-11 ? 0.0 : v;
}

inline double Ratio(std::int64_t tenths)
{
    return tenths <= -800 ? 0.0 : std::pow(10.0, static_cast<double>(tenths) / 200.0);
}

// The flanger for one cook followed by any number of frames: the line holds
// v[t] = x[t] + 0.5 d[t] per channel, and d[t] is v read D frames back,
// linearly interpolated, with D swinging sinusoidally around 1 ms.
inline Buffers ReferenceFlanger(const Buffers& in, int sampleRate, const _transform_props& props)
{
    const int channels = static_cast<int>(in.size());
    const int frames = channels ? static_cast<int>(in[0].size()) : 0;
    const double pan[16] = {0.9, 0.95, 0.7, 0.9, 0.8, 1.0, 1.0, 0.7,
                            0.7, 1.0,  0.8, 1.0, 1.0, 0.8, 0.9, 0.7};
    const double wet = Ratio(props.lWetOut);
    const double dry = Ratio(props.lDryOut);
    const int perMs = static_cast<int>(sampleRate / 1000.0);
    const double sweep = static_cast<int>(props.lModDepth / 100.0 * perMs);
    const double period =
        static_cast<double>(static_cast<std::int64_t>(sampleRate * (1000.0 / props.lModRate)));
    const double omega = 6.28318530718 / period;

    // Sine by recurrence, re-seeded from exact values on a jump and after
    // 2049 values from one seed.
    int expected = -1;
    int fromSeed = 0;
    double coef = 0.0;
    double y1 = 0.0;
    double y2 = 0.0;
    auto sine = [&](int n) {
        if (n != expected || fromSeed > 2048) {
            coef = std::cos(omega) + std::cos(omega);
            y2 = std::sin((n - 2) * omega + 0.0);
            y1 = std::sin((n - 1) * omega + 0.0);
            fromSeed = 0;
        }
        const double y = coef * y1 - y2;
        y2 = y1;
        y1 = y;
        expected = n + 1;
        ++fromSeed;
        return y;
    };

    const int kLine = 6500;
    std::vector<std::vector<double>> line(channels, std::vector<double>(frames, 0.0));
    // The line frame k at time n holds the value written `age` frames ago;
    // the frame being written holds the one from a full line length ago.
    auto stored = [&](int c, int n, int frame) {
        const int writeFrame = ((-n) % kLine + kLine) % kLine;
        int age = ((frame - writeFrame) % kLine + kLine) % kLine;
        if (age == 0) {
            age = kLine;
        }
        return n - age >= 0 ? line[c][n - age] : 0.0;
    };

    Buffers out = in;
    int lfo = 0;
    for (int n = 0; n < frames; ++n) {
        const double s = sine(lfo);
        const double center = (((perMs - n) % kLine) + kLine) % kLine;
        double pos = s * sweep + center;
        if (pos >= kLine) {
            pos -= kLine;
        } else if (pos < 0.0) {
            pos += kLine;
        }
        const int frame = static_cast<int>(pos);
        const double frac = pos - frame;
        for (int c = 0; c < channels; ++c) {
            const double newer = stored(c, n, frame);
            const double older = stored(c, n, (frame + 1) % kLine);
            const double d = 0.0 + ((older - newer) * frac + newer) * 1.0;
            const double x = in[c][n];
            line[c][n] = Flush(0.5 * d + x);
            const double flanged =
                channels == 1 ? d * (wet * 0.9) : (d * (wet * 0.9)) * (pan[c % 16] * wet);
            out[c][n] = static_cast<float>(x * dry + flanged);
        }
        if (++lfo >= period) {
            lfo = 0;
        }
    }
    return out;
}

// The swept all-pass coefficients: entry j is the filter with poles at
// radius exp(-pi f / Q) and angle 2 pi f, f running linearly from lo.
struct SweepTable
{
    std::int64_t halfPeriod;
    std::int64_t length;
    std::vector<double> a1;
    std::vector<double> a2;
};

inline SweepTable ReferenceTable(int sampleRate, const _transform_props& props)
{
    SweepTable t;
    t.halfPeriod = static_cast<std::int64_t>((1000.0 * sampleRate) / (2 * props.lModRate));
    t.length = t.halfPeriod < 2000 ? t.halfPeriod : 2000;
    const double r = static_cast<double>(props.lResonance - 50);
    const double q = 1 + 0.008 * (r * r);
    const double quality = props.lResonance > 49 ? q : 1 / q;
    const double m = static_cast<double>(props.lModDepth - 50);
    const double o = 1 + 0.002 * (m * m);
    const double octaves = 1.0 / (props.lModDepth <= 50 ? o : 1 / o);
    const double fc = static_cast<double>(props.lCenterFreq) / sampleRate;
    const double lo = fc / std::exp2(octaves);
    const double top = std::fmin(0.5, fc * std::exp2(octaves));
    const double inc = (top - lo) / t.length;
    double f = lo;
    for (std::int64_t j = 0; j < t.length; ++j, f += inc) {
        t.a1.push_back(std::exp(f * -M_PI / quality) * (std::cos(f * 2 * M_PI) * 2.0));
        t.a2.push_back(std::exp(f * (-2 * M_PI) / quality));
    }
    return t;
}

// Phaser (effect 1) or wah-wah (effect 2) for one cook from a fresh stream:
// every channel sees the same triangle sweep over the table.
inline Buffers ReferenceSweep(const Buffers& in, int sampleRate, const _transform_props& props)
{
    const SweepTable t = ReferenceTable(sampleRate, props);
    const double wet = Ratio(props.lWetOut);
    const double dry = Ratio(props.lDryOut);
    const double last = static_cast<double>(t.length - 1);
    Buffers out = in;
    for (std::size_t c = 0; c < in.size(); ++c) {
        double pos = 0.0;
        double step = static_cast<double>(t.length) / t.halfPeriod;
        double w1 = 0.0;
        double w2 = 0.0;
        for (std::size_t n = 0; n < in[c].size(); ++n) {
            const std::int64_t i0 = static_cast<std::int64_t>(pos);
            const std::int64_t i1 = std::min<std::int64_t>(i0 + 1, t.length - 1);
            const double frac = pos - i0;
            const double a1 = frac == 0.0 ? t.a1[i0] : t.a1[i0] + (t.a1[i1] - t.a1[i0]) * frac;
            const double a2 = frac == 0.0 ? t.a2[i0] : t.a2[i0] + (t.a2[i1] - t.a2[i0]) * frac;
            pos += step;
            if (pos >= last || pos <= 0.0) {
                pos = pos >= last ? last : 0.0;
                step = -step;
            }
            const double x = in[c][n];
            const double w = (x + a1 * w1) - a2 * w2;
            const double allpass = (a2 * w - a1 * w1) + w2;
            w2 = w1;
            w1 = Flush(w);
            const double processed = props.lEffect == 1 ? (allpass + x) * 0.5 : x - allpass;
            out[c][n] = static_cast<float>(processed * wet + x * dry);
        }
    }
    return out;
}

} // namespace enginetest

#endif
