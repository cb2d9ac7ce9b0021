// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_BENCH_DURATIONS_H
#define AIPLC_BENCH_DURATIONS_H

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace aiplc::bench {

// Nearest rank; values is not empty and is put in order.
double Quantile(std::vector<double> &values, double share);
inline double Median(std::vector<double> values) {
    return Quantile(values, 0.5);
}

// The times of one thing that was done many times.
class Durations {
  public:
    // Adding that many allocates nothing.
    explicit Durations(int64_t expected) { m_microseconds.reserve(static_cast<size_t>(expected)); }

    void Add(int64_t nanoseconds) {
        m_microseconds.push_back(static_cast<double>(nanoseconds) / 1000);
    }
    bool IsEmpty() const { return m_microseconds.empty(); }
    double MedianUs() const { return Median(m_microseconds); }
    double ShortestUs() const { return *std::ranges::min_element(m_microseconds); }
    // Counters NAMEp50_us, NAMEp99_us, NAMEp99.9_us, NAMEmax_us.
    void Report(benchmark::State &state, const std::string &name = "") const;

  private:
    std::vector<double> m_microseconds;
};

}  // namespace aiplc::bench

#endif
