// The vandrel program run as a user runs it, on files it reads and writes,
// with the plug-in bundle this build assembled. Its output is checked against
// the modulation engine run directly with the same parameter values.
#include "VandrelEngine.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <iterator>
#include <string>
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

// One seven-parameter setting, in parameter order 0 to 6.
using Setting = std::vector<float>;

// The engine run directly as the unit runs it: begun on the first block,
// re-cooked before every later one, over blocks of `block` frames.
Audio engineOutput(const Audio& input, const Setting& p, unsigned block)
{
    _transform_props props{};
    // The unit's mapping of parameter values to engine properties.
    props.lDryOut = static_cast<std::int64_t>(static_cast<double>(p[0]) * 10.0);
    props.lWetOut = static_cast<std::int64_t>(static_cast<double>(p[1]) * 10.0);
    props.lEffect = p[2] < 1.0f ? 0 : (p[2] < 2.0f ? 1 : 2);
    props.lModRate = static_cast<std::int64_t>(static_cast<double>(p[3]) * 1000.0);
    props.lModDepth = static_cast<std::int64_t>(p[4]);
    props.lCenterFreq = static_cast<std::int64_t>(p[5]);
    props.lResonance = static_cast<std::int64_t>(p[6]);
    Audio output = input;
    CVandrelEngine engine;
    for (size_t start = 0; start < output.frames(); start += block) {
        if (start == 0)
            engine.TransformBegin(static_cast<int>(output.channels.size()), output.rate, props);
        else
            engine.TransformCookProperties(props, TRANSFORM_CONTINUE);
        std::vector<float*> pointers;
        for (auto& channel : output.channels)
            pointers.push_back(channel.data() + start);
        unsigned frames = static_cast<unsigned>(std::min<size_t>(block, output.frames() - start));
        engine.TransformFloat(TRANSFORM_CONTINUE, pointers.data(),
                              static_cast<unsigned>(pointers.size()), frames, false);
    }
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
    void TearDown() override
    {
        for (const std::string& name : entries())
            unlink(path(name).c_str());
        rmdir(mFolder.c_str());
    }

    std::string path(const std::string& name) const { return mFolder + "/" + name; }

    std::vector<std::string> entries() const
    {
        std::vector<std::string> names;
        DIR* dir = opendir(mFolder.c_str());
        while (dirent* entry = readdir(dir))
            if (std::string(entry->d_name) != "." && std::string(entry->d_name) != "..")
                names.push_back(entry->d_name);
        closedir(dir);
        std::sort(names.begin(), names.end());
        return names;
    }

    RunResult run(const std::vector<std::string>& args) const
    {
        std::string command = quoted(VANDREL_PROGRAM);
        for (const std::string& arg : args)
            command += " " + quoted(arg);
        const std::string out = mFolder + "/.stdout";
        const std::string err = mFolder + "/.stderr";
        const int raw = std::system((command + " >" + out + " 2>" + err + " </dev/null").c_str());
        RunResult result{WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, readText(out), readText(err)};
        unlink(out.c_str());
        unlink(err.c_str());
        return result;
    }

    // Writes a test sound: a different sawtooth per channel plus a little
    // deterministic noise, so every effect changes it audibly.
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
        audio.channels.assign(info.channels, std::vector<float>(info.frames));
        for (sf_count_t i = 0; i < info.frames; ++i)
            for (int c = 0; c < info.channels; ++c)
                audio.channels[c][i] = interleaved[i * info.channels + c];
        return audio;
    }

    // A failed run leaves nothing beside the files that were there before.
    void expectFailure(const std::vector<std::string>& args, int status,
                       const std::string& mentioned)
    {
        const std::vector<std::string> before = entries();
        const RunResult result = run(args);
        EXPECT_EQ(result.status, status) << result.err;
        EXPECT_NE(result.err.find(mentioned), std::string::npos) << "message: " << result.err;
        EXPECT_EQ(result.err.rfind("vandrel: ", 0), 0u) << result.err;
        EXPECT_TRUE(result.out.empty()) << result.out;
        EXPECT_EQ(entries(), before) << "files left behind by: " << result.err;
    }

    std::string mFolder;
};

struct PresetCase
{
    const char* preset;
    Setting values; // the preset's parameter values
    unsigned channels;
    int rate;
    const char* extraSetting; // a --set on top of the preset, or null
    unsigned block;
};

void PrintTo(const PresetCase& c, std::ostream* os)
{
    *os << c.preset << " " << c.channels << "ch " << c.rate;
}

class VandrelPresetTest : public VandrelProgramTest,
                          public ::testing::WithParamInterface<PresetCase>
{
};

