// SPDX-License-Identifier: BSD-2-Clause

#include <aiplc/aiplc.h>
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <limits>
#include <random>
#include <vector>

namespace {

std::vector<int16_t> Filter16K(std::vector<int16_t> samples) {
    float state[AIPLC_LOW_PASS_TAPS_16K] = {};
    AiPlcFir(samples.data(), state, g_aiplcLowPassCoeff16K, static_cast<int32_t>(samples.size()),
             AIPLC_LOW_PASS_TAPS_16K);
    return samples;
}

double ResponseDb(const float *taps, int count, double cyclesPerSample) {
    std::complex<double> sum = 0;
    for (int n = 0; n < count; ++n) {
        sum += std::polar(1.0, 2 * M_PI * cyclesPerSample * n) * double{taps[n]};
    }
    return 20 * std::log10(std::abs(sum));
}

}  // namespace

TEST(SampleConversion, TruncatesTowardsZeroAndSaturates) {
    const float in[] = {2.5F,      -2.5F, -0.7F, 32767.9F,  -32768.9F,
                        1.0e9F,    -1e9F, 1.9F,  -40000.0F, std::numeric_limits<float>::infinity(),
                        -INFINITY, NAN,   -32768};
    const int16_t expected[] = {2, -2,     0,     32767,  -32768, 32767, -32768,
                                1, -32768, 32767, -32768, -32768, -32768};
    int16_t out[13];
    AiPlcFloat2Short(in, out, 13);
    for (int i = 0; i < 13; ++i)
        EXPECT_EQ(out[i], expected[i]) << in[i];
}

TEST(Fir, ImpulseAndStepGiveTheWorkedOutNumbers) {
    std::vector<int16_t> impulse(40, 0);
    impulse[0] = 1000;
    const std::vector<int16_t> response = {
        1,  0,   -2, 3,  3,  -9, -2, 19, -5, -33, 27, 47, -80, -58, 308, 561, 308, -58, -80, 47,
        27, -33, -5, 19, -2, -9, 3,  3,  -2, 0,   1,  0,  0,   0,   0,   0,   0,   0,   0,   0};
    EXPECT_EQ(Filter16K(impulse), response);

    for (const int16_t level : {int16_t{10000}, int16_t{-10000}}) {
        const std::vector<int16_t> step = Filter16K(std::vector<int16_t>(40, level));
        const int sign = level > 0 ? 1 : -1;
        EXPECT_EQ(step[28], sign * 9991);
        EXPECT_EQ(step[29], sign * 9983);
        for (size_t i = 30; i < step.size(); ++i)
            EXPECT_EQ(step[i], level) << i;
    }
}

TEST(Fir, ContinuesAcrossCallsAndSaturates) {
    std::mt19937 random(1);
    std::vector<int16_t> whole(960);
    for (int16_t &sample : whole)
        sample = static_cast<int16_t>(random());
    std::vector<int16_t> parts = whole;
    float wholeState[AIPLC_LOW_PASS_TAPS_48K] = {};
    float partsState[AIPLC_LOW_PASS_TAPS_48K] = {};
    AiPlcFir(whole.data(), wholeState, g_aiplcLowPassCoeff48K, 960, AIPLC_LOW_PASS_TAPS_48K);
    AiPlcFir(parts.data(), partsState, g_aiplcLowPassCoeff48K, 100, AIPLC_LOW_PASS_TAPS_48K);
    AiPlcFir(parts.data() + 100, partsState, g_aiplcLowPassCoeff48K, 860, AIPLC_LOW_PASS_TAPS_48K);
    EXPECT_EQ(whole, parts);
    EXPECT_TRUE(std::equal(std::begin(wholeState), std::end(wholeState), partsState));

    // Full-scale samples with the taps' signs sum to 1.77 times full scale.
    std::vector<int16_t> loud(AIPLC_LOW_PASS_TAPS_16K);
    for (size_t n = 0; n < loud.size(); ++n) {
        loud[n] = g_aiplcLowPassCoeff16K[loud.size() - 1 - n] < 0 ? -32768 : 32767;
    }
    EXPECT_EQ(Filter16K(loud).back(), 32767);

    int16_t sample = 10001;
    float single = 7.0F;
    const float half = 0.5F;
    AiPlcFir(&sample, &single, &half, 0, 1);
    EXPECT_EQ(sample, 10001);
    EXPECT_EQ(single, 7.0F);
    AiPlcFir(&sample, &single, &half, 1, 1);
    EXPECT_EQ(sample, 5000);
}

TEST(FirTables, HaveTheirResponses) {
    EXPECT_NEAR(ResponseDb(g_aiplcLowPassCoeff16K, 31, 4290.0 / 16000), -3, 0.05);
    EXPECT_NEAR(ResponseDb(g_aiplcLowPassCoeff48K, 91, 5000.0 / 48000), -6, 0.1);
    EXPECT_NEAR(ResponseDb(g_aiplcDelayFilterCoeff_16k, 31, 0.5), -1.54, 0.01);
    EXPECT_NEAR(ResponseDb(g_aiplcDelayFilterCoeff_48k, 91, 0.5), -5.38, 0.01);
    for (double hz = 6000; hz <= 8000; hz += 50) {
        EXPECT_LT(ResponseDb(g_aiplcLowPassCoeff16K, 31, hz / 16000), -53.5) << hz;
    }
    for (double hz = 6000; hz <= 24000; hz += 50) {
        EXPECT_LT(ResponseDb(g_aiplcLowPassCoeff48K, 91, hz / 48000), -55.3) << hz;
    }
}

TEST(FloatBuffers, AreCheckedAndFreedOnce) {
    float *table[2] = {static_cast<float *>(std::calloc(4, sizeof(float))), nullptr};
    EXPECT_EQ(AiPlcCheckFloatMem(nullptr, 1), -1);
    EXPECT_EQ(AiPlcCheckFloatMem(table, 0), 0);
    EXPECT_EQ(AiPlcCheckFloatMem(table, 1), 0);
    EXPECT_EQ(AiPlcCheckFloatMem(table, 2), -1);
    AiPlcFreeFloatMem(table, 2);
    EXPECT_EQ(table[0], nullptr);
    AiPlcFreeFloatMem(table, 2);
    AiPlcFreeFloatMem(nullptr, 2);
}
