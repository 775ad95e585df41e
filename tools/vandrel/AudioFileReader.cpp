#include "AudioFileReader.h"

#include "ToolError.h"

#include <cerrno>
#include <cstring>
#include <sndfile.h>

AudioFileReader::AudioFileReader(const std::string& path) : mPath(path)
{
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr)
        throw ToolError(ExitStatus::kInputUnreadable,
                        "Cannot read '" + path + "': " + std::strerror(errno) + ".");
    mStream = std::make_unique<SoundFileStream>(file);
    SF_INFO info{};
    mFile = sf_open_virtual(SoundFileStream::callbacks(), SFM_READ, &info, mStream.get());
    if (mFile == nullptr)
        throw ToolError(ExitStatus::kInputUnreadable,
                        "Cannot read '" + path + "': " + sf_strerror(nullptr) + ".");
    if (info.channels < 1 || info.samplerate < 1) {
        sf_close(mFile);
        throw ToolError(ExitStatus::kInputUnreadable,
                        "Cannot read '" + path + "': it holds no audio channels.");
    }
    mChannels = static_cast<unsigned>(info.channels);
    mSampleRate = info.samplerate;
    mFrames = info.frames;
    // Integer files become floats in [-1, 1); a float file is passed unchanged.
    sf_command(mFile, SFC_SET_NORM_FLOAT, nullptr, SF_TRUE);
}

AudioFileReader::~AudioFileReader()
{
    sf_close(mFile);
}

unsigned AudioFileReader::read(float* const* out, unsigned frames)
{
    mInterleaved.resize(static_cast<size_t>(frames) * mChannels);
    const sf_count_t got = sf_readf_float(mFile, mInterleaved.data(), frames);
    if (got < 0 || sf_error(mFile) != SF_ERR_NO_ERROR)
        throw ToolError(ExitStatus::kInputUnreadable,
                        "Reading '" + mPath + "' failed: " + sf_strerror(mFile) + ".");
    // One channel at a time, so that each inner loop has a fixed stride.
    const size_t count = static_cast<size_t>(got);
    for (unsigned c = 0; c < mChannels; ++c) {
        const float* in = mInterleaved.data() + c;
        float* const channel = out[c];
        for (size_t i = 0; i < count; ++i)
            channel[i] = in[i * mChannels];
    }
    return static_cast<unsigned>(got);
}
