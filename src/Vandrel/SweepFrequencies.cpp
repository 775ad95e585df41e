#include "SweepFrequencies.h"

#include <cmath>
#include <cstring>

namespace {

// Runs start at or above this value, so that their unit in the last place is
// a normal number and every scaling by it is exact.
constexpr double kMinStart = 0x1p-960;

// Units in the last place of one binade: [2^52, 2^53).
constexpr std::int64_t kBinadeEnd = std::int64_t{1} << 53;
constexpr double kMaxStepUnits = 0x1p52;

// The double format: a normal value is (2^52 + significand) * 2^(biased - 1075).
constexpr std::uint64_t kSignificandBits = 52;
constexpr std::uint64_t kImplicitBit = std::uint64_t{1} << kSignificandBits;
constexpr std::uint64_t kExponentBias = 1023;

// 2^(biased - 1023) for a biased exponent of a normal number (1 to 2046).
double PowerOfTwo(std::uint64_t biased)
{
    const std::uint64_t bits = biased << kSignificandBits;
    double v;
    std::memcpy(&v, &bits, sizeof v);
    return v;
}

} // namespace

bool CSweepFrequencies::Build(double lo, double inc, std::int64_t count)
{
    return Begin(lo, inc, count) && Reach(count - 1);
}

bool CSweepFrequencies::Begin(double lo, double inc, std::int64_t count)
{
    // The runs depend on nothing else: the same inputs keep them.
    if (mValid && lo == mLo && inc == mInc && count == mCount) {
        return true;
    }
    mRunCount = 0;
    mValid = false;
    if (!(lo >= kMinStart) || !std::isfinite(lo) || !std::isfinite(inc) || count < 1) {
        return false;
    }
    mLo = lo;
    mInc = inc;
    mCount = count;
    mNextFirst = 0;
    mNextStart = lo;
    mValid = true;
    return true;
}

bool CSweepFrequencies::Reach(std::int64_t j)
{
    while (mValid && mNextFirst <= j) {
        if (!SplitRun()) {
            mRunCount = 0;
            mValid = false;
        }
    }
    return mValid;
}

bool CSweepFrequencies::SplitRun()
{
    const std::int64_t j = mNextFirst;
    const double f = mNextStart;
    if (mRunCount == kMaxRuns || !(f >= kMinStart) || !std::isfinite(f)) {
        return false;
    }
    // A sum that falls (a centre above half the sample rate) mirrors one that
    // rises: its steps stay in a binade down to the binade's lowest unit.
    const bool falling = mInc < 0.0;
    const std::int64_t last = mCount - 1;

    // f is normal: its significand is its count of units in the last place,
    // and the unit and its inverse are normal powers of two, so that scaling
    // by the inverse rounds as dividing by the unit does.
    std::uint64_t bits;
    std::memcpy(&bits, &f, sizeof bits);
    const std::uint64_t biased = bits >> kSignificandBits;
    const std::int64_t units =
        static_cast<std::int64_t>((bits & (kImplicitBit - 1)) | kImplicitBit);
    const double ulp = PowerOfTwo(biased - kSignificandBits);
    const double r = std::fabs(mInc) * PowerOfTwo(2 * kExponentBias + kSignificandBits - biased);

    // Steps from f that stay in its binade each move d units; a step of half
    // a unit more than a whole number rounds to the even neighbour, so after
    // a start on an odd unit the steps that follow move by the other of the
    // two candidates.
    std::int64_t n = 0;
    std::int64_t d = 0;
    if (r < kMaxStepUnits) {
        d = static_cast<std::int64_t>(r);
        const double frac = r - static_cast<double>(d);
        // Rounded up or not as the fraction falls, at random from one run to
        // the next: a sum of flags rather than branches the predictor misses.
        d += static_cast<std::int64_t>(frac > 0.5) |
             (static_cast<std::int64_t>(frac == 0.5) & ((units + d) & 1));
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
    if (j + n >= last) {
        mNextFirst = mCount;
        return true;
    }
    // The step that leaves the binade, rounded as the sum rounds it.
    mNextStart = (f + static_cast<double>(n) * step) + mInc;
    mNextFirst = j + n + 1;
    return true;
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
