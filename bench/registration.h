// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_BENCH_REGISTRATION_H
#define AIPLC_BENCH_REGISTRATION_H

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <string>

namespace aiplc::bench {

// Adds a benchmark that takes its times itself, in microseconds; what run throws is its error. Of
// several repetitions the medians are shown.
void Register(const std::string &name, int64_t iterations,
              std::function<void(benchmark::State &)> run, int repetitions = 1);

// Odd, and enough for a median that a disturbance of a few of them leaves alone.
constexpr int kRepetitions = 9;

}  // namespace aiplc::bench

#endif
