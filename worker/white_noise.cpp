// SPDX-License-Identifier: BSD-2-Clause

#include "white_noise.h"

#include <zlib.h>

#include <bit>

namespace aiplc::worker {

static_assert(std::endian::native == std::endian::little, "the checksum is that of these bytes");

float WhiteNoise(uint32_t index) noexcept {
    constexpr float kScale = 1.7320508F / 2147483648.0F;  // +-sqrt(3)
    uint32_t h = index;
    h = (h ^ (h >> 16)) * 0x7feb352dU;
    h = (h ^ (h >> 15)) * 0x846ca68bU;
    h ^= h >> 16;
    return static_cast<float>(static_cast<int32_t>(h)) * kScale;
}

void MakeNoise(std::span<const int16_t, kWindowSamples> window,
               std::span<float, kSeenSamples> noise) noexcept {
    const auto bytes = std::as_bytes(window);
    const auto seed = static_cast<uint32_t>(
        crc32(0, reinterpret_cast<const Bytef *>(bytes.data()), static_cast<uInt>(bytes.size())));
    for (uint32_t i = 0; i < kSeenSamples; ++i)
        noise[i] = WhiteNoise(seed + i * 0x9e3779b9U);
}

}  // namespace aiplc::worker
