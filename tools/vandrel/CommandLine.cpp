#include "CommandLine.h"

#include "ToolError.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace {

enum class OptionId
{
    kOutput,
    kPreset,
    kSet,
    kRamp,
    kLoadState,
    kSaveState,
    kPlugin,
    kBlockSize,
    kTail,
    kBypass,
    kListPresets,
    kListParameters,
    kQuiet,
    kHelp,
    kVersion,
};

struct OptionSpec
{
    const char* longName;
    char shortName; // 0 when the option has no short form
    bool takesValue;
    OptionId id;
};

constexpr OptionSpec kOptionSpecs[] = {
    {"output", 'o', true, OptionId::kOutput},
    {"preset", 'p', true, OptionId::kPreset},
    {"set", 's', true, OptionId::kSet},
    {"ramp", 'r', true, OptionId::kRamp},
    {"load-state", 'l', true, OptionId::kLoadState},
    {"save-state", 'S', true, OptionId::kSaveState},
    {"plugin", 0, true, OptionId::kPlugin},
    {"block-size", 'b', true, OptionId::kBlockSize},
    {"tail", 't', true, OptionId::kTail},
    {"bypass", 0, false, OptionId::kBypass},
    {"list-presets", 'P', false, OptionId::kListPresets},
    {"list-parameters", 'L', false, OptionId::kListParameters},
    {"quiet", 'q', false, OptionId::kQuiet},
    {"help", 'h', false, OptionId::kHelp},
    {"version", 'V', false, OptionId::kVersion},
};

[[noreturn]] void usageError(const std::string& message)
{
    throw ToolError(ExitStatus::kUsage, message + "\nTry 'vandrel --help' for more information.");
}

// Whole-string conversion; strtod alone accepts trailing garbage.
bool parseNumber(const std::string& text, double& value)
{
    if (text.empty())
        return false;
    const char* begin = text.c_str();
    char* end = nullptr;
    errno = 0;
    const double parsed = std::strtod(begin, &end);
    if (end != begin + text.size() || errno == ERANGE || !std::isfinite(parsed))
        return false;
    value = parsed;
    return true;
}

const OptionSpec* findLong(const std::string& name)
{
    for (const OptionSpec& option : kOptionSpecs)
        if (name == option.longName)
            return &option;
    return nullptr;
}

const OptionSpec* findShort(char name)
{
    for (const OptionSpec& option : kOptionSpecs)
        if (option.shortName != 0 && option.shortName == name)
            return &option;
    return nullptr;
}

ParameterSetting parseSetting(const std::string& text)
{
    const size_t equals = text.rfind('=');
    if (equals == std::string::npos || equals == 0 || equals + 1 == text.size())
        usageError("--set expects NAME=VALUE, for example --set \"Wet out=-6\"; got '" + text +
                   "'.");
    return ParameterSetting{text.substr(0, equals), text.substr(equals + 1)};
}

void apply(Options& options, const OptionSpec& option, const std::string& value)
{
    const std::string shown = std::string("--") + option.longName;
    switch (option.id) {
    case OptionId::kOutput:
        options.outputPath = value;
        break;
    case OptionId::kPreset:
        options.preset = value;
        break;
    case OptionId::kSet:
        options.settings.push_back(parseSetting(value));
        break;
    case OptionId::kRamp:
        options.ramps.push_back(CommandLine::parseRamp(value));
        break;
    case OptionId::kLoadState:
        options.loadStatePath = value;
        break;
    case OptionId::kSaveState:
        options.saveStatePath = value;
        break;
    case OptionId::kPlugin:
        options.pluginPath = value;
        break;
    case OptionId::kBlockSize: {
        double frames = 0.0;
        if (!parseNumber(value, frames) || frames < 1.0 || frames > CommandLine::kMaxBlockSize ||
            frames != std::floor(frames))
            usageError(shown + " expects a whole number of frames from 1 to " +
                       std::to_string(CommandLine::kMaxBlockSize) + "; got '" + value + "'.");
        options.blockSize = static_cast<unsigned>(frames);
        break;
    }
    case OptionId::kTail: {
        double seconds = 0.0;
        if (!CommandLine::parseSeconds(value, seconds) || seconds > CommandLine::kMaxTailSeconds)
            usageError(shown + " expects a time from 0 to 3600 seconds, such as 2 or 500ms; got '" +
                       value + "'.");
        options.tailSeconds = seconds;
        break;
    }
    case OptionId::kBypass:
        options.bypass = true;
        break;
    case OptionId::kListPresets:
        options.listPresets = true;
        break;
    case OptionId::kListParameters:
        options.listParameters = true;
        break;
    case OptionId::kQuiet:
        options.quiet = true;
        break;
    case OptionId::kHelp:
        options.help = true;
        break;
    case OptionId::kVersion:
        options.version = true;
        break;
    }
}

} // namespace

