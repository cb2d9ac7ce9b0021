// SPDX-License-Identifier: BSD-2-Clause
//
// The features that the network gets: levels of the signals' spectra and their phases relative to
// the autoregressive classical's, which do not depend on the phase of the speech itself.

#ifndef AIPLC_WORKER_SPECTRAL_FEATURES_H
#define AIPLC_WORKER_SPECTRAL_FEATURES_H

#include <array>
#include <span>

#include "worker/network/band_weights.h"
#include "worker/network/short_spectra.h"
#include "worker/network/window_facts.h"

namespace aiplc::worker {

using SignalSpectra = std::array<Spectra, kSignals>;
// Natural logarithms of power.
using BandLevels = std::array<Row, kBands>;

// Added to every power, relative to the window's: silence has a level too.
inline constexpr float kLeastPower = 1e-7F;

// The natural logarithm of a power as the network is given it.
inline float Level(float logPower) {
    return 0.2F * logPower + 1;
}

class Features {
  public:
    // signals: spectra of the signals divided by facts.scale. noiseLevels: the level that noise has
    // to have, which the features hold too.
    void Make(const SignalSpectra &signals, const WindowFacts &facts,
              std::span<Row, kInputs> features, BandLevels &noiseLevels) noexcept;

  private:
    using BandPower = std::array<Row, kBands>;

    void AddClassical(const Spectra &classical, std::span<Row, kBins> binLevels) noexcept;
    void AddOther(const Spectra &other, const Spectra &classical) noexcept;

    BandWeights m_bands;
    BandPower m_prediction{};
    BandPower m_other{};  // sums over the bands' bins of one other signal: power, cross spectrum
    BandPower m_crossRe{};
    BandPower m_crossIm{};
};

}  // namespace aiplc::worker

#endif
