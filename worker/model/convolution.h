// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_WORKER_CONVOLUTION_H
#define AIPLC_WORKER_CONVOLUTION_H

#include <cstddef>
#include <span>

#include "worker/model/network_layout.h"

namespace aiplc::worker {

// A convolution over the spectra, of 1 or 3 taps. Its weights lie in the order in which they are
// used: for kPanel outputs at a time, for each tap, for each input, one weight an output.
struct Convolution {
    static constexpr size_t kPanel = 12;
    // Outputs with those that fill the last panel up, whose weights and biases are 0.
    static constexpr size_t Padded(size_t outputs) {
        return (outputs + kPanel - 1) / kPanel * kPanel;
    }

    const float *weights = nullptr;
    const float *bias = nullptr;
    size_t inputs = 0;
    size_t outputs = 0;
    size_t taps = 1;
};

// Channels of values at all spectra, each stride floats behind the one before. first is the first
// channel's value at spectrum 0.
struct Channels {
    const float *first = nullptr;
    size_t stride = kColumns;
};

enum class Onto { bias, sum };

// Sets out to the convolution of in or, onto sum, adds it. Tap t takes values
// (t - taps / 2) * dilation spectra on: in must have so many zeros on either side of its kColumns
// values. out has Padded(outputs) rows.
void Convolve(const Convolution &convolution, Channels in, size_t dilation, Onto onto,
              std::span<Row> out) noexcept;
// The same for the second half of the columns only.
void ConvolveHalf(const Convolution &convolution, Channels in, size_t dilation, Onto onto,
                  std::span<Row> out) noexcept;

// A PReLU of the first columns of the rows, by channel. The channels of out lie stride floats
// apart; out may be the rows themselves.
void Activate(std::span<const Row> rows, const float *slopes, float *out, size_t stride,
              size_t columns) noexcept;

}  // namespace aiplc::worker

#endif
