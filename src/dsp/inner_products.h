// SPDX-License-Identifier: BSD-2-Clause
//
// Inner products of neighbouring outputs, side by side. Each is summed from its first term to its
// last, as it would be alone, so the result is the same for any width.

#ifndef AIPLC_INNER_PRODUCTS_H
#define AIPLC_INNER_PRODUCTS_H

#include <array>
#include <cfloat>
#include <cstddef>
#include <type_traits>

namespace aiplc::dsp {

static_assert(FLT_EVAL_METHOD == 0,
              "sums need the precision of float: for 32-bit x86 add -msse2 -mfpmath=sse");

template <size_t Rows, size_t Width>
using Sums = std::array<std::array<float, Width>, Rows>;

// Sums over the terms of taps[row][term] * source(term)[i], for Width neighbours i.
template <size_t Width, size_t Rows, typename Source>
inline Sums<Rows, Width> InnerProducts(const std::array<const float *, Rows> &taps, size_t terms,
                                       Source source) {
    Sums<Rows, Width> sums{};
    for (size_t term = 0; term < terms; ++term) {
        const float *values = source(term);
        for (size_t row = 0; row < Rows; ++row) {
            const float tap = taps[row][term];
            for (size_t i = 0; i < Width; ++i)
                sums[row][i] += tap * values[i];
        }
    }
    return sums;
}

// Calls block(width, first) until all of count outputs are covered, width a constant. The last
// block of Width may repeat outputs of the one before.
template <size_t Width, typename Block>
void InBlocks(size_t count, Block block) {
    if (count < Width) {
        for (size_t i = 0; i < count; ++i)
            block(std::integral_constant<size_t, 1>{}, i);
        return;
    }
    for (size_t i = 0; i + Width < count; i += Width)
        block(std::integral_constant<size_t, Width>{}, i);
    block(std::integral_constant<size_t, Width>{}, count - Width);
}

}  // namespace aiplc::dsp

#endif
