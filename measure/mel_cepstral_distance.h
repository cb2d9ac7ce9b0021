// SPDX-License-Identifier: BSD-2-Clause

#ifndef AIPLC_MEASURE_MEL_CEPSTRAL_DISTANCE_H
#define AIPLC_MEASURE_MEL_CEPSTRAL_DISTANCE_H

#include <array>
#include <cstddef>
#include <span>
#include <vector>

namespace aiplc::measure {

// Mel-cepstral distance of two frames in dB after Kubichek, "Mel-cepstral distance measure for
// objective speech quality assessment", PACRIM 1993: 10 / ln 10 sqrt(2 sum (c - cref)^2) over
// coefficients 1 to 13. The cepstrum is the cosine transform of ln(power + 1) in 24 triangular
// bands that lie equally spaced from 0 to 8 kHz on the mel scale 2595 log10(1 + f / 700 Hz); the
// 1 is one squared 16-bit step. Coefficient 0, the level, has no say.
class MelCepstralDistance {
  public:
    MelCepstralDistance();

    // Power spectra as FrameSpectrum makes them at either rate; above 8 kHz nothing counts.
    [[nodiscard]] double Db(std::span<const double> power, std::span<const double> reference) const;

  private:
    static constexpr size_t kBands = 24;
    static constexpr size_t kCoefficients = 13;
    struct Band {
        size_t firstBin = 0;
        std::vector<double> weights;
    };

    [[nodiscard]] std::array<double, kCoefficients> Cepstrum(std::span<const double> power) const;

    std::array<Band, kBands> m_bands;
    std::array<std::array<double, kBands>, kCoefficients> m_cosines{};
};

}  // namespace aiplc::measure

#endif
