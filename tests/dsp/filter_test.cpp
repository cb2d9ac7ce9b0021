// SPDX-License-Identifier: BSD-2-Clause

#include <aiplc/aiplc.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdlib>
#include <numeric>
#include <random>
#include <vector>

#include "dsp/three_band_tables.h"

namespace {

using Samples = std::vector<int16_t>;
using Floats = std::vector<float>;

// Filters 45 samples in two calls.
Samples LowPass(Samples samples) {
    Floats state(31);
    samples.resize(45);
    AiPlcFir(samples.data(), state.data(), g_aiplcLowPassCoeff16K, 20, 31);
    AiPlcFir(&samples[20], state.data(), g_aiplcLowPassCoeff16K, 25, 31);
    return samples;
}

double GainDb(const float *response, int count, double cyclesPerSample) {
    std::complex<double> sum = 0;
    for (int n = 0; n < count; ++n)
        sum += std::polar(1.0, 2 * M_PI * cyclesPerSample * n) * double{response[n]};
    return 20 * std::log10(std::abs(sum));
}

void Analyse(float *frame, Floats &state, int32_t length = 960) {
    EXPECT_EQ(AiPlcThreeBandAnalysis(frame, frame, state.data(), length), 0);
}

void Synthesise(float *frame, Floats &state) {
    EXPECT_EQ(AiPlcThreeBandSynthesis(frame, frame, state.data(), 960), 0);
}

Floats BandResponse(size_t band) {
    Floats frame(960), state(48);
    frame[320 * band] = 1.0F;
    Synthesise(frame.data(), state);
    return frame;
}

// Splits and joins frame after frame.
Floats PassThrough(Floats signal) {
    Floats analysis(48), synthesis(48);
    for (size_t first = 0; first < signal.size(); first += 960) {
        Analyse(&signal[first], analysis);
        Synthesise(&signal[first], synthesis);
    }
    return signal;
}

// Full scale, nothing, what is too small for a normal float, and all between.
Floats Extremes(size_t count, float scale = 1) {
    std::minstd_rand random(static_cast<uint32_t>(count));
    Floats values(count);
    for (float &value : values) {
        const auto draw = static_cast<float>(random() % 65536) - 32768.0F;
        const float choices[] = {-32768.0F, 32767.0F, -0.0F, 1e-41F};
        const size_t choice = random() % 8;
        value = scale * (choice < 4 ? choices[choice] : draw);
    }
    return values;
}

// The definitions: one output after the other, each sum from its first term to its last.
void FilterByDefinition(Samples &samples, Floats &state, const Floats &coeff) {
    for (int16_t &sample : samples) {
        state.insert(state.begin(), sample);
        state.pop_back();
        float sum = 0;
        for (size_t k = 0; k < coeff.size(); ++k)
            sum += state[k] * coeff[k];
        AiPlcFloat2Short(&sum, &sample, 1);
    }
}

}  // namespace

TEST(SampleConversion, TruncatesTowardsZeroAndSaturates) {
    const Floats in = {2.5F, -2.5F, -0.7F, 32767.9F, -32768.9F, 1e9F, -1e9F, INFINITY, NAN};
    Samples out(in.size());
    AiPlcFloat2Short(in.data(), out.data(), static_cast<int32_t>(in.size()));
    EXPECT_EQ(out, (Samples{2, -2, 0, 32767, -32768, 32767, -32768, 32767, -32768}));
}

TEST(Fir, GivesTheWorkedOutNumbersAndSaturates) {
    Samples response = {1,   0,   -2,  3,  3,  -9,  -2, 19, -5, -33, 27, 47, -80, -58, 308, 561,
                        308, -58, -80, 47, 27, -33, -5, 19, -2, -9,  3,  3,  -2,  0,   1};
    response.resize(45);
    EXPECT_EQ(LowPass({1000}), response);
    const Samples step = LowPass(Samples(45, -10000));
    EXPECT_EQ(step[28], -9991);
    EXPECT_EQ(step[29], -9983);
    EXPECT_EQ(step[30], -10000);
    // Full-scale samples with the taps' signs sum to 1.77 times full scale.
    Samples loud;
    for (const float tap : g_aiplcLowPassCoeff16K)
        loud.push_back(tap < 0 ? -32768 : 32767);
    EXPECT_EQ(LowPass(loud)[30], 32767);
}

