// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TRUNCATE_H
#define AIPLC_TRUNCATE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace aiplc::dsp {

struct PcmRange {
    float lowest;
    float highest;
};
// Of 16 bits. Defined elsewhere: with variables the compiler makes minima and maxima of vectors,
// with constants four instructions of each.
extern const PcmRange kPcmRange;

// Truncates towards zero and saturates; not a number gives the lowest. Clamping before the
// conversion keeps every value convertible and loops vectorisable.
inline int16_t TruncateToPcm(float value, PcmRange range = kPcmRange) {
    const float floored = value > range.lowest ? value : range.lowest;
    const float clamped = floored < range.highest ? floored : range.highest;
    return static_cast<int16_t>(static_cast<int32_t>(clamped));
}

// count values at once, as one alone.
inline void TruncateToPcm(const float *values, int16_t *samples, size_t count) {
    std::transform(values, values + count, samples,
                   [range = kPcmRange](float value) { return TruncateToPcm(value, range); });
}

}  // namespace aiplc::dsp

#endif
