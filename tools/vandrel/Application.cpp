#include "Application.h"

#include "AudioFileReader.h"
#include "AudioFileWriter.h"
#include "Automation.h"
#include "DemoSignal.h"
#include "HeapPrefault.h"
#include "ParameterTable.h"
#include "PluginLocator.h"
#include "ProgressBar.h"
#include "Renderer.h"
#include "StateFile.h"
#include "ToolError.h"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <memory>
#include <unistd.h>

namespace {

// The unit serves at most this many channels.
constexpr unsigned kMaxChannels = 32;

volatile std::sig_atomic_t gInterrupted = 0;

void onInterrupt(int)
{
    gInterrupted = 1;
}

// A run interrupted by Ctrl-C or a termination request ends through the
// normal error path, which removes the unfinished output file.
void catchInterrupts()
{
    struct sigaction action
    {
    };
    action.sa_handler = onInterrupt;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

std::unique_ptr<AudioSource> openSource(const Options& options)
{
    if (options.inputPath.empty())
        return std::make_unique<DemoSignal>();
    return std::make_unique<AudioFileReader>(options.inputPath);
}

} // namespace

Application::Application(std::FILE* out, std::FILE* err) : mOut(out), mErr(err) {}

int Application::run(int argc, const char* const* argv)
{
    try {
        const Options options = CommandLine::parse(argc, argv);
        mQuiet = options.quiet;
        if (options.help) {
            std::fputs(CommandLine::usage().c_str(), mOut);
            return 0;
        }
        if (options.version) {
            std::fprintf(mOut, "vandrel %s\n", VANDREL_VERSION);
            return 0;
        }
        if (options.outputPath.empty() && options.saveStatePath.empty() && !options.listPresets &&
            !options.listParameters)
            throw ToolError(ExitStatus::kUsage, "Nothing to do: give an output file (vandrel -o "
                                                "demo.wav processes the demonstration sound), "
                                                "--list-presets, --list-parameters or --save-state "
                                                "FILE.\nTry 'vandrel --help' for more "
                                                "information.");
        execute(options);
        return 0;
    } catch (const ToolError& error) {
        std::fprintf(mErr, "vandrel: %s\n", error.what());
        return static_cast<int>(error.status());
    } catch (const std::bad_alloc&) {
        std::fprintf(mErr, "vandrel: out of memory.\n");
        return static_cast<int>(ExitStatus::kProcessingFailed);
    } catch (const std::exception& error) {
        std::fprintf(mErr, "vandrel: unexpected failure: %s\n", error.what());
        return static_cast<int>(ExitStatus::kProcessingFailed);
    }
}

void Application::warn(const std::string& message)
{
    if (!mQuiet)
        std::fprintf(mErr, "vandrel: warning: %s\n", message.c_str());
}

void Application::execute(const Options& options)
{
    catchInterrupts();
    // Cheap checks on the files first, so that a typo costs no plug-in load.
    std::unique_ptr<AudioSource> source;
    if (!options.outputPath.empty()) {
        // A stereo run's buffers fit in half a mebibyte of heap, populated
        // here in one call; more channels fault in the rest as usual. Runs
        // that render nothing skip it.
        prefaultHeap(512u << 10);
        source = openSource(options);
        if (source->channels() > kMaxChannels)
            throw ToolError(
                ExitStatus::kUnsupportedInput,
                "'" + options.inputPath + "' has " + std::to_string(source->channels()) +
                    " channels; the plug-in takes 1 to " + std::to_string(kMaxChannels) + ".");
        AudioFileWriter::requireFormat(options.outputPath, source->channels(),
                                       source->sampleRate());
    }

    PluginHost host(PluginLocator::find(options.pluginPath));
    applySettings(host, options);
    if (options.listPresets)
        listPresets(host);
    if (options.listParameters)
        listParameters(host);
    if (!options.saveStatePath.empty()) {
        const CFRef<CFPropertyListRef> state = host.copyState();
        StateFile::save(options.saveStatePath, state.get());
    }
    if (source)
        render(host, *source, options);
}

void Application::applySettings(PluginHost& host, const Options& options)
{
    if (!options.loadStatePath.empty()) {
        const CFRef<CFPropertyListRef> state = StateFile::load(options.loadStatePath);
        OSStatus status = noErr;
        if (!host.restoreState(state.get(), &status))
            throw ToolError(ExitStatus::kInputUnreadable,
                            "The plug-in refused the state in '" + options.loadStatePath +
                                "' (status " + std::to_string(status) +
                                "): it was saved by another plug-in or is damaged.");
    }
    if (!options.preset.empty())
        selectPreset(host, options.preset);
    if (!options.settings.empty()) {
        const ParameterTable table(host.parameters());
        for (const ParameterSetting& setting : options.settings) {
            const ParameterDescription& parameter = table.find(setting.name);
            const AudioUnitParameterValue value =
                ParameterTable::parseValue(parameter, setting.value);
            const std::string warning = ParameterTable::rangeWarning(parameter, value);
            if (!warning.empty())
                warn(warning);
            host.setParameter(parameter.id, value);
        }
    }
    if (options.bypass)
        host.setBypass(true);
}

void Application::selectPreset(PluginHost& host, const std::string& preset)
{
    host.selectPreset(findPreset(host.factoryPresets(), preset).number);
}

const PresetInfo& Application::findPreset(const std::vector<PresetInfo>& presets,
                                          const std::string& text)
{
    for (const PresetInfo& info : presets)
        if (ParameterTable::sameName(info.name, text) || std::to_string(info.number) == text)
            return info;
    std::string known;
    for (const PresetInfo& info : presets)
        known += "\n  " + std::to_string(info.number) + "  " + info.name;
    throw ToolError(ExitStatus::kUsage,
                    "Unknown preset '" + text + "'. Give a number or a name:" + known);
}

Ramp Application::rampFor(const RampSpec& request, const ParameterDescription& parameter,
                          double rate)
{
    // 2^53 frames: far beyond any file, and exact in a double.
    static constexpr double kFarthestFrame = 9007199254740992.0;
    const auto frame = [rate](double seconds) {
        return std::llround(std::min(seconds * rate, kFarthestFrame));
    };
    const int64_t start = frame(request.startSeconds);
    return Ramp{parameter.id,
                parameter.name,
                static_cast<AudioUnitParameterValue>(request.from),
                static_cast<AudioUnitParameterValue>(request.to),
                start,
                std::max<int64_t>(frame(request.endSeconds), start + 1)};
}

void Application::listPresets(PluginHost& host)
{
    const std::vector<PresetInfo> presets = host.factoryPresets();
    if (presets.empty())
        std::fputs("The plug-in has no factory presets.\n", mOut);
    for (const PresetInfo& info : presets)
        std::fprintf(mOut, "%3d  %s\n", static_cast<int>(info.number), info.name.c_str());
}

void Application::listParameters(PluginHost& host)
{
    const ParameterTable table(host.parameters());
    std::fprintf(mOut, "%3s  %-20s %-6s %-18s %-9s %s\n", "ID", "Name", "Unit", "Range", "Default",
                 "Value");
    for (const ParameterDescription& parameter : table.all()) {
        const std::string range = ParameterTable::formatValue(parameter.minValue) + " to " +
                                  ParameterTable::formatValue(parameter.maxValue);
        std::fprintf(mOut, "%3u  %-20s %-6s %-18s %-9s %s", static_cast<unsigned>(parameter.id),
                     parameter.name.c_str(), ParameterTable::unitName(parameter.unit).c_str(),
                     range.c_str(), ParameterTable::formatValue(parameter.defaultValue).c_str(),
                     ParameterTable::formatValue(host.parameter(parameter.id)).c_str());
        for (size_t i = 0; i < parameter.valueNames.size(); ++i)
            std::fprintf(mOut, "%s%s=%s", i == 0 ? "  (" : ", ",
                         ParameterTable::formatValue(parameter.minValue + i).c_str(),
                         parameter.valueNames[i].c_str());
        std::fputs(parameter.valueNames.empty() ? "\n" : ")\n", mOut);
    }
}

void Application::render(PluginHost& host, AudioSource& source, const Options& options)
{
    const double rate = source.sampleRate();
    std::vector<Ramp> ramps;
    if (!options.ramps.empty()) {
        const ParameterTable table(host.parameters());
        for (const RampSpec& request : options.ramps) {
            const ParameterDescription& parameter = table.find(request.name);
            const Ramp ramp = rampFor(request, parameter, rate);
            for (AudioUnitParameterValue value : {ramp.from, ramp.to}) {
                const std::string warning = ParameterTable::rangeWarning(parameter, value);
                if (!warning.empty())
                    warn(warning);
            }
            ramps.push_back(ramp);
        }
    }
    const Automation automation(std::move(ramps));
    const int64_t tailFrames = std::llround(options.tailSeconds * rate);

    host.prepare(rate, source.channels(), options.blockSize);
    AudioFileWriter writer(options.outputPath, source.channels(), rate);
    std::unique_ptr<ProgressBar> progress;
    if (!mQuiet && isatty(fileno(mErr)))
        progress = std::make_unique<ProgressBar>(mErr, source.totalFrames() + tailFrames, rate);
    Renderer renderer(host, source, writer, automation, options.blockSize, tailFrames);
    renderer.run(progress.get(), &gInterrupted);
    progress.reset();
    writer.commit();
}
