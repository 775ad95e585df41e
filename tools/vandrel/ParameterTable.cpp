#include "ParameterTable.h"

#include "ToolError.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace {

std::string folded(const std::string& name)
{
    std::string result;
    for (unsigned char c : name)
        if (c != ' ' && c != '-' && c != '_')
            result.push_back(static_cast<char>(std::tolower(c)));
    return result;
}

bool parseWholeNumber(const std::string& text, double& value)
{
    if (text.empty())
        return false;
    char* end = nullptr;
    errno = 0;
    const double parsed = std::strtod(text.c_str(), &end);
    if (end != text.c_str() + text.size() || errno == ERANGE || !std::isfinite(parsed))
        return false;
    value = parsed;
    return true;
}

} // namespace

ParameterTable::ParameterTable(std::vector<ParameterDescription> parameters)
    : mParameters(std::move(parameters))
{
}

bool ParameterTable::sameName(const std::string& a, const std::string& b)
{
    return folded(a) == folded(b);
}

const ParameterDescription& ParameterTable::find(const std::string& name) const
{
    for (const ParameterDescription& parameter : mParameters)
        if (sameName(parameter.name, name))
            return parameter;
    double id = -1.0;
    if (parseWholeNumber(name, id))
        for (const ParameterDescription& parameter : mParameters)
            if (parameter.id == id)
                return parameter;
    std::string known;
    for (const ParameterDescription& parameter : mParameters)
        known += (known.empty() ? "" : ", ") + parameter.name;
    throw ToolError(ExitStatus::kUsage, "Unknown parameter '" + name + "'. The parameters are: " +
                                            known + " (see --list-parameters).");
}

AudioUnitParameterValue ParameterTable::parseValue(const ParameterDescription& parameter,
                                                   const std::string& text)
{
    double value = 0.0;
    if (parseWholeNumber(text, value))
        return static_cast<AudioUnitParameterValue>(value);
    for (size_t i = 0; i < parameter.valueNames.size(); ++i)
        if (sameName(parameter.valueNames[i], text))
            return static_cast<AudioUnitParameterValue>(parameter.minValue + i);
    std::string message = "'" + text + "' is not a value for " + parameter.name + ": give a number";
    if (!parameter.valueNames.empty()) {
        message += " or one of";
        for (const std::string& valueName : parameter.valueNames)
            message += " '" + valueName + "'";
    }
    throw ToolError(ExitStatus::kUsage, message + ".");
}

std::string ParameterTable::rangeWarning(const ParameterDescription& parameter,
                                         AudioUnitParameterValue value)
{
    if (value >= parameter.minValue && value <= parameter.maxValue)
        return "";
    const std::string unit = unitName(parameter.unit);
    return parameter.name + " " + formatValue(value) + " is outside its range " +
           formatValue(parameter.minValue) + " to " + formatValue(parameter.maxValue) +
           (unit.empty() ? "" : " " + unit) + "; it is passed to the plug-in unchanged.";
}

std::string ParameterTable::unitName(AudioUnitParameterUnit unit)
{
    switch (unit) {
    case kAudioUnitParameterUnit_Decibels:
        return "dB";
    case kAudioUnitParameterUnit_Hertz:
        return "Hz";
    case kAudioUnitParameterUnit_Percent:
        return "%";
    case kAudioUnitParameterUnit_Seconds:
        return "s";
    case kAudioUnitParameterUnit_Milliseconds:
        return "ms";
    case kAudioUnitParameterUnit_Cents:
        return "cents";
    case kAudioUnitParameterUnit_SampleFrames:
        return "frames";
    case kAudioUnitParameterUnit_Indexed:
        return "index";
    case kAudioUnitParameterUnit_Boolean:
        return "on/off";
    case kAudioUnitParameterUnit_BPM:
        return "BPM";
    case kAudioUnitParameterUnit_LinearGain:
        return "gain";
    default:
        return "";
    }
}

std::string ParameterTable::formatValue(double value)
{
    char buffer[32];
    std::snprintf(buffer, sizeof(buffer), "%.6g", value);
    return buffer;
}
