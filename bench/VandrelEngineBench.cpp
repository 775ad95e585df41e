// Cost per sample of the engine, stereo at 44100 Hz, as the unit drives it:
// one cook and one transform per render, for render sizes of 64, 256 and
// 1024 frames. The phaser and wah-wah at 64-frame renders should cost at most
// 1.5 times per sample what they cost at 1024-frame renders.
#include "VandrelEngine.h"

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

namespace {

void RunEffect(benchmark::State& state, std::int64_t effect)
{
    const auto frames = static_cast<unsigned int>(state.range(0));
    constexpr unsigned int kChannels = 2;

    _transform_props props{};
    props.lDryOut = -60;
    props.lWetOut = 0;
    props.lEffect = effect;
    props.lModRate = 1000;
    props.lModDepth = 50;
    props.lCenterFreq = 1000;
    props.lResonance = 50;

    CVandrelEngine engine;
    engine.TransformBegin(kChannels, 44100, props);

    std::mt19937 gen(1);
    std::uniform_real_distribution<float> dist(-1.0f, 1.0f);
    std::vector<std::vector<float>> buffers(kChannels, std::vector<float>(frames));
    for (auto& channel : buffers) {
        for (float& s : channel) {
            s = dist(gen);
        }
    }
    float* pointers[kChannels] = {buffers[0].data(), buffers[1].data()};

    for (auto _ : state) {
        engine.TransformCookProperties(props, TRANSFORM_CONTINUE);
        unsigned int count = frames;
        engine.TransformFloat(TRANSFORM_CONTINUE, pointers, kChannels, count, false);
        benchmark::DoNotOptimize(buffers[0][0]);
        benchmark::ClobberMemory();
    }
    // Seconds per sample (one sample = one frame of one channel), shown with
    // an SI prefix: "n" means nanoseconds.
    state.counters["time_per_sample"] = benchmark::Counter(
        static_cast<double>(frames * kChannels),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_Flanger(benchmark::State& state)
{
    RunEffect(state, kEffect_Flange);
}

void BM_Phaser(benchmark::State& state)
{
    RunEffect(state, kEffect_Phaser);
}

void BM_WahWah(benchmark::State& state)
{
    RunEffect(state, kEffect_WahWah);
}

BENCHMARK(BM_Flanger)->Arg(64)->Arg(256)->Arg(1024);
BENCHMARK(BM_Phaser)->Arg(64)->Arg(256)->Arg(1024);
BENCHMARK(BM_WahWah)->Arg(64)->Arg(256)->Arg(1024);

} // namespace

BENCHMARK_MAIN();
