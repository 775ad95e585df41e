#include "VandrelEngine.h"

#include "CSineOscillator.h"
#include "PlugHelpers.h"

#include <emmintrin.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

namespace {

// Levels at or below -80 dB mute their signal.
constexpr long kLevelFloorDb = -80;

// The oscillator period maps to this constant, a little above 2 pi, rather
// than to 2 pi itself.
constexpr double kLfoCycle = 6.28318530718;
constexpr double kPi = 3.141592653589793;
constexpr double kTwoPi = 6.283185307179586;

// Stored filter and delay values below this magnitude become 0.0, which keeps
// decaying feedback out of the denormal range.
constexpr double kFlushThreshold = 2e-11;

// The flanger's processed part is this share of the wet ratio.
constexpr double kFlangeWetShare = 0.9;

// Channel factors of the multi-channel flanger, repeating every 16 channels.
constexpr double kPan[16] = {0.9, 0.95, 0.7, 0.9, 0.8, 1.0, 1.0, 0.7,
                             0.7, 1.0,  0.8, 1.0, 1.0, 0.8, 0.9, 0.7};

// A modulation rate of 0 or below has no period; it runs as the slowest rate
// that the parameter range can produce.
constexpr std::int64_t kMinModRate = 1;

// The shortest half period of the sweep: one sample. Only rates far above the
// parameter range, or sample rates of 0 and below, reach it.
constexpr std::int64_t kMinHalfPeriod = 1;

double Flush(double v)
{
    return std::fabs(v) < kFlushThreshold ? 0.0 : v;
}

// Flush on two doubles at once, each exactly as Flush.
inline __m128d FlushPair(__m128d v)
{
    const __m128d magnitude = _mm_andnot_pd(_mm_set1_pd(-0.0), v);
    return _mm_andnot_pd(_mm_cmplt_pd(magnitude, _mm_set1_pd(kFlushThreshold)), v);
}

// Flush and FlushPair for a value that feeds back into the next sample: the
// rare flush takes a branch, so the next sample runs on with the value while
// the compare waits for the branch check instead of lengthening the feedback
// chain. Same results as Flush and FlushPair.
inline double FlushFeedback(double v)
{
    if (__builtin_expect(std::fabs(v) < kFlushThreshold, 0)) {
        return 0.0;
    }
    return v;
}

inline __m128d FlushFeedbackPair(__m128d v)
{
    const __m128d magnitude = _mm_andnot_pd(_mm_set1_pd(-0.0), v);
    const __m128d small = _mm_cmplt_pd(magnitude, _mm_set1_pd(kFlushThreshold));
    if (__builtin_expect(_mm_movemask_pd(small) != 0, 0)) {
        return _mm_andnot_pd(small, v);
    }
    return v;
}

// Sample f of two channel buffers as a pair of doubles, and back.
inline __m128d LoadPair(const float* samples0, const float* samples1, unsigned int f)
{
    return _mm_cvtps_pd(_mm_unpacklo_ps(_mm_load_ss(samples0 + f), _mm_load_ss(samples1 + f)));
}

inline void StorePair(float* samples0, float* samples1, unsigned int f, __m128d v)
{
    const __m128 narrowed = _mm_cvtpd_ps(v);
    _mm_store_ss(samples0 + f, narrowed);
    _mm_store_ss(samples1 + f, _mm_shuffle_ps(narrowed, narrowed, 1));
}

// Truncation toward zero to 32 bits that saturates instead of overflowing on
// out-of-range values (which only parameters far outside their ranges give);
// NaN becomes 0.
std::int32_t TruncToInt32(double v)
{
    if (v > -2147483649.0 && v < 2147483648.0) {
        return static_cast<std::int32_t>(v);
    }
    if (v > 0.0) {
        return INT32_MAX;
    }
    return v < 0.0 ? INT32_MIN : 0;
}

// 64-bit integer arithmetic on property values wraps instead of overflowing.
std::int64_t WrapSub(std::int64_t a, std::int64_t b)
{
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

std::int64_t WrapMul(std::int64_t a, std::int64_t b)
{
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) * static_cast<std::uint64_t>(b));
}

std::int32_t LowWord(std::int64_t v)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(static_cast<std::uint64_t>(v)));
}

std::int64_t EffectiveModRate(const _transform_props& props)
{
    return props.lModRate > 0 ? props.lModRate : kMinModRate;
}

// The steps of the phaser and wah-wah sample, shared by the one-sample
// routine and the block loop of the transform so that both compute the same
// operations in the same order.

// The coefficients at sweep position p in tables whose last valid entry is
// `last`: the entry itself at a whole position, else the linear interpolation
// to the next entry.
inline void InterpolateSweep(const double* a1Table, const double* a2Table, std::int64_t last,
                             double p, double& a1, double& a2)
{
    std::int64_t i0 = static_cast<std::int64_t>(p);
    if (i0 > last) {
        i0 = last;
    }
    if (i0 < 0) {
        i0 = 0;
    }
    const std::int64_t i1 = i0 + 1 < last ? i0 + 1 : last;
    if (p == static_cast<double>(i0)) {
        a1 = a1Table[i0];
        a2 = a2Table[i0];
    } else {
        const double t = p - static_cast<double>(i0);
        a1 = a1Table[i0] + (a1Table[i1] - a1Table[i0]) * t;
        a2 = a2Table[i0] + (a2Table[i1] - a2Table[i0]) * t;
    }
}

// The smallest step the sweep's block loop takes: above half a unit in the
// last place of any position below 2000, so that each step moves the position
// towards the end it heads for. Valid settings give at least 1e-9.
constexpr double kMinRegularStep = 1e-10;

// Moves the sweep one sample on; at either end it stops there and turns.
inline void AdvanceSweep(double& pos, double& step, std::int64_t last)
{
    const double next = pos + step;
    if (next >= static_cast<double>(last)) {
        pos = static_cast<double>(last);
        step = -step;
    } else if (next <= 0.0) {
        pos = 0.0;
        step = -step;
    } else {
        pos = next;
    }
}

