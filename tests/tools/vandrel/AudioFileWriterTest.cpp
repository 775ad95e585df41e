#include "AudioFileReader.h"
#include "AudioFileWriter.h"
#include "ToolError.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <cmath>
#include <dirent.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

// A fresh empty folder per test, removed with its files afterwards.
class AudioFileWriterTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/vandrel-files-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        mFolder = pattern;
    }
    void TearDown() override
    {
        for (const std::string& name : entries())
            unlink((mFolder + "/" + name).c_str());
        rmdir(mFolder.c_str());
    }

    std::vector<std::string> entries() const
    {
        std::vector<std::string> names;
        DIR* dir = opendir(mFolder.c_str());
        while (dirent* entry = readdir(dir))
            if (std::string(entry->d_name) != "." && std::string(entry->d_name) != "..")
                names.push_back(entry->d_name);
        closedir(dir);
        return names;
    }

    std::string path(const std::string& name) const { return mFolder + "/" + name; }

    std::string mFolder;
};

// Channel c, frame i: a distinct value per sample, within [-1, 1).
float sampleAt(unsigned c, unsigned i)
{
    return std::sin(0.01f * i + c) * (0.9f - 0.1f * c);
}

void writeTestFile(const std::string& file, unsigned channels, unsigned frames, double rate)
{
    AudioFileWriter writer(file, channels, rate);
    std::vector<std::vector<float>> data(channels, std::vector<float>(frames));
    std::vector<const float*> pointers;
    for (unsigned c = 0; c < channels; ++c) {
        for (unsigned i = 0; i < frames; ++i)
            data[c][i] = sampleAt(c, i);
        pointers.push_back(data[c].data());
    }
    // Two writes of uneven size, as the render loop does near the end.
    writer.write(pointers.data(), frames / 3);
    for (const float*& p : pointers)
        p += frames / 3;
    writer.write(pointers.data(), frames - frames / 3);
    writer.commit();
}

TEST_F(AudioFileWriterTest, RoundTripKeepsChannelsRateAndSamples)
{
    struct Case
    {
        const char* name;
        double tolerance;
    };
    for (const Case& format :
         {Case{"float.wav", 0.0}, Case{"float.aiff", 0.0}, Case{"deep.flac", 1.0 / 8388608.0}}) {
        const unsigned channels = 3;
        const unsigned frames = 1000;
        writeTestFile(path(format.name), channels, frames, 48000.0);

        AudioFileReader reader(path(format.name));
        ASSERT_EQ(reader.channels(), channels) << format.name;
        EXPECT_EQ(reader.sampleRate(), 48000.0);
        ASSERT_EQ(reader.totalFrames(), frames);
        std::vector<std::vector<float>> data(channels, std::vector<float>(frames));
        std::vector<float*> pointers;
        for (auto& channel : data)
            pointers.push_back(channel.data());
        unsigned got = 0;
        // Blocks of 333 frames: the last read is short, the one after it empty.
        while (unsigned n = reader.read(pointers.data(), 333)) {
            got += n;
            for (float*& p : pointers)
                p += n;
        }
        ASSERT_EQ(got, frames);
        for (unsigned c = 0; c < channels; ++c)
            for (unsigned i = 0; i < frames; ++i)
                ASSERT_NEAR(data[c][i], sampleAt(c, i), format.tolerance)
                    << format.name << " " << c << " " << i;
    }
}

TEST_F(AudioFileWriterTest, ExtensionChoosesTheFormat)
{
    EXPECT_EQ(AudioFileWriter::formatForPath("a.wav", 2, 44100), SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    EXPECT_EQ(AudioFileWriter::formatForPath("A.WAV", 2, 44100), SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    EXPECT_EQ(AudioFileWriter::formatForPath("noextension", 2, 44100),
              SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    EXPECT_EQ(AudioFileWriter::formatForPath("dir.d/noextension", 2, 44100),
              SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    EXPECT_EQ(AudioFileWriter::formatForPath("a.aif", 1, 44100), SF_FORMAT_AIFF | SF_FORMAT_FLOAT);
    EXPECT_EQ(AudioFileWriter::formatForPath("a.flac", 2, 96000),
              SF_FORMAT_FLAC | SF_FORMAT_PCM_24);
    EXPECT_EQ(AudioFileWriter::formatForPath("a.ogg", 2, 44100), SF_FORMAT_OGG | SF_FORMAT_VORBIS);
    EXPECT_EQ(AudioFileWriter::formatForPath("a.mp4", 2, 44100), 0);
}

TEST_F(AudioFileWriterTest, NothingAppearsUnderTheNameUntilCommitAndFailuresLeaveNoFile)
{
    const std::string target = path("out.wav");
    {
        AudioFileWriter writer(target, 1, 8000.0);
        const float sample = 0.5f;
        const float* channel = &sample;
        writer.write(&channel, 1);
        EXPECT_EQ(access(target.c_str(), F_OK), -1)
            << "the name is free until the file is complete";
        EXPECT_EQ(entries().size(), 1u) << "one temporary file beside it";
    }
    EXPECT_TRUE(entries().empty()) << "an abandoned writer removes its temporary file";

    writeTestFile(target, 1, 10, 8000.0);
    ASSERT_EQ(entries(), std::vector<std::string>{"out.wav"});
    struct stat info
    {
    };
    ASSERT_EQ(stat(target.c_str(), &info), 0);
    const mode_t mask = umask(0);
    umask(mask);
    EXPECT_EQ(info.st_mode & 0777, 0666 & ~mask) << "permissions of an ordinary new file";

    try {
        AudioFileWriter writer(path("clip.mp4"), 1, 8000.0);
        ADD_FAILURE() << "unknown extension accepted";
    } catch (const ToolError& error) {
        EXPECT_EQ(error.status(), ExitStatus::kUsage);
        EXPECT_NE(std::string(error.what()).find(".flac"), std::string::npos)
            << "suggests formats: " << error.what();
    }
    EXPECT_EQ(entries(), std::vector<std::string>{"out.wav"});
}

TEST_F(AudioFileWriterTest, UnusableFilesRaiseErrorsNamingThem)
{
    auto statusOf = [](auto&& action) {
        try {
            action();
        } catch (const ToolError& error) {
            return error.status();
        }
        return ExitStatus::kSuccess;
    };
    const std::string missingFolder = path("no/such/folder/out.wav");
    EXPECT_EQ(statusOf([&] { AudioFileWriter(missingFolder, 2, 44100.0); }),
              ExitStatus::kOutputUnwritable);
    EXPECT_EQ(statusOf([&] { AudioFileWriter(mFolder, 2, 44100.0); }),
              ExitStatus::kOutputUnwritable)
        << "a folder is not an output file";
    EXPECT_EQ(statusOf([&] { AudioFileReader reader(path("missing.wav")); }),
              ExitStatus::kInputUnreadable);

    const std::string text = path("notes.wav");
    FILE* file = std::fopen(text.c_str(), "w");
    std::fputs("these are not samples\n", file);
    std::fclose(file);
    try {
        AudioFileReader reader(text);
        ADD_FAILURE() << "text accepted as audio";
    } catch (const ToolError& error) {
        EXPECT_EQ(error.status(), ExitStatus::kInputUnreadable);
        EXPECT_NE(std::string(error.what()).find(text), std::string::npos) << error.what();
    }
}

} // namespace
