// SPDX-License-Identifier: BSD-2-Clause
//
// Where the audio of a window is missing.

#ifndef AIPLC_WORKER_HOLES_H
#define AIPLC_WORKER_HOLES_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "predictor.h"

namespace aiplc::worker {

// Samples [begin, end) are missing.
struct Hole {
    size_t begin = 0;
    size_t end = 0;
};

// Two holes never touch, so a window of eight frames has at most four.
inline constexpr size_t kMaxHoles = kWindowFrames / 2;

// The library clears this many samples at the start of the frame after a gap on its 48 kHz path,
// where the band filters have not settled.
inline constexpr size_t kUnsettledSamples = 16;

// Oldest hole first; returns their number. A hole takes in the cleared start of the frame after it.
size_t FindHoles(std::span<const int16_t, kWindowSamples> window,
                 std::array<Hole, kMaxHoles> &holes) noexcept;

}  // namespace aiplc::worker

#endif
