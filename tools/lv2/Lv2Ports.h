// The two LV2 plug-ins of the Vandrel.lv2 bundle (mono and stereo) and the
// port layout they share. The layout follows the unit's parameter list, so
// the wrapper and the metadata generator agree on it by construction: one
// control input per parameter in the unit's order, then the enable switch
// (lv2:enabled), the latency output (lv2:latency), the audio inputs and the
// audio outputs.
#pragma once

#include <cstdint>
#include <string>

class Lv2Ports
{
public:
    // Project, plug-in and preset URIs, under the project's own domain. Hosts save
    // sessions by these: they never change.
    static constexpr const char* kProjectUri = "https://vandrel.org/lv2/vandrel";
    static constexpr const char* kMonoUri = "https://vandrel.org/lv2/vandrel/mono";
    static constexpr const char* kStereoUri = "https://vandrel.org/lv2/vandrel/stereo";
    static constexpr const char* kPresetPrefix = "https://vandrel.org/lv2/vandrel/presets#";
    // The wrapper's file name in the bundle, and the unit's bundle beside it.
    static constexpr const char* kBinary = "vandrel_lv2.so";
    static constexpr const char* kComponentBundle = "Vandrel.component";
    // Most audio channels a plug-in of the bundle has.
    static constexpr unsigned kMaxChannels = 2;

    // Audio channels of the plug-in with this URI: 1 or 2; 0 for another URI. [any]
    static unsigned channelsFor(const char* uri);

    // An identifier made of a display name: ASCII letters and digits in lower
    // case, every other run of characters one separator, none at either end;
    // "Modulation rate" gives "modulation_rate" with '_'. A leading digit gets
    // an "n" before it, so that the result is a valid port symbol. [any]
    static std::string identifier(const std::string& name, char separator);

    Lv2Ports(unsigned parameters, unsigned channels) : mParameters(parameters), mChannels(channels)
    {
    }

    // Port indices. [any]
    uint32_t enabled() const { return mParameters; }
    uint32_t latency() const { return mParameters + 1; }
    uint32_t audioIn(unsigned channel) const { return mParameters + 2 + channel; }
    uint32_t audioOut(unsigned channel) const { return mParameters + 2 + mChannels + channel; }
    uint32_t count() const { return mParameters + 2 + 2 * mChannels; }

private:
    unsigned mParameters;
    unsigned mChannels;
};
