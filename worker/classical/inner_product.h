// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_WORKER_INNER_PRODUCT_H
#define AIPLC_WORKER_INNER_PRODUCT_H

#include <array>
#include <cstddef>

// Marks functions that are compiled for wider vectors too; the version is chosen when the worker
// starts. Without fused operations the sums are the same on every machine.
#if defined(__x86_64__)
#define AIPLC_WIDER __attribute__((target_clones("avx2", "default")))
#else
#define AIPLC_WIDER
#endif

namespace aiplc::worker {

// Partial sums that do not wait for one another, so that loops over them vectorise.
using Lanes = std::array<float, 32>;

// The lanes' sum, added in pairs.
inline float Sum(const Lanes &lanes) {
    Lanes sums = lanes;
    for (size_t half = sums.size() / 2; half > 0; half /= 2) {
        for (size_t i = 0; i < half; ++i)
            sums[i] += sums[i + half];
    }
    return sums[0];
}

// Inner product of count samples in interleaved partial sums.
float InnerProduct(const float *a, const float *b, size_t count) noexcept;

}  // namespace aiplc::worker

#endif
