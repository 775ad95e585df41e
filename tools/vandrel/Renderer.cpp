#include "Renderer.h"

#include "ToolError.h"

#include <algorithm>
#include <string>

Renderer::Renderer(PluginHost& host, AudioSource& source, AudioFileWriter& writer,
                   const Automation& automation, unsigned blockSize, int64_t tailFrames)
    : mHost(host), mSource(source), mWriter(writer), mAutomation(automation), mBlockSize(blockSize),
      mTailFrames(tailFrames)
{
}

int64_t Renderer::run(ProgressBar* progress, const volatile std::sig_atomic_t* interrupted)
{
    const unsigned channels = mSource.channels();
    std::vector<std::vector<float>> input(channels, std::vector<float>(mBlockSize));
    std::vector<std::vector<float>> output(channels, std::vector<float>(mBlockSize));
    std::vector<float*> inputPointers(channels);
    std::vector<float*> outputPointers(channels);
    std::vector<const float*> writePointers(channels);
    for (unsigned c = 0; c < channels; ++c) {
        outputPointers[c] = output[c].data();
        writePointers[c] = output[c].data();
    }
    std::vector<AudioUnitParameterEvent> events;

    bool sourceEnded = false;
    int64_t tailLeft = mTailFrames;
    int64_t position = 0;
    for (;;) {
        if (*interrupted)
            throw ToolError(ExitStatus::kInterrupted, "Interrupted; no output file was written.");
        // The unit may process its input in place, so the input buffers are
        // refilled (or cleared) for every block.
        for (unsigned c = 0; c < channels; ++c)
            inputPointers[c] = input[c].data();
        unsigned frames = 0;
        if (!sourceEnded) {
            frames = mSource.read(inputPointers.data(), mBlockSize);
            sourceEnded = frames < mBlockSize;
        }
        if (frames < mBlockSize && tailLeft > 0) {
            const unsigned silence =
                static_cast<unsigned>(std::min<int64_t>(tailLeft, mBlockSize - frames));
            for (unsigned c = 0; c < channels; ++c)
                std::fill_n(input[c].begin() + frames, silence, 0.0f);
            frames += silence;
            tailLeft -= silence;
        }
        if (frames == 0)
            break;

        mAutomation.eventsForBlock(position, frames, events);
        mHost.schedule(events);
        const OSStatus status = mHost.render(inputPointers.data(), outputPointers.data(), frames);
        if (status != noErr)
            throw ToolError(ExitStatus::kProcessingFailed,
                            "The plug-in failed to render at " +
                                std::to_string(position / mSource.sampleRate()) + " s (status " +
                                std::to_string(status) + "); no output file was written.");
        mWriter.write(writePointers.data(), frames);
        position += frames;
        if (progress != nullptr)
            progress->update(position);
    }
    return position;
}
