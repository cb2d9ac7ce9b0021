// SPDX-License-Identifier: BSD-2-Clause
//
// Continues speech by repeating its last pitch cycle, as ITU-T G.711 Appendix I (1999) does. Unlike
// an autoregressive extrapolation it keeps its level and its high harmonics, however long it runs.

#ifndef AIPLC_WORKER_PITCH_REPETITION_H
#define AIPLC_WORKER_PITCH_REPETITION_H

#include <cstddef>
#include <span>

namespace aiplc::worker {

inline constexpr size_t kShortestCycle = 32;  // samples at 16 kHz: 500 Hz
inline constexpr size_t kLongestCycle = 320;  // 50 Hz

// The lag, kShortestCycle..kLongestCycle, at which the end of the samples resembles what lies
// before it most; at most half of the samples. 0 where there are fewer than 2 * kShortestCycle
// samples.
size_t PitchCycle(std::span<const float> past) noexcept;

// Fills made with what follows past. Its last cycle runs into its own start over an eighth of its
// length, so that the repetition has no steps. Zeros where PitchCycle finds none.
void RepeatPitch(std::span<const float> past, std::span<float> made) noexcept;

}  // namespace aiplc::worker

#endif
