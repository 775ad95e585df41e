#include "AudioFileWriter.h"

#include "ToolError.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <unistd.h>
#include <emmintrin.h>
#include <sndfile.h>

namespace {

// Lanes of a float vector whose exponent field is all ones (infinity or NaN).
inline __m128i nonFiniteLanes(__m128 samples)
{
    const __m128i exponent = _mm_set1_epi32(0x7f800000);
    return _mm_cmpeq_epi32(_mm_and_si128(_mm_castps_si128(samples), exponent), exponent);
}

// Whether every sample is finite: four at a time with no early exit, since a
// non-finite sample ends the run anyway.
bool allFinite(const float* samples, size_t count)
{
    __m128i nonFinite = _mm_setzero_si128();
    size_t i = 0;
    for (; i + 4 <= count; i += 4)
        nonFinite = _mm_or_si128(nonFinite, nonFiniteLanes(_mm_loadu_ps(samples + i)));
    bool finite = _mm_movemask_epi8(nonFinite) == 0;
    for (; i < count; ++i)
        finite = finite && std::isfinite(samples[i]);
    return finite;
}

std::string lowerExtension(const std::string& path)
{
    const size_t dot = path.rfind('.');
    const size_t slash = path.rfind('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
        return "";
    std::string extension = path.substr(dot + 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

// Extensions people use that libsndfile lists under another name.
struct ExtensionAlias
{
    const char* extension;
    int majorFormat;
};
constexpr ExtensionAlias kAliases[] = {
    {"aif", SF_FORMAT_AIFF}, {"aifc", SF_FORMAT_AIFF}, {"wave", SF_FORMAT_WAV},
    {"ogg", SF_FORMAT_OGG},  {"opus", SF_FORMAT_OGG},  {"mp3", SF_FORMAT_MPEG},
};

int majorFormatFor(const std::string& extension)
{
    for (const ExtensionAlias& alias : kAliases)
        if (extension == alias.extension)
            return alias.majorFormat;
    int count = 0;
    sf_command(nullptr, SFC_GET_FORMAT_MAJOR_COUNT, &count, sizeof(count));
    for (int i = 0; i < count; ++i) {
        SF_FORMAT_INFO info{};
        info.format = i;
        sf_command(nullptr, SFC_GET_FORMAT_MAJOR, &info, sizeof(info));
        if (info.extension != nullptr && extension == info.extension)
            return info.format;
    }
    return 0;
}

} // namespace

int AudioFileWriter::formatForPath(const std::string& path, unsigned channels, double sampleRate)
{
    const std::string extension = lowerExtension(path);
    const int major = extension.empty() ? SF_FORMAT_WAV : majorFormatFor(extension);
    if (major == 0)
        return 0;
    // Float keeps the plug-in's output exactly; containers without it get the
    // best they hold.
    const int preferred = extension == "opus" ? SF_FORMAT_OPUS : SF_FORMAT_FLOAT;
    const int subtypes[] = {preferred, SF_FORMAT_PCM_24, SF_FORMAT_VORBIS, SF_FORMAT_MPEG_LAYER_III,
                            SF_FORMAT_PCM_16};
    for (int subtype : subtypes) {
        SF_INFO info{};
        info.channels = static_cast<int>(channels);
        info.samplerate = static_cast<int>(sampleRate);
        info.format = major | subtype;
        if (sf_format_check(&info))
            return info.format;
    }
    return 0;
}

int AudioFileWriter::requireFormat(const std::string& path, unsigned channels, double sampleRate)
{
    const int format = formatForPath(path, channels, sampleRate);
    if (format == 0)
        throw ToolError(ExitStatus::kUsage,
                        "Cannot write '" + path + "': its extension names no audio format for " +
                            std::to_string(channels) + " channels at " +
                            std::to_string(static_cast<int>(sampleRate)) +
                            " Hz. Use .wav, .aiff, .flac, .ogg, .caf, .w64 or .au.");
    return format;
}

AudioFileWriter::AudioFileWriter(const std::string& path, unsigned channels, double sampleRate)
    : mPath(path), mChannels(channels), mTemporary(path, true)
{
    SF_INFO info{};
    info.channels = static_cast<int>(channels);
    info.samplerate = static_cast<int>(sampleRate);
    info.format = requireFormat(path, channels, sampleRate);
    const int descriptor = dup(mTemporary.descriptor());
    std::FILE* file = descriptor < 0 ? nullptr : fdopen(descriptor, "w+b");
    if (file == nullptr) {
        if (descriptor >= 0)
            close(descriptor);
        throw ToolError(ExitStatus::kOutputUnwritable,
                        "Cannot write '" + path + "': " + std::strerror(errno) + ".");
    }
    mStream = std::make_unique<SoundFileStream>(file, SoundFileStream::kWriteBufferBytes);
    mFile = sf_open_virtual(SoundFileStream::callbacks(), SFM_WRITE, &info, mStream.get());
    if (mFile == nullptr)
        throw ToolError(ExitStatus::kOutputUnwritable,
                        "Cannot write '" + path + "': " + mStream->failure(sf_strerror(nullptr)) +
                            ".");
    // Integer formats clip at full scale instead of wrapping around.
    sf_command(mFile, SFC_SET_CLIPPING, nullptr, SF_TRUE);
    // No peak chunk in float files: keeping it scans every sample written,
    // which costs more than the effect itself, for an optional header.
    sf_command(mFile, SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
}

AudioFileWriter::~AudioFileWriter()
{
    if (mFile != nullptr)
        sf_close(mFile);
}

bool AudioFileWriter::write(const float* const* in, unsigned frames)
{
    mInterleaved.resize(static_cast<size_t>(frames) * mChannels);
    bool finite = true;
    if (mChannels == 2) {
        // Stereo, four frames at a time.
        float* const out = mInterleaved.data();
        const float* const left = in[0];
        const float* const right = in[1];
        __m128i nonFinite = _mm_setzero_si128();
        size_t i = 0;
        for (; i + 4 <= frames; i += 4) {
            const __m128 l = _mm_loadu_ps(left + i);
            const __m128 r = _mm_loadu_ps(right + i);
            nonFinite = _mm_or_si128(nonFinite, _mm_or_si128(nonFiniteLanes(l), nonFiniteLanes(r)));
            _mm_storeu_ps(out + 2 * i, _mm_unpacklo_ps(l, r));
            _mm_storeu_ps(out + 2 * i + 4, _mm_unpackhi_ps(l, r));
        }
        finite = _mm_movemask_epi8(nonFinite) == 0;
        for (; i < frames; ++i) {
            out[2 * i] = left[i];
            out[2 * i + 1] = right[i];
            finite = finite && std::isfinite(left[i]) && std::isfinite(right[i]);
        }
    } else {
        // One channel at a time, so that each inner loop has a fixed stride.
        for (unsigned c = 0; c < mChannels; ++c) {
            const float* const channel = in[c];
            float* out = mInterleaved.data() + c;
            for (size_t i = 0; i < frames; ++i)
                out[i * mChannels] = channel[i];
        }
        finite = allFinite(mInterleaved.data(), mInterleaved.size());
    }
    if (sf_writef_float(mFile, mInterleaved.data(), frames) != static_cast<sf_count_t>(frames))
        throw ToolError(ExitStatus::kOutputUnwritable,
                        "Writing '" + mPath + "' failed: " + mStream->failure(sf_strerror(mFile)) +
                            ".");
    return finite;
}

void AudioFileWriter::commit()
{
    SNDFILE* file = mFile;
    mFile = nullptr;
    const int error = sf_close(file);
    if (error != SF_ERR_NO_ERROR)
        throw ToolError(ExitStatus::kOutputUnwritable,
                        "Finishing '" + mPath +
                            "' failed: " + mStream->failure(sf_error_number(error)) + ".");
    if (!mStream->close())
        throw ToolError(ExitStatus::kOutputUnwritable,
                        "Writing '" + mPath + "' failed: " + std::strerror(errno) + ".");
    mTemporary.commit();
}
