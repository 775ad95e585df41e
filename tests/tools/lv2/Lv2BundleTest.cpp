// The LV2 bundle this build assembled, loaded as hosts load it: its metadata
// against the unit's own answers, its output against the vandrel program's at
// the same block size, and how it follows control changes, bypass and
// restarts. (lv2apply-test.sh runs lv2apply on files.)
#include "AudioFileReader.h"
#include "AudioFileWriter.h"
#include "DemoSignal.h"
#include "Lv2Ports.h"
#include "Lv2TestHost.h"
#include "PluginHost.h"
#include "PluginLocator.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace {

const std::string kFiles = "/tmp/vandrel-lv2-test-" + std::to_string(getpid());

// The first `frames` frames of the demonstration sound.
Channels demo(unsigned channels, size_t frames)
{
    DemoSignal signal;
    Channels audio(DemoSignal::kChannels, std::vector<float>(frames));
    float* to[] = {audio[0].data(), audio[1].data()};
    signal.read(to, static_cast<unsigned>(frames));
    audio.resize(channels);
    return audio;
}

PluginHost openUnit()
{
    return PluginHost(PluginLocator::find(VANDREL_LV2_BUNDLE_DIR "/Vandrel.component"));
}

TEST(Lv2BundleTest, DescribesBothPlugInsWithTheUnitsParametersAndPresets)
{
    PluginHost unit = openUnit();
    const std::vector<ParameterDescription> parameters = unit.parameters();
    for (const char* uri : {Lv2Ports::kMonoUri, Lv2Ports::kStereoUri}) {
        const LilvPlugin* plugin = Lv2TestHost::plugin(uri);
        const Lv2Ports ports(static_cast<unsigned>(parameters.size()), Lv2Ports::channelsFor(uri));
        ASSERT_NE(plugin, nullptr);
        ASSERT_EQ(lilv_plugin_get_num_ports(plugin), ports.count());
        std::vector<float> minimum(ports.count()), maximum(ports.count()), fallback(ports.count());
        lilv_plugin_get_port_ranges_float(plugin, minimum.data(), maximum.data(), fallback.data());
        for (uint32_t i = 0; i < parameters.size(); ++i) {
            LilvNode* name = lilv_port_get_name(plugin, lilv_plugin_get_port_by_index(plugin, i));
            EXPECT_EQ(lilv_node_as_string(name), parameters[i].name);
            lilv_node_free(name);
            EXPECT_EQ(minimum[i], parameters[i].minValue) << i;
            EXPECT_EQ(maximum[i], parameters[i].maxValue) << i;
            EXPECT_EQ(fallback[i], parameters[i].defaultValue) << i;
        }
        EXPECT_EQ(lilv_plugin_get_latency_port_index(plugin), ports.latency());
        LilvNode* enabled = lilv_new_uri(Lv2TestHost::world(), LV2_CORE__enabled);
        const LilvPort* bypass = lilv_plugin_get_port_by_designation(plugin, nullptr, enabled);
        EXPECT_EQ(bypass ? lilv_port_get_index(plugin, bypass) : 0, ports.enabled());
        lilv_node_free(enabled);

        // Their values are checked by ear: the render test plays each one.
        const auto presets = Lv2TestHost::presets(plugin);
        EXPECT_EQ(presets.size(), 15u);
        for (const PresetInfo& info : unit.factoryPresets())
            EXPECT_EQ(presets.count(info.name), 1u) << info.name;
    }
}

struct RenderCase
{
    const char* preset;
    unsigned channels;
    size_t block;     // frames per run
    int32_t maxBlock; // the host's bufsz:maxBlockLength
};

class Lv2RenderTest : public ::testing::TestWithParam<RenderCase>
{
};

