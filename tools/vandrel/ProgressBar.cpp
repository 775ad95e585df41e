#include "ProgressBar.h"

#include <algorithm>
#include <string>

ProgressBar::ProgressBar(std::FILE* out, int64_t totalFrames, double sampleRate)
    : mOut(out), mTotalFrames(std::max<int64_t>(totalFrames, 1)), mSampleRate(sampleRate),
      mStart(Clock::now()), mLastDraw(mStart)
{
}

ProgressBar::~ProgressBar()
{
    if (mDrawn) {
        std::fputs("\r\033[K", mOut);
        std::fflush(mOut);
    }
}

void ProgressBar::update(int64_t doneFrames)
{
    const Clock::time_point now = Clock::now();
    const double elapsed = std::chrono::duration<double>(now - mStart).count();
    const double sinceDraw = std::chrono::duration<double>(now - mLastDraw).count();
    if (elapsed < kDelaySeconds || (mDrawn && sinceDraw < kRedrawSeconds))
        return;
    const double fraction = std::clamp(static_cast<double>(doneFrames) / mTotalFrames, 0.0, 1.0);
    const int filled = static_cast<int>(fraction * kWidth);
    const std::string bar = std::string(filled, '#') + std::string(kWidth - filled, '.');
    std::fprintf(mOut, "\rvandrel: [%s] %3d%%  %.1f s of %.1f s", bar.c_str(),
                 static_cast<int>(fraction * 100.0), doneFrames / mSampleRate,
                 mTotalFrames / mSampleRate);
    std::fflush(mOut);
    mLastDraw = now;
    mDrawn = true;
}
