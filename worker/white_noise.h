// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_WORKER_WHITE_NOISE_H
#define AIPLC_WORKER_WHITE_NOISE_H

#include <cstdint>
#include <span>

#include "network_layout.h"
#include "predictor.h"

namespace aiplc::worker {

// A sample of white noise with a uniform distribution and variance 1: the "lowbias32" hash of the
// index (C. Wellons, "Prospecting for hash functions", 2018).
float WhiteNoise(uint32_t index) noexcept;

// The noise that the network shapes, another one for each window: sample i is that of the index
// CRC-32 of the window's bytes plus 0x9e3779b9 * i.
void MakeNoise(std::span<const int16_t, kWindowSamples> window,
               std::span<float, kSeenSamples> noise) noexcept;

}  // namespace aiplc::worker

#endif
