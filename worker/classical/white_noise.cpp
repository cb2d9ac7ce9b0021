// SPDX-License-Identifier: BSD-2-Clause

#include "worker/classical/white_noise.h"

namespace aiplc::worker {

float WhiteNoise(uint32_t index) noexcept {
    constexpr float kScale = 1.7320508F / 2147483648.0F;  // +-sqrt(3)
    uint32_t h = index;
    h = (h ^ (h >> 16)) * 0x7feb352dU;
    h = (h ^ (h >> 15)) * 0x846ca68bU;
    h ^= h >> 16;
    return static_cast<float>(static_cast<int32_t>(h)) * kScale;
}

}  // namespace aiplc::worker
