#include "AudioFileReader.h"

#include "ToolError.h"

#include <cerrno>
#include <emmintrin.h>
#include <cstring>
#include <sndfile.h>
#include <unistd.h>

AudioFileReader::AudioFileReader(const std::string& path) : mPath(path)
{
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr)
        throw ToolError(ExitStatus::kInputUnreadable,
                        "Cannot read '" + path + "': " + std::strerror(errno) + ".");
    mStream = std::make_unique<SoundFileStream>(file, SoundFileStream::kReadBufferBytes);
    // Audio files are read with seeks to their chunks.
    if (lseek(fileno(file), 0, SEEK_CUR) < 0)
        throw ToolError(ExitStatus::kInputUnreadable,
                        "Cannot read '" + path +
                            "': it is a pipe or terminal; audio is read from files.");
    SF_INFO info{};
    mFile = sf_open_virtual(SoundFileStream::callbacks(), SFM_READ, &info, mStream.get());
    if (mFile == nullptr)
        throw ToolError(ExitStatus::kInputUnreadable,
                        "Cannot read '" + path + "': " + mStream->failure(sf_strerror(nullptr)) +
                            ".");
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
    mStereo16 = mChannels == 2 && (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAV &&
                (info.format & SF_FORMAT_SUBMASK) == SF_FORMAT_PCM_16;
}

AudioFileReader::~AudioFileReader()
{
    sf_close(mFile);
}

unsigned AudioFileReader::read(float* const* out, unsigned frames)
{
    if (mStereo16) {
        mShorts.resize(static_cast<size_t>(frames) * 2);
        const sf_count_t got = sf_readf_short(mFile, mShorts.data(), frames);
        if (got < 0 || sf_error(mFile) != SF_ERR_NO_ERROR)
            throw ToolError(ExitStatus::kInputUnreadable,
                            "Reading '" + mPath +
                                "' failed: " + mStream->failure(sf_strerror(mFile)) + ".");
        const size_t count = static_cast<size_t>(got);
        const short* in = mShorts.data();
        float* const left = out[0];
        float* const right = out[1];
        const __m128 scale = _mm_set1_ps(1.0f / 32768.0f);
        size_t i = 0;
        for (; i + 4 <= count; i += 4) {
            // Four frames: sign-extend the eight values to 32 bits, then
            // convert and scale; the even values are the left channel.
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + 2 * i));
            const __m128 a =
                _mm_mul_ps(_mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpacklo_epi16(v, v), 16)), scale);
            const __m128 b =
                _mm_mul_ps(_mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpackhi_epi16(v, v), 16)), scale);
            _mm_storeu_ps(left + i, _mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0)));
            _mm_storeu_ps(right + i, _mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1)));
        }
        for (; i < count; ++i) {
            left[i] = static_cast<float>(in[2 * i]) * (1.0f / 32768.0f);
            right[i] = static_cast<float>(in[2 * i + 1]) * (1.0f / 32768.0f);
        }
        return static_cast<unsigned>(got);
    }
    mInterleaved.resize(static_cast<size_t>(frames) * mChannels);
    const sf_count_t got = sf_readf_float(mFile, mInterleaved.data(), frames);
    if (got < 0 || sf_error(mFile) != SF_ERR_NO_ERROR)
        throw ToolError(ExitStatus::kInputUnreadable,
                        "Reading '" + mPath + "' failed: " + mStream->failure(sf_strerror(mFile)) +
                            ".");
    const size_t count = static_cast<size_t>(got);
    if (mChannels == 2) {
        // Stereo, four frames at a time: the even samples are the left channel.
        const float* in = mInterleaved.data();
        float* const left = out[0];
        float* const right = out[1];
        size_t i = 0;
        for (; i + 4 <= count; i += 4) {
            const __m128 a = _mm_loadu_ps(in + 2 * i);
            const __m128 b = _mm_loadu_ps(in + 2 * i + 4);
            _mm_storeu_ps(left + i, _mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0)));
            _mm_storeu_ps(right + i, _mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1)));
        }
        for (; i < count; ++i) {
            left[i] = in[2 * i];
            right[i] = in[2 * i + 1];
        }
        return static_cast<unsigned>(got);
    }
    // One channel at a time, so that each inner loop has a fixed stride.
    for (unsigned c = 0; c < mChannels; ++c) {
        const float* in = mInterleaved.data() + c;
        float* const channel = out[c];
        for (size_t i = 0; i < count; ++i)
            channel[i] = in[i * mChannels];
    }
    return static_cast<unsigned>(got);
}
