// SPDX-License-Identifier: BSD-2-Clause

#include <aiplc/aiplc.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <numeric>
#include <vector>

namespace {

using Frame = std::array<float, 960>;
using State = std::array<float, 48>;

// What the bank makes of an endless signal: one analysis and one synthesis per frame.
template <typename Signal>
std::vector<double> PassThrough(Signal signal, int frames) {
    State analysis{};
    State synthesis{};
    std::vector<double> out;
    for (int f = 0; f < frames; ++f) {
        Frame frame;
        for (int i = 0; i < 960; ++i) {
            frame[static_cast<size_t>(i)] = static_cast<float>(signal(960 * f + i));
        }
        EXPECT_EQ(AiPlcThreeBandAnalysis(frame.data(), frame.data(), analysis.data(), 960), 0);
        EXPECT_EQ(AiPlcThreeBandSynthesis(frame.data(), frame.data(), synthesis.data(), 960), 0);
        out.insert(out.end(), frame.begin(), frame.end());
    }
    return out;
}

std::vector<float> ImpulseResponse(int band) {
    Frame bands{};
    bands[static_cast<size_t>(320 * band)] = 1.0F;
    State state{};
    std::vector<float> out(960);
    EXPECT_EQ(AiPlcThreeBandSynthesis(bands.data(), out.data(), state.data(), 960), 0);
    return out;
}

double BandGainDb(int band, double hz) {
    std::complex<double> sum = 0;
    const std::vector<float> response = ImpulseResponse(band);
    for (int n = 0; n < 48; ++n) {
        sum += std::polar(response[static_cast<size_t>(n)] / 3.0, 2 * M_PI * hz / 48000 * n);
    }
    return 20 * std::log10(std::abs(sum));
}

}  // namespace

TEST(ThreeBand, ImpulsesReadTheTaps) {
    Frame frame{};
    frame[0] = 1.0F;
    State state{};
    ASSERT_EQ(AiPlcThreeBandAnalysis(frame.data(), frame.data(), state.data(), 960), 0);
    EXPECT_EQ(frame[0], 0.00383508997F);
    EXPECT_EQ(frame[15], -0.000827039999F);
    EXPECT_EQ(frame[16], 0);
    // The middle band's taps follow from the low band's: (45 - 1) mod 12 = 8.
    EXPECT_EQ(frame[320], -2.0F * 0.00383508997F);
    EXPECT_EQ(frame[640], 0.00383508997F);

    const std::vector<float> low = ImpulseResponse(0);
    EXPECT_EQ(low[0], 3.0F * -0.000954979972F);
    EXPECT_EQ(low[26], 3.0F * 0.121545419F);
    EXPECT_EQ(low[47], 3.0F * -0.000827039999F);
    EXPECT_EQ(low[48], 0);
}

TEST(ThreeBand, BandsHaveTheirResponses) {
    for (const double hz : {0.0, 3000.0, 7000.0}) {
        EXPECT_NEAR(BandGainDb(0, hz), 0, 0.3) << hz;
        EXPECT_NEAR(BandGainDb(2, 24000 - hz), 0, 0.3) << hz;
    }
    EXPECT_NEAR(BandGainDb(0, 8000), -6, 0.2);
    EXPECT_NEAR(BandGainDb(1, 16000), -6, 0.2);
    EXPECT_NEAR(BandGainDb(1, 12000), 0, 0.3);
    for (double hz = 12000; hz <= 24000; hz += 500)
        EXPECT_LT(BandGainDb(0, hz), -49) << hz;
    for (double hz = 0; hz <= 6000; hz += 500)
        EXPECT_LT(BandGainDb(1, hz), -46.9) << hz;
}

TEST(ThreeBand, AnalysisAndSynthesisDelayBy44Samples) {
    const auto tone = [](int n) { return 10000 * std::sin(2 * M_PI * n / 48); };
    const std::vector<double> out = PassThrough(tone, 4);
    for (int n = 960; n < 4 * 960; ++n) {
        ASSERT_NEAR(out[static_cast<size_t>(n)], tone(n - 44), 100) << n;
    }
    const std::vector<double> constant = PassThrough([](int) { return 10000.0; }, 3);
    for (size_t n = 960; n < constant.size(); ++n) {
        ASSERT_GE(constant[n], 9346) << n;
        ASSERT_LE(constant[n], 9384.5) << n;
        ASSERT_NEAR(constant[n], constant[n - 3], n >= 963 ? 0.01 : 100) << n;
    }
}

TEST(ThreeBand, StatesHoldTheNewestSamplesForAnyLength) {
    Frame ramp;
    std::iota(ramp.begin(), ramp.end(), 0.0F);
    State state{};
    Frame out;
    ASSERT_EQ(AiPlcThreeBandAnalysis(ramp.data(), out.data(), state.data(), 960), 0);
    EXPECT_EQ(state.front(), 912);
    EXPECT_EQ(state.back(), 959);

    const std::array<float, 32> more{1000, 1001};
    ASSERT_EQ(AiPlcThreeBandAnalysis(more.data(), out.data(), state.data(), 2), 0);
    EXPECT_EQ(state.front(), 914);
    EXPECT_EQ(state.back(), 1001);
    ASSERT_EQ(AiPlcThreeBandAnalysis(more.data(), out.data(), state.data(), 32), 0);
    EXPECT_EQ(state[15], 1001) << "the last two of 32 samples make no output but are kept";
}
