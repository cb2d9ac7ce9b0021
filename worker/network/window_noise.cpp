// SPDX-License-Identifier: BSD-2-Clause

#include "worker/network/window_noise.h"

#include <zlib.h>

#include <bit>

#include "worker/classical/white_noise.h"

namespace aiplc::worker {

static_assert(std::endian::native == std::endian::little, "the checksum is that of these bytes");

void MakeNoise(std::span<const int16_t, kWindowSamples> window,
               std::span<float, kSeenSamples> noise) noexcept {
    const auto bytes = std::as_bytes(window);
    const auto seed = static_cast<uint32_t>(
        crc32(0, reinterpret_cast<const Bytef *>(bytes.data()), static_cast<uInt>(bytes.size())));
    for (uint32_t i = 0; i < kSeenSamples; ++i)
        noise[i] = WhiteNoise(seed + i * 0x9e3779b9U);
}

}  // namespace aiplc::worker
