// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TRUNCATE_H
#define AIPLC_TRUNCATE_H

#include <cstdint>

namespace aiplc::dsp {

// Truncates towards zero and saturates to -32768..32767; not a number gives -32768. Clamping before
// the conversion keeps every value convertible and the loop vectorisable.
inline int16_t TruncateToPcm(float value) {
    constexpr float kLowest = -32768.0F;
    constexpr float kHighest = 32767.0F;
    const float floored = value > kLowest ? value : kLowest;
    const float clamped = floored < kHighest ? floored : kHighest;
    return static_cast<int16_t>(static_cast<int32_t>(clamped));
}

}  // namespace aiplc::dsp

#endif
