// A second, deliberately plain implementation of the modulation chain, used only by tests:
// parameter floats -> property record -> cook -> per-sample processing with the dry/wet mix.
//
// It shares no code with the engine. Every operation is written out in the order the engine
// must perform it, with the same constants, truncations, 32-bit wraparounds and flush
// threshold, so the real engine's float output can be compared with this one for exact
// equality. Speed is no concern here: vectors instead of raw blocks, no allocation rules.
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
    int64_t dryOut = 0;
    int64_t wetOut = 0;
    int64_t effect = 0;
    int64_t modRate = 0;
    int64_t modDepth = 0;
    int64_t centerFreq = 0;
    int64_t resonance = 0;
    uint32_t changed = 0;
};

// Parameter floats (identifiers 0..6) to the property record; `previous` plays the role of the
// process-wide record of the values seen by the previous mapping.
inline void mapParameters(const float values[7], Props& props, Props& previous)
{
    props.dryOut = static_cast<int64_t>(static_cast<double>(values[0]) * 10.0);
    props.wetOut = static_cast<int64_t>(static_cast<double>(values[1]) * 10.0);
    if (values[2] < 1.0f) {
        props.effect = 0;
    } else if (values[2] < 2.0f) {
        props.effect = 1;
    } else {
        props.effect = 2;
    }
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
    if (static_cast<double>(floorDb) * 10.0 >= static_cast<double>(tenthsOfDb)) {
        return 0.0;
    }
    return std::pow(10.0, static_cast<double>(tenthsOfDb) / 200.0);
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
        double y;
        if (mSteps <= mMaxSteps && mNext == n) {
            y = mCoef * mPrev1 - mPrev2;
            mSteps += 1;
        } else {
            seed(mOmega, mPhase, n);
            y = mCoef * mPrev1 - mPrev2;
            mSteps = 1;
        }
        mPrev2 = mPrev1;
        mPrev1 = y;
        mNext = wrapAdd(n, 1);
        return y;
    }

    int32_t steps() const { return mSteps; }

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

class Engine
{
public:
    int32_t begin(int channels, int sampleRate, Props& props)
    {
        mChannels = channels;
        mSampleRate = sampleRate;
        props.changed |= 2u | 4u;
        return cook(props, State::Start);
    }

    int32_t cook(Props& props, State state)
    {
        mEffect = props.effect;
        mWet = ratioFromTenthsOfDb(props.wetOut, -80);
        mDry = ratioFromTenthsOfDb(props.dryOut, -80);
        if (state == State::Start) {
            initializeEffects();
        }
        props.changed = 0;
        int32_t status = 0;
        if (mEffect == 1 || mEffect == 2) {
            setupWahwah(props);
        } else if (mEffect == 0) {
            setupFlange(props);
        } else {
            status = kUnknownEffectStatus;
        }
        mValid = status >= 0;
        return status;
    }

    // Releases the stream's blocks; every other field keeps its value.
    void end()
    {
        mWahA1.clear();
        mWahA2.clear();
        mDelay.clear();
    }

    int32_t transform(float** channels, unsigned int channelCount, unsigned int& frameCount,
                      bool skip)
    {
        if (skip) {
            frameCount = 0;
            return 1;
        }
        if (mEffect == 1 || mEffect == 2) {
            if (channelCount == 0) {
                return 0;
            }
            const double savedPos = mWahPos;
            const double savedStep = mWahStep;
            for (unsigned int c = 0; c < channelCount; ++c) {
                mWahPos = savedPos;
                mWahStep = savedStep;
                for (unsigned int f = 0; f < frameCount; ++f) {
                    channels[c][f] = processWahWahSample(&channels[c][f], c);
                }
            }
            return 0;
        }
        if (mEffect == 0) {
            for (unsigned int f = 0; f < frameCount; ++f) {
                processFlangeCell(channels, channelCount, f);
            }
            return 0;
        }
        frameCount = 0;
        return 1;
    }

