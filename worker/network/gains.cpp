// SPDX-License-Identifier: BSD-2-Clause

#include "worker/network/gains.h"

#include <cmath>

#include "worker/model/row_arithmetic.h"

namespace aiplc::worker {

namespace {

constexpr float kNoiseOffset = -2;  // of the noise's gain before softplus

float Softplus(float x) {
    return x > 20 ? x : std::log1p(std::exp(x));
}

}  // namespace

void Gains::Apply(std::span<const Row, kOutputs> gains, const SignalSpectra &signals,
                  const Spectra &noise, const BandLevels &noiseLevels, size_t first,
                  Spectra &change) noexcept {
    const auto ownRe = gains.first<kBins>();
    const auto ownIm = gains.subspan<kBins, kBins>();
    const auto othersRe = gains.subspan<2 * kBins, kOthers * kBands>();
    const auto othersIm = gains.subspan<2 * kBins + kOthers * kBands, kOthers * kBands>();
    const auto shares = gains.last<kBands>();
    for (size_t band = 0; band < kBands; ++band) {
        for (size_t i = first; i < kSpectra; ++i)
            m_noiseGains[band].at[i] =
                Softplus(shares[band].at[i] + kNoiseOffset) * std::exp(noiseLevels[band].at[i] / 2);
    }
    for (size_t bin = 0; bin < kBins; ++bin) {
        const size_t band = m_bands.band[bin];
        const float share = m_bands.share[bin];
        Row re{};
        Row im{};
        AddProduct(ownRe[bin], ownIm[bin], signals[0].re[bin], signals[0].im[bin], re, im);
        for (size_t other = 0; other < kOthers; ++other) {
            const size_t at = other * kBands + band;
            AddProduct(Between(othersRe[at], othersRe[at + 1], share),
                       Between(othersIm[at], othersIm[at + 1], share), signals[other + 1].re[bin],
                       signals[other + 1].im[bin], re, im);
        }
        const Row level = Between(m_noiseGains[band], m_noiseGains[band + 1], share);
        AddProduct(level, {}, noise.re[bin], noise.im[bin], re, im);
        change.re[bin] = re;
        change.im[bin] = im;
    }
}

}  // namespace aiplc::worker
