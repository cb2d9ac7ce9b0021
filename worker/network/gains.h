// SPDX-License-Identifier: BSD-2-Clause
//
// The change of the spectra that follows from the network's gains.

#ifndef AIPLC_WORKER_GAINS_H
#define AIPLC_WORKER_GAINS_H

#include <array>
#include <span>

#include "worker/network/band_weights.h"
#include "worker/network/short_spectra.h"
#include "worker/network/spectral_features.h"

namespace aiplc::worker {

class Gains {
  public:
    // The sum of the signals times their gains and of the noise at its level: what is to be added
    // to the prediction. noise: of white noise of variance 1. Spectra before first are left as they
    // were.
    void Apply(std::span<const Row, kOutputs> gains, const SignalSpectra &signals,
               const Spectra &noise, const BandLevels &noiseLevels, size_t first,
               Spectra &change) noexcept;

  private:
    BandWeights m_bands;
    std::array<Row, kBands> m_noiseGains{};
};

}  // namespace aiplc::worker

#endif