    bool valid() const { return mValid; }
    double wet() const { return mWet; }
    double dry() const { return mDry; }
    int64_t wahTableLength() const { return mWahTableLen; }
    double wahPos() const { return mWahPos; }
    double wahStep() const { return mWahStep; }
    int64_t lfoIndex() const { return mLfoIndex; }
    int64_t writePos() const { return mWritePos; }
    double readCenter() const { return mReadCenter; }
    double sweepDepth() const { return mSweepDepth; }
    double lfoPeriod() const { return mLfoPeriod; }
    double lfoOmega() const { return mLfoOmega; }
    double samplesPerMs() const { return mSamplesPerMs; }
    double chanGain(int c) const { return mChanGain[c]; }
    double wahA1(int j) const { return mWahA1[static_cast<size_t>(j)]; }
    double wahA2(int j) const { return mWahA2[static_cast<size_t>(j)]; }

private:
    void initializeEffects()
    {
        mFeedback = 0.5;
        mMemGain = 0.0;
        mDelayGain = 1.0;
        mDelay.assign(static_cast<size_t>(kDelayFrames) * static_cast<size_t>(mChannels), 0.0);
        mWritePos = 0;
        for (double& m : mFlangeMem) {
            m = 0.0;
        }
        mLfoIndex = 0;
        mSamplesPerMs =
            static_cast<double>(static_cast<int32_t>(static_cast<double>(mSampleRate) / 1000.0));
        mReadCenter = mSamplesPerMs;
        mOsc = Oscillator(0.0, 0.0, 0, kOscillatorMaxSteps);
        mWahA1.assign(kWahTableSize, 0.0);
        mWahA2.assign(kWahTableSize, 0.0);
        mWahPos = 0.0;
        mWahY1[0] = 0.0;
        mWahY1[1] = 0.0;
        mWahY2[0] = 0.0;
        mWahY2[1] = 0.0;
    }

    void setupFlange(const Props& props)
    {
        for (int i = 0; i < kMaxChannels; ++i) {
            mChanGain[i] = kPan[i % 16] * mWet;
        }
        mSweepDepth = static_cast<double>(
            static_cast<int32_t>(static_cast<double>(props.modDepth) / 100.0 * mSamplesPerMs));
        mLfoPeriod = static_cast<double>(static_cast<int64_t>(
            static_cast<double>(mSampleRate) * (1000.0 / static_cast<double>(props.modRate))));
        mLfoOmega = kLfoTwoPi / mLfoPeriod;
        mWet = mWet * 0.9;
        mOsc.init(mLfoOmega, 0.0, static_cast<int32_t>(mLfoIndex));
    }

    void setupWahwah(const Props& props)
    {
        const int64_t halfPeriod = static_cast<int64_t>(
            (1000.0 * static_cast<double>(mSampleRate)) / static_cast<double>(2 * props.modRate));
        const int64_t n = halfPeriod > kWahTableSize ? kWahTableSize : halfPeriod;
        mWahTableLen = n;
        if (mWahStep < 0.0) {
            mWahStep = -static_cast<double>(n) / static_cast<double>(halfPeriod);
        } else {
            mWahStep = static_cast<double>(n) / static_cast<double>(halfPeriod);
        }

        const int64_t r = props.resonance;
        const double q = 1.0 + 0.008 * static_cast<double>((r - 50) * (r - 50));
        const double quality = r > 49 ? q : 1.0 / q;

        const int64_t m = props.modDepth;
        const double o = 1.0 + 0.002 * static_cast<double>((m - 50) * (m - 50));
        const double span = static_cast<double>(m) <= 50.0 ? o : 1.0 / o;

        const double fc = static_cast<double>(props.centerFreq) / static_cast<double>(mSampleRate);
        const double ratio = std::exp2(1.0 / span);
        const double lo = fc / ratio;
        const double hi = fc * ratio;
        const double top = hi < 0.5 ? hi : 0.5;
        const double inc = (top - lo) / static_cast<double>(n);

        double f = lo;
        for (int64_t j = 0; j < n; ++j) {
            const double c = std::cos(f * kTwoPi);
            mWahA1[static_cast<size_t>(j)] = std::exp(f * (-kPi) / quality) * (c + c);
            mWahA2[static_cast<size_t>(j)] = std::exp(f * (-kTwoPi) / quality);
            f = f + inc;
        }
    }

