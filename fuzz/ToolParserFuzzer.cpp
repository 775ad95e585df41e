// The vandrel program's own parsers: the input's first byte picks one, the
// rest is its text. Command lines (arguments split at NUL bytes), with the
// parameter assignments, ramps and presets they name resolved against the
// plug-in's own answers and the ramps turned into events; and state files.
// A mistake must end in a ToolError, never anything else.
#include "Application.h"
#include "Automation.h"
#include "CommandLine.h"
#include "ParameterTable.h"
#include "PluginLocator.h"
#include "StateFile.h"
#include "ToolError.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

PluginHost& Host()
{
    static PluginHost* host = new PluginHost(PluginLocator::find(VANDREL_BUNDLE_DIR));
    return *host;
}

void CommandLineText(const std::string& text)
{
    std::vector<std::string> arguments{"vandrel"};
    size_t start = 0;
    while (start <= text.size() && arguments.size() < 24) {
        const size_t end = std::min(text.find('\0', start), text.size());
        arguments.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    std::vector<const char*> argv;
    for (const std::string& argument : arguments) {
        argv.push_back(argument.c_str());
    }
    const Options options = CommandLine::parse(static_cast<int>(argv.size()), argv.data());

    static const ParameterTable table(Host().parameters());
    static const std::vector<PresetInfo> presets = Host().factoryPresets();
    if (!options.preset.empty()) {
        Application::findPreset(presets, options.preset);
    }
    for (const ParameterSetting& setting : options.settings) {
        const ParameterDescription& parameter = table.find(setting.name);
        ParameterTable::rangeWarning(parameter,
                                     ParameterTable::parseValue(parameter, setting.value));
    }
    std::vector<Ramp> ramps;
    for (const RampSpec& request : options.ramps) {
        ramps.push_back(Application::rampFor(request, table.find(request.name), 44100.0));
    }
    const Automation automation(std::move(ramps));
    std::vector<AudioUnitParameterEvent> events;
    for (int64_t start : {int64_t{0}, int64_t{44100}, int64_t{1} << 40}) {
        automation.eventsForBlock(start, options.blockSize, events);
        for (const AudioUnitParameterEvent& event : events) {
            if (event.eventType == kParameterEvent_Ramped &&
                (event.eventValues.ramp.durationInFrames == 0 ||
                 event.eventValues.ramp.durationInFrames > Automation::kStepFrames)) {
                std::abort(); // pieces are 1 to kStepFrames frames long
            }
        }
    }
}

void StateFileText(const std::string& text)
{
    static const std::string path = [] {
        char name[] = "/tmp/vandrel-fuzz-XXXXXX";
        const int descriptor = mkstemp(name);
        if (descriptor < 0) {
            std::abort();
        }
        close(descriptor);
        return std::string(name);
    }();
    {
        std::ofstream file(path, std::ios::binary | std::ios::trunc);
        file.write(text.data(), static_cast<std::streamsize>(text.size()));
    }
    const CFRef<CFPropertyListRef> state = StateFile::load(path);
    OSStatus status = noErr;
    Host().restoreState(state.get(), &status);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0) {
        return 0;
    }
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    try {
        switch (data[0] % 4) {
        case 0:
            CommandLine::parseRamp(text);
            break;
        case 1: {
            double seconds = 0.0;
            CommandLine::parseSeconds(text, seconds);
            break;
        }
        case 2:
            CommandLineText(text);
            break;
        default:
            StateFileText(text);
            break;
        }
    } catch (const ToolError&) {
    }
    return 0;
}