TEST_P(VandrelPresetTest, OutputEqualsTheEngineRunWithThePresetValues)
{
    const PresetCase& c = GetParam();
    writeInput("in.wav", c.channels, c.rate, static_cast<size_t>(c.rate * 0.75));
    std::vector<std::string> args{path("in.wav"), "-o", path("out.wav"),        "-p",
                                  c.preset,       "-b", std::to_string(c.block)};
    Setting values = c.values;
    if (c.extraSetting != nullptr) {
        args.insert(args.end(), {"--set", c.extraSetting});
        values[5] = 2500.0f;
    }
    const RunResult result = run(args);
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(result.err.empty()) << result.err;

    const Audio input = readAudio("in.wav");
    const Audio output = readAudio("out.wav");
    ASSERT_EQ(output.rate, c.rate);
    ASSERT_EQ(output.channels.size(), c.channels);
    ASSERT_EQ(output.frames(), input.frames());
    const Audio expected = engineOutput(input, values, c.block);
    size_t changed = 0;
    for (unsigned ch = 0; ch < c.channels; ++ch)
        for (size_t i = 0; i < output.frames(); ++i) {
            ASSERT_EQ(output.channels[ch][i], expected.channels[ch][i])
                << "channel " << ch << " frame " << i;
            changed += output.channels[ch][i] != input.channels[ch][i];
        }
    EXPECT_GT(changed, output.frames() / 2) << "the effect changed the sound";
}

