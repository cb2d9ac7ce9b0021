// SPDX-License-Identifier: BSD-2-Clause

#include <aiplc/aiplc.h>

#include <cstdlib>

#include "dsp/truncate.h"

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

int32_t AiPlcCheckFloatMem(float **table, int32_t count) {
    if (table == nullptr) return -1;
    for (int32_t i = 0; i < count; ++i) {
        if (table[i] == nullptr) return -1;
    }
    return 0;
}

void AiPlcFreeFloatMem(float **table, int32_t count) {
    if (table == nullptr) return;
    for (int32_t i = 0; i < count; ++i) {
        std::free(table[i]);
        table[i] = nullptr;
    }
}
