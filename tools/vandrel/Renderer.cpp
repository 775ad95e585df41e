#include "Renderer.h"

#include "ParameterTable.h"
#include "ToolError.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace {

// The settings in force, for a message: the out-of-range ones when there are
// any (those are the likely cause), else all of them.
std::string describeSettings(const PluginHost& host)
{
    const ParameterTable table(host.parameters());
    std::string outside, all;
    for (const ParameterDescription& parameter : table.all()) {
        const AudioUnitParameterValue value = host.parameter(parameter.id);
        const std::string unit = ParameterTable::unitName(parameter.unit);
        const std::string text = parameter.name + " " + ParameterTable::formatValue(value) +
                                 (unit.empty() || unit == "index" ? "" : " " + unit);
        all += (all.empty() ? "" : ", ") + text;
        if (!(value >= parameter.minValue && value <= parameter.maxValue))
            outside += (outside.empty() ? "" : ", ") + text + " (range " +
                       ParameterTable::formatValue(parameter.minValue) + " to " +
                       ParameterTable::formatValue(parameter.maxValue) + ")";
    }
    return outside.empty() ? "with " + all : "with settings outside their ranges: " + outside;
}

// The first frame of a piece at which some channel is not finite, or
// `frames` when there is none.
unsigned firstNonFinite(const std::vector<std::vector<float>>& channels, unsigned frames)
{
    unsigned first = frames;
    for (const std::vector<float>& channel : channels) {
        const auto bad = std::find_if(channel.begin(), channel.begin() + first,
                                      [](float sample) { return !std::isfinite(sample); });
        first = static_cast<unsigned>(bad - channel.begin());
    }
    return first;
}

} // namespace

Renderer::Renderer(PluginHost& host, AudioSource& source, AudioFileWriter& writer,
                   const Automation& automation, unsigned blockSize, int64_t tailFrames)
    : mHost(host), mSource(source), mWriter(writer), mAutomation(automation), mBlockSize(blockSize),
      mTailFrames(tailFrames)
{
}

int64_t Renderer::run(ProgressBar* progress, const volatile std::sig_atomic_t* interrupted)
{
    const unsigned channels = mSource.channels();
    // The file is read and written in pieces of whole blocks, about
    // kChunkBytes each, so that a piece is still in the cache when it is
    // rendered and written.
    const unsigned chunkFrames =
        mBlockSize * std::max(1u, kChunkBytes / (channels * 4u) / mBlockSize);
    std::vector<std::vector<float>> input(channels, std::vector<float>(chunkFrames));
    // A unit that processes in place renders into the input buffers, which
    // spares copying every block into buffers of its own.
    const bool inPlace = mHost.processesInPlace();
    std::vector<std::vector<float>> separate(inPlace ? 0 : channels,
                                             std::vector<float>(chunkFrames));
    std::vector<std::vector<float>>& output = inPlace ? input : separate;
    std::vector<float*> inputPointers(channels);
    std::vector<float*> outputPointers(channels);
    std::vector<const float*> writePointers(channels);
    for (unsigned c = 0; c < channels; ++c)
        writePointers[c] = output[c].data();
    std::vector<AudioUnitParameterEvent> events;

    bool sourceEnded = false;
    int64_t tailLeft = mTailFrames;
    int64_t position = 0;
    for (;;) {
        if (*interrupted)
            throw ToolError(ExitStatus::kInterrupted, "Interrupted; no output file was written.");
        for (unsigned c = 0; c < channels; ++c)
            inputPointers[c] = input[c].data();
        unsigned frames = 0;
        if (!sourceEnded) {
            frames = mSource.read(inputPointers.data(), chunkFrames);
            sourceEnded = frames < chunkFrames;
        }
        if (frames < chunkFrames && tailLeft > 0) {
            const unsigned silence =
                static_cast<unsigned>(std::min<int64_t>(tailLeft, chunkFrames - frames));
            for (unsigned c = 0; c < channels; ++c)
                std::fill_n(input[c].begin() + frames, silence, 0.0f);
            frames += silence;
            tailLeft -= silence;
        }
        if (frames == 0)
            break;

        // The unit may process in place: each block's input is used once.
        for (unsigned offset = 0; offset < frames; offset += mBlockSize) {
            const unsigned blockFrames = std::min(mBlockSize, frames - offset);
            for (unsigned c = 0; c < channels; ++c) {
                inputPointers[c] = input[c].data() + offset;
                outputPointers[c] = output[c].data() + offset;
            }
            mAutomation.eventsForBlock(position + offset, blockFrames, events);
            mHost.schedule(events);
            const OSStatus status =
                mHost.render(inputPointers.data(), outputPointers.data(), blockFrames);
            if (status != noErr)
                throw ToolError(ExitStatus::kProcessingFailed,
                                "The plug-in failed to render at " +
                                    std::to_string((position + offset) / mSource.sampleRate()) +
                                    " s (status " + std::to_string(status) +
                                    "); no output file was written.");
        }
        // Unstable settings can drive the effect to infinity or NaN, which no
        // audio file should hold: the run stops, and the file written so far
        // is discarded.
        if (!mWriter.write(writePointers.data(), frames))
            throw ToolError(ExitStatus::kProcessingFailed,
                            "The plug-in's output became infinite or not a number at " +
                                std::to_string((position + firstNonFinite(output, frames)) /
                                               mSource.sampleRate()) +
                                " s " + describeSettings(mHost) + "; no output file was written.");
        position += frames;
        if (progress != nullptr)
            progress->update(position);
    }
    return position;
}
