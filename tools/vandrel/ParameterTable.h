// The unit's parameters as the unit describes them, looked up the way a person
// types them: names without regard to case, spaces, hyphens or underscores
// ("wet out", "WetOut" and "wet-out" all name "Wet out"), or the numeric ID.
#pragma once

#include "PluginHost.h"

#include <string>
#include <vector>

class ParameterTable
{
public:
    explicit ParameterTable(std::vector<ParameterDescription> parameters);

    // The parameter so named. Throws ToolError(kUsage) listing the names. [any]
    const ParameterDescription& find(const std::string& name) const;

    // A value typed for `parameter`: a number, or for an indexed parameter one
    // of its value names. Throws ToolError(kUsage). [any]
    static AudioUnitParameterValue parseValue(const ParameterDescription& parameter,
                                              const std::string& text);

    // A warning for a value outside the advertised range, empty inside it. [any]
    static std::string rangeWarning(const ParameterDescription& parameter,
                                    AudioUnitParameterValue value);

    // Equal after dropping case, spaces, hyphens and underscores. [any]
    static bool sameName(const std::string& a, const std::string& b);

    // Short name of a value unit ("dB", "Hz", "%", ...). [any]
    static std::string unitName(AudioUnitParameterUnit unit);

    // A number as people write it: "0.001", "-80", "2.5". [any]
    static std::string formatValue(double value);

    const std::vector<ParameterDescription>& all() const { return mParameters; }

private:
    std::vector<ParameterDescription> mParameters;
};
