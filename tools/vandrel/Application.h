// The vandrel program: turns the command line into host calls and files.
//
// Order of work: check the arguments and the input, find and open the
// plug-in, apply --load-state, --preset, --set and --bypass, answer the
// listings, save the state, then render the input (or the demonstration
// signal) into the output. Every failure ends in run() with one message on
// standard error and the exit status of its kind; no output file is left
// behind unless the run succeeded.
#pragma once

#include "AudioSource.h"
#include "Automation.h"
#include "CommandLine.h"
#include "PluginHost.h"

#include <cstdio>
#include <string>

class Application
{
public:
    // out and err are not owned; err is where messages and the progress bar go. [control]
    Application(std::FILE* out, std::FILE* err);

    // Runs the program; returns its exit status. [control]
    int run(int argc, const char* const* argv);

    // The factory preset a --preset value names (by name or number). Throws
    // ToolError(kUsage) listing the presets. [any]
    static const PresetInfo& findPreset(const std::vector<PresetInfo>& presets,
                                        const std::string& text);
    // A --ramp request as frames at `rate`: at least one frame long, and times
    // beyond what a file can hold held at that far frame. [any]
    static Ramp rampFor(const RampSpec& request, const ParameterDescription& parameter,
                        double rate);

private:
    void execute(const Options& options);
    void applySettings(PluginHost& host, const Options& options);
    void selectPreset(PluginHost& host, const std::string& preset);
    void listPresets(PluginHost& host);
    void listParameters(PluginHost& host);
    void render(PluginHost& host, AudioSource& source, const Options& options);
    void warn(const std::string& message);

    std::FILE* mOut;
    std::FILE* mErr;
    bool mQuiet = false;
};
