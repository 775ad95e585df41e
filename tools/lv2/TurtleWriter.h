// The metadata of the Vandrel.lv2 bundle, written from the unit's own
// answers as an LV2 host reads them: manifest.ttl (the two plug-ins and the
// presets, with the files that describe them), vandrel.ttl (each plug-in's
// class, features and ports) and presets.ttl (each factory preset's control
// values). Names, ranges, defaults, units and presets all come from the unit;
// only the URIs, the class and the names of indexed values the unit does not
// publish are written here.
#pragma once

#include "Lv2Ports.h"
#include "PluginHost.h"

#include <string>
#include <vector>

class TurtleWriter
{
public:
    // Asks the unit for its name, version and parameters, then selects each
    // factory preset in turn to read its values. Throws ToolError. [control]
    explicit TurtleWriter(PluginHost& host);

    // Writes the three files into `folder`, which must exist. Throws
    // ToolError(kOutputUnwritable). [control]
    void write(const std::string& folder) const;

    // The files' contents. [any]
    std::string manifest() const;
    std::string plugins() const;
    std::string presets() const;

private:
    struct Preset
    {
        std::string name;
        std::string uri;
        std::vector<AudioUnitParameterValue> values; // by parameter, in the unit's order
    };

    std::string plugin(const char* uri, unsigned channels) const;
    std::string controlPort(size_t index) const;

    // A number as Turtle reads it back to the same float: "0.001", "-80.0". [any]
    static std::string number(float value);
    // A quoted Turtle string. [any]
    static std::string quoted(const std::string& text);

    std::string mName;
    std::string mMaker;
    UInt32 mVersion;
    std::vector<ParameterDescription> mParameters;
    std::vector<std::string> mSymbols; // port symbols, by parameter
    std::vector<Preset> mPresets;
};
