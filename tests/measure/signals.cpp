// SPDX-License-Identifier: BSD-2-Clause

#include "tests/measure/signals.h"

#include <cmath>
#include <numbers>

namespace aiplc::measure {

Samples Sine(int rate, double hz, double amplitude, size_t length) {
    Samples samples;
    for (size_t i = 0; i < length; ++i) {
        const double cycles = hz * static_cast<double>(i) / rate;
        samples.push_back(static_cast<int16_t>(
            std::lrint(amplitude * std::sin(2.0 * std::numbers::pi * cycles))));
    }
    return samples;
}

Samples Sum(Samples one, const Samples &other) {
    for (size_t i = 0; i < one.size(); ++i)
        one[i] = static_cast<int16_t>(one[i] + other[i]);
    return one;
}

Samples Noise(uint32_t seed, double scale, size_t length) {
    Samples samples;
    for (size_t i = 0; i < length; ++i) {
        seed = seed * 1664525U + 1013904223U;
        const double value = static_cast<double>(seed >> 16) - 32768.0;
        samples.push_back(static_cast<int16_t>(std::lrint(scale * value)));
    }
    return samples;
}

}  // namespace aiplc::measure
