// Cost per sample of the effects, stereo at 44100 Hz, in three groups:
//
//   static/EFFECT/FRAMES        the engine as the unit drives it, one cook and
//                               one transform per render, parameters fixed;
//   sweep/phaser/RATE/1024      the static phaser at other modulation rates,
//                               whose sweeps cross table entries more or less
//                               often (the others run at 1 Hz);
//   knob/EFFECT/KNOB/FRAMES     the same with one parameter changed before
//                               every render (a host moving a knob);
//   unit/EFFECT/CASE/512        the unit through the host API, 512-frame
//                               renders, fixed or with a ramp scheduled over
//                               every render (the unit's sliced path, which
//                               cooks every 32 frames while a ramp runs).
//
// After the runs a summary prints each case's nanoseconds per sample (the
// fastest repetition) and its ratio to the static case of the same effect
// and render size in the same run. Goals: flanger at most 3.0 ns per sample
// and phaser and wah-wah at most 2.5 at 1024 frames; a changing knob at most
// 6 times the static cost at 64 frames and 2 times at 512; a ramp at most 2
// times the fixed unit.
#include "Vandrel.h"
#include "VandrelEngine.h"

#include <AudioUnit/AudioUnit.h>
#include <CoreFoundation/CoreFoundation.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr unsigned int kChannels = 2;
constexpr int kSampleRate = 44100;

const char* const kEffectNames[] = {"flanger", "phaser", "wah-wah"};

std::vector<std::vector<float>> Noise(unsigned int frames)
{
    std::mt19937 gen(1);
    std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
    std::vector<std::vector<float>> buffers(kChannels, std::vector<float>(frames));
    for (auto& channel : buffers) {
        for (float& s : channel) {
            s = dist(gen);
        }
    }
    return buffers;
}

