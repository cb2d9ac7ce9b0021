// SPDX-License-Identifier: BSD-2-Clause

#include <aiplc/aiplc.h>

#include "src/platform/platform.h"

namespace platform = aiplc::platform;

uint64_t AiPlcGetTimeUs() {
    constexpr int64_t kMicrosecondsPerSecond = 1'000'000;
    const int64_t counter = platform::PerformanceCounter();
    const int64_t frequency = platform::PerformanceFrequency();
    if (frequency == 0) {
        return 0;
    }
    // Split, because counter times a million leaves 64 bits after days of nanosecond ticks.
    const int64_t seconds = counter / frequency;
    const int64_t rest = counter - seconds * frequency;
    return static_cast<uint64_t>(seconds * kMicrosecondsPerSecond +
                                 rest * kMicrosecondsPerSecond / frequency);
}
