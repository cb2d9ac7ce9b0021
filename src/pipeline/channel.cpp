// SPDX-License-Identifier: BSD-2-Clause

#include <aiplc/aiplc.h>

#include "src/platform/platform.h"

int32_t AiPlcCreate(StAiPlcChannel **channel, void *block) {
    if (channel == nullptr) return -1;
    if (block == nullptr) {
        *channel = nullptr;
        return -1;
    }
    if (aiplc::platform::FillBounded(block, AIPLC_CHANNEL_BYTES, 0, AIPLC_CHANNEL_BYTES) != 0) {
        return -1;
    }
    *channel = static_cast<StAiPlcChannel *>(block);
    return 0;
}
