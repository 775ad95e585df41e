// What the LV2 wrapper adds to the unit's own render: stereo, 512-frame
// blocks at 44100 Hz, one preset of each effect, timed as the unit hosted
// directly (PluginHost::render, separate input and output buffers) and as the
// stereo plug-in of the bundle this build assembled, loaded with dlopen and
// run through its descriptor as an LV2 host runs it. The wrapper should add
// less than 10% (bench/compare-lv2.sh prints the ratios).
// Usage: Lv2WrapperBench [benchmark options]
#include "Lv2Ports.h"
#include "PluginHost.h"
#include "PluginLocator.h"

#include <benchmark/benchmark.h>
#include <lv2/core/lv2.h>

#include <dlfcn.h>

#include <cmath>
#include <vector>

namespace {

constexpr unsigned kFrames = 512;
constexpr double kRate = 44100.0;

PluginHost openUnit()
{
    return PluginHost(PluginLocator::find(VANDREL_LV2_BUNDLE_DIR "/Vandrel.component"));
}

std::vector<std::vector<float>> testSignal()
{
    std::vector<std::vector<float>> channels(2, std::vector<float>(kFrames));
    for (unsigned i = 0; i < kFrames; ++i)
        channels[0][i] = channels[1][i] = 0.5f * std::sin(0.031f * static_cast<float>(i));
    return channels;
}

void setCounters(benchmark::State& state)
{
    state.counters["time_per_sample"] = benchmark::Counter(
        2.0 * kFrames, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_UnitRender(benchmark::State& state)
{
    PluginHost unit = openUnit();
    unit.selectPreset(static_cast<SInt32>(state.range(0)));
    unit.prepare(kRate, 2, kFrames);
    auto input = testSignal(), output = testSignal();
    float* in[] = {input[0].data(), input[1].data()};
    float* out[] = {output[0].data(), output[1].data()};
    for (auto _ : state) {
        unit.render(in, out, kFrames);
        benchmark::DoNotOptimize(output[0][0]);
    }
    setCounters(state);
}

void BM_Lv2Run(benchmark::State& state)
{
    // The preset's values, in port order, from the unit itself.
    PluginHost unit = openUnit();
    unit.selectPreset(static_cast<SInt32>(state.range(0)));
    std::vector<float> controls;
    for (const ParameterDescription& parameter : unit.parameters())
        controls.push_back(unit.parameter(parameter.id));
    const Lv2Ports ports(static_cast<unsigned>(controls.size()), 2);
    float enabled = 1.0f, latency = 0.0f;

    void* library = dlopen(VANDREL_LV2_BUNDLE_DIR "/vandrel_lv2.so", RTLD_NOW | RTLD_LOCAL);
    const auto entry =
        library ? reinterpret_cast<LV2_Descriptor_Function>(dlsym(library, "lv2_descriptor"))
                : nullptr;
    const LV2_Descriptor* descriptor = entry ? entry(1) : nullptr;
    const LV2_Feature* const features[] = {nullptr};
    LV2_Handle plugin =
        descriptor ? descriptor->instantiate(descriptor, kRate, VANDREL_LV2_BUNDLE_DIR, features)
                   : nullptr;
    if (plugin == nullptr) {
        state.SkipWithError("the LV2 bundle's stereo plug-in cannot be loaded");
        return;
    }
    auto input = testSignal(), output = testSignal();
    for (uint32_t i = 0; i < controls.size(); ++i)
        descriptor->connect_port(plugin, i, &controls[i]);
    descriptor->connect_port(plugin, ports.enabled(), &enabled);
    descriptor->connect_port(plugin, ports.latency(), &latency);
    for (unsigned c = 0; c < 2; ++c) {
        descriptor->connect_port(plugin, ports.audioIn(c), input[c].data());
        descriptor->connect_port(plugin, ports.audioOut(c), output[c].data());
    }
    descriptor->activate(plugin);
    for (auto _ : state) {
        descriptor->run(plugin, kFrames);
        benchmark::DoNotOptimize(output[0][0]);
    }
    descriptor->deactivate(plugin);
    descriptor->cleanup(plugin);
    setCounters(state);
}

// Factory presets: 1 "Flange - 1 Hz", 6 "Phaser 2", 8 "Wah-Wah 1".
BENCHMARK(BM_UnitRender)->Arg(1)->Arg(6)->Arg(8);
BENCHMARK(BM_Lv2Run)->Arg(1)->Arg(6)->Arg(8);

} // namespace

BENCHMARK_MAIN();