TEST_P(Lv2RenderTest, SoundsAsTheVandrelProgramAtTheSameBlockSize)
{
    const RenderCase& row = GetParam();
    const char* uri = row.channels == 1 ? Lv2Ports::kMonoUri : Lv2Ports::kStereoUri;
    const Channels input = demo(row.channels, 20000);
    const std::string in = kFiles + "-in.wav";
    AudioFileWriter writer(in, row.channels, Lv2TestHost::kRate);
    const float* from[] = {input[0].data(), input.back().data()};
    ASSERT_TRUE(writer.write(from, 20000));
    writer.commit();
    const size_t slice = std::min<size_t>(row.block, static_cast<size_t>(row.maxBlock));
    std::string command = "LC_ALL=C " VANDREL_PROGRAM " -q " + in + " -p '" + row.preset + "' -b " +
                          std::to_string(slice) + " -o " + kFiles + "-vandrel.wav";
    ASSERT_EQ(std::system(command.c_str()), 0);
    AudioFileReader theirs(kFiles + "-vandrel.wav");
    Channels expected(row.channels, std::vector<float>(20000));
    float* to[] = {expected[0].data(), expected.back().data()};
    ASSERT_EQ(theirs.read(to, 20000), 20000u);
    Lv2TestHost host(uri, row.maxBlock);
    host.applyPreset(row.preset);
    EXPECT_TRUE(host.process(input, row.block) == expected);
    for (const char* file : {"-in.wav", "-vandrel.wav"})
        std::remove((kFiles + file).c_str());
}

const RenderCase kRenderCases[] = {
    {"Default", 2, 64, 4096},         {"Flange - 1 Hz", 2, 64, 4096},
    {"Flange - fast", 2, 64, 4096},   {"Flange - slow 1", 2, 64, 4096},
    {"Flange - slow 2", 2, 64, 4096}, {"Phaser 1", 2, 64, 4096},
    {"Phaser 2", 2, 64, 4096},        {"Phaser 3", 2, 64, 4096},
    {"Wah-Wah 1", 2, 64, 4096},       {"Wah-Wah 2", 2, 64, 4096},
    {"Wah-Wah 3", 2, 64, 4096},       {"Wah-Wah 4", 2, 64, 4096},
    {"Wah-Wah 5", 2, 64, 4096},       {"Warble 1", 2, 64, 4096},
    {"Warble 2", 2, 64, 4096},        {"Flange - 1 Hz", 1, 1, 4096},
    {"Wah-Wah 1", 2, 1, 4096},        {"Phaser 2", 1, 4096, 4096},
    {"Warble 1", 2, 4096, 4096},      {"Phaser 3", 2, 20000, 512},
    {"Flange - slow 2", 1, 20000, 64}};
INSTANTIATE_TEST_SUITE_P(Presets, Lv2RenderTest, ::testing::ValuesIn(kRenderCases));

TEST(Lv2BundleTest, FollowsControlChangesBypassAndRestarts)
{
    const Channels input = demo(2, 6400), silence(2, std::vector<float>(64));
    Lv2TestHost host(Lv2Ports::kStereoUri);
    host.applyPreset("Flange - 1 Hz");
    const Channels before = host.process(input, 64);
    // Out of range and NaN: the range's end and the default reach the unit.
    host.control("modulation_rate") = 3.0f;
    host.control("wet_out") = 1e9f;
    host.control("modulation_depth") = NAN;
    const Channels after = host.process(input, 64);
    EXPECT_EQ(host.control("latency"), 0.0f);

    // The unit hosted directly, the values changed between the same renders,
    // then restarted.
    PluginHost unit = openUnit();
    unit.selectPreset(1);
    unit.prepare(Lv2TestHost::kRate, 2, 4096);
    Channels expected[] = {input, input, input};
    for (Channels& part : expected) {
        if (&part == &expected[2])
            unit.reset();
        for (size_t at = 0; at < part[0].size(); at += 64) {
            float* slice[] = {&part[0][at], &part[1][at]};
            unit.render(slice, slice, 64);
        }
        for (const auto& [id, value] : {std::pair{3u, 3.0f}, {1u, 12.0f}, {4u, 10.0f}})
            unit.setParameter(id, value);
    }
    EXPECT_TRUE(before == expected[0]);
    EXPECT_TRUE(after == expected[1]) << "the change takes effect with the next run";

    host.control("enabled") = 0.0f;
    EXPECT_TRUE(host.process(input, 64) == input) << "bypassed";
    host.control("enabled") = 1.0f;
    host.process(silence, 64);
    EXPECT_TRUE(host.process(input, 64) == expected[2]) << "back from bypass, from a clean state";
    lilv_instance_deactivate(host.instance());
    lilv_instance_activate(host.instance());
    EXPECT_TRUE(host.process(input, 64) == expected[2]) << "restarted from silence";
}

} // namespace