bool CommandLine::parseSeconds(const std::string& text, double& seconds)
{
    std::string number = text;
    double scale = 1.0;
    if (number.size() > 2 && number.compare(number.size() - 2, 2, "ms") == 0) {
        number.resize(number.size() - 2);
        scale = 0.001;
    } else if (number.size() > 1 && number.back() == 's') {
        number.pop_back();
    }
    double value = 0.0;
    if (!parseNumber(number, value) || value < 0.0)
        return false;
    seconds = value * scale;
    return true;
}

RampSpec CommandLine::parseRamp(const std::string& text)
{
    // The four numbers are taken from the right, so the name is whatever is
    // left of them and may hold any character.
    std::string fields[4];
    std::string rest = text;
    for (int i = 3; i >= 0; --i) {
        const size_t colon = rest.rfind(':');
        if (colon == std::string::npos)
            usageError("--ramp expects NAME:FROM:TO:START:END, for example --ramp \"Wet "
                       "out:-80:0:0s:2s\"; got '" +
                       text + "'.");
        fields[i] = rest.substr(colon + 1);
        rest.resize(colon);
    }
    RampSpec ramp;
    ramp.name = rest;
    if (ramp.name.empty())
        usageError("--ramp '" + text + "' names no parameter.");
    if (!parseNumber(fields[0], ramp.from) || !parseNumber(fields[1], ramp.to))
        usageError("--ramp '" + text + "': FROM and TO must be numbers.");
    if (!parseSeconds(fields[2], ramp.startSeconds) || !parseSeconds(fields[3], ramp.endSeconds))
        usageError("--ramp '" + text +
                   "': START and END must be times such as 1.5, 1.5s or 1500ms.");
    if (ramp.endSeconds <= ramp.startSeconds)
        usageError("--ramp '" + text + "': END must come after START.");
    return ramp;
}

Options CommandLine::parse(int argc, const char* const* argv)
{
    Options options;
    std::vector<std::string> positional;
    bool optionsEnded = false;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
            positional.push_back(arg);
            continue;
        }
        if (arg == "--") {
            optionsEnded = true;
            continue;
        }
        const OptionSpec* option = nullptr;
        std::string value;
        bool hasInlineValue = false;
        if (arg[1] == '-') {
            const size_t equals = arg.find('=');
            option = findLong(
                arg.substr(2, equals == std::string::npos ? std::string::npos : equals - 2));
            if (equals != std::string::npos) {
                value = arg.substr(equals + 1);
                hasInlineValue = true;
            }
        } else if (arg.size() == 2) {
            option = findShort(arg[1]);
        }
        if (option == nullptr)
            usageError("Unknown option '" + arg + "'.");
        if (option->takesValue && !hasInlineValue) {
            if (i + 1 >= argc)
                usageError("Option '" + arg + "' needs a value.");
            value = argv[++i];
        } else if (!option->takesValue && hasInlineValue) {
            usageError("Option '--" + std::string(option->longName) + "' takes no value.");
        }
        apply(options, *option, value);
    }

    if (positional.size() > 2)
        usageError("Too many file names: give at most INPUT and OUTPUT ('" + positional[2] +
                   "' is one too many).");
    if (!positional.empty())
        options.inputPath = positional[0];
    if (positional.size() == 2) {
        if (!options.outputPath.empty())
            usageError("Two output files given: '" + positional[1] + "' and --output '" +
                       options.outputPath + "'.");
        options.outputPath = positional[1];
    }
    if (!options.inputPath.empty() && options.outputPath.empty() && !options.help &&
        !options.version)
        usageError("No output file for '" + options.inputPath +
                   "': add one, for example -o processed.wav.");
    if (options.outputPath.empty() && !options.ramps.empty())
        usageError("--ramp needs an output file to render into (-o FILE).");
    return options;
}