// One sample of the all-pass section with memories y1 and y2; returns its
// output, computed from the unflushed intermediate value.
inline double AllPass(double x, double a1, double a2, double& y1, double& y2)
{
    const double w = (x + a1 * y1) - a2 * y2;
    const double a = (a2 * w - a1 * y1) + y2;
    y2 = y1;
    y1 = FlushFeedback(w);
    return a;
}

// The output sample: the phaser adds the all-pass output to the input, the
// wah-wah subtracts it; then the dry/wet mix.
template <bool kPhaser> inline float MixWah(double x, double a, double wet, double dry)
{
    const double processed = kPhaser ? (a + x) * 0.5 : x - a;
    return static_cast<float>(processed * wet + x * dry);
}

// Sweep steps of at least this size (in table entries per frame) walk frame
// by frame, smaller ones by table interval (see WalkSweep).
constexpr double kFrameWalkStep = 0.5;

// Walks the sweep over frameCount frames from (pos, step), calling
// body(f, a1, a2) with each frame's coefficients (in both lanes), exactly as InterpolateSweep
// and AdvanceSweep frame by frame; on return (pos, step) is the state after
// the last frame. Within the table the position needs no clamping, and
// between two turns only the end it moves towards needs a test.
//
// kByInterval walks one table interval [i0, i0 + 1) at a time: within it the
// two entries and their differences stay, only the first position can be
// whole (or, moving down, a position that starts the next interval), and the
// one comparison that leaves the interval also catches the turn at either
// end. That pays for slow sweeps; a fast one crosses an interval every frame
// or two, at irregular counts the branch predictor misses, and goes frame by
// frame instead.
template <bool kByInterval, typename Body>
inline void WalkSweep(const double* a1Table, const double* a2Table, std::int64_t last,
                      unsigned int frameCount, double& pos, double& step, Body body)
{
    double p = pos;
    double s = step;
    const double end = static_cast<double>(last);
    unsigned int f = 0;
    while (f < frameCount) {
        if (!(p >= 0.0 && p <= end && std::fabs(s) >= kMinRegularStep)) {
            // Beyond the end of a table that has just become shorter, or a
            // step too small to move the position for sure.
            double a1;
            double a2;
            InterpolateSweep(a1Table, a2Table, last, p, a1, a2);
            AdvanceSweep(p, s, last);
            body(f, _mm_set1_pd(a1), _mm_set1_pd(a2));
            ++f;
            continue;
        }
        if constexpr (!kByInterval) {
            auto coefficients = [a1Table, a2Table](double q, double& a1, double& a2) {
                const std::int64_t i0 = static_cast<std::int64_t>(q);
                a1 = a1Table[i0];
                a2 = a2Table[i0];
                if (q != static_cast<double>(i0)) {
                    const double t = q - static_cast<double>(i0);
                    a1 = a1 + (a1Table[i0 + 1] - a1) * t;
                    a2 = a2 + (a2Table[i0 + 1] - a2) * t;
                }
            };
            if (s > 0.0) {
                for (; f < frameCount; ++f) {
                    double a1;
                    double a2;
                    coefficients(p, a1, a2);
                    body(f, _mm_set1_pd(a1), _mm_set1_pd(a2));
                    const double next = p + s;
                    if (next >= end) {
                        p = end;
                        s = -s;
                        ++f;
                        break;
                    }
                    p = next;
                }
            } else {
                for (; f < frameCount; ++f) {
                    double a1;
                    double a2;
                    coefficients(p, a1, a2);
                    body(f, _mm_set1_pd(a1), _mm_set1_pd(a2));
                    const double next = p + s;
                    if (next <= 0.0) {
                        p = 0.0;
                        s = -s;
                        ++f;
                        break;
                    }
                    p = next;
                }
            }
            continue;
        }
        const std::int64_t i0 = static_cast<std::int64_t>(p);
        const double base = static_cast<double>(i0);
        const double a1 = a1Table[i0];
        const double a2 = a2Table[i0];
        if (p == base) {
            body(f, _mm_set1_pd(a1), _mm_set1_pd(a2));
            ++f;
            AdvanceSweep(p, s, last);
            continue;
        }
        // A position strictly inside the interval lies below the last entry.
        // The two coefficients interpolate side by side in one register.
        const __m128d entries = _mm_set_pd(a2, a1);
        const __m128d differences =
            _mm_sub_pd(_mm_set_pd(a2Table[i0 + 1], a1Table[i0 + 1]), entries);
        auto interpolated = [entries, differences, base](double q) {
            const __m128d t = _mm_set1_pd(q - base);
            return _mm_add_pd(entries, _mm_mul_pd(differences, t));
        };
        if (s > 0.0) {
            const double limit = base + 1.0;
            for (;;) {
                const __m128d a = interpolated(p);
                body(f, _mm_unpacklo_pd(a, a), _mm_unpackhi_pd(a, a));
                ++f;
                const double next = p + s;
                if (next >= limit) {
                    AdvanceSweep(p, s, last);
                    break;
                }
                p = next;
                if (f == frameCount) {
                    break;
                }
            }
        } else {
            for (;;) {
                const __m128d a = interpolated(p);
                body(f, _mm_unpacklo_pd(a, a), _mm_unpackhi_pd(a, a));
                ++f;
                const double next = p + s;
                if (next <= base) {
                    AdvanceSweep(p, s, last);
                    break;
                }
                p = next;
                if (f == frameCount) {
                    break;
                }
            }
        }
    }
    pos = p;
    step = s;
}

// Runs channels through the phaser or wah-wah frame by frame from the sweep
// state (pos, step); on return (pos, step) is the state after the last frame.
// Every channel's own operations and their order are those of the one-sample
// routine.

