// SPDX-License-Identifier: BSD-2-Clause

#include "worker/network/short_spectra.h"

#include <kissfft/kiss_fftr.h>

#include <algorithm>
#include <cmath>
#include <new>
#include <numbers>

namespace aiplc::worker {

namespace {

constexpr size_t kPadding = kSpectrumSize / 2;

double Hann(size_t i) {
    const double turn = static_cast<double>(i) / static_cast<double>(kSpectrumSize);
    return 0.5 - 0.5 * std::cos(2 * std::numbers::pi * turn);
}

}  // namespace

void ShortSpectra::Free::operator()(kiss_fftr_state *state) const {
    kiss_fftr_free(state);
}

ShortSpectra::ShortSpectra()
    : m_forward(kiss_fftr_alloc(kSpectrumSize, 0, nullptr, nullptr)),
      m_inverse(kiss_fftr_alloc(kSpectrumSize, 1, nullptr, nullptr)) {
    if (!m_forward || !m_inverse) throw std::bad_alloc();
    double power = 0;
    for (size_t i = 0; i < kSpectrumSize; ++i)
        power += Hann(i) * Hann(i);
    const double scale = std::sqrt(power);
    Padded overlap{};
    for (size_t i = 0; i < kSpectrumSize; ++i) {
        m_analysis[i] = static_cast<float>(Hann(i) / scale);
        m_synthesis[i] = static_cast<float>(Hann(i) * scale / kSpectrumSize);
        for (size_t spectrum = 0; spectrum < kSpectra; ++spectrum)
            overlap[spectrum * kHop + i] += static_cast<float>(Hann(i) * Hann(i));
    }
    std::ranges::transform(overlap, m_overlap.begin(),
                           [](float sum) { return sum > 0 ? 1 / sum : 0; });
}

void ShortSpectra::Analyse(std::span<const float, kSeenSamples> signal, size_t first,
                           Spectra &spectra) noexcept {
    std::fill_n(m_padded.begin(), kPadding, 0.0F);
    std::ranges::copy(signal, m_padded.begin() + kPadding);
    std::fill_n(m_padded.end() - kPadding, kPadding, 0.0F);
    std::array<float, kSpectrumSize> time{};
    std::array<kiss_fft_cpx, kBins> bins{};
    for (size_t spectrum = first; spectrum < kSpectra; ++spectrum) {
        const float *const from = &m_padded[spectrum * kHop];
        for (size_t i = 0; i < kSpectrumSize; ++i)
            time[i] = from[i] * m_analysis[i];
        kiss_fftr(m_forward.get(), time.data(), bins.data());
        for (size_t bin = 0; bin < kBins; ++bin) {
            spectra.re[bin].at[spectrum] = bins[bin].r;
            spectra.im[bin].at[spectrum] = bins[bin].i;
        }
    }
}

void ShortSpectra::Synthesise(const Spectra &spectra, size_t begin,
                              std::span<float, kSeenSamples> signal) noexcept {
    m_padded.fill(0.0F);
    std::array<float, kSpectrumSize> time{};
    std::array<kiss_fft_cpx, kBins> bins{};
    for (size_t spectrum = FirstSpectrum(begin); spectrum < kSpectra; ++spectrum) {
        for (size_t bin = 0; bin < kBins; ++bin)
            bins[bin] = {spectra.re[bin].at[spectrum], spectra.im[bin].at[spectrum]};
        kiss_fftri(m_inverse.get(), bins.data(), time.data());
        float *const to = &m_padded[spectrum * kHop];
        for (size_t i = 0; i < kSpectrumSize; ++i)
            to[i] += time[i] * m_synthesis[i];
    }
    for (size_t i = begin; i < kSeenSamples; ++i)
        signal[i] = m_padded[kPadding + i] * m_overlap[kPadding + i];
}

}  // namespace aiplc::worker
