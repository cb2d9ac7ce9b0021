// SPDX-License-Identifier: BSD-2-Clause

#include <aiplc/aiplc.h>

#include <cstdlib>

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