// One channel.
template <bool kPhaser, bool kByInterval>
void FilterOne(float* samples, double* y1s, double* y2s, unsigned int frameCount,
               const double* a1Table, const double* a2Table, std::int64_t last, double wet,
               double dry, double& pos, double& step)
{
    double y1 = *y1s;
    double y2 = *y2s;
    WalkSweep<kByInterval>(
        a1Table, a2Table, last, frameCount, pos, step, [&](unsigned int f, __m128d a1, __m128d a2) {
            const double x = static_cast<double>(samples[f]);
            const double a = AllPass(x, _mm_cvtsd_f64(a1), _mm_cvtsd_f64(a2), y1, y2);
            samples[f] = MixWah<kPhaser>(x, a, wet, dry);
        });
    *y1s = y1;
    *y2s = y2;
}

// Two channels with separate buffers: each frame's coefficients are computed
// once for both, and the two filters run side by side in the two lanes of
// SSE2 registers, each lane with the one-sample routine's operations in its
// order.
template <bool kPhaser, bool kByInterval>
void FilterPair(float* __restrict samples0, float* __restrict samples1, double* y1s, double* y2s,
                unsigned int frameCount, const double* a1Table, const double* a2Table,
                std::int64_t last, double wet, double dry, double& pos, double& step)
{
    __m128d y1 = _mm_set_pd(y1s[1], y1s[0]);
    __m128d y2 = _mm_set_pd(y2s[1], y2s[0]);
    const __m128d wetPair = _mm_set1_pd(wet);
    const __m128d dryPair = _mm_set1_pd(dry);
    const __m128d half = _mm_set1_pd(0.5);
    WalkSweep<kByInterval>(
        a1Table, a2Table, last, frameCount, pos, step,
        [&](unsigned int f, __m128d a1Pair, __m128d a2Pair) {
            const __m128d x = LoadPair(samples0, samples1, f);
            const __m128d a1y1 = _mm_mul_pd(a1Pair, y1);
            const __m128d w = _mm_sub_pd(_mm_add_pd(x, a1y1), _mm_mul_pd(a2Pair, y2));
            const __m128d a = _mm_add_pd(_mm_sub_pd(_mm_mul_pd(a2Pair, w), a1y1), y2);
            y2 = y1;
            y1 = FlushFeedbackPair(w);
            const __m128d processed =
                kPhaser ? _mm_mul_pd(_mm_add_pd(a, x), half) : _mm_sub_pd(x, a);
            StorePair(samples0, samples1, f,
                      _mm_add_pd(_mm_mul_pd(processed, wetPair), _mm_mul_pd(x, dryPair)));
        });
    _mm_storel_pd(y1s, y1);
    _mm_storeh_pd(y1s + 1, y1);
    _mm_storel_pd(y2s, y2);
    _mm_storeh_pd(y2s + 1, y2);
}

// Every channel of a render with separate buffers, in pairs and then the odd
// one, each from the sweep state (startPos, startStep); (pos, step) is the
// state after the last frame. One function per effect and walk, so that each
// inner loop gets the registers to itself.
template <bool kPhaser, bool kByInterval>
[[gnu::noinline]] void
FilterChannels(float** channels, unsigned int channelCount, unsigned int frameCount, double* y1s,
               double* y2s, const double* a1Table, const double* a2Table, std::int64_t last,
               double wet, double dry, double startPos, double startStep, double& pos, double& step)
{
    unsigned int c = 0;
    for (; c + 2 <= channelCount; c += 2) {
        pos = startPos;
        step = startStep;
        FilterPair<kPhaser, kByInterval>(channels[c], channels[c + 1], y1s + c, y2s + c, frameCount,
                                         a1Table, a2Table, last, wet, dry, pos, step);
    }
    if (c < channelCount) {
        pos = startPos;
        step = startStep;
        FilterOne<kPhaser, kByInterval>(channels[c], y1s + c, y2s + c, frameCount, a1Table, a2Table,
                                        last, wet, dry, pos, step);
    }
}

// The flanger's read position for oscillator value s, within one wrap of
// the line.
inline double FlangeReadPosition(double s, double depth, double center)
{
    double pos = s * depth + center;
    if (pos >= 6500.0) {
        pos = pos - 6500.0;
    } else if (pos < 0.0) {
        pos = pos + 6500.0;
    }
    return pos;
}

// The first samples of the read frame i and of the next (older) frame of a
// line of `stride` channels. A read position outside one wrap of the line
// (only from depths beyond the parameter range) is held at the line's ends.
inline void FlangeTaps(std::int32_t i, std::int64_t stride, std::int64_t& idx0, std::int64_t& idx1)
{
    const std::int64_t lineLen = CVandrelEngine::kDelayFrames * stride;
    idx0 = static_cast<std::int64_t>(i) * stride;
    if (idx0 > lineLen - 1) {
        idx0 = lineLen - 1;
    }
    if (idx0 < 0) {
        idx0 = 0;
    }
    idx1 = idx0 + stride;
    if (idx1 >= lineLen) {
        idx1 -= lineLen;
    }
}

struct FlangeGains
{
    double memGain;
    double delayGain;
    double feedback;
    double dry;
    double wet;
    const double* chanGain;
};

// The channel loop of one flanger frame, channel after channel: each reads
// its taps, then writes its sample of writeFrame and its output.
inline void FlangeChannels(float* const* channels, unsigned int channelCount, unsigned int frame,
                           double* line, std::int64_t idx0, std::int64_t idx1, double frac,
                           double* writeFrame, double* mem, const FlangeGains& g)
{
    const std::int64_t lineLen = CVandrelEngine::kDelayFrames * std::int64_t{channelCount};
    for (unsigned int c = 0; c < channelCount; ++c) {
        const double older = line[idx1];
        const double newer = line[idx0];
        const double d = g.memGain * mem[c] + ((older - newer) * frac + newer) * g.delayGain;
        mem[c] = Flush(d);
        const double x = static_cast<double>(channels[c][frame]);
        writeFrame[c] = Flush(g.feedback * d + x);
        double out;
        if (channelCount == 1) {
            out = x * g.dry + d * g.wet;
        } else {
            out = x * g.dry + (d * g.wet) * g.chanGain[c];
        }
        channels[c][frame] = static_cast<float>(out);
        if (++idx0 >= lineLen) {
            idx0 = 0;
        }
        if (++idx1 >= lineLen) {
            idx1 = 0;
        }
    }
}

