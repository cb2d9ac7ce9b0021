// SPDX-License-Identifier: BSD-2-Clause

#include "bench/durations.h"

#include <algorithm>
#include <cmath>

namespace aiplc::bench {

double Quantile(std::vector<double> &values, double share) {
    std::ranges::sort(values);
    const double rank = std::ceil(share * static_cast<double>(values.size()));
    return values[static_cast<size_t>(std::max(rank, 1.0)) - 1];
}

void Durations::Report(benchmark::State &state, const std::string &name) const {
    if (IsEmpty()) return;
    std::vector<double> sorted = m_microseconds;
    state.counters[name + "p50_us"] = Quantile(sorted, 0.5);
    state.counters[name + "p99_us"] = Quantile(sorted, 0.99);
    state.counters[name + "p99.9_us"] = Quantile(sorted, 0.999);
    state.counters[name + "max_us"] = sorted.back();
}

}  // namespace aiplc::bench
