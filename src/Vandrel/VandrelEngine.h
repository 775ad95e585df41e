/*
 * Modulation engine of the Vandrel effect: flanger, phaser and wah-wah, with
 * a dry/wet mix, computed in double precision on 32-bit float buffers.
 *
 * Lifecycle. The unit holds one engine and one property record by value.
 * Before every processed render it copies its parameters into the record;
 * the first render after the unit's Initialize or Reset calls TransformBegin
 * (which allocates and zeroes the effect state), every later one
 * TransformCookProperties(TRANSFORM_CONTINUE); then TransformFloat processes
 * all channels in place. The unit's Reset calls TransformEnd, which releases
 * the state; the next render begins again.
 *
 * Why the odd shapes: the flanger keeps one delay line, with the channels
 * interleaved, shared by all channels, and walks frame by frame; the phaser
 * and wah-wah give every channel the same sweep positions (computed once per
 * frame for a pair of channels, whose two filters then run interleaved, each
 * with its own operations in their own order). The effect parameters change
 * only at a cook, in one step; no smoothing. Delay line, oscillator index,
 * sweep position, sweep direction and filter memories persist across renders
 * and across effect switches, and only a TransformBegin rebuilds them.
 *
 * The sweep tables of the phaser and wah-wah are filled lazily: a cook that
 * changes one of their inputs (table length, depth, centre, resonance, sample
 * rate) only marks every entry stale, and each render first computes the
 * stale entries that its sweep can reach. An entry, once computed, holds bit
 * for bit the value of a full rebuild by running sum; reading an entry
 * through pdWahA1 or pdWahA2 computes it too. So a moving knob costs a few
 * entries per render instead of a rebuild of 2000.
 *
 * Thread tags: [render] runs on the audio thread (no allocation, no lock, no
 * system call, no exception escaping); [control] runs on host control threads.
 * Calls on one engine must not overlap.
 */
#ifndef VANDRELENGINE_H
#define VANDRELENGINE_H

#include "SweepFrequencies.h"

#include <cstddef>
#include <cstdint>

class CSineOscillator;

// Effect numbers carried in _transform_props::lEffect.
constexpr std::int64_t kEffect_Flange = 0;
constexpr std::int64_t kEffect_Phaser = 1;
constexpr std::int64_t kEffect_WahWah = 2;

// The engine's property record, filled by the unit from its parameters; the
// engine reads the seven value fields and only clears uChanged.
struct _transform_props
{
    std::int64_t lDryOut;     // dry level, tenths of a dB (-800 = -80 dB = silence)
    std::int64_t lWetOut;     // wet level, tenths of a dB
    std::int64_t lEffect;     // kEffect_Flange, kEffect_Phaser or kEffect_WahWah
    std::int64_t lModRate;    // modulation rate, millihertz
    std::int64_t lModDepth;   // modulation depth, percent
    std::int64_t lCenterFreq; // sweep centre of phaser and wah-wah, Hz
    std::int64_t lResonance;  // resonance, 1 to 100
    std::uint32_t uChanged;   // change mask: 2 levels, 1 other fields; TransformBegin adds 2 | 4
};

static_assert(offsetof(_transform_props, lDryOut) == 0, "record layout");
static_assert(offsetof(_transform_props, lWetOut) == 8, "record layout");
static_assert(offsetof(_transform_props, lEffect) == 16, "record layout");
static_assert(offsetof(_transform_props, lModRate) == 24, "record layout");
static_assert(offsetof(_transform_props, lModDepth) == 32, "record layout");
static_assert(offsetof(_transform_props, lCenterFreq) == 40, "record layout");
static_assert(offsetof(_transform_props, lResonance) == 48, "record layout");
static_assert(offsetof(_transform_props, uChanged) == 56, "record layout");
static_assert(sizeof(_transform_props) == 64, "record layout");

// Bits of _transform_props::uChanged.
constexpr std::uint32_t kPropsChanged_Effect = 1; // effect, rate, depth, centre or resonance
constexpr std::uint32_t kPropsChanged_Levels = 2; // dry or wet level
constexpr std::uint32_t kPropsChanged_Begin = 4;  // set together with 2 by TransformBegin

enum TRANSFORM_STATE
{
    TRANSFORM_START = 0,   // first cook of a stream: the effect state is rebuilt
    TRANSFORM_CONTINUE = 1 // streaming: all effect state persists
};

class CVandrelEngine;

