// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TRUNCATE_H
#define AIPLC_TRUNCATE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace aiplc::dsp {

// To -32768..32767; not a number gives -32768.
inline float ClampToPcm(float value) {
    constexpr float kLowest = -32768.0F;
    constexpr float kHighest = 32767.0F;
    const float floored = value > kLowest ? value : kLowest;
    return floored < kHighest ? floored : kHighest;
}

// Truncates towards zero and saturates. Clamping before the conversion keeps every value
// convertible and the loop vectorisable.
inline int16_t TruncateToPcm(float value) {
    return static_cast<int16_t>(static_cast<int32_t>(ClampToPcm(value)));
}

// count values at once, as one alone. The compiler makes better vectors of two loops than of one.
inline void TruncateToPcm(const float *values, int16_t *samples, size_t count) {
    constexpr size_t kBlock = 64;
    while (count > 0) {
        float clamped[kBlock];
        const size_t size = std::min(count, kBlock);
        std::transform(values, values + size, clamped, ClampToPcm);
        std::transform(clamped, clamped + size, samples, [](float value) {
            return static_cast<int16_t>(static_cast<int32_t>(value));
        });
        values += size;
        samples += size;
        count -= size;
    }
}

}  // namespace aiplc::dsp

#endif