INSTANTIATE_TEST_SUITE_P(
    Presets, VandrelPresetTest,
    ::testing::Values(
        PresetCase{"Flange - 1 Hz", {-5, -6, 0, 1, 85, 100, 1}, 2, 44100, nullptr, 512},
        PresetCase{"phaser 2", {-80, 0, 1, 4.5f, 50, 1000, 50}, 1, 48000, nullptr, 256},
        PresetCase{"10", {-15, 0, 2, 0.2f, 50, 500, 100}, 5, 22050, nullptr, 1000},
        PresetCase{"Warble 2", {-5, -5, 0, 20, 20, 100, 1}, 2, 96000, nullptr, 64},
        PresetCase{
            "Wah-Wah 1", {-80, 0, 2, 1, 50, 1000, 50}, 2, 44100, "center frequency=2500", 512}));

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
    EXPECT_EQ(readAudio("second.wav").channels, readAudio("first.wav").channels);
    EXPECT_EQ(readAudio("second.wav").channels,
              engineOutput(readAudio("in.wav"), {-10, 0, 2, 3.5f, 50, 1000, 80}, 512).channels);

    // A state needs no output file, and later options override it.
    result = run({"-l", path("mine.aupreset"), "-s", "resonance=20", "-L"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("Modulation rate"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find(" 3.5\n"), std::string::npos)
        << "rate from the state: " << result.out;
    EXPECT_NE(result.out.find(" 20\n"), std::string::npos)
        << "resonance from --set: " << result.out;
}

TEST_F(VandrelProgramTest, RampsChangeParametersOnTheirExactFrames)
{
    // Wet muted, dry ramped up from silence over [0.5 s, 1 s): the output is
    // the input times a gain that is 0 before the ramp and 1 after it.
    writeInput("in.wav", 1, 48000, 72000);
    const RunResult result = run({path("in.wav"), "-o", path("out.wav"), "-s", "wet out=-80", "-r",
                                  "Dry out:-80:0:0.5s:1000ms"});
    ASSERT_EQ(result.status, 0) << result.err;
    const Audio input = readAudio("in.wav");
    const Audio output = readAudio("out.wav");
    ASSERT_EQ(output.frames(), input.frames());
    for (size_t i = 0; i < 24000; ++i)
        ASSERT_EQ(output.channels[0][i], 0.0f) << "before the ramp, frame " << i;
    double previousGain = 0.0;
    for (size_t i = 24000; i < 48000; ++i) {
        if (std::fabs(input.channels[0][i]) < 0.05f)
            continue;
        const double gain = output.channels[0][i] / input.channels[0][i];
        ASSERT_GE(gain, previousGain - 1e-6) << "the gain only rises, frame " << i;
        previousGain = gain;
    }
    EXPECT_NE(output.channels[0][24100], 0.0f) << "the ramp is under way a hundred frames in";
    for (size_t i = 48000; i < output.frames(); ++i)
        ASSERT_EQ(output.channels[0][i], input.channels[0][i]) << "after the ramp, frame " << i;

    // The same automation in other block sizes (on the ramp's step grid)
    // sounds the same.
    ASSERT_EQ(run({path("in.wav"), "-o", path("out64.wav"), "-b", "64", "-s", "wet out=-80", "-r",
                   "Dry out:-80:0:0.5s:1000ms"})
                  .status,
              0);
    EXPECT_EQ(readAudio("out64.wav").channels, output.channels);
}

TEST_F(VandrelProgramTest, BypassTailAndDemonstrationSound)
{
    writeInput("in.flac", 3, 32000, 10000, SF_FORMAT_FLAC | SF_FORMAT_PCM_24);
    RunResult result = run({path("in.flac"), path("through.aiff"), "--bypass", "-p", "Phaser 1"});
    ASSERT_EQ(result.status, 0) << result.err;
    const Audio input = readAudio("in.flac");
    const Audio through = readAudio("through.aiff");
    EXPECT_EQ(through.rate, 32000);
    EXPECT_EQ(through.channels, input.channels) << "bypass passes the input unchanged";

    result =
        run({path("in.flac"), "-o", path("tail.wav"), "-p", "Flange - slow 2", "--tail", "250ms"});
    ASSERT_EQ(result.status, 0) << result.err;
    const Audio tail = readAudio("tail.wav");
    ASSERT_EQ(tail.frames(), input.frames() + 8000);
    double ringing = 0.0;
    for (size_t i = input.frames(); i < input.frames() + 400; ++i)
        ringing += std::fabs(tail.channels[0][i]);
    EXPECT_GT(ringing, 0.0) << "the delay line rings into the tail";

    result = run({"-q", "-o", path("demo.wav")});
    ASSERT_EQ(result.status, 0) << result.err;
    const Audio demo = readAudio("demo.wav");
    EXPECT_EQ(demo.rate, 44100);
    EXPECT_EQ(demo.channels.size(), 2u);
    EXPECT_EQ(demo.frames(), 8u * 44100u);
}

TEST_F(VandrelProgramTest, ListsComeFromThePlugIn)
{
    RunResult result = run({"--list-presets"});
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

    result = run({"-L", "-p", "Phaser 3"});
    ASSERT_EQ(result.status, 0) << result.err;
    for (const char* line :
         {"Dry out", "dB", "-80 to 12", "Modulation rate", "0.001 to 20", "Center frequency"})
        EXPECT_NE(result.out.find(line), std::string::npos) << line << " in " << result.out;
    EXPECT_NE(result.out.find("2000\n"), std::string::npos)
        << "current values follow the preset: " << result.out;
}

TEST_F(VandrelProgramTest, ValuesOutsideTheRangeAreUsedWithAWarning)
{
    writeInput("in.wav", 1, 8000, 800);
    RunResult result = run({path("in.wav"), "-o", path("out.wav"), "-s", "Modulation rate=50"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.err.find("warning: Modulation rate 50 is outside its range 0.001 to 20 Hz"),
              std::string::npos)
        << result.err;
    result = run({path("in.wav"), "-o", path("out.wav"), "-s", "Modulation rate=50", "--quiet"});
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.err.empty()) << result.err;
}

TEST_F(VandrelProgramTest, MistakesGiveAClearMessageAStatusAndNoOutputFile)
{
    writeInput("in.wav", 2, 44100, 4000);
    const std::string out = path("out.wav");
    expectFailure({}, 2, "Nothing to do");
    expectFailure({path("in.wav"), "-o", out, "--speed", "2"}, 2, "Unknown option '--speed'");
    expectFailure({path("in.wav"), "-o", out, "-p", "Chorus 1"}, 2, "Unknown preset 'Chorus 1'");
    expectFailure({path("in.wav"), "-o", out, "-p", "15"}, 2, "14  Warble 2");
    expectFailure({path("in.wav"), "-o", out, "-s", "feedback=3"}, 2,
                  "Unknown parameter 'feedback'");
    expectFailure({path("in.wav"), "-o", out, "-r", "depth:1:2:0:1"}, 2,
                  "Unknown parameter 'depth'");
    expectFailure({path("in.wav"), "-o", path("out.mp4")}, 2, "out.mp4");
    expectFailure({path("missing.wav"), "-o", out}, 3, "missing.wav");
    expectFailure({path("in.wav"), "-o", path("no/folder/out.wav")}, 4, "no/folder/out.wav");
    expectFailure({"-p", "1", "-S", path("no/folder/x.aupreset")}, 4, "no/folder/x.aupreset");
    expectFailure({path("in.wav"), "-o", out, "--plugin", path("Nowhere.component")}, 5,
                  "Nowhere.component");
    expectFailure({path("in.wav"), "-o", out, "--plugin", mFolder}, 5, "neither a plug-in bundle");

    std::ofstream(path("notes.txt")) << "not audio\n";
    expectFailure({path("notes.txt"), "-o", out}, 3, "notes.txt");
    expectFailure({path("in.wav"), "-o", out, "-l", path("notes.txt")}, 3,
                  "not a saved plug-in state");
    std::ofstream(path("other.aupreset")) << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist "
                                             "version=\"1.0\"><dict><key>version</key>"
                                             "<integer>0</integer><key>subtype</key><integer>1</"
                                             "integer><key>manufacturer</key><integer>2</integer>"
                                             "</dict></plist>\n";
    expectFailure({path("in.wav"), "-o", out, "-l", path("other.aupreset")}, 3,
                  "refused the state");

    writeInput("wide.wav", 33, 8000, 100);
    expectFailure({path("wide.wav"), "-o", out}, 6, "33 channels");

    // An existing file under the output name stays as it was when a run fails.
    std::ofstream(out) << "precious";
    expectFailure({path("in.wav"), "-o", out, "-r", "nothing:0:1:0:1"}, 2,
                  "Unknown parameter 'nothing'");
    EXPECT_EQ(readText(out), "precious");
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