// One of the engine's two sweep tables, as diagnostics and tests see it: an
// entry read through it is computed first if stale, so every read gives the
// entry's exact value. Reads are calls on the engine: they must not overlap
// a render. Converts to a pointer to the storage (null when the stream state
// is released), with every valid entry computed. No allocation. [render]
class CSweepTableView
{
public:
    double operator[](std::int64_t j) const;
    operator const double*() const;

private:
    friend class CVandrelEngine;
    CSweepTableView(CVandrelEngine& owner) : mOwner(owner), mData(nullptr) {}
    CVandrelEngine& mOwner;
    double* mData; // kWahTableSize entries, owned by the engine
};

class CVandrelEngine
{
public:
    static constexpr int kMaxChannels = 32;
    static constexpr int kDelayFrames = 6500;  // delay line length in frames
    static constexpr int kWahTableSize = 2000; // entries of each sweep table
    static constexpr std::int32_t kLfoReseedInterval = 2048;

    // Statuses. A negative status from the cook leaves bValid false; a
    // refused TransformBegin changes nothing.
    static constexpr std::int32_t kStatusOK = 0;
    static constexpr std::int32_t kStatusNoFrames = 1;
    static constexpr std::int32_t kStatusUnknownEffect = static_cast<std::int32_t>(0x80000008u);
    static constexpr std::int32_t kStatusBadChannelCount = -50;
    static constexpr std::int32_t kStatusNoMemory = -108;
    static constexpr std::int32_t kStatusNotBegun = -1;

    // No heap blocks, mono at 22050 Hz, bValid false. [control]
    CVandrelEngine();
    // Releases whatever is still allocated. [control]
    ~CVandrelEngine();
    CVandrelEngine(const CVandrelEngine&) = delete;
    CVandrelEngine& operator=(const CVandrelEngine&) = delete;

    // Starts a stream of `channels` (0 to kMaxChannels) at `sampleRate` whole
    // Hz: rebuilds all effect state and cooks `props`. Returns the cook's
    // status; kStatusBadChannelCount for a channel count outside 0...32
    // (nothing changed, nothing allocated). Allocates; the unit calls it on
    // the render thread at the first render after its Initialize or Reset,
    // which is the only time the engine allocates. [render, allocating]
    std::int32_t TransformBegin(int channels, int sampleRate, _transform_props& props);

    // Derives gains, sizes, oscillator step and sweep tables from `props` and
    // clears props.uChanged. Returns kStatusOK or kStatusUnknownEffect;
    // kStatusNoMemory when TRANSFORM_START could not allocate the state;
    // kStatusNotBegun for TRANSFORM_CONTINUE without stream state (no setup
    // runs then). TRANSFORM_START rebuilds and allocates (see TransformBegin);
    // TRANSFORM_CONTINUE allocates nothing. [render]
    std::int32_t TransformCookProperties(_transform_props& props, TRANSFORM_STATE state);

    // Processes `frameCount` frames of `channelCount` non-interleaved buffers
    // in place. Returns kStatusOK (also for zero frames or channels), or
    // kStatusNoFrames with frameCount set to 0 and the buffers untouched when
    // bSkip is set, the last cook failed, no stream has begun, channelCount
    // exceeds kMaxChannels, or (flanger) exceeds the stream's channel count.
    // `state` is not used. [render]
    std::int32_t TransformFloat(TRANSFORM_STATE state, float** channels, unsigned int channelCount,
                                unsigned int& frameCount, bool bSkip);

    // Releases the heap blocks; everything else keeps its value. Harmless
    // when nothing is allocated. Returns kStatusOK. [control]
    std::int32_t TransformEnd();

    // Rebuilds the effect state for nChannels and nSampleRate. Returns
    // kStatusOK, or kStatusNoMemory with every block released. Called by the
    // cook under TRANSFORM_START. Allocates. [render, allocating]
    std::int32_t InitializeEffects();

    // Flanger part of the cook: channel gains, sweep depth, oscillator period
    // and step; re-seeds the oscillator at its current index. Needs the
    // stream state. Returns kStatusOK. [render]
    std::int32_t SetupFlange(const _transform_props& props, TRANSFORM_STATE state);

    // Phaser and wah-wah part of the cook: table length, sweep step and the
    // coefficient tables. Needs the stream state. Returns kStatusOK. [render]
    std::int32_t SetupWahwah(const _transform_props& props, TRANSFORM_STATE state);

    // Processes frame `frame` of each of `channelCount` buffers (at most
    // nChannels) through the flanger and advances it one frame. Returns 0. [render]
    std::int32_t ProcessFlange_FloatCell(float** channels, unsigned int channelCount,
                                         unsigned int frame);

