// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_WORKER_SAMPLE_H
#define AIPLC_WORKER_SAMPLE_H

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace aiplc::worker {

// Rounded, ties to even, and limited to 16 bits.
inline int16_t ToSample(float value) {
    return static_cast<int16_t>(std::lrint(std::clamp(value, -32768.0F, 32767.0F)));
}

}  // namespace aiplc::worker

#endif
