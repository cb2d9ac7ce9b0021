// SPDX-License-Identifier: BSD-2-Clause

#include "worker/network/window_facts.h"

#include <algorithm>
#include <cmath>

namespace aiplc::worker {

namespace {

// A window that is quieter is not scaled up further; 16-bit steps.
constexpr float kQuietest = 4;

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
    std::array<Gap, kMaxGaps> gaps;
    const size_t count = FindGaps(window, gaps);
    constexpr ptrdiff_t kBegin = kSeenBegin;
    size_t known = kWindowSamples;
    for (const Gap &one : std::span(gaps).first(count)) {
        known -= one.end - one.begin;
        const ptrdiff_t begin = static_cast<ptrdiff_t>(one.begin) - kBegin;
        AddShares(std::max<ptrdiff_t>(begin, 0), static_cast<ptrdiff_t>(one.end) - kBegin, missing);
    }
    gap = {gaps[count - 1].begin - kSeenBegin, gaps[count - 1].end - kSeenBegin};
    AddShares(static_cast<ptrdiff_t>(gap.begin), kSeenSamples, open);
    int64_t power = 0;
    for (const int16_t s : window)
        power += int64_t{s} * s;
    const double mean =
        static_cast<double>(power) / static_cast<double>(std::max<size_t>(known, 1));
    scale = std::max(static_cast<float>(std::sqrt(mean)), kQuietest);
}

}  // namespace aiplc::worker
