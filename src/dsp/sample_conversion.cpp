// SPDX-License-Identifier: BSD-2-Clause

#include <aiplc/aiplc.h>

#include "src/dsp/truncate.h"

void AiPlcShort2Float(const int16_t *input, float *output, int32_t count) {
    for (int32_t i = 0; i < count; ++i)
        output[i] = static_cast<float>(input[i]);
}

void AiPlcFloat2Short(const float *input, int16_t *output, int32_t count) {
    if (count > 0) aiplc::dsp::TruncateToPcm(input, output, static_cast<size_t>(count));
}

void AiPlcSetZeros(int16_t *data, uint16_t count) {
    for (uint16_t i = 0; i < count; ++i)
        data[i] = 0;
}
