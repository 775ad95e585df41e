/*
 * Frequencies of the phaser and wah-wah sweep tables without the running sum.
 *
 * The tables give entry j the frequency f(j): f(0) = lo and f(j + 1) = f(j) +
 * inc rounded to double. Within one binade every such step adds the same whole
 * number of units in the last place (one rounding rule for all of them, once
 * the first step has settled the parity of a tie), so the sum splits into a
 * few runs f(first + k) = start + k * step, each exact in double arithmetic;
 * only the step that leaves a binade is summed in floating point. Any f(j)
 * then costs two operations, and a table entry can be computed on its own.
 *
 * Thread: [any]; no allocation. One object serves one (lo, inc, count) at a time.
 */
#ifndef SWEEPFREQUENCIES_H
#define SWEEPFREQUENCIES_H

#include <cstdint>

class CSweepFrequencies
{
public:
    // Room for the runs of any table: at most two runs and a crossing step per
    // binade, and after its first step a sum of 2000 increments spans no more
    // than a dozen binades.
    static constexpr int kMaxRuns = 64;

    // Splits the sum of `count` entries (1 to 2000) from `lo` by `inc` into
    // runs. Returns false, with no runs, when that is not possible (a
    // frequency below 2^-960 or not finite, or more than kMaxRuns runs); the
    // caller then sums. A call with the inputs of the last successful one
    // keeps its runs. [any]
    bool Build(double lo, double inc, std::int64_t count);

    // Build in steps: Begin takes the inputs (false, with no runs, when lo,
    // inc or count is unusable; the same inputs as before keep the runs made
    // so far), and Reach(j) splits off runs until entry j is covered, so a
    // caller that needs only the low entries pays only for their runs.
    // Reach returns false, with no runs left, when a run cannot be made (as
    // Build would have). [any]
    bool Begin(double lo, double inc, std::int64_t count);
    bool Reach(std::int64_t j);

    // f(j) for 0 <= j < count, exactly the running sum's value. Valid only
    // for entries a successful Build or Reach covered. [any]
    double At(std::int64_t j) const;

    // Calls fn(j, f(j)) for j = first ... last in order (0 <= first, last
    // covered as for At); cheaper than At for each. [any]
    template <typename Fn> void ForEach(std::int64_t first, std::int64_t last, Fn fn) const
    {
        int r = RunOf(first);
        for (std::int64_t j = first; j <= last; ++j) {
            while (r + 1 < mRunCount && mRuns[r + 1].first <= j) {
                ++r;
            }
            const Run& run = mRuns[r];
            fn(j, run.start + static_cast<double>(j - run.first) * run.step);
        }
    }

    int RunCount() const { return mRunCount; }

private:
    struct Run
    {
        std::int64_t first; // index of the run's first entry
        double start;       // its frequency
        double step;        // whole units in the last place of the run's binade
    };

    int RunOf(std::int64_t j) const;
    // Appends the run that starts at mNextFirst; false when it cannot be made.
    bool SplitRun();

    Run mRuns[kMaxRuns];
    int mRunCount = 0;
    // Inputs of the runs (meaningful while mValid), and where the next run
    // starts: entries below mNextFirst are covered (mCount once all are).
    bool mValid = false;
    double mLo = 0.0;
    double mInc = 0.0;
    std::int64_t mCount = 0;
    std::int64_t mNextFirst = 0;
    double mNextStart = 0.0;
};

#endif
