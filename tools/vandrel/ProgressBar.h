// A one-line progress bar for long runs. It draws only after the run has taken
// a noticeable time, so short files print nothing, and redraws a few times a
// second at most. The caller decides whether to have one at all (a terminal
// on standard error and no --quiet).
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>

class ProgressBar
{
public:
    static constexpr double kDelaySeconds = 0.3;  // silent before this
    static constexpr double kRedrawSeconds = 0.1; // at most ten lines a second
    static constexpr int kWidth = 30;             // characters in the bar

    // out: the terminal stream (not owned); totalFrames > 0 frames at sampleRate. [control]
    ProgressBar(std::FILE* out, int64_t totalFrames, double sampleRate);
    // Erases the bar if one was drawn. [control]
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    // Reports that `doneFrames` of the total frames are finished. [control]
    void update(int64_t doneFrames);

private:
    using Clock = std::chrono::steady_clock;

    std::FILE* mOut;
    int64_t mTotalFrames;
    double mSampleRate;
    Clock::time_point mStart;
    Clock::time_point mLastDraw;
    bool mDrawn = false;
};