TEST(Fir, IsItsDefinitionBitForBit) {
    for (const size_t taps : {1U, 2U, 31U, 91U, 128U, 129U}) {
        for (const size_t length : {0U, 1U, 31U, 33U, 320U, 960U, 961U, 2000U}) {
            Floats state = Extremes(taps), expectedState = state;
            const Floats coeff = Extremes(taps, 1.0F / 65536);
            Samples samples(length);
            AiPlcFloat2Short(Extremes(length).data(), samples.data(), static_cast<int32_t>(length));
            Samples expected = samples;
            FilterByDefinition(expected, expectedState, coeff);
            AiPlcFir(samples.data(), state.data(), coeff.data(), static_cast<int32_t>(length),
                     static_cast<int32_t>(taps));
            ASSERT_EQ(samples, expected) << taps << " taps, " << length << " samples";
            ASSERT_EQ(state, expectedState) << taps << " taps, " << length << " samples";
        }
    }
}

TEST(FirTables, HaveTheirResponses) {
    EXPECT_NEAR(GainDb(g_aiplcLowPassCoeff16K, 31, 4290.0 / 16000), -3, 0.05);
    EXPECT_NEAR(GainDb(g_aiplcLowPassCoeff48K, 91, 5000.0 / 48000), -6, 0.1);
    EXPECT_NEAR(GainDb(g_aiplcDelayFilterCoeff_16k, 31, 0.5), -1.54, 0.01);
    EXPECT_NEAR(GainDb(g_aiplcDelayFilterCoeff_48k, 91, 0.5), -5.38, 0.01);
    for (int hz = 0; hz <= 2000; hz += 5) {
        EXPECT_LT(GainDb(g_aiplcLowPassCoeff48K, 91, (6000 + 9 * hz) / 48e3), -55.3) << hz;
        EXPECT_LT(GainDb(g_aiplcLowPassCoeff16K, 31, (6000 + hz) / 16e3), -53.5) << hz;
    }
}

TEST(ThreeBand, ImpulsesReadTheTaps) {
    Floats frame(960), state(48);
    frame[0] = 1.0F;
    Analyse(frame.data(), state);
    EXPECT_EQ(frame[0], 0.00383508997F);
    EXPECT_EQ(frame[15], -0.000827039999F);
    EXPECT_EQ(frame[16], 0);
    // The middle band's taps follow from the low band's: (45 - 1) mod 12 = 8.
    EXPECT_EQ(frame[320], -2.0F * 0.00383508997F);
    EXPECT_EQ(frame[640], 0.00383508997F);

    const Floats low = BandResponse(0);
    EXPECT_EQ(low[0], 3.0F * -0.000954979972F);
    EXPECT_EQ(low[26], 3.0F * 0.121545419F);
    EXPECT_EQ(low[47], 3.0F * -0.000827039999F);
    EXPECT_EQ(low[48], 0);
}

TEST(ThreeBand, IsItsDefinitionBitForBit) {
    using aiplc::dsp::g_aiplcBandAnalysisCoeff, aiplc::dsp::g_aiplcBandSynthesisCoeff;
    for (const size_t count : {1U, 11U, 12U, 13U, 320U, 333U, 700U}) {  // samples of a band
        const Floats input = Extremes(3 * count), before = Extremes(48);
        Floats state = before, work(3 * count + 48), output(3 * count);
        const auto length = static_cast<int32_t>(3 * count);
        AiPlcThreeBandAnalysisProc(input.data(), state.data(), work.data(), output.data(), length);
        Floats past = before;
        past.insert(past.end(), input.begin(), input.end());
        for (size_t i = 0; i < 3 * count; ++i) {
            float sum = 0;
            for (size_t j = 0; j < 48; ++j)
                sum += g_aiplcBandAnalysisCoeff[i / count][j] * past[3 * (i % count) + 3 + j];
            ASSERT_EQ(output[i], sum) << "analysis of " << count << ", " << i;
        }

        state = before;
        Floats buffers[3];
        float *bands[3];
        for (size_t band = 0; band < 3; ++band) {
            buffers[band].resize(count + 16);
            bands[band] = buffers[band].data();
        }
        AiPlcThreeBandSynthesisProc(input.data(), state.data(), bands, output.data(), length);
        for (size_t i = 0; i < 3 * count; ++i) {
            float sum = 0;
            for (size_t term = 0; term < 48; ++term) {
                const size_t band = term / 16, j = i / 3 + 1 + term % 16;
                sum += g_aiplcBandSynthesisCoeff[band][i % 3 * 16 + term % 16] *
                       (j < 16 ? before[16 * band + j] : input[band * count + j - 16]);
            }
            ASSERT_EQ(output[i], 3.0F * sum) << "synthesis of " << count << ", " << i;
        }
    }
}

