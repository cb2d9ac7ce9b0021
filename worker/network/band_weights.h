// SPDX-License-Identifier: BSD-2-Clause
//
// The network's bands: triangles over the bins of a spectrum that sum to 1 in each bin. Up to 2 kHz
// a band is a bin, above it grows in proportion to its frequency.

#ifndef AIPLC_WORKER_BAND_WEIGHTS_H
#define AIPLC_WORKER_BAND_WEIGHTS_H

#include <array>

#include "worker/model/network_layout.h"

namespace aiplc::worker {

struct BandWeights {
    BandWeights();

    // A bin is share[bin] of band[bin] + 1 and the rest of band[bin], which is at most kBands - 2.
    std::array<size_t, kBins> band{};
    std::array<float, kBins> share{};
    // 1 over the sum of a band's weights.
    std::array<float, kBands> scale{};
};

}  // namespace aiplc::worker

#endif
