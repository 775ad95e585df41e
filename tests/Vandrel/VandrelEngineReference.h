// A second, deliberately plain implementation of the modulation chain, used only by tests:
// parameter floats -> property record -> cook -> per-sample processing with the dry/wet mix.
//
// It shares no code with the engine. Every operation is written out in the order the engine
// must perform it, with the same constants, truncations, 32-bit wraparounds and flush
// threshold, so the real engine's float output can be compared with this one for exact
// equality. Speed is no concern here: vectors instead of raw blocks, no allocation rules.
// Rates of 0 and below run as 1 mHz; property values far beyond the parameter ranges (where
// the engine saturates its conversions) are outside this model.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

namespace engine_reference {

constexpr int kMaxChannels = 32;
constexpr int kDelayFrames = 6500;
constexpr int kWahTableSize = 2000;
constexpr int kOscillatorMaxSteps = 2048;
constexpr double kFlushThreshold = 2e-11;
constexpr double kPi = 3.141592653589793;
constexpr double kTwoPi = 6.283185307179586;
constexpr double kLfoTwoPi = 6.28318530718;
constexpr int32_t kUnknownEffectStatus = static_cast<int32_t>(0x80000008u);
constexpr int32_t kNotBegunStatus = -1;
constexpr double kPan[16] = {0.9, 0.95, 0.7, 0.9, 0.8, 1.0, 1.0, 0.7,
                             0.7, 1.0,  0.8, 1.0, 1.0, 0.8, 0.9, 0.7};

enum class State
{
    Start,
    Continue
};

// The engine's property record: levels in tenths of a dB, rate in mHz, the rest whole numbers.
struct Props
{
    int64_t dryOut = 0, wetOut = 0, effect = 0, modRate = 0, modDepth = 0, centerFreq = 0,
            resonance = 0;
    uint32_t changed = 0;
};

// Parameter floats (identifiers 0..6) to the property record; `previous` plays the role of the
// process-wide record of the values seen by the previous mapping.
inline void mapParameters(const float values[7], Props& props, Props& previous)
{
    props.dryOut = static_cast<int64_t>(static_cast<double>(values[0]) * 10.0);
    props.wetOut = static_cast<int64_t>(static_cast<double>(values[1]) * 10.0);
    props.effect = values[2] < 1.0f ? 0 : (values[2] < 2.0f ? 1 : 2);
    props.modRate = static_cast<int64_t>(static_cast<double>(values[3]) * 1000.0);
    props.modDepth = static_cast<int64_t>(values[4]);
    props.centerFreq = static_cast<int64_t>(values[5]);
    props.resonance = static_cast<int64_t>(values[6]);

    int64_t Props::*const fields[7] = {&Props::dryOut,   &Props::wetOut,   &Props::effect,
                                       &Props::modRate,  &Props::modDepth, &Props::centerFreq,
                                       &Props::resonance};
    for (int i = 0; i < 7; ++i) {
        if (props.*fields[i] != previous.*fields[i]) {
            previous.*fields[i] = props.*fields[i];
            props.changed |= (i < 2) ? 2u : 1u;
        }
    }
}

inline double ratioFromTenthsOfDb(int64_t tenthsOfDb, int64_t floorDb)
{
    return static_cast<double>(floorDb) * 10.0 >= static_cast<double>(tenthsOfDb)
               ? 0.0
               : std::pow(10.0, static_cast<double>(tenthsOfDb) / 200.0);
}

inline double flush(double v)
{
    return std::fabs(v) < kFlushThreshold ? 0.0 : v;
}

// 32-bit signed arithmetic with wraparound, as the hardware does it.
inline int32_t wrapAdd(int32_t a, int32_t b)
{
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

class Oscillator
{
public:
    Oscillator(double omega, double phase, int32_t index, int32_t maxSteps)
    {
        seed(omega, phase, index);
        mMaxSteps = (maxSteps != 0 && maxSteps < 262145) ? maxSteps : 262144;
    }

    void init(double omega, double phase, int32_t index) { seed(omega, phase, index); }

    double findNthSine(int32_t n)
    {
        if (mSteps <= mMaxSteps && mNext == n) {
            mSteps += 1;
        } else {
            seed(mOmega, mPhase, n);
            mSteps = 1;
        }
        const double y = mCoef * mPrev1 - mPrev2;
        mPrev2 = mPrev1;
        mPrev1 = y;
        mNext = wrapAdd(n, 1);
        return y;
    }

private:
    void seed(double omega, double phase, int32_t k)
    {
        mOmega = omega;
        mPhase = phase;
        mCoef = std::cos(omega) + std::cos(omega);
        mNext = k;
        mSteps = 0;
        mPrev2 = std::sin(static_cast<double>(wrapAdd(k, -2)) * omega + phase);
        mPrev1 = std::sin(static_cast<double>(wrapAdd(k, -1)) * omega + phase);
    }

    double mOmega = 0.0;
    double mPhase = 0.0;
    double mCoef = 0.0;
    double mPrev1 = 0.0;
    double mPrev2 = 0.0;
    int32_t mNext = 0;
    int32_t mSteps = 0;
    int32_t mMaxSteps = 0;
};

// The engine's state lives in public fields named after the engine's, so a test can compare
// the two field by field; only the operations write them.
class Engine
{
public:
    int32_t begin(int channelCount, int sampleRate, Props& props)
    {
        channels = channelCount;
        rate = sampleRate;
        props.changed |= 2u | 4u;
        return cook(props, State::Start);
    }

    int32_t cook(Props& props, State state)
    {
        effect = props.effect;
        wet = ratioFromTenthsOfDb(props.wetOut, -80);
        dry = ratioFromTenthsOfDb(props.dryOut, -80);
        int32_t status = 0;
        if (state == State::Start) {
            initializeEffects();
        } else if (!begun) {
            status = kNotBegunStatus;
        }
        props.changed = 0;
        const int64_t modRate = props.modRate > 0 ? props.modRate : 1;
        if (status == 0 && (effect == 1 || effect == 2)) {
            setupWahwah(props, modRate);
        } else if (status == 0 && effect == 0) {
            setupFlange(props, modRate);
        } else if (status == 0) {
            status = kUnknownEffectStatus;
        }
        valid = status >= 0;
        return status;
    }

    // Releases the stream's blocks; every other field keeps its value.
    void end()
    {
        begun = false;
        wahA1.clear();
        wahA2.clear();
        delay.clear();
    }

    int32_t transform(float** buffers, unsigned int channelCount, unsigned int& frameCount,
                      bool skip)
    {
        const bool runnable = !skip && valid && begun && channelCount <= kMaxChannels;
        if (runnable && (effect == 1 || effect == 2)) {
            const double savedPos = wahPos;
            const double savedStep = wahStep;
            for (unsigned int c = 0; c < channelCount; ++c) {
                wahPos = savedPos;
                wahStep = savedStep;
                for (unsigned int f = 0; f < frameCount; ++f) {
                    buffers[c][f] = processWahWahSample(buffers[c][f], c);
                }
            }
            return 0;
        }
        if (runnable && effect == 0 && channelCount <= static_cast<unsigned int>(channels)) {
            for (unsigned int f = 0; f < frameCount; ++f) {
                processFlangeCell(buffers, channelCount, f);
            }
            return 0;
        }
        frameCount = 0;
        return 1;
    }

    bool valid = false;
    bool begun = false; // the stream's blocks exist
    int channels = 1;
    int rate = 22050;
    int64_t effect = 0, writePos = 0, lfoIndex = 0, wahTableLen = 0;
    double wet = 0.0, dry = 0.0, readCenter = 0.0, lfoPeriod = 0.0, lfoOmega = 0.0;
    double sweepDepth = 0.0, delayGain = 0.0, memGain = 0.0, feedback = 0.0, samplesPerMs = 0.0;
    double wahPos = 0.0, wahStep = 0.0;
    double flangeMem[kMaxChannels] = {}, chanGain[kMaxChannels] = {};
    double wahY1[kMaxChannels] = {}, wahY2[kMaxChannels] = {};
    std::vector<double> delay, wahA1, wahA2;

private:
    void initializeEffects()
    {
        begun = true;
        feedback = 0.5;
        memGain = 0.0;
        delayGain = 1.0;
        delay.assign(static_cast<size_t>(kDelayFrames) * static_cast<size_t>(channels), 0.0);
        writePos = 0;
        for (double& m : flangeMem) {
            m = 0.0;
        }
        lfoIndex = 0;
        samplesPerMs =
            static_cast<double>(static_cast<int32_t>(static_cast<double>(rate) / 1000.0));
        readCenter = samplesPerMs;
        mOsc = Oscillator(0.0, 0.0, 0, kOscillatorMaxSteps);
        wahA1.assign(kWahTableSize, 0.0);
        wahA2.assign(kWahTableSize, 0.0);
        wahPos = 0.0;
        wahY1[0] = 0.0;
        wahY1[1] = 0.0;
        wahY2[0] = 0.0;
        wahY2[1] = 0.0;
    }

    void setupFlange(const Props& props, int64_t modRate)
    {
        for (int i = 0; i < kMaxChannels; ++i) {
            chanGain[i] = kPan[i % 16] * wet;
        }
        sweepDepth = static_cast<double>(
            static_cast<int32_t>(static_cast<double>(props.modDepth) / 100.0 * samplesPerMs));
        lfoPeriod = static_cast<double>(static_cast<int64_t>(
            static_cast<double>(rate) * (1000.0 / static_cast<double>(modRate))));
        lfoOmega = kLfoTwoPi / lfoPeriod;
        wet = wet * 0.9;
        mOsc.init(lfoOmega, 0.0, static_cast<int32_t>(lfoIndex));
    }

    void setupWahwah(const Props& props, int64_t modRate)
    {
        int64_t halfPeriod = static_cast<int64_t>((1000.0 * static_cast<double>(rate)) /
                                                  static_cast<double>(2 * modRate));
        halfPeriod = halfPeriod < 1 ? 1 : halfPeriod;
        const int64_t n = halfPeriod > kWahTableSize ? kWahTableSize : halfPeriod;
        wahTableLen = n;
        wahStep = wahStep < 0.0 ? -static_cast<double>(n) / static_cast<double>(halfPeriod)
                                : static_cast<double>(n) / static_cast<double>(halfPeriod);

        const int64_t r = props.resonance;
        const double q = 1.0 + 0.008 * static_cast<double>((r - 50) * (r - 50));
        const double quality = r > 49 ? q : 1.0 / q;

        const int64_t m = props.modDepth;
        const double o = 1.0 + 0.002 * static_cast<double>((m - 50) * (m - 50));
        const double span = static_cast<double>(m) <= 50.0 ? o : 1.0 / o;

        const double fc = static_cast<double>(props.centerFreq) / static_cast<double>(rate);
        const double ratio = std::exp2(1.0 / span);
        const double lo = fc / ratio;
        const double hi = fc * ratio;
        const double top = hi < 0.5 ? hi : 0.5;
        const double inc = (top - lo) / static_cast<double>(n);

        double f = lo;
        for (int64_t j = 0; j < n; ++j) {
            const double c = std::cos(f * kTwoPi);
            wahA1[static_cast<size_t>(j)] = std::exp(f * (-kPi) / quality) * (c + c);
            wahA2[static_cast<size_t>(j)] = std::exp(f * (-kTwoPi) / quality);
            f = f + inc;
        }
    }

    void processFlangeCell(float** buffers, unsigned int channelCount, unsigned int frame)
    {
        const double s = mOsc.findNthSine(static_cast<int32_t>(lfoIndex));
        double pos = s * sweepDepth + readCenter;
        pos = pos >= 6500.0 ? pos - 6500.0 : (pos < 0.0 ? pos + 6500.0 : pos);
        // The integer part saturates at the 32-bit range; the index is then
        // taken in 64 bits, so a position far outside the line clamps to an end.
        const int32_t i = pos >= 2147483648.0    ? INT32_MAX
                          : pos <= -2147483649.0 ? INT32_MIN
                                                 : static_cast<int32_t>(pos);
        const double frac = pos - static_cast<double>(i);

        const int32_t count = static_cast<int32_t>(channelCount);
        const int64_t length = int64_t{kDelayFrames} * count;
        int64_t idx0 = int64_t{i} * count;
        idx0 = idx0 > length - 1 ? length - 1 : idx0;
        idx0 = idx0 < 0 ? 0 : idx0;
        int64_t idx1 = idx0 + count;
        idx1 = idx1 >= length ? idx1 - length : idx1;

        readCenter = readCenter - 1.0;
        readCenter = readCenter < 0.0 ? 6499.0 : readCenter;
        lfoIndex = lfoIndex + 1;
        lfoIndex = static_cast<double>(lfoIndex) >= lfoPeriod ? 0 : lfoIndex;

        for (int32_t c = 0; c < count; ++c) {
            const double d0 = delay[static_cast<size_t>(idx0)];
            const double d1 = delay[static_cast<size_t>(idx1)];
            const double d = memGain * flangeMem[c] + ((d1 - d0) * frac + d0) * delayGain;
            flangeMem[c] = flush(d);
            const double x = static_cast<double>(buffers[c][frame]);
            delay[static_cast<size_t>(writePos * count + c)] = flush(feedback * d + x);
            const double out = count == 1 ? x * dry + d * wet : x * dry + (d * wet) * chanGain[c];
            buffers[c][frame] = static_cast<float>(out);
            idx0 = idx0 + 1 == length ? 0 : idx0 + 1;
            idx1 = idx1 + 1 == length ? 0 : idx1 + 1;
        }
        writePos = writePos > 0 ? writePos - 1 : 6499;
    }

    float processWahWahSample(float sample, unsigned int c)
    {
        const double x = static_cast<double>(sample);
        const double p = wahPos;
        const int64_t n = wahTableLen;
        int64_t i0 = static_cast<int64_t>(p);
        i0 = i0 > n - 1 ? n - 1 : i0;
        i0 = i0 < 0 ? 0 : i0;
        const int64_t i1 = i0 + 1 > n - 1 ? n - 1 : i0 + 1;
        double a1;
        double a2;
        const size_t j0 = static_cast<size_t>(i0);
        const size_t j1 = static_cast<size_t>(i1);
        if (p == static_cast<double>(i0)) {
            a1 = wahA1[j0];
            a2 = wahA2[j0];
        } else {
            const double t = p - static_cast<double>(i0);
            a1 = wahA1[j0] + (wahA1[j1] - wahA1[j0]) * t;
            a2 = wahA2[j0] + (wahA2[j1] - wahA2[j0]) * t;
        }

        const double next = p + wahStep;
        if (next >= static_cast<double>(n - 1)) {
            wahPos = static_cast<double>(n - 1);
            wahStep = -wahStep;
        } else if (next <= 0.0) {
            wahPos = 0.0;
            wahStep = -wahStep;
        } else {
            wahPos = next;
        }

        const double y1 = wahY1[c];
        const double y2 = wahY2[c];
        const double w = (x + a1 * y1) - a2 * y2;
        const double a = (a2 * w - a1 * y1) + y2;
        wahY2[c] = y1;
        wahY1[c] = flush(w);

        const double q = effect == 1 ? (a + x) * 0.5 : x - a;
        return static_cast<float>(q * wet + x * dry);
    }

    Oscillator mOsc{0.0, 0.0, 0, kOscillatorMaxSteps};
};

} // namespace engine_reference