// Seconds per sample (one frame of one channel), shown with an SI prefix.
void CountSamples(benchmark::State& state, unsigned int frames)
{
    state.counters["time_per_sample"] = benchmark::Counter(
        static_cast<double>(frames * kChannels),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// The knobs a host may move, and the value each takes at render k: a walk
// through the parameter's range that changes at every render. The rate stays
// below 11 Hz, where the sweep tables keep their length at 44.1 kHz.
enum class Knob
{
    None,
    Center,
    Rate,
    Depth,
    Resonance
};

const char* KnobName(Knob knob)
{
    switch (knob) {
    case Knob::Center:
        return "centre";
    case Knob::Rate:
        return "rate";
    case Knob::Depth:
        return "depth";
    case Knob::Resonance:
        return "resonance";
    case Knob::None:
        break;
    }
    return "none";
}

void TurnKnob(Knob knob, std::int64_t k, _transform_props& props)
{
    switch (knob) {
    case Knob::Center:
        props.lCenterFreq = 300 + (k * 7) % 2700;
        break;
    case Knob::Rate:
        props.lModRate = 500 + (k * 13) % 10000;
        break;
    case Knob::Depth:
        props.lModDepth = 1 + k % 100;
        break;
    case Knob::Resonance:
        props.lResonance = 1 + k % 100;
        break;
    case Knob::None:
        break;
    }
}

void RunEngine(benchmark::State& state, std::int64_t effect, Knob knob, unsigned int frames,
               std::int64_t modRate = 1000)
{
    _transform_props props{};
    props.lDryOut = -60;
    props.lWetOut = 0;
    props.lEffect = effect;
    props.lModRate = modRate;
    props.lModDepth = 50;
    props.lCenterFreq = 1000;
    props.lResonance = 50;

    CVandrelEngine engine;
    engine.TransformBegin(kChannels, kSampleRate, props);
    std::vector<std::vector<float>> buffers = Noise(frames);
    float* pointers[kChannels] = {buffers[0].data(), buffers[1].data()};

    std::int64_t k = 0;
    for (auto _ : state) {
        TurnKnob(knob, k++, props);
        engine.TransformCookProperties(props, TRANSFORM_CONTINUE);
        unsigned int count = frames;
        engine.TransformFloat(TRANSFORM_CONTINUE, pointers, kChannels, count, false);
        benchmark::DoNotOptimize(buffers[0][0]);
        benchmark::ClobberMemory();
    }
    CountSamples(state, frames);
}

constexpr OSType FourCC(const char (&code)[5])
{
    return (static_cast<OSType>(static_cast<unsigned char>(code[0])) << 24) |
           (static_cast<OSType>(static_cast<unsigned char>(code[1])) << 16) |
           (static_cast<OSType>(static_cast<unsigned char>(code[2])) << 8) |
           static_cast<OSType>(static_cast<unsigned char>(code[3]));
}

// The unit linked into this program, opened through the host API.
class UnitHost
{
public:
    UnitHost(std::int64_t effect, unsigned int frames) : mInput(Noise(frames))
    {
        static AudioComponent component = [] {
            const AudioComponentDescription desc{FourCC("aufx"), FourCC("Vndr"), FourCC("Vdrl"), 0,
                                                 0};
            return AudioComponentRegister(&desc, CFSTR("Vandrel: Vandrel (bench)"), 0x00010000,
                                          VandrelFactory);
        }();
        AudioComponentInstanceNew(component, &mUnit);
        AudioStreamBasicDescription format{};
        FillOutASBDForLPCM(format, kSampleRate, kChannels, 32, 32, true, false, true);
        for (AudioUnitScope scope : {kAudioUnitScope_Input, kAudioUnitScope_Output}) {
            AudioUnitSetProperty(mUnit, kAudioUnitProperty_StreamFormat, scope, 0, &format,
                                 sizeof(format));
        }
        const AURenderCallbackStruct callback{&UnitHost::SupplyInput, this};
        AudioUnitSetProperty(mUnit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0,
                             &callback, sizeof(callback));
        const float values[] = {-6.0f,   0.0f, static_cast<float>(effect), 1.0f, 50.0f,
                                1000.0f, 50.0f};
        for (AudioUnitParameterID id = 0; id < kNumParams; ++id) {
            AudioUnitSetParameter(mUnit, id, kAudioUnitScope_Global, 0, values[id], 0);
        }
        AudioUnitInitialize(mUnit);
        mOutput.assign(kChannels, std::vector<float>(frames));
        mListStorage.assign(offsetof(AudioBufferList, mBuffers) + sizeof(AudioBuffer) * kChannels,
                            0);
    }

    ~UnitHost()
    {
        AudioUnitUninitialize(mUnit);
        AudioComponentInstanceDispose(mUnit);
    }
    UnitHost(const UnitHost&) = delete;
    UnitHost& operator=(const UnitHost&) = delete;

    // One render; with a ramp, the parameter moves by `delta` over it from
    // `start`, as a host's automation lane does.
    void Render(unsigned int frames, AudioUnitParameterID ramped, float start, float delta)
    {
        if (ramped < kNumParams) {
            AudioUnitParameterEvent event{};
            event.scope = kAudioUnitScope_Global;
            event.parameter = ramped;
            event.eventType = kParameterEvent_Ramped;
            event.eventValues.ramp.startBufferOffset = 0;
            event.eventValues.ramp.durationInFrames = frames;
            event.eventValues.ramp.startValue = start;
            event.eventValues.ramp.endValue = start + delta;
            AudioUnitScheduleParameters(mUnit, &event, 1);
        }
        auto* list = reinterpret_cast<AudioBufferList*>(mListStorage.data());
        list->mNumberBuffers = kChannels;
        for (unsigned int c = 0; c < kChannels; ++c) {
            list->mBuffers[c] = AudioBuffer{1, frames * 4u, mOutput[c].data()};
        }
        AudioTimeStamp stamp{};
        stamp.mSampleTime = mSampleTime;
        stamp.mFlags = kAudioTimeStampSampleTimeValid;
        mSampleTime += frames;
        AudioUnitRenderActionFlags flags = 0;
        AudioUnitRender(mUnit, &flags, &stamp, 0, frames, list);
    }

    float FirstSample() const { return mOutput[0][0]; }

private:
    static OSStatus SupplyInput(void* refCon, AudioUnitRenderActionFlags*, const AudioTimeStamp*,
                                UInt32, UInt32 frames, AudioBufferList* data)
    {
        auto* host = static_cast<UnitHost*>(refCon);
        for (UInt32 c = 0; c < data->mNumberBuffers && c < kChannels; ++c) {
            if (data->mBuffers[c].mData == nullptr) {
                data->mBuffers[c].mData = host->mInput[c].data();
            } else {
                std::copy_n(host->mInput[c].data(), frames,
                            static_cast<float*>(data->mBuffers[c].mData));
            }
            data->mBuffers[c].mDataByteSize = frames * 4u;
        }
        return noErr;
    }

    AudioUnit mUnit = nullptr;
    std::vector<std::vector<float>> mInput;
    std::vector<std::vector<float>> mOutput;
    std::vector<unsigned char> mListStorage;
    Float64 mSampleTime = 0;
};

// A ramp that sweeps the parameter from `low` to `high` and back, `step` per
// render: automation over a whole piece.
struct Ramp
{
    AudioUnitParameterID parameter;
    const char* name;
    float low;
    float high;
    float step;
};

void RunUnit(benchmark::State& state, std::int64_t effect, const Ramp* ramp, unsigned int frames)
{
    UnitHost host(effect, frames);
    float value = ramp != nullptr ? ramp->low : 0.0f;
    float delta = ramp != nullptr ? ramp->step : 0.0f;
    for (auto _ : state) {
        if (ramp != nullptr) {
            if (value + delta > ramp->high || value + delta < ramp->low) {
                delta = -delta;
            }
            host.Render(frames, ramp->parameter, value, delta);
            value += delta;
        } else {
            host.Render(frames, kNumParams, 0.0f, 0.0f);
        }
        benchmark::DoNotOptimize(host.FirstSample());
    }
    CountSamples(state, frames);
}

// Keeps the fastest repetition of every case for the summary.
class SummaryReporter : public benchmark::ConsoleReporter
{
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.error_occurred) {
                continue;
            }
            const auto counter = run.counters.find("time_per_sample");
            if (counter == run.counters.end()) {
                continue;
            }
            const double ns = counter->second.value * 1e9;
            const std::string& name = run.run_name.function_name;
            auto [it, fresh] = mBest.emplace(name, ns);
            if (!fresh) {
                it->second = std::min(it->second, ns);
            }
            if (fresh) {
                mOrder.push_back(name);
            }
        }
    }

    // Each case with its ratio to the static case of the same effect and size.
    void PrintSummary() const
    {
        std::printf("\n%-34s %12s %10s\n", "case (fastest repetition)", "ns/sample", "x static");
        for (const std::string& name : mOrder) {
            const std::string base = StaticCaseOf(name);
            const auto found = mBest.find(base);
            const double ns = mBest.at(name);
            if (found == mBest.end() || base == name) {
                std::printf("%-34s %12.3f %10s\n", name.c_str(), ns, "");
            } else {
                std::printf("%-34s %12.3f %10.2f\n", name.c_str(), ns, ns / found->second);
            }
        }
    }

