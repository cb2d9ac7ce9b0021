// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_WORKER_WINDOW_NOISE_H
#define AIPLC_WORKER_WINDOW_NOISE_H

#include <cstdint>
#include <span>

#include "worker/model/network_layout.h"
#include "worker/window/predictor.h"

namespace aiplc::worker {

// The noise that the network shapes, another one for each window: sample i is that of the index
// CRC-32 of the window's bytes plus 0x9e3779b9 * i.
void MakeNoise(std::span<const int16_t, kWindowSamples> window,
               std::span<float, kSeenSamples> noise) noexcept;

}  // namespace aiplc::worker

#endif
