// The host wrapper on the real plug-in bundle: what it reads from the unit,
// and that its render path allocates nothing once the unit has started.
#include "PluginHost.h"
#include "PluginLocator.h"
#include "ToolError.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <new>
#include <vector>

namespace {
std::atomic<long> gAllocations{0};
}

// Every allocation of the process, the plug-in's included, goes through
// these; the array and no-throw forms too, so that all pairs match. They are
// kept out of line so that the optimizer does not pair a standard new with
// the free inside them.
[[gnu::noinline]] void* operator new(std::size_t size) {
  ++gAllocations;
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new[](std::size_t size) { return operator new(size); }
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  ++gAllocations;
  return std::malloc(size == 0 ? 1 : size);
}
[[gnu::noinline]] void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
  return operator new(size, tag);
}
[[gnu::noinline]] void operator delete(void* p) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete[](void* p) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete(void* p, std::size_t) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
[[gnu::noinline]] void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }

namespace {

class PluginHostTest : public ::testing::Test {
 protected:
  static AudioComponent component() { return PluginLocator::find(VANDREL_BUNDLE_DIR); }
};

TEST_F(PluginHostTest, ReadsPresetsAndParametersFromTheUnit) {
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

TEST_F(PluginHostTest, RenderAllocatesNothingOnceStarted) {
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
      for (size_t i = 0; i < channel.size(); ++i) channel[i] = std::sin(0.05f * i);
  };
  fill();
  const long beforeStart = gAllocations.load();
  ASSERT_EQ(host.render(in.data(), out.data(), maxFrames), noErr);
  EXPECT_GT(gAllocations.load() - beforeStart, 0) << "the count sees the plug-in start its engine";

  const long before = gAllocations.load();
  for (unsigned frames : {1u, 7u, 64u, 255u, 256u}) {
    fill();
    ASSERT_EQ(host.render(in.data(), out.data(), frames), noErr) << frames;
  }
  EXPECT_EQ(gAllocations.load() - before, 0);
  EXPECT_NE(output[0][100], input[0][100]) << "the flanger changed the sound";
  EXPECT_NE(host.render(in.data(), out.data(), maxFrames + 1), noErr) << "beyond the maximum slice";
}

}  // namespace
