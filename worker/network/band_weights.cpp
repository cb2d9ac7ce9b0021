// SPDX-License-Identifier: BSD-2-Clause

#include "worker/network/band_weights.h"

#include <algorithm>
#include <cmath>

namespace aiplc::worker {

namespace {

constexpr size_t kLinearBands = 40;

double Centre(size_t band) {
    if (band < kLinearBands) return static_cast<double>(band);
    const double at = static_cast<double>(band - kLinearBands) / (kBands - kLinearBands - 1);
    return kLinearBands * std::pow((kBins - 1.0) / kLinearBands, at);
}

}  // namespace

BandWeights::BandWeights() {
    std::array<double, kBands> sums{};
    size_t below = 0;
    for (size_t bin = 0; bin < kBins; ++bin) {
        const auto at = static_cast<double>(bin);
        while (below + 2 < kBands && Centre(below + 1) <= at)
            ++below;
        const double width = Centre(below + 1) - Centre(below);
        const double upper = std::min((at - Centre(below)) / width, 1.0);
        band[bin] = below;
        share[bin] = static_cast<float>(upper);
        sums[below] += 1 - upper;
        sums[below + 1] += upper;
    }
    std::ranges::transform(sums, scale.begin(),
                           [](double sum) { return static_cast<float>(1 / sum); });
}

}  // namespace aiplc::worker
