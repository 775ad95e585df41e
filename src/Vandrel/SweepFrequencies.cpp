#include "SweepFrequencies.h"

#include <cmath>

namespace {

// Runs start at or above this value, so that their unit in the last place is
// a normal number and every scaling by it is exact.
constexpr double kMinStart = 0x1p-960;

// Units in the last place of one binade: [2^52, 2^53).
constexpr std::int64_t kBinadeEnd = std::int64_t{1} << 53;
constexpr double kMaxStepUnits = 0x1p52;

} // namespace

bool CSweepFrequencies::Build(double lo, double inc, std::int64_t count)
{
    mRunCount = 0;
    if (!(lo >= kMinStart) || !std::isfinite(lo) || !std::isfinite(inc) || count < 1) {
        return false;
    }
    // A sum that falls (a centre above half the sample rate) mirrors one that
    // rises: its steps stay in a binade down to the binade's lowest unit.
    const bool falling = inc < 0.0;
    const double magnitude = std::fabs(inc);
    const std::int64_t last = count - 1;
    std::int64_t j = 0;
    double f = lo;
    for (;;) {
        if (mRunCount == kMaxRuns || !(f >= kMinStart) || !std::isfinite(f)) {
            mRunCount = 0;
            return false;
        }
        int exponent = 0;
        std::frexp(f, &exponent);
        const double ulp = std::ldexp(1.0, exponent - 53);
        const std::int64_t units = static_cast<std::int64_t>(f / ulp);
        const double r = magnitude / ulp;

        // Steps from f that stay in its binade each move d units; a step of
        // half a unit more than a whole number rounds to the even neighbour,
        // so after a start on an odd unit the steps that follow move by the
        // other of the two candidates.
        std::int64_t n = 0;
        std::int64_t d = 0;
        if (r < kMaxStepUnits) {
            const double whole = std::floor(r);
            const double frac = r - whole;
            d = static_cast<std::int64_t>(whole);
            if (frac > 0.5 || (frac == 0.5 && (units + d) % 2 != 0)) {
                ++d;
            }
            const std::int64_t room = falling ? units - kBinadeEnd / 2 - 1 : kBinadeEnd - 1 - units;
            n = d > 0 ? (room > 0 ? room / d : 0) : last - j;
            if (n > last - j) {
                n = last - j;
            }
            if (frac == 0.5 && units % 2 != 0 && n > 1) {
                n = 1;
            }
        }
        const double step = static_cast<double>(falling ? -d : d) * ulp;
        mRuns[mRunCount++] = Run{j, f, step};
        j += n;
        if (j >= last) {
            return true;
        }
        f = f + static_cast<double>(n) * step;
        // The step that leaves the binade, rounded as the sum rounds it.
        f = f + inc;
        ++j;
    }
}

int CSweepFrequencies::RunOf(std::int64_t j) const
{
    int lo = 0;
    int hi = mRunCount - 1;
    while (lo < hi) {
        const int mid = (lo + hi + 1) / 2;
        if (mRuns[mid].first <= j) {
            lo = mid;
        } else {
            hi = mid - 1;
        }
    }
    return lo;
}

double CSweepFrequencies::At(std::int64_t j) const
{
    const Run& run = mRuns[RunOf(j)];
    return run.start + static_cast<double>(j - run.first) * run.step;
}
