// SPDX-License-Identifier: BSD-2-Clause
//
// Critically sampled three-band filter bank, polyphase: 48 kHz in three bands of 16 kHz each.

#include <aiplc/aiplc.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "src/dsp/inner_products.h"
#include "src/dsp/three_band_tables.h"
#include "src/platform/platform.h"

namespace {

constexpr size_t kTaps = AIPLC_BANK_TAPS;
constexpr size_t kBandTaps = kTaps / AIPLC_BANDS;
// Outputs side by side, in three rows: nine vectors of four hide the latency of the additions and
// leave registers for what is multiplied.
constexpr size_t kWidth = 12;
// Band samples analysed at once.
constexpr size_t kBlock = AIPLC_BAND_SAMPLES;
// Restores the gain that decimation by three takes away.
constexpr float kGain = 3.0F;

// The synthesis taps with a row for each output phase: those of each band after another.
constexpr aiplc::dsp::BankTable MakePhaseTaps() {
    aiplc::dsp::BankTable rows{};
    for (size_t phase = 0; phase < AIPLC_BANDS; ++phase) {
        for (size_t term = 0; term < kTaps; ++term) {
            const auto &band = aiplc::dsp::g_aiplcBandSynthesisCoeff[term / kBandTaps];
            rows[phase][term] = band[phase * kBandTaps + term % kBandTaps];
        }
    }
    return rows;
}
constexpr aiplc::dsp::BankTable kPhaseTaps = MakePhaseTaps();

struct Free {
    void operator()(float *buffer) const { std::free(buffer); }
};
using FloatBuffer = std::unique_ptr<float, Free>;

FloatBuffer AllocateFloats(size_t count) {
    return FloatBuffer(static_cast<float *>(std::calloc(count, sizeof(float))));
}

void LogAllocationFailure(int32_t line) {
    AudAiplcLog("aiplc_common", line, "calloc failed: errorValue\r\n");
}

size_t NotNegative(int32_t length) {
    return static_cast<size_t>(std::max(length, 0));
}

int32_t CopyOut(float *output, const float *result, size_t count) {
    const size_t bytes = count * sizeof(float);
    return aiplc::platform::CopyBounded(output, bytes, result, bytes) == 0 ? 0 : -1;
}

// Where the samples lie that the first output multiplies with each tap.
using Sources = std::array<const float *, kTaps>;

// Of each of the table's rows, for the outputs from first on.
template <size_t Width>
auto ThreeRows(const aiplc::dsp::BankTable &table, const Sources &sources, size_t first) {
    return aiplc::dsp::InnerProducts<Width, AIPLC_BANDS>(
        {table[0].data(), table[1].data(), table[2].data()}, kTaps,
        [&](size_t term) { return sources[term] + first; });
}

// input: count + 15 groups of three samples; output: band by band, stride apart.
void AnalyseBlock(const float *input, float *output, size_t count, size_t stride) {
    float phases[AIPLC_BANDS][kBlock + kBandTaps];  // every third sample
    for (size_t i = 0; i < count + kBandTaps - 1; ++i) {
        for (size_t phase = 0; phase < AIPLC_BANDS; ++phase)
            phases[phase][i] = input[AIPLC_BANDS * i + phase];
    }
    Sources sources;
    for (size_t term = 0; term < kTaps; ++term)
        sources[term] = phases[term % AIPLC_BANDS] + term / AIPLC_BANDS;
    aiplc::dsp::InBlocks<kWidth>(count, [&](auto width, size_t first) {
        const auto bands = ThreeRows<width>(aiplc::dsp::g_aiplcBandAnalysisCoeff, sources, first);
        for (size_t band = 0; band < AIPLC_BANDS; ++band)
            std::ranges::copy(bands[band], output + band * stride + first);
    });
}

// bands: count + 15 samples of each; output: count groups of three samples.
void SynthesiseBlock(const std::array<const float *, AIPLC_BANDS> &bands, float *output,
                     size_t count) {
    float phases[AIPLC_BANDS][kBlock];
    Sources sources;
    for (size_t term = 0; term < kTaps; ++term)
        sources[term] = bands[term / kBandTaps] + term % kBandTaps;
    aiplc::dsp::InBlocks<kWidth>(count, [&](auto width, size_t first) {
        const auto sums = ThreeRows<width>(kPhaseTaps, sources, first);
        for (size_t phase = 0; phase < AIPLC_BANDS; ++phase)
            std::ranges::copy(sums[phase], phases[phase] + first);
    });
    for (size_t i = 0; i < count; ++i) {
        for (size_t phase = 0; phase < AIPLC_BANDS; ++phase)
            output[AIPLC_BANDS * i + phase] = kGain * phases[phase][i];
    }
}

}  // namespace

