// SPDX-License-Identifier: BSD-2-Clause

#include <aiplc/aiplc.h>

#include <cstring>

#include "dsp/truncate.h"

void AiPlcFir(int16_t *data, float *state, const float *coeff, int32_t length, int32_t taps) {
    for (int32_t i = 0; i < length; ++i) {
        if (taps >= 2) {
            std::memmove(state + 1, state, (static_cast<size_t>(taps) - 1) * sizeof(float));
        }
        state[0] = static_cast<float>(data[i]);
        float sum = 0.0F;
        for (int32_t k = 0; k < taps; ++k)
            sum += state[k] * coeff[k];
        // The low-pass taps sum to 1.77 in magnitude, so a loud input can leave the range.
        data[i] = aiplc::dsp::TruncateToPcm(sum);
    }
}
