// SPDX-License-Identifier: BSD-2-Clause
//
// Critically sampled three-band filter bank, polyphase: 48 kHz in three bands of 16 kHz each.

#include <aiplc/aiplc.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "dsp/three_band_tables.h"
#include "platform/platform.h"

namespace {

constexpr size_t kTaps = AIPLC_BANK_TAPS;
constexpr size_t kBandTaps = kTaps / AIPLC_BANDS;

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

}  // namespace

void AiPlcThreeBandAnalysisProc(const float *input, float *state, float *work, float *output,
                                int32_t length) {
    const size_t samples = NotNegative(length);
    std::memcpy(work, state, kTaps * sizeof(float));
    std::memcpy(work + kTaps, input, samples * sizeof(float));
    std::memcpy(state, work + samples, kTaps * sizeof(float));

    const size_t bandSamples = samples / AIPLC_BANDS;
    for (size_t i = 0; i < bandSamples; ++i) {
        const float *window = work + AIPLC_BANDS * i + AIPLC_BANDS;
        for (size_t band = 0; band < AIPLC_BANDS; ++band) {
            const auto &taps = aiplc::dsp::g_aiplcBandAnalysisCoeff[band];
            float sum = 0.0F;
            for (size_t j = 0; j < kTaps; ++j)
                sum += taps[j] * window[j];
            output[band * bandSamples + i] = sum;
        }
    }
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

    // Restores the gain that decimation by three takes away.
    constexpr float kGain = 3.0F;
    for (size_t i = 0; i < bandSamples; ++i) {
        for (size_t phase = 0; phase < AIPLC_BANDS; ++phase) {
            float sum = 0.0F;
            for (size_t band = 0; band < AIPLC_BANDS; ++band) {
                const float *taps =
                    aiplc::dsp::g_aiplcBandSynthesisCoeff[band].data() + phase * kBandTaps;
                const float *window = bands[band] + i + 1;
                for (size_t j = 0; j < kBandTaps; ++j)
                    sum += taps[j] * window[j];
            }
            output[AIPLC_BANDS * i + phase] = kGain * sum;
        }
    }
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
