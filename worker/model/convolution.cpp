// SPDX-License-Identifier: BSD-2-Clause

#include "worker/model/convolution.h"

// Arrays of vectors need a size that is known when compiling.
#define HWY_DISABLED_TARGETS (HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128 | HWY_RVV)

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "worker/model/convolution.cpp"
#include <hwy/foreach_target.h>  // compiles this file once for each instruction set
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace aiplc::worker::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;

using Tag = hn::CappedTag<float, 16>;
using Vector = hn::Vec<Tag>;
constexpr size_t kLanes = hn::MaxLanes(Tag());

// A tile of sums fills the registers: rows times two vectors, or one for half a row.
constexpr size_t kWhole = 2;
constexpr size_t kHalf = kColumns / 2 / kLanes < kWhole ? kColumns / 2 / kLanes : kWhole;
#if (HWY_ARCH_X86 && HWY_TARGET <= HWY_AVX3) || HWY_ARCH_ARM_A64
constexpr size_t kRows = 12;  // of 32 registers
#else
constexpr size_t kRows = 6;  // of 16 registers
#endif
static_assert(Convolution::kPanel % kRows == 0 && kColumns / 2 % (kHalf * kLanes) == 0);

// The columns from column on of kRows outputs; weights, bias and out are those of the first.
template <size_t kVectors>
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
            Vector columns[kVectors];
            for (size_t v = 0; v < kVectors; ++v)
                columns[v] = hn::LoadU(tag, values + v * kLanes);
            for (size_t row = 0; row < kRows; ++row) {
                const Vector weight = hn::Set(tag, weights[row]);
                for (size_t v = 0; v < kVectors; ++v)
                    sums[row][v] = hn::MulAdd(weight, columns[v], sums[row][v]);
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

template <size_t kVectors>
HWY_INLINE void Panels(const Convolution &c, Channels in, size_t dilation, size_t from, size_t to,
                       Onto onto, Row *out) {
    const size_t panelSize = Convolution::kPanel * c.taps * c.inputs;
    for (size_t panel = 0; panel < c.outputs; panel += Convolution::kPanel) {
        const float *const weights = c.weights + panel / Convolution::kPanel * panelSize;
        for (size_t row = 0; row < Convolution::kPanel; row += kRows) {
            for (size_t column = from; column < to; column += kVectors * kLanes)
                Tile<kVectors>(c, weights + row, c.bias + panel + row, in, dilation, column, onto,
                               out + panel + row);
        }
    }
}

void ConvolveAll(const Convolution &c, Channels in, size_t dilation, Onto onto, Row *out) {
    Panels<kWhole>(c, in, dilation, 0, kSpectra, onto, out);
}

void ConvolveLate(const Convolution &c, Channels in, size_t dilation, Onto onto, Row *out) {
    Panels<kHalf>(c, in, dilation, kColumns / 2, kColumns, onto, out);
}

}  // namespace aiplc::worker::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace aiplc::worker {

HWY_EXPORT(ConvolveAll);
HWY_EXPORT(ConvolveLate);

void Convolve(const Convolution &convolution, Channels in, size_t dilation, Onto onto,
              std::span<Row> out) noexcept {
    HWY_DYNAMIC_DISPATCH(ConvolveAll)(convolution, in, dilation, onto, out.data());
}

void ConvolveHalf(const Convolution &convolution, Channels in, size_t dilation, Onto onto,
                  std::span<Row> out) noexcept {
    HWY_DYNAMIC_DISPATCH(ConvolveLate)(convolution, in, dilation, onto, out.data());
}

void Activate(std::span<const Row> rows, const float *slopes, float *out, size_t stride,
              size_t columns) noexcept {
    for (const Row &row : rows) {
        const float slope = *slopes++;
        for (size_t i = 0; i < columns; ++i)
            out[i] = row.at[i] > 0 ? row.at[i] : slope * row.at[i];
        out += stride;
    }
}

}  // namespace aiplc::worker
#endif
