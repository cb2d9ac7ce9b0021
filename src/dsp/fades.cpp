// SPDX-License-Identifier: BSD-2-Clause

#include <aiplc/aiplc.h>

#include <cstdint>

#include "src/dsp/truncate.h"

namespace {

// (k + 0.5) / length written out with nine significant digits, as a float.
constexpr float Weight(uint64_t k, uint64_t length) {
    const uint64_t numerator = 2 * k + 1;
    const uint64_t denominator = 2 * length;
    uint64_t scale = 1'000'000'000;
    while (numerator * scale / denominator < 100'000'000)
        scale *= 10;
    const uint64_t digits = (2 * numerator * scale + denominator) / (2 * denominator);
    return static_cast<float>(static_cast<double>(digits) / static_cast<double>(scale));
}

// Entry i of a table of 2 * length weights: a rising half, then its mirror image.
constexpr float Triangle(uint64_t i, uint64_t length) {
    return Weight(i < length ? i : 2 * length - 1 - i, length);
}

int32_t Scale(int16_t sample, float weight) {
    return static_cast<int32_t>(static_cast<float>(sample) * weight);
}

}  // namespace

// A C array takes its values one by one: the preprocessor counts to 640 and 1920.
#define AIPLC_4(i, n) \
    Triangle(i, n), Triangle((i) + 1, n), Triangle((i) + 2, n), Triangle((i) + 3, n)
#define AIPLC_16(i, n) AIPLC_4(i, n), AIPLC_4((i) + 4, n), AIPLC_4((i) + 8, n), AIPLC_4((i) + 12, n)
#define AIPLC_64(i, n) \
    AIPLC_16(i, n), AIPLC_16((i) + 16, n), AIPLC_16((i) + 32, n), AIPLC_16((i) + 48, n)
#define AIPLC_320(i, n)                                                                    \
    AIPLC_64(i, n), AIPLC_64((i) + 64, n), AIPLC_64((i) + 128, n), AIPLC_64((i) + 192, n), \
        AIPLC_64((i) + 256, n)

const float g_aiplcTriangWin16K[2 * AIPLC_FRAME_SAMPLES_16K] = {AIPLC_320(0, 320),
                                                                AIPLC_320(320, 320)};

const float g_aiplcTriangWin48K[2 * AIPLC_FRAME_SAMPLES_48K] = {
    AIPLC_320(0, 960),   AIPLC_320(320, 960),  AIPLC_320(640, 960),
    AIPLC_320(960, 960), AIPLC_320(1280, 960), AIPLC_320(1600, 960)};

void AiPlcFuseSmooth(const int16_t *outgoing, int16_t *incoming, const float *window,
                     int32_t length) {
    for (int32_t i = 0; i < length; ++i) {
        incoming[i] = static_cast<int16_t>(Scale(incoming[i], window[i]) +
                                           Scale(outgoing[i], window[length + i]));
    }
}

int32_t AiPlcWinSmoothing(const int16_t *incoming, int16_t *outgoing, uint16_t length) {
    if (incoming == nullptr || outgoing == nullptr || length != AIPLC_FRAME_SAMPLES_48K) return -1;
    constexpr int32_t kLength = AIPLC_FRAME_SAMPLES_48K;
    for (int32_t i = 0; i < kLength; ++i) {
        outgoing[i] = static_cast<int16_t>(Scale(incoming[i], g_aiplcTriangWin48K[i]) +
                                           Scale(outgoing[i], g_aiplcTriangWin48K[kLength + i]));
    }
    return 0;
}

void AiPlc16kFadeOut(int16_t *block) {
    for (int32_t k = 0; k < AIPLC_FRAME_SAMPLES_16K; ++k) {
        block[k] = aiplc::dsp::TruncateToPcm(static_cast<float>(block[k]) *
                                             g_aiplcTriangWin16K[AIPLC_FRAME_SAMPLES_16K + k]);
    }
}

void AiPlc16kFadeIn(int16_t *block) {
    for (int32_t k = 0; k < AIPLC_FRAME_SAMPLES_16K; ++k) {
        block[k] = aiplc::dsp::TruncateToPcm(static_cast<float>(block[k]) * g_aiplcTriangWin16K[k]);
    }
}