// Whether any two of the channel buffers share a sample.
bool BuffersOverlap(float* const* channels, unsigned int channelCount, unsigned int frameCount)
{
    for (unsigned int c = 0; c < channelCount; ++c) {
        for (unsigned int d = c + 1; d < channelCount; ++d) {
            if (channels[c] < channels[d] + frameCount && channels[d] < channels[c] + frameCount) {
                return true;
            }
        }
    }
    return false;
}

} // namespace

CVandrelEngine::CVandrelEngine()
    : bValid(false), nChannels(1), nSampleRate(22050), lEffect(0), dWet(0.0), dDry(0.0),
      lWritePos(0), adFlangeMem(), lLfoIndex(0), dReadCenter(0.0), dLfoPeriod(0.0), dLfoOmega(0.0),
      dSweepDepth(0.0), pdDelay(nullptr), dDelayGain(0.0), dMemGain(0.0), dFeedback(0.0),
      adChanGain(), dSamplesPerMs(0.0), lWahTableLen(0), dWahPos(0.0), dWahStep(0.0),
      pdWahA1(*this), pdWahA2(*this), adWahY1(), adWahY2(), pOsc(nullptr), bWahTablesBuilt(false),
      lWahBuiltLength(0), lWahBuiltDepth(0), lWahBuiltCenter(0), lWahBuiltResonance(0),
      nWahBuiltSampleRate(0), bLevelsConverted(false), lConvertedWetOut(0), lConvertedDryOut(0),
      dWetRatio(0.0), dDryRatio(0.0), mWahFrequencies(), dWahQuality(0.0), dWahLo(0.0),
      dWahInc(0.0), lWahValidFirst(1), lWahValidLast(0), lWahStepRate(0), nWahStepSampleRate(0),
      lWahStepLength(0), dWahStepSize(0.0)
{
}

CVandrelEngine::~CVandrelEngine()
{
    ReleaseBlocks();
}

void CVandrelEngine::ReleaseBlocks()
{
    if (pdWahA1.mData != nullptr) {
        PlugMemFree(pdWahA1.mData);
        pdWahA1.mData = nullptr;
    }
    if (pdWahA2.mData != nullptr) {
        PlugMemFree(pdWahA2.mData);
        pdWahA2.mData = nullptr;
    }
    if (pdDelay != nullptr) {
        PlugMemFree(pdDelay);
        pdDelay = nullptr;
    }
    delete pOsc;
    pOsc = nullptr;
    bWahTablesBuilt = false;
}

bool CVandrelEngine::HasStreamState() const
{
    return pdDelay != nullptr && pdWahA1.mData != nullptr && pdWahA2.mData != nullptr &&
           pOsc != nullptr;
}

std::int32_t CVandrelEngine::TransformBegin(int channels, int sampleRate, _transform_props& props)
{
    // More channels than the per-channel arrays hold cannot be served; the
    // request is refused before anything changes.
    if (channels < 0 || channels > kMaxChannels) {
        return kStatusBadChannelCount;
    }
    nChannels = channels;
    nSampleRate = sampleRate;
    props.uChanged |= kPropsChanged_Levels | kPropsChanged_Begin;
    return TransformCookProperties(props, TRANSFORM_START);
}

std::int32_t CVandrelEngine::TransformCookProperties(_transform_props& props, TRANSFORM_STATE state)
{
    lEffect = props.lEffect;
    // The conversion is a pure function of the level: a level seen at the
    // last cook keeps its ratio.
    if (!bLevelsConverted || props.lWetOut != lConvertedWetOut) {
        dWetRatio = PlugGetRatioFromdB(static_cast<long>(props.lWetOut), kLevelFloorDb);
        lConvertedWetOut = props.lWetOut;
    }
    if (!bLevelsConverted || props.lDryOut != lConvertedDryOut) {
        dDryRatio = PlugGetRatioFromdB(static_cast<long>(props.lDryOut), kLevelFloorDb);
        lConvertedDryOut = props.lDryOut;
    }
    bLevelsConverted = true;
    dWet = dWetRatio;
    dDry = dDryRatio;

    // Without its state (allocation failed, or no stream begun) the engine
    // does no setup and renders nothing until a TransformBegin succeeds.
    std::int32_t status = kStatusOK;
    if (state == TRANSFORM_START) {
        status = InitializeEffects();
    } else if (!HasStreamState()) {
        status = kStatusNotBegun;
    }
    props.uChanged = 0;

    if (status == kStatusOK) {
        if (lEffect == kEffect_Phaser || lEffect == kEffect_WahWah) {
            SetupWahwah(props, state);
        } else if (lEffect == kEffect_Flange) {
            SetupFlange(props, state);
        } else {
            status = kStatusUnknownEffect;
        }
    }
    bValid = status >= 0;
    return status;
}

