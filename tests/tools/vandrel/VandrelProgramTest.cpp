// The vandrel program run as a user runs it, on files it reads and writes, with the plug-in
// bundle this build assembled. Its output is checked against the reference model of the
// modulation chain run with the same parameter values, its exit statuses and messages against
// what the manual promises.
#include "VandrelTestHost.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

struct RunResult
{
    int status;
    std::string out;
    std::string err;
};

struct Audio
{
    int rate = 0;
    int format = 0;
    std::vector<std::vector<float>> channels;
    size_t frames() const { return channels.empty() ? 0 : channels[0].size(); }
};

std::string quoted(const std::string& text)
{
    std::string result = "'";
    for (char c : text)
        result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
}

std::string readText(const std::string& path)
{
    std::ifstream file(path);
    return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

using vandrel_test::Params;

// The reference chain run over a file's audio as the unit runs the engine, in blocks.
Audio referenceOutput(const Audio& input, const Params& values, unsigned block)
{
    Audio output{input.rate, input.format, {}};
    vandrel_test::ReferenceStream stream(
        static_cast<UInt32>(input.channels.size()), input.rate, 0,
        [&input](UInt32 c, std::int64_t frame) { return input.channels[c][size_t(frame)]; });
    for (size_t start = 0; start < input.frames(); start += block)
        stream.Process(values, unsigned(std::min<size_t>(block, input.frames() - start)),
                       output.channels);
    return output;
}

class VandrelProgramTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/vandrel-program-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        mFolder = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(mFolder); }

    std::string path(const std::string& name) const { return mFolder + "/" + name; }

    std::vector<std::string> entries() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(mFolder))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }

    RunResult run(const std::vector<std::string>& args) const
    {
        std::string command = quoted(VANDREL_PROGRAM);
        for (const std::string& arg : args)
            command += " " + quoted(arg);
        const std::string out = "/tmp/" + std::to_string(getpid()) + "-vandrel.stdout";
        const std::string err = "/tmp/" + std::to_string(getpid()) + "-vandrel.stderr";
        const int raw = std::system((command + " >" + out + " 2>" + err + " </dev/null").c_str());
        RunResult result{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, readText(out), readText(err)};
        unlink(out.c_str());
        unlink(err.c_str());
        return result;
    }

    // Writes a test sound: a different sawtooth per channel plus a little deterministic
    // noise, so every effect changes it audibly.
    void writeInput(const std::string& name, unsigned channels, int rate, size_t frames,
                    int format = SF_FORMAT_WAV | SF_FORMAT_FLOAT) const
    {
        SF_INFO info{};
        info.channels = static_cast<int>(channels);
        info.samplerate = rate;
        info.format = format;
        SNDFILE* file = sf_open(path(name).c_str(), SFM_WRITE, &info);
        ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
        std::vector<float> interleaved(frames * channels);
        uint32_t noise = 12345;
        for (size_t i = 0; i < frames; ++i)
            for (unsigned c = 0; c < channels; ++c) {
                noise = noise * 1664525u + 1013904223u;
                const double phase = std::fmod(i * (110.0 + 55.0 * c) / rate, 1.0);
                interleaved[i * channels + c] =
                    static_cast<float>(0.4 * (2.0 * phase - 1.0) +
                                       0.05 * (static_cast<double>(noise) / 4294967296.0 - 0.5));
            }
        sf_writef_float(file, interleaved.data(), static_cast<sf_count_t>(frames));
        sf_close(file);
    }

    Audio readAudio(const std::string& name) const
    {
        SF_INFO info{};
        SNDFILE* file = sf_open(path(name).c_str(), SFM_READ, &info);
        Audio audio;
        EXPECT_NE(file, nullptr) << name << ": " << sf_strerror(nullptr);
        if (file == nullptr)
            return audio;
        std::vector<float> interleaved(static_cast<size_t>(info.frames * info.channels));
        sf_readf_float(file, interleaved.data(), info.frames);
        sf_close(file);
        audio.rate = info.samplerate;
        audio.format = info.format;
        audio.channels.assign(info.channels, std::vector<float>(info.frames));
        for (sf_count_t i = 0; i < info.frames; ++i)
            for (int c = 0; c < info.channels; ++c)
                audio.channels[c][i] = interleaved[i * info.channels + c];
        return audio;
    }

    // A failed run prints one message naming the problem and leaves nothing beside the files
    // that were there before.
    void expectFailure(const std::vector<std::string>& args, int status,
                       const std::string& mentioned)
    {
        const std::vector<std::string> before = entries();
        const RunResult result = run(args);
        EXPECT_EQ(result.status, status) << result.err;
        EXPECT_NE(result.err.find(mentioned), std::string::npos) << "message: " << result.err;
        EXPECT_EQ(result.err.rfind("vandrel: ", 0), 0u) << result.err;
        EXPECT_EQ(result.err.find(".."), std::string::npos) << "one closing period: " << result.err;
        EXPECT_TRUE(result.out.empty()) << result.out;
        EXPECT_EQ(entries(), before) << "files left behind by: " << result.err;
    }

    std::string mFolder;
};

