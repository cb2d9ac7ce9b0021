// SPDX-License-Identifier: BSD-2-Clause

#include "bench/arithmetic_peak.h"

#include <benchmark/benchmark.h>

#include <cstddef>

namespace aiplc::bench {

namespace {

constexpr int64_t kLanes = 4;
using Lanes [[gnu::vector_size(kLanes * sizeof(float))]] = float;

// Independent sums: enough to hide the latency of a multiplication and an addition (up to eight
// cycles) at up to two of each a cycle, and with the two factors no more than sixteen registers.
constexpr size_t kSums = 14;

}  // namespace

int64_t MultiplyAndAdd(int64_t turns) {
    Lanes factor = {0.5F, 0.5F, 0.5F, 0.5F};
    Lanes summand = {1, 2, 3, 4};
    benchmark::DoNotOptimize(factor);
    benchmark::DoNotOptimize(summand);
    Lanes sums[kSums] = {};
    for (Lanes &sum : sums)
        benchmark::DoNotOptimize(sum);  // else they are one, since they are equal
    for (int64_t turn = 0; turn < turns; ++turn) {
#pragma GCC unroll 14
        for (Lanes &sum : sums)
            sum = sum * factor + summand;
    }
    for (Lanes &sum : sums)
        benchmark::DoNotOptimize(sum);
    return turns * static_cast<int64_t>(kSums) * kLanes;
}

}  // namespace aiplc::bench