std::int32_t CVandrelEngine::InitializeEffects()
{
    dFeedback = 0.5;
    dMemGain = 0.0;
    dDelayGain = 1.0;

    if (pdDelay != nullptr) {
        PlugMemFree(pdDelay);
    }
    const std::int32_t delayBytes =
        kDelayFrames * static_cast<std::int32_t>(sizeof(double)) * nChannels;
    pdDelay = static_cast<double*>(PlugMemAllocZeroInit(delayBytes));

    lWritePos = 0;
    std::memset(adFlangeMem, 0, sizeof adFlangeMem);
    lLfoIndex = 0;

    dSamplesPerMs = static_cast<double>(TruncToInt32(static_cast<double>(nSampleRate) / 1000.0));
    dReadCenter = dSamplesPerMs;

    delete pOsc;
    pOsc = new (std::nothrow) CSineOscillator(0.0, 0.0, 0, kLfoReseedInterval);

    if (pdWahA1.mData != nullptr) {
        PlugMemFree(pdWahA1.mData);
    }
    if (pdWahA2.mData != nullptr) {
        PlugMemFree(pdWahA2.mData);
    }
    const long long tableBytes = kWahTableSize * static_cast<long long>(sizeof(double));
    pdWahA1.mData = static_cast<double*>(PlugMemAllocZeroInit(tableBytes));
    pdWahA2.mData = static_cast<double*>(PlugMemAllocZeroInit(tableBytes));
    bWahTablesBuilt = false;
    lWahValidFirst = 1;
    lWahValidLast = 0;

    // The sweep direction (dWahStep) and the filter memories of channels 2
    // and up deliberately survive a rebuild.
    dWahPos = 0.0;
    adWahY1[0] = 0.0;
    adWahY1[1] = 0.0;
    adWahY2[0] = 0.0;
    adWahY2[1] = 0.0;

    // A block that cannot be had leaves no partial state behind: the engine
    // then holds nothing and renders nothing.
    if (!HasStreamState()) {
        ReleaseBlocks();
        return kStatusNoMemory;
    }
    return kStatusOK;
}

std::int32_t CVandrelEngine::TransformEnd()
{
    ReleaseBlocks();
    return kStatusOK;
}

std::int32_t CVandrelEngine::SetupFlange(const _transform_props& props, TRANSFORM_STATE)
{
    for (int i = 0; i < 16; ++i) {
        const double gain = kPan[i] * dWet;
        adChanGain[i] = gain;
        adChanGain[i + 16] = gain;
    }
    dSweepDepth = static_cast<double>(
        TruncToInt32(static_cast<double>(props.lModDepth) / 100.0 * dSamplesPerMs));
    const std::int64_t rate = EffectiveModRate(props);
    dLfoPeriod = static_cast<double>(static_cast<std::int64_t>(
        static_cast<double>(nSampleRate) * (1000.0 / static_cast<double>(rate))));
    dLfoOmega = kLfoCycle / dLfoPeriod;
    dWet = dWet * kFlangeWetShare;
    pOsc->Init(dLfoOmega, 0.0, LowWord(lLfoIndex));
    return kStatusOK;
}

std::int32_t CVandrelEngine::SetupWahwah(const _transform_props& props, TRANSFORM_STATE)
{
    // The length and the step's size depend on the rate and the sample rate
    // alone: a cook that changes neither (a ramp of another knob cooks every
    // 32 frames) reuses them.
    const std::int64_t rate = EffectiveModRate(props);
    if (lWahStepRate != rate || nWahStepSampleRate != nSampleRate) {
        std::int64_t halfPeriod = static_cast<std::int64_t>(
            (1000.0 * static_cast<double>(nSampleRate)) / static_cast<double>(WrapMul(2, rate)));
        if (halfPeriod < kMinHalfPeriod) {
            halfPeriod = kMinHalfPeriod;
        }
        lWahStepLength = halfPeriod < kWahTableSize ? halfPeriod : kWahTableSize;
        dWahStepSize = static_cast<double>(lWahStepLength) / static_cast<double>(halfPeriod);
        lWahStepRate = rate;
        nWahStepSampleRate = nSampleRate;
    }
    const std::int64_t len = lWahStepLength;
    lWahTableLen = len;
    dWahStep = dWahStep < 0.0 ? -dWahStepSize : dWahStepSize;

    // The rate enters the tables only through their length.
    if (bWahTablesBuilt && lWahBuiltLength == len && lWahBuiltDepth == props.lModDepth &&
        lWahBuiltCenter == props.lCenterFreq && lWahBuiltResonance == props.lResonance &&
        nWahBuiltSampleRate == nSampleRate) {
        return kStatusOK;
    }

    const std::int64_t r = props.lResonance;
    const double rOff = static_cast<double>(WrapSub(r, 50));
    const double q = 1.0 + 0.008 * (rOff * rOff);
    const double quality = r > 49 ? q : 1.0 / q;

    const std::int64_t m = props.lModDepth;
    const double mOff = static_cast<double>(WrapSub(m, 50));
    const double o = 1.0 + 0.002 * (mOff * mOff);
    const double span = static_cast<double>(m) <= 50.0 ? o : 1.0 / o;

    const double fc = static_cast<double>(props.lCenterFreq) / static_cast<double>(nSampleRate);
    const double ratio = std::exp2(1.0 / span);
    const double lo = fc / ratio;
    const double hi = fc * ratio;
    const double top = hi < 0.5 ? hi : 0.5;
    const double inc = (top - lo) / static_cast<double>(len);

    // Entry j is computed when first needed, from its frequency, the running
    // sum lo + inc + inc + ... of j increments, split into runs as far as the
    // entries asked for need. A sum that cannot be split (settings far
    // outside the parameter ranges) is taken in full, with every entry.
    dWahQuality = quality;
    dWahLo = lo;
    dWahInc = inc;
    lWahValidFirst = 1;
    lWahValidLast = 0;
    if (!mWahFrequencies.Begin(lo, inc, len)) {
        SumWahEntries();
    }

    bWahTablesBuilt = true;
    lWahBuiltLength = len;
    lWahBuiltDepth = props.lModDepth;
    lWahBuiltCenter = props.lCenterFreq;
    lWahBuiltResonance = props.lResonance;
    nWahBuiltSampleRate = nSampleRate;
    return kStatusOK;
}

