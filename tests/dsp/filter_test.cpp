// SPDX-License-Identifier: BSD-2-Clause

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <numeric>
#include <random>
#include <span>

#include "src/dsp/three_band_tables.h"
#include "tests/support/scripted_platform.h"

// The linker sends the library's calls of calloc through here.
void *RealCalloc(size_t count, size_t size) asm("__real_calloc");
void *WrapCalloc(size_t count, size_t size) asm("__wrap_calloc");

namespace {

using Samples = std::vector<int16_t>;
using Floats = std::vector<float>;

int callocsToGo = -1;  // before one fails; below zero none does

// The tables of published_taps.txt, by name.
std::map<std::string, Floats> PublishedTaps() {
    std::ifstream file(AIPLC_PUBLISHED_TAPS);
    std::map<std::string, Floats> tables;
    std::string name, word;
    while (file >> word) {
        if (word == "#") {
            std::getline(file, word);
        } else if (std::isalpha(static_cast<unsigned char>(word[0])) != 0) {
            name = word;
        } else {
            tables[name].push_back(std::strtof(word.c_str(), nullptr));
        }
    }
    return tables;
}

// All bands are one prototype, modulated with odd multiples of the lowest band's cosine.
float BankTap(const Floats &lowBand, size_t band, size_t n) {
    const double phase = M_PI / 6 * (static_cast<double>(n) - 1);
    const auto multiple = static_cast<double>(2 * band + 1);
    return lowBand[n] *
           static_cast<float>(std::round(std::cos(multiple * phase) / std::cos(phase)));
}

void Analyse(float *frame, Floats &state, int32_t length = 960) {
    EXPECT_EQ(AiPlcThreeBandAnalysis(frame, frame, state.data(), length), 0);
}

Floats BandResponse(size_t band) {
    Floats frame(960), state(48);
    frame[320 * band] = 1.0F;
    EXPECT_EQ(AiPlcThreeBandSynthesis(frame.data(), frame.data(), state.data(), 960), 0);
    return frame;
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

void *WrapCalloc(size_t count, size_t size) {
    return callocsToGo-- == 0 ? nullptr : RealCalloc(count, size);
}

TEST(SampleConversion, TruncatesTowardsZeroAndSaturates) {
    const Floats in = {2.5F, -2.5F, -0.7F, 32767.9F, -32768.9F, 1e9F, -1e9F, INFINITY, NAN};
    Samples out(in.size());
    AiPlcFloat2Short(in.data(), out.data(), static_cast<int32_t>(in.size()));
    EXPECT_EQ(out, (Samples{2, -2, 0, 32767, -32768, 32767, -32768, 32767, -32768}));
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

TEST(FirTables, AreThePublishedTaps) {
    const std::map<std::string, std::span<const float>> tables = {
        {"LowPass16K", g_aiplcLowPassCoeff16K},
        {"LowPass48K", g_aiplcLowPassCoeff48K},
        {"Delay16K", g_aiplcDelayFilterCoeff_16k},
        {"Delay48K", g_aiplcDelayFilterCoeff_48k}};
    for (const auto &[name, table] : tables) {
        const Floats half = PublishedTaps()[name];
        ASSERT_EQ(2 * half.size() - 1, table.size());
        for (size_t n = 0; n < table.size(); ++n)
            EXPECT_EQ(table[n], half[std::min(n, table.size() - 1 - n)]) << name << ' ' << n;
    }
}

TEST(ThreeBand, ImpulsesReadThePublishedTaps) {
    const Floats lowBand = PublishedTaps()["LowBand"];
    ASSERT_EQ(lowBand.size(), 48U);
    Floats analysed[3];  // with the impulse at that sample: every third tap, last one first
    for (size_t sample = 0; sample < 3; ++sample) {
        Floats state(48);
        analysed[sample].resize(960);
        analysed[sample][sample] = 1.0F;
        Analyse(analysed[sample].data(), state);
    }
    for (size_t band = 0; band < 3; ++band) {
        const Floats synthesised = BandResponse(band);
        for (size_t n = 0; n < 48; ++n) {
            const float tap = BankTap(lowBand, band, n);
            EXPECT_EQ(analysed[n % 3][320 * band + 15 - n / 3], tap) << band << ' ' << n;
            EXPECT_EQ(synthesised[(n + 47) % 48], 3.0F * tap) << band << ' ' << n;
        }
        EXPECT_EQ(analysed[0][320 * band + 16], 0);
        EXPECT_EQ(synthesised[48], 0);
    }
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
    Samples samples = {1, 2, 3};
    AiPlcSetZeros(samples.data(), 0);
    EXPECT_EQ(samples, (Samples{1, 2, 3}));
    AiPlcSetZeros(samples.data(), 2);
    EXPECT_EQ(samples, (Samples{0, 0, 3}));
}

TEST(ThreeBand, LengthsNotDivisibleByThreeKeepTheRestInTheState) {
    Floats state(48), ramp(992);
    std::iota(ramp.begin(), ramp.end(), 0.0F);
    const Floats expected(ramp.end() - 48, ramp.end());
    Analyse(ramp.data(), state);
    Analyse(&ramp[960], state, 32);  // the last two make no output but are kept
    EXPECT_EQ(state, expected);
    EXPECT_EQ(ramp[990], 990);
    Floats joined(33, 5);
    EXPECT_EQ(AiPlcThreeBandSynthesis(joined.data(), joined.data(), state.data(), 32), 0);
    EXPECT_NE(joined[29], 5);
    EXPECT_EQ(Floats(joined.end() - 3, joined.end()), (Floats{0, 0, 5}));
}

TEST(SignalProcessing, NegativeLengthsDoNothing) {
    Samples samples(48, 3), incoming(48, 4);
    Floats state(48, 5), work(96), bands(48), output(48, 6);
    float *buffers[] = {&bands[0], &bands[16], &bands[32]};
    AiPlcFloat2Short(state.data(), samples.data(), -1);
    AiPlcShort2Float(samples.data(), output.data(), -1);
    AiPlcFir(samples.data(), state.data(), g_aiplcLowPassCoeff16K, -1, 31);
    AiPlcFuseSmooth(samples.data(), incoming.data(), g_aiplcTriangWin16K, -1);
    EXPECT_EQ(AiPlcThreeBandAnalysis(state.data(), output.data(), state.data(), -3), 0);
    EXPECT_EQ(AiPlcThreeBandSynthesis(state.data(), output.data(), state.data(), -3), 0);
    AiPlcThreeBandAnalysisProc(state.data(), state.data(), work.data(), output.data(), -3);
    AiPlcThreeBandSynthesisProc(state.data(), state.data(), buffers, output.data(), -3);
    EXPECT_EQ(samples, Samples(48, 3));
    EXPECT_EQ(incoming, Samples(48, 4));
    EXPECT_EQ(state, Floats(48, 5));
    EXPECT_EQ(output, Floats(48, 6));
}

using ThreeBandMemory = LoggedTest;

TEST_F(ThreeBandMemory, WhenItIsShortNothingChangesAndTheLogSaysSo) {
    for (const auto &[wrapper, buffers] :
         {std::pair(&AiPlcThreeBandAnalysis, 2), std::pair(&AiPlcThreeBandSynthesis, 4)}) {
        for (int failing = 0; failing < buffers; ++failing) {
            const Floats input(30, 5);
            Floats output(30, 6), state(48, 7);
            callocsToGo = failing;
            EXPECT_EQ(wrapper(input.data(), output.data(), state.data(), 30), -1);
            callocsToGo = -1;
            EXPECT_EQ(TakeLog(), "aiplc_common: calloc failed: errorValue\r\n\n") << failing;
            EXPECT_EQ(output, Floats(30, 6));
            EXPECT_EQ(state, Floats(48, 7));
        }
    }
}