std::string CommandLine::usage()
{
    return R"(Usage: vandrel [OPTIONS] [INPUT] -o OUTPUT
       vandrel [OPTIONS] INPUT OUTPUT
       vandrel --list-presets | --list-parameters

Runs an audio file through the Vandrel modulation effect (flanger, phaser,
wah-wah) and writes the result. Without INPUT, a few seconds of a built-in
demonstration sound are processed instead.

Files:
  INPUT                  any file libsndfile reads (WAV, AIFF, FLAC, Ogg, ...),
                         1 to 32 channels, any sample rate
  -o, --output FILE      where to write; the extension picks the format
                         (.wav: 32-bit float, .aif/.aiff: 32-bit float,
                         .flac: 24-bit, .ogg: Vorbis, ...), same rate and
                         channels as the input

Sound:
  -p, --preset PRESET    factory preset, by number or name ("Phaser 2")
  -s, --set NAME=VALUE   set a parameter; names are case-insensitive
                         ("wet out=-6"); repeat for more parameters;
                         Effect is 0 flanger, 1 phaser, 2 wah-wah
  -r, --ramp NAME:FROM:TO:START:END
                         move a parameter linearly from FROM to TO between the
                         times START and END (seconds, or with s / ms:
                         "Modulation rate:0.5:10:0:4s"); before START it holds
                         FROM, after END it holds TO; repeatable
  -t, --tail TIME        render TIME of silence after the input so the effect
                         rings out (e.g. 2 or 500ms); default 0
      --bypass           pass the input through the plug-in's bypass
  -l, --load-state FILE  start from a state saved in an .aupreset file
  -S, --save-state FILE  save the state (after --load-state, --preset and --set)
                         to an .aupreset file; works without an output file

Information:
  -P, --list-presets     list the factory presets and exit
  -L, --list-parameters  list the parameters with units, ranges and defaults
  -q, --quiet            no progress bar and no warnings
  -h, --help             show this help
  -V, --version          show the program version

Advanced:
  -b, --block-size N     frames per render call, 1 to 16384; default 512
      --plugin PATH      look for the plug-in in this bundle (Vandrel.component)
                         or folder first; otherwise the bundle built beside
                         this program, then the standard plug-in folders and
                         the folders in AU_COMPONENT_PATH are searched

Order: --load-state, then --preset, then --set, then --ramp during rendering.

Exit status: 0 success; 1 processing failed; 2 bad arguments or unknown
preset or parameter; 3 input unreadable; 4 output unwritable; 5 plug-in not
found or not loadable; 6 input not supported (channel count); 130
interrupted.
An output file appears only when processing succeeded.

Examples:
  vandrel -o demo.wav                              # demonstration sound
  vandrel guitar.wav -p "Phaser 2" -o phased.wav
  vandrel drums.flac -p "Flange - slow 1" -t 2 -o flanged.flac
  vandrel voice.wav -p "Wah-Wah 1" -s "Modulation rate=3" -o wah.wav
  vandrel pad.wav -p 8 -r "Center frequency:300:3000:0:8s" -o sweep.wav
  vandrel -p "Warble 1" -s "dry out=-10" -S warble.aupreset
  vandrel song.wav -l warble.aupreset -o warbled.wav
)";
}
