// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_WORKER_WHITE_NOISE_H
#define AIPLC_WORKER_WHITE_NOISE_H

#include <cstdint>

namespace aiplc::worker {

// A sample of white noise with a uniform distribution and variance 1: the "lowbias32" hash of the
// index (C. Wellons, "Prospecting for hash functions", 2018).
float WhiteNoise(uint32_t index) noexcept;

}  // namespace aiplc::worker

#endif
