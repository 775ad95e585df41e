// An audio file read through libsndfile, delivered as non-interleaved floats.
#pragma once

#include "AudioSource.h"
#include "SoundFileStream.h"

#include <memory>
#include <string>
#include <vector>

class AudioFileReader : public AudioSource
{
public:
    // Opens the file; throws ToolError(kInputUnreadable) with libsndfile's reason
    // when it is missing, unreadable or not audio. [control]
    explicit AudioFileReader(const std::string& path);
    ~AudioFileReader() override;
    AudioFileReader(const AudioFileReader&) = delete;
    AudioFileReader& operator=(const AudioFileReader&) = delete;

    unsigned channels() const override { return mChannels; }
    double sampleRate() const override { return mSampleRate; }
    int64_t totalFrames() const override { return mFrames; }
    unsigned read(float* const* out, unsigned frames) override;

private:
    std::string mPath;
    std::unique_ptr<SoundFileStream> mStream;
    SNDFILE* mFile = nullptr;
    unsigned mChannels = 0;
    double mSampleRate = 0.0;
    int64_t mFrames = 0;
    std::vector<float> mInterleaved;
    // 16-bit stereo WAV is read as integers and converted here, exactly as
    // the library converts (a 16-bit value over 32768 is exact in float).
    bool mStereo16 = false;
    std::vector<short> mShorts;
};