    // Output of the phaser or wah-wah (by lEffect) for input *sample of
    // `channel` (below kMaxChannels); advances the sweep one sample. [render]
    float ProcessWahWah_FloatSample(float* sample, unsigned int channel);

    // Working state, in this order. Public so that diagnostics and tests can
    // read it; only the operations above write it.
    bool bValid;                      // the last cook returned a non-negative status
    std::int32_t nChannels;           // channels of the stream
    std::int32_t nSampleRate;         // sample rate of the stream, whole Hz
    std::int64_t lEffect;             // effect of the last cook
    double dWet;                      // linear wet gain (flanger: times 0.9)
    double dDry;                      // linear dry gain
    std::int64_t lWritePos;           // delay-line frame written now, 0...6499, moving down
    double adFlangeMem[kMaxChannels]; // last delayed value per channel
    std::int64_t lLfoIndex;           // flanger oscillator index within its period
    double dReadCenter;               // delay-line frame read at the sweep's centre
    double dLfoPeriod;                // oscillator period in samples, a whole number
    double dLfoOmega;                 // oscillator step, radians per sample
    double dSweepDepth;               // read-position swing in frames, a whole number
    double* pdDelay;                  // kDelayFrames frames of nChannels interleaved samples
    double dDelayGain;                // gain on the interpolated delayed value
    double dMemGain;                  // gain on the previous delayed value
    double dFeedback;                 // delayed value fed back into the line
    double adChanGain[kMaxChannels];  // multi-channel flanger: channel factor times wet ratio
    double dSamplesPerMs;             // whole samples in one millisecond
    std::int64_t lWahTableLen;        // valid entries in the sweep tables, 1...2000
    double dWahPos;                   // sweep position in table entries
    double dWahStep;                  // signed sweep increment per sample
    CSweepTableView pdWahA1;          // sweep table of the first feedback coefficient
    CSweepTableView pdWahA2;          // sweep table of the second feedback coefficient
    double adWahY1[kMaxChannels];     // per channel: last intermediate filter value
    double adWahY2[kMaxChannels];     // per channel: the one before
    CSineOscillator* pOsc;            // flanger oscillator, owned

    // Inputs of the sweep tables as last set up; bWahTablesBuilt is false
    // until a setup and after every reallocation of the tables.
    bool bWahTablesBuilt;
    std::int64_t lWahBuiltLength;
    std::int64_t lWahBuiltDepth;
    std::int64_t lWahBuiltCenter;
    std::int64_t lWahBuiltResonance;
    std::int32_t nWahBuiltSampleRate;

private:
    friend class CSweepTableView;

    // Computes the stale entries first...last (within 0...lWahTableLen - 1)
    // of both tables and the ones between them and the computed entries, so
    // that the computed entries stay one interval. [render]
    void ComputeWahEntries(std::int64_t first, std::int64_t last);
    // Computes the stale entries that a render of `frameCount` frames from
    // the current sweep state can read. [render]
    void PrepareWahEntries(unsigned int frameCount);
    // Computes every entry of both tables by the running sum itself, for a
    // sum that cannot be split into runs. [render]
    void SumWahEntries();

    // The flanger over `frameCount` frames, the same operations as
    // ProcessFlange_FloatCell frame after frame. [render]
    void ProcessFlange_Block(float** channels, unsigned int channelCount, unsigned int frameCount);

    // Processes `frameCount` frames of `channelCount` (1 to kMaxChannels)
    // buffers through the phaser or wah-wah, each channel from the same sweep
    // state, with the results of ProcessWahWah_FloatSample run on each
    // sample, channel after channel; separate buffers run in pairs. [render]
    void ProcessWahWah_Block(float** channels, unsigned int channelCount, unsigned int frameCount);
    void ReleaseBlocks();
    bool HasStreamState() const;

    // The level fields and their ratios as last converted. [render]
    bool bLevelsConverted;
    std::int64_t lConvertedWetOut;
    std::int64_t lConvertedDryOut;
    double dWetRatio;
    double dDryRatio;

    // Sweep tables: the frequency and pole radius inputs of every entry, and
    // the entries computed so far (none when lWahValidFirst > lWahValidLast).
    CSweepFrequencies mWahFrequencies;
    double dWahQuality;
    double dWahLo;  // frequency of the first entry
    double dWahInc; // increment of the running sum
    std::int64_t lWahValidFirst;
    std::int64_t lWahValidLast;
    // The table length and the step's size last computed, with their inputs
    // (a rate of 0 is never effective, so the first cook computes them).
    std::int64_t lWahStepRate;
    std::int32_t nWahStepSampleRate;
    std::int64_t lWahStepLength;
    double dWahStepSize;
};

#endif
