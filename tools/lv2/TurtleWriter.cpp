#include "TurtleWriter.h"

#include "ToolError.h"

#include <charconv>
#include <fstream>
#include <set>
#include <sstream>

namespace {

const char* const kPrefixes = "@prefix bufsz: <http://lv2plug.in/ns/ext/buf-size#> .\n"
                              "@prefix doap: <http://usefulinc.com/ns/doap#> .\n"
                              "@prefix foaf: <http://xmlns.com/foaf/0.1/> .\n"
                              "@prefix log: <http://lv2plug.in/ns/ext/log#> .\n"
                              "@prefix lv2: <http://lv2plug.in/ns/lv2core#> .\n"
                              "@prefix opts: <http://lv2plug.in/ns/ext/options#> .\n"
                              "@prefix pset: <http://lv2plug.in/ns/ext/presets#> .\n"
                              "@prefix rdf: <http://www.w3.org/1999/02/22-rdf-syntax-ns#> .\n"
                              "@prefix rdfs: <http://www.w3.org/2000/01/rdf-schema#> .\n"
                              "@prefix units: <http://lv2plug.in/ns/extensions/units#> .\n"
                              "@prefix urid: <http://lv2plug.in/ns/ext/urid#> .\n"
                              "@prefix work: <http://lv2plug.in/ns/ext/worker#> .\n\n";

// The plug-ins: URI, name suffix, audio channels.
struct Variant
{
    const char* uri;
    const char* suffix;
    unsigned channels;
};
constexpr Variant kVariants[] = {{Lv2Ports::kMonoUri, " (mono)", 1},
                                 {Lv2Ports::kStereoUri, " (stereo)", 2}};

// Names of the values of an indexed parameter whose unit publishes none.
struct ValueNames
{
    const char* parameter;
    std::vector<std::string> names;
};
const ValueNames kValueNames[] = {{"Effect", {"Flanger", "Phaser", "Wah-wah"}}};

// The LV2 unit of a value unit, or "" for a unit LV2 has none for.
const char* unitUri(AudioUnitParameterUnit unit)
{
    switch (unit) {
    case kAudioUnitParameterUnit_Decibels:
        return "units:db";
    case kAudioUnitParameterUnit_Hertz:
        return "units:hz";
    case kAudioUnitParameterUnit_Percent:
        return "units:pc";
    case kAudioUnitParameterUnit_Seconds:
        return "units:s";
    case kAudioUnitParameterUnit_Milliseconds:
        return "units:ms";
    default:
        return "";
    }
}

std::string audioPort(uint32_t index, bool input, unsigned channel, unsigned channels)
{
    static const char* const kSides[] = {"l", "r"};
    static const char* const kSideNames[] = {"left", "right"};
    std::string symbol = input ? "in" : "out";
    std::string name = input ? "Input" : "Output";
    if (channels > 1) {
        symbol += std::string("_") + kSides[channel];
        name += std::string(" ") + kSideNames[channel];
    }
    return "[\n        a lv2:AudioPort, lv2:" + std::string(input ? "InputPort" : "OutputPort") +
           " ;\n        lv2:index " + std::to_string(index) + " ;\n        lv2:symbol \"" + symbol +
           "\" ;\n        lv2:name \"" + name + "\"\n    ]";
}

} // namespace

TurtleWriter::TurtleWriter(PluginHost& host)
    : mVersion(host.componentVersion()), mParameters(host.parameters())
{
    const std::string name = host.componentName();
    const size_t colon = name.find(": ");
    mMaker = colon == std::string::npos ? name : name.substr(0, colon);
    mName = colon == std::string::npos ? name : name.substr(colon + 2);

    std::set<std::string> taken{"enabled", "latency", "in",    "out",
                                "in_l",    "in_r",    "out_l", "out_r"};
    for (const ParameterDescription& parameter : mParameters) {
        const std::string symbol = Lv2Ports::identifier(parameter.name, '_');
        if (symbol.empty() || !taken.insert(symbol).second)
            throw ToolError(ExitStatus::kProcessingFailed,
                            "No port symbol can be made of the parameter name '" + parameter.name +
                                "': it is empty or taken.");
        mSymbols.push_back(symbol);
    }
    for (const PresetInfo& info : host.factoryPresets()) {
        host.selectPreset(info.number);
        Preset preset{
            info.name, Lv2Ports::kPresetPrefix + Lv2Ports::identifier(info.name, '-'), {}};
        for (const ParameterDescription& parameter : mParameters)
            preset.values.push_back(host.parameter(parameter.id));
        mPresets.push_back(std::move(preset));
    }
}

