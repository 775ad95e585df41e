/*
 * Sine oscillator: sin(n * omega + phase) for a sample index n.
 *
 * Consecutive indices cost one multiplication and one subtraction through the
 * two-term recurrence y[n] = 2 cos(omega) y[n-1] - y[n-2]. A request for any
 * other index, or one that would extend a run beyond the re-seed limit,
 * re-seeds the recurrence from two exact sin values; the limit bounds the
 * drift that the recurrence accumulates. Even a re-seeding request returns its
 * value through one recurrence step, so a value does not depend on whether it
 * came right after a seed.
 *
 * Index arithmetic (n - 1, n - 2, n + 1) wraps in 32 bits. A re-seed with an
 * unchanged step reuses the last cosine.
 *
 * The fields are public so that diagnostics and tests can inspect the
 * recurrence; only the member functions write them.
 */
#ifndef CSINEOSCILLATOR_H
#define CSINEOSCILLATOR_H

#include <cstdint>

class CSineOscillator
{
public:
    // Largest re-seed limit; also what a limit of 0 or above it becomes.
    static constexpr std::int32_t kMaxStepsLimit = 262144;

    // Seeds at `index` with step `omega` (radians per index) and `phase`
    // (radians). `maxSteps`: how many further consecutive values one seed may
    // serve; 0 or above kMaxStepsLimit gives kMaxStepsLimit, a negative limit
    // re-seeds on every call. No allocation. [any]
    CSineOscillator(double omega, double phase, std::int32_t index, std::int32_t maxSteps);

    // Re-seeds with a new step and phase at `index`; the limit is kept. Two
    // sin calls, and cos for a step other than the last one; no allocation. [render]
    void Init(double omega, double phase, std::int32_t index);

    // The value for index n: one recurrence step when n follows the previous
    // request within the limit, otherwise a re-seed at n. [render]
    double FindNthSine(std::int32_t n);

    double dOmega;
    double dPhase;
    double dCoef;        // 2 cos(dOmega)
    double dCur;         // last value returned; 0.0 right after seeding
    double dPrev1;       // value at index nNext - 1
    double dPrev2;       // value at index nNext - 2
    std::int32_t nNext;  // index that the next recurrence step yields
    std::int32_t nSteps; // values produced since the last seed, the seeding call's included
    std::int32_t nMaxSteps;

private:
    void Seed(std::int32_t index);

    // The step whose doubled cosine is mCoefOfOmega: a re-seed with the same
    // step reuses it instead of calling cos again.
    bool mCoefKnown = false;
    double mCoefOmega = 0.0;
    double mCoefOfOmega = 0.0;
};

#endif
