#include "CSineOscillator.h"

#include <cmath>

namespace {

// Index arithmetic wraps in 32 bits instead of overflowing: the engine hands
// over the low 32 bits of a 64-bit sample counter.
std::int32_t WrapAdd(std::int32_t index, std::int32_t delta)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(index) +
                                     static_cast<std::uint32_t>(delta));
}

} // namespace

CSineOscillator::CSineOscillator(double omega, double phase, std::int32_t index,
                                 std::int32_t maxSteps)
    : dOmega(omega), dPhase(phase), dCoef(0.0), dCur(0.0), dPrev1(0.0), dPrev2(0.0), nNext(0),
      nSteps(0), nMaxSteps(maxSteps != 0 && maxSteps <= kMaxStepsLimit ? maxSteps : kMaxStepsLimit)
{
    Seed(index);
}

void CSineOscillator::Init(double omega, double phase, std::int32_t index)
{
    dOmega = omega;
    dPhase = phase;
    Seed(index);
}

void CSineOscillator::Seed(std::int32_t index)
{
    if (!mCoefKnown || !(mCoefOmega == dOmega)) {
        const double c = std::cos(dOmega);
        mCoefOfOmega = c + c;
        mCoefOmega = dOmega;
        mCoefKnown = true;
    }
    dCoef = mCoefOfOmega;
    nNext = index;
    nSteps = 0;
    dPrev2 = std::sin(static_cast<double>(WrapAdd(index, -2)) * dOmega + dPhase);
    dPrev1 = std::sin(static_cast<double>(WrapAdd(index, -1)) * dOmega + dPhase);
    dCur = 0.0;
}

double CSineOscillator::FindNthSine(std::int32_t n)
{
    if (nSteps > nMaxSteps || nNext != n) {
        Seed(n);
    }
    const double y = dCoef * dPrev1 - dPrev2;
    ++nSteps;
    dCur = y;
    dPrev2 = dPrev1;
    dPrev1 = y;
    nNext = WrapAdd(n, 1);
    return y;
}
