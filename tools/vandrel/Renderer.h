// The render loop: reads the source in pieces of whole blocks, schedules each
// block's automation, renders it through the unit and writes the piece out;
// after the source ends it feeds silence for the tail, so delays and filters
// ring out.
#pragma once

#include "AudioFileWriter.h"
#include "AudioSource.h"
#include "Automation.h"
#include "PluginHost.h"
#include "ProgressBar.h"

#include <csignal>
#include <cstdint>
#include <vector>

class Renderer
{
public:
    // The host must be prepared for the source's rate and channels with a
    // maximum slice of at least blockSize. Nothing is owned. [control]
    Renderer(PluginHost& host, AudioSource& source, AudioFileWriter& writer,
             const Automation& automation, unsigned blockSize, int64_t tailFrames);

    // Renders everything; returns the frames written. Throws ToolError: the
    // source's and writer's errors, kProcessingFailed when the unit fails a
    // render or its output holds an infinite or NaN sample (naming the
    // settings), kInterrupted when *interrupted becomes nonzero. progress may
    // be null. [control]
    int64_t run(ProgressBar* progress, const volatile std::sig_atomic_t* interrupted);

private:
    // Bytes of samples per piece read and written, over all channels: small
    // enough that the piece's buffers stay in the processor's cache between
    // reading, rendering and writing, and are allocated once.
    static constexpr unsigned kChunkBytes = 32u << 10;

    PluginHost& mHost;
    AudioSource& mSource;
    AudioFileWriter& mWriter;
    const Automation& mAutomation;
    unsigned mBlockSize;
    int64_t mTailFrames;
};
