// SPDX-License-Identifier: BSD-2-Clause

#include "host/statistics.h"

#include <algorithm>
#include <cmath>

namespace aiplc::host {

uint64_t Statistics::Frames(FrameSource source) const {
    return framesBySource.at(static_cast<size_t>(source));
}

float Statistics::RequestTimeMs(double share) const {
    if (requestTimesMs.empty()) return 0;
    std::vector<float> sorted = requestTimesMs;
    const double rank = std::ceil(share * static_cast<double>(sorted.size()));
    const auto index = std::min(static_cast<size_t>(std::max(rank, 1.0)), sorted.size()) - 1;
    const auto nth = sorted.begin() + static_cast<std::ptrdiff_t>(index);
    std::nth_element(sorted.begin(), nth, sorted.end());
    return *nth;
}

}  // namespace aiplc::host