private:
    // "knob/phaser/centre/64" -> "static/phaser/64", "sweep/phaser/500mHz/1024"
    // -> "static/phaser/1024", "unit/phaser/ramp-centre/512" -> "unit/phaser/static/512".
    static std::string StaticCaseOf(const std::string& name)
    {
        std::vector<std::string> parts;
        std::size_t start = 0;
        for (std::size_t slash = name.find('/'); slash != std::string::npos;
             slash = name.find('/', start)) {
            parts.push_back(name.substr(start, slash - start));
            start = slash + 1;
        }
        parts.push_back(name.substr(start));
        if (parts.size() == 4 && (parts[0] == "knob" || parts[0] == "sweep")) {
            return "static/" + parts[1] + "/" + parts[3];
        }
        if (parts.size() == 4 && parts[0] == "unit") {
            return "unit/" + parts[1] + "/static/" + parts[3];
        }
        return name;
    }

    std::map<std::string, double> mBest;
    std::vector<std::string> mOrder;
};

void RegisterAll()
{
    for (std::int64_t effect : {kEffect_Flange, kEffect_Phaser, kEffect_WahWah}) {
        const std::string name = kEffectNames[effect];
        for (unsigned int frames : {64u, 512u, 1024u}) {
            benchmark::RegisterBenchmark(
                ("static/" + name + "/" + std::to_string(frames)).c_str(),
                [=](benchmark::State& state) { RunEngine(state, effect, Knob::None, frames); });
        }
    }
    // The sweep's speed decides how the phaser walks its tables: slow sweeps
    // stay many frames within one table interval, fast ones cross one every
    // frame or two.
    for (std::int64_t milliHz : {500, 2000, 4500, 10000}) {
        benchmark::RegisterBenchmark(
            ("sweep/phaser/" + std::to_string(milliHz) + "mHz/1024").c_str(),
            [=](benchmark::State& state) {
                RunEngine(state, kEffect_Phaser, Knob::None, 1024, milliHz);
            });
    }
    for (std::int64_t effect : {kEffect_Flange, kEffect_Phaser, kEffect_WahWah}) {
        const std::string name = kEffectNames[effect];
        std::vector<Knob> knobs = {Knob::Rate, Knob::Depth};
        if (effect != kEffect_Flange) {
            knobs = {Knob::Center, Knob::Rate, Knob::Depth, Knob::Resonance};
        }
        for (Knob knob : knobs) {
            for (unsigned int frames : {64u, 512u}) {
                benchmark::RegisterBenchmark(
                    ("knob/" + name + "/" + KnobName(knob) + "/" + std::to_string(frames)).c_str(),
                    [=](benchmark::State& state) { RunEngine(state, effect, knob, frames); });
            }
        }
    }
    static const Ramp kCenterRamp{kParam_CenterFreq, "centre", 300.0f, 3000.0f, 5.0f};
    static const Ramp kRateRamp{kParam_ModulationRate, "rate", 0.2f, 6.0f, 0.01f};
    for (std::int64_t effect : {kEffect_Flange, kEffect_Phaser, kEffect_WahWah}) {
        const std::string name = kEffectNames[effect];
        benchmark::RegisterBenchmark(
            ("unit/" + name + "/static/512").c_str(),
            [=](benchmark::State& state) { RunUnit(state, effect, nullptr, 512); });
        for (const Ramp* ramp : {&kRateRamp, &kCenterRamp}) {
            if (effect == kEffect_Flange && ramp == &kCenterRamp) {
                continue;
            }
            benchmark::RegisterBenchmark(
                ("unit/" + name + "/ramp-" + ramp->name + "/512").c_str(),
                [=](benchmark::State& state) { RunUnit(state, effect, ramp, 512); });
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    RegisterAll();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    SummaryReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintSummary();
    benchmark::Shutdown();
    return 0;
}
