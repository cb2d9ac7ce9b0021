// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_BENCH_ARITHMETIC_PEAK_H
#define AIPLC_BENCH_ARITHMETIC_PEAK_H

#include <cstdint>

namespace aiplc::bench {

// Multiplies and adds in registers alone, so many times over; returns the multiply-adds done. The
// instructions are those that the library is compiled for: on x86-64 four floats at a time, the
// product rounded before it is added.
int64_t MultiplyAndAdd(int64_t turns);

}  // namespace aiplc::bench

#endif