struct PresetCase
{
    unsigned channels;
    int rate;
    unsigned block;
    Params values;                    // the parameter values the options give
    std::vector<std::string> options; // preset and settings, by name or number
};

class VandrelPresetTest : public VandrelProgramTest,
                          public ::testing::WithParamInterface<PresetCase>
{
};

TEST_P(VandrelPresetTest, OutputEqualsTheReferenceRunWithThePresetValues)
{
    const PresetCase& c = GetParam();
    writeInput("in.wav", c.channels, c.rate, static_cast<size_t>(c.rate * 0.75));
    std::vector<std::string> args{path("in.wav"), "-o", path("out.wav")};
    args.insert(args.end(), c.options.begin(), c.options.end());
    const RunResult result = run(args);
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(result.err.empty()) << result.err;
    const Audio output = readAudio("out.wav");
    EXPECT_EQ(output.rate, c.rate);
    EXPECT_TRUE(vandrel_test::SameAudio(
        referenceOutput(readAudio("in.wav"), c.values, c.block).channels, output.channels));
}

INSTANTIATE_TEST_SUITE_P(
    Presets, VandrelPresetTest,
    ::testing::Values(
        PresetCase{2, 44100, 512, {-5, -6, 0, 1, 85, 100, 1}, {"-p", "Flange - 1 Hz"}},
        PresetCase{1,
                   48000,
                   256,
                   {-80, 0, 1, 3, 50, 1000, 50},
                   {"--preset=phaser 2", "--set", "MODULATION-RATE=3", "-b", "256"}},
        PresetCase{5,
                   22050,
                   1000,
                   {-15, 0, 2, 0.5f, 50, 2500, 70},
                   {"-p", "10", "--block-size=1000", "--set=center frequency=2500", "-s", "3=0.5",
                    "-s", "ResoNance=70"}}));

