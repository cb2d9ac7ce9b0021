// SPDX-License-Identifier: BSD-2-Clause

#include "host/statistics.h"

#include <algorithm>
#include <cmath>

namespace aiplc::host {

void RequestTimes::Add(float milliseconds) {
    m_longest = std::max(m_longest, milliseconds);
    if (m_times.size() < kRemembered) {
        m_times.push_back(milliseconds);
        return;
    }
    m_times[m_next] = milliseconds;
    m_next = (m_next + 1) % kRemembered;
}

float RequestTimes::Quantile(double share) const {
    if (m_times.empty()) return 0;
    std::vector<float> sorted = m_times;
    const double rank = std::ceil(share * static_cast<double>(sorted.size()));
    const auto index = std::min(static_cast<size_t>(std::max(rank, 1.0)), sorted.size()) - 1;
    const auto nth = sorted.begin() + static_cast<std::ptrdiff_t>(index);
    std::nth_element(sorted.begin(), nth, sorted.end());
    return *nth;
}

}  // namespace aiplc::host