void CVandrelEngine::SumWahEntries()
{
    double* const a1Table = pdWahA1.mData;
    double* const a2Table = pdWahA2.mData;
    const double quality = dWahQuality;
    const double inc = dWahInc;
    double f = dWahLo;
    for (std::int64_t j = 0; j < lWahTableLen; ++j) {
        const double c = std::cos(f * kTwoPi);
        a1Table[j] = std::exp(f * -kPi / quality) * (c + c);
        a2Table[j] = std::exp(f * -kTwoPi / quality);
        f += inc;
    }
    lWahValidFirst = 0;
    lWahValidLast = lWahTableLen - 1;
}

void CVandrelEngine::ComputeWahEntries(std::int64_t first, std::int64_t last)
{
    if (!bWahTablesBuilt || pdWahA1.mData == nullptr || pdWahA2.mData == nullptr) {
        return;
    }
    if (first < 0) {
        first = 0;
    }
    if (last > lWahTableLen - 1) {
        last = lWahTableLen - 1;
    }
    if (first > last || (lWahValidFirst <= first && last <= lWahValidLast)) {
        return;
    }
    if (!mWahFrequencies.Reach(last)) {
        SumWahEntries();
        return;
    }
    double* const a1Table = pdWahA1.mData;
    double* const a2Table = pdWahA2.mData;
    const double quality = dWahQuality;
    auto compute = [a1Table, a2Table, quality](std::int64_t j, double f) {
        const double c = std::cos(f * kTwoPi);
        a1Table[j] = std::exp(f * -kPi / quality) * (c + c);
        a2Table[j] = std::exp(f * -kTwoPi / quality);
    };
    if (lWahValidFirst > lWahValidLast) {
        mWahFrequencies.ForEach(first, last, compute);
        lWahValidFirst = first;
        lWahValidLast = last;
        return;
    }
    if (first < lWahValidFirst) {
        mWahFrequencies.ForEach(first, lWahValidFirst - 1, compute);
        lWahValidFirst = first;
    }
    if (last > lWahValidLast) {
        mWahFrequencies.ForEach(lWahValidLast + 1, last, compute);
        lWahValidLast = last;
    }
}

void CVandrelEngine::PrepareWahEntries(unsigned int frameCount)
{
    const std::int64_t last = lWahTableLen - 1;
    if (lWahValidFirst <= 0 && lWahValidLast >= last) {
        return;
    }
    // The sweep moves |step| per frame and turns at the ends; it reads the
    // entry at each position and the one after. The running position rounds
    // by far less than the margin.
    const double end = static_cast<double>(last);
    const double p = dWahPos;
    const double reach = static_cast<double>(frameCount) * std::fabs(dWahStep) + 1e-6;
    double lo = 0.0;
    double hi = end;
    if (p > end) {
        lo = end - reach;
    } else if (p >= 0.0 && dWahStep >= 0.0) {
        lo = p;
        hi = p + reach;
        if (hi > end) {
            lo = std::fmin(lo, end - (hi - end));
        }
    } else if (p >= 0.0) {
        lo = p - reach;
        hi = p;
        if (lo < 0.0) {
            hi = std::fmax(hi, -lo);
        }
    }
    const std::int64_t first = lo > 0.0 ? static_cast<std::int64_t>(lo) : 0;
    const std::int64_t lastEntry = hi < end ? static_cast<std::int64_t>(hi) + 1 : last;
    ComputeWahEntries(first, lastEntry);
}

double CSweepTableView::operator[](std::int64_t j) const
{
    if (j >= 0 && j < mOwner.lWahTableLen) {
        mOwner.ComputeWahEntries(j, j);
    }
    return mData[j];
}

CSweepTableView::operator const double*() const
{
    if (mData != nullptr) {
        mOwner.ComputeWahEntries(0, mOwner.lWahTableLen - 1);
    }
    return mData;
}

std::int32_t CVandrelEngine::ProcessFlange_FloatCell(float** channels, unsigned int channelCount,
                                                     unsigned int frame)
{
    const double s = pOsc->FindNthSine(LowWord(lLfoIndex));

    const double pos = FlangeReadPosition(s, dSweepDepth, dReadCenter);
    const std::int32_t i = TruncToInt32(pos);
    const double frac = pos - static_cast<double>(i);
    const std::int64_t stride = channelCount;
    std::int64_t idx0;
    std::int64_t idx1;
    FlangeTaps(i, stride, idx0, idx1);

    dReadCenter = dReadCenter - 1.0;
    if (dReadCenter < 0.0) {
        dReadCenter = 6499.0;
    }
    lLfoIndex = lLfoIndex + 1;
    if (static_cast<double>(lLfoIndex) >= dLfoPeriod) {
        lLfoIndex = 0;
    }

    const FlangeGains gains{dMemGain, dDelayGain, dFeedback, dDry, dWet, adChanGain};
    FlangeChannels(channels, channelCount, frame, pdDelay, idx0, idx1, frac,
                   pdDelay + lWritePos * stride, adFlangeMem, gains);

    lWritePos = lWritePos > 0 ? lWritePos - 1 : kDelayFrames - 1;
    return 0;
}