std::string TurtleWriter::number(float value)
{
    char text[32];
    const auto end = std::to_chars(text, text + sizeof(text), value).ptr;
    std::string result(text, end);
    // Without a point or an exponent Turtle reads an integer.
    if (result.find_first_of(".e") == std::string::npos)
        result += ".0";
    return result;
}

std::string TurtleWriter::quoted(const std::string& text)
{
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            result += '\\';
        result += c;
    }
    return result + "\"";
}

std::string TurtleWriter::manifest() const
{
    std::ostringstream out;
    out << kPrefixes;
    for (const Variant& variant : kVariants)
        out << "<" << variant.uri << ">\n    a lv2:Plugin ;\n    lv2:binary <" << Lv2Ports::kBinary
            << "> ;\n    rdfs:seeAlso <vandrel.ttl> .\n\n";
    for (const Preset& preset : mPresets)
        out << "<" << preset.uri << ">\n    a pset:Preset ;\n    lv2:appliesTo <"
            << Lv2Ports::kMonoUri << "> , <" << Lv2Ports::kStereoUri
            << "> ;\n    rdfs:seeAlso <presets.ttl> .\n\n";
    return out.str();
}

std::string TurtleWriter::controlPort(size_t index) const
{
    const ParameterDescription& parameter = mParameters[index];
    std::ostringstream out;
    out << "[\n        a lv2:InputPort, lv2:ControlPort ;\n        lv2:index " << index
        << " ;\n        lv2:symbol \"" << mSymbols[index] << "\" ;\n        lv2:name "
        << quoted(parameter.name) << " ;\n        lv2:default " << number(parameter.defaultValue)
        << " ;\n        lv2:minimum " << number(parameter.minValue) << " ;\n        lv2:maximum "
        << number(parameter.maxValue);
    if (*unitUri(parameter.unit) != '\0')
        out << " ;\n        units:unit " << unitUri(parameter.unit);
    if (parameter.unit == kAudioUnitParameterUnit_Boolean)
        out << " ;\n        lv2:portProperty lv2:toggled";
    if (parameter.unit == kAudioUnitParameterUnit_Indexed) {
        std::vector<std::string> names = parameter.valueNames;
        for (const ValueNames& known : kValueNames)
            if (names.empty() && parameter.name == known.parameter)
                names = known.names;
        out << " ;\n        lv2:portProperty lv2:integer, lv2:enumeration";
        for (float value = parameter.minValue; value <= parameter.maxValue; value += 1.0f) {
            const size_t i = static_cast<size_t>(value - parameter.minValue);
            out << (i == 0 ? " ;\n        lv2:scalePoint [ rdfs:label " : " , [ rdfs:label ")
                << quoted(i < names.size() ? names[i] : number(value)) << " ; rdf:value "
                << number(value) << " ]";
        }
    }
    out << "\n    ]";
    return out.str();
}

