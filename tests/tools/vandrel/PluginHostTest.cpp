// The host wrapper on the real plug-in bundle: what it reads from the unit,
// and that its render path allocates nothing once the unit has started.
#include "AllocationCounter.h"
#include "PluginHost.h"
#include "PluginLocator.h"
#include "ToolError.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

class PluginHostTest : public ::testing::Test
{
protected:
    static AudioComponent component() { return PluginLocator::find(VANDREL_BUNDLE_DIR); }
};

TEST_F(PluginHostTest, ReadsPresetsAndParametersFromTheUnit)
{
    PluginHost host(component());
    const std::vector<PresetInfo> presets = host.factoryPresets();
    ASSERT_EQ(presets.size(), 15u);
    EXPECT_EQ(presets[6].number, 6);
    EXPECT_EQ(presets[6].name, "Phaser 2");

    const std::vector<ParameterDescription> parameters = host.parameters();
    ASSERT_EQ(parameters.size(), 7u);
    EXPECT_EQ(parameters[3].name, "Modulation rate");
    EXPECT_EQ(parameters[3].unit, kAudioUnitParameterUnit_Hertz);
    EXPECT_FLOAT_EQ(parameters[3].minValue, 0.001f);
    EXPECT_EQ(parameters[3].maxValue, 20.0f);
    EXPECT_EQ(parameters[2].unit, kAudioUnitParameterUnit_Indexed);

    host.selectPreset(6);
    EXPECT_EQ(host.parameter(3), 4.5f);
    host.setParameter(3, 50.0f);
    EXPECT_EQ(host.parameter(3), 50.0f) << "values outside the range are kept";
    try {
        host.selectPreset(15);
        FAIL() << "preset 15 accepted";
    } catch (const ToolError& error) {
        EXPECT_EQ(error.status(), ExitStatus::kProcessingFailed);
        EXPECT_NE(std::string(error.what()).find("preset 15"), std::string::npos) << error.what();
    }
}

TEST_F(PluginHostTest, RenderAllocatesNothingOnceStarted)
{
    PluginHost host(component());
    host.selectPreset(1);
    const unsigned channels = 2;
    const unsigned maxFrames = 256;
    host.prepare(48000.0, channels, maxFrames);
    std::vector<std::vector<float>> input(channels, std::vector<float>(maxFrames));
    std::vector<std::vector<float>> output(channels, std::vector<float>(maxFrames));
    std::vector<float*> in{input[0].data(), input[1].data()};
    std::vector<float*> out{output[0].data(), output[1].data()};
    auto fill = [&] {
        for (auto& channel : input)
            for (size_t i = 0; i < channel.size(); ++i)
                channel[i] = std::sin(0.05f * i);
    };
    fill();
    const long beforeStart = allocationcounter::Allocations();
    ASSERT_EQ(host.render(in.data(), out.data(), maxFrames), noErr);
    EXPECT_GT(allocationcounter::Allocations() - beforeStart, 0)
        << "the count sees the plug-in start its engine";

    const long before = allocationcounter::Allocations();
    for (unsigned frames : {1u, 7u, 64u, 255u, 256u}) {
        fill();
        ASSERT_EQ(host.render(in.data(), out.data(), frames), noErr) << frames;
    }
    EXPECT_EQ(allocationcounter::Allocations() - before, 0);
    EXPECT_NE(output[0][100], input[0][100]) << "the flanger changed the sound";
    EXPECT_NE(host.render(in.data(), out.data(), maxFrames + 1), noErr)
        << "beyond the maximum slice";
}

} // namespace
