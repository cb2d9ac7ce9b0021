// SPDX-License-Identifier: BSD-2-Clause
//
// Where the audio of a window is missing.

#ifndef AIPLC_WORKER_GAPS_H
#define AIPLC_WORKER_GAPS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "worker/window/predictor.h"

namespace aiplc::worker {

// Samples [begin, end) are missing.
struct Gap {
    size_t begin = 0;
    size_t end = 0;
};

// Two gaps never touch, so a window of eight frames has at most four.
inline constexpr size_t kMaxGaps = kWindowFrames / 2;

// The library clears this many samples at the start of the frame after a gap on its 48 kHz path,
// where the band filters have not settled.
inline constexpr size_t kUnsettledSamples = 16;

// Oldest gap first; returns their number. A gap takes in the cleared start of the frame after it.
size_t FindGaps(std::span<const int16_t, kWindowSamples> window,
                std::array<Gap, kMaxGaps> &gaps) noexcept;

}  // namespace aiplc::worker

#endif