std::string TurtleWriter::plugin(const char* uri, unsigned channels) const
{
    const Lv2Ports ports(static_cast<unsigned>(mParameters.size()), channels);
    const Variant& variant = kVariants[channels - 1];
    std::ostringstream out;
    // A flanger, a phaser and a wah-wah in one: the class that holds the
    // first two, since a host lists a plug-in under one class.
    out << "<" << uri << ">\n    a lv2:Plugin, lv2:ModulatorPlugin ;\n    doap:name "
        << quoted(mName + variant.suffix) << " ;\n    lv2:project <" << Lv2Ports::kProjectUri
        << "> ;\n    lv2:minorVersion " << ((mVersion >> 8) & 0xFF) << " ;\n    lv2:microVersion "
        << (mVersion & 0xFF)
        << " ;\n    rdfs:comment \"Its whole state is its control ports: a host that saves "
           "them saves the sound.\" ;\n"
           "    lv2:optionalFeature lv2:hardRTCapable, urid:map, opts:options, log:log, "
           "work:schedule ;\n    opts:supportedOption bufsz:maxBlockLength ;\n"
           "    lv2:extensionData work:interface ;\n    lv2:port ";
    for (size_t i = 0; i < mParameters.size(); ++i)
        out << controlPort(i) << " , ";
    out << "[\n        a lv2:InputPort, lv2:ControlPort ;\n        lv2:index " << ports.enabled()
        << " ;\n        lv2:symbol \"enabled\" ;\n        lv2:name \"Enabled\" ;\n"
           "        lv2:designation lv2:enabled ;\n        lv2:default 1 ;\n"
           "        lv2:minimum 0 ;\n        lv2:maximum 1 ;\n"
           "        lv2:portProperty lv2:toggled, lv2:integer\n    ] , [\n"
           "        a lv2:OutputPort, lv2:ControlPort ;\n        lv2:index "
        << ports.latency()
        << " ;\n        lv2:symbol \"latency\" ;\n        lv2:name \"Latency\" ;\n"
           "        lv2:designation lv2:latency ;\n        lv2:minimum 0 ;\n"
           "        lv2:maximum 65536 ;\n        units:unit units:frame ;\n"
           "        lv2:portProperty lv2:reportsLatency, lv2:integer\n    ]";
    for (unsigned c = 0; c < channels; ++c)
        out << " , " << audioPort(ports.audioIn(c), true, c, channels);
    for (unsigned c = 0; c < channels; ++c)
        out << " , " << audioPort(ports.audioOut(c), false, c, channels);
    out << " .\n\n";
    return out.str();
}

std::string TurtleWriter::plugins() const
{
    std::string text = kPrefixes;
    text += "<" + std::string(Lv2Ports::kProjectUri) + ">\n    a doap:Project ;\n    doap:name " +
            quoted(mName) + " ;\n    doap:maintainer [\n        a foaf:Person ;\n" +
            "        foaf:name " + quoted(mMaker) + "\n    ] .\n\n";
    for (const Variant& variant : kVariants)
        text += plugin(variant.uri, variant.channels);
    return text;
}

std::string TurtleWriter::presets() const
{
    std::ostringstream out;
    out << kPrefixes;
    for (const Preset& preset : mPresets) {
        out << "<" << preset.uri << ">\n    a pset:Preset ;\n    lv2:appliesTo <"
            << Lv2Ports::kMonoUri << "> , <" << Lv2Ports::kStereoUri << "> ;\n    rdfs:label "
            << quoted(preset.name) << " ;\n    lv2:port ";
        for (size_t i = 0; i < mParameters.size(); ++i)
            out << (i == 0 ? "" : " , ") << "[\n        lv2:symbol \"" << mSymbols[i]
                << "\" ;\n        pset:value " << number(preset.values[i]) << "\n    ]";
        out << " .\n\n";
    }
    return out.str();
}

void TurtleWriter::write(const std::string& folder) const
{
    const std::pair<const char*, std::string> files[] = {
        {"manifest.ttl", manifest()}, {"vandrel.ttl", plugins()}, {"presets.ttl", presets()}};
    for (const auto& [name, text] : files) {
        const std::string path = folder + "/" + name;
        std::ofstream file(path, std::ios::binary | std::ios::trunc);
        file << text;
        file.close();
        if (!file)
            throw ToolError(ExitStatus::kOutputUnwritable, "Cannot write '" + path + "'.");
    }
}