namespace {

// The flanger over a block of one or two channels with separate buffers. The
// oscillator's recurrence runs in locals, in stretches with no re-seed and no
// wrap of the oscillator index, read centre or write position inside; each
// stretch then needs no per-frame bookkeeping. Two channels run side by side
// in the lanes of SSE2 registers: their taps lie in their own columns of the
// line (at a read position within one wrap), so neither touches what the
// other writes. Every channel's operations are ProcessFlange_FloatCell's.
template <unsigned int kChannels>
void FlangeBlock(CVandrelEngine& e, float** channels, unsigned int frameCount, std::int64_t wrapAt)
{
    constexpr std::int64_t kStride = kChannels;
    constexpr std::int64_t kLast = CVandrelEngine::kDelayFrames - 1;
    CSineOscillator& osc = *e.pOsc;
    double coef = osc.dCoef;
    double prev1 = osc.dPrev1;
    double prev2 = osc.dPrev2;
    std::int32_t next = osc.nNext;
    std::int32_t steps = osc.nSteps;
    const std::int32_t maxSteps = osc.nMaxSteps;
    double cur = osc.dCur;
    std::int64_t lfoIndex = e.lLfoIndex;
    std::int64_t readCenter = static_cast<std::int64_t>(e.dReadCenter);
    std::int64_t writePos = e.lWritePos;

    const double depth = e.dSweepDepth;
    const FlangeGains gains{e.dMemGain, e.dDelayGain, e.dFeedback, e.dDry, e.dWet, e.adChanGain};
    double* const line = e.pdDelay;
    float* const samples0 = channels[0];
    float* const samples1 = channels[kChannels - 1];
    const __m128d memGain = _mm_set1_pd(gains.memGain);
    const __m128d delayGain = _mm_set1_pd(gains.delayGain);
    const __m128d feedback = _mm_set1_pd(gains.feedback);
    const __m128d dry = _mm_set1_pd(gains.dry);
    const __m128d wet = _mm_set1_pd(gains.wet);
    const __m128d chanGain = _mm_set_pd(e.adChanGain[1], e.adChanGain[0]);
    __m128d memPair = _mm_set_pd(e.adFlangeMem[1], e.adFlangeMem[0]);
    double mem = e.adFlangeMem[0];

    unsigned int f = 0;
    while (f < frameCount) {
        // A request the oscillator would serve by re-seeding: the re-seed
        // then one recurrence step, as FindNthSine does it.
        const std::int32_t n = LowWord(lfoIndex);
        if (steps > maxSteps || next != n) {
            osc.Init(osc.dOmega, osc.dPhase, n);
            coef = osc.dCoef;
            prev1 = osc.dPrev1;
            prev2 = osc.dPrev2;
            steps = osc.nSteps;
        }
        std::int64_t count =
            std::min<std::int64_t>(frameCount - f, std::max(1, maxSteps - steps + 1));
        count = std::min(count, std::max<std::int64_t>(1, wrapAt - lfoIndex));
        count = std::min(count, std::min(readCenter, writePos) + 1);
        double center = static_cast<double>(readCenter);
        double* writeFrame = line + writePos * kStride;
        const unsigned int start = f;
        const unsigned int end = f + static_cast<unsigned int>(count);
        double pos = 0.0;
        for (; f < end; ++f) {
            cur = coef * prev1 - prev2;
            prev2 = prev1;
            prev1 = cur;
            pos = cur * depth + center;
            // A position within the line truncates to a frame of it; so do
            // the ones in (-1, 0), which only the rare frame 0 must tell
            // apart. Anything else (NaN too) truncates outside.
            std::int32_t i = _mm_cvttsd_si32(_mm_set_sd(pos));
            if (static_cast<std::uint32_t>(i) > static_cast<std::uint32_t>(kLast) ||
                (i == 0 && pos < 0.0)) {
                pos = FlangeReadPosition(cur, depth, center);
                if (!(pos >= 0.0 && pos < 6500.0)) {
                    break;
                }
                i = static_cast<std::int32_t>(pos);
            }
            const double frac = pos - static_cast<double>(i);
            const double* const newerFrame = line + i * kStride;
            const double* const olderFrame = i < kLast ? newerFrame + kStride : line;
            if (kChannels == 2) {
                const __m128d newer = _mm_loadu_pd(newerFrame);
                const __m128d older = _mm_loadu_pd(olderFrame);
                const __m128d interpolated =
                    _mm_add_pd(_mm_mul_pd(_mm_sub_pd(older, newer), _mm_set1_pd(frac)), newer);
                const __m128d d =
                    _mm_add_pd(_mm_mul_pd(memGain, memPair), _mm_mul_pd(interpolated, delayGain));
                memPair = FlushFeedbackPair(d);
                const __m128d x = LoadPair(samples0, samples1, f);
                _mm_storeu_pd(writeFrame, FlushPair(_mm_add_pd(_mm_mul_pd(feedback, d), x)));
                StorePair(samples0, samples1, f,
                          _mm_add_pd(_mm_mul_pd(x, dry), _mm_mul_pd(_mm_mul_pd(d, wet), chanGain)));
            } else {
                const double older = *olderFrame;
                const double newer = *newerFrame;
                const double d =
                    gains.memGain * mem + ((older - newer) * frac + newer) * gains.delayGain;
                mem = FlushFeedback(d);
                const double x = static_cast<double>(samples0[f]);
                *writeFrame = Flush(gains.feedback * d + x);
                samples0[f] = static_cast<float>(x * gains.dry + d * gains.wet);
            }
            center -= 1.0;
            writeFrame -= kStride;
        }
        if (f < end) {
            // A read position outside the line (depths beyond the parameter
            // range, NaN): taps held at the line's ends, channel after
            // channel, as ProcessFlange_FloatCell does it.
            const std::int32_t i = TruncToInt32(pos);
            std::int64_t idx0;
            std::int64_t idx1;
            FlangeTaps(i, kStride, idx0, idx1);
            if (kChannels == 2) {
                _mm_storel_pd(e.adFlangeMem, memPair);
                _mm_storeh_pd(e.adFlangeMem + 1, memPair);
            } else {
                e.adFlangeMem[0] = mem;
            }
            FlangeChannels(channels, kChannels, f, line, idx0, idx1, pos - static_cast<double>(i),
                           writeFrame, e.adFlangeMem, gains);
            memPair = _mm_set_pd(e.adFlangeMem[1], e.adFlangeMem[0]);
            mem = e.adFlangeMem[0];
            ++f;
        }
        count = f - start;
        steps += static_cast<std::int32_t>(count);
        next = static_cast<std::int32_t>(static_cast<std::uint32_t>(n) +
                                         static_cast<std::uint32_t>(count));
        lfoIndex += count;
        if (lfoIndex >= wrapAt) {
            lfoIndex = 0;
        }
        readCenter -= count;
        if (readCenter < 0) {
            readCenter = kLast;
        }
        writePos -= count;
        if (writePos < 0) {
            writePos = kLast;
        }
    }

    if (kChannels == 2) {
        _mm_storel_pd(e.adFlangeMem, memPair);
        _mm_storeh_pd(e.adFlangeMem + 1, memPair);
    } else {
        e.adFlangeMem[0] = mem;
    }
    osc.dCoef = coef;
    osc.dPrev1 = prev1;
    osc.dPrev2 = prev2;
    osc.nNext = next;
    osc.nSteps = steps;
    osc.dCur = cur;
    e.lLfoIndex = lfoIndex;
    e.dReadCenter = static_cast<double>(readCenter);
    e.lWritePos = writePos;
}

} // namespace