    void processFlangeCell(float** channels, unsigned int channelCount, unsigned int frame)
    {
        const double s = mOsc.findNthSine(static_cast<int32_t>(mLfoIndex));
        double pos = s * mSweepDepth + mReadCenter;
        if (pos >= 6500.0) {
            pos = pos - 6500.0;
        } else if (pos < 0.0) {
            pos = pos + 6500.0;
        }
        const int32_t i = static_cast<int32_t>(pos);
        const double frac = pos - static_cast<double>(i);

        const int32_t count = static_cast<int32_t>(channelCount);
        const int32_t length = kDelayFrames * count;
        int32_t idx0 = i * count;
        if (idx0 > length - 1) {
            idx0 = length - 1;
        }
        if (idx0 < 0) {
            idx0 = 0;
        }
        int32_t idx1 = idx0 + count;
        if (idx1 >= length) {
            idx1 = idx1 - length;
        }

        mReadCenter = mReadCenter - 1.0;
        if (mReadCenter < 0.0) {
            mReadCenter = 6499.0;
        }
        mLfoIndex = mLfoIndex + 1;
        if (static_cast<double>(mLfoIndex) >= mLfoPeriod) {
            mLfoIndex = 0;
        }

        for (int32_t c = 0; c < count; ++c) {
            const double d0 = mDelay[static_cast<size_t>(idx0)];
            const double d1 = mDelay[static_cast<size_t>(idx1)];
            const double d = mMemGain * mFlangeMem[c] + ((d1 - d0) * frac + d0) * mDelayGain;
            mFlangeMem[c] = flush(d);
            const double x = static_cast<double>(channels[c][frame]);
            mDelay[static_cast<size_t>(mWritePos * count + c)] = flush(mFeedback * d + x);
            double out;
            if (count == 1) {
                out = x * mDry + d * mWet;
            } else {
                out = x * mDry + (d * mWet) * mChanGain[c];
            }
            channels[c][frame] = static_cast<float>(out);
            idx0 = idx0 + 1;
            if (idx0 == length) {
                idx0 = 0;
            }
            idx1 = idx1 + 1;
            if (idx1 == length) {
                idx1 = 0;
            }
        }
        mWritePos = mWritePos > 0 ? mWritePos - 1 : 6499;
    }

    float processWahWahSample(const float* sample, unsigned int c)
    {
        const double x = static_cast<double>(*sample);
        const double p = mWahPos;
        const int64_t n = mWahTableLen;
        int64_t i0 = static_cast<int64_t>(p);
        if (i0 > n - 1) {
            i0 = n - 1;
        }
        if (i0 < 0) {
            i0 = 0;
        }
        int64_t i1 = i0 + 1;
        if (i1 > n - 1) {
            i1 = n - 1;
        }
        double a1;
        double a2;
        const size_t j0 = static_cast<size_t>(i0);
        const size_t j1 = static_cast<size_t>(i1);
        if (p == static_cast<double>(i0)) {
            a1 = mWahA1[j0];
            a2 = mWahA2[j0];
        } else {
            const double t = p - static_cast<double>(i0);
            a1 = mWahA1[j0] + (mWahA1[j1] - mWahA1[j0]) * t;
            a2 = mWahA2[j0] + (mWahA2[j1] - mWahA2[j0]) * t;
        }

        const double next = p + mWahStep;
        if (next >= static_cast<double>(n - 1)) {
            mWahPos = static_cast<double>(n - 1);
            mWahStep = -mWahStep;
        } else if (next <= 0.0) {
            mWahPos = 0.0;
            mWahStep = -mWahStep;
        } else {
            mWahPos = next;
        }

        const double y1 = mWahY1[c];
        const double y2 = mWahY2[c];
        const double w = (x + a1 * y1) - a2 * y2;
        const double a = (a2 * w - a1 * y1) + y2;
        mWahY2[c] = y1;
        mWahY1[c] = flush(w);

        const double q = mEffect == 1 ? (a + x) * 0.5 : x - a;
        return static_cast<float>(q * mWet + x * mDry);
    }

    bool mValid = false;
    int mChannels = 1;
    int mSampleRate = 22050;
    int64_t mEffect = 0;
    double mWet = 0.0;
    double mDry = 0.0;
    int64_t mWritePos = 0;
    double mFlangeMem[kMaxChannels] = {};
    int64_t mLfoIndex = 0;
    double mReadCenter = 0.0;
    double mLfoPeriod = 0.0;
    double mLfoOmega = 0.0;
    double mSweepDepth = 0.0;
    std::vector<double> mDelay;
    double mDelayGain = 0.0;
    double mMemGain = 0.0;
    double mFeedback = 0.0;
    double mChanGain[kMaxChannels] = {};
    double mSamplesPerMs = 0.0;
    int64_t mWahTableLen = 0;
    double mWahPos = 0.0;
    double mWahStep = 0.0;
    std::vector<double> mWahA1;
    std::vector<double> mWahA2;
    double mWahY1[kMaxChannels] = {};
    double mWahY2[kMaxChannels] = {};
    Oscillator mOsc{0.0, 0.0, 0, kOscillatorMaxSteps};
};

} // namespace engine_reference
