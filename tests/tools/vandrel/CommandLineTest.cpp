#include "CommandLine.h"
#include "ToolError.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace {

Options parse(std::initializer_list<const char*> args)
{
    std::vector<const char*> argv{"vandrel"};
    argv.insert(argv.end(), args.begin(), args.end());
    return CommandLine::parse(static_cast<int>(argv.size()), argv.data());
}

// The message of the usage error that parsing these arguments raises.
std::string usageErrorOf(std::initializer_list<const char*> args)
{
    try {
        parse(args);
    } catch (const ToolError& error) {
        EXPECT_EQ(error.status(), ExitStatus::kUsage);
        return error.what();
    }
    ADD_FAILURE() << "no error raised";
    return "";
}

TEST(CommandLineTest, ReadsEveryOptionInLongShortAndInlineForms)
{
    const Options options = parse({"in.flac",      "-o",
                                   "out.wav",      "--preset=Phaser 2",
                                   "-s",           "Wet out=-6",
                                   "--set",        "effect=1",
                                   "-r",           "Modulation rate:0.5:10:0:4s",
                                   "--block-size", "64",
                                   "-t",           "500ms",
                                   "--bypass",     "-q",
                                   "--load-state", "a.aupreset",
                                   "-S",           "b.aupreset",
                                   "--plugin",     "/x/V.component"});
    EXPECT_EQ(options.inputPath, "in.flac");
    EXPECT_EQ(options.outputPath, "out.wav");
    EXPECT_EQ(options.preset, "Phaser 2");
    ASSERT_EQ(options.settings.size(), 2u);
    EXPECT_EQ(options.settings[0].name, "Wet out");
    EXPECT_EQ(options.settings[0].value, "-6");
    EXPECT_EQ(options.settings[1].name, "effect");
    ASSERT_EQ(options.ramps.size(), 1u);
    EXPECT_EQ(options.ramps[0].name, "Modulation rate");
    EXPECT_DOUBLE_EQ(options.ramps[0].endSeconds, 4.0);
    EXPECT_EQ(options.blockSize, 64u);
    EXPECT_DOUBLE_EQ(options.tailSeconds, 0.5);
    EXPECT_TRUE(options.bypass);
    EXPECT_TRUE(options.quiet);
    EXPECT_EQ(options.loadStatePath, "a.aupreset");
    EXPECT_EQ(options.saveStatePath, "b.aupreset");
    EXPECT_EQ(options.pluginPath, "/x/V.component");
}

TEST(CommandLineTest, FileNamesArePositionalOrOptional)
{
    Options options = parse({"in.wav", "out.wav"});
    EXPECT_EQ(options.inputPath, "in.wav");
    EXPECT_EQ(options.outputPath, "out.wav");

    options = parse({"-o", "demo.wav"});
    EXPECT_TRUE(options.inputPath.empty()) << "no input means the demonstration signal";
    EXPECT_EQ(options.outputPath, "demo.wav");
    EXPECT_EQ(options.blockSize, 512u);

    options = parse({"--list-presets", "-L"});
    EXPECT_TRUE(options.listPresets);
    EXPECT_TRUE(options.listParameters);
    EXPECT_TRUE(options.outputPath.empty());

    options = parse({"-o", "x.wav", "--", "-odd-name.wav"});
    EXPECT_EQ(options.inputPath, "-odd-name.wav");
}

TEST(CommandLineTest, BadArgumentsNameTheProblem)
{
    struct Case
    {
        std::initializer_list<const char*> args;
        const char* mentioned;
    };
    const Case cases[] = {
        {{"--frobnicate"}, "--frobnicate"},
        {{"-o"}, "needs a value"},
        {{"in.wav"}, "No output file for 'in.wav'"},
        {{"a.wav", "b.wav", "c.wav"}, "'c.wav'"},
        {{"a.wav", "b.wav", "-o", "c.wav"}, "Two output files"},
        {{"--quiet=yes"}, "takes no value"},
        {{"-o", "x.wav", "-b", "0"}, "'0'"},
        {{"-o", "x.wav", "-b", "1.5"}, "whole number"},
        {{"-o", "x.wav", "-b", "16385"}, "16384"},
        {{"-o", "x.wav", "-t", "-1"}, "'-1'"},
        {{"-o", "x.wav", "-t", "2 s"}, "'2 s'"},
        {{"-o", "x.wav", "-s", "Wet out"}, "NAME=VALUE"},
        {{"-o", "x.wav", "-s", "=3"}, "NAME=VALUE"},
        {{"-o", "x.wav", "-r", "Wet out:0:1:2"}, "NAME:FROM:TO:START:END"},
        {{"-o", "x.wav", "-r", ":0:1:2:3"}, "names no parameter"},
        {{"-o", "x.wav", "-r", "Wet out:low:1:0:3"}, "FROM and TO"},
        {{"-o", "x.wav", "-r", "Wet out:0:1:0:3h"}, "START and END"},
        {{"-o", "x.wav", "-r", "Wet out:0:1:3:3"}, "END must come after START"},
        {{"-r", "Wet out:0:1:0:3"}, "needs an output file"},
    };
    for (const Case& c : cases) {
        const std::string message = usageErrorOf(c.args);
        EXPECT_NE(message.find(c.mentioned), std::string::npos) << message;
        EXPECT_NE(message.find("--help"), std::string::npos) << "points to the help: " << message;
    }
}

TEST(CommandLineTest, RampTimesTakeSecondsOrMillisecondsAndNamesMayHoldColons)
{
    RampSpec ramp = CommandLine::parseRamp("Wet out:-80:0:250ms:2");
    EXPECT_EQ(ramp.name, "Wet out");
    EXPECT_DOUBLE_EQ(ramp.from, -80.0);
    EXPECT_DOUBLE_EQ(ramp.to, 0.0);
    EXPECT_DOUBLE_EQ(ramp.startSeconds, 0.25);
    EXPECT_DOUBLE_EQ(ramp.endSeconds, 2.0);

    ramp = CommandLine::parseRamp("odd:name:1e-3:2.5:0s:1.5s");
    EXPECT_EQ(ramp.name, "odd:name");
    EXPECT_DOUBLE_EQ(ramp.from, 0.001);
    EXPECT_DOUBLE_EQ(ramp.endSeconds, 1.5);

    double seconds = -1.0;
    EXPECT_TRUE(CommandLine::parseSeconds("0", seconds));
    EXPECT_EQ(seconds, 0.0);
    EXPECT_FALSE(CommandLine::parseSeconds("s", seconds));
    EXPECT_FALSE(CommandLine::parseSeconds("ms", seconds));
    EXPECT_FALSE(CommandLine::parseSeconds("1e999", seconds));
    EXPECT_FALSE(CommandLine::parseSeconds("nan", seconds));
}

} // namespace
