// SPDX-License-Identifier: BSD-2-Clause

#include "convolution.h"

// Arrays of vectors need a size that is known when compiling.
#define HWY_DISABLED_TARGETS (HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128 | HWY_RVV)

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "convolution.cpp"
#include <hwy/foreach_target.h>  // compiles this file once for each instruction set
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace aiplc::worker::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

using Tag = hn::CappedTag<float, 16>;
using Vector = hn::Vec<Tag>;
constexpr size_t kLanes = hn::MaxLanes(Tag());

// A tile of sums fills the registers: rows times two vectors, and two vectors of inputs.
constexpr size_t kVectors = 2;
#if (HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX3) || HWY_ARCH_ARM_A64
constexpr size_t kRows = 12;  // of 32 registers
#else
constexpr size_t kRows = 6;  // of 16 registers
#endif
static_assert(Convolution::kPanel % kRows == 0 && kColumns % (kVectors * kLanes) == 0);

// The columns from column on of kRows outputs; weights, bias and out are those of the first.
HWY_INLINE void Tile(const Convolution &c, const float *HWY_RESTRICT weights,
                     const float *HWY_RESTRICT bias, Channels in, size_t dilation, size_t column,
                     Onto onto, Row *HWY_RESTRICT out) {
    const Tag tag;
    Vector sums[kRows][kVectors];
    for (size_t row = 0; row < kRows; ++row) {
        for (size_t v = 0; v < kVectors; ++v) {
            sums[row][v] = hn::Set(tag, bias[row]);
            if (onto == Onto::sum)
                sums[row][v] =
                    hn::Add(sums[row][v], hn::Load(tag, out[row].at + column + v * kLanes));
        }
    }
    const float *HWY_RESTRICT start = in.first + column - (c.taps / 2) * dilation;
    for (size_t tap = 0; tap < c.taps; ++tap, start += dilation) {
        const float *HWY_RESTRICT values = start;
        for (size_t i = 0; i < c.inputs; ++i) {
            const Vector left = hn::LoadU(tag, values);
            const Vector right = hn::LoadU(tag, values + kLanes);
            for (size_t row = 0; row < kRows; ++row) {
                const Vector weight = hn::Set(tag, weights[row]);
                sums[row][0] = hn::MulAdd(weight, left, sums[row][0]);
                sums[row][1] = hn::MulAdd(weight, right, sums[row][1]);
            }
            values += in.stride;
            weights += Convolution::kPanel;
        }
    }
    for (size_t row = 0; row < kRows; ++row) {
        for (size_t v = 0; v < kVectors; ++v)
            hn::Store(sums[row][v], tag, out[row].at + column + v * kLanes);
    }
}

void ConvolveAll(const Convolution &c, Channels in, size_t dilation, Onto onto, Row *out) {
    const size_t panelSize = Convolution::kPanel * c.taps * c.inputs;
    for (size_t panel = 0; panel < c.outputs; panel += Convolution::kPanel) {
        const float *const weights = c.weights + panel / Convolution::kPanel * panelSize;
        for (size_t row = 0; row < Convolution::kPanel; row += kRows) {
            for (size_t column = 0; column < kSpectra; column += kVectors * kLanes)
                Tile(c, weights + row, c.bias + panel + row, in, dilation, column, onto,
                     out + panel + row);
        }
    }
}

}  // namespace aiplc::worker::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace aiplc::worker {

HWY_EXPORT(ConvolveAll);

void Convolve(const Convolution &convolution, Channels in, size_t dilation, Onto onto,
              std::span<Row> out) noexcept {
    HWY_DYNAMIC_DISPATCH(ConvolveAll)(convolution, in, dilation, onto, out.data());
}

}  // namespace aiplc::worker
#endif
