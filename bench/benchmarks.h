// SPDX-License-Identifier: BSD-2-Clause
//
// The subjects of the program, one file each. Every Register call adds its benchmarks.

#ifndef AIPLC_BENCH_BENCHMARKS_H
#define AIPLC_BENCH_BENCHMARKS_H

namespace aiplc::bench {

void RegisterFrames();
void RegisterKernels();
void RegisterModel();
void RegisterRoundTrips();

}  // namespace aiplc::bench

#endif