TEST_F(VandrelProgramTest, SavedStateReloadedGivesTheSameOutput)
{
    writeInput("in.wav", 2, 44100, 30000);
    RunResult result =
        run({path("in.wav"), "-o", path("first.wav"), "-p", "Wah-Wah 2", "-s", "Dry out=-10", "-s",
             "modulation rate=3.5", "-S", path("mine.aupreset")});
    ASSERT_EQ(result.status, 0) << result.err;
    const std::string state = readText(path("mine.aupreset"));
    EXPECT_EQ(state.rfind("<?xml", 0), 0u) << "an XML property list";
    EXPECT_NE(state.find("<key>data</key>"), std::string::npos) << state;

    result = run({path("in.wav"), "-o", path("second.wav"), "-l", path("mine.aupreset")});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(readAudio("second.wav").channels,
              referenceOutput(readAudio("in.wav"), {-10, 0, 2, 3.5f, 50, 1000, 80}, 512).channels);

    // A state needs no output file, and later options override it.
    result = run({"-l", path("mine.aupreset"), "-s", "resonance=20", "-L"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find(" 3.5\n"), std::string::npos)
        << "rate from the state: " << result.out;
    EXPECT_NE(result.out.find(" 20\n"), std::string::npos)
        << "resonance from --set: " << result.out;
}

// Wet muted and dry automated: each output sample is the input times the dry ratio of the
// value on the ramps' line at the start of its 32-frame piece (before the first ramp its start
// value, between ramps the last end value), whatever block size splits the stream.
TEST_F(VandrelProgramTest, RampsFollowTheirLineOnExactFrames)
{
    writeInput("in.wav", 1, 48000, 60000);
    const Audio input = readAudio("in.wav");
    auto dryAt = [](size_t frame) -> double {
        double from = -80.0, to = 0.0, start = 12000.0, end = 24000.0;
        if (frame >= 36000) {
            from = -20.0, to = -6.0, start = 36000.0, end = 48000.0;
        }
        const double piece = std::floor((frame - start) / 32.0) * 32.0 + start;
        const float value =
            frame < start ? static_cast<float>(from)
            : frame >= end
                ? static_cast<float>(to)
                : static_cast<float>(from + (to - from) * ((piece - start) / (end - start)));
        const auto tenths = static_cast<int64_t>(static_cast<double>(value) * 10.0);
        return tenths <= -800 ? 0.0 : std::pow(10.0, tenths / 200.0);
    };
    for (const char* block : {"512", "64", "96"}) {
        SCOPED_TRACE(std::string("block ") + block);
        const RunResult result =
            run({path("in.wav"), "-o", path("out.wav"), "-b", block, "-s", "wet out=-80", "-r",
                 "Dry out:-80:0:0.25s:500ms", "--ramp", "dry OUT:-20:-6:0.75:1s"});
        ASSERT_EQ(result.status, 0) << result.err;
        const Audio output = readAudio("out.wav");
        ASSERT_EQ(output.frames(), input.frames());
        for (size_t i = 0; i < output.frames(); ++i)
            ASSERT_EQ(output.channels[0][i],
                      static_cast<float>(static_cast<double>(input.channels[0][i]) * dryAt(i)))
                << "frame " << i;
    }
}

TEST_F(VandrelProgramTest, BypassTailFormatsAndTheDemonstrationSound)
{
    writeInput("in.flac", 3, 32000, 10000, SF_FORMAT_FLAC | SF_FORMAT_PCM_24);
    RunResult result = run({path("in.flac"), path("through.aiff"), "--bypass", "-p", "Phaser 1"});
    ASSERT_EQ(result.status, 0) << result.err;
    const Audio input = readAudio("in.flac");
    const Audio through = readAudio("through.aiff");
    EXPECT_EQ(through.rate, 32000);
    EXPECT_EQ(through.channels, input.channels) << "bypass passes the input unchanged";
    writeInput("many.wav", 32, 8000, 64);
    EXPECT_EQ(run({path("many.wav"), "-o", path("many-out.wav")}).status, 0)
        << "32 channels, the most the plug-in takes";

    result =
        run({path("in.flac"), "-o", path("tail.wav"), "-p", "Flange - slow 2", "--tail", "250ms"});
    ASSERT_EQ(result.status, 0) << result.err;
    const Audio tail = readAudio("tail.wav");
    ASSERT_EQ(tail.frames(), input.frames() + 8000);
    Audio padded = input;
    for (auto& channel : padded.channels)
        channel.resize(channel.size() + 8000, 0.0f);
    EXPECT_EQ(tail.channels,
              referenceOutput(padded, {-2.5f, -2.5f, 0, 0.5f, 85, 100, 1}, 512).channels)
        << "the delay line rings into the tail";

    // The extension picks the format: float where the container holds it.
    const std::pair<const char*, int> formats[] = {{"A.WAV", SF_FORMAT_WAV | SF_FORMAT_FLOAT},
                                                   {"noextension", SF_FORMAT_WAV | SF_FORMAT_FLOAT},
                                                   {"x.aif", SF_FORMAT_AIFF | SF_FORMAT_FLOAT},
                                                   {"x.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
                                                   {"x.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS}};
    for (const auto& [name, format] : formats) {
        ASSERT_EQ(run({path("in.flac"), path(name), "--bypass"}).status, 0) << name;
        EXPECT_EQ(readAudio(name).format, format) << name;
    }

    // Without an input, eight seconds of the stereo demonstration sound at 44.1 kHz, peaking at
    // 0.5, the same whatever the block size.
    ASSERT_EQ(run({"-q", "--bypass", "-o", path("demo.wav")}).status, 0);
    ASSERT_EQ(run({"-q", "--bypass", "-b", "777", "-o", path("demo777.wav")}).status, 0);
    const Audio demo = readAudio("demo.wav");
    EXPECT_EQ(demo.rate, 44100);
    ASSERT_EQ(demo.channels.size(), 2u);
    ASSERT_EQ(demo.frames(), 8u * 44100u);
    EXPECT_EQ(demo.channels, readAudio("demo777.wav").channels);
    const double rms[2] = {0.0835012391, 0.0836868839};
    const float samples[2][2] = {{-0.230272204f, 0.0693735778f}, {-0.214153558f, 0.000481329713f}};
    float peak = 0.0f;
    for (int c = 0; c < 2; ++c) {
        double energy = 0.0;
        for (float sample : demo.channels[c]) {
            energy += sample * sample;
            peak = std::max(peak, std::fabs(sample));
        }
        EXPECT_NEAR(rms[c], std::sqrt(energy / demo.frames()), 1e-7) << "channel " << c;
        EXPECT_NEAR(samples[c][0], demo.channels[c][1000], 1e-6);
        EXPECT_NEAR(samples[c][1], demo.channels[c][300000], 1e-6);
    }
    EXPECT_FLOAT_EQ(0.5f, peak);
}

TEST_F(VandrelProgramTest, ListsComeFromThePlugInWithRangeWarnings)
{
    RunResult result = run({"--help"});
    EXPECT_EQ(result.out.rfind("Usage: vandrel", 0), 0u) << result.err;
    result = run({"--list-presets"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("  0  Default\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find(" 14  Warble 2\n"), std::string::npos) << result.out;

    // The same plug-in named by its bundle, or by the folder holding it.
    const std::string bundle = VANDREL_BUNDLE_DIR;
    for (const std::string& plugin : {bundle, bundle.substr(0, bundle.rfind('/'))}) {
        result = run({"--plugin", plugin, "-P"});
        EXPECT_EQ(result.status, 0) << plugin << ": " << result.err;
        EXPECT_NE(result.out.find(" 14  Warble 2\n"), std::string::npos) << result.out;
    }

    result = run({"-L", "-p", "Phaser 3", "-s", "effect=2", "-s", "Modulation rate=50"});
    ASSERT_EQ(result.status, 0) << result.err;
    for (const char* line :
         {"  0  Dry out              dB     -80 to 12          -80       -80\n",
          "  2  Effect               index  0 to 2             0         2\n",
          "  3  Modulation rate      Hz     0.001 to 20        10        50\n",
          "  4  Modulation depth     %      1 to 100           10        50\n",
          "  5  Center frequency     Hz     100 to 5000        100       2000\n"})
        EXPECT_NE(result.out.find(line), std::string::npos) << line << " in " << result.out;
    EXPECT_EQ(result.err, "vandrel: warning: Modulation rate 50 is outside its range 0.001 to 20 "
                          "Hz; it is passed to the plug-in unchanged.\n");
    // The ends of a range are inside it; --quiet silences warnings.
    result = run({"-L", "-s", "Modulation rate=20", "-s", "modulation rate=0.001"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.err.empty()) << result.err;
    result = run({"-L", "-s", "Modulation rate=0", "--quiet"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.err.empty()) << result.err;
}

TEST_F(VandrelProgramTest, MistakesGiveAClearMessageAStatusAndNoOutputFile)
{
    writeInput("in.wav", 2, 44100, 4000);
    const std::string in = path("in.wav");
    const std::string out = path("out.wav");
    std::ofstream(path("notes.txt")) << "not audio\n";
    std::ofstream(path("other.aupreset"))
        << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict><key>"
           "version</key><integer>0</integer><key>subtype</key><integer>1</integer><key>"
           "manufacturer</key><integer>2</integer></dict></plist>\n";
    writeInput("wide.wav", 33, 8000, 100);
    struct Case
    {
        std::vector<std::string> args;
        int status;
        std::string mentioned;
    };
    const Case cases[] = {
        {{}, 2, "Nothing to do"},
        {{in, "-o", out, "--speed", "2"}, 2, "Unknown option '--speed'"},
        {{"-o"}, 2, "needs a value"},
        {{in}, 2, "No output file for '" + in + "'"},
        {{in, out, path("c.wav")}, 2, "'" + path("c.wav") + "' is one too many"},
        {{in, out, "-o", path("c.wav")}, 2, "Two output files"},
        {{"--quiet=yes"}, 2, "takes no value"},
        {{"-o", out, "--", "-odd.wav"}, 3, "-odd.wav"},
        {{in, "-o", out, "-b", "0"}, 2, "from 1 to 16384; got '0'"},
        {{in, "-o", out, "-b", "1.5"}, 2, "whole number"},
        {{in, "-o", out, "-t", "3601"}, 2, "'3601'"},
        {{in, "-o", out, "-t", "2 s"}, 2, "'2 s'"},
        {{in, "-o", out, "-t", "1e999"}, 2, "'1e999'"},
        {{in, "-o", out, "-t", "nan"}, 2, "'nan'"},
        {{in, "-o", out, "-s", "Wet out"}, 2, "NAME=VALUE"},
        {{in, "-o", out, "-s", "Wet out="}, 2, "NAME=VALUE"},
        {{in, "-o", out, "-s", "dry out=-6dB"}, 2, "'-6dB' is not a value for Dry out"},
        {{in, "-o", out, "-s", "feedback=3"}, 2, "Unknown parameter 'feedback'"},
        {{in, "-o", out, "-s", "7=3"}, 2, "Dry out, Wet out, Effect, Modulation rate"},
        {{in, "-o", out, "-r", "Wet out:0:1:2"}, 2, "NAME:FROM:TO:START:END"},
        {{in, "-o", out, "-r", ":0:1:2:3"}, 2, "names no parameter"},
        {{in, "-o", out, "-r", "Wet out:low:1:0:3"}, 2, "FROM and TO"},
        {{in, "-o", out, "-r", "Wet out:0:1:0:3h"}, 2, "START and END"},
        {{in, "-o", out, "-r", "Wet out:0:1:3:3"}, 2, "END must come after START"},
        {{"-r", "Wet out:0:1:0:3"}, 2, "needs an output file"},
        {{in, "-o", out, "-r", "depth:1:2:0:1"}, 2, "Unknown parameter 'depth'"},
        {{in, "-o", out, "-r", "wet out:0:1:0:1", "-r", "Wet out:0:1:0.5:2"}, 2, "overlap"},
        {{in, "-o", out, "-p", "Chorus 1"}, 2, "Unknown preset 'Chorus 1'"},
        {{in, "-o", out, "-p", "15"}, 2, "14  Warble 2"},
        {{in, "-o", path("out.mp4")}, 2, "out.mp4"},
        {{path("missing.wav"), "-o", out}, 3, "missing.wav"},
        {{path("notes.txt"), "-o", out}, 3, "notes.txt"},
        {{in, "-o", out, "-l", path("notes.txt")}, 3, "not a saved plug-in state"},
        {{in, "-o", out, "-l", path("none.aupreset")}, 3, "none.aupreset"},
        {{in, "-o", out, "-l", path("other.aupreset")}, 3, "refused the state"},
        {{"-l", "/dev/zero", "-L"}, 3, "too large for a saved plug-in state"},
        {{in, "-o", path("no/folder/out.wav")}, 4, "no/folder/out.wav"},
        {{in, "-o", mFolder}, 4, mFolder},
        {{"-p", "1", "-S", path("no/folder/x.aupreset")}, 4, "no/folder/x.aupreset"},
        {{in, "-o", out, "--plugin", path("Nowhere.component")}, 5, "Nowhere.component"},
        {{in, "-o", out, "--plugin", mFolder}, 5, "neither a plug-in bundle"},
        {{path("wide.wav"), "-o", out}, 6, "33 channels"},
        // Unstable settings: the output goes infinite or NaN, and no file is written.
        {{in, out, "-p", "Wah-Wah 1", "-t", "1", "-s", "center frequency=-500"},
         1,
         "Center frequency -500 Hz ("},
        {{in, out, "-s", "wet out=1e30"}, 1, "not a number at 0.000000 s with settings outside"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args.empty() ? "(no arguments)" : c.args.back());
        expectFailure(c.args, c.status, c.mentioned);
    }

    // An existing file under the output name stays as it was when a run fails.
    std::ofstream(out) << "precious";
    expectFailure({in, "-o", out, "-r", "nothing:0:1:0:1"}, 2, "Unknown parameter 'nothing'");
    EXPECT_EQ(readText(out), "precious");
}

// Links stay links, devices stay devices, and what cannot take an audio file is refused
// before anything is written.
TEST_F(VandrelProgramTest, OutputsThroughLinksDevicesAndPipes)
{
    writeInput("in.wav", 2, 8000, 3000);
    const std::string in = path("in.wav");
    std::ofstream(path("real.wav")) << "old";
    chmod(path("real.wav").c_str(), 0640);
    ASSERT_EQ(symlink("real.wav", path("link.wav").c_str()), 0);
    ASSERT_EQ(run({in, "-o", path("link.wav"), "--bypass"}).status, 0);
    struct stat status
    {
    };
    ASSERT_EQ(lstat(path("link.wav").c_str(), &status), 0);
    EXPECT_TRUE(S_ISLNK(status.st_mode)) << "the link was replaced";
    ASSERT_EQ(stat(path("real.wav").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0640u) << "the replaced file's permissions are kept";
    EXPECT_EQ(readAudio("real.wav").channels, readAudio("in.wav").channels);

    ASSERT_EQ(run({in, "-o", "/dev/null"}).status, 0);
    ASSERT_EQ(stat("/dev/null", &status), 0);
    EXPECT_TRUE(S_ISCHR(status.st_mode));
    ASSERT_EQ(symlink("gone.wav", path("dangling.wav").c_str()), 0);
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
    expectFailure({in, "-o", path("dangling.wav")}, 4, "symbolic link to a missing file");
    expectFailure({in, "-o", path("fifo")}, 4, "pipe or terminal");
    if (access("/dev/ptmx", W_OK) == 0) // a terminal device, which cannot seek
        expectFailure({in, "-o", "/dev/ptmx"}, 4, "pipe or terminal");
    // Both the writes of the samples and the header's last update hit the full device.
    expectFailure({in, "-o", "/dev/full"}, 4, "No space left on device");
    expectFailure({"-p", "1", "-S", "/dev/full"}, 4, "No space left on device");
    writeInput("long.wav", 2, 8000, 40000);
    expectFailure({path("long.wav"), "-o", "/dev/full"}, 4, "No space left on device");

    // A pipe as input is refused with a reason of its own.
    const std::string piped = "cat " + quoted(in) + " | " + quoted(VANDREL_PROGRAM) +
                              " /dev/stdin -o " + quoted(path("piped.wav")) + " 2>&1";
    std::FILE* output = popen(piped.c_str(), "r");
    ASSERT_NE(output, nullptr);
    char message[512] = {};
    const size_t length = std::fread(message, 1, sizeof message - 1, output);
    EXPECT_EQ(WEXITSTATUS(pclose(output)), 3);
    EXPECT_NE(std::string(message, length).find("it is a pipe or terminal"), std::string::npos)
        << message;
}

TEST_F(VandrelProgramTest, InterruptedRunLeavesNoPartialFile)
{
    writeInput("in.wav", 2, 8000, 800);
    // An hour of tail keeps the program rendering until it is interrupted.
    const std::string out = path("out.wav");
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        freopen("/dev/null", "w", stderr);
        execl(VANDREL_PROGRAM, VANDREL_PROGRAM, path("in.wav").c_str(), "-o", out.c_str(), "-t",
              "3600", nullptr);
        _exit(127);
    }
    // Wait until the temporary output exists, then press Ctrl-C.
    bool writing = false;
    for (int i = 0; i < 500 && !writing; ++i) {
        usleep(10000);
        for (const std::string& name : entries())
            writing = writing || name.find(".out.wav.") == 0;
    }
    EXPECT_TRUE(writing) << "the output is written under a temporary name";
    kill(child, SIGINT);
    int raw = 0;
    ASSERT_EQ(waitpid(child, &raw, 0), child);
    ASSERT_TRUE(WIFEXITED(raw));
    EXPECT_EQ(WEXITSTATUS(raw), 130);
    EXPECT_EQ(entries(), std::vector<std::string>{"in.wav"});
}

} // namespace