void AiPlcThreeBandAnalysisProc(const float *input, float *state, float *work, float *output,
                                int32_t length) {
    const size_t samples = NotNegative(length);
    std::memcpy(work, state, kTaps * sizeof(float));
    std::memcpy(work + kTaps, input, samples * sizeof(float));
    std::memcpy(state, work + samples, kTaps * sizeof(float));

    const size_t bandSamples = samples / AIPLC_BANDS;
    for (size_t first = 0; first < bandSamples; first += kBlock)
        AnalyseBlock(work + AIPLC_BANDS * (first + 1), output + first,
                     std::min(kBlock, bandSamples - first), bandSamples);
}

void AiPlcThreeBandSynthesisProc(const float *input, float *state, float **bands, float *output,
                                 int32_t length) {
    const size_t bandSamples = NotNegative(length) / AIPLC_BANDS;
    for (size_t band = 0; band < AIPLC_BANDS; ++band) {
        float *history = state + band * kBandTaps;
        std::memcpy(bands[band], history, kBandTaps * sizeof(float));
        std::memcpy(bands[band] + kBandTaps, input + band * bandSamples,
                    bandSamples * sizeof(float));
        std::memcpy(history, bands[band] + bandSamples, kBandTaps * sizeof(float));
    }

    for (size_t first = 0; first < bandSamples; first += kBlock)
        SynthesiseBlock({bands[0] + first + 1, bands[1] + first + 1, bands[2] + first + 1},
                        output + AIPLC_BANDS * first, std::min(kBlock, bandSamples - first));
}

int32_t AiPlcThreeBandAnalysis(const float *input, float *output, float *state, int32_t length) {
    const size_t samples = NotNegative(length);
    const size_t outputs = samples / AIPLC_BANDS * AIPLC_BANDS;
    const FloatBuffer result = AllocateFloats(outputs);
    const FloatBuffer work = AllocateFloats(samples + kTaps);
    if (result == nullptr || work == nullptr) {
        LogAllocationFailure(__LINE__);
        return -1;
    }
    AiPlcThreeBandAnalysisProc(input, state, work.get(), result.get(), length);
    return CopyOut(output, result.get(), outputs);
}

int32_t AiPlcThreeBandSynthesis(const float *input, float *output, float *state, int32_t length) {
    const size_t samples = NotNegative(length);
    const size_t bandBuffer = samples / AIPLC_BANDS + kBandTaps;
    const FloatBuffer result = AllocateFloats(samples);
    const FloatBuffer low = AllocateFloats(bandBuffer);
    const FloatBuffer middle = AllocateFloats(bandBuffer);
    const FloatBuffer high = AllocateFloats(bandBuffer);
    if (result == nullptr || low == nullptr || middle == nullptr || high == nullptr) {
        LogAllocationFailure(__LINE__);
        return -1;
    }
    float *bands[AIPLC_BANDS] = {low.get(), middle.get(), high.get()};
    AiPlcThreeBandSynthesisProc(input, state, bands, result.get(), length);
    return CopyOut(output, result.get(), samples);
}
