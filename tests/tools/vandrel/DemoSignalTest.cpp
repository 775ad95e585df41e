#include "DemoSignal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

std::vector<std::vector<float>> readAll(DemoSignal& signal, unsigned block)
{
    std::vector<std::vector<float>> data(signal.channels(),
                                         std::vector<float>(signal.totalFrames()));
    size_t done = 0;
    std::vector<float*> pointers(signal.channels());
    for (;;) {
        for (unsigned c = 0; c < signal.channels(); ++c)
            pointers[c] = data[c].data() + done;
        const size_t remaining = data[0].size() - done;
        const unsigned n =
            signal.read(pointers.data(), static_cast<unsigned>(std::min<size_t>(block, remaining)));
        if (remaining == 0) {
            EXPECT_EQ(n, 0u);
            break;
        }
        EXPECT_GT(n, 0u);
        done += n;
    }
    EXPECT_EQ(done, data[0].size());
    return data;
}

TEST(DemoSignalTest, IsAStereoEightSecondsSoundThatFillsItsWholeLength)
{
    DemoSignal signal;
    ASSERT_EQ(signal.channels(), 2u);
    ASSERT_EQ(signal.totalFrames(), static_cast<int64_t>(8 * 44100));
    const auto data = readAll(signal, 512);

    float peak = 0.0f;
    for (const auto& channel : data)
        for (float sample : channel)
            peak = std::max(peak, std::fabs(sample));
    EXPECT_FLOAT_EQ(peak, DemoSignal::kPeak);

    // Every quarter second holds sound on both sides, and the sides differ.
    const size_t quarter = 44100 / 4;
    for (size_t begin = 0; begin + quarter <= data[0].size(); begin += quarter) {
        double energy[2] = {0.0, 0.0};
        double difference = 0.0;
        for (size_t i = begin; i < begin + quarter; ++i) {
            energy[0] += data[0][i] * data[0][i];
            energy[1] += data[1][i] * data[1][i];
            difference += std::fabs(data[0][i] - data[1][i]);
        }
        EXPECT_GT(std::sqrt(energy[0] / quarter), 0.01) << "at frame " << begin;
        EXPECT_GT(std::sqrt(energy[1] / quarter), 0.01) << "at frame " << begin;
        EXPECT_GT(difference / quarter, 0.001) << "at frame " << begin;
    }
}

TEST(DemoSignalTest, IsTheSameEveryTimeWhateverTheBlockSize)
{
    DemoSignal first;
    DemoSignal second;
    EXPECT_EQ(readAll(first, 512), readAll(second, 777));
}

} // namespace