void CVandrelEngine::ProcessFlange_Block(float** channels, unsigned int channelCount,
                                         unsigned int frameCount)
{
    // The block keeps the read centre and the oscillator index as integers,
    // which they always are, and serves one or two channels with separate
    // buffers; anything else goes frame by frame.
    const double period = dLfoPeriod;
    const double center = dReadCenter;
    const bool wholeNumbers =
        center >= 0.0 && center <= 6499.0 && center == std::floor(center) && period >= -0x1p53 &&
        period <= 0x1p53 && period == std::floor(period) && lLfoIndex >= 0 &&
        lLfoIndex < (std::int64_t{1} << 53) && lWritePos >= 0 && lWritePos < kDelayFrames;
    if (!wholeNumbers || channelCount == 0 || channelCount > 2 ||
        BuffersOverlap(channels, channelCount, frameCount)) {
        for (unsigned int f = 0; f < frameCount; ++f) {
            ProcessFlange_FloatCell(channels, channelCount, f);
        }
        return;
    }
    // The index wraps to 0 once it reaches the period: for whole numbers
    // below 2^53 the integer comparison is the double one.
    const std::int64_t wrapAt = period < 1.0 ? 1 : static_cast<std::int64_t>(period);
    if (channelCount == 2) {
        FlangeBlock<2>(*this, channels, frameCount, wrapAt);
    } else {
        FlangeBlock<1>(*this, channels, frameCount, wrapAt);
    }
}

float CVandrelEngine::ProcessWahWah_FloatSample(float* sample, unsigned int channel)
{
    const double x = static_cast<double>(*sample);
    const std::int64_t last = lWahTableLen - 1;
    if (lWahValidFirst > 0 || lWahValidLast < last) {
        PrepareWahEntries(1);
    }
    double a1;
    double a2;
    InterpolateSweep(pdWahA1.mData, pdWahA2.mData, last, dWahPos, a1, a2);
    AdvanceSweep(dWahPos, dWahStep, last);
    const double a = AllPass(x, a1, a2, adWahY1[channel], adWahY2[channel]);
    return lEffect == kEffect_Phaser ? MixWah<true>(x, a, dWet, dDry)
                                     : MixWah<false>(x, a, dWet, dDry);
}

void CVandrelEngine::ProcessWahWah_Block(float** channels, unsigned int channelCount,
                                         unsigned int frameCount)
{
    // Every channel replays the same sweep positions; the last channel's
    // end state carries into the next call.
    PrepareWahEntries(frameCount);
    const double startPos = dWahPos;
    const double startStep = dWahStep;

    // Channels whose buffers overlap must run one after the other, as each
    // may read what an earlier one wrote.
    if (BuffersOverlap(channels, channelCount, frameCount)) {
        for (unsigned int c = 0; c < channelCount; ++c) {
            dWahPos = startPos;
            dWahStep = startStep;
            float* const samples = channels[c];
            for (unsigned int f = 0; f < frameCount; ++f) {
                samples[f] = ProcessWahWah_FloatSample(&samples[f], c);
            }
        }
        return;
    }

    // Separate buffers: channels run in pairs through one pass each, with the
    // engine's fields held in locals for the pass.
    const bool phaser = lEffect == kEffect_Phaser;
    const bool byInterval = std::fabs(startStep) < kFrameWalkStep;
    auto* const filter =
        phaser ? (byInterval ? FilterChannels<true, true> : FilterChannels<true, false>)
               : (byInterval ? FilterChannels<false, true> : FilterChannels<false, false>);
    double pos = startPos;
    double step = startStep;
    filter(channels, channelCount, frameCount, adWahY1, adWahY2, pdWahA1.mData, pdWahA2.mData,
           lWahTableLen - 1, dWet, dDry, startPos, startStep, pos, step);
    dWahPos = pos;
    dWahStep = step;
}

std::int32_t CVandrelEngine::TransformFloat(TRANSFORM_STATE, float** channels,
                                            unsigned int channelCount, unsigned int& frameCount,
                                            bool bSkip)
{
    const bool runnable = !bSkip && bValid && HasStreamState() &&
                          channelCount <= static_cast<unsigned int>(kMaxChannels) &&
                          (channels != nullptr || channelCount == 0);

    if (runnable && (lEffect == kEffect_Phaser || lEffect == kEffect_WahWah)) {
        if (channelCount == 0) {
            return kStatusOK;
        }
        ProcessWahWah_Block(channels, channelCount, frameCount);
        return kStatusOK;
    }

    // The delay line holds nChannels interleaved channels; more cannot be
    // flanged.
    if (runnable && lEffect == kEffect_Flange &&
        channelCount <= static_cast<unsigned int>(nChannels)) {
        ProcessFlange_Block(channels, channelCount, frameCount);
        return kStatusOK;
    }

    frameCount = 0;
    return kStatusNoFrames;
}