TEST(ThreeBand, BandsHaveTheirResponses) {
    const auto gain = [](size_t band, double hz) {
        return GainDb(BandResponse(band).data(), 48, hz / 48000) - 20 * std::log10(3);
    };
    for (const int hz : {0, 3000, 7000}) {
        EXPECT_NEAR(gain(0, hz), 0, 0.3) << hz;
        EXPECT_NEAR(gain(2, 24000 - hz), 0, 0.3) << hz;
    }
    EXPECT_NEAR(gain(0, 8000), -6, 0.2);
    EXPECT_NEAR(gain(1, 16000), -6, 0.2);
    EXPECT_NEAR(gain(1, 12000), 0, 0.3);
    for (int hz = 0; hz <= 6000; hz += 250) {
        EXPECT_LT(gain(0, 24000 - 2 * hz), -49) << hz;
        EXPECT_LT(gain(1, hz), -46.9) << hz;
    }
}

TEST(ThreeBand, AnalysisAndSynthesisDelayBy44Samples) {
    Floats tone;
    for (int n = 0; n < 3 * 960; ++n)
        tone.push_back(10000 * std::sin(static_cast<float>(n % 48 * M_PI / 24)));
    const Floats delayed = PassThrough(tone);
    const Floats constant = PassThrough(Floats(tone.size(), 10000));
    for (size_t n = 963; n < tone.size(); ++n) {
        ASSERT_NEAR(delayed[n], tone[n - 44], 100) << n;
        ASSERT_NEAR(constant[n], constant[n - 3], 0.01) << n;
    }
    const auto [least, most] = std::minmax_element(constant.end() - 3, constant.end());
    EXPECT_EQ(std::lround(*least), 9346);
    EXPECT_EQ(std::lround(*most), 9384);
}

TEST(FloatTable, IsCheckedAndFreedUpToItsCount) {
    const auto buffer = [] { return static_cast<float *>(std::calloc(4, sizeof(float))); };
    float *table[] = {buffer(), nullptr, buffer()};
    EXPECT_EQ(AiPlcCheckFloatMem(table, 1), 0);
    EXPECT_EQ(AiPlcCheckFloatMem(table, 3), -1);
    EXPECT_EQ(AiPlcCheckFloatMem(table, -1), 0);
    EXPECT_EQ(AiPlcCheckFloatMem(nullptr, 0), -1);
    AiPlcFreeFloatMem(nullptr, 3);
    AiPlcFreeFloatMem(table, 2);
    EXPECT_EQ(table[0], nullptr);
    EXPECT_NE(table[2], nullptr) << "behind the count";
    AiPlcFreeFloatMem(table, 3);
    AiPlcFreeFloatMem(table, 3);
    EXPECT_EQ(table[2], nullptr);
    int16_t samples[] = {1, 2, 3};
    AiPlcSetZeros(samples, 2);
    EXPECT_EQ(samples[1] + samples[2], 3);
}

TEST(ThreeBand, StateHoldsTheNewestSamplesForAnyLength) {
    Floats state(48), ramp(992);
    std::iota(ramp.begin(), ramp.end(), 0.0F);
    const Floats expected(ramp.end() - 48, ramp.end());
    Analyse(ramp.data(), state);
    Analyse(&ramp[960], state, 32);  // the last two make no output but are kept
    EXPECT_EQ(state, expected);
}
