// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_TESTS_MEASURE_SIGNALS_H
#define AIPLC_TESTS_MEASURE_SIGNALS_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace aiplc::measure {

using Samples = std::vector<int16_t>;

Samples Sine(int rate, double hz, double amplitude, size_t length);
// Sample by sample; lengths are equal.
Samples Sum(Samples one, const Samples &other);
// Uniform noise of a linear congruential generator (x -> 1664525 x + 1013904223, upper 16 bits).
Samples Noise(uint32_t seed, double scale, size_t length);

}  // namespace aiplc::measure

#endif
