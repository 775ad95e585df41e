// Command-line parsing of the vandrel program. Parsing only checks the shape
// of the arguments (numbers are numbers, ramps have five fields, a file to
// process has an output); names of presets and parameters are resolved later
// against the plug-in's own answers, because only the plug-in knows them.
#pragma once

#include <string>
#include <vector>

// One "--set NAME=VALUE": the value stays text, since an indexed parameter may
// also be given by one of its value names.
struct ParameterSetting
{
    std::string name;
    std::string value;
};

// One "--ramp NAME:FROM:TO:START:END": a linear change of a parameter from
// FROM to TO between START and END seconds of the output.
struct RampSpec
{
    std::string name;
    double from = 0.0;
    double to = 0.0;
    double startSeconds = 0.0;
    double endSeconds = 0.0;
};

struct Options
{
    std::string inputPath;  // empty: the built-in demonstration signal
    std::string outputPath; // empty: nothing is rendered
    std::string preset;     // factory preset number or name; empty: none
    std::vector<ParameterSetting> settings;
    std::vector<RampSpec> ramps;
    std::string loadStatePath; // .aupreset applied before the preset and settings
    std::string saveStatePath; // .aupreset written after they were applied
    std::string pluginPath;    // bundle or folder to look in first
    unsigned blockSize = 512;  // frames per render call, 1 to kMaxBlockSize
    double tailSeconds = 0.0;  // silence rendered after the input, 0 to kMaxTailSeconds
    bool bypass = false;
    bool listPresets = false;
    bool listParameters = false;
    bool quiet = false;
    bool help = false;
    bool version = false;
};

class CommandLine
{
public:
    static constexpr unsigned kMaxBlockSize = 16384;
    static constexpr double kMaxTailSeconds = 3600.0;

    // Parses argv[1..argc-1]. Throws ToolError(kUsage) with a message naming the
    // offending argument. [control]
    static Options parse(int argc, const char* const* argv);

    // Parses the text of one --ramp option; throws ToolError(kUsage). [any]
    static RampSpec parseRamp(const std::string& text);

    // A time such as "2", "2.5s" or "1500ms", in seconds; false when the text is
    // not such a time or is negative. [any]
    static bool parseSeconds(const std::string& text, double& seconds);

    // The --help text. [any]
    static std::string usage();
};
