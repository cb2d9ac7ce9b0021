// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_BENCH_REGISTRATION_H
#define AIPLC_BENCH_REGISTRATION_H

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <string>

namespace aiplc::bench {

// Adds a benchmark that takes its times itself, in microseconds; what run throws is its error.
void Register(const std::string &name, int64_t iterations,
              std::function<void(benchmark::State &)> run);

}  // namespace aiplc::bench

#endif
