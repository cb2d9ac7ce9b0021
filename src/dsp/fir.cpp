// SPDX-License-Identifier: BSD-2-Clause

#include <aiplc/aiplc.h>

#include <algorithm>

#include "src/dsp/inner_products.h"
#include "src/dsp/truncate.h"

namespace {

// Samples filtered at once, and taps of filters for which there is room to do so.
constexpr size_t kBlock = AIPLC_FRAME_SAMPLES_48K;
constexpr size_t kMostTaps = 128;
// Outputs side by side: eight vectors of four hide the latency of the additions.
constexpr size_t kWidth = 32;

void FilterBlock(int16_t *data, float *state, const float *coeff, size_t length, size_t taps) {
    float line[kMostTaps + kBlock];  // oldest sample first
    const size_t past = taps - 1;
    std::reverse_copy(state, state + past, line);
    float *newest = line + past;
    std::copy_n(data, length, newest);
    aiplc::dsp::InBlocks<kWidth>(length, [&](auto width, size_t first) {
        const auto sums = aiplc::dsp::InnerProducts<width, 1>(
            {coeff}, taps, [&](size_t term) { return newest + first - term; });
        aiplc::dsp::TruncateToPcm(sums[0].data(), data + first, width);
    });
    const float *end = newest + length;
    std::reverse_copy(end - taps, end, state);
}

// For any number of taps.
void FilterSample(int16_t &sample, float *state, const float *coeff, int32_t taps) {
    if (taps >= 2) std::copy_backward(state, state + taps - 1, state + taps);
    state[0] = sample;
    float sum = 0.0F;
    for (int32_t k = 0; k < taps; ++k)
        sum += state[k] * coeff[k];
    sample = aiplc::dsp::TruncateToPcm(sum);
}

}  // namespace

void AiPlcFir(int16_t *data, float *state, const float *coeff, int32_t length, int32_t taps) {
    const size_t count = length > 0 ? static_cast<size_t>(length) : 0;
    if (taps < 1 || static_cast<size_t>(taps) > kMostTaps) {
        for (size_t i = 0; i < count; ++i)
            FilterSample(data[i], state, coeff, taps);
        return;
    }
    for (size_t i = 0; i < count; i += kBlock)
        FilterBlock(data + i, state, coeff, std::min(kBlock, count - i), static_cast<size_t>(taps));
}
