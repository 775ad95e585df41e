// An audio file written through libsndfile from non-interleaved floats. The
// file's format follows the destination's extension; the data goes to a
// temporary file that replaces the destination only on commit().
#pragma once

#include "SoundFileStream.h"
#include "TemporaryFile.h"

#include <memory>
#include <string>
#include <vector>

class AudioFileWriter
{
public:
    // Chooses the format from the extension (32-bit float where the container
    // holds it, else 24-bit, else the container's compressed encoding). Throws
    // ToolError(kUsage) for an extension no format matches, and
    // ToolError(kOutputUnwritable) when the file cannot be created. [control]
    AudioFileWriter(const std::string& path, unsigned channels, double sampleRate);
    // Discards the temporary file unless committed. [control]
    ~AudioFileWriter();
    AudioFileWriter(const AudioFileWriter&) = delete;
    AudioFileWriter& operator=(const AudioFileWriter&) = delete;

    // Appends `frames` frames from channel buffers in[0..channels-1] and
    // returns whether every one of their samples is finite (they are written
    // either way; the caller decides whether the file is still wanted). The
    // check rides on the pass that interleaves the samples, which touches
    // each of them anyway. Throws ToolError(kOutputUnwritable), for example
    // when the disk is full. [control]
    [[nodiscard]] bool write(const float* const* in, unsigned frames);

    // Finishes the file and puts it under its name. Throws ToolError(kOutputUnwritable). [control]
    void commit();

    // libsndfile's format code (major | subtype) for a destination path, or 0
    // when its extension names no writable format for these channels and rate. [any]
    static int formatForPath(const std::string& path, unsigned channels, double sampleRate);

    // formatForPath, or ToolError(kUsage) naming the formats to use instead. [any]
    static int requireFormat(const std::string& path, unsigned channels, double sampleRate);

private:
    std::string mPath;
    unsigned mChannels;
    TemporaryFile mTemporary;
    std::unique_ptr<SoundFileStream> mStream;
    SNDFILE* mFile = nullptr;
    std::vector<float> mInterleaved;
};
