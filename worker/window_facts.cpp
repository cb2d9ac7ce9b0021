// SPDX-License-Identifier: BSD-2-Clause

#include "window_facts.h"

#include <zlib.h>

#include <algorithm>
#include <bit>
#include <cmath>

namespace aiplc::worker {

namespace {

// A window that is quieter is not scaled up further; 16-bit steps.
constexpr float kQuietest = 4;

static_assert(std::endian::native == std::endian::little, "the checksum is that of these bytes");

// The share of each spectrum's 80 samples that lies in [begin, end).
void AddShares(ptrdiff_t begin, ptrdiff_t end, Row &shares) {
    constexpr ptrdiff_t kWidth = kHop;
    for (size_t i = 0; i < kSpectra; ++i) {
        const ptrdiff_t from = static_cast<ptrdiff_t>(i) * kWidth - kWidth / 2;
        const ptrdiff_t covered = std::min(end, from + kWidth) - std::max(begin, from);
        shares.at[i] += static_cast<float>(std::max<ptrdiff_t>(covered, 0)) / kHop;
    }
}

}  // namespace

WindowFacts::WindowFacts(std::span<const int16_t, kWindowSamples> window) noexcept {
    std::array<Hole, kMaxHoles> holes;
    const size_t count = FindHoles(window, holes);
    constexpr ptrdiff_t kBegin = kSeenBegin;
    size_t known = kWindowSamples;
    for (const Hole &one : std::span(holes).first(count)) {
        known -= one.end - one.begin;
        const ptrdiff_t begin = static_cast<ptrdiff_t>(one.begin) - kBegin;
        AddShares(std::max<ptrdiff_t>(begin, 0), static_cast<ptrdiff_t>(one.end) - kBegin, missing);
    }
    hole = {holes[count - 1].begin - kSeenBegin, holes[count - 1].end - kSeenBegin};
    AddShares(static_cast<ptrdiff_t>(hole.begin), kSeenSamples, open);
    int64_t power = 0;
    for (const int16_t s : window)
        power += int64_t{s} * s;
    const double mean =
        static_cast<double>(power) / static_cast<double>(std::max<size_t>(known, 1));
    scale = std::max(static_cast<float>(std::sqrt(mean)), kQuietest);
}

void MakeNoise(std::span<const int16_t, kWindowSamples> window,
               std::span<float, kSeenSamples> noise) noexcept {
    const auto bytes = std::as_bytes(window);
    const auto seed = static_cast<uint32_t>(
        crc32(0, reinterpret_cast<const Bytef *>(bytes.data()), static_cast<uInt>(bytes.size())));
    constexpr float kScale = 1.7320508F / 2147483648.0F;  // uniform, +-sqrt(3)
    for (uint32_t i = 0; i < kSeenSamples; ++i) {
        uint32_t h = seed + i * 0x9e3779b9U;
        h = (h ^ (h >> 16)) * 0x7feb352dU;
        h = (h ^ (h >> 15)) * 0x846ca68bU;
        h ^= h >> 16;
        noise[i] = static_cast<float>(static_cast<int32_t>(h)) * kScale;
    }
}

}  // namespace aiplc::worker
